/// The built-in palettes.
#pragma once

#include "R_Types.h"

namespace rv {

/// The 2^bits constant entries of a depth's fixed palette; null outside 1 to 8.
const RGBQUAD* fixedPalette(R_INT bits) noexcept;

/// The 256 constant entries of the web-safe palette.
const RGBQUAD* webSafePalette() noexcept;

/// Fills entries, at least 2, with grays from black to white: entry i is i * 255 / (count - 1), cut.
void fillGrayRamp(RGBQUAD* entries, R_UINT64 count) noexcept;

} // namespace rv
