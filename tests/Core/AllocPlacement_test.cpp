#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>

namespace rv::test {
namespace {

constexpr R_UINT64 kMiB = 1024 * 1024;

/// Puts the thread's and the process's settings back.
struct Settings {
    ~Settings()
    {
        R_SetMemoryThresholds(0, 2147483647, 0, -100, 1, 31);
        R_SetGlobalMemoryThresholds(nullptr);
        R_ManageMemory(MANAGE_SET_LIMIT, 0, nullptr);
        TEMPFILEOPTIONS options{TEMPFILEOPTIONS_SIZE, 0, 0, 128, 8, 16};
        R_SetTempFileOptions(&options);
    }
};

void setTempFileMode(R_UINT mode)
{
    TEMPFILEOPTIONS options{TEMPFILEOPTIONS_SIZE, mode, 0, 128, 8, 16};
    ASSERT_EQ(R_SetTempFileOptions(&options), SUCCESS);
}

void setGlobalThreshold(R_INT64 bytes)
{
    GLOBALMEMORYTHRESHOLDS thresholds{GLOBALMEMORYTHRESHOLDS_SIZE, bytes};
    ASSERT_EQ(R_SetGlobalMemoryThresholds(&thresholds), SUCCESS);
}

/// Allocates a bitmap of `bytes` bytes; answers the status, or 100 × the placement that came out.
R_INT placed(R_UINT64 bytes, R_UINT memory)
{
    const LiveBlocks live;
    BITMAPHANDLE p;
    R_InitBitmap(&p, BITMAPHANDLE_SIZE, 1024, static_cast<R_INT>(bytes / 1024), 8);
    R_INT answer = R_AllocateBitmap(&p, memory);
    if (answer == SUCCESS) {
        R_UINT where = 0;
        EXPECT_EQ(R_GetBitmapMemoryInfo(&p, &where, nullptr, nullptr, nullptr, nullptr, nullptr), SUCCESS);
        answer = static_cast<R_INT>(where) * 100;
        if (where == MEM_CONVENTIONAL) {
            EXPECT_EQ(reinterpret_cast<uintptr_t>(p.Addr.Pointer) % 32, 0u);
        }
    } else {
        EXPECT_EQ(p.Flags & FLAG_ALLOCATED, 0u);
        EXPECT_EQ(p.Addr.Handle, nullptr);
    }
    R_FreeBitmap(&p);
    EXPECT_EQ(live.count(), 0) << live.text();
    return answer;
}

constexpr R_INT kConventional = 100;

TEST(Placement, AcceptsExactlyTheSetsThatMakeSense)
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

TEST(Placement, SmallBitmapsAreConventional)
{
    const Settings settings;
    EXPECT_EQ(placed(20 * kMiB, MEM_CONVENTIONAL), kConventional);
    EXPECT_EQ(placed(kMiB, MEM_TILED), kConventional) << "no larger than one tile";
    EXPECT_EQ(placed(kMiB, MEM_NO_TILED | MEM_NO_DISK), kConventional);
}

TEST(Placement, WhatMemoryCannotHoldNeverStaysConventional)
{
    const Settings settings;
    const PretendMemory small({8 * kMiB, 4 * kMiB, 8 * kMiB, 6 * kMiB}); // 10 MiB available of 16
    const R_UINT noSpill = MEM_NO_TILED | MEM_NO_DISK;
    EXPECT_EQ(placed(10 * kMiB, noSpill), kConventional);
    EXPECT_EQ(placed(10 * kMiB + 1024, noSpill), ERROR_FAILURE);
    EXPECT_NE(placed(10 * kMiB + 1024, MEM_CONVENTIONAL), kConventional);
    R_SetMemoryThresholds(static_cast<R_INT>(2 * kMiB), 0, 0, 0, 0, THRESHOLD_RESERVE);
    EXPECT_EQ(placed(8 * kMiB, noSpill), kConventional);
    EXPECT_EQ(placed(8 * kMiB + 1024, noSpill), ERROR_FAILURE);
    R_SetMemoryThresholds(-50, 0, 0, 0, 0, THRESHOLD_RESERVE); // half of all memory: 8 of 16
    EXPECT_EQ(placed(2 * kMiB, noSpill), kConventional);
    EXPECT_EQ(placed(2 * kMiB + 1024, noSpill), ERROR_FAILURE);
    R_SetMemoryThresholds(0, -10, 0, 0, 0, THRESHOLD_RESERVE | THRESHOLD_MAX_CONV_SIZE); // a tenth of 10
    EXPECT_EQ(placed(kMiB - 1024, noSpill), kConventional);
    EXPECT_EQ(placed(kMiB + 1024, noSpill), ERROR_FAILURE);
    R_SetMemoryThresholds(-100, 0, 0, 0, 0, THRESHOLD_RESERVE);
    EXPECT_EQ(placed(1024, noSpill), ERROR_FAILURE) << "a reserve above what is available leaves nothing";
}

TEST(Placement, TheProcessLimitHasACodeOfItsOwn)
{
    const Settings settings;
    R_UINT64 total = 0;
    ASSERT_EQ(R_ManageMemory(MANAGE_GET_TOTAL, 0, &total), SUCCESS);
    R_ManageMemory(MANAGE_SET_LIMIT, total + 2 * kMiB, nullptr);
    EXPECT_EQ(placed(2 * kMiB, MEM_NO_TILED | MEM_NO_DISK), kConventional);
    EXPECT_EQ(placed(2 * kMiB + 1024, MEM_NO_TILED | MEM_NO_DISK), ERROR_MEMORY_LIMIT);
    R_UINT64 after = 0;
    R_ManageMemory(MANAGE_GET_TOTAL, 0, &after);
    EXPECT_EQ(after, total) << "a refused or freed bitmap takes nothing";
}

TEST(Placement, TemporaryFilesInMemoryOnlyNeverSpill)
{
    const Settings settings;
    const NoMemory noPages(kFailPages);
    setTempFileMode(TEMPFILE_MEMORY);
    EXPECT_EQ(placed(kMiB, MEM_NO_TILED), ERROR_FAILURE);
    EXPECT_EQ(placed(kMiB, MEM_DISK), ERROR_FAILURE) << "the wish for a file becomes one for none";
    EXPECT_EQ(placed(kMiB, 0), ERROR_INV_PARAMETER);
}

TEST(Placement, AFailedMappingGivesTheTotalBack)
{
    const Settings settings;
    R_UINT64 total = 0, after = 0;
    R_ManageMemory(MANAGE_GET_TOTAL, 0, &total);
    for (int nth = 1; nth <= 2; ++nth) {
        const FailingAllocation fault(nth, kFailPages);
        EXPECT_EQ(placed(kMiB, MEM_NO_TILED | MEM_NO_DISK), ERROR_FAILURE);
        EXPECT_TRUE(fault.happened());
    }
    R_ManageMemory(MANAGE_GET_TOTAL, 0, &after);
    EXPECT_EQ(after, total);
}

TEST(Placement, OneThresholdSendsLargeBitmapsOutOfConventionalMemory)
{
    const Settings settings;
    setGlobalThreshold(kMiB);
    EXPECT_EQ(placed(kMiB, MEM_CONVENTIONAL), kConventional);
    EXPECT_NE(placed(kMiB + 1024, MEM_CONVENTIONAL), kConventional);
    EXPECT_EQ(placed(kMiB + 1024, MEM_CONVENTIONAL | MEM_NO_DISK), kConventional);
}

} // namespace
} // namespace rv::test
