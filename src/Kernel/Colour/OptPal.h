/// Palettes made for pictures.
#pragma once

#include "Kernel/Base/Status.h"
#include "Kernel/Pixels/RowBuffer.h"
#include "R_Colour.h"

namespace rv {

/// Takes the colours of one bitmap or of several and makes a palette that suits them all.
class OptimizedPalette {
public:
    OptimizedPalette() noexcept;
    /// ERROR_FAILURE: no memory to work in.
    Status status() const noexcept { return memory_ ? SUCCESS : ERROR_FAILURE; }

    /// Counts a bitmap's pixels. ERROR_INV_BITMAP null or no pixels, ERROR_INV_STRUCT_SIZE, those of checkWalkable()
    /// and formatOf(), or what reading rows answers.
    Status add(BITMAPHANDLE* pBitmap) noexcept;

    /// Writes the outputs of R_CreateBitmapOptPal, all of them or, without memory for the table, none.
    Status write(RGBQUAD* pPalette, R_UINT* puColors, R_UINT** ppMatchTable, R_UINT uFlags) noexcept;

private:
    struct Work;
    Work& work() const noexcept;
    RowBuffer memory_;
};

/// What can be wrong with those arguments: ERROR_INV_PARAMETER.
Status checkOptPalOutputs(const RGBQUAD* pPalette, const R_UINT* puColors, R_UINT uFlags) noexcept;

/// An empty match table of the caller's, as R_FreeUserMatchTable frees it; null without memory.
R_UINT* newMatchTable() noexcept;

} // namespace rv
