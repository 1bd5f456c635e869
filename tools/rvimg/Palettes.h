/// Palettes on their own: by name, out of files, as text and as pictures.
#pragma once

#include "Commands.h"

namespace rvimg {

using Palette = std::vector<RGBQUAD>;

inline constexpr unsigned kMostColours = 256;

/// The depth of files that so many colours need: 1, 2, 4 or 8 bits.
R_INT bitsFor(size_t colours);

/// Reads the palette of a file's page, counted from 1: of a picture, or a text of colours such as #ff8000, one a line,
/// with a number before it or not.
Palette readPalette(const std::string& file, const ReadOptions& options, unsigned page = 1);

struct PaletteOptions {
    std::string input;
    std::string swatches; ///< the picture to write; empty: text on the standard output
    std::string format;   ///< of that picture
    unsigned page = 0;    ///< 0: the first
    unsigned colours = 0; ///< of the palette that suits the picture; 0: the one that it has
    ReadOptions reading;
    WriteOptions writing;
};

/// Shows a palette.
void showPalette(const PaletteOptions& options);

} // namespace rvimg
