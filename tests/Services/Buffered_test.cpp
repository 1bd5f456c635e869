// Buffered files against a plain array of bytes, over a file that reads short and fails on cue.
#include "Support/FailingPlatform.h"
#include "Support/FileModel.h"
#include "Support/MemoryDisk.h"

#include <gtest/gtest.h>

namespace rv::test {
namespace {

constexpr R_WCHAR kName[] = {'f', 0};
constexpr R_INT kModeBoth = FILE_MODE_READ_WRITE;

/// A buffered file behind a redirected handle, as programs use it, beside what it should hold.
TEST(Buffered, HoldsWhatAPlainArrayHolds)
{
    const LiveBlocks live;
    for (unsigned seed = 1; seed <= 60 && !::testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        FileModel model({R_RedirectedRead, R_RedirectedWrite, R_RedirectedSeek}, seed);
        MemoryDisk disk;
        disk.random.seed(seed);
        disk.bytes = model.content = model.someBytes(model.random() % 100000);
        REDIRECTSET under = disk.set(), buffered;
        EXPECT_EQ(R_GetRedirectFunctions(&buffered, REDIRECTSET_SIZE, REDIRECT_BUFFERED, 0), SUCCESS);
        R_INT64 handle = R_INVALID_FILE;
        const R_INT64 below = R_BufferedOpen(kName, kModeBoth, 0, &under);
        EXPECT_EQ(R_CreateRedirectedCallbackFileHandle(below, &buffered, &handle), SUCCESS);
        disk.shortReads = seed % 2 == 0;
        disk.faultsIn1000 = seed % 3 == 0 ? 0 : 60;
        model.mostTries = seed % 3 == 0 ? 1 : 200;
        size_t at = 0;
        for (int i = 0; i < 400 && !::testing::Test::HasFailure(); ++i) model.step(handle, at);
        disk.faultsIn1000 = 0;
        EXPECT_EQ(R_RedirectedClose(handle), 0);
        EXPECT_EQ(disk.opened, disk.closed);
        EXPECT_TRUE(disk.bytes == model.content);
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(Buffered, MovingWithinTheBufferAsksNothingBelow)
{
    MemoryDisk disk;
    disk.bytes.resize(100000, 7);
    REDIRECTSET under = disk.set();
    const R_INT64 file = R_BufferedOpen(kName, FILE_MODE_READ, 0, &under);
    uint8_t bytes[64];
    EXPECT_EQ(R_BufferedRead(file, bytes, 64, nullptr), 64);
    const int calls = disk.calls;
    for (const R_INT64 target : {0, 5, 32767, 32768, 64}) EXPECT_EQ(R_BufferedSeek(file, target, 0, nullptr), target);
    EXPECT_EQ(R_BufferedRead(file, bytes, 64, nullptr), 64);
    EXPECT_EQ(disk.calls, calls);
    for (const R_UINT count : {0u, 1u, 40000u})
        EXPECT_EQ(R_BufferedWrite(file, bytes, count, nullptr), -1) << "read-only";
    EXPECT_EQ(disk.calls, calls);
    EXPECT_EQ(R_BufferedSeek(file, INT64_MAX, 1, nullptr), -1);
    EXPECT_EQ(R_BufferedSeek(file, 0, 1, nullptr), 128);
    EXPECT_EQ(R_BufferedClose(file, nullptr), 0);
}

TEST(Buffered, FailuresOfTheFileBelowAreToldAndNothingLeaks)
{
    const LiveBlocks live;
    MemoryDisk disk;
    REDIRECTSET under = disk.set();
    {
        const NoMemory none;
        EXPECT_EQ(R_BufferedOpen(kName, kModeBoth, 0, &under), R_INVALID_FILE);
    }
    EXPECT_EQ(disk.closed, 1);
    const R_INT64 file = R_BufferedOpen(kName, kModeBoth, 0, &under);
    char byte = 1;
    disk.answersTooMuch = true;
    EXPECT_EQ(R_BufferedRead(file, &byte, 1, nullptr), -1);
    disk.answersTooMuch = false;
    EXPECT_EQ(R_BufferedWrite(file, &byte, 1, nullptr), 1);
    disk.faultsIn1000 = 1000;
    // After a read that failed, nobody knows where the file is: it must be sought, and cannot be.
    EXPECT_EQ(R_BufferedSeek(file, 5, 0, nullptr), ERROR_FILE_LSEEK);
    EXPECT_EQ(R_BufferedClose(file, nullptr), ERROR_FILE_LSEEK);
    const R_INT64 other = R_BufferedOpen(kName, kModeBoth, 0, &under);
    EXPECT_EQ(R_BufferedWrite(other, &byte, 1, nullptr), 1);
    EXPECT_EQ(R_BufferedClose(other, nullptr), ERROR_FILE_WRITE);
    EXPECT_EQ(disk.closed, 3);
    under.pfnSeek = nullptr;
    EXPECT_EQ(R_BufferedOpen(kName, kModeBoth, 0, &under), R_INVALID_FILE);
    under = disk.set();
    under.uStructSize = 119;
    EXPECT_EQ(R_BufferedOpen(kName, kModeBoth, 0, &under), R_INVALID_FILE);
    for (const R_INT64 handle : {-1, -2, 0, 65535, 65537, -65536}) {
        EXPECT_EQ(R_BufferedRead(handle, &byte, 1, nullptr), -1);
        EXPECT_EQ(R_BufferedClose(handle, nullptr), -1);
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

} // namespace
} // namespace rv::test
