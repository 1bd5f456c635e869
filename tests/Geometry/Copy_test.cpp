// Duplicates, copies and rectangles, against a model that moves one pixel at a time.
#include "Internal/R_Int.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

namespace rv::test {
namespace {

constexpr R_UINT kMemories[] = {MEM_CONVENTIONAL, MEM_DISK, MEM_TILED, MEM_COMPRESSED | MEM_CONVENTIONAL,
                                MEM_SUPER_COMPRESSED | MEM_CONVENTIONAL};

/// A record that a call fills; its bitmap is freed.
struct Made : GuardedRecord {
    explicit Made(R_UINT structSize = BITMAPHANDLE_SIZE) : GuardedRecord(structSize) {}
    ~Made() { R_FreeBitmap(get()); }
};

std::vector<uint8_t> rowsOf(BITMAPHANDLE* p)
{
    const size_t pitch = p->BytesPerLine;
    std::vector<uint8_t> rows(pitch * static_cast<size_t>(p->Height));
    EXPECT_EQ(R_AccessBitmap(p), SUCCESS);
    for (size_t row = 0; row * pitch < rows.size(); ++row)
        EXPECT_GT(R_GetBitmapRow(p, rows.data() + row * pitch, static_cast<R_INT>(row), pitch), 0);
    EXPECT_EQ(R_ReleaseBitmap(p), SUCCESS);
    return rows;
}

struct Rectangle {
    R_INT left, top, width, height;
};

/// The rows of a bitmap that has a rectangle's pixels, and zeros behind them.
std::vector<uint8_t> modelOf(const TestBitmap& source, const Rectangle& r)
{
    const auto rows = source.pixels();
    const R_INT bits = source->BitsPerPixel;
    const size_t pitch = (static_cast<size_t>(r.width) * static_cast<size_t>(bits) + 31) / 32 * 4;
    std::vector<uint8_t> model(pitch * static_cast<size_t>(r.height));
    for (R_INT y = 0; y < r.height; ++y)
        for (R_INT x = 0; x < r.width; ++x)
            setPixelAt(model.data() + pitch * static_cast<size_t>(y), x, bits,
                       pixelAt(rows.data() + R_INT64{r.top + y} * source->BytesPerLine, r.left + x, bits));
    return model;
}

Rectangle within(std::mt19937& random, R_INT width, R_INT height)
{
    const auto pick = [&](R_INT limit) { return static_cast<R_INT>(random() % static_cast<unsigned>(limit)); };
    const R_INT left = pick(width), top = pick(height);
    return {left, top, 1 + pick(width - left), 1 + pick(height - top)};
}

TEST(Copy, RectanglesOfEveryDepthAndPlacement)
{
    const LiveBlocks live;
    std::mt19937 random(31);
    const auto upTo = [&](unsigned limit) { return static_cast<R_INT>(1 + random() % limit); };
    for (const R_INT bits : allDepths()) {
        for (const Home home : homesOf(bits)) {
            for (unsigned seed = 1; seed <= 10; ++seed) {
                const R_UINT size = seed % 2 != 0 ? BITMAPHANDLE_SIZE : BITMAPHANDLE_SIZE_SHORT;
                const Scene scene{bits, home, size, upTo(seed % 8 == 0 ? 700 : 90), upTo(9), seed};
                if (!scene.possible()) continue;
                const TestBitmap source(scene);
                const Rectangle r = within(random, scene.width, scene.height);
                const auto wanted = modelOf(source, r), before = source.pixels();
                const auto width = static_cast<R_UINT>(r.width), height = static_cast<R_UINT>(r.height);
                Made made(size), placed, copy;
                ASSERT_EQ(R_CopyBitmapRect(made, source, size, r.left, r.top, width, height), SUCCESS);
                ASSERT_EQ(rowsOf(made), wanted) << scene.text() << ", from " << r.left << ", " << r.top;
                const R_UINT memory = kMemories[seed % 5];
                ASSERT_EQ(R_CopyBitmapRect2(placed, source, BITMAPHANDLE_SIZE, r.left, r.top, width, height, memory),
                          SUCCESS);
                ASSERT_EQ(rowsOf(placed), wanted) << scene.text() << ", to " << memory;
                ASSERT_EQ(R_CopyBitmap2(copy, source, BITMAPHANDLE_SIZE, memory), SUCCESS);
                ASSERT_EQ(rowsOf(copy), before) << scene.text() << ", to " << memory;
                ASSERT_EQ(source.pixels(), before);
                // What lies outside is cut off, and so the bitmap's own right edge can be named in two ways.
                const bool last = r.left + r.width == scene.width;
                ASSERT_EQ(R_TrimBitmap(source, r.left, r.top, last ? 0x80000000u : width, height), SUCCESS);
                ASSERT_EQ(source.pixels(), wanted) << scene.text() << ", in place";
                ASSERT_EQ(source->uStructSize, size);
                if (home != Home::callbacks) continue;
                ASSERT_NE(source->Addr.Pointer, nullptr) << "the callback's own note";
            }
        }
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(Copy, RunsOfAnyWidthStayAsARowIsEncoded)
{
    std::mt19937 random(5);
    for (const R_INT width : {300, 65535, 65536, 200000}) {
        for (int i = 0; i < 12; ++i) {
            const TestBitmap p({.bits = 1, .home = Home::compressed, .width = width, .height = 2});
            auto rows = p.pixels();
            for (size_t byte = 0; byte < rows.size(); ++byte) rows[byte] = (byte >> (4 + i)) % 2 == 0 ? 0 : 0xFF;
            p.setPixels(rows);
            const Rectangle r = within(random, width, 2);
            auto row = modelOf(p, r);
            ASSERT_EQ(R_TrimBitmap(p, r.left, r.top, static_cast<R_UINT>(r.width), 1), SUCCESS);
            ASSERT_NE(p->Flags & FLAG_COMPRESSED, 0u);
            std::vector<R_UINT16> wanted(static_cast<size_t>(r.width) + 1), runs(wanted.size());
            ASSERT_EQ(R_CompressRow(wanted.data(), row.data(), 0, r.width), r.width);
            ASSERT_EQ(R_GetBitmapRowCompressed(p, runs.data(), runs.size() * 2, 0, 1), 1);
            EXPECT_EQ(runs, wanted) << width << ": " << r.left << " + " << r.width;
        }
    }
    // Runs of 0 in the middle are a caller's way to say the same, and may be too many for a piece.
    const TestBitmap odd({.bits = 1, .home = Home::compressed, .width = 12, .height = 1});
    R_UINT16 runs[] = {5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 6};
    ASSERT_EQ(R_PutBitmapRowCompressed(odd, runs, sizeof runs, 0, 1), 1);
    const auto wanted = modelOf(odd, {4, 0, 3, 1});
    ASSERT_EQ(R_TrimBitmap(odd, 4, 0, 3, 1), SUCCESS);
    EXPECT_EQ(odd.pixels(), wanted);
}

TEST(Copy, DataMovesWhatBothHave)
{
    for (const R_INT width : {30, 200}) {
        for (const Home from : homesOf(1)) {
            for (const Home to : homesOf(1)) {
                const TestBitmap source({.bits = 1, .home = from, .width = 100, .height = 5});
                const TestBitmap target({.bits = 1, .home = to, .width = width, .height = width == 30 ? 9 : 3});
                auto wanted = target.pixels();
                const auto rows = source.pixels();
                const size_t pitch = target->BytesPerLine, bytes = std::min<size_t>(pitch, 16);
                for (size_t row = 0; row < (width == 30 ? 5 : 3); ++row) {
                    std::fill_n(wanted.data() + row * pitch, pitch, uint8_t{0});
                    std::copy_n(rows.data() + row * 16, bytes, wanted.data() + row * pitch);
                    if (to == Home::compressed && width == 30) wanted[row * pitch + 3] &= 0xFC; // none behind the last
                }
                ASSERT_EQ(R_CopyBitmapData(target, source), SUCCESS);
                ASSERT_EQ(target.pixels(), wanted) << source.scene().text() << " to " << target.scene().text();
            }
        }
    }
}

TEST(Duplicate, TakesOverWhatDescribesTheImage)
{
    RGBQUAD lut[4] = {};
    const TestBitmap gray({.bits = 16}), indexed({.bits = 4});
    gray->Order = ORDER_GRAY;
    gray->ViewPerspective = RIGHT_TOP;
    gray->pLUT = lut;
    gray->HighBit = 11;
    gray->Transparency = 0x04001234;
    constexpr R_UINT flags =
        FLAG_WAIT_USER_INPUT | FLAG_SIGNED | FLAG_NO_CLIP | FLAG_PREMULTIPLY_ALPHA | FLAG_NON_LINEAR_LUT;
    gray->Flags |= flags | FLAG_INTERLACED;
    gray->pDitherData = lut;
    Made same, colour(BITMAPHANDLE_SIZE_SHORT), shared, owned;
    ASSERT_EQ(R_SetBitmapNewPalette(gray, reinterpret_cast<const RGBQUAD*>("to show it with"), 4), SUCCESS);
    ASSERT_EQ(R_DupBitmapNewDim(same, gray, BITMAPHANDLE_SIZE, 3, 4, 16, 0x0E), SUCCESS);
    EXPECT_TRUE(same->nColors == 4 && std::memcmp(same->pPalette, gray->pPalette, 16) == 0);
    EXPECT_EQ(same->Flags, flags);
    EXPECT_TRUE(same->Order == ORDER_GRAY && same->HighBit == 11 && same->pLUT == lut && same->Width == 3);
    EXPECT_TRUE(same->ViewPerspective == RIGHT_TOP && same->Transparency == 0x04001234 && same->pDitherData == nullptr);
    ASSERT_EQ(R_DupBitmapNewDim(colour, gray, BITMAPHANDLE_SIZE_SHORT, 3, 4, 24, 0x0E), SUCCESS);
    EXPECT_TRUE(colour->Order == ORDER_BGR && colour->HighBit == 7 && colour->Transparency == 0x121212);

    indexed->Background = 0x01000003;
    ASSERT_EQ(R_DupBitmapNewDim(shared, indexed, BITMAPHANDLE_SIZE, 9, 9, 4, DUP_ALLOCATE), SUCCESS);
    EXPECT_EQ(shared->pPalette, indexed->pPalette);
    R_FreeDuplicateBitmap(shared, indexed);
    ASSERT_EQ(R_DupBitmapNewDim(owned, indexed, BITMAPHANDLE_SIZE, 9, 9, 4, 0xBF), SUCCESS);
    EXPECT_TRUE(owned->pPalette != indexed->pPalette && owned->nColors == 16 && owned->Background == 0x01000003);
}

/// Callbacks that count, and give the copy callbacks of its own when asked to.
struct Watch {
    int begun = 0, ended = 0;
    R_INT endStatus = 7, answer = SUCCESS;
    BITMAPHANDLEDATACALLBACKS callbacks = callbacksFor(this);
    Watch()
    {
        callbacks.BeginCopyBitmapDataCallback = [](BITMAPHANDLE*, R_UINT, ALLOCATIONINFO*,
                                                   BITMAPHANDLEDATACALLBACKS* copy, void* user) {
            auto* const self = static_cast<Watch*>(user);
            ++self->begun;
            copy->pUserData = user;
            return self->answer;
        };
        callbacks.EndCopyBitmapDataCallback = [](BITMAPHANDLE*, BITMAPHANDLE*, R_INT status, void* user) {
            auto* const self = static_cast<Watch*>(user);
            ++self->ended;
            self->endStatus = status;
            return SUCCESS;
        };
    }
};

TEST(Copy, WhatIsTheCallersStaysInPlace)
{
    for (const R_INT answer : {SUCCESS, SUCCESS_ABORT}) {
        const LiveBlocks live;
        const TestBitmap p({});
        Watch watch;
        watch.answer = answer;
        int overlays = 0, region = 0;
        ASSERT_EQ(R_SetBitmapDataCallbacks(p, &watch.callbacks), SUCCESS);
        ASSERT_EQ(R_SetBitmapExtraData(p, 0, 4, "abc"), SUCCESS);
        p->pOverlays = &overlays;
        p->pRgnInfo = &region;
        ASSERT_EQ(R_AccessBitmap(p), SUCCESS);
        ASSERT_EQ(R_CopyBitmapRect(p, p, BITMAPHANDLE_SIZE_SHORT, 1, 1, 3, 3), SUCCESS);
        ASSERT_EQ(R_ReleaseBitmap(p), SUCCESS);
        EXPECT_TRUE(p->pOverlays == &overlays && p->pRgnInfo == &region && p->nLockCount == 0);
        EXPECT_TRUE(p->ExtraDataSize == 4 && std::strcmp(static_cast<char*>(p->pExtraData), "abc") == 0);
        EXPECT_TRUE(watch.begun == 1 && watch.ended == 1 && watch.endStatus == SUCCESS);
        // The new pixels' own callbacks, or else those that were there.
        EXPECT_EQ(p->pDataCallbacks->EndCopyBitmapDataCallback != nullptr, answer == SUCCESS_ABORT);
        R_FreeBitmap(p);
        EXPECT_EQ(live.count(), 0) << live.text();
    }
}

TEST(Copy, AbortLeavesTheSourceAndNoCopy)
{
    static int calls;
    const auto stop = [](R_INT, void*) { return --calls > 0 ? SUCCESS : -100; };
    const TestBitmap p({});
    Watch watch;
    ASSERT_EQ(R_SetBitmapDataCallbacks(p, &watch.callbacks), SUCCESS);
    const auto record = p.record(), pixels = p.pixels();
    for (int nth = 1; nth <= p->Height + 1; ++nth) {
        for (int way = 0; way < 4; ++way) {
            const LiveBlocks live;
            Made made;
            calls = nth;
            ASSERT_EQ(R_SetCopyStatusCallBack(stop, nullptr, nullptr, nullptr), SUCCESS);
            R_INT status = -100;
            if (way == 0) status = R_CopyBitmap(made, p, BITMAPHANDLE_SIZE);
            if (way == 1) status = R_CopyBitmap2(made, p, BITMAPHANDLE_SIZE, MEM_DISK);
            if (way == 2) status = R_TrimBitmap(p, 2, 0, 9, 11);
            if (way == 3) status = R_CopyBitmapRect2(made, p, BITMAPHANDLE_SIZE, 2, 0, 9, 11, MEM_CONVENTIONAL);
            ASSERT_EQ(R_SetCopyStatusCallBack(nullptr, nullptr, nullptr, nullptr), SUCCESS);
            EXPECT_EQ(status, -100) << nth << ", way " << way;
            EXPECT_EQ(live.count(), 0) << live.text();
            EXPECT_TRUE(watch.ended == watch.begun && watch.endStatus == -100);
        }
    }
    EXPECT_TRUE(p.record() == record && p.pixels() == pixels);
}

TEST(Copy, RefusesWhatItCannotCopy)
{
    const TestBitmap p({.width = 10, .height = 10});
    Made made;
    EXPECT_EQ(R_CopyBitmap(p, p, 1), SUCCESS);
    EXPECT_EQ(R_CopyBitmap(made, p, 1), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_DupBitmapNewDim(made, p, 284, 0, 0, 0, 0), ERROR_INV_BITS_PER_PIXEL);
    EXPECT_EQ(R_CopyBitmapRect(made, p, 284, 1, 0, 10, 1), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_CopyBitmapRect(made, p, 284, 0, 0, 0xFFFFFFFF, 1), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_CopyBitmapRect(made, p, 284, 3, 3, 0, 1), ERROR_INV_SIZE);
    EXPECT_EQ(R_TrimBitmap(p, -5, 0, 5, 1), ERROR_INV_SIZE);

    // So wide that the duplicate's rows, whose bits are counted in 32 bits, cannot hold it.
    BITMAPHANDLE wide = *p.get();
    wide.Width = 0x20000010;
    wide.BytesPerLine = 0x20000010;
    wide.Size = wide.Size64 = R_UINT64{10} * 0x20000010;
    EXPECT_EQ(R_CopyBitmapRect(made, &wide, 284, 0, 0, 0x20000010, 1), ERROR_INV_SIZE);
    EXPECT_EQ(R_CopyBitmap(made, &wide, 284), ERROR_INV_SIZE);
}

} // namespace
} // namespace rv::test
