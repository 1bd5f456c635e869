#include "Kernel/Base/System.h"
#include "Kernel/Services/TempFile.h"
#include "Platform/NativeErrors.h"
#include "Support/FailingPlatform.h"
#include "Support/FileModel.h"
#include "Support/TempOptions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

namespace rv::test {
namespace {

using Bytes = std::vector<uint8_t>;
using Name = std::basic_string<R_WCHAR>;
constexpr R_INT kShared = FILE_SHARE_BIT_READ | FILE_SHARE_BIT_WRITE;
constexpr int64_t kMiB = 1024 * 1024;

/// The operations, without their user data.
R_INT64 open(const Name& name, R_INT mode, R_INT permission = kShared)
{
    return kMemoryRedirectSet.pfnOpen(name.c_str(), mode, permission, nullptr);
}
R_INT read(R_INT64 file, void* to, size_t bytes)
{
    return kMemoryRedirectSet.pfnRead(file, to, static_cast<R_UINT>(bytes), nullptr);
}
R_INT write(R_INT64 file, const void* from, size_t bytes)
{
    return kMemoryRedirectSet.pfnWrite(file, from, static_cast<R_UINT>(bytes), nullptr);
}
R_INT64 seek(R_INT64 file, R_INT64 distance, R_INT origin = FILE_FROM_START)
{
    return kMemoryRedirectSet.pfnSeek(file, distance, origin, nullptr);
}
R_INT close(R_INT64 file) { return kMemoryRedirectSet.pfnClose(file, nullptr); }

Bytes contentOf(R_INT64 file)
{
    const auto size = static_cast<size_t>(seek(file, 0, FILE_FROM_END));
    EXPECT_EQ(seek(file, 0), 0);
    Bytes bytes(size + 1); // asks for more than there is
    EXPECT_EQ(read(file, bytes.data(), bytes.size()), static_cast<R_INT>(size));
    bytes.pop_back();
    return bytes;
}
Bytes contentOf(const Name& name)
{
    const R_INT64 file = open(name, FILE_MODE_READ);
    EXPECT_NE(file, kNoFile);
    if (file == kNoFile) return {};
    Bytes bytes = contentOf(file);
    EXPECT_EQ(close(file), 0);
    return bytes;
}

Bytes someBytes(size_t count, unsigned seed) { return FileModel({}, seed).someBytes(count); }

/// A name of an empty file in memory.
Name memoryName(R_INT mode = kCurrentTempFileMode)
{
    R_WCHAR buffer[260];
    EXPECT_EQ(makeTempName(buffer, 260, mode, nullptr, nullptr, nullptr, 0), SUCCESS);
    EXPECT_TRUE(isMemoryTempFile(buffer));
    return buffer;
}

R_UINT64 conventionalTotal()
{
    R_UINT64 total = 0;
    EXPECT_EQ(R_ManageMemory(MANAGE_GET_TOTAL, 0, &total), SUCCESS);
    return total;
}

/// What has to be as it was when all files are gone.
struct NothingLeft {
    ~NothingLeft()
    {
        EXPECT_EQ(live.count(), 0) << live.text();
        EXPECT_EQ(TempFileBudget::held(), 0u);
        EXPECT_EQ(conventionalTotal(), total);
    }
    LiveBlocks live;
    R_UINT64 total = conventionalTotal();
};

// --- Against a model

/// Several files at a time, and several handles of each.
void runModels(unsigned seed, int steps)
{
    constexpr FileCalls kCalls = {
        [](R_INT64 file, void* to, R_UINT count) { return read(file, to, count); },
        [](R_INT64 file, const void* from, R_UINT count) { return write(file, from, count); },
        [](R_INT64 file, R_INT64 distance, R_INT origin) { return seek(file, distance, origin); },
    };
    struct File {
        Name name;
        FileModel model;
    };
    struct Handle {
        R_INT64 file;
        File* of;
        size_t at = 0;
    };
    std::mt19937 random(seed);
    std::vector<File> files;
    for (unsigned i = 0; i < 4; ++i) files.push_back({memoryName(), FileModel(kCalls, 4 * seed + i, 3 * kMiB)});
    std::vector<Handle> handles;
    const auto openOne = [&] {
        File& one = files[random() % files.size()];
        const bool cuts = random() % 16 == 0;
        handles.push_back({open(one.name, FILE_MODE_READ_WRITE | (cuts ? FILE_MODE_CREATE : 0)), &one});
        if (cuts) one.model.content.clear();
    };
    const auto closeOne = [&] {
        std::swap(handles.back(), handles[random() % handles.size()]);
        EXPECT_EQ(close(handles.back().file), 0);
        handles.pop_back();
    };
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
        if (handles.empty() || random() % 9 == 0) openOne();
        Handle& handle = handles[random() % handles.size()];
        handle.of->model.step(handle.file, handle.at);
        if (handles.size() > 6) closeOne();
    }
    while (!handles.empty()) closeOne();
    for (const File& one : files) {
        EXPECT_TRUE(contentOf(one.name) == one.model.content);
        EXPECT_EQ(R_DeleteTempFile(one.name.c_str()), SUCCESS);
        EXPECT_FALSE(isMemoryTempFile(one.name.c_str()));
    }
}

TEST(MemoryFile, HoldsWhatWasWrittenWhereverItLives)
{
    struct Limits {
        R_UINT mode, totalMiB, fileMiB, chunkKiB;
    };
    for (const Limits& limits : {Limits{TEMPFILE_DISK_AND_MEMORY, 2, 1, 1},
                                 {TEMPFILE_DISK_AND_MEMORY, 128, 8, 16},
                                 {TEMPFILE_DISK_AND_MEMORY, 0, 0, 3},
                                 {TEMPFILE_MEMORY, 1, 1, 700}}) {
        const NothingLeft nothingLeft;
        const TempOptions options(limits.mode, limits.totalMiB, limits.fileMiB, limits.chunkKiB);
        for (const unsigned seed : {1u, 2u, 3u}) {
            SCOPED_TRACE(testing::Message() << "limits " << limits.totalMiB << ", seed " << seed);
            runModels(seed, 1500);
        }
    }
}

/// What happens to a file of five bytes that is opened twice.
std::vector<R_INT64> openedTwice(const Name& name, const R_INT (&modes)[2], const R_INT (&permissions)[2])
{
    R_INT64 file = open(name, FILE_MODE_READ_WRITE);
    EXPECT_EQ(write(file, "12345", 5) + close(file), 5);
    std::vector<R_INT64> seen;
    const auto note = [&](R_INT64 answer) {
        seen.push_back(answer >= 0 ? answer : -1 - static_cast<R_INT64>(platform().nativeError()));
    };
    R_INT64 files[2];
    for (const int i : {0, 1}) {
        file = files[i] = open(name, modes[i], permissions[i]);
        note(std::min<R_INT64>(file, 0));
        if (file == kNoFile) continue;
        char bytes[9];
        note(read(file, bytes, 2));
        note(write(file, "ab", 2));
        note(seek(file, 1, FILE_FROM_END));
        seen.push_back(write(file, nullptr, 0)); // Wine has an error of its own for who may not cut
        note(seek(file, -99, FILE_FROM_CURRENT));
    }
    for (const R_INT64 one : files)
        if (one != kNoFile) note(close(one));
    note(std::min<R_INT64>(file = open(name, FILE_MODE_READ), 0));
    if (file == kNoFile) return seen;
    note(seek(file, 0, FILE_FROM_END));
    EXPECT_EQ(close(file), 0);
    return seen;
}

TEST(MemoryFile, IsOpenedAsOneOnDisk)
{
    const NothingLeft nothingLeft;
    const R_INT modes[] = {0x000, 0x001, 0x002, 0x042, 0x102, 0x200, 0x202}, permissions[] = {0, 0x80, 0x100, 0x180};
    for (const R_INT first : modes) {
        for (const R_INT second : modes) {
            for (int sharing = 0; sharing < 16; ++sharing) {
                SCOPED_TRACE(testing::Message() << std::hex << first << ' ' << second << ' ' << sharing);
                R_WCHAR disk[260];
                ASSERT_EQ(makeTempName(disk, 260, 0, nullptr, nullptr, nullptr, kTempNameOnDisk), SUCCESS);
                const Name memory = memoryName();
                const R_INT twoModes[] = {first, second};
                const R_INT twoPermissions[] = {permissions[sharing / 4], permissions[sharing % 4]};
                EXPECT_EQ(openedTwice(memory, twoModes, twoPermissions), openedTwice(disk, twoModes, twoPermissions));
                for (const R_WCHAR* name : {memory.c_str(), static_cast<const R_WCHAR*>(disk)})
                    (void)R_DeleteTempFile(name);
            }
        }
    }
}

TEST(MemoryFile, ServesManyThreads)
{
    const NothingLeft nothingLeft;
    const TempOptions options(TEMPFILE_DISK_AND_MEMORY, 3, 2, 16); // some of the files must go while they are in use
    constexpr int kThreads = 4, kTurns = 60;
    constexpr size_t kPart = 15000;
    const std::vector<Name> shared = {memoryName(), memoryName()};
    const auto fillParts = [&](int which) {
        std::minstd_rand random(static_cast<unsigned>(which + 1));
        for (int turn = 0; turn < kTurns; ++turn) {
            const R_INT64 at = (turn * kThreads + which) * static_cast<R_INT64>(kPart);
            const Name own = memoryName();
            for (const Name& name : {own, shared[0], shared[1]}) {
                const R_INT64 file = open(name, FILE_MODE_READ_WRITE);
                const Bytes part(kPart, static_cast<uint8_t>(random()));
                Bytes back(kPart);
                EXPECT_EQ(seek(file, at), at);
                EXPECT_EQ(write(file, part.data(), kPart), static_cast<R_INT>(kPart));
                EXPECT_EQ(seek(file, at), at);
                EXPECT_EQ(read(file, back.data(), kPart), static_cast<R_INT>(kPart));
                EXPECT_TRUE(part == back);
                EXPECT_EQ(close(file), 0);
            }
            EXPECT_EQ(R_DeleteTempFile(own.c_str()), SUCCESS);
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back(fillParts, i);
    for (std::thread& thread : threads) thread.join();
    for (const Name& name : shared) {
        EXPECT_EQ(contentOf(name).size(), kThreads * kTurns * kPart);
        EXPECT_EQ(R_DeleteTempFile(name.c_str()), SUCCESS);
    }
}

// --- Limits and faults

TEST(MemoryFile, TakesNoMoreMemoryThanItMay)
{
    const NothingLeft nothingLeft;
    const TempOptions options(TEMPFILE_DISK_AND_MEMORY, 4, 2, 16);
    const Bytes bytes = someBytes(2 * kMiB + 1, 1);
    const auto filled = [&](size_t count, R_UINT64 held) {
        const Name name = memoryName();
        const R_INT64 file = open(name, FILE_MODE_READ_WRITE);
        EXPECT_EQ(write(file, bytes.data(), count), static_cast<R_INT>(count));
        EXPECT_EQ(TempFileBudget::held(), held);
        EXPECT_TRUE(contentOf(file) == Bytes(bytes.begin(), bytes.begin() + static_cast<R_INT64>(count)));
        EXPECT_EQ(close(file), 0);
        return name;
    };
    std::vector<Name> names;
    names.push_back(filled(10, kMiB + 10));           // a need and what may follow it
    names.push_back(filled(2 * kMiB + 1, kMiB + 10)); // more than one file may have
    names.push_back(filled(2 * kMiB, 3 * kMiB + 10)); // all that one may have
    names.push_back(filled(kMiB - 10, 4 * kMiB));     // all that is left
    names.push_back(filled(1, 4 * kMiB));             // too late
    {
        const TempOptions memory(TEMPFILE_MEMORY, 0, 0, 16);
        names.push_back(filled(2 * kMiB, 7 * kMiB)); // no limit where there is no disk
        const R_INT64 file = open(names[1], FILE_MODE_READ_WRITE);
        EXPECT_EQ(seek(file, 0, FILE_FROM_END), 2 * kMiB + 1); // what has gone to disk stays there
        EXPECT_EQ(write(file, bytes.data(), 5), 5);
        EXPECT_EQ(close(file), 0);
    }
    const R_INT64 file = open(names.back(), FILE_MODE_READ_WRITE);
    EXPECT_EQ(seek(file, 1000), 1000);
    EXPECT_EQ(write(file, nullptr, 0), 0);
    EXPECT_EQ(TempFileBudget::held(), 4 * kMiB + 1000);
    for (const Name& name : names) EXPECT_EQ(R_DeleteTempFile(name.c_str()), SUCCESS);
    EXPECT_EQ(contentOf(file), Bytes(bytes.begin(), bytes.begin() + 1000)); // until the last handle is closed
    EXPECT_EQ(open(names.back(), FILE_MODE_READ), kNoFile);
    EXPECT_EQ(close(file), 0);
}

TEST(MemoryFile, LosesNothingWhenMemoryOrDiskRefuses)
{
    const NothingLeft nothingLeft;
    const Bytes first = someBytes(kMiB, 1), more = someBytes(9 * kMiB, 2);
    struct Case {
        R_UINT mode;
        unsigned kind;  // whose nth call fails
        size_t count;   // bytes of the write
        uint32_t error; // of a write that fails; 0: none may
    };
    for (const Case& c : {Case{TEMPFILE_MEMORY, kFailHeap, 3 * kMiB, native::kNotEnoughMemory},
                          Case{TEMPFILE_DISK_AND_MEMORY, kFailHeap, 3 * kMiB, 0},
                          Case{TEMPFILE_DISK_AND_MEMORY, kFailScratch, more.size(), native::kDiskFull},
                          Case{TEMPFILE_DISK_AND_MEMORY, kFailPlaced, more.size(), native::kDiskFull}}) {
        const TempOptions options(c.mode, 128, 8, 512);
        int failures = 0;
        for (int nth = 0;; ++nth) { // 0: each call fails
            SCOPED_TRACE(testing::Message() << "kind " << c.kind << ", call " << nth);
            const Name name = memoryName();
            const R_INT64 file = open(name, FILE_MODE_READ_WRITE);
            ASSERT_EQ(write(file, first.data(), first.size()), static_cast<R_INT>(first.size()));
            Bytes wanted = first;
            R_INT written = 0;
            bool happened = false;
            {
                const NoMemory all(nth == 0 ? c.kind : 0);
                const FailingAllocation fault(nth, c.kind);
                written = write(file, more.data(), c.count);
                happened = nth == 0 || fault.happened();
                EXPECT_TRUE(written >= 0 || platform().nativeError() == c.error);
            }
            if (written < 0) ++failures;
            EXPECT_TRUE(written == static_cast<R_INT>(c.count) || (written == -1 && happened && c.error != 0));
            if (written > 0) wanted.insert(wanted.end(), more.begin(), more.begin() + written);
            EXPECT_TRUE(contentOf(file) == wanted);
            EXPECT_EQ(seek(file, 0, FILE_FROM_END), static_cast<R_INT64>(wanted.size()));
            EXPECT_EQ(write(file, more.data(), 1), 1); // and it goes on
            EXPECT_EQ(close(file), 0);
            EXPECT_EQ(R_DeleteTempFile(name.c_str()), SUCCESS);
            if (!happened) break;
            ASSERT_LT(nth, 100);
        }
        EXPECT_EQ(failures > 0, c.error != 0);
    }
    { // the process's limit of conventional memory counts as memory that is not there
        R_UINT64 before = 0;
        EXPECT_EQ(R_ManageMemory(MANAGE_SET_LIMIT, conventionalTotal() + 10000, &before), SUCCESS);
        const Name small = memoryName(), memoryOnly = memoryName(TEMPFILE_MEMORY);
        for (const Name& name : {small, memoryOnly}) {
            const R_INT64 file = open(name, FILE_MODE_READ_WRITE);
            EXPECT_EQ(write(file, first.data(), 5000), 5000);
            EXPECT_EQ(write(file, first.data(), 5001), name == small ? 5001 : -1);
            EXPECT_EQ(seek(file, 0, FILE_FROM_END), name == small ? 10001 : 5000);
            EXPECT_EQ(close(file), 0);
            EXPECT_EQ(R_DeleteTempFile(name.c_str()), SUCCESS);
        }
        EXPECT_EQ(R_ManageMemory(MANAGE_SET_LIMIT, before, nullptr), SUCCESS);
    }
}

} // namespace
} // namespace rv::test
