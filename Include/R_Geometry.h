/// Operations on whole bitmaps that move pixels, and the progress of long operations.
#ifndef R_GEOMETRY_H
#define R_GEOMETRY_H

#include "R_Bitmap.h"

/// Progress of a long operation in percent; any answer but 1 ends the operation and is its result.
typedef R_INT (*STATUSCALLBACK)(R_INT nPercent, void* pUserData);

/// The calling thread's progress callback (null: none). The former pair goes to the pointers that are not null.
R_API R_INT R_SetStatusCallBack(STATUSCALLBACK pfnCallback, void* pUserData, STATUSCALLBACK* ppfnOld,
                                void** ppOldUserData) R_NOEXCEPT;
R_API STATUSCALLBACK R_GetStatusCallBack(void** ppUserData) R_NOEXCEPT;
/// The same for the copy family alone.
R_API R_INT R_SetCopyStatusCallBack(STATUSCALLBACK pfnCallback, void* pUserData, STATUSCALLBACK* ppfnOld,
                                    void** ppOldUserData) R_NOEXCEPT;
R_API STATUSCALLBACK R_GetCopyStatusCallBack(void** ppUserData) R_NOEXCEPT;

/// Turn the displayed image upside down, or mirror it left to right, by moving pixels in place. All memory is taken
/// before the first pixel moves; an aborted or failed call leaves whole rows, old or new.
/// Errors: ERROR_INV_PARAMETER null (R_FlipBitmap: or no pixels); ERROR_INV_BITMAP no pixels; ERROR_INV_STRUCT_SIZE;
/// ERROR_INV_SIZE rows that cannot hold the width; ERROR_INV_BITS_PER_PIXEL; ERROR_FAILURE no memory; a progress
/// callback's answer; a region hook's, when the pixels have moved and the region could not.
R_API R_INT R_FlipBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
R_API R_INT R_ReverseBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

/// The same turns without moving a pixel: only ViewPerspective changes; a value outside 1 to 8 stays.
R_API R_INT R_FlipBitmapViewPerspective(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
R_API R_INT R_ReverseBitmapViewPerspective(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

/// Reverses the order of the first uWidth pixels of a row, in place; bits behind them in the last byte become 0.
/// ERROR_INV_PARAMETER for null; any other depth than the fourteen does nothing and succeeds.
R_API R_INT R_MirrorLine(void* pRow, R_UINT uWidth, R_INT nBitsPerPixel) R_NOEXCEPT;

#endif
