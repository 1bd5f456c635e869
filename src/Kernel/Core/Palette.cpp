// A bitmap's palette: replacing, reading, comparing.

#include "Kernel/Core/Palette.h"

#include "Kernel/Core/Checks.h"
#include "Kernel/Core/PaletteTables.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

Status checkBitmap(const BITMAPHANDLE* p) noexcept
{
    if (p == nullptr) return ERROR_INV_BITMAP;
    return checkStructSize(p);
}

constexpr bool isPaletteDepth(R_INT bits) noexcept { return bits >= 1 && bits <= 8; }

/// The depth of a fixed palette by its number of colours; 0 where there is none. Four colours have that of two.
R_INT fixedBitsFor(R_UINT colours) noexcept
{
    switch (colours) {
    case 2:
    case 4: return 1;
    case 8: return 3;
    case 16: return 4;
    case 32: return 5;
    case 64: return 6;
    case 128: return 7;
    case 256: return 8;
    default: return 0;
    }
}

/// How many of `count` entries from `first` on a bitmap has to read.
R_UINT readableFrom(const BITMAPHANDLE* p, R_INT first, R_UINT count) noexcept
{
    const R_INT64 colours = std::min(readableColors(p), kMaxColours);
    if (first < 0 || first >= colours) return 0;
    return static_cast<R_UINT>(std::min<R_INT64>(count, colours - first));
}

bool sameRgb(const RGBQUAD& a, const RGBQUAD& b) noexcept
{
    return a.rgbRed == b.rgbRed && a.rgbGreen == b.rgbGreen && a.rgbBlue == b.rgbBlue;
}

} // namespace

void freePalette(BITMAPHANDLE* pBitmap) noexcept
{
    RGBQUAD* const old = pBitmap->pPalette;
    pBitmap->pPalette = nullptr;
    MovableBlock<RGBQUAD>::free(old);
}

void adoptPalette(BITMAPHANDLE* pBitmap, MovableBlock<RGBQUAD>&& palette, R_UINT colours) noexcept
{
    freePalette(pBitmap);
    pBitmap->nColors = colours;
    pBitmap->pPalette = palette.detach();
}

Status copyPaletteEntries(BITMAPHANDLE* pBitmap, const RGBQUAD* entries, R_UINT colours) noexcept
{
    // The entries may lie in the very block that is freed now.
    RGBQUAD kept[kMaxColours];
    const bool valid = colours >= 1 && colours <= kMaxColours;
    if (valid) std::copy_n(entries, colours, kept);

    freePalette(pBitmap);
    pBitmap->nColors = colours;
    if (!valid) return ERROR_FAILURE;
    auto palette = MovableBlock<RGBQUAD>::zeroed(colours);
    if (!palette) return ERROR_FAILURE;
    std::copy_n(kept, colours, palette.data());
    adoptPalette(pBitmap, std::move(palette), colours);
    return SUCCESS;
}

Status giveFixedPalette(BITMAPHANDLE* pBitmap, R_INT bits) noexcept
{
    if (!isPaletteDepth(bits)) return ERROR_INV_BITS_PER_PIXEL;
    return copyPaletteEntries(pBitmap, fixedPalette(bits), 1u << bits);
}

Status giveGrayPalette(BITMAPHANDLE* pBitmap) noexcept
{
    const R_INT bits = pBitmap->BitsPerPixel;
    if (!isPaletteDepth(bits)) return ERROR_INV_BITS_PER_PIXEL;
    const R_UINT colours = 1u << bits;
    RGBQUAD ramp[kMaxColours];
    fillGrayRamp(ramp, colours);
    return copyPaletteEntries(pBitmap, ramp, colours);
}

} // namespace rv

using namespace rv;

R_INT R_CreateBitmapGrayPalette(BITMAPHANDLE* pBitmap) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_PARAMETER;
    return giveGrayPalette(pBitmap);
}

R_INT R_CreateBitmapFixedPalette(BITMAPHANDLE* pBitmap) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_PARAMETER;
    const R_UINT colours = pBitmap->nColors;
    const R_INT bits = fixedBitsFor(colours);
    if (bits == 0) {
        freePalette(pBitmap);
        return FAILURE;
    }
    // Kept: callers rely on four colours being black, white, black, black.
    RGBQUAD entries[kMaxColours]{};
    std::copy_n(fixedPalette(bits), size_t{1} << bits, entries);
    return copyPaletteEntries(pBitmap, entries, colours);
}

R_INT R_GetBitmapColors(BITMAPHANDLE* pBitmap, R_INT nFirst, R_UINT uCount, RGBQUAD* pPalette) noexcept
{
    R_TRY(checkBitmap(pBitmap));
    if (uCount == 0 || pBitmap->BitsPerPixel > 8 || pPalette == nullptr) return ERROR_INV_PARAMETER;
    const R_UINT moved = R_GetBitmapPaletteEntries(pBitmap, nFirst, uCount, pPalette);
    return moved == uCount ? SUCCESS : ERROR_INV_PARAMETER;
}

R_INT R_PutBitmapColors(BITMAPHANDLE* pBitmap, R_INT nFirst, R_UINT uCount, const RGBQUAD* pPalette) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pBitmap));
    const R_UINT counted = pBitmap->nColors;
    const R_UINT colours = std::min(counted, kMaxColours);
    if (pPalette == nullptr || nFirst < 0 || R_INT64{nFirst} + uCount > colours || pBitmap->BitsPerPixel > 8)
        return ERROR_INV_PARAMETER;
    if (pBitmap->pPalette == nullptr && colours != 0) {
        auto palette = MovableBlock<RGBQUAD>::zeroed(colours);
        if (!palette) return ERROR_FAILURE;
        pBitmap->pPalette = palette.detach();
    }
    if (uCount != 0) std::memmove(pBitmap->pPalette + nFirst, pPalette, uCount * sizeof(RGBQUAD)); // maybe its own
    return SUCCESS;
}

R_UINT R_GetBitmapPaletteEntries(BITMAPHANDLE* pBitmap, R_INT nFirst, R_UINT uCount, RGBQUAD* pPalette) noexcept
{
    if (pBitmap == nullptr || pPalette == nullptr) return 0;
    const R_UINT count = readableFrom(pBitmap, nFirst, uCount);
    if (count != 0) std::memmove(pPalette, pBitmap->pPalette + nFirst, count * sizeof(RGBQUAD));
    return count;
}

// The record's size is not looked at: this call serves records that are still being filled.
R_INT R_SetBitmapNewPalette(BITMAPHANDLE* pBitmap, const RGBQUAD* pPalette, R_UINT uCount) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_BITMAP;
    if (pPalette == nullptr) {
        freePalette(pBitmap);
        return SUCCESS;
    }
    return copyPaletteEntries(pBitmap, pPalette, uCount);
}

R_INT R_CopyBitmapPalette(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc) noexcept
{
    if (pDst == nullptr || pSrc == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pDst));
    R_TRY(checkStructSize(pSrc));
    if (pSrc->pPalette != nullptr) return copyPaletteEntries(pDst, pSrc->pPalette, pSrc->nColors);
    freePalette(pDst);
    pDst->nColors = 0;
    return SUCCESS;
}

R_INT R_CompareBitmapToPalette(BITMAPHANDLE* pBitmap, const RGBQUAD* pPalette, R_UINT uCount) noexcept
{
    if (pBitmap == nullptr) return 0;
    if (pPalette == nullptr) return 1; // no entries, so none that differs
    const R_UINT count = readableFrom(pBitmap, 0, uCount);
    return std::equal(pPalette, pPalette + count, pBitmap->pPalette, sameRgb) ? 1 : 0;
}

R_INT R_IsGrayScalePalette(const RGBQUAD* pPalette, R_UINT uCount) noexcept
{
    enum : R_INT { kColoured = 0, kRising = 1, kFalling = 2, kUneven = 3 };
    if (pPalette == nullptr) return ERROR_INV_PARAMETER;
    for (R_UINT i = 0; i < uCount; ++i) {
        const RGBQUAD& entry = pPalette[i];
        if (entry.rgbRed != entry.rgbGreen || entry.rgbGreen != entry.rgbBlue) return kColoured;
    }
    const uint8_t first = pPalette[0].rgbRed; // read even when the count is 0
    if (uCount < 2) return first == 0 ? kRising : first == 255 ? kFalling : kUneven;

    // The step is cut, so only ramps whose steps divide 255 are even. A ramp that does not rise is held to one that
    // falls from white, and wraps around as bytes do.
    const R_UINT step = 255 / (uCount - 1);
    const bool rising = first == 0;
    for (R_UINT i = 0; i < uCount; ++i) {
        const auto expected = static_cast<uint8_t>(rising ? i * step : 255 - i * step);
        if (pPalette[i].rgbRed != expected) return kUneven;
    }
    return rising ? kRising : kFalling;
}
