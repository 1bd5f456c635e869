#include "Kernel/Colour/ConvertBitmap.h"

#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/ColourValue.h"
#include "Kernel/Core/Palette.h"
#include "Kernel/Core/Progress.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/PixelTraits.h"

#include <cstring>

namespace rv {

namespace {

Status convertRows(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, RowConverter& rows) noexcept
{
    RowCursor from(pSrc, RowMode::read), to(pDst, RowMode::write);
    R_TRY(from.status());
    R_TRY(to.status());
    const auto width = static_cast<size_t>(pSrc->Width);
    const auto used = static_cast<size_t>(packedBytes(pSrc->Width, pDst->BitsPerPixel));
    const R_INT height = pSrc->Height;
    Progress progress = Progress::ofThread(height);
    R_TRY(progress.begin());
    for (R_INT row = 0; row < height; ++row) {
        R_TRY(from.open(row));
        R_TRY(to.open(row));
        rows.convert(to.data(), from.data(), width);
        std::memset(to.data() + used, 0, pDst->BytesPerLine - used);
        R_TRY(to.commit());
        R_TRY(progress.step());
    }
    return SUCCESS;
}

/// A row of one pixel.
struct OnePixel {
    uint8_t bytes[8] = {};

    void put(R_INT bits, StoredPixel pixel) noexcept
    {
        withDepth(bits, [&]<int Bits>(Depth<Bits>) {
            PixelTraits<Bits>::write(bytes, 0, pixel.bits);
            return true;
        });
    }
    StoredPixel get(R_INT bits) const noexcept
    {
        return withDepth(bits,
                         [&]<int Bits>(Depth<Bits>) -> StoredPixel { return {PixelTraits<Bits>::read(bytes, 0)}; });
    }
};

Status convertColour(COLORREF* colour, BITMAPHANDLE* pDst, const PixelFormat& to, BITMAPHANDLE* pSrc,
                     const PixelFormat& from) noexcept
{
    OnePixel before, after;
    PixelFormat format = from;
    if (kindOf(*colour) == COLOUR_RGB) { // which the source need not be able to show
        format = PixelFormat{.bits = 24, .redFirst = true};
        before.put(24, {rgbBits(*colour)});
    } else {
        before.put(from.bits, pixelOfColour(pSrc, *colour, 255));
    }
    RowConverter pixel(format, to, false);
    R_TRY(pixel.status());
    pixel.convert(after.bytes, before.bytes, 1);
    *colour = colourOfPixel(pDst, after.get(to.bits));
    return SUCCESS;
}

} // namespace

Status convertColours(BITMAPHANDLE* pDst, const PixelFormat& to, BITMAPHANDLE* pSrc, const PixelFormat& from) noexcept
{
    COLORREF background = pSrc->Background, transparency = pSrc->Transparency; // packed fields
    R_TRY(convertColour(&background, pDst, to, pSrc, from));
    R_TRY(convertColour(&transparency, pDst, to, pSrc, from));
    pDst->Background = background;
    pDst->Transparency = transparency;
    return SUCCESS;
}

Status convertBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, RowConverter& rows) noexcept
{
    BitmapAccess source(pSrc);
    R_TRY(source.status());
    BitmapAccess target(pDst);
    R_TRY(target.status());
    return source.finish(target.finish(convertRows(pDst, pSrc, rows)));
}

void dropGrayParams(BITMAPHANDLE* pBitmap) noexcept
{
    const R_INT bits = pBitmap->BitsPerPixel;
    const R_INT high = bits == 32 ? -1 : bits == 24 ? 7 : bits > 32 ? 15 : bits - 1;
    pBitmap->LowBit = pBitmap->PaintLowBit = 0;
    pBitmap->HighBit = pBitmap->PaintHighBit = high;
    pBitmap->MinVal = pBitmap->MaxVal = 0;
    pBitmap->Flags &= ~(FLAG_SIGNED | FLAG_USE_LUT | FLAG_USE_PAINT_LUT | FLAG_NON_LINEAR_LUT);
    pBitmap->pLUT = nullptr;
    pBitmap->LUTLength = 0;
    pBitmap->pPaintLUT = nullptr;
    pBitmap->LUTLength16 = 0;
    if (!hasCallbackSlot(pBitmap)) return;
    pBitmap->pLUT16 = nullptr;
    pBitmap->pPaintLUT16 = nullptr;
}

Status makeGray(BITMAPHANDLE* pBitmap) noexcept
{
    dropGrayParams(pBitmap);
    pBitmap->Order = ORDER_GRAY;
    pBitmap->Flags &= ~(FLAG_ALPHA_BLEND | FLAG_PREMULTIPLY_ALPHA);
    return pBitmap->BitsPerPixel <= 8 ? giveGrayPalette(pBitmap) : Status(SUCCESS);
}

} // namespace rv
