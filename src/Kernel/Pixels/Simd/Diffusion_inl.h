// Error diffusion in many rows at once. Part of the text of a variant: see RowKernels_inl.h, which includes it.
//
// A lane is a row, and each row is so far behind the one above it that the errors it needs are there. A step takes one
// pixel of every row. The errors of a step are kept for as long as some row looks back at them; a row's neighbour above
// is a lane's neighbour below, so what comes from there is shifted by one lane, and the sums for the first rows, which
// come from above the band, are shifted in.

namespace rv::simd::RV_SIMD {
namespace {

constexpr size_t kFrontBytes = RV_VECTOR_BYTES < 16 ? 16 : RV_VECTOR_BYTES;
constexpr size_t kKept = 32; // steps; a power of two above the longest look back

template <class LaneType> struct Front {
    using Lane = LaneType;
    static constexpr size_t lanes = kFrontBytes / sizeof(Lane);
    static constexpr int signShift = sizeof(Lane) * 8 - 1;
    using All = typename CountTo<lanes>::All;
    typedef Lane Vector __attribute__((vector_size(kFrontBytes)));
    typedef uint8_t Bytes __attribute__((vector_size(lanes)));

    static RV_INLINE Vector all(int value) noexcept { return Vector{} + static_cast<Lane>(value); }

    template <size_t... I> static RV_INLINE Vector shiftIn(Vector lanesOf, Vector first, Indices<I...>) noexcept
    {
        return __builtin_shufflevector(lanesOf, first, (I == 0 ? static_cast<int>(lanes) : static_cast<int>(I) - 1)...);
    }
};

/// Two columns more than it must be: what comes from above does not make a step wait for the one before it then.
constexpr size_t delayOf(int method) noexcept { return static_cast<size_t>(kDiffusionOf[method].reach) + 2; }

template <int Weight, size_t Back, class Vector>
RV_INLINE void addShare(Vector& sum, const Vector* kept, size_t step) noexcept
{
    if constexpr (Weight == 1)
        sum += kept[(step - Back) % kKept];
    else if constexpr (Weight != 0)
        sum += kept[(step - Back) % kKept] * (Vector{} + Weight);
}

/// What the row Down rows above gives, still in that row's lane.
template <int Method, size_t Down, class Vector, size_t... I>
RV_INLINE void addRow(Vector& sum, const Vector* kept, size_t step, Indices<I...>) noexcept
{
    (addShare<kDiffusionOf[Method].weights[Down][I], Down * delayOf(Method) + I - kDiffusionReach>(sum, kept, step),
     ...);
}

/// Rows above by their distance, the farthest first: its part is shifted most often.
template <int Method, size_t Down, class F>
RV_INLINE typename F::Vector fromAbove(const DiffusionBand& band, size_t channel, const typename F::Vector* kept,
                                       size_t step, typename F::Vector sum) noexcept
{
    if constexpr (Down == 0) {
        return sum;
    } else {
        addRow<Method, Down>(sum, kept, step, CountTo<2 * kDiffusionReach + 1>::All());
        const auto column = static_cast<ptrdiff_t>(step) - static_cast<ptrdiff_t>((Down - 1) * delayOf(Method));
        const typename F::Vector first = F::all(band.pending[Down - 1][channel][column]);
        sum = F::shiftIn(sum, first, typename F::All());
        return fromAbove<Method, Down - 1, F>(band, channel, kept, step, sum);
    }
}

/// Divides towards zero. Sums are at most 255 times the divisor, which bounds the errors of the factors.
template <int Divisor, class F> RV_INLINE typename F::Vector divide(typename F::Vector sums) noexcept
{
    using Vector = typename F::Vector;
    const Vector sign = sums >> F::signShift;
    if constexpr ((Divisor & (Divisor - 1)) == 0) {
        return (sums + (sign & F::all(Divisor - 1))) >> __builtin_ctz(Divisor);
    } else {
        const Vector size = (sums ^ sign) - sign;
        Vector quotient;
        if constexpr (sizeof(typename F::Lane) == 2) {
#if RV_VECTOR_BYTES >= 16
#if RV_VECTOR_BYTES == 32
#define RV_HIGH_PRODUCT __builtin_ia32_pmulhuw256
#else
#define RV_HIGH_PRODUCT __builtin_ia32_pmulhuw128
#endif
            constexpr auto factor = static_cast<uint16_t>(((1u << 21) + Divisor - 1) / Divisor);
            quotient = reinterpret_cast<Vector>(RV_HIGH_PRODUCT(size, F::all(static_cast<int16_t>(factor)))) >> 5;
#undef RV_HIGH_PRODUCT
#endif
        } else {
            typedef uint32_t Unsigned __attribute__((vector_size(kFrontBytes)));
            constexpr uint32_t factor = ((1u << 24) + Divisor - 1) / Divisor;
            quotient = reinterpret_cast<Vector>(reinterpret_cast<Unsigned>(size) * factor >> 24);
        }
        return (quotient ^ sign) - sign;
    }
}

/// One colour component of the band.
template <int Method, class F> struct DiffusedChannel {
    using Vector = typename F::Vector;
    static constexpr const Diffusion& kernel = kDiffusionOf[Method];

    Vector kept[kKept] = {};
    Vector last = {}, before = {}; // the two newest of them

    RV_INLINE Vector wanted(const DiffusionBand& band, size_t channel, size_t step, Vector pixels) const noexcept
    {
        Vector sum = fromAbove<Method, kernel.rows, F>(band, channel, kept, step, Vector{});
        sum += before * F::all(kernel.weights[0][kDiffusionReach + 2]);
        sum += last * F::all(kernel.weights[0][kDiffusionReach + 1]);
        const Vector value = pixels + divide<kernel.divisor, F>(sum);
        const Vector least = value > 0 ? value : Vector{};
        return least < F::all(255) ? least : F::all(255);
    }

    RV_INLINE void keep(const DiffusionBand& band, size_t channel, size_t step, Vector errors) noexcept
    {
        kept[step % kKept] = errors;
        before = last;
        last = errors;
        for (size_t row = 0; row < kernel.rows; ++row) { // those that the band leaves for what is below it
            const size_t lane = F::lanes - 1 - row;
            band.errors[row][channel][static_cast<ptrdiff_t>(step) - static_cast<ptrdiff_t>(lane * delayOf(Method))] =
                errors[lane];
        }
    }
};

/// The bytes of each word backwards: a mask has the first byte's bit lowest, a row has it on top.
struct FirstOnTop {
    static constexpr uint8_t at(size_t i) noexcept { return static_cast<uint8_t>(i ^ 7); }
};

/// All bits where a lane's pixel is one of its row.
template <int Method, class F> typename F::Vector inside(size_t step, size_t width) noexcept
{
    typename F::Vector mask = {};
    for (size_t lane = 0; lane < F::lanes; ++lane)
        mask[lane] = step >= lane * delayOf(Method) && step - lane * delayOf(Method) < width ? -1 : 0;
    return mask;
}

template <int Method, class F> RV_INLINE bool atEdge(size_t step, size_t width) noexcept
{
    return step < (F::lanes - 1) * delayOf(Method) || step >= width;
}

template <class F>
RV_INLINE void storeIndices(const DiffusionBand& band, size_t step, typename F::Vector indices) noexcept
{
    store(band.indices + step * F::lanes, __builtin_convertvector(indices, typename F::Bytes));
}

/// Gray to even steps of gray, by its upper bits.
template <int Method, class F, int Drop> void diffuseGray(const DiffusionBand& band) noexcept
{
    using Vector = typename F::Vector;
    DiffusedChannel<Method, F> gray;
    const size_t steps = band.width + (F::lanes - 1) * delayOf(Method);
    for (size_t step = 0; step < steps; ++step) {
        const auto bytes = load<typename F::Bytes>(band.pixels + step * F::lanes);
        const Vector wanted = gray.wanted(band, 0, step, __builtin_convertvector(bytes, Vector));
        Vector errors;
        if constexpr (Drop == 7) {
            const auto white = reinterpret_cast<Vector>(wanted > F::all(127));
            storeIndices<F>(band, step, white & F::all(1));
            errors = wanted - (white & F::all(255));
        } else {
            const Vector indices = wanted >> Drop;
            storeIndices<F>(band, step, indices);
            errors = wanted - indices * F::all(255 / (255 >> Drop));
        }
        if (atEdge<Method, F>(step, band.width)) errors &= inside<Method, F>(step, band.width);
        gray.keep(band, 0, step, errors);
    }
}

/// Where the items of the colours are, or the cells that say where.
template <class F>
RV_INLINE typename F::Vector placesOf(const IndexRule& rule, typename F::Vector red, typename F::Vector green,
                                      typename F::Vector blue) noexcept
{
    using Vector = typename F::Vector;
    const auto bitAbove = [](Vector component, int bit) noexcept {
        return reinterpret_cast<Vector>(component > F::all(127)) & F::all(bit);
    };
    const auto sixth = [](Vector component) noexcept { return component * F::all(1286) >> 16; }; // of 51 levels each
    switch (rule.kind) {
    case IndexRule::matchTable: return red >> 3 << 10 | green >> 3 << 5 | blue >> 3;
    case IndexRule::fields:
        return red >> rule.redDrop << rule.redPlace | green >> rule.greenDrop << rule.greenPlace |
               blue >> rule.blueDrop;
    case IndexRule::luminance: return (red * F::all(2) + green * F::all(5) + blue + F::all(4)) >> (3 + rule.redDrop);
    case IndexRule::halves: {
        const Vector above = bitAbove(red, 1) | bitAbove(green, 2) | bitAbove(blue, 4);
        return (above + F::all(8)) & reinterpret_cast<Vector>(above != 0);
    }
    default: return sixth(red) * F::all(36) + sixth(green) * F::all(6) + sixth(blue);
    }
}

RV_INLINE uint32_t itemOfCell(const IndexItems& items, uint32_t cell) noexcept
{
    uint32_t place = items.cells[cell];
    if (place - 1 >= items.count) place = items.resolve(items, cell);
    return items.items[place - 1];
}

template <class F, size_t... I>
RV_INLINE typename F::Vector itemsAt(const IndexItems& items, typename F::Vector places, Indices<I...>) noexcept
{
    using Vector = typename F::Vector;
    if (items.rule.kind == IndexRule::matchTable)
        return Vector{static_cast<int32_t>(itemOfCell(items, static_cast<uint32_t>(places[I])))...};
    return Vector{static_cast<int32_t>(items.items[places[I]])...};
}

template <class F, size_t... I>
RV_INLINE typename F::Vector columnOf(const uint8_t* pixels, size_t skew, Indices<I...>) noexcept
{
    return typename F::Vector{load<int32_t>(pixels + I * skew * kEntryBytes)...};
}

template <int Method, class F> void diffuseColour(const DiffusionBand& band) noexcept
{
    using Vector = typename F::Vector;
    const IndexItems items = *band.items;
    DiffusedChannel<Method, F> channels[3];
    const size_t steps = band.width + (F::lanes - 1) * delayOf(Method);
    for (size_t step = 0; step < steps; ++step) {
        const Vector pixels = columnOf<F>(band.pixels + step * kEntryBytes, band.skew, typename F::All());
        Vector wanted[3];
        for (size_t c = 0; c < 3; ++c)
            wanted[c] = channels[c].wanted(band, c, step, pixels >> static_cast<int>(8 * c) & F::all(255));
        const Vector places = placesOf<F>(items.rule, wanted[2], wanted[1], wanted[0]);
        const Vector found = itemsAt<F>(items, places, typename F::All());
        storeIndices<F>(band, step, found >> 24 & F::all(255));
        const bool edge = atEdge<Method, F>(step, band.width);
        for (size_t c = 0; c < 3; ++c) {
            Vector errors = wanted[c] - (found >> static_cast<int>(8 * c) & F::all(255));
            if (edge) errors &= inside<Method, F>(step, band.width);
            channels[c].keep(band, c, step, errors);
        }
    }
}

void spreadErrors(int32_t* sums, const int32_t* errors, size_t width, const int* weights) noexcept
{
    using F = Front<int32_t>;
    constexpr size_t taps = 2 * kDiffusionReach + 1;
    const auto loadInts = [](const int32_t* from) noexcept {
        return load<F::Vector>(reinterpret_cast<const uint8_t*>(from));
    };
    for (size_t x = 0; x < width; x += F::lanes) {
        F::Vector sum = loadInts(sums + x);
        for (size_t i = 0; i < taps; ++i) sum += loadInts(errors + x + kDiffusionReach - i) * F::all(weights[i]);
        store(reinterpret_cast<uint8_t*>(sums + x), sum);
    }
}

// --- Gray compared with levels that repeat themselves after eight columns

RV_INLINE uint8_t bitsAbove(const uint8_t* gray, const uint8_t* levels, size_t count) noexcept
{
    unsigned bits = 0;
    for (size_t i = 0; i < count; ++i) bits |= (gray[i] > levels[i] ? 0x80u : 0u) >> i;
    return static_cast<uint8_t>(bits);
}

void bitsAboveLevels(uint8_t* bits, const uint8_t* gray, size_t width, const uint8_t* levels) noexcept
{
    size_t x = 0;
#if RV_VECTOR_BYTES >= 16
    typedef uint8_t Bytes __attribute__((vector_size(RV_VECTOR_BYTES)));
    const auto all = reinterpret_cast<Bytes>(Widest{} + load<Word>(levels));
    for (; width - x >= sizeof(Bytes); x += sizeof(Bytes), bits += sizeof(Bytes) / 8) {
        const auto above = reinterpret_cast<Widest>(load<Bytes>(gray + x) > all);
        const auto turned = reinterpret_cast<Chars>(pickPattern<FirstOnTop>(above));
#if RV_VECTOR_BYTES == 32
        const auto found = static_cast<uint32_t>(__builtin_ia32_pmovmskb256(turned));
#else
        const auto found = static_cast<uint16_t>(__builtin_ia32_pmovmskb128(turned));
#endif
        memcpy(bits, &found, sizeof found);
    }
#endif
    for (; width - x >= 8; x += 8) *bits++ = bitsAbove(gray + x, levels, 8);
    if (x < width) *bits = bitsAbove(gray + x, levels, width - x);
}

/// Sums that fit 16 bits make room for twice as many rows; to divide them by any number takes instructions of x86.
template <bool Narrow> struct GrayLane {
    using Type = int32_t;
};
template <> struct GrayLane<true> {
    using Type = int16_t;
};
constexpr bool fitsNarrow(int divisor) noexcept
{
    return divisor * 255 <= 32767 && (RV_VECTOR_BYTES >= 16 || (divisor & (divisor - 1)) == 0);
}

template <int Method, int Drop> constexpr DiffuseRows grayRows() noexcept
{
    using F = Front<typename GrayLane<fitsNarrow(kDiffusionOf[Method].divisor)>::Type>;
    return {F::lanes, delayOf(Method), diffuseGray<Method, F, Drop>};
}
template <int Method> constexpr DiffuseRows colourRows() noexcept
{
    using F = Front<int32_t>;
    return {F::lanes, delayOf(Method), diffuseColour<Method, F>};
}

} // namespace
} // namespace rv::simd::RV_SIMD
