// Bytes mixed bilinearly. Part of the text of a variant: see RowKernels_inl.h, which includes it.
//
// Bytes less 128 are signed, so that the sums of two use all of 16 bits and differences of sums still fit.

namespace rv::simd::RV_SIMD {
namespace {

RV_INLINE int16_t mixedBytes(unsigned first, unsigned next, int firstWeight, int nextWeight) noexcept
{
    return static_cast<int16_t>((static_cast<int>(first) - 128) * firstWeight +
                                (static_cast<int>(next) - 128) * nextWeight);
}

#if RV_VECTOR_BYTES >= 16
typedef char MixChars __attribute__((vector_size(16)));

/// The bytes that a block is mixed from.
template <bool Together> RV_INLINE Words2 blockBytes(const uint8_t* row, const MixBlock& plan) noexcept
{
    const Words2 from = load<Words2>(plan.from);
    const Words2 first = pick(load<Words2>(row + plan.offsets[0]), from);
    if constexpr (Together) return first;
    return __builtin_shufflevector(first, pick(load<Words2>(row + plan.offsets[1]), from), 0, 3);
}
#endif

template <bool Together>
void mixBlocks(int16_t* target, const uint8_t* row, const MixBlock* plan, size_t blocks) noexcept
{
    auto* const out = reinterpret_cast<uint8_t*>(target);
    size_t i = 0;
#if RV_VECTOR_BYTES == 32
    typedef char MixChars2 __attribute__((vector_size(32)));
    for (; blocks - i >= 2; i += 2) {
        const Words2 one = blockBytes<Together>(row, plan[i]), two = blockBytes<Together>(row, plan[i + 1]);
        const Words2 w1 = load<Words2>(plan[i].weights), w2 = load<Words2>(plan[i + 1].weights);
        const Words4 bytes = __builtin_shufflevector(one, two, 0, 1, 2, 3) ^ everyByte(0x80);
        const Words4 weights = __builtin_shufflevector(w1, w2, 0, 1, 2, 3);
        store(out + i * 16,
              __builtin_ia32_pmaddubsw256(reinterpret_cast<MixChars2>(weights), reinterpret_cast<MixChars2>(bytes)));
    }
#endif
    for (; i < blocks; ++i) {
#if RV_VECTOR_BYTES >= 16
        const Words2 bytes = blockBytes<Together>(row, plan[i]) ^ everyByte(0x80);
        store(out + i * 16, __builtin_ia32_pmaddubsw128(reinterpret_cast<MixChars>(load<Words2>(plan[i].weights)),
                                                        reinterpret_cast<MixChars>(bytes)));
#else
        for (size_t k = 0; k < kMixBlock; ++k) {
            const uint8_t* const half = row + plan[i].offsets[k * 2 / kMixBlock];
            store(out + i * 16 + 2 * k, mixedBytes(half[plan[i].from[2 * k]], half[plan[i].from[2 * k + 1]],
                                                   plan[i].weights[2 * k], plan[i].weights[2 * k + 1]));
        }
#endif
    }
}

void mixPixels(int16_t* target, const uint8_t* row, const MixedPixel* plan, size_t width, size_t channels) noexcept
{
    for (size_t x = 0; x < width; ++x, target += channels) {
        const uint8_t* const from = row + static_cast<size_t>(plan[x].first) * channels;
        const int steps = plan[x].steps;
        for (size_t c = 0; c < channels; ++c)
            target[c] = mixedBytes(from[c], from[c + channels], kMixSteps - steps, steps);
    }
}

#if RV_VECTOR_BYTES == 32
typedef short MixWords __attribute__((vector_size(32)));
RV_INLINE MixWords highRounded(MixWords a, MixWords b) noexcept { return __builtin_ia32_pmulhrsw256(a, b); }
RV_INLINE Words4 packBytes(MixWords a, MixWords b) noexcept
{
    const auto packed = reinterpret_cast<Words4>(__builtin_ia32_packsswb256(a, b));
    return __builtin_shufflevector(packed, packed, 0, 2, 1, 3);
}
#elif RV_VECTOR_BYTES == 16
typedef short MixWords __attribute__((vector_size(16)));
RV_INLINE MixWords highRounded(MixWords a, MixWords b) noexcept { return __builtin_ia32_pmulhrsw128(a, b); }
RV_INLINE Words2 packBytes(MixWords a, MixWords b) noexcept
{
    return reinterpret_cast<Words2>(__builtin_ia32_packsswb128(a, b));
}
#endif

void mixRows(uint8_t* target, const int16_t* first, const int16_t* next, int steps, size_t count) noexcept
{
    size_t done = 0;
#if RV_VECTOR_BYTES >= 16
    const MixWords share = MixWords{} + static_cast<short>(steps);
    const auto mixed = [=](size_t at) noexcept {
        const auto a = load<MixWords>(reinterpret_cast<const uint8_t*>(first + at));
        const auto b = load<MixWords>(reinterpret_cast<const uint8_t*>(next + at));
        return (a + highRounded(b - a, share) + 64) >> 7;
    };
    constexpr size_t words = sizeof(MixWords) / 2;
    for (; count - done >= 2 * words; done += 2 * words)
        store(target + done, packBytes(mixed(done), mixed(done + words)) ^ everyByte(0x80));
#endif
    for (; done < count; ++done) {
        const int share1 = ((next[done] - first[done]) * steps + 0x4000) >> 15;
        target[done] = static_cast<uint8_t>(((first[done] + share1 + 64) >> 7) + 128);
    }
}

} // namespace
} // namespace rv::simd::RV_SIMD
