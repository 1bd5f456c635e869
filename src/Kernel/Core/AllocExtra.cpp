// What hangs on a record beside its pixels: the extra block, the caller's pixels, the shallow copy.

#include "Kernel/Core/AllocRecord.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/MovableBlock.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Rows/TileStore.h"

#include <algorithm>
#include <cstring>

namespace rv {

using ExtraBlock = MovableBlock<uint8_t>;

void freeExtraData(BITMAPHANDLE* pBitmap) noexcept
{
    ExtraBlock::free(static_cast<uint8_t*>(pBitmap->pExtraData));
    pBitmap->pExtraData = nullptr;
    pBitmap->ExtraDataSize = 0;
}

namespace {

Status checkExtraCall(const BITMAPHANDLE* pBitmap, R_UINT uFlags) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_BITMAP;
    R_TRY(checkStructSize(pBitmap));
    return uFlags == 0 ? SUCCESS : ERROR_INV_PARAMETER;
}

/// Puts a new block in place of the present one, which is gone even when there is no memory for the new one. The
/// bytes of data, if any, may lie in the present block.
Status replaceExtraData(BITMAPHANDLE* pBitmap, R_SIZE size, const void* data) noexcept
{
    auto block = size > 0 ? ExtraBlock::zeroed(size) : ExtraBlock();
    if (block && data != nullptr) std::memcpy(block.data(), data, size);
    freeExtraData(pBitmap);
    if (size == 0) return SUCCESS;
    if (!block) return ERROR_FAILURE;
    pBitmap->pExtraData = block.detach();
    pBitmap->ExtraDataSize = size;
    return SUCCESS;
}

/// The MEM_ flag of the store that holds the pixels; 0 for a callback's own memory.
R_UINT placementOf(const BITMAPHANDLE* pBitmap) noexcept
{
    const RowStore* const store = storeOf(pBitmap);
    if (store == &compressedStore()) return MEM_COMPRESSED;
    if (store == &tileStore()) return MEM_TILED;
    if (store == &superCompressedStore()) return MEM_SUPER_COMPRESSED;
    if (store == &linearStore()) return MEM_CONVENTIONAL;
    return store != nullptr ? MEM_DISK : 0;
}

template <class Value> void tell(Value* pAnswer, Value value) noexcept
{
    if (pAnswer != nullptr) *pAnswer = value;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_AllocateBitmapExtraData(BITMAPHANDLE* pBitmap, R_UINT uFlags, R_SIZE uSize) noexcept
{
    R_TRY(checkExtraCall(pBitmap, uFlags));
    return replaceExtraData(pBitmap, uSize, nullptr);
}

R_INT R_FreeBitmapExtraData(BITMAPHANDLE* pBitmap, R_UINT uFlags) noexcept
{
    R_TRY(checkExtraCall(pBitmap, uFlags));
    freeExtraData(pBitmap);
    return SUCCESS;
}

R_INT R_SetBitmapExtraData(BITMAPHANDLE* pBitmap, R_UINT uFlags, R_SIZE uSize, const void* pData) noexcept
{
    R_TRY(checkExtraCall(pBitmap, uFlags));
    if (uSize > 0 && pData == nullptr) return ERROR_NULL_PTR;
    return replaceExtraData(pBitmap, uSize, pData);
}

R_INT R_GetBitmapExtraData(BITMAPHANDLE* pBitmap, R_UINT uFlags, void** ppData, R_SIZE* puSize) noexcept
{
    R_TRY(checkExtraCall(pBitmap, uFlags));
    if (ppData != nullptr) *ppData = pBitmap->pExtraData;
    if (puSize != nullptr) *puSize = pBitmap->ExtraDataSize;
    return SUCCESS;
}

R_INT R_CopyBitmapExtraData(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uFlags) noexcept
{
    R_TRY(checkExtraCall(pDst, uFlags));
    R_TRY(checkExtraCall(pSrc, uFlags));
    if (pDst == pSrc) return SUCCESS;
    return replaceExtraData(pDst, pSrc->pExtraData != nullptr ? pSrc->ExtraDataSize : 0, pSrc->pExtraData);
}

R_INT R_CopyBitmapHandle(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc, R_UINT uStructSize) noexcept
{
    if (pSrc == nullptr) return ERROR_INV_PARAMETER;
    if (!isStructSize(pSrc->uStructSize) || !isStructSize(uStructSize)) return ERROR_INV_STRUCT_SIZE;
    if (pDst == nullptr) return SUCCESS;
    // The smaller of the two, whichever way the copy goes: a record never claims fields that it was not given.
    const R_UINT sourceSize = pSrc->uStructSize;
    const R_UINT size = std::min(sourceSize, uStructSize);
    std::memmove(static_cast<void*>(pDst), pSrc, size);
    pDst->uStructSize = size;
    return SUCCESS;
}

R_INT R_SetBitmapDataPointer(BITMAPHANDLE* pBitmap, void* pData, R_UINT64 uDataSize) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_BITMAP;
    R_TRY(checkStructSize(pBitmap));
    if (!hasCallbackPixels(pBitmap) && pData != nullptr && uDataSize != pixelBytes(pBitmap)) return ERROR_INV_PARAMETER;
    // Pixels that the kernel owns would be lost, and the caller's freed in their stead.
    if ((pBitmap->Flags & (FLAG_ALLOCATED | FLAG_MIRROR)) == FLAG_ALLOCATED) return ERROR_INV_PARAMETER;
    pBitmap->Addr.Pointer = pData;
    return SUCCESS;
}

R_INT R_GetBitmapMemoryInfo(BITMAPHANDLE* pBitmap, R_UINT* puMemory, R_UINT64* puTileSize, R_UINT* puTotalTiles,
                            R_UINT* puConvTiles, R_UINT* puMaxTileViews, R_UINT* puTileViews) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pBitmap));
    if (puMemory == nullptr) return ERROR_INV_PARAMETER;
    *puMemory = placementOf(pBitmap);
    const TileFacts facts = *puMemory == MEM_TILED ? tileFacts(slotsOf(pBitmap)) : TileFacts();
    tell(puTileSize, facts.bytes);
    tell(puTotalTiles, facts.tiles);
    tell(puConvTiles, facts.conventional);
    tell(puMaxTileViews, facts.maxViews);
    tell(puTileViews, facts.views);
    return SUCCESS;
}

R_INT R_SetBitmapMemoryInfo(BITMAPHANDLE* pBitmap, R_UINT uConvTiles, R_UINT uMaxTileViews, R_UINT uTileViews,
                            R_UINT uFlags) noexcept
{
    constexpr R_UINT known = MEMORYINFO_CONV_TILES | MEMORYINFO_MAX_TILE_VIEWS | MEMORYINFO_TILE_VIEWS;
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pBitmap));
    if (placementOf(pBitmap) != MEM_TILED || (uFlags & ~known) != 0) return ERROR_INV_PARAMETER;
    const StoreSlots slots = slotsOf(pBitmap);
    if ((uFlags & MEMORYINFO_CONV_TILES) != 0) R_TRY(keepTiles(slots, uConvTiles)); // may fail: first
    return limitTileViews(slots, (uFlags & MEMORYINFO_MAX_TILE_VIEWS) != 0 ? &uMaxTileViews : nullptr,
                          (uFlags & MEMORYINFO_TILE_VIEWS) != 0 ? &uTileViews : nullptr);
}
