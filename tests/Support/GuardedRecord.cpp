#include "Support/GuardedRecord.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#if !defined(_WIN32)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace rv::test {
namespace {

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "GuardedBuffer: %s\n", what);
    std::abort();
}

#if defined(_WIN32)
size_t pageBytes()
{
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwPageSize;
}
void* reservePages(size_t bytes) { return VirtualAlloc(nullptr, bytes, MEM_RESERVE, PAGE_NOACCESS); }
bool openPages(void* start, size_t bytes) { return VirtualAlloc(start, bytes, MEM_COMMIT, PAGE_READWRITE) != nullptr; }
void freePages(void* start, size_t) { VirtualFree(start, 0, MEM_RELEASE); }
#else
size_t pageBytes() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }
void* reservePages(size_t bytes)
{
    void* const start = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return start == MAP_FAILED ? nullptr : start;
}
bool openPages(void* start, size_t bytes) { return mprotect(start, bytes, PROT_READ | PROT_WRITE) == 0; }
void freePages(void* start, size_t bytes) { munmap(start, bytes); }
#endif

} // namespace

GuardedBuffer::GuardedBuffer(size_t bytes, Side side) : size_(bytes)
{
    const size_t page = pageBytes();
    const size_t inside = (bytes + page - 1) / page * page;
    blockBytes_ = inside + 2 * page;
    block_ = reservePages(blockBytes_);
    if (block_ == nullptr) fail("no memory");
    uint8_t* const first = static_cast<uint8_t*>(block_) + page;
    if (inside != 0 && !openPages(first, inside)) fail("cannot open the pages");
    data_ = side == Side::start ? first : first + inside - bytes;
    if (inside != 0) std::memset(first, kFresh, inside);
}

GuardedBuffer::~GuardedBuffer() { freePages(block_, blockBytes_); }

void GuardedBuffer::fill(uint8_t value) const
{
    if (size_ != 0) std::memset(data_, value, size_);
}

} // namespace rv::test
