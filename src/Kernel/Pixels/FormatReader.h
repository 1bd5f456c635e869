/// Pixels of every format as one: the first half of a conversion.
#pragma once

#include "Kernel/Pixels/PixelFormat.h"

#include <cstddef>

namespace rv {

/// Reads rows of one format as rows of colours with alpha in rgbReserved, which is opaque where the format has none.
/// What the format asks for is settled at construction, and nothing after it is decided pixel by pixel.
///
/// As 8 bits: the high byte of a sample of 16 bits, a sample v of 5 as v << 3 | v >> 2, of gray the upper eight
/// significant bits, fewer of them as v * 255 / maximum. A table is looked into by all significant bits, its 16-bit
/// entries v count as v * 255 / 65535.
/// As 16 bits: v * 257 of 8, 5 bits repeated, all significant bits of gray as v * 65535 / maximum.
class FormatReader {
public:
    explicit FormatReader(const PixelFormat& format) noexcept;

    /// source  the bytes that hold the pixels, from the first bit of the first byte on; none behind them is read
    void read(RGBQUAD* target, const uint8_t* source, size_t width) const noexcept
    {
        read8_(*this, target, source, width);
    }
    void read(RGBQUAD16* target, const uint8_t* source, size_t width) const noexcept
    {
        read16_(*this, target, source, width);
    }

    /// At most eight significant bits of a gray sample of more: what its colour goes by where there is no table.
    struct UpperBits {
        unsigned shift;
        unsigned mask;
        uint8_t of(unsigned sample) const noexcept { return static_cast<uint8_t>(sample >> shift & mask); }
    };
    UpperBits upperBits() const noexcept { return {upper_.shift, upper_.mask}; }
    /// The colour of each index of a format of up to 8 bits, or of those upper bits; 256 of them.
    const RGBQUAD* colours() const noexcept { return colours_; }

private:
    struct Access;
    template <class Quad>
    using Read = void (*)(const FormatReader& format, Quad* target, const uint8_t* source, size_t width) noexcept;

    /// The significant bits of a gray sample: sample >> shift & mask.
    struct Significant {
        unsigned shift = 0;
        unsigned mask = 0;
        uint64_t scale = 0; ///< makes 65535 of the mask: in units of 2^-32, rounded up

        unsigned of(unsigned sample) const noexcept { return sample >> shift & mask; }
        /// v * 65535 / mask. The error of the scale is too small to reach the next whole number.
        uint16_t wide(unsigned value) const noexcept { return static_cast<uint16_t>(value * scale >> 32); }
    };
    static Significant significantBits(const PixelFormat& format, R_INT limit) noexcept;
    void prepareColours() noexcept;
    void prepareGray() noexcept;

    PixelFormat format_;
    Significant upper_; // at most eight bits
    Significant all_;
    RGBQUAD colours_[256]; // of each index, or of each value of a gray sample's upper bits
    Read<RGBQUAD> read8_ = nullptr;
    Read<RGBQUAD16> read16_ = nullptr;
};

} // namespace rv
