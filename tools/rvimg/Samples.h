/// Row arithmetic that several formats need: samples of any width, component order, inversion.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace rvimg {

using Row = std::vector<uint8_t>;

/// Sample i of a row packed most significant bit first; bits is 1 to 16.
unsigned sampleAt(const uint8_t* row, size_t i, int bits);
void unpackSamples(const uint8_t* packed, uint16_t* samples, size_t count, int bits);
/// Writes all bytes that hold the samples; bits behind the last one are 0.
void packSamples(const uint16_t* samples, uint8_t* packed, size_t count, int bits);
unsigned maxSample(const uint8_t* row, size_t count, int bits);

/// Clears the bits of the last byte of a row that stand behind its first `bits` bits.
void clearBehind(uint8_t* row, size_t bits);
void invert(uint8_t* row, size_t bytes);

/// Exchanges the first and third of `components` components of `bytes` bytes each.
void swapRedBlue(uint8_t* row, size_t pixels, size_t components, size_t bytes);
/// Between the machine's words and big-endian ones.
void swapBigEndian(uint16_t* words, size_t count);

/// A sample of 0 to from, as the nearest one of 0 to to.
constexpr unsigned rescale(unsigned sample, unsigned from, unsigned to)
{
    return static_cast<unsigned>((uint64_t{sample} * to + from / 2) / from);
}

} // namespace rvimg
