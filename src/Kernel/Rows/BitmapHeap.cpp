#include "Kernel/Rows/BitmapHeap.h"

#include "Kernel/Base/System.h"

#include <cstring>

namespace rv {

namespace {

constexpr R_UINT64 kStep = 262144;                    // heaps grow to multiples of it
constexpr R_UINT64 kKeptAtEnd = 128;                  // the free payload that trimming leaves
constexpr R_UINT64 kMaxSize = UINT64_MAX / 2 - kStep; // no sum of two of these wraps
constexpr int kShortWalk = 64;                        // free blocks that are looked at before the list is learnt

constexpr R_UINT64 roundedUp(R_UINT64 size, R_UINT64 step) noexcept { return (size + step - 1) / step * step; }

} // namespace

bool BitmapHeap::create(void** address, R_UINT64 capacity) noexcept
{
    if (!growConventional(capacity).ok()) return false;
    void* const memory = platform().allocate(capacity);
    if (memory == nullptr) {
        returnConventional(capacity);
        return false;
    }
    *address = memory;
    BitmapHeap heap(address);
    *heap.header() = {capacity, 0, 0};
    heap.coverNewRoom();
    return true;
}

void BitmapHeap::destroy() noexcept
{
    if (known_ != nullptr) known_->stop();
    if (*address_ == nullptr) return;
    returnConventional(capacity());
    platform().release(*address_);
    *address_ = nullptr;
}

R_UINT64 BitmapHeap::allocate(R_UINT64 size) noexcept
{
    if (size > kMaxSize) return 0;
    size = roundedUp(size, 4);
    R_UINT64 found = firstFit(size);
    if (found == 0) {
        if (!grow(size)) return 0;
        found = firstFit(size);
    }
    block(found)->inUse = 1;
    split(found, size);
    unlinkFree(found);
    return found;
}

R_UINT64 BitmapHeap::reallocate(R_UINT64 offset, R_UINT64 size) noexcept
{
    if (size > kMaxSize) return 0;
    size = roundedUp(size, 4);
    const R_UINT64 present = block(offset)->payload;
    const R_UINT64 next = block(offset)->nextPhys;
    if (size <= present) {
        split(offset, size);
        return offset;
    }
    if (isFree(next) && present + sizeof(Block) + block(next)->payload >= size) {
        mergeWithNext(offset);
        split(offset, size);
        return offset;
    }
    const R_UINT64 moved = allocate(size);
    if (moved == 0) return 0;
    std::memcpy(data(moved), data(offset), present);
    const R_UINT64 previous = block(offset)->prevPhys;
    free(offset);
    if (isFree(previous)) mergeWithNext(previous); // here alone: rows that grow leave holes that must not pile up
    return moved;
}

void BitmapHeap::free(R_UINT64 offset) noexcept
{
    const R_UINT64 end = capacity();
    if (offset < sizeof(Header) || offset > end - sizeof(Block) || block(offset)->inUse != 1) return;
    pushFree(offset);
    mergeWithNext(offset);
}

bool BitmapHeap::grow(R_UINT64 extra) noexcept
{
    const R_UINT64 last = header()->lastBlock;
    const R_UINT64 taken = isFree(last) ? capacity() - block(last)->payload : capacity() + sizeof(Block);
    if (extra > kMaxSize || !resize(roundedUp(taken + extra, kStep))) return false;
    coverNewRoom();
    return true;
}

bool BitmapHeap::trim() noexcept
{
    const R_UINT64 last = header()->lastBlock;
    if (!isFree(last) || block(last)->payload <= kKeptAtEnd) return false;
    if (!resize(capacity() - block(last)->payload + kKeptAtEnd + sizeof(Block))) return false;
    block(last)->payload = kKeptAtEnd;
    if (known_ != nullptr) known_->stop(); // its memory goes with the rest
    return true;
}

/// Moves the heap to a block of another size, if it may have that.
bool BitmapHeap::resize(R_UINT64 capacity) noexcept
{
    const R_UINT64 present = this->capacity();
    const R_UINT64 growth = capacity > present ? capacity - present : 0;
    if (!growConventional(growth).ok()) return false;
    void* const moved = platform().reallocate(*address_, capacity);
    if (moved == nullptr) {
        returnConventional(growth);
        return false;
    }
    *address_ = moved;
    header()->capacity = capacity;
    if (capacity < present) returnConventional(present - capacity);
    return true;
}

/// Extends the last block to the end of the heap where it is free; else a free block is made of the room behind it.
void BitmapHeap::coverNewRoom() noexcept
{
    const R_UINT64 end = capacity();
    const R_UINT64 last = header()->lastBlock;
    if (isFree(last)) {
        setPayload(last, end - last - sizeof(Block));
        return;
    }
    const R_UINT64 added = last == 0 ? sizeof(Header) : endOf(last, block(last)->payload);
    insertAfter(last, added, end - added - sizeof(Block));
}

R_UINT64 BitmapHeap::firstFit(R_UINT64 size) noexcept
{
    if (size != 0 && size <= FreeBlocks::kMostTold)
        if (const FreeBlocks* const known = this->known(); known != nullptr) return known->find(size);
    R_UINT64 offset = header()->freeHead;
    int walked = 0;
    for (; offset != 0 && block(offset)->payload < size; ++walked) offset = block(offset)->nextFree;
    if (walked > kShortWalk) learnFree();
    return offset;
}

// --- What is known of the list. A free block's payload begins with its place there.

/// Null where nothing is known. Every change by others leaves another block at the head.
FreeBlocks* BitmapHeap::known() noexcept
{
    if (known_ == nullptr || !known_->active()) return nullptr;
    if (known_->head == header()->freeHead) return known_;
    known_->stop();
    return nullptr;
}

/// Without memory, or with a block that has no room for its place, the list is walked as before.
void BitmapHeap::learnFree() noexcept
{
    if (known_ == nullptr) return;
    size_t count = 0;
    R_UINT64 last = 0;
    for (R_UINT64 offset = header()->freeHead; offset != 0; offset = block(offset)->nextFree, ++count) last = offset;
    known_->stop();
    if (!known_->start(count)) return;
    known_->head = header()->freeHead;
    for (R_UINT64 offset = last; offset != 0 && known_->active(); offset = block(offset)->prevFree)
        givePlace(*known_, offset);
}

void BitmapHeap::givePlace(FreeBlocks& known, R_UINT64 offset) noexcept
{
    const R_UINT64 payload = block(offset)->payload;
    const uint32_t place = payload < sizeof place ? FreeBlocks::kNoPlace : known.put(offset, payload);
    if (place == FreeBlocks::kNoPlace) return known.stop();
    std::memcpy(data(offset), &place, sizeof place);
}

/// For a block in the list: what it has from now on, 0 where it leaves the list.
void BitmapHeap::tell(FreeBlocks& known, R_UINT64 offset, R_UINT64 payload) noexcept
{
    uint32_t place = FreeBlocks::kNoPlace;
    if (block(offset)->payload >= sizeof place) std::memcpy(&place, data(offset), sizeof place);
    if (known.holds(place, offset))
        known.set(place, payload);
    else
        known.stop(); // somebody has written there
}

void BitmapHeap::setPayload(R_UINT64 offset, R_UINT64 payload) noexcept
{
    FreeBlocks* const known = isFree(offset) ? this->known() : nullptr;
    if (known != nullptr && payload < sizeof(uint32_t))
        known->stop(); // also the heap may end there now
    else if (known != nullptr)
        tell(*known, offset, payload);
    block(offset)->payload = payload;
}

// --- The list

/// Marks a block free and makes it the first of the free ones.
void BitmapHeap::pushFree(R_UINT64 offset) noexcept
{
    FreeBlocks* const known = this->known();
    const R_UINT64 head = header()->freeHead;
    Block* const freed = block(offset);
    freed->inUse = 0;
    freed->prevFree = 0;
    freed->nextFree = head;
    if (head != 0) block(head)->prevFree = offset;
    header()->freeHead = offset;
    if (known == nullptr) return;
    known->head = offset;
    givePlace(*known, offset);
}

void BitmapHeap::unlinkFree(R_UINT64 offset) noexcept
{
    FreeBlocks* const known = this->known();
    if (known != nullptr) tell(*known, offset, 0);
    const R_UINT64 previous = block(offset)->prevFree;
    const R_UINT64 next = block(offset)->nextFree;
    if (previous != 0)
        block(previous)->nextFree = next;
    else
        header()->freeHead = next;
    if (next != 0) block(next)->prevFree = previous;
    if (known != nullptr) known->head = header()->freeHead;
}

/// Makes a free block of the room behind a block (0: of a heap without blocks).
void BitmapHeap::insertAfter(R_UINT64 offset, R_UINT64 added, R_UINT64 payload) noexcept
{
    const R_UINT64 next = offset != 0 ? block(offset)->nextPhys : 0;
    *block(added) = {offset, next, 0, 0, 0, payload};
    if (offset != 0) block(offset)->nextPhys = added;
    if (next != 0)
        block(next)->prevPhys = added;
    else
        header()->lastBlock = added;
    pushFree(added);
}

/// Cuts a block to `size` bytes and frees the rest, where that is enough for a block.
void BitmapHeap::split(R_UINT64 offset, R_UINT64 size) noexcept
{
    const R_UINT64 present = block(offset)->payload;
    if (size + sizeof(Block) >= present) return;
    const R_UINT64 rest = endOf(offset, size);
    insertAfter(offset, rest, present - size - sizeof(Block));
    block(offset)->payload = size;
    mergeWithNext(rest);
}

/// Adds the next block to this one, where it is free.
void BitmapHeap::mergeWithNext(R_UINT64 offset) noexcept
{
    const R_UINT64 next = block(offset)->nextPhys;
    if (!isFree(next)) return;
    const R_UINT64 beyond = block(next)->nextPhys;
    unlinkFree(next);
    block(offset)->nextPhys = beyond;
    if (beyond != 0)
        block(beyond)->prevPhys = offset;
    else
        header()->lastBlock = offset;
    setPayload(offset, block(offset)->payload + sizeof(Block) + block(next)->payload);
}

} // namespace rv
