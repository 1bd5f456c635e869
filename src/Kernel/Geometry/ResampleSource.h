/// The pixels of a bitmap as samples that can be weighed, and such samples as pixels.
#pragma once

#include "Kernel/Core/NearestIndex.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Geometry/Resample.h"
#include "Kernel/Pixels/FormatReader.h"
#include "Kernel/Pixels/FormatWriter.h"
#include "Kernel/Pixels/Samples.h"

namespace rv {

/// Reads rows of a source as samples and writes rows of the target from samples: bytes or words, from 0 to top(),
/// `channels()` of them for a pixel. Pixels that are such samples already are not moved.
class ResampleSource {
public:
    ResampleSource(BITMAPHANDLE* pSrc, const Resampler::Job& job, const PixelFormat& target) noexcept;
    Status status() const noexcept { return status_; }

    size_t channels() const noexcept { return channels_; }
    bool wide() const noexcept { return wide_; }
    float top() const noexcept { return static_cast<float>(top_); }
    bool byAlpha() const noexcept { return byAlpha_; }
    R_INT width() const noexcept { return width_; }
    R_INT height() const noexcept { return height_; }
    R_INT newWidth() const noexcept { return newWidth_; }
    R_INT newHeight() const noexcept { return newHeight_; }
    size_t samples() const noexcept { return channels_ * static_cast<size_t>(width_); }
    size_t newSamples() const noexcept { return channels_ * static_cast<size_t>(newWidth_); }

    /// The samples of a row, until the next one is read.
    Status read(R_INT row, const uint8_t** samples) noexcept;
    /// A row of pixels of 1 bit, from the first bit of its first byte on.
    Status readBits(R_INT row, const uint8_t** bits) noexcept;
    /// Where the samples of a new row go before put() makes pixels of them: the target itself, where they are pixels.
    uint8_t* place(uint8_t* target) const noexcept { return put_ != nullptr ? made_.data() : target; }
    void put(uint8_t* target) noexcept
    {
        if (put_ != nullptr) put_(*this, target);
    }

    bool isBits() const noexcept { return from_.bits == 1; }
    /// The gray level of each index; of up to 8 bits, where channels() is 1.
    const uint8_t* levels() const noexcept { return levelOf_; }

private:
    struct Ways;
    using Take = void (*)(ResampleSource& rows, const uint8_t* row) noexcept;
    using Put = void (*)(ResampleSource& rows, uint8_t* target) noexcept;

    void choose() noexcept;
    void chooseIndices() noexcept;
    void chooseGray() noexcept;
    bool mapsGray() noexcept;
    Status takeMemory() noexcept;

    PixelFormat from_, to_;
    FormatReader reader_{PixelFormat{}};
    FormatWriter writer_{PixelFormat{}};
    RowCursor cursor_;
    R_INT left_, firstRow_;
    R_INT width_, height_, newWidth_, newHeight_;
    size_t channels_ = 1;
    bool wide_ = false;
    bool byAlpha_ = false;
    unsigned top_ = 255;
    bool signed_ = false;
    unsigned sign_ = 0;   // turns gray with a sign into numbers in the order of their bits, and back
    Take take_ = nullptr; // null: pixels are samples
    Put put_ = nullptr;
    SampleFormat packed_;
    MoveIndices unpack_ = nullptr, pack_ = nullptr;
    NearestIndex nearest_;
    uint8_t levelOf_[256] = {}; // of each index
    uint8_t indexOf_[256] = {}; // for each level
    RowBuffer shifted_;         // a row whose first pixel is not the first of a byte
    RowBuffer taken_, made_;    // samples
    Status status_ = SUCCESS;
};

} // namespace rv
