/// Copies between compressed bitmaps, whose rows stay runs all the way.
#pragma once

#include "Kernel/Base/Status.h"
#include "Kernel/Core/Progress.h"
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

} // namespace rv
