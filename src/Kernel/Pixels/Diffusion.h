/// Error diffusion and index rules as data, for the row at a time and for the kernels that take many rows at once.
///
/// Included where each instruction set is built, so it holds no inline code.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace rv {

/// Where a pixel's error goes: weights[k][3 + o] / divisor of it to the pixel o columns on in the k-th row below.
struct Diffusion {
    int divisor;
    int rows;  ///< below the pixel's own
    int reach; ///< columns, to either side
    int weights[4][7];
};

constexpr int kDiffusionReach = 3;
constexpr int kDiffusionRows = 3;
constexpr int kDiffusions = 6;

/// In the order of the methods: Floyd-Steinberg is the first.
constexpr Diffusion kDiffusionOf[kDiffusions] = {
    {16, 1, 1, {{0, 0, 0, 0, 7, 0, 0}, {0, 0, 3, 5, 1, 0, 0}, {}, {}}},
    {42, 2, 2, {{0, 0, 0, 0, 8, 4, 0}, {0, 2, 4, 8, 4, 2, 0}, {0, 1, 2, 4, 2, 1, 0}, {}}},
    {32, 1, 2, {{0, 0, 0, 0, 8, 4, 0}, {0, 2, 4, 8, 4, 2, 0}, {}, {}}},
    {32, 2, 2, {{0, 0, 0, 0, 5, 3, 0}, {0, 2, 4, 5, 4, 2, 0}, {0, 0, 2, 3, 2, 0, 0}, {}}},
    {200, 3, 3, {{0, 0, 0, 0, 0, 32, 0}, {12, 0, 26, 0, 30, 0, 16}, {0, 12, 0, 26, 0, 12, 0}, {5, 0, 12, 0, 12, 0, 5}}},
    {48, 2, 2, {{0, 0, 0, 0, 7, 5, 0}, {0, 3, 5, 7, 5, 3, 0}, {0, 1, 3, 5, 3, 1, 0}, {}}},
};

/// How a colour finds its entry.
struct IndexRule {
    enum Kind : uint8_t {
        matchTable, ///< the cell of its 15-bit colour
        fields,     ///< the upper bits of each component, put together
        luminance,  ///< the upper bits of (2R + 5G + B + 4) >> 3
        halves,     ///< 0 where no component is in its upper half, else 8 and a bit for each that is
        webSafe,    ///< six levels of each component
    };
    Kind kind;
    uint8_t redDrop, greenDrop, blueDrop; ///< bits that do not count; for luminance the first one
    uint8_t redPlace, greenPlace;         ///< the lowest bits of fields
};

/// The entries to choose from. An item is an entry's blue, green and red, and its index in the top byte.
struct IndexItems {
    IndexRule rule;
    const uint32_t* items; ///< by the rule's index; with a match table by the position that a cell holds
    uint32_t* cells;       ///< 32,768, each 0 or 1 + a position
    uint32_t count;        ///< items that a cell can name; a greater number is no answer
    uint32_t (*resolve)(const IndexItems& self, uint32_t cell) noexcept; ///< fills a cell without an answer
};

} // namespace rv
