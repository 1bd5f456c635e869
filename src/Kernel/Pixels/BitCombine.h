/// Combining a run of bits with another at any two bit positions. Bit 0 of a row is the top bit of its first byte.
#pragma once

#include "R_Types.h"

namespace rv {

/// The truth table whose result is the source.
constexpr unsigned kTableOfSource = 0xC;

/// Combines `count` bits from bit targetBit of target on with as many from bit sourceBit of source on, by the truth
/// table of that number (see simd::CombineBits). Every other bit of target keeps its value, and no byte without bits of
/// the runs is read or written. The runs are apart, or the same.
void combineBits(unsigned table, uint8_t* target, R_INT64 targetBit, const uint8_t* source, R_INT64 sourceBit,
                 R_INT64 count) noexcept;

/// The same for so many rows, which are rowBytes bytes apart in both, and no shorter than that. What lies between the
/// runs is read, and in target written with what it holds.
void combineBitRows(unsigned table, uint8_t* target, R_INT64 targetBit, const uint8_t* source, R_INT64 sourceBit,
                    R_INT64 count, R_INT64 rows, R_INT64 rowBytes) noexcept;

} // namespace rv
