// Rotation by any angle. Quarters and halves move pixels exactly; for the rest each new pixel looks for its old one.
//
// Angles here are clockwise in stored rows and columns, where those of the interface are clockwise as displayed: a
// bitmap whose rows come bottom up is turned the other way.

#include "Internal/R_Int.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Replacement.h"
#include "Kernel/Geometry/Region.h"
#include "Kernel/Geometry/Sampling.h"
#include "Kernel/Geometry/TurnBitmap.h"
#include "R_Geometry.h"

#include <algorithm>
#include <cmath>

namespace rv {

namespace {

constexpr R_INT kQuarter = 9000;
constexpr R_INT kWhole = 4 * kQuarter;
constexpr R_UINT kRotateFlags = ROTATE_RESIZE | ROTATE_BILINEAR | ROTATE_CENTER | ROTATE_ALPHA;

constexpr R_INT normalised(R_INT64 angle) noexcept { return static_cast<R_INT>((angle % kWhole + kWhole) % kWhole); }

// --- Perspectives as turns

/// A perspective as one that shows rows as rows, and clockwise quarters that are to follow.
struct Stance {
    R_INT upright; ///< TOP_LEFT or BOTTOM_LEFT
    R_INT quarters;

    /// Whether what turns one way in stored rows and columns is displayed as turning the other way.
    constexpr bool mirrored() const noexcept { return upright == BOTTOM_LEFT; }
    constexpr bool operator==(const Stance&) const noexcept = default;
};
constexpr Stance kStances[LEFT_BOTTOM] = {{TOP_LEFT, 0},    {BOTTOM_LEFT, 2}, {TOP_LEFT, 2},    {BOTTOM_LEFT, 0},
                                          {BOTTOM_LEFT, 1}, {TOP_LEFT, 1},    {BOTTOM_LEFT, 3}, {TOP_LEFT, 3}};

constexpr const Stance& stanceOf(R_INT perspective) noexcept { return kStances[perspective - TOP_LEFT]; }
R_INT perspectiveOf(const Stance& stance) noexcept
{
    return TOP_LEFT + static_cast<R_INT>(std::find(kStances, std::end(kStances), stance) - kStances);
}

// --- Points in 14-bit fixed point, as the sine and cosine are

constexpr unsigned kPointBits = 14;
constexpr R_INT64 kPointOne = R_INT64{1} << kPointBits;

struct Point {
    R_INT64 x;
    R_INT64 y;
};

struct Size {
    R_INT width;
    R_INT height;
};

/// A point that may lie anywhere, but not so far that positions would not fit. ERROR_INV_PARAMETER.
Status pointOf(float x, float y, Point* point) noexcept
{
    constexpr double farthest = INT32_MAX;
    if (!(std::abs(x) <= farthest) || !(std::abs(y) <= farthest)) return ERROR_INV_PARAMETER; // nor is it a number
    *point = {std::llround(double{x} * kPointOne), std::llround(double{y} * kPointOne)};
    return SUCCESS;
}

/// A rotation: the angle, and the old picture's point that comes to lie on the new one's.
struct Rotation {
    R_INT angle;
    Point centre;
    Point newCentre;
    Size size; ///< of the new picture

    R_INT64 sine() const noexcept { return R_SinValue(angle); }
    R_INT64 cosine() const noexcept { return R_CosValue(angle); }
};

/// A length in whole pixels, one more where it is passed by four tenths.
R_INT64 roundedUp(R_INT64 length) noexcept { return (10 * length + 6 * kPointOne) / (10 * kPointOne); }

/// Makes room for the whole turned picture. ERROR_INV_SIZE.
Status growToFit(Rotation* rotation, R_INT64 width, R_INT64 height) noexcept
{
    Point least = {INT64_MAX, INT64_MAX}, most = {INT64_MIN, INT64_MIN};
    for (const Point corner : {Point{0, 0}, {width, 0}, {0, height}, {width, height}}) {
        const R_INT64 x = corner.x * kPointOne - rotation->centre.x, y = corner.y * kPointOne - rotation->centre.y;
        const Point turned = {(x * rotation->cosine() - y * rotation->sine()) >> kPointBits,
                              (x * rotation->sine() + y * rotation->cosine()) >> kPointBits};
        least = {std::min(least.x, turned.x), std::min(least.y, turned.y)};
        most = {std::max(most.x, turned.x), std::max(most.y, turned.y)};
    }
    const R_INT64 newWidth = roundedUp(most.x - least.x), newHeight = roundedUp(most.y - least.y);
    if (newWidth > INT32_MAX || newHeight > INT32_MAX) return ERROR_INV_SIZE;
    rotation->size = {static_cast<R_INT>(newWidth), static_cast<R_INT>(newHeight)};
    rotation->newCentre = {-least.x, -least.y};
    return SUCCESS;
}

/// Turns positions back: where the new picture's pixels lie on the old one.
LinearMapping mappingOf(const Rotation& rotation, R_INT width, R_INT height) noexcept
{
    static_assert(LinearMapping::kFineBits == 2 * kPointBits);
    constexpr R_INT64 half = kPointOne / 2;
    const R_INT64 sine = rotation.sine(), cosine = rotation.cosine();
    const Point first = {half - rotation.newCentre.x, half - rotation.newCentre.y}; // from the centre
    const Position origin = {rotation.centre.x * kPointOne + first.x * cosine + first.y * sine,
                             rotation.centre.y * kPointOne - first.x * sine + first.y * cosine};
    constexpr R_INT64 unit = R_INT64{1} << (kPositionBits - kPointBits);
    return LinearMapping(width, height, rotation.size.width, origin, {sine * kPointOne, cosine * kPointOne},
                         {cosine * unit, -sine * unit});
}

/// A region that lies on the pixels turns with them.
Status turnRegionAlong(BITMAPHANDLE* pBitmap, const Rotation& rotation) noexcept
{
    const auto number = [](R_INT64 fixed) noexcept {
        return static_cast<float>(static_cast<double>(fixed) / static_cast<double>(kPointOne));
    };
    return turnRegion(pBitmap, rotation.angle, {number(rotation.centre.x), number(rotation.centre.y)},
                      {number(rotation.newCentre.x), number(rotation.newCentre.y)}, rotation.size.width,
                      rotation.size.height);
}

Status fillRotated(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Rotation& rotation, R_UINT flags, COLORREF fill,
                   const PercentRange& range) noexcept
{
    R_TRY(checkWalkable(pDst));
    BitmapAccess source(pSrc);
    R_TRY(source.status());
    BitmapAccess target(pDst);
    R_TRY(target.status());
    const LinearMapping mapping = mappingOf(rotation, pSrc->Width, pSrc->Height);
    const Sampling how = {(flags & ROTATE_BILINEAR) != 0, fillPixel(pDst, fill, (flags & ROTATE_ALPHA) != 0)};
    Progress progress = Progress::ofThread(pDst->Height, range);
    Status status = progress.begin();
    if (status.ok()) status = sampleInto(pDst, pSrc, mapping, how, progress);
    status = target.finish(status);
    return source.finish(status);
}

/// Any angle, about any point.
Status rotateFreely(BITMAPHANDLE* pBitmap, R_INT upright, const Rotation& rotation, R_UINT flags, COLORREF fill,
                    const PercentRange& range) noexcept
{
    const Size size = rotation.size;
    Replacement rotated(nullptr, pBitmap, pBitmap->uStructSize, {size.width, size.height, pBitmap->BitsPerPixel});
    R_TRY(rotated.status());
    Status status = fillRotated(rotated.bitmap(), pBitmap, rotation, flags, fill, range);
    if (status.ok()) status = turnRegionAlong(pBitmap, rotation);
    if (!status.ok()) return rotated.fail(status);
    rotated.bitmap()->ViewPerspective = upright;
    if (showsRowsAsColumns(pBitmap->ViewPerspective)) takeResolutionsSideways(rotated.bitmap(), pBitmap);
    return rotated.commit();
}

// --- Exact turns

/// The rotation that a turn by quarters is, for a region.
Rotation rotationOf(const BITMAPHANDLE* pBitmap, const Turn& turn) noexcept
{
    constexpr R_INT64 half = kPointOne / 2;
    const Size size = turn.sideways() ? Size{pBitmap->Height, pBitmap->Width} : Size{pBitmap->Width, pBitmap->Height};
    return {turn.quarters * kQuarter,
            {pBitmap->Width * half, pBitmap->Height * half},
            {size.width * half, size.height * half},
            size};
}

/// Turns by quarters; the new bitmap has another perspective, maybe.
Status rotateExactly(BITMAPHANDLE* pBitmap, const Turn& turn, R_INT perspective, const PercentRange& range) noexcept
{
    const Rotation rotation = rotationOf(pBitmap, turn);
    if (turn == Turn{} || !turnsRegion(pBitmap)) { // a region could not be turned back
        bool done = false;
        R_TRY(changeWhereItIs(pBitmap, turn, perspective, &done, range));
        if (done) return SUCCESS;
    }
    const Size size = rotation.size;
    Replacement turned(nullptr, pBitmap, pBitmap->uStructSize, {size.width, size.height, pBitmap->BitsPerPixel});
    R_TRY(turned.status());
    Status status = fillTurned(turned.bitmap(), pBitmap, turn, perspective, range);
    if (status.ok()) status = turnRegionAlong(pBitmap, rotation);
    return status.ok() ? turned.commit() : turned.fail(status);
}

Status checkRotatable(const BITMAPHANDLE* pBitmap) noexcept
{
    if (!isViewPerspective(pBitmap->ViewPerspective)) return ERROR_INV_PARAMETER;
    return checkWalkable(pBitmap);
}

/// Whether quarters of a turn give what is asked for without a pixel between two others.
bool isExact(const BITMAPHANDLE* pBitmap, R_INT angle, R_UINT flags) noexcept
{
    if ((flags & ROTATE_CENTER) != 0 || angle % kQuarter != 0) return false;
    return angle % (2 * kQuarter) == 0 || (flags & ROTATE_RESIZE) != 0 || pBitmap->Width == pBitmap->Height;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_RotateBitmap(BITMAPHANDLE* pBitmap, R_INT nAngle, R_UINT uFlags, COLORREF crFill) noexcept
{
    if (pBitmap != nullptr) R_TRY(checkStructSize(pBitmap)); // the other form says what null is
    return R_IntRotateBitmap(pBitmap, nAngle, uFlags, crFill, 0, 100, 0, 0);
}

R_INT R_IntRotateBitmap(BITMAPHANDLE* pBitmap, R_INT nAngle, R_UINT uFlags, COLORREF crFill, R_INT nFirst, R_INT nLast,
                        float fX, float fY) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pBitmap));
    if ((uFlags & ~kRotateFlags) != 0) return ERROR_INV_PARAMETER;
    R_TRY(checkRotatable(pBitmap));
    const Stance stance = stanceOf(pBitmap->ViewPerspective);
    const R_INT displayed = normalised(R_INT64{nAngle} + stance.quarters * kQuarter);
    const R_INT angle = stance.mirrored() ? normalised(-displayed) : displayed;
    const PercentRange range = {nFirst, nLast};
    if (isExact(pBitmap, angle, uFlags))
        return rotateExactly(pBitmap, {false, angle / kQuarter}, stance.upright, range);

    if ((uFlags & ROTATE_CENTER) == 0) {
        fX = static_cast<float>(pBitmap->Width) * 0.5f;
        fY = static_cast<float>(pBitmap->Height) * 0.5f;
    }
    Rotation rotation = {angle, {}, {}, {pBitmap->Width, pBitmap->Height}};
    R_TRY(pointOf(fX, fY, &rotation.centre));
    rotation.newCentre = rotation.centre;
    if ((uFlags & (ROTATE_RESIZE | ROTATE_CENTER)) != 0) R_TRY(growToFit(&rotation, pBitmap->Width, pBitmap->Height));
    return rotateFreely(pBitmap, stance.upright, rotation, uFlags, crFill, range);
}

R_INT R_RotateBitmap90(BITMAPHANDLE* pBitmap, R_INT nDirection, R_INT nFirst, R_INT nLast) noexcept
{
    if (pBitmap != nullptr) R_TRY(checkStructSize(pBitmap));
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    if (nDirection != 0 && nDirection != 1) return ERROR_INV_PARAMETER;
    R_TRY(checkRotatable(pBitmap));
    const bool clockwise = (nDirection == 1) != stanceOf(pBitmap->ViewPerspective).mirrored();
    return rotateExactly(pBitmap, {false, clockwise ? 1 : 3}, pBitmap->ViewPerspective, {nFirst, nLast});
}

R_INT R_RotateBitmapViewPerspective(BITMAPHANDLE* pBitmap, R_INT nAngle) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_BITMAP;
    R_TRY(checkStructSize(pBitmap));
    if (nAngle % kQuarter != 0 || !isViewPerspective(pBitmap->ViewPerspective)) return ERROR_INV_PARAMETER;
    const Stance stance = stanceOf(pBitmap->ViewPerspective);
    pBitmap->ViewPerspective = perspectiveOf({stance.upright, (stance.quarters + normalised(nAngle) / kQuarter) % 4});
    return SUCCESS;
}
