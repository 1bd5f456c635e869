// The blocks that row kernels work in: a word, or a vector of two or four words, and what can be done with any of
// them. Part of the text of a variant: see RowKernels_inl.h, which includes it.

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#define RV_INLINE inline __attribute__((always_inline))
#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "A word's first byte is taken to be its lowest"
#endif

namespace rv::simd::RV_SIMD {
namespace {

using Word = uint64_t;

/// Blocks are moved by copying their bytes, so any address will do.
template <class Block> RV_INLINE Block load(const uint8_t* bytes) noexcept
{
    Block block;
    memcpy(&block, bytes, sizeof block);
    return block;
}

template <class Block> RV_INLINE void store(uint8_t* bytes, Block block) noexcept
{
    memcpy(bytes, &block, sizeof block);
}

/// A word with the same value in each byte.
constexpr Word everyByte(unsigned value) noexcept { return 0x0101010101010101u * value; }

#if RV_VECTOR_BYTES >= 16
typedef uint8_t Bytes16 __attribute__((vector_size(16)));
typedef Word Words2 __attribute__((vector_size(16)));

/// The sixteen bytes Pattern::at(0) to Pattern::at(15).
template <class Pattern> RV_INLINE Words2 patternBytes(Words2*) noexcept
{
    constexpr auto at = Pattern::at;
    const Bytes16 bytes = {at(0), at(1), at(2),  at(3),  at(4),  at(5),  at(6),  at(7),
                           at(8), at(9), at(10), at(11), at(12), at(13), at(14), at(15)};
    return reinterpret_cast<Words2>(bytes);
}

/// The bytes of `from` that `which` names, sixteen by sixteen; 128 and above names a 0.
RV_INLINE Words2 pick(Words2 from, Words2 which) noexcept
{
    typedef char Chars __attribute__((vector_size(16)));
    return reinterpret_cast<Words2>(
        __builtin_ia32_pshufb128(reinterpret_cast<Chars>(from), reinterpret_cast<Chars>(which)));
}

RV_INLINE Words2 swapHalves(Words2 words) noexcept { return words; } // one half is all there is
#endif

#if RV_VECTOR_BYTES >= 32
typedef Word Words4 __attribute__((vector_size(32)));

template <class Pattern> RV_INLINE Words4 patternBytes(Words4*) noexcept
{
    const Words2 half = patternBytes<Pattern>(static_cast<Words2*>(nullptr));
    return __builtin_shufflevector(half, half, 0, 1, 0, 1);
}

RV_INLINE Words4 pick(Words4 from, Words4 which) noexcept
{
    typedef char Chars __attribute__((vector_size(32)));
    return reinterpret_cast<Words4>(
        __builtin_ia32_pshufb256(reinterpret_cast<Chars>(from), reinterpret_cast<Chars>(which)));
}

RV_INLINE Words4 swapHalves(Words4 words) noexcept { return __builtin_shufflevector(words, words, 2, 3, 0, 1); }
#endif

#if RV_VECTOR_BYTES == 32
using Widest = Words4;
#elif RV_VECTOR_BYTES == 16
using Widest = Words2;
#else
using Widest = Word;
#endif

/// pick() from a block, or from a table of sixteen bytes, by a pattern known at compile time.
template <class Pattern, class Block> RV_INLINE Block pickPattern(Block from) noexcept
{
    return pick(from, patternBytes<Pattern>(static_cast<Block*>(nullptr)));
}

// --- The units of a block in reverse order; a unit is 1, 2, 4 or 8 bytes

template <size_t Unit> struct ReversedUnits {
    static constexpr uint8_t at(size_t i) noexcept { return static_cast<uint8_t>(16 - Unit - i + 2 * (i % Unit)); }
};

template <size_t Unit, class Block> RV_INLINE Block reverseUnits(Block block) noexcept
{
    if constexpr (sizeof(Block) > sizeof(Word)) {
        return swapHalves(pickPattern<ReversedUnits<Unit>>(block));
    } else if constexpr (Unit == 1) {
        return __builtin_bswap64(block);
    } else {
        if constexpr (Unit == 2) block = (block >> 16 & 0x0000FFFF0000FFFFu) | (block & 0x0000FFFF0000FFFFu) << 16;
        if constexpr (Unit <= 4) block = block >> 32 | block << 32;
        return block;
    }
}

// --- The samples inside each byte of a block in reverse order; a sample is 1, 2 or 4 bits

/// What becomes of the upper half of a byte, in the lower half.
template <unsigned Bits> struct TurnedHalves {
    static constexpr uint8_t at(size_t half) noexcept
    {
        if (Bits <= 2) half = half >> 2 | (half & 3) << 2;
        if (Bits == 1) half = (half >> 1 & 5) | (half & 5) << 1;
        return static_cast<uint8_t>(half);
    }
};

template <unsigned Bits, class Block> RV_INLINE Block reverseSamples(Block block) noexcept
{
    const Block upper = block >> 4 & everyByte(0x0F);
    const Block lower = block & everyByte(0x0F);
    if constexpr (sizeof(Block) > sizeof(Word) && Bits < 4) {
        const Block halves = patternBytes<TurnedHalves<Bits>>(static_cast<Block*>(nullptr));
        return pick(halves, upper) | pick(halves << 4, lower);
    } else {
        block = upper | lower << 4;
        if constexpr (Bits <= 2) block = (block >> 2 & everyByte(0x33)) | (block & everyByte(0x33)) << 2;
        if constexpr (Bits == 1) block = (block >> 1 & everyByte(0x55)) | (block & everyByte(0x55)) << 1;
        return block;
    }
}

} // namespace
} // namespace rv::simd::RV_SIMD
