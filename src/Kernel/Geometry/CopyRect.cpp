// A rectangle of a bitmap as a bitmap of its own, or in the bitmap's place.

#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Replacement.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Geometry/CopyRuns.h"
#include "Kernel/Pixels/BitCombine.h"
#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/Simd/Select.h"
#include "R_Geometry.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

/// A piece of every row, and how it gets to the beginning of another.
class Piece {
public:
    Piece(const CopiedRectangle& from, R_INT bits, size_t targetBytes) noexcept
        : column_(from.left), first_(static_cast<size_t>(columnByte(from.left, bits))),
          shift_(static_cast<unsigned>(R_INT64{from.left} * bits & 7)),
          whole_(static_cast<size_t>(R_INT64{from.width} * bits >> 3)),
          rest_(static_cast<unsigned>(R_INT64{from.width} * bits & 7)), targetBytes_(targetBytes),
          moveBits_(rowKernels().combineBits[kTableOfSource])
    {
    }

    R_INT column() const noexcept { return column_; }
    /// Bytes of the source that hold pixels of the piece.
    size_t fetched() const noexcept { return whole_ + (shift_ + rest_ + 7) / 8; }

    /// A whole row of the target; what is behind the last pixel becomes 0.
    void copy(uint8_t* target, const uint8_t* row) const noexcept
    {
        const uint8_t* const source = row + first_;
        if (shift_ == 0)
            std::memcpy(target, source, whole_);
        else
            moveBits_(target, source, whole_, shift_);
        std::memset(target + whole_, 0, targetBytes_ - whole_);
        if (rest_ != 0) {
            const unsigned last = bits::loadByte(source + whole_, shift_, rest_);
            target[whole_] = static_cast<uint8_t>(last & 0xFF00u >> rest_);
        }
    }

private:
    R_INT column_;
    size_t first_;
    unsigned shift_;
    size_t whole_;
    unsigned rest_;
    size_t targetBytes_;
    simd::CombineBits moveBits_;
};

Status copyPieces(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const CopiedRectangle& from, Progress& progress) noexcept
{
    RowCursor source(pSrc, RowMode::read);
    R_TRY(source.status());
    RowCursor target(pDst, RowMode::write);
    R_TRY(target.status());
    const Piece piece(from, pSrc->BitsPerPixel, pDst->BytesPerLine);
    R_TRY(progress.begin());
    for (R_INT row = 0; row < from.height; ++row) {
        R_TRY(source.openPart(from.top + row, piece.column(), piece.fetched()));
        R_TRY(target.open(row));
        piece.copy(target.data(), source.data());
        R_TRY(target.commit());
        R_TRY(progress.step());
    }
    return SUCCESS;
}

Status copyRectangle(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const CopiedRectangle& from) noexcept
{
    R_TRY(checkWalkable(pDst)); // rows as the record counts them, which very wide ones do not fit
    BitmapAccess source(pSrc);
    R_TRY(source.status());
    BitmapAccess target(pDst);
    R_TRY(target.status());
    Progress progress = Progress::ofCopy(from.height);
    const Status copied =
        bothMoveRuns(pDst, pSrc) ? copyRuns(pDst, pSrc, from, progress) : copyPieces(pDst, pSrc, from, progress);
    return source.finish(target.finish(copied));
}

Status complete(Replacement& made, BITMAPHANDLE* pSrc, const CopiedRectangle& from) noexcept
{
    R_TRY(made.status());
    const Status copied = copyRectangle(made.bitmap(), pSrc, from);
    return copied.ok() ? made.commit() : made.fail(copied);
}

/// A rectangle as callers give it.
struct Request {
    R_INT column;
    R_INT row;
    R_UINT width;
    R_UINT height;

    R_INT64 right() const noexcept { return R_INT64{column} + width; }
    R_INT64 bottom() const noexcept { return R_INT64{row} + height; }
    CopiedRectangle rectangle() const noexcept
    {
        return {column, row, static_cast<R_INT>(width), static_cast<R_INT>(height)};
    }
    Replacement::Shape shape(const BITMAPHANDLE* pSrc) const noexcept
    {
        return {static_cast<R_INT>(width), static_cast<R_INT>(height), pSrc->BitsPerPixel};
    }
};

Status checkBitmap(const BITMAPHANDLE* pSrc) noexcept
{
    R_TRY(checkAllocated(pSrc, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pSrc));
    return checkWalkable(pSrc);
}

Status checkInside(const BITMAPHANDLE* pSrc, const Request& wanted) noexcept
{
    R_TRY(checkBitmap(pSrc));
    const bool inside =
        wanted.column >= 0 && wanted.row >= 0 && wanted.right() <= pSrc->Width && wanted.bottom() <= pSrc->Height;
    return inside ? SUCCESS : ERROR_INV_PARAMETER;
}

/// What of a rectangle lies inside a bitmap.
Status clip(const BITMAPHANDLE* pBitmap, Request& wanted) noexcept
{
    const R_INT64 right = std::min<R_INT64>(wanted.right(), pBitmap->Width);
    const R_INT64 bottom = std::min<R_INT64>(wanted.bottom(), pBitmap->Height);
    wanted.column = std::max(wanted.column, 0);
    wanted.row = std::max(wanted.row, 0);
    if (right <= wanted.column || bottom <= wanted.row) return ERROR_INV_SIZE;
    wanted.width = static_cast<R_UINT>(right - wanted.column);
    wanted.height = static_cast<R_UINT>(bottom - wanted.row);
    return SUCCESS;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_CopyBitmapRect(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, R_INT nCol, R_INT nRow,
                       R_UINT uWidth, R_UINT uHeight) noexcept
{
    const Request wanted{nCol, nRow, uWidth, uHeight};
    R_TRY(checkInside(pSrc, wanted));
    Replacement made(pDst, pSrc, uStructSize, wanted.shape(pSrc));
    return complete(made, pSrc, wanted.rectangle());
}

R_INT R_CopyBitmapRect2(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, R_INT nCol, R_INT nRow,
                        R_UINT uWidth, R_UINT uHeight, R_UINT uMemory) noexcept
{
    const Request wanted{nCol, nRow, uWidth, uHeight};
    R_TRY(checkInside(pSrc, wanted));
    Replacement made(pDst, pSrc, uStructSize, wanted.shape(pSrc), uMemory);
    return complete(made, pSrc, wanted.rectangle());
}

R_INT R_TrimBitmap(BITMAPHANDLE* pBitmap, R_INT nCol, R_INT nRow, R_UINT uWidth, R_UINT uHeight) noexcept
{
    R_TRY(checkBitmap(pBitmap));
    Request wanted{nCol, nRow, uWidth, uHeight};
    R_TRY(clip(pBitmap, wanted));
    return R_CopyBitmapRect(nullptr, pBitmap, pBitmap->uStructSize, wanted.column, wanted.row, wanted.width,
                            wanted.height);
}
