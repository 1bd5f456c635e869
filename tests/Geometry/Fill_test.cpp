// Painting: every pixel inside gets the value that the bitmap has for a colour, and no other pixel changes.
#include "Support/FakeRegion.h"
#include "Support/Watcher.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <random>

namespace rv::test {
namespace {

/// The bits that stand for a colour in such a bitmap, by way of a single pixel; with the alpha that goes with it.
uint64_t storedAs(const TestBitmap& like, COLORREF colour, R_UCHAR alpha)
{
    const TestBitmap one({.bits = like->BitsPerPixel, .width = 1, .height = 1});
    one->Order = like->Order;
    one->HighBit = like->HighBit;
    EXPECT_EQ(R_CopyBitmapPalette(one, like), SUCCESS);
    EXPECT_EQ(R_PutPixelColor(one, 0, 0, colour), SUCCESS);
    const uint64_t bits = pixelAt(one.pixels().data(), 0, like->BitsPerPixel);
    if (like->BitsPerPixel == 32) return (bits & 0xFFFFFF) | uint64_t{alpha} << 24;
    return like->BitsPerPixel == 64 ? (bits & 0xFFFFFFFFFFFF) | uint64_t{alpha * 257u} << 48 : bits;
}

/// One way of painting a random bitmap.
struct Job {
    explicit Job(unsigned seed) : random(seed), bitmap(scene(seed))
    {
        const R_INT bits = bitmap->BitsPerPixel;
        if ((bits == 8 || bits == 16) && random() % 2 != 0) bitmap->Order = ORDER_GRAY;
        if (bits == 16) bitmap->HighBit = static_cast<R_INT>(random() % 17) - 1;
        constexpr COLORREF kinds[] = {0, 0, COLOUR_PALETTE_INDEX, COLOUR_GRAY_LEVEL};
        colour = (static_cast<COLORREF>(random()) & 0xFFFFFF) | kinds[random() % 4];
        alpha = static_cast<R_UCHAR>(random());
        clears = random() % 4 == 0;
        if (random() % 2 != 0) region.emplace(bitmap, seed % 8 == 0 ? 0 : seed);
    }
    Scene scene(unsigned seed)
    {
        Scene s;
        do {
            s.bits = allDepths()[random() % allDepths().size()];
            const auto homes = homesOf(s.bits);
            s.home = homes[random() % homes.size()];
            s.structSize = random() % 2 != 0 ? BITMAPHANDLE_SIZE : BITMAPHANDLE_SIZE_SHORT;
            s.width = static_cast<R_INT>(random() % 70 + 1);
            s.height = static_cast<R_INT>(random() % 20 + 1);
            s.seed = seed;
        } while (!s.possible());
        return s;
    }
    R_INT paint()
    {
        if (clears) return R_ClearBitmap(bitmap);
        return alpha == 255 ? R_FillBitmap(bitmap, colour) : R_FillBitmap2(bitmap, colour, alpha);
    }
    std::vector<uint8_t> model() const
    {
        std::vector<uint8_t> rows = bitmap.pixels();
        const uint64_t value = clears ? 0 : storedAs(bitmap, colour, alpha);
        for (R_INT y = 0; y < bitmap->Height; ++y)
            for (R_INT x = 0; x < bitmap->Width; ++x)
                if (!region || region->holds(y, x))
                    setPixelAt(rows.data() + R_INT64{y} * bitmap->BytesPerLine, x, bitmap->BitsPerPixel, value);
        return rows;
    }

    std::mt19937 random;
    TestBitmap bitmap;
    COLORREF colour;
    R_UCHAR alpha;
    bool clears;
    std::optional<FakeRegion> region;
};

TEST(Fill, PaintsWhatIsInsideAndNothingElse)
{
    for (unsigned seed = 1; seed <= 3000; ++seed) {
        Job job(seed);
        const auto wanted = job.model();
        const auto record = job.bitmap.record();
        ASSERT_EQ(job.paint(), SUCCESS) << "seed " << seed << ", " << job.bitmap.scene().text();
        ASSERT_EQ(job.bitmap.pixels(), wanted) << "seed " << seed << ", " << job.bitmap.scene().text();
        const bool keepsSize = job.bitmap.scene().home != Home::compressed; // runs take as many bytes as they take
        ASSERT_TRUE(!keepsSize || job.bitmap.record() == record) << "seed " << seed;
    }
}

TEST(Fill, LargePicturesAreAsSmallOnes)
{
    // More than the caches keep, in rows of no round number of bytes.
    for (const R_INT bits : {12, 24}) {
        const R_INT width = 15009 * 8 / bits - 3;
        const TestBitmap p({.bits = bits, .home = Home::user, .width = width, .height = 1801});
        ASSERT_EQ(R_FillBitmap(p, 0xFF7F01), SUCCESS);
        const std::vector<uint8_t> all = p.pixels();
        std::vector<uint8_t> row(p->BytesPerLine);
        const uint64_t value = storedAs(p, 0xFF7F01, 255);
        for (R_INT x = 0; x < width; ++x) setPixelAt(row.data(), x, bits, value);
        for (size_t at = 0; at < all.size(); at += row.size())
            ASSERT_TRUE(std::equal(row.begin(), row.end(), all.begin() + static_cast<long>(at))) << at / row.size();
    }
}

using Operation = std::function<R_INT(BITMAPHANDLE*)>;
const Operation kOperations[] = {[](BITMAPHANDLE* p) { return R_FillBitmap(p, 0); },
                                 [](BITMAPHANDLE* p) { return R_FillBitmap2(p, 0x123456, 7); }, R_ClearBitmap};

TEST(Fill, ProgressIsByRowsOnADiskOnly)
{
    using Percents = std::vector<R_INT>;
    Percents each(101);
    for (R_INT percent = 0; percent <= 100; ++percent) each[static_cast<size_t>(percent)] = percent;
    const auto told = [](const Operation& call, Home home, R_INT height, unsigned region = 99) {
        const TestBitmap p({.home = home, .height = height});
        std::optional<FakeRegion> inside;
        if (region != 99) inside.emplace(p, region);
        const Watcher watcher;
        EXPECT_EQ(call(p.get()), SUCCESS);
        return watcher.percents;
    };
    for (const Operation& call : kOperations) {
        EXPECT_EQ(told(call, Home::disk, 300), each);
        EXPECT_EQ(told(call, Home::disk, 3), (Percents{0, 33, 66, 100}));
        for (const Home home : {Home::conventional, Home::callbacks, Home::tiled})
            EXPECT_EQ(told(call, home, 300), (Percents{0, 100}));
        for (const Home home : {Home::disk, Home::conventional})
            EXPECT_EQ(told(call, home, 300, 0), Percents()) << "an empty region is no work";
        EXPECT_EQ(told(call, Home::disk, 300, 5).back(), 100);
    }
}

TEST(Fill, WhoEndsItLeavesWholeRows)
{
    for (int stopAt = 0; stopAt <= 12; ++stopAt) {
        const TestBitmap p({.bits = 5, .home = Home::disk, .height = 12});
        std::vector<uint8_t> wanted = p.pixels();
        std::fill_n(wanted.begin(), static_cast<R_UINT>(stopAt) * p->BytesPerLine, uint8_t{0});
        {
            const Watcher watcher(stopAt);
            EXPECT_EQ(R_ClearBitmap(p), -100);
        }
        EXPECT_EQ(p.pixels(), wanted) << "ended after " << stopAt << " rows";
        EXPECT_EQ(p->nLockCount, 0);
    }
    for (int failAt = 0; failAt <= 11; ++failAt) { // the first question is about the whole
        const TestBitmap p({.height = 11});
        FakeRegion region(p, 7);
        region.failAt = failAt;
        const R_INT status = R_ClearBitmap(p);
        EXPECT_EQ(status, region.asked > failAt ? region.answer : SUCCESS);
        EXPECT_EQ(p->nLockCount, 0);
    }
}

TEST(Fill, RefusesWhatItCannotPaint)
{
    for (const Operation& call : kOperations) {
        EXPECT_EQ(call(nullptr), ERROR_INV_PARAMETER);
        const TestBitmap p({.bits = 24});
        const auto after = [&](auto BITMAPHANDLE::*field, auto value) {
            const auto kept = p.get()->*field;
            p.get()->*field = static_cast<decltype(kept)>(value);
            const R_INT status = call(p.get());
            p.get()->*field = kept;
            return status;
        };
        const auto before = p.pixels();
        EXPECT_EQ(after(&BITMAPHANDLE::Flags, 0), ERROR_INV_PARAMETER);
        EXPECT_EQ(after(&BITMAPHANDLE::uStructSize, 229), ERROR_INV_STRUCT_SIZE);
        EXPECT_EQ(after(&BITMAPHANDLE::BytesPerLine, 3), ERROR_INV_SIZE);
        EXPECT_EQ(after(&BITMAPHANDLE::Height, 1000000), ERROR_INV_SIZE);
        EXPECT_EQ(after(&BITMAPHANDLE::BitsPerPixel, 9), ERROR_INV_BITS_PER_PIXEL);
        EXPECT_EQ(p.pixels(), before);
    }
}

} // namespace
} // namespace rv::test
