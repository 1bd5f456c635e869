/// Orientation and resolution in the EXIF block of a JPEG or PNG file.
#pragma once

#include "Image.h"

namespace rvimg {

/// What a block starts with in JPEG files and here; PNG files leave it out.
inline constexpr std::array<uint8_t, 6> kExifStart = {'E', 'x', 'i', 'f', 0, 0};

struct ExifFacts {
    R_INT orientation = 0; ///< 0: none
    std::optional<Resolution> resolution;
};

/// What a block says; nothing for a block that cannot be read.
ExifFacts readExif(std::span<const uint8_t> block);
/// Puts them into a layout; a resolution that is known already stays.
void apply(const ExifFacts& facts, Layout& layout);
/// A block with nothing but an orientation.
std::vector<uint8_t> makeExif(R_INT orientation);

} // namespace rvimg
