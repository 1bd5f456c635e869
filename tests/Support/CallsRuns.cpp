#include "Support/Calls.h"

namespace rv::test {

namespace {

// The first rows of the answers' bytes as packed ones: four of 16 pixels, which have at most 17 runs each.
constexpr R_INT kRows = 4, kPixels = 13, kFirst = 2;
constexpr R_SIZE kPitch = 17 * sizeof(R_UINT16);

struct RunRows {
    R_UCHAR packed[kRows * 2] = {0x12, 0x34, 0xFF, 0xFF, 0x55, 0x55, 0x80, 0x01};
    R_UINT16 runs[kRows * 17] = {};
    R_INT made = R_CompressRows(runs, packed, kFirst, kPixels, kRows, kPitch, 2);
};

/// Rows in both forms, given to f, and what became of them.
template <class F> R_INT64 withRuns(World& w, F f)
{
    RunRows rows;
    if (rows.made != kPixels) return as(false);
    const R_INT64 status = f(rows);
    std::memcpy(w.answers.colours, rows.packed, sizeof rows.packed);
    std::memcpy(w.answers.wide, rows.runs, sizeof rows.runs);
    return status;
}

#define RUNS(name, ...) DOES(name, withRuns(w, [&]([[maybe_unused]] RunRows& rows) -> R_INT64 { return __VA_ARGS__; }))

const Call kCalls[] = {
    RUNS(R_CompressRow, as(R_CompressRow(rows.runs, rows.packed, 1, kPixels) == kPixels)),
    RUNS(R_ExpandRow, as(R_ExpandRow(rows.runs, rows.packed, 1, kPixels) == kPixels)),
    RUNS(R_CompressRows, SUCCESS),
    RUNS(R_ExpandRows, as(R_ExpandRows(rows.runs, rows.packed, 1, kPixels, kRows, kPitch, 2) == kPixels)),
    RUNS(R_MirrorCompressedBuffer, R_MirrorCompressedBuffer(rows.runs, kPixels)),
    RUNS(R_FlipCompressedBuffer, R_FlipCompressedBuffer(rows.runs, kPitch, kRows)),
};

} // namespace

std::span<const Call> runCalls() { return kCalls; }

} // namespace rv::test
