// One colour, or nothing but zeros: every pixel of a bitmap, or those of its region.

#include "Internal/R_Int.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/ColourValue.h"
#include "Kernel/Core/Progress.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Geometry/Region.h"
#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/FillRow.h"
#include "Kernel/Pixels/Runs.h"
#include "Kernel/Pixels/Simd/Select.h"
#include "Kernel/Rows/CompressedStore.h"

namespace rv {

namespace {

/// What every painted row looks like: its pixels, and zeros where it is longer.
class PaintedRow {
public:
    PaintedRow(const BITMAPHANDLE* pBitmap, StoredPixel pixel) noexcept
        : bytes_(pBitmap->BytesPerLine), period_(wholeRows(bytes_)), row_(period_ + simd::kRepeatAhead)
    {
        if (!row_ || bytes_ == 0) return;
        fillRow(row_.data(), bytes_, pBitmap->Width, pBitmap->BitsPerPixel, pixel.bits);
        repeatBytes(row_.data(), bytes_, period_ + simd::kRepeatAhead);
    }
    explicit operator bool() const noexcept { return static_cast<bool>(row_); }
    const uint8_t* data() const noexcept { return row_.data(); }
    void copyTo(uint8_t* row) const noexcept { std::memcpy(row, data(), bytes_); }

    /// `count` rows, one behind the other.
    void repeat(uint8_t* target, R_INT count) const noexcept
    {
        const size_t all = bytes_ * static_cast<size_t>(count);
        if (bytes_ != 0 && std::memcmp(data(), data() + 1, bytes_ - 1) == 0) // grays, and every pixel of 8 bits
            std::memset(target, *data(), all);
        else
            rowKernels().repeat(target, all, data(), period_, all >= kPastCaches);
    }

private:
    /// So many bytes would push everything out of the caches, themselves at last.
    static constexpr size_t kPastCaches = size_t{24} << 20;
    /// A shorter pattern costs time at its seams.
    static constexpr size_t kLongEnough = 2048;
    static_assert(kLongEnough >= simd::kRepeatAhead);

    static constexpr size_t wholeRows(size_t bytes) noexcept
    {
        return bytes == 0 ? 0 : (kLongEnough + bytes - 1) / bytes * bytes;
    }

    size_t bytes_;
    size_t period_;
    RowBuffer row_;
};

/// Whoever waits for a disk wants to know how far it is; memory is painted before he looks.
bool tellsRows(const BITMAPHANDLE* pBitmap) noexcept { return (pBitmap->Flags & FLAG_DISK_MEMORY) != 0; }

/// Calls paintOne(row) for every row that has something inside.
template <class PaintOne>
Status paintEach(const BITMAPHANDLE* pBitmap, const Region& region, PaintOne paintOne) noexcept
{
    const R_INT first = region.bounds().top;
    const R_INT end = region.empty() ? first : static_cast<R_INT>(region.bounds().bottom);
    const bool byRows = tellsRows(pBitmap);
    Progress progress = Progress::ofThread(byRows ? R_INT64{end} - first : 1);
    R_TRY(progress.begin());
    for (R_INT row = first; row < end; ++row) {
        R_TRY(paintOne(row));
        if (byRows) R_TRY(progress.step());
    }
    return byRows ? Status(SUCCESS) : progress.step();
}

/// All rows, which lie one behind the other.
Status paintBlock(BITMAPHANDLE* pBitmap, uint8_t* firstRow, const PaintedRow& paint) noexcept
{
    Progress progress = Progress::ofThread(1);
    R_TRY(progress.begin());
    paint.repeat(firstRow, pBitmap->Height);
    return progress.step();
}

Status paintRows(BITMAPHANDLE* pBitmap, Region& region, const PaintedRow& paint) noexcept
{
    RowCursor cursor(pBitmap, RowMode::write);
    R_TRY(cursor.status());
    if (cursor.direct() && !tellsRows(pBitmap)) return paintBlock(pBitmap, cursor.row(0), paint);
    return paintEach(pBitmap, region, [&](R_INT row) noexcept -> Status {
        R_TRY(cursor.open(row));
        paint.copyTo(cursor.data());
        return cursor.commit();
    });
}

/// Whether rows are kept as runs, and nobody else is asked about them.
bool keepsRuns(const BITMAPHANDLE* pBitmap) noexcept
{
    return storeOf(pBitmap) == &compressedStore() && dataCallbacks(pBitmap) == nullptr;
}

/// Rows as runs, which are made once.
Status paintRuns(BITMAPHANDLE* pBitmap, Region& region, const PaintedRow& paint) noexcept
{
    const auto width = static_cast<size_t>(pBitmap->Width);
    const RowBuffer runs(mostRuns(width) * kRunBytes);
    if (!runs) return ERROR_FAILURE;
    const size_t count = encodeRuns(runs.data(), mostRuns(width), paint.data(), 0, width);
    const StoreSlots slots = slotsOf(pBitmap);
    const StoreShape shape = shapeOf(pBitmap);
    const Status painted = paintEach(
        pBitmap, region, [&](R_INT row) noexcept { return writeRowRuns(slots, shape, row, runs.data(), count); });
    setPixelBytes(pBitmap, compressedStore().heldBytes(slots, shape)); // also where not all rows were written
    return painted;
}

/// The pieces of rows that are inside.
Status paintPieces(BITMAPHANDLE* pBitmap, Region& region, const PaintedRow& paint) noexcept
{
    RowCursor cursor(pBitmap, RowMode::update);
    R_TRY(cursor.status());
    const R_INT64 bits = pBitmap->BitsPerPixel;
    return paintEach(pBitmap, region, [&](R_INT row) noexcept -> Status {
        const R_SEGMENT* pieces = nullptr;
        R_UINT count = 0;
        R_TRY(region.row(row, pieces, count));
        if (count == 0) return SUCCESS;
        R_TRY(cursor.open(row));
        for (R_UINT i = 0; i < count; ++i) {
            const R_INT64 first = pieces[i].nLeft * bits;
            copyBits(cursor.data(), first, paint.data(), first, pieces[i].nRight * bits - first);
        }
        return cursor.commit();
    });
}

Status paint(BITMAPHANDLE* pBitmap, StoredPixel pixel) noexcept
{
    Region region(pBitmap, {0, 0, pBitmap->Width, pBitmap->Height});
    R_TRY(region.status());
    if (region.empty() && !region.whole()) return SUCCESS; // an empty region is no work, so there is nothing to tell
    const PaintedRow row(pBitmap, pixel);
    if (!row) return ERROR_FAILURE;
    BitmapAccess access(pBitmap);
    R_TRY(access.status());
    const auto paintAs = !region.whole() ? paintPieces : keepsRuns(pBitmap) ? paintRuns : paintRows;
    return access.finish(paintAs(pBitmap, region, row));
}

Status checkPaintable(const BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pBitmap));
    return checkWalkable(pBitmap);
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_FillBitmap(BITMAPHANDLE* pBitmap, COLORREF crFill) noexcept
{
    constexpr R_UCHAR opaque = 255;
    return R_FillBitmap2(pBitmap, crFill, opaque);
}

R_INT R_FillBitmap2(BITMAPHANDLE* pBitmap, COLORREF crFill, R_UCHAR uAlpha) noexcept
{
    R_TRY(checkPaintable(pBitmap));
    return paint(pBitmap, pixelOfColour(pBitmap, crFill, uAlpha));
}

R_INT R_ClearBitmap(BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkPaintable(pBitmap));
    return paint(pBitmap, {});
}
