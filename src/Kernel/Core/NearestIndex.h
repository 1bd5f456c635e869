/// R_FindPaletteIndex of one palette, for many colours.
#pragma once

#include "Kernel/Pixels/RowBuffer.h"
#include "R_Colour.h"

#include <cstddef>

namespace rv {

/// Remembers what it has answered, as neighbours look alike. When it is asked for much, it also lists for each small
/// cube of colours the entries that can be the nearest to one of them: those are few, and often one.
class NearestIndex {
public:
    NearestIndex() noexcept = default;
    /// The palette is used until the end. Without memory the object is empty.
    NearestIndex(const RGBQUAD* palette, R_UINT colours) noexcept;
    explicit operator bool() const noexcept { return static_cast<bool>(memory_); }
    void find(uint8_t* indices, const RGBQUAD* colours, size_t width) noexcept;

private:
    struct Lists;
    uint8_t exact(uint32_t rgb) const noexcept;
    uint8_t answer(uint32_t rgb) noexcept;
    void makeLists() noexcept;

    static constexpr unsigned kSlotBits = 13;
    static constexpr R_UINT kPatience = 2048; // questions until lists are worth their making
    const RGBQUAD* palette_ = nullptr;
    R_UINT colours_ = 0;
    R_UINT asked_ = 0;
    RowBuffer memory_; // words: a colour's three bytes, then its index
    RowBuffer lists_;
};

} // namespace rv
