/// How far a palette's entry is from a stretch of colours, at least and at most: an entry that is everywhere farther
/// than another is the nearest to none of them.
#pragma once

#include "R_Types.h"

#include <algorithm>

namespace rv {

/// Squared distances.
struct Reach {
    R_UINT least;
    R_UINT most;
};

/// Of a level from those of a stretch, along one channel; channels add up.
constexpr Reach reachOf(R_INT level, R_INT first, R_INT last) noexcept
{
    const auto square = [](R_INT distance) noexcept { return static_cast<R_UINT>(distance * distance); };
    return {square(std::max({first - level, level - last, 0})), square(std::max(level - first, last - level))};
}

} // namespace rv
