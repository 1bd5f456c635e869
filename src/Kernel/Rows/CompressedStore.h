/// What a compressed bitmap's rows can do beyond being rows: they are kept as runs, in heaps that can be given room.
#pragma once

#include "Kernel/Rows/RowStore.h"

namespace rv {

// All answer ERROR_INV_BITMAP for slots that are not the compressed store's, and those of one row for a shape of
// another width too; ERROR_INV_PARAMETER for a row that it does not have.

/// Copies the runs of a row. ERROR_BUFFER_TOO_SMALL: there are more than `room`, and nothing was written.
Status readRowRuns(const StoreSlots& slots, const StoreShape& shape, R_INT64 row, void* runs, size_t room) noexcept;
/// Replaces a row by `count` runs that make just its width. ERROR_FAILURE: no memory, and the row is as it was.
Status writeRowRuns(const StoreSlots& slots, const StoreShape& shape, R_INT64 row, const void* runs,
                    size_t count) noexcept;

/// Adds room for `bytes` bytes to the heaps, the same to each, from the last to the first. FAILURE: one could not grow;
/// those before it have.
Status growHeaps(const StoreSlots& slots, R_UINT64 bytes) noexcept;
/// Gives the free ends of the heaps back, from the last to the first. FAILURE: one had nothing to give, or could not;
/// the others before it have given theirs, and those behind it were not asked.
Status trimHeaps(const StoreSlots& slots) noexcept;

} // namespace rv
