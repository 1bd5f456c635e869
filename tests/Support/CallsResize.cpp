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

/// A resized bitmap in another depth and position, whose pixels go into the answers.
R_INT64 resized(World& w)
{
    R_INT64 status = R_CreateBitmap(w.spare, w.spare.structSize(), MEM_CONVENTIONAL, 9, 5, 32, ORDER_BGR, nullptr,
                                    RIGHT_TOP, nullptr, 0);
    if (status != SUCCESS) return status;
    status = R_ResizeBitmap(w.a, w.spare, 0);
    for (R_INT row = 0; status == SUCCESS && row < 5; ++row) {
        uint64_t pixel = 0;
        (void)R_GetPixelData(w.spare, &pixel, row, row, sizeof pixel);
        w.answers.size = w.answers.size * 31 + pixel;
    }
    R_FreeBitmap(w.spare);
    return status;
}

/// A row of a part of w.a on demand.
R_INT64 onDemand(World& w)
{
    const RECT part = {5, 1, 30, 10};
    void* state = nullptr;
    const R_INT64 status = R_StartResizeBitmap2(w.a, &part, 13, 14, SIZE_AREA, w.spare, w.spare.structSize(), &state);
    if (status != SUCCESS) return status;
    R_SSIZE moved = R_GetResizedRowCol(state, w.row.data(), 6, 8, 1);
    if (moved < 0) moved = R_GetResizedRowCol(state, w.row.data(), 6, 8, 1); // a failure of the system strikes once
    R_FreeBitmap(w.spare);
    const R_INT64 stopped = R_StopResizeBitmap(state);
    return moved == 1 ? stopped : moved;
}

R_INT64 startAndStop(World& w)
{
    void* state = nullptr;
    const R_INT64 status = R_StartResizeBitmap(w.a, 70, 9, 0, &state);
    return status == SUCCESS ? R_StopResizeBitmap(state) : status;
}

/// Every other pixel, by one of the two kernels.
template <class F> R_INT64 scanned(World& w, F kernel)
{
    const R_INT bits = w.a->BitsPerPixel;
    return kernel(bits, 4, 0, 2, 0, 0, w.row.data(), w.row.data(), 9, 1, 0), SUCCESS;
}

const Call kCalls[] = {
    CALL(R_SizeBitmap, w.a, 20, 30, SIZE_FAVOR_BLACK),
    DOES(R_ResizeBitmap, resized(w)),
    CALL(R_IntResizeBitmap, w.a, w.b, 0),
    DOES(R_StartResize, line(w)),
    DOES(R_Resize, line(w)),
    DOES(R_StopResize, line(w)),
    DOES(R_GetResizedScanLine, scanned(w, R_GetResizedScanLine)),
    DOES(R_ReverseGetResizedScanLine, scanned(w, R_ReverseGetResizedScanLine)),
    DOES(R_StartResizeBitmap, startAndStop(w)),
    DOES(R_StartResizeBitmap2, onDemand(w)),
    DOES(R_GetResizedRowCol, onDemand(w)),
    DOES(R_StopResizeBitmap, onDemand(w)),
};

} // namespace

std::span<const Call> resizeCalls() { return kCalls; }

} // namespace rv::test
