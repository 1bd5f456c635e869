// Rows in one block of pages: row 0 first, each row rowBytes behind the one before.

#include "Kernel/Base/System.h"
#include "Kernel/Rows/RowStore.h"

#include <cstring>

namespace rv {

namespace {

constexpr R_UINT64 kAlignment = 32;
constexpr R_UINT64 kSlack = kAlignment - 1; // lets row 0 be aligned wherever the view begins

/// Maps a block of `bytes` bytes into slots. The conventional total is not its business.
Status mapBlock(StoreSlots& slots, R_UINT64 bytes) noexcept
{
    if (bytes > UINT64_MAX - kSlack) return ERROR_FAILURE;
    void* const pages = platform().createPages(bytes + kSlack);
    if (pages == nullptr) return ERROR_FAILURE;
    void* const view = platform().mapPages(pages);
    if (view == nullptr) {
        platform().closePages(pages);
        return ERROR_FAILURE;
    }
    const auto address = reinterpret_cast<uintptr_t>(view);
    slots.handle = pages;
    slots.dataOffset = (kAlignment - address % kAlignment) % kAlignment;
    slots.pointer = static_cast<uint8_t*>(view) + slots.dataOffset;
    return SUCCESS;
}

void unmapBlock(const StoreSlots& slots) noexcept
{
    if (slots.handle == nullptr) return;
    if (slots.pointer != nullptr)
        platform().unmapPages(slots.handle, static_cast<uint8_t*>(slots.pointer) - slots.dataOffset);
    platform().closePages(slots.handle);
}

class LinearStore final : public RowStore {
public:
    constexpr LinearStore() noexcept = default;

    bool usable(const StoreShape&) const noexcept override { return true; }

    Status create(StoreSlots& slots, const StoreShape& shape, const StoreRequest&) const noexcept override
    {
        R_TRY(reserveConventional(shape.bytes));
        if (const Status mapped = mapBlock(slots, shape.bytes); !mapped.ok()) {
            returnConventional(shape.bytes);
            return mapped;
        }
        return SUCCESS;
    }

    void destroy(StoreSlots& slots, const StoreShape& shape) const noexcept override
    {
        unmapBlock(slots);
        if (slots.handle != nullptr) returnConventional(shape.bytes);
        slots = {};
    }

    Status changeHeight(StoreSlots& slots, const StoreShape& shape, R_INT height) const noexcept override
    {
        if (slots.dataOffset >= kAlignment) return ERROR_FAILURE; // never ours: the new block would be too short
        const R_UINT64 bytes = static_cast<R_UINT64>(shape.rowBytes) * static_cast<R_UINT64>(height) + slots.dataOffset;
        const R_UINT64 growth = bytes > shape.bytes ? bytes - shape.bytes : 0;
        if (growth > 0 && !reserveConventional(growth).ok()) return ERROR_FAILURE;
        StoreSlots changed;
        if (!mapBlock(changed, bytes).ok()) {
            returnConventional(growth);
            return ERROR_FAILURE;
        }
        const R_INT kept = height < shape.height ? height : shape.height;
        std::memcpy(changed.pointer, slots.pointer, static_cast<size_t>(shape.rowBytes) * static_cast<size_t>(kept));
        unmapBlock(slots);
        if (bytes < shape.bytes) returnConventional(shape.bytes - bytes);
        slots = changed;
        return SUCCESS;
    }

    Status read(const StoreSlots& slots, const StoreShape& shape, void* bytes, R_INT64 row, R_INT64 first,
                R_SIZE count) const noexcept override
    {
        if (slots.pointer == nullptr) return ERROR_INV_BITMAP;
        std::memcpy(bytes, place(slots, shape, row, first), count);
        return SUCCESS;
    }

    Status write(StoreSlots& slots, const StoreShape& shape, const void* bytes, R_INT64 row, R_INT64 first,
                 R_SIZE count) const noexcept override
    {
        if (slots.pointer == nullptr) return ERROR_INV_BITMAP;
        std::memcpy(place(slots, shape, row, first), bytes, count);
        return SUCCESS;
    }

    uint8_t* block(const StoreSlots& slots) const noexcept override { return static_cast<uint8_t*>(slots.pointer); }

private:
    static uint8_t* place(const StoreSlots& slots, const StoreShape& shape, R_INT64 row, R_INT64 first) noexcept
    {
        return static_cast<uint8_t*>(slots.pointer) + row * static_cast<R_INT64>(shape.rowBytes) + first;
    }
};

constinit const LinearStore gLinearStore;

} // namespace

const RowStore& linearStore() noexcept { return gLinearStore; }

} // namespace rv
