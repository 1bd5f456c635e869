// Bitmaps that show the same image in another perspective.

#include "Internal/R_Int.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Replacement.h"
#include "Kernel/Geometry/Perspective.h"
#include "Kernel/Geometry/Region.h"
#include "Kernel/Geometry/TurnBitmap.h"
#include "R_Geometry.h"

namespace rv {

namespace {

struct Size {
    R_INT width;
    R_INT height;
};

Size turnedSize(const BITMAPHANDLE* pBitmap, const Turn& turn) noexcept
{
    return turn.sideways() ? Size{pBitmap->Height, pBitmap->Width} : Size{pBitmap->Width, pBitmap->Height};
}

Status makeTurned(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, R_INT perspective, R_UINT uFlags) noexcept
{
    const Turn turn = turnBetween(pSrc->ViewPerspective, perspective);
    const Size size = turnedSize(pSrc, turn);
    R_TRY(
        R_DupBitmapNewDim(pDst, pSrc, uStructSize, size.width, size.height, pSrc->BitsPerPixel, uFlags | DUP_ALLOCATE));
    Status status = fillTurned(pDst, pSrc, turn, perspective);
    if ((uFlags & (DUP_REPLACES_SOURCE | DUP_NEW_BITMAP)) != 0) status = R_IntEndCopyBitmap(pDst, pSrc, status);
    if (!status.ok()) R_FreeDuplicateBitmap(pDst, pSrc);
    return status;
}

Status replaceByTurned(BITMAPHANDLE* pBitmap, const Turn& turn, R_INT perspective) noexcept
{
    bool done = false;
    R_TRY(changeWhereItIs(pBitmap, turn, perspective, &done));
    if (done) return SUCCESS;
    const Size size = turnedSize(pBitmap, turn);
    Replacement turned(nullptr, pBitmap, pBitmap->uStructSize, {size.width, size.height, pBitmap->BitsPerPixel});
    R_TRY(turned.status());
    const Status filled = fillTurned(turned.bitmap(), pBitmap, turn, perspective);
    return filled.ok() ? turned.commit() : turned.fail(filled);
}

/// A region stays over the image that it was made for where the display module can flip it.
Status changeInPlace(BITMAPHANDLE* pBitmap, R_INT perspective) noexcept
{
    const Turn turn = turnBetween(pBitmap->ViewPerspective, perspective);
    R_TRY(replaceByTurned(pBitmap, turn, perspective));
    return turn == Turn{true, 0} ? flipRegion(pBitmap) : Status(SUCCESS);
}

/// Where stored rows are to be displayed as columns, start-up has to be over.
Status checkPerspectiveWanted(R_INT perspective) noexcept
{
    if (!isViewPerspective(perspective)) return ERROR_INV_PARAMETER;
    if (!showsRowsAsColumns(perspective)) return SUCCESS;
    return R_IntFlushStartupBuffers(0) == SUCCESS ? SUCCESS : ERROR_FEATURE_LOCKED;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_ChangeBitmapViewPerspective(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize,
                                    R_INT nViewPerspective) noexcept
{
    R_TRY(checkAllocated(pSrc, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pSrc));
    const bool inPlace = pDst == nullptr || pDst == pSrc;
    if (!inPlace && !isStructSize(uStructSize)) return ERROR_INV_STRUCT_SIZE;
    R_TRY(checkPerspectiveWanted(nViewPerspective));
    if (inPlace) return R_IntChangeBitmapViewPerspective(nullptr, pSrc, pSrc->uStructSize, nViewPerspective, 0);
    return R_IntChangeBitmapViewPerspective(pDst, pSrc, uStructSize, nViewPerspective, 0xBF);
}

R_INT R_IntChangeBitmapViewPerspective(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize,
                                       R_INT nViewPerspective, R_UINT uFlags) noexcept
{
    R_TRY(checkAllocated(pSrc, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pSrc));
    if (!isViewPerspective(nViewPerspective) || !isViewPerspective(pSrc->ViewPerspective)) return ERROR_INV_PARAMETER;
    R_TRY(checkWalkable(pSrc));
    if (pDst == nullptr || pDst == pSrc) return changeInPlace(pSrc, nViewPerspective);
    return makeTurned(pDst, pSrc, uStructSize, nViewPerspective, uFlags);
}
