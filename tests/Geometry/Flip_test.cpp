// Flip and reverse, by pixels and by perspective, judged by the image that is displayed.
#include "Internal/R_Int.h"
#include "Support/FakeRegion.h"
#include "Support/Picture.h"
#include "Support/Watcher.h"

#include <gtest/gtest.h>

#include <cstring>

namespace rv::test {
namespace {

using Operation = R_INT (*)(BITMAPHANDLE*);

TEST(Flip, EveryPictureTurns)
{
    for (const R_INT bits : allDepths()) {
        for (R_INT perspective = TOP_LEFT; perspective <= LEFT_BOTTOM; ++perspective) {
            for (const Home home : homesOf(bits)) {
                for (const R_INT height : {1, 2, 7}) {
                    Scene scene;
                    scene.bits = bits;
                    scene.home = home;
                    scene.height = height;
                    if (!scene.possible()) continue;
                    const TestBitmap p(scene);
                    p->ViewPerspective = perspective;
                    const std::string text = scene.text() + ", perspective " + std::to_string(perspective);
                    const auto stored = p.pixels();
                    const Picture picture(p);

                    ASSERT_EQ(R_FlipBitmap(p.get()), SUCCESS) << text;
                    ASSERT_EQ(p->ViewPerspective, perspective);
                    ASSERT_TRUE(Picture(p) == picture.upsideDown()) << text;
                    ASSERT_EQ(R_ReverseBitmap(p.get()), SUCCESS) << text;
                    ASSERT_TRUE(Picture(p) == picture.upsideDown().leftToRight()) << text;
                    ASSERT_EQ(R_FlipBitmap(p.get()), SUCCESS) << text;
                    ASSERT_EQ(R_ReverseBitmap(p.get()), SUCCESS) << text;
                    ASSERT_EQ(p.pixels(), stored) << text;

                    ASSERT_EQ(R_FlipBitmapViewPerspective(p.get()), SUCCESS);
                    ASSERT_TRUE(Picture(p) == picture.upsideDown()) << text;
                    ASSERT_EQ(R_ReverseBitmapViewPerspective(p.get()), SUCCESS);
                    ASSERT_TRUE(Picture(p) == picture.upsideDown().leftToRight()) << text;
                    ASSERT_EQ(p.pixels(), stored) << text;
                }
            }
        }
    }
}

TEST(Flip, OtherPerspectivesStay)
{
    for (const R_INT perspective : {-1, 0, 9, 2147483647}) {
        const TestBitmap p({});
        p->ViewPerspective = perspective;
        for (const Operation call : {R_FlipBitmapViewPerspective, R_ReverseBitmapViewPerspective, R_FlipBitmap})
            EXPECT_EQ(call(p.get()), SUCCESS);
        EXPECT_EQ(p->ViewPerspective, perspective);
    }
}

TEST(Flip, RefusesWhatIsNoBitmap)
{
    EXPECT_EQ(R_FlipBitmap(nullptr), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_ReverseBitmap(nullptr), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_FlipBitmapViewPerspective(nullptr), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_ReverseBitmapViewPerspective(nullptr), ERROR_INV_PARAMETER);
    for (const Operation internal :
         {R_IntFlipBitmap, R_IntReverseBitmap, R_IntFlipBitmapViewPerspective, R_IntReverseBitmapViewPerspective})
        EXPECT_EQ(internal(nullptr), ERROR_INV_BITMAP);

    const GuardedRecord record(BITMAPHANDLE_SIZE_SHORT);
    ASSERT_EQ(R_InitBitmap(record, record.structSize(), 5, 5, 8), SUCCESS);
    EXPECT_EQ(R_FlipBitmap(record), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_IntFlipBitmap(record), ERROR_INV_BITMAP);
    EXPECT_EQ(R_ReverseBitmap(record), ERROR_INV_BITMAP);
    EXPECT_EQ(R_IntReverseBitmap(record), ERROR_INV_BITMAP);
    EXPECT_EQ(R_FlipBitmapViewPerspective(record), SUCCESS) << "needs no pixels";
    record->uStructSize = 229;
    EXPECT_EQ(R_FlipBitmap(record), ERROR_INV_PARAMETER) << "pixels are asked for first";
    for (const Operation call : {R_ReverseBitmap, R_FlipBitmapViewPerspective, R_ReverseBitmapViewPerspective})
        EXPECT_EQ(call(record), ERROR_INV_STRUCT_SIZE);
    record->Flags |= FLAG_ALLOCATED;
    EXPECT_EQ(R_FlipBitmap(record), ERROR_INV_STRUCT_SIZE);
}

std::vector<R_INT> percentsOf(Operation call, R_INT height)
{
    Scene scene;
    scene.height = height;
    const TestBitmap p(scene);
    const Watcher watcher;
    EXPECT_EQ(call(p.get()), SUCCESS);
    return watcher.percents;
}

TEST(Flip, ReportsProgress)
{
    using Percents = std::vector<R_INT>;
    EXPECT_EQ(percentsOf(R_FlipBitmap, 1), (Percents{0})) << "the middle row is no step";
    EXPECT_EQ(percentsOf(R_FlipBitmap, 2), (Percents{0, 100}));
    EXPECT_EQ(percentsOf(R_FlipBitmap, 3), (Percents{0, 50}));
    EXPECT_EQ(percentsOf(R_FlipBitmap, 8), (Percents{0, 25, 50, 75, 100}));
    EXPECT_EQ(percentsOf(R_ReverseBitmap, 3), (Percents{0, 33, 66, 100}));
    Percents each;
    for (R_INT percent = 0; percent <= 100; ++percent) each.push_back(percent);
    EXPECT_EQ(percentsOf(R_ReverseBitmap, 300), each);
    EXPECT_EQ(percentsOf(R_FlipBitmap, 600), each);

    const TestBitmap empty({});
    ASSERT_EQ(R_ChangeBitmapHeight(empty.get(), 0), SUCCESS);
    for (const Operation call : {R_FlipBitmap, R_ReverseBitmap}) {
        const Watcher watcher;
        EXPECT_EQ(call(empty.get()), SUCCESS);
        EXPECT_EQ(watcher.percents, (Percents{0, 100})) << "there is nothing to do";
    }
}

/// The stored rows after `calls` answers of the callback, the last of which ended the operation.
std::vector<uint8_t> stoppedModel(const TestBitmap& before, bool flip, R_INT steps)
{
    const TestBitmap whole(before.scene()); // the same picture again, turned to the end
    EXPECT_EQ(flip ? R_IntFlipBitmap(whole.get()) : R_IntReverseBitmap(whole.get()), SUCCESS);
    std::vector<uint8_t> rows = before.pixels();
    const auto done = whole.pixels();
    const size_t rowBytes = before->BytesPerLine;
    const auto height = static_cast<size_t>(before->Height);
    for (size_t i = 0; i < static_cast<size_t>(steps); ++i) {
        std::copy_n(done.begin() + static_cast<long>(i * rowBytes), rowBytes,
                    rows.begin() + static_cast<long>(i * rowBytes));
        const auto last = static_cast<long>((height - 1 - i) * rowBytes);
        if (flip) std::copy_n(done.begin() + last, rowBytes, rows.begin() + last);
    }
    return rows;
}

TEST(Flip, AbortLeavesWholeRows)
{
    for (const bool flip : {true, false}) {
        for (R_INT stopAt = 0; stopAt <= (flip ? 6 : 12); ++stopAt) {
            for (const R_INT answer : {-100, 0, 2}) {
                Scene scene;
                scene.bits = 12;
                scene.height = 12;
                const TestBitmap p(scene);
                const auto wanted = stoppedModel(p, flip, stopAt);
                {
                    const Watcher watcher(stopAt, answer);
                    EXPECT_EQ(flip ? R_FlipBitmap(p.get()) : R_ReverseBitmap(p.get()), answer);
                    EXPECT_EQ(watcher.percents.size(), static_cast<size_t>(stopAt) + 1);
                }
                EXPECT_EQ(p.pixels(), wanted) << "stopped at " << stopAt;
                EXPECT_EQ(p->nLockCount, 0);
            }
        }
    }
}

/// Rows that live with the caller; the nth call fails.
struct FailingRows {
    std::vector<uint8_t> bytes;
    int untilFailure = 0;

    static R_INT move(BITMAPHANDLE* p, void* buffer, R_INT row, R_SIZE count, void* userData, bool write)
    {
        auto* const self = static_cast<FailingRows*>(userData);
        if (--self->untilFailure == 0) return ERROR_FILE_WRITE;
        uint8_t* const stored = self->bytes.data() + R_INT64{row} * p->BytesPerLine;
        std::memcpy(write ? stored : buffer, write ? buffer : stored, count);
        return static_cast<R_INT>(count);
    }
};

TEST(Flip, AFailingRowCallLosesNoRow)
{
    for (const Operation call : {R_FlipBitmap, R_ReverseBitmap}) {
        bool failed = true;
        for (int nth = 1; failed; ++nth) {
            const TestBitmap p({});
            FailingRows rows{p.pixels(), nth};
            BITMAPHANDLEDATACALLBACKS callbacks{};
            callbacks.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE;
            callbacks.pUserData = &rows;
            callbacks.GetBitmapRowColCallback = [](BITMAPHANDLE* b, void* buffer, R_INT row, R_INT, R_SIZE count,
                                                   void* user) {
                return FailingRows::move(b, buffer, row, count, user, false);
            };
            callbacks.PutBitmapRowColCallback = [](BITMAPHANDLE* b, void* buffer, R_INT row, R_INT, R_SIZE count,
                                                   void* user) {
                return FailingRows::move(b, buffer, row, count, user, true);
            };
            ASSERT_EQ(R_SetBitmapDataCallbacks(p.get(), &callbacks), SUCCESS);
            const R_INT status = call(p.get());
            failed = rows.untilFailure <= 0;
            ASSERT_EQ(status, failed ? ERROR_FILE_WRITE : SUCCESS);
            // A flip makes four calls for each exchange, a reverse two for each row.
            const bool flip = call == R_FlipBitmap;
            const R_INT steps = failed ? (nth - 1) / (flip ? 4 : 2) : (flip ? 5 : 11);
            EXPECT_EQ(rows.bytes, stoppedModel(TestBitmap({}), flip, steps)) << "call " << nth;
            EXPECT_EQ(p->nLockCount, 0);
        }
    }
}

TEST(Flip, TheRegionTurnsWithTheRows)
{
    const TestBitmap p({});
    FakeRegion region(p, 1);
    const auto flips = [&](Operation call, R_INT perspective) {
        region.flipped = 0;
        p->ViewPerspective = perspective;
        EXPECT_EQ(call(p.get()), SUCCESS);
        return region.flipped;
    };
    EXPECT_EQ(flips(R_FlipBitmap, BOTTOM_LEFT), 1);
    EXPECT_EQ(flips(R_FlipBitmap, RIGHT_TOP), 0) << "no row changed its place";
    EXPECT_EQ(flips(R_ReverseBitmap, RIGHT_TOP), 1);
    const Operation stand = [](BITMAPHANDLE* b) { return R_ChangeBitmapViewPerspective(b, b, 0, TOP_LEFT); };
    EXPECT_EQ(flips(stand, TOP_RIGHT), 0);
    EXPECT_EQ(flips(stand, BOTTOM_LEFT), 1) << "it stays on the image";
    p->ViewPerspective = TOP_LEFT;
    {
        const Watcher watcher(1);
        EXPECT_EQ(R_FlipBitmap(p.get()), -100);
    }
    EXPECT_EQ(region.flipped, 1) << "the flip did not end";
    region.failAt = region.asked;
    EXPECT_EQ(R_FlipBitmap(p.get()), region.answer) << "the region's answer is the call's";
}

} // namespace
} // namespace rv::test
