#include "Kernel/Geometry/ResampleSpline.h"

#include "Kernel/Geometry/ResampleTaps.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

float* floatsOf(const RowBuffer& buffer) noexcept { return reinterpret_cast<float*>(buffer.data()); }
RowBuffer floats(R_UINT64 count) noexcept { return RowBuffer(sizeof(float) * (count + kFloatSlack)); }

constexpr size_t roundUp(size_t count, size_t unit) noexcept { return (count + unit - 1) / unit * unit; }

/// The curve between two points: y0 + t (y1 - y0) + u m0 + v m1, where m are the second derivatives.
CurvePoint curveAt(R_INT i, R_INT oldLength, R_INT newLength) noexcept
{
    const Between between = centreOf(i, oldLength, newLength);
    double t = between.fraction();
    R_INT first = between.first;
    if (first == oldLength - 1 && first > 0) { // the last point is the end of the last piece
        --first;
        t = 1;
    }
    const double s = 1 - t;
    return {first, static_cast<float>(t), static_cast<float>((s * s * s - s) / 6),
            static_cast<float>((t * t * t - t) / 6)};
}

} // namespace

Status SplineResampler::prepare(const ResampleSource& source) noexcept
{
    const auto width = static_cast<size_t>(source.newWidth());
    samples_ = source.samples();
    columnPoints_ = static_cast<size_t>(std::max(source.width(), 2));
    // A cache line more than a round number, so that the rows of a column do not meet in the cache.
    pitch_ = roundUp(roundUp(width, kSplineLanes) * source.channels(), kStrip) + 16;
    const auto keptRows = static_cast<size_t>(std::min<R_INT64>(kKept, (R_INT64{source.height()} + 7) / 8 * 8));
    const size_t lanes = columnPoints_ * source.channels() * kSplineLanes;
    points_ = RowBuffer(sizeof(CurvePoint) * roundUp(width, kSplineLanes));
    rows_ = floats(kSplineLanes * roundUp(samples_, kSplineLanes));
    lanes_ = floats(lanes + kSplineLanes * kSplineLanes);
    laneMoments_ = floats(std::max(lanes, 2 * kKept * kStrip));
    ratios_ = floats(std::max(lanes, kKept * kStrip));
    kept_ = floats(keptRows * pitch_);
    moments_ = floats((kBlock + 1) * pitch_);
    made_ = floats(pitch_);
    if (!points_ || !rows_ || !lanes_ || !laneMoments_ || !ratios_ || !kept_ || !moments_ || !made_)
        return ERROR_FAILURE;
    std::fill(std::begin(groups_), std::end(groups_), -1);
    std::memset(kept_.data(), 0, sizeof(float) * keptRows * pitch_); // what is behind a row is reckoned with, too
    auto* const points = reinterpret_cast<CurvePoint*>(points_.data());
    for (size_t x = 0; x < width; ++x) points[x] = curveAt(static_cast<R_INT>(x), source.width(), source.newWidth());
    for (size_t x = width; x < roundUp(width, kSplineLanes); ++x) points[x] = points[width - 1];
    return SUCCESS;
}

float* SplineResampler::kept(R_INT row) const noexcept
{
    return floatsOf(kept_) + static_cast<size_t>(row % kKept) * pitch_;
}

float* SplineResampler::moments(R_INT rowInBlock) const noexcept
{
    return floatsOf(moments_) + static_cast<size_t>(rowInBlock) * pitch_;
}

/// Gives a group of rows their new width, eight at once: lane by lane.
Status SplineResampler::bringGroup(ResampleSource& source, R_INT group) noexcept
{
    R_INT& here = groups_[group % (kKept / kGroup)];
    if (here == group) return SUCCESS;
    here = -1;
    const simd::RowKernels& kernels = rowKernels();
    const size_t rowFloats = roundUp(samples_, kSplineLanes), channels = source.channels();
    for (R_INT i = 0; i < kGroup; ++i) {
        const R_INT row = std::min(group * kGroup + i, source.height() - 1);
        float* const to = floatsOf(rows_) + static_cast<size_t>(i) * rowFloats;
        const uint8_t* samples;
        R_TRY(source.read(row, &samples));
        (source.wide() ? kernels.addWords : kernels.addBytes)(to, samples, samples_, 1, true);
        if (source.byAlpha()) weighByAlpha(to, samples_ / 4);
        std::fill(to + samples_, to + rowFloats, 0.0f);
    }
    float* const lanes = floatsOf(lanes_);
    kernels.sideBySide(lanes, floatsOf(rows_), rowFloats, rowFloats);
    if (source.width() == 1) // a curve takes two points
        std::memcpy(lanes + channels * kSplineLanes, lanes, channels * kSplineLanes * sizeof(float));
    kernels.solveSplines(floatsOf(laneMoments_), floatsOf(ratios_), lanes, columnPoints_, channels * kSplineLanes);
    kernels.curveColumns(kept(group * kGroup), pitch_, lanes, floatsOf(laneMoments_),
                         reinterpret_cast<const CurvePoint*>(points_.data()),
                         roundUp(static_cast<size_t>(source.newWidth()), kSplineLanes), channels);
    here = group;
    return SUCCESS;
}

void SplineResampler::solveStrip(R_INT block, size_t column, R_INT first, size_t points) noexcept
{
    // Nothing else is in these between two groups.
    float* const found = floatsOf(laneMoments_);
    float* const samples = found + kKept * kStrip;
    for (size_t i = 0; i < points; ++i) {
        const float* const row = kept(first + static_cast<R_INT>(i)) + column;
        std::memcpy(samples + i * kStrip, row, kStrip * sizeof(float));
        __builtin_prefetch(row + kStrip); // of the next strip
        __builtin_prefetch(row + kStrip + kStrip / 2);
    }
    rowKernels().solveSplines(found, floatsOf(ratios_), samples, points, kStrip);
    const auto skipped = static_cast<size_t>(block * kBlock - first);
    for (size_t i = skipped; i < std::min(points, skipped + kBlock + 1); ++i)
        std::memcpy(moments(static_cast<R_INT>(i - skipped)) + column, found + i * kStrip, kStrip * sizeof(float));
}

Status SplineResampler::bringBlock(ResampleSource& source, R_INT block) noexcept
{
    if (block_ == block) return SUCCESS;
    block_ = -1;
    const R_INT first = std::max(block * kBlock - kBeside, 0);
    const R_INT last = std::min<R_INT>(source.height() - 1, block * kBlock + kBlock + kBeside);
    for (R_INT group = first / kGroup; group <= last / kGroup; ++group) R_TRY(bringGroup(source, group));
    const size_t points = static_cast<size_t>(last - first) + 1;
    for (size_t column = 0; column + kStrip <= pitch_; column += kStrip) solveStrip(block, column, first, points);
    block_ = block;
    return SUCCESS;
}

Status SplineResampler::row(ResampleSource& source, R_INT row, uint8_t* target) noexcept
{
    const CurvePoint point = curveAt(row, source.height(), source.newHeight());
    R_TRY(bringBlock(source, point.first / kBlock));
    const simd::RowKernels& kernels = rowKernels();
    const R_INT here = point.first % kBlock, next = source.height() > 1 ? 1 : 0;
    float* const made = floatsOf(made_);
    const float* const rows[] = {kept(point.first), kept(point.first + next)};
    const float* const bent[] = {moments(here), moments(here + next)};
    kernels.curveRow(made, rows, bent, point, source.newSamples());
    if (source.byAlpha()) undoAlpha(made, static_cast<size_t>(source.newWidth()));
    (source.wide() ? kernels.roundToWords : kernels.roundToBytes)(source.place(target), made, source.newSamples(),
                                                                  source.top());
    source.put(target);
    return SUCCESS;
}

} // namespace rv
