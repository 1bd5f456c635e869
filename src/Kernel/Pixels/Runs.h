/// Rows of 1 bit as runs: 16-bit lengths in machine byte order that alternate in colour, the first one of zeros and so
/// 0 where the row begins with a one. A run of more than 65,535 pixels goes on after a run of 0 of the other colour: it
/// is closed at the last byte border of the row that it may reach, so that the first part depends on where it began.
///
/// Pixel p of a row is bit p of its bytes, most significant first. Runs lie at any address. Where runs come from
/// somewhere else they are taken for what they are: `count` of them and not one more is read, and what they say beyond
/// the pixels asked for is left aside.
#pragma once

#include "R_Types.h"

#include <cstddef>
#include <cstdint>

namespace rv {

constexpr size_t kRunBytes = sizeof(R_UINT16);

/// The most runs that a row of so many pixels can have: single pixels that begin with a one.
constexpr size_t mostRuns(size_t pixels) noexcept { return pixels + 1; }

/// Writes the runs of pixels `first` to first + pixels of a row.
/// runs   out, `room` runs, of which nothing past those that are counted is written; may not overlap the row
/// row    in; no byte without pixels of the piece is read
/// Returns how many runs there are: at least one where there are pixels. 0 also says that they do not fit: some of the
/// room is written then. Room for mostRuns(pixels) always is enough.
size_t encodeRuns(void* runs, size_t room, const uint8_t* row, size_t first, size_t pixels) noexcept;

/// Writes pixels `skipped` to skipped + pixels of what the runs say to pixels `first` to first + pixels of a row.
/// row    out; every other bit keeps its value, and no byte without pixels of the piece is read or written
/// runs   in, at most `count` of them, whatever they hold, and none behind the last that is needed; may not overlap the
///        row
/// Returns how many of the pixels the runs hold: all, unless they end before; the rest are zeros then.
size_t decodeRuns(uint8_t* row, size_t first, size_t pixels, const void* runs, size_t count,
                  size_t skipped = 0) noexcept;

/// How many of at most `count` runs make `pixels` pixels exactly, runs of 0 behind them left out; 0 where no number of
/// them does. Nothing past the last of them is read, and never more than mostRuns(pixels), which is the count to give
/// where nobody knows how many there are.
size_t countRuns(const void* runs, size_t count, size_t pixels) noexcept;

/// Turns runs round in place, so that the last pixel is the first one; they become one more, one less or stay as many,
/// and the lengths that a long run is divided into stay as they are.
/// runs   `count` of them, and room for one more
/// Returns how many there are now.
size_t mirrorRuns(void* runs, size_t count) noexcept;

} // namespace rv
