/// Copies and turns between compressed bitmaps, whose rows stay runs all the way.
#pragma once

#include "Kernel/Base/Status.h"
#include "Kernel/Core/Progress.h"
#include "Kernel/Pixels/Turns.h"
#include "R_Bitmap.h"

namespace rv {

/// A rectangle in stored rows and columns.
struct CopiedRectangle {
    R_INT left;
    R_INT top;
    R_INT width;
    R_INT height;
};

/// Whether both bitmaps give and take their rows as runs: no callback stands before the store of either.
bool bothMoveRuns(const BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) noexcept;

/// Copies a rectangle of pSrc, which lies inside it, to the first rows of pDst, which are as wide as it is.
Status copyRuns(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc, const CopiedRectangle& from, Progress& progress) noexcept;

/// Gives pDst, which both move runs with, the rows of pSrc turned: not sideways. Both are as wide, at most
/// kWidestOfWholeRuns, and as high.
Status turnRuns(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc, const Turn& turn, Progress& progress) noexcept;

/// Rows that are wider may have runs in parts, whose lengths depend on where in the row they begin.
constexpr R_INT kWidestOfWholeRuns = 0xFFFF;

} // namespace rv
