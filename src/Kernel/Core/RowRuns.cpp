// Rows of 1-bit bitmaps in run form. A compressed bitmap gives and takes its runs as they are; rows that live
// elsewhere, or that callbacks are asked for, are turned into runs and back.

#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Pixels/Runs.h"
#include "Kernel/Rows/CompressedStore.h"
#include "R_Rows.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

/// Runs of the caller's: one row behind the other, `pitch` bytes apart.
struct CallersRuns {
    R_UINT16* first;
    R_SIZE pitch;

    uint8_t* row(R_INT row) const noexcept
    {
        return reinterpret_cast<uint8_t*>(first) + static_cast<R_SIZE>(row) * pitch;
    }
    size_t room() const noexcept { return pitch / kRunBytes; }
};

Status checkRunCall(const BITMAPHANDLE* pBitmap, const R_UINT16* pRuns) noexcept
{
    if (pBitmap == nullptr || pRuns == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    R_TRY(checkWalkable(pBitmap));
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    return pBitmap->BitsPerPixel == 1 ? SUCCESS : ERROR_INV_BITS_PER_PIXEL;
}

/// Whether `count` rows or columns from `first` on are among `all`.
Status checkPart(R_INT first, R_INT count, R_INT all) noexcept
{
    return first >= 0 && count >= 0 && R_INT64{first} + count <= all ? SUCCESS : ERROR_INV_PARAMETER;
}

/// How many runs make a caller's row: ERROR_BUFFER_TOO_SMALL for a row that goes on behind its room,
/// ERROR_INV_PARAMETER for one that does not end where it should, or not after the most runs that it can have.
Status countCallersRuns(const void* runs, size_t room, R_INT pixels, size_t* count) noexcept
{
    *count = countRuns(runs, room, static_cast<size_t>(pixels));
    if (*count != 0) return SUCCESS;
    const size_t most = std::min(room, mostRuns(static_cast<size_t>(pixels)));
    R_INT64 sum = 0;
    for (size_t i = 0; i < most && sum < pixels; ++i) {
        R_UINT16 run = 0;
        std::memcpy(&run, static_cast<const uint8_t*>(runs) + i * kRunBytes, sizeof run);
        sum += run;
    }
    return sum < pixels && most == room ? ERROR_BUFFER_TOO_SMALL : ERROR_INV_PARAMETER;
}

/// Whether the runs are at hand as they are to be moved.
bool keepsRuns(const BITMAPHANDLE* pBitmap) noexcept
{
    const BITMAPHANDLEDATACALLBACKS* const callbacks = dataCallbacks(pBitmap);
    const bool asks = callbacks != nullptr &&
                      (callbacks->GetBitmapRowColCallback != nullptr || callbacks->PutBitmapRowColCallback != nullptr);
    return !asks && storeOf(pBitmap) == &compressedStore();
}

Status getKeptRows(const BITMAPHANDLE* pBitmap, const CallersRuns& runs, R_INT first, R_INT lines) noexcept
{
    const StoreSlots slots = slotsOf(pBitmap);
    const StoreShape shape = shapeOf(pBitmap);
    for (R_INT line = 0; line < lines; ++line)
        R_TRY(readRowRuns(slots, shape, R_INT64{first} + line, runs.row(line), runs.room()));
    return SUCCESS;
}

Status putKeptRows(const BITMAPHANDLE* pBitmap, const CallersRuns& runs, R_INT first, R_INT lines) noexcept
{
    const StoreSlots slots = slotsOf(pBitmap);
    const StoreShape shape = shapeOf(pBitmap);
    for (R_INT line = 0; line < lines; ++line) {
        const size_t count = countRuns(runs.row(line), runs.room(), static_cast<size_t>(shape.width));
        R_TRY(writeRowRuns(slots, shape, R_INT64{first} + line, runs.row(line), count));
    }
    return SUCCESS;
}

Status getRows(BITMAPHANDLE* pBitmap, const CallersRuns& runs, R_INT first, R_INT lines) noexcept
{
    if (keepsRuns(pBitmap)) return getKeptRows(pBitmap, runs, first, lines);
    RowCursor cursor(pBitmap, RowMode::read);
    const auto width = static_cast<size_t>(pBitmap->Width);
    for (R_INT line = 0; line < lines; ++line) {
        R_TRY(cursor.open(first + line));
        if (encodeRuns(runs.row(line), runs.room(), cursor.data(), 0, width) == 0) return ERROR_BUFFER_TOO_SMALL;
    }
    return SUCCESS;
}

/// All rows are looked at before the first is written.
Status putRows(BITMAPHANDLE* pBitmap, const CallersRuns& runs, R_INT first, R_INT lines) noexcept
{
    const R_INT width = pBitmap->Width;
    size_t count = 0;
    for (R_INT line = 0; line < lines; ++line) R_TRY(countCallersRuns(runs.row(line), runs.room(), width, &count));
    if (keepsRuns(pBitmap)) {
        const Status put = putKeptRows(pBitmap, runs, first, lines);
        setPixelBytes(pBitmap, compressedStore().heldBytes(slotsOf(pBitmap), shapeOf(pBitmap)));
        return put;
    }
    RowCursor cursor(pBitmap, RowMode::write);
    for (R_INT line = 0; line < lines; ++line) {
        R_TRY(cursor.open(first + line));
        std::memset(cursor.data(), 0, pBitmap->BytesPerLine);
        decodeRuns(cursor.data(), 0, static_cast<size_t>(width), runs.row(line), runs.room());
        R_TRY(cursor.commit());
    }
    return SUCCESS;
}

Status getPiece(BITMAPHANDLE* pBitmap, R_UINT16* runs, R_SIZE bytes, R_INT row, R_INT column, R_INT pixels) noexcept
{
    RowCursor cursor(pBitmap, RowMode::read);
    R_TRY(cursor.open(row));
    const size_t count =
        encodeRuns(runs, bytes / kRunBytes, cursor.data(), static_cast<size_t>(column), static_cast<size_t>(pixels));
    return count != 0 || pixels == 0 ? SUCCESS : ERROR_BUFFER_TOO_SMALL;
}

Status putPiece(BITMAPHANDLE* pBitmap, const R_UINT16* runs, R_SIZE bytes, R_INT row, R_INT column,
                R_INT pixels) noexcept
{
    size_t count = 0;
    if (pixels != 0) R_TRY(countCallersRuns(runs, bytes / kRunBytes, pixels, &count));
    RowCursor cursor(pBitmap, RowMode::update);
    R_TRY(cursor.open(row));
    decodeRuns(cursor.data(), static_cast<size_t>(column), static_cast<size_t>(pixels), runs, count);
    return cursor.commit();
}

/// The front of the calls that move whole rows, and of those that move a piece of one.
R_INT moveRows(BITMAPHANDLE* pBitmap, const CallersRuns& runs, R_INT first, R_INT lines,
               Status (*move)(BITMAPHANDLE*, const CallersRuns&, R_INT, R_INT) noexcept) noexcept
{
    R_TRY(checkRunCall(pBitmap, runs.first));
    R_TRY(checkPart(first, lines, pBitmap->Height));
    BitmapAccess access(pBitmap);
    R_TRY(access.status());
    R_TRY(access.finish(move(pBitmap, runs, first, lines)));
    return lines;
}

template <class Runs>
R_INT movePiece(BITMAPHANDLE* pBitmap, Runs* runs, R_SIZE bytes, R_INT row, R_INT column, R_INT pixels,
                Status (*move)(BITMAPHANDLE*, Runs*, R_SIZE, R_INT, R_INT, R_INT) noexcept) noexcept
{
    R_TRY(checkRunCall(pBitmap, runs));
    R_TRY(checkPart(row, 1, pBitmap->Height));
    R_TRY(checkPart(column, pixels, pBitmap->Width));
    BitmapAccess access(pBitmap);
    R_TRY(access.status());
    return access.finish(move(pBitmap, runs, bytes, row, column, pixels));
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_GetBitmapRowCompressed(BITMAPHANDLE* pBitmap, R_UINT16* pRuns, R_SIZE uRunBytes, R_INT nRow,
                               R_INT nLines) noexcept
{
    return moveRows(pBitmap, {pRuns, uRunBytes}, nRow, nLines, getRows);
}

R_INT R_PutBitmapRowCompressed(BITMAPHANDLE* pBitmap, R_UINT16* pRuns, R_SIZE uRunBytes, R_INT nRow,
                               R_INT nLines) noexcept
{
    return moveRows(pBitmap, {pRuns, uRunBytes}, nRow, nLines, putRows);
}

R_INT R_GetBitmapRowColCompressed(BITMAPHANDLE* pBitmap, R_UINT16* pRuns, R_SIZE uRunBytes, R_INT nRow, R_INT nCol,
                                  R_INT nPixels) noexcept
{
    return movePiece<R_UINT16>(pBitmap, pRuns, uRunBytes, nRow, nCol, nPixels, getPiece);
}

R_INT R_PutBitmapRowColCompressed(BITMAPHANDLE* pBitmap, R_UINT16* pRuns, R_SIZE uRunBytes, R_INT nRow, R_INT nCol,
                                  R_INT nPixels) noexcept
{
    return movePiece<const R_UINT16>(pBitmap, pRuns, uRunBytes, nRow, nCol, nPixels, putPiece);
}
