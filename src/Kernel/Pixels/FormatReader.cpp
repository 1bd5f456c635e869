#include "Kernel/Pixels/FormatReader.h"

#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/PackedPixels.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <algorithm>

namespace rv {

namespace {

constexpr uint8_t kOpaque = 255;
constexpr uint16_t kOpaque16 = 65535;

constexpr uint16_t widen(unsigned sample) noexcept { return static_cast<uint16_t>(sample * 257); }
constexpr RGBQUAD16 widen(const RGBQUAD& c) noexcept
{
    return {widen(c.rgbBlue), widen(c.rgbGreen), widen(c.rgbRed), widen(c.rgbReserved)};
}
constexpr uint8_t narrow(uint16_t sample) noexcept { return static_cast<uint8_t>(sample * 255u / 65535u); }
constexpr RGBQUAD grayQuad(uint8_t level) noexcept { return {level, level, level, kOpaque}; }
constexpr RGBQUAD16 grayQuad16(uint16_t level) noexcept { return {level, level, level, kOpaque16}; }

template <class Quad> Quad quadOf(const RGBQUAD& colour) noexcept
{
    if constexpr (sizeof(Quad) == sizeof(RGBQUAD))
        return colour;
    else
        return widen(colour);
}

} // namespace

/// The ways to read, which know the reader's inside.
struct FormatReader::Access {
    using Reader = FormatReader;

    template <int Bits, class Quad>
    static void indices(const Reader& reader, Quad* target, const uint8_t* source, size_t width) noexcept
    {
        const RGBQUAD* const colours = reader.colours_;
        forEachPixel<Bits>(source, width, [&](size_t i, R_UINT64 index) { target[i] = quadOf<Quad>(colours[index]); });
    }

    template <int Bits>
    static void gray(const Reader& reader, RGBQUAD* target, const uint8_t* source, size_t width) noexcept
    {
        const Significant upper = reader.upper_;
        forEachPixel<Bits>(source, width, [&](size_t i, R_UINT64 sample) {
            target[i] = reader.colours_[upper.of(static_cast<unsigned>(sample))];
        });
    }
    template <int Bits>
    static void gray(const Reader& reader, RGBQUAD16* target, const uint8_t* source, size_t width) noexcept
    {
        const Significant all = reader.all_;
        forEachPixel<Bits>(source, width, [&](size_t i, R_UINT64 sample) {
            target[i] = grayQuad16(all.wide(all.of(static_cast<unsigned>(sample))));
        });
    }

    static void entry(const Reader& reader, RGBQUAD& target, unsigned index) noexcept
    {
        const PixelFormat& format = reader.format_;
        if (format.table != nullptr && index < format.tableLength) {
            target = format.table[index];
        } else if (format.table16 != nullptr && index < format.tableLength16) {
            const RGBQUAD16& wide = format.table16[index];
            target = {narrow(wide.rgbBlue), narrow(wide.rgbGreen), narrow(wide.rgbRed), kOpaque};
        } else {
            target = grayQuad(static_cast<uint8_t>(index * 255u / reader.all_.mask));
        }
        target.rgbReserved = kOpaque;
    }
    static void entry(const Reader& reader, RGBQUAD16& target, unsigned index) noexcept
    {
        const PixelFormat& format = reader.format_;
        if (format.table != nullptr && index < format.tableLength)
            target = widen(format.table[index]);
        else if (format.table16 != nullptr && index < format.tableLength16)
            target = format.table16[index];
        else
            target = grayQuad16(reader.all_.wide(index));
        target.rgbReserved = kOpaque16;
    }
    template <int Bits, class Quad>
    static void tabled(const Reader& reader, Quad* target, const uint8_t* source, size_t width) noexcept
    {
        const Significant all = reader.all_;
        forEachPixel<Bits>(source, width, [&](size_t i, R_UINT64 sample) {
            entry(reader, target[i], all.of(static_cast<unsigned>(sample)));
        });
    }

    template <class Quad> static void colour5(const Reader&, Quad* target, const uint8_t* source, size_t width) noexcept
    {
        forEachPixel<16>(source, width, [&](size_t i, R_UINT64 pixel) {
            const auto sample = [&](int shift) noexcept {
                const auto v = static_cast<unsigned>(pixel >> shift & 31);
                if constexpr (sizeof(Quad) == sizeof(RGBQUAD))
                    return static_cast<uint8_t>(v << 3 | v >> 2);
                else
                    return static_cast<uint16_t>(v << 11 | v << 6 | v << 1 | v >> 4);
            };
            target[i] = {sample(0), sample(5), sample(10), quadOf<Quad>(grayQuad(0)).rgbReserved};
        });
    }

    /// Whole samples, three or four to a pixel: a quad is such a pixel, too.
    template <int Bits, bool RedFirst, class Quad>
    static void samples(const Reader&, Quad* target, const uint8_t* source, size_t width) noexcept
    {
        constexpr auto to = sizeof(Quad) == sizeof(RGBQUAD) ? simd::kFourBytes : simd::kFourWords;
        rowKernels().reorder[sampleLayout(Bits)][to][RedFirst](reinterpret_cast<uint8_t*>(target), source, width);
    }

    template <class Quad> static Read<Quad> choose(const PixelFormat& format) noexcept
    {
        return withDepth(format.bits, [&]<int Bits>(Depth<Bits>) -> Read<Quad> {
            if constexpr (Bits == 8)
                if (format.gray && format.hasTable()) return &tabled<Bits, Quad>;
            if constexpr (Bits <= 8) {
                return &indices<Bits, Quad>;
            } else if constexpr (Bits <= 16) {
                if (!format.gray && Bits == 16) return &colour5<Quad>;
                if (format.hasTable()) return &tabled<Bits, Quad>;
                return static_cast<Read<Quad>>(&gray<Bits>);
            } else {
                return format.redFirst ? &samples<Bits, true, Quad> : &samples<Bits, false, Quad>;
            }
        });
    }
};

FormatReader::Significant FormatReader::significantBits(const PixelFormat& format, R_INT limit) noexcept
{
    const R_INT64 high = format.highBit;
    const auto count = static_cast<unsigned>(std::clamp<R_INT64>(high - format.lowBit + 1, 1, limit));
    Significant significant;
    significant.shift = static_cast<unsigned>(std::clamp<R_INT64>(high - count + 1, 0, 31)); // 31: nothing is left
    significant.mask = (1u << count) - 1;
    significant.scale = ((uint64_t{65535} << 32) + significant.mask - 1) / significant.mask;
    return significant;
}

void FormatReader::prepareColours() noexcept
{
    for (R_UINT i = 0; i < 256; ++i) {
        colours_[i] = i < format_.colours ? format_.palette[i] : RGBQUAD{};
        colours_[i].rgbReserved = kOpaque;
    }
}

void FormatReader::prepareGray() noexcept
{
    upper_ = significantBits(format_, 8);
    all_ = significantBits(format_, format_.bits);
    for (unsigned i = 0; i < 256; ++i)
        colours_[i] = grayQuad(static_cast<uint8_t>(std::min(i, upper_.mask) * 255u / upper_.mask));
}

FormatReader::FormatReader(const PixelFormat& format) noexcept
    : format_(format), read8_(Access::choose<RGBQUAD>(format)), read16_(Access::choose<RGBQUAD16>(format))
{
    if (format_.palette == nullptr) format_.colours = 0;
    if (format_.bits > 8 || (format_.gray && format_.hasTable()))
        prepareGray();
    else
        prepareColours();
}

} // namespace rv
