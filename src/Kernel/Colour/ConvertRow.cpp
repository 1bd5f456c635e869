// A row of one bitmap's format as another's.

#include "Kernel/Colour/RowConverter.h"
#include "Kernel/Core/BitmapFormat.h"
#include "Kernel/Core/Checks.h"
#include "R_Colour.h"

using namespace rv;

R_INT R_ConvertRow(BITMAPHANDLE* pDstFormat, void* pDstRow, BITMAPHANDLE* pSrcFormat, const void* pSrcRow,
                   R_UINT uPixels) noexcept
{
    if (pDstFormat == nullptr || pDstRow == nullptr || pSrcFormat == nullptr || pSrcRow == nullptr)
        return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pDstFormat));
    R_TRY(checkStructSize(pSrcFormat));
    PixelFormat to, from;
    R_TRY(formatOf(pDstFormat, &to));
    R_TRY(formatOf(pSrcFormat, &from));
    if (to.bits <= 8 && to.colours == 0) return ERROR_INV_PARAMETER;
    RowConverter rows(from, to);
    R_TRY(rows.status());
    rows.convert(static_cast<uint8_t*>(pDstRow), static_cast<const uint8_t*>(pSrcRow), uPixels);
    return SUCCESS;
}
