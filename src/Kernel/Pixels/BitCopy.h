/// Copying a run of bits between rows at any two bit positions. Bit 0 of a row is the top bit of its first byte.
#pragma once

#include "R_Types.h"

#include <bit>
#include <cstring>

namespace rv {

namespace bits {

inline uint64_t loadBigEndian(const uint8_t* bytes) noexcept
{
    uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
}

inline void storeBigEndian(uint8_t* bytes, uint64_t word) noexcept
{
    if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
    std::memcpy(bytes, &word, sizeof word);
}

/// The byte of bits from `bit` on (0 to 7 bits into *bytes), of which `count` (1 to 8) are wanted, left-aligned. Only
/// bytes that hold wanted bits are read.
inline unsigned loadByte(const uint8_t* bytes, unsigned bit, unsigned count) noexcept
{
    unsigned value = static_cast<unsigned>(bytes[0]) << bit;
    if (bit + count > 8) value |= static_cast<unsigned>(bytes[1]) >> (8 - bit);
    return value & 0xFFu;
}

/// Replaces the bits of *byte under mask.
inline void mergeByte(uint8_t* byte, unsigned value, unsigned mask) noexcept
{
    *byte = static_cast<uint8_t>((*byte & ~mask) | (value & mask));
}

} // namespace bits

/// Copies `count` bits from bit `sourceBit` of source to bit `targetBit` of target; every other bit of target keeps
/// its value, and no byte without bits of the run is read or written. The runs must not overlap.
void copyBits(uint8_t* target, R_INT64 targetBit, const uint8_t* source, R_INT64 sourceBit, R_INT64 count) noexcept;

} // namespace rv
