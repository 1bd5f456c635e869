// Changing the number of rows of an allocated bitmap.

#include "Kernel/Core/AllocRecord.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/RowCursor.h"
#include "Platform/Platform.h"

#include <algorithm>

namespace rv {

namespace {

Status changeMovableHeight(BITMAPHANDLE* pBitmap, R_UINT64 bytes) noexcept
{
    const R_UINT64 present = pixelBytes(pBitmap);
    const MemoryStatus memory = platform().memoryStatus();
    if (bytes > present && bytes - present > memory.availablePhysical + memory.availablePageFile) return ERROR_FAILURE;
    void* const changed = platform().reallocateMovable(pBitmap->Addr.Handle, std::max<size_t>(bytes, 1));
    if (changed == nullptr) return ERROR_FAILURE;
    pBitmap->Addr.Handle = changed;
    return SUCCESS;
}

Status changeStoreHeight(BITMAPHANDLE* pBitmap, const RowStore& store, R_INT height) noexcept
{
    StoreSlots slots = slotsOf(pBitmap);
    R_TRY(store.changeHeight(slots, shapeOf(pBitmap), height));
    setSlots(pBitmap, slots);
    return SUCCESS;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_ChangeBitmapHeight(BITMAPHANDLE* pBitmap, R_INT nHeight) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pBitmap));
    const R_UINT flags = pBitmap->Flags;
    if ((flags & (FLAG_LOCKED_MEMORY | FLAG_MIRROR)) != 0) return ERROR_INV_PARAMETER;
    if (nHeight < 0) return ERROR_INV_SIZE;
    if (nHeight == pBitmap->Height) return SUCCESS;
    const RowStore* const store = storeOf(pBitmap);
    if (store == nullptr) return ERROR_INV_BITMAP;
    R_TRY(checkWalkable(pBitmap));

    // The stored size includes the offset of row 0, as the block does.
    const R_UINT64 bytes = R_UINT64{pBitmap->BytesPerLine} * static_cast<R_UINT64>(nHeight) + pBitmap->DataOffset;
    if (bytes < pBitmap->DataOffset) return ERROR_INV_SIZE;
    if (store == &linearStore() && (flags & FLAG_GLOBAL) != 0)
        R_TRY(changeMovableHeight(pBitmap, bytes));
    else
        R_TRY(changeStoreHeight(pBitmap, *store, nHeight));
    pBitmap->Height = nHeight;
    const bool compressed = (flags & FLAG_COMPRESSED) != 0;
    setPixelBytes(pBitmap, compressed ? store->heldBytes(slotsOf(pBitmap), shapeOf(pBitmap)) : bytes);
    return SUCCESS;
}
