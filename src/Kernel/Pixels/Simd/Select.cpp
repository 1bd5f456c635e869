#include "Kernel/Pixels/Simd/Select.h"

#include <atomic>

namespace rv {

namespace {

// A constant from the start, so that nobody can ask too early; every value it can take is complete.
constinit std::atomic<const simd::RowKernels*> gRowKernels{&simd::base::kRowKernels};

} // namespace

const simd::RowKernels& rowKernels() noexcept { return *gRowKernels.load(std::memory_order_relaxed); }

void useRowKernels(const simd::RowKernels& kernels) noexcept { gRowKernels.store(&kernels, std::memory_order_relaxed); }

const simd::RowKernels* availableRowKernels(size_t i) noexcept
{
    if (i == 0) return &simd::base::kRowKernels;
#if defined(__x86_64__) && !defined(RV_PLAIN_KERNELS)
    // The answers include whether the system keeps the wider registers.
    __builtin_cpu_init();
    if (__builtin_cpu_supports("ssse3") && --i == 0) return &simd::ssse3::kRowKernels;
    if (__builtin_cpu_supports("avx2") && --i == 0) return &simd::avx2::kRowKernels;
#endif
    return nullptr;
}

void selectRowKernels() noexcept
{
    const simd::RowKernels* best = nullptr;
    for (size_t i = 0; const simd::RowKernels* const kernels = availableRowKernels(i); ++i) best = kernels;
    useRowKernels(*best);
}

} // namespace rv
