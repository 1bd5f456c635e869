#include "Kernel/Geometry/ResamplePage.h"

#include "Kernel/Pixels/Simd/Select.h"

#include <algorithm>

namespace rv {

bool PageResampler::takes(const ResampleSource& source) noexcept
{
    return source.isBits() && source.channels() == 1 && source.newWidth() <= source.width() &&
           source.newHeight() <= source.height() && source.width() / source.newWidth() < 65535;
}

Status PageResampler::prepare(const ResampleSource& source) noexcept
{
    width_ = static_cast<size_t>(source.width());
    newWidth_ = static_cast<size_t>(source.newWidth());
    rowsEach_ = source.height() / source.newHeight();
    fours_ = width_ == 4 * newWidth_ && source.height() % source.newHeight() == 0 && rowsEach_ <= simd::kMostFourRows;
    const int zero = source.levels()[0], one = source.levels()[1];
    for (int i = 0; i < 256; ++i) levels_[i] = static_cast<uint8_t>((zero * (255 - i) + one * i + 127) / 255);
    const size_t blocks = ((width_ + 7) / 8 + simd::kCountBlock - 1) / simd::kCountBlock;
    sums_ = RowBuffer(fours_ ? 2 * blocks * simd::kCountBlock : sizeof(uint16_t) * (width_ + 1));
    if (!sums_) return ERROR_FAILURE;
    if (fours_) return SUCCESS;
    before_ = RowBuffer(sizeof(uint32_t) * (width_ + 1));
    borders_ = RowBuffer(sizeof(ColumnBorder) * (newWidth_ + 1));
    if (!before_ || !borders_) return ERROR_FAILURE;
    auto* const borders = reinterpret_cast<ColumnBorder*>(borders_.data());
    for (size_t x = 0; x <= newWidth_; ++x) {
        const R_UINT64 at = x * width_;
        const R_UINT64 share = at % newWidth_ * 32768 / newWidth_;
        borders[x] = {static_cast<int32_t>(at / newWidth_), static_cast<uint32_t>(share)};
    }
    return SUCCESS;
}

Status PageResampler::countRows(ResampleSource& source, R_INT row) noexcept
{
    for (R_INT i = 0; i < rowsEach_; ++i) {
        const uint8_t* bits;
        R_TRY(source.readBits(row * rowsEach_ + i, &bits));
        rowKernels().countFours(sums_.data(), bits, (width_ + 7) / 8, i == 0);
    }
    return SUCCESS;
}

/// Each row weighs what the new one covers of it; the weights are cut where the sum of those before ends, so that all
/// together are always the same.
Status PageResampler::addRows(ResampleSource& source, R_INT row) noexcept
{
    const R_INT64 oldHeight = source.height(), newHeight = source.newHeight();
    const R_INT64 begin = row * oldHeight, end = begin + oldHeight;
    const R_INT64 first = begin / newHeight, last = (end - 1) / newHeight;
    R_INT64 weighed = 0;
    for (R_INT64 y = first; y <= last; ++y) {
        const R_INT64 covered = std::min((y + 1) * newHeight, end) - begin;
        const R_INT64 upTo = (2 * covered * kRowsWeigh + oldHeight) / (2 * oldHeight);
        const uint8_t* bits;
        R_TRY(source.readBits(static_cast<R_INT>(y), &bits));
        rowKernels().addBits(reinterpret_cast<uint16_t*>(sums_.data()), bits, width_,
                             static_cast<uint16_t>(upTo - weighed), y == first);
        weighed = upTo;
    }
    return SUCCESS;
}

Status PageResampler::row(ResampleSource& source, R_INT row, uint8_t* target) noexcept
{
    uint8_t* const levels = source.place(target);
    if (fours_) {
        R_TRY(countRows(source, row));
        rowKernels().levelsOfFours(levels, sums_.data(), newWidth_, 4 * rowsEach_, levels_);
    } else {
        R_TRY(addRows(source, row));
        rowKernels().levelsOfSums(levels, reinterpret_cast<uint32_t*>(before_.data()),
                                  reinterpret_cast<const uint16_t*>(sums_.data()), width_,
                                  reinterpret_cast<const ColumnBorder*>(borders_.data()), newWidth_, levels_);
    }
    source.put(target);
    return SUCCESS;
}

} // namespace rv
