// Match tables for palettes of the caller's, and the one that a thread uses.

#include "Kernel/Base/System.h"
#include "Kernel/Colour/Colour15.h"
#include "Kernel/Colour/OptPal.h"
#include "Kernel/Core/ColourReach.h"
#include "Kernel/Core/Palette.h"

#include <algorithm>
#include <utility>

namespace rv {

namespace {

constexpr R_UINT kLevelStep = 8;  // between the levels of a channel
constexpr R_UINT kBlockCells = 4; // of a block, along each channel
constexpr R_UINT kBlockStep = kBlockCells * kLevelStep;
constexpr R_UINT kBlocks = 256 / kBlockStep;

/// From the levels of a block, the last of which is a step below the next block.
constexpr Reach reachOfBlock(R_INT level, R_UINT block) noexcept
{
    const auto first = static_cast<R_INT>(block * kBlockStep);
    return reachOf(level, first, first + static_cast<R_INT>(kBlockStep - kLevelStep));
}

R_UINT nearestCell(const RGBQUAD* palette, R_UINT colours, R_UINT cell) noexcept
{
    const auto level = [](R_UINT level5) noexcept { return static_cast<R_INT>(level5 * kLevelStep); };
    return R_FindPaletteIndex(palette, colours, level(red15(cell)), level(green15(cell)), level(blue15(cell)));
}

/// Fills tables block by block: most entries of a palette are too far from a block to be the nearest to any of its
/// colours, and so only the others are asked about.
class TableFiller {
public:
    TableFiller(R_UINT* cells, const RGBQUAD* palette, R_UINT colours) noexcept
        : cells_(cells), palette_(palette), colours_(colours)
    {
        for (R_UINT block = 0; block < kBlocks; ++block)
            for (R_UINT i = 0; i < colours; ++i) blue_[block][i] = reachOfBlock(palette[i].rgbBlue, block);
    }

    void fill() noexcept
    {
        for (R_UINT red = 0; red < kBlocks; ++red) {
            for (R_UINT green = 0; green < kBlocks; ++green) {
                setColumn(red, green);
                for (R_UINT blue = 0; blue < kBlocks; ++blue) {
                    choose(blue);
                    fillBlock(red * kBlockCells << 10 | green * kBlockCells << 5 | blue * kBlockCells);
                }
            }
        }
        // Black has a rule of its own, which looks at both ends of the whole palette.
        cells_[0] = 1 + nearestCell(palette_, colours_, 0);
    }

private:
    void setColumn(R_UINT red, R_UINT green) noexcept
    {
        for (R_UINT i = 0; i < colours_; ++i) {
            const Reach r = reachOfBlock(palette_[i].rgbRed, red), g = reachOfBlock(palette_[i].rgbGreen, green);
            column_[i] = {r.least + g.least, r.most + g.most};
        }
    }

    /// The entries that can be the nearest to a colour of the block: none of them is everywhere farther than another.
    void choose(R_UINT blue) noexcept
    {
        R_UINT bound = 0xFFFFFFFFu;
        for (R_UINT i = 0; i < colours_; ++i) bound = std::min(bound, column_[i].most + blue_[blue][i].most);
        chosenCount_ = 0;
        for (R_UINT i = 0; i < colours_; ++i) {
            chosen_[chosenCount_] = palette_[i];
            index_[chosenCount_] = i;
            chosenCount_ += column_[i].least + blue_[blue][i].least <= bound ? 1 : 0;
        }
    }

    void fillBlock(R_UINT first) noexcept
    {
        for (R_UINT red = 0; red < kBlockCells; ++red) {
            for (R_UINT green = 0; green < kBlockCells; ++green) {
                for (R_UINT blue = 0; blue < kBlockCells; ++blue) {
                    const R_UINT cell = first + (red << 10 | green << 5 | blue);
                    cells_[cell] = 1 + index_[nearestCell(chosen_, chosenCount_, cell)];
                }
            }
        }
    }

    R_UINT* cells_;
    const RGBQUAD* palette_;
    R_UINT colours_;
    R_UINT chosenCount_ = 0;
    Reach blue_[kBlocks][kMaxColours];
    Reach column_[kMaxColours];
    RGBQUAD chosen_[kMaxColours];
    R_UINT index_[kMaxColours];
};

} // namespace

R_UINT* newMatchTable() noexcept
{
    return static_cast<R_UINT*>(platform().allocate(MATCH_TABLE_CELLS * sizeof(R_UINT)));
}

} // namespace rv

using namespace rv;

R_UINT* R_CreateUserMatchTable(const RGBQUAD* pPalette, R_UINT uColors) noexcept
{
    if (pPalette == nullptr) return nullptr;
    R_UINT* const table = newMatchTable();
    if (table == nullptr) return nullptr;
    if (uColors >= 1 && uColors <= kMaxColours) {
        TableFiller(table, pPalette, uColors).fill();
    } else { // the index of no entry is -1, which makes a cell 0
        for (R_UINT cell = 0; cell < MATCH_TABLE_CELLS; ++cell) table[cell] = 1 + nearestCell(pPalette, uColors, cell);
    }
    return table;
}

R_INT R_FreeUserMatchTable(R_UINT* puTable) noexcept
{
    platform().release(puTable);
    return SUCCESS;
}

R_UINT* R_SetUserMatchTable(R_UINT* puTable) noexcept
{
    return std::exchange(threadSettings().userMatchTable, puTable);
}
