// Resampled rows: a model of each weighing in doubles, and what holds whatever the picture is.
#include "Kernel/Core/Access.h"
#include "Kernel/Core/BitmapFormat.h"
#include "Kernel/Core/Palette.h"
#include "Kernel/Geometry/Resample.h"
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/Simd/Select.h"
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

/// The largest difference of a component from the model.
double farthest(const std::vector<std::vector<uint8_t>>& rows, const std::vector<Line>& model, R_INT bits, Component c)
{
    const double top = static_cast<double>((uint64_t{1} << c.bits) - 1);
    double most = 0;
    for (size_t y = 0; y < model.size(); ++y)
        for (size_t x = 0; x < model[y].size(); ++x) {
            const double wanted = std::floor(std::clamp(model[y][x], 0.0, top) + 0.5);
            most = std::max(most, std::abs(componentAt(rows.at(y).data(), static_cast<R_INT>(x), bits, c) - wanted));
        }
    return most;
}

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
                    for (const Component c : componentsOf(bits))
                        ASSERT_LE(farthest(rows, modelOf(planeOf(bitmap, c, job.source), shape, weighing), bits, c), 1)
                            << scene.text() << " to " << shape.first << " x " << shape.second << ", "
                            << static_cast<int>(weighing);
                }
            }
        }
    }
}

/// Bits become levels by area, whether they are counted in fours, or by any factor, or something grows.
TEST(Resampler, MakesGrayOfPages)
{
    for (const Home home : homesOf(1)) {
        const Scene scene{1, home, BITMAPHANDLE_SIZE, 300, 84, 8};
        if (!scene.possible()) continue;
        const TestBitmap bitmap(scene);
        PixelFormat gray;
        gray.gray = true;
        ASSERT_EQ(giveGrayPalette(bitmap), SUCCESS);
        const bool blackIsOne = home != Home::conventional;
        if (blackIsOne) std::swap(bitmap->pPalette[0], bitmap->pPalette[1]);
        for (const Shape& shape : {Shape{75, 21}, {75, 84}, {61, 84}, {299, 20}, {1, 1}, {300, 83}, {310, 30}}) {
            for (const R_INT left : {0, 3}) {
                Resampler::Job job = wholeJob(bitmap, shape, Weighing::area);
                if (left != 0) job.source = {left, 0, left + 296, 80};
                auto plane = planeOf(bitmap, {0, 1}, job.source);
                for (Line& line : plane)
                    for (double& level : line) level = (level != 0) != blackIsOne ? 255 : 0;
                if (left != 0 && shape.first == 75) job.width = 74, job.height = 16; // fours, and five rows each
                const auto model = modelOf(plane, {job.width, job.height}, Weighing::area);
                ASSERT_LE(farthest(resized(bitmap, job, gray), model, 8, {0, 8}), 1)
                    << scene.text() << " to " << job.width << " x " << job.height << " from " << left;
            }
        }
    }
}

/// The row of a bitmap with the same value everywhere.
void fillWith(const TestBitmap& bitmap, uint64_t pixel)
{
    auto pixels = bitmap.pixels();
    for (R_INT y = 0; y < bitmap->Height; ++y)
        for (R_INT x = 0; x < bitmap->Width; ++x)
            setPixelAt(pixels.data() + R_INT64{y} * bitmap->BytesPerLine, x, bitmap->BitsPerPixel, pixel);
    bitmap.setPixels(pixels);
}

/// Whatever the depth, one colour stays what it is, and rows asked for in any order are those from the top down.
TEST(Resampler, KeepsConstantsAndIsTheSameInAnyOrder)
{
    std::mt19937_64 random(11);
    for (const R_INT bits : allDepths()) {
        for (const Weighing weighing : kWeighings) {
            for (const Shape& shape : {Shape{70, 200}, {20, 31}, {10, 150}}) {
                const TestBitmap bitmap({bits, Home::conventional, BITMAPHANDLE_SIZE_SHORT, 37, 90, 4});
                const PixelFormat format = formatOfBitmap(bitmap);
                const auto job = wholeJob(bitmap, shape, weighing, shape.first == 70);
                const std::string text = std::to_string(bits) + ", " + std::to_string(static_cast<int>(weighing));
                ASSERT_EQ(resized(bitmap, job, format), resized(bitmap, job, format, true)) << text;
                const uint64_t unused = bits == 16 ? 0x7FFF : ~uint64_t{0};
                const uint64_t pixel = random() & unused & (bits == 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1);
                fillWith(bitmap, pixel);
                for (const auto& row : resized(bitmap, job, format))
                    for (R_INT x = 0; x < shape.first; ++x)
                        ASSERT_EQ(pixelAt(row.data(), x, bits), pixel) << text << ", at " << x;
            }
        }
    }
}

/// No half pixel is lost on either side, and what shrinks by area keeps its mean.
TEST(Resampler, MirrorsWithThePictureAndKeepsEnergy)
{
    for (const Shape& shape : {Shape{80, 50}, {19, 9}, {13, 41}}) {
        for (const Weighing weighing : kWeighings) {
            const TestBitmap bitmap({24, Home::user, BITMAPHANDLE_SIZE, 37, 21, 6});
            const auto job = wholeJob(bitmap, shape, weighing);
            const auto plain = resized(bitmap, job, formatOfBitmap(bitmap));
            const auto plane = planeOf(bitmap, {0, 8}, job.source);
            ASSERT_EQ(R_ReverseBitmap(bitmap), SUCCESS);
            ASSERT_EQ(R_FlipBitmap(bitmap), SUCCESS);
            const auto turned = resized(bitmap, job, formatOfBitmap(bitmap));
            const double apart = weighing == Weighing::bilinear ? 0 : 1; // floats are added the other way round
            double sum = 0;
            for (R_INT y = 0; y < shape.second; ++y)
                for (R_INT x = 0; x < shape.first; ++x)
                    for (const Component c : componentsOf(24)) {
                        const double one = componentAt(plain[static_cast<size_t>(y)].data(), x, 24, c);
                        const auto opposite = static_cast<size_t>(shape.second - 1 - y);
                        const double other = componentAt(turned[opposite].data(), shape.first - 1 - x, 24, c);
                        ASSERT_LE(std::abs(one - other), apart) << static_cast<int>(weighing);
                        if (c.low == 0) sum += one;
                    }
            if (weighing != Weighing::area || shape.first != 19) continue;
            double before = 0;
            for (const Line& line : plane) before = std::accumulate(line.begin(), line.end(), before);
            EXPECT_NEAR(sum / (19 * 9), before / (37 * 21), 0.25);
        }
    }
}

/// What nobody sees lends nobody its colour.
TEST(Resampler, WeighsByAlpha)
{
    for (const R_INT bits : {32, 64}) {
        for (const Weighing weighing : kWeighings) {
            const TestBitmap bitmap({bits, Home::conventional, BITMAPHANDLE_SIZE, 20, 20, 6});
            const uint64_t unit = bits == 32 ? 1 : 257;
            const int sample = bits / 4;
            const auto pixel = [&](uint64_t red, uint64_t green, uint64_t alpha) {
                return (red << sample | green << 2 * sample | alpha << 3 * sample) * unit;
            };
            auto pixels = bitmap.pixels();
            for (R_INT y = 0; y < 20; ++y)
                for (R_INT x = 0; x < 20; ++x)
                    setPixelAt(pixels.data() + R_INT64{y} * bitmap->BytesPerLine, x, bits,
                               x < 10 ? pixel(200, 0, 255) : pixel(0, 250, 0));
            bitmap.setPixels(pixels);
            bool blends = false;
            for (const auto& row : resized(bitmap, wholeJob(bitmap, {31, 7}, weighing, true), formatOfBitmap(bitmap)))
                for (R_INT x = 0; x < 31; ++x) {
                    const uint64_t got = pixelAt(row.data(), x, bits);
                    const uint64_t top = bits == 32 ? 0xFF : 0xFFFF, alpha = got >> 3 * sample & top;
                    blends = blends || (alpha > top / 10 && alpha < top);
                    if (alpha <= top / 10) continue;
                    ASSERT_NEAR(static_cast<double>(got >> sample & top), static_cast<double>(200 * unit),
                                static_cast<double>(unit));
                    ASSERT_LE(got >> 2 * sample & top, unit);
                }
            EXPECT_TRUE(blends);
        }
    }
}

/// Indices become those of the entries that are nearest to the colours between them.
TEST(Resampler, TakesTheNearestEntries)
{
    for (const R_INT bits : {4, 8}) {
        const TestBitmap bitmap({bits, Home::conventional, BITMAPHANDLE_SIZE, 23, 17, 9});
        const PixelFormat format = formatOfBitmap(bitmap);
        const auto pixels = bitmap.pixels();
        for (const Weighing weighing : kWeighings) {
            const auto rows = resized(bitmap, wholeJob(bitmap, {40, 30}, weighing), format);
            std::vector<Line> models[3];
            for (size_t c = 0; c < 3; ++c) {
                std::vector<Line> plane = planeOf(bitmap, {0, static_cast<unsigned>(bits)}, {0, 0, 23, 17});
                for (Line& line : plane)
                    for (double& level : line)
                        level = reinterpret_cast<const uint8_t*>(&format.palette[static_cast<size_t>(level)])[c];
                models[c] = modelOf(plane, {40, 30}, weighing);
            }
            for (size_t y = 0; y < 30; ++y)
                for (size_t x = 0; x < 40; ++x) {
                    const auto distance = [&](size_t index) {
                        double sum = 0;
                        for (size_t c = 0; c < 3; ++c) {
                            const double entry = reinterpret_cast<const uint8_t*>(&format.palette[index])[c];
                            const double gap = entry - std::clamp(models[c][y][x], 0.0, 255.0);
                            sum += gap * gap;
                        }
                        return std::sqrt(sum);
                    };
                    double least = 1e9;
                    for (size_t i = 0; i < format.colours; ++i) least = std::min(least, distance(i));
                    const auto got = static_cast<size_t>(pixelAt(rows[y].data(), static_cast<R_INT>(x), bits));
                    ASSERT_LE(distance(got), least + 4)
                        << bits << ", " << x << ", " << y; // each component may be off by 1
                }
        }
    }
}

/// A want of memory is found at the beginning.
TEST(Resampler, FailsWithoutMemoryAndLeaksNothing)
{
    for (const R_INT bits : {1, 4, 12, 24, 64}) {
        const TestBitmap bitmap({bits, Home::disk, BITMAPHANDLE_SIZE, 37, 21, 6});
        const PixelFormat format = formatOfBitmap(bitmap);
        for (const Weighing weighing : kWeighings) {
            BitmapAccess access(bitmap);
            ASSERT_EQ(access.status(), SUCCESS);
            uint8_t row[512];
            for (int nth = 1;; ++nth) {
                const LiveBlocks live;
                R_INT made = SUCCESS, got = SUCCESS;
                bool happened;
                {
                    const FailingAllocation fault(nth);
                    Resampler resampler(bitmap, wholeJob(bitmap, {17, 9}, weighing, true), format);
                    made = resampler.status();
                    got = resampler.row(4, row);
                    happened = fault.happened();
                }
                EXPECT_EQ(live.count(), 0) << live.text();
                EXPECT_EQ(made, happened ? ERROR_FAILURE : SUCCESS) << bits << ", the " << nth;
                EXPECT_EQ(got, made);
                if (!happened) break;
            }
        }
    }
}

/// Every variant of the kernels gives the bytes of the plain one, from a block whose end is the last row's.
TEST(Resampler, IsTheSameWithEveryVariant)
{
    struct Back {
        ~Back() { selectRowKernels(); }
    } const back;
    for (const R_INT bits : {1, 8, 12, 24, 32, 64}) {
        for (const Weighing weighing : kWeighings) {
            for (const R_INT width : {3, 35, 132, 400}) {
                const TestBitmap bitmap({bits, Home::user, BITMAPHANDLE_SIZE, width, 21, 6});
                PixelFormat format = formatOfBitmap(bitmap);
                if (bits == 1) format.bits = 8, format.gray = true;
                for (const R_INT newWidth : {1, (width + 3) / 4, width - 2, width + 1, 2 * width, 5 * width}) {
                    const auto job = wholeJob(bitmap, {newWidth, newWidth * 7 / width + 1}, weighing, bits == 64);
                    useRowKernels(*availableRowKernels(0));
                    const auto plain = resized(bitmap, job, format);
                    for (size_t i = 1; const simd::RowKernels* const kernels = availableRowKernels(i); ++i) {
                        useRowKernels(*kernels);
                        ASSERT_EQ(resized(bitmap, job, format), plain)
                            << kernels->name << ", " << bits << ", from " << width << " to " << newWidth;
                    }
                }
            }
        }
    }
}

} // namespace
} // namespace rv::test
