#include "R_Kernel.h"
#include "Support/Conventional.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

namespace rv::test {
namespace {

constexpr R_INT kBandRows = 32768;
constexpr R_UINT64 kStep = 262144;

R_UINT64 word(const void* memory, size_t index)
{
    R_UINT64 value;
    std::memcpy(&value, static_cast<const uint8_t*>(memory) + index * 8, 8);
    return value;
}

/// A compressed bitmap, read by its layout, and the rows it should have.
struct Compressed : BITMAPHANDLE {
    Compressed(R_INT width, R_INT height, R_UINT memory = MEM_COMPRESSED) : BITMAPHANDLE{}
    {
        EXPECT_EQ(R_InitBitmap(this, BITMAPHANDLE_SIZE, width, height, 1), SUCCESS);
        EXPECT_EQ(R_AllocateBitmap(this, memory), SUCCESS);
    }
    ~Compressed() { R_FreeBitmap(this); }
    Compressed(const Compressed&) = delete;
    Compressed& operator=(const Compressed&) = delete;

    /// A word of a row's band, or of what one of its words leads to.
    R_UINT64 band(R_INT64 row, size_t index) const
    {
        return word(reinterpret_cast<void*>(word(Addr.Pointer, static_cast<size_t>(row / kBandRows))), index);
    }
    R_UINT64 slot(R_INT64 row, size_t index) const
    {
        return band(row, 4 + 2 * static_cast<size_t>(row % kBandRows) + index);
    }
    R_UINT64 capacity(R_INT64 row = 0) const { return word(reinterpret_cast<void*>(band(row, 3)), 0); }
    std::vector<uint8_t> row(R_INT row)
    {
        std::vector<uint8_t> bytes(BytesPerLine, 0xEE);
        EXPECT_EQ(R_GetBitmapRow(this, bytes.data(), row, BytesPerLine), static_cast<R_SSIZE>(BytesPerLine));
        return bytes;
    }
    R_SSIZE put(R_INT row, std::vector<uint8_t> bytes) { return R_PutBitmapRow(this, bytes.data(), row, bytes.size()); }
};

/// Bytes of few or of many runs.
std::vector<uint8_t> someBytes(std::mt19937& random, size_t count)
{
    std::vector<uint8_t> bytes(count, random() % 2 == 0 ? 0x00 : 0xFF);
    const bool noisy = random() % 3 == 0;
    for (uint8_t& byte : bytes)
        if (noisy || random() % 40 == 0) byte = static_cast<uint8_t>(random());
    return bytes;
}

TEST(CompressedStore, KeepsItsRowsThroughWritesHeightsAndFailures)
{
    const LiveBlocks live;
    const R_UINT64 before = conventionalTotal();
    for (const R_INT width : {1, 37, 64, 65535, 65536, 140001}) {
        SCOPED_TRACE(width);
        std::mt19937 random(static_cast<unsigned>(width));
        const R_INT start = width < 100 ? kBandRows - 3 : 7;
        Compressed p(width, start);
        const size_t lineBytes = p.BytesPerLine;
        std::vector<std::vector<uint8_t>> model(static_cast<size_t>(start), std::vector<uint8_t>(lineBytes));
        for (int step = 0; step < 600 && !testing::Test::HasFailure(); ++step) {
            const FailingAllocation fault(random() % 4 == 0 ? 1 + static_cast<int>(random() % 6) : 100, kFailHeap);
            if (step % 20 == 19) {
                const auto height = random() % 8 == 0 ? 0 : static_cast<size_t>(start - 3) + random() % 8;
                const R_INT status = R_ChangeBitmapHeight(&p, static_cast<R_INT>(height));
                EXPECT_EQ(status, fault.happened() ? ERROR_FAILURE : SUCCESS);
                if (status == SUCCESS) model.resize(height, std::vector<uint8_t>(lineBytes));
            } else if (!model.empty()) {
                const size_t row = model.size() - 1 - random() % std::min<size_t>(model.size(), 7);
                const size_t first = random() % 2 * (random() % lineBytes);
                std::vector<uint8_t> bytes =
                    someBytes(random, lineBytes - first - random() % 2 * (random() % (lineBytes - first)));
                const R_SSIZE moved = R_PutBitmapRowCol(&p, bytes.data(), static_cast<R_INT>(row),
                                                        static_cast<R_INT>(first * 8), bytes.size());
                EXPECT_EQ(moved, fault.happened() ? ERROR_FAILURE : static_cast<R_SSIZE>(bytes.size()));
                if (moved > 0) std::copy(bytes.begin(), bytes.end(), model[row].begin() + static_cast<long>(first));
                for (size_t bit = static_cast<size_t>(width); bit < lineBytes * 8; ++bit) // no pixels: not kept
                    setPixelAt(model[row].data(), static_cast<R_INT64>(bit), 1, 0);
                EXPECT_EQ(p.Size64, (model.size() + kBandRows - 1) / kBandRows * p.capacity());
            }
            for (size_t row = model.size(); row-- > 0 && row + 10 > model.size();)
                EXPECT_TRUE(p.row(static_cast<R_INT>(row)) == model[row]) << "step " << step << ", row " << row;
        }
    }
    EXPECT_EQ(conventionalTotal(), before);
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(CompressedStore, LaysItsBandsOutForAllToSee)
{
    Compressed narrow(511, kBandRows), wide(512, kBandRows + 1), widest(200000, 1);
    EXPECT_EQ(narrow.Flags & 0xD517, 0x103u);
    EXPECT_EQ(narrow.capacity(), kStep);
    EXPECT_EQ(wide.capacity(kBandRows), kStep);
    EXPECT_EQ(wide.put(kBandRows, std::vector<uint8_t>(64, 0xFF)), 64);
    EXPECT_EQ(wide.Size, 2 * 4194304u) << "the first band's, for each";
    EXPECT_TRUE(wide.slot(0, 0) == 0 && wide.slot(kBandRows, 0) == 24 && wide.slot(kBandRows, 1) == 2);
    EXPECT_TRUE(wide.band(0, 1) == 0 && wide.band(0, 2) == 2 * (512 + 4u));
    const R_UINT16 blank[] = {7, 0, 65535, 0, 65535, 0, 65535, 0, 3395};
    EXPECT_EQ(std::memcmp(reinterpret_cast<void*>(widest.band(0, 1)), blank, sizeof blank), 0);
    R_UINT16 runs[7];
    EXPECT_EQ(R_GetBitmapRowCompressed(&widest, runs, 13, 0, 1), ERROR_BUFFER_TOO_SMALL);
    EXPECT_EQ(R_GetBitmapRowCompressed(&widest, runs, 14, 0, 1), 1);
    EXPECT_EQ(std::memcmp(runs, blank + 2, sizeof runs), 0);
    R_FreeBitmap(&wide);
    EXPECT_EQ(wide.Size64, 64u * (kBandRows + 1)) << "it can be allocated again";
}

TEST(CompressedStore, RefusesRowsAndRecordsThatAreNotItsOwn)
{
    Compressed p(37, 5), linear(37, 5, MEM_CONVENTIONAL);
    uint8_t row[8] = {};
    R_UINT16 runs[40] = {37};
    for (const R_INT outside : {-1, 5, kBandRows}) {
        EXPECT_EQ(R_GetBitmapRow(&p, row, outside, 8), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_PutBitmapRow(&p, row, outside, 8), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_PutBitmapRowCompressed(&p, runs, 80, outside, 1), ERROR_INV_PARAMETER);
    }
    p.Height = 6; // more than there are
    EXPECT_EQ(R_GetBitmapRowCompressed(&p, runs, 80, 5, 1), ERROR_INV_PARAMETER);
    p.Width = 36;
    EXPECT_EQ(R_GetBitmapRowCompressed(&p, runs, 80, 0, 1), ERROR_INV_BITMAP);
    BITMAPHANDLE stray = linear;
    stray.Flags |= FLAG_COMPRESSED;
    for (void* const handle :
         {static_cast<void*>(nullptr), reinterpret_cast<void*>(size_t{0x1C4}), static_cast<void*>(p.Addr.Handle)}) {
        stray.Addr.Handle = handle;
        EXPECT_EQ(R_GetBitmapRow(&stray, row, 0, 8), ERROR_INV_BITMAP);
        EXPECT_EQ(R_GrowBitmapHeap(&stray, 9), ERROR_INV_BITMAP);
    }
    for (const R_UINT other : {FLAG_TILED, FLAG_SUPER_COMPRESSED, FLAG_DISK_MEMORY}) {
        stray.Flags = FLAG_ALLOCATED | other;
        stray.Addr.Handle = reinterpret_cast<void*>(size_t{0x1C4}); // a number of the system's
        EXPECT_LT(R_GetBitmapRow(&stray, row, 0, 8), 0);
    }
    EXPECT_EQ(R_GrowBitmapHeap(&linear, 1), ERROR_INV_PARAMETER);
}

TEST(CompressedStore, GivesItsHeapsRoomAndTakesItBackFromTheLastOn)
{
    Compressed p(8, kBandRows + 1);
    EXPECT_EQ(R_GrowBitmapHeap(&p, 2 * kStep), SUCCESS);
    EXPECT_EQ(p.Size64, 4 * kStep);
    {
        const FailingAllocation fault(2, kFailHeap);
        EXPECT_EQ(R_GrowBitmapHeap(&p, 8 * kStep), FAILURE);
    }
    EXPECT_EQ((p.capacity(kBandRows)), 5 * kStep) << "it has grown before the other could not";
    EXPECT_EQ(p.capacity(), 2 * kStep);
    EXPECT_EQ(R_GrowBitmapHeap(&p, ~R_UINT64{0}), FAILURE);
    p.uStructSize = 100;
    EXPECT_EQ(R_TrimBitmapHeap(&p), ERROR_INV_STRUCT_SIZE);
    p.uStructSize = BITMAPHANDLE_SIZE;
    EXPECT_EQ(R_TrimBitmapHeap(&p), SUCCESS);
    EXPECT_EQ(p.Size, 2 * 248u);
    EXPECT_EQ(p.put(3, {0x0F, 0, 0, 0}), 4);
    EXPECT_EQ(R_TrimBitmapHeap(&p), FAILURE) << "the last has no more";
    EXPECT_EQ(p.row(3), (std::vector<uint8_t>{0x0F, 0, 0, 0}));
}

TEST(CompressedStore, MovesPixelsIntoRunsAndBack)
{
    for (const R_UINT size : {BITMAPHANDLE_SIZE, BITMAPHANDLE_SIZE_SHORT})
        for (const Home home : homesOf(1)) {
            const Scene scene{.bits = 1, .home = home, .structSize = size, .width = 701, .height = 900};
            if (!scene.possible()) continue;
            SCOPED_TRACE(scene.text());
            const TestBitmap p(scene);
            const std::vector<uint8_t> pixels = p.pixels();
            const R_INT status = (p->Flags & FLAG_MIRROR) != 0 ? ERROR_INV_PARAMETER : SUCCESS;
            for (int turn = 0; turn < 3; ++turn) {
                EXPECT_EQ(R_ToggleBitmapCompression(p), status);
                EXPECT_EQ(p.pixels(), pixels);
            }
            if (status != SUCCESS) continue;
            EXPECT_EQ((p->Flags & FLAG_COMPRESSED) != 0, home != Home::compressed);
            EXPECT_EQ(R_ChangeBitmapCompression(p, 0), SUCCESS);
            EXPECT_EQ(p->Size, size_t{p->BytesPerLine} * 900);
        }
}

TEST(CompressedStore, RunsOfTheCallersAreTakenWholeOrNotAtAll)
{
    for (const R_UINT memory : {MEM_CONVENTIONAL, MEM_COMPRESSED}) {
        Compressed p(37, 4, memory);
        R_UINT16 rows[2][3] = {{30, 7, 9}, {0, 37, 5}};
        EXPECT_EQ(R_PutBitmapRowCompressed(&p, rows[0], 6, 1, 2), 2);
        EXPECT_EQ(p.row(1), (std::vector<uint8_t>{0, 0, 0, 3, 0xF8, 0, 0, 0}));
        for (const auto& [last, status] : {std::pair(31, ERROR_BUFFER_TOO_SMALL), {38, ERROR_INV_PARAMETER}}) {
            rows[0][0] = 0;
            rows[0][1] = 37;
            rows[1][1] = static_cast<R_UINT16>(last);
            EXPECT_EQ(R_PutBitmapRowCompressed(&p, rows[0], 6, 1, 2), status);
            EXPECT_EQ(R_PutBitmapRowColCompressed(&p, rows[1], 6, 1, 0, 37), status);
        }
        const GuardedBuffer nothing(38 * sizeof(R_UINT16));
        std::memset(nothing.data(), 0, nothing.size());
        EXPECT_EQ(R_PutBitmapRowCompressed(&p, reinterpret_cast<R_UINT16*>(nothing.data()), ~R_SIZE{0}, 1, 1),
                  ERROR_INV_PARAMETER);
        EXPECT_EQ(p.row(1)[0], 0) << "nothing was written";
        R_UINT16 piece[] = {2, 3};
        EXPECT_EQ(R_PutBitmapRowColCompressed(&p, piece, 4, 2, 6, 5), 1);
        EXPECT_EQ(p.row(2)[0], 0xFC);
        EXPECT_EQ(R_GetBitmapRowColCompressed(&p, piece, 4, 2, 4, 5), ERROR_BUFFER_TOO_SMALL);
        EXPECT_EQ(R_GetBitmapRowColCompressed(&p, piece, 4, 2, 30, 8), ERROR_INV_PARAMETER);
    }
}

} // namespace
} // namespace rv::test
