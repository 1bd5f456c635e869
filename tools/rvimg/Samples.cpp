#include "Samples.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace rvimg {

unsigned sampleAt(const uint8_t* row, size_t i, int bits)
{
    const size_t first = i * static_cast<size_t>(bits);
    const size_t last = first + static_cast<size_t>(bits) - 1;
    uint32_t window = 0;
    for (size_t byte = first / 8; byte <= last / 8; ++byte) window = window << 8 | row[byte];
    return (window >> (7 - last % 8)) & ((1u << bits) - 1);
}

void unpackSamples(const uint8_t* packed, uint16_t* samples, size_t count, int bits)
{
    uint32_t window = 0;
    int held = 0;
    for (size_t i = 0; i < count; ++i) {
        for (; held < bits; held += 8) window = window << 8 | *packed++;
        held -= bits;
        samples[i] = static_cast<uint16_t>((window >> held) & ((1u << bits) - 1));
    }
}

void packSamples(const uint16_t* samples, uint8_t* packed, size_t count, int bits)
{
    uint32_t window = 0;
    int held = 0;
    for (size_t i = 0; i < count; ++i) {
        window = window << bits | (samples[i] & ((1u << bits) - 1));
        for (held += bits; held >= 8; held -= 8) *packed++ = static_cast<uint8_t>(window >> (held - 8));
    }
    if (held > 0) *packed = static_cast<uint8_t>(window << (8 - held));
}

unsigned maxSample(const uint8_t* row, size_t count, int bits)
{
    if (bits == 8) return count == 0 ? 0 : *std::max_element(row, row + count);
    unsigned largest = 0;
    for (size_t i = 0; i < count; ++i) largest = std::max(largest, sampleAt(row, i, bits));
    return largest;
}

void clearBehind(uint8_t* row, size_t bits)
{
    if (bits % 8 != 0) row[bits / 8] &= static_cast<uint8_t>(0xFF00u >> (bits % 8));
}

void invert(uint8_t* row, size_t bytes)
{
    for (size_t i = 0; i < bytes; ++i) row[i] = static_cast<uint8_t>(~row[i]);
}

void swapRedBlue(uint8_t* row, size_t pixels, size_t components, size_t bytes)
{
    for (size_t i = 0; i < pixels; ++i, row += components * bytes) std::swap_ranges(row, row + bytes, row + 2 * bytes);
}

void swapBigEndian(uint16_t* words, size_t count)
{
    if constexpr (std::endian::native == std::endian::big) return;
    for (size_t i = 0; i < count; ++i) words[i] = static_cast<uint16_t>(words[i] << 8 | words[i] >> 8);
}

} // namespace rvimg
