#include "Internal/R_Int.h"
#include "Support/Calls.h"

namespace rv::test {

namespace {

/// Where a point came to, of the answers.
R_INT64 moved(World& w, R_INT64 status, R_INT x, R_INT y)
{
    w.answers.number[0] = static_cast<R_UINT>(x);
    w.answers.number[1] = static_cast<R_UINT>(y);
    return status;
}

template <class F> R_INT64 movePoint(World& w, F call)
{
    R_INT x = 3, y = 5;
    const R_INT64 status = call(w.a, RIGHT_TOP, &x, &y);
    return moved(w, status, x, y);
}

template <class F> R_INT64 moveRect(World& w, F call)
{
    RECT rect = {3, 5, 8, 9};
    const R_INT64 status = call(&rect);
    return moved(w, status, rect.left, rect.bottom);
}

/// A new bitmap in another perspective, whose rows go into the answers.
R_INT64 turned(World& w)
{
    const R_INT64 status =
        R_IntChangeBitmapViewPerspective(w.spare, w.a, w.a->uStructSize, RIGHT_BOTTOM, DUP_PALETTE | DUP_NEW_BITMAP);
    if (status != SUCCESS) return status;
    uint8_t pixel[8] = {};
    for (R_INT row = 0; row < w.spare->Height; ++row) {
        (void)R_GetPixelData(w.spare, pixel, row, row % w.spare->Width, sizeof pixel);
        for (const uint8_t byte : pixel) w.answers.size = w.answers.size * 31 + byte;
    }
    R_FreeBitmap(w.spare);
    return SUCCESS;
}

const Call kCalls[] = {
    CALL(R_GetChangeViewPerspectiveParams, TOP_RIGHT, TOP_LEFT, &w.answers.flag, &w.answers.module),
    DOES(R_ChangeRectViewPerspective,
         moveRect(w, [](RECT* r) { return R_ChangeRectViewPerspective(TOP_LEFT, 10, 20, BOTTOM_LEFT, r); })),
    DOES(R_PointToBitmap, movePoint(w, R_PointToBitmap)),
    DOES(R_PointFromBitmap, movePoint(w, R_PointFromBitmap)),
    DOES(R_RectToBitmap, moveRect(w, [&](RECT* r) { return R_RectToBitmap(w.a, RIGHT_TOP, r); })),
    DOES(R_RectFromBitmap, moveRect(w, [&](RECT* r) { return R_RectFromBitmap(w.a, RIGHT_TOP, r); })),
    CALL(R_ChangeBitmapViewPerspective, nullptr, w.a, 0, RIGHT_TOP),
    DOES(R_IntChangeBitmapViewPerspective, turned(w)),
};

} // namespace

std::span<const Call> perspectiveCalls() { return kCalls; }

} // namespace rv::test
