// A rectangle of one bitmap combined into another's, as both are displayed.

#include "Internal/R_Int.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Progress.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Geometry/CombineRow.h"
#include "Kernel/Geometry/Mirror.h"
#include "Kernel/Geometry/Region.h"
#include "Kernel/Pixels/BitCopy.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

struct Point {
    R_INT x;
    R_INT y;
};
struct Extent {
    R_INT width;
    R_INT height;
};

/// A record with a perspective that is none shows its pixels as they are stored.
R_INT perspectiveOf(const BITMAPHANDLE* p) noexcept
{
    return isViewPerspective(p->ViewPerspective) ? p->ViewPerspective : TOP_LEFT;
}

Extent displayedExtent(const BITMAPHANDLE* p) noexcept
{
    if (showsRowsAsColumns(p->ViewPerspective)) return {p->Height, p->Width};
    return {p->Width, p->Height};
}

/// Where a rectangle of the displayed image is stored.
RECT storedRectangle(const BITMAPHANDLE* p, Point at, Extent size) noexcept
{
    const Extent all = displayedExtent(p);
    RECT rectangle = {at.x, at.y, at.x + size.width, at.y + size.height};
    (void)R_ChangeRectViewPerspective(TOP_LEFT, all.width, all.height, perspectiveOf(p), &rectangle);
    return rectangle;
}

/// The stretch of a side that lies inside both bitmaps: how far it begins behind its start, and its length.
struct Stretch {
    R_INT64 skipped = 0;
    R_INT64 end;

    void cutTo(R_INT64 start, R_INT64 whole) noexcept
    {
        skipped = std::max(skipped, -start);
        end = std::min(end, whole - start);
    }
    R_INT length() const noexcept { return end > skipped ? static_cast<R_INT>(end - skipped) : 0; }
};

/// The rectangles as they lie on the displayed images.
struct Rectangles {
    Point to;
    Point from;
    Extent size;

    /// Both are cut alike, so that the same pixels meet. False: nothing is left.
    bool cutTo(const BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) noexcept
    {
        Stretch across{.end = size.width}, down{.end = size.height};
        const Extent target = displayedExtent(pDst);
        across.cutTo(to.x, target.width);
        down.cutTo(to.y, target.height);
        if (pSrc != nullptr) {
            const Extent source = displayedExtent(pSrc);
            across.cutTo(from.x, source.width);
            down.cutTo(from.y, source.height);
        }
        size = {across.length(), down.length()};
        if (size.width == 0 || size.height == 0) return false;
        to = {static_cast<R_INT>(to.x + across.skipped), static_cast<R_INT>(to.y + down.skipped)};
        if (pSrc != nullptr)
            from = {static_cast<R_INT>(from.x + across.skipped), static_cast<R_INT>(from.y + down.skipped)};
        return true;
    }
};

/// On which sides of the displayed image a perspective's stored rows and columns begin.
constexpr bool rowsBackwards(R_INT p) noexcept
{
    return p == BOTTOM_RIGHT || p == BOTTOM_LEFT || p == RIGHT_TOP || p == RIGHT_BOTTOM;
}
constexpr bool columnsBackwards(R_INT p) noexcept
{
    return p == TOP_RIGHT || p == BOTTOM_RIGHT || p == RIGHT_BOTTOM || p == LEFT_BOTTOM;
}

/// Whether pixels of two bitmaps lie in the same memory.
bool overlap(const BITMAPHANDLE* one, const BITMAPHANDLE* other) noexcept
{
    const auto a = reinterpret_cast<uintptr_t>(one->Addr.Pointer);
    const auto b = reinterpret_cast<uintptr_t>(other->Addr.Pointer);
    return a != 0 && b != 0 && (a < b ? b - a < pixelBytes(one) : a - b < pixelBytes(other));
}

/// Whether a write to one of the bitmaps may change the other's pixels.
bool sharePixels(const BITMAPHANDLE* one, const BITMAPHANDLE* other) noexcept
{
    return one == other || (one->Addr.Pointer != nullptr && one->Addr.Pointer == other->Addr.Pointer) ||
           (one->Addr.Handle != nullptr && one->Addr.Handle == other->Addr.Handle) || overlap(one, other);
}

/// Whether rows of the one are whole rows of the other, in the order of the displayed image.
bool rowsAgree(const BITMAPHANDLE* one, const BITMAPHANDLE* other) noexcept
{
    return one->Addr.Pointer == other->Addr.Pointer && one->DataOffset == other->DataOffset &&
           one->BytesPerLine == other->BytesPerLine &&
           rowsBackwards(perspectiveOf(one)) == rowsBackwards(perspectiveOf(other));
}

/// Whether the source has to be copied first: its rows are the target's columns, or no order of the rows reads each
/// before it is written.
bool needsCopy(const BITMAPHANDLE* pSrc, const BITMAPHANDLE* pDst) noexcept
{
    if (showsRowsAsColumns(pSrc->ViewPerspective) != showsRowsAsColumns(pDst->ViewPerspective)) return true;
    return sharePixels(pSrc, pDst) && !rowsAgree(pSrc, pDst);
}

/// The rows of the source's rectangle, in the order and the direction of the target's. Takes its memory at
/// construction.
class SourceRows {
public:
    SourceRows(BITMAPHANDLE* pSrc, const BITMAPHANDLE* pDst, const RECT& from, const RECT& to) noexcept
        : cursor_(pSrc, RowMode::read), from_(from), bits_(pSrc->BitsPerPixel), rowBytes_(pSrc->BytesPerLine),
          backwards_(rowsBackwards(perspectiveOf(pSrc)) != rowsBackwards(perspectiveOf(pDst)))
    {
        if (columnsBackwards(perspectiveOf(pSrc)) != columnsBackwards(perspectiveOf(pDst)))
            mirror_ = mirrorRowFor(pSrc->BitsPerPixel);
        if (sharePixels(pSrc, pDst)) sharedRows_ = R_INT64{to.top} - from.top;
        status_ = cursor_.status();
        if (status_.ok() && (mirror_ != nullptr || inOneRow())) {
            const R_UINT64 bytes = packedBytes(width(), bits_);
            aside_ = RowBuffer(bytes);
            if (!aside_)
                status_ = ERROR_FAILURE;
            else
                std::memset(aside_.data(), 0, static_cast<size_t>(bytes));
        }
    }
    Status status() const noexcept { return status_; }

    /// Whether rows have to be taken from the last one on, so that none is written before it is read.
    bool lastFirst() const noexcept { return sharedRows_ > 0; }

    /// Makes data() and column() the index-th row's.
    Status open(R_INT index) noexcept
    {
        const R_INT row = backwards_ ? from_.bottom - 1 - index : from_.top + index;
        if (cursor_.direct()) {
            data_ = cursor_.row(row);
        } else {
            const R_UINT64 end = packedBytes(from_.right, bits_);
            R_TRY(cursor_.openPart(row, from_.left, end - static_cast<R_UINT64>(columnByte(from_.left, bits_))));
            data_ = cursor_.data();
        }
        if (aside_) putAside();
        return SUCCESS;
    }
    /// The first row where all are used in place, in this order, this far apart, and none is written; else null.
    const uint8_t* inPlace(R_INT64 rowBytes) const noexcept
    {
        const bool asTheyAre = cursor_.direct() && rowBytes_ == rowBytes && !backwards_ && !aside_;
        return asTheyAre && sharedRows_ == kApart ? cursor_.row(from_.top) : nullptr;
    }
    const uint8_t* data() const noexcept { return data_; }
    R_INT column() const noexcept { return aside_ ? 0 : from_.left; }

private:
    static constexpr R_INT64 kApart = INT64_MIN;
    R_INT width() const noexcept { return from_.right - from_.left; }
    bool inOneRow() const noexcept { return sharedRows_ == 0; }
    void putAside() noexcept
    {
        copyBits(aside_.data(), 0, data_, R_INT64{from_.left} * bits_, R_INT64{width()} * bits_);
        data_ = aside_.data();
        if (mirror_ != nullptr) mirror_(aside_.data(), aside_.data(), static_cast<size_t>(width()), aside_.data());
    }

    RowCursor cursor_;
    RECT from_;
    R_INT bits_;
    R_INT64 rowBytes_;
    bool backwards_;
    R_INT64 sharedRows_ = kApart; // in pixels that are the target's too: how many rows further down the target lies
    simd::MirrorRow mirror_ = nullptr;
    RowBuffer aside_; // for a row that is mirrored, or that lies in the target's
    const uint8_t* data_ = nullptr;
    Status status_ = SUCCESS;
};

/// The rows of the target's rectangle. Takes its memory at construction.
class TargetRows {
public:
    TargetRows(BITMAPHANDLE* pDst, const RECT& to) noexcept
        : cursor_(pDst, RowMode::update), region_(pDst, to), to_(to), bits_(pDst->BitsPerPixel),
          status_(region_.status())
    {
        if (status_.ok()) status_ = cursor_.status();
        if (!status_.ok() || region_.whole()) return;
        aside_ = RowBuffer(pDst->BytesPerLine);
        if (!aside_) status_ = ERROR_FAILURE;
    }
    Status status() const noexcept { return status_; }

    /// Whether a row of the rectangle, counted from its first, may have something of the region.
    bool holds(R_INT index) const noexcept
    {
        const R_INT row = to_.top + index;
        return !region_.empty() && row >= region_.bounds().top && row < region_.bounds().bottom;
    }

    /// The first row where all are changed in place, and all of each may be; else null.
    uint8_t* inPlace() const noexcept { return cursor_.direct() && region_.whole() ? cursor_.row(to_.top) : nullptr; }
    /// Has `work` change pixels of a row, from column to.left on; what lies outside the region keeps its value.
    template <class Work> Status change(R_INT index, Work work) noexcept
    {
        const R_INT row = to_.top + index;
        if (cursor_.direct() && region_.whole()) {
            work(cursor_.row(row));
            return SUCCESS;
        }
        R_TRY(cursor_.open(row));
        if (region_.whole())
            work(cursor_.data());
        else
            R_TRY(changeInside(row, work));
        return cursor_.commit();
    }

private:
    /// Pieces of a region may overlap, and no pixel is to be changed twice.
    template <class Work> Status changeInside(R_INT row, Work work) noexcept
    {
        const R_SEGMENT* pieces = nullptr;
        R_UINT count = 0;
        R_TRY(region_.row(row, pieces, count));
        const R_INT64 first = columnByte(to_.left, bits_);
        const auto bytes = static_cast<size_t>(static_cast<R_INT64>(packedBytes(to_.right, bits_)) - first);
        std::memcpy(aside_.data() + first, cursor_.data() + first, bytes);
        work(aside_.data());
        for (R_UINT i = 0; i < count; ++i) {
            const R_INT64 left = R_INT64{pieces[i].nLeft} * bits_;
            copyBits(cursor_.data(), left, aside_.data(), left, R_INT64{pieces[i].nRight} * bits_ - left);
        }
        return SUCCESS;
    }

    RowCursor cursor_;
    Region region_;
    RECT to_;
    R_INT bits_;
    RowBuffer aside_;
    Status status_;
};

/// Stands for the rows of a source that is not read.
struct NoRows {
    Status status() const noexcept { return SUCCESS; }
    bool lastFirst() const noexcept { return false; }
    Status open(R_INT) const noexcept { return SUCCESS; }
    const uint8_t* inPlace(R_INT64) const noexcept { return nullptr; }
    const uint8_t* data() const noexcept { return nullptr; }
    R_INT column() const noexcept { return 0; }
};

/// The rectangle as it is stored, row by row.
template <class Source>
Status combineRows(BITMAPHANDLE* pDst, const RECT& to, Source& source, const CombineCode& code) noexcept
{
    TargetRows target(pDst, to);
    R_TRY(target.status());
    R_TRY(source.status());
    const R_INT width = to.right - to.left;
    RowCombiner rows(pDst, code, width);
    R_TRY(rows.status());

    const R_INT64 rowBytes = pDst->BytesPerLine;
    uint8_t* const first = target.inPlace();
    const uint8_t* const firstSource = code.readsSource() ? source.inPlace(rowBytes) : first;
    // Where nobody watches, rows need not come one by one.
    if (first != nullptr && firstSource != nullptr && threadSettings().statusCallback == nullptr &&
        rows.combineRows(first, to.left, firstSource, source.column(), width, to.bottom - to.top, rowBytes))
        return SUCCESS;

    const R_INT count = to.bottom - to.top;
    Progress progress = Progress::ofThread(count);
    R_TRY(progress.begin());
    for (R_INT step = 0; step < count; ++step) {
        const R_INT index = source.lastFirst() ? count - 1 - step : step;
        if (target.holds(index)) {
            R_TRY(source.open(index));
            R_TRY(target.change(
                index, [&](uint8_t* row) { rows.combine(row, to.left, source.data(), source.column(), width); }));
        }
        R_TRY(progress.step());
    }
    return SUCCESS;
}

Status combineFrom(BITMAPHANDLE* pSrc, const RECT& from, BITMAPHANDLE* pDst, const RECT& to,
                   const CombineCode& code) noexcept
{
    SourceRows source(pSrc, pDst, from, to);
    return combineRows(pDst, to, source, code);
}

/// A copy of a source in the target's perspective; freed in the end.
class TurnedSource {
public:
    TurnedSource(BITMAPHANDLE* pSrc, R_INT perspective) noexcept
        : status_(R_IntChangeBitmapViewPerspective(&record_, pSrc, BITMAPHANDLE_SIZE, perspective,
                                                   DUP_ALLOCATE | DUP_PALETTE | DUP_NEW_BITMAP))
    {
    }
    ~TurnedSource()
    {
        if (status_.ok()) R_FreeBitmap(&record_);
    }
    TurnedSource(const TurnedSource&) = delete;
    TurnedSource& operator=(const TurnedSource&) = delete;
    Status status() const noexcept { return status_; }
    BITMAPHANDLE* bitmap() noexcept { return &record_; }

private:
    BITMAPHANDLE record_ = {};
    Status status_;
};

/// The two bitmaps' rows are rows of the displayed image both, or columns both. pSrc is null where it is not read.
Status combineAccessed(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Rectangles& where,
                       const CombineCode& code) noexcept
{
    const RECT to = storedRectangle(pDst, where.to, where.size);
    BitmapAccess target(pDst);
    R_TRY(target.status());
    if (pSrc == nullptr) {
        NoRows none;
        return target.finish(combineRows(pDst, to, none, code));
    }

    const RECT from = storedRectangle(pSrc, where.from, where.size);
    BitmapAccess source(pSrc);
    R_TRY(source.status());
    return target.finish(source.finish(combineFrom(pSrc, from, pDst, to, code)));
}

Status combineDisplayed(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Rectangles& where,
                        const CombineCode& code) noexcept
{
    if (pSrc == nullptr || !needsCopy(pSrc, pDst)) return combineAccessed(pDst, pSrc, where, code);
    TurnedSource turned(pSrc, perspectiveOf(pDst));
    R_TRY(turned.status());
    return combineAccessed(pDst, turned.bitmap(), where, code);
}

/// A source that is read: pixels of the target's depth.
Status checkSource(const BITMAPHANDLE* pSrc, const BITMAPHANDLE* pDst) noexcept
{
    R_TRY(checkAllocated(pSrc, ERROR_INV_PARAMETER));
    R_TRY(checkWalkable(pSrc));
    return pSrc->BitsPerPixel == pDst->BitsPerPixel ? SUCCESS : ERROR_INV_PARAMETER;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_CombineBitmapKrn(BITMAPHANDLE* pDst, R_INT nXDst, R_INT nYDst, R_INT nWidth, R_INT nHeight, BITMAPHANDLE* pSrc,
                         R_INT nXSrc, R_INT nYSrc, R_UINT uFlags) noexcept
{
    R_TRY(checkAllocated(pDst, ERROR_INV_PARAMETER));
    if (!areCombineFlags(uFlags)) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pDst));
    if (pSrc != nullptr) R_TRY(checkStructSize(pSrc));
    R_TRY(checkWalkable(pDst));
    const CombineCode code = combineCodeOf(uFlags, pDst->BitsPerPixel == 1);
    BITMAPHANDLE* const source = code.readsSource() ? pSrc : nullptr;
    if (code.readsSource()) R_TRY(checkSource(pSrc, pDst));
    Rectangles where{{nXDst, nYDst}, {nXSrc, nYSrc}, {nWidth, nHeight}};
    if (!where.cutTo(pDst, source)) return ERROR_INV_PARAMETER;
    if (code.keepsTarget()) return Progress::ofThread(0).begin();
    return combineDisplayed(pDst, source, where, code);
}
