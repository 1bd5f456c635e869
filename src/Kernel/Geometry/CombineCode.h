/// What the flags of a combination come to, once everything they leave out has been left out.
#pragma once

#include "Kernel/Base/Status.h"
#include "Kernel/Pixels/Simd/RowKernels.h"
#include "R_Geometry.h"

namespace rv {

/// How the pixels of two bitmaps become one.
struct CombineCode {
    enum class Way {
        bits,    ///< each stored bit by a truth table
        samples, ///< each sample by arithmetic
        over,    ///< pixels that carry alpha composited, others copied
    };
    Way way = Way::bits;
    unsigned table = 0; ///< as the row kernels number them
    simd::Arithmetic arithmetic = simd::Arithmetic::add;
    // Before and after the operation, where it is not one on bits, whose table has them in it.
    bool invertSource = false;
    bool invertTarget = false;
    bool invertResult = false;

    bool readsSource() const noexcept { return way != Way::bits || ((table >> 2 ^ table) & 3) != 0; }
    bool keepsTarget() const noexcept { return way == Way::bits && table == 0xA; }
};

/// Whether each field of the flags has a meaning.
bool areCombineFlags(R_UINT flags) noexcept;

/// oneBit: the bitmaps have one bit a pixel, on which every operation is one on bits.
CombineCode combineCodeOf(R_UINT flags, bool oneBit) noexcept;

} // namespace rv
