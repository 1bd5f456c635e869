#include "Internal/R_Int.h"
#include "Support/Calls.h"

namespace rv::test {

namespace {

/// The row's bytes turned into the caller's other block.
R_INT64 turnBuffer(World& w, bool half)
{
    uint8_t turned[64] = {};
    const R_INT64 status = half ? R_RotateBuffer180(turned, 8, w.row.data(), 2, 4, 4, 4)
                                : R_RotateBuffer90(turned, 8, w.row.data(), 2, 4, 4, 4, 1);
    for (const uint8_t byte : turned) w.answers.size = w.answers.size * 31 + byte;
    return status;
}

const Call kCalls[] = {
    DOES(R_SinValue, as(R_SinValue(3000) == 8192 && R_SinValue(27000) == -16384)),
    DOES(R_CosValue, as(R_CosValue(0) == 16384 && R_CosValue(18000) == -16384)),
    CALL(R_RotateBitmap, w.a, 3000, ROTATE_RESIZE, 0x00FF8000),
    CALL(R_IntRotateBitmap, w.a, 31000, ROTATE_CENTER | ROTATE_BILINEAR, 0, 10, 20, 3, 4),
    CALL(R_RotateBitmap90, w.a, 1, 0, 100),
    CALL(R_RotateBitmapViewPerspective, w.a, 9000),
    DOES(R_RotateBuffer90, turnBuffer(w, false)),
    DOES(R_RotateBuffer180, turnBuffer(w, true)),
};

} // namespace

std::span<const Call> rotateCalls() { return kCalls; }

} // namespace rv::test
