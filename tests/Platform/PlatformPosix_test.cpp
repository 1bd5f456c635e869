// What only a POSIX system shows: limits of the process, the switch in a file, text on standard error.
#if !defined(_WIN32)

#include "Platform/Platform.h"
#include "Platform/PlatformPosixMemory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>

using rv::gSystemPlatform;
using rv::MemoryStatus;

namespace {

constexpr uint64_t kMiB = 1 << 20;

/// A directory that is gone with the test.
class Directory {
public:
    Directory()
    {
        std::string name = (std::filesystem::temp_directory_path() / "rv-platform-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) std::abort();
        path_ = name;
    }
    ~Directory() { std::filesystem::remove_all(path_); }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    void write(const std::string& name, const std::string& text) const
    {
        const std::filesystem::path file = path_ / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << text;
    }
    std::string path() const { return path_.string(); }
    MemoryStatus memory() const { return rv::readSystemMemory(path_.c_str()); }

private:
    std::filesystem::path path_;
};

constexpr const char* kMeminfo = "MemTotal:        8388608 kB\nMemFree:          102400 kB\n"
                                 "MemAvailable:    4194304 kB\nSwapCached:            7 kB\n"
                                 "SwapTotal:       2097152 kB\nSwapFree:        1048576 kB\n";

void expectMemory(const MemoryStatus& status, uint64_t total, uint64_t available, uint64_t swap, uint64_t freeSwap)
{
    EXPECT_EQ(status.totalPhysical, total * kMiB);
    EXPECT_EQ(status.availablePhysical, available * kMiB);
    EXPECT_EQ(status.totalPageFile, swap * kMiB);
    EXPECT_EQ(status.availablePageFile, freeSwap * kMiB);
}

std::string mib(uint64_t count) { return std::to_string(count * kMiB) + "\n"; }

TEST(PosixMemory, IsWhatTheSystemSays)
{
    const Directory root;
    expectMemory(root.memory(), 0, 0, 0, 0);
    root.write("proc/meminfo", kMeminfo);
    expectMemory(root.memory(), 8192, 4096, 2048, 1024);
}

TEST(PosixMemory, IsCutToTheGroupAndToThoseAroundIt)
{
    const Directory root;
    root.write("proc/meminfo", kMeminfo);
    root.write("proc/self/cgroup", "0::/outer/inner\n");
    root.write("sys/fs/cgroup/outer/inner/memory.max", "max\n");
    root.write("sys/fs/cgroup/outer/inner/memory.current", mib(300));
    expectMemory(root.memory(), 8192, 4096, 2048, 1024);

    // 1000 may be held, 700 are, 100 of them could go at once.
    root.write("sys/fs/cgroup/outer/memory.max", mib(1000));
    root.write("sys/fs/cgroup/outer/memory.current", mib(700));
    root.write("sys/fs/cgroup/outer/memory.stat", "anon 5\ninactive_anon 9\ninactive_file " + mib(100));
    root.write("sys/fs/cgroup/outer/memory.swap.max", "0\n");
    root.write("sys/fs/cgroup/outer/memory.swap.current", "0\n");
    expectMemory(root.memory(), 1000, 400, 0, 0);

    // A wide limit further out counts as well, where neighbours have used it up.
    root.write("sys/fs/cgroup/memory.max", mib(6000));
    root.write("sys/fs/cgroup/memory.current", mib(5950));
    expectMemory(root.memory(), 1000, 50, 0, 0);

    // Over its limit, and a group of its own at the top of what it sees.
    root.write("proc/self/cgroup", "0::/\n");
    root.write("sys/fs/cgroup/memory.max", mib(500));
    root.write("sys/fs/cgroup/memory.current", mib(501));
    expectMemory(root.memory(), 500, 0, 2048, 1024);
}

TEST(PosixMemory, IsCutByTheOldHierarchyToo)
{
    const Directory root;
    root.write("proc/meminfo", kMeminfo);
    root.write("proc/self/cgroup", "3:cpu,memoryless:/wrong\n2:hugetlb,memory:/one/two\n0::/\n");
    root.write("sys/fs/cgroup/memory/wrong/memory.limit_in_bytes", mib(1));
    root.write("sys/fs/cgroup/memory/wrong/memory.usage_in_bytes", mib(1));
    root.write("sys/fs/cgroup/memory/memory.limit_in_bytes", "9223372036854771712\n");
    root.write("sys/fs/cgroup/memory/memory.usage_in_bytes", mib(6000));
    root.write("sys/fs/cgroup/memory/one/two/memory.limit_in_bytes", mib(2000));
    root.write("sys/fs/cgroup/memory/one/two/memory.usage_in_bytes", mib(500));
    root.write("sys/fs/cgroup/memory/one/two/memory.stat", "inactive_file 1\ntotal_inactive_file " + mib(50));
    root.write("sys/fs/cgroup/memory/one/two/memory.memsw.limit_in_bytes", mib(2100));
    root.write("sys/fs/cgroup/memory/one/two/memory.memsw.usage_in_bytes", mib(500));
    expectMemory(root.memory(), 2000, 1550, 100, 100);
}

/// Lowers a limit of the process for the length of a scope.
class Limit {
public:
    Limit(__rlimit_resource which, uint64_t bytes) : which_(which)
    {
        getrlimit(which_, &before_);
        const rlimit lower{bytes, before_.rlim_max};
        setrlimit(which_, &lower);
    }
    ~Limit() { setrlimit(which_, &before_); }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

private:
    __rlimit_resource which_;
    rlimit before_{};
};

/// The first and the sixth of the process's sizes: its address space and its data, in bytes.
std::pair<uint64_t, uint64_t> spaceAndData()
{
    std::ifstream statm("/proc/self/statm");
    uint64_t space = 0, skip = 0, data = 0;
    statm >> space >> skip >> skip >> skip >> skip >> data;
    const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    return {space * page, data * page};
}

TEST(PosixMemory, IsCutToTheProcessesOwnLimits)
{
    const auto [space, data] = spaceAndData();
    const auto expectLeft = [](uint64_t limit) {
        const MemoryStatus status = gSystemPlatform.memoryStatus();
        EXPECT_LE(status.totalPhysical + status.totalPageFile, limit);
        const uint64_t left = status.availablePhysical + status.availablePageFile;
        EXPECT_GT(left, 100 * kMiB); // of 256, less what the test itself takes meanwhile
        EXPECT_LE(left, 300 * kMiB);
    };
    {
        const uint64_t limit = space + 256 * kMiB;
        const Limit lowered(RLIMIT_AS, limit);
        expectLeft(limit);
    }
    {
        const uint64_t limit = data + 256 * kMiB;
        const Limit lowered(RLIMIT_DATA, limit);
        expectLeft(limit);
    }
}

// One length is made up to whole huge pages, one is not: there the system may answer with any address.
TEST(PosixPages, OfBigBlocksStartWhereHugePagesDoAndTakeNoMoreThanTheyNeed)
{
    for (const uint64_t bytes : {5 * kMiB + 31, 4 * kMiB + kMiB / 2}) {
        const uint64_t before = spaceAndData().first;
        void* pages[8];
        for (void*& block : pages) {
            block = gSystemPlatform.createPages(bytes);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(gSystemPlatform.mapPages(block)) % (2 * kMiB), 0u) << bytes;
        }
        EXPECT_LE(spaceAndData().first - before, 8 * (bytes + kMiB) + kMiB) << bytes;
        for (void* const block : pages) gSystemPlatform.closePages(block);
        EXPECT_LE(spaceAndData().first, before + kMiB) << bytes;
    }
}

/// What a function writes to standard error.
template <class Function> std::string standardErrorOf(Function function)
{
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    const int before = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    std::string text;
    std::thread reader([&] { // a long text does not fit into the pipe
        char piece[512];
        for (ssize_t got; (got = read(ends[0], piece, sizeof piece)) > 0;) text.append(piece, static_cast<size_t>(got));
    });
    function();
    dup2(before, STDERR_FILENO);
    close(before);
    close(ends[1]);
    reader.join();
    close(ends[0]);
    return text;
}

TEST(PosixDebugOutput, IsUtf8OnStandardError)
{
    EXPECT_EQ(standardErrorOf([] { gSystemPlatform.debugOutput("plain\n"); }), "plain\n");
    // Two, three and four bytes; a lone surrogate of either kind; a high one at the very end.
    const char16_t text[] = {u'a', u'é', u'€', 0xD83D, 0xDE00, 0xDE00, u'b', 0xD83D, u'c', 0xD83D, 0};
    EXPECT_EQ(standardErrorOf([&] { gSystemPlatform.debugOutputWide(text); }),
              "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBD"
              "b\xEF\xBF\xBD"
              "c\xEF\xBF\xBD");

    std::u16string longText;
    std::string expected;
    for (int i = 0; i < 9000; ++i) { // three bytes each meet the end of a buffer of 2^n bytes askew
        longText += u'€';
        expected += "\xE2\x82\xAC";
    }
    EXPECT_EQ(standardErrorOf([&] { gSystemPlatform.debugOutputWide(longText.c_str()); }), expected);
}

/// Sets a variable of the environment for the length of a scope; null takes it out.
class Variable {
public:
    Variable(const char* name, const char* value) : name_(name)
    {
        if (const char* const before = std::getenv(name)) {
            before_ = before;
            present_ = true;
        }
        set(value);
    }
    ~Variable() { set(present_ ? before_.c_str() : nullptr); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    void set(const char* value) const { value != nullptr ? setenv(name_, value, 1) : unsetenv(name_); }

private:
    const char* name_;
    std::string before_;
    bool present_ = false;
};

TEST(PosixDiagnostics, AreWantedWhereTheFileIs)
{
    const Directory configuration, home, empty;
    configuration.write("Bastovel/23/CheckLockCount", "");
    home.write(".config/Bastovel/23/CheckLockCount", "");
    const Variable homeVariable("HOME", empty.path().c_str());
    const Variable variable("XDG_CONFIG_HOME", configuration.path().c_str());
    EXPECT_TRUE(gSystemPlatform.lockCountDiagnosticsWanted());
    homeVariable.set(home.path().c_str());
    variable.set(empty.path().c_str()); // the one named is the only one looked at
    EXPECT_FALSE(gSystemPlatform.lockCountDiagnosticsWanted());
    for (const char* const unusable : {static_cast<const char*>(nullptr), "", "relative/path"}) {
        variable.set(unusable);
        EXPECT_TRUE(gSystemPlatform.lockCountDiagnosticsWanted());
    }
    homeVariable.set(nullptr);
    EXPECT_FALSE(gSystemPlatform.lockCountDiagnosticsWanted());
    variable.set(("/" + std::string(5000, 'x')).c_str());
    EXPECT_FALSE(gSystemPlatform.lockCountDiagnosticsWanted());
}

} // namespace

#endif
