/// Turns that move no pixel: the perspective's field alone changes.
#pragma once

#include "Internal/R_Int.h"
#include "Kernel/Core/Checks.h"

namespace rv {

/// The perspective that follows each of the eight, from TOP_LEFT on.
using PerspectiveMap = R_INT[LEFT_BOTTOM];

/// A value outside the eight stays as it is.
inline Status mapPerspective(BITMAPHANDLE* pBitmap, const PerspectiveMap& map) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_BITMAP;
    const R_INT perspective = pBitmap->ViewPerspective;
    if (isViewPerspective(perspective)) pBitmap->ViewPerspective = map[perspective - TOP_LEFT];
    return SUCCESS;
}

/// What the exported forms check first.
inline Status checkPerspectiveCall(const BITMAPHANDLE* pBitmap) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    return R_IntFlushStartupBuffers(0) == SUCCESS ? SUCCESS : ERROR_FEATURE_LOCKED;
}

} // namespace rv
