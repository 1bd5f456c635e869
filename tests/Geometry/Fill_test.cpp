// Painting: every pixel inside gets the value that the bitmap has for a colour, and no other pixel changes.
#include "Support/FakeRegion.h"
#include "Support/Watcher.h"
#include "Support/World.h"

#include <gtest/gtest.h>

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

Scene randomScene(std::mt19937& random)
{
    Scene scene;
    do {
        scene.bits = allDepths()[random() % allDepths().size()];
        const auto homes = homesOf(scene.bits);
        scene.home = homes[random() % homes.size()];
        scene.structSize = random() % 2 != 0 ? BITMAPHANDLE_SIZE : BITMAPHANDLE_SIZE_SHORT;
        scene.width = static_cast<R_INT>(random() % 70 + 1);
        scene.height = static_cast<R_INT>(random() % 20 + 1);
    } while (!scene.possible());
    return scene;
}

TEST(Fill, PaintsWhatIsInsideAndNothingElse)
{
    for (unsigned seed = 1; seed <= 3000; ++seed) {
        std::mt19937 random(seed);
        const TestBitmap p(randomScene(random));
        const R_INT bits = p->BitsPerPixel;
        if ((bits == 8 || bits == 16) && random() % 2 != 0) p->Order = ORDER_GRAY;
        if (bits == 16) p->HighBit = static_cast<R_INT>(random() % 17) - 1;
        constexpr COLORREF kinds[] = {0, 0, COLOUR_PALETTE_INDEX, COLOUR_GRAY_LEVEL};
        const COLORREF colour = (static_cast<COLORREF>(random()) & 0xFFFFFF) | kinds[random() % 4];
        const auto alpha = static_cast<R_UCHAR>(random());
        const bool clears = random() % 4 == 0;
        std::optional<FakeRegion> region;
        if (random() % 2 != 0) region.emplace(p, seed % 8 == 0 ? 0 : seed);

        std::vector<uint8_t> wanted = p.pixels();
        const uint64_t value = clears ? 0 : storedAs(p, colour, alpha);
        for (R_INT y = 0; y < p->Height; ++y)
            for (R_INT x = 0; x < p->Width; ++x)
                if (!region || region->holds(y, x))
                    setPixelAt(wanted.data() + R_INT64{y} * p->BytesPerLine, x, bits, value);
        ASSERT_EQ(clears ? R_ClearBitmap(p) : R_FillBitmap2(p, colour, alpha), SUCCESS) << "seed " << seed;
        ASSERT_EQ(p.pixels(), wanted) << "seed " << seed << ", " << p.scene().text();
    }
}

TEST(Fill, LargePicturesAreAsSmallOnes)
{
    // More than the caches keep, in rows of no round number of bytes.
    const TestBitmap p({.bits = 32, .home = Home::user, .width = 3751, .height = 1801});
    ASSERT_EQ(R_FillBitmap(p, 0xFF7F01), SUCCESS);
    const std::vector<uint8_t> all = p.pixels();
    const uint64_t value = storedAs(p, 0xFF7F01, 255);
    for (size_t at = 0; at < all.size(); at += 4) ASSERT_EQ(pixelAt(all.data() + at, 0, 32), value) << at;
}

TEST(Fill, ProgressIsByRowsOnADiskOnly)
{
    using Percents = std::vector<R_INT>;
    const auto told = [](Home home, R_INT height, bool inEmptyRegion = false) {
        const TestBitmap p({.home = home, .height = height});
        std::optional<FakeRegion> region;
        if (inEmptyRegion) region.emplace(p, 0);
        const Watcher watcher;
        EXPECT_EQ(R_FillBitmap(p, 0), SUCCESS);
        return watcher.percents;
    };
    Percents each(101);
    for (R_INT percent = 0; percent <= 100; ++percent) each[static_cast<size_t>(percent)] = percent;
    EXPECT_EQ(told(Home::disk, 300), each);
    EXPECT_EQ(told(Home::disk, 3), (Percents{0, 33, 66, 100}));
    EXPECT_EQ(told(Home::disk, 300, true), Percents()) << "an empty region is no work";
    for (const Home home : {Home::conventional, Home::callbacks}) EXPECT_EQ(told(home, 300), (Percents{0, 100}));
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
        FakeRegion region(p, 7);
        region.failAt = stopAt; // the first question is about the whole
        const R_INT status = R_ClearBitmap(p);
        EXPECT_EQ(status, region.asked > stopAt ? region.answer : SUCCESS);
        EXPECT_EQ(p->nLockCount, 0);
    }
}

TEST(Fill, RefusesWhatItCannotPaint)
{
    for (const auto call :
         {+[](BITMAPHANDLE* p) { return R_FillBitmap(p, 0); }, +[](BITMAPHANDLE* p) { return R_ClearBitmap(p); }}) {
        const TestBitmap p({.bits = 24});
        EXPECT_EQ(call(nullptr), ERROR_INV_PARAMETER);
        p->BitsPerPixel = 9;
        EXPECT_EQ(call(p), ERROR_INV_BITS_PER_PIXEL);
        p->Height = 1000000;
        p->BitsPerPixel = 24;
        EXPECT_EQ(call(p), ERROR_INV_SIZE);
        p->uStructSize = 229;
        EXPECT_EQ(call(p), ERROR_INV_STRUCT_SIZE);
        p->Flags &= ~FLAG_ALLOCATED;
        EXPECT_EQ(call(p), ERROR_INV_PARAMETER) << "pixels are asked for first";
        p->uStructSize = BITMAPHANDLE_SIZE;
        p->Height = p.scene().height;
        p->Flags |= FLAG_ALLOCATED;
    }
}

} // namespace
} // namespace rv::test
