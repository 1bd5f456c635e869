/// Bilinear resampling of bytes, in integers.
#pragma once

#include "Kernel/Geometry/ResampleSource.h"
#include "Kernel/Pixels/Resampling.h"

namespace rv {

/// Columns weigh in steps of 1/128 and rows in steps of 1/32768, ties to even, so that a mirrored picture has mirrored
/// weights: a byte is at most 1 from the exact one. Rows of the new width are made once and kept in pairs.
class BilinearResampler {
public:
    /// ERROR_FAILURE: no memory.
    Status prepare(const ResampleSource& source) noexcept;
    Status row(ResampleSource& source, R_INT row, uint8_t* target) noexcept;

private:
    static constexpr size_t kSmall = 32; ///< bytes of a row that is copied, so that whole blocks can be read

    bool planBlocks(const ResampleSource& source) noexcept;
    void planPixels(const ResampleSource& source) noexcept;
    bool planHalf(const ResampleSource& source, size_t block, size_t half) noexcept;
    Status bring(ResampleSource& source, R_INT row) noexcept;
    int16_t* made(R_INT row) const noexcept;

    size_t bytes_ = 0;   // of a source row; of two pixels, where there is one
    size_t samples_ = 0; // of a new row
    size_t blocks_ = 0;
    bool loose_ = false; // by pixels: a block's are too far from each other
    bool together_ = false;
    R_INT rows_[2] = {-1, -1};
    RowBuffer plan_;
    RowBuffer made_;
};

} // namespace rv
