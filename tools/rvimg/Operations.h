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

/// Which colours a picture of 1 to 8 bits is to have, and how those that it has not are made up.
struct Colours {
    std::string palette;                    ///< a name of paletteNames(), or a file; empty: what suits the picture
    unsigned count = 0;                     ///< 0: as many as there are, 256 where they are chosen
    std::string method = "floyd-steinberg"; ///< a name of ditheringMethods()
};
std::vector<std::string> paletteNames();
std::vector<std::string> ditheringMethods();

/// Fewer colours: those that are missing are made up of neighbours that differ.
Operation ditherTo(const Colours& colours, const ReadOptions& reading);
/// Another depth, each pixel the nearest colour. A palette is for depths of up to 8 bits.
Operation depthTo(R_INT bits, const std::string& palette, const ReadOptions& reading);
/// Gray of 8, 12 or 16 bits; 0: 16 for a picture of more than 8 bits a sample, else 8.
Operation grayTo(R_INT bits);
/// Another file's palette: each pixel becomes the nearest of its colours, or keeps its index.
Operation paletteFrom(const std::string& file, bool keepIndices, const ReadOptions& reading);

} // namespace rvimg
