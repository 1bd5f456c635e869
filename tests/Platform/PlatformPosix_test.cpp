// What only a POSIX system shows: limits of the process, the switch in a file, text on standard error.
#if !defined(_WIN32)

#include "Platform/Platform.h"
#include "Platform/PlatformPosixMemory.h"
#include "Support/Folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

using rv::gSystemPlatform;
using rv::MemoryStatus;
using rv::test::Folder;

namespace {

constexpr uint64_t kMiB = 1 << 20;

constexpr const char* kMeminfo = "MemTotal:        8388608 kB\nMemFree:          102400 kB\n"
                                 "MemAvailable:    4194304 kB\nSwapCached:            7 kB\n"
                                 "SwapTotal:       2097152 kB\nSwapFree:        1048576 kB\n";

/// A system of 8 GiB with 2 GiB to swap to, half of each in use, and control groups; all in MiB.
struct PretendedSystem : Folder {
    PretendedSystem() { write("proc/meminfo", kMeminfo); }
    void write(const char* group, std::initializer_list<std::pair<const char*, uint64_t>> files) const
    {
        for (const auto& [name, count] : files)
            write(std::string("sys/fs/cgroup/") + group + name, std::to_string(count * kMiB) + "\n");
    }
    using Folder::write;
    void expect(uint64_t total, uint64_t available, uint64_t swap, uint64_t freeSwap) const
    {
        const MemoryStatus status = rv::readSystemMemory(path().c_str());
        EXPECT_EQ(status.totalPhysical, total * kMiB);
        EXPECT_EQ(status.availablePhysical, available * kMiB);
        EXPECT_EQ(status.totalPageFile, swap * kMiB);
        EXPECT_EQ(status.availablePageFile, freeSwap * kMiB);
    }
};

TEST(PosixMemory, IsCutToTheGroupAndToThoseAroundIt)
{
    const PretendedSystem root;
    root.write("proc/self/cgroup", "0::/outer/inner\n");
    root.write("sys/fs/cgroup/outer/inner/memory.max", "max\n");
    root.write("outer/inner/", {{"memory.current", 300}});
    root.expect(8192, 4096, 2048, 1024);

    // 1000 may be held, 700 are, 100 of them could go at once.
    root.write("outer/",
               {{"memory.max", 1000}, {"memory.current", 700}, {"memory.swap.max", 0}, {"memory.swap.current", 0}});
    root.write("sys/fs/cgroup/outer/memory.stat", "anon 5\ninactive_anon 9\ninactive_file 104857600\n");
    root.expect(1000, 400, 0, 0);
    // A wide limit further out counts as well, where neighbours have used it up.
    root.write("", {{"memory.max", 6000}, {"memory.current", 5950}});
    root.expect(1000, 50, 0, 0);
    // Over its limit, and a group of its own at the top of what it sees.
    root.write("proc/self/cgroup", "0::/\n");
    root.write("", {{"memory.max", 500}, {"memory.current", 501}});
    root.expect(500, 0, 2048, 1024);
}

TEST(PosixMemory, IsCutByTheOldHierarchyToo)
{
    const PretendedSystem root;
    root.write("proc/self/cgroup", "3:cpu,memoryless:/wrong\n2:hugetlb,memory:/one/two\n0::/\n");
    root.write("memory/wrong/", {{"memory.limit_in_bytes", 1}, {"memory.usage_in_bytes", 1}});
    root.write("memory/", {{"memory.limit_in_bytes", 8796093022207}, {"memory.usage_in_bytes", 6000}});
    root.write("memory/one/two/", {{"memory.limit_in_bytes", 2000},
                                   {"memory.usage_in_bytes", 500},
                                   {"memory.memsw.limit_in_bytes", 2100},
                                   {"memory.memsw.usage_in_bytes", 500}});
    root.write("sys/fs/cgroup/memory/one/two/memory.stat", "inactive_file 1\ntotal_inactive_file 52428800\n");
    root.expect(2000, 1550, 100, 100);
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
    for (const auto& [which, used] : {std::pair{RLIMIT_AS, space}, {RLIMIT_DATA, data}}) {
        const uint64_t limit = used + 256 * kMiB;
        const Limit lowered(which, limit);
        const MemoryStatus status = gSystemPlatform.memoryStatus();
        EXPECT_LE(status.totalPhysical + status.totalPageFile, limit);
        const uint64_t left = status.availablePhysical + status.availablePageFile;
        EXPECT_GT(left, 100 * kMiB); // of 256, less what the test itself takes meanwhile
        EXPECT_LE(left, 300 * kMiB);
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

/// What a function writes to standard error. A long text would not fit into a pipe.
template <class Function> std::string standardErrorOf(Function function)
{
    const Folder directory;
    const int before = dup(STDERR_FILENO), into = creat((directory.path() / "text").c_str(), 0600);
    dup2(into, STDERR_FILENO);
    function();
    dup2(before, STDERR_FILENO);
    close(before);
    close(into);
    return directory.read("text");
}

TEST(PosixDebugOutput, IsUtf8OnStandardError)
{
    const char16_t text[] = {u'a', 0xD83D, 0xDE00, 0xDE00, u'b', 0xD83D, 0}; // the last two are half a character each
    EXPECT_EQ(standardErrorOf([&] { gSystemPlatform.debugOutputWide(text); }), "a\xF0\x9F\x98\x80\xEF\xBF\xBD"
                                                                               "b\xEF\xBF\xBD");

    std::u16string longText;
    std::string expected;
    for (int i = 0; i < 9000; ++i) { // three bytes each meet the end of a buffer of 2^n bytes askew
        longText += u'€';
        expected += "\xE2\x82\xAC";
    }
    EXPECT_EQ(standardErrorOf([&] { gSystemPlatform.debugOutputWide(longText.c_str()); }), expected);
}

TEST(PosixDiagnostics, AreWantedWhereTheFileIs)
{
    const Folder configuration, home;
    configuration.write("Bastovel/23/CheckLockCount", "");
    home.write(".config/Bastovel/23/CheckLockCount", "");
    const std::string there = configuration.path(), atHome = home.path(), nowhere = there + "/Bastovel",
                      endless = "/" + std::string(5000, 'x');
    const struct {
        const char *configuration, *home; // null: not set
        bool wanted;
    } cases[] = {
        // The one that is named is the only one looked at, if its path can be one.
        {there.c_str(), nowhere.c_str(), true},
        {nowhere.c_str(), atHome.c_str(), false},
        {nullptr, atHome.c_str(), true},
        {"relative/path", atHome.c_str(), true},
        {nullptr, nullptr, false},
        {endless.c_str(), atHome.c_str(), false},
    };
    const auto set = [](const char* name, const char* value) {
        value != nullptr ? setenv(name, value, 1) : unsetenv(name);
    };
    std::pair<const char*, std::optional<std::string>> before[] = {{"XDG_CONFIG_HOME", {}}, {"HOME", {}}};
    for (auto& [name, value] : before)
        if (const char* const text = std::getenv(name)) value = text;
    for (const auto& c : cases) {
        set("XDG_CONFIG_HOME", c.configuration);
        set("HOME", c.home);
        EXPECT_EQ(gSystemPlatform.lockCountDiagnosticsWanted(), c.wanted) << &c - cases;
    }
    for (const auto& [name, value] : before) set(name, value ? value->c_str() : nullptr);
}

} // namespace

#endif
