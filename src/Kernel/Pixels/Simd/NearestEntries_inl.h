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
#undef RV_X86
#else
constexpr auto nearestEntries = nearestOneByOne;
#endif

} // namespace
} // namespace rv::simd::RV_SIMD
