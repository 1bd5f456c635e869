/// Rows of a bitmap in another size, weighed.
///
/// Centres lie on centres: of `old` pixels the point (i + 1/2) * old / new - 1/2 becomes pixel i, held between the
/// first pixel and the last. Nothing moves, and a mirrored picture gives the mirrored result.
#pragma once

#include "Kernel/Base/Status.h"
#include "Kernel/Pixels/PixelFormat.h"
#include "Kernel/Pixels/RowBuffer.h"
#include "R_Bitmap.h"

namespace rv {

enum class Weighing {
    bilinear, ///< the four pixels around a point
    spline,   ///< natural cubic splines along rows and columns
    area, ///< all pixels that a new one covers, each by how much of it is covered; bilinear in a direction that grows
};

/// Makes the rows of a resized bitmap from those of an accessed one. Rows from the top down are fastest: each row of
/// the source is read once; any other order gives the same pixels. Memory is taken at construction: some rows of either
/// size, however high the bitmaps are.
///
/// Indices are weighed as colours and become the nearest entries of the target's palette. Gray counts by its
/// significant bits, the others become 0; colours of 16 bits are weighed by components of 5 bits.
class Resampler {
public:
    struct Job {
        RECT source; ///< of the source, in stored rows and columns; not empty, and inside
        R_INT width; ///< of the new rows; at least 1
        R_INT height;
        Weighing weighing;
        bool byAlpha; ///< 32 and 64 bits: colours are weighed by their alpha
    };
    /// target  the format of the new rows: the source's own; one of more than 8 bits and no gray, such as 24 bits for
    ///         gray through a table; or 8-bit gray for 1 bit, where samples are levels. Its palette is used until the
    ///         end.
    Resampler(BITMAPHANDLE* pSrc, const Job& job, const PixelFormat& target) noexcept;
    ~Resampler();
    Resampler(const Resampler&) = delete;
    Resampler& operator=(const Resampler&) = delete;

    /// ERROR_FAILURE: no memory. Else what the source's format or cursor says.
    Status status() const noexcept { return status_; }
    /// One row of the new bitmap, in the bytes that hold its pixels; bits behind the last become 0.
    Status row(R_INT row, uint8_t* target) noexcept;

private:
    struct Work;
    RowBuffer home_; // of the work
    Work* work_ = nullptr;
    Status status_ = SUCCESS;
};

} // namespace rv
