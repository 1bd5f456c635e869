/// What the commands do to a page, and the words for it on the command line. Places are those of the displayed picture.
#pragma once

#include "Commands.h"

#include <optional>
#include <string>

namespace rvimg {

/// "WIDTHxHEIGHT+X+Y", at least one pixel; nothing for other words.
std::optional<RECT> areaOf(const std::string& words);

struct Colour {
    COLORREF rgb = 0;
    R_UCHAR alpha = 255;
};
/// "RRGGBB" or "RRGGBBAA" in hexadecimal digits, with # before it or not, "black" or "white"; nothing for other words.
std::optional<Colour> colourOf(const std::string& words);

/// Leaves what of the area lies in the picture.
Operation cropTo(const RECT& area);
/// Gives what of the area lies in the picture one colour; without an area, all of it.
Operation fillWith(const Colour& colour, const std::optional<RECT>& area);

} // namespace rvimg
