#include "Kernel/Colour/ConvertBitmap.h"

#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Palette.h"
#include "Kernel/Core/Progress.h"
#include "Kernel/Core/RowCursor.h"

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

} // namespace

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
