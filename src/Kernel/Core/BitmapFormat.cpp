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
        R_TRY(takeTables(pBitmap, &f));
    }
    *format = f;
    return SUCCESS;
}

Status takeTables(const BITMAPHANDLE* pBitmap, PixelFormat* format) noexcept
{
    format->lowBit = std::max(pBitmap->LowBit, 0);
    format->highBit = highBit(pBitmap);
    if (format->lowBit > format->highBit) return ERROR_INV_PARAMETER;
    format->table = pBitmap->pLUT;
    format->tableLength = pBitmap->LUTLength;
    format->table16 = lut16(pBitmap);
    format->tableLength16 = pBitmap->LUTLength16;
    return SUCCESS;
}

} // namespace rv
