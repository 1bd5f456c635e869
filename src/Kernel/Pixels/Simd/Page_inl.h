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
    uint8_t* const lower = counts + (bytes + kCountBlock - 1) / kCountBlock * kCountBlock;
#if RV_VECTOR_BYTES >= 16
    const Widest half = Widest{} + everyByte(0x0F);
    const Widest table = patternBytes<BitsOfHalves>(static_cast<Widest*>(nullptr));
    const Widest kept = Widest{} + (begins ? 0 : ~Word{0});
    const auto add = [=](size_t i, const uint8_t* from) noexcept { // no byte of a count overflows
        const auto some = load<Widest>(from);
        store(counts + i, (load<Widest>(counts + i) & kept) + pick(table, some >> 4 & half));
        store(lower + i, (load<Widest>(lower + i) & kept) + pick(table, some & half));
    };
    size_t i = 0;
    for (; bytes - i >= sizeof(Widest); i += sizeof(Widest)) add(i, bits + i);
    if (i == bytes) return;
    uint8_t rest[sizeof(Widest)] = {};
    memcpy(rest, bits + i, bytes - i);
    add(i, rest);
#else
    for (size_t i = 0; i < bytes; ++i) {
        counts[i] = static_cast<uint8_t>((begins ? 0 : counts[i]) + BitsOfHalves::at(bits[i] >> 4));
        lower[i] = static_cast<uint8_t>((begins ? 0 : lower[i]) + BitsOfHalves::at(bits[i] & 0xF));
    }
#endif
}

/// count * 255 / all, in units of 2^-8 first: 255 exactly for all.
RV_INLINE uint8_t shareOf(unsigned count, unsigned factor) noexcept
{
    return static_cast<uint8_t>((count * 128 * factor + 0x4000) >> 15);
}

#if RV_VECTOR_BYTES >= 16
RV_INLINE Bytes16 mergeLow(Bytes16 a, Bytes16 b) noexcept
{
    return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}
RV_INLINE Bytes16 mergeHigh(Bytes16 a, Bytes16 b) noexcept
{
    return __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
}

/// shareOf() of sixteen counts.
RV_INLINE Words2 sharesOf(Bytes16 counts, unsigned factor) noexcept
{
    typedef short Words8 __attribute__((vector_size(16)));
    typedef uint16_t Unsigned8 __attribute__((vector_size(16)));
    const Words8 factors = Words8{} + static_cast<short>(factor);
    const auto shares = [=](Bytes16 upper) noexcept { // counts times 128
        const auto words = reinterpret_cast<Words8>(reinterpret_cast<Unsigned8>(upper) >> 1);
        return __builtin_ia32_pmulhrsw128(words, factors);
    };
    const Bytes16 none = {};
    return reinterpret_cast<Words2>(
        __builtin_ia32_packuswb128(shares(mergeLow(none, counts)), shares(mergeHigh(none, counts))));
}
#endif

void levelsOfFours(uint8_t* levels, const uint8_t* counts, size_t width, int all, const uint8_t* levelOf) noexcept
{
    const auto factor = static_cast<unsigned>((255 * 256 + all / 2) / all);
    const size_t bytes = (width + 1) / 2;
    const uint8_t* const lower = counts + (bytes + kCountBlock - 1) / kCountBlock * kCountBlock;
    size_t x = 0;
#if RV_VECTOR_BYTES >= 16
    const bool upwards = levelOf[0] == 0 && levelOf[255] == 255, downwards = levelOf[0] == 255 && levelOf[255] == 0;
    const Words2 flips = Words2{} + (downwards ? ~Word{0} : 0);
    const auto makeLevels = [=](size_t at) noexcept {
        const auto a = load<Bytes16>(counts + at / 2), b = load<Bytes16>(lower + at / 2);
        store(levels + at, sharesOf(mergeLow(a, b), factor) ^ flips);
        store(levels + at + 16, sharesOf(mergeHigh(a, b), factor) ^ flips);
    };
    if (width >= 32 && (upwards || downwards)) {
        for (; width - x >= 32; x += 32) makeLevels(x);
        makeLevels((width - 32) / 2 * 2); // the rest, and some of them again
        x = width / 2 * 2;
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
        const unsigned set = unsigned{bits[x / 8]} >> (7 - x % 8) & 1u;
        sums[x] = static_cast<uint16_t>((begins ? 0u : sums[x]) + set * weight);
    }
}

void levelsOfSums(uint8_t* levels, uint32_t* before, const uint16_t* sums, size_t columns, const ColumnBorder* borders,
                  size_t width, const uint8_t* levelOf) noexcept
{
    uint32_t sum = 0; // may wrap: only differences count
    for (size_t x = 0; x < columns; ++x) {
        before[x] = sum;
        sum += sums[x];
    }
    before[columns] = sum;
    // No border is left of the column whose number it has: its place can be taken.
    uint32_t begin = 0;
    for (size_t x = 0; x < width; ++x) {
        const ColumnBorder border = borders[x + 1];
        const auto column = static_cast<size_t>(border.column);
        const uint32_t part = border.share != 0 ? (sums[column] * border.share + 0x4000) >> 15 : 0;
        const uint32_t end = before[column] + part;
        before[x] = end - begin;
        begin = end;
    }
    const double all = static_cast<double>(columns) / static_cast<double>(width) * kRowsWeigh;
    const auto scale = static_cast<float>(255 / all);
    for (size_t x = 0; x < width; ++x) {
        const float share = static_cast<float>(static_cast<int32_t>(before[x])) * scale + 0.5f;
        levels[x] = static_cast<uint8_t>(static_cast<int32_t>(share < 255.0f ? share : 255.0f));
    }
    if (levelOf[0] == 0 && levelOf[255] == 255) return;
    for (size_t x = 0; x < width; ++x) levels[x] = levelOf[levels[x]];
}

} // namespace
} // namespace rv::simd::RV_SIMD
