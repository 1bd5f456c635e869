/// Pixels of a picture at given positions: the ones that hold them, or the four around each, weighed.
#pragma once

#include "R_Types.h"

#include <cstddef>

namespace rv {

/// Positions on a picture, in units of 2^-16 pixels from its first pixel's corner: those of a list, or from (x, y) on
/// in equal steps. A picture's rows and columns are fewer than 2^15.
struct PixelPositions {
    const int32_t* xs = nullptr; ///< null: in steps
    const int32_t* ys = nullptr;
    int32_t x = 0;
    int32_t y = 0;
    int32_t stepX = 0;
    int32_t stepY = 0;
};

/// Bytes behind the pixels of a picture's last row that may be read, whatever they hold.
constexpr size_t kPickSlack = 16;

/// Takes the pixel that holds each position.
/// target  out, `count` pixels from the top bit of the first byte on; bits behind the last become 0, and no byte is
///         written that holds none of them
/// source  rows of pixels `pitch` bytes apart; of each, and of the last one alone kPickSlack bytes more, may be read
using PickPixels = void (*)(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, const PixelPositions& at,
                            size_t count) noexcept;
PickPixels pickPixelsFor(R_INT bits) noexcept;

/// Weighs the four pixels whose centres lie around each position: those that hold the position less half a pixel, and
/// their neighbours to the right and below. Results are rounded to nearest; bytes are weighed by 256ths of a pixel,
/// words by 65536ths. Otherwise as above.
using WeighPixels = PickPixels;

/// Of pixels of 1, 3 or 4 bytes, or so many words in the machine's order.
/// byAlpha  the fourth sample is alpha, by which the others are weighed too; colours that nothing is seen of count
/// alike
WeighPixels weighPixelsFor(size_t samples, size_t sampleBytes, bool byAlpha) noexcept;

} // namespace rv
