#include "Support/Conventional.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <set>

namespace rv::test {
namespace {

constexpr R_UINT64 kMiB = 1024 * 1024;
constexpr R_INT kConventional = 100;
constexpr R_INT kTiled = 400;
constexpr R_INT kDisk = 12800;
constexpr R_UINT kNoSpill = MEM_NO_TILED | MEM_NO_DISK;

/// Puts the thread's and the process's settings back.
class Placement : public testing::Test {
protected:
    static void setTempFileMode(R_UINT mode)
    {
        TEMPFILEOPTIONS options{TEMPFILEOPTIONS_SIZE, mode, 0, 128, 8, 16};
        EXPECT_EQ(R_SetTempFileOptions(&options), SUCCESS);
    }
    void TearDown() override
    {
        R_SetMemoryThresholds(0, 2147483647, 0, -100, 1, 31);
        R_SetGlobalMemoryThresholds(nullptr);
        R_ManageMemory(MANAGE_SET_LIMIT, 0, nullptr);
        setTempFileMode(0);
    }
};

/// Allocates a bitmap of `bytes` bytes; answers the status, or 100 × the placement that came out. Whatever came out,
/// it takes nothing once it is freed.
R_INT placed(R_UINT64 bytes, R_UINT memory)
{
    const LiveBlocks live;
    const R_UINT64 before = conventionalTotal();
    BITMAPHANDLE p;
    R_InitBitmap(&p, BITMAPHANDLE_SIZE, 1024, static_cast<R_INT>(bytes / 1024), 8);
    R_INT answer = R_AllocateBitmap(&p, memory);
    R_UINT where = 0;
    if (answer == SUCCESS) {
        EXPECT_EQ(R_GetBitmapMemoryInfo(&p, &where, nullptr, nullptr, nullptr, nullptr, nullptr), SUCCESS);
        EXPECT_TRUE(where != MEM_CONVENTIONAL || reinterpret_cast<uintptr_t>(p.Addr.Pointer) % 32 == 0);
        answer = static_cast<R_INT>(where) * 100;
    } else {
        EXPECT_TRUE((p.Flags & FLAG_ALLOCATED) == 0 && p.Addr.Handle == nullptr);
    }
    R_FreeBitmap(&p);
    EXPECT_EQ(conventionalTotal(), before);
    EXPECT_EQ(live.count(), 0) << live.text();
    return answer;
}

TEST_F(Placement, AcceptsExactlyTheSetsThatMakeSense)
{
    // After dropping what this bitmap cannot have: 8 bits are never run-length rows.
    const std::set<R_UINT> sets{1, 2, 4, 8, 9, 128, 256, 257, 260, 264, 265, 768, 769, 1024, 1025, 1280, 1281};
    for (R_UINT memory = 0; memory < 2048; ++memory) {
        R_UINT effective = memory;
        if ((memory & MEM_USER) != 0) effective &= ~(MEM_NO_DISK | MEM_NO_TILED);
        effective &= ~MEM_COMPRESSED;
        const bool drops = (effective & MEM_SUPER_COMPRESSED) != 0;
        const R_INT status = placed(4096, memory);
        if (sets.count(effective & ~MEM_SUPER_COMPRESSED) == 0 && !(drops && sets.count(effective) != 0)) {
            EXPECT_EQ(status, ERROR_INV_PARAMETER) << memory;
        } else if (sets.count(effective) != 0 && !drops) {
            EXPECT_NE(status, ERROR_INV_PARAMETER) << memory;
        }
    }
    EXPECT_EQ(placed(4096, 4096), ERROR_INV_PARAMETER);
}

TEST_F(Placement, SmallBitmapsAreConventional)
{
    EXPECT_EQ(placed(kMiB, MEM_TILED), kConventional) << "no larger than one tile";
    EXPECT_EQ(placed(20 * kMiB, MEM_TILED), kTiled);
    EXPECT_EQ(placed(kMiB, kNoSpill), kConventional);
    EXPECT_EQ(placed(1024, MEM_DISK), kDisk) << "but for those that are sent away";
}

TEST_F(Placement, WhatMemoryCannotHoldNeverStaysConventional)
{
    const PretendMemory small({8 * kMiB, 4 * kMiB, 8 * kMiB, 6 * kMiB}); // 10 MiB available of 16
    const struct {
        R_INT reserve;
        R_INT64 maximum;
        R_UINT which;
        R_UINT64 holds, tooMuch;
    } cases[] = {
        {0, 0, 0, 10 * kMiB, 10 * kMiB + 1024},
        {2 * kMiB, 0, THRESHOLD_RESERVE, 8 * kMiB, 8 * kMiB + 1024},
        {-50, 0, THRESHOLD_RESERVE, 2 * kMiB, 2 * kMiB + 1024},                          // half of all memory
        {0, -10, THRESHOLD_RESERVE | THRESHOLD_MAX_CONV_SIZE, kMiB - 1024, kMiB + 1024}, // a tenth of what there is
        {-100, 0, THRESHOLD_RESERVE, 0, 1024}, // a reserve above what is available leaves nothing
    };
    for (const auto& c : cases) {
        R_SetMemoryThresholds(c.reserve, c.maximum, 0, 0, 0, c.which);
        EXPECT_TRUE(c.holds == 0 || placed(c.holds, kNoSpill) == kConventional) << c.reserve;
        EXPECT_EQ(placed(c.tooMuch, kNoSpill), ERROR_FAILURE) << c.reserve;
        EXPECT_EQ(placed(c.tooMuch, MEM_CONVENTIONAL), kTiled) << c.reserve;
        EXPECT_EQ(placed(c.tooMuch, MEM_NO_DISK), ERROR_FAILURE) << "tiles would all have to be in memory";
        EXPECT_EQ(placed(c.tooMuch, MEM_NO_TILED), kDisk) << c.reserve;
    }
}

TEST_F(Placement, TheProcessLimitHasACodeOfItsOwn)
{
    R_ManageMemory(MANAGE_SET_LIMIT, conventionalTotal() + 2 * kMiB, nullptr);
    EXPECT_EQ(placed(2 * kMiB, kNoSpill), kConventional);
    EXPECT_EQ(placed(2 * kMiB + 1024, kNoSpill), ERROR_MEMORY_LIMIT);
    EXPECT_EQ(placed(2 * kMiB + 1024, MEM_NO_TILED), kDisk);
    EXPECT_EQ(placed(2 * kMiB + 1024, MEM_CONVENTIONAL), kTiled);
    EXPECT_EQ(placed(2 * kMiB + 1024, MEM_NO_DISK), ERROR_MEMORY_LIMIT);
    const NoMemory full(kFailScratch);
    EXPECT_EQ(placed(2 * kMiB + 1024, MEM_NO_TILED), ERROR_FAILURE) << "the last to refuse is heard";
}

TEST_F(Placement, TemporaryFilesInMemoryOnlyNeverSpill)
{
    const NoMemory noPages(kFailPages);
    setTempFileMode(TEMPFILE_MEMORY);
    EXPECT_EQ(placed(kMiB, MEM_NO_TILED), ERROR_FAILURE);
    EXPECT_EQ(placed(kMiB, MEM_DISK), ERROR_FAILURE) << "the wish for a file becomes one for none";
    EXPECT_EQ(placed(kMiB, 0), ERROR_INV_PARAMETER);
}

TEST_F(Placement, OneThresholdSendsLargeBitmapsOutOfConventionalMemory)
{
    GLOBALMEMORYTHRESHOLDS thresholds{GLOBALMEMORYTHRESHOLDS_SIZE, kMiB};
    ASSERT_EQ(R_SetGlobalMemoryThresholds(&thresholds), SUCCESS);
    EXPECT_EQ(placed(kMiB, MEM_CONVENTIONAL), kConventional);
    EXPECT_EQ(placed(kMiB + 1024, MEM_CONVENTIONAL), kDisk);
    EXPECT_EQ(placed(kMiB + 1024, MEM_CONVENTIONAL | MEM_NO_DISK), kConventional);
}

} // namespace
} // namespace rv::test
