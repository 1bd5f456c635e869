/// The fourteen depths, as one list, and what follows from a depth alone.
#pragma once

#include "R_Types.h"

namespace rv {

#define RV_FOR_EACH_DEPTH(M) M(1) M(2) M(3) M(4) M(5) M(6) M(7) M(8) M(12) M(16) M(24) M(32) M(48) M(64)

/// A depth as a type.
template <int Bits> struct Depth {
    static constexpr int bits = Bits;
};

/// Calls f with the type of a depth and returns its result; a value-initialised one for an unknown depth.
template <class F> constexpr auto withDepth(R_INT bits, F&& f) noexcept -> decltype(f(Depth<8>{}))
{
    switch (bits) {
#define RV_CASE(B)                                                                                                     \
    case B: return f(Depth<B>{});
        RV_FOR_EACH_DEPTH(RV_CASE)
#undef RV_CASE
    default: return {};
    }
}

constexpr bool isDepth(R_INT bits) noexcept
{
    switch (bits) {
#define RV_CASE(B) case B:
        RV_FOR_EACH_DEPTH(RV_CASE)
#undef RV_CASE
        return true;
    default: return false;
    }
}

/// Bytes that hold `pixels` pixels; the last one may be shared with padding.
constexpr R_UINT64 packedBytes(R_INT64 pixels, R_INT bits) noexcept
{
    return (static_cast<R_UINT64>(pixels) * static_cast<R_UINT64>(bits) + 7) / 8;
}

/// First byte of a column: the byte that holds its first bit.
constexpr R_INT64 columnByte(R_INT64 column, R_INT bits) noexcept { return (column * bits) >> 3; }

} // namespace rv
