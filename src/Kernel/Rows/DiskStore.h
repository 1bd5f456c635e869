/// Rows in a file of their own, which has no name and is gone with the bitmap, or with the process.
#pragma once

#include "Kernel/Rows/RowStore.h"

namespace rv {

/// One scratch file for each bitmap, in the folder of temporary files, with its room on disk reserved when it is made:
/// a disk that is full fails the allocation and not a later row. Of each file two pieces are held in memory, windows:
/// rows that are asked for one after the other, in either direction or from both ends in turn, are read ahead of the
/// caller, and rows that are written so stay there until a window is full, or the bitmap is released. Nothing else of a
/// file is in memory, and no row asks for any.
///
/// Reading and writing answer ERROR_FILE_LSEEK for a place that the file does not have, ERROR_FILE_READ,
/// ERROR_FILE_WRITE or ERROR_NO_DISK_SPACE for a transfer that fails or goes past the end, and ERROR_INV_BITMAP for
/// slots that are not this store's. Rows that could not be put in their place stay in their window and are tried again:
/// each try that fails is told by the call that made it.
class DiskStore final : public RowStore {
public:
    constexpr explicit DiskStore(R_SIZE windowBytes) noexcept : windowBytes_(windowBytes) {}

    bool usable(const StoreShape&) const noexcept override { return true; }
    Status create(StoreSlots& slots, const StoreShape& shape, const StoreRequest& request) const noexcept override;
    void destroy(StoreSlots& slots, const StoreShape& shape) const noexcept override;
    Status changeHeight(StoreSlots& slots, const StoreShape& shape, R_INT height) const noexcept override;
    Status read(const StoreSlots& slots, const StoreShape& shape, void* bytes, R_INT64 row, R_INT64 first,
                R_SIZE count) const noexcept override;
    Status write(StoreSlots& slots, const StoreShape& shape, const void* bytes, R_INT64 row, R_INT64 first,
                 R_SIZE count) const noexcept override;
    Status settle(const StoreSlots& slots) const noexcept override;

private:
    R_SIZE windowBytes_;
};

} // namespace rv
