// Perspectives: the positions that change with them, and the bitmaps.
#include "Internal/R_Int.h"
#include "Support/FailingPlatform.h"
#include "Support/Picture.h"
#include "Support/Watcher.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace rv::test {
namespace {

constexpr R_INT kSome = 2147483647;

/// A picture that is not square, in a perspective.
struct Lying : TestBitmap {
    Lying(R_INT bits, Home home, R_INT perspective, R_INT width = 37, R_INT height = 11)
        : TestBitmap({.bits = bits, .home = home, .width = width, .height = height})
    {
        get()->ViewPerspective = perspective;
        get()->XResolution = 300;
        get()->YResolution = 100;
    }
};

TEST(Perspective, PointsAndRectanglesFollowTheDisplayedPixels)
{
    for (R_INT stored = TOP_LEFT; stored <= LEFT_BOTTOM; ++stored) {
        const Lying p(32, Home::conventional, stored);
        const Picture picture(p);
        const auto rows = p.pixels();
        for (R_INT y = 0; y < picture.height; ++y) {
            for (R_INT x = 0; x < picture.width; ++x) {
                R_INT column = x, row = y;
                ASSERT_EQ(R_PointToBitmap(p, TOP_LEFT, &column, &row), SUCCESS);
                ASSERT_EQ(pixelAt(rows.data() + R_INT64{row} * p->BytesPerLine, column, 32),
                          picture.pixels[static_cast<size_t>(y * picture.width + x)]);
                RECT rect = {x, y, x + 1, y + 1}; // of that pixel
                ASSERT_EQ(R_RectToBitmap(p, TOP_LEFT, &rect), SUCCESS);
                ASSERT_TRUE(rect.left == column && rect.right == column + 1);
                ASSERT_TRUE(rect.top == row && rect.bottom == row + 1);
                ASSERT_EQ(R_PointFromBitmap(p, TOP_LEFT, &column, &row), SUCCESS);
                ASSERT_EQ(R_RectFromBitmap(p, TOP_LEFT, &rect), SUCCESS);
                ASSERT_TRUE(column == x && row == y && rect.left == x && rect.bottom == y + 1) << stored;
            }
        }
    }
}

TEST(Perspective, AChangeIsTheSameByAnyWay)
{
    // From one to another by way of a third, by the corner of a rectangle that is like no other.
    for (R_INT from = TOP_LEFT; from <= LEFT_BOTTOM; ++from) {
        for (R_INT over = TOP_LEFT; over <= LEFT_BOTTOM; ++over) {
            for (R_INT to = TOP_LEFT; to <= LEFT_BOTTOM; ++to) {
                const auto turned = [](R_INT a, R_INT b) { return (a >= LEFT_TOP) != (b >= LEFT_TOP); };
                RECT once = {1, 2, 4, 9}, twice = once;
                EXPECT_EQ(R_ChangeRectViewPerspective(from, 40, 20, to, &once), SUCCESS);
                EXPECT_EQ(R_ChangeRectViewPerspective(from, 40, 20, over, &twice), SUCCESS);
                const R_INT width = turned(from, over) ? 20 : 40;
                EXPECT_EQ(R_ChangeRectViewPerspective(over, width, 60 - width, to, &twice), SUCCESS);
                EXPECT_EQ(std::memcmp(&once, &twice, sizeof once), 0) << from << " " << over << " " << to;

                R_INT flip = -1, angle = -1;
                EXPECT_EQ(R_GetChangeViewPerspectiveParams(from, to, &flip, &angle), SUCCESS);
                EXPECT_EQ(angle % 180 == 90, turned(from, to));
            }
        }
    }
    const struct {
        R_INT from, to, flip, angle;
    } pinned[] = {{1, 3, 0, 180}, {1, 6, 0, 270}, {2, 1, 1, 180}, {2, 8, 1, 270}, {6, 1, 0, 90}, {5, 5, 0, 0}};
    for (const auto& c : pinned) {
        R_INT flip = -1, angle = -1;
        EXPECT_EQ(R_GetChangeViewPerspectiveParams(c.from, c.to, &flip, &angle), SUCCESS);
        EXPECT_TRUE(flip == c.flip && angle == c.angle) << c.from << " to " << c.to << ": " << flip << " " << angle;
    }
}

TEST(Perspective, SomeSizesAreExchangedOnceMore)
{
    // The corner of an image of 10 x 20, given as if it were stored some other way.
    const Lying p(8, Home::conventional, TOP_LEFT, 10, 20);
    for (const auto& [from, column, row] : {std::array{RIGHT_TOP, 9, 0}, {LEFT_TOP, 0, 0}, {RIGHT_BOTTOM, 19, 9}}) {
        R_INT x = 0, y = 0;
        EXPECT_EQ(R_PointToBitmap(p, from, &x, &y), SUCCESS);
        EXPECT_TRUE(x == column && y == row) << from << ": " << x << " " << y;
    }
}

TEST(Perspective, RefusesWhatIsNone)
{
    const Lying p(8, Home::conventional, TOP_LEFT);
    R_INT flip = 5, angle = 5, x = 1, y = 2;
    RECT rect = {-kSome, 1, kSome, 2};
    for (const R_INT none : {-1, 0, 9, kSome}) {
        EXPECT_EQ(R_GetChangeViewPerspectiveParams(none, 1, &flip, &angle), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_GetChangeViewPerspectiveParams(1, none, &flip, &angle), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_PointToBitmap(p, none, &x, &y), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_PointFromBitmap(p, none, &x, &y), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_RectToBitmap(p, none, &rect), SUCCESS);
        EXPECT_EQ(R_RectFromBitmap(p, none, &rect), SUCCESS);
        EXPECT_EQ(R_ChangeRectViewPerspective(none, 5, 5, 3, &rect), SUCCESS);
        EXPECT_EQ(R_ChangeRectViewPerspective(3, 5, 5, none, &rect), SUCCESS);
        EXPECT_EQ(R_ChangeBitmapViewPerspective(nullptr, p, 0, none), ERROR_INV_PARAMETER);
    }
    EXPECT_TRUE(flip == 5 && angle == 5 && x == 1 && y == 2 && rect.left == -kSome && rect.right == kSome);
    EXPECT_EQ(R_GetChangeViewPerspectiveParams(1, 1, nullptr, &angle), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_ChangeRectViewPerspective(0, 5, 5, 0, nullptr), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_PointToBitmap(p, 9, &x, nullptr), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_RectFromBitmap(nullptr, 9, &rect), ERROR_INV_PARAMETER);

    BITMAPHANDLE high, turned; // columns of more bytes than a record counts in a row
    ASSERT_EQ(R_InitBitmap(&high, BITMAPHANDLE_SIZE, 1, 70000000, 64), SUCCESS);
    high.Flags |= FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY | FLAG_MIRROR; // nothing of it is looked at
    EXPECT_EQ(R_ChangeBitmapViewPerspective(&turned, &high, BITMAPHANDLE_SIZE, RIGHT_TOP), ERROR_INV_SIZE);
    EXPECT_EQ(R_ChangeBitmapViewPerspective(p, nullptr, 0, 1), ERROR_INV_PARAMETER);

    const GuardedRecord made(BITMAPHANDLE_SIZE);
    EXPECT_EQ(R_ChangeBitmapViewPerspective(made, p, 283, 1), ERROR_INV_STRUCT_SIZE);
    p->BytesPerLine = 36;
    EXPECT_EQ(R_ChangeBitmapViewPerspective(nullptr, p, 0, 6), ERROR_INV_SIZE) << "rows that do not hold their pixels";
    p->ViewPerspective = 9;
    EXPECT_EQ(R_PointToBitmap(p, 9, &x, &y), SUCCESS) << "the two are the same";
    EXPECT_EQ(R_ChangeBitmapViewPerspective(nullptr, p, 0, 1), ERROR_INV_PARAMETER);
    p->uStructSize = 283;
    EXPECT_EQ(R_PointToBitmap(p, 9, &x, &y), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_RectToBitmap(p, 0, &rect), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_ChangeBitmapViewPerspective(nullptr, p, 0, 0), ERROR_INV_STRUCT_SIZE);
    p->uStructSize = BITMAPHANDLE_SIZE;
    p->Flags &= ~FLAG_ALLOCATED;
    EXPECT_EQ(R_ChangeBitmapViewPerspective(nullptr, p, 0, 1), ERROR_INV_PARAMETER);
    p->Flags |= FLAG_ALLOCATED;
}

TEST(ChangePerspective, TheImageStays)
{
    for (const R_INT bits : allDepths()) {
        for (const Home home : homesOf(bits)) {
            if (!Scene{.bits = bits, .home = home}.possible()) continue;
            for (R_INT from = TOP_LEFT; from <= LEFT_BOTTOM; ++from) {
                for (R_INT to = TOP_LEFT; to <= LEFT_BOTTOM; ++to) {
                    // All pairs where pixels lie in memory; elsewhere another one for each.
                    if (home != Home::conventional && (from * 3 + to + bits) % 8 != 0) continue;
                    const Lying p(bits, home, from);
                    const Picture picture(p);
                    const auto stored = p.pixels();
                    const std::string text =
                        p.scene().text() + ": " + std::to_string(from) + " to " + std::to_string(to);

                    const GuardedRecord made(p->uStructSize);
                    ASSERT_EQ(R_ChangeBitmapViewPerspective(made, p, made.structSize(), to), SUCCESS) << text;
                    EXPECT_EQ(p.pixels(), stored) << text;
                    EXPECT_TRUE(Picture(made) == picture) << text;
                    EXPECT_TRUE(made->pPalette == nullptr || made->pPalette != p->pPalette);
                    R_FreeBitmap(made);

                    ASSERT_EQ(R_ChangeBitmapViewPerspective(p, p, 0, to), SUCCESS) << text;
                    ASSERT_EQ(p->ViewPerspective, to);
                    ASSERT_TRUE(Picture(p) == picture) << text;
                    const bool sideways = (from >= LEFT_TOP) != (to >= LEFT_TOP);
                    EXPECT_EQ(p->XResolution, sideways ? 100 : 300) << "goes with the stored pixels";
                    EXPECT_EQ(p->nLockCount, 0);
                    ASSERT_EQ(R_ChangeBitmapViewPerspective(nullptr, p, 0, from), SUCCESS) << text;
                    ASSERT_EQ(p.pixels(), stored) << text;
                }
            }
        }
    }
}

TEST(ChangePerspective, LargePicturesTurnPieceByPiece)
{
    // More than a band of the target, many slabs of the source, the last ones short; and one that is in memory and
    // goes past the caches.
    for (const R_INT bits : {1, 24}) {
        const R_INT width = bits == 1 ? 16400 : 3001, height = bits == 1 ? 8700 : 2105;
        const Lying kept(bits, Home::conventional, BOTTOM_RIGHT, width, height);
        const Lying filed(bits, Home::disk, BOTTOM_RIGHT, width, height);
        for (const R_INT to : {RIGHT_TOP, BOTTOM_LEFT, RIGHT_BOTTOM, TOP_LEFT}) {
            ASSERT_EQ(R_ChangeBitmapViewPerspective(nullptr, kept, 0, to), SUCCESS);
            ASSERT_EQ(R_ChangeBitmapViewPerspective(nullptr, filed, 0, to), SUCCESS);
            ASSERT_TRUE(kept.pixels() == filed.pixels()) << bits << " bits, to " << to;
        }
        const Lying upright(bits, Home::conventional, TOP_LEFT, width, height); // the same pixels, never turned
        ASSERT_EQ(R_ReverseBitmap(upright), SUCCESS);
        ASSERT_EQ(R_FlipBitmap(upright), SUCCESS);
        ASSERT_TRUE(kept.pixels() == upright.pixels()) << bits << " bits";
    }
}

TEST(ChangePerspective, AnAbortChangesNothing)
{
    const LiveBlocks live;
    for (const Home home : {Home::conventional, Home::disk}) {
        for (const R_INT to : {TOP_RIGHT, BOTTOM_RIGHT, BOTTOM_LEFT, RIGHT_TOP}) {
            bool stopped = true;
            for (int stopAt = 0; stopped; ++stopAt) {
                const Lying p(12, home, TOP_LEFT);
                const auto record = p.record(), pixels = p.pixels();
                const GuardedRecord made(p->uStructSize);
                const Watcher watcher(stopAt, -100);
                const R_INT status = R_ChangeBitmapViewPerspective(nullptr, p, 0, to);
                stopped = watcher.percents.size() == static_cast<size_t>(stopAt) + 1;
                ASSERT_EQ(status, stopped ? -100 : SUCCESS);
                if (stopped) {
                    ASSERT_EQ(p.record(), record) << "stopped at " << stopAt;
                    ASSERT_EQ(p.pixels(), pixels) << "stopped at " << stopAt;
                } else {
                    ASSERT_EQ(watcher.percents.back(), 100);
                }
            }
        }
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

} // namespace
} // namespace rv::test
