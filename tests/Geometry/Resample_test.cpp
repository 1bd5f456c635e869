// Resampled rows: a model of each weighing in doubles, and what holds whatever the picture is.
#include "Kernel/Core/Access.h"
#include "Kernel/Core/BitmapFormat.h"
#include "Kernel/Core/Palette.h"
#include "Kernel/Geometry/Resample.h"
#include "Kernel/Pixels/Depths.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <numeric>
#include <random>

namespace rv::test {
namespace {

using Line = std::vector<double>;
using Shape = std::pair<R_INT, R_INT>; ///< width, height

constexpr Weighing kWeighings[] = {Weighing::bilinear, Weighing::spline, Weighing::area};

PixelFormat formatOfBitmap(BITMAPHANDLE* bitmap)
{
    PixelFormat format;
    EXPECT_EQ(formatOf(bitmap, &format), SUCCESS);
    return format;
}

Resampler::Job wholeJob(BITMAPHANDLE* bitmap, Shape shape, Weighing weighing, bool byAlpha = false)
{
    return {{0, 0, bitmap->Width, bitmap->Height}, shape.first, shape.second, weighing, byAlpha};
}

/// Rows of the new picture, packed; taken from the top down, or in another order.
std::vector<std::vector<uint8_t>> resized(BITMAPHANDLE* bitmap, const Resampler::Job& job, const PixelFormat& target,
                                          bool shuffled = false)
{
    std::vector<std::vector<uint8_t>> rows;
    BitmapAccess access(bitmap);
    EXPECT_EQ(access.status(), SUCCESS);
    Resampler resampler(bitmap, job, target);
    EXPECT_EQ(resampler.status(), SUCCESS);
    if (!resampler.status().ok()) return rows;
    std::vector<R_INT> order(static_cast<size_t>(job.height));
    std::iota(order.begin(), order.end(), 0);
    if (shuffled) std::shuffle(order.begin(), order.end(), std::mt19937(5));
    const size_t bytes = packedBytes(job.width, target.bits);
    rows.resize(order.size());
    for (const R_INT y : order) {
        std::vector<uint8_t> row(bytes + 4, 0xA5);
        EXPECT_EQ(resampler.row(y, row.data()), SUCCESS);
        EXPECT_EQ(std::count(row.end() - 4, row.end(), 0xA5), 4) << "row " << y;
        row.resize(bytes);
        rows[static_cast<size_t>(y)] = row;
    }
    return rows;
}

// --- Models of one direction

double centre(size_t i, size_t from, size_t to)
{
    const double at = (static_cast<double>(i) + 0.5) * static_cast<double>(from) / static_cast<double>(to) - 0.5;
    return std::clamp(at, 0.0, static_cast<double>(from - 1));
}

Line bilinearModel(const Line& line, size_t to)
{
    Line result(to);
    for (size_t i = 0; i < to; ++i) {
        const double at = centre(i, line.size(), to);
        const auto first = std::min(static_cast<size_t>(at), line.size() - 1);
        const double next = line[std::min(first + 1, line.size() - 1)];
        result[i] = line[first] + (at - static_cast<double>(first)) * (next - line[first]);
    }
    return result;
}

Line areaModel(const Line& line, size_t to)
{
    if (to >= line.size()) return bilinearModel(line, to);
    Line result(to);
    const double scale = static_cast<double>(line.size()) / static_cast<double>(to);
    for (size_t i = 0; i < to; ++i)
        for (size_t x = 0; x < line.size(); ++x) {
            const double begin = std::max(static_cast<double>(i) * scale, static_cast<double>(x));
            const double end = std::min(static_cast<double>(i + 1) * scale, static_cast<double>(x + 1));
            if (end > begin) result[i] += (end - begin) / scale * line[x];
        }
    return result;
}

Line splineModel(const Line& line, size_t to)
{
    const size_t n = line.size();
    Line c(n), m(n), result(to);
    for (size_t i = 1; i + 1 < n; ++i) {
        const double d = 6 * (line[i + 1] - 2 * line[i] + line[i - 1]);
        if (d == 0) continue;
        c[i] = -1 / (c[i - 1] + 4);
        m[i] = (m[i - 1] - d) * c[i];
    }
    for (size_t i = n - 1; i-- > 1;) m[i] += c[i] * m[i + 1];
    for (size_t i = 0; i < to; ++i) {
        const double at = centre(i, n, to);
        const size_t first = std::min(static_cast<size_t>(at), n - 1), next = std::min(first + 1, n - 1);
        const double t = at - static_cast<double>(first), s = 1 - t;
        result[i] = s * line[first] + t * line[next] + ((s * s * s - s) * m[first] + (t * t * t - t) * m[next]) / 6;
    }
    return result;
}

Line modelOf(const Line& line, size_t to, Weighing weighing)
{
    return weighing == Weighing::bilinear ? bilinearModel(line, to)
           : weighing == Weighing::spline ? splineModel(line, to)
                                          : areaModel(line, to);
}

/// Rows first, then columns.
std::vector<Line> modelOf(std::vector<Line> plane, Shape to, Weighing weighing)
{
    for (Line& line : plane) line = modelOf(line, static_cast<size_t>(to.first), weighing);
    std::vector<Line> result(static_cast<size_t>(to.second), Line(static_cast<size_t>(to.first)));
    for (size_t x = 0; x < static_cast<size_t>(to.first); ++x) {
        Line column;
        for (const Line& line : plane) column.push_back(line[x]);
        column = modelOf(column, static_cast<size_t>(to.second), weighing);
        for (size_t y = 0; y < column.size(); ++y) result[y][x] = column[y];
    }
    return result;
}

/// How a depth stores its components: where each begins, and how many bits it has.
struct Component {
    unsigned low;
    unsigned bits;
};
std::vector<Component> componentsOf(R_INT bits)
{
    switch (bits) {
    case 16: return {{0, 5}, {5, 5}, {10, 5}};
    case 24: return {{0, 8}, {8, 8}, {16, 8}};
    case 32: return {{0, 8}, {8, 8}, {16, 8}, {24, 8}};
    case 48: return {{0, 16}, {16, 16}, {32, 16}};
    case 64: return {{0, 16}, {16, 16}, {32, 16}, {48, 16}};
    default: return {{0, static_cast<unsigned>(bits)}};
    }
}

double componentAt(const uint8_t* row, R_INT x, R_INT bits, Component c)
{
    return static_cast<double>(pixelAt(row, x, bits) >> c.low & ((uint64_t{1} << c.bits) - 1));
}

std::vector<Line> planeOf(BITMAPHANDLE* bitmap, Component c, const RECT& part)
{
    const auto pixels = pixelsOf(bitmap);
    std::vector<Line> plane;
    for (R_INT y = part.top; y < part.bottom; ++y) {
        plane.emplace_back();
        for (R_INT x = part.left; x < part.right; ++x)
            plane.back().push_back(
                componentAt(pixels.data() + R_INT64{y} * bitmap->BytesPerLine, x, bitmap->BitsPerPixel, c));
    }
    return plane;
}

constexpr Shape kShapes[] = {{37, 21}, {19, 9}, {80, 51}, {5, 60}, {90, 4}, {1, 1}, {74, 42}, {8, 3}};

/// Every component is at most one from the model, wherever the picture lies.
TEST(Resampler, MatchesTheModels)
{
    for (const R_INT bits : {8, 12, 16, 24, 32, 48, 64}) {
        for (const Home home : {Home::conventional, Home::callbacks, Home::tiled}) {
            const Scene scene{bits, home, BITMAPHANDLE_SIZE, 37, 21, 3};
            if (!scene.possible()) continue;
            const TestBitmap bitmap(scene);
            if (bits == 8) {
                ASSERT_EQ(giveGrayPalette(bitmap), SUCCESS);
            }
            for (const Shape& shape : kShapes) {
                for (const Weighing weighing : kWeighings) {
                    Resampler::Job job = wholeJob(bitmap, shape, weighing);
                    if (home != Home::conventional) job.source = {3, 2, 30, 19};
                    const auto rows = resized(bitmap, job, formatOfBitmap(bitmap));
                    for (const Component c : componentsOf(bits)) {
                        const auto model = modelOf(planeOf(bitmap, c, job.source), shape, weighing);
                        const double top = static_cast<double>((uint64_t{1} << c.bits) - 1);
                        for (R_INT y = 0; y < shape.second; ++y)
                            for (R_INT x = 0; x < shape.first; ++x) {
                                const auto row = static_cast<size_t>(y), column = static_cast<size_t>(x);
                                const double wanted = std::floor(std::clamp(model[row][column], 0.0, top) + 0.5);
                                ASSERT_LE(std::abs(componentAt(rows[row].data(), x, bits, c) - wanted), 1)
                                    << scene.text() << " to " << shape.first << " x " << shape.second << ", "
                                    << static_cast<int>(weighing) << ", at " << x << ", " << y;
                            }
                    }
                }
            }
        }
    }
}

} // namespace
} // namespace rv::test
