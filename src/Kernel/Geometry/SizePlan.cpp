// What is asked for, and what that makes of a bitmap: one decision for bitmaps that are resized as a whole and for
// those that are read row by row.

#include "Internal/R_Int.h"
#include "Kernel/Core/BitmapFormat.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/ColourValue.h"
#include "Kernel/Core/Palette.h"
#include "Kernel/Geometry/ResizedRows.h"
#include "R_Colour.h"
#include "R_Geometry.h"

namespace rv {

namespace {

/// Flags that the bitmap makes sense of. What is for pages takes the place of SIZE_BILINEAR on a gray one, and counts
/// nowhere else.
R_UINT usefulFlags(BITMAPHANDLE* pBitmap, R_UINT flags) noexcept
{
    constexpr R_UINT forPages = SIZE_FAVOR_BLACK | SIZE_TO_GRAY;
    if ((flags & forPages) == 0) return flags;
    if (pBitmap->BitsPerPixel != 1 || R_IntFlushStartupBuffers(0) != SUCCESS) return flags & ~forPages;
    return R_IntIsGrayScaleBitmap(pBitmap) > 0 ? flags & ~SIZE_BILINEAR : flags & ~forPages;
}

bool isGrayOfBytes(BITMAPHANDLE* pBitmap) noexcept
{
    return pBitmap->BitsPerPixel == 8 && R_IntIsGrayScaleBitmap(pBitmap) > 0;
}

/// What gray samples have beside their bits, colours have not.
Status dropGrayParams(BITMAPHANDLE* pBitmap) noexcept
{
    BITMAPHANDLE plain;
    R_TRY(R_InitBitmap(&plain, sizeof plain, 1, 1, pBitmap->BitsPerPixel));
    return R_CopyGrayParams(pBitmap, &plain);
}

} // namespace

SizePlan planSize(BITMAPHANDLE* pBitmap, const SizeJob& job, R_UINT flags) noexcept
{
    const R_INT bits = pBitmap->BitsPerPixel;
    flags = usefulFlags(pBitmap, flags);
    SizePlan plan;
    plan.bits = bits;
    if ((flags & (SIZE_BILINEAR | SIZE_BICUBIC | SIZE_AREA)) == 0) {
        if ((flags & SIZE_TO_GRAY) != 0) return kPageToGray;
        plan.way = (flags & SIZE_FAVOR_BLACK) != 0 ? SizePlan::Way::favorBlack : SizePlan::Way::nearest;
        return plan;
    }
    const bool grows = job.width > job.columns() || job.height > job.rows();
    plan.way = SizePlan::Way::weighed;
    if ((flags & SIZE_AREA) != 0)
        plan.weighing = Weighing::area;
    else if ((flags & SIZE_BICUBIC) != 0 && grows)
        plan.weighing = Weighing::spline;
    // Colours that are multiplied by their alpha are weighed by it as they are.
    plan.byAlpha = (flags & SIZE_ALPHA) != 0 && alphaMask(bits) != 0 && (pBitmap->Flags & FLAG_PREMULTIPLY_ALPHA) == 0;
    // Between the samples of a table that is no straight line there is nothing to be weighed but what they stand for.
    if (pBitmap->Order == ORDER_GRAY && (pBitmap->Flags & FLAG_NON_LINEAR_LUT) != 0 && bits <= 16) plan.bits = 24;
    plan.newGray = plan.bits == 8 && isGrayOfBytes(pBitmap);
    return plan;
}

Status describeResized(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const SizePlan& plan) noexcept
{
    if (plan.bits > 8 && plan.bits != pSrc->BitsPerPixel)
        return dropGrayParams(pDst); // the tables have been looked into
    if (!plan.newGray) return SUCCESS;
    R_TRY(giveGrayPalette(pDst));
    pDst->Background = R_TranslateBitmapColor(pDst, pSrc, pSrc->Background);
    pDst->Transparency = R_TranslateBitmapColor(pDst, pSrc, pSrc->Transparency);
    return SUCCESS;
}

Status resizedFormat(const BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc, PixelFormat* format) noexcept
{
    const bool asStored = pDst->BitsPerPixel > 8 || readableColors(pDst) == 0;
    return formatOf(asStored && pDst->BitsPerPixel == pSrc->BitsPerPixel ? pSrc : pDst, format);
}

} // namespace rv
