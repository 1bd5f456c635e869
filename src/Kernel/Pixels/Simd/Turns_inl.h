// Rows that become columns. Part of the text of a variant: see RowKernels_inl.h, which includes it.
//
// A picture is turned in tiles, one after the other along its rows: columns of a cache line, and rows that make a few
// lines of the target, so that few of those are written in two parts. A tile is first copied together: a line of the
// picture is touched once, so it does not matter how many rows share a cache set, and what is at the picture's edges
// looks like all the rest. In the cache its pixels are brought to whole units of 1, 2, 4 or 8 bytes, turned, packed
// again and written row by row.

namespace rv::simd::RV_SIMD {
namespace {

// --- Units turned in a tile

template <size_t... I> struct Indices {
};
template <size_t N, size_t... I> struct CountTo : CountTo<N - 1, N - 1, I...> {
};
template <size_t... I> struct CountTo<0, I...> {
    using All = Indices<I...>;
};

#if RV_VECTOR_BYTES >= 16
template <size_t Bytes> struct UnitOf {
    using Type = Word;
};
template <> struct UnitOf<1> {
    using Type = uint8_t;
};
template <> struct UnitOf<2> {
    using Type = uint16_t;
};
template <> struct UnitOf<4> {
    using Type = uint32_t;
};

/// Where the i-th unit comes from when those of two blocks alternate: the lower half of each sixteen bytes, or the
/// upper one. Those of the second block count on from the first one's.
template <size_t Unit, size_t Bytes> constexpr int alternate(size_t i, bool upper) noexcept
{
    constexpr size_t side = 16 / Unit;
    const size_t within = i % side;
    return static_cast<int>(i - within + (upper ? side / 2 : 0) + within / 2 + within % 2 * (Bytes / Unit));
}

template <size_t Unit, bool Upper, class Block, size_t... I>
RV_INLINE Block zip(Block first, Block second, Indices<I...>) noexcept
{
    typedef typename UnitOf<Unit>::Type Units __attribute__((vector_size(sizeof(Block))));
    return reinterpret_cast<Block>(__builtin_shufflevector(
        reinterpret_cast<Units>(first), reinterpret_cast<Units>(second), alternate<Unit, sizeof(Block)>(I, Upper)...));
}

/// A round of as many as 2 to their power are the blocks; after the last one, rows are columns.
template <size_t Unit, size_t Left, class Block, size_t... I>
RV_INLINE void zipRounds(Block* rows, Indices<I...> all) noexcept
{
    using Units = typename CountTo<sizeof(Block) / Unit>::All;
    constexpr size_t half = sizeof...(I) / 2;
    const Block next[] = {zip<Unit, I % 2 != 0>(rows[I / 2], rows[I / 2 + half], Units())...};
    ((rows[I] = next[I]), ...);
    if constexpr (Left > 2) zipRounds<Unit, Left / 2>(rows, all);
}

RV_INLINE void storeHalves(uint8_t* lower, uint8_t*, Words2 words) noexcept { store(lower, words); }
#if RV_VECTOR_BYTES >= 32
RV_INLINE void storeHalves(uint8_t* lower, uint8_t* upper, Words4 words) noexcept
{
    store(lower, __builtin_shufflevector(words, words, 0, 1));
    store(upper, __builtin_shufflevector(words, words, 2, 3));
}
#endif

/// Turns a square for each sixteen bytes of a block.
template <size_t Unit, size_t... I>
RV_INLINE void turnSquares(uint8_t* target, size_t targetPitch, const uint8_t* source, size_t sourcePitch,
                           Indices<I...> all) noexcept
{
    constexpr size_t side = sizeof...(I);
    Widest rows[] = {load<Widest>(source + I * sourcePitch)...};
    zipRounds<Unit, side>(rows, all);
    (storeHalves(target + I * targetPitch, target + (side + I) * targetPitch, rows[I]), ...);
}
#endif

/// Turns a tile of Rows rows of Columns units.
template <size_t Unit, size_t Rows, size_t Columns> RV_INLINE void turnUnits(uint8_t* target, const uint8_t* source)
{
    constexpr size_t sourcePitch = Columns * Unit;
    constexpr size_t targetPitch = Rows * Unit;
#if RV_VECTOR_BYTES >= 16
    constexpr size_t side = 16 / Unit;
    constexpr size_t step = sizeof(Widest) / Unit;
    static_assert(Rows % side == 0 && Columns % step == 0);
    for (size_t row = 0; row < Rows; row += side)
        for (size_t column = 0; column < Columns; column += step)
            turnSquares<Unit>(target + column * targetPitch + row * Unit, targetPitch,
                              source + row * sourcePitch + column * Unit, sourcePitch, typename CountTo<side>::All());
#else
    for (size_t row = 0; row < Rows; ++row)
        for (size_t column = 0; column < Columns; ++column)
            memcpy(target + column * targetPitch + row * Unit, source + row * sourcePitch + column * Unit, Unit);
#endif
}

// --- Pixels of a tile as units, and back

/// Pixels of Bits bits in a word: `bytes` of a row become a word of units.
template <unsigned Bits> struct Loose {
    static constexpr size_t unit = Bits < 8 ? 1 : Bits == 12 ? 2 : Bits == 24 ? 4 : 8;
    static constexpr size_t pixels = sizeof(Word) / unit;
    static constexpr size_t bytes = pixels * Bits / 8;
    static constexpr bool stream = Bits % 8 != 0; ///< a stream of bits, the first one on top

    /// From a row's bytes to a word each, and back. A stream's first pixel comes to stand on top of its bits.
    struct Spread {
        static constexpr uint8_t at(size_t i) noexcept
        {
            const size_t word = i / 8 * bytes, within = i % 8;
            if (stream) return within < bytes ? static_cast<uint8_t>(word + bytes - 1 - within) : 0x80;
            return within % unit < Bits / 8 ? static_cast<uint8_t>(word + within / unit * (Bits / 8) + within % unit)
                                            : 0x80;
        }
    };
    struct Gather {
        static constexpr uint8_t at(size_t i) noexcept
        {
            for (size_t from = 0; from < 16; ++from)
                if (Spread::at(from) == i) return static_cast<uint8_t>(from);
            return 0x80;
        }
    };
};

/// The same word in each half, quarter or eighth of one: the lowest `bits`.
template <size_t Parts> constexpr Word lowBits(unsigned bits) noexcept
{
    Word all = 0;
    for (size_t i = 0; i < Parts; ++i) all |= ((Word{1} << bits) - 1) << (64 / Parts * i);
    return all;
}

/// Parts the stream in a word, halves first, down to single pixels; the first pixel becomes the lowest.
template <unsigned Bits, size_t Parts, class Block> RV_INLINE Block partStream(Block words) noexcept
{
    constexpr unsigned half = Bits * Loose<Bits>::pixels / Parts / 2; // bits of what is parted
    constexpr Word kept = lowBits<Parts>(half);
    words = (words >> half & kept) | (words & kept) << (32 / Parts);
    if constexpr (Parts * 2 < Loose<Bits>::pixels) return partStream<Bits, Parts * 2>(words);
    return words;
}
template <unsigned Bits, size_t Parts, class Block> RV_INLINE Block joinStream(Block words) noexcept
{
    if constexpr (Parts * 2 < Loose<Bits>::pixels) words = joinStream<Bits, Parts * 2>(words);
    constexpr unsigned half = Bits * Loose<Bits>::pixels / Parts / 2;
    constexpr Word kept = lowBits<Parts>(half);
    return (words & kept) << half | (words >> (32 / Parts) & kept);
}

/// Loads what becomes a block of units; up to `spill` bytes behind it are read, and written back.
template <unsigned Bits, class Block> struct LooseMove;

template <unsigned Bits> struct LooseMove<Bits, Word> {
    static RV_INLINE Word fetch(const uint8_t* row) noexcept
    {
        const Word packed = load<Word>(row);
        if constexpr (Loose<Bits>::stream) return reverseUnits<1>(packed) >> (64 - 8 * Loose<Bits>::bytes);
        if constexpr (Bits == 24) return (packed & 0xFFFFFF) | (packed & 0xFFFFFF000000) << 8;
        return packed & 0xFFFFFFFFFFFF;
    }
    static RV_INLINE void put(uint8_t* row, Word words) noexcept
    {
        if constexpr (Loose<Bits>::stream) words = reverseUnits<1>(words << (64 - 8 * Loose<Bits>::bytes));
        if constexpr (Bits == 24) words = (words & 0xFFFFFF) | (words >> 8 & 0xFFFFFF000000);
        store(row, words);
    }
};
#if RV_VECTOR_BYTES >= 16
template <unsigned Bits> struct LooseMove<Bits, Words2> {
    static RV_INLINE Words2 fetch(const uint8_t* row) noexcept
    {
        return pickPattern<typename Loose<Bits>::Spread>(load<Words2>(row));
    }
    static RV_INLINE void put(uint8_t* row, Words2 words) noexcept
    {
        store(row, pickPattern<typename Loose<Bits>::Gather>(words));
    }
};
#endif
#if RV_VECTOR_BYTES >= 32
template <unsigned Bits> struct LooseMove<Bits, Words4> {
    static constexpr size_t half = 2 * Loose<Bits>::bytes;
    static RV_INLINE Words4 fetch(const uint8_t* row) noexcept
    {
        const Words4 packed = __builtin_shufflevector(load<Words2>(row), load<Words2>(row + half), 0, 1, 2, 3);
        return pickPattern<typename Loose<Bits>::Spread>(packed);
    }
    static RV_INLINE void put(uint8_t* row, Words4 words) noexcept
    {
        const Words4 packed = pickPattern<typename Loose<Bits>::Gather>(words);
        store(row, __builtin_shufflevector(packed, packed, 0, 1));
        store(row + half, __builtin_shufflevector(packed, packed, 2, 3));
    }
};
#endif
constexpr size_t kSpill = 16; ///< bytes behind packed pixels that their moves may touch

template <unsigned Bits> RV_INLINE void loosen(uint8_t* units, const uint8_t* packed, size_t bytes) noexcept
{
    constexpr size_t step = sizeof(Widest) * Loose<Bits>::bytes / sizeof(Word);
    for (; bytes != 0; bytes -= step, packed += step, units += sizeof(Widest)) {
        auto words = LooseMove<Bits, Widest>::fetch(packed);
        if constexpr (Loose<Bits>::stream) words = partStream<Bits, 1>(words);
        store(units, words);
    }
}

template <unsigned Bits> RV_INLINE void pack(uint8_t* packed, const uint8_t* units, size_t bytes) noexcept
{
    constexpr size_t step = sizeof(Widest) * Loose<Bits>::bytes / sizeof(Word);
    for (; bytes != 0; bytes -= step, packed += step, units += sizeof(Widest)) {
        auto words = load<Widest>(units);
        if constexpr (Loose<Bits>::stream) words = joinStream<Bits, 1>(words);
        LooseMove<Bits, Widest>::put(packed, words);
    }
}

// --- Tiles

/// Copies a tile together; where the picture ends before, zeros are.
/// slot  row r of the picture becomes row r ^ slot of the tile
template <size_t Rows, size_t RowBytes>
RV_INLINE void take(uint8_t* tile, const uint8_t* source, ptrdiff_t pitch, size_t rows, size_t bytes,
                    size_t slot) noexcept
{
    if (rows == Rows && bytes == RowBytes) {
        for (size_t row = 0; row < Rows; ++row, source += pitch) {
            for (size_t ahead = 0; ahead < RowBytes; ahead += 64) __builtin_prefetch(source + RowBytes + ahead);
            memcpy(tile + (row ^ slot) * RowBytes, source, RowBytes);
        }
    } else {
        memset(tile, 0, Rows * RowBytes);
        for (size_t row = 0; row < rows; ++row)
            memcpy(tile + (row ^ slot) * RowBytes, source + static_cast<ptrdiff_t>(row) * pitch, bytes);
    }
}

/// Writes a row past the caches: whole lines of it, and what of lines it shares with its neighbours as ever.
template <size_t RowBytes> RV_INLINE void givePast(uint8_t* target, const uint8_t* row) noexcept
{
    constexpr size_t line = 64;
    size_t done = -reinterpret_cast<uintptr_t>(target) % line;
    memcpy(target, row, done);
    for (; RowBytes - done >= line; done += line)
        for (size_t within = 0; within < line; within += sizeof(Widest))
            storePast(target + done + within, load<Widest>(row + done + within));
    memcpy(target + done, row + done, RowBytes - done);
}

/// Writes a tile's rows, RowBytes each, of which the first `bytes` count.
template <size_t RowBytes>
RV_INLINE void give(uint8_t* target, ptrdiff_t pitch, const uint8_t* tile, size_t rows, size_t bytes,
                    bool past) noexcept
{
    if (past && bytes == RowBytes && RowBytes >= 128) {
        for (size_t row = 0; row < rows; ++row, target += pitch) givePast<RowBytes>(target, tile + row * RowBytes);
    } else if (bytes == RowBytes) {
        for (size_t row = 0; row < rows; ++row, target += pitch) memcpy(target, tile + row * RowBytes, RowBytes);
    } else {
        for (size_t row = 0; row < rows; ++row)
            memcpy(target + static_cast<ptrdiff_t>(row) * pitch, tile + row * RowBytes, bytes);
    }
}

/// Pixels that are whole units already.
template <unsigned Bits> struct TurnTile {
    static constexpr size_t unit = Bits / 8;
    static constexpr size_t rows = unit == 1 ? 256 : unit == 8 ? 64 : 128;
    static constexpr size_t columns = unit <= 2 ? 64 / unit : unit == 4 ? 32 : 16;
    alignas(64) uint8_t lying[rows * columns * unit];
    alignas(64) uint8_t standing[rows * columns * unit];

    RV_INLINE void turn(uint8_t* target, ptrdiff_t targetPitch, const uint8_t* source, ptrdiff_t sourcePitch,
                        size_t width, size_t height, bool past) noexcept
    {
        take<rows, columns * unit>(lying, source, sourcePitch, height, width * unit, 0);
        turnUnits<unit, rows, columns>(standing, lying);
        give<rows * unit>(target, targetPitch, standing, width, height * unit, past);
    }
};

/// Pixels that have to be loosened first.
template <unsigned Bits>
requires(Bits < 8 || Bits == 12 || Bits == 24 || Bits == 48) struct TurnTile<Bits> {
    static constexpr size_t unit = Loose<Bits>::unit;
    static constexpr size_t rows = unit == 1 ? 256 : unit == 8 ? 64 : 128;
    static constexpr size_t columns = unit <= 2 ? 64 / unit : unit == 4 ? 32 : 16;
    alignas(64) uint8_t packed[rows * columns * Bits / 8 + kSpill];
    alignas(64) uint8_t lying[rows * columns * unit];
    alignas(64) uint8_t standing[rows * columns * unit];

    RV_INLINE void turn(uint8_t* target, ptrdiff_t targetPitch, const uint8_t* source, ptrdiff_t sourcePitch,
                        size_t width, size_t height, bool past) noexcept
    {
        take<rows, columns * Bits / 8>(packed, source, sourcePitch, height, (width * Bits + 7) / 8, 0);
        loosen<Bits>(lying, packed, rows * columns * Bits / 8);
        turnUnits<unit, rows, columns>(standing, lying);
        pack<Bits>(packed, standing, rows * columns * Bits / 8);
        give<rows * Bits / 8>(target, targetPitch, packed, width, (height * Bits + 7) / 8, past);
    }
};

#if RV_VECTOR_BYTES == 32
RV_INLINE uint32_t topBits(Words4 words) noexcept
{
    return static_cast<uint32_t>(__builtin_ia32_pmovmskb256(reinterpret_cast<Chars>(words)));
}
#elif RV_VECTOR_BYTES == 16
RV_INLINE uint16_t topBits(Words2 words) noexcept
{
    return static_cast<uint16_t>(__builtin_ia32_pmovmskb128(reinterpret_cast<Chars>(words)));
}
#endif

/// Of a byte of each row, in the order 7 to 0, 15 to 8 and so on, makes eight rows: one for each bit, the top one
/// first.
template <size_t Rows> RV_INLINE void turnBits(uint8_t* target, const uint8_t* column) noexcept
{
    constexpr size_t targetPitch = Rows / 8;
    for (size_t row = 0; row < Rows; row += sizeof(Widest)) {
        auto eight = load<Widest>(column + row);
        uint8_t* const place = target + row / 8;
#if RV_VECTOR_BYTES >= 16
        for (size_t bit = 0; bit < 8; ++bit, eight += eight) { // a carry into the next byte comes to its last bit
            const auto bits = topBits(eight);
            memcpy(place + bit * targetPitch, &bits, sizeof bits);
        }
#else
        // Halves of a square of 8 x 8 bits exchange places, then of each quarter of it, then of each of theirs.
        const auto exchange = [&eight](unsigned distance, Word moved) noexcept {
            const Word differing = (eight >> distance ^ eight) & moved;
            eight ^= differing ^ differing << distance;
        };
        exchange(7, 0x00AA00AA00AA00AAu);
        exchange(14, 0x0000CCCC0000CCCCu);
        exchange(28, 0x00000000F0F0F0F0u);
        for (unsigned bit = 0; bit < 8; ++bit) place[bit * targetPitch] = static_cast<uint8_t>(eight >> (56 - 8 * bit));
#endif
    }
}

template <> struct TurnTile<1> {
    static constexpr size_t rows = 256;
    static constexpr size_t rowBytes = 32;
    static constexpr size_t columns = 8 * rowBytes;
    alignas(64) uint8_t lying[rows * rowBytes];
    alignas(64) uint8_t standing[rows * rowBytes];

    RV_INLINE void turn(uint8_t* target, ptrdiff_t targetPitch, const uint8_t* source, ptrdiff_t sourcePitch,
                        size_t width, size_t height, bool past) noexcept
    {
        take<rows, rowBytes>(lying, source, sourcePitch, height, (width + 7) / 8, 7);
        turnUnits<1, rows, rowBytes>(standing, lying);
        for (size_t byte = 0; byte < rowBytes; ++byte) turnBits<rows>(lying + byte * rows, standing + byte * rows);
        give<rows / 8>(target, targetPitch, lying, width, (height + 7) / 8, past);
    }
};

template <unsigned Bits>
void turnPixels(uint8_t* target, ptrdiff_t targetPitch, const uint8_t* source, ptrdiff_t sourcePitch, size_t width,
                size_t height, bool past) noexcept
{
    using Tile = TurnTile<Bits>;
    Tile tile;
    const auto least = [](size_t a, size_t b) noexcept { return a < b ? a : b; };
    for (size_t row = 0; row < height; row += Tile::rows) {
        for (size_t column = 0; column < width; column += Tile::columns)
            tile.turn(target + static_cast<ptrdiff_t>(column) * targetPitch + row * Bits / 8, targetPitch,
                      source + column * Bits / 8, sourcePitch, least(width - column, Tile::columns),
                      least(height - row, Tile::rows), past);
        source += static_cast<ptrdiff_t>(Tile::rows) * sourcePitch;
    }
    if (past) settleStores();
}

} // namespace
} // namespace rv::simd::RV_SIMD
