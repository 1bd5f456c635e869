#include "Kernel/Core/RowCursor.h"

#include "Kernel/Core/Checks.h"
#include "Kernel/Core/RowCol.h"

namespace rv {

const RowStore* storeOf(const BITMAPHANDLE* pBitmap) noexcept
{
    const R_UINT flags = pBitmap->Flags;
    if ((flags & FLAG_COMPRESSED) != 0) return &compressedStore();
    if ((flags & FLAG_TILED) != 0) return &tileStore();
    if ((flags & FLAG_SUPER_COMPRESSED) != 0) return &superCompressedStore();
    if ((flags & FLAG_CONVENTIONAL_MEMORY) != 0) return &linearStore();
    if ((flags & FLAG_DISK_MEMORY) != 0) return &diskStore();
    return nullptr;
}

StoreShape shapeOf(const BITMAPHANDLE* pBitmap) noexcept
{
    StoreShape shape;
    shape.width = pBitmap->Width;
    shape.height = pBitmap->Height;
    shape.bits = pBitmap->BitsPerPixel;
    shape.rowBytes = pBitmap->BytesPerLine;
    shape.bytes = pixelBytes(pBitmap);
    if ((pBitmap->Flags & (FLAG_COMPRESSED | FLAG_SUPER_COMPRESSED)) != 0) // the field tells of something else
        shape.bytes = static_cast<R_UINT64>(shape.rowBytes) * static_cast<R_UINT64>(shape.height);
    // A short record's size may be cut; what the rows take was not.
    if (!hasSize64(pBitmap) && shape.bytes == kShortRecordMaxSize)
        shape.bytes = static_cast<R_UINT64>(shape.rowBytes) * static_cast<R_UINT64>(shape.height) + pBitmap->DataOffset;
    return shape;
}

StoreSlots slotsOf(const BITMAPHANDLE* pBitmap) noexcept
{
    return {pBitmap->Addr.Handle, pBitmap->Addr.Pointer, pBitmap->DataOffset};
}

void setSlots(BITMAPHANDLE* pBitmap, const StoreSlots& slots) noexcept
{
    pBitmap->Addr.Handle = slots.handle;
    pBitmap->Addr.Pointer = slots.pointer;
    pBitmap->DataOffset = slots.dataOffset;
}

namespace {

bool hasRowCallback(const BITMAPHANDLE* pBitmap, RowMode mode) noexcept
{
    const BITMAPHANDLEDATACALLBACKS* const callbacks = dataCallbacks(pBitmap);
    if (callbacks == nullptr) return false;
    return (mode != RowMode::write && callbacks->GetBitmapRowColCallback != nullptr) ||
           (mode != RowMode::read && callbacks->PutBitmapRowColCallback != nullptr);
}

} // namespace

RowCursor::RowCursor(BITMAPHANDLE* pBitmap, RowMode mode) noexcept
    : bitmap_(pBitmap), mode_(mode), rowBytes_(pBitmap->BytesPerLine)
{
    if (!hasRowCallback(pBitmap, mode)) {
        store_ = storeOf(pBitmap);
        if (store_ == nullptr) {
            status_ = ERROR_INV_BITMAP;
            return;
        }
        base_ = store_->block(slotsOf(pBitmap));
        if (base_ != nullptr) return;
    }
    status_ = takeStaging();
}

Status RowCursor::takeStaging() noexcept
{
    const BITMAPHANDLEDATACALLBACKS* const callbacks = dataCallbacks(bitmap_);
    if (callbacks != nullptr && callbacks->GetBitmapScratchBufferCallback != nullptr) {
        void* buffer = nullptr;
        const R_INT answer =
            callbacks->GetBitmapScratchBufferCallback(bitmap_, &buffer, bitmap_->BytesPerLine, callbacks->pUserData);
        if (answer == SUCCESS_ABORT) {
            scratch_ = static_cast<uint8_t*>(buffer);
            return scratch_ != nullptr ? SUCCESS : ERROR_FAILURE;
        }
        if (answer != SUCCESS) return answer;
    }
    staging_ = RowBuffer(bitmap_->BytesPerLine);
    scratch_ = staging_.data();
    return staging_ ? SUCCESS : ERROR_FAILURE;
}

/// Otherwise data() is the staging buffer, with nothing in it yet.
bool RowCursor::openInPlace(R_INT row) noexcept
{
    open_ = row;
    if (direct()) {
        data_ = this->row(row);
        return true;
    }
    if (store_ != nullptr) {
        data_ = store_->borrow(slotsOf(bitmap_), shapeOf(bitmap_), row, mode_ != RowMode::read);
        if (data_ != nullptr) return true;
    }
    data_ = scratch_;
    return false;
}

Status RowCursor::open(R_INT row) noexcept
{
    R_TRY(status_);
    if (openInPlace(row) || mode_ == RowMode::write) return SUCCESS;
    return rowMoved(readRow(bitmap_, data_, row, 0, bitmap_->BytesPerLine), bitmap_->BytesPerLine);
}

Status RowCursor::openPart(R_INT row, R_INT column, R_SIZE bytes) noexcept
{
    R_TRY(status_);
    if (openInPlace(row)) return SUCCESS;
    uint8_t* const part = data_ + columnByte(column, bitmap_->BitsPerPixel);
    return rowMoved(readRow(bitmap_, part, row, column, bytes), bytes);
}

Status RowCursor::commit() noexcept
{
    if (data_ != scratch_) return SUCCESS;
    return rowMoved(writeRow(bitmap_, data_, open_, 0, bitmap_->BytesPerLine), bitmap_->BytesPerLine);
}

} // namespace rv
