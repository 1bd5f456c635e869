#include "Kernel/Pixels/FormatWriter.h"

#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/Luminance.h"
#include "Kernel/Pixels/PackedPixels.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

void storeWord(uint8_t* target, unsigned word) noexcept
{
    target[0] = static_cast<uint8_t>(word);
    target[1] = static_cast<uint8_t>(word >> 8);
}

} // namespace

/// The ways to write, which know the writer's inside.
struct FormatWriter::Access {
    static unsigned sample(const FormatWriter& format, const RGBQUAD16& colour) noexcept
    {
        return unsigned{luminance(colour)} >> format.drop_ << format.lift_;
    }
    static void gray16(const FormatWriter& format, uint8_t* target, const RGBQUAD16* source, size_t width) noexcept
    {
        for (size_t i = 0; i < width; ++i) storeWord(target + 2 * i, sample(format, source[i]));
    }
    /// Two pixels of 12 bits are three bytes.
    static void gray12(const FormatWriter& format, uint8_t* target, const RGBQUAD16* source, size_t width) noexcept
    {
        for (size_t i = 0; i < width; i += 2, target += 3) {
            const unsigned first = sample(format, source[i]);
            target[0] = static_cast<uint8_t>(first >> 4);
            target[1] = static_cast<uint8_t>(first << 4);
            if (i + 1 == width) break;
            const unsigned second = sample(format, source[i + 1]);
            target[1] = static_cast<uint8_t>(target[1] | second >> 8);
            target[2] = static_cast<uint8_t>(second);
        }
    }

    static void colour5(uint8_t* target, const RGBQUAD* source, size_t width) noexcept
    {
        for (size_t i = 0; i < width; ++i) {
            const RGBQUAD c = source[i];
            storeWord(target + 2 * i,
                      unsigned{c.rgbRed} >> 3 << 10 | unsigned{c.rgbGreen} >> 3 << 5 | unsigned{c.rgbBlue} >> 3);
        }
    }

    /// Whole samples, three or four to a pixel: a quad is such a pixel, too.
    template <int Bits, bool RedFirst> static void bytes(uint8_t* target, const RGBQUAD* source, size_t width) noexcept
    {
        rowKernels().reorder[simd::kFourBytes][sampleLayout(Bits)][RedFirst](
            target, reinterpret_cast<const uint8_t*>(source), width);
    }
    template <int Bits, bool RedFirst>
    static void words(const FormatWriter&, uint8_t* target, const RGBQUAD16* source, size_t width) noexcept
    {
        rowKernels().reorder[simd::kFourWords][sampleLayout(Bits)][RedFirst](
            target, reinterpret_cast<const uint8_t*>(source), width);
    }
};

FormatWriter::FormatWriter(const PixelFormat& format) noexcept
{
    const R_INT64 significant = R_INT64{format.highBit} - format.lowBit + 1;
    const R_INT count = static_cast<R_INT>(std::clamp<R_INT64>(significant, 1, std::min(format.bits, 16)));
    drop_ = static_cast<unsigned>(16 - count);
    lift_ = static_cast<unsigned>(std::clamp(format.lowBit, 0, std::max(format.bits - count, 0)));
    const bool red = format.redFirst;
    switch (format.bits) {
    case 12: write16_ = Access::gray12; break;
    case 16:
        if (format.gray)
            write16_ = Access::gray16;
        else
            write8_ = Access::colour5;
        break;
    case 24: write8_ = red ? Access::bytes<24, true> : Access::bytes<24, false>; break;
    case 32: write8_ = red ? Access::bytes<32, true> : Access::bytes<32, false>; break;
    case 48: write16_ = red ? Access::words<48, true> : Access::words<48, false>; break;
    case 64: write16_ = red ? Access::words<64, true> : Access::words<64, false>; break;
    default: break;
    }
}

MoveIndices packIndicesFor(R_INT bits) noexcept
{
    return withDepth(bits, []<int Bits>(Depth<Bits>) -> MoveIndices {
        if constexpr (Bits > 8)
            return nullptr;
        else
            return [](uint8_t* target, const uint8_t* source, size_t width) noexcept {
                if constexpr (Bits == 8)
                    std::memcpy(target, source, width);
                else
                    putEachPixel<Bits>(target, width, [source](size_t i) { return R_UINT64{source[i]}; });
            };
    });
}

MoveIndices unpackIndicesFor(R_INT bits) noexcept
{
    return withDepth(bits, []<int Bits>(Depth<Bits>) -> MoveIndices {
        if constexpr (Bits > 8)
            return nullptr;
        else
            return [](uint8_t* target, const uint8_t* source, size_t width) noexcept {
                forEachPixel<Bits>(source, width,
                                   [target](size_t i, R_UINT64 index) { target[i] = static_cast<uint8_t>(index); });
            };
    });
}

} // namespace rv
