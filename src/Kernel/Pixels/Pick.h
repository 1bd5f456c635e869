/// Rows of another width that repeat and leave out pixels: in integers, so that every caller's pixels are the same.
#pragma once

#include "Kernel/Pixels/RowBuffer.h"
#include "Kernel/Pixels/Simd/RowKernels.h"

#include <algorithm>

namespace rv {

/// Which pixel of a row each pixel of another one is: from `first` on, by `step`, and by one more whenever an error,
/// which grows by `increment` from `error` on, has reached `denominator`.
struct PickWalk {
    R_INT64 first = 0;
    R_INT64 step = 0;
    R_UINT64 error = 0; // this and the next two have 32 bits at the most
    R_UINT64 increment = 0;
    R_UINT64 denominator = 1;

    /// Pixel j of `to` is pixel first + floor(j * from / to).
    static constexpr PickWalk between(R_INT from, R_INT to, R_INT first = 0) noexcept
    {
        return {first, from / to, 0, static_cast<R_UINT64>(from % to), static_cast<R_UINT64>(to)};
    }

    /// Where pixel j comes from, and the error there.
    struct Place {
        R_INT64 pixel;
        R_UINT64 error;
    };
    /// An increment or an error that is not below the denominator adds one at every pixel, and no more.
    constexpr Place at(R_UINT64 j) const noexcept
    {
        const R_UINT64 sum = error + j * increment;
        const R_UINT64 carries = denominator == 0 ? j : std::min(j, sum / denominator);
        return {first + static_cast<R_INT64>(j) * step + static_cast<R_INT64>(carries), sum - carries * denominator};
    }
    constexpr void advance(Place& place) const noexcept
    {
        const R_UINT64 sum = place.error + increment;
        const bool carry = sum >= denominator;
        place.pixel += step + carry;
        place.error = sum - (carry ? denominator : 0);
    }
};

/// Makes the first `count` pixels of a row of one of the fourteen depths; bits behind the last one become 0. The two
/// rows are apart. Or they are one: forward, where no pixel comes from one before it, backward, where none comes from
/// one behind it.
using PickInOrder = void (*)(uint8_t* target, const uint8_t* source, const PickWalk& walk, size_t count) noexcept;
PickInOrder pickForwardFor(R_INT bits) noexcept;
PickInOrder pickBackwardFor(R_INT bits) noexcept;

/// Picks the same pixels of many rows. Takes its memory at construction: about as much as some rows of the target.
class RowPicker {
public:
    /// Columns left to right - 1 of rows of a depth become `width` pixels; both have some.
    RowPicker(R_INT bits, R_INT left, R_INT right, R_INT width) noexcept;
    /// False: there was no memory.
    bool ready() const noexcept { return ready_; }

    /// target  out, the bytes that hold the pixels; bits behind the last become 0
    /// source  the whole row, of which the bytes that hold the columns are looked at
    void pick(uint8_t* target, const uint8_t* source) const noexcept;

private:
    bool planBytes(const PickWalk& walk, size_t sourceBytes) noexcept;
    bool takeUnpacked() noexcept;

    R_INT bits_;
    size_t width_;
    PickWalk walk_;
    PickInOrder oneByOne_;
    simd::PickPlan plan_ = {}; // without pieces: one by one
    size_t unit_ = 0;          // bytes of what the plan moves: of a pixel, or of an unpacked one
    size_t firstByte_ = 0;     // of the source, where the plan's positions begin
    size_t unpacked_ = 0;      // packed pixels from there on that are to be unpacked
    RowBuffer patterns_;       // and offsets: the plan's
    RowBuffer unpackedSource_;
    RowBuffer unpackedTarget_;
    bool ready_ = true;
};

} // namespace rv
