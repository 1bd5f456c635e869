/// What the lifecycle's sources share about a record that is being filled or emptied.
#pragma once

#include "Kernel/Base/Status.h"
#include "R_Bitmap.h"

namespace rv {

/// What an allocate or begin-copy callback is told about a bitmap.
void fillAllocationInfo(ALLOCATIONINFO* pInfo, const BITMAPHANDLE* pBitmap, R_UINT memory, void* data) noexcept;

/// Gives the pixels back: the callback's way if it has one, else the store's. Flags and slots stay as they are.
void freePixels(BITMAPHANDLE* pBitmap) noexcept;
/// Frees the kernel's copy of the data callbacks.
void freeCallbacks(BITMAPHANDLE* pBitmap) noexcept;
/// Frees the extra block; a record without one stays as it is.
void freeExtraData(BITMAPHANDLE* pBitmap) noexcept;

/// Whether uMemory is one of the sets of flags that can be placed.
bool isMemorySet(R_UINT memory) noexcept;
/// uMemory as the placement decision takes it: what cannot be had for this bitmap is dropped.
R_UINT normalisedMemory(const BITMAPHANDLE* pBitmap, R_UINT memory) noexcept;
/// Decides where the pixels go and puts them there. The record's placement fields are empty before; they stay so
/// when it fails.
Status placePixels(BITMAPHANDLE* pBitmap, R_UINT memory) noexcept;

/// R_AllocateBitmap, with the caller's data pointer for the allocate callbacks to see.
Status allocatePixels(BITMAPHANDLE* pBitmap, R_UINT memory, void* data) noexcept;

/// The flags that say where pixels live.
inline constexpr R_UINT kPlacementFlags = FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY | FLAG_DISK_MEMORY |
                                          FLAG_LOCKED_MEMORY | FLAG_COMPRESSED | FLAG_MIRROR | FLAG_GLOBAL |
                                          FLAG_TILED | FLAG_SUPER_COMPRESSED;
static_assert(kPlacementFlags == 0xD517);

/// Whether the pixels came from an allocate callback: their size is the callback's business.
inline bool hasCallbackPixels(const BITMAPHANDLE* p) noexcept
{
    constexpr R_UINT asked = FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY | FLAG_MIRROR | FLAG_GLOBAL;
    return (p->Flags & asked) == (FLAG_ALLOCATED | FLAG_MIRROR);
}

} // namespace rv
