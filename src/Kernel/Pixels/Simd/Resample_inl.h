// Weighed pixels. Part of the text of a variant: see RowKernels_inl.h, which includes it.
//
// Floats are added, multiplied and divided one by one as the text says, in vectors of any length: every variant rounds
// alike.

namespace rv::simd::RV_SIMD {
namespace {

typedef float Float4 __attribute__((vector_size(16)));
typedef int32_t Int4 __attribute__((vector_size(16)));

RV_INLINE Float4 loadFloats(const float* from) noexcept
{
    Float4 floats;
    memcpy(&floats, from, sizeof floats);
    return floats;
}
RV_INLINE void storeFloats(float* to, Float4 floats) noexcept { memcpy(to, &floats, sizeof floats); }

// --- Sums of rows

template <class Sample>
RV_INLINE void addSamples(float* __restrict sums, const Sample* __restrict samples, size_t count, float weight,
                          bool begins) noexcept
{
    if (begins)
        for (size_t i = 0; i < count; ++i) sums[i] = static_cast<float>(samples[i]) * weight;
    else
        for (size_t i = 0; i < count; ++i) sums[i] += static_cast<float>(samples[i]) * weight;
}

void addBytes(float* sums, const uint8_t* samples, size_t count, float weight, bool begins) noexcept
{
    addSamples(sums, samples, count, weight, begins);
}
void addWords(float* __restrict sums, const uint8_t* __restrict samples, size_t count, float weight,
              bool begins) noexcept
{
    typedef uint16_t AnyWord __attribute__((aligned(1), may_alias)); // which no template takes for what it is
    const auto* const words = reinterpret_cast<const AnyWord*>(samples);
    if (begins)
        for (size_t i = 0; i < count; ++i) sums[i] = static_cast<float>(words[i]) * weight;
    else
        for (size_t i = 0; i < count; ++i) sums[i] += static_cast<float>(words[i]) * weight;
}
void addFloats(float* sums, const float* samples, size_t count, float weight, bool begins) noexcept
{
    addSamples(sums, samples, count, weight, begins);
}

// --- Sums of columns

/// Four floats from a pixel on: of one channel only the first counts.
template <size_t Channels> RV_INLINE Float4 loadPixel(const float* from) noexcept
{
    if constexpr (Channels == 1)
        return Float4{*from};
    else
        return loadFloats(from);
}
template <size_t Channels> RV_INLINE void storePixel(float* to, Float4 pixel) noexcept
{
    if constexpr (Channels == 1)
        *to = pixel[0];
    else
        storeFloats(to, pixel);
}

/// The pixels between head and tail, unweighed.
template <size_t Channels> RV_INLINE Float4 addBetween(const float* pixel, size_t count) noexcept
{
    Float4 sum = {};
    while (count > 0) {
        const size_t some = count < kAddends ? count : kAddends;
        Float4 part = {};
        for (size_t i = 0; i < some; ++i, pixel += Channels) part += loadPixel<Channels>(pixel);
        sum += part;
        count -= some;
    }
    return sum;
}

template <size_t Channels>
void sumColumns(float* target, const float* sums, const Taps* taps, size_t width, float middle) noexcept
{
    for (size_t x = 0; x < width; ++x, target += Channels) {
        const Taps& of = taps[x];
        const float* const first = sums + static_cast<size_t>(of.first) * Channels;
        Float4 sum = loadPixel<Channels>(first) * of.head;
        if (of.count > 1) {
            const size_t between = static_cast<size_t>(of.count) - 2;
            if (between > 0) sum += addBetween<Channels>(first + Channels, between) * middle;
            sum += loadPixel<Channels>(first + (between + 1) * Channels) * of.tail;
        }
        storePixel<Channels>(target, sum);
    }
}

// --- Floats as samples

/// Cut to what a sample can be, and rounded.
RV_INLINE Int4 roundFour(const float* from, float top) noexcept
{
    Float4 value = loadFloats(from);
    value = value > 0.0f ? value : Float4{};
    value = value < top ? value : Float4{} + top;
    return __builtin_convertvector(value + 0.5f, Int4);
}

/// Four by four, and the last ones alone.
template <class Sample>
RV_INLINE void roundRest(uint8_t* target, const float* source, size_t done, size_t count, float top) noexcept
{
    typedef Sample Four __attribute__((vector_size(4 * sizeof(Sample))));
    for (; done < count; done += 4) {
        const Four some = __builtin_convertvector(roundFour(source + done, top), Four);
        const size_t samples = count - done < 4 ? count - done : 4;
        memcpy(target + done * sizeof(Sample), &some, samples * sizeof(Sample));
    }
}

void roundToWords(uint8_t* target, const float* source, size_t count, float top) noexcept
{
    roundRest<uint16_t>(target, source, 0, count, top);
}

void roundToBytes(uint8_t* target, const float* source, size_t count, float top) noexcept
{
    size_t done = 0;
#if RV_VECTOR_BYTES >= 16
    typedef short Packed __attribute__((vector_size(16)));
    const auto wholes = [=](size_t at) noexcept { // packing cuts at 0
        const Float4 value = loadFloats(source + at);
        return __builtin_convertvector((value < top ? value : Float4{} + top) + 0.5f, Int4);
    };
    for (; count - done >= 16; done += 16) {
        const Packed low = __builtin_ia32_packssdw128(wholes(done), wholes(done + 4));
        const Packed high = __builtin_ia32_packssdw128(wholes(done + 8), wholes(done + 12));
        store(target + done, __builtin_ia32_packuswb128(low, high));
    }
#endif
    roundRest<uint8_t>(target, source, done, count, top);
}

} // namespace
} // namespace rv::simd::RV_SIMD
