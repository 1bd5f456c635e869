/// Rows of one pixel value.
#pragma once

#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/PixelTraits.h"

#include <algorithm>
#include <cstring>

namespace rv {

/// Writes `bytes` bytes that repeat the first `period` of them, which are there.
inline void repeatBytes(uint8_t* row, R_UINT64 period, R_UINT64 bytes) noexcept
{
    for (R_UINT64 done = period; done < bytes; done += std::min(done, bytes - done))
        std::memcpy(row + done, row, static_cast<size_t>(std::min(done, bytes - done)));
}

/// Gives the first `width` pixels of a row one value. Bits behind the last of them become 0, up to `bytes` bytes.
inline void fillRow(uint8_t* row, R_UINT64 bytes, R_INT width, R_INT bits, R_UINT64 pixel) noexcept
{
    uint8_t eight[64] = {}; // pixels; they are whole bytes at every depth
    withDepth(bits, [&]<int Bits>(Depth<Bits>) {
        for (size_t i = 0; i < 8; ++i) PixelTraits<Bits>::write(eight, i, pixel);
        return true;
    });
    const R_UINT64 used = packedBytes(width, bits);
    const auto period = std::min(used, static_cast<R_UINT64>(bits));
    std::memcpy(row, eight, static_cast<size_t>(period));
    repeatBytes(row, period, used);
    if (const R_INT64 tail = R_INT64{width} * bits % 8; tail != 0)
        row[used - 1] = static_cast<uint8_t>(row[used - 1] & 0xFF00u >> tail);
    std::memset(row + used, 0, static_cast<size_t>(bytes - used));
}

} // namespace rv
