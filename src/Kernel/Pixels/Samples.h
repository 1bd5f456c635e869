/// Rows as samples of whole bytes, whatever their depth, for operations that reckon with them.
#pragma once

#include "R_Types.h"

#include <cstddef>

namespace rv {

/// The samples of a depth: bytes, or words in the machine's order.
struct SampleFormat {
    /// Moves pixels between a row, from the first bit of its first byte on, and samples, one unit each. Both blocks
    /// have room for pixels up to the next multiple of 8, and kSampleSlack bytes more: what lies behind the last pixel
    /// there is read and written.
    using Unpack = void (*)(uint8_t* samples, const uint8_t* row, size_t pixels) noexcept;
    using Pack = void (*)(uint8_t* row, const uint8_t* samples, size_t pixels) noexcept;

    Unpack unpack = nullptr; ///< null: a row's pixels are such samples already
    Pack pack = nullptr;     ///< keeps a sample's lower bits; bits that are no sample's become 0
    size_t sampleBytes = 1;
    size_t samplesPerPixel = 1;
};

constexpr size_t kSampleSlack = 8;

/// The format of a depth above 1. 16 bits are one gray sample, or three components of 5 bits.
SampleFormat sampleFormatOf(R_INT bits, bool gray) noexcept;

} // namespace rv
