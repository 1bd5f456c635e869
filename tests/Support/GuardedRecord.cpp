#include "Support/GuardedRecord.h"

#include <cstdlib>
#include <cstring>

#if !defined(_WIN32)
#include <sys/mman.h>
#endif

namespace rv::test {
namespace {

constexpr size_t kPage = 16384; // a multiple of the page size of every system we meet

/// Pages of which all but the first and the last can be used.
uint8_t* guardedPages(size_t bytes)
{
#if defined(_WIN32)
    void* const start = VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_NOACCESS);
    DWORD before;
    const bool made =
        start != nullptr && (bytes == 2 * kPage || VirtualProtect(static_cast<uint8_t*>(start) + kPage,
                                                                  bytes - 2 * kPage, PAGE_READWRITE, &before));
#else
    void* const start = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const bool made = start != MAP_FAILED &&
                      mprotect(static_cast<uint8_t*>(start) + kPage, bytes - 2 * kPage, PROT_READ | PROT_WRITE) == 0;
#endif
    if (!made) std::abort();
    return static_cast<uint8_t*>(start);
}

} // namespace

GuardedBuffer::GuardedBuffer(size_t bytes, Side side) : size_(bytes)
{
    const size_t inside = (bytes + kPage - 1) / kPage * kPage;
    blockBytes_ = inside + 2 * kPage;
    block_ = guardedPages(blockBytes_);
    data_ = block_ + kPage + (side == Side::start ? 0 : inside - bytes);
    std::memset(block_ + kPage, kFresh, inside);
}

GuardedBuffer::~GuardedBuffer()
{
#if defined(_WIN32)
    VirtualFree(block_, 0, MEM_RELEASE);
#else
    munmap(block_, blockBytes_);
#endif
}

void GuardedBuffer::fill(uint8_t value) const { std::memset(data_, value, size_); }

} // namespace rv::test
