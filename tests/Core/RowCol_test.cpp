#include "Kernel/Pixels/BitCopy.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace rv::test {
namespace {

TEST(RowCalls, AnswerByteCountsAndCodes)
{
    Scene scene;
    scene.bits = 24;
    scene.width = 3;
    const TestBitmap p(scene);
    uint8_t row[12];
    EXPECT_EQ(R_GetBitmapRow(p.get(), row, 0, 12), 12);
    EXPECT_EQ(R_PutBitmapRow(p.get(), row, 0, 5), 5);
    EXPECT_EQ(R_GetBitmapRow(nullptr, row, 0, 12), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetBitmapRow(p.get(), nullptr, 0, 12), ERROR_INV_PARAMETER);
    BITMAPHANDLE record;
    R_InitBitmap(&record, BITMAPHANDLE_SIZE, 5, 5, 8);
    EXPECT_EQ(R_GetBitmapRow(&record, row, 0, 5), ERROR_INV_BITMAP) << "no placement";
    record.Flags |= FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY;
    EXPECT_EQ(R_PutBitmapRowCol(&record, row, 0, 1, 4), ERROR_INV_BITMAP) << "not accessed";
    record.uStructSize = 283;
    EXPECT_EQ(R_PutBitmapRow(&record, row, 0, 5), ERROR_INV_STRUCT_SIZE);
}

TEST(RowCalls, FirstByteOfAColumn)
{
    const struct {
        R_INT bits, column;
        size_t byte;
    } cases[] = {{1, 9, 1}, {2, 7, 1},  {3, 5, 1},  {4, 3, 1},  {5, 7, 4},   {6, 5, 3},   {7, 9, 7},
                 {8, 9, 9}, {12, 3, 4}, {16, 3, 6}, {24, 3, 9}, {32, 3, 12}, {48, 3, 18}, {64, 3, 24}};
    for (const auto& c : cases) {
        Scene scene;
        scene.bits = c.bits;
        const TestBitmap p(scene);
        uint8_t byte = 0;
        ASSERT_EQ(R_GetBitmapRowCol(p.get(), &byte, 3, c.column, 1), 1);
        EXPECT_EQ(byte, p.pixels()[3 * p->BytesPerLine + c.byte]) << c.bits;
    }
}

TEST(RowCalls, ReturnARowCallbacksAnswer)
{
    struct Rows {
        R_INT answer;
        R_INT column;
    } rows{0, -1};
    const TestBitmap p({});
    BITMAPHANDLEDATACALLBACKS callbacks{};
    callbacks.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE;
    callbacks.pUserData = &rows;
    callbacks.GetBitmapRowColCallback =
        callbacks.PutBitmapRowColCallback = [](BITMAPHANDLE*, void*, R_INT, R_INT column, R_SIZE, void* userData) {
            static_cast<Rows*>(userData)->column = column;
            return static_cast<Rows*>(userData)->answer;
        };
    ASSERT_EQ(R_SetBitmapDataCallbacks(p.get(), &callbacks), SUCCESS);
    uint8_t row[40] = {};
    EXPECT_EQ(R_GetBitmapRow(p.get(), row, 0, 40), 40) << "0 lets the kernel go on";
    EXPECT_EQ(rows.column, 0);
    for (const R_INT answer : {17, 1, 2, -1, -99}) {
        rows.answer = answer;
        EXPECT_EQ(R_GetBitmapRowCol(p.get(), row, 0, 6, 9), answer);
        EXPECT_EQ(R_PutBitmapRow(p.get(), row, 0, 40), answer);
        const R_SEGMENT whole{0, 37};
        EXPECT_EQ(R_PutBitmapRowSegments(p.get(), row, 0, 0, &whole, 1), answer < 0 ? answer : ERROR_FAILURE);
    }
    EXPECT_EQ(R_GetBitmapRowCol(p.get(), row, 0, 6, 9), -99);
    EXPECT_EQ(rows.column, 6);
}

TEST(RowCalls, RandomPiecesAgainstAPlainBuffer)
{
    for (const R_INT bits : allDepths()) {
        for (const Home home : allHomes()) {
            Scene scene;
            scene.bits = bits;
            scene.home = home;
            const TestBitmap p(scene);
            std::vector<uint8_t> model = p.pixels();
            std::mt19937 random(static_cast<unsigned>(bits));
            const auto below = [&](R_INT64 n) { return static_cast<R_INT>(random() % static_cast<uint64_t>(n)); };
            ASSERT_EQ(R_AccessBitmap(p.get()), SUCCESS);
            for (int step = 0; step < 300; ++step) {
                const R_INT row = below(scene.height), column = below(scene.width);
                const size_t first =
                    static_cast<size_t>(row) * p->BytesPerLine + static_cast<size_t>(column * bits / 8);
                const auto room = R_INT64{p->BytesPerLine} - column * bits / 8;
                std::vector<uint8_t> piece(static_cast<size_t>(1 + below(room)));
                if (step % 2 == 0) {
                    for (uint8_t& byte : piece) byte = static_cast<uint8_t>(random());
                    std::copy(piece.begin(), piece.end(), model.begin() + static_cast<long>(first));
                    ASSERT_EQ(R_PutBitmapRowCol(p.get(), piece.data(), row, column, piece.size()),
                              static_cast<R_SSIZE>(piece.size()));
                } else {
                    ASSERT_EQ(R_GetBitmapRowCol(p.get(), piece.data(), row, column, piece.size()),
                              static_cast<R_SSIZE>(piece.size()));
                    ASSERT_EQ(std::memcmp(piece.data(), model.data() + first, piece.size()), 0)
                        << scene.text() << ", step " << step;
                }
            }
            ASSERT_EQ(R_ReleaseBitmap(p.get()), SUCCESS);
            EXPECT_EQ(p.pixels(), model) << scene.text();
        }
    }
}

TEST(Segments, ChangeTheirPixelsAndNoOthers)
{
    for (const R_INT bits : allDepths()) {
        std::mt19937 random(static_cast<unsigned>(bits) + 100);
        const auto below = [&](R_INT n) { return static_cast<R_INT>(random() % static_cast<unsigned>(n)); };
        for (int round = 0; round < 40; ++round) {
            Scene scene;
            scene.bits = bits;
            scene.home = round % 2 == 0 ? Home::conventional : Home::callbacks;
            scene.seed = static_cast<unsigned>(round);
            const TestBitmap p(scene);
            std::vector<uint8_t> model = p.pixels();
            const R_INT row = below(scene.height), first = below(scene.width);
            const auto pieceBytes = static_cast<size_t>(((scene.width - first) * bits + 7) / 8);
            const GuardedBuffer piece(pieceBytes); // what lies behind the row is never read
            for (uint8_t& byte : piece) byte = static_cast<uint8_t>(random());
            std::vector<R_SEGMENT> segments(static_cast<size_t>(below(4)));
            for (R_SEGMENT& s : segments) s = {below(50) - 6, below(50) - 6};
            uint8_t* const modelRow = model.data() + static_cast<size_t>(row) * p->BytesPerLine;
            for (const R_SEGMENT& s : segments)
                for (R_INT x = std::max(s.nLeft, first); x < std::min(s.nRight, scene.width); ++x)
                    setPixelAt(modelRow, x, bits, pixelAt(piece.data(), x - first, bits));
            ASSERT_EQ(R_PutBitmapRowSegments(p.get(), piece.data(), row, first, segments.data(),
                                             static_cast<R_UINT>(segments.size())),
                      SUCCESS);
            ASSERT_EQ(p.pixels(), model) << scene.text();
        }
    }
}

TEST(Segments, RefuseHostileRecords)
{
    const TestBitmap p({});
    const uint8_t row[64] = {};
    const R_SEGMENT whole{-2147483647, 2147483647};
    const auto put = [&](R_INT y, R_INT x) { return R_PutBitmapRowSegments(p.get(), row, y, x, &whole, 1); };
    EXPECT_EQ(put(11, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(put(-1, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(put(0, -1), ERROR_INV_PARAMETER);
    EXPECT_EQ(put(0, 2147483647), SUCCESS) << "nothing to write";
    EXPECT_EQ(R_PutBitmapRowSegments(p.get(), row, 0, 0, nullptr, 1), ERROR_INV_PARAMETER);
    const std::vector<uint8_t> good = p.record();
    const auto restore = [&] { std::memcpy(static_cast<void*>(p.get()), good.data(), good.size()); };
    p->Width = 41; // one pixel more than the row's bytes hold
    EXPECT_EQ(put(0, 0), ERROR_INV_SIZE);
    restore();
    p->Height = 12; // one row more than the block holds
    EXPECT_EQ(put(11, 0), ERROR_INV_SIZE);
    restore();
    p->BitsPerPixel = 9;
    EXPECT_EQ(put(0, 0), ERROR_INV_BITS_PER_PIXEL);
    restore();
    p->Flags &= ~FLAG_ALLOCATED;
    EXPECT_EQ(put(0, 0), ERROR_INV_BITMAP);
    restore();
    // The 32-bit product of width and depth wraps: the record stands, and is never walked.
    BITMAPHANDLE wrapped;
    ASSERT_EQ(
        R_CreateBitmap(&wrapped, BITMAPHANDLE_SIZE, MEM_CONVENTIONAL, 0x08000001, 2, 32, 1, nullptr, 0, nullptr, 0),
        SUCCESS);
    EXPECT_EQ(wrapped.BytesPerLine, 4u);
    EXPECT_EQ(R_PutBitmapRowSegments(&wrapped, row, 0, 0, &whole, 1), ERROR_INV_SIZE);
    EXPECT_EQ(R_FlipBitmap(&wrapped), ERROR_INV_SIZE);
    R_FreeBitmap(&wrapped);
}

TEST(HostileRecords, NeverLeadOutsideTheirBlocks)
{
    for (const R_UINT size : {BITMAPHANDLE_SIZE, BITMAPHANDLE_SIZE_SHORT}) {
        const GuardedRecord p(size); // a size field that wraps when the block's slack is added, and one too small
        for (const R_UINT64 bytes : {~R_UINT64{19}, R_UINT64{16}}) {
            ASSERT_EQ(R_InitBitmap(p, size, 1000, 1000, 8), SUCCESS);
            p->Size = bytes;
            if (size == BITMAPHANDLE_SIZE) p->Size64 = bytes;
            EXPECT_NE(R_AllocateBitmap(p, MEM_TILED), SUCCESS);
            EXPECT_EQ(p->Flags & FLAG_ALLOCATED, 0u);
        }
    }
    Scene scene;
    scene.structSize = BITMAPHANDLE_SIZE_SHORT;
    const TestBitmap brief(scene);
    const R_UINT64 bytes = brief->Size;
    brief->Height = 400;
    brief->Size = 0xFFFF0001;
    EXPECT_EQ(R_FlipBitmap(brief.get()), ERROR_INV_SIZE) << "no short record has so many bytes";
    brief->Height = scene.height;
    brief->Size = bytes;
    const R_UINT64 offset = brief->DataOffset;
    brief->DataOffset = ~R_UINT64{0} - 64 * 70;
    EXPECT_NE(R_ChangeBitmapHeight(brief.get(), 12), SUCCESS);
    brief->DataOffset = offset;

    BITMAPHANDLE tiled{};
    R_InitBitmap(&tiled, BITMAPHANDLE_SIZE, 5, 5, 8);
    tiled.Flags |= FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY | FLAG_TILED; // and no tiles
    uint8_t row[8];
    EXPECT_EQ(R_GetBitmapRowCol(&tiled, row, 0, 1, 4), 4) << "a piece of a tiled row knows no failed read";
    EXPECT_EQ(R_PutBitmapRowCol(&tiled, row, 0, 1, 4), ERROR_FAILURE);
    EXPECT_LT(R_GetBitmapRow(&tiled, row, 0, 4), 0);
}

TEST(ScratchCallback, GivesTheMemoryOfStagedRows)
{
    struct Scratch {
        R_INT answer = SUCCESS;
        std::vector<std::vector<uint8_t>> blocks;
    } scratch;
    Scene scene;
    scene.home = Home::callbacks;
    const TestBitmap p(scene);
    BITMAPHANDLEDATACALLBACKS callbacks;
    ASSERT_EQ(R_GetBitmapDataCallbacks(p.get(), &callbacks), SUCCESS);
    const std::vector<uint8_t> before = p.pixels();
    static Scratch* given;
    given = &scratch;
    callbacks.GetBitmapScratchBufferCallback = [](BITMAPHANDLE*, void** buffer, R_SIZE bytes, void*) {
        *buffer = given->blocks.emplace_back(bytes).data();
        return given->answer;
    };
    ASSERT_EQ(R_SetBitmapDataCallbacks(p.get(), &callbacks), SUCCESS);
    for (const R_INT answer : {SUCCESS, SUCCESS_ABORT}) {
        scratch.answer = answer;
        EXPECT_EQ(R_FlipBitmap(p.get()), SUCCESS);
    }
    EXPECT_EQ(p.pixels(), before);
    EXPECT_EQ(scratch.blocks.size(), 4u) << "two rows at once, each in memory of its own";
    scratch.answer = -8;
    EXPECT_EQ(R_FlipBitmap(p.get()), -8);
    EXPECT_EQ(p.pixels(), before);
}

TEST(BitCopy, EveryOffsetAndLength)
{
    std::mt19937 random(5);
    for (R_INT64 count = 0; count <= 150; ++count) {
        for (R_INT64 from = 0; from < 8; ++from) {
            for (R_INT64 into = 0; into < 8; ++into) {
                const GuardedBuffer source(static_cast<size_t>((from + count + 7) / 8));
                const GuardedBuffer target(static_cast<size_t>((into + count + 7) / 8));
                for (uint8_t& byte : source) byte = static_cast<uint8_t>(random());
                for (uint8_t& byte : target) byte = static_cast<uint8_t>(random());
                std::vector<uint8_t> model(target.begin(), target.end());
                for (R_INT64 i = 0; i < count; ++i)
                    setPixelAt(model.data(), into + i, 1, pixelAt(source.data(), from + i, 1));
                copyBits(target.data(), into, source.data(), from, count);
                ASSERT_TRUE(std::equal(model.begin(), model.end(), target.begin()))
                    << count << ' ' << from << ' ' << into;
            }
        }
    }
}

} // namespace
} // namespace rv::test
