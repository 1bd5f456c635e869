/// Services that imaging modules share: files, threads, modules, the display module's hooks.
#ifndef R_SERVICES_H
#define R_SERVICES_H

#include "R_Bitmap.h"
#include "R_Files.h"
#include "R_Modules.h"
#include "R_Threads.h"

// --- The display module's hooks

/// What a display module does for the kernel. A null member is a step that is left out. The region hooks are asked of
/// bitmaps whose pRgnInfo is not null; a region is answered in stored rows and columns, right and bottom exclusive, and
/// is cut to the bitmap by the kernel. Painting and combining honour it where both GetRegionBounds and
/// GetRegionSegments are there. They answer SUCCESS, or the status that ends the operation.
typedef struct DISDISPATCH {
    R_UINT uStructSize;                         ///< sizeof(DISDISPATCH)
    void (*DeleteRegion)(void* pRgnInfo);       ///< frees BITMAPHANDLE.pRgnInfo
    void (*DeleteOverlays)(void* pOverlays);    ///< frees BITMAPHANDLE.pOverlays
    R_INT (*FlipRegion)(BITMAPHANDLE* pBitmap); ///< the bitmap's rows have been flipped
    /// The smallest rectangle around the region, and the most segments that one of its rows has: 0 for an empty region.
    R_INT (*GetRegionBounds)(BITMAPHANDLE* pBitmap, RECT* pBounds, R_UINT* puMostSegments);
    /// The pieces of one row that are inside, at most *puMostSegments of them, in any order; their number to
    /// *puSegments.
    R_INT (*GetRegionSegments)(BITMAPHANDLE* pBitmap, R_INT nRow, R_SEGMENT* pSegments, R_UINT* puSegments);
    /// The pixels are about to be turned, as they are stored, clockwise by hundredths of a degree, 0 to 35999: what
    /// lies around the point (fX, fY) will lie around (fXNew, fYNew) in a bitmap of nNewWidth x nNewHeight.
    R_INT(*RotateRegion)
    (BITMAPHANDLE* pBitmap, R_INT nAngle, float fX, float fY, float fXNew, float fYNew, R_INT nNewWidth,
     R_INT nNewHeight);
    /// The bitmap is about to have this size; its pixels are scaled.
    R_INT (*ScaleRegion)(BITMAPHANDLE* pBitmap, R_INT nNewWidth, R_INT nNewHeight);
} DISDISPATCH;

/// Installs the hooks, process-wide; null removes them. The record is copied.
/// ERROR_INV_STRUCT_SIZE for a record of another size.
R_API R_INT R_SetDisDispatch(const DISDISPATCH* pDispatch) R_NOEXCEPT;

#endif
