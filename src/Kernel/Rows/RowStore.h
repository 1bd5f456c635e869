/// Where pixels live. A store knows sizes and rows, not records; its state is in two address slots and an offset,
/// which the record carries for it. Slots and shapes come from records that anybody may have written: a store that
/// keeps more than rows in its slots tells its own by a tag, and rows that it does not have by its own count.
#pragma once

#include "Kernel/Base/Status.h"
#include "R_Types.h"

#include <cstdint>
#include <cstring>

namespace rv {

/// The slots in which a store keeps its state.
struct StoreSlots {
    void* handle = nullptr;
    void* pointer = nullptr;
    R_UINT64 dataOffset = 0;
};

/// What a store has behind a handle, told by the tag that it begins with. Null: the handle is somebody else's; what the
/// system calls a handle may be a small number, and no address.
template <class T> T* taggedAs(void* handle, const char (&tag)[4]) noexcept
{
    constexpr uintptr_t kNoAddress = 65536;
    const auto address = reinterpret_cast<uintptr_t>(handle);
    if (address < kNoAddress || address % alignof(T) != 0) return nullptr;
    return std::memcmp(handle, tag, sizeof tag) == 0 ? static_cast<T*>(handle) : nullptr;
}

/// What a store holds.
struct StoreShape {
    R_INT width = 0;
    R_INT height = 0;
    R_INT bits = 0;
    R_UINT rowBytes = 0;
    R_UINT64 bytes = 0; ///< of all rows
};

/// What the placement decision asks of a store beyond its shape.
struct StoreRequest {
    R_UINT64 tileBytes = 0;    ///< size of a tile
    R_UINT64 conventional = 0; ///< bytes that may live in conventional memory
    R_INT convTiles = 0;
    R_INT convBuffers = 0;
    bool memoryOnly = false; ///< temporary files may not be used
    bool noDisk = false;
};

/// One way of holding rows. Stateless objects: one of each, for the whole process.
class RowStore {
public:
    RowStore(const RowStore&) = delete;
    RowStore& operator=(const RowStore&) = delete;

    /// Whether bitmaps of this shape can be placed here at all.
    virtual bool usable(const StoreShape& shape) const noexcept = 0;
    /// Places zeroed rows and fills the slots; they are untouched when it fails.
    virtual Status create(StoreSlots& slots, const StoreShape& shape, const StoreRequest& request) const noexcept = 0;
    /// Gives everything back. The slots become null.
    virtual void destroy(StoreSlots& slots, const StoreShape& shape) const noexcept = 0;
    /// Keeps the rows that remain; new ones are zero. The slots and rows are untouched when it fails.
    virtual Status changeHeight(StoreSlots& slots, const StoreShape& shape, R_INT height) const noexcept = 0;
    /// Move count bytes from byte `first` of a row on. Row, byte and count are the caller's to keep inside. Several
    /// threads may read at a time, as long as none calls anything else.
    virtual Status read(const StoreSlots& slots, const StoreShape& shape, void* bytes, R_INT64 row, R_INT64 first,
                        R_SIZE count) const noexcept = 0;
    virtual Status write(StoreSlots& slots, const StoreShape& shape, const void* bytes, R_INT64 row, R_INT64 first,
                         R_SIZE count) const noexcept = 0;
    /// Row 0 of rows that all lie in memory, rowBytes apart, for as long as the bitmap is accessed; else null.
    virtual uint8_t* block(const StoreSlots&) const noexcept { return nullptr; }
    /// A whole row to be read, and where `writes` says so written, in place. It holds for the next three calls to the
    /// store, so that two cursors can be used side by side. Null: the row is to be copied by the calls above, which
    /// also tell why, when that is a failure.
    virtual uint8_t* borrow(const StoreSlots&, const StoreShape&, R_INT64 /*row*/, bool /*writes*/) const noexcept
    {
        return nullptr;
    }
    /// What the record is to say after a write: the bytes of all rows, or those that are in use for them.
    virtual R_UINT64 heldBytes(const StoreSlots&, const StoreShape& shape) const noexcept { return shape.bytes; }
    /// Whether rows that were taken and not yet put in their place have got there; a failure is told once, by the next
    /// row call or by this one, which the last release of an access asks.
    virtual Status settle(const StoreSlots&) const noexcept { return SUCCESS; }

protected:
    constexpr RowStore() noexcept = default;
    ~RowStore() = default;
};

/// Rows in one block of memory: the kernel's own, the caller's or a callback's.
const RowStore& linearStore() noexcept;
const RowStore& diskStore() noexcept;
const RowStore& tileStore() noexcept;
const RowStore& compressedStore() noexcept;
const RowStore& superCompressedStore() noexcept;

} // namespace rv
