/// Rows of any depth in reverse order.
#pragma once

#include "Kernel/Pixels/Simd/RowKernels.h"
#include "R_Types.h"

namespace rv {

/// The kernel that mirrors rows of a depth; null where there is no such depth. Asked once per operation.
simd::MirrorRow mirrorRowFor(R_INT bits) noexcept;

} // namespace rv
