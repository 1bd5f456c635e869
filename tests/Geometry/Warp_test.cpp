// Shear and warp: where every pixel comes from, in all perspectives and placements.
#include "Support/FailingPlatform.h"
#include "Support/Picture.h"
#include "Support/Watcher.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>

namespace rv::test {
namespace {

constexpr COLORREF kFill = 0x00123456;

struct Lying : TestBitmap {
    Lying(R_INT bits, Home home, R_INT perspective, unsigned seed = 1, R_INT width = 37, R_INT height = 11)
        : TestBitmap({.bits = bits, .home = home, .width = width, .height = height, .seed = seed})
    {
        get()->ViewPerspective = perspective;
    }
};

/// The stored pixel of the fill colour in such a bitmap.
uint64_t fillOf(const TestBitmap& like)
{
    const Lying p(like->BitsPerPixel, Home::conventional, TOP_LEFT, like.scene().seed);
    EXPECT_EQ(R_FillBitmap(p, kFill), SUCCESS);
    return pixelAt(p.pixels().data(), 0, p->BitsPerPixel);
}

/// Calls f(bits, home, perspective): every pair of a depth and a placement, some of the perspectives each.
template <class F> void forEachLie(F f)
{
    for (const R_INT bits : allDepths())
        for (const Home home : homesOf(bits))
            for (R_INT perspective = TOP_LEFT; perspective <= LEFT_BOTTOM; ++perspective)
                if (Scene{.bits = bits, .home = home}.possible() &&
                    (home == Home::conventional || (perspective + bits + static_cast<R_INT>(home)) % 4 == 0))
                    f(bits, home, perspective);
}

using From = std::array<double, 2>; // a place on the old picture

/// Whether each new pixel is the old one at `from` of its centre, or the fill; at an edge either side will do.
template <class F> testing::AssertionResult cameFrom(const Picture& made, const Picture& old, uint64_t fill, F from)
{
    for (R_INT y = 0; y < made.height; ++y) {
        for (R_INT x = 0; x < made.width; ++x) {
            const From at = from(x + 0.5, y + 0.5);
            const uint64_t pixel = made.pixels[static_cast<size_t>(y * made.width + x)];
            bool found = false;
            for (const double dx : {-1e-4, 1e-4}) {
                for (const double dy : {-1e-4, 1e-4}) {
                    const auto column = static_cast<R_INT>(std::floor(at[0] + dx));
                    const auto row = static_cast<R_INT>(std::floor(at[1] + dy));
                    const bool inside = column >= 0 && column < old.width && row >= 0 && row < old.height;
                    found |= pixel == (inside ? old.pixels[static_cast<size_t>(row * old.width + column)] : fill);
                }
            }
            if (!found)
                return testing::AssertionFailure()
                       << "pixel " << x << ", " << y << " is not from " << at[0] << ", " << at[1];
        }
    }
    return testing::AssertionSuccess();
}

TEST(Shear, EveryPixelHasMovedAlongItsLine)
{
    constexpr std::array kAngles = {4500, -4500, 1234, -507, 7000, -8900, 1};
    unsigned turn = 0;
    forEachLie([&](R_INT bits, Home home, R_INT perspective) {
        const R_INT angle = kAngles[turn++ % kAngles.size()];
        const bool columns = turn % 2 == 0;
        const Lying p(bits, home, perspective, turn);
        const Picture old(p);
        ASSERT_EQ(R_ShearBitmap(p, angle, columns ? SHEAR_VERTICAL : 0, kFill), SUCCESS) << p.scene().text();
        const Picture made(p);
        const double slope = std::tan(angle * std::numbers::pi / 18000);
        const R_INT lines = columns ? old.width : old.height;
        const auto growth = static_cast<R_INT>(std::lround(std::abs(slope) * (lines - 1)));
        ASSERT_EQ(made.width, old.width + (columns ? 0 : growth));
        ASSERT_EQ(made.height, old.height + (columns ? growth : 0));
        const bool lastMoves = columns == (angle > 0);
        const auto moved = [&](double line) { return std::abs(slope) * (lastMoves ? line - 0.5 : lines - line - 0.5); };
        ASSERT_TRUE(cameFrom(made, old, fillOf(p),
                             [&](double x, double y) {
                                 return columns ? From{x, y - moved(x)} : From{x - moved(y), y};
                             }))
            << p.scene().text() << ", perspective " << perspective << ", by " << angle;
    });
}

/// The map from a rectangle to a quadrilateral, by the eight equations of its corners.
struct Map {
    std::array<double, 9> m{};

    Map(double width, double height, const std::array<R_POINTF, 4>& corners)
    {
        double a[8][9] = {};
        for (size_t i = 0; i < 4; ++i) {
            const double u = i == 1 || i == 2 ? width : 0, v = i >= 2 ? height : 0;
            const auto [x, y] = corners[i];
            const double across[9] = {u, v, 1, 0, 0, 0, -u * x, -v * x, x},
                         down[9] = {0, 0, 0, u, v, 1, -u * y, -v * y, y};
            std::copy(across, across + 9, a[2 * i]);
            std::copy(down, down + 9, a[2 * i + 1]);
        }
        for (int i = 0; i < 8; ++i) {
            int best = i;
            for (int k = i; k < 8; ++k)
                if (std::abs(a[k][i]) > std::abs(a[best][i])) best = k;
            std::swap(a[i], a[best]);
            for (int k = 0; k < 8; ++k)
                for (int j = 8; k != i && j >= i; --j) a[k][j] -= a[k][i] / a[i][i] * a[i][j];
        }
        for (size_t i = 0; i < 8; ++i) m[i] = a[i][8] / a[i][i];
        m[8] = 1;
    }
    From operator()(double u, double v) const
    {
        const double w = m[6] * u + m[7] * v + m[8];
        return {(m[0] * u + m[1] * v + m[2]) / w, (m[3] * u + m[4] * v + m[5]) / w};
    }
};

TEST(Warp, StraightLinesStayStraight)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> little(-12, 12);
    forEachLie([&](R_INT bits, Home home, R_INT perspective) {
        const Lying p(bits, home, perspective, static_cast<unsigned>(random()));
        const Picture old(p);
        std::array<R_POINTF, 4> corners = {
            {{0, 0}, {old.width * 1.0, 0}, {old.width * 1.0, old.height * 1.0}, {0, old.height * 1.0}}};
        const GuardedRecord made(p->uStructSize);
        R_INT status = ERROR_INV_PARAMETER;
        while (status == ERROR_INV_PARAMETER) { // until they are convex
            auto moved = corners;
            for (R_POINTF& corner : moved) corner = {corner.x + little(random), corner.y + little(random) / 2};
            status = R_WarpBitmap(made, p, made.structSize(), moved.data(), 41, 19, 0, kFill);
            if (status == SUCCESS) corners = moved;
        }
        ASSERT_EQ(status, SUCCESS);
        const Picture warped(made);
        R_FreeBitmap(made);
        ASSERT_TRUE(warped.width == 41 && warped.height == 19);
        ASSERT_TRUE(Picture(p) == old);
        ASSERT_TRUE(cameFrom(warped, old, fillOf(p), Map(41, 19, corners)))
            << p.scene().text() << ", perspective " << perspective;

        // Its own corners, weighed or not, are the picture itself; a part of it is that part.
        const auto w = static_cast<double>(old.width), h = static_cast<double>(old.height);
        const std::array<R_POINTF, 4> own = {{{0, 0}, {w, 0}, {w, h}, {0, h}}},
                                      part = {{{2, 3}, {7, 3}, {7, 9}, {2, 9}}};
        const R_UINT weighed = bits != 16 && bits > 8 ? WARP_BILINEAR : 0;
        ASSERT_EQ(R_WarpBitmap(nullptr, p, 0, own.data(), 0, 0, weighed, kFill), SUCCESS);
        ASSERT_TRUE(Picture(p) == old) << p.scene().text();
        ASSERT_EQ(R_WarpBitmap(p, p, 0, part.data(), 0, 0, weighed, kFill), SUCCESS);
        ASSERT_TRUE(Picture(p).width == 5 && Picture(p).height == 6 &&
                    Picture(p).pixels[6] == old.pixels[static_cast<size_t>(4 * old.width + 3)]);
    });
}

TEST(ShearAndWarp, AnAbortChangesNothing)
{
    const LiveBlocks live;
    const std::array<R_POINTF, 4> sheet = {{{1, 1}, {30, 2}, {36, 9}, {0, 10}}};
    for (const Home home : {Home::conventional, Home::disk}) {
        for (const R_UINT flags : {0u, SHEAR_VERTICAL, SHEAR_BILINEAR, ~0u}) {
            for (int stopAt = 0;; ++stopAt) {
                const Lying p(24, home, RIGHT_TOP);
                const auto record = p.record(), pixels = p.pixels();
                const Watcher watcher(stopAt, -100);
                const R_INT status = flags == ~0u ? R_WarpBitmap(nullptr, p, 0, sheet.data(), 0, 0, 0, kFill)
                                                  : R_ShearBitmap(p, 1200, flags, kFill);
                ASSERT_EQ(watcher.percents.front(), 0);
                if (status == SUCCESS) {
                    ASSERT_EQ(watcher.percents.back(), 100);
                    break;
                }
                ASSERT_EQ(status, -100);
                ASSERT_TRUE(p.record() == record && p.pixels() == pixels) << "stopped at " << stopAt;
            }
        }
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(Warp, RefusesWhatIsNoSheet)
{
    const Lying p(24, Home::conventional, TOP_LEFT);
    const auto record = p.record();
    const double infinite = std::numeric_limits<double>::infinity();
    const std::array<R_POINTF, 4> refused[] = {
        {{{0, 0}, {9, 9}, {9, 0}, {0, 9}}}, // crossed
        {{{0, 0}, {9, 0}, {2, 2}, {0, 9}}}, // a corner turned in
        {{{0, 0}, {5, 0}, {9, 0}, {0, 9}}}, // three on a line
        {{{0, 0}, {9, 0}, {9, 9}, {0, infinite}}},
        {{{0, 0}, {9, NAN}, {9, 9}, {0, 9}}},
        {{{0, 0}, {1e300, 0}, {1e300, 9}, {0, 9}}},
        {{{0, 0}, {0, 0}, {0, 0}, {0, 0}}},
        {{{0, 0}, {9, 0}, {4.5 + 1e-11, 4.5}, {0, 9}}}, // all but three on a line
    };
    for (const auto& corners : refused)
        EXPECT_EQ(R_WarpBitmap(nullptr, p, 0, corners.data(), 5, 5, 0, 0), ERROR_INV_PARAMETER) << &corners - refused;
    const std::array<R_POINTF, 4> good = {{{0, 0}, {9, 0}, {9, 9}, {0, 9}}},
                                  wide = {{{-0x1p30, 0}, {0x1p30, 0}, {0x1p30, 9}, {-0x1p30, 9}}};
    const GuardedRecord made(p->uStructSize);
    EXPECT_EQ(R_WarpBitmap(nullptr, p, 0, nullptr, 5, 5, 0, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_WarpBitmap(nullptr, p, 0, good.data(), 5, 5, 4, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_WarpBitmap(nullptr, p, 0, good.data(), -1, 5, 0, 0), ERROR_INV_SIZE);
    EXPECT_EQ(R_WarpBitmap(nullptr, p, 0, wide.data(), 0, 5, 0, 0), ERROR_INV_SIZE);
    EXPECT_EQ(R_WarpBitmap(made, p, 283, good.data(), 5, 5, 0, 0), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_WarpBitmap(nullptr, nullptr, 0, good.data(), 5, 5, 0, 0), ERROR_INV_PARAMETER);
    for (const R_INT angle : {8901, -8901}) EXPECT_EQ(R_ShearBitmap(p, angle, 0, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_ShearBitmap(p, 100, 4, 0), ERROR_INV_PARAMETER);
    p->ViewPerspective = 9;
    EXPECT_EQ(R_ShearBitmap(p, 100, 0, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_WarpBitmap(nullptr, p, 0, good.data(), 5, 5, 0, 0), ERROR_INV_PARAMETER);
    p->ViewPerspective = TOP_LEFT;
    EXPECT_EQ(p.record(), record);
}

} // namespace
} // namespace rv::test
