// What only a POSIX system shows of files: pipes, signals, limits, descriptors that a program brings along, and disks
// that are full.
#if !defined(_WIN32)

#include "Internal/R_Int.h"
#include "Kernel/Services/Osys.h"
#include "Platform/NativeErrors.h"
#include "Platform/Platform.h"
#include "Support/FailingPlatform.h"
#include "Support/Folder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace rv::test {
namespace {

namespace n = native;

TEST(PosixFiles, PipesAnswerWhatTheyHave)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    char buffer[16] = {};
    EXPECT_EQ(R_OsWrite(ends[1], "abc", 3), 3);
    EXPECT_EQ(R_OsRead(ends[0], buffer, 16), 3);
    EXPECT_EQ(R_OsSeek(ends[0], 0, 1), -1);
    EXPECT_EQ(R_OsRead(ends[1], buffer, 1), -1);
    EXPECT_EQ(platform().nativeError(), n::kAccessDenied);
    // A writer that is slower than its reader, on an end that does not wait by itself.
    ASSERT_EQ(fcntl(ends[0], F_SETFL, O_NONBLOCK), 0);
    std::thread writer([&] {
        usleep(20000);
        EXPECT_EQ(R_OsWrite(ends[1], "late", 4), 4);
        EXPECT_EQ(R_OsClose(ends[1]), 0);
    });
    EXPECT_EQ(R_OsRead(ends[0], buffer, 16), 4);
    EXPECT_EQ(R_OsRead(ends[0], buffer, 16), 0);
    writer.join();
    EXPECT_EQ(R_OsClose(ends[0]), 0);
}

/// A write that fills a pipe again and again, and a read of its other end, with a signal every millisecond.
TEST(PosixFiles, SignalsInterruptNothing)
{
    struct sigaction action = {}, before = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, &before);
    const itimerval often = {{0, 1000}, {0, 1000}}, never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::vector<char> sent(3 << 20), received(sent.size());
    for (size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<char>(i * 7 >> 3);
    std::thread writer([&] {
        EXPECT_EQ(R_OsWrite(ends[1], sent.data(), static_cast<R_UINT>(sent.size())), static_cast<R_INT>(sent.size()));
    });
    for (size_t at = 0; at < received.size();) {
        usleep(100);
        const R_INT moved = R_OsRead(ends[0], received.data() + at, static_cast<R_UINT>(received.size() - at));
        ASSERT_GT(moved, 0);
        at += static_cast<size_t>(moved);
    }
    writer.join();
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ(sent, received);
    EXPECT_EQ(R_OsClose(ends[0]), 0);
    EXPECT_EQ(R_OsClose(ends[1]), 0);
}

/// Descriptors that come and go behind the library's back leave nothing that hinders later opens.
TEST(PosixFiles, DescriptorsOfTheProgram)
{
    const Folder folder;
    const Wide name = folder / "file";
    folder.write("other", "other");
    const LiveBlocks live;
    R_INT64 file = R_OsOpen(name.c_str(), 2 | FILE_MODE_CREATE, 0);
    close(static_cast<int>(file));
    EXPECT_EQ(R_OsOpen(name.c_str(), 2, 0), file); // the same number for the same file is no second holder
    close(static_cast<int>(file));
    const int reused = open((folder.path() / "other").c_str(), O_RDONLY);
    ASSERT_EQ(reused, file);
    file = R_OsOpen(name.c_str(), 2, 0);
    EXPECT_NE(file, R_INVALID_FILE);
    char buffer[8];
    EXPECT_EQ(R_OsRead(reused, buffer, 8), 5);
    EXPECT_EQ(R_OsClose(reused), 0);
    EXPECT_EQ(R_OsClose(file), 0);
    EXPECT_EQ(live.count(kHeap), 0);

    file = R_OsCreat(name.c_str(), 0);
    const int copy = dup(static_cast<int>(file));
    EXPECT_TRUE((fcntl(static_cast<int>(file), F_GETFD) & FD_CLOEXEC) != 0);
    EXPECT_EQ(R_OsClose(copy), 0); // has no record, and does not end that of the first
    EXPECT_EQ(R_OsOpen(name.c_str(), 2, 0), -1);
    EXPECT_EQ(R_OsClose(file), 0);
}

TEST(PosixFiles, LinksLeadToTheFile)
{
    const Folder folder;
    folder.write("file", "content");
    std::filesystem::create_symlink("file", folder.path() / "link");
    std::filesystem::create_symlink("nowhere", folder.path() / "dangling");
    std::filesystem::create_hard_link(folder.path() / "file", folder.path() / "twin");
    R_INT64 file = R_OsOpen((folder / "link").c_str(), 0, 0);
    EXPECT_EQ(R_OsOpen((folder / "twin").c_str(), 0, FILE_SHARE_BIT_READ), -1);
    EXPECT_EQ(platform().nativeError(), n::kSharingViolation);
    EXPECT_EQ(R_OsClose(file), 0);
    EXPECT_EQ(R_OsClose(R_OsCreat((folder / "dangling").c_str(), 0)), 0);
    EXPECT_EQ(folder.read("nowhere"), "");
    // Deleted on closing is the file, from another working folder, too.
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    file = R_OsOpen(u"link", 2 | FILE_MODE_TEMPORARY, 0);
    std::filesystem::current_path(before);
    EXPECT_EQ(R_OsClose(file), 0);
    EXPECT_EQ(folder.read("file"), "(none)");
    EXPECT_EQ(R_OsDelete((folder / "link").c_str()), 0);
    EXPECT_EQ(folder.read("twin"), "content");
    // A file that no folder has is reached by its descriptor's name.
    const int nameless = open(folder.path().c_str(), O_TMPFILE | O_RDWR, 0600);
    if (nameless < 0) return; // not every file system has them
    EXPECT_EQ(R_OsClose(R_OsOpen(wide("/proc/self/fd/" + std::to_string(nameless)).c_str(), 2, 0)), 0);
    close(nameless);
}

/// What is to be deleted on closing goes with the process that opened it, and only with that one.
TEST(PosixFiles, DeletedWithTheProcessThatOpenedIt)
{
    const Folder folder;
    const R_INT64 ours = R_OsOpen((folder / "ours").c_str(), 2 | FILE_MODE_CREATE | FILE_MODE_TEMPORARY, 0);
    const auto child = [&](auto end) {
        const pid_t id = fork();
        if (id == 0) {
            alarm(20);
            (void)R_OsOpen((folder / "its").c_str(), 2 | FILE_MODE_CREATE | FILE_MODE_TEMPORARY, 0);
            R_OsClose(ours);
            end();
        }
        int status = -1;
        waitpid(id, &status, 0);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(folder.read("ours"), "");
    };
    std::atomic<bool> ended = false;
    std::thread other([&] { // whose calls a child may come between
        while (!ended) R_OsClose(R_OsOpen((folder / "others").c_str(), 2 | FILE_MODE_CREATE | FILE_MODE_TEMPORARY, 0));
    });
    for (int i = 0; i < 20; ++i) child([] { _exit(0); });
    ended = true;
    other.join();
    child([] { std::exit(0); });
    EXPECT_EQ(folder.read("its"), "(none)");
    EXPECT_EQ(R_OsClose(ours), 0);
    EXPECT_EQ(folder.count(), 0u);
}

/// Runs f in a child; 0 when it answers true.
template <class F> int inChild(F f)
{
    const pid_t child = fork();
    if (child == 0) _exit(f() ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
/// A step of a child: says what failed.
#define CHECK_OR_FAIL(condition)                                                                                       \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            std::fprintf(stderr, "%d: %s, error %u\n", __LINE__, #condition, platform().nativeError());                \
            return false;                                                                                              \
        }                                                                                                              \
    } while (0)

bool failsFull(bool done) { return !done && platform().nativeError() == n::kDiskFull; }

TEST(PosixFiles, ALimitOnFileSizesIsAFullDisk)
{
    const Folder folder;
    folder.write("large", std::string(20000, 'l'));
    EXPECT_EQ(inChild([&] {
                  const rlimit limit = {10000, 10000};
                  CHECK_OR_FAIL(setrlimit(RLIMIT_FSIZE, &limit) == 0);
                  const R_INT64 file = R_OsOpen((folder / "file").c_str(), 2 | FILE_MODE_CREATE, 0);
                  const std::vector<char> bytes(20000);
                  CHECK_OR_FAIL(R_OsWrite(file, bytes.data(), 9000) == 9000);
                  CHECK_OR_FAIL(failsFull(R_OsWrite(file, bytes.data(), 9000) >= 0));
                  CHECK_OR_FAIL(failsFull(R_OsSetFileSize(file, 20000) >= 0));
                  CHECK_OR_FAIL(failsFull(platform().openScratchFile(wide(folder.path()).c_str(), 20000) >= 0));
                  CHECK_OR_FAIL(R_OsClose(file) == 0);
                  CHECK_OR_FAIL(copyFileThrough((folder / "large").c_str(), (folder / "file").c_str(),
                                                COPYFILE_FROM_DISK | COPYFILE_TO_DISK) == 0);
                  CHECK_OR_FAIL(platform().nativeError() == n::kWriteFault);
                  return true;
              }),
              0);
    EXPECT_EQ(folder.count(), 2u);
}

// What setting up a small disk of one's own needs, a child may not be allowed.
constexpr int kNotPermitted = 77;

bool unshareMounts()
{
    if (unshare(CLONE_NEWNS) == 0) return true;
    const std::string user = std::to_string(getuid()), group = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
    return true;
}

/// Runs f in a child with a disk of 1 MiB on the folder, which nobody else sees and which is gone with the child.
template <class F> int onSmallDisk(const Folder& folder, F f)
{
    return inChild([&] {
        if (!unshareMounts() || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", folder.path().c_str(), "tmpfs", 0, "size=1m") != 0)
            _exit(kNotPermitted);
        return f();
    });
}

TEST(PosixFiles, AFullDiskIsToldAndLosesNothing)
{
    const Folder folder, elsewhere;
    const std::string large(2 << 20, 'l'), small(700 << 10, 's');
    elsewhere.write("large", large);
    elsewhere.write("small", small);
    const Wide disk = wide(folder.path());
    const int result = onSmallDisk(folder, [&] {
        const R_INT64 file = R_OsOpen((folder / "file").c_str(), 2 | FILE_MODE_CREATE, 0);
        CHECK_OR_FAIL(failsFull(R_OsWriteBig(file, large.data(), 2 << 20) >= 0));
        CHECK_OR_FAIL(R_OsGetLastError(0) == ERROR_NO_DISK_SPACE);
        CHECK_OR_FAIL(R_OsClose(file) == 0 && R_OsDelete((folder / "file").c_str()) == 0);
        // Reserved room is room: who got it can write it, though nothing else is left.
        CHECK_OR_FAIL(failsFull(platform().openScratchFile(disk.c_str(), 2 << 20) >= 0));
        const R_INT64 scratch = platform().openScratchFile(disk.c_str(), 900 << 10);
        CHECK_OR_FAIL(scratch != kNoFile && folder.count() == 0);
        CHECK_OR_FAIL(failsFull(platform().resizeScratchFile(scratch, 2 << 20)));
        CHECK_OR_FAIL(platform().seekFile(scratch, 0, 2) == 900 << 10 && platform().seekFile(scratch, 0, 0) == 0);
        CHECK_OR_FAIL(platform().resizeScratchFile(scratch, 300 << 10));
        const R_INT64 second = platform().openScratchFile(disk.c_str(), 600 << 10); // in what the first has given back
        CHECK_OR_FAIL(second != kNoFile && failsFull(platform().resizeScratchFile(scratch, 900 << 10)));
        CHECK_OR_FAIL(platform().closeFile(second) && platform().resizeScratchFile(scratch, 900 << 10));
        CHECK_OR_FAIL(R_MoveFileEx((elsewhere / "small").c_str(), (folder / "small").c_str(), 2) == 0);
        CHECK_OR_FAIL(platform().nativeError() == n::kDiskFull && elsewhere.read("small") == small);
        CHECK_OR_FAIL(copyFileThrough((elsewhere / "large").c_str(), (folder / "copy").c_str(),
                                      COPYFILE_FROM_DISK | COPYFILE_TO_DISK) == 0);
        CHECK_OR_FAIL(platform().nativeError() == n::kWriteFault && elsewhere.read("large") == large);
        CHECK_OR_FAIL(platform().writeFile(scratch, large.data(), 900 << 10) == 900 << 10);
        CHECK_OR_FAIL(platform().writeFileAt(scratch, "end", 3, (900 << 10) - 3) == 3);
        CHECK_OR_FAIL(platform().closeFile(scratch) && R_OsDelete((folder / "copy").c_str()) == 0);
        CHECK_OR_FAIL(folder.count() == 0);
        // With room it arrives whole, in place of what had the name.
        folder.write("target", "old");
        CHECK_OR_FAIL(R_MoveFileEx((elsewhere / "small").c_str(), (folder / "target").c_str(), 0) == 0);
        CHECK_OR_FAIL(platform().nativeError() == n::kAlreadyExists);
        CHECK_OR_FAIL(R_MoveFileEx((elsewhere / "small").c_str(), (folder / "target").c_str(), 1) == 0);
        CHECK_OR_FAIL(platform().nativeError() == n::kNotSameDevice && folder.read("target") == "old");
        for (const unsigned kind : {kFailRead, kFailWrite, kShortWrite, kFailOpen}) {
            const FailingAllocation fault(3 - (kind == kFailOpen) * 2, kind);
            CHECK_OR_FAIL(R_MoveFileEx((elsewhere / "small").c_str(), (folder / "target").c_str(), 3) == 0);
            CHECK_OR_FAIL(folder.read("target") == "old" && elsewhere.read("small") == small && folder.count() == 1);
        }
        CHECK_OR_FAIL(R_MoveFileEx((elsewhere / "small").c_str(), (folder / "target").c_str(), 3) == 1);
        CHECK_OR_FAIL(folder.read("target") == small && elsewhere.read("small") == "(none)");
        return true;
    });
    if (result == kNotPermitted) GTEST_SKIP() << "no mounts of one's own here";
    EXPECT_EQ(result, 0);
}

TEST(PosixFiles, TheTemporaryFolderEndsWithASeparator)
{
    const char* const old = std::getenv("TMPDIR");
    const std::string before = old != nullptr ? old : "";
    for (const auto& [value, expected] : {std::pair{"/a", u"/a/"}, {"/b/", u"/b/"}, {"", u"/tmp/"}}) {
        setenv("TMPDIR", value, 1);
        R_WCHAR text[8] = {};
        EXPECT_EQ(platform().temporaryFolder(text, 8), Wide(expected).size() + 1);
        EXPECT_EQ(Wide(text), expected);
    }
    old != nullptr ? setenv("TMPDIR", before.c_str(), 1) : unsetenv("TMPDIR");
}

} // namespace
} // namespace rv::test

#endif
