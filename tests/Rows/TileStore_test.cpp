#include "Support/Conventional.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <random>

namespace rv::test {
namespace {

using Bytes = std::vector<uint8_t>;
using Counts = std::array<R_UINT, 4>; // tiles, those in memory, the most views, views open
constexpr R_UINT kAllInfo = MEMORYINFO_CONV_TILES | MEMORYINFO_MAX_TILE_VIEWS | MEMORYINFO_TILE_VIEWS;

/// The thread's settings for tiles, which go back to the defaults; and nothing may be alive at the end.
class Tiles : public testing::Test {
protected:
    static void set(R_INT64 tileBytes, R_INT convTiles, R_INT buffers = 1, R_INT64 maximum = 2147483647)
    {
        ASSERT_EQ(R_SetMemoryThresholds(0, maximum, tileBytes, convTiles, buffers, 31), SUCCESS);
    }
    void TearDown() override
    {
        set(0, -100);
        R_ManageMemory(MANAGE_SET_LIMIT, 0, nullptr);
        EXPECT_EQ(live.count(), 0) << live.text();
        EXPECT_EQ(conventionalTotal(), total);
    }
    const LiveBlocks live;
    const R_UINT64 total = conventionalTotal();
};

/// An 8-bit bitmap of `rows` rows of 1 KiB.
struct Bitmap {
    explicit Bitmap(R_INT rows, R_UINT memory = MEM_TILED)
    {
        R_InitBitmap(&record, sizeof record, 1024, rows, 8);
        status = R_AllocateBitmap(&record, memory);
    }
    ~Bitmap() { R_FreeBitmap(&record); }
    Bitmap(const Bitmap&) = delete;
    Bitmap& operator=(const Bitmap&) = delete;

    Counts counts()
    {
        Counts c{};
        R_UINT memory = 0;
        EXPECT_EQ(R_GetBitmapMemoryInfo(&record, &memory, &tileBytes, &c[0], &c[1], &c[2], &c[3]), SUCCESS);
        EXPECT_EQ(memory, MEM_TILED);
        return c;
    }
    BITMAPHANDLE record;
    R_INT status;
    R_UINT64 tileBytes = 0;
};

/// Random calls on a tiled bitmap beside the plain bytes of its rows. What fails changes nothing.
void playModel(unsigned seed)
{
    std::mt19937 random(seed);
    const auto upTo = [&](size_t most) { return static_cast<size_t>(random() % (most + 1)); };
    const Scene scene{.bits = allDepths()[upTo(allDepths().size() - 1)],
                      .home = Home::tiled,
                      .structSize = random() % 2 == 0 ? BITMAPHANDLE_SIZE : BITMAPHANDLE_SIZE_SHORT,
                      .height = 2 + static_cast<R_INT>(upTo(50)),
                      .seed = seed};
    SCOPED_TRACE(scene.text());
    const TestBitmap p(scene);
    R_FreeBitmap(p); // placed anew, in tiles of several rows
    ASSERT_EQ(R_SetMemoryThresholds(0, 0, static_cast<R_INT64>(1 + upTo(5 * p->BytesPerLine)),
                                    static_cast<R_INT>(upTo(110)) - 100, static_cast<R_INT>(upTo(110)) - 100, 28),
              SUCCESS);
    ASSERT_EQ(R_AllocateBitmap(p, MEM_TILED), SUCCESS);
    const R_UINT rowBytes = p->BytesPerLine;
    Bytes plain(size_t{rowBytes} * static_cast<size_t>(p->Height)), piece, got;
    for (int step = 0; step < 300 && (p->Flags & FLAG_TILED) != 0; ++step) {
        const bool faulty = random() % 4 == 0;
        std::optional<FailingAllocation> fault;
        fault.emplace(faulty ? 1 + static_cast<int>(random() % 3) : 1 << 20,
                      kFailPages | kFailScratch | kFailHeap | kFailMapping);
        const R_INT row = p->Height > 0 ? static_cast<R_INT>(random() % static_cast<R_UINT>(p->Height)) : 0;
        const size_t at = size_t{rowBytes} * static_cast<size_t>(row);
        // From a row on, to the end of the bitmap if need be.
        piece.resize(random() % 4 == 0 ? upTo(plain.size() - at) : std::min<size_t>(plain.size() - at, upTo(rowBytes)));
        const auto what = piece.empty() ? 90u : static_cast<unsigned>(random() % 100);
        R_INT64 status = SUCCESS;
        if (what < 45) {
            for (uint8_t& byte : piece) byte = static_cast<uint8_t>(random());
            status = R_PutBitmapRow(p, piece.data(), row, piece.size());
            if (status > 0 || piece.empty())
                std::copy(piece.begin(), piece.end(), plain.begin() + static_cast<long>(at));
            if (status <= 0 && faulty) { // tiles before the one that could not be had are written
                got.resize(piece.size());
                ASSERT_EQ(R_GetBitmapRow(p, got.data(), row, got.size()), static_cast<R_SSIZE>(got.size()));
                std::copy(got.begin(), got.end(), plain.begin() + static_cast<long>(at));
            }
        } else if (what < 85) {
            status = R_GetBitmapRow(p, piece.data(), row, piece.size());
            if (status > 0) {
                ASSERT_TRUE(std::equal(piece.begin(), piece.end(), plain.begin() + static_cast<long>(at)));
            }
        } else if (what < 92) {
            status = R_ChangeBitmapHeight(p, static_cast<R_INT>(upTo(60)));
            if (status == SUCCESS) plain.resize(size_t{rowBytes} * static_cast<size_t>(p->Height));
        } else {
            status = R_SetBitmapMemoryInfo(p, static_cast<R_UINT>(upTo(20)), static_cast<R_UINT>(upTo(12)),
                                           static_cast<R_UINT>(upTo(12)), static_cast<R_UINT>(random()) & kAllInfo);
        }
        ASSERT_TRUE(fault->happened() || status > 0) << "step " << step << ": " << status;
        fault.reset();
        if (what >= 85 && p->Height > 0) {
            ASSERT_EQ(p.pixels() == plain, true) << "step " << step << ", " << what;
        }
    }
    if (p->Height > 0) {
        EXPECT_TRUE(p.pixels() == plain);
    }
}

TEST_F(Tiles, HoldRowsAsOneBlockWould)
{
    for (unsigned seed = 1; seed <= 60 && !HasFailure(); ++seed) playModel(seed);
}

TEST_F(Tiles, AreSharedOutBetweenMemoryAndFile)
{
    set(64 * 1024 + 100, 3, 5);
    {
        Bitmap p(1000); // tiles of 64 rows
        EXPECT_EQ(p.counts(), (Counts{16, 3, 5}));
        EXPECT_EQ(p.tileBytes, 64 * 1024u);
        EXPECT_EQ(conventionalTotal(), total + 3 * 64 * 1024);
    }
    set(64 * 1024, -50, -50);
    EXPECT_EQ(Bitmap(1000).counts(), (Counts{16, 8, 4})) << "half of all, half of the others";
    set(1, -100);
    EXPECT_EQ(Bitmap(20).counts(), (Counts{20, 20, 4})) << "at least a row";
    set(64 * 1024, -100, 1, 300 * 1024);
    EXPECT_EQ(Bitmap(1000, MEM_CONVENTIONAL).counts(), (Counts{16, 5, 4})) << "four, and the last, which is shorter";
    set(64 * 1024, -100);
    R_ManageMemory(MANAGE_SET_LIMIT, total + 200 * 1024, nullptr);
    Bitmap limited(1000);
    EXPECT_EQ(limited.counts(), (Counts{16, 3, 4}));
    EXPECT_EQ(R_SetBitmapMemoryInfo(&limited.record, 16, 0, 0, MEMORYINFO_CONV_TILES), ERROR_MEMORY_LIMIT);
    EXPECT_EQ(limited.counts(), (Counts{16, 3, 4}));
    EXPECT_EQ(Bitmap(1000, MEM_TILED | MEM_NO_DISK).status, ERROR_MEMORY_LIMIT);
    R_ManageMemory(MANAGE_SET_LIMIT, 0, nullptr);
    Bitmap noFile(1000, MEM_TILED | MEM_NO_DISK);
    EXPECT_EQ(noFile.counts(), (Counts{16, 16, 4}));
    EXPECT_EQ(R_SetBitmapMemoryInfo(&noFile.record, 15, 0, 0, MEMORYINFO_CONV_TILES), ERROR_FAILURE);
    EXPECT_EQ(R_SetBitmapMemoryInfo(&noFile.record, 1, 0, 0, 8), ERROR_INV_PARAMETER) << "an unknown flag";
    EXPECT_EQ(R_SetBitmapMemoryInfo(nullptr, 1, 0, 0, 1), ERROR_INV_BITMAP);
}

TEST_F(Tiles, ThatMemoryRefusesGoToTheFile)
{
    set(64 * 1024, -100);
    for (int nth = 1; nth <= 8; ++nth) { // a tile asks for memory and for its view
        const FailingAllocation fault(nth, kFailPages);
        EXPECT_EQ(Bitmap(1000).counts(), (Counts{16, 15, 4})) << nth;
    }
    set(64 * 1024, 8);
    for (int nth = 1; nth <= 5; ++nth) { // memory is full: it has to leave room for views
        const FailingAllocation fault(nth, kFailMapping);
        EXPECT_EQ(Bitmap(1000).counts(), (Counts{16, 7, 4})) << nth;
    }
    const NoMemory full(kFailScratch);
    EXPECT_EQ(Bitmap(1000).status, ERROR_FAILURE);
}

TEST_F(Tiles, OfAForgedRecordAreRefused)
{
    set(64 * 1024, 2);
    Bitmap p(1000);
    Bytes rows(4096), nothing(4096);
    BITMAPHANDLE forged = p.record;
    forged.Height = 5000;
    forged.Size64 = 5000 * 1024;
    EXPECT_EQ(R_GetBitmapRow(&forged, rows.data(), 1000, 1), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_PutBitmapRow(&forged, rows.data(), 997, 4096), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetBitmapRow(&forged, rows.data(), -1, 1), ERROR_INV_PARAMETER);
    EXPECT_NE(R_FlipBitmap(&forged), SUCCESS);
    forged = p.record;
    forged.BytesPerLine = 2048;
    EXPECT_EQ(R_GetBitmapRow(&forged, rows.data(), 0, 1), ERROR_INV_BITMAP);
    forged.Addr.Handle = nothing.data(); // no tiles behind it
    EXPECT_EQ(R_PutBitmapRow(&forged, rows.data(), 0, 1), ERROR_INV_BITMAP);
    EXPECT_EQ(R_SetBitmapMemoryInfo(&forged, 1, 0, 0, MEMORYINFO_CONV_TILES), ERROR_INV_PARAMETER);
    forged.pPalette = nullptr;
    R_FreeBitmap(&forged);
    EXPECT_EQ(R_GetBitmapRow(&p.record, rows.data(), 996, 4096), 4096) << "on into the rows behind";
    EXPECT_EQ(rows, nothing);
}

} // namespace
} // namespace rv::test
