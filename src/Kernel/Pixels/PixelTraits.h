/// One pixel of a row, by depth. Two definitions serve all fourteen: whole bytes and packed bits.
#pragma once

#include "R_Types.h"

#include <cstddef>

namespace rv {

/// Reads and writes the bits of one pixel. Every byte without bits of the pixel stays untouched.
template <int Bits> struct PixelTraits {
    static_assert(Bits >= 8 && Bits % 8 == 0 && Bits <= 64);
    static constexpr bool packed = false;
    static constexpr size_t bytes = Bits / 8;

    /// The first byte is the lowest.
    static constexpr R_UINT64 read(const uint8_t* row, size_t column) noexcept
    {
        R_UINT64 value = 0;
        for (size_t i = 0; i < bytes; ++i) value |= R_UINT64{row[column * bytes + i]} << (8 * i);
        return value;
    }
    static constexpr void write(uint8_t* row, size_t column, R_UINT64 value) noexcept
    {
        for (size_t i = 0; i < bytes; ++i) row[column * bytes + i] = static_cast<uint8_t>(value >> (8 * i));
    }
};

/// Packed pixels are one stream, top bit first, and lie in at most two bytes.
template <int Bits>
requires(Bits < 8 || Bits == 12) struct PixelTraits<Bits> {
    static constexpr bool packed = true;
    static constexpr unsigned mask = (1u << Bits) - 1;

    static constexpr R_UINT64 read(const uint8_t* row, size_t column) noexcept
    {
        const Place place(column);
        unsigned window = unsigned{row[place.byte]} << 8;
        if (place.two) window |= row[place.byte + 1];
        return window >> place.shift & mask;
    }
    static constexpr void write(uint8_t* row, size_t column, R_UINT64 value) noexcept
    {
        const Place place(column);
        const unsigned cleared = ~(mask << place.shift);
        const unsigned bits = (static_cast<unsigned>(value) & mask) << place.shift;
        row[place.byte] = static_cast<uint8_t>((row[place.byte] & cleared >> 8) | bits >> 8);
        if (place.two) row[place.byte + 1] = static_cast<uint8_t>((row[place.byte + 1] & cleared) | bits);
    }

private:
    /// Where a pixel lies in the window of 16 bits that starts with its first byte.
    struct Place {
        size_t byte;
        unsigned shift;
        bool two; ///< whether the second byte of the window has bits of it
        constexpr explicit Place(size_t column) noexcept
            : byte(column * Bits / 8), shift(static_cast<unsigned>(16 - Bits - column * Bits % 8)), two(shift < 8)
        {
        }
    };
};

} // namespace rv
