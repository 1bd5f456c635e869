/// How often each 15-bit colour stands in a picture, or in several.
#pragma once

#include "Kernel/Colour/Colour15.h"

#include <cstddef>

namespace rv {

/// Counts pixels. A count that has reached its limit when it is to grow halves all counts first, rounded up, so that
/// they keep their proportions and no colour is lost.
class ColourHistogram {
public:
    static constexpr R_UINT kLimit = 0x80000000u;

    /// Every count 0. Objects live in working memory, where no constructor runs.
    void clear(R_UINT limit = kLimit) noexcept;

    void addBgr24(const uint8_t* pixels, size_t count) noexcept;
    void addRgb24(const uint8_t* pixels, size_t count) noexcept;
    void addBgr32(const uint8_t* pixels, size_t count) noexcept;
    void addRgb32(const uint8_t* pixels, size_t count) noexcept;
    /// colours  the 15-bit colour of each of 256 indices
    void addIndices(const uint8_t* pixels, size_t count, const uint16_t* colours) noexcept;

    /// Of MATCH_TABLE_CELLS colours.
    const R_UINT* counts() noexcept
    {
        gather();
        return lanes_[0];
    }

private:
    template <class ColourAt> void add(size_t count, ColourAt colourAt) noexcept;
    bool takesAll(size_t count) noexcept;
    void gather() noexcept;
    void addOne(R_UINT colour) noexcept;

    /// Pixels side by side are alike: were they counted in one place, each would wait for the one before.
    static constexpr size_t kLanes = 2;
    R_UINT lanes_[kLanes][MATCH_TABLE_CELLS]; ///< the first has what was gathered
    R_UINT limit_;
    R_UINT64 most_; ///< no count is above it
};

} // namespace rv
