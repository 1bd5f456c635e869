/// How the pixels of a bitmap are taken at positions: as they are, or weighed in a form that can be.
#pragma once

#include "Kernel/Base/Status.h"
#include "Kernel/Core/NearestIndex.h"
#include "Kernel/Pixels/FormatReader.h"
#include "Kernel/Pixels/FormatWriter.h"
#include "Kernel/Pixels/PickPixels.h"
#include "Kernel/Pixels/Samples.h"
#include "R_Bitmap.h"

namespace rv {

/// A format's way. Pixels are taken from a piece of the picture, where each has pixelBits() bits; it is copied together
/// first where rows have another form.
class PixelPicker {
public:
    PixelPicker(const BITMAPHANDLE* pBitmap, bool bilinear) noexcept;
    /// ERROR_FAILURE no memory; ERROR_FLOAT_NOT_SUPPORTED; those of formatOf().
    Status status() const noexcept { return status_; }

    /// Whether positions look for four pixels, and so for such as lie beside the picture.
    bool bilinear() const noexcept { return weigh_ != nullptr; }
    /// Whether rows have another form than pieces of the picture.
    bool loosens() const noexcept { return loosen_ != nullptr; }
    size_t pixelBits() const noexcept { return pixelBits_; }
    /// Brings a row's pixels, from the first bit of its first byte on, to the form of a piece. Where it loosens, both
    /// have room for pixels up to the next multiple of 8, and kSampleSlack bytes more.
    void prepare(uint8_t* piece, const uint8_t* row, size_t pixels) const noexcept;

    /// Gives `count` pixels of a target's row, from `column` on, what is at the positions; others stay.
    void take(uint8_t* row, R_INT column, const uint8_t* piece, ptrdiff_t pitch, const PixelPositions& at,
              size_t count) noexcept;
    /// The most pixels that are taken at once.
    static constexpr size_t kMost = 1024;

private:
    using Loosen = void (*)(const PixelPicker& picker, uint8_t* piece, const uint8_t* row, size_t pixels) noexcept;
    using Pack = void (*)(PixelPicker& picker, uint8_t* row, uint8_t* pixels, size_t count) noexcept;
    struct Ways;

    Status chooseWeighing(const BITMAPHANDLE* pBitmap) noexcept;
    Status weighColours() noexcept;
    void weighGray(const BITMAPHANDLE* pBitmap) noexcept;
    void weighSamples(size_t samples, size_t sampleBytes, bool byAlpha) noexcept;

    R_INT bits_;
    size_t pixelBits_;
    simd::PickPixels pick_;
    simd::PickPixels weigh_ = nullptr;
    Loosen loosen_ = nullptr;
    Pack pack_ = nullptr;
    PixelFormat format_;
    FormatReader reader_;
    SampleFormat samples_;
    NearestIndex nearest_;
    MoveIndices packIndices_ = nullptr;
    unsigned lowBit_ = 0;    // of gray
    unsigned mask_ = 0xFFFF; // its significant bits, the lowest one first
    unsigned sign_ = 0;      // turns numbers with a sign into such whose order is that of their bits, and back
    Status status_ = SUCCESS;
};

} // namespace rv
