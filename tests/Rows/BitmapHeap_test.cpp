#include "Kernel/Rows/BitmapHeap.h"
#include "R_Kernel.h"
#include "Support/Conventional.h"
#include "Support/FailingPlatform.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <set>
#include <vector>

namespace rv::test {
namespace {

constexpr R_UINT64 kStep = 262144;

/// A heap, read by its layout.
class Heap {
public:
    struct Block {
        R_UINT64 prevPhys, nextPhys, inUse, prevFree, nextFree, payload;
    };

    Heap() { EXPECT_TRUE(BitmapHeap::create(&memory, kStep)); }
    ~Heap() { heap.destroy(); }
    Heap(const Heap&) = delete;
    Heap& operator=(const Heap&) = delete;

    R_UINT64 word(R_UINT64 offset) const { return load<R_UINT64>(offset); }
    Block block(R_UINT64 offset) const { return load<Block>(offset); }
    R_UINT64 payload(R_UINT64 offset) const { return block(offset).payload; }

    /// Walks the blocks and the free list. Answers how many bytes at the end belong to no block.
    R_UINT64 strayBytes() const
    {
        std::set<R_UINT64> unused, listed;
        R_UINT64 previous = 0, offset = 24;
        for (R_UINT64 next = 24; next != 0; previous = offset, offset = next) {
            const Block b = block(offset = next);
            EXPECT_EQ(b.prevPhys, previous);
            EXPECT_EQ(b.payload % 4, 0u);
            if (b.inUse == 0) unused.insert(offset);
            next = b.nextPhys;
            EXPECT_TRUE(next == 0 || next == offset + 48 + b.payload) << offset;
            if (next == 0) break;
        }
        EXPECT_EQ(word(8), offset);
        previous = 0;
        for (R_UINT64 entry = word(16); entry != 0 && listed.insert(entry).second; entry = block(entry).nextFree) {
            EXPECT_EQ(block(entry).prevFree, previous);
            previous = entry;
        }
        EXPECT_EQ(listed, unused);
        return word(0) - (offset + 48 + payload(offset));
    }

    void* memory = nullptr;
    BitmapHeap heap{&memory};

private:
    template <class T> T load(R_UINT64 offset) const
    {
        T value;
        std::memcpy(&value, static_cast<const uint8_t*>(memory) + offset, sizeof value);
        return value;
    }
};

TEST(BitmapHeap, HoldsWhatIsPutInThroughAnySequenceAndAnyFailure)
{
    const LiveBlocks live;
    const R_UINT64 total = conventionalTotal();
    for (unsigned seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        Heap h;
        std::map<R_UINT64, std::vector<uint8_t>> model;
        const auto fill = [&](R_UINT64 offset, size_t size) {
            std::vector<uint8_t> bytes(size);
            for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
            std::memcpy(h.heap.data(offset), bytes.data(), size);
            model[offset] = bytes;
        };
        R_UINT64 stray = 0;
        for (int step = 0; step < 1500 && !testing::Test::HasFailure(); ++step) {
            const size_t size = 1 + random() % (random() % 50 == 0 ? 200000 : 400);
            const FailingAllocation fault(random() % 3 == 0 ? 1 : 1000, kFailHeap);
            auto victim = model.begin();
            if (!model.empty()) std::advance(victim, random() % model.size());
            R_UINT64 capacity = h.word(0);
            const auto action = static_cast<unsigned>(random() % 100);
            if (action < 40 || model.empty()) {
                const R_UINT64 offset = h.heap.allocate(size);
                EXPECT_EQ(offset == 0, fault.happened());
                if (offset != 0) fill(offset, size);
            } else if (action < 70) {
                const R_UINT64 offset = h.heap.reallocate(victim->first, size);
                EXPECT_EQ(offset == 0, fault.happened());
                if (offset == 0) continue;
                const size_t kept = std::min(size, victim->second.size());
                EXPECT_EQ(std::memcmp(h.heap.data(offset), victim->second.data(), kept), 0);
                model.erase(victim);
                fill(offset, size);
            } else if (action < 96) {
                R_HeapFree(h.memory, victim->first);
                model.erase(victim);
            } else if (action < 98) {
                const bool grown = h.heap.grow(random() % 300000);
                EXPECT_EQ(grown, !fault.happened());
                if (grown) stray = 0;
            } else {
                if (h.heap.trim()) stray += 48, capacity = h.word(0);
            }
            if (h.word(0) != capacity) stray = 0; // it has grown
            EXPECT_EQ(h.strayBytes(), stray);
            EXPECT_EQ(conventionalTotal() - total, h.word(0));
            for (const auto& [offset, bytes] : model) {
                EXPECT_EQ(h.block(offset).inUse, 1u);
                EXPECT_GE(h.payload(offset), bytes.size());
                EXPECT_EQ(std::memcmp(h.heap.data(offset), bytes.data(), bytes.size()), 0);
            }
        }
    }
    EXPECT_EQ(conventionalTotal(), total);
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(BitmapHeap, SplitsAndMergesAsItsUsersCount)
{
    Heap h;
    const R_UINT64 a = h.heap.allocate(1), b = h.heap.allocate(148), c = h.heap.allocate(100), d = h.heap.allocate(4);
    EXPECT_EQ(h.heap.reallocate(b, 100), b);
    EXPECT_EQ(h.payload(b), 148u) << "48 bytes to spare are no block";
    EXPECT_EQ(h.heap.reallocate(b, 96), b);
    EXPECT_EQ(h.block(b).nextPhys, b + 48 + 96) << "52 bytes are one, of 4";
    R_HeapFree(h.memory, b); // upwards: two blocks
    R_HeapFree(h.memory, c);
    EXPECT_EQ(h.block(b).nextPhys, c);
    EXPECT_EQ(h.heap.allocate(4), c) << "last freed, first found";
    R_HeapFree(h.memory, c);
    EXPECT_EQ(h.heap.allocate(148), b);
    R_HeapFree(h.memory, b); // downwards: one
    EXPECT_EQ(h.block(b).nextPhys, d);
    R_HeapFree(h.memory, a);
    const R_UINT64 e = h.heap.allocate(100), f = h.heap.allocate(4);
    R_HeapFree(h.memory, e);
    EXPECT_GT(h.heap.reallocate(f, 1000), d);
    EXPECT_EQ(h.block(a).nextPhys, d) << "what moves away merges with the block before it, too";
}

TEST(BitmapHeap, GrowsAndShrinksInStepsAndTrimsToARest)
{
    Heap h;
    EXPECT_TRUE(h.heap.grow(3 * kStep));
    EXPECT_EQ(h.word(0), 4 * kStep) << "what is free at the end counts";
    EXPECT_TRUE(h.heap.grow(kStep));
    EXPECT_EQ(h.word(0), 2 * kStep) << "and where it is more than asked for, it goes";
    EXPECT_EQ(h.heap.allocate(h.payload(24)), 24u);
    EXPECT_FALSE(h.heap.trim()) << "nothing is free at the end";
    EXPECT_TRUE(h.heap.grow(4));
    EXPECT_TRUE(h.heap.trim());
    EXPECT_EQ(h.word(0), 2 * kStep + 48 + 128 + 48);
    EXPECT_FALSE(h.heap.trim()) << "128 bytes are the rest that stays";
    for (const R_UINT64 much : {~R_UINT64{0}, ~R_UINT64{0} >> 1}) EXPECT_FALSE(h.heap.grow(much));
    for (const R_UINT64 stray : {R_UINT64{0}, R_UINT64{23}, h.word(0) - 47, ~R_UINT64{0}, h.word(8)})
        R_HeapFree(h.memory, stray); // nothing that was allocated
    ASSERT_EQ(R_ManageMemory(MANAGE_SET_LIMIT, conventionalTotal() + 1, nullptr), SUCCESS);
    EXPECT_FALSE(h.heap.grow(17000000)) << "so much has to be asked for";
    EXPECT_EQ(h.strayBytes(), 48u);
    EXPECT_TRUE(h.heap.grow(15000000));
    ASSERT_EQ(R_ManageMemory(MANAGE_SET_LIMIT, 0, nullptr), SUCCESS);
    EXPECT_EQ(h.strayBytes(), 0u);
}

TEST(BitmapHeap, KnowsOfItsFreeBlocksWhatAWalkTells)
{
    const LiveBlocks live;
    size_t knew = 0;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        Heap h, twin;
        FreeBlocks known;
        BitmapHeap knowing(&h.memory, &known);
        std::vector<R_UINT64> held;
        for (unsigned step = 0; step < 20000; ++step) {
            const size_t size = 1 + random() % (random() % 90 == 0 ? 30000 : 50 + step / 50);
            const size_t at = held.empty() ? 0 : random() % held.size();
            const auto action = static_cast<unsigned>(random() % 4000);
            if (action < 1600 || held.empty()) {
                held.push_back(knowing.allocate(size));
                ASSERT_EQ(held.back(), twin.heap.allocate(size));
            } else if (action < 2800) {
                const R_UINT64 moved = knowing.reallocate(held[at], size);
                ASSERT_EQ(moved, twin.heap.reallocate(held[at], size));
                held[at] = moved;
            } else if (action < 3998) { // callers, who know of nothing, now and then
                action < 2802 ? R_HeapFree(h.memory, held[at]) : knowing.free(held[at]);
                twin.heap.free(held[at]);
                held[at] = held.back();
                held.pop_back();
            } else if (action < 3999) {
                ASSERT_EQ(knowing.grow(size), twin.heap.grow(size));
            } else {
                ASSERT_EQ(knowing.trim(), twin.heap.trim());
            }
            knew += known.active() ? 1u : 0u;
        }
        EXPECT_EQ(h.strayBytes(), twin.strayBytes());
        for (const R_UINT64 word : {0u, 8u, 16u}) EXPECT_EQ(h.word(word), twin.word(word));
        known.stop();
        const FailingAllocation fault(1, kFailHeap);
        const R_UINT64 large = knowing.allocate(1 << 20); // memory for the heap, and none beside it
        EXPECT_EQ(large, twin.heap.allocate(1 << 20));
        EXPECT_TRUE(fault.happened());
        known.stop();
    }
    EXPECT_GT(knew, 40000u);
    EXPECT_EQ(live.count(), 0) << live.text();
}

} // namespace
} // namespace rv::test
