// The skew of a page by projection profiles: of all directions, ink gathers in separate rows along the lines of the
// text, so that the profile's neighbours differ most. The measure, the sum of squared differences, is W. Postl's
// ("Detection of linear oblique structures and skew scan in digitized documents", 8th International Conference on
// Pattern Recognition, 1986).

#include "Skew.h"

#include "Error.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

namespace rvimg {

namespace {

/// The longer side of the page that is looked at: lines of small print are still apart in it.
constexpr R_INT kLongerSide = 1600;
/// Columns that are counted together. Within them a line falls by less than a row, up to 14 degrees.
constexpr R_INT kStripWidth = 4;
/// The steps of the two searches, in degrees. Between two of the first, the end of a line moves by less than the height
/// of a letter.
constexpr double kCoarseStep = 0.2;
constexpr double kFineStep = 0.02;
/// How far the best direction stands out of the common ones where there are lines.
constexpr double kLeastContrast = 1.25;

struct Free {
    void operator()(BITMAPHANDLE* record) const noexcept
    {
        R_FreeBitmap(record);
        delete record;
    }
};
using Bitmap = std::unique_ptr<BITMAPHANDLE, Free>;

/// A small gray picture of the page, stored as it is displayed.
Bitmap reduced(BITMAPHANDLE* page)
{
    Bitmap small(new BITMAPHANDLE{});
    check(R_CopyBitmap(small.get(), page, BITMAPHANDLE_SIZE));
    const R_INT longer = std::max(small->Width, small->Height);
    if (longer > kLongerSide) {
        const auto scaled = [&](R_INT side) {
            return std::max(static_cast<R_INT>(R_INT64{side} * kLongerSide / longer), 1);
        };
        const bool blackAndWhite = small->BitsPerPixel == 1 && R_IsGrayScaleBitmap(small.get()) > 0;
        check(R_SizeBitmap(small.get(), scaled(small->Width), scaled(small->Height),
                           blackAndWhite ? SIZE_TO_GRAY : SIZE_AREA));
    }
    check(R_GrayScaleBitmap(small.get(), 8));
    check(R_ChangeBitmapViewPerspective(nullptr, small.get(), 0, TOP_LEFT));
    return small;
}

/// The level that parts dark from light best: N. Otsu, "A threshold selection method from gray-level histograms", 1979.
/// Levels up to it are dark.
int thresholdOf(const std::vector<R_INT64>& histogram)
{
    double all = 0, sum = 0;
    for (size_t level = 0; level < histogram.size(); ++level) {
        all += static_cast<double>(histogram[level]);
        sum += static_cast<double>(histogram[level]) * static_cast<double>(level);
    }
    double best = -1, dark = 0, darkSum = 0;
    int threshold = 0;
    for (size_t level = 0; level < histogram.size(); ++level) {
        dark += static_cast<double>(histogram[level]);
        darkSum += static_cast<double>(histogram[level]) * static_cast<double>(level);
        if (dark == 0 || dark == all) continue;
        const double apart = darkSum / dark - (sum - darkSum) / (all - dark);
        const double variance = dark * (all - dark) * apart * apart;
        if (variance > best) {
            best = variance;
            threshold = static_cast<int>(level);
        }
    }
    return threshold;
}

/// The ink of a page, counted in pieces of rows.
class Ink {
public:
    explicit Ink(BITMAPHANDLE* gray)
        : height_(static_cast<size_t>(gray->Height)), strips_((static_cast<size_t>(gray->Width) - 1) / kStripWidth + 1),
          counts_(strips_ * height_)
    {
        const auto width = static_cast<size_t>(gray->Width);
        std::vector<uint8_t> rows(height_ * width);
        check(R_AccessBitmap(gray));
        for (size_t y = 0; y < height_; ++y)
            checkMoved(R_GetBitmapRow(gray, rows.data() + y * width, static_cast<R_INT>(y), width), width);
        check(R_ReleaseBitmap(gray));
        std::vector<R_INT64> histogram(256);
        for (const uint8_t level : rows) ++histogram[level];
        const int threshold = thresholdOf(histogram);
        R_INT64 dark = 0;
        for (int level = 0; level <= threshold; ++level) dark += histogram[static_cast<size_t>(level)];
        const bool inkIsDark = dark * 2 <= static_cast<R_INT64>(rows.size()); // there is more paper than ink
        for (size_t y = 0; y < height_; ++y)
            for (size_t x = 0; x < width; ++x)
                if ((rows[y * width + x] <= threshold) == inkIsDark) ++counts_[x / kStripWidth * height_ + y];
    }

    /// How much neighbours of the profile differ along a direction.
    double sharpness(double degrees) const
    {
        constexpr double kPi = 3.14159265358979323846;
        const double slope = std::tan(degrees * kPi / 180);
        const auto margin = static_cast<size_t>(std::abs(slope) * static_cast<double>(strips_ * kStripWidth) / 2) + 1;
        profile_.assign(height_ + 2 * margin, 0);
        for (size_t strip = 0; strip < strips_; ++strip) {
            const double fromCentre = (static_cast<double>(strip) + 0.5) - static_cast<double>(strips_) / 2;
            const auto rise = std::lround(fromCentre * kStripWidth * slope);
            int* const target = profile_.data() + (static_cast<long>(margin) - rise);
            const uint8_t* const counts = counts_.data() + strip * height_;
            for (size_t y = 0; y < height_; ++y) target[y] += counts[y];
        }
        double sum = 0;
        for (size_t y = 1; y < profile_.size(); ++y) {
            const double difference = profile_[y] - profile_[y - 1];
            sum += difference * difference;
        }
        return sum;
    }

private:
    size_t height_;
    size_t strips_;
    std::vector<uint8_t> counts_; // of each strip, row by row
    mutable std::vector<int> profile_;
};

struct Direction {
    double degrees;
    double sharpness;
};

std::vector<Direction> directions(const Ink& ink, double from, double to, double step)
{
    std::vector<Direction> all;
    const auto last = static_cast<int>(std::lround((to - from) / step));
    for (int i = 0; i <= last; ++i) all.push_back({from + i * step, ink.sharpness(from + i * step)});
    return all;
}

bool lessSharp(const Direction& a, const Direction& b) { return a.sharpness < b.sharpness; }

/// The middle of a peak, at half its height.
double middleOf(const std::vector<Direction>& peak)
{
    const auto [low, high] = std::minmax_element(peak.begin(), peak.end(), lessSharp);
    const double half = (low->sharpness + high->sharpness) / 2;
    auto left = high, right = high;
    while (left != peak.begin() && std::prev(left)->sharpness > half) --left;
    while (std::next(right) != peak.end() && std::next(right)->sharpness > half) ++right;
    return (left->degrees + right->degrees) / 2;
}

} // namespace

std::optional<double> skewOf(BITMAPHANDLE* page, double most)
{
    const Bitmap small = reduced(page);
    const Ink ink(small.get());
    const auto steps = std::ceil(most / kCoarseStep) * kCoarseStep;
    std::vector<Direction> all = directions(ink, -steps, steps, kCoarseStep);
    const double best = std::max_element(all.begin(), all.end(), lessSharp)->degrees;
    const double peak = std::max_element(all.begin(), all.end(), lessSharp)->sharpness;
    const auto middle = all.begin() + static_cast<long>(all.size() / 2);
    std::nth_element(all.begin(), middle, all.end(), lessSharp);
    if (peak <= middle->sharpness * kLeastContrast) return std::nullopt;
    return std::clamp(middleOf(directions(ink, best - kCoarseStep, best + kCoarseStep, kFineStep)), -most, most);
}

} // namespace rvimg
