// Bytes inverted, exchanged, shifted as a stream of bits. Part of the text of a variant: see RowKernels_inl.h, which
// includes it.

namespace rv::simd::RV_SIMD {
namespace {

// --- Invert, swap

void invertBytes(uint8_t* target, const uint8_t* source, size_t bytes) noexcept
{
    size_t done = 0;
    for (; bytes - done >= sizeof(Widest); done += sizeof(Widest)) store(target + done, ~load<Widest>(source + done));
    for (; done < bytes; ++done) target[done] = static_cast<uint8_t>(~source[done]);
}

template <class Block> RV_INLINE void swapBlocks(uint8_t* one, uint8_t* other) noexcept
{
    const Block first = load<Block>(one);
    const Block second = load<Block>(other);
    store(one, second);
    store(other, first);
}

void swapBytes(uint8_t* one, uint8_t* other, size_t bytes, const uint8_t* next) noexcept
{
    size_t done = 0;
    for (; bytes - done >= sizeof(Widest); done += sizeof(Widest)) {
        if constexpr (sizeof(Widest) > sizeof(Word)) __builtin_prefetch(next + done, 1);
        swapBlocks<Widest>(one + done, other + done);
    }
    for (; bytes - done >= sizeof(Word); done += sizeof(Word)) swapBlocks<Word>(one + done, other + done);
    for (; done < bytes; ++done) swapBlocks<uint8_t>(one + done, other + done);
}

// --- Shift

/// Bytes `done` on, as long as a whole block and the byte behind it remain; returns how far it came.
template <class Block>
RV_INLINE size_t shiftBlocks(uint8_t* target, const uint8_t* source, size_t bytes, size_t done, unsigned shift) noexcept
{
    const Word kept = everyByte(0xFFu << shift & 0xFFu);
    for (; bytes - done > sizeof(Block); done += sizeof(Block)) {
        const Block here = load<Block>(source + done);
        const Block behind = load<Block>(source + done + 1);
        store(target + done, (here << shift & kept) | (behind >> (8 - shift) & ~kept));
    }
    return done;
}

void shiftLeft(uint8_t* target, const uint8_t* source, size_t bytes, unsigned shift) noexcept
{
    if (bytes == 0) return;
    size_t done = shiftBlocks<Widest>(target, source, bytes, 0, shift);
    done = shiftBlocks<Word>(target, source, bytes, done, shift);
    for (; done + 1 < bytes; ++done)
        target[done] = static_cast<uint8_t>(source[done] << shift | source[done + 1] >> (8 - shift));
    target[done] = static_cast<uint8_t>(source[done] << shift);
}

} // namespace
} // namespace rv::simd::RV_SIMD
