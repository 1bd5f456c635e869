/// The checks that open a call, in their fixed order: pointer, structure size, geometry, pixels present.
#pragma once

#include "Kernel/Base/Status.h"
#include "Kernel/Pixels/Depths.h"
#include "R_Bitmap.h"

namespace rv {

constexpr bool isStructSize(R_UINT size) noexcept
{
    return size == BITMAPHANDLE_SIZE || size == BITMAPHANDLE_SIZE_SHORT;
}
constexpr bool isViewPerspective(R_INT perspective) noexcept
{
    return perspective >= TOP_LEFT && perspective <= LEFT_BOTTOM;
}
/// Whether stored rows are displayed as columns.
constexpr bool showsRowsAsColumns(R_INT perspective) noexcept
{
    return perspective >= LEFT_TOP && perspective <= LEFT_BOTTOM;
}

inline Status checkStructSize(const BITMAPHANDLE* p) noexcept
{
    return isStructSize(p->uStructSize) ? SUCCESS : ERROR_INV_STRUCT_SIZE;
}

/// Null and unallocated alike, with the code of the call that asks.
inline Status checkAllocated(const BITMAPHANDLE* p, R_INT code) noexcept
{
    return p != nullptr && (p->Flags & FLAG_ALLOCATED) != 0 ? SUCCESS : code;
}

// Fields past a short record's end are reached through these alone.

/// Whether the record carries fields up to and past Size64.
inline bool hasSize64(const BITMAPHANDLE* p) noexcept { return p->uStructSize > offsetof(BITMAPHANDLE, Size64); }
/// Whether the record carries a lock count and data callbacks.
inline bool hasCallbackSlot(const BITMAPHANDLE* p) noexcept { return p->uStructSize == BITMAPHANDLE_SIZE; }

inline R_UINT64 pixelBytes(const BITMAPHANDLE* p) noexcept { return hasSize64(p) ? p->Size64 : p->Size; }

inline constexpr R_UINT64 kShortRecordMaxSize = 0xFFFF0000u;

/// Stores a pixel size in the fields the record has; a short record's is capped.
inline void setPixelBytes(BITMAPHANDLE* p, R_UINT64 bytes) noexcept
{
    if (hasSize64(p)) {
        p->Size64 = bytes;
        p->Size = bytes;
    } else {
        p->Size = bytes < kShortRecordMaxSize ? bytes : kShortRecordMaxSize;
    }
}

inline BITMAPHANDLEDATACALLBACKS* dataCallbacks(const BITMAPHANDLE* p) noexcept
{
    return hasCallbackSlot(p) ? p->pDataCallbacks : nullptr;
}
inline RGBQUAD16* lut16(const BITMAPHANDLE* p) noexcept { return hasCallbackSlot(p) ? p->pLUT16 : nullptr; }
inline R_INT lockCount(const BITMAPHANDLE* p) noexcept { return hasCallbackSlot(p) ? p->nLockCount : 0; }

/// Entries that can be read: a null palette has none.
inline R_UINT readableColors(const BITMAPHANDLE* p) noexcept { return p->pPalette != nullptr ? p->nColors : 0; }

/// The highest significant bit of a sample.
inline R_INT highBit(const BITMAPHANDLE* p) noexcept { return p->HighBit < 0 ? p->BitsPerPixel - 1 : p->HighBit; }

/// Whether the size fields cover the rows, where they tell.
bool holdsRows(const BITMAPHANDLE* p) noexcept;

/// Whether an operation may walk the record's pixels: a known depth, no negative size, rows that hold their width,
/// and, for linear placements, a block that holds the rows. A record that is not so is never walked, whoever wrote
/// it. ERROR_INV_SIZE, ERROR_INV_BITS_PER_PIXEL.
Status checkWalkable(const BITMAPHANDLE* p) noexcept;

} // namespace rv
