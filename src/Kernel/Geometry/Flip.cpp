// Upside down: every row of a bitmap, or the perspective alone.

#include "Internal/R_Int.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Progress.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Geometry/Perspective.h"
#include "Kernel/Geometry/Region.h"
#include "Kernel/Pixels/Simd/Select.h"

namespace rv {

namespace {

/// Exchanges two rows. When the second cannot be written, the first is put back: a row is never there twice.
Status exchangeRows(RowCursor& upper, R_INT top, RowCursor& lower, R_INT bottom, size_t rowBytes) noexcept
{
    R_TRY(upper.open(top));
    R_TRY(lower.open(bottom));
    const simd::SwapBytes swap = rowKernels().swap;
    // The lower rows come last first, against the way in which the hardware fetches ahead.
    const uint8_t* const next = lower.direct() ? lower.data() - rowBytes : lower.data();
    swap(upper.data(), lower.data(), rowBytes, next);
    Status status = lower.commit();
    if (status.ok()) status = upper.commit();
    if (!status.ok()) { // rows that are handed out in place have changed already
        swap(upper.data(), lower.data(), rowBytes, next);
        (void)lower.commit();
    }
    return status;
}

Status flipRows(BITMAPHANDLE* pBitmap) noexcept
{
    RowCursor upper(pBitmap, RowMode::update);
    R_TRY(upper.status());
    RowCursor lower(pBitmap, RowMode::update);
    R_TRY(lower.status());
    const size_t rowBytes = pBitmap->BytesPerLine;

    // The middle row of an odd height counts as a step that is never made.
    Progress progress = Progress::ofThread((R_INT64{pBitmap->Height} + 1) / 2);
    R_TRY(progress.begin());
    for (R_INT top = 0, bottom = pBitmap->Height - 1; top < bottom; ++top, --bottom) {
        R_TRY(exchangeRows(upper, top, lower, bottom, rowBytes));
        R_TRY(progress.step());
    }
    return SUCCESS;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_FlipBitmap(BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pBitmap));
    return showsRowsAsColumns(pBitmap->ViewPerspective) ? R_IntReverseBitmap(pBitmap) : R_IntFlipBitmap(pBitmap);
}

R_INT R_IntFlipBitmap(BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pBitmap));
    R_TRY(checkWalkable(pBitmap));
    {
        BitmapAccess access(pBitmap);
        R_TRY(access.status());
        R_TRY(access.finish(flipRows(pBitmap)));
    }
    return flipRegion(pBitmap);
}

R_INT R_FlipBitmapViewPerspective(BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkPerspectiveCall(pBitmap));
    return R_IntFlipBitmapViewPerspective(pBitmap);
}

R_INT R_IntFlipBitmapViewPerspective(BITMAPHANDLE* pBitmap) noexcept
{
    constexpr PerspectiveMap flipped = {BOTTOM_LEFT, BOTTOM_RIGHT, TOP_RIGHT, TOP_LEFT,
                                        LEFT_BOTTOM, RIGHT_BOTTOM, RIGHT_TOP, LEFT_TOP};
    return mapPerspective(pBitmap, flipped);
}
