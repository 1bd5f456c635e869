/// 15-bit colours: what histograms and match tables are indexed by.
#pragma once

#include "R_Colour.h"

namespace rv {

constexpr R_UINT colour15(R_UINT red, R_UINT green, R_UINT blue) noexcept
{
    return (red & 0xF8) << 7 | (green & 0xF8) << 2 | blue >> 3;
}
constexpr R_UINT red15(R_UINT colour) noexcept { return colour >> 10 & 31; }
constexpr R_UINT green15(R_UINT colour) noexcept { return colour >> 5 & 31; }
constexpr R_UINT blue15(R_UINT colour) noexcept { return colour & 31; }

/// Five bits as eight, black and white exact.
constexpr uint8_t widen5(R_UINT level) noexcept { return static_cast<uint8_t>(level << 3 | level >> 2); }

} // namespace rv
