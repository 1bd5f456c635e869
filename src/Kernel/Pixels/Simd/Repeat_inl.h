// Memory that is filled with what repeats itself. Part of the text of a variant: see RowKernels_inl.h, which
// includes it.

namespace rv::simd::RV_SIMD {
namespace {

static_assert(sizeof(Widest) <= kRepeatAhead);

/// Stores a block at a multiple of its size, past the caches; where the machine can, without fetching what was there.
RV_INLINE void storePast(uint8_t* bytes, Widest block) noexcept
{
#if RV_VECTOR_BYTES == 8
    store(bytes, block);
#elif defined(__clang__)
    __builtin_nontemporal_store(block, reinterpret_cast<Widest*>(bytes));
#elif RV_VECTOR_BYTES == 16
    typedef long long Streamed __attribute__((vector_size(16)));
    __builtin_ia32_movntdq(reinterpret_cast<Streamed*>(bytes), reinterpret_cast<Streamed>(block));
#else
    typedef long long Streamed __attribute__((vector_size(32)));
    __builtin_ia32_movntdq256(reinterpret_cast<Streamed*>(bytes), reinterpret_cast<Streamed>(block));
#endif
}

/// Such stores are seen by others in no order but this one.
RV_INLINE void settleStores() noexcept
{
#if RV_VECTOR_BYTES > 8
    __builtin_ia32_sfence();
#endif
}

/// All blocks but the first bytes, up to a border between blocks, and the last ones.
template <bool Past>
RV_INLINE void repeatBlocks(uint8_t* target, size_t bytes, const uint8_t* pattern, size_t period) noexcept
{
    constexpr size_t block = sizeof(Widest);
    const size_t head = (block - reinterpret_cast<uintptr_t>(target) % block) % block;
    size_t done = head < bytes ? head : bytes;
    memcpy(target, pattern, done);
    size_t at = done; // in the pattern; a block from anywhere before the period's end is there
    while (bytes - done >= block) {
        const size_t toSeam = (period - at + block - 1) / block;
        const size_t toEnd = (bytes - done) / block;
        const size_t blocks = toSeam < toEnd ? toSeam : toEnd;
        for (size_t i = 0; i < blocks; ++i) {
            const Widest some = load<Widest>(pattern + at + i * block);
            Past ? storePast(target + done + i * block, some) : store(target + done + i * block, some);
        }
        done += blocks * block;
        at += blocks * block;
        if (at >= period) at -= period;
    }
    memcpy(target + done, pattern + at, bytes - done);
}

void repeatBytes(uint8_t* target, size_t bytes, const uint8_t* pattern, size_t period, bool past) noexcept
{
    if (!past) return repeatBlocks<false>(target, bytes, pattern, period);
    repeatBlocks<true>(target, bytes, pattern, period);
    settleStores();
}

} // namespace
} // namespace rv::simd::RV_SIMD
