// The palette entries nearest to a colour. Part of the text of a variant: see RowKernels_inl.h, which includes it.

namespace rv::simd::RV_SIMD {
namespace {

constexpr size_t kEntryBytes = 4;

RV_INLINE uint32_t squaredDistance(const uint8_t* entry, const uint8_t* colour) noexcept
{
    uint32_t sum = 0;
    for (size_t i = 0; i < 3; ++i) {
        const int difference = entry[i] - colour[i];
        sum += static_cast<uint32_t>(difference * difference);
    }
    return sum;
}

uint32_t nearestOneByOne(const uint8_t* entries, size_t count, const uint8_t* colour, uint64_t* marks) noexcept
{
    uint32_t least = UINT32_MAX;
    for (size_t i = 0; i < count; ++i) {
        const uint32_t distance = squaredDistance(entries + i * kEntryBytes, colour);
        if (distance > least) continue;
        if (distance < least) memset(marks, 0, kNearestMarks * sizeof *marks);
        least = distance;
        marks[i / 64] |= uint64_t{1} << i % 64;
    }
    return least;
}

#if RV_VECTOR_BYTES >= 16
#if RV_VECTOR_BYTES == 32
#define RV_X86(operation) __builtin_ia32_##operation##256
#else
#define RV_X86(operation) __builtin_ia32_##operation##128
#endif

typedef uint32_t Ints __attribute__((vector_size(RV_VECTOR_BYTES)));
typedef int16_t Shorts __attribute__((vector_size(RV_VECTOR_BYTES)));
typedef int16_t Shorts8 __attribute__((vector_size(16)));
typedef char Chars __attribute__((vector_size(RV_VECTOR_BYTES)));

/// Distances are kept in 16 bits, so that more of them fit a vector. Those that do not fit are all the same, which only
/// matters where the least is one of them.
constexpr int16_t kFar = INT16_MAX;
constexpr size_t kStep = sizeof(Shorts) / sizeof(int16_t);

/// The colour as it stands in every entry's place: first and third byte in 16 bits each, and the second alone.
struct SpreadColour {
    explicit SpreadColour(const uint8_t* colour) noexcept
        : outer(reinterpret_cast<Shorts>(Ints{} + static_cast<uint32_t>(colour[0] | colour[2] << 16))),
          middle(reinterpret_cast<Shorts>(Ints{} + uint32_t{colour[1]}))
    {
    }
    Shorts outer;
    Shorts middle;
};

/// Of kStep entries. Wide vectors are packed half by half, so fours of the distances change places.
RV_INLINE Shorts squaredDistances(const uint8_t* entries, const SpreadColour& colour) noexcept
{
    const auto ofBlock = [&colour](Ints block) noexcept {
        const Shorts outer = reinterpret_cast<Shorts>(block & 0x00FF00FFu) - colour.outer;
        const Shorts middle = reinterpret_cast<Shorts>(block >> 8 & 0xFFu) - colour.middle;
        return RV_X86(pmaddwd)(outer, outer) + RV_X86(pmaddwd)(middle, middle);
    };
    const auto first = ofBlock(load<Ints>(entries));
    const auto second = ofBlock(load<Ints>(entries + sizeof(Ints)));
    return reinterpret_cast<Shorts>(RV_X86(packssdw)(first, second));
}

template <class Vector> RV_INLINE Vector lesser(Vector a, Vector b) noexcept { return a < b ? a : b; }

RV_INLINE int16_t leastOf(Shorts all) noexcept
{
#if RV_VECTOR_BYTES == 32
    Shorts8 least = lesser(__builtin_shufflevector(all, all, 0, 1, 2, 3, 4, 5, 6, 7),
                           __builtin_shufflevector(all, all, 8, 9, 10, 11, 12, 13, 14, 15));
#else
    Shorts8 least = all;
#endif
    least = lesser(least, __builtin_shufflevector(least, least, 4, 5, 6, 7, 0, 1, 2, 3));
    least = lesser(least, __builtin_shufflevector(least, least, 2, 3, 0, 1, 6, 7, 4, 5));
    least = lesser(least, __builtin_shufflevector(least, least, 1, 0, 3, 2, 5, 4, 7, 6));
    return least[0];
}

/// Packs the comparisons of two steps, and brings them into the entries' order.
RV_INLINE Chars packInOrder(Shorts first, Shorts second) noexcept
{
    const Chars packed = RV_X86(packsswb)(first, second);
#if RV_VECTOR_BYTES == 32
    const auto fours = reinterpret_cast<Ints>(packed);
    return reinterpret_cast<Chars>(__builtin_shufflevector(fours, fours, 0, 4, 1, 5, 2, 6, 3, 7));
#else
    return packed;
#endif
}

/// A bit for each of 64 distances: whether it is the one wanted.
RV_INLINE uint64_t markEqual(const int16_t* distances, Shorts wanted) noexcept
{
    const auto* bytes = reinterpret_cast<const uint8_t*>(distances);
    uint64_t marks = 0;
    for (size_t i = 0; i < 64; i += sizeof(Shorts)) {
        const auto first = reinterpret_cast<Shorts>(load<Shorts>(bytes + 2 * i) == wanted);
        const auto second = reinterpret_cast<Shorts>(load<Shorts>(bytes + 2 * i + sizeof(Shorts)) == wanted);
        marks |= uint64_t{static_cast<uint32_t>(RV_X86(pmovmskb)(packInOrder(first, second)))} << i;
    }
    return marks;
}

uint32_t nearestEntries(const uint8_t* entries, size_t count, const uint8_t* colour, uint64_t* marks) noexcept
{
    if (count < kStep) return nearestOneByOne(entries, count, colour, marks);
    const size_t rest = count % kStep;
    const size_t whole = count - rest;

    int16_t distances[64 * kNearestMarks];
    Shorts least = Shorts{} + kFar;
    const size_t lastMarks = (count - 1) / 64 * 64; // marks are made 64 at a time; nobody is behind the last entry
    for (size_t i = lastMarks; i < lastMarks + 64; i += kStep) memcpy(distances + i, &least, sizeof least);

    const SpreadColour spread(colour);
    const auto takeStep = [&](size_t place, size_t entry) noexcept {
        const Shorts found = squaredDistances(entries + entry * kEntryBytes, spread);
        memcpy(distances + place, &found, sizeof found);
        least = lesser(least, found);
    };
    size_t taken = 0;
    for (; taken + 2 * kStep <= whole; taken += 2 * kStep) {
        takeStep(taken, taken);
        takeStep(taken + kStep, taken + kStep);
    }
    if (taken < whole) takeStep(taken, taken);
    if (rest != 0) takeStep(whole, count - kStep); // ends with the last entry, and begins with some that are known

    const int16_t nearest = leastOf(least);
    if (nearest == kFar) return nearestOneByOne(entries, count, colour, marks);
    for (size_t i = 0; i < kNearestMarks; ++i)
        marks[i] = i * 64 <= lastMarks ? markEqual(distances + i * 64, Shorts{} + nearest) : 0;
    if (rest != 0) { // that step's marks move down to their entries' places
        uint64_t& last = marks[whole / 64];
        const uint64_t ofStep = last >> whole % 64;
        last ^= (ofStep ^ ofStep >> (kStep - rest)) << whole % 64;
    }
    return static_cast<uint32_t>(nearest);
}
#else
constexpr auto nearestEntries = nearestOneByOne;
#endif

// --- In lists by cells of colours. A key is a distance with an item's top byte below it

constexpr uint32_t kNoKey = 0x7FFFFFFF;

#if RV_VECTOR_BYTES >= 16
typedef int32_t Keys __attribute__((vector_size(RV_VECTOR_BYTES)));
constexpr size_t kKeys = sizeof(Keys) / sizeof(int32_t);

/// Of those items of a block that are among the next `count`.
RV_INLINE Keys keysOf(const uint32_t* items, int32_t count, Ints colour) noexcept
{
    const auto block = load<Ints>(reinterpret_cast<const uint8_t*>(items));
    const auto outer = reinterpret_cast<Shorts>(block & 0x00FF00FFu) - reinterpret_cast<Shorts>(colour & 0x00FF00FFu);
    const auto middle = reinterpret_cast<Shorts>(block >> 8 & 0xFFu) - reinterpret_cast<Shorts>(colour >> 8 & 0xFFu);
    const auto distance = reinterpret_cast<Ints>(RV_X86(pmaddwd)(outer, outer) + RV_X86(pmaddwd)(middle, middle));
#if RV_VECTOR_BYTES == 32
    const Keys lane = {0, 1, 2, 3, 4, 5, 6, 7};
#else
    const Keys lane = {0, 1, 2, 3};
#endif
    const auto none = reinterpret_cast<Ints>(lane >= count) & kNoKey;
    return reinterpret_cast<Keys>((distance << 8 | block >> 24) | none);
}

RV_INLINE int32_t leastKey(Keys keys) noexcept
{
    typedef int32_t Keys4 __attribute__((vector_size(16)));
#if RV_VECTOR_BYTES == 32
    Keys4 least =
        lesser(__builtin_shufflevector(keys, keys, 0, 1, 2, 3), __builtin_shufflevector(keys, keys, 4, 5, 6, 7));
#else
    Keys4 least = keys;
#endif
    least = lesser(least, __builtin_shufflevector(least, least, 2, 3, 0, 1));
    least = lesser(least, __builtin_shufflevector(least, least, 1, 0, 3, 2));
    return least[0];
}

/// The nearest item's key; kNoKey where there may be another at its distance.
RV_INLINE uint32_t nearestInList(const uint32_t* items, uint32_t count, uint32_t rgb) noexcept
{
    const Ints colour = Ints{} + rgb;
    const auto left = static_cast<int32_t>(count);
    Keys least = keysOf(items, left, colour), twice = {};
    for (auto i = static_cast<int32_t>(kKeys); i < left; i += static_cast<int32_t>(kKeys)) {
        const Keys next = keysOf(items + i, left - i, colour);
        twice |= next >> 8 == least >> 8;
        least = lesser(least, next);
    }
    const int32_t key = leastKey(least);
    const auto same = reinterpret_cast<Chars>(least >> 8 == Keys{} + (key >> 8));
    const auto marks = static_cast<uint32_t>(RV_X86(pmovmskb)(same)); // four for each key
    const bool alone =
        (marks & ~((marks & (~marks + 1)) * 15)) == 0 && RV_X86(pmovmskb)(reinterpret_cast<Chars>(twice)) == 0;
    return alone ? static_cast<uint32_t>(key) : kNoKey;
}
#undef RV_X86
#else
RV_INLINE uint32_t nearestInList(const uint32_t* items, uint32_t count, uint32_t rgb) noexcept
{
    uint32_t least = kNoKey;
    bool twice = false;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t distance =
            squaredDistance(reinterpret_cast<const uint8_t*>(items + i), reinterpret_cast<const uint8_t*>(&rgb));
        if (distance > least >> 8) continue;
        twice = distance == least >> 8;
        least = distance << 8 | items[i] >> 24;
    }
    return twice ? kNoKey : least;
}
#endif

size_t nearestInLists(uint8_t* indices, const uint8_t* colours, size_t width, const uint32_t* cells,
                      const uint32_t* items) noexcept
{
    for (size_t i = 0; i < width; ++i) {
        const auto rgb = load<uint32_t>(colours + 4 * i);
        const uint32_t list = cells[(rgb >> 9 & 0x7C00) | (rgb >> 6 & 0x3E0) | (rgb >> 3 & 0x1F)];
        if ((list & 63) - 1 >= kLongestList) return i;
        const uint32_t key = nearestInList(items + (list >> 6), list & 63, rgb);
        if (key == kNoKey) return i;
        indices[i] = static_cast<uint8_t>(key);
    }
    return width;
}

} // namespace
} // namespace rv::simd::RV_SIMD
