// What hangs on a record beside its pixels: the extra block, the caller's pixels, the shallow copy.

#include "Kernel/Core/AllocRecord.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/MovableBlock.h"
#include "Kernel/Core/RowCursor.h"

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
    if (puTileSize != nullptr) *puTileSize = 0;
    for (R_UINT* const count : {puTotalTiles, puConvTiles, puMaxTileViews, puTileViews})
        if (count != nullptr) *count = 0;
    const RowStore* const store = storeOf(pBitmap);
    const R_UINT flags = pBitmap->Flags;
    *puMemory = 0;
    if (store == nullptr) return SUCCESS; // a callback's own memory
    if ((flags & FLAG_COMPRESSED) != 0)
        *puMemory = MEM_COMPRESSED;
    else if ((flags & FLAG_TILED) != 0)
        *puMemory = MEM_TILED;
    else if ((flags & FLAG_SUPER_COMPRESSED) != 0)
        *puMemory = MEM_SUPER_COMPRESSED;
    else
        *puMemory = (flags & FLAG_CONVENTIONAL_MEMORY) != 0 ? MEM_CONVENTIONAL : MEM_DISK;
    return SUCCESS;
}
