/// The only way operations touch pixels: a bitmap's rows one at a time, in place where memory allows.
#pragma once

#include "Kernel/Base/Status.h"
#include "Kernel/Pixels/RowBuffer.h"
#include "Kernel/Rows/RowStore.h"
#include "R_Bitmap.h"

namespace rv {

enum class RowMode {
    read,
    write, ///< every byte of a row will be written: its old content is not fetched
    update,
};

/// Hands out the rows of an accessed bitmap. A row that lies in memory is handed out in place; another is copied
/// through a staging buffer, which is taken at construction, so that no row fails for memory. Row callbacks are
/// called for every row when the record has them. Rows are not checked against the bitmap's height. Two cursors over
/// one bitmap may have a row open each.
class RowCursor {
public:
    RowCursor(BITMAPHANDLE* pBitmap, RowMode mode) noexcept;
    RowCursor(const RowCursor&) = delete;
    RowCursor& operator=(const RowCursor&) = delete;

    /// ERROR_FAILURE: no memory for the staging buffer. ERROR_INV_BITMAP: the bitmap has no pixels. Or what the
    /// bitmap's scratch callback answers.
    Status status() const noexcept { return status_; }

    /// Whether rows are handed out in place. Their addresses then hold until the bitmap is released, several rows can
    /// be used at once, and commit() has nothing to do. Rows are BytesPerLine apart.
    bool direct() const noexcept { return base_ != nullptr; }
    /// A row in place; direct() only.
    uint8_t* row(R_INT64 row) const noexcept { return base_ + row * rowBytes_; }

    /// Makes data() the bytes of a row (BytesPerLine of them), until the next open().
    Status open(R_INT row) noexcept;
    /// open() for a cursor that reads, where only `bytes` bytes from the one that holds `column` on are looked at: no
    /// others are fetched. data() is the row's first byte all the same.
    Status openPart(R_INT row, R_INT column, R_SIZE bytes) noexcept;
    uint8_t* data() const noexcept { return data_; }
    /// Writes the open row back.
    Status commit() noexcept;

private:
    Status takeStaging() noexcept;
    bool openInPlace(R_INT row) noexcept;

    BITMAPHANDLE* bitmap_;
    RowMode mode_;
    R_INT64 rowBytes_;
    const RowStore* store_ = nullptr; // where no callback stands before it
    uint8_t* base_ = nullptr;
    uint8_t* data_ = nullptr;
    R_INT open_ = 0;
    RowBuffer staging_;
    uint8_t* scratch_ = nullptr; // the staging buffer, or the bitmap's own callback's
    Status status_ = SUCCESS;
};

/// The store that holds a bitmap's pixels, chosen by its placement flags; null for a record without pixels.
const RowStore* storeOf(const BITMAPHANDLE* pBitmap) noexcept;
StoreShape shapeOf(const BITMAPHANDLE* pBitmap) noexcept;
StoreSlots slotsOf(const BITMAPHANDLE* pBitmap) noexcept;
void setSlots(BITMAPHANDLE* pBitmap, const StoreSlots& slots) noexcept;

} // namespace rv
