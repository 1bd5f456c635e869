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
        if (all >= kPastCaches)
            rowKernels().repeat(target, all, data(), period_);
        else
            for (size_t done = 0; done < all; done += bytes_) copyTo(target + done);
    }

private:
    /// So many bytes would push everything out of the caches, themselves at last.
    static constexpr size_t kPastCaches = size_t{8} << 20;

    static constexpr size_t wholeRows(size_t bytes) noexcept
    {
        return bytes == 0 ? 0 : (simd::kRepeatAhead + bytes - 1) / bytes * bytes;
    }

    size_t bytes_;
    size_t period_;
    RowBuffer row_;
};

/// The pieces of a row that are inside.
Status paintPieces(RowCursor& cursor, R_INT row, Region& region, const PaintedRow& paint, R_INT64 bits) noexcept
{
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
}

Status paintRow(RowCursor& cursor, R_INT row, const PaintedRow& paint) noexcept
{
    R_TRY(cursor.open(row));
    paint.copyTo(cursor.data());
    return cursor.commit();
}

/// Whoever waits for a disk wants to know how far it is; memory is painted before he looks.
bool tellsRows(const BITMAPHANDLE* pBitmap) noexcept { return (pBitmap->Flags & FLAG_DISK_MEMORY) != 0; }

Status paintRows(BITMAPHANDLE* pBitmap, Region& region, const PaintedRow& paint) noexcept
{
    const bool whole = region.whole();
    RowCursor cursor(pBitmap, whole ? RowMode::write : RowMode::update);
    R_TRY(cursor.status());
    const R_INT first = region.bounds().top;
    const R_INT end = region.empty() ? first : static_cast<R_INT>(region.bounds().bottom);
    const bool byRows = tellsRows(pBitmap);

    Progress progress = Progress::ofThread(byRows ? R_INT64{end} - first : 1);
    R_TRY(progress.begin());
    if (whole && !byRows && cursor.direct()) {
        paint.repeat(cursor.row(first), end - first);
        return progress.step();
    }
    for (R_INT row = first; row < end; ++row) {
        R_TRY(whole ? paintRow(cursor, row, paint) : paintPieces(cursor, row, region, paint, pBitmap->BitsPerPixel));
        if (byRows) R_TRY(progress.step());
    }
    return byRows ? Status(SUCCESS) : progress.step();
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
    return access.finish(paintRows(pBitmap, region, row));
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
