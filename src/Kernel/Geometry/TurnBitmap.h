/// The pixels of a bitmap in another position: from one bitmap into another, or where they are.
#pragma once

#include "Kernel/Core/Progress.h"
#include "Kernel/Pixels/Turns.h"
#include "R_Bitmap.h"

namespace rv {

/// Fills a bitmap with the turned pixels of another one of its depth; sideways, its width is the other one's height.
/// Both are accessed and walkable. Progress counts the source's rows.
Status turnInto(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Turn& turn, const PercentRange& range = {}) noexcept;

/// Gives a new bitmap another one's turned pixels, and what of its record lies as they do: the perspective that it is
/// to have, and the resolutions. ERROR_INV_SIZE where its size is not the turned one's.
Status fillTurned(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Turn& turn, R_INT perspective,
                  const PercentRange& range = {}) noexcept;

/// Gives pDst, whose rows are pSrc's columns, its resolutions accordingly.
void takeResolutionsSideways(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) noexcept;

/// Turns a bitmap where it is and gives it another perspective, if that can be done so that a failure or an abort
/// leaves it as it was: not sideways, rows in memory. *done: whether it could.
Status changeWhereItIs(BITMAPHANDLE* pBitmap, const Turn& turn, R_INT perspective, bool* done,
                       const PercentRange& range = {}) noexcept;

} // namespace rv
