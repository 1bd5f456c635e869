// Pixels of one format from those of another. Part of the text of a variant: see RowKernels_inl.h, which includes it.

namespace rv::simd::RV_SIMD {
namespace {

// --- Bits to bytes

#if RV_VECTOR_BYTES >= 16
/// Each of two bytes, eight times.
struct EightTimes {
    static constexpr uint8_t at(size_t i) noexcept { return static_cast<uint8_t>(i / 8); }
};
/// The bits of a byte, the top one first.
struct OneBit {
    static constexpr uint8_t at(size_t i) noexcept { return static_cast<uint8_t>(0x80u >> i % 8); }
};

RV_INLINE Words2 expandSixteen(const uint8_t* source, Words2 zero, Words2 flips) noexcept
{
    typedef int8_t Signed16 __attribute__((vector_size(16)));
    const Words2 both = {load<uint16_t>(source), 0};
    const Words2 bit = patternBytes<OneBit>(static_cast<Words2*>(nullptr));
    const Words2 bits = pickPattern<EightTimes>(both) & bit;
    const Signed16 set = reinterpret_cast<Signed16>(bits) == reinterpret_cast<Signed16>(bit);
    return (reinterpret_cast<Words2>(set) & flips) ^ zero;
}
#endif

RV_INLINE Word expandEight(unsigned byte, Word zero, Word flips) noexcept
{
    const Word bits = everyByte(byte) & 0x0102040810204080u; // one bit in each byte, the top one in the first
    const Word set = (bits + everyByte(0x7F)) >> 7 & everyByte(1);
    return (set * 0xFF & flips) ^ zero;
}

void expand1(uint8_t* target, const uint8_t* source, size_t width, uint8_t zero, uint8_t one) noexcept
{
    const Word zeros = everyByte(zero), flips = everyByte(zero ^ one);
    size_t done = 0;
#if RV_VECTOR_BYTES >= 16
    const Words2 zeros2 = {zeros, zeros}, flips2 = {flips, flips};
    for (; width - done >= 32; done += 32) {
        store(target + done, expandSixteen(source + done / 8, zeros2, flips2));
        store(target + done + 16, expandSixteen(source + done / 8 + 2, zeros2, flips2));
    }
#endif
    for (; width - done >= 8; done += 8) store(target + done, expandEight(source[done / 8], zeros, flips));
    for (; done < width; ++done) target[done] = (source[done / 8] >> (7 - done % 8) & 1) != 0 ? one : zero;
}

// --- Luminance

#if RV_VECTOR_BYTES >= 16
/// Four pixels of three bytes as four of four.
struct FourPixels {
    static constexpr uint8_t at(size_t i) noexcept
    {
        return static_cast<uint8_t>(i % 4 == 3 ? 128 : i / 4 * 3 + i % 4);
    }
};
template <unsigned First> struct LumaWeights {
    static constexpr uint8_t at(size_t i) noexcept
    {
        return static_cast<uint8_t>(i % 4 == 0 ? First : i % 4 == 1 ? 5 : i % 4 == 2 ? 3 - First : 0);
    }
};

typedef char Chars16 __attribute__((vector_size(16)));
typedef short Shorts8 __attribute__((vector_size(16)));

/// Sums of two and two weighted bytes: a pixel is two words.
template <unsigned First> RV_INLINE Shorts8 weighFour(const uint8_t* source) noexcept
{
    const Words2 pixels = pickPattern<FourPixels>(load<Words2>(source));
    const Words2 weights = patternBytes<LumaWeights<First>>(static_cast<Words2*>(nullptr));
    return __builtin_ia32_pmaddubsw128(reinterpret_cast<Chars16>(pixels), reinterpret_cast<Chars16>(weights));
}
template <unsigned First> RV_INLINE Shorts8 lumaOfEight(const uint8_t* source) noexcept
{
    const Shorts8 sums = __builtin_ia32_phaddw128(weighFour<First>(source), weighFour<First>(source + 12));
    return (sums + 4) >> 3;
}
#endif

template <unsigned First> void luma(uint8_t* target, const uint8_t* source, size_t width) noexcept
{
    size_t done = 0;
#if RV_VECTOR_BYTES >= 16
    // The last four pixels are loaded with four bytes of what follows, which is there as long as two more do.
    for (; width - done >= 16 + 2; done += 16) {
        const Shorts8 first = lumaOfEight<First>(source + 3 * done),
                      second = lumaOfEight<First>(source + 3 * done + 24);
        store(target + done, __builtin_ia32_packuswb128(first, second));
    }
#endif
    for (const uint8_t* p = source + 3 * done; done < width; ++done, p += 3)
        target[done] = static_cast<uint8_t>((First * p[0] + 5u * p[1] + (3 - First) * p[2] + 4) >> 3);
}

// --- Gray to colours

#if RV_VECTOR_BYTES >= 16
/// Bytes three times each, from the Part-th sixteen of them on.
template <size_t Part> struct ThreeTimes {
    static constexpr uint8_t at(size_t i) noexcept { return static_cast<uint8_t>((16 * Part + i) / 3); }
};
#endif

void triple(uint8_t* target, const uint8_t* source, size_t width) noexcept
{
    size_t done = 0;
#if RV_VECTOR_BYTES >= 16
    for (; width - done >= 16; done += 16) {
        const Words2 gray = load<Words2>(source + done);
        store(target + 3 * done, pickPattern<ThreeTimes<0>>(gray));
        store(target + 3 * done + 16, pickPattern<ThreeTimes<1>>(gray));
        store(target + 3 * done + 32, pickPattern<ThreeTimes<2>>(gray));
    }
#endif
    for (; done < width; ++done) target[3 * done] = target[3 * done + 1] = target[3 * done + 2] = source[done];
}

} // namespace
} // namespace rv::simd::RV_SIMD
