// Whole bitmaps: a new one like another, and the rows of one in another.

#include "Internal/R_Int.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Replacement.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Geometry/CopyRuns.h"
#include "R_Geometry.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

Status copyRow(RowCursor& to, RowCursor& from, R_INT row, size_t targetBytes, size_t rowBytes) noexcept
{
    R_TRY(from.open(row));
    R_TRY(to.open(row));
    std::memmove(to.data(), from.data(), rowBytes); // two records can lead to the same pixels
    std::memset(to.data() + rowBytes, 0, targetBytes - rowBytes);
    return to.commit();
}

/// The rows that both bitmaps have, and of each the bytes that both have.
Status copyRows(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_INT rows, Progress& progress) noexcept
{
    RowCursor from(pSrc, RowMode::read);
    R_TRY(from.status());
    RowCursor to(pDst, RowMode::write);
    R_TRY(to.status());
    const size_t targetBytes = pDst->BytesPerLine, sourceBytes = pSrc->BytesPerLine;
    R_TRY(progress.begin());
    if (from.direct() && to.direct() && targetBytes == sourceBytes && !progress.watched()) {
        std::memmove(to.row(0), from.row(0), targetBytes * static_cast<size_t>(rows));
        return SUCCESS;
    }
    for (R_INT row = 0; row < rows; ++row) {
        R_TRY(copyRow(to, from, row, targetBytes, std::min(targetBytes, sourceBytes)));
        R_TRY(progress.step());
    }
    return SUCCESS;
}

Status copyAccessed(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc) noexcept
{
    const R_INT height = pSrc->Height, width = pSrc->Width;
    const R_INT rows = std::min<R_INT>(height, pDst->Height);
    Progress progress = Progress::ofCopy(rows);
    if (bothMoveRuns(pDst, pSrc) && pDst->Width == width) return copyRuns(pDst, pSrc, {0, 0, width, rows}, progress);
    return copyRows(pDst, pSrc, rows, progress);
}

/// Fills a duplicate with the source's pixels; it is freed when that fails.
Status complete(Replacement& copy, BITMAPHANDLE* pSrc) noexcept
{
    R_TRY(copy.status());
    const Status copied = R_CopyBitmapData(copy.bitmap(), pSrc);
    return copied.ok() ? copy.commit() : copy.fail(copied);
}

/// What both ways of copying check first.
Status checkCopy(const BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) noexcept
{
    if (pDst == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkAllocated(pSrc, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pSrc));
    return checkWalkable(pSrc);
}

Replacement::Shape shapeLike(const BITMAPHANDLE* pSrc) noexcept
{
    return {pSrc->Width, pSrc->Height, pSrc->BitsPerPixel};
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_CopyBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize) noexcept
{
    R_TRY(checkCopy(pDst, pSrc));
    if (pDst == pSrc) return SUCCESS;
    if ((pSrc->Flags & FLAG_COMPRESSED) != 0 && R_IntFlushStartupBuffers(0) != SUCCESS) return ERROR_FEATURE_LOCKED;
    Replacement copy(pDst, pSrc, uStructSize, shapeLike(pSrc));
    return complete(copy, pSrc);
}

R_INT R_CopyBitmap2(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, R_UINT uMemory) noexcept
{
    R_TRY(checkCopy(pDst, pSrc));
    if (pDst == pSrc) return SUCCESS;
    Replacement copy(pDst, pSrc, uStructSize, shapeLike(pSrc), uMemory);
    return complete(copy, pSrc);
}

R_INT R_CopyBitmapData(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc) noexcept
{
    R_TRY(checkAllocated(pDst, ERROR_INV_BITMAP));
    R_TRY(checkAllocated(pSrc, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pDst));
    R_TRY(checkStructSize(pSrc));
    if (pDst == pSrc) return SUCCESS;
    R_TRY(checkWalkable(pDst));
    R_TRY(checkWalkable(pSrc));
    BitmapAccess source(pSrc);
    R_TRY(source.status());
    BitmapAccess target(pDst);
    R_TRY(target.status());
    const Status copied = target.finish(copyAccessed(pDst, pSrc));
    return source.finish(copied);
}
