/// Services that imaging modules share: temporary-file options, module names, the display module's hooks.
#ifndef R_SERVICES_H
#define R_SERVICES_H

#include "R_Bitmap.h"

// --- Temporary files

#define TEMPFILE_DISK 1u            ///< on disk only
#define TEMPFILE_DISK_AND_MEMORY 2u ///< in memory while there is room
#define TEMPFILE_MEMORY 3u          ///< never on disk

/// Options of temporary files, process-wide.
typedef struct TEMPFILEOPTIONS {
    R_UINT uStructSize;        ///< 24
    R_UINT uMode;              ///< TEMPFILE_ value
    R_UINT uFlags;             ///< kept for the caller
    R_UINT uMaxTotalMemSize;   ///< MiB that all files in memory may hold together
    R_UINT uMaxMemSizePerFile; ///< MiB that one file in memory may hold
    R_UINT uChunkMemSize;      ///< KiB by which a file in memory grows
} TEMPFILEOPTIONS;
#define TEMPFILEOPTIONS_SIZE 24u
R_STATIC_ASSERT(sizeof(TEMPFILEOPTIONS) == TEMPFILEOPTIONS_SIZE, "byte-exact");

/// Stores the options. uMode 0 means 2; 0xFFFFFFFF keeps the present mode.
/// ERROR_NULL_PTR null; ERROR_INV_STRUCT_SIZE uStructSize other than 24.
R_API R_INT R_SetTempFileOptions(const TEMPFILEOPTIONS* pOptions) R_NOEXCEPT;
/// ERROR_NULL_PTR null; ERROR_INV_STRUCT_SIZE uStructSize other than 24.
R_API R_INT R_GetTempFileOptions(TEMPFILEOPTIONS* pOptions, R_UINT uStructSize) R_NOEXCEPT;
R_API R_UINT R_GetTempFileMode(void) R_NOEXCEPT;

// --- Modules

#define LIBNAME_NO_SUFFIX 0x1u ///< leave the file's ending out
#define LIBNAME_BARE 0x2u      ///< the table's name alone, without prefix and ending

/// Writes a module's file name (uBufferChars units, cut to fit). A file-format filter is named by its format: by
/// nLibId 0 and a format, or by nLibId 8.
/// Returns SUCCESS; ERROR_FEATURE_NOT_SUPPORTED where there is no such module; ERROR_INV_PARAMETER no buffer.
R_API R_INT R_GetLibName(R_UINT uFlags, R_INT nLibId, R_INT nFormatId, R_WCHAR* pszBuffer,
                         R_UINT uBufferChars) R_NOEXCEPT;

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
