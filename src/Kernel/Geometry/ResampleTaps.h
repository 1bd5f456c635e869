/// Resampling by weights: each new pixel is a weighed sum of some old ones, first of rows, then of columns.
#pragma once

#include "Kernel/Geometry/ResampleSource.h"
#include "Kernel/Pixels/Resampling.h"

namespace rv {

/// A point between the pixels `first` and first + 1, or on the first: the second one weighs part / whole.
struct Between {
    R_INT first;
    R_INT64 part;
    R_INT64 whole;

    double fraction() const noexcept { return static_cast<double>(part) / static_cast<double>(whole); }
};
/// Where the centre of new pixel i lies.
Between centreOf(R_INT i, R_INT oldLength, R_INT newLength) noexcept;

/// The weights of one direction.
class TapRule {
public:
    TapRule() noexcept = default;
    TapRule(R_INT oldLength, R_INT newLength, bool area) noexcept;
    Taps at(R_INT i) const noexcept;
    /// What pixels weigh that are neither first nor last.
    float middle() const noexcept { return middle_; }

private:
    R_INT64 old_ = 1, new_ = 1;
    bool covers_ = false;
    float middle_ = 0;
};

/// In floats, for every format, either weighing and any factor.
class TapResampler {
public:
    /// ERROR_FAILURE: no memory.
    Status prepare(const ResampleSource& source, bool area) noexcept;
    Status row(ResampleSource& source, R_INT row, uint8_t* target) noexcept;

private:
    Status addRows(ResampleSource& source, const Taps& taps) noexcept;
    Status addRow(ResampleSource& source, R_INT row, float weight, float* sums, bool begins) noexcept;

    TapRule rows_, columns_;
    size_t samples_ = 0; // of a row
    RowBuffer taps_;     // of the columns
    RowBuffer sums_;     // of a row, and those of it that have begun anew
    RowBuffer weighed_;  // by alpha
    RowBuffer made_;
};

/// Colours times alpha, so that both are weighed alike, and back. A little is added to alpha: colours that nobody sees
/// keep out of those that somebody sees, and still are what they were where nothing else is.
/// pixels  four floats each
void weighByAlpha(float* pixels, size_t count) noexcept;
void undoAlpha(float* pixels, size_t count) noexcept;

} // namespace rv
