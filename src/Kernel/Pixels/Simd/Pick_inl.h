// Pixels at positions, as they are or weighed. Part of the text of a variant: see RowKernels_inl.h, which includes it.
//
// Where they lie is reckoned for a vector of them at once, if a row's bytes are few enough for one product of words.

namespace rv::simd::RV_SIMD {
namespace {

constexpr int kFraction = 16;
constexpr int32_t kHalfPixel = 1 << (kFraction - 1);

#if RV_VECTOR_BYTES >= 16
typedef int32_t Places __attribute__((vector_size(RV_VECTOR_BYTES)));
typedef uint32_t UnsignedPlaces __attribute__((vector_size(RV_VECTOR_BYTES)));
constexpr size_t kPlaces = sizeof(Places) / sizeof(int32_t);
constexpr ptrdiff_t kNearPitch = 1 << 15;
#endif

// --- Positions, one after the other

/// In equal steps. What comes behind the last one may not fit, and wraps.
class StepWalk {
public:
    RV_INLINE explicit StepWalk(const PixelPositions& at) noexcept
        : x_(static_cast<uint32_t>(at.x)), y_(static_cast<uint32_t>(at.y)), stepX_(static_cast<uint32_t>(at.stepX)),
          stepY_(static_cast<uint32_t>(at.stepY))
    {
#if RV_VECTOR_BYTES >= 16
        for (uint32_t i = 0; i < kPlaces; ++i) {
            placesX_[i] = i * stepX_;
            placesY_[i] = i * stepY_;
        }
#endif
    }
    RV_INLINE int32_t x() const noexcept { return static_cast<int32_t>(x_); }
    RV_INLINE int32_t y() const noexcept { return static_cast<int32_t>(y_); }
    RV_INLINE void next(uint32_t count) noexcept
    {
        x_ += stepX_ * count;
        y_ += stepY_ * count;
    }
#if RV_VECTOR_BYTES >= 16
    RV_INLINE Places xs() const noexcept { return reinterpret_cast<Places>(placesX_ + x_); }
    RV_INLINE Places ys() const noexcept { return reinterpret_cast<Places>(placesY_ + y_); }
#endif

private:
    uint32_t x_, y_, stepX_, stepY_;
#if RV_VECTOR_BYTES >= 16
    UnsignedPlaces placesX_ = {}, placesY_ = {};
#endif
};

class ListWalk {
public:
    RV_INLINE explicit ListWalk(const PixelPositions& at) noexcept : xs_(at.xs), ys_(at.ys) {}
    RV_INLINE int32_t x() const noexcept { return *xs_; }
    RV_INLINE int32_t y() const noexcept { return *ys_; }
    RV_INLINE void next(uint32_t count) noexcept
    {
        xs_ += count;
        ys_ += count;
    }
#if RV_VECTOR_BYTES >= 16
    RV_INLINE Places xs() const noexcept { return load<Places>(reinterpret_cast<const uint8_t*>(xs_)); }
    RV_INLINE Places ys() const noexcept { return load<Places>(reinterpret_cast<const uint8_t*>(ys_)); }
#endif

private:
    const int32_t* xs_;
    const int32_t* ys_;
};

#if RV_VECTOR_BYTES >= 32
typedef short Shorts16 __attribute__((vector_size(32)));
RV_INLINE Places sumsOfPairs(Places pairs, Places weights) noexcept
{
    return reinterpret_cast<Places>(
        __builtin_ia32_pmaddwd256(reinterpret_cast<Shorts16>(pairs), reinterpret_cast<Shorts16>(weights)));
}
/// Four bytes from each of eight places.
RV_INLINE Places gather(const uint8_t* source, Places offsets) noexcept
{
    const auto* const from = reinterpret_cast<const int*>(source);
    const Places all = Places{} - 1;
#if defined(__clang__)
    return __builtin_ia32_gatherd_d256(Places{}, from, offsets, all, 1);
#else
    return __builtin_ia32_gathersiv8si(Places{}, from, offsets, all, 1);
#endif
}
#elif RV_VECTOR_BYTES >= 16
RV_INLINE Places sumsOfPairs(Places pairs, Places weights) noexcept
{
    return reinterpret_cast<Places>(
        __builtin_ia32_pmaddwd128(reinterpret_cast<Shorts8>(pairs), reinterpret_cast<Shorts8>(weights)));
}
#endif

#if RV_VECTOR_BYTES >= 16
RV_INLINE Places everyPlace(int32_t value) noexcept { return Places{} + value; }

/// Offsets of the pixels that hold positions: rows times the pitch and columns times a pixel's bytes, in one step.
RV_INLINE Places offsetsOf(Places xs, Places ys, ptrdiff_t pitch, int32_t pixelBytes) noexcept
{
    const Places columns = reinterpret_cast<Places>(reinterpret_cast<UnsignedPlaces>(xs) >> kFraction);
    const Places both = (ys & ~0xFFFF) | columns;
    return sumsOfPairs(both, everyPlace(static_cast<int32_t>(pitch) << 16 | pixelBytes));
}
#endif

RV_INLINE const uint8_t* pixelAt(const uint8_t* source, ptrdiff_t pitch, int32_t pixelBytes, int32_t x,
                                 int32_t y) noexcept
{
    return source + (y >> kFraction) * pitch + ptrdiff_t{x >> kFraction} * pixelBytes;
}

// --- Picked

template <size_t Bytes, class Walk>
RV_INLINE void pickAlong(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, Walk walk, size_t count) noexcept
{
    size_t done = 0;
#if RV_VECTOR_BYTES >= 16
    // Pixels of three or six bytes bring some more along, which the next ones take the place of.
    constexpr size_t moved = Bytes == 3 ? 4 : Bytes == 6 ? 8 : Bytes;
    for (; pitch < kNearPitch && count - done > kPlaces; done += kPlaces, walk.next(kPlaces)) {
        int32_t offset[kPlaces]; // from memory each is at hand at once
        const Places offsets = offsetsOf(walk.xs(), walk.ys(), pitch, Bytes);
        memcpy(offset, &offsets, sizeof offset);
        for (size_t i = 0; i < kPlaces; ++i) memcpy(target + (done + i) * Bytes, source + offset[i], moved);
    }
#endif
    for (; done < count; ++done, walk.next(1))
        memcpy(target + done * Bytes, pixelAt(source, pitch, Bytes, walk.x(), walk.y()), Bytes);
}

template <size_t Bytes>
void pickPixels(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, const PixelPositions& at,
                size_t count) noexcept
{
    if (at.xs != nullptr)
        pickAlong<Bytes>(target, source, pitch, ListWalk(at), count);
    else
        pickAlong<Bytes>(target, source, pitch, StepWalk(at), count);
}

template <class Walk>
RV_INLINE void pickBitsAlong(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, Walk walk, size_t count) noexcept
{
#if RV_VECTOR_BYTES >= 32
    for (; pitch < kNearPitch && count >= 8; count -= 8, walk.next(8)) {
        const Places columns = walk.xs() >> kFraction;
        const Places offsets = offsetsOf(walk.xs() & 0, walk.ys(), pitch, 0) + (columns >> 3);
        const Places top = gather(source, offsets) << (24 + (columns & 7)); // of each place, its bit
        const Places firstLast = __builtin_shufflevector(top, top, 7, 6, 5, 4, 3, 2, 1, 0);
        typedef float Signs __attribute__((vector_size(32)));
        *target++ = static_cast<uint8_t>(__builtin_ia32_movmskps256(reinterpret_cast<Signs>(firstLast)));
    }
#endif
    for (; count > 0; ++target) {
        const size_t bits = count < 8 ? count : 8;
        unsigned byte = 0;
        for (size_t i = 0; i < bits; ++i, walk.next(1)) {
            const auto column = static_cast<unsigned>(walk.x() >> kFraction);
            const unsigned eight = source[(walk.y() >> kFraction) * pitch + column / 8];
            byte = byte << 1 | (eight >> (7 - column % 8) & 1u);
        }
        *target = static_cast<uint8_t>(byte << (8 - bits));
        count -= bits;
    }
}

void pickBits(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, const PixelPositions& at, size_t count) noexcept
{
    if (at.xs != nullptr)
        pickBitsAlong(target, source, pitch, ListWalk(at), count);
    else
        pickBitsAlong(target, source, pitch, StepWalk(at), count);
}

// --- Weighed: bytes, by 256ths of a pixel

/// How far a position lies from the last pixel's centre: all of the way where it is as good as on the next one.
RV_INLINE unsigned partsOf(int32_t position) noexcept { return ((position & 0xFFFF) + 128u) >> 8; }

template <int32_t Samples>
RV_INLINE void weighOne(uint8_t* target, const uint8_t* first, ptrdiff_t pitch, unsigned right, unsigned below) noexcept
{
    for (int32_t s = 0; s < Samples; ++s) {
        const uint8_t* const upper = first + s;
        const uint8_t* const lower = upper + pitch;
        const unsigned here = upper[0] * (256 - below) + lower[0] * below;
        const unsigned beside = upper[Samples] * (256 - below) + lower[Samples] * below;
        target[s] = static_cast<uint8_t>((here * (256 - right) + beside * right + 32768) >> 16);
    }
}

/// One pixel whose colours are weighed by their alpha, which is the last sample. The sums just fit.
RV_INLINE void weighOneByAlpha(uint8_t* target, const uint8_t* first, ptrdiff_t pitch, unsigned right,
                               unsigned below) noexcept
{
    const uint8_t* const four[] = {first, first + 4, first + pitch, first + pitch + 4};
    const unsigned weights[] = {(256 - right) * (256 - below), right * (256 - below), (256 - right) * below,
                                right * below};
    unsigned byAlpha[4], alpha = 0;
    for (int k = 0; k < 4; ++k) alpha += byAlpha[k] = weights[k] * four[k][3];
    if (alpha == 0) { // colours that nothing is seen of count alike
        weighOne<4>(target, first, pitch, right, below);
        return;
    }
    for (int s = 0; s < 3; ++s) {
        unsigned sum = 0;
        for (int k = 0; k < 4; ++k) sum += byAlpha[k] * four[k][s];
        target[s] = static_cast<uint8_t>((sum + alpha / 2) / alpha);
    }
    target[3] = static_cast<uint8_t>((alpha + 32768) >> 16);
}

#if RV_VECTOR_BYTES >= 16
typedef uint16_t Shares8 __attribute__((vector_size(16)));
typedef int32_t Ints4 __attribute__((vector_size(16)));

/// Two pixels' samples as words, four for each.
template <size_t Samples> struct TwoPixels {
    static constexpr uint8_t at(size_t i) noexcept
    {
        const size_t sample = i / 2 % 4, pixel = i / 8;
        return static_cast<uint8_t>(i % 2 != 0 || sample >= Samples ? 128 : pixel * Samples + sample);
    }
};
/// The words of two pixels in turn, and the lowest byte of each of four sums.
struct InTurn {
    static constexpr uint8_t at(size_t i) noexcept { return static_cast<uint8_t>(i / 4 * 2 + i / 2 % 2 * 8 + i % 2); }
};
struct LowBytes {
    static constexpr uint8_t at(size_t i) noexcept { return static_cast<uint8_t>(i < 4 ? 4 * i : 128); }
};

/// Offsets of a vector of positions' first pixels, and the shares of what lies right of them and below: kept in memory,
/// from where each is spread over a register of its own.
struct Corners {
    int32_t offset[kPlaces];
    int32_t right[kPlaces];
    int32_t below[kPlaces];

    template <class Walk> RV_INLINE Corners(const Walk& walk, ptrdiff_t pitch, int32_t pixelBytes) noexcept
    {
        const Places xs = walk.xs() - kHalfPixel, ys = walk.ys() - kHalfPixel;
        const Places offsets = offsetsOf(xs, ys, pitch, pixelBytes);
        const Places rights = ((xs & 0xFFFF) + 128) >> 8, belows = ((ys & 0xFFFF) + 128) >> 8;
        memcpy(offset, &offsets, sizeof offset);
        memcpy(right, &rights, sizeof right);
        memcpy(below, &belows, sizeof below);
    }
};

/// The samples of one pixel.
template <size_t Samples>
RV_INLINE uint32_t weighFour(const uint8_t* upper, const uint8_t* lower, int32_t right, int32_t below) noexcept
{
    const auto two = [](const uint8_t* bytes) noexcept {
        return reinterpret_cast<Shares8>(pickPattern<TwoPixels<Samples>>(Words2{load<Word>(bytes), 0}));
    };
    const Shares8 lowers = Shares8{} + static_cast<uint16_t>(below), uppers = 256 - lowers;
    const Shares8 columns = two(upper) * uppers + two(lower) * lowers;
    // Words with a sign: what that takes away comes back with the half that rounds.
    const Words2 inTurn = pickPattern<InTurn>(reinterpret_cast<Words2>(columns ^ 0x8000));
    const Ints4 rights = Ints4{} + right, weights = (256 - rights) | rights << 16;
    const auto sums = reinterpret_cast<Ints4>(
        __builtin_ia32_pmaddwd128(reinterpret_cast<Shorts8>(inTurn), reinterpret_cast<Shorts8>(weights)));
    const Ints4 rounded = (sums + (32768 * 256 + 32768)) >> 16;
    return static_cast<uint32_t>(pickPattern<LowBytes>(reinterpret_cast<Words2>(rounded))[0]);
}
#endif

/// Whether four pixels have the same alpha: their colours count as they are then.
RV_INLINE bool sameAlpha(const uint8_t* upper, const uint8_t* lower) noexcept
{
    const unsigned alpha = upper[3];
    return upper[7] == alpha && lower[3] == alpha && lower[7] == alpha;
}

template <int32_t Samples, bool ByAlpha, class Walk>
RV_INLINE void weighAlong(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, Walk walk, size_t count) noexcept
{
    size_t done = 0;
#if RV_VECTOR_BYTES >= 16
    for (; pitch < kNearPitch && count - done > kPlaces; done += kPlaces, walk.next(kPlaces)) {
        const Corners corners(walk, pitch, Samples);
        for (size_t i = 0; i < kPlaces; ++i, target += Samples) {
            const uint8_t* const upper = source + corners.offset[i];
            if (ByAlpha && !sameAlpha(upper, upper + pitch)) {
                weighOneByAlpha(target, upper, pitch, static_cast<unsigned>(corners.right[i]),
                                static_cast<unsigned>(corners.below[i]));
                continue;
            }
            const uint32_t pixel = weighFour<Samples>(upper, upper + pitch, corners.right[i], corners.below[i]);
            memcpy(target, &pixel, sizeof pixel); // of three samples, the next ones take the fourth's place
        }
    }
#endif
    for (; done < count; ++done, target += Samples, walk.next(1)) {
        const int32_t x = walk.x() - kHalfPixel, y = walk.y() - kHalfPixel;
        const uint8_t* const first = pixelAt(source, pitch, Samples, x, y);
        if (ByAlpha && !sameAlpha(first, first + pitch))
            weighOneByAlpha(target, first, pitch, partsOf(x), partsOf(y));
        else
            weighOne<Samples>(target, first, pitch, partsOf(x), partsOf(y));
    }
}

template <class Walk>
RV_INLINE void weighGrayAlong(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, Walk walk, size_t count) noexcept
{
#if RV_VECTOR_BYTES >= 32
    for (; pitch < kNearPitch && count >= 8; count -= 8, target += 8, walk.next(8)) {
        const Places xs = walk.xs() - kHalfPixel, ys = walk.ys() - kHalfPixel;
        const Places offsets = offsetsOf(xs, ys, pitch, 1);
        const Places right = ((xs & 0xFFFF) + 128) >> 8, below = ((ys & 0xFFFF) + 128) >> 8;
        const Places upper = gather(source, offsets), lower = gather(source + pitch, offsets);
        const Places weights = (256 - below) | below << 16;
        const Places here = sumsOfPairs((upper & 0xFF) | (lower & 0xFF) << 16, weights);
        const Places beside = sumsOfPairs((upper >> 8 & 0xFF) | (lower & 0xFF00) << 8, weights);
        const Places rounded = (here * (256 - right) + beside * right + 32768) >> 16;
        typedef uint8_t Bytes8 __attribute__((vector_size(8)));
        store(target, __builtin_convertvector(rounded, Bytes8));
    }
#endif
    for (; count > 0; --count, ++target, walk.next(1)) {
        const int32_t x = walk.x() - kHalfPixel, y = walk.y() - kHalfPixel;
        weighOne<1>(target, pixelAt(source, pitch, 1, x, y), pitch, partsOf(x), partsOf(y));
    }
}

template <int32_t Samples, bool ByAlpha>
void weighPixels(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, const PixelPositions& at,
                 size_t count) noexcept
{
    if (at.xs != nullptr)
        weighAlong<Samples, ByAlpha>(target, source, pitch, ListWalk(at), count);
    else
        weighAlong<Samples, ByAlpha>(target, source, pitch, StepWalk(at), count);
}

void weighGray(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, const PixelPositions& at, size_t count) noexcept
{
    if (at.xs != nullptr)
        weighGrayAlong(target, source, pitch, ListWalk(at), count);
    else
        weighGrayAlong(target, source, pitch, StepWalk(at), count);
}

} // namespace
} // namespace rv::simd::RV_SIMD
