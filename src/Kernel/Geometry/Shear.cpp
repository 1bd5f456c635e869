// Rows, or columns, that move the farther the farther they are from one that stays.

#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Replacement.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Geometry/Perspective.h"
#include "Kernel/Geometry/Sampling.h"
#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/FillRow.h"
#include "R_Geometry.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace rv {

namespace {

/// Ways that rows move, in units of 2^-28 pixels: of 100,000 rows the last one still is where it should be.
constexpr unsigned kFineBits = LinearMapping::kFineBits;
constexpr R_INT64 kFinePixel = R_INT64{1} << kFineBits;
constexpr R_INT64 kFineHalf = kFinePixel / 2;

constexpr R_INT kSteepest = 8900;

/// The tangent of hundredths of a degree, in such units. The series of sine and cosine are summed here because the
/// standard functions may differ in their last bits from system to system, and so could pictures.
R_INT64 tangentOf(R_INT angle) noexcept
{
    constexpr double kPi = 3.14159265358979323846;
    const double x = angle * (kPi / 18000);
    double sine = 0, cosine = 0, power = 1;
    for (int n = 0; n < 24; n += 2) { // x is below 1.56: what follows would not be seen
        const double sign = n % 4 == 0 ? 1 : -1;
        cosine += sign * power;
        power = power * x / (n + 1);
        sine += sign * power;
        power = power * x / (n + 2);
    }
    const double tangent = sine / cosine * static_cast<double>(kFinePixel);
    return static_cast<R_INT64>(tangent < 0 ? tangent - 0.5 : tangent + 0.5);
}

/// How the lines of a picture, its rows or its columns, move along themselves: line i by first + i * step, which is
/// nothing for one of the outermost lines, and no less for any. In units of 2^-28 pixels.
struct Slide {
    bool columns = false;
    R_INT64 first = 0;
    R_INT64 step = 0;
    R_INT growth = 0; ///< whole pixels that the picture needs more
};

/// As displayed: of the rows the upper ones move to the right, of the columns the right ones down, or the others.
/// `lines` of them. ERROR_INV_SIZE where nothing of that size can be.
Status slideOf(bool columns, R_INT lines, R_INT angle, Slide* slide) noexcept
{
    const R_INT64 tangent = tangentOf(angle);
    const R_INT64 slope = tangent < 0 ? -tangent : tangent;
    const R_INT64 others = std::max(lines - 1, 0);
    if (others > (R_INT64{1} << 59) / std::max<R_INT64>(slope, 1)) return ERROR_INV_SIZE;
    const R_INT64 farthest = slope * others;
    const R_INT64 growth = (farthest + kFineHalf - 1) >> kFineBits; // as far as the centres of its pixels move
    if (growth > std::numeric_limits<R_INT>::max()) return ERROR_INV_SIZE;
    const bool rising = columns == (tangent > 0); // the last line moves, and not the first
    *slide = {columns, rising ? 0 : farthest, rising ? slope : -slope, static_cast<R_INT>(growth)};
    return SUCCESS;
}

/// The same movement of the picture as it is stored.
Slide storedSlide(const Slide& shown, R_INT lines, R_INT perspective) noexcept
{
    const Turn turn = turnBetween(perspective, TOP_LEFT);
    Slide stored = shown;
    stored.columns = shown.columns != turn.sideways();
    const bool linesBackwards = stored.columns ? turn.columnsBackwards() : turn.rowsBackwards();
    const bool alongBackwards = stored.columns ? turn.rowsBackwards() : turn.columnsBackwards();
    if (linesBackwards) {
        stored.first += stored.step * (R_INT64{lines} - 1);
        stored.step = -stored.step;
    }
    if (alongBackwards) {
        stored.first = (R_INT64{stored.growth} << kFineBits) - stored.first;
        stored.step = -stored.step;
    }
    return stored;
}

constexpr R_INT64 floorDivide(R_INT64 a, R_INT64 b) noexcept { return a / b - (a % b != 0 && (a < 0) != (b < 0)); }

/// Columns that have moved. What a linear mapping adds from column to column would be too coarse for it.
class MovedColumns final : public Mapping {
public:
    MovedColumns(const BITMAPHANDLE* old, const Slide& slide) noexcept
        : width_(old->Width), height_(R_INT64{old->Height} << kFineBits), slide_(slide)
    {
    }

    Span inside(R_INT row) const noexcept override
    {
        // 0 <= above - step * column < height
        const R_INT64 above = rowCentre(row) - slide_.first;
        const R_INT64 below = above - height_;
        const R_INT64 step = slide_.step;
        const R_INT64 first = step > 0 ? floorDivide(below, step) + 1 : -floorDivide(above, -step);
        const R_INT64 end = step > 0 ? floorDivide(above, step) + 1 : -floorDivide(below, -step);
        Span span;
        span.first = static_cast<R_INT>(std::clamp<R_INT64>(first, 0, width_));
        span.end = static_cast<R_INT>(std::clamp<R_INT64>(end, span.first, width_));
        return span;
    }
    /// How many columns from one on, which lies on the old picture, show pixels of one row.
    R_INT64 sameRow(R_INT row, R_INT column) const noexcept
    {
        const R_INT64 within = (rowCentre(row) - slide_.first - slide_.step * column) & (kFinePixel - 1);
        return slide_.step > 0 ? within / slide_.step + 1 : (kFinePixel - 1 - within) / -slide_.step + 1;
    }
    Position at(R_INT row, R_INT column) const noexcept override
    {
        return {(R_INT64{column} << kPositionBits) + (1 << (kPositionBits - 1)),
                (rowCentre(row) - slide_.first - slide_.step * column) >> (kFineBits - kPositionBits)};
    }
    void locate(R_INT row, R_INT column, size_t count, const Position& origin, int32_t* x,
                int32_t* y) const noexcept override
    {
        constexpr unsigned finer = kFineBits - kPositionBits;
        const Position first = at(row, column);
        R_INT64 down = rowCentre(row) - slide_.first - slide_.step * column - (origin.y << finer);
        for (size_t i = 0; i < count; ++i, down -= slide_.step) {
            x[i] = static_cast<int32_t>(first.x - origin.x + (static_cast<R_INT64>(i) << kPositionBits));
            y[i] = static_cast<int32_t>(down >> finer);
        }
    }

private:
    static R_INT64 rowCentre(R_INT row) noexcept { return (R_INT64{row} << kFineBits) + kFineHalf; }

    R_INT width_;
    R_INT64 height_;
    Slide slide_;
};

LinearMapping movedRows(const BITMAPHANDLE* old, R_INT columns, const Slide& slide) noexcept
{
    return LinearMapping(old->Width, old->Height, columns, {kFineHalf - slide.first, kFineHalf},
                         {-slide.step, kFinePixel}, {1 << kPositionBits, 0});
}

/// Pixels that move by whole rows or columns are copied as they are, with fill on both sides.
class Copier {
public:
    Copier(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc) noexcept
        : target_(pDst, RowMode::write), source_(pSrc, RowMode::read), beside_(pDst->BytesPerLine),
          bits_(pDst->BitsPerPixel), height_(pDst->Height), rowBits_(R_INT64{pDst->BytesPerLine} * 8)
    {
    }
    Status status() const noexcept
    {
        R_TRY(target_.status());
        R_TRY(source_.status());
        return beside_ ? SUCCESS : ERROR_FAILURE;
    }
    /// Whether the old rows can be had all at once.
    bool direct() const noexcept { return source_.direct(); }

    Status moveRows(const LinearMapping& mapping, Progress& progress) noexcept
    {
        return forEachRow(mapping, progress, [&](R_INT row, Span inside) noexcept -> Status {
            R_TRY(source_.open(row));
            const R_INT64 from = mapping.at(row, inside.first).x >> kPositionBits;
            copyBits(target_.data(), inside.first * bits_, source_.data(), from * bits_,
                     (inside.end - inside.first) * bits_);
            return SUCCESS;
        });
    }
    /// direct() only.
    Status moveColumns(const MovedColumns& mapping, Progress& progress) noexcept
    {
        return forEachRow(mapping, progress, [&](R_INT row, Span inside) noexcept -> Status {
            for (R_INT64 column = inside.first, count = 0; column < inside.end; column += count) {
                const auto first = static_cast<R_INT>(column);
                count = std::min(mapping.sameRow(row, first), inside.end - column);
                const uint8_t* const from = source_.row(mapping.at(row, first).y >> kPositionBits);
                copyBits(target_.data(), column * bits_, from, column * bits_, count * bits_);
            }
            return SUCCESS;
        });
    }
    void fillWith(BITMAPHANDLE* pDst, StoredPixel fill) noexcept
    {
        fillRow(beside_.data(), pDst->BytesPerLine, pDst->Width, pDst->BitsPerPixel, fill.bits);
    }

private:
    template <class Copy> Status forEachRow(const Mapping& mapping, Progress& progress, Copy copy) noexcept
    {
        for (R_INT row = 0; row < height_; ++row) {
            const Span inside = mapping.inside(row);
            R_TRY(target_.open(row));
            copyBits(target_.data(), 0, beside_.data(), 0, inside.first * bits_);
            R_TRY(copy(row, inside));
            const R_INT64 end = inside.end * bits_;
            copyBits(target_.data(), end, beside_.data(), end, rowBits_ - end);
            R_TRY(target_.commit());
            R_TRY(progress.step());
        }
        return SUCCESS;
    }

    RowCursor target_;
    RowCursor source_;
    RowBuffer beside_;
    R_INT64 bits_;
    R_INT height_;
    R_INT64 rowBits_;
};

/// From here on columns change their row too often to be copied in pieces.
constexpr R_INT64 kSteep = kFinePixel / 6;

Status moveLines(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Slide& slide, const Sampling& how,
                 Progress& progress) noexcept
{
    R_TRY(progress.begin());
    const MovedColumns columns(pSrc, slide);
    const LinearMapping rows = movedRows(pSrc, pDst->Width, slide);
    if (!how.bilinear) {
        Copier copier(pDst, pSrc);
        R_TRY(copier.status());
        copier.fillWith(pDst, how.fill);
        if (!slide.columns) return copier.moveRows(rows, progress);
        if (copier.direct() && std::abs(slide.step) < kSteep) return copier.moveColumns(columns, progress);
    }
    return slide.columns ? sampleInto(pDst, pSrc, columns, how, progress) : sampleInto(pDst, pSrc, rows, how, progress);
}

Status fillSheared(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Slide& slide, const Sampling& how) noexcept
{
    R_TRY(checkWalkable(pDst)); // rows as the record counts them, which very wide ones do not fit
    BitmapAccess source(pSrc);
    R_TRY(source.status());
    BitmapAccess target(pDst);
    R_TRY(target.status());
    Progress progress = Progress::ofThread(pDst->Height);
    return source.finish(target.finish(moveLines(pDst, pSrc, slide, how, progress)));
}

Status shear(BITMAPHANDLE* pBitmap, R_INT angle, R_UINT flags, COLORREF crFill) noexcept
{
    const bool columns = (flags & SHEAR_VERTICAL) != 0;
    const bool linesAreRows = columns == showsRowsAsColumns(pBitmap->ViewPerspective);
    const R_INT lines = linesAreRows ? pBitmap->Height : pBitmap->Width;
    Slide shown;
    R_TRY(slideOf(columns, lines, angle, &shown));
    const Slide slide = storedSlide(shown, lines, pBitmap->ViewPerspective);

    const R_INT64 width = R_INT64{pBitmap->Width} + (slide.columns ? 0 : slide.growth);
    const R_INT64 height = R_INT64{pBitmap->Height} + (slide.columns ? slide.growth : 0);
    if (std::max(width, height) > std::numeric_limits<R_INT>::max()) return ERROR_INV_SIZE;
    Replacement sheared(nullptr, pBitmap, pBitmap->uStructSize,
                        {static_cast<R_INT>(width), static_cast<R_INT>(height), pBitmap->BitsPerPixel});
    R_TRY(sheared.status());
    const Sampling how = {(flags & SHEAR_BILINEAR) != 0, fillPixel(pBitmap, crFill, (flags & SHEAR_ALPHA) != 0)};
    const Status filled = fillSheared(sheared.bitmap(), pBitmap, slide, how);
    return filled.ok() ? sheared.commit() : sheared.fail(filled);
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_ShearBitmap(BITMAPHANDLE* pBitmap, R_INT nAngle, R_UINT uFlags, COLORREF crFill) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pBitmap));
    const bool known = (uFlags & ~(SHEAR_VERTICAL | SHEAR_BILINEAR | SHEAR_ALPHA)) == 0;
    if (!known || nAngle < -kSteepest || nAngle > kSteepest || !isViewPerspective(pBitmap->ViewPerspective))
        return ERROR_INV_PARAMETER;
    R_TRY(checkWalkable(pBitmap));
    return nAngle != 0 ? shear(pBitmap, nAngle, uFlags, crFill) : Progress::ofThread(0).begin();
}
