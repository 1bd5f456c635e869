#include "Kernel/Pixels/PickPixels.h"

#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/PixelTraits.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

constexpr int kFraction = 16;
constexpr unsigned kOne = 1u << kFraction;

// --- Positions, one after the other

/// In equal steps. What comes behind the last one may not fit, and wraps.
class Steps {
public:
    explicit Steps(const PixelPositions& at) noexcept
        : x_(static_cast<uint32_t>(at.x)), y_(static_cast<uint32_t>(at.y)), stepX_(static_cast<uint32_t>(at.stepX)),
          stepY_(static_cast<uint32_t>(at.stepY))
    {
    }
    int32_t x() const noexcept { return static_cast<int32_t>(x_); }
    int32_t y() const noexcept { return static_cast<int32_t>(y_); }
    void next() noexcept
    {
        x_ += stepX_;
        y_ += stepY_;
    }

private:
    uint32_t x_, y_, stepX_, stepY_;
};

class Listed {
public:
    explicit Listed(const PixelPositions& at) noexcept : xs_(at.xs), ys_(at.ys) {}
    int32_t x() const noexcept { return *xs_; }
    int32_t y() const noexcept { return *ys_; }
    void next() noexcept
    {
        ++xs_;
        ++ys_;
    }

private:
    const int32_t* xs_;
    const int32_t* ys_;
};

// --- The pixel that holds a position

template <int Bits, class Walk> R_UINT64 pixelHere(const uint8_t* source, ptrdiff_t pitch, const Walk& walk) noexcept
{
    const uint8_t* const row = source + (walk.y() >> kFraction) * pitch;
    const auto column = static_cast<unsigned>(walk.x() >> kFraction);
    if constexpr (Bits <= 8 && 8 % Bits == 0) return row[column * Bits / 8] >> (8 - Bits - column * Bits % 8);
    const uint8_t* const bytes = row + column * Bits / 8;
    return (unsigned{bytes[0]} << 8 | bytes[1]) >> (16 - Bits - column * Bits % 8);
}

/// Eight pixels of a stream of bits at a time; they are whole bytes.
template <int Bits, class Walk>
void pickStream(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, Walk walk, size_t count) noexcept
{
    constexpr R_UINT64 mask = PixelTraits<Bits>::mask;
    constexpr size_t group = Bits == 12 ? 2 : 8, groupBytes = group * Bits / 8;
    for (size_t done = 0; done < count; done += group, target += groupBytes) {
        const size_t pixels = std::min(group, count - done);
        R_UINT64 packed = 0;
        for (size_t i = 0; i < pixels; ++i, walk.next())
            packed = packed << Bits | (pixelHere<Bits>(source, pitch, walk) & mask);
        packed <<= (group - pixels) * Bits;
        for (size_t byte = 0; byte < (pixels * Bits + 7) / 8; ++byte)
            target[byte] = static_cast<uint8_t>(packed >> 8 * (groupBytes - 1 - byte));
    }
}

template <size_t Bytes, class Walk>
void pickBytes(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, Walk walk, size_t count) noexcept
{
    for (size_t i = 0; i < count; ++i, target += Bytes, walk.next())
        std::memcpy(target,
                    source + (walk.y() >> kFraction) * pitch + static_cast<ptrdiff_t>(Bytes) * (walk.x() >> kFraction),
                    Bytes);
}

template <int Bits, class Walk>
void pickAlong(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, Walk walk, size_t count) noexcept
{
    if constexpr (PixelTraits<Bits>::packed)
        pickStream<Bits>(target, source, pitch, walk, count);
    else
        pickBytes<PixelTraits<Bits>::bytes>(target, source, pitch, walk, count);
}

// --- Pixels that stand side by side in both pictures

/// Steps that leave a row, or the next pixel of it, so seldom that whole pieces of rows are copied.
bool movesInPieces(const PixelPositions& at) noexcept
{
    constexpr R_INT64 one = kOne, seldom = one / 12;
    return at.xs == nullptr && std::abs(R_INT64{at.stepY}) < seldom && std::abs(at.stepX - one) < seldom;
}

/// How many positions from `at` on, `step` apart, lie in the same unit, this one among them.
R_INT64 sameUnit(R_INT64 at, R_INT64 step) noexcept
{
    constexpr R_INT64 one = kOne;
    const R_INT64 within = at & (one - 1);
    if (step > 0) return (one - within + step - 1) / step;
    return step < 0 ? within / -step + 1 : INT32_MAX;
}

/// At most 56 bits from a bit on, at the top of a word.
R_UINT64 bitsFrom(const uint8_t* row, size_t bit) noexcept { return bits::loadBigEndian(row + bit / 8) << bit % 8; }

class BitWriter {
public:
    explicit BitWriter(uint8_t* target) noexcept : target_(target) {}
    /// `top`: the bits at the top of a word, at most 56; what is below them is left aside.
    void put(R_UINT64 top, unsigned count) noexcept
    {
        top &= ~R_UINT64{0} << (64 - count);
        word_ |= top >> held_;
        held_ += count;
        if (held_ < 64) return;
        bits::storeBigEndian(target_, word_);
        target_ += 8;
        held_ -= 64;
        word_ = held_ == 0 ? 0 : top << (count - held_);
    }
    void finish() noexcept
    {
        for (; held_ > 0; held_ -= std::min(held_, 8u), word_ <<= 8) *target_++ = static_cast<uint8_t>(word_ >> 56);
    }

private:
    uint8_t* target_;
    R_UINT64 word_ = 0;
    unsigned held_ = 0;
};

void pickBitPieces(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, const PixelPositions& at,
                   size_t count) noexcept
{
    constexpr R_INT64 most = 56;
    BitWriter writer(target);
    R_INT64 x = at.x, y = at.y;
    for (R_INT64 left = static_cast<R_INT64>(count); left > 0;) {
        const R_INT64 beside = sameUnit(x, R_INT64{at.stepX} - kOne); // as long as each is the next pixel of the row
        const R_INT64 pixels = std::min({left, most, beside, sameUnit(y, at.stepY)});
        const uint8_t* const row = source + (y >> kFraction) * pitch;
        writer.put(bitsFrom(row, static_cast<size_t>(x >> kFraction)), static_cast<unsigned>(pixels));
        left -= pixels;
        x += pixels * at.stepX;
        y += pixels * at.stepY;
    }
    writer.finish();
}

template <int Bits>
void pickPixels(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, const PixelPositions& at,
                size_t count) noexcept
{
    if constexpr (Bits == 1)
        if (movesInPieces(at)) return pickBitPieces(target, source, pitch, at, count);
    if (at.xs != nullptr)
        pickAlong<Bits>(target, source, pitch, Listed(at), count);
    else
        pickAlong<Bits>(target, source, pitch, Steps(at), count);
}

// --- The four pixels around a position, weighed

constexpr int32_t kHalf = 1 << (kFraction - 1);

/// A position's first pixel of the four, and how far it lies from there: in Scale parts of a pixel, all of them where
/// it is as good as on the next one.
template <unsigned Scale> struct Corner {
    template <class Walk>
    Corner(const uint8_t* source, ptrdiff_t pitch, ptrdiff_t pixelBytes, const Walk& walk) noexcept
        : right(parts(walk.x() - kHalf)), below(parts(walk.y() - kHalf)),
          first(source + ((walk.y() - kHalf) >> kFraction) * pitch + ((walk.x() - kHalf) >> kFraction) * pixelBytes)
    {
    }
    static R_UINT64 parts(int32_t position) noexcept
    {
        constexpr unsigned part = kOne / Scale;
        return (static_cast<unsigned>(position) % kOne + part / 2) / part;
    }
    R_UINT64 right;
    R_UINT64 below;
    const uint8_t* first;
};

template <class Sample> unsigned sampleAt(const uint8_t* bytes) noexcept
{
    Sample sample;
    std::memcpy(&sample, bytes, sizeof sample);
    return sample;
}

template <class Sample> void putSample(uint8_t* bytes, R_UINT64 value) noexcept
{
    const auto sample = static_cast<Sample>(value);
    std::memcpy(bytes, &sample, sizeof sample);
}

/// What a sample's weighing needs to know of its size: bytes are weighed by 256ths, words by 65536ths.
template <class Sample> struct Weighed {
    static constexpr unsigned scale = 1u << 8 * sizeof(Sample);
    static constexpr R_UINT64 whole = R_UINT64{scale} * scale;
    using Sum = std::conditional_t<sizeof(Sample) == 1, uint32_t, R_UINT64>;
};

template <class Sample, size_t Samples, class Walk>
void weighAlong(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, Walk walk, size_t count) noexcept
{
    using Sum = typename Weighed<Sample>::Sum;
    constexpr unsigned scale = Weighed<Sample>::scale;
    constexpr size_t pixel = Samples * sizeof(Sample);
    for (size_t i = 0; i < count; ++i, walk.next()) {
        const Corner<scale> corner(source, pitch, pixel, walk);
        const Sum right = static_cast<Sum>(corner.right), below = static_cast<Sum>(corner.below);
        for (size_t s = 0; s < Samples; ++s, target += sizeof(Sample)) {
            const uint8_t* const upper = corner.first + s * sizeof(Sample);
            const uint8_t* const lower = upper + pitch;
            const Sum here = sampleAt<Sample>(upper) * (scale - below) + sampleAt<Sample>(lower) * below;
            const Sum beside =
                sampleAt<Sample>(upper + pixel) * (scale - below) + sampleAt<Sample>(lower + pixel) * below;
            const Sum half = static_cast<Sum>(Weighed<Sample>::whole / 2);
            putSample<Sample>(target, (here * (scale - right) + beside * right + half) / Weighed<Sample>::whole);
        }
    }
}

/// One pixel whose colours are weighed by their alpha, which is the last sample. The sums just fit.
template <class Sample>
void weighByAlpha(uint8_t* target, const uint8_t* const (&four)[4], const R_UINT64 (&weights)[4]) noexcept
{
    constexpr R_UINT64 whole = Weighed<Sample>::whole;
    R_UINT64 alpha = 0, byAlpha[4];
    for (size_t k = 0; k < 4; ++k) alpha += byAlpha[k] = weights[k] * sampleAt<Sample>(four[k] + 3 * sizeof(Sample));
    const R_UINT64(&counts)[4] = alpha != 0 ? byAlpha : weights;
    const R_UINT64 all = alpha != 0 ? alpha : whole;
    for (size_t s = 0; s < 3; ++s) {
        R_UINT64 sum = 0;
        for (size_t k = 0; k < 4; ++k) sum += counts[k] * sampleAt<Sample>(four[k] + s * sizeof(Sample));
        putSample<Sample>(target + s * sizeof(Sample), (sum + all / 2) / all);
    }
    putSample<Sample>(target + 3 * sizeof(Sample), (alpha + whole / 2) / whole);
}

template <class Sample, class Walk>
void weighAlphaAlong(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, Walk walk, size_t count) noexcept
{
    constexpr unsigned scale = Weighed<Sample>::scale;
    constexpr size_t pixel = 4 * sizeof(Sample);
    for (size_t i = 0; i < count; ++i, target += pixel, walk.next()) {
        const Corner<scale> at(source, pitch, pixel, walk);
        const uint8_t* const four[] = {at.first, at.first + pixel, at.first + pitch, at.first + pitch + pixel};
        const R_UINT64 left = scale - at.right, above = scale - at.below;
        weighByAlpha<Sample>(target, four, {left * above, at.right * above, left * at.below, at.right * at.below});
    }
}

template <class Sample, size_t Samples, bool ByAlpha>
void weighPixels(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, const PixelPositions& at,
                 size_t count) noexcept
{
    const auto along = [&](auto walk) noexcept {
        if constexpr (ByAlpha)
            weighAlphaAlong<Sample>(target, source, pitch, walk, count);
        else
            weighAlong<Sample, Samples>(target, source, pitch, walk, count);
    };
    if (at.xs != nullptr)
        along(Listed(at));
    else
        along(Steps(at));
}

template <class Sample> WeighPixels weighFor(size_t samples, bool byAlpha) noexcept
{
    switch (samples) {
    case 1: return weighPixels<Sample, 1, false>;
    case 3: return weighPixels<Sample, 3, false>;
    default: return byAlpha ? weighPixels<Sample, 4, true> : weighPixels<Sample, 4, false>;
    }
}

} // namespace

PickPixels pickPixelsFor(R_INT bits) noexcept
{
    return withDepth(bits, []<int Bits>(Depth<Bits>) -> PickPixels { return &pickPixels<Bits>; });
}

WeighPixels weighPixelsFor(size_t samples, size_t sampleBytes, bool byAlpha) noexcept
{
    return sampleBytes == 1 ? weighFor<uint8_t>(samples, byAlpha) : weighFor<uint16_t>(samples, byAlpha);
}

} // namespace rv
