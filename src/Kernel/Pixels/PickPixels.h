/// Pixels of a picture at given positions: the ones that hold them, or the four around each, weighed.
#pragma once

#include "Kernel/Pixels/Simd/RowKernels.h"
#include "R_Types.h"

namespace rv {

/// Takes the pixel that holds each position, of any of the fourteen depths. Pixels of less than a byte, and of 12 bits,
/// come out as a stream from the top bit of the first byte on.
simd::PickPixels pickPixelsFor(R_INT bits) noexcept;

/// Weighs pixels of 1, 3 or 4 bytes, or so many words in the machine's order. Words are weighed by 65536ths of a pixel.
/// byAlpha  the fourth sample is alpha, by which the others are weighed too; colours that nothing is seen of count
/// alike
simd::PickPixels weighPixelsFor(size_t samples, size_t sampleBytes, bool byAlpha) noexcept;

} // namespace rv
