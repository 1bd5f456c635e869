/// A heap inside one block of memory, for the run lists of compressed rows. The block may move whenever it grows, so
/// what is in the heap is known by its offset from the start of that block, and 0 is none.
///
/// The layout is open to callers, who may free what they find there (R_HeapFree):
///
///     0   capacity    bytes of the whole block
///     8   lastBlock   offset of the physically last block; 0 in a heap without blocks
///     16  freeHead    offset of the first free block; 0 where there is none
///     24  blocks, each a header of 48 bytes (BitmapHeap::Block) and its payload, one behind the other
///
/// Payloads are multiples of 4, so headers may be unaligned. Each trimming leaves 48 bytes behind the last block that
/// belong to none until the heap grows.
#pragma once

#include "Kernel/Rows/FreeBlocks.h"

namespace rv {

/// The heap whose address stands in *address, which is changed when the heap moves. It is not locked: one thread at a
/// time may change it. Its bytes count as conventional memory of the process.
///
/// Where the caller keeps a FreeBlocks beside the heap, a long list of free blocks is not walked: it is known there
/// until somebody who does not know of it changes the list, and blocks are the same with it and without. All changes
/// but R_HeapFree's must come with it then.
class BitmapHeap {
public:
    explicit BitmapHeap(void** address, FreeBlocks* known = nullptr) noexcept : address_(address), known_(known) {}

    /// A new heap, one free block, at *address. False: there was no memory, and *address is as it was.
    static bool create(void** address, R_UINT64 capacity) noexcept;
    /// Frees the whole heap; *address becomes null.
    void destroy() noexcept;

    /// A block of at least `size` bytes, the first that fits; 0 when the heap would have to grow and cannot.
    R_UINT64 allocate(R_UINT64 size) noexcept;
    /// Makes a block larger or smaller, in place where that can be. The new offset, with the old payload as far as it
    /// fits; 0: there was no memory, and the block is as it was.
    R_UINT64 reallocate(R_UINT64 offset, R_UINT64 size) noexcept;
    /// Gives a block back. What is no allocated block is left alone, as far as that can be told.
    void free(R_UINT64 offset) noexcept;

    /// Adds room for `extra` bytes in one block, in steps of 256 KiB. A last block that is free counts, so that a heap
    /// with much more free than `extra` even shrinks. False: no memory, and the heap is as it was.
    bool grow(R_UINT64 extra) noexcept;
    /// Gives the free end of the heap back, but for 128 bytes. False: there is no more than that, or no memory.
    bool trim() noexcept;

    R_UINT64 capacity() const noexcept { return header()->capacity; }
    /// The payload of a block, until the heap moves.
    uint8_t* data(R_UINT64 offset) const noexcept { return base() + offset + sizeof(Block); }

private:
    R_PACK_BEGIN
    struct Header {
        R_UINT64 capacity;
        R_UINT64 lastBlock;
        R_UINT64 freeHead;
    } R_PACKED;
    struct Block {
        R_UINT64 prevPhys; ///< 0 for the first
        R_UINT64 nextPhys; ///< 0 for the last
        R_UINT64 inUse;
        R_UINT64 prevFree; ///< 0 at the head
        R_UINT64 nextFree;
        R_UINT64 payload;
    } R_PACKED;
    R_PACK_END
    static_assert(sizeof(Header) == 24 && sizeof(Block) == 48);

    uint8_t* base() const noexcept { return static_cast<uint8_t*>(*address_); }
    Header* header() const noexcept { return static_cast<Header*>(*address_); }
    Block* block(R_UINT64 offset) const noexcept { return reinterpret_cast<Block*>(base() + offset); }
    bool isFree(R_UINT64 offset) const noexcept { return offset != 0 && block(offset)->inUse == 0; }
    static R_UINT64 endOf(R_UINT64 offset, R_UINT64 payload) noexcept { return offset + sizeof(Block) + payload; }

    bool resize(R_UINT64 capacity) noexcept;
    void coverNewRoom() noexcept;
    R_UINT64 firstFit(R_UINT64 size) noexcept;
    FreeBlocks* known() noexcept;
    void learnFree() noexcept;
    void setPayload(R_UINT64 offset, R_UINT64 payload) noexcept;
    void givePlace(FreeBlocks& known, R_UINT64 offset) noexcept;
    void tell(FreeBlocks& known, R_UINT64 offset, R_UINT64 payload) noexcept;
    void pushFree(R_UINT64 offset) noexcept;
    void unlinkFree(R_UINT64 offset) noexcept;
    void insertAfter(R_UINT64 offset, R_UINT64 added, R_UINT64 payload) noexcept;
    void split(R_UINT64 offset, R_UINT64 size) noexcept;
    void mergeWithNext(R_UINT64 offset) noexcept;

    void** address_;
    FreeBlocks* known_;
};

} // namespace rv
