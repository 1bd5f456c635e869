/// Palettes from histograms: boxes of colours that are divided where they vary most.
#pragma once

#include "Kernel/Colour/Colour15.h"
#include "Kernel/Core/Palette.h"

namespace rv {

/// A colour that is there, and how often. Channels are red, green, blue, of five bits.
struct CountedColour {
    R_UINT count;
    uint8_t level[3];
};

/// Divides the colours of a histogram into boxes, each of which becomes a palette entry. Nothing of the result depends
/// on the order in which a picture showed its colours.
class ColourBoxes {
public:
    /// From how many entries on very frequent colours get one of their own.
    static constexpr R_UINT kDominantFrom = 64;
    static constexpr R_UINT kSmallDominantFrom = 2;

    /// counts  of MATCH_TABLE_CELLS colours
    /// wanted  boxes at most, 1 to kMaxColours
    void divide(const R_UINT* counts, R_UINT wanted, R_UINT dominantFrom) noexcept;

    R_UINT count() const noexcept { return boxCount_; }
    /// The means of the boxes, ascending by red, green and blue; count() entries.
    void writePalette(RGBQUAD* entries) noexcept;
    /// 1 + the entry of each colour that is there, after writePalette(); other cells become 0.
    void writeMatchTable(R_UINT* cells) const noexcept;

private:
    /// A stretch of colours_.
    struct Box {
        R_UINT first;
        R_UINT count;
        uint8_t mean[3];
        uint8_t lowest[3];
        uint8_t highest[3];
        R_UINT variance[3];
        R_UINT totalVariance() const noexcept { return variance[0] + variance[1] + variance[2]; }
    };
    struct Popular;

    void takeColours(const R_UINT* counts) noexcept;
    Box& addBox(R_UINT first, R_UINT count) noexcept;
    Popular popularIn(const Box& box) const noexcept;
    bool setDominantApart() noexcept;
    void measure(Box& box) const noexcept;
    Box& boxToDivide() noexcept;
    bool divideOne() noexcept;

    R_UINT colourCount_;
    R_UINT boxCount_;
    Box boxes_[kMaxColours];     ///< in the order in which they were made
    uint8_t order_[kMaxColours]; ///< the box of each palette entry
    CountedColour colours_[MATCH_TABLE_CELLS];
};

} // namespace rv
