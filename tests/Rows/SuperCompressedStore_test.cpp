#include "Kernel/Rows/SuperCompressedStore.h"
#include "Support/Conventional.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace rv::test {
namespace {

#define SKIP_WITHOUT_CODEC()                                                                                           \
    if (!superCompressedStore().usable({})) GTEST_SKIP() << "no codec is installed"

/// Rows in a store with tiny bands, and what they must be.
struct Rows {
    Rows(R_INT height, R_UINT rowBytes, SuperCompressedStore::Limits limits)
        : store(limits), before(conventionalTotal()), model(size_t{rowBytes} * static_cast<size_t>(height))
    {
        shape = {static_cast<R_INT>(rowBytes), height, 8, rowBytes, model.size()};
        created = store.create(slots, shape, {});
    }
    ~Rows()
    {
        store.destroy(slots, shape);
        EXPECT_EQ(conventionalTotal(), before);
    }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    uint8_t* at(R_INT64 row, R_INT64 first) { return model.data() + row * shape.rowBytes + first; }
    /// The rows, byte for byte, and what they take.
    void expectTrue(const std::string& text)
    {
        std::vector<uint8_t> read(model.size());
        ASSERT_EQ(store.read(slots, shape, read.data(), 0, 0, read.size()), SUCCESS) << text;
        ASSERT_EQ(read, model) << text;
        ASSERT_EQ(store.usage(slots).bytes, conventionalTotal() - before) << text;
    }

    SuperCompressedStore store;
    StoreSlots slots;
    StoreShape shape;
    R_UINT64 before;
    std::vector<uint8_t> model;
    Status created = ERROR_FAILURE;
};

/// Random calls, a share of them with something failing below.
class Walk {
public:
    Walk(Rows& rows, unsigned seed, R_UINT mostOpen) : rows_(rows), random_(seed), mostOpen_(mostOpen) {}

    void step(bool faults)
    {
        const R_INT height = rows_.shape.height;
        const int nth = faults && below(3) == 0 ? 1 + below(3) : 1000;
        const int what = height == 0 ? 9 : below(10);
        if (what < 6)
            move(nth, what < 4);
        else if (what < 9)
            swapBorrowed(nth);
        else if (below(8) != 0)
            settle();
        else
            changeHeight(nth);
        ASSERT_LE(rows_.store.usage(rows_.slots).openBands, mostOpen_);
    }

private:
    int below(R_INT64 n) { return static_cast<int>(random_() % static_cast<uint64_t>(n)); }

    /// Zeros, repetition or noise, so that bands of every kind come up.
    void fill(uint8_t* bytes, size_t count)
    {
        const int kind = below(3);
        const auto value = static_cast<uint8_t>(random_());
        for (size_t i = 0; i < count; ++i)
            bytes[i] = kind == 0 ? uint8_t{0} : kind == 1 ? value : static_cast<uint8_t>(random_());
    }

    /// Moves bytes with the nth allocation failing; a row's when written, of rows and bands when read.
    void move(int nth, bool writes)
    {
        const R_INT64 row = below(rows_.shape.height), first = below(rows_.shape.rowBytes);
        const R_INT64 left = (writes ? 1 : rows_.shape.height - row) * R_INT64{rows_.shape.rowBytes} - first;
        std::vector<uint8_t> bytes(static_cast<size_t>(1 + below(std::min<R_INT64>(left, 400))));
        if (writes) fill(bytes.data(), bytes.size());
        const FailingAllocation fault(nth, kFailHeap);
        const auto& store = rows_.store;
        const Status status = writes ? store.write(rows_.slots, rows_.shape, bytes.data(), row, first, bytes.size())
                                     : store.read(rows_.slots, rows_.shape, bytes.data(), row, first, bytes.size());
        ASSERT_TRUE(status.ok() || (fault.happened() && status == ERROR_FAILURE)) << status;
        if (!status.ok()) return;
        if (writes) std::memcpy(rows_.at(row, first), bytes.data(), bytes.size());
        ASSERT_EQ(std::memcmp(bytes.data(), rows_.at(row, first), bytes.size()), 0);
    }

    /// As two cursors do: each row must hold while the other is found, and for two calls more.
    void swapBorrowed(int nth)
    {
        const R_UINT rowBytes = rows_.shape.rowBytes;
        const R_INT64 one = below(rows_.shape.height), two = below(rows_.shape.height);
        uint8_t other = 0;
        const FailingAllocation fault(nth, kFailHeap);
        uint8_t* const upper = rows_.store.borrow(rows_.slots, rows_.shape, one, true);
        ASSERT_TRUE(upper != nullptr || fault.happened());
        uint8_t* const lower = rows_.store.borrow(rows_.slots, rows_.shape, two, false);
        (void)rows_.store.read(rows_.slots, rows_.shape, &other, below(rows_.shape.height), 0, 1);
        (void)rows_.store.settle(rows_.slots);
        ASSERT_TRUE(lower == nullptr || std::memcmp(lower, rows_.at(two, 0), rowBytes) == 0);
        if (upper == nullptr) return;
        ASSERT_EQ(std::memcmp(upper, rows_.at(one, 0), rowBytes), 0);
        fill(upper, rowBytes);
        std::memcpy(rows_.at(one, 0), upper, rowBytes);
    }

    void settle()
    {
        for (int i = 0; i < 4; ++i) ASSERT_EQ(rows_.store.settle(rows_.slots), SUCCESS); // borrowed rows have gone by
        ASSERT_LE(rows_.store.usage(rows_.slots).openBands, 1u);
    }

    void changeHeight(int nth)
    {
        const R_INT height = below(2) == 0 ? below(60) : std::max(0, rows_.shape.height + below(5) - 2);
        const FailingAllocation fault(nth, kFailHeap);
        const Status status = rows_.store.changeHeight(rows_.slots, rows_.shape, height);
        ASSERT_TRUE(status.ok() || (fault.happened() && status == ERROR_FAILURE)) << status;
        if (!status.ok()) return;
        rows_.shape.height = height;
        rows_.model.resize(size_t{rows_.shape.rowBytes} * static_cast<size_t>(height));
    }

    Rows& rows_;
    std::mt19937 random_;
    R_UINT mostOpen_;
};

TEST(SuperCompressed, RandomCallsAgainstAPlainBuffer)
{
    SKIP_WITHOUT_CODEC();
    for (unsigned seed = 1; seed <= 24; ++seed) {
        const std::string text = "seed " + std::to_string(seed);
        const LiveBlocks live;
        {
            const R_UINT rowBytes = 4 * (1 + seed % 20), open = 4 + seed % 3;
            const bool second = seed % 2 == 0; // where there are two codecs, the slower one
            std::unique_ptr<Rows> rows;
            {
                const FailingAllocation fault(second ? 1 : 1000, kFailModules);
                rows = std::make_unique<Rows>(seed % 5 == 0 ? 1 : 50, rowBytes,
                                              SuperCompressedStore::Limits{seed % 4 == 0 ? 1u : 200u, open});
            }
            ASSERT_EQ(rows->created, SUCCESS) << text;
            Walk walk(*rows, seed, open);
            for (int i = 0; i < 1500 && !testing::Test::HasFatalFailure(); ++i) {
                SCOPED_TRACE(text + ", step " + std::to_string(i));
                walk.step(seed % 3 != 0);
                if (i % 100 == 0) rows->expectTrue(text);
            }
            rows->expectTrue(text);
        }
        ASSERT_EQ(live.count(), 0) << text << ": " << live.text();
        if (HasFatalFailure()) return;
    }
}

TEST(SuperCompressed, TheLimitOfConventionalMemoryLosesNoRow)
{
    SKIP_WITHOUT_CODEC();
    Rows rows(400, 100, {1000, 4});
    ASSERT_EQ(rows.created, SUCCESS);
    std::mt19937 random(5);
    constexpr R_UINT64 kRoom = 12000;
    R_ManageMemory(MANAGE_SET_LIMIT, conventionalTotal() + kRoom, nullptr);
    std::vector<uint8_t> row(100);
    R_INT written = 0;
    Status status = SUCCESS;
    for (; written < 400; ++written) {
        for (uint8_t& byte : row) byte = static_cast<uint8_t>(random() % 32);
        status = rows.store.write(rows.slots, rows.shape, row.data(), written, 0, 100);
        if (!status.ok()) break;
        std::memcpy(rows.at(written, 0), row.data(), 100);
    }
    EXPECT_EQ(status, ERROR_MEMORY_LIMIT);
    EXPECT_TRUE(written > 100 && conventionalTotal() <= rows.before + kRoom + 5000)
        << written << " rows, " << conventionalTotal();
    EXPECT_EQ(rows.store.write(rows.slots, rows.shape, row.data(), written - 1, 0, 1), SUCCESS) << "of an open band";
    *rows.at(written - 1, 0) = row[0];
    R_ManageMemory(MANAGE_SET_LIMIT, 0, nullptr);
    rows.expectTrue("after the limit");
}

TEST(SuperCompressed, TakesWhatIsWorkedOnAndLittleMore)
{
    SKIP_WITHOUT_CODEC();
    constexpr R_UINT64 kBand = 128 * 1024;
    const R_UINT64 before = conventionalTotal();
    BITMAPHANDLE p;
    R_InitBitmap(&p, BITMAPHANDLE_SIZE, 40000, 40000, 24);
    ASSERT_EQ(R_AllocateBitmap(&p, MEM_SUPER_COMPRESSED), SUCCESS);
    EXPECT_EQ(p.Flags & 0xD517u, FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY | FLAG_SUPER_COMPRESSED);
    std::vector<uint8_t> row(p.BytesPerLine);
    ASSERT_EQ(R_GetBitmapRow(&p, row.data(), 39999, row.size()), static_cast<R_SSIZE>(row.size()));
    EXPECT_LT(conventionalTotal() - before, p.Size64 / 4000) << "what was never written takes no memory";

    ASSERT_EQ(R_AccessBitmap(&p), SUCCESS);
    for (R_INT y = 0; y < 200; ++y) {
        for (size_t i = 0; i < row.size(); ++i) row[i] = static_cast<uint8_t>(i / 512 + static_cast<size_t>(y));
        ASSERT_EQ(R_PutBitmapRow(&p, row.data(), y * 199, row.size()), static_cast<R_SSIZE>(row.size()));
        ASSERT_LT(conventionalTotal() - before,
                  p.Size64 / 4000 + 10 * kBand + static_cast<R_UINT64>(y) * row.size() / 20);
    }
    ASSERT_EQ(R_ReleaseBitmap(&p), SUCCESS);
    EXPECT_LT(conventionalTotal() - before, p.Size64 / 4000 + kBand + 200 * row.size() / 20) << "one band stays open";
    ASSERT_EQ(R_GetBitmapRow(&p, row.data(), 7 * 199, row.size()), static_cast<R_SSIZE>(row.size()));
    for (size_t i = 0; i < row.size(); ++i) ASSERT_EQ(row[i], static_cast<uint8_t>(i / 512 + 7));
    R_FreeBitmap(&p);
    EXPECT_EQ(conventionalTotal(), before);
}

TEST(SuperCompressed, PacksRowsThatRepeatEachOtherAndKeepsNoiseAsItIs)
{
    SKIP_WITHOUT_CODEC();
    for (const R_UINT rowBytes : {400u, 12000u, 60000u, 300000u}) {
        for (const bool repeats : {true, false}) {
            Rows rows(static_cast<R_INT>(1200000 / rowBytes), rowBytes, {128 * 1024, 4});
            const size_t period = rowBytes < 60000 ? rowBytes : 400; // fewer rows to a band are looked at as one
            std::mt19937 random(rowBytes);
            for (size_t i = 0; i < rows.model.size(); ++i)
                rows.model[i] = repeats && i >= period ? rows.model[i - period] : static_cast<uint8_t>(random());
            ASSERT_EQ(rows.store.write(rows.slots, rows.shape, rows.model.data(), 0, 0, rows.model.size()), SUCCESS);
            EXPECT_EQ(rows.store.settle(rows.slots), SUCCESS);
            const R_UINT64 taken = rows.store.usage(rows.slots).bytes;
            EXPECT_TRUE(repeats ? taken < 500000 : taken > 1200000) << rowBytes << ": " << taken;
            rows.expectTrue(std::to_string(rowBytes));
        }
    }
}

TEST(SuperCompressed, ServesThreeDepthsAndUsesTheCodecOncePerBitmap)
{
    SKIP_WITHOUT_CODEC();
    for (const R_INT bits : allDepths()) {
        for (const bool codec : {true, false}) {
            const LiveBlocks live;
            const NoMemory noModules(codec ? 0u : unsigned{kFailModules});
            const bool served = codec && (bits == 1 || bits == 8 || bits == 24);
            BITMAPHANDLE p;
            for (const R_UINT memory : {MEM_SUPER_COMPRESSED, MEM_SUPER_COMPRESSED | MEM_CONVENTIONAL}) {
                const bool needed = memory == MEM_SUPER_COMPRESSED;
                R_InitBitmap(&p, BITMAPHANDLE_SIZE, 10, 10, bits);
                EXPECT_EQ(R_AllocateBitmap(&p, memory), served || !needed ? SUCCESS : ERROR_INV_PARAMETER) << bits;
                EXPECT_EQ((p.Flags & FLAG_SUPER_COMPRESSED) != 0, served) << bits;
                EXPECT_EQ(live.count(kModules), served ? 1 : 0) << bits;
                R_FreeBitmap(&p);
            }
            EXPECT_EQ(live.count(), 0) << live.text();
        }
    }
}

TEST(SuperCompressed, RefusesWhatIsNotItsOwn)
{
    SKIP_WITHOUT_CODEC();
    Rows rows(30, 20, {100, 4});
    ASSERT_EQ(rows.created, SUCCESS);
    alignas(64) char foreign[4096] = "nothing that anybody here has made";
    uint8_t bytes[700] = {};
    const auto refused = [&](StoreSlots slots, const StoreShape& shape, R_INT64 row, R_INT64 first, R_SIZE count) {
        return rows.store.read(slots, shape, bytes, row, first, count) == ERROR_INV_BITMAP &&
               rows.store.write(slots, shape, bytes, row, first, count) == ERROR_INV_BITMAP;
    };
    StoreShape longer = rows.shape;
    longer.rowBytes = 24;
    for (const StoreSlots& slots : {StoreSlots(), StoreSlots{foreign, nullptr, 0}, StoreSlots{foreign + 1, nullptr, 0},
                                    StoreSlots{rows.slots.handle, foreign, 0}}) {
        StoreSlots copy = slots;
        EXPECT_TRUE(refused(slots, rows.shape, 0, 0, 1));
        EXPECT_EQ(rows.store.changeHeight(copy, rows.shape, 9), ERROR_INV_BITMAP);
        EXPECT_EQ(rows.store.borrow(slots, rows.shape, 0, true), nullptr);
        EXPECT_EQ(rows.store.settle(slots), SUCCESS);
        rows.store.destroy(copy, rows.shape);
    }
    EXPECT_TRUE(refused(rows.slots, longer, 0, 0, 1));
    for (const R_INT64 row : {R_INT64{-1}, R_INT64{30}, INT64_MAX}) {
        EXPECT_TRUE(refused(rows.slots, rows.shape, row, 0, 1));
        EXPECT_EQ(rows.store.borrow(rows.slots, rows.shape, row, false), nullptr);
    }
    EXPECT_TRUE(refused(rows.slots, rows.shape, 29, 0, 21));
    EXPECT_TRUE(refused(rows.slots, rows.shape, 1, 0, SIZE_MAX));
    EXPECT_TRUE(refused(rows.slots, rows.shape, 1, -1, 1) && refused(rows.slots, rows.shape, 1, INT64_MAX, 1));
}

} // namespace
} // namespace rv::test
