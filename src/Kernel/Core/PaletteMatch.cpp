// The nearest entry of a palette, and colour values translated between bitmaps.

#include "Kernel/Core/Checks.h"
#include "Kernel/Core/ColourValue.h"
#include "Kernel/Core/Palette.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <algorithm>
#include <bit>

namespace rv {

namespace {

constexpr R_UINT kNoIndex = 0xFFFFFFFFu;

/// A colour as callers ask for it: any integers, though bytes are meant.
struct Request {
    R_INT red;
    R_INT green;
    R_INT blue;
};

Request requestOf(const RGBQUAD& entry) noexcept { return {entry.rgbRed, entry.rgbGreen, entry.rgbBlue}; }

/// Which of a colour's components are above which. Among entries at one distance, those of the request's own class
/// look more alike.
R_INT hueClass(const Request& c) noexcept
{
    return (c.red < c.blue ? 4 : 0) + (c.green < std::min(c.red, c.blue) ? 2 : 0) +
           (c.green > std::max(c.red, c.blue) ? 1 : 0);
}

/// Squared, in arithmetic that wraps, so that a request out of range has an answer too.
R_UINT distance(const Request& c, const RGBQUAD& entry) noexcept
{
    const auto square = [](R_INT a, R_INT b) noexcept {
        const R_UINT difference = static_cast<R_UINT>(a) - static_cast<R_UINT>(b);
        return difference * difference;
    };
    return square(c.red, entry.rgbRed) + square(c.green, entry.rgbGreen) + square(c.blue, entry.rgbBlue);
}

bool isRgb(const RGBQUAD& entry, uint8_t level) noexcept
{
    return entry.rgbRed == level && entry.rgbGreen == level && entry.rgbBlue == level;
}

/// Extremes are looked for at the ends of the palette: black at its start first, white at its end. kNoIndex: scan.
R_UINT findExtreme(const RGBQUAD* entries, R_UINT count, const Request& c) noexcept
{
    const R_UINT last = count - 1;
    if ((c.red | c.green | c.blue) == 0) {
        if (isRgb(entries[0], 0)) return 0;
        if (isRgb(entries[last], 0)) return last;
    } else if ((c.red & c.green & c.blue) == 255) {
        if (isRgb(entries[last], 255)) return last;
        if (isRgb(entries[0], 255)) return 0;
    }
    return kNoIndex;
}

/// The best entry so far, as entries are offered in their order.
class Nearest {
public:
    explicit Nearest(const Request& request) noexcept : request_(request) {}

    /// Whether the scan can end: nothing comes before the first exact entry.
    bool offer(R_UINT index, const RGBQUAD& entry, R_UINT distance) noexcept
    {
        if (distance < distance_) {
            distance_ = distance;
            index_ = index;
        } else if (distance == distance_ && hueClass(request_) == hueClass(requestOf(entry))) {
            index_ = index;
        }
        return distance_ == 0;
    }
    R_UINT index() const noexcept { return index_; }

private:
    Request request_;
    R_UINT distance_ = 0xFFFFFFFFu; // out of reach: three squares never add up to it
    R_UINT index_ = 0;
};

/// A request of bytes has its distances taken many at a time; only entries that can change the answer are offered.
R_UINT findNearestByte(const RGBQUAD* entries, R_UINT count, const Request& c) noexcept
{
    constexpr R_UINT kBlock = 64 * simd::kNearestMarks;
    const uint8_t colour[] = {static_cast<uint8_t>(c.blue), static_cast<uint8_t>(c.green), static_cast<uint8_t>(c.red)};
    const simd::NearestEntries markNearest = rowKernels().nearest;
    Nearest nearest(c);
    for (R_UINT first = 0, blockCount = 0; first < count; first += blockCount) {
        uint64_t marks[simd::kNearestMarks];
        const RGBQUAD* const block = entries + first;
        blockCount = std::min(count - first, kBlock);
        const R_UINT least = markNearest(reinterpret_cast<const uint8_t*>(block), blockCount, colour, marks);
        for (R_UINT word = 0; word < simd::kNearestMarks; ++word) {
            for (uint64_t rest = marks[word]; rest != 0; rest &= rest - 1) {
                const R_UINT i = word * 64 + static_cast<R_UINT>(std::countr_zero(rest));
                if (nearest.offer(first + i, block[i], least)) return nearest.index();
            }
        }
    }
    return nearest.index();
}

R_UINT findNearest(const RGBQUAD* entries, R_UINT count, const Request& c) noexcept
{
    const auto isByte = [](R_INT value) noexcept { return value >= 0 && value <= 255; };
    if (isByte(c.red) && isByte(c.green) && isByte(c.blue)) return findNearestByte(entries, count, c);
    Nearest nearest(c);
    for (R_UINT i = 0; i < count; ++i)
        if (nearest.offer(i, entries[i], distance(c, entries[i]))) break;
    return nearest.index();
}

/// What the platform answers for an RGB colour in the bitmap's palette; 0 where it cannot answer.
R_UINT nearestPlatformIndex(const BITMAPHANDLE* pBitmap, COLORREF rgb) noexcept
{
    const R_UINT colours = readableColors(pBitmap);
    if (colours == 0) return 0;
    const HPALETTE palette = R_CreatePalette(pBitmap->pPalette, colours);
    if (palette == nullptr) return 0;
    uint32_t index = 0;
    if (!platform().nearestPaletteIndex(palette, rgb, &index))
        index = R_FindPaletteIndex(pBitmap->pPalette, colours, redOf(rgb), greenOf(rgb), blueOf(rgb));
    R_DeletePalette(palette);
    return index;
}

COLORREF indexValue(R_UINT index) noexcept { return COLOUR_PALETTE_INDEX | (index & 0xFFFFu); }

/// The entry that a palette index stands for in the source of a translation; null where there is none.
const RGBQUAD* sourceEntry(const BITMAPHANDLE* pSrc, R_UINT index) noexcept
{
    if (pSrc == nullptr || !checkStructSize(pSrc).ok() || pSrc->BitsPerPixel > 8) return nullptr;
    return index < readableColors(pSrc) ? pSrc->pPalette + index : nullptr;
}

COLORREF translateIndex(const BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc, COLORREF crColor) noexcept
{
    const R_UINT index = indexOf(crColor);
    const RGBQUAD* const entry = sourceEntry(pSrc, index);
    const COLORREF rgb = entry != nullptr ? rgbOf(*entry) : 0;
    if (pDst->BitsPerPixel > 8) return rgb;
    if (entry != nullptr && index < readableColors(pDst) && rgbOf(pDst->pPalette[index]) == rgb) return crColor;
    return indexValue(nearestPlatformIndex(pDst, rgb));
}

/// The entry of the look-up table at a colour: gray bitmaps that show their samples through a table.
COLORREF findInLut(const BITMAPHANDLE* p, COLORREF crColor) noexcept
{
    const R_UINT length = p->LUTLength == 65536 ? 65535 : p->LUTLength; // an index has 16 bits
    return indexValue(R_FindPaletteIndex(p->pLUT, length, redOf(crColor), greenOf(crColor), blueOf(crColor)));
}

} // namespace

} // namespace rv

using namespace rv;

R_UINT R_FindPaletteIndex(const RGBQUAD* pPalette, R_UINT uCount, R_INT nRed, R_INT nGreen, R_INT nBlue) noexcept
{
    if (pPalette == nullptr) return 0;
    if (uCount == 0) return kNoIndex;
    const Request request{nRed, nGreen, nBlue};
    const R_UINT extreme = findExtreme(pPalette, uCount, request);
    return extreme != kNoIndex ? extreme : findNearest(pPalette, uCount, request);
}

R_UINT R_GetNearestPaletteIndex(BITMAPHANDLE* pBitmap, COLORREF crColor) noexcept
{
    return pBitmap != nullptr ? nearestPlatformIndex(pBitmap, rgbBits(crColor)) : 0;
}

COLORREF R_TranslateBitmapColor(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, COLORREF crColor) noexcept
{
    if (pDst == nullptr) return crColor;
    COLORREF colour = crColor;
    if (kindOf(colour) == COLOUR_GRAY_LEVEL) {
        if (pDst->Order == ORDER_GRAY)
            return pDst->pLUT != nullptr && (pDst->Flags & FLAG_USE_LUT) != 0 ? findInLut(pDst, colour) : colour;
        colour = grayRgb(colour);
    }
    if (kindOf(colour) == COLOUR_PALETTE_INDEX) return translateIndex(pDst, pSrc, colour);
    if (pDst->BitsPerPixel > 8) return rgbBits(colour);
    return indexValue(nearestPlatformIndex(pDst, rgbBits(colour)));
}

COLORREF R_GetTrueColorValue(BITMAPHANDLE* pBitmap, COLORREF crColor) noexcept
{
    if (pBitmap == nullptr || !checkStructSize(pBitmap).ok()) return 0;
    const COLORREF colour = R_TranslateBitmapColor(pBitmap, pBitmap, crColor);
    const R_INT bits = pBitmap->BitsPerPixel;
    if (kindOf(colour) == COLOUR_PALETTE_INDEX && bits <= 8) {
        const RGBQUAD* const entry = sourceEntry(pBitmap, indexOf(colour));
        return entry != nullptr ? rgbOf(*entry) : colour;
    }
    if (kindOf(colour) == COLOUR_GRAY_LEVEL && bits > 8 && bits <= 16) {
        const R_UINT level = levelOf(colour);
        if (pBitmap->pLUT != nullptr && level < pBitmap->LUTLength) return rgbOf(pBitmap->pLUT[level]);
        const RGBQUAD16* const wide = lut16(pBitmap);
        if (wide != nullptr && level < pBitmap->LUTLength16) return rgbOf(wide[level]);
    }
    return colour;
}
