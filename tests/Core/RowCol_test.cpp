#include "Internal/R_Int.h"
#include "Kernel/Pixels/BitCopy.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>

namespace rv::test {
namespace {

TEST(RowCalls, AnswerByteCountsAndCodes)
{
    const TestBitmap p({.bits = 24, .width = 3});
    uint8_t row[12];
    EXPECT_EQ((Answered{R_GetBitmapRow(p, row, 0, 12), R_PutBitmapRow(p, row, 0, 5)}), (Answered{12, 5}));
    EXPECT_EQ((Answered{R_GetBitmapRow(nullptr, row, 0, 12), R_GetBitmapRow(p, nullptr, 0, 12)}),
              (Answered{ERROR_INV_PARAMETER, ERROR_INV_PARAMETER}));
    BITMAPHANDLE record;
    R_InitBitmap(&record, BITMAPHANDLE_SIZE, 5, 5, 8);
    EXPECT_EQ(R_GetBitmapRow(&record, row, 0, 5), ERROR_INV_BITMAP) << "no placement";
    record.Flags |= FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY;
    EXPECT_EQ(R_PutBitmapRowCol(&record, row, 0, 1, 4), ERROR_INV_BITMAP) << "not accessed";
    record.uStructSize = 283;
    EXPECT_EQ(R_PutBitmapRow(&record, row, 0, 5), ERROR_INV_STRUCT_SIZE);
}

TEST(RowCalls, ReturnARowCallbacksAnswer)
{
    struct Rows {
        R_INT answer;
        R_INT column;
    } rows{0, -1};
    const TestBitmap p({});
    BITMAPHANDLEDATACALLBACKS callbacks = callbacksFor(&rows);
    callbacks.GetBitmapRowColCallback =
        callbacks.PutBitmapRowColCallback = [](BITMAPHANDLE*, void*, R_INT, R_INT column, R_SIZE, void* userData) {
            static_cast<Rows*>(userData)->column = column;
            return static_cast<Rows*>(userData)->answer;
        };
    ASSERT_EQ(R_SetBitmapDataCallbacks(p, &callbacks), SUCCESS);
    uint8_t row[40] = {};
    EXPECT_EQ(R_GetBitmapRow(p, row, 0, 40), 40) << "0 lets the kernel go on";
    EXPECT_EQ(rows.column, 0);
    for (const R_INT answer : {17, 1, 2, -1, -99}) {
        rows.answer = answer;
        EXPECT_EQ((Answered{R_GetBitmapRowCol(p, row, 0, 6, 9), rows.column}), (Answered{answer, 6}));
        EXPECT_EQ(R_PutBitmapRow(p, row, 0, 40), answer);
        const R_SEGMENT whole{0, 37};
        EXPECT_EQ(R_PutBitmapRowSegments(p, row, 0, 0, &whole, 1), answer < 0 ? answer : ERROR_FAILURE);
    }
}

/// Writes and reads pieces of rows, and keeps a plain buffer beside them.
void movePieces(const TestBitmap& p, std::vector<uint8_t>& model)
{
    const Scene& scene = p.scene();
    const R_INT bits = scene.bits;
    std::mt19937 random(static_cast<unsigned>(bits));
    const auto below = [&](R_INT64 n) { return static_cast<R_INT>(random() % static_cast<uint64_t>(n)); };
    ASSERT_EQ(R_AccessBitmap(p), SUCCESS);
    for (int step = 0; step < 300; ++step) {
        const R_INT row = below(scene.height), column = below(scene.width);
        uint8_t* const modelRow = model.data() + static_cast<size_t>(row) * p->BytesPerLine;
        const auto first = static_cast<size_t>(column * bits / 8);
        std::vector<uint8_t> piece(1 + static_cast<size_t>(below(R_INT64{p->BytesPerLine} - column * bits / 8)));
        for (uint8_t& byte : piece) byte = static_cast<uint8_t>(random());
        const bool writes = step % 2 == 0;
        ASSERT_EQ((writes ? R_PutBitmapRowCol : R_GetBitmapRowCol)(p, piece.data(), row, column, piece.size()),
                  static_cast<R_SSIZE>(piece.size()));
        if (writes) std::copy(piece.begin(), piece.end(), modelRow + first);
        ASSERT_EQ(std::memcmp(piece.data(), modelRow + first, piece.size()), 0) << step;
        if (scene.home == Home::compressed) // pixels are kept there, and nothing that is behind them
            for (R_INT64 bit = scene.width; bit < R_INT64{p->BytesPerLine} * 8; ++bit) setPixelAt(modelRow, bit, 1, 0);
    }
    ASSERT_EQ(R_ReleaseBitmap(p), SUCCESS);
}

TEST(RowCalls, RandomPiecesAgainstAPlainBuffer)
{
    for (const R_INT bits : allDepths()) {
        for (const Home home : homesOf(bits)) {
            const Scene scene{.bits = bits, .home = home};
            if (!scene.possible()) continue;
            SCOPED_TRACE(scene.text());
            const LiveBlocks live;
            {
                const TestBitmap p(scene);
                std::vector<uint8_t> model = p.pixels();
                movePieces(p, model);
                if (HasFatalFailure()) return;
                EXPECT_EQ(p.pixels(), model);
                for (const R_INT height : {5, 14}) {
                    if (home == Home::user || home == Home::callbacks) break;
                    ASSERT_EQ(R_ChangeBitmapHeight(p, height), SUCCESS);
                    model.resize(size_t{p->BytesPerLine} * static_cast<size_t>(height));
                    EXPECT_EQ(p.pixels(), model);
                }
                ASSERT_EQ(R_IntFlipBitmap(p), SUCCESS);
                std::vector<uint8_t> flipped;
                for (size_t end = model.size(); end > 0; end -= p->BytesPerLine)
                    flipped.insert(flipped.end(), model.begin() + static_cast<long>(end - p->BytesPerLine),
                                   model.begin() + static_cast<long>(end));
                EXPECT_EQ(p.pixels(), flipped);
            }
            EXPECT_EQ(live.count(), 0) << live.text();
        }
    }
}

TEST(RowCalls, SeveralThreadsReadOneBitmap)
{
    for (const Home home : homesOf(1)) {
        const R_INT bits = home == Home::compressed ? 1 : 8;
        const Scene scene{.bits = bits, .home = home, .width = 32000 / bits, .height = 400};
        if (!scene.possible() || home == Home::callbacks) continue; // those are the test's own
        const TestBitmap p(scene);
        std::vector<uint8_t> model = p.pixels();
        for (size_t i = 0; i < model.size(); ++i) model[i] = static_cast<uint8_t>(i / 480); // more bands than are open
        p.setPixels(model);
        ASSERT_EQ(R_AccessBitmap(p), SUCCESS);
        std::atomic<int> wrong{0};
        std::vector<std::thread> readers;
        for (unsigned seed = 0; seed < 3; ++seed)
            readers.emplace_back([&, seed] {
                std::mt19937 random(seed);
                std::vector<uint8_t> row(p->BytesPerLine);
                for (R_INT i = 0, y = 0; i < 600; ++i) { // a few rows in turn, then somewhere else
                    y = i % 20 == 0 ? static_cast<R_INT>(random() % 400) : (y + 1) % 400;
                    if (R_GetBitmapRow(p, row.data(), y, row.size()) != static_cast<R_SSIZE>(row.size()) ||
                        std::memcmp(row.data(), model.data() + static_cast<size_t>(y) * row.size(), row.size()) != 0)
                        ++wrong;
                }
            });
        for (std::thread& reader : readers) reader.join();
        EXPECT_EQ(wrong, 0) << scene.text();
        EXPECT_EQ(R_ReleaseBitmap(p), SUCCESS);
    }
}

TEST(Segments, ChangeTheirPixelsAndNoOthers)
{
    for (const R_INT bits : allDepths()) {
        std::mt19937 random(static_cast<unsigned>(bits) + 100);
        const auto below = [&](R_INT n) { return static_cast<R_INT>(random() % static_cast<unsigned>(n)); };
        for (int round = 0; round < 40; ++round) {
            const Scene scene{.bits = bits,
                              .home = round % 2 == 0 ? Home::conventional : Home::callbacks,
                              .seed = static_cast<unsigned>(round)};
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
            ASSERT_EQ(R_PutBitmapRowSegments(p, piece.data(), row, first, segments.data(),
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
    const auto put = [&](R_INT y, R_INT x) { return R_PutBitmapRowSegments(p, row, y, x, &whole, 1); };
    EXPECT_EQ((Answered{put(11, 0), put(-1, 0), put(0, -1)}), Answered(3, ERROR_INV_PARAMETER));
    EXPECT_EQ(put(0, 2147483647), SUCCESS) << "nothing to write";
    EXPECT_EQ(R_PutBitmapRowSegments(p, row, 0, 0, nullptr, 1), ERROR_INV_PARAMETER);
    const struct {
        void (*spoil)(BITMAPHANDLE*);
        R_INT row, status;
    } cases[] = {
        {[](BITMAPHANDLE* r) { r->Width = 41; }, 0, ERROR_INV_SIZE},   // one pixel more than the row's bytes hold
        {[](BITMAPHANDLE* r) { r->Height = 12; }, 11, ERROR_INV_SIZE}, // one row more than the block holds
        {[](BITMAPHANDLE* r) { r->BitsPerPixel = 9; }, 0, ERROR_INV_BITS_PER_PIXEL},
        {[](BITMAPHANDLE* r) { r->Flags &= ~FLAG_ALLOCATED; }, 0, ERROR_INV_BITMAP},
    };
    const std::vector<uint8_t> good = p.record();
    for (const auto& c : cases) {
        c.spoil(p);
        EXPECT_EQ(put(c.row, 0), c.status);
        std::memcpy(static_cast<void*>(p.get()), good.data(), good.size());
    }
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
    const TestBitmap brief({.structSize = BITMAPHANDLE_SIZE_SHORT});
    const R_UINT64 bytes = brief->Size;
    brief->Height = 400;
    brief->Size = 0xFFFF0001;
    EXPECT_EQ(R_FlipBitmap(brief), ERROR_INV_SIZE) << "no short record has so many bytes";
    brief->Height = 11;
    brief->Size = bytes;
    const R_UINT64 offset = brief->DataOffset;
    brief->DataOffset = ~R_UINT64{0} - 64 * 70;
    EXPECT_NE(R_ChangeBitmapHeight(brief, 12), SUCCESS);
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
    };
    static Scratch* given;
    Scratch scratch;
    given = &scratch;
    const TestBitmap p({.home = Home::callbacks});
    p->pDataCallbacks->GetBitmapScratchBufferCallback = [](BITMAPHANDLE*, void** buffer, R_SIZE bytes, void*) {
        *buffer = given->blocks.emplace_back(bytes).data();
        return given->answer;
    };
    const std::vector<uint8_t> before = p.pixels();
    for (const R_INT answer : {SUCCESS, SUCCESS_ABORT, -8}) {
        scratch.answer = answer;
        EXPECT_EQ(R_FlipBitmap(p), answer == SUCCESS_ABORT ? SUCCESS : answer);
        EXPECT_EQ(scratch.blocks.size(), answer == SUCCESS ? 2u : answer < 0 ? 5u : 4u) << "two rows at once";
    }
    EXPECT_EQ(p.pixels(), before);
}

TEST(BitCopy, EveryOffsetAndLength)
{
    std::mt19937 random(5);
    for (R_INT64 n = 0; n <= 150 * 64; ++n) {
        const R_INT64 count = n / 64, from = n / 8 % 8, into = n % 8;
        const GuardedBuffer source(static_cast<size_t>((from + count + 7) / 8));
        const GuardedBuffer target(static_cast<size_t>((into + count + 7) / 8));
        for (const GuardedBuffer* const buffer : {&source, &target})
            for (uint8_t& byte : *buffer) byte = static_cast<uint8_t>(random());
        std::vector<uint8_t> model(target.begin(), target.end());
        for (R_INT64 i = 0; i < count; ++i) setPixelAt(model.data(), into + i, 1, pixelAt(source.data(), from + i, 1));
        copyBits(target.data(), into, source.data(), from, count);
        ASSERT_TRUE(std::equal(model.begin(), model.end(), target.begin())) << count << ' ' << from << ' ' << into;
    }
}

} // namespace
} // namespace rv::test
