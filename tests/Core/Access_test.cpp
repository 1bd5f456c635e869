#include "Internal/R_Int.h"
#include "Kernel/Base/System.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

namespace rv::test {
namespace {

/// A bitmap whose access and release are answered by the test.
struct Asked {
    explicit Asked(const TestBitmap& bitmap)
    {
        BITMAPHANDLEDATACALLBACKS callbacks = callbacksFor(this);
        callbacks.AccessBitmapCallback = [](BITMAPHANDLE*, void* self) {
            ++static_cast<Asked*>(self)->accesses;
            return static_cast<Asked*>(self)->accessAnswer;
        };
        callbacks.ReleaseBitmapCallback = [](BITMAPHANDLE*, void* self) {
            ++static_cast<Asked*>(self)->releases;
            return static_cast<Asked*>(self)->releaseAnswer;
        };
        EXPECT_EQ(R_SetBitmapDataCallbacks(bitmap, &callbacks), SUCCESS);
    }
    R_INT accessAnswer = SUCCESS, releaseAnswer = SUCCESS;
    int accesses = 0, releases = 0;
};

Scene movable() { return {.home = Home::movable}; }

bool isLocked(const TestBitmap& p)
{
    EXPECT_EQ((p->Flags & FLAG_LOCKED_MEMORY) != 0, p->Addr.Pointer != nullptr);
    return p->Addr.Pointer != nullptr;
}

TEST(Access, NestsAndLocksOnce)
{
    const TestBitmap p(movable());
    {
        const NoMemory noLocks(kFailLocking);
        EXPECT_EQ(R_AccessBitmap(p), ERROR_FAILURE);
        EXPECT_TRUE(!isLocked(p) && p->nLockCount == 0);
    }
    EXPECT_EQ((Answered{R_AccessBitmap(p), R_AccessBitmap(p), p->nLockCount, R_ReleaseBitmap(p)}),
              (Answered{SUCCESS, SUCCESS, 2, SUCCESS}));
    EXPECT_TRUE(isLocked(p));
    EXPECT_EQ(R_ReleaseBitmap(p), SUCCESS);
    EXPECT_FALSE(isLocked(p));
    EXPECT_EQ((Answered{R_ReleaseBitmap(p), p->nLockCount}), (Answered{SUCCESS, -1}))
        << "a caller's mistake stays visible";
    EXPECT_EQ(R_AccessBitmap(p), SUCCESS);
    EXPECT_TRUE(isLocked(p) && p->nLockCount == 0);
    EXPECT_EQ((Answered{R_ReleaseBitmap(p), R_ReleaseBitmap(nullptr)}), (Answered{SUCCESS, ERROR_NULL_PTR}));
}

TEST(Access, FollowsTheCallbacksAnswers)
{
    const TestBitmap p(movable());
    Asked asked(p);
    R_INT held = 7;

    asked.accessAnswer = SUCCESS_ABORT;
    EXPECT_EQ(R_IntAccessBitmap(p, &held), SUCCESS);
    EXPECT_TRUE(held == 1 && p->nLockCount == 1);
    EXPECT_FALSE(isLocked(p)) << "the callback did it";
    asked.releaseAnswer = -55;
    EXPECT_EQ(R_IntReleaseBitmap(p, held, SUCCESS), -55);
    EXPECT_EQ(p->nLockCount, 0);

    asked.accessAnswer = -44;
    EXPECT_EQ(R_IntAccessBitmap(p, &held), -44);
    EXPECT_TRUE(held == 0 && p->nLockCount == 0);

    asked.accessAnswer = SUCCESS;
    EXPECT_EQ(R_IntAccessBitmap(p, &held), SUCCESS);
    EXPECT_EQ(R_IntReleaseBitmap(p, 0, -3), -3) << "not released";
    EXPECT_EQ(p->nLockCount, 1);
    EXPECT_EQ(R_IntReleaseBitmap(p, 1, -3), -3) << "the earlier failure speaks";
    EXPECT_TRUE(asked.accesses == 3 && asked.releases == 2);
    EXPECT_TRUE(isLocked(p)) << "a failed release leaves the block locked";
    asked.releaseAnswer = SUCCESS;
    EXPECT_EQ(R_ReleaseBitmap(p), SUCCESS);
    EXPECT_FALSE(isLocked(p));
    p->nLockCount = 0;
}

TEST(Callbacks, AreCopiedReplacedAndRefused)
{
    const LiveBlocks live;
    {
        const TestBitmap p({});
        BITMAPHANDLEDATACALLBACKS callbacks{}, back{};
        EXPECT_EQ(R_SetBitmapDataCallbacks(p, &callbacks), ERROR_INV_STRUCT_SIZE);
        callbacks.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE;
        callbacks.pUserData = &callbacks;
        EXPECT_EQ(R_SetBitmapDataCallbacks(nullptr, &callbacks), ERROR_INV_PARAMETER);
        BITMAPHANDLEDATACALLBACKS* const none = nullptr;
        for (auto* const given : {&callbacks, &callbacks, none}) {
            EXPECT_EQ((Answered{R_SetBitmapDataCallbacks(p, given), R_GetBitmapDataCallbacks(p, &back)}),
                      (Answered{SUCCESS, SUCCESS}));
            EXPECT_TRUE(back.pUserData == given && back.uStructSize == BITMAPHANDLEDATACALLBACKS_SIZE);
        }
        BITMAPHANDLE empty;
        R_InitBitmap(&empty, BITMAPHANDLE_SIZE, 0, 0, 0);
        EXPECT_EQ(R_SetBitmapDataCallbacks(&empty, &callbacks), ERROR_INV_SIZE);
        EXPECT_EQ(R_InitBitmapWithCallbacks(&empty, BITMAPHANDLE_SIZE, 0, 5, 8, &callbacks), ERROR_INV_SIZE);
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(CopyBracket, InstallsWhatTheSourceAnswers)
{
    struct Copying {
        R_INT begin = SUCCESS, end = SUCCESS;
        R_UINT size = 0;
        ALLOCATIONINFO info{};
    } copying;
    const TestBitmap source({}), target({});
    BITMAPHANDLEDATACALLBACKS callbacks = callbacksFor(&copying);
    callbacks.BeginCopyBitmapDataCallback = [](BITMAPHANDLE*, R_UINT, ALLOCATIONINFO* info,
                                               BITMAPHANDLEDATACALLBACKS* given, void* userData) {
        auto& c = *static_cast<Copying*>(userData);
        c.info = *info;
        given->uStructSize = c.size;
        given->pUserData = userData;
        return c.begin;
    };
    callbacks.EndCopyBitmapDataCallback = [](BITMAPHANDLE*, BITMAPHANDLE*, R_INT, void* userData) {
        return static_cast<Copying*>(userData)->end;
    };
    ALLOCATIONINFO info{};
    EXPECT_EQ(R_IntBeginCopyBitmap(target, source, 0, nullptr), ERROR_INV_PARAMETER);
    ASSERT_EQ(R_SetBitmapDataCallbacks(source, &callbacks), SUCCESS);
    constexpr R_UINT good = BITMAPHANDLEDATACALLBACKS_SIZE;
    const struct {
        R_INT answer;
        R_UINT size;
        R_INT status;
        bool installed;
    } cases[] = {{-70, good, -70, false},
                 {SUCCESS_ABORT, good, SUCCESS, false},
                 {SUCCESS, 80, ERROR_INV_STRUCT_SIZE, false},
                 {SUCCESS, good, SUCCESS, true}};
    for (const auto& c : cases) {
        copying.begin = c.answer;
        copying.size = c.size;
        EXPECT_EQ(R_IntBeginCopyBitmap(target, source, 0, &info), c.status);
        ASSERT_EQ(target->pDataCallbacks != nullptr, c.installed);
    }
    EXPECT_EQ(target->pDataCallbacks->pUserData, &copying);
    EXPECT_TRUE(copying.info.Width == 37 && copying.info.Size == 440 && copying.info.pData == source->pPalette);
    copying.end = -71;
    EXPECT_EQ((Answered{R_IntEndCopyBitmap(target, source, SUCCESS), R_IntEndCopyBitmap(target, source, -9)}),
              (Answered{-71, -9}));
}

/// What a misused bitmap traces, by call.
TEST(Diagnostics, TraceLockCountsOutOfOrderWhenSwitchedOnAtAttach)
{
    for (const bool on : {false, true}) {
        detach();
        const PretendDiagnostics wanted(on);
        attach();
        const DebugCapture capture;
        const auto traced = [&](const char* text) { return capture.text().find(text) != std::string::npos; };
        const TestBitmap p(movable());
        EXPECT_FALSE(traced("nLockCount"));
        uint8_t row[64];
        R_GetBitmapRow(p, row, 0, 1); // without an access
        EXPECT_EQ(traced("R_GetBitmapRow"), on);
        R_ReleaseBitmap(p);
        EXPECT_EQ(traced("R_ReleaseBitmap"), on);
        R_FreeBitmap(p);
        EXPECT_EQ(traced("R_FreeBitmap: pBitmap->nLockCount = -1"), on);
    }
    detach();
    attach();
}

} // namespace
} // namespace rv::test
