/// The gray of a colour.
#pragma once

#include "R_Types.h"

namespace rv {

constexpr uint8_t luminance(const RGBQUAD& c) noexcept
{
    return static_cast<uint8_t>((2u * c.rgbRed + 5u * c.rgbGreen + c.rgbBlue + 4) >> 3);
}
constexpr uint16_t luminance(const RGBQUAD16& c) noexcept
{
    return static_cast<uint16_t>((2u * c.rgbRed + 5u * c.rgbGreen + c.rgbBlue + 4) >> 3);
}

} // namespace rv
