/// Orientation and resolution in the EXIF block of a JPEG file.
#pragma once

#include "Image.h"

namespace rvimg {

struct ExifFacts {
    R_INT orientation = 0; ///< 0: none
    std::optional<Resolution> resolution;
};

/// What a block says; nothing for a block that cannot be read.
ExifFacts readExif(std::span<const uint8_t> block);
/// A block with nothing but an orientation.
std::vector<uint8_t> makeExif(R_INT orientation);

} // namespace rvimg
