#include "Internal/R_Int.h"
#include "Support/Calls.h"

namespace rv::test {

namespace {

/// A row of w.a, in and out of the line resizer.
R_INT64 line(World& w)
{
    void* state = nullptr;
    const R_INT64 status = R_StartResize(w.a->Width, 11, w.a->Width / 2, 23, &state);
    if (status != SUCCESS) return status;
    const R_INT64 repeats = R_Resize(w.row.data(), 0, w.a->BitsPerPixel, &w.answers.flag, &w.answers.module, state);
    return repeats == 2 ? R_StopResize(state) : repeats;
}

/// A piece of a row on demand, of the whole bitmap or of a part.
R_INT64 onDemand(World& w, bool part)
{
    const RECT some = {5, 1, 30, 10};
    void* state = nullptr;
    const R_INT64 status = part ? R_StartResizeBitmap2(w.a, &some, 13, 14, SIZE_AREA, nullptr, 0, &state)
                                : R_StartResizeBitmap(w.a, 70, 9, 0, &state);
    if (status != SUCCESS) return status;
    R_SSIZE moved = R_GetResizedRowCol(state, w.row.data(), 6, 8, 1);
    if (moved < 0) moved = R_GetResizedRowCol(state, w.row.data(), 6, 8, 1); // a failure of the system strikes once
    const R_INT64 stopped = R_StopResizeBitmap(state);
    return moved == 1 ? stopped : moved;
}

#define SCANNED(name) DOES(name, (name(w.a->BitsPerPixel, 4, 0, 2, 0, 0, w.row.data(), w.row.data(), 9, 1, 0), SUCCESS))

const Call kCalls[] = {
    CALL(R_SizeBitmap, w.a, 20, 30, SIZE_FAVOR_BLACK),
    CALL(R_ResizeBitmap, w.a, w.b, SIZE_BILINEAR),
    CALL(R_IntResizeBitmap, w.a, w.b, 0),
    DOES(R_StartResize, line(w)),
    DOES(R_Resize, line(w)),
    DOES(R_StopResize, line(w)),
    SCANNED(R_GetResizedScanLine),
    SCANNED(R_ReverseGetResizedScanLine),
    DOES(R_StartResizeBitmap, onDemand(w, false)),
    DOES(R_StartResizeBitmap2, onDemand(w, true)),
    DOES(R_GetResizedRowCol, onDemand(w, true)),
    DOES(R_StopResizeBitmap, onDemand(w, true)),
};

} // namespace

std::span<const Call> resizeCalls() { return kCalls; }

} // namespace rv::test
