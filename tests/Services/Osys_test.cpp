#include "Internal/R_Int.h"
#include "Platform/NativeErrors.h"
#include "Platform/Platform.h"
#include "R_Files.h"
#include "Support/FailingPlatform.h"
#include "Support/FileModel.h"
#include "Support/Folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <thread>
#include <vector>

namespace rv::test {
namespace {

namespace n = native;

uint32_t nativeError() { return platform().nativeError(); }

/// What a call answered, and the error that it left.
struct Outcome {
    bool done;
    uint32_t error;
    friend bool operator==(const Outcome&, const Outcome&) = default;
};
constexpr Outcome kDone = {true, 0};
constexpr Outcome refusedWith(uint32_t error) { return {false, error}; }
Outcome outcome(bool done) { return done ? kDone : refusedWith(nativeError()); }
std::ostream& operator<<(std::ostream& out, const Outcome& o) { return out << (o.done ? "done" : "error ") << o.error; }

Outcome opens(const Wide& name, R_INT mode, R_INT permission = 0)
{
    const R_INT64 file = R_OsOpen(name.c_str(), mode, permission);
    const Outcome result = outcome(file != R_INVALID_FILE);
    if (result.done) {
        EXPECT_EQ(R_OsClose(file), 0);
    }
    return result;
}
Outcome deletes(const Wide& name) { return outcome(R_OsDelete(name.c_str()) == 0); }
Outcome moves(const Wide& from, const Wide& to, R_UINT flags)
{
    return outcome(R_MoveFileEx(from.c_str(), to.c_str(), flags) == 1);
}

constexpr R_INT kRW = FILE_MODE_READ_WRITE;
constexpr R_INT kShareNone = FILE_SHARE_BIT_WRITE, kShareRead = FILE_SHARE_BIT_READ,
                kShareBoth = FILE_SHARE_BIT_READ | FILE_SHARE_BIT_WRITE;

// --- Sharing

/// One way to open a file: what it takes and gives, as bits (read 1, write 2, delete 4).
struct Way {
    R_INT mode, permission;
    unsigned takes, gives;
};
std::vector<Way> allWays()
{
    std::vector<Way> ways;
    for (const R_INT access : {0, 1, 2, 3})
        for (const R_INT extra : {0, FILE_MODE_TRUNCATE, FILE_MODE_CREATE, FILE_MODE_TEMPORARY})
            for (const R_INT permission : {0, kShareNone, kShareRead, kShareBoth}) {
                if (access == 0 && extra != 0) continue; // makes the file read-only, or needs the right to write
                const unsigned takes = (access == 0 ? 1u : access == 1 ? 2u : 3u) | (extra == FILE_MODE_TEMPORARY) * 4u;
                const unsigned gives = permission == kShareBoth ? 3 : permission == kShareRead ? 1 : 0;
                ways.push_back({access | extra, permission, takes, gives});
            }
    return ways;
}

TEST(Osys, EveryPairOfOpensSharesAsBothSay)
{
    const Folder folder;
    const Wide name = folder / "file", other = folder / "other";
    folder.write("bystander", "");
    for (const Way& first : allWays()) {
        if ((first.mode & 0x300) != 0) continue;
        for (const Way& second : allWays()) {
            folder.write("file", "content");
            const R_INT64 held = R_OsOpen(name.c_str(), first.mode, first.permission);
            ASSERT_NE(held, R_INVALID_FILE);
            const bool allowed = (second.takes & ~first.gives) == 0 && (first.takes & ~second.gives) == 0;
            const R_INT64 file = R_OsOpen(name.c_str(), second.mode, second.permission);
            ASSERT_EQ(outcome(file != R_INVALID_FILE), allowed ? kDone : refusedWith(n::kSharingViolation))
                << first.mode << ' ' << first.permission << ", " << second.mode << ' ' << second.permission;
            if (allowed) {
                EXPECT_EQ(R_OsClose(file), 0);
            }
            char content[7] = {};
            const bool cut = allowed && (second.mode & 0x300) != 0;
            if ((first.takes & 1) != 0) { // a refused open leaves the content alone
                EXPECT_EQ(R_OsRead(held, content, 7), cut ? 0 : 7);
            }
            EXPECT_EQ(deletes(name), refusedWith(n::kSharingViolation));
            EXPECT_EQ(moves(name, other, 1), refusedWith(n::kSharingViolation));
            EXPECT_FALSE(moves(folder / "bystander", name, 1).done);
            EXPECT_EQ(R_OsClose(held), 0);
            EXPECT_EQ(folder.read("file") == "(none)", (first.takes & 4) != 0);
        }
    }
}

/// Threads that want a file for themselves, while others delete it and make it anew.
TEST(Osys, NeverTwoHoldersAtOnce)
{
    const Folder folder;
    const Wide name = folder / "file";
    std::atomic<int> holders = 0, held = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 400; ++i) {
                const R_INT mode = kRW | FILE_MODE_CREATE | ((i + t) % 3 == 0 ? FILE_MODE_TEMPORARY : 0);
                const R_INT64 file = R_OsOpen(name.c_str(), mode, (i % 2) * kShareRead);
                if (file != R_INVALID_FILE) {
                    EXPECT_EQ(holders.fetch_add(1), 0);
                    EXPECT_EQ(R_OsWrite(file, "mine", 4), 4);
                    EXPECT_EQ(R_OsSeek(file, 0, FILE_FROM_END), 4);
                    ++held;
                    --holders;
                    EXPECT_EQ(R_OsClose(file), 0);
                }
                if (t == 0) R_OsDelete(name.c_str());
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_GT(held.load(), 4);
}

// --- Content

/// The small calls and the big ones by turns; a file is also cut by its size.
TEST(Osys, AFileIsAnArrayWithAPosition)
{
    const FileCalls calls = {
        [](R_INT64 file, void* to, R_UINT count) {
            const R_INT64 at = R_OsSeek(file, 0, FILE_FROM_CURRENT), size = R_OsSeek(file, 0, count % 2 != 0 ? 7 : -1);
            EXPECT_EQ(R_OsSeek(file, at, FILE_FROM_START), at);
            const bool big = at + count <= size && count % 3 != 0; // asks for ever where there is nothing
            return big ? static_cast<R_INT>(R_OsReadBig(file, to, count)) : R_OsRead(file, to, count);
        },
        [](R_INT64 file, const void* from, R_UINT count) {
            const R_INT64 at = R_OsSeek(file, 0, FILE_FROM_CURRENT);
            if (count % 3 != 0) return static_cast<R_INT>(R_OsWriteBig(file, from, count));
            if (count != 0 || at % 2 != 0) return R_OsWrite(file, from, count);
            EXPECT_EQ(R_OsSeek(file, 0, FILE_FROM_START), 0);
            return R_OsSetFileSize(file, at); // and leaves the position there
        },
        R_OsSeek,
    };
    const Folder folder;
    const R_INT64 file = R_OsOpen((folder / "file").c_str(), kRW | FILE_MODE_CREATE, 0);
    FileModel model(calls, 20240611);
    size_t at = 0;
    for (int i = 0; i < 3000 && !testing::Test::HasFailure(); ++i) model.step(file, at);
    char byte = 0;
    EXPECT_EQ(platform().readFileAt(file, &byte, 1, model.content.size()), 0);
    EXPECT_EQ(R_OsSeek(file, -1, FILE_FROM_START), -1);
    EXPECT_EQ(nativeError(), n::kNegativeSeek);
    EXPECT_EQ(R_OsWrite(file, nullptr, 1), -1);
    EXPECT_EQ(R_OsWriteBig(file, nullptr, 1), -1);
    EXPECT_EQ(R_OsRead(file, nullptr, 0), -1);
    EXPECT_EQ(R_OsReadBig(file, nullptr, 1), -1);
    EXPECT_EQ(R_OsSetFileSize(file, -1), -1);
    EXPECT_EQ(R_OsClose(file), 0);
    EXPECT_TRUE(folder.read("file") == std::string(model.content.begin(), model.content.end()));
}

/// A short step of a big write goes on where it ended; one of nothing, or a failing one, ends it.
TEST(Osys, BigWritesSurviveShortOnes)
{
    const Folder folder;
    const R_INT64 file = R_OsOpen((folder / "file").c_str(), kRW | FILE_MODE_CREATE, 0);
    {
        const FailingAllocation once(2, kShortWrite);
        EXPECT_EQ(R_OsWriteBig(file, "first", 5), 5);
        EXPECT_EQ(R_OsWriteBig(file, "second", 6), 6);
        EXPECT_TRUE(once.happened());
    }
    {
        const NoMemory always(kShortWrite);
        EXPECT_EQ(R_OsWriteBig(file, "third", 5), -1);
    }
    {
        const NoMemory full(kFailWrite);
        EXPECT_EQ(R_OsWriteBig(file, "fourth", 6), -1);
        EXPECT_EQ(R_OsGetLastError(0), ERROR_NO_DISK_SPACE);
    }
    EXPECT_EQ(R_OsClose(file), 0);
    EXPECT_EQ(folder.read("file"), "firstsecondthir");
}

// --- Opening

/// Whether read-only files may not be written here. They may where Wine runs as the superuser.
bool keepsReadOnly(const Folder& folder)
{
    const Wide name = folder / "kept";
    folder.write("kept", "");
    std::filesystem::permissions(folder.path() / "kept", std::filesystem::perms(0444));
#if defined(_WIN32)
    return !std::ofstream(folder.path() / "kept").is_open();
#else
    return true;
#endif
}

TEST(Osys, WhatIsThereAndWhatIsAskedFor)
{
    constexpr Outcome kNone = refusedWith(n::kFileNotFound), kDenied = refusedWith(n::kAccessDenied);
    const struct {
        R_INT mode;
        Outcome missing, present, readOnly;
        bool cuts;
    } cases[] = {
        {0, kNone, kDone, kDone, false},
        {1, kNone, kDone, kDenied, false},
        {kRW, kNone, kDone, kDenied, false},
        {3, kNone, kDone, kDenied, false},
        {FILE_MODE_TRUNCATE | kRW, kNone, kDone, kDenied, true},
        {FILE_MODE_TRUNCATE, refusedWith(n::kInvalidParameter), refusedWith(n::kInvalidParameter),
         refusedWith(n::kInvalidParameter), false},
        {FILE_MODE_CREATE | 1, kDone, kDone, kDenied, true},
        {FILE_MODE_CREATE | FILE_MODE_TRUNCATE | kRW, kDone, kDone, kDenied, true},
    };
    const Folder folder;
    const bool kept = keepsReadOnly(folder);
    for (const auto& c : cases) {
        const std::string text = std::to_string(c.mode);
        EXPECT_EQ(opens(folder / text, c.mode), c.missing) << text;
        folder.write("present" + text, "content");
        EXPECT_EQ(opens(folder / ("present" + text), c.mode), c.present) << text;
        EXPECT_EQ(folder.read("present" + text), c.cuts ? "" : "content") << text;
        if (!kept) continue;
        folder.write("locked" + text, "content");
        std::filesystem::permissions(folder.path() / ("locked" + text), std::filesystem::perms(0444));
        EXPECT_EQ(opens(folder / ("locked" + text), c.mode), c.readOnly) << text;
        EXPECT_EQ(deletes(folder / ("locked" + text)), kDenied);
        EXPECT_EQ(moves(folder / ("present" + text), folder / ("locked" + text), 1), kDenied);
        EXPECT_EQ(folder.read("locked" + text), "content") << text;
    }
    // Created read-only: the handle reads, and nobody writes later.
    const R_INT64 file = R_OsCreat((folder / "made").c_str(), FILE_CREATE_READ_ONLY);
    EXPECT_EQ(outcome(R_OsWrite(file, "x", 1) == 1), kDenied);
    EXPECT_EQ(R_OsClose(file), 0);
    if (!kept) GTEST_SKIP() << "read-only files are written here";
    EXPECT_EQ(opens(folder / "made", kRW), kDenied);
    const R_INT both = FILE_CREATE_READ_ONLY | FILE_CREATE_DELETE_ON_CLOSE;
    EXPECT_EQ(outcome(R_OsCreat((folder / "never").c_str(), both) != -1), kDenied);
    EXPECT_EQ(folder.read("never"), "(none)");
}

TEST(Osys, FailuresTellWhy)
{
    const Folder folder;
    const Wide parent = wide(folder.path());
    folder.write("file", "content");
    folder.write("other", "other");
    std::filesystem::create_directory(folder.path() / "inner");
    for (const R_INT mode : {0, kRW, FILE_MODE_CREATE | kRW}) {
        EXPECT_EQ(opens(folder / "no/file", mode), refusedWith(n::kPathNotFound));
        EXPECT_EQ(opens(parent, mode), refusedWith(n::kAccessDenied));
        EXPECT_EQ(opens(Wide(), mode), refusedWith(n::kPathNotFound));
    }
    EXPECT_EQ(deletes(folder / "no"), refusedWith(n::kFileNotFound));
    EXPECT_EQ(deletes(folder / "no/file"), refusedWith(n::kPathNotFound));
    EXPECT_EQ(deletes(folder / "inner"), refusedWith(n::kAccessDenied));
    EXPECT_EQ(moves(folder / "no", folder / "x", 0), refusedWith(n::kFileNotFound));
    EXPECT_EQ(moves(folder / "file", folder / "no/x", 0), refusedWith(n::kPathNotFound));
    EXPECT_EQ(moves(folder / "file", folder / "other", 0), refusedWith(n::kAlreadyExists));
    EXPECT_EQ(moves(folder / "file", folder / "inner", 1), refusedWith(n::kAccessDenied));
    EXPECT_EQ(folder.read("other"), "other");
    EXPECT_EQ(moves(folder / "file", folder / "other", 1), kDone);
    EXPECT_EQ(folder.read("other"), "content");
    EXPECT_EQ(moves(folder / "other", folder / "other", 0), kDone); // onto itself
    EXPECT_EQ(moves(folder / "other", folder / "inner/moved", 0), kDone);
    EXPECT_EQ(moves(folder / "inner", folder / "outer", 0), kDone); // a folder with all that is in it
    EXPECT_EQ(folder.read("outer/moved"), "content");

    const R_INT64 file = R_OsOpen((folder / "outer/moved").c_str(), 1, kShareBoth);
    char byte;
    EXPECT_EQ(outcome(R_OsRead(file, &byte, 1) >= 0), refusedWith(n::kAccessDenied));
    EXPECT_EQ(R_OsClose(file), 0);
    for (const R_INT64 none : {R_INT64{-1}, file}) {
        EXPECT_EQ(outcome(R_OsRead(none, &byte, 1) >= 0), refusedWith(n::kInvalidHandle));
        EXPECT_EQ(outcome(R_OsWrite(none, &byte, 0) >= 0), refusedWith(n::kInvalidHandle));
        EXPECT_EQ(outcome(R_OsSeek(none, 0, 0) >= 0), refusedWith(n::kInvalidHandle));
        EXPECT_EQ(outcome(R_OsClose(none) >= 0), refusedWith(n::kInvalidHandle));
    }
    EXPECT_EQ(R_OsOpen(nullptr, 0, 0) + R_OsCreat(nullptr, 0) + R_OsDelete(nullptr), -3);
    EXPECT_EQ(R_MoveFileEx(nullptr, nullptr, 0), 0);
}

TEST(Osys, NamesOfEveryKind)
{
    const Folder folder;
    std::string deep = "deep";
    for (int i = 0; i < 3; ++i) {
        std::error_code ignored;
        std::filesystem::create_directory(folder.path() / deep, ignored);
        deep += "/" + std::string(100, 'n');
        if (i < 2) std::filesystem::create_directory(folder.path() / deep, ignored);
    }
    for (const std::string& name :
         {std::string("\xF0\x9F\x8E\xA8 \xC3\xA4 \xE6\xBC\xA2.bmp"), std::string(200, 'x'), deep}) {
        Wide given = folder / name;
        EXPECT_EQ(opens(given, kRW | FILE_MODE_CREATE), kDone) << name;
        EXPECT_EQ(folder.read(name), "") << name;
        std::replace(given.begin(), given.end(), R_WCHAR('/'), R_WCHAR('\\'));
        EXPECT_EQ(opens(given, kRW), kDone) << name; // both slashes
        EXPECT_EQ(deletes(given), kDone) << name;
    }
#if !defined(_WIN32)
    EXPECT_EQ(opens((folder / "a") + Wide{R_WCHAR(0xD800)}, FILE_MODE_CREATE | kRW), refusedWith(n::kInvalidName));
    EXPECT_EQ(opens(folder / std::string(300, 'x'), FILE_MODE_CREATE | kRW), refusedWith(n::kNameTooLong));
    EXPECT_EQ(opens(Wide(5000, 'x'), FILE_MODE_CREATE | kRW), refusedWith(n::kNameTooLong));
#endif
}

// --- Copying

constexpr R_UINT kKinds[] = {COPYFILE_FROM_DISK, COPYFILE_FROM_REDIRECTED, COPYFILE_FROM_TEMPFILE};
constexpr R_UINT toKind(R_UINT fromKind) { return fromKind << 3; }

/// A file that may be named by both ends of a copy: on disk, or a temporary one in memory. Gone with the object.
struct Named {
    Named(const Folder& folder, const std::string& text, bool inMemory)
    {
        R_WCHAR buffer[400];
        const Wide path = wide(folder.path());
        name = folder / text;
        if (inMemory && R_GetTempFileName4(path.c_str(), buffer, 400, TEMPFILE_MEMORY, nullptr, nullptr) == SUCCESS)
            name = buffer;
    }
    ~Named() { R_DeleteTempFile(name.c_str()); }
    Named(const Named&) = delete;
    Named& operator=(const Named&) = delete;
    bool write(const std::string& content) const
    {
        const R_INT64 file = R_RedirectedTempFileOpen(name.c_str(), kRW | FILE_MODE_CREATE, 0);
        const auto bytes = static_cast<R_INT64>(content.size());
        const bool written = R_RedirectedTempFileWriteBig(file, content.data(), bytes) == bytes;
        return R_RedirectedTempFileClose(file) == 0 && written;
    }
    std::string read() const
    {
        const R_INT64 file = R_RedirectedTempFileOpen(name.c_str(), FILE_MODE_READ, 0);
        std::string content(200000, '?');
        const R_INT got = R_RedirectedTempFileRead(file, content.data(), 200000);
        EXPECT_EQ(R_RedirectedTempFileClose(file), 0);
        content.resize(got < 0 ? 0 : static_cast<size_t>(got));
        return content;
    }
    Outcome copyTo(const Named& other, R_UINT flags) const
    {
        return outcome(R_IntCopyFile(name.c_str(), other.name.c_str(), flags) == 1);
    }
    Wide name;
};

TEST(OsysCopy, BetweenEveryKindOfFile)
{
    const Folder folder;
    int number = 0;
    for (const R_UINT from : kKinds)
        for (const R_UINT to : kKinds)
            for (const size_t bytes : {0u, 1u, 32768u, 100001u}) {
                const std::string text = std::to_string(++number);
                SCOPED_TRACE(text);
                const Named source(folder, "from" + text, from == COPYFILE_FROM_TEMPFILE);
                const Named target(folder, "to" + text, to == COPYFILE_FROM_TEMPFILE);
                const R_UINT flags = from | toKind(to);
                std::string content(bytes, 'x');
                for (size_t i = 0; i < bytes; ++i) content[i] = static_cast<char>(i * 7 + i / 256);
                ASSERT_TRUE(source.write(content));
                if (to != COPYFILE_FROM_TEMPFILE) { // a temporary name is a file from the start
                    EXPECT_EQ(source.copyTo(target, flags | COPYFILE_FAIL_IF_EXISTS), kDone);
                    EXPECT_EQ(target.read(), content);
                }
                ASSERT_TRUE(target.write("what was there before" + content));
                EXPECT_EQ(source.copyTo(target, flags | COPYFILE_FAIL_IF_EXISTS), refusedWith(n::kFileExists));
                EXPECT_EQ(source.copyTo(target, flags), kDone);
                EXPECT_EQ(target.read(), content);
                EXPECT_EQ(R_FileExists(target.name.c_str()), 1);
                if (from == to) {
                    EXPECT_FALSE(source.copyTo(source, flags).done); // neither shares what the other wants
                }
                EXPECT_EQ(source.read(), content);
            }
}

TEST(OsysCopy, SaysWhyItFailed)
{
    const Folder folder;
    const Named source(folder, "from", false), target(folder, "to", false), none(folder, "none", false);
    ASSERT_TRUE(source.write(std::string(70000, 'x')));
    const R_UINT disk = COPYFILE_FROM_DISK | COPYFILE_TO_DISK;
    for (const R_UINT flags : {0u, 0x0Eu, 0x71u, ~0x7Fu})
        EXPECT_EQ(R_IntCopyFile(source.name.c_str(), target.name.c_str(), flags), ERROR_INV_PARAMETER);
    EXPECT_EQ(source.copyTo(target, 0x7E), kDone); // of several kinds the first
    EXPECT_EQ(none.copyTo(target, disk), refusedWith(n::kFileNotFound));
    EXPECT_EQ(target.read().size(), 70000u); // still
    EXPECT_EQ(R_IntCopyFile(nullptr, nullptr, disk), 0);
    for (const R_UINT from : {COPYFILE_FROM_DISK, COPYFILE_FROM_REDIRECTED})
        for (const R_UINT to : {COPYFILE_TO_DISK, COPYFILE_TO_REDIRECTED}) {
            {
                const FailingAllocation write(2, kFailWrite);
                EXPECT_EQ(source.copyTo(target, from | to), refusedWith(n::kWriteFault));
            }
            const NoMemory close(kFailClose);
            EXPECT_FALSE(source.copyTo(target, from | to).done); // what was held back may be lost
        }
    const FailingAllocation read(2, kFailRead);
    EXPECT_EQ(source.copyTo(target, disk), refusedWith(n::kReadFault));
    R_UINT handedOver = 0;
    REDIRECTSET own, before;
    ASSERT_EQ(R_GetRedirectFunctions(&before, REDIRECTSET_SIZE, REDIRECT_CURRENT, 1), SUCCESS);
    own = before;
    own.pfnCopy = [](const R_WCHAR*, const R_WCHAR*, R_UINT flags, void* seen) noexcept -> R_INT {
        *static_cast<R_UINT*>(seen) = flags;
        return 1;
    };
    own.pCopyData = &handedOver;
    ASSERT_EQ(R_SetRedirectFunctions(&own, REDIRECT_CURRENT, 1), SUCCESS);
    EXPECT_EQ(none.copyTo(target, COPYFILE_FROM_REDIRECTED | COPYFILE_TO_REDIRECTED), kDone);
    EXPECT_EQ(handedOver, COPYFILE_FROM_REDIRECTED | COPYFILE_TO_REDIRECTED);
    EXPECT_EQ(R_SetRedirectFunctions(&before, REDIRECT_CURRENT, 1), SUCCESS);
}

TEST(Osys, WhatExists)
{
    const Folder folder;
    const Named memory(folder, "", true);
    Wide other = memory.name;
    std::replace(other.begin(), other.end(), R_WCHAR('/'), R_WCHAR('\\'));
    EXPECT_EQ(R_FileExists(memory.name.c_str()) + R_FileExists(other.c_str()), 2);
    EXPECT_EQ(folder.count(), 0u);
    EXPECT_EQ(R_FileExists(wide(folder.path()).c_str()), 1); // folders count
    EXPECT_EQ(R_FileExists((folder / "none").c_str()), 0);
    EXPECT_EQ(R_FileExists(Wide().c_str()) + R_FileExists(nullptr) + R_FileExistsUTF8(nullptr), 0);
}

// --- The last error

TEST(Osys, TheLastErrorAsAStatus)
{
    for (const auto& [error, status] :
         {std::pair{2u, -10}, {5u, -1846}, {8u, -1}, {112u, -295}, {122u, -290}, {3u, -4}, {1u << 31, -4}}) {
        platform().setNativeError(error);
        for (int times = 0; times < 2; ++times) EXPECT_EQ(R_OsGetLastError(-4), status) << error; // it stays
    }
    for (const R_INT status : {-5, -1, -1962}) {
        R_OsSetLastError(status);
        EXPECT_EQ(nativeError(), static_cast<uint32_t>(status));
        EXPECT_EQ(R_OsGetLastError(-4), status);
        EXPECT_EQ(R_OsGetLastError(-4), -4); // a stored one answers once
    }
    for (const R_INT other : {1, 77, -1963}) { // what is no status is no answer
        R_OsSetLastError(other);
        EXPECT_EQ(R_OsGetLastError(-4), -4) << other;
    }
    R_OsSetLastError(112); // a stored native number is looked up like one
    EXPECT_EQ(R_OsGetLastError(-4), -295);
    R_OsSetLastError(-5);
    platform().setNativeError(2); // something else has failed since
    EXPECT_EQ(R_OsGetLastError(-4), -4);
    EXPECT_EQ(R_OsGetLastError(-4), -10);
    R_OsSetLastError(-5);
    std::thread([] { EXPECT_EQ(R_OsGetLastError(-4), -4); }).join(); // each thread has its own
    platform().setNativeError(static_cast<uint32_t>(-5));            // waiting may have changed it
    EXPECT_EQ(R_OsGetLastError(-4), -5);
}

} // namespace
} // namespace rv::test
