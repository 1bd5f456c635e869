/// Positions of pixels on a picture.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace rv {

/// In units of 2^-16 pixels from the first pixel's corner: those of a list, or from (x, y) on in equal steps. A
/// picture's rows and columns are fewer than 2^15.
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

} // namespace rv
