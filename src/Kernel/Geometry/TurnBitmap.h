/// The pixels of a bitmap in another position: from one bitmap into another, or where they are.
#pragma once

#include "Kernel/Core/Progress.h"
#include "Kernel/Pixels/Turns.h"
#include "R_Bitmap.h"

namespace rv {

/// Fills a bitmap with the turned pixels of another one of its depth; sideways, its width is the other one's height.
/// Both are accessed and walkable. Progress counts the source's rows.
Status turnInto(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Turn& turn, const PercentRange& range = {}) noexcept;

/// Turns an accessed bitmap where it is, if that can be done so that a failure or an abort leaves it as it was: not
/// sideways, rows in memory. *done: whether it could.
Status turnWhereItIs(BITMAPHANDLE* pBitmap, const Turn& turn, bool* done, const PercentRange& range = {}) noexcept;

} // namespace rv
