#include "Support/Calls.h"

#include "Internal/R_Int.h"

namespace rv::test {

namespace {

/// What a bitmap that a call has made of w.a in the spare record holds; frees it.
R_INT64 tell(World& w, R_INT64 status)
{
    if (status != SUCCESS) return status;
    w.answers.number[0] = static_cast<R_UINT>(w.spare->Width);
    w.answers.number[1] = w.spare->nColors;
    status = R_AccessBitmap(w.spare);
    for (int tries = 0; tries < 2; ++tries) // a failure of the system strikes once, and this is not the call
        (void)R_GetBitmapRow(w.spare, w.row.data(), w.spare->Height - 1, w.spare->BytesPerLine);
    R_ReleaseBitmap(w.spare);
    R_FreeDuplicateBitmap(w.spare, w.a);
    return status;
}

#define MADE(name, ...) DOES(name, tell(w, name(w.spare, w.a, w.spare.structSize() __VA_OPT__(, ) __VA_ARGS__)))

const Call kCalls[] = {
    MADE(R_DupBitmapNewDim, 5, 9, w.a->BitsPerPixel, DUP_ALLOCATE | DUP_PALETTE | DUP_NEW_BITMAP),
    DOES(R_FreeDuplicateBitmap,
         tell(w, R_DupBitmapNewDim(w.spare, w.a, w.spare.structSize(), 5, 9, w.a->BitsPerPixel, DUP_ALLOCATE))),
    MADE(R_CopyBitmap),
    MADE(R_CopyBitmap2, MEM_DISK),
    CALL(R_CopyBitmapData, w.a, w.b),
    MADE(R_CopyBitmapRect, 5, 2, 19, 8),
    MADE(R_CopyBitmapRect2, 0, 2, 19, 8, MEM_TILED),
    CALL(R_TrimBitmap, w.a, 3, -2, 1000, 9),
    CALL(R_CopyGrayParams, w.b, w.a),
};

} // namespace

std::span<const Call> copyCalls() { return kCalls; }

} // namespace rv::test
