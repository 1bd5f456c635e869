/// What the parts of a resampling know of each other. Included where each instruction set is built: no inline code.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace rv {

/// The pixels that make a new one: `count` from `first` on. The first one weighs `head`, the last one of several
/// `tail`, those between them what they all weigh.
struct Taps {
    int32_t first;
    int32_t count;
    float head;
    float tail;
};

/// A point of a spline between points `first` and first + 1: what weighs their difference and their second derivatives.
struct CurvePoint {
    int32_t first;
    float difference;
    float bendFirst;
    float bendNext;
};
constexpr size_t kSplineLanes = 8; ///< rows that are resampled side by side

/// After so many addends a sum begins anew: what adding rounds away would be seen in 16 bits otherwise.
constexpr size_t kAddends = 64;
/// Floats behind a row that are read and written though they are nobody's.
constexpr size_t kFloatSlack = 16;

} // namespace rv
