#include "Kernel/Geometry/ResampleBilinear.h"

#include "Kernel/Geometry/ResampleTaps.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

constexpr size_t kHalf = kMixBlock / 2;

/// part / whole in so many steps, ties to even.
int stepsOf(const Between& between, R_INT64 steps) noexcept
{
    const R_INT64 product = between.part * steps;
    R_INT64 count = product / between.whole;
    const R_INT64 rest = 2 * (product % between.whole);
    if (rest > between.whole || (rest == between.whole && count % 2 != 0)) ++count;
    return static_cast<int>(count);
}

/// A new column lies between two old ones, even at the end.
MixedPixel pixelAt(R_INT x, R_INT oldWidth, R_INT newWidth) noexcept
{
    const Between between = centreOf(x, oldWidth, newWidth);
    if (between.first == oldWidth - 1 && between.first > 0) return {between.first - 1, kMixSteps};
    return {between.first, stepsOf(between, kMixSteps)};
}

MixBlock* blocksOf(const RowBuffer& plan) noexcept { return reinterpret_cast<MixBlock*>(plan.data()); }

} // namespace

/// Where the samples of half a block come from: false when they are too far from each other.
bool BilinearResampler::planHalf(const ResampleSource& source, size_t block, size_t half) noexcept
{
    MixBlock& plan = blocksOf(plan_)[block];
    const size_t channels = source.channels();
    size_t from[kHalf];
    size_t least = bytes_, most = 0;
    for (size_t i = 0; i < kHalf; ++i) {
        const size_t sample = std::min(block * kMixBlock + half * kHalf + i, samples_ - 1);
        const MixedPixel pixel = pixelAt(static_cast<R_INT>(sample / channels), source.width(), source.newWidth());
        from[i] = static_cast<size_t>(pixel.first) * channels + sample % channels;
        least = std::min(least, from[i]);
        most = std::max(most, from[i] + channels);
        plan.weights[2 * (half * kHalf + i)] = static_cast<uint8_t>(kMixSteps - pixel.steps);
        plan.weights[2 * (half * kHalf + i) + 1] = static_cast<uint8_t>(pixel.steps);
    }
    if (most - least >= kMixBytes) return false;
    const size_t offset = std::min(least, bytes_ - std::min(bytes_, kMixBytes));
    plan.offsets[half] = static_cast<uint32_t>(offset);
    for (size_t i = 0; i < kHalf; ++i) {
        plan.from[2 * (half * kHalf + i)] = static_cast<uint8_t>(from[i] - offset);
        plan.from[2 * (half * kHalf + i) + 1] = static_cast<uint8_t>(from[i] + channels - offset);
    }
    return true;
}

bool BilinearResampler::planBlocks(const ResampleSource& source) noexcept
{
    together_ = true;
    for (size_t i = 0; i < blocks_; ++i) {
        if (!planHalf(source, i, 0) || !planHalf(source, i, 1)) return false;
        // The second half's bytes by the first one's offset, where they are near enough; or the other way round.
        MixBlock& plan = blocksOf(plan_)[i];
        const uint32_t offset = std::min(plan.offsets[0], plan.offsets[1]);
        unsigned last = 0;
        for (size_t k = 0; k < 2 * kMixBlock; ++k)
            last = std::max(last, plan.from[k] + plan.offsets[k / kMixBlock] - offset);
        if (last >= kMixBytes) {
            together_ = false;
            continue;
        }
        for (size_t k = 0; k < 2 * kMixBlock; ++k)
            plan.from[k] = static_cast<uint8_t>(plan.from[k] + plan.offsets[k / kMixBlock] - offset);
        plan.offsets[0] = plan.offsets[1] = offset;
    }
    return true;
}

void BilinearResampler::planPixels(const ResampleSource& source) noexcept
{
    auto* const pixels = reinterpret_cast<MixedPixel*>(plan_.data());
    for (R_INT x = 0; x < source.newWidth(); ++x) pixels[x] = pixelAt(x, source.width(), source.newWidth());
}

Status BilinearResampler::prepare(const ResampleSource& source) noexcept
{
    bytes_ = std::max(source.samples(), 2 * source.channels());
    samples_ = source.newSamples();
    blocks_ = (samples_ + kMixBlock - 1) / kMixBlock;
    made_ = RowBuffer(R_UINT64{2} * blocks_ * kMixBlock * sizeof(int16_t));
    plan_ =
        RowBuffer(std::max(sizeof(MixBlock) * blocks_, sizeof(MixedPixel) * static_cast<size_t>(source.newWidth())));
    if (!made_ || !plan_) return ERROR_FAILURE;
    loose_ = !planBlocks(source);
    if (loose_) planPixels(source);
    return SUCCESS;
}

int16_t* BilinearResampler::made(R_INT row) const noexcept
{
    return reinterpret_cast<int16_t*>(made_.data()) + static_cast<size_t>(row & 1) * blocks_ * kMixBlock;
}

/// A row in its new width. The row before it, or the one behind it, stays.
Status BilinearResampler::bring(ResampleSource& source, R_INT row) noexcept
{
    if (rows_[row & 1] == row) return SUCCESS;
    rows_[row & 1] = -1;
    const uint8_t* samples;
    R_TRY(source.read(row, &samples));
    uint8_t small[kSmall] = {};
    if (bytes_ < kMixBytes) {
        std::memcpy(small, samples, source.samples());
        if (source.width() == 1) std::memcpy(small + source.channels(), samples, source.channels());
        samples = small;
    }
    const simd::RowKernels& kernels = rowKernels();
    if (loose_)
        kernels.mixPixels(made(row), samples, reinterpret_cast<const MixedPixel*>(plan_.data()),
                          static_cast<size_t>(source.newWidth()), source.channels());
    else
        (together_ ? kernels.mixBlocks : kernels.mixHalves)(made(row), samples, blocksOf(plan_), blocks_);
    rows_[row & 1] = row;
    return SUCCESS;
}

Status BilinearResampler::row(ResampleSource& source, R_INT row, uint8_t* target) noexcept
{
    const Between between = centreOf(row, source.height(), source.newHeight());
    R_INT first = between.first;
    int steps = stepsOf(between, kMixRowSteps);
    if (steps == kMixRowSteps) {
        ++first;
        steps = 0;
    }
    const R_INT next = steps != 0 ? first + 1 : first;
    R_TRY(bring(source, first));
    R_TRY(bring(source, next));
    rowKernels().mixRows(source.place(target), made(first), made(next), steps, samples_);
    source.put(target);
    return SUCCESS;
}

} // namespace rv
