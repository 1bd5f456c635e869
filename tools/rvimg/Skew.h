/// How a scanned page is tilted.
#pragma once

#include "R_Kernel.h"

#include <optional>

namespace rvimg {

/// The angle of a page's lines, in degrees, positive where they fall to the right as displayed; at most `most` either
/// way. Nothing where the page shows no lines.
std::optional<double> skewOf(BITMAPHANDLE* page, double most);

} // namespace rvimg
