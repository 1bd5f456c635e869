#include "Kernel/Geometry/CombineRow.h"

#include "Kernel/Core/Checks.h"
#include "Kernel/Pixels/BitCombine.h"
#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

bool isGray(const BITMAPHANDLE* p) noexcept { return p->Order == ORDER_GRAY; }

/// The largest sample, at which sums are cut and by which products are scaled.
unsigned topOf(const BITMAPHANDLE* p) noexcept
{
    const R_INT bits = p->BitsPerPixel;
    if (bits < 8) return (1u << bits) - 1;
    if (bits == 12 || (bits == 16 && isGray(p))) return (2u << std::min(highBit(p), bits - 1)) - 1;
    if (bits == 16) return 31;
    return bits > 32 ? 65535 : 255;
}

bool hasAlpha(R_INT64 bits) noexcept { return bits == 32 || bits == 64; }

} // namespace

RowCombiner::RowCombiner(const BITMAPHANDLE* pDst, const CombineCode& code, R_INT width) noexcept
    : code_(code), bits_(pDst->BitsPerPixel), format_(sampleFormatOf(pDst->BitsPerPixel, isGray(pDst))),
      top_(topOf(pDst)), status_(takeMemory(width))
{
}

Status RowCombiner::takeMemory(R_INT64 width) noexcept
{
    if (code_.way == CombineCode::Way::bits) return SUCCESS;
    const auto units = static_cast<R_UINT64>((width + 7) & ~R_INT64{7});
    const R_UINT64 sampleBytes = units * format_.samplesPerPixel * format_.sampleBytes + kSampleSlack;
    if (code_.invertSource || format_.unpack != nullptr) {
        sourceSamples_ = RowBuffer(sampleBytes);
        if (!sourceSamples_) return ERROR_FAILURE;
    }
    if (format_.unpack == nullptr) return SUCCESS;
    targetSamples_ = RowBuffer(sampleBytes);
    aligned_ = RowBuffer(units * static_cast<R_UINT64>(bits_) / 8 + kSampleSlack);
    return targetSamples_ && aligned_ ? SUCCESS : ERROR_FAILURE;
}

void RowCombiner::combine(uint8_t* target, R_INT64 targetColumn, const uint8_t* source, R_INT64 sourceColumn,
                          R_INT64 count) noexcept
{
    const R_INT64 targetBit = targetColumn * bits_;
    if (!code_.readsSource()) { // then the target stands in for it
        combineBits(code_.table, target, targetBit, target, targetBit, count * bits_);
        return;
    }
    const R_INT64 sourceBit = sourceColumn * bits_;
    if (code_.way == CombineCode::Way::bits) {
        combineBits(code_.table, target, targetBit, source, sourceBit, count * bits_);
    } else if (format_.unpack != nullptr) {
        combineUnpacked(target, targetBit, source, sourceBit, count);
    } else {
        uint8_t* const first = target + targetBit / 8;
        combineSamples(first, source + sourceBit / 8, static_cast<size_t>(count));
        if (code_.invertResult) rowKernels().invert(first, first, static_cast<size_t>(count * bits_ / 8));
    }
}

bool RowCombiner::combineRows(uint8_t* target, R_INT64 targetColumn, const uint8_t* source, R_INT64 sourceColumn,
                              R_INT64 count, R_INT64 rows, R_INT64 rowBytes) noexcept
{
    if (code_.way != CombineCode::Way::bits) return false;
    if (!code_.readsSource()) sourceColumn = targetColumn;
    combineBitRows(code_.table, target, targetColumn * bits_, source, sourceColumn * bits_, count * bits_, rows,
                   rowBytes);
    return true;
}

void RowCombiner::combineUnpacked(uint8_t* target, R_INT64 targetBit, const uint8_t* source, R_INT64 sourceBit,
                                  R_INT64 count) noexcept
{
    const auto pixels = static_cast<size_t>(count);
    const R_INT64 runBits = count * bits_;
    uint8_t* const aligned = aligned_.data();
    copyBits(aligned, 0, source, sourceBit, runBits);
    format_.unpack(sourceSamples_.data(), aligned, pixels);
    copyBits(aligned, 0, target, targetBit, runBits);
    format_.unpack(targetSamples_.data(), aligned, pixels);
    combineSamples(targetSamples_.data(), sourceSamples_.data(), pixels);
    format_.pack(aligned, targetSamples_.data(), pixels);
    if (code_.invertResult) rowKernels().invert(aligned, aligned, static_cast<size_t>((runBits + 7) / 8));
    copyBits(target, targetBit, aligned, 0, runBits);
}

void RowCombiner::combineSamples(uint8_t* target, const uint8_t* source, size_t pixels) noexcept
{
    const simd::RowKernels& kernels = rowKernels();
    const size_t samples = pixels * format_.samplesPerPixel;
    const size_t bytes = samples * format_.sampleBytes;
    const bool words = format_.sampleBytes == 2;
    if (code_.invertSource) {
        kernels.invert(sourceSamples_.data(), source, bytes);
        source = sourceSamples_.data();
    }
    if (code_.invertTarget) kernels.invert(target, target, bytes);
    if (code_.way == CombineCode::Way::samples) {
        const auto operation = static_cast<size_t>(code_.arithmetic);
        (words ? kernels.combine16 : kernels.combine8)[operation](target, source, samples, top_);
    } else if (hasAlpha(bits_)) {
        (words ? kernels.over16 : kernels.over8)(target, source, pixels);
    } else {
        std::memcpy(target, source, bytes);
    }
}

} // namespace rv
