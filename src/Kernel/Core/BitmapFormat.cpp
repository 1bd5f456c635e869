#include "Kernel/Core/BitmapFormat.h"

#include "Kernel/Core/Checks.h"

#include <algorithm>

namespace rv {

Status formatOf(const BITMAPHANDLE* pBitmap, PixelFormat* format) noexcept
{
    PixelFormat f;
    f.bits = pBitmap->BitsPerPixel;
    if (!isDepth(f.bits)) return ERROR_INV_BITS_PER_PIXEL;
    f.gray = f.bits == 12 || (f.bits <= 16 && pBitmap->Order == ORDER_GRAY);
    f.redFirst = pBitmap->Order == ORDER_RGB;
    if (f.bits <= 8) {
        f.palette = pBitmap->pPalette;
        f.colours = std::min(readableColors(pBitmap), 1u << f.bits); // no pixel names those behind
    } else if (f.gray) {
        f.lowBit = std::max(pBitmap->LowBit, 0);
        f.highBit = highBit(pBitmap);
        if (f.lowBit > f.highBit) return ERROR_INV_PARAMETER;
        f.table = pBitmap->pLUT;
        f.tableLength = pBitmap->LUTLength;
        f.table16 = lut16(pBitmap);
        f.tableLength16 = pBitmap->LUTLength16;
    }
    *format = f;
    return SUCCESS;
}

} // namespace rv
