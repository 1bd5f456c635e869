// The line resizer, against the rule of each pixel and row.
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>

namespace rv::test {
namespace {

/// A resizer that is stopped in the end.
struct Line {
    Line(R_INT oldWidth, R_INT oldHeight, R_INT newWidth, R_INT newHeight)
    {
        EXPECT_EQ(R_StartResize(oldWidth, oldHeight, newWidth, newHeight, &state), SUCCESS);
    }
    ~Line() { EXPECT_EQ(R_StopResize(state), SUCCESS); }
    R_INT feed(void* row, R_INT y, R_INT bits = 8)
    {
        const R_INT answer = R_Resize(row, y, bits, &width, &repeat, state);
        EXPECT_EQ(answer, repeat);
        return answer;
    }
    void* state = nullptr;
    R_INT width = -1, repeat = -1;
};

size_t bytesOf(R_INT width, R_INT bits) { return static_cast<size_t>((width * bits + 7) / 8); }

TEST(Resize, RowsInTheirOwnBuffer)
{
    std::mt19937 random(17);
    const auto upTo = [&random](unsigned limit) { return static_cast<R_INT>(1 + random() % limit); };
    for (const R_INT bits : allDepths()) {
        for (unsigned seed = 1; seed <= 120; ++seed) {
            const R_INT from = upTo(seed % 4 == 0 ? 9 : 300), to = upTo(seed % 5 == 0 ? 9 : 300);
            const R_INT height = upTo(12), newHeight = upTo(40), y = upTo(12) % height;
            const auto old = randomPixels(from, 1, bits, static_cast<R_UINT>(bytesOf(from, bits)), seed);
            const GuardedBuffer row(std::max(old.size(), bytesOf(to, bits)));
            std::copy(old.begin(), old.end(), row.begin());
            std::vector<uint8_t> wanted(from == to ? old : std::vector<uint8_t>(bytesOf(to, bits)));
            for (R_INT x = 0; x < to; ++x)
                setPixelAt(wanted.data(), x, bits, pixelAt(old.data(), R_INT64{x} * from / to, bits));

            Line line(from, height, to, newHeight);
            const R_INT repeats = (y + 1) * newHeight / height - y * newHeight / height;
            {
                std::optional<NoMemory> none; // in which it is slower, but no other
                if (seed % 3 == 0) none.emplace();
                ASSERT_EQ(line.feed(row.data(), y, bits), repeats);
            }
            ASSERT_EQ(line.width, to);
            if (repeats == 0) wanted = old;
            ASSERT_EQ(std::vector<uint8_t>(row.data(), row.data() + wanted.size()), wanted)
                << bits << " bits, " << from << " to " << to << ", seed " << seed;
        }
    }
}

TEST(Resize, RepeatsOfRowsInAnyOrder)
{
    constexpr R_INT most = 2147483647;
    uint8_t row[8] = {};
    std::mt19937 random(3);
    for (int i = 0; i < 60; ++i) {
        const auto oldHeight = static_cast<R_INT>(1 + random() % 40), newHeight = static_cast<R_INT>(1 + random() % 90);
        if (oldHeight == newHeight) continue;
        const auto rule = [=](R_INT64 y) { return y * newHeight / oldHeight; };
        Line line(8, oldHeight, 8, newHeight);
        for (R_INT y = 0; y < oldHeight; ++y) ASSERT_EQ(line.feed(row, y), rule(y + 1) - rule(y));
        R_INT up = line.feed(row, oldHeight - 1);
        for (R_INT y = oldHeight - 2; y >= 0; --y) {
            const bool more = R_INT64{y} * newHeight % oldHeight < newHeight % oldHeight;
            ASSERT_EQ(line.feed(row, y), newHeight / oldHeight + more) << "upwards";
            up += line.repeat;
        }
        EXPECT_TRUE(up == newHeight || up == newHeight + 1) << oldHeight << " to " << newHeight << ": " << up;
        for (R_INT y = 0; y < oldHeight; y += 2) ASSERT_EQ(line.feed(row, y), rule(y + 1) - rule(y)) << "out of order";
    }
    Line high(8, most, 8, most - 1);
    EXPECT_EQ(high.feed(row, most - 1), 1) << "products of more than 32 bits";
}

TEST(Resize, SizesAndStatesThatAreNone)
{
    const struct {
        R_INT oldWidth, oldHeight, newWidth, newHeight, width;
    } derived[] = {{100, 50, 0, 25, 50}, {3, 2, 0, 1, 2},   {5, 2, 0, 1, 2},           {7, 2, 0, 1, 4},
                   {1, 3, 0, 1, -13},    {2, 4, 0, 1, -13}, {1, 1, 0, 0, -13},         {1, 1, 0, -1, -13},
                   {0, 1, 1, 1, -13},    {1, 1, 5, 2, 5},   {2147483647, 1, 0, 2, -13}};
    uint8_t row[8] = {};
    R_INT width = 0, repeat = 0;
    for (const auto& c : derived) {
        void* state = nullptr;
        const R_INT status = R_StartResize(c.oldWidth, c.oldHeight, c.newWidth, c.newHeight, &state);
        EXPECT_EQ(status, c.width < 0 ? ERROR_INV_PARAMETER : SUCCESS) << c.oldWidth << " " << c.newHeight;
        if (status != SUCCESS) continue;
        EXPECT_GE(R_Resize(row, 0, 1, &width, &repeat, state), 0);
        EXPECT_EQ(width, c.width);
        EXPECT_EQ(R_Resize(row, 0, 1, nullptr, &repeat, state), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_Resize(row, c.oldHeight, 1, &width, &repeat, state), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_Resize(row, 0, 9, &width, &repeat, state), ERROR_INV_BITS_PER_PIXEL);
        EXPECT_EQ(R_StopResizeBitmap(state), ERROR_INV_PARAMETER) << "a state of another kind";
        EXPECT_EQ(R_StopResize(state), SUCCESS);
    }
    uint64_t nobodys[64] = {};
    EXPECT_EQ(R_Resize(row, 0, 8, &width, &repeat, nobodys), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_StopResize(nobodys), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetResizedRowCol(nobodys, row, 0, 0, 1), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_StartResize(1, 1, 1, 1, nullptr), ERROR_INV_PARAMETER);
}

TEST(Resize, AnyWalkOfTheKernels)
{
    std::mt19937 random(29);
    const auto upTo = [&random](unsigned limit) { return static_cast<R_UINT>(random() % (limit + 1)); };
    for (int i = 0; i < 4000; ++i) {
        const R_INT bits = allDepths()[upTo(13)];
        const R_UINT first = upTo(20), error = upTo(30), increment = upTo(30), denominator = upTo(20),
                     count = upTo(200);
        const auto step = static_cast<R_INT>(upTo(3));
        const bool grows = upTo(2) == 0;
        std::vector<R_INT64> places;
        R_INT64 x = first;
        for (R_UINT j = 0, e = error; j < count; ++j, x += grows ? 0 : step) {
            places.push_back(x);
            e += increment;
            if (e < denominator) continue;
            ++x;
            e -= denominator;
        }
        const auto source = randomPixels(static_cast<R_INT>(x + 1), 1, bits, static_cast<R_UINT>(x * 8 + 8), 5);
        const R_UINT zeroed = bits < 8 || bits == 12 ? upTo(300) : 0;
        std::vector<uint8_t> wanted(std::max<size_t>(bytesOf(static_cast<R_INT>(count), bits), zeroed));
        for (size_t j = 0; j < count; ++j)
            setPixelAt(wanted.data(), static_cast<R_INT64>(j), bits, pixelAt(source.data(), places[j], bits));
        for (const auto kernel : {R_GetResizedScanLine, R_ReverseGetResizedScanLine}) {
            const GuardedBuffer target(wanted.size());
            kernel(bits, zeroed, first, step, error, increment, source.data(), target.data(), count, denominator,
                   grows);
            ASSERT_EQ(std::vector<uint8_t>(target.begin(), target.end()), wanted) << i << ", " << bits << " bits";
        }
    }
}

} // namespace
} // namespace rv::test
