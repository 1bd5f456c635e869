/// What the commands do to a page, and the words for it on the command line. Places are those of the displayed picture.
#pragma once

#include "Commands.h"

#include <optional>
#include <string>
#include <vector>

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

struct Place {
    R_INT x = 0;
    R_INT y = 0;
};
/// "X+Y"; nothing for other words.
std::optional<Place> placeOf(const std::string& words);

/// How another picture is combined into one.
struct Combination {
    std::string file; ///< of the other picture; its first page is taken
    std::string mode; ///< a name of combinationModes()
    bool invertPicture = false;
    bool invertOther = false;
    bool invertResult = false;
    std::optional<Place> at; ///< of the other picture's upper left corner; none is the picture's own
};
std::vector<std::string> combinationModes();

/// Reads the other picture, and combines what of it lies in each page with the page.
Operation combineWith(const Combination& combination, const ReadOptions& reading);

/// Stores the picture in another perspective; it looks the same.
Operation orientTo(R_INT perspective);

} // namespace rvimg
