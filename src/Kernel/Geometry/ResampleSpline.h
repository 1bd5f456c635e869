/// Resampling by natural cubic splines, along rows and then along columns.
#pragma once

#include "Kernel/Geometry/ResampleSource.h"
#include "Kernel/Pixels/Resampling.h"

namespace rv {

/// The spline of a column depends on all of its rows, but hardly on those that are far: its second derivatives in one
/// row weigh 0.27 in the next. Rows are therefore solved in blocks, each with so many rows above and below it that what
/// they lack is less than a float can tell. A block's result does not depend on what was asked for before.
class SplineResampler {
public:
    /// ERROR_FAILURE: no memory.
    Status prepare(const ResampleSource& source) noexcept;
    Status row(ResampleSource& source, R_INT row, uint8_t* target) noexcept;

private:
    static constexpr R_INT kBlock = 32;
    static constexpr R_INT kBeside = 12; ///< rows above and below a block: 0.27 to this power is 1e-7
    static constexpr R_INT kKept = 64;   ///< rows that have their new width: a block and those beside it, in groups
    static constexpr R_INT kGroup = kSplineLanes;
    static constexpr size_t kStrip = 4 * kSplineLanes; ///< columns that are solved at once: their numbers stay near

    Status bringGroup(ResampleSource& source, R_INT group) noexcept;
    Status bringBlock(ResampleSource& source, R_INT block) noexcept;
    void solveStrip(R_INT block, size_t column, R_INT first, size_t points) noexcept;
    float* kept(R_INT row) const noexcept;
    float* moments(R_INT rowInBlock) const noexcept;

    size_t samples_ = 0; // of a row
    size_t pitch_ = 0;   // floats from one resized row to the next
    size_t columnPoints_ = 0;
    R_INT block_ = -1; // whose moments are there
    R_INT groups_[kKept / kGroup];
    RowBuffer points_; // of the new columns
    RowBuffer rows_;   // a group of rows as floats
    RowBuffer lanes_;  // the same, side by side
    RowBuffer laneMoments_, ratios_;
    RowBuffer kept_, moments_;
    RowBuffer made_;
};

} // namespace rv
