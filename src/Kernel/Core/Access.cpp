// Access and release, data callbacks, and the bracket around copies of bitmaps that have them.

#include "Internal/R_Int.h"
#include "Kernel/Base/System.h"
#include "Kernel/Base/Util.h"
#include "Kernel/Core/AllocRecord.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/RowCursor.h"

namespace rv {

namespace {

/// Whether access has to lock (release: unlock) a movable block.
bool hasMovablePixels(const BITMAPHANDLE* pBitmap, bool locked) noexcept
{
    constexpr R_UINT otherStores = FLAG_COMPRESSED | FLAG_TILED | FLAG_SUPER_COMPRESSED;
    constexpr R_UINT movable = FLAG_CONVENTIONAL_MEMORY | FLAG_GLOBAL;
    const R_UINT flags = pBitmap->Flags;
    return (flags & otherStores) == 0 && (flags & movable) == movable && ((flags & FLAG_LOCKED_MEMORY) != 0) == locked;
}

Status lockPixels(BITMAPHANDLE* pBitmap) noexcept
{
    if (!hasMovablePixels(pBitmap, false)) return SUCCESS;
    void* const block = platform().lockMovable(pBitmap->Addr.Handle);
    if (block == nullptr) return ERROR_FAILURE;
    pBitmap->Flags |= FLAG_LOCKED_MEMORY;
    pBitmap->Addr.Pointer = static_cast<uint8_t*>(block) + pBitmap->DataOffset;
    return SUCCESS;
}

void unlockPixels(BITMAPHANDLE* pBitmap) noexcept
{
    if (!hasMovablePixels(pBitmap, true)) return;
    platform().unlockMovable(pBitmap->Addr.Handle);
    pBitmap->Flags &= ~FLAG_LOCKED_MEMORY;
    pBitmap->Addr.Pointer = nullptr;
}

/// Counts in a way that a hostile count cannot overflow.
void count(BITMAPHANDLE* pBitmap, R_INT step) noexcept
{
    pBitmap->nLockCount = static_cast<R_INT>(static_cast<R_UINT>(pBitmap->nLockCount) + static_cast<R_UINT>(step));
}

/// One level deeper, for a record that counts: 1 when this is the outermost access.
bool enterOutermost(BITMAPHANDLE* pBitmap) noexcept
{
    if (lockCountDiagnostics() && pBitmap->nLockCount < 0) traceLockCount("R_AccessBitmap", pBitmap->nLockCount, "\n");
    count(pBitmap, 1);
    return pBitmap->nLockCount <= 1;
}

/// One level up. A count that goes negative stays so: the caller's mistake remains visible.
bool leaveOutermost(BITMAPHANDLE* pBitmap) noexcept
{
    if (lockCountDiagnostics() && pBitmap->nLockCount < 1) traceLockCount("R_ReleaseBitmap", pBitmap->nLockCount, "\n");
    count(pBitmap, -1);
    return pBitmap->nLockCount <= 0;
}

ACCESSBITMAPCALLBACK accessCallback(const BITMAPHANDLEDATACALLBACKS* callbacks) noexcept
{
    return callbacks != nullptr ? callbacks->AccessBitmapCallback : nullptr;
}

ACCESSBITMAPCALLBACK releaseCallback(const BITMAPHANDLEDATACALLBACKS* callbacks) noexcept
{
    return callbacks != nullptr ? callbacks->ReleaseBitmapCallback : nullptr;
}

Status access(BITMAPHANDLE* pBitmap) noexcept
{
    if (!hasCallbackSlot(pBitmap)) return lockPixels(pBitmap);
    if (!enterOutermost(pBitmap)) return SUCCESS;
    const BITMAPHANDLEDATACALLBACKS* const callbacks = pBitmap->pDataCallbacks;
    if (const ACCESSBITMAPCALLBACK callback = accessCallback(callbacks); callback != nullptr) {
        const R_INT answer = callback(pBitmap, callbacks->pUserData);
        if (answer == SUCCESS_ABORT) return SUCCESS;
        if (answer != SUCCESS) {
            count(pBitmap, -1);
            return answer;
        }
    }
    const Status locked = lockPixels(pBitmap);
    if (!locked.ok()) count(pBitmap, -1);
    return locked;
}

/// What stores that write later have to tell.
Status settle(const BITMAPHANDLE* pBitmap) noexcept
{
    constexpr R_UINT late = FLAG_TILED | FLAG_DISK_MEMORY | FLAG_SUPER_COMPRESSED;
    return (pBitmap->Flags & late) != 0 ? storeOf(pBitmap)->settle(slotsOf(pBitmap)) : Status(SUCCESS);
}

Status release(BITMAPHANDLE* pBitmap) noexcept
{
    if (hasCallbackSlot(pBitmap)) {
        if (!leaveOutermost(pBitmap)) return SUCCESS;
        const BITMAPHANDLEDATACALLBACKS* const callbacks = pBitmap->pDataCallbacks;
        if (const ACCESSBITMAPCALLBACK callback = releaseCallback(callbacks); callback != nullptr) {
            const R_INT answer = callback(pBitmap, callbacks->pUserData);
            if (answer == SUCCESS_ABORT) return SUCCESS;
            if (answer != SUCCESS) return answer;
        }
    }
    unlockPixels(pBitmap);
    return settle(pBitmap);
}

/// Gives the record a copy of callbacks in place of its present ones; null removes them.
Status replaceCallbacks(BITMAPHANDLE* pBitmap, const BITMAPHANDLEDATACALLBACKS* callbacks) noexcept
{
    BITMAPHANDLEDATACALLBACKS* copy = nullptr;
    if (callbacks != nullptr) {
        if (!hasCallbackSlot(pBitmap)) return ERROR_INV_STRUCT_SIZE;
        copy = static_cast<BITMAPHANDLEDATACALLBACKS*>(platform().allocate(sizeof *copy));
        if (copy == nullptr) return ERROR_FAILURE;
        *copy = *callbacks;
    }
    freeCallbacks(pBitmap);
    if (hasCallbackSlot(pBitmap)) pBitmap->pDataCallbacks = copy;
    return SUCCESS;
}

} // namespace

void freeCallbacks(BITMAPHANDLE* pBitmap) noexcept
{
    if (!hasCallbackSlot(pBitmap)) return;
    platform().release(pBitmap->pDataCallbacks);
    pBitmap->pDataCallbacks = nullptr;
}

} // namespace rv

using namespace rv;

R_INT R_AccessBitmap(BITMAPHANDLE* pBitmap) noexcept { return access(pBitmap); }

R_INT R_ReleaseBitmap(BITMAPHANDLE* pBitmap) noexcept
{
    if (pBitmap == nullptr) return ERROR_NULL_PTR;
    R_TRY(checkStructSize(pBitmap));
    return release(pBitmap);
}

R_INT R_IntAccessBitmap(BITMAPHANDLE* pBitmap, R_INT* pbAccessed) noexcept
{
    if (pBitmap == nullptr || pbAccessed == nullptr) return ERROR_NULL_PTR;
    // A record without a count cannot nest: the access that found the block locked must not be the one to unlock it.
    const bool othersLock = !hasCallbackSlot(pBitmap) && hasMovablePixels(pBitmap, true);
    const Status accessed = access(pBitmap);
    *pbAccessed = accessed.ok() && !othersLock;
    return accessed;
}

R_INT R_IntReleaseBitmap(BITMAPHANDLE* pBitmap, R_INT bRelease, R_INT nStatus) noexcept
{
    if (pBitmap == nullptr) return ERROR_NULL_PTR;
    if (!bRelease) return nStatus;
    const R_INT released = R_ReleaseBitmap(pBitmap);
    return released != SUCCESS && nStatus == SUCCESS ? released : nStatus;
}

R_INT R_SetBitmapDataCallbacks(BITMAPHANDLE* pBitmap, const BITMAPHANDLEDATACALLBACKS* pCallbacks) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    if (pixelBytes(pBitmap) == 0) return ERROR_INV_SIZE;
    if (pCallbacks != nullptr && pCallbacks->uStructSize != BITMAPHANDLEDATACALLBACKS_SIZE)
        return ERROR_INV_STRUCT_SIZE;
    return replaceCallbacks(pBitmap, pCallbacks);
}

R_INT R_GetBitmapDataCallbacks(BITMAPHANDLE* pBitmap, BITMAPHANDLEDATACALLBACKS* pCallbacks) noexcept
{
    if (pBitmap == nullptr || pCallbacks == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    BITMAPHANDLEDATACALLBACKS none{};
    none.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE;
    const BITMAPHANDLEDATACALLBACKS* const attached = dataCallbacks(pBitmap);
    *pCallbacks = attached != nullptr ? *attached : none;
    return SUCCESS;
}

R_INT R_IntBeginCopyBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uFlags, ALLOCATIONINFO* pInfo) noexcept
{
    if (pInfo == nullptr || pDst == nullptr || pSrc == nullptr) return ERROR_INV_PARAMETER;
    const BITMAPHANDLEDATACALLBACKS* const source = dataCallbacks(pSrc);
    if (source == nullptr || source->BeginCopyBitmapDataCallback == nullptr) return SUCCESS;

    fillAllocationInfo(pInfo, pDst, pInfo->uMemory, pSrc->pPalette);
    BITMAPHANDLEDATACALLBACKS callbacks{};
    callbacks.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE;
    const R_INT answer = source->BeginCopyBitmapDataCallback(pSrc, uFlags, pInfo, &callbacks, source->pUserData);
    if (answer == SUCCESS_ABORT) return SUCCESS;
    if (answer != SUCCESS) return answer;
    R_TRY(checkStructSize(pDst));
    if (pixelBytes(pDst) == 0) return ERROR_INV_SIZE;
    if (callbacks.uStructSize != BITMAPHANDLEDATACALLBACKS_SIZE) return ERROR_INV_STRUCT_SIZE;
    return replaceCallbacks(pDst, &callbacks);
}

R_INT R_IntEndCopyBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_INT nStatus) noexcept
{
    if (pDst == nullptr || pSrc == nullptr) return ERROR_INV_PARAMETER;
    const BITMAPHANDLEDATACALLBACKS* const source = dataCallbacks(pSrc);
    if (source == nullptr || source->EndCopyBitmapDataCallback == nullptr) return nStatus;
    const R_INT answer = source->EndCopyBitmapDataCallback(pSrc, pDst, nStatus, source->pUserData);
    const bool handled = answer == SUCCESS || answer == SUCCESS_ABORT;
    return nStatus == SUCCESS && !handled ? answer : nStatus;
}
