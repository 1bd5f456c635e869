#include "Kernel/Pixels/PickPixels.h"

#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/PixelTraits.h"
#include "Kernel/Pixels/Simd/Select.h"

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

/// In the lower bits.
template <int Bits, class Walk> unsigned pixelHere(const uint8_t* source, ptrdiff_t pitch, const Walk& walk) noexcept
{
    const auto bit = static_cast<unsigned>(walk.x() >> kFraction) * Bits;
    const uint8_t* const bytes = source + (walk.y() >> kFraction) * pitch + bit / 8;
    return (unsigned{bytes[0]} << 8 | bytes[1]) >> (16 - Bits - bit % 8);
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

template <int Bits>
void pickPacked(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, const PixelPositions& at,
                size_t count) noexcept
{
    if (at.xs != nullptr)
        pickStream<Bits>(target, source, pitch, Listed(at), count);
    else
        pickStream<Bits>(target, source, pitch, Steps(at), count);
}

// --- Pixels that stand side by side in both pictures

/// Steps that leave a row, or the next pixel of it, so seldom that whole pieces of rows are copied.
bool movesInPieces(const PixelPositions& at) noexcept
{
    constexpr R_INT64 one = kOne, seldom = one / 12;
    return at.xs == nullptr && std::abs(R_INT64{at.stepY}) < seldom && std::abs(at.stepX - one) < seldom;
}

/// How many positions from `at` on, `step` apart, lie in the same unit, this one among them. In 32 bits, which are
/// divided fastest.
uint32_t sameUnit(R_INT64 at, int32_t step) noexcept
{
    const uint32_t within = static_cast<uint32_t>(at) % kOne;
    if (step > 0) return (kOne - within + static_cast<uint32_t>(step) - 1) / static_cast<uint32_t>(step);
    return step < 0 ? within / static_cast<uint32_t>(-step) + 1 : UINT32_MAX;
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
    constexpr uint32_t most = 56;
    const int32_t drift = at.stepX - static_cast<int32_t>(kOne);
    BitWriter writer(target);
    R_INT64 x = at.x, y = at.y;
    uint32_t beside = 0; // positions that are each on the next pixel of the row
    for (auto left = static_cast<uint32_t>(count); left > 0;) {
        if (beside == 0) beside = sameUnit(x, drift);
        const uint32_t pixels = std::min({left, most, beside, sameUnit(y, at.stepY)});
        const uint8_t* const row = source + (y >> kFraction) * pitch;
        writer.put(bitsFrom(row, static_cast<size_t>(x >> kFraction)), pixels);
        left -= pixels;
        beside -= pixels;
        x += R_INT64{pixels} * at.stepX;
        y += R_INT64{pixels} * at.stepY;
    }
    writer.finish();
}

void pickBits(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, const PixelPositions& at, size_t count) noexcept
{
    (movesInPieces(at) ? pickBitPieces : rowKernels().pick1)(target, source, pitch, at, count);
}

// --- The four pixels around a position, weighed: words, by 65536ths of a pixel

constexpr int32_t kHalf = 1 << (kFraction - 1);
constexpr R_UINT64 kWhole = R_UINT64{kOne} * kOne;

unsigned sampleAt(const uint8_t* bytes) noexcept
{
    uint16_t sample;
    std::memcpy(&sample, bytes, sizeof sample);
    return sample;
}

void putSample(uint8_t* bytes, R_UINT64 value) noexcept
{
    const auto sample = static_cast<uint16_t>(value);
    std::memcpy(bytes, &sample, sizeof sample);
}

/// Four pixels' shares; their samples' words lie at these addresses.
struct Corners {
    const uint8_t* pixel[4];
    R_UINT64 share[4];

    template <class Walk>
    Corners(const uint8_t* source, ptrdiff_t pitch, ptrdiff_t pixelBytes, const Walk& walk) noexcept
    {
        const int32_t x = walk.x() - kHalf, y = walk.y() - kHalf;
        const R_UINT64 right = static_cast<unsigned>(x) % kOne, below = static_cast<unsigned>(y) % kOne;
        pixel[0] = source + (y >> kFraction) * pitch + (x >> kFraction) * pixelBytes;
        pixel[1] = pixel[0] + pixelBytes;
        pixel[2] = pixel[0] + pitch;
        pixel[3] = pixel[2] + pixelBytes;
        share[0] = (kOne - right) * (kOne - below);
        share[1] = right * (kOne - below);
        share[2] = (kOne - right) * below;
        share[3] = right * below;
    }
    R_UINT64 sum(size_t sample, const R_UINT64 (&shares)[4]) const noexcept
    {
        R_UINT64 sum = 0;
        for (size_t k = 0; k < 4; ++k) sum += shares[k] * sampleAt(pixel[k] + sample * sizeof(uint16_t));
        return sum;
    }
};

/// Colours weighed by their alpha, which is the last sample. The sums just fit.
void weighByAlpha(uint8_t* target, const Corners& corners) noexcept
{
    R_UINT64 seen[4], alpha = 0;
    for (size_t k = 0; k < 4; ++k)
        alpha += seen[k] = corners.share[k] * sampleAt(corners.pixel[k] + 3 * sizeof(uint16_t));
    for (size_t s = 0; s < 3; ++s)
        putSample(target + s * sizeof(uint16_t), alpha != 0 ? (corners.sum(s, seen) + alpha / 2) / alpha
                                                            : (corners.sum(s, corners.share) + kWhole / 2) / kWhole);
    putSample(target + 3 * sizeof(uint16_t), (alpha + kWhole / 2) / kWhole);
}

template <size_t Samples, bool ByAlpha, class Walk>
void weighAlong(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, Walk walk, size_t count) noexcept
{
    constexpr size_t pixelBytes = Samples * sizeof(uint16_t);
    for (size_t i = 0; i < count; ++i, target += pixelBytes, walk.next()) {
        const Corners corners(source, pitch, pixelBytes, walk);
        if constexpr (ByAlpha)
            weighByAlpha(target, corners);
        else
            for (size_t s = 0; s < Samples; ++s)
                putSample(target + s * sizeof(uint16_t), (corners.sum(s, corners.share) + kWhole / 2) / kWhole);
    }
}

template <size_t Samples, bool ByAlpha>
void weighWords(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, const PixelPositions& at,
                size_t count) noexcept
{
    if (at.xs != nullptr)
        weighAlong<Samples, ByAlpha>(target, source, pitch, Listed(at), count);
    else
        weighAlong<Samples, ByAlpha>(target, source, pitch, Steps(at), count);
}

} // namespace

simd::PickPixels pickPixelsFor(R_INT bits) noexcept
{
    const simd::RowKernels& kernels = rowKernels();
    switch (bits) {
    case 1: return pickBits;
    case 2: return pickPacked<2>;
    case 3: return pickPacked<3>;
    case 4: return pickPacked<4>;
    case 5: return pickPacked<5>;
    case 6: return pickPacked<6>;
    case 7: return pickPacked<7>;
    case 8: return kernels.pick8;
    case 12: return pickPacked<12>;
    case 16: return kernels.pick16;
    case 24: return kernels.pick24;
    case 32: return kernels.pick32;
    case 48: return kernels.pick48;
    case 64: return kernels.pick64;
    default: return nullptr;
    }
}

simd::PickPixels weighPixelsFor(size_t samples, size_t sampleBytes, bool byAlpha) noexcept
{
    const simd::RowKernels& kernels = rowKernels();
    const bool words = sampleBytes == 2;
    switch (samples) {
    case 1: return words ? weighWords<1, false> : kernels.weigh8;
    case 3: return words ? weighWords<3, false> : kernels.weigh24;
    default: break;
    }
    if (words) return byAlpha ? weighWords<4, true> : weighWords<4, false>;
    return byAlpha ? kernels.weighByAlpha32 : kernels.weigh32;
}

} // namespace rv
