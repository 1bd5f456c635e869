#include "Kernel/Rows/DiskStore.h"

#include "Kernel/Core/Checks.h"
#include "Support/FailingPlatform.h"
#include "Support/Folder.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace rv::test {
namespace {

/// A store beside the plain bytes that it is to hold. What fails changes neither.
class Model {
public:
    Model(R_SIZE windowBytes, R_UINT rowBytes, unsigned seed) : store(windowBytes), random(seed)
    {
        shape.rowBytes = rowBytes;
        shape.height = 40;
        shape.bytes = R_UINT64{rowBytes} * 40;
        bytes.resize(shape.bytes);
        EXPECT_TRUE(store.create(slots, shape, {}).ok());
    }
    ~Model() { store.destroy(slots, shape); }

    void step()
    {
        const auto what = static_cast<unsigned>(random() % 100);
        if (what < 2) return changeHeight();
        if (what < 6) return judge(store.settle(slots), ERROR_NO_DISK_SPACE);
        const size_t size = bytes.size();
        if (size == 0) return;
        // On from where the last one was, up or down, with gaps; elsewhere; pieces of rows, rows, more than the window.
        const size_t most = what < 60 ? shape.rowBytes : what < 95 ? 3 : size;
        const size_t count = std::min(1 + random() % most, size);
        if (what % 8 == 0) way = static_cast<int>(random() % 3);
        if (random() % 2 == 0) std::swap(from, otherFrom), std::swap(to, otherTo), std::swap(way, otherWay);
        const size_t gap = random() % 4 == 0 ? random() % (2 * shape.rowBytes) : 0;
        const size_t wanted = way == 0 ? random() % size : way == 1 ? to + gap : from - std::min(from, gap + count);
        from = std::min(wanted, size - count);
        to = from + count;
        move(random() % 2 == 0);
    }

    void checkAll()
    {
        std::vector<uint8_t> all(bytes.size());
        EXPECT_EQ(store.read(slots, shape, all.data(), 0, 0, all.size()), SUCCESS);
        EXPECT_TRUE(all == bytes);
    }

    const DiskStore store;
    StoreSlots slots;
    StoreShape shape;
    std::vector<uint8_t> bytes;
    bool faulty = false; ///< whether calls may fail
    int failures = 0;

private:
    void judge(Status status, R_INT refusal)
    {
        if (status.ok()) return;
        ++failures;
        EXPECT_TRUE(faulty && (status == refusal || status == ERROR_NO_DISK_SPACE)) << R_INT(status);
    }
    void changeHeight()
    {
        const auto height = static_cast<R_INT>(random() % 60);
        const Status status = store.changeHeight(slots, shape, height);
        judge(status, ERROR_FAILURE);
        if (!status.ok()) return;
        shape.height = height;
        shape.bytes = R_UINT64{shape.rowBytes} * static_cast<R_UINT>(height);
        bytes.resize(shape.bytes);
    }
    void move(bool writes)
    {
        const auto row = static_cast<R_INT64>(from / shape.rowBytes),
                   first = static_cast<R_INT64>(from % shape.rowBytes);
        std::vector<uint8_t> piece(to - from);
        for (uint8_t& byte : piece) byte = static_cast<uint8_t>(random());
        const auto place = bytes.begin() + static_cast<std::ptrdiff_t>(from);
        const Status status = writes ? store.write(slots, shape, piece.data(), row, first, piece.size())
                                     : store.read(slots, shape, piece.data(), row, first, piece.size());
        judge(status, writes ? ERROR_NO_DISK_SPACE : ERROR_FILE_READ);
        if (!status.ok()) return;
        if (writes) std::copy(piece.begin(), piece.end(), place);
        EXPECT_TRUE(std::equal(piece.begin(), piece.end(), place)) << from << " to " << to;
    }

    std::mt19937 random;
    size_t from = 0, to = 0, otherFrom = 0, otherTo = 0; // of two callers in turn
    int way = 0, otherWay = 0;
};

TEST(DiskStore, HoldsWhatAPlainBufferHoldsAndLosesNothingToFaults)
{
    const LiveBlocks live;
    int failures = 0;
    for (const bool faulty : {false, true}) {
        for (const R_INT bits : allDepths()) {
            for (const unsigned window : {16u, 200u, 1000u}) {
                const unsigned seed = window + static_cast<unsigned>(bits);
                Model model(window, ((37u * static_cast<unsigned>(bits) + 31) >> 3) & ~3u, seed);
                for (int i = 0; i < 600 && !testing::Test::HasFailure(); ++i) {
                    const FailingAllocation fault(i % 3 + 1, faulty ? unsigned{kFailFiles} : 0u);
                    const NoMemory all(faulty && i % 7 == 0 ? unsigned{kFailFiles} : 0u);
                    model.faulty = faulty;
                    model.step();
                }
                failures += model.failures;
                EXPECT_TRUE(model.store.settle(model.slots).ok());
                const NoMemory nothingIsWritten(kFailPlaced); // and all is in its place
                model.checkAll();
                ASSERT_FALSE(testing::Test::HasFailure()) << bits << " bits, window " << window << ", seed " << seed;
            }
        }
    }
    EXPECT_GT(failures, 1000);
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(DiskStore, MovesRowsInFewTransfersBothWays)
{
    const DiskStore store(1024);
    StoreSlots slots;
    const StoreShape shape{.height = 64, .rowBytes = 64, .bytes = 4096};
    ASSERT_TRUE(store.create(slots, shape, {}).ok());
    uint8_t row[64] = {};
    for (const bool writes : {true, false}) {
        for (const bool down : {false, true}) {
            // 4 windows, each read or written or both, and the first rows of a way by themselves. The last bytes of a
            // row are left out, as those behind the pixels are.
            const FailingAllocation fault(writes ? 12 : 7, kFailRead | kFailPlaced);
            for (R_INT64 y = 0; y < 64; ++y) {
                const R_INT64 at = down ? 63 - y : y;
                const Status moved =
                    writes ? store.write(slots, shape, row, at, 0, 61) : store.read(slots, shape, row, at, 0, 61);
                EXPECT_TRUE(moved.ok());
            }
            EXPECT_TRUE(store.settle(slots).ok());
            EXPECT_FALSE(fault.happened()) << (writes ? "writing " : "reading ") << (down ? "down" : "up");
        }
    }
    store.destroy(slots, shape);
}

TEST(DiskStore, RefusesRowsThatItDoesNotHaveAndSlotsThatAreNotItsOwn)
{
    const TestBitmap p({.home = Home::disk});
    std::vector<uint8_t> rows(p->BytesPerLine * 2u);
    const R_SIZE n = p->BytesPerLine;
    const auto get = [&](R_INT y, R_SIZE bytes) { return R_GetBitmapRow(p, rows.data(), y, bytes); };
    const auto put = [&](R_INT y, R_SIZE bytes) { return R_PutBitmapRow(p, rows.data(), y, bytes); };
    EXPECT_EQ((Answered{get(10, n), get(9, 2 * n), get(11, 0)}), (Answered{R_INT64(n), R_INT64(2 * n), 0}));
    EXPECT_EQ((Answered{get(-1, 1), put(12, 1), get(2147483647, n), put(-2147483647 - 1, n)}),
              Answered(4, ERROR_FILE_LSEEK));
    EXPECT_EQ((Answered{get(10, n + 1), get(11, 1), get(0, ~R_SIZE{0})}), Answered(3, ERROR_FILE_READ));
    EXPECT_EQ((Answered{put(10, n + 1), put(0, ~R_SIZE{0})}), Answered(2, ERROR_FILE_WRITE));
    EXPECT_EQ(R_GetBitmapRowCol(p, rows.data(), 0, -1, 1), ERROR_FILE_LSEEK);

    alignas(16) char other[64] = {};
    void* const own = p->Addr.Handle;
    for (void* const handle : {static_cast<void*>(nullptr), static_cast<void*>(other), static_cast<void*>(other + 1)}) {
        p->Addr.Handle = handle;
        EXPECT_EQ((Answered{get(0, 1), put(0, 1), R_ChangeBitmapHeight(p, 5)}),
                  (Answered{ERROR_INV_BITMAP, ERROR_INV_BITMAP, ERROR_FAILURE}));
    }
    p->Addr.Handle = own;
}

TEST(DiskStore, AFileIsReservedGoneWithItsBitmapAndRefusedAsAWhole)
{
    const Folder folder;
    const std::filesystem::path gone = folder.path() / "gone";
    std::filesystem::create_directory(gone);
    R_WCHAR before[300];
    ASSERT_EQ(R_GetTempDirectory(before, 300), SUCCESS);
    ASSERT_EQ(R_SetTempDirectory(wide(gone).c_str()), SUCCESS);
    for (int nth = 0; nth <= 3; ++nth) { // 3: the folder has gone
        const LiveBlocks live;
        BITMAPHANDLE p;
        R_InitBitmap(&p, BITMAPHANDLE_SIZE, 1000, 1000, 24);
        if (nth == 3) std::filesystem::remove(gone);
        {
            const FailingAllocation fault(nth, kFailHeap | kFailScratch);
            EXPECT_EQ(R_AllocateBitmap(&p, MEM_DISK), nth == 0 ? SUCCESS : ERROR_FAILURE) << nth;
        }
        const R_UINT wanted = nth == 0 ? FLAG_ALLOCATED | FLAG_DISK_MEMORY : 0;
        EXPECT_TRUE(p.Flags == wanted && (p.Addr.Handle != nullptr) == (nth == 0) && p.DataOffset == 0) << nth;
        EXPECT_EQ(live.count(kFiles), nth == 0 ? 1 : 0);
        R_FreeBitmap(&p);
        EXPECT_EQ(live.count(), 0) << live.text();
        EXPECT_TRUE(nth == 3 || std::filesystem::is_empty(gone));
    }
    EXPECT_EQ(R_SetTempDirectory(before), SUCCESS);
}

} // namespace
} // namespace rv::test
