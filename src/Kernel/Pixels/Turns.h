/// The eight ways in which a picture can lie, and its pixels on the way from one to another: by rows in memory.
#pragma once

#include "Kernel/Pixels/Simd/RowKernels.h"
#include "R_Types.h"

namespace rv {

/// A turn: upside down where flip says so, then clockwise by so many quarters, 0 to 3. There are no others, and one
/// after the other they are one again, so that no picture needs two passes.
struct Turn {
    bool flip = false;
    R_INT quarters = 0;

    /// Whether rows become columns.
    constexpr bool sideways() const noexcept { return quarters % 2 != 0; }
    /// Whether the source's rows come last one first: as the target's rows, or sideways as its columns.
    constexpr bool rowsBackwards() const noexcept { return (quarters == 1 || quarters == 2) != flip; }
    constexpr bool columnsBackwards() const noexcept { return quarters >= 2; }
    constexpr bool operator==(const Turn&) const noexcept = default;
};

/// Rows `pitch` bytes apart, which may be less than none.
template <class Byte> struct PixelRows {
    Byte* first;
    R_INT64 pitch;

    Byte* row(R_INT64 row) const noexcept { return first + row * pitch; }
    /// The same, beginning with the last of so many.
    PixelRows backwards(R_INT64 rows) const noexcept { return {row(rows - 1), -pitch}; }
};

/// What moves the pixels of a depth. Asked once per operation; one of the fourteen depths.
struct TurnKernels {
    explicit TurnKernels(R_INT bits) noexcept;
    R_INT bits;
    simd::MirrorRow mirror;
    simd::TurnPixels turn;
};

/// Turns a picture, or a part of one that is one for itself. Every bit of the target's pixels is written, and the bits
/// behind them in a row's last byte become 0, unless the turn leaves a row as it is.
/// target  apart from the source; where the turn is sideways, `width` rows of `height` pixels
/// past    the target is so large that it need not go through the caches
void turnPixels(const TurnKernels& kernels, const Turn& turn, const PixelRows<uint8_t>& target,
                const PixelRows<const uint8_t>& source, R_INT width, R_INT height, bool past) noexcept;

/// Turns a picture in place: not sideways. Done twice, its pixels are as they were.
/// firstRow, endRow  of the upper half of the rows, (height + 1) / 2 of them, which ones; each goes with its other
void turnInPlace(const TurnKernels& kernels, const Turn& turn, const PixelRows<uint8_t>& rows, R_INT width,
                 R_INT height, R_INT firstRow, R_INT endRow) noexcept;

} // namespace rv
