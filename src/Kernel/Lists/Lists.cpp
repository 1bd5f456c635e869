// Lists of bitmaps: records by value in one movable block, and what they point to in the list's possession.

#include "R_Lists.h"

#include "Kernel/Base/System.h"
#include "Kernel/Colour/OptPal.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/MovableBlock.h"
#include "R_Colour.h"
#include "R_Geometry.h"

#include <algorithm>
#include <cstring>
#include <utility>

/// What a list's handle points to.
struct BITMAPLIST {
    R_UINT count;
    void* items; ///< a movable block of count slots, locked only within a call; null in an empty list
};

using namespace rv;

namespace {

using ListRecord = MovableBlock<BITMAPLIST>;

/// Every item has a slot of the longer record's size, and zeros behind a shorter one.
constexpr R_UINT kSlotBytes = BITMAPHANDLE_SIZE;
static_assert(sizeof(BITMAPHANDLE) == kSlotBytes);

constexpr R_UINT64 slotsBytes(R_UINT count) noexcept { return R_UINT64{count} * kSlotBytes; }

/// A block's slots, addressable for the length of a scope. Null where they cannot be had.
class LockedSlots {
public:
    explicit LockedSlots(void* block) noexcept
        : block_(block), slots_(static_cast<BITMAPHANDLE*>(platform().lockMovable(block)))
    {
    }
    ~LockedSlots()
    {
        if (slots_ != nullptr) platform().unlockMovable(block_);
    }
    LockedSlots(const LockedSlots&) = delete;
    LockedSlots& operator=(const LockedSlots&) = delete;

    explicit operator bool() const noexcept { return slots_ != nullptr; }
    BITMAPHANDLE* at(R_UINT index) const noexcept { return slots_ + index; }

private:
    void* block_;
    BITMAPHANDLE* slots_;
};

void copySlots(BITMAPHANDLE* to, const BITMAPHANDLE* from, R_UINT count) noexcept
{
    std::memmove(static_cast<void*>(to), from, slotsBytes(count));
}

/// Stores the bytes that a caller's record has.
void store(BITMAPHANDLE* slot, const BITMAPHANDLE* record) noexcept
{
    const R_UINT size = record->uStructSize;
    std::memset(static_cast<void*>(slot), 0, kSlotBytes);
    std::memcpy(static_cast<void*>(slot), record, size);
}

/// An item as a record of either size, which says so itself.
void copyOut(BITMAPHANDLE* out, const BITMAPHANDLE* slot, R_UINT size) noexcept
{
    std::memcpy(static_cast<void*>(out), slot, size);
    out->uStructSize = size;
    if (size == BITMAPHANDLE_SIZE && slot->uStructSize != size) setPixelBytes(out, slot->Size);
}

// --- The block of items. Its bytes count as conventional memory of the process.

/// A block of slots, accounted for; *block is null where it fails.
Status makeSlots(R_UINT count, void** block) noexcept
{
    *block = nullptr;
    R_TRY(growConventional(slotsBytes(count)));
    *block = platform().allocateMovable(slotsBytes(count));
    if (*block != nullptr) return SUCCESS;
    returnConventional(slotsBytes(count));
    return ERROR_FAILURE;
}

/// Makes room for one item more; the count stays. When it fails, the list is as it was.
Status growByOne(HBITMAPLIST list) noexcept
{
    if (list->count == LIST_END - 1) return ERROR_FAILURE; // the next count would be the index that means the end
    if (list->items == nullptr) return makeSlots(1, &list->items);
    R_TRY(growConventional(kSlotBytes));
    void* const grown = platform().reallocateMovable(list->items, slotsBytes(list->count + 1));
    if (grown == nullptr) {
        returnConventional(kSlotBytes);
        return ERROR_FAILURE;
    }
    list->items = grown;
    return SUCCESS;
}

/// Cuts the unlocked block to the list's count; it held `before` slots. Cannot fail: a block that the system does not
/// shorten stays longer until the next change.
void fitSlots(HBITMAPLIST list, R_UINT before) noexcept
{
    returnConventional(slotsBytes(before - list->count));
    if (list->count == 0) {
        platform().freeMovable(std::exchange(list->items, nullptr));
    } else if (void* const cut = platform().reallocateMovable(list->items, slotsBytes(list->count))) {
        list->items = cut;
    }
}

/// Moves items out of the list, which forgets them.
void takeOut(HBITMAPLIST list, R_UINT start, R_UINT count, const LockedSlots& slots, BITMAPHANDLE* out) noexcept
{
    copySlots(out, slots.at(start), count);
    copySlots(slots.at(start), slots.at(start + count), list->count - start - count);
    list->count -= count;
}

/// Takes up to *count items out, as many from `start` on as can be removed. A short record can not: nobody could tell
/// its new owner that it ends early.
Status removeSome(HBITMAPLIST list, R_UINT start, R_UINT* count, BITMAPHANDLE* out) noexcept
{
    const R_UINT before = list->count;
    {
        const LockedSlots slots(list->items);
        if (!slots) return ERROR_FAILURE;
        R_UINT whole = 0;
        while (whole < *count && slots.at(start + whole)->uStructSize == BITMAPHANDLE_SIZE) ++whole;
        if (whole == 0) return ERROR_INV_STRUCT_SIZE;
        takeOut(list, start, whole, slots, out);
        *count = whole;
    }
    fitSlots(list, before);
    return SUCCESS;
}

// --- Checks

Status checkIndex(HBITMAPLIST list, R_UINT index) noexcept
{
    return index < list->count ? SUCCESS : ERROR_INV_PARAMETER;
}

/// A list, and a record to be stored in it.
Status checkStoring(HBITMAPLIST list, const BITMAPHANDLE* pBitmap) noexcept
{
    if (list == nullptr || pBitmap == nullptr) return ERROR_INV_PARAMETER;
    return checkStructSize(pBitmap);
}

Status checkRange(HBITMAPLIST list, R_UINT start, R_UINT count) noexcept
{
    if (list == nullptr || count == 0) return ERROR_INV_PARAMETER;
    return checkIndex(list, start);
}

// --- Copies of items

/// A record without pixels that owns nothing but its palette.
Status copyEmptyItem(BITMAPHANDLE* copy, BITMAPHANDLE* item) noexcept
{
    store(copy, item);
    copy->pPalette = nullptr;
    copy->pRgnInfo = nullptr;
    copy->pDitherData = nullptr;
    copy->pOverlays = nullptr;
    copy->pExtraData = nullptr;
    copy->ExtraDataSize = 0;
    if (hasCallbackSlot(copy)) {
        copy->pDataCallbacks = nullptr;
        copy->nLockCount = 0;
    }
    return readableColors(item) != 0 ? R_CopyBitmapPalette(copy, item) : SUCCESS;
}

/// An item as a record of its own: a bitmap's callbacks may change its list while it is looked at.
Status lookAt(HBITMAPLIST list, R_UINT index, BITMAPHANDLE* item) noexcept
{
    R_TRY(checkIndex(list, index));
    const LockedSlots slots(list->items);
    if (!slots) return ERROR_FAILURE;
    copySlots(item, slots.at(index), 1);
    return SUCCESS;
}

/// Appends a copy of an item to another list.
Status appendCopy(HBITMAPLIST list, HBITMAPLIST from, R_UINT index) noexcept
{
    BITMAPHANDLE item, copy;
    R_TRY(lookAt(from, index, &item));
    const bool empty = (item.Flags & FLAG_ALLOCATED) == 0;
    R_TRY(empty ? copyEmptyItem(&copy, &item) : Status(R_CopyBitmap(&copy, &item, item.uStructSize)));
    const Status appended = R_InsertBitmapListItem(list, LIST_END, &copy);
    if (!appended.ok()) R_FreeBitmap(&copy);
    return appended;
}

} // namespace

R_INT R_CreateBitmapList(HBITMAPLIST* phList) noexcept
{
    if (phList == nullptr) return ERROR_INV_PARAMETER;
    auto list = ListRecord::zeroed(1);
    if (!list) return ERROR_FAILURE;
    *phList = list.detach();
    return SUCCESS;
}

R_INT R_DestroyBitmapList(HBITMAPLIST hList) noexcept
{
    if (hList == nullptr) return ERROR_INV_PARAMETER;
    while (hList->count > 0) { // a bitmap's callbacks may look at the list, and even put something into it
        void* const block = hList->items;
        {
            const LockedSlots slots(block);
            if (!slots) return ERROR_FAILURE;
            const R_UINT count = std::exchange(hList->count, 0);
            hList->items = nullptr;
            returnConventional(slotsBytes(count));
            for (R_UINT index = 0; index < count; ++index) R_FreeBitmap(slots.at(index));
        }
        platform().freeMovable(block);
    }
    ListRecord::free(hList);
    return SUCCESS;
}

R_INT R_GetBitmapListCount(HBITMAPLIST hList, R_UINT* puCount) noexcept
{
    if (hList == nullptr || puCount == nullptr) return ERROR_INV_PARAMETER;
    *puCount = hList->count;
    return SUCCESS;
}

R_INT R_GetBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap, R_UINT uStructSize) noexcept
{
    if (hList == nullptr || pBitmap == nullptr) return ERROR_INV_PARAMETER;
    if (!isStructSize(uStructSize)) return ERROR_INV_STRUCT_SIZE;
    R_TRY(checkIndex(hList, uIndex));
    const LockedSlots slots(hList->items);
    if (!slots) return ERROR_FAILURE;
    copyOut(pBitmap, slots.at(uIndex), uStructSize);
    return SUCCESS;
}

R_INT R_SetBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkStoring(hList, pBitmap));
    R_TRY(checkIndex(hList, uIndex));
    const LockedSlots slots(hList->items);
    if (!slots) return ERROR_FAILURE;
    store(slots.at(uIndex), pBitmap);
    return SUCCESS;
}

R_INT R_ReplaceBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap, BITMAPHANDLE* pOldBitmap,
                              R_UINT uOldSize) noexcept
{
    if (hList == nullptr || hList->count == 0) return ERROR_INV_PARAMETER;
    R_TRY(checkStoring(hList, pBitmap));
    if (pOldBitmap != nullptr && !isStructSize(uOldSize)) return ERROR_INV_STRUCT_SIZE;
    if (uIndex == LIST_END) uIndex = hList->count - 1;
    R_TRY(checkIndex(hList, uIndex));
    BITMAPHANDLE old;
    {
        const LockedSlots slots(hList->items);
        if (!slots) return ERROR_FAILURE;
        BITMAPHANDLE* const slot = slots.at(uIndex);
        if (slot->uStructSize != BITMAPHANDLE_SIZE) return ERROR_INV_STRUCT_SIZE;
        old = *slot;
        store(slot, pBitmap); // before the old one goes out, which may be to the same record
    }
    if (pOldBitmap != nullptr)
        copyOut(pOldBitmap, &old, uOldSize);
    else
        R_FreeBitmap(&old);
    return SUCCESS;
}

R_INT R_RemoveBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap) noexcept
{
    R_UINT count = 1;
    R_TRY(checkRange(hList, uIndex, count));
    BITMAPHANDLE item;
    R_TRY(removeSome(hList, uIndex, &count, &item));
    if (pBitmap != nullptr)
        *pBitmap = item;
    else
        R_FreeBitmap(&item);
    return SUCCESS;
}

R_INT R_DeleteBitmapListItems(HBITMAPLIST hList, R_UINT uStart, R_UINT uCount) noexcept
{
    R_TRY(checkRange(hList, uStart, uCount));
    constexpr R_UINT kAtOnce = 16; // out of the list first: a bitmap's callbacks may look at it, and change it
    for (R_UINT left = std::min(uCount, hList->count - uStart); left > 0 && uStart < hList->count;) {
        BITMAPHANDLE removed[kAtOnce];
        R_UINT count = std::min({left, kAtOnce, hList->count - uStart});
        R_TRY(removeSome(hList, uStart, &count, removed));
        for (R_UINT index = 0; index < count; ++index) R_FreeBitmap(&removed[index]);
        left -= count;
    }
    return SUCCESS;
}

R_INT R_InsertBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkStoring(hList, pBitmap));
    const R_UINT count = hList->count;
    if (uIndex == LIST_END) uIndex = count;
    if (uIndex > count) return ERROR_INV_PARAMETER;
    R_TRY(growByOne(hList));
    {
        const LockedSlots slots(hList->items);
        if (slots) {
            copySlots(slots.at(uIndex + 1), slots.at(uIndex), count - uIndex);
            store(slots.at(uIndex), pBitmap);
            hList->count = count + 1;
            return SUCCESS;
        }
    }
    fitSlots(hList, count + 1);
    return ERROR_FAILURE;
}

R_INT R_CopyBitmapListItems(HBITMAPLIST* phNew, HBITMAPLIST hList, R_UINT uStart, R_UINT uCount) noexcept
{
    if (phNew == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkRange(hList, uStart, uCount));
    const R_UINT count = std::min(uCount, hList->count - uStart);
    HBITMAPLIST list = nullptr;
    R_TRY(R_CreateBitmapList(&list));
    for (R_UINT index = 0; index < count; ++index) {
        if (const Status copied = appendCopy(list, hList, uStart + index); !copied.ok()) {
            (void)R_DestroyBitmapList(list);
            return copied;
        }
    }
    *phNew = list;
    return SUCCESS;
}

R_INT R_MoveBitmapListItems(HBITMAPLIST* phNew, HBITMAPLIST hList, R_UINT uStart, R_UINT uCount) noexcept
{
    if (phNew == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkRange(hList, uStart, uCount));
    const R_UINT before = hList->count;
    const R_UINT count = std::min(uCount, before - uStart);
    auto made = ListRecord::zeroed(1);
    if (!made) return ERROR_FAILURE;
    BITMAPLIST* const list = made.data();
    R_TRY(makeSlots(count, &list->items));
    list->count = count;
    {
        const LockedSlots from(hList->items), to(list->items);
        if (from && to) takeOut(hList, uStart, count, from, to.at(0));
    }
    if (hList->count == before) { // could not be addressed
        list->count = 0;
        fitSlots(list, count);
        return ERROR_FAILURE;
    }
    fitSlots(hList, before);
    *phNew = made.detach();
    return SUCCESS;
}

R_INT R_CreateBitmapListOptPal(HBITMAPLIST hList, RGBQUAD* pPalette, R_UINT* puColors, R_UINT** ppMatchTable,
                               R_UINT uFlags) noexcept
{
    OptimizedPalette palette;
    R_TRY(palette.status());
    if (hList == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkOptPalOutputs(pPalette, puColors, uFlags));
    for (R_UINT index = 0; index < hList->count; ++index) {
        BITMAPHANDLE item;
        R_TRY(lookAt(hList, index, &item));
        R_TRY(palette.add(&item));
    }
    return palette.write(pPalette, puColors, ppMatchTable, uFlags);
}
