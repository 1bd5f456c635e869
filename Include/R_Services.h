/// Services that imaging modules share: files, threads, modules, the display module's hooks.
#ifndef R_SERVICES_H
#define R_SERVICES_H

#include "R_Bitmap.h"
#include "R_Files.h"
#include "R_Modules.h"
#include "R_Threads.h"

// --- The display module's hooks

/// What a display module does for the kernel. A null member is a step that is left out.
typedef struct DISDISPATCH {
    R_UINT uStructSize;                         ///< sizeof(DISDISPATCH)
    void (*DeleteRegion)(void* pRgnInfo);       ///< frees BITMAPHANDLE.pRgnInfo
    void (*DeleteOverlays)(void* pOverlays);    ///< frees BITMAPHANDLE.pOverlays
    R_INT (*FlipRegion)(BITMAPHANDLE* pBitmap); ///< the bitmap's rows have been flipped
} DISDISPATCH;

/// Installs the hooks, process-wide; null removes them. The record is copied.
/// ERROR_INV_STRUCT_SIZE for a record of another size.
R_API R_INT R_SetDisDispatch(const DISDISPATCH* pDispatch) R_NOEXCEPT;

#endif
