/// Rows of small pixels eight at a time: they are whole bytes then, and lie in one word.
#pragma once

#include "Kernel/Pixels/PixelTraits.h"

namespace rv {

/// Calls take(column, pixel) for every pixel of a row of any depth. Nothing behind the last pixel's byte is read.
template <int Bits, class Take> void forEachPixel(const uint8_t* source, size_t width, Take take) noexcept
{
    size_t column = 0;
    if constexpr (Bits < 8) {
        for (; width - column >= 8; column += 8, source += Bits) {
            R_UINT64 eight = 0;
            for (int byte = 0; byte < Bits; ++byte) eight = eight << 8 | source[byte];
            for (size_t i = 0; i < 8; ++i) take(column + i, eight >> (7 - i) * Bits & PixelTraits<Bits>::mask);
        }
        for (size_t i = 0; column + i < width; ++i) take(column + i, PixelTraits<Bits>::read(source, i));
    } else {
        for (; column < width; ++column) take(column, PixelTraits<Bits>::read(source, column));
    }
}

/// Gives every pixel of a row of up to 8 bits the lower bits of give(column). Bits behind the last become 0.
template <int Bits, class Give> void putEachPixel(uint8_t* target, size_t width, Give give) noexcept
{
    constexpr R_UINT64 mask = (1u << Bits) - 1;
    size_t column = 0;
    for (; width - column >= 8; column += 8, target += Bits) {
        R_UINT64 eight = 0;
        for (size_t i = 0; i < 8; ++i) eight = eight << Bits | (give(column + i) & mask);
        for (int byte = 0; byte < Bits; ++byte) target[byte] = static_cast<uint8_t>(eight >> 8 * (Bits - 1 - byte));
    }
    if (column == width) return;
    const size_t rest = width - column;
    R_UINT64 last = 0;
    for (size_t i = 0; i < 8; ++i) last = last << Bits | (i < rest ? give(column + i) & mask : 0);
    for (size_t byte = 0; byte < (rest * Bits + 7) / 8; ++byte)
        target[byte] = static_cast<uint8_t>(last >> 8 * (Bits - 1 - byte));
}

} // namespace rv
