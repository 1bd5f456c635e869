/// The format of a bitmap's pixels.
#pragma once

#include "Kernel/Base/Status.h"
#include "Kernel/Pixels/PixelFormat.h"
#include "R_Bitmap.h"

namespace rv {

/// Reads it from a record, whose palette and tables it goes on to use. Up to 16 bits are gray where the order says so,
/// 12 always. ERROR_INV_BITS_PER_PIXEL; ERROR_INV_PARAMETER for gray whose lowest significant bit is above its highest.
Status formatOf(const BITMAPHANDLE* pBitmap, PixelFormat* format) noexcept;
/// Gives the format of a gray bitmap its significant bits and tables: up to 8 bits it has only a palette till then.
/// ERROR_INV_PARAMETER as above.
Status takeTables(const BITMAPHANDLE* pBitmap, PixelFormat* format) noexcept;

} // namespace rv
