/// Colour values and stored pixels: the one place where one becomes the other.
#pragma once

#include "R_Colour.h"

namespace rv {

// --- The parts of a colour value

constexpr COLORREF kindOf(COLORREF colour) noexcept { return colour & COLOUR_KIND_MASK; }
constexpr COLORREF rgbBits(COLORREF colour) noexcept { return colour & ~COLOUR_KIND_MASK; }
constexpr R_INT redOf(COLORREF colour) noexcept { return colour & 0xFF; }
constexpr R_INT greenOf(COLORREF colour) noexcept { return colour >> 8 & 0xFF; }
constexpr R_INT blueOf(COLORREF colour) noexcept { return colour >> 16 & 0xFF; }
constexpr R_UINT indexOf(COLORREF colour) noexcept { return colour & 0xFF; }
constexpr R_UINT levelOf(COLORREF colour) noexcept { return colour & 0xFFFF; }

constexpr COLORREF rgbOf(R_UINT red, R_UINT green, R_UINT blue) noexcept { return red | green << 8 | blue << 16; }
constexpr COLORREF rgbOf(const RGBQUAD& entry) noexcept { return rgbOf(entry.rgbRed, entry.rgbGreen, entry.rgbBlue); }
constexpr COLORREF rgbOf(const RGBQUAD16& entry) noexcept
{
    return rgbOf(entry.rgbRed >> 8u, entry.rgbGreen >> 8u, entry.rgbBlue >> 8u);
}
/// The RGB gray of a gray level: the high byte of a 16-bit one.
constexpr COLORREF grayRgb(COLORREF level) noexcept { return (level >> 8 & 0xFF) * 0x010101u; }

// --- Stored pixels

/// One pixel's bits as a bitmap stores them. A pixel of whole bytes has its k-th byte in bits 8k to 8k + 7; another
/// stands in the lowest bits.
struct StoredPixel {
    R_UINT64 bits = 0;
};

/// The pixel that stands for a colour value of any kind in this bitmap: its depth, Order, significant bits and palette
/// decide. Formats without alpha ignore `alpha`. The bitmap must be of one of the fourteen depths.
StoredPixel pixelOfColour(BITMAPHANDLE* pBitmap, COLORREF colour, uint8_t alpha) noexcept;

/// The colour value of a stored pixel: a palette index up to 8 bits, a level for gray of more, else RGB.
COLORREF colourOfPixel(const BITMAPHANDLE* pBitmap, StoredPixel pixel) noexcept;

/// The bits of a stored pixel that are alpha; 0 for depths without.
constexpr R_UINT64 alphaMask(R_INT bits) noexcept
{
    return bits == 32 ? 0xFF000000u : bits == 64 ? R_UINT64{0xFFFF} << 48 : 0;
}

} // namespace rv
