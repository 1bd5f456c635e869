#include "Support/Calls.h"

namespace rv::test {

namespace {

constexpr RGBQUAD kColours[] = {{0, 0, 0, 0}, {10, 200, 30, 0}, {255, 255, 255, 0}};

R_INT64 stopped(World& w, R_INT64 status) { return status == SUCCESS ? R_StopDithering(w.a) : status; }

R_INT64 ditherRow(World& w)
{
    const R_INT64 status = R_StartDitheringExt(w.a, nullptr, 2, 1, nullptr);
    return status == SUCCESS ? stopped(w, R_DitherLine(w.a, w.row.data(), w.row.data())) : status;
}

const Call kCalls[] = {
    DOES(R_StartDithering, stopped(w, R_StartDithering(w.a, kColours, 3))),
    DOES(R_StartDitheringExt, stopped(w, R_StartDitheringExt(w.a, kColours, 3, 5, nullptr))),
    DOES(R_DitherLine, ditherRow(w)),
    CALL(R_StopDithering, w.a),
    DOES(R_DefaultDithering, R_DefaultDithering(3) == SUCCESS ? R_DefaultDithering(7) : 0),
    DOES(R_GetDefaultDithering, as(R_GetDefaultDithering() == 7)),
};

} // namespace

std::span<const Call> ditherCalls() { return kCalls; }

} // namespace rv::test
