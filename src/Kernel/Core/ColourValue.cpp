#include "Kernel/Core/ColourValue.h"

#include "Kernel/Core/Checks.h"

#include <algorithm>

namespace rv {

namespace {

/// What the samples of a bitmap mean.
enum class PixelKind { paletteIndex, gray, rgb555, rgb8, rgb16 };

PixelKind pixelKind(const BITMAPHANDLE* p) noexcept
{
    const R_INT bits = p->BitsPerPixel;
    if (bits == 12) return PixelKind::gray;
    if (bits == 8 || bits == 16) {
        if (p->Order == ORDER_GRAY) return PixelKind::gray;
        return bits == 8 ? PixelKind::paletteIndex : PixelKind::rgb555;
    }
    if (bits < 8) return PixelKind::paletteIndex;
    return bits <= 32 ? PixelKind::rgb8 : PixelKind::rgb16;
}

/// Gray of 8 bits reads as a palette index all the same: such bitmaps have a palette to be shown with.
bool readsAsLevel(const BITMAPHANDLE* p) noexcept { return pixelKind(p) == PixelKind::gray && p->BitsPerPixel > 8; }

constexpr R_UINT luminance(COLORREF rgb) noexcept
{
    return static_cast<R_UINT>(2 * redOf(rgb) + 5 * greenOf(rgb) + blueOf(rgb) + 4) >> 3;
}

R_UINT grayOfColour(BITMAPHANDLE* p, COLORREF colour) noexcept
{
    const R_UINT white = (2u << std::min(highBit(p), p->BitsPerPixel - 1)) - 1;
    switch (kindOf(colour)) {
    case COLOUR_GRAY_LEVEL: return std::min(levelOf(colour), white);
    case COLOUR_PALETTE_INDEX: return p->BitsPerPixel == 8 ? indexOf(colour) : 0; // above 8 bits there is no palette
    default: return luminance(colour) * white / 255;
    }
}

R_UINT indexOfColour(BITMAPHANDLE* p, COLORREF colour) noexcept
{
    // A level has a meaning in gray bitmaps only; in a palette it is a gray to be looked for.
    const COLORREF sought = kindOf(colour) == COLOUR_GRAY_LEVEL ? grayRgb(colour) : colour;
    return indexOf(R_TranslateBitmapColor(p, p, sought)) & ((1u << p->BitsPerPixel) - 1);
}

/// Puts samples of `sampleBits` bits together in the bitmap's order; alpha is last.
R_UINT64 packSamples(const BITMAPHANDLE* p, R_UINT64 red, R_UINT64 green, R_UINT64 blue, R_UINT64 alpha,
                     R_INT sampleBits) noexcept
{
    const R_UINT64 first = p->Order == ORDER_RGB ? red : blue;
    const R_UINT64 third = p->Order == ORDER_RGB ? blue : red;
    const R_UINT64 colour = first | green << sampleBits | third << 2 * sampleBits;
    return p->BitsPerPixel == 4 * sampleBits ? colour | alpha << 3 * sampleBits : colour;
}

} // namespace

StoredPixel pixelOfColour(BITMAPHANDLE* pBitmap, COLORREF colour, uint8_t alpha) noexcept
{
    const PixelKind kind = pixelKind(pBitmap);
    if (kind == PixelKind::paletteIndex) return {indexOfColour(pBitmap, colour)};
    if (kind == PixelKind::gray) return {grayOfColour(pBitmap, colour)};

    const COLORREF rgb = R_TranslateBitmapColor(pBitmap, pBitmap, colour);
    const auto red = static_cast<R_UINT>(redOf(rgb));
    const auto green = static_cast<R_UINT>(greenOf(rgb));
    const auto blue = static_cast<R_UINT>(blueOf(rgb));
    switch (kind) {
    case PixelKind::rgb555: return {red >> 3 << 10 | green >> 3 << 5 | blue >> 3}; // whatever the order says
    case PixelKind::rgb8: return {packSamples(pBitmap, red, green, blue, alpha, 8)};
    default: return {packSamples(pBitmap, red * 257, green * 257, blue * 257, alpha * 257u, 16)};
    }
}

COLORREF colourOfPixel(const BITMAPHANDLE* pBitmap, StoredPixel pixel) noexcept
{
    const auto sample = [&](R_INT shift, R_UINT mask) noexcept {
        return static_cast<R_UINT>(pixel.bits >> shift) & mask;
    };
    const auto five = [&](R_INT shift) noexcept {
        const R_UINT value = sample(shift, 31);
        return value << 3 | value >> 2;
    };
    const PixelKind kind = pixelKind(pBitmap);
    if (readsAsLevel(pBitmap)) return COLOUR_GRAY_LEVEL | sample(0, 0xFFFF);
    if (kind == PixelKind::paletteIndex || kind == PixelKind::gray) return COLOUR_PALETTE_INDEX | sample(0, 0xFF);
    if (kind == PixelKind::rgb555) return rgbOf(five(10), five(5), five(0));

    const R_INT sampleBits = kind == PixelKind::rgb8 ? 8 : 16;
    const R_INT high = sampleBits - 8; // the high byte of a sample
    const R_UINT first = sample(high, 0xFF);
    const R_UINT green = sample(sampleBits + high, 0xFF);
    const R_UINT third = sample(2 * sampleBits + high, 0xFF);
    return pBitmap->Order == ORDER_RGB ? rgbOf(first, green, third) : rgbOf(third, green, first);
}

} // namespace rv
