// Bytes that come from elsewhere in a row. Part of the text of a variant: see RowKernels_inl.h, which includes it.

namespace rv::simd::RV_SIMD {
namespace {

/// Sixteen bytes from some pieces of a row.
RV_INLINE void pickSixteen(uint8_t* target, const uint8_t* source, size_t pieces, const uint32_t* offsets,
                           const uint8_t* patterns) noexcept
{
#if RV_VECTOR_BYTES >= 16
    Words2 bytes = {};
    for (size_t i = 0; i < pieces; ++i)
        bytes |= pick(load<Words2>(source + offsets[i]), load<Words2>(patterns + 16 * i));
    store(target, bytes);
#else
    for (size_t i = 0; i < pieces; ++i)
        for (size_t byte = 0; byte < 16; ++byte)
            if (patterns[16 * i + byte] < 128) target[byte] = source[offsets[i] + patterns[16 * i + byte]];
#endif
}

template <size_t Pieces>
void pickBlocks(uint8_t* target, const uint8_t* source, size_t bytes, const PickPlan& plan) noexcept
{
    const size_t pieces = Pieces != 0 ? Pieces : plan.pieces;
    const uint32_t* offsets = plan.offsets;
    const uint8_t* patterns = plan.patterns;
    size_t done = 0;
    for (; bytes - done >= 16; done += 16, offsets += pieces, patterns += 16 * pieces)
        pickSixteen(target + done, source, pieces, offsets, patterns);
    if (done == bytes) return;
    uint8_t last[16];
    pickSixteen(last, source, pieces, offsets, patterns);
    memcpy(target + done, last, bytes - done);
}

void pickBytes(uint8_t* target, const uint8_t* source, size_t bytes, const PickPlan& plan) noexcept
{
    switch (plan.pieces) {
    case 1: return pickBlocks<1>(target, source, bytes, plan);
    case 2: return pickBlocks<2>(target, source, bytes, plan);
    case 3: return pickBlocks<3>(target, source, bytes, plan);
    case 4: return pickBlocks<4>(target, source, bytes, plan);
    default: return pickBlocks<0>(target, source, bytes, plan);
    }
}

} // namespace
} // namespace rv::simd::RV_SIMD
