/// A file in the test's memory behind a redirect set, whose operations answer short, too much or not at all on cue.
#pragma once

#include "R_Kernel.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace rv::test {

class MemoryDisk {
public:
    std::vector<uint8_t> bytes;
    size_t position = 0;
    int calls = 0, opened = 0, closed = 0;
    bool shortReads = false;
    unsigned faultsIn1000 = 0; ///< calls that fail, after moving some of the bytes; opening and closing do not
    bool answersTooMuch = false;
    std::mt19937 random{1};

    /// The operations; their user data is this.
    REDIRECTSET set()
    {
        return {REDIRECTSET_SIZE, open, this,    read, this, write, this, seek, this, close, this,
                nullptr,          this, nullptr, this};
    }

private:
    static constexpr R_INT64 kHandle = 70001; // none of the kernel's own
    static MemoryDisk& of(void* data) { return *static_cast<MemoryDisk*>(data); }
    bool fails() { return ++calls, random() % 1000 < faultsIn1000; }

    static R_INT64 open(const R_WCHAR*, R_INT, R_INT, void* data) { return ++of(data).opened, kHandle; }
    static R_INT close(R_INT64, void* data) { return ++of(data).closed, 0; }
    static R_INT read(R_INT64, void* buffer, R_UINT count, void* data)
    {
        MemoryDisk& disk = of(data);
        if (disk.fails()) return -1;
        if (disk.answersTooMuch) return static_cast<R_INT>(count) + 1;
        size_t n = std::min<size_t>(count, disk.bytes.size() - std::min(disk.position, disk.bytes.size()));
        if (disk.shortReads && n > 1) n = 1 + disk.random() % n;
        if (n > 0) std::memcpy(buffer, disk.bytes.data() + disk.position, n);
        disk.position += n;
        return static_cast<R_INT>(n);
    }
    static R_INT write(R_INT64, const void* buffer, R_UINT count, void* data)
    {
        MemoryDisk& disk = of(data);
        const bool fails = disk.fails();
        if (count == 0) return fails ? -1 : (disk.bytes.resize(disk.position), 0);
        const size_t n = fails ? disk.random() % count : count;
        disk.bytes.resize(std::max(disk.bytes.size(), disk.position + n));
        if (n > 0) std::memcpy(disk.bytes.data() + disk.position, buffer, n);
        disk.position += n;
        return fails && n % 2 == 0 ? -1 : static_cast<R_INT>(n);
    }
    static R_INT64 seek(R_INT64, R_INT64 distance, R_INT origin, void* data)
    {
        MemoryDisk& disk = of(data);
        const size_t from = origin == 0 ? 0 : origin == 1 ? disk.position : disk.bytes.size();
        const R_INT64 target = static_cast<R_INT64>(from) + distance;
        if (disk.fails() || target < 0) return -1;
        return static_cast<R_INT64>(disk.position = static_cast<size_t>(target));
    }
};

} // namespace rv::test
