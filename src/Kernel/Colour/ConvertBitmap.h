/// All rows of a bitmap as rows of another.
#pragma once

#include "Kernel/Colour/RowConverter.h"
#include "R_Bitmap.h"

namespace rv {

/// Fills pDst, of the same size and with its palette, from pSrc. Accesses both; tells the thread's progress callback.
Status convertBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, RowConverter& rows) noexcept;

/// Gives the record of a new image the Background and Transparency of another: what an index or a level stands for
/// becomes what such pixels become, and RGB what its pixels would. ERROR_FAILURE: no memory.
Status convertColours(BITMAPHANDLE* pDst, const PixelFormat& to, BITMAPHANDLE* pSrc, const PixelFormat& from) noexcept;

/// Makes the record of a new image one of plain gray samples: the order, all bits significant, no tables, and up to 8
/// bits the gray palette. ERROR_FAILURE: no memory for it.
Status makeGray(BITMAPHANDLE* pBitmap) noexcept;
/// What gray samples had beside their bits, and colours do not have: tables and a range of values.
void dropGrayParams(BITMAPHANDLE* pBitmap) noexcept;

} // namespace rv
