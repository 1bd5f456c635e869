/// The palette that is dithered to: which rule finds its entries, and what ordered dithering adds.
#pragma once

#include "Kernel/Base/Status.h"
#include "Kernel/Pixels/Diffusion.h"
#include "Kernel/Pixels/RowBuffer.h"
#include "R_Colour.h"

namespace rv {

class DitherTarget {
public:
    DitherTarget() noexcept = default;
    DitherTarget(const DitherTarget&) = delete;
    DitherTarget& operator=(const DitherTarget&) = delete;

    /// palette    1 to 256 entries, copied; null stands for the fixed palette of so many colours
    /// userTable  used in place of any rule where it is not null, which takes a palette
    /// ERROR_FAILURE: no memory.
    Status prepare(const RGBQUAD* palette, R_UINT colours, R_UINT* userTable) noexcept;
    /// Gives the cells of the entries' own colours their answers, where a match table has none yet.
    void seedTable() noexcept;

    const IndexItems& items() const noexcept { return items_; }
    /// What an ordered method makes of its matrix, row by row: numbers to add to the components or, where comparing()
    /// says so, levels to be above of.
    void fillThresholds(R_INT method, int16_t* thresholds) const noexcept;
    /// Whether a colour is compared with a level, which is kMiddle without a matrix.
    bool comparing() const noexcept { return kind_ == Kind::blackWhite || kind_ == Kind::fixed16; }
    static constexpr int16_t kMiddle = 127;
    /// Whether gray can only become gray, by the gray alone.
    bool grayByLuminance() const noexcept { return kind_ == Kind::blackWhite || kind_ == Kind::fixed4; }

private:
    /// Palettes by how their entries are found. The fixed ones follow each other by their depth.
    enum class Kind {
        other,
        userTable,
        blackWhite,
        fixed4,
        fixed8,
        fixed16,
        fixed32,
        fixed64,
        fixed128,
        fixed256,
        webSafe
    };

    static Kind classify(const RGBQUAD* palette, R_UINT colours) noexcept;
    Status prepareTable(const RGBQUAD* palette, R_UINT colours, R_UINT* userTable) noexcept;
    void listUsable(const RGBQUAD* palette, R_UINT colours, bool ignoreMarks) noexcept;
    static uint32_t resolve(const IndexItems& items, uint32_t cell) noexcept;

    Kind kind_ = Kind::other;
    R_INT sizeClass_ = 8; // bits that hold the number of colours
    RowBuffer table_;     // where there is no table of the caller's
    uint32_t list_[256];  // items, which are entries with another top byte
    IndexItems items_{};
};

/// The fewest bits, at least 1, that hold so many colours.
constexpr R_INT bitsForColours(R_UINT colours) noexcept
{
    R_INT bits = 1;
    while (bits < 8 && 1u << bits < colours) ++bits;
    return bits;
}

} // namespace rv
