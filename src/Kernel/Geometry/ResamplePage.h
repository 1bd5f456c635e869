/// Pages of 1 bit as gray, by how much of the area that a new pixel covers is black.
#pragma once

#include "Kernel/Geometry/ResampleSource.h"

namespace rv {

/// Bits are never made pixels. Four columns to a pixel, and whole rows, are counted; for all other factors weights of
/// rows are added up by columns, and what columns sum up to is looked at where new ones begin.
class PageResampler {
public:
    /// Whether the job is one for it: 1 bit of two grays, by area, growing nowhere.
    static bool takes(const ResampleSource& source) noexcept;
    /// ERROR_FAILURE: no memory.
    Status prepare(const ResampleSource& source) noexcept;
    Status row(ResampleSource& source, R_INT row, uint8_t* target) noexcept;

private:
    Status addRows(ResampleSource& source, R_INT row) noexcept;
    Status countRows(ResampleSource& source, R_INT row) noexcept;

    bool fours_ = false;
    size_t width_ = 0, newWidth_ = 0;
    R_INT rowsEach_ = 1; // of fours
    RowBuffer sums_;     // by column: weights of black rows; of fours, how many bits of each half byte
    RowBuffer before_;   // what all columns before one sum up to
    RowBuffer borders_;
    uint8_t levels_[256]; // for each share of ones in 255
};

} // namespace rv
