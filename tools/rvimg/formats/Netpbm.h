/// What reading and writing of the Netpbm formats share.
#pragma once

#include "Format.h"

namespace rvimg {

namespace netpbm {

/// The name a file goes by. `any` is written as whichever of the first three fits.
enum class Kind { bitmap, gray, colour, any, arbitrary };

/// A maximum that fills whole bits gives their number, else 0.
constexpr int bitsOfMaximum(unsigned maximum)
{
    int bits = 0;
    for (; maximum != 0; maximum >>= 1, ++bits)
        if ((maximum & 1) == 0) return 0;
    return bits;
}

inline constexpr unsigned kMax555 = 31; ///< the maximum of 5-5-5 colour, which only colour of that kind has

} // namespace netpbm

std::unique_ptr<Decoder> openNetpbm(ByteSource& source, const ReadOptions& options);

} // namespace rvimg
