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

/// Two neighbours mixed in steps of 1 / kMixSteps: the second one has so many of them.
struct MixedPixel {
    int32_t first;
    int32_t steps;
};
constexpr int kMixSteps = 128;
constexpr int kMixRowSteps = 32768;

constexpr size_t kMixBlock = 8;  ///< samples
constexpr size_t kMixBytes = 16; ///< that one half of a block comes from
/// Eight samples, each mixed from two bytes: those that `from` tells, counted from the offset of the block's half.
struct MixBlock {
    uint32_t offsets[2];
    uint8_t from[2 * kMixBlock];
    uint8_t weights[2 * kMixBlock];
};

/// A place between columns, or in one, of which share / 2^15 lie before it.
struct ColumnBorder {
    int32_t column;
    uint32_t share;
};
constexpr int kRowsWeigh = 255 * 128; ///< all rows of a new one; fits a signed word

/// After so many addends a sum begins anew: what adding rounds away would be seen in 16 bits otherwise.
constexpr size_t kAddends = 64;
/// Floats behind a row that are read and written though they are nobody's.
constexpr size_t kFloatSlack = 16;

} // namespace rv
