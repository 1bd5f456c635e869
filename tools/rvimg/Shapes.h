/// What the commands do to a picture's size and position. Widths, heights and places are those of the displayed
/// picture.
#pragma once

#include "Operations.h"

#include <array>

namespace rvimg {

struct Size {
    R_INT width = 0;
    R_INT height = 0;
};
/// "WIDTHxHEIGHT", one of which may be missing, which is 0 then; nothing for other words.
std::optional<Size> sizeOf(const std::string& words);

/// Another number of pixels. One of the first three says how many.
struct Resizing {
    std::optional<Size> size;      ///< a side of 0 keeps the picture's proportions
    std::optional<Size> fit;       ///< the largest of the same proportions that has room in it
    std::optional<double> percent; ///< of both sides
    std::string method = "auto";   ///< a name of resizingMethods()
};
std::vector<std::string> resizingMethods();
Operation resizeTo(const Resizing& resizing);
/// Small enough to have room in a square; pages of 1 bit become gray. A picture that is small stays as it is.
Operation thumbnailOf(R_INT side);

constexpr Colour kPaper = {0xFFFFFF, 255};

struct Rotation {
    std::optional<R_INT> angle; ///< in hundredths of a degree, clockwise
    Colour fill = kPaper;       ///< of what no pixel of the picture comes to lie on
    bool keepSize = false;      ///< corners that do not fit are cut off
    bool nearest = false;       ///< pixels are moved as they are, not weighed
};
/// "DEGREES", with up to two decimals, between -360 and 360; nothing for other words.
std::optional<R_INT> angleOf(const std::string& words);
Operation rotateBy(const Rotation& rotation);

/// The corners of a sheet in a picture: top left, top right, bottom right, bottom left.
using Corners = std::array<R_POINTF, 4>;
/// Four times "X,Y"; nothing for other words.
std::optional<Corners> cornersOf(const std::vector<std::string>& words);

struct Deskewing {
    std::optional<Corners> corners; ///< of a photographed sheet, which becomes the picture
    double most = 15;               ///< degrees by which a page may be tilted
    Colour fill = kPaper;
    bool keepSize = false;
};
/// Puts a scanned page upright. One whose lines are not found, or are straight, stays as it is.
Operation deskewBy(const Deskewing& deskewing);

} // namespace rvimg
