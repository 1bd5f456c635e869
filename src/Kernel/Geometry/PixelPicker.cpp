#include "Kernel/Geometry/PixelPicker.h"

#include "Kernel/Core/BitmapFormat.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/Depths.h"
#include "R_Colour.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

PixelFormat formatFor(const BITMAPHANDLE* pBitmap, Status* status) noexcept
{
    PixelFormat format;
    *status = formatOf(pBitmap, &format);
    return format;
}

} // namespace

/// Forms that pixels are weighed in, where it is not their own.
struct PixelPicker::Ways {
    static void loosenIndices(const PixelPicker& picker, uint8_t* piece, const uint8_t* row, size_t pixels) noexcept
    {
        picker.reader_.read(reinterpret_cast<RGBQUAD*>(piece), row, pixels);
    }
    static void packIndices(PixelPicker& picker, uint8_t* row, uint8_t* pixels, size_t count) noexcept
    {
        uint8_t indices[kMost];
        picker.nearest_.find(indices, reinterpret_cast<const RGBQUAD*>(pixels), count);
        picker.packIndices_(row, indices, count);
    }

    static void loosenGray(const PixelPicker& picker, uint8_t* piece, const uint8_t* row, size_t pixels) noexcept
    {
        if (picker.samples_.unpack != nullptr)
            picker.samples_.unpack(piece, row, pixels);
        else
            std::memcpy(piece, row, pixels * sizeof(uint16_t));
        changeWords(piece, pixels,
                    [&](unsigned sample) { return (sample >> picker.lowBit_ & picker.mask_) ^ picker.sign_; });
    }
    static void packGray(PixelPicker& picker, uint8_t* row, uint8_t* pixels, size_t count) noexcept
    {
        changeWords(pixels, count, [&](unsigned value) { return (value ^ picker.sign_) << picker.lowBit_; });
        if (picker.samples_.pack != nullptr)
            picker.samples_.pack(row, pixels, count);
        else
            std::memcpy(row, pixels, count * sizeof(uint16_t));
    }
    template <class Change> static void changeWords(uint8_t* words, size_t count, Change change) noexcept
    {
        for (size_t i = 0; i < count; ++i, words += sizeof(uint16_t)) {
            uint16_t word;
            std::memcpy(&word, words, sizeof word);
            word = static_cast<uint16_t>(change(word));
            std::memcpy(words, &word, sizeof word);
        }
    }

    static void loosenSamples(const PixelPicker& picker, uint8_t* piece, const uint8_t* row, size_t pixels) noexcept
    {
        picker.samples_.unpack(piece, row, pixels);
    }
    static void packSamples(PixelPicker& picker, uint8_t* row, uint8_t* pixels, size_t count) noexcept
    {
        picker.samples_.pack(row, pixels, count);
    }
};

PixelPicker::PixelPicker(const BITMAPHANDLE* pBitmap, bool bilinear) noexcept
    : bits_(pBitmap->BitsPerPixel), pixelBits_(static_cast<size_t>(bits_)), pick_(pickPixelsFor(bits_)),
      format_(formatFor(pBitmap, &status_)), reader_(format_)
{
    if (!bilinear)
        status_ = SUCCESS; // what samples mean is of no account
    else if (status_.ok())
        status_ = chooseWeighing(pBitmap);
}

Status PixelPicker::chooseWeighing(const BITMAPHANDLE* pBitmap) noexcept
{
    if ((pBitmap->Flags & FLAG_FLOAT) != 0) return ERROR_FLOAT_NOT_SUPPORTED;
    const auto bits = static_cast<size_t>(bits_);
    if (bits <= 8) {
        // Gray counts by itself, whatever palette shows it; indices that stand for no colours cannot be weighed.
        const bool gray = bits == 8 && (format_.gray || R_IsGrayScalePalette(format_.palette, format_.colours) == 1);
        if (gray && (format_.gray || format_.colours == 256))
            weighSamples(1, 1, false);
        else if (format_.colours != 0)
            return weighColours();
        return SUCCESS;
    }
    if (format_.gray) {
        weighGray(pBitmap);
        return SUCCESS;
    }
    if (bits == 16) {
        samples_ = sampleFormatOf(bits_, false);
        weighSamples(3, 1, false);
        loosen_ = Ways::loosenSamples;
        pack_ = Ways::packSamples;
        return SUCCESS;
    }
    const size_t sampleBytes = bits <= 32 ? 1 : 2;
    weighSamples(bits / 8 / sampleBytes, sampleBytes, (pBitmap->Flags & FLAG_PREMULTIPLY_ALPHA) == 0);
    return SUCCESS;
}

void PixelPicker::weighSamples(size_t samples, size_t sampleBytes, bool byAlpha) noexcept
{
    weigh_ = weighPixelsFor(samples, sampleBytes, byAlpha);
    pixelBits_ = samples * sampleBytes * 8;
}

Status PixelPicker::weighColours() noexcept
{
    nearest_ = NearestIndex(format_.palette, format_.colours);
    if (!nearest_) return ERROR_FAILURE;
    packIndices_ = packIndicesFor(bits_);
    weighSamples(4, 1, false);
    loosen_ = Ways::loosenIndices;
    pack_ = Ways::packIndices;
    return SUCCESS;
}

void PixelPicker::weighGray(const BITMAPHANDLE* pBitmap) noexcept
{
    const R_INT64 significant = R_INT64{format_.highBit} - format_.lowBit + 1;
    const auto count = static_cast<R_INT>(std::clamp<R_INT64>(significant, 1, bits_));
    lowBit_ = static_cast<unsigned>(std::clamp(format_.lowBit, 0, bits_ - count));
    mask_ = (1u << count) - 1;
    if ((pBitmap->Flags & FLAG_SIGNED) != 0) sign_ = 1u << (count - 1);
    weighSamples(1, 2, false);
    if (count == 16 && sign_ == 0) return; // they are as they should be
    samples_ = sampleFormatOf(bits_, true);
    loosen_ = Ways::loosenGray;
    pack_ = Ways::packGray;
}

void PixelPicker::prepare(uint8_t* piece, const uint8_t* row, size_t pixels) const noexcept
{
    if (loosen_ != nullptr)
        loosen_(*this, piece, row, pixels);
    else
        std::memcpy(piece, row, static_cast<size_t>(packedBytes(static_cast<R_INT64>(pixels), bits_)));
}

void PixelPicker::take(uint8_t* row, R_INT column, const uint8_t* piece, ptrdiff_t pitch, const PixelPositions& at,
                       size_t count) noexcept
{
    const auto first = R_INT64{column} * bits_;
    const simd::PickPixels pick = weigh_ != nullptr ? weigh_ : pick_;
    if (pack_ == nullptr && bits_ % 8 == 0) {
        pick(row + first / 8, piece, pitch, at, count);
        return;
    }
    alignas(8) uint8_t pixels[(kMost + 8) * sizeof(RGBQUAD)]; // more than what is loosened has none
    alignas(8) uint8_t packed[(kMost + 8) * sizeof(uint16_t)];
    pick(pack_ != nullptr ? pixels : packed, piece, pitch, at, count);
    if (pack_ != nullptr) pack_(*this, packed, pixels, count);
    copyBits(row, first, packed, 0, R_INT64{bits_} * static_cast<R_INT64>(count));
}

} // namespace rv
