// Rows of pixels in reverse order. Part of the text of a variant: see RowKernels_inl.h, which includes it.

namespace rv::simd::RV_SIMD {
namespace {

// --- Mirror by exchanging blocks between the two ends

/// How a block is turned whose pixels are whole units.
template <size_t Unit> struct TurnUnits {
    static constexpr size_t unit = Unit;
    template <class Block> static RV_INLINE Block turn(Block block) noexcept { return reverseUnits<Unit>(block); }
    static RV_INLINE uint8_t turn(uint8_t byte) noexcept { return byte; }
};
/// ... or samples of less than a byte.
template <unsigned Bits> struct TurnSamples {
    static constexpr size_t unit = 1;
    template <class Block> static RV_INLINE Block turn(Block block) noexcept
    {
        return reverseSamples<Bits>(reverseUnits<1>(block));
    }
    static RV_INLINE uint8_t turn(uint8_t byte) noexcept
    {
        return static_cast<uint8_t>(reverseSamples<Bits>(static_cast<Word>(byte)));
    }
};

template <class Block, class Turn>
RV_INLINE void exchangeEnds(uint8_t* target, const uint8_t* source, size_t left, size_t right) noexcept
{
    const Block first = load<Block>(source + left);
    const Block last = load<Block>(source + right - sizeof(Block));
    store(target + left, Turn::turn(last));
    store(target + right - sizeof(Block), Turn::turn(first));
}

/// From the ends inwards, while two blocks fit between them. Where just one fits in the end, both ends take it: they
/// agree on the bytes they share.
template <class Block, class Turn>
RV_INLINE void exchangeBlocks(uint8_t* target, const uint8_t* source, size_t& left, size_t& right,
                              const uint8_t* next) noexcept
{
    for (; right - left >= 2 * sizeof(Block); left += sizeof(Block), right -= sizeof(Block)) {
        if constexpr (sizeof(Block) > sizeof(Word)) __builtin_prefetch(next + 2 * left, 1);
        exchangeEnds<Block, Turn>(target, source, left, right);
    }
    if (right - left >= sizeof(Block)) {
        exchangeEnds<Block, Turn>(target, source, left, right);
        left = right;
    }
}

/// Unit by unit; the last few.
template <size_t Unit>
RV_INLINE void exchangeUnits(uint8_t* target, const uint8_t* source, size_t left, size_t right) noexcept
{
    struct Pixel {
        uint8_t bytes[Unit];
    };
    for (; left < right; left += Unit, right -= Unit) {
        const Pixel first = load<Pixel>(source + left);
        const Pixel last = load<Pixel>(source + right - Unit);
        store(target + left, last);
        store(target + right - Unit, first);
    }
}

template <class Turn>
RV_INLINE void mirrorBlocks(uint8_t* target, const uint8_t* source, size_t bytes, const uint8_t* next) noexcept
{
    size_t left = 0;
    size_t right = bytes;
#if RV_VECTOR_BYTES >= 32
    exchangeBlocks<Words4, Turn>(target, source, left, right, next);
#endif
#if RV_VECTOR_BYTES >= 16
    exchangeBlocks<Words2, Turn>(target, source, left, right, next);
#endif
    exchangeBlocks<Word, Turn>(target, source, left, right, next);
    if constexpr (Turn::unit == 1) {
        for (; left < right; ++left, --right) exchangeEnds<uint8_t, Turn>(target, source, left, right);
    } else {
        exchangeUnits<Turn::unit>(target, source, left, right);
    }
}

template <size_t Unit>
void mirrorUnits(uint8_t* target, const uint8_t* source, size_t width, const uint8_t* next) noexcept
{
    mirrorBlocks<TurnUnits<Unit>>(target, source, width * Unit, next);
}

/// Reversed, a row of samples begins with what was behind its last pixel: that is shifted out.
template <unsigned Bits>
void mirrorSamples(uint8_t* target, const uint8_t* source, size_t width, const uint8_t* next) noexcept
{
    const size_t bytes = (width * Bits + 7) / 8;
    mirrorBlocks<TurnSamples<Bits>>(target, source, bytes, next);
    if (const auto padding = static_cast<unsigned>(bytes * 8 - width * Bits); padding != 0)
        shiftLeft(target, target, bytes, padding);
}

// --- Mirror of pixels that do not fill a block: 3 and 6 bytes

/// A block's worth of whole pixels, and how they are turned on their way to the other end. There they stand at the
/// block's outer edge: bytes 0 on at the left end, up to the last byte at the right.
template <size_t Unit, class Block> struct LooseBlock {
    static constexpr size_t used = sizeof(Block) / Unit * Unit;
    static constexpr size_t spare = sizeof(Block) - used;

    struct ToLeft {
        static constexpr uint8_t at(size_t i) noexcept
        {
            return i < used ? static_cast<uint8_t>(sizeof(Block) - Unit - i + 2 * (i % Unit)) : 0x80;
        }
    };
    struct ToRight {
        static constexpr uint8_t at(size_t i) noexcept
        {
            return i >= spare ? static_cast<uint8_t>(ToLeft::at(i - spare) - spare) : 0x80;
        }
    };

    static RV_INLINE Block toLeft(Block fromRight) noexcept
    {
        if constexpr (sizeof(Block) > sizeof(Word)) {
            return pickPattern<ToLeft>(fromRight);
        } else if constexpr (Unit == 3) {
            return fromRight >> 40 | (fromRight >> 16 & 0xFFFFFF) << 24;
        } else {
            return fromRight >> 16;
        }
    }
    static RV_INLINE Block toRight(Block fromLeft) noexcept
    {
        if constexpr (sizeof(Block) > sizeof(Word)) return pickPattern<ToRight>(fromLeft);
        if constexpr (sizeof(Block) == sizeof(Word)) return toLeft(fromLeft << 16) << 16;
    }
};

/// Each store spills into `spare` bytes further in; they were loaded with the block that will be stored there.
template <size_t Unit>
void mirrorLoose(uint8_t* target, const uint8_t* source, size_t width, const uint8_t* next) noexcept
{
#if RV_VECTOR_BYTES >= 16
    using Block = Words2; // a wider one would have to be moved in halves
#else
    using Block = Word;
#endif
    using Loose = LooseBlock<Unit, Block>;
    size_t left = 0;
    size_t right = width * Unit;
    if (right >= sizeof(Block)) {
        Block first = load<Block>(source);
        Block last = load<Block>(source + right - sizeof(Block));
        for (; right - left >= 3 * Loose::used; left += Loose::used, right -= Loose::used) {
            const Block first2 = load<Block>(source + left + Loose::used);
            const Block last2 = load<Block>(source + right - Loose::used - sizeof(Block));
            __builtin_prefetch(next + 2 * left, 1);
            store(target + left, Loose::toLeft(last));
            store(target + right - sizeof(Block), Loose::toRight(first));
            first = first2;
            last = last2;
        }
        // The last pair is loaded, and its place holds spilt bytes: it takes no more than its own. Where its ends
        // overlap, they agree, and nothing is left between them.
        const Block toLeft = Loose::toLeft(last);
        const Block toRight = Loose::toRight(first);
        memcpy(target + left, &toLeft, Loose::used);
        memcpy(target + right - Loose::used, reinterpret_cast<const uint8_t*>(&toRight) + Loose::spare, Loose::used);
        left += Loose::used;
        right -= Loose::used;
    }
    exchangeUnits<Unit>(target, source, left, right);
}

// --- Mirror of 3, 5, 6, 7 and 12 bits: all samples are reversed as if they were pixels, then those inside each pixel

/// A word that holds as many whole pixels as fill whole bytes, the first pixel's first bit on top. A pixel of Bits bits
/// counts as a row of samples of Sample bits.
template <unsigned Bits, unsigned Sample> struct Lane {
    static constexpr size_t bytes = Bits == 5 ? 5 : Bits == 7 ? 7 : 6;
    static_assert(bytes * 8 % Bits == 0);

    /// The later of the two samples that change places in each pixel, the k-th and the k-th last.
    static constexpr Word laterSamples(unsigned k) noexcept
    {
        Word mask = 0;
        for (unsigned pixel = 1; pixel * Bits <= bytes * 8; ++pixel)
            mask |= ((Word{1} << Sample) - 1) << (64 - pixel * Bits + k * Sample);
        return mask;
    }

    template <unsigned K, class Block> static RV_INLINE Block exchange(Block block) noexcept
    {
        if constexpr (K < Bits / Sample / 2) {
            constexpr unsigned distance = Bits - Sample * (2 * K + 1);
            const Block differing = ((block >> distance) ^ block) & laterSamples(K);
            return exchange<K + 1>(block ^ differing ^ differing << distance);
        } else {
            return block;
        }
    }

    struct Spread { // from packed bytes to a word each, and back
        static constexpr uint8_t at(size_t i) noexcept
        {
            return 7 - i % 8 < bytes ? static_cast<uint8_t>(i / 8 * bytes + 7 - i % 8) : 0x80;
        }
    };
    struct Gather {
        static constexpr uint8_t at(size_t i) noexcept
        {
            return i < 2 * bytes ? static_cast<uint8_t>(i / bytes * 8 + 7 - i % bytes) : 0x80;
        }
    };
};

/// How the lanes of a block are moved. `step` bytes are its own; a store spills into the bytes up to `touched`.
template <class L, class Block> struct LaneBlock;

template <class L> struct LaneBlock<L, Word> {
    static constexpr size_t step = L::bytes;
    static constexpr size_t touched = sizeof(Word);
    static RV_INLINE Word fetch(const uint8_t* row) noexcept { return reverseUnits<1>(load<Word>(row)); }
    static RV_INLINE void put(uint8_t* row, Word lanes) noexcept { store(row, reverseUnits<1>(lanes)); }
};

#if RV_VECTOR_BYTES >= 16
template <class L> struct LaneBlock<L, Words2> {
    static constexpr size_t step = 2 * L::bytes;
    static constexpr size_t touched = sizeof(Words2);
    static RV_INLINE Words2 fetch(const uint8_t* row) noexcept
    {
        return pickPattern<typename L::Spread>(load<Words2>(row));
    }
    static RV_INLINE void put(uint8_t* row, Words2 lanes) noexcept
    {
        store(row, pickPattern<typename L::Gather>(lanes));
    }
};
#endif

#if RV_VECTOR_BYTES >= 32
template <class L> struct LaneBlock<L, Words4> {
    static constexpr size_t step = 4 * L::bytes;
    static constexpr size_t touched = 2 * L::bytes + sizeof(Words2);
    static RV_INLINE Words4 fetch(const uint8_t* row) noexcept
    {
        const Words4 packed = __builtin_shufflevector(load<Words2>(row), load<Words2>(row + 2 * L::bytes), 0, 1, 2, 3);
        return pickPattern<typename L::Spread>(packed);
    }
    static RV_INLINE void put(uint8_t* row, Words4 lanes) noexcept
    {
        const Words4 packed = pickPattern<typename L::Gather>(lanes);
        store(row, __builtin_shufflevector(packed, packed, 0, 1));
        store(row + 2 * L::bytes, __builtin_shufflevector(packed, packed, 2, 3));
    }
};
#endif

/// Reverses the samples of each pixel, as far as whole blocks go; returns how far that is.
template <class L, class Block> RV_INLINE size_t reverseLanes(uint8_t* row, size_t bytes) noexcept
{
    using Lanes = LaneBlock<L, Block>;
    constexpr size_t spare = Lanes::touched - Lanes::step;
    if (bytes < Lanes::touched) return 0;
    size_t done = 0;
    Block block = Lanes::fetch(row);
    for (; bytes - done >= Lanes::step + Lanes::touched; done += Lanes::step) {
        const Block following = Lanes::fetch(row + done + Lanes::step);
        Lanes::put(row + done, L::template exchange<0>(block));
        block = following;
    }
    uint8_t behind[spare]; // is not loaded yet
    memcpy(behind, row + done + Lanes::step, spare);
    Lanes::put(row + done, L::template exchange<0>(block));
    memcpy(row + done + Lanes::step, behind, spare);
    return done + Lanes::step;
}

/// The same for `count` bytes, which one word holds.
template <class L> RV_INLINE void reverseLane(uint8_t* row, size_t count) noexcept
{
    Word lane = 0;
    memcpy(&lane, row, count);
    lane = reverseUnits<1>(L::template exchange<0>(reverseUnits<1>(lane)));
    memcpy(row, &lane, count);
}

template <unsigned Bits, unsigned Sample>
void mirrorOdd(uint8_t* target, const uint8_t* source, size_t width, const uint8_t* next) noexcept
{
    using L = Lane<Bits, Sample>;
    mirrorSamples<Sample>(target, source, width * (Bits / Sample), next);

    const size_t bytes = (width * Bits + 7) / 8;
    size_t done = reverseLanes<L, Widest>(target, bytes);
    for (; bytes - done >= L::bytes; done += L::bytes) reverseLane<L>(target + done, L::bytes);
    if (done < bytes) reverseLane<L>(target + done, bytes - done);
}

} // namespace
} // namespace rv::simd::RV_SIMD
