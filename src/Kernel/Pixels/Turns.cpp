#include "Kernel/Pixels/Turns.h"

#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <cstring>

namespace rv {

TurnKernels::TurnKernels(R_INT depth) noexcept : bits(depth), mirror(nullptr), turn(nullptr)
{
    const simd::RowKernels& kernels = rowKernels();
    switch (depth) {
#define RV_CASE(B)                                                                                                     \
    case B:                                                                                                            \
        mirror = kernels.mirror##B;                                                                                    \
        turn = kernels.turn##B;                                                                                        \
        break;
        RV_FOR_EACH_DEPTH(RV_CASE)
#undef RV_CASE
    default: break;
    }
}

void turnPixels(const TurnKernels& kernels, const Turn& turn, const PixelRows<uint8_t>& target,
                const PixelRows<const uint8_t>& source, R_INT width, R_INT height, bool past) noexcept
{
    const PixelRows<const uint8_t> from = turn.rowsBackwards() ? source.backwards(height) : source;
    const auto columns = static_cast<size_t>(width);
    if (turn.sideways()) {
        const PixelRows<uint8_t> to = turn.columnsBackwards() ? target.backwards(width) : target;
        kernels.turn(to.first, static_cast<ptrdiff_t>(to.pitch), from.first, static_cast<ptrdiff_t>(from.pitch),
                     columns, static_cast<size_t>(height), past);
        return;
    }
    const auto rowBytes = static_cast<size_t>(packedBytes(width, kernels.bits));
    for (R_INT row = 0; row < height; ++row) {
        if (turn.columnsBackwards())
            kernels.mirror(target.row(row), from.row(row), columns, from.row(row) + from.pitch);
        else
            std::memcpy(target.row(row), from.row(row), rowBytes);
    }
}

void turnInPlace(const TurnKernels& kernels, const Turn& turn, const PixelRows<uint8_t>& rows, R_INT width,
                 R_INT height, R_INT firstRow, R_INT endRow) noexcept
{
    const auto rowBytes = static_cast<size_t>(packedBytes(width, kernels.bits));
    const simd::SwapBytes swap = rowKernels().swap;
    for (R_INT row = firstRow; row < endRow; ++row) {
        uint8_t* const upper = rows.row(row);
        uint8_t* const lower = rows.row(height - 1 - row);
        if (turn.columnsBackwards()) {
            kernels.mirror(upper, upper, static_cast<size_t>(width), upper + rows.pitch);
            if (upper != lower) kernels.mirror(lower, lower, static_cast<size_t>(width), lower - rows.pitch);
        }
        // The lower rows come last first, against the way in which the hardware fetches ahead.
        if (turn.rowsBackwards() && upper != lower) swap(upper, lower, rowBytes, lower - rows.pitch);
    }
}

} // namespace rv
