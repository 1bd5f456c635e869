#include "Kernel/Geometry/CopyRuns.h"

#include "Kernel/Core/Checks.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Pixels/RowBuffer.h"
#include "Kernel/Pixels/Runs.h"
#include "Kernel/Rows/CompressedStore.h"

#include <algorithm>

namespace rv {

namespace {

bool movesRuns(const BITMAPHANDLE* pBitmap) noexcept
{
    const BITMAPHANDLEDATACALLBACKS* const callbacks = dataCallbacks(pBitmap);
    const bool asks = callbacks != nullptr &&
                      (callbacks->GetBitmapRowColCallback != nullptr || callbacks->PutBitmapRowColCallback != nullptr);
    return !asks && storeOf(pBitmap) == &compressedStore();
}

/// Cuts pixels `first` to first + pixels out of runs that hold them. `cut` has room for `room` runs. Returns how many
/// there are, or 0 where they do not fit: runs of 0 may stand anywhere.
size_t cutRuns(R_UINT16* cut, size_t room, const R_UINT16* runs, size_t first, size_t pixels) noexcept
{
    size_t run = 0, before = 0;
    while (before + runs[run] <= first) before += runs[run++];
    size_t count = 0;
    if ((run & 1) != 0) cut[count++] = 0; // the piece begins with a one
    size_t length = before + runs[run] - first;
    for (size_t left = pixels;;) {
        if (count == room) return 0;
        length = std::min(length, left);
        cut[count++] = static_cast<R_UINT16>(length);
        left -= length;
        if (left == 0) return count;
        length = runs[++run];
    }
}

/// The rows of one copy, and the room for them.
class RunCopy {
public:
    RunCopy(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc, const CopiedRectangle& from) noexcept
        : from_(from), width_(pSrc->Width), source_(slotsOf(pSrc)), target_(slotsOf(pDst)), sourceShape_(shapeOf(pSrc)),
          targetShape_(shapeOf(pDst)), runs_(mostRuns(sizeOf(width_)) * kRunBytes),
          cut_(mostRuns(sizeOf(from.width)) * kRunBytes), packed_((sizeOf(from.width) + 7) / 8)
    {
    }

    explicit operator bool() const noexcept { return runs_ && cut_ && packed_; }
    Status row(R_INT row) noexcept
    {
        auto* const runs = reinterpret_cast<R_UINT16*>(runs_.data());
        const size_t room = mostRuns(sizeOf(width_));
        R_TRY(readRowRuns(source_, sourceShape_, R_INT64{from_.top} + row, runs, room));
        if (from_.width == width_)
            return writeRowRuns(target_, targetShape_, row, runs, countRuns(runs, room, sizeOf(width_)));
        size_t count = 0;
        if (width_ <= kWidestOfWholeRuns) count = cutRuns(cutRoom(), roomOfCut(), runs, left(), pixels());
        if (count == 0) { // through packed pixels then
            decodeRuns(packed_.data(), 0, pixels(), runs, room, left());
            count = encodeRuns(cutRoom(), roomOfCut(), packed_.data(), 0, pixels());
        }
        return writeRowRuns(target_, targetShape_, row, cutRoom(), count);
    }

private:
    static constexpr size_t sizeOf(R_INT width) noexcept { return static_cast<size_t>(width); }
    size_t left() const noexcept { return sizeOf(from_.left); }
    size_t pixels() const noexcept { return sizeOf(from_.width); }
    R_UINT16* cutRoom() const noexcept { return reinterpret_cast<R_UINT16*>(cut_.data()); }
    size_t roomOfCut() const noexcept { return mostRuns(pixels()); }

    CopiedRectangle from_;
    R_INT width_;
    StoreSlots source_;
    StoreSlots target_;
    StoreShape sourceShape_;
    StoreShape targetShape_;
    RowBuffer runs_;
    RowBuffer cut_;
    RowBuffer packed_;
};

Status copyRows(RunCopy& rows, R_INT height, Progress& progress) noexcept
{
    R_TRY(progress.begin());
    for (R_INT row = 0; row < height; ++row) {
        R_TRY(rows.row(row));
        R_TRY(progress.step());
    }
    return SUCCESS;
}

} // namespace

bool bothMoveRuns(const BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) noexcept
{
    return movesRuns(pDst) && movesRuns(pSrc);
}

Status copyRuns(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc, const CopiedRectangle& from, Progress& progress) noexcept
{
    RunCopy rows(pDst, pSrc, from);
    if (!rows) return ERROR_FAILURE;
    const Status copied = copyRows(rows, from.height, progress);
    setPixelBytes(pDst, compressedStore().heldBytes(slotsOf(pDst), shapeOf(pDst)));
    return copied;
}

Status turnRuns(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc, const Turn& turn, Progress& progress) noexcept
{
    const auto width = static_cast<size_t>(pSrc->Width);
    const size_t room = mostRuns(width);
    const RowBuffer runs((room + 1) * kRunBytes); // turned round, there may be one more
    if (!runs) return ERROR_FAILURE;
    const StoreSlots source = slotsOf(pSrc), target = slotsOf(pDst);
    const StoreShape sourceShape = shapeOf(pSrc), targetShape = shapeOf(pDst);
    R_TRY(progress.begin());
    Status status = SUCCESS;
    for (R_INT row = 0; status.ok() && row < pSrc->Height; ++row) {
        status = readRowRuns(source, sourceShape, row, runs.data(), room);
        if (!status.ok()) break;
        size_t count = countRuns(runs.data(), room, width);
        if (turn.columnsBackwards()) count = mirrorRuns(runs.data(), count);
        const R_INT to = turn.rowsBackwards() ? pSrc->Height - 1 - row : row;
        status = writeRowRuns(target, targetShape, to, runs.data(), count);
        if (status.ok()) status = progress.step();
    }
    setPixelBytes(pDst, compressedStore().heldBytes(target, targetShape));
    return status;
}

} // namespace rv
