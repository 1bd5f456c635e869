/// Perspectives: how an image in one of them becomes one in another, and turns that move no pixel, where the
/// perspective's field alone changes.
#pragma once

#include "Internal/R_Int.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Pixels/Turns.h"

namespace rv {

/// What makes an image in perspective `from` one in perspective `to`; both are among the eight.
Turn turnBetween(R_INT from, R_INT to) noexcept;

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
