#include "Kernel/Geometry/ResampleTaps.h"

#include "Kernel/Pixels/Simd/Select.h"

#include <algorithm>

namespace rv {

namespace {

constexpr float kUnseen = 1.0f / 256; ///< alpha of what has none, in its smallest steps

float* floatsOf(const RowBuffer& buffer) noexcept { return reinterpret_cast<float*>(buffer.data()); }
RowBuffer floats(size_t count) noexcept { return RowBuffer(sizeof(float) * R_UINT64{count + kFloatSlack}); }

} // namespace

Between centreOf(R_INT i, R_INT oldLength, R_INT newLength) noexcept
{
    // Halves are counted, so that everything is whole; the product of two lengths and 2 fits.
    const R_INT64 whole = 2 * R_INT64{newLength};
    const R_INT64 at = (2 * R_INT64{i} + 1) * oldLength - newLength;
    if (at <= 0) return {0, 0, whole};
    if (at / whole >= oldLength - 1) return {oldLength - 1, 0, whole};
    return {static_cast<R_INT>(at / whole), at % whole, whole};
}

TapRule::TapRule(R_INT oldLength, R_INT newLength, bool area) noexcept
    : old_(oldLength), new_(newLength), covers_(area && newLength < oldLength),
      middle_(static_cast<float>(static_cast<double>(newLength) / oldLength))
{
}

Taps TapRule::at(R_INT i) const noexcept
{
    if (!covers_) {
        const Between between = centreOf(i, static_cast<R_INT>(old_), static_cast<R_INT>(new_));
        const double tail = between.fraction();
        return {between.first, between.part != 0 ? 2 : 1, static_cast<float>(1 - tail), static_cast<float>(tail)};
    }
    // A new pixel is old_ units long, an old one new_.
    const R_INT64 begin = i * old_, end = begin + old_;
    const R_INT64 first = begin / new_, last = (end - 1) / new_;
    const auto share = [this](R_INT64 units) noexcept {
        return static_cast<float>(static_cast<double>(units) / static_cast<double>(old_));
    };
    return {static_cast<int32_t>(first), static_cast<int32_t>(last - first + 1), share((first + 1) * new_ - begin),
            share(end - last * new_)};
}

void weighByAlpha(float* pixels, size_t count) noexcept
{
    for (size_t i = 0; i < count; ++i, pixels += 4) {
        pixels[3] += kUnseen;
        for (size_t c = 0; c < 3; ++c) pixels[c] *= pixels[3];
    }
}

void undoAlpha(float* pixels, size_t count) noexcept
{
    for (size_t i = 0; i < count; ++i, pixels += 4) {
        const float alpha = std::max(pixels[3], kUnseen / 2); // splines can swing below
        for (size_t c = 0; c < 3; ++c) pixels[c] /= alpha;
        pixels[3] -= kUnseen;
    }
}

Status TapResampler::prepare(const ResampleSource& source, bool area) noexcept
{
    rows_ = TapRule(source.height(), source.newHeight(), area);
    columns_ = TapRule(source.width(), source.newWidth(), area);
    samples_ = source.samples();
    const bool manyRows = source.height() / source.newHeight() >= static_cast<R_INT>(kAddends) - 1;
    sums_ = floats((samples_ + kFloatSlack) * (manyRows ? 2 : 1));
    made_ = floats(source.newSamples());
    taps_ = RowBuffer(sizeof(Taps) * static_cast<R_UINT64>(source.newWidth()));
    if (!sums_ || !made_ || !taps_) return ERROR_FAILURE;
    if (source.byAlpha()) {
        weighed_ = floats(samples_);
        if (!weighed_) return ERROR_FAILURE;
    }
    auto* const taps = reinterpret_cast<Taps*>(taps_.data());
    for (R_INT x = 0; x < source.newWidth(); ++x) taps[x] = columns_.at(x);
    return SUCCESS;
}

Status TapResampler::addRow(ResampleSource& source, R_INT row, float weight, float* sums, bool begins) noexcept
{
    const simd::RowKernels& kernels = rowKernels();
    const uint8_t* samples;
    R_TRY(source.read(row, &samples));
    const auto add = source.wide() ? kernels.addWords : kernels.addBytes;
    if (!source.byAlpha()) {
        add(sums, samples, samples_, weight, begins);
        return SUCCESS;
    }
    float* const weighed = floatsOf(weighed_);
    add(weighed, samples, samples_, 1, true);
    weighByAlpha(weighed, samples_ / 4);
    kernels.addFloats(sums, weighed, samples_, weight, begins);
    return SUCCESS;
}

Status TapResampler::addRows(ResampleSource& source, const Taps& taps) noexcept
{
    float* const sums = floatsOf(sums_);
    float* const piece = sums + samples_ + kFloatSlack; // of the sums that have begun anew
    for (R_INT i = 0; i < taps.count; ++i) {
        const float weight = i == 0 ? taps.head : i == taps.count - 1 ? taps.tail : rows_.middle();
        const auto nth = static_cast<size_t>(i) % kAddends;
        R_TRY(addRow(source, taps.first + i, weight, static_cast<size_t>(i) < kAddends ? sums : piece, nth == 0));
        const bool ends = nth == kAddends - 1 || i == taps.count - 1;
        if (ends && static_cast<size_t>(i) >= kAddends) rowKernels().addFloats(sums, piece, samples_, 1, false);
    }
    return SUCCESS;
}

Status TapResampler::row(ResampleSource& source, R_INT row, uint8_t* target) noexcept
{
    R_TRY(addRows(source, rows_.at(row)));
    const simd::RowKernels& kernels = rowKernels();
    const auto* const taps = reinterpret_cast<const Taps*>(taps_.data());
    float* const made = floatsOf(made_);
    const auto width = static_cast<size_t>(source.newWidth());
    const auto sum = source.channels() == 1 ? kernels.sum1 : source.channels() == 3 ? kernels.sum3 : kernels.sum4;
    sum(made, floatsOf(sums_), taps, width, columns_.middle());
    if (source.byAlpha()) undoAlpha(made, width);
    (source.wide() ? kernels.roundToWords : kernels.roundToBytes)(source.place(target), made, source.newSamples(),
                                                                  source.top());
    source.put(target);
    return SUCCESS;
}

} // namespace rv
