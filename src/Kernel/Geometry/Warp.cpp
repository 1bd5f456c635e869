// What lies inside a quadrilateral, as a rectangle.

#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Replacement.h"
#include "Kernel/Geometry/Perspective.h"
#include "Kernel/Geometry/Sampling.h"
#include "R_Geometry.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace rv {

namespace {

/// How far away corners may lie. What rounding does to a position stays below 2^-16 pixels so.
constexpr double kFarthest = 1 << 30;
/// How near, by the scale of all, the farthest side of a sheet may come to being infinitely far.
constexpr double kLeastDepth = 1e-6;

/// Four corners in the order of top left, top right, bottom right, bottom left.
struct Corners {
    R_POINTF at[4];
};

/// Twice the area of a triangle; which way round it goes is the sign.
double turning(const R_POINTF& a, const R_POINTF& b, const R_POINTF& c) noexcept
{
    return (b.x - a.x) * (c.y - b.y) - (b.y - a.y) * (c.x - b.x);
}

/// Whether four points turn the same way at each corner. Either way will do: a sheet may be seen in a mirror.
bool isConvex(const Corners& corners) noexcept
{
    int left = 0, right = 0;
    for (unsigned i = 0; i < 4; ++i) {
        const R_POINTF& corner = corners.at[i];
        if (!(std::abs(corner.x) <= kFarthest && std::abs(corner.y) <= kFarthest)) return false; // no number is neither
        const double turn = turning(corner, corners.at[(i + 1) % 4], corners.at[(i + 2) % 4]);
        left += turn < 0;
        right += turn > 0;
    }
    return left == 4 || right == 4;
}

R_POINTF turned(const Turn& turn, double width, double height, R_POINTF p) noexcept
{
    if (turn.flip) p.y = height - p.y;
    switch (turn.quarters) {
    case 1: return {height - p.y, p.x};
    case 2: return {width - p.x, height - p.y};
    case 3: return {p.y, width - p.x};
    default: return p;
    }
}

/// The corners that become those of the stored new picture, in stored columns and rows of the old one. Both are of one
/// perspective.
Corners storedCorners(const BITMAPHANDLE* pBitmap, const Corners& shown) noexcept
{
    const Turn toShown = turnBetween(pBitmap->ViewPerspective, TOP_LEFT);
    const Turn toStored = turnBetween(TOP_LEFT, pBitmap->ViewPerspective);
    const bool sideways = toShown.sideways();
    const double shownWidth = sideways ? pBitmap->Height : pBitmap->Width;
    const double shownHeight = sideways ? pBitmap->Width : pBitmap->Height;
    constexpr R_POINTF kUnits[] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    Corners stored{};
    for (unsigned i = 0; i < 4; ++i) {
        const R_POINTF unit = turned(toShown, 1, 1, kUnits[i]);
        const unsigned corner = unit.y > 0.5 ? (unit.x > 0.5 ? 2 : 3) : (unit.x > 0.5 ? 1 : 0);
        stored.at[i] = turned(toStored, shownWidth, shownHeight, shown.at[corner]);
    }
    return stored;
}

/// perColumn * column + perRow * row + start
struct Plane {
    double perColumn;
    double perRow;
    double start;

    double operator()(double column, double row) const noexcept { return perColumn * column + perRow * row + start; }
    /// The same along a row of pixel centres, whose columns are counted from the first centre on.
    Plane alongRow(R_INT row) const noexcept { return {perColumn, 0, (*this)(0.5, row + 0.5)}; }
};

/// The projective mapping from a rectangle's corners to four points: P. Heckbert, "Fundamentals of Texture Mapping and
/// Image Warping", 1989, section 2.2.3. A new pixel lies at (x / w, y / w).
class Projection final : public Mapping {
public:
    Projection(const Corners& corners, R_INT width, R_INT height, const BITMAPHANDLE* old) noexcept
        : columns_(width), width_(old->Width), height_(old->Height)
    {
        const auto& [a, b, c, d] = corners.at;
        const R_POINTF sum = {a.x - b.x + c.x - d.x, a.y - b.y + c.y - d.y};
        const R_POINTF right = {b.x - c.x, b.y - c.y}, low = {d.x - c.x, d.y - c.y};
        const double area = right.x * low.y - low.x * right.y;
        const double g = (sum.x * low.y - low.x * sum.y) / area;
        const double h = (right.x * sum.y - sum.x * right.y) / area;
        x_ = {(b.x - a.x + g * b.x) / width, (d.x - a.x + h * d.x) / height, a.x};
        y_ = {(b.y - a.y + g * b.y) / width, (d.y - a.y + h * d.y) / height, a.y};
        w_ = {g / width, h / height, 1};
        const double least = std::min(std::min(1.0, 1 + g), std::min(1 + h, 1 + g + h));
        sound_ = least > kLeastDepth * (1 + std::abs(g) + std::abs(h));
    }

    /// Whether every new pixel has its place: w is above 0 at all corners, beyond any doubt that rounding leaves. So it
    /// is for a convex quadrilateral that is not all but flat.
    bool sound() const noexcept { return sound_; }

    Span inside(R_INT row) const noexcept override
    {
        const auto [x, y, w] = alongRow(row);
        Range range = {0, static_cast<double>(columns_)};
        range.keep(x.perColumn, x.start);
        range.keep(y.perColumn, y.start);
        range.keepBelow(x, w, width_);
        range.keepBelow(y, w, height_);
        if (!(range.first < range.end)) return {0, 0};
        return {static_cast<R_INT>(range.first), static_cast<R_INT>(range.end)};
    }
    Position at(R_INT row, R_INT column) const noexcept override
    {
        const Place place = alongRow(row)(column);
        return {static_cast<R_INT64>(std::clamp(place.x, 0.0, width_ * kUnit - 1)),
                static_cast<R_INT64>(std::clamp(place.y, 0.0, height_ * kUnit - 1))};
    }
    void locate(R_INT row, R_INT column, size_t count, const Position& origin, int32_t* x,
                int32_t* y) const noexcept override
    {
        const Line line = alongRow(row);
        const auto left = static_cast<double>(origin.x), top = static_cast<double>(origin.y);
        for (size_t i = 0; i < count; ++i) { // which has no branches, and is done several pixels at a time
            const Place place = line(column + static_cast<R_INT>(i));
            x[i] = static_cast<int32_t>(place.x - left);
            y[i] = static_cast<int32_t>(place.y - top);
        }
    }

private:
    static constexpr double kUnit = 1 << kPositionBits;

    /// In units of 2^-16 pixels.
    struct Place {
        double x;
        double y;
    };
    /// The three planes along a row.
    struct Line {
        Plane x, y, w;

        Place operator()(R_INT column) const noexcept
        {
            const double scale = kUnit / (w.perColumn * column + w.start);
            return {(x.perColumn * column + x.start) * scale, (y.perColumn * column + y.start) * scale};
        }
    };
    Line alongRow(R_INT row) const noexcept { return {x_.alongRow(row), y_.alongRow(row), w_.alongRow(row)}; }

    /// Columns from first to before end; whole numbers.
    struct Range {
        double first;
        double end;

        /// Keeps the columns where a * column + b >= 0.
        void keep(double a, double b) noexcept
        {
            if (a > 0)
                first = std::max(first, std::ceil(-b / a));
            else if (a < 0)
                end = std::min(end, std::floor(-b / a) + 1);
            else if (!(b >= 0))
                end = first;
        }
        void keepBelow(const Plane& v, const Plane& w, double most) noexcept
        {
            keep(most * w.perColumn - v.perColumn, most * w.start - v.start);
        }
    };

    R_INT columns_;
    double width_;
    double height_;
    Plane x_{};
    Plane y_{};
    Plane w_{};
    bool sound_;
};

double distance(const R_POINTF& a, const R_POINTF& b) noexcept
{
    const double x = b.x - a.x, y = b.y - a.y;
    return std::sqrt(x * x + y * y);
}

/// A side of the new picture: as asked for, else the longer one of two of the sheet.
Status sideOf(R_INT wanted, double one, double other, R_INT* side) noexcept
{
    const double longer = std::floor(std::max(one, other) + 0.5);
    if (wanted < 0 || (wanted == 0 && longer > std::numeric_limits<R_INT>::max())) return ERROR_INV_SIZE;
    *side = wanted > 0 ? wanted : std::max(static_cast<R_INT>(longer), 1);
    return SUCCESS;
}

Status fillWarped(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Projection& projection, const Sampling& how) noexcept
{
    R_TRY(checkWalkable(pDst)); // rows as the record counts them, which very wide ones do not fit
    BitmapAccess source(pSrc);
    R_TRY(source.status());
    BitmapAccess target(pDst);
    R_TRY(target.status());
    Progress progress = Progress::ofThread(pDst->Height);
    Status status = progress.begin();
    if (status.ok()) status = sampleInto(pDst, pSrc, projection, how, progress);
    return source.finish(target.finish(status));
}

Status warp(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, const Corners& shown, R_INT width, R_INT height,
            const Sampling& how) noexcept
{
    const auto& [a, b, c, d] = shown.at;
    R_TRY(sideOf(width, distance(a, b), distance(d, c), &width));
    R_TRY(sideOf(height, distance(a, d), distance(b, c), &height));
    if (showsRowsAsColumns(pSrc->ViewPerspective)) std::swap(width, height);
    const Projection projection(storedCorners(pSrc, shown), width, height, pSrc);
    if (!projection.sound()) return ERROR_INV_PARAMETER;

    Replacement warped(pDst, pSrc, uStructSize, {width, height, pSrc->BitsPerPixel});
    R_TRY(warped.status());
    const Status filled = fillWarped(warped.bitmap(), pSrc, projection, how);
    return filled.ok() ? warped.commit() : warped.fail(filled);
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_WarpBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, const R_POINTF* pCorners, R_INT nWidth,
                   R_INT nHeight, R_UINT uFlags, COLORREF crFill) noexcept
{
    R_TRY(checkAllocated(pSrc, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pSrc));
    const bool inPlace = pDst == nullptr || pDst == pSrc;
    if (!inPlace && !isStructSize(uStructSize)) return ERROR_INV_STRUCT_SIZE;
    if (pCorners == nullptr || (uFlags & ~(WARP_BILINEAR | WARP_ALPHA)) != 0) return ERROR_INV_PARAMETER;
    const Corners corners = {{pCorners[0], pCorners[1], pCorners[2], pCorners[3]}};
    if (!isConvex(corners) || !isViewPerspective(pSrc->ViewPerspective)) return ERROR_INV_PARAMETER;
    R_TRY(checkWalkable(pSrc));
    const Sampling how = {(uFlags & WARP_BILINEAR) != 0, fillPixel(pSrc, crFill, (uFlags & WARP_ALPHA) != 0)};
    return warp(pDst, pSrc, inPlace ? pSrc->uStructSize : uStructSize, corners, nWidth, nHeight, how);
}
