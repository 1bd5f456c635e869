#include "Internal/R_Int.h"
#include "Support/Calls.h"

namespace rv::test {

namespace {

/// Moves a point that is kept in the answers.
template <class F> R_INT64 movePoint(World& w, F call)
{
    auto* const place = reinterpret_cast<R_INT*>(w.answers.number);
    return call(w.a, RIGHT_TOP, &place[0], &place[1]);
}

/// The answers as a rectangle.
RECT* rectOf(World& w) { return reinterpret_cast<RECT*>(w.answers.number); }

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
    CALL(R_ChangeRectViewPerspective, TOP_LEFT, 10, 20, BOTTOM_LEFT, rectOf(w)),
    DOES(R_PointToBitmap, movePoint(w, R_PointToBitmap)),
    DOES(R_PointFromBitmap, movePoint(w, R_PointFromBitmap)),
    CALL(R_RectToBitmap, w.a, RIGHT_TOP, rectOf(w)),
    CALL(R_RectFromBitmap, w.a, RIGHT_TOP, rectOf(w)),
    CALL(R_ChangeBitmapViewPerspective, nullptr, w.a, 0, RIGHT_TOP),
    DOES(R_IntChangeBitmapViewPerspective, turned(w)),
};

} // namespace

std::span<const Call> perspectiveCalls() { return kCalls; }

} // namespace rv::test
