// From one view perspective to another: the turn between them, and the points and rectangles that it moves.

#include "Kernel/Geometry/Perspective.h"

#include "R_Geometry.h"

#include <utility>

namespace rv {

namespace {

/// What makes an image in each perspective one in TOP_LEFT.
constexpr Turn kToTopLeft[] = {{false, 0}, {true, 2},  {false, 2}, {true, 0},
                               {true, 1},  {false, 1}, {true, 3},  {false, 3}};

/// Lines between pixels, as a rectangle names them: right and bottom stand behind its last ones. 64 bits hold what
/// becomes of any numbers that a caller may bring.
struct Edges {
    R_INT64 left, top, right, bottom;
};

Edges turnEdges(const Turn& turn, R_INT64 width, R_INT64 height, Edges e) noexcept
{
    if (turn.flip) e = {e.left, height - e.bottom, e.right, height - e.top};
    switch (turn.quarters) {
    case 1: return {height - e.bottom, e.left, height - e.top, e.right};
    case 2: return {width - e.right, height - e.bottom, width - e.left, height - e.top};
    case 3: return {e.top, width - e.right, e.bottom, width - e.left};
    default: return e;
    }
}

void turnRect(const Turn& turn, R_INT64 width, R_INT64 height, RECT* pRect) noexcept
{
    const Edges e = turnEdges(turn, width, height, {pRect->left, pRect->top, pRect->right, pRect->bottom});
    *pRect = {static_cast<R_INT>(e.left), static_cast<R_INT>(e.top), static_cast<R_INT>(e.right),
              static_cast<R_INT>(e.bottom)};
}

/// A point is a pixel: a rectangle of one.
void turnPoint(const Turn& turn, R_INT64 width, R_INT64 height, R_INT* px, R_INT* py) noexcept
{
    const Edges e = turnEdges(turn, width, height, {*px, *py, R_INT64{*px} + 1, R_INT64{*py} + 1});
    *px = static_cast<R_INT>(e.left);
    *py = static_cast<R_INT>(e.top);
}

/// A change between a perspective and a bitmap's, and the size that positions are counted in.
struct Change {
    Turn turn;
    R_INT64 width;
    R_INT64 height;
};

/// Into the bitmap's perspective. The size is the displayed one; for two of the perspectives that show rows as columns
/// it is exchanged, for the other two not. Kept: callers have come to terms with it.
Change changeInto(const BITMAPHANDLE* pBitmap, R_INT from) noexcept
{
    Change change = {turnBetween(from, pBitmap->ViewPerspective), pBitmap->Width, pBitmap->Height};
    const bool exchanged = from == RIGHT_TOP || from == LEFT_BOTTOM;
    if (showsRowsAsColumns(pBitmap->ViewPerspective) != exchanged) std::swap(change.width, change.height);
    return change;
}

Change changeFrom(const BITMAPHANDLE* pBitmap, R_INT to) noexcept
{
    return {turnBetween(pBitmap->ViewPerspective, to), pBitmap->Width, pBitmap->Height};
}

/// What the calls for points and rectangles have in common. Perspectives outside the eight are the one family's
/// mistake and the other's nothing to do: `unknown` answers for them.
template <class Move>
Status convert(const BITMAPHANDLE* pBitmap, R_INT perspective, R_INT unknown,
               Change (*changeOf)(const BITMAPHANDLE*, R_INT) noexcept, Move move) noexcept
{
    R_TRY(checkStructSize(pBitmap));
    if (perspective == pBitmap->ViewPerspective) return SUCCESS;
    if (!isViewPerspective(perspective) || !isViewPerspective(pBitmap->ViewPerspective)) return unknown;
    const Change change = changeOf(pBitmap, perspective);
    move(change.turn, change.width, change.height);
    return SUCCESS;
}

Status convertPoint(const BITMAPHANDLE* pBitmap, R_INT perspective, R_INT* px, R_INT* py,
                    Change (*changeOf)(const BITMAPHANDLE*, R_INT) noexcept) noexcept
{
    if (pBitmap == nullptr || px == nullptr || py == nullptr) return ERROR_INV_PARAMETER;
    return convert(pBitmap, perspective, ERROR_INV_PARAMETER, changeOf,
                   [=](const Turn& turn, R_INT64 width, R_INT64 height) { turnPoint(turn, width, height, px, py); });
}

Status convertRect(const BITMAPHANDLE* pBitmap, R_INT perspective, RECT* pRect,
                   Change (*changeOf)(const BITMAPHANDLE*, R_INT) noexcept) noexcept
{
    if (pBitmap == nullptr || pRect == nullptr) return ERROR_INV_PARAMETER;
    return convert(pBitmap, perspective, SUCCESS, changeOf,
                   [=](const Turn& turn, R_INT64 width, R_INT64 height) { turnRect(turn, width, height, pRect); });
}

} // namespace

Turn turnBetween(R_INT from, R_INT to) noexcept
{
    // To TOP_LEFT, and from there the other way. A flip between two quarter turns reverses the first.
    const Turn& first = kToTopLeft[from - TOP_LEFT];
    const Turn& back = kToTopLeft[to - TOP_LEFT];
    const R_INT quarters = back.flip ? back.quarters - first.quarters : first.quarters - back.quarters;
    return {first.flip != back.flip, (quarters + 4) % 4};
}

} // namespace rv

using namespace rv;

R_INT R_GetChangeViewPerspectiveParams(R_INT nFrom, R_INT nTo, R_INT* pbFlip, R_INT* pnAngle) noexcept
{
    if (!isViewPerspective(nFrom) || pbFlip == nullptr || pnAngle == nullptr) return ERROR_INV_PARAMETER;
    if (!isViewPerspective(nTo)) return ERROR_INV_PARAMETER;
    const Turn turn = turnBetween(nFrom, nTo);
    *pbFlip = turn.flip ? 1 : 0;
    *pnAngle = turn.quarters * 90;
    return SUCCESS;
}

R_INT R_ChangeRectViewPerspective(R_INT nFrom, R_INT nWidth, R_INT nHeight, R_INT nTo, RECT* pRect) noexcept
{
    if (pRect == nullptr) return ERROR_INV_PARAMETER;
    if (isViewPerspective(nFrom) && isViewPerspective(nTo)) turnRect(turnBetween(nFrom, nTo), nWidth, nHeight, pRect);
    return SUCCESS;
}

R_INT R_PointToBitmap(BITMAPHANDLE* pBitmap, R_INT nViewPerspective, R_INT* px, R_INT* py) noexcept
{
    return convertPoint(pBitmap, nViewPerspective, px, py, changeInto);
}

R_INT R_PointFromBitmap(BITMAPHANDLE* pBitmap, R_INT nViewPerspective, R_INT* px, R_INT* py) noexcept
{
    return convertPoint(pBitmap, nViewPerspective, px, py, changeFrom);
}

R_INT R_RectToBitmap(BITMAPHANDLE* pBitmap, R_INT nViewPerspective, RECT* pRect) noexcept
{
    return convertRect(pBitmap, nViewPerspective, pRect, changeInto);
}

R_INT R_RectFromBitmap(BITMAPHANDLE* pBitmap, R_INT nViewPerspective, RECT* pRect) noexcept
{
    return convertRect(pBitmap, nViewPerspective, pRect, changeFrom);
}
