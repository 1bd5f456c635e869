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
        BITMAPHANDLEDATACALLBACKS callbacks{};
        callbacks.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE;
        callbacks.pUserData = this;
        callbacks.AccessBitmapCallback = [](BITMAPHANDLE*, void* self) {
            ++static_cast<Asked*>(self)->accesses;
            return static_cast<Asked*>(self)->accessAnswer;
        };
        callbacks.ReleaseBitmapCallback = [](BITMAPHANDLE*, void* self) {
            ++static_cast<Asked*>(self)->releases;
            return static_cast<Asked*>(self)->releaseAnswer;
        };
        EXPECT_EQ(R_SetBitmapDataCallbacks(bitmap.get(), &callbacks), SUCCESS);
    }
    R_INT accessAnswer = SUCCESS, releaseAnswer = SUCCESS;
    int accesses = 0, releases = 0;
};

Scene movable(R_UINT structSize = BITMAPHANDLE_SIZE)
{
    Scene scene;
    scene.home = Home::movable;
    scene.structSize = structSize;
    return scene;
}

TEST(Access, NestsAndLocksOnce)
{
    const TestBitmap p(movable());
    EXPECT_EQ(p->Addr.Pointer, nullptr);
    EXPECT_EQ(R_AccessBitmap(p.get()), SUCCESS);
    EXPECT_EQ(R_AccessBitmap(p.get()), SUCCESS);
    EXPECT_EQ(p->nLockCount, 2);
    EXPECT_EQ(R_ReleaseBitmap(p.get()), SUCCESS);
    EXPECT_NE(p->Flags & FLAG_LOCKED_MEMORY, 0u);
    EXPECT_NE(p->Addr.Pointer, nullptr);
    EXPECT_EQ(R_ReleaseBitmap(p.get()), SUCCESS);
    EXPECT_EQ(p->Flags & FLAG_LOCKED_MEMORY, 0u);
    EXPECT_EQ(p->Addr.Pointer, nullptr);
    EXPECT_EQ(R_ReleaseBitmap(p.get()), SUCCESS);
    EXPECT_EQ(p->nLockCount, -1) << "a caller's mistake stays visible";
    EXPECT_EQ(R_AccessBitmap(p.get()), SUCCESS);
    EXPECT_EQ(p->nLockCount, 0);
    EXPECT_NE(p->Addr.Pointer, nullptr);
    EXPECT_EQ(R_ReleaseBitmap(p.get()), SUCCESS);
    EXPECT_EQ(R_ReleaseBitmap(nullptr), ERROR_NULL_PTR);
}

TEST(Access, AShortRecordOnlyLocks)
{
    const TestBitmap p(movable(BITMAPHANDLE_SIZE_SHORT));
    EXPECT_EQ(R_AccessBitmap(p.get()), SUCCESS);
    EXPECT_NE(p->Addr.Pointer, nullptr);
    EXPECT_EQ(R_AccessBitmap(p.get()), SUCCESS);
    EXPECT_EQ(R_ReleaseBitmap(p.get()), SUCCESS);
    EXPECT_EQ(p->Addr.Pointer, nullptr);
}

TEST(Access, FollowsTheCallbacksAnswers)
{
    const TestBitmap p(movable());
    Asked asked(p);
    R_INT held = 7;

    asked.accessAnswer = SUCCESS_ABORT;
    EXPECT_EQ(R_IntAccessBitmap(p.get(), &held), SUCCESS);
    EXPECT_EQ(held, 1);
    EXPECT_EQ(p->nLockCount, 1);
    EXPECT_EQ(p->Addr.Pointer, nullptr) << "the callback did it: nothing is locked";
    asked.releaseAnswer = -55;
    EXPECT_EQ(R_IntReleaseBitmap(p.get(), held, SUCCESS), -55);
    EXPECT_EQ(p->nLockCount, 0);

    asked.accessAnswer = -44;
    EXPECT_EQ(R_IntAccessBitmap(p.get(), &held), -44);
    EXPECT_EQ(held, 0);
    EXPECT_EQ(p->nLockCount, 0);

    asked.accessAnswer = SUCCESS;
    EXPECT_EQ(R_IntAccessBitmap(p.get(), &held), SUCCESS);
    EXPECT_EQ(R_IntReleaseBitmap(p.get(), 0, -3), -3) << "not released";
    EXPECT_EQ(p->nLockCount, 1);
    EXPECT_EQ(R_IntReleaseBitmap(p.get(), 1, -3), -3) << "the earlier failure speaks";
    EXPECT_EQ(asked.accesses, 3);
    EXPECT_EQ(asked.releases, 2);
    EXPECT_NE(p->Flags & FLAG_LOCKED_MEMORY, 0u) << "a failed release leaves the block locked";
    asked.releaseAnswer = SUCCESS;
    EXPECT_EQ(R_ReleaseBitmap(p.get()), SUCCESS);
    EXPECT_EQ(p->Flags & FLAG_LOCKED_MEMORY, 0u);
    p->nLockCount = 0;
}

TEST(Access, ABlockThatCannotBeLockedIsNotAccessed)
{
    const TestBitmap p(movable());
    {
        const NoMemory noLocks(kFailLocking);
        EXPECT_EQ(R_AccessBitmap(p.get()), ERROR_FAILURE);
    }
    EXPECT_EQ(p->nLockCount, 0);
    EXPECT_EQ(p->Flags & FLAG_LOCKED_MEMORY, 0u);
}

TEST(Callbacks, AreCopiedReplacedAndRefused)
{
    const LiveBlocks live;
    {
        const TestBitmap p({});
        BITMAPHANDLEDATACALLBACKS callbacks{}, back{};
        EXPECT_EQ(R_SetBitmapDataCallbacks(p.get(), &callbacks), ERROR_INV_STRUCT_SIZE);
        callbacks.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE;
        callbacks.pUserData = &callbacks;
        EXPECT_EQ(R_SetBitmapDataCallbacks(nullptr, &callbacks), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_SetBitmapDataCallbacks(p.get(), &callbacks), SUCCESS);
        EXPECT_EQ(R_SetBitmapDataCallbacks(p.get(), &callbacks), SUCCESS);
        EXPECT_EQ(R_GetBitmapDataCallbacks(p.get(), &back), SUCCESS);
        EXPECT_EQ(back.pUserData, &callbacks);
        EXPECT_EQ(R_SetBitmapDataCallbacks(p.get(), nullptr), SUCCESS);
        EXPECT_EQ(R_GetBitmapDataCallbacks(p.get(), &back), SUCCESS);
        EXPECT_EQ(back.pUserData, nullptr);
        EXPECT_EQ(back.uStructSize, BITMAPHANDLEDATACALLBACKS_SIZE);
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
        R_UINT size = BITMAPHANDLEDATACALLBACKS_SIZE;
        ALLOCATIONINFO info{};
        R_INT endStatus = 0;
    } copying;
    const TestBitmap source({}), target({});
    BITMAPHANDLEDATACALLBACKS callbacks{};
    callbacks.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE;
    callbacks.pUserData = &copying;
    callbacks.BeginCopyBitmapDataCallback = [](BITMAPHANDLE*, R_UINT, ALLOCATIONINFO* info,
                                               BITMAPHANDLEDATACALLBACKS* given, void* userData) {
        auto& c = *static_cast<Copying*>(userData);
        c.info = *info;
        given->uStructSize = c.size;
        given->pUserData = userData;
        return c.begin;
    };
    callbacks.EndCopyBitmapDataCallback = [](BITMAPHANDLE*, BITMAPHANDLE*, R_INT status, void* userData) {
        static_cast<Copying*>(userData)->endStatus = status;
        return static_cast<Copying*>(userData)->end;
    };
    ALLOCATIONINFO info{};
    EXPECT_EQ(R_IntBeginCopyBitmap(target.get(), source.get(), 0, nullptr), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_IntBeginCopyBitmap(target.get(), source.get(), 0, &info), SUCCESS) << "no callbacks";
    EXPECT_EQ(R_IntEndCopyBitmap(target.get(), source.get(), -9), -9);
    ASSERT_EQ(R_SetBitmapDataCallbacks(source.get(), &callbacks), SUCCESS);

    copying.begin = -70;
    EXPECT_EQ(R_IntBeginCopyBitmap(target.get(), source.get(), 0, &info), -70);
    copying.begin = SUCCESS_ABORT;
    EXPECT_EQ(R_IntBeginCopyBitmap(target.get(), source.get(), 0, &info), SUCCESS);
    EXPECT_EQ(target->pDataCallbacks, nullptr);
    copying.begin = SUCCESS;
    copying.size = 80;
    EXPECT_EQ(R_IntBeginCopyBitmap(target.get(), source.get(), 0, &info), ERROR_INV_STRUCT_SIZE);
    copying.size = BITMAPHANDLEDATACALLBACKS_SIZE;
    EXPECT_EQ(R_IntBeginCopyBitmap(target.get(), source.get(), 0, &info), SUCCESS);
    ASSERT_NE(target->pDataCallbacks, nullptr);
    EXPECT_EQ(target->pDataCallbacks->pUserData, &copying);
    EXPECT_EQ(copying.info.Width, 37);
    EXPECT_EQ(copying.info.Size, 440u);
    EXPECT_EQ(copying.info.pData, source->pPalette);

    copying.end = -71;
    EXPECT_EQ(R_IntEndCopyBitmap(target.get(), source.get(), SUCCESS), -71);
    EXPECT_EQ(R_IntEndCopyBitmap(target.get(), source.get(), -9), -9);
    EXPECT_EQ(copying.endStatus, -9);
}

TEST(Diagnostics, TraceLockCountsOutOfOrder)
{
    const PretendDiagnostics wanted(true);
    detach();
    attach();
    {
        const DebugCapture capture;
        const TestBitmap p(movable());
        const std::string quiet = capture.text();
        EXPECT_EQ(quiet.find("nLockCount"), std::string::npos) << quiet;
        uint8_t row[64];
        R_GetBitmapRow(p.get(), row, 0, p->BytesPerLine);
        EXPECT_NE(capture.text().find("R_GetBitmapRow"), std::string::npos);
        R_ReleaseBitmap(p.get());
        EXPECT_NE(capture.text().find("R_ReleaseBitmap"), std::string::npos);
        R_FreeBitmap(p.get());
        EXPECT_NE(capture.text().find("R_FreeBitmap: pBitmap->nLockCount = -1"), std::string::npos) << capture.text();
    }
    detach();
}

TEST(Diagnostics, AreOffUnlessSwitchedOnAtAttach)
{
    detach();
    const PretendDiagnostics wanted(false);
    attach();
    const DebugCapture capture;
    const TestBitmap p({});
    R_ReleaseBitmap(p.get());
    EXPECT_EQ(capture.text(), "");
    p->nLockCount = 0;
}

} // namespace
} // namespace rv::test
