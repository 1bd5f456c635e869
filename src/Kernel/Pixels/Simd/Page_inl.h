// Bits counted and added up. Part of the text of a variant: see RowKernels_inl.h, which includes it.

namespace rv::simd::RV_SIMD {
namespace {

/// How many bits a half byte has.
struct BitsOfHalves {
    static constexpr uint8_t at(size_t half) noexcept
    {
        return static_cast<uint8_t>((half & 1) + (half >> 1 & 1) + (half >> 2 & 1) + (half >> 3 & 1));
    }
};

void countFours(uint8_t* counts, const uint8_t* bits, size_t bytes, bool begins) noexcept
{
    uint8_t* const lower = counts + bytes;
    size_t i = 0;
#if RV_VECTOR_BYTES >= 16
    const Widest half = Widest{} + everyByte(0x0F);
    const Widest table = patternBytes<BitsOfHalves>(static_cast<Widest*>(nullptr));
    const Widest kept = Widest{} + (begins ? 0 : ~Word{0});
    for (; bytes - i >= sizeof(Widest); i += sizeof(Widest)) {
        const auto some = load<Widest>(bits + i);
        store(counts + i, (load<Widest>(counts + i) & kept) + pick(table, some >> 4 & half)); // no byte overflows
        store(lower + i, (load<Widest>(lower + i) & kept) + pick(table, some & half));
    }
#endif
    for (; i < bytes; ++i) {
        counts[i] = static_cast<uint8_t>((begins ? 0 : counts[i]) + BitsOfHalves::at(bits[i] >> 4));
        lower[i] = static_cast<uint8_t>((begins ? 0 : lower[i]) + BitsOfHalves::at(bits[i] & 0xF));
    }
}

/// count * 255 / all, in units of 2^-8 first: 255 exactly for all.
RV_INLINE uint8_t shareOf(unsigned count, unsigned factor) noexcept
{
    return static_cast<uint8_t>((count * 128 * factor + 0x4000) >> 15);
}

void levelsOfFours(uint8_t* levels, const uint8_t* counts, size_t width, int all, const uint8_t* levelOf) noexcept
{
    const auto factor = static_cast<unsigned>((255 * 256 + all / 2) / all);
    const uint8_t* const lower = counts + (width + 1) / 2;
    size_t x = 0;
#if RV_VECTOR_BYTES >= 16
    typedef short Words8 __attribute__((vector_size(16)));
    typedef uint16_t Unsigned8 __attribute__((vector_size(16)));
    const bool upwards = levelOf[0] == 0 && levelOf[255] == 255, downwards = levelOf[0] == 255 && levelOf[255] == 0;
    const Words2 flips = Words2{} + (downwards ? ~Word{0} : 0);
    const Words8 factors = Words8{} + static_cast<short>(factor);
    const auto shares = [=](Bytes16 some) noexcept { // in the upper bytes of words: times 256
        return __builtin_ia32_pmulhrsw128(reinterpret_cast<Words8>(reinterpret_cast<Unsigned8>(some) >> 1), factors);
    };
    for (; (upwards || downwards) && width - x >= 32; x += 32) {
        const auto a = load<Bytes16>(counts + x / 2), b = load<Bytes16>(lower + x / 2);
        const Bytes16 none = {};
        const Bytes16 one = __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
        const Bytes16 two = __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
        const auto low = [=](Bytes16 v) noexcept {
            return __builtin_shufflevector(none, v, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
        };
        const auto high = [=](Bytes16 v) noexcept {
            return __builtin_shufflevector(none, v, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
        };
        store(levels + x,
              reinterpret_cast<Words2>(__builtin_ia32_packuswb128(shares(low(one)), shares(high(one)))) ^ flips);
        store(levels + x + 16,
              reinterpret_cast<Words2>(__builtin_ia32_packuswb128(shares(low(two)), shares(high(two)))) ^ flips);
    }
#endif
    for (; x < width; ++x) levels[x] = levelOf[shareOf((x % 2 == 0 ? counts : lower)[x / 2], factor)];
}

#if RV_VECTOR_BYTES >= 16
/// The two bytes of eight, or sixteen, bits in every word; and a bit for each of them, the top one first.
#if RV_VECTOR_BYTES == 32
typedef uint16_t BitWords __attribute__((vector_size(32)));
constexpr BitWords kBitOfWord = {0x80,   0x40,   0x20,   0x10,   0x08,   0x04,   0x02,   0x01,
                                 0x8000, 0x4000, 0x2000, 0x1000, 0x0800, 0x0400, 0x0200, 0x0100};
RV_INLINE BitWords everyWord(const uint8_t* bits) noexcept { return BitWords{} + load<uint16_t>(bits); }
#else
typedef uint16_t BitWords __attribute__((vector_size(16)));
constexpr BitWords kBitOfWord = {0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02, 0x01};
RV_INLINE BitWords everyWord(const uint8_t* bits) noexcept { return BitWords{} + static_cast<uint16_t>(*bits); }
#endif
#endif

void addBits(uint16_t* sums, const uint8_t* bits, size_t width, uint16_t weight, bool begins) noexcept
{
    size_t x = 0;
#if RV_VECTOR_BYTES >= 16
    constexpr size_t words = sizeof(BitWords) / 2;
    const BitWords weights = BitWords{} + weight;
    const BitWords kept = begins ? BitWords{} : ~BitWords{};
    for (; width - x >= words; x += words) {
        auto* const at = reinterpret_cast<uint8_t*>(sums + x);
        const auto set = reinterpret_cast<BitWords>((everyWord(bits + x / 8) & kBitOfWord) == kBitOfWord);
        store(at, (load<BitWords>(at) & kept) + (set & weights));
    }
#endif
    for (; x < width; ++x) {
        const unsigned set = bits[x / 8] >> (7 - x % 8) & 1u;
        sums[x] = static_cast<uint16_t>((begins ? 0u : sums[x]) + set * weight);
    }
}

} // namespace
} // namespace rv::simd::RV_SIMD
