// The row calls. They trust their caller: positions are not checked, and clipping is the caller's business.

#include "Kernel/Core/RowCol.h"

#include "Kernel/Base/System.h"
#include "Kernel/Base/Util.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Pixels/BitCopy.h"

#include <algorithm>

namespace rv {

namespace {

R_INT64 columnOffset(const BITMAPHANDLE* pBitmap, R_INT column) noexcept
{
    return column == 0 ? 0 : columnByte(column, pBitmap->BitsPerPixel);
}

// Ask a row callback; 0 leaves the row to the store, anything else is the row call's answer. The record is packed: a
// pointer to one of its members would forget that.

R_SSIZE askToRead(BITMAPHANDLE* pBitmap, void* bytes, R_INT row, R_INT column, R_SIZE count) noexcept
{
    const BITMAPHANDLEDATACALLBACKS* const callbacks = dataCallbacks(pBitmap);
    if (callbacks == nullptr || callbacks->GetBitmapRowColCallback == nullptr) return 0;
    return callbacks->GetBitmapRowColCallback(pBitmap, bytes, row, column, count, callbacks->pUserData);
}

R_SSIZE askToWrite(BITMAPHANDLE* pBitmap, void* bytes, R_INT row, R_INT column, R_SIZE count) noexcept
{
    const BITMAPHANDLEDATACALLBACKS* const callbacks = dataCallbacks(pBitmap);
    if (callbacks == nullptr || callbacks->PutBitmapRowColCallback == nullptr) return 0;
    return callbacks->PutBitmapRowColCallback(pBitmap, bytes, row, column, count, callbacks->pUserData);
}

R_SSIZE readStored(const BITMAPHANDLE* pBitmap, void* bytes, R_INT row, R_INT column, R_SIZE count) noexcept
{
    const RowStore* const store = storeOf(pBitmap);
    if (store == nullptr) return ERROR_INV_BITMAP;
    R_TRY(store->read(slotsOf(pBitmap), shapeOf(pBitmap), bytes, row, columnOffset(pBitmap, column), count));
    return static_cast<R_SSIZE>(count);
}

R_SSIZE writeStored(BITMAPHANDLE* pBitmap, const void* bytes, R_INT row, R_INT column, R_SIZE count) noexcept
{
    const RowStore* const store = storeOf(pBitmap);
    if (store == nullptr) return ERROR_INV_BITMAP;
    StoreSlots slots = slotsOf(pBitmap);
    const StoreShape shape = shapeOf(pBitmap);
    const Status written = store->write(slots, shape, bytes, row, columnOffset(pBitmap, column), count);
    // A compressed bitmap's size is what its rows take now, also where the write has failed half-way.
    if ((pBitmap->Flags & FLAG_COMPRESSED) != 0) setPixelBytes(pBitmap, store->heldBytes(slots, shape));
    R_TRY(written);
    return static_cast<R_SSIZE>(count);
}

} // namespace

R_SSIZE readRow(BITMAPHANDLE* pBitmap, void* bytes, R_INT row, R_INT column, R_SIZE count) noexcept
{
    const R_SSIZE answer = askToRead(pBitmap, bytes, row, column, count);
    return answer != 0 ? answer : readStored(pBitmap, bytes, row, column, count);
}

R_SSIZE writeRow(BITMAPHANDLE* pBitmap, void* bytes, R_INT row, R_INT column, R_SIZE count) noexcept
{
    const R_SSIZE answer = askToWrite(pBitmap, bytes, row, column, count);
    return answer != 0 ? answer : writeStored(pBitmap, bytes, row, column, count);
}

namespace {

/// The common front of the four row calls.
Status checkRowCall(const BITMAPHANDLE* pBitmap, const void* pBuffer, const char* name) noexcept
{
    if (pBitmap == nullptr || pBuffer == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    if (lockCountDiagnostics() && hasCallbackSlot(pBitmap) && pBitmap->nLockCount < 1)
        traceLockCount(name, pBitmap->nLockCount, "\r\n");
    return SUCCESS;
}

/// Whether the tile store holds the pixels.
bool isTiled(const BITMAPHANDLE* pBitmap) noexcept
{
    return (pBitmap->Flags & (FLAG_COMPRESSED | FLAG_TILED)) == FLAG_TILED;
}

/// The row is fetched once and written once, whatever the number of pieces.
Status putSegments(BITMAPHANDLE* pBitmap, const void* pRow, R_INT nRow, R_INT nCol, const R_SEGMENT* pSegments,
                   R_UINT uSegments) noexcept
{
    RowCursor cursor(pBitmap, RowMode::update);
    R_TRY(cursor.open(nRow));
    const R_INT width = pBitmap->Width;
    const R_INT64 bits = pBitmap->BitsPerPixel;
    for (R_UINT i = 0; i < uSegments; ++i) {
        const R_INT64 left = std::max(pSegments[i].nLeft, nCol);
        const R_INT64 right = std::min(pSegments[i].nRight, width);
        copyBits(cursor.data(), left * bits, static_cast<const uint8_t*>(pRow), (left - nCol) * bits,
                 (right - left) * bits);
    }
    return cursor.commit();
}

} // namespace

} // namespace rv

using namespace rv;

R_SSIZE R_GetBitmapRow(BITMAPHANDLE* pBitmap, void* pBuffer, R_INT nRow, R_SIZE uBytes) noexcept
{
    R_TRY(checkRowCall(pBitmap, pBuffer, "R_GetBitmapRow"));
    return readRow(pBitmap, pBuffer, nRow, 0, uBytes);
}

R_SSIZE R_PutBitmapRow(BITMAPHANDLE* pBitmap, void* pBuffer, R_INT nRow, R_SIZE uBytes) noexcept
{
    R_TRY(checkRowCall(pBitmap, pBuffer, "R_PutBitmapRow"));
    return writeRow(pBitmap, pBuffer, nRow, 0, uBytes);
}

R_SSIZE R_GetBitmapRowCol(BITMAPHANDLE* pBitmap, void* pBuffer, R_INT nRow, R_INT nCol, R_SIZE uBytes) noexcept
{
    R_TRY(checkRowCall(pBitmap, pBuffer, "R_GetBitmapRowCol"));
    if (const R_SSIZE answer = askToRead(pBitmap, pBuffer, nRow, nCol, uBytes); answer != 0) return answer;
    const R_SSIZE moved = readStored(pBitmap, pBuffer, nRow, nCol, uBytes);
    // Kept: callers that read pieces of tiled rows know no failure there.
    return moved < 0 && isTiled(pBitmap) ? static_cast<R_SSIZE>(uBytes) : moved;
}

R_SSIZE R_PutBitmapRowCol(BITMAPHANDLE* pBitmap, void* pBuffer, R_INT nRow, R_INT nCol, R_SIZE uBytes) noexcept
{
    R_TRY(checkRowCall(pBitmap, pBuffer, "R_PutBitmapRowCol"));
    if (const R_SSIZE answer = askToWrite(pBitmap, pBuffer, nRow, nCol, uBytes); answer != 0) return answer;
    const R_SSIZE moved = writeStored(pBitmap, pBuffer, nRow, nCol, uBytes);
    return moved < 0 && isTiled(pBitmap) ? ERROR_FAILURE : moved; // kept: one code for every failed tile
}

R_INT R_PutBitmapRowSegments(BITMAPHANDLE* pBitmap, const void* pRow, R_INT nRow, R_INT nCol,
                             const R_SEGMENT* pSegments, R_UINT uSegments) noexcept
{
    if (pBitmap == nullptr || pRow == nullptr || (pSegments == nullptr && uSegments != 0)) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    R_TRY(checkWalkable(pBitmap));
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    if (nRow < 0 || nRow >= pBitmap->Height || nCol < 0) return ERROR_INV_PARAMETER;
    BitmapAccess access(pBitmap);
    R_TRY(access.status());
    return access.finish(putSegments(pBitmap, pRow, nRow, nCol, pSegments, uSegments));
}
