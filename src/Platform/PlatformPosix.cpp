// The door on POSIX systems: heap, pages, threads, diagnostics. Memory of other kinds: PlatformPosixMemory.cpp; the
// objects of a window system: PlatformPosixObjects.cpp.
#include "Platform/Platform.h"
#include "Platform/PlatformPosixMemory.h"
#include "Platform/PlatformPosixThreads.h"
#include "Platform/Unicode.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

namespace rv {
namespace {

class SystemPlatform final : public Platform {};
constinit SystemPlatform systemPlatform;

} // namespace

constinit Platform& gSystemPlatform = systemPlatform;
constinit std::atomic<Platform*> gPlatform{&systemPlatform};

// --- Heap

void* Platform::allocate(size_t bytes) noexcept { return std::malloc(bytes != 0 ? bytes : 1); }
void* Platform::reallocate(void* block, size_t bytes) noexcept { return std::realloc(block, bytes != 0 ? bytes : 1); }
void Platform::release(void* block) noexcept { std::free(block); }

// --- Pages

namespace {

constexpr size_t kHugePage = size_t{2} << 20;

// Blocks below this come from the heap, where freed memory is used again: for them, getting new pages from the system
// costs 20 to 40 times what filling them does, and a huge page would be mostly waste.
constexpr size_t kSmallestMapping = kHugePage / 2;

struct alignas(kPagesAlignment) Pages {
    void* base;
    size_t mappedBytes; // 0: base stands behind this record, in the same heap block
};

/// Zeros from the heap, as well aligned as pages are: where row 0 stands must not depend on the size.
Pages* heapPages(size_t bytes) noexcept
{
    void* block;
    if (posix_memalign(&block, kPagesAlignment, sizeof(Pages) + bytes) != 0) return nullptr;
    std::memset(block, 0, sizeof(Pages) + bytes);
    auto* const pages = static_cast<Pages*>(block);
    pages->base = pages + 1;
    return pages;
}

/// The length to map: whole huge pages where the last one is put to use, or its waste is small beside the block.
size_t mappingBytes(size_t bytes) noexcept
{
    const size_t whole = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    const size_t waste = whole - bytes;
    if (waste <= kHugePage / 2 || waste <= bytes / 8) return whole;
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

void* map(size_t bytes) noexcept
{
    void* const start = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return start != MAP_FAILED ? start : nullptr;
}

/// Memory that starts where a huge page can. Newer systems answer so by themselves; else the ends of a longer mapping
/// are cut off.
void* mapAligned(size_t bytes) noexcept
{
    void* const direct = map(bytes);
    if (direct == nullptr || reinterpret_cast<uintptr_t>(direct) % kHugePage == 0) return direct;
    munmap(direct, bytes);

    auto* const longer = static_cast<unsigned char*>(map(bytes + kHugePage));
    if (longer == nullptr) return map(bytes);
    const size_t before = (kHugePage - reinterpret_cast<uintptr_t>(longer) % kHugePage) % kHugePage;
    if (before != 0) munmap(longer, before);
    munmap(longer + before + bytes, kHugePage - before);
    return longer + before;
}

} // namespace

void* Platform::createPages(uint64_t bytes) noexcept
{
    if (bytes > SIZE_MAX - 2 * kHugePage) return nullptr;
    const auto size = static_cast<size_t>(bytes);
    if (size < kSmallestMapping) return heapPages(size);
    auto* const pages = static_cast<Pages*>(std::aligned_alloc(alignof(Pages), sizeof(Pages)));
    if (pages == nullptr) return nullptr;
    pages->mappedBytes = mappingBytes(size);
    pages->base = mapAligned(pages->mappedBytes);
    if (pages->base == nullptr) {
        std::free(pages);
        return nullptr;
    }
#if defined(MADV_HUGEPAGE)
    madvise(pages->base, pages->mappedBytes, MADV_HUGEPAGE); // advice: without huge pages the block is as good
#endif
    return pages;
}

void* Platform::mapPages(void* pages) noexcept
{
    return pages != nullptr ? static_cast<Pages*>(pages)->base : nullptr; // mapped as long as it exists
}

void Platform::unmapPages(void*, void*) noexcept {}

void Platform::closePages(void* handle) noexcept
{
    auto* const pages = static_cast<Pages*>(handle);
    if (pages == nullptr) return;
    if (pages->mappedBytes != 0) munmap(pages->base, pages->mappedBytes);
    std::free(pages);
}

// --- Threads

static_assert(sizeof(pthread_key_t) <= sizeof(ThreadSlot));

bool Platform::createSlot(ThreadSlot* slot, void (*atThreadEnd)(void*)) noexcept
{
    pthread_key_t key;
    if (pthread_key_create(&key, atThreadEnd) != 0) return false;
    *slot = key;
    return true;
}

void* Platform::slotValue(ThreadSlot slot) noexcept { return pthread_getspecific(slot); }
bool Platform::setSlotValue(ThreadSlot slot, void* value) noexcept { return pthread_setspecific(slot, value) == 0; }
void Platform::destroySlot(ThreadSlot slot) noexcept { pthread_key_delete(slot); }

static_assert(sizeof(pthread_mutex_t) <= sizeof(LockStorage) && alignof(pthread_mutex_t) <= alignof(LockStorage));

namespace {

pthread_mutex_t* mutexOf(LockStorage* lock) noexcept { return std::launder(reinterpret_cast<pthread_mutex_t*>(lock)); }

} // namespace

void Platform::createLock(LockStorage* lock) noexcept
{
    auto* const mutex = new (lock) pthread_mutex_t;
    pthread_mutexattr_t recursive;
    pthread_mutexattr_init(&recursive);
    pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(mutex, &recursive);
    pthread_mutexattr_destroy(&recursive);
}

void Platform::enterLock(LockStorage* lock) noexcept { pthread_mutex_lock(mutexOf(lock)); }
void Platform::leaveLock(LockStorage* lock) noexcept { pthread_mutex_unlock(mutexOf(lock)); }
void Platform::destroyLock(LockStorage* lock) noexcept { pthread_mutex_destroy(mutexOf(lock)); }

namespace {

struct Event {
    pthread_mutex_t mutex;
    pthread_cond_t changed;
    bool manualReset;
    bool signalled;
};

timespec monotonicNow() noexcept
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

timespec later(timespec when, uint32_t milliseconds) noexcept
{
    when.tv_sec += milliseconds / 1000;
    when.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000;
    if (when.tv_nsec >= 1000000000) {
        ++when.tv_sec;
        when.tv_nsec -= 1000000000;
    }
    return when;
}

} // namespace

void* Platform::createEvent(bool manualReset, bool signalled) noexcept
{
    void* const memory = std::malloc(sizeof(Event));
    if (memory == nullptr) return nullptr;
    auto* const event = new (memory) Event{{}, {}, manualReset, signalled};
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC); // setting the time of day must not end a wait
    pthread_cond_init(&event->changed, &attributes);
    pthread_condattr_destroy(&attributes);
    pthread_mutex_init(&event->mutex, nullptr);
    return event;
}

bool Platform::setEvent(void* handle) noexcept
{
    auto* const event = static_cast<Event*>(handle);
    if (event == nullptr) return false;
    pthread_mutex_lock(&event->mutex);
    event->signalled = true;
    // Told while the mutex is held: a waiter may close the event as soon as it has seen the signal.
    if (event->manualReset) {
        pthread_cond_broadcast(&event->changed);
    } else {
        pthread_cond_signal(&event->changed);
    }
    pthread_mutex_unlock(&event->mutex);
    return true;
}

bool Platform::resetEvent(void* handle) noexcept
{
    auto* const event = static_cast<Event*>(handle);
    if (event == nullptr) return false;
    pthread_mutex_lock(&event->mutex);
    event->signalled = false;
    pthread_mutex_unlock(&event->mutex);
    return true;
}

namespace {

/// Whether the event is signalled; an automatic one is not any more. The event is locked.
bool takeSignal(Event* event) noexcept
{
    const bool signalled = event->signalled;
    if (!event->manualReset) event->signalled = false;
    return signalled;
}

Waited waitLocked(Event* event, uint32_t milliseconds) noexcept
{
    const timespec end = later(monotonicNow(), milliseconds);
    bool waiting = true;
    while (!event->signalled && waiting) {
        if (milliseconds == kWaitForever) {
            pthread_cond_wait(&event->changed, &event->mutex);
        } else {
            waiting = pthread_cond_timedwait(&event->changed, &event->mutex, &end) != ETIMEDOUT;
        }
    }
    return takeSignal(event) ? Waited::signalled : Waited::timedOut;
}

} // namespace

Waited Platform::waitEvent(void* handle, uint32_t milliseconds) noexcept
{
    auto* const event = static_cast<Event*>(handle);
    if (event == nullptr) return Waited::failed;
    pthread_mutex_lock(&event->mutex);
    const bool signalled = takeSignal(event);
    pthread_mutex_unlock(&event->mutex);
    if (signalled || milliseconds == 0) return signalled ? Waited::signalled : Waited::timedOut;

    const WorkerAway away;
    pthread_mutex_lock(&event->mutex);
    const Waited result = waitLocked(event, milliseconds);
    pthread_mutex_unlock(&event->mutex);
    return result;
}

void Platform::closeEvent(void* handle) noexcept
{
    auto* const event = static_cast<Event*>(handle);
    if (event == nullptr) return;
    pthread_cond_destroy(&event->changed);
    pthread_mutex_destroy(&event->mutex);
    std::free(event);
}

void Platform::sleep(uint32_t milliseconds) noexcept
{
    const timespec end = later(monotonicNow(), milliseconds);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {}
}

uint64_t Platform::ticks() noexcept
{
    const timespec now = monotonicNow();
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

uint32_t Platform::processId() noexcept { return static_cast<uint32_t>(getpid()); }
uint32_t Platform::threadId() noexcept { return static_cast<uint32_t>(gettid()); }

// --- Diagnostics

namespace {

void writeToStandardError(const char* text, size_t bytes) noexcept
{
    while (bytes != 0) {
        const ssize_t written = write(STDERR_FILENO, text, bytes);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return; // nobody listens
        text += written;
        bytes -= static_cast<size_t>(written);
    }
}

} // namespace

void Platform::debugOutput(const char* text) noexcept
{
    if (text == nullptr) return;
    size_t length = 0;
    while (text[length] != 0) ++length;
    writeToStandardError(text, length);
}

void Platform::debugOutputWide(const R_WCHAR* text) noexcept
{
    if (text == nullptr) return;
    char line[8192]; // a trace line fits whole, so that lines of several threads do not mix
    size_t length = 0;
    while (*text != 0) {
        char bytes[kMaxUtf8Bytes];
        const size_t count = encodeCharacter(nextCharacter(text, nullptr), bytes);
        std::memcpy(line + length, bytes, count);
        length += count;
        if (length > sizeof line - kMaxUtf8Bytes) {
            writeToStandardError(line, length);
            length = 0;
        }
    }
    writeToStandardError(line, length);
}

bool Platform::lockCountDiagnosticsWanted() noexcept
{
    // A relative XDG_CONFIG_HOME does not count. Nothing is taken from the environment of a privileged program.
    char path[PATH_MAX];
    const char* const configuration = secure_getenv("XDG_CONFIG_HOME");
    const char* const home = secure_getenv("HOME");
    int length;
    if (configuration != nullptr && configuration[0] == '/') {
        length = std::snprintf(path, sizeof path, "%s/Bastovel/23/CheckLockCount", configuration);
    } else if (home != nullptr && home[0] != 0) {
        length = std::snprintf(path, sizeof path, "%s/.config/Bastovel/23/CheckLockCount", home);
    } else {
        return false;
    }
    return length > 0 && static_cast<size_t>(length) < sizeof path && access(path, R_OK) == 0;
}

} // namespace rv
