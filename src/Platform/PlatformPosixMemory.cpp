#include "Platform/PlatformPosixMemory.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace rv {
namespace {

constexpr uint64_t least(uint64_t a, uint64_t b) noexcept { return a < b ? a : b; }
constexpr uint64_t minus(uint64_t a, uint64_t b) noexcept { return a > b ? a - b : 0; }

/// The start of a small text file; empty where it cannot be read.
class FileText {
public:
    explicit FileText(const char* path) noexcept
    {
        const int file = open(path, O_RDONLY | O_CLOEXEC);
        if (file < 0) return;
        size_t length = 0;
        for (ssize_t got = 1; got > 0 && length<sizeof text_ - 1; length += got> 0 ? static_cast<size_t>(got) : 0) {
            got = read(file, text_ + length, sizeof text_ - 1 - length);
        }
        close(file);
        text_[length] = 0;
    }

    const char* text() const noexcept { return text_; }
    bool empty() const noexcept { return text_[0] == 0; }

    /// The number behind `key` at the start of a line; false where there is no such line.
    bool number(const char* key, uint64_t* value) const noexcept
    {
        const size_t length = std::strlen(key);
        for (const char* line = text_; line != nullptr; line = std::strchr(line, '\n')) {
            if (*line == '\n') ++line;
            if (std::strncmp(line, key, length) != 0) continue;
            char* end;
            *value = std::strtoull(line + length, &end, 10);
            return end != line + length;
        }
        return false;
    }

private:
    char text_[8192] = {};
};

/// The directory of one control group, and the names of its files there.
class Group {
public:
    Group(const char* directory) noexcept : directory_(directory) {}

    bool number(const char* file, const char* key, uint64_t* value) const noexcept
    {
        char path[PATH_MAX + 64];
        std::snprintf(path, sizeof path, "%s/%s", directory_, file);
        return FileText(path).number(key, value);
    }

private:
    const char* directory_;
};

/// Memory that the group holds and would not give up. Pages of files that nobody looks at are given up first.
uint64_t heldBy(const Group& group, uint64_t used, const char* reclaimableKey) noexcept
{
    uint64_t reclaimable = 0;
    group.number("memory.stat", reclaimableKey, &reclaimable);
    return minus(used, reclaimable);
}

void limitMemory(MemoryStatus* status, uint64_t limit, uint64_t used) noexcept
{
    status->totalPhysical = least(status->totalPhysical, limit);
    status->availablePhysical = least(status->availablePhysical, minus(limit, used));
}

// No limit is the word "max" in the unified hierarchy and a number past all memory in the old one. What a group holds
// is asked only where its limit is below what the machine has: for the answer the system adds up the figures of all
// groups inside.

void applyUnifiedGroup(const Group& group, const MemoryStatus& machine, MemoryStatus* status) noexcept
{
    uint64_t limit, used;
    if (group.number("memory.max", "", &limit) && limit < machine.totalPhysical &&
        group.number("memory.current", "", &used)) {
        limitMemory(status, limit, heldBy(group, used, "inactive_file "));
    }
    if (group.number("memory.swap.max", "", &limit) && limit < machine.totalPageFile &&
        group.number("memory.swap.current", "", &used)) {
        status->totalPageFile = least(status->totalPageFile, limit);
        status->availablePageFile = least(status->availablePageFile, minus(limit, used));
    }
}

void applyMemoryGroup(const Group& group, const MemoryStatus& machine, MemoryStatus* status) noexcept
{
    uint64_t limit, used;
    if (group.number("memory.limit_in_bytes", "", &limit) && limit < machine.totalPhysical &&
        group.number("memory.usage_in_bytes", "", &used)) {
        limitMemory(status, limit, heldBy(group, used, "total_inactive_file "));
    }
    if (group.number("memory.memsw.limit_in_bytes", "", &limit) &&
        limit < machine.totalPhysical + machine.totalPageFile &&
        group.number("memory.memsw.usage_in_bytes", "", &used)) {
        limitTogether(status, limit, heldBy(group, used, "total_inactive_file "));
    }
}

/// Applies a group and all groups around it: each limits what is inside.
template <class Apply>
void applyUpwards(const char* root, const char* hierarchy, const char* group, size_t groupLength, Apply apply) noexcept
{
    char directory[PATH_MAX];
    const int length = std::snprintf(directory, sizeof directory, "%s/sys/fs/cgroup%s%.*s", root, hierarchy,
                                     static_cast<int>(groupLength), group);
    if (length < 0 || static_cast<size_t>(length) >= sizeof directory) return;
    for (size_t left = groupLength;; --left) {
        apply(Group(directory));
        while (left != 0 && group[left - 1] != '/') --left;
        if (left == 0) return;
        directory[static_cast<size_t>(length) - groupLength + left - 1] = 0;
    }
}

/// Whether a line "number:controllers:group" of proc/self/cgroup names the controller of memory.
bool namesMemory(const char* controllers, const char* end) noexcept
{
    while (controllers < end) {
        const char* word = controllers;
        while (word < end && *word != ',') ++word;
        if (word - controllers == 6 && std::memcmp(controllers, "memory", 6) == 0) return true;
        controllers = word + 1;
    }
    return false;
}

void applyGroups(const char* root, MemoryStatus* status) noexcept
{
    const MemoryStatus machine = *status;
    char path[PATH_MAX];
    std::snprintf(path, sizeof path, "%s/proc/self/cgroup", root);
    const FileText groups(path);
    for (const char* line = groups.text(); *line != 0;) {
        const size_t length = std::strcspn(line, "\n");
        const char* const end = line + length;
        const auto* controllers = static_cast<const char*>(std::memchr(line, ':', length));
        const auto* group = controllers != nullptr
                                ? static_cast<const char*>(
                                      std::memchr(controllers + 1, ':', static_cast<size_t>(end - controllers - 1)))
                                : nullptr;
        if (group != nullptr) {
            ++controllers;
            const auto groupLength = static_cast<size_t>(end - group - 1);
            if (controllers == group) {
                applyUpwards(root, "", group + 1, groupLength,
                             [&](const Group& g) { applyUnifiedGroup(g, machine, status); });
            } else if (namesMemory(controllers, group)) {
                applyUpwards(root, "/memory", group + 1, groupLength,
                             [&](const Group& g) { applyMemoryGroup(g, machine, status); });
            }
        }
        line = *end != 0 ? end + 1 : end;
    }
}

/// Cuts to the process's limits on its address space and on its data.
void applyProcessLimits(MemoryStatus* status) noexcept
{
    rlimit space, data;
    const bool spaceLimited = getrlimit(RLIMIT_AS, &space) == 0 && space.rlim_cur != RLIM_INFINITY;
    const bool dataLimited = getrlimit(RLIMIT_DATA, &data) == 0 && data.rlim_cur != RLIM_INFINITY;
    if (!spaceLimited && !dataLimited) return;

    const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    unsigned long long spacePages = 0, dataPages = 0;
    std::sscanf(FileText("/proc/self/statm").text(), "%llu %*u %*u %*u %*u %llu", &spacePages, &dataPages);
    if (spaceLimited) limitTogether(status, space.rlim_cur, spacePages * page);
    if (dataLimited) limitTogether(status, data.rlim_cur, dataPages * page);
}

/// The last answer of the system. Every allocation of pixels asks, and the answer costs as much as filling a small
/// bitmap. It only changes as memory is written to, and in kFreshFor that cannot be much.
struct Reading {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    MemoryStatus status;
    uint64_t readAt = 0;
    bool present = false;
};
constinit Reading reading;
constexpr uint64_t kFreshFor = 10; // ms

MemoryStatus systemMemory(uint64_t now) noexcept
{
    pthread_mutex_lock(&reading.mutex);
    if (!reading.present || now - reading.readAt >= kFreshFor) {
        reading.status = readSystemMemory("");
        reading.readAt = now;
        reading.present = true;
    }
    const MemoryStatus status = reading.status;
    pthread_mutex_unlock(&reading.mutex);
    return status;
}

} // namespace

MemoryStatus readSystemMemory(const char* root) noexcept
{
    char path[PATH_MAX];
    std::snprintf(path, sizeof path, "%s/proc/meminfo", root);
    const FileText facts(path);
    MemoryStatus status;
    const auto read = [&](const char* key, uint64_t* bytes) {
        const bool there = facts.number(key, bytes);
        *bytes *= 1024;
        return there;
    };
    read("MemTotal:", &status.totalPhysical);
    if (!read("MemAvailable:", &status.availablePhysical)) read("MemFree:", &status.availablePhysical);
    read("SwapTotal:", &status.totalPageFile);
    read("SwapFree:", &status.availablePageFile);
    applyGroups(root, &status);
    return status;
}

void limitTogether(MemoryStatus* status, uint64_t limit, uint64_t used) noexcept
{
    const uint64_t left = minus(limit, used);
    status->totalPhysical = least(status->totalPhysical, limit);
    status->totalPageFile = least(status->totalPageFile, limit - status->totalPhysical);
    status->availablePhysical = least(status->availablePhysical, left);
    status->availablePageFile = least(status->availablePageFile, left - status->availablePhysical);
}

MemoryStatus Platform::memoryStatus() noexcept
{
    MemoryStatus status = systemMemory(Platform::ticks());
    if (status.totalPhysical == 0) { // no proc file system here
        const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
        status.totalPhysical = static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * page;
        status.availablePhysical = static_cast<uint64_t>(sysconf(_SC_AVPHYS_PAGES)) * page;
    }
    applyProcessLimits(&status);
    return status;
}

} // namespace rv
