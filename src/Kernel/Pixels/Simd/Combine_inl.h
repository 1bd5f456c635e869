// Two rows become one: by a truth table on their bits, by arithmetic on their samples, by compositing their pixels.
// Part of the text of a variant: see RowKernels_inl.h, which includes it.

namespace rv::simd::RV_SIMD {
namespace {

// --- Truth tables

/// What a table makes of the bits of a block; a block that it does not look at is not computed.
template <unsigned Table, class Block> RV_INLINE Block truth(Block s, Block d) noexcept
{
    if constexpr (Table == 0x0) return static_cast<Block>(d ^ d);
    if constexpr (Table == 0x1) return static_cast<Block>(~(s | d));
    if constexpr (Table == 0x2) return static_cast<Block>(~s & d);
    if constexpr (Table == 0x3) return static_cast<Block>(~s);
    if constexpr (Table == 0x4) return static_cast<Block>(s & ~d);
    if constexpr (Table == 0x5) return static_cast<Block>(~d);
    if constexpr (Table == 0x6) return static_cast<Block>(s ^ d);
    if constexpr (Table == 0x7) return static_cast<Block>(~(s & d));
    if constexpr (Table == 0x8) return static_cast<Block>(s & d);
    if constexpr (Table == 0x9) return static_cast<Block>(~(s ^ d));
    if constexpr (Table == 0xA) return d;
    if constexpr (Table == 0xB) return static_cast<Block>(~s | d);
    if constexpr (Table == 0xC) return s;
    if constexpr (Table == 0xD) return static_cast<Block>(s | ~d);
    if constexpr (Table == 0xE) return static_cast<Block>(s | d);
    if constexpr (Table == 0xF) return static_cast<Block>(~(d ^ d));
}

constexpr bool readsSource(unsigned table) noexcept { return ((table >> 2 ^ table) & 3) != 0; }

RV_INLINE Word widened(uint8_t bits) noexcept { return bits; }
template <class Block> RV_INLINE Block widened(Block bits) noexcept { return bits; }

/// One source block, from `shift` bits into its first byte on.
struct AsItIs {
    template <class Block> RV_INLINE Block fetch(const uint8_t* source) const noexcept { return load<Block>(source); }
};
struct Shifted {
    unsigned shift;
    Word kept; ///< which bits of each byte come from the byte itself

    template <class Block> RV_INLINE Block fetch(const uint8_t* source) const noexcept
    {
        const auto here = widened(load<Block>(source));
        const auto behind = widened(load<Block>(source + 1));
        return static_cast<Block>((here << shift & kept) | (behind >> (8 - shift) & ~kept));
    }
};

/// The block at `done`.
template <unsigned Table, class Block, class Source>
RV_INLINE Block combineBlock(const uint8_t* target, const uint8_t* source, size_t done, Source from) noexcept
{
    const Block d = load<Block>(target + done);
    if constexpr (readsSource(Table)) return truth<Table>(from.template fetch<Block>(source + done), d);
    return truth<Table>(d, d);
}

/// At least a block. The last one is computed first: it may overlap the one before it, and be stored behind it.
template <unsigned Table, class Block, class Source>
RV_INLINE void combineBlocks(uint8_t* target, const uint8_t* source, size_t bytes, Source from) noexcept
{
    const size_t end = bytes - sizeof(Block);
    const Block last = combineBlock<Table, Block>(target, source, end, from);
    for (size_t done = 0; done < end; done += sizeof(Block))
        store(target + done, combineBlock<Table, Block>(target, source, done, from));
    store(target + end, last);
}

template <unsigned Table, class Source>
RV_INLINE void combineFrom(uint8_t* target, const uint8_t* source, size_t bytes, Source from) noexcept
{
    if (bytes >= sizeof(Widest)) return combineBlocks<Table, Widest>(target, source, bytes, from);
#if RV_VECTOR_BYTES >= 32
    if (bytes >= sizeof(Words2)) return combineBlocks<Table, Words2>(target, source, bytes, from);
#endif
    if (bytes >= sizeof(Word)) return combineBlocks<Table, Word>(target, source, bytes, from);
    for (size_t done = 0; done < bytes; ++done)
        store(target + done, combineBlock<Table, uint8_t>(target, source, done, from));
}

template <unsigned Table>
void combineBits(uint8_t* target, const uint8_t* source, size_t bytes, unsigned shift) noexcept
{
    if (!readsSource(Table) || shift == 0) return combineFrom<Table>(target, source, bytes, AsItIs{});
    combineFrom<Table>(target, source, bytes, Shifted{shift, everyByte(0xFFu << shift & 0xFFu)});
}

// --- Arithmetic

template <class Sample> constexpr unsigned kBitsOf = 8 * sizeof(Sample);

#if RV_VECTOR_BYTES >= 16
typedef uint8_t Samples8 __attribute__((vector_size(RV_VECTOR_BYTES)));
typedef uint16_t Samples16 __attribute__((vector_size(RV_VECTOR_BYTES)));
typedef uint32_t Samples32 __attribute__((vector_size(RV_VECTOR_BYTES)));

/// A block of samples, and one of lanes that hold the product of two.
template <class Sample> struct Lanes;
template <> struct Lanes<uint8_t> {
    using Narrow = Samples8;
    using Wide = Samples16;
};
template <> struct Lanes<uint16_t> {
    using Narrow = Samples16;
    using Wide = Samples32;
};
template <class Sample> using Block = typename Lanes<Sample>::Narrow;
template <class Sample> using WideBlock = typename Lanes<Sample>::Wide;
#endif

/// product / (2^Bits - 1), rounded down, for products of two values up to that divisor: a number or a block of them.
template <unsigned Bits, class Number> RV_INLINE Number overFull(Number product) noexcept
{
    return (product + 1 + (product >> Bits)) >> Bits;
}

/// n / m, rounded down. The product of two bytes and what it is divided by are exact in a float, its quotient never
/// rounds up to the next integer, and floats, unlike integers, are divided many at a time.
template <class Sample> RV_INLINE uint32_t quotient(uint32_t n, uint32_t m) noexcept
{
    if constexpr (sizeof(Sample) > 1) {
        return n / m;
    } else {
        const float exact = static_cast<float>(static_cast<int32_t>(n)) / static_cast<float>(static_cast<int32_t>(m));
        return static_cast<uint32_t>(static_cast<int32_t>(exact));
    }
}

// Each operation on one sample, and, where that is worth it, on a block of them: d is the target's, s the source's, top
// the largest there is. Samples may be above it.

template <class Sample> struct AddSamples {
    static constexpr bool inBlocks = true;
    static RV_INLINE uint32_t one(uint32_t d, uint32_t s, uint32_t top) noexcept { return d + s < top ? d + s : top; }
#if RV_VECTOR_BYTES >= 16
    static RV_INLINE Block<Sample> many(Block<Sample> d, Block<Sample> s, Block<Sample> top) noexcept
    {
        const Block<Sample> wrapped = d + s;
        const Block<Sample> sum = wrapped | reinterpret_cast<Block<Sample>>(wrapped < d);
        return sum < top ? sum : top;
    }
#endif
};

template <class Sample> struct SubtractSource {
    static constexpr bool inBlocks = true;
    static RV_INLINE uint32_t one(uint32_t d, uint32_t s, uint32_t) noexcept { return d > s ? d - s : 0; }
#if RV_VECTOR_BYTES >= 16
    static RV_INLINE Block<Sample> many(Block<Sample> d, Block<Sample> s, Block<Sample>) noexcept
    {
        return (d > s ? d : s) - s;
    }
#endif
};

/// Operation with its two operands exchanged.
template <class Operation, class Sample> struct Exchanged {
    static constexpr bool inBlocks = Operation::inBlocks;
    static RV_INLINE uint32_t one(uint32_t d, uint32_t s, uint32_t top) noexcept { return Operation::one(s, d, top); }
#if RV_VECTOR_BYTES >= 16
    static RV_INLINE Block<Sample> many(Block<Sample> d, Block<Sample> s, Block<Sample> top) noexcept
    {
        return Operation::many(s, d, top);
    }
#endif
};

template <class Sample> struct MultiplySamples {
    static constexpr bool inBlocks = false;
    static RV_INLINE uint32_t one(uint32_t d, uint32_t s, uint32_t top) noexcept
    {
        return quotient<Sample>(d * s, top);
    }
};

/// The same where top is the largest sample of all.
template <class Sample> struct MultiplyFull {
    static constexpr bool inBlocks = true;
    static constexpr unsigned bits = kBitsOf<Sample>;
    static RV_INLINE uint32_t one(uint32_t d, uint32_t s, uint32_t) noexcept { return overFull<bits>(d * s); }
#if RV_VECTOR_BYTES >= 16
    static RV_INLINE Block<Sample> many(Block<Sample> d, Block<Sample> s, Block<Sample>) noexcept
    {
        using Wide = WideBlock<Sample>;
        constexpr auto lower = static_cast<Sample>(~Sample{0});
        const Wide d2 = reinterpret_cast<Wide>(d);
        const Wide s2 = reinterpret_cast<Wide>(s);
        const Wide low = overFull<bits>((d2 & lower) * (s2 & lower));
        const Wide high = overFull<bits>((d2 >> bits) * (s2 >> bits));
        return reinterpret_cast<Block<Sample>>(low | high << bits);
    }
#endif
};

template <class Sample> struct DivideBySource {
    static constexpr bool inBlocks = false;
    static RV_INLINE uint32_t one(uint32_t d, uint32_t s, uint32_t top) noexcept
    {
        const uint32_t whole = quotient<Sample>(d * top, s != 0 ? s : 1);
        return s == 0 || whole > top ? top : whole;
    }
};

template <class Sample> struct AverageSamples {
    static constexpr bool inBlocks = true;
    static RV_INLINE uint32_t one(uint32_t d, uint32_t s, uint32_t) noexcept { return (d + s) >> 1; }
#if RV_VECTOR_BYTES >= 16
    static RV_INLINE Block<Sample> many(Block<Sample> d, Block<Sample> s, Block<Sample>) noexcept
    {
        return (d & s) + ((d ^ s) >> 1);
    }
#endif
};

template <class Sample> struct LesserSamples {
    static constexpr bool inBlocks = true;
    static RV_INLINE uint32_t one(uint32_t d, uint32_t s, uint32_t) noexcept { return d < s ? d : s; }
#if RV_VECTOR_BYTES >= 16
    static RV_INLINE Block<Sample> many(Block<Sample> d, Block<Sample> s, Block<Sample>) noexcept
    {
        return d < s ? d : s;
    }
#endif
};

template <class Sample> struct GreaterSamples {
    static constexpr bool inBlocks = true;
    static RV_INLINE uint32_t one(uint32_t d, uint32_t s, uint32_t) noexcept { return d > s ? d : s; }
#if RV_VECTOR_BYTES >= 16
    static RV_INLINE Block<Sample> many(Block<Sample> d, Block<Sample> s, Block<Sample>) noexcept
    {
        return d > s ? d : s;
    }
#endif
};

template <class Operation, class Sample>
RV_INLINE void operate(uint8_t* target, const uint8_t* source, size_t count, unsigned top) noexcept
{
    const size_t bytes = count * sizeof(Sample);
    size_t done = 0;
#if RV_VECTOR_BYTES >= 16
    if constexpr (Operation::inBlocks) {
        const Block<Sample> tops = Block<Sample>{} + static_cast<Sample>(top);
        for (; bytes - done >= RV_VECTOR_BYTES; done += RV_VECTOR_BYTES) {
            const auto d = load<Block<Sample>>(target + done);
            const auto s = load<Block<Sample>>(source + done);
            store(target + done, Operation::many(d, s, tops));
        }
    }
#endif
    for (; done < bytes; done += sizeof(Sample)) {
        const uint32_t d = load<Sample>(target + done);
        const uint32_t s = load<Sample>(source + done);
        store(target + done, static_cast<Sample>(Operation::one(d, s, top)));
    }
}

template <template <class> class Operation, class Sample>
void combineSamples(uint8_t* target, const uint8_t* source, size_t count, unsigned top) noexcept
{
    operate<Operation<Sample>, Sample>(target, source, count, top);
}

/// The same with source and target exchanged.
template <template <class> class Operation, class Sample>
void combineExchanged(uint8_t* target, const uint8_t* source, size_t count, unsigned top) noexcept
{
    operate<Exchanged<Operation<Sample>, Sample>, Sample>(target, source, count, top);
}

template <class Sample>
void multiplySamples(uint8_t* target, const uint8_t* source, size_t count, unsigned top) noexcept
{
    if (top == static_cast<Sample>(~Sample{0}))
        operate<MultiplyFull<Sample>, Sample>(target, source, count, top);
    else
        operate<MultiplySamples<Sample>, Sample>(target, source, count, top);
}

// --- Compositing. The weights of the two pixels come from their alphas, a and b, and the target's alpha stays.

RV_INLINE void overPixel8(uint8_t* target, const uint8_t* source) noexcept
{
    const uint32_t a = source[3];
    const uint32_t b = target[3];
    const uint32_t ofSource = a * 255;
    const uint32_t ofTarget = (255 - a) * b;
    const uint32_t all = ofSource + ofTarget;
    for (size_t i = 0; i < 3; ++i) {
        const uint32_t sum = source[i] * ofSource + target[i] * ofTarget;
        target[i] = static_cast<uint8_t>(all != 0 ? sum / all : 0);
    }
}

#if RV_VECTOR_BYTES >= 16
typedef int32_t Integers __attribute__((vector_size(RV_VECTOR_BYTES)));
typedef float Floats __attribute__((vector_size(RV_VECTOR_BYTES)));

RV_INLINE Samples32 evenBytes(Samples32 pixels) noexcept { return pixels & 0x00FF00FF; }
RV_INLINE Samples32 oddBytes(Samples32 pixels) noexcept { return pixels >> 8 & 0x00FF00FF; }

/// Whether the top byte of every pixel is 255.
RV_INLINE bool opaque(Samples32 pixels) noexcept
{
#if RV_VECTOR_BYTES >= 32
    typedef char Chars __attribute__((vector_size(32)));
    return __builtin_ia32_pmovmskb256(reinterpret_cast<Chars>(pixels >= 0xFF000000u)) == -1;
#else
    typedef char Chars __attribute__((vector_size(16)));
    return __builtin_ia32_pmovmskb128(reinterpret_cast<Chars>(pixels >= 0xFF000000u)) == 0xFFFF;
#endif
}

/// Over opaque pixels the weights are a and 255 - a of 255.
RV_INLINE Samples32 overOpaque(Samples32 d, Samples32 s) noexcept
{
    const Samples32 alpha = s >> 24;
    const Samples16 a = reinterpret_cast<Samples16>(alpha | alpha << 16);
    const Samples16 rest = 255 - a;
    const auto mix = [&](Samples32 of, Samples32 with) {
        return reinterpret_cast<Samples32>(
            overFull<8>(reinterpret_cast<Samples16>(of) * rest + reinterpret_cast<Samples16>(with) * a));
    };
    const Samples32 even = mix(evenBytes(d), evenBytes(s));
    const Samples32 odd = mix(oddBytes(d), oddBytes(s));
    return even | (odd & 0x000000FF) << 8 | (d & 0xFF000000u);
}

/// One component of every pixel, as floats.
RV_INLINE Floats component(Samples32 pixels, unsigned shift) noexcept
{
    return __builtin_convertvector(reinterpret_cast<Integers>(pixels >> shift & 0xFF), Floats);
}

/// Every sum here is an integer below 2^24, so exact, and no quotient rounds up to the next integer.
RV_INLINE Samples32 overAny(Samples32 d, Samples32 s) noexcept
{
    const Floats a = component(s, 24);
    const Floats ofSource = a * 255.0f;
    const Floats ofTarget = (255.0f - a) * component(d, 24);
    const Floats sum = ofSource + ofTarget;
    const Floats one = Floats{} + 1.0f;
    const Floats all = sum < one ? one : sum; // without any weight the components become 0
    Samples32 result = d & 0xFF000000u;
    for (unsigned shift = 0; shift < 24; shift += 8) {
        const Floats mixed = (component(s, shift) * ofSource + component(d, shift) * ofTarget) / all;
        result |= reinterpret_cast<Samples32>(__builtin_convertvector(mixed, Integers)) << shift;
    }
    return result;
}
#endif

void over8(uint8_t* target, const uint8_t* source, size_t count) noexcept
{
    const size_t bytes = count * 4;
    size_t done = 0;
#if RV_VECTOR_BYTES >= 16
    for (; bytes - done >= RV_VECTOR_BYTES; done += RV_VECTOR_BYTES) {
        const auto d = load<Samples32>(target + done);
        const auto s = load<Samples32>(source + done);
        store(target + done, opaque(d) ? overOpaque(d, s) : overAny(d, s));
    }
#endif
    for (; done < bytes; done += 4) overPixel8(target + done, source + done);
}

void over16(uint8_t* target, const uint8_t* source, size_t count) noexcept
{
    struct Pixel {
        uint16_t colour[3];
        uint16_t alpha;
    };
    for (size_t done = 0; done < count * sizeof(Pixel); done += sizeof(Pixel)) {
        const Pixel s = load<Pixel>(source + done);
        Pixel d = load<Pixel>(target + done);
        const uint32_t a = s.alpha;
        const uint32_t b = d.alpha;
        const uint32_t all = b - b * a / 65535 + a;
        const uint32_t ofTarget =
            (65535 - a) * b / 65535; // with a no more than all, so that nothing below is too large
        for (size_t i = 0; i < 3; ++i)
            d.colour[i] = static_cast<uint16_t>(all != 0 ? (s.colour[i] * a + d.colour[i] * ofTarget) / all : 0);
        store(target + done, d);
    }
}

} // namespace
} // namespace rv::simd::RV_SIMD
