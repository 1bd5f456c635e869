#include "Support/Calls.h"

namespace rv::test {

namespace {

constexpr R_SIZE kPitch = 100;

R_UINT16* room(World& w) { return reinterpret_cast<R_UINT16*>(w.answers.wide); }

/// Two rows of 37 pixels, and the end of one.
R_UINT16* rows()
{
    static R_UINT16 runs[kPitch] = {5, 30, 2};
    runs[kPitch / 2] = 0;
    runs[kPitch / 2 + 1] = 37;
    return runs;
}
R_UINT16* end()
{
    static R_UINT16 runs[] = {0, 4, 16};
    return runs;
}

/// What a call answers that only 1-bit bitmaps have: 1 for `wanted`, and where another depth is turned down.
R_INT64 ofOneBit(World& w, R_INT64 wanted, R_INT64 status)
{
    if (w.a->BitsPerPixel != 1) return as(status == ERROR_INV_BITS_PER_PIXEL);
    return status == wanted ? SUCCESS : status;
}

/// Borrowed pixels stay where they are.
R_INT64 moved(World& w, R_INT64 status)
{
    const bool borrowed = w.a->BitsPerPixel == 1 && (w.a->Flags & FLAG_MIRROR) != 0;
    return borrowed ? as(status == ERROR_INV_PARAMETER) : ofOneBit(w, SUCCESS, status);
}

R_INT64 ofHeaps(World& w, R_INT64 status)
{
    return (w.a->Flags & FLAG_COMPRESSED) != 0 ? status : as(status == ERROR_INV_PARAMETER);
}

const Call kCalls[] = {
    DOES(R_GetBitmapRowCompressed, ofOneBit(w, 2, R_GetBitmapRowCompressed(w.a, room(w), kPitch, 3, 2))),
    DOES(R_PutBitmapRowCompressed, ofOneBit(w, 2, R_PutBitmapRowCompressed(w.a, rows(), kPitch, 3, 2))),
    DOES(R_GetBitmapRowColCompressed, ofOneBit(w, 1, R_GetBitmapRowColCompressed(w.a, room(w), kPitch, 3, 17, 20))),
    DOES(R_PutBitmapRowColCompressed, ofOneBit(w, 1, R_PutBitmapRowColCompressed(w.a, end(), 6, 3, 17, 20))),
    DOES(R_ChangeBitmapCompression, moved(w, R_ChangeBitmapCompression(w.a, 1))),
    DOES(R_ToggleBitmapCompression, moved(w, R_ToggleBitmapCompression(w.a))),
    DOES(R_HeapFree, R_HeapFree(nullptr, 24), SUCCESS),
    DOES(R_GrowBitmapHeap, ofHeaps(w, R_GrowBitmapHeap(w.a, 300000))),
    DOES(R_TrimBitmapHeap, ofHeaps(w, R_TrimBitmapHeap(w.a))),
};

} // namespace

std::span<const Call> compressionCalls() { return kCalls; }

} // namespace rv::test
