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

// --- Gray to more bytes

#if RV_VECTOR_BYTES >= 16
/// Bytes so many times each, from the Part-th sixteen of them on.
template <size_t Times, size_t Part> struct ManyTimes {
    static constexpr uint8_t at(size_t i) noexcept { return static_cast<uint8_t>((16 * Part + i) / Times); }
};
#endif

template <size_t Times> void repeatEach(uint8_t* target, const uint8_t* source, size_t width) noexcept
{
    size_t done = 0;
#if RV_VECTOR_BYTES >= 16
    for (; width - done >= 16; done += 16) {
        const Words2 gray = load<Words2>(source + done);
        store(target + Times * done, pickPattern<ManyTimes<Times, 0>>(gray));
        store(target + Times * done + 16, pickPattern<ManyTimes<Times, 1>>(gray));
        if constexpr (Times == 3) store(target + Times * done + 32, pickPattern<ManyTimes<Times, 2>>(gray));
    }
#endif
    for (; done < width; ++done)
        for (size_t i = 0; i < Times; ++i) target[Times * done + i] = source[done];
}

// --- Pixels of whole samples from each other

/// Which of a source pixel's bytes become a target pixel's.
template <size_t From, size_t To, bool Exchange> struct Reordered {
    static constexpr size_t bytesOf(size_t format) noexcept { return (3 + format % 2) * (1 + format / 2); }
    static constexpr size_t from = bytesOf(From), to = bytesOf(To);
    static constexpr size_t sampleFrom = 1 + From / 2, sampleTo = 1 + To / 2;
    static constexpr size_t pixels = 16 / (from > to ? from : to); ///< of a block

    static constexpr bool isNew(size_t byte) noexcept { return From % 2 == 0 && byte / sampleTo == 3; }
    static constexpr size_t of(size_t byte) noexcept
    {
        const size_t sample = byte / sampleTo;
        const size_t source = Exchange && sample < 3 ? 2 - sample : sample;
        return source * sampleFrom + (sampleFrom == 1 ? 0 : sampleTo == 1 ? 1 : byte % 2);
    }

    static constexpr uint8_t at(size_t i) noexcept
    {
        return i / to >= pixels || isNew(i % to) ? 128 : static_cast<uint8_t>(i / to * from + of(i % to));
    }
    struct Opaque {
        static constexpr uint8_t at(size_t i) noexcept { return i / to < pixels && isNew(i % to) ? 255 : 0; }
    };
};

template <size_t From, size_t To, bool Exchange>
void reorder(uint8_t* target, const uint8_t* source, size_t width) noexcept
{
    using Map = Reordered<From, To, Exchange>;
    size_t done = 0;
#if RV_VECTOR_BYTES >= 16
    constexpr size_t shorter = Map::from < Map::to ? Map::from : Map::to;
    constexpr size_t least = (16 + shorter - 1) / shorter; // pixels that are a whole block on either side
    const Words2 opaque = patternBytes<typename Map::Opaque>(static_cast<Words2*>(nullptr));
    for (; width - done >= least; done += Map::pixels) {
        const Words2 pixels = pickPattern<Map>(load<Words2>(source + done * Map::from));
        store(target + done * Map::to, pixels | opaque); // what it spills is the next block's
    }
#endif
    for (; done < width; ++done)
        for (size_t i = 0; i < Map::to; ++i)
            target[done * Map::to + i] = Map::isNew(i) ? 255 : source[done * Map::from + Map::of(i)];
}

// --- Numbers added

RV_INLINE uint8_t addWithinByte(uint8_t byte, int number) noexcept
{
    const int sum = byte + number;
    return static_cast<uint8_t>(sum < 0 ? 0 : sum > 255 ? 255 : sum);
}

void addToPixels(uint8_t* pixels, size_t width, const int16_t* numbers) noexcept
{
    size_t x = 0;
#if RV_VECTOR_BYTES >= 16
    uint8_t plus[32] = {}, minus[32] = {};
    for (size_t i = 0; i < 32; ++i) {
        if (i % 4 == 3) continue;
        plus[i] = addWithinByte(0, numbers[i / 4]);
        minus[i] = addWithinByte(0, -numbers[i / 4]);
    }
    const auto add = [&](uint8_t* at, size_t half) noexcept {
        const auto bytes = load<Bytes16>(at), taken = load<Bytes16>(minus + half);
        Bytes16 sum = bytes + load<Bytes16>(plus + half);
        sum |= reinterpret_cast<Bytes16>(sum < bytes);
        store(at, (sum - taken) & reinterpret_cast<Bytes16>(sum > taken));
    };
    for (; width - x >= 8; x += 8) {
        add(pixels + 4 * x, 0);
        add(pixels + 4 * x + 16, 16);
    }
#endif
    for (; x < width; ++x)
        for (size_t i = 0; i < 3; ++i) pixels[4 * x + i] = addWithinByte(pixels[4 * x + i], numbers[x % 8]);
}

} // namespace
} // namespace rv::simd::RV_SIMD
