/// Rows of a bitmap in another size, weighed.
#pragma once

#include "Kernel/Core/RowCursor.h"
#include "Kernel/Pixels/PixelFormat.h"

namespace rv {

enum class Weighing {
    bilinear, ///< the four pixels around a point
    spline,   ///< natural cubic splines along rows and columns
    area,     ///< all pixels that a new one covers; bilinear in a direction that grows
};

/// Makes the rows of a resized bitmap from those of an accessed one. Rows from the top down are fastest: each row of
/// the source is read once; any other order gives the same pixels. Memory is taken at construction: some rows of either
/// size, however high the bitmaps are.
class Resampler {
public:
    struct Job {
        RECT source; ///< of the source, in stored rows and columns; not empty
        R_INT width; ///< of the new rows; at least 1
        R_INT height;
        Weighing weighing;
        bool byAlpha; ///< colours are weighed by their alpha
    };
    /// target  the format of the new rows: the source's own, 24 bits for gray through a table, or 8-bit gray for 1 bit
    Resampler(BITMAPHANDLE* pSrc, const Job& job, const PixelFormat& target) noexcept;
    Resampler(const Resampler&) = delete;
    Resampler& operator=(const Resampler&) = delete;

    /// ERROR_FAILURE: no memory. Else what the source's format or cursor says.
    Status status() const noexcept { return status_; }
    /// One row of the new bitmap, in the bytes that hold its pixels; bits behind the last become 0.
    Status row(R_INT row, uint8_t* target) noexcept;

private:
    Status status_ = SUCCESS;
};

} // namespace rv
