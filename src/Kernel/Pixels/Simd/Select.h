/// Which variant of the row kernels is in use.
#pragma once

#include "Kernel/Pixels/Simd/RowKernels.h"

namespace rv {

/// The kernels in use. Until a variant is selected these are the plain ones: the same bytes, only slower.
const simd::RowKernels& rowKernels() noexcept;

/// Selects the fastest variant that this machine runs. For attach(); done twice it changes nothing.
void selectRowKernels() noexcept;

/// The i-th variant that this machine runs, the plain one first and the fastest last; null past the end.
const simd::RowKernels* availableRowKernels(size_t i) noexcept;

/// Puts one variant in use; for tests and measurements, while no operation runs.
void useRowKernels(const simd::RowKernels& kernels) noexcept;

/// The kernels' name for pixels of 24, 32, 48 or 64 bits.
constexpr simd::SampleLayout sampleLayout(int bits) noexcept
{
    if (bits <= 32) return bits == 24 ? simd::kThreeBytes : simd::kFourBytes;
    return bits == 48 ? simd::kThreeWords : simd::kFourWords;
}

} // namespace rv
