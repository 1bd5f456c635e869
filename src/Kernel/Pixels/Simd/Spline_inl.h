// Natural cubic splines. Part of the text of a variant: see RowKernels_inl.h, which includes it.

namespace rv::simd::RV_SIMD {
namespace {

/// Lanes that are reckoned with at once.
constexpr size_t kSomeLanes = RV_VECTOR_BYTES == 32 ? 8 : 4;
typedef float Some __attribute__((vector_size(4 * kSomeLanes)));
typedef int32_t SomeMasks __attribute__((vector_size(4 * kSomeLanes)));

RV_INLINE Some loadSome(const float* from) noexcept
{
    Some lanes;
    memcpy(&lanes, from, sizeof lanes);
    return lanes;
}
RV_INLINE void storeSome(float* to, Some lanes) noexcept { memcpy(to, &lanes, sizeof lanes); }
RV_INLINE Some where(SomeMasks mask, Some lanes) noexcept
{
    return reinterpret_cast<Some>(reinterpret_cast<SomeMasks>(lanes) & mask);
}

/// Rows and columns of four by four exchanged.
RV_INLINE void turnFour(float* to, size_t toPitch, const float* from, size_t fromPitch) noexcept
{
    const Float4 a = loadFloats(from), b = loadFloats(from + fromPitch), c = loadFloats(from + 2 * fromPitch),
                 d = loadFloats(from + 3 * fromPitch);
    const Float4 ab = __builtin_shufflevector(a, b, 0, 4, 1, 5), AB = __builtin_shufflevector(a, b, 2, 6, 3, 7);
    const Float4 cd = __builtin_shufflevector(c, d, 0, 4, 1, 5), CD = __builtin_shufflevector(c, d, 2, 6, 3, 7);
    storeFloats(to, __builtin_shufflevector(ab, cd, 0, 1, 4, 5));
    storeFloats(to + toPitch, __builtin_shufflevector(ab, cd, 2, 3, 6, 7));
    storeFloats(to + 2 * toPitch, __builtin_shufflevector(AB, CD, 0, 1, 4, 5));
    storeFloats(to + 3 * toPitch, __builtin_shufflevector(AB, CD, 2, 3, 6, 7));
}

RV_INLINE void turnEight(float* to, size_t toPitch, const float* from, size_t fromPitch) noexcept
{
    for (size_t y = 0; y < 8; y += 4)
        for (size_t x = 0; x < 8; x += 4) turnFour(to + x * toPitch + y, toPitch, from + y * fromPitch + x, fromPitch);
}

void sideBySide(float* lanes, const float* rows, size_t pitch, size_t count) noexcept
{
    for (size_t i = 0; i < count; i += kSplineLanes) turnEight(lanes + i * kSplineLanes, kSplineLanes, rows + i, pitch);
}

/// m[i-1] + 4 m[i] + m[i+1] = 6 (y[i+1] - 2 y[i] + y[i-1]): the sweep makes m[i] = ratio[i] * m[i+1] + moments[i] of
/// it, and the way back solves that.
void solveSplines(float* moments, float* ratios, const float* samples, size_t points, size_t lanes) noexcept
{
    const size_t last = (points - 1) * lanes;
    for (size_t l = 0; l < lanes; l += kSomeLanes) {
        storeSome(moments + l, Some{});
        storeSome(ratios + l, Some{});
        storeSome(moments + last + l, Some{});
    }
    for (size_t at = lanes; at < last; at += lanes) {
        for (size_t i = at; i < at + lanes; i += kSomeLanes) {
            const Some y = loadSome(samples + i);
            const Some bend = (loadSome(samples + i + lanes) - (y + y)) + loadSome(samples + i - lanes);
            const SomeMasks bends = bend != 0.0f;
            const Some ratio = -1.0f / (loadSome(ratios + i - lanes) + 4.0f);
            const Some moment = (loadSome(moments + i - lanes) - bend * 6.0f) * ratio;
            storeSome(ratios + i, where(bends, ratio));
            storeSome(moments + i, where(bends, moment));
        }
    }
    for (size_t at = last; at > lanes;) {
        at -= lanes;
        for (size_t i = at; i < at + lanes; i += kSomeLanes)
            storeSome(moments + i, loadSome(ratios + i) * loadSome(moments + i + lanes) + loadSome(moments + i));
    }
}

template <size_t Channels>
RV_INLINE void curveColumnsOf(float* rows, size_t pitch, const float* samples, const float* moments,
                              const CurvePoint* points, size_t width) noexcept
{
    float made[kSplineLanes * Channels * kSplineLanes];
    constexpr size_t next = Channels * kSplineLanes;
    for (size_t x = 0; x < width; x += kSplineLanes) {
        for (size_t i = 0; i < kSplineLanes; ++i) {
            const CurvePoint point = points[x + i];
            for (size_t l = 0; l < next; l += kSomeLanes) {
                const size_t at = static_cast<size_t>(point.first) * next + l;
                const Some y = loadSome(samples + at);
                Some sum = y + (loadSome(samples + at + next) - y) * point.difference;
                sum += loadSome(moments + at) * point.bendFirst + loadSome(moments + at + next) * point.bendNext;
                storeSome(made + i * next + l, sum);
            }
        }
        for (size_t c = 0; c < Channels; ++c)
            turnEight(rows + x * Channels + c * kSplineLanes, pitch, made + c * kSplineLanes * kSplineLanes,
                      kSplineLanes);
    }
}

void curveColumns(float* rows, size_t pitch, const float* samples, const float* moments, const CurvePoint* points,
                  size_t width, size_t channels) noexcept
{
    if (channels == 1)
        curveColumnsOf<1>(rows, pitch, samples, moments, points, width);
    else if (channels == 3)
        curveColumnsOf<3>(rows, pitch, samples, moments, points, width);
    else
        curveColumnsOf<4>(rows, pitch, samples, moments, points, width);
}

void curveRow(float* target, const float* const rows[2], const float* const bent[2], const CurvePoint& point,
              size_t count) noexcept
{
    const CurvePoint p = point;
    for (size_t i = 0; i < count; i += kSomeLanes) {
        const Some y = loadSome(rows[0] + i);
        const Some sum = y + (loadSome(rows[1] + i) - y) * p.difference;
        storeSome(target + i, sum + (loadSome(bent[0] + i) * p.bendFirst + loadSome(bent[1] + i) * p.bendNext));
    }
}

} // namespace
} // namespace rv::simd::RV_SIMD
