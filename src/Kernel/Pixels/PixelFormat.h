/// What the pixels of a row mean, apart from any record.
#pragma once

#include "R_Types.h"

namespace rv {

/// A format of one of the fourteen depths. Its palette and tables are somebody else's and are only looked at.
///
/// Gray, which is 12 bits and may be 16, counts by its significant bits: highBit is one of the sample's, and not below
/// lowBit. A gray sample stands for an entry of the first table that has one for it, else for itself.
struct PixelFormat {
    R_INT bits = 8;
    bool gray = false;     ///< one sample, no colour; up to 8 bits only its writers care
    bool redFirst = false; ///< 24 bits and more: red, green, blue; else blue, green, red. Alpha is last
    R_INT lowBit = 0;
    R_INT highBit = 0;
    const RGBQUAD* palette = nullptr; ///< up to 8 bits; what lies past it is black
    R_UINT colours = 0;
    const RGBQUAD* table = nullptr; ///< gray; samples of 8 bits are looked up too, instead of the palette's entries
    R_UINT tableLength = 0;
    const RGBQUAD16* table16 = nullptr;
    R_UINT tableLength16 = 0;

    bool hasTable() const noexcept { return table != nullptr || table16 != nullptr; }
};

} // namespace rv
