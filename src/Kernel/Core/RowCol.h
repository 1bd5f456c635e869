/// Row traffic below the checks: the callbacks first, then the store that the placement flags choose.
#pragma once

#include "R_Rows.h"

namespace rv {

/// Move `count` bytes of a row, from the byte that holds `column` on. They answer as the exported row calls do.
R_SSIZE readRow(BITMAPHANDLE* pBitmap, void* bytes, R_INT row, R_INT column, R_SIZE count) noexcept;
R_SSIZE writeRow(BITMAPHANDLE* pBitmap, void* bytes, R_INT row, R_INT column, R_SIZE count) noexcept;

} // namespace rv
