// Reader/writer locks, threads and the pool on Windows.
#include "Platform/Platform.h"

#include <new>

namespace rv {
namespace {

// --- Reader/writer locks. The oldest systems that the kernel runs on have none: the calls are looked up.

using LockCall = void(WINAPI*)(SRWLOCK*);

struct SlimCalls {
    std::atomic<LockCall> initialize{nullptr}, enterShared{nullptr}, enterExclusive{nullptr}, leaveShared{nullptr},
        leaveExclusive{nullptr};
};
constinit SlimCalls slim;

bool find(HMODULE module, const char* name, std::atomic<LockCall>& call) noexcept
{
    const auto found = reinterpret_cast<LockCall>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    call.store(found, std::memory_order_relaxed);
    return found != nullptr;
}

SRWLOCK* slimOf(LockStorage* lock) noexcept { return std::launder(reinterpret_cast<SRWLOCK*>(lock)); }
void call(const std::atomic<LockCall>& function, LockStorage* lock) noexcept
{
    function.load(std::memory_order_relaxed)(slimOf(lock));
}

} // namespace

static_assert(sizeof(SRWLOCK) <= sizeof(LockStorage) && alignof(SRWLOCK) <= alignof(LockStorage));

bool Platform::slimLocks() noexcept
{
    const HMODULE kernel = LoadLibraryW(L"Kernel32.dll");
    if (kernel == nullptr) return false;
    const bool all = find(kernel, "InitializeSRWLock", slim.initialize) &&
                     find(kernel, "AcquireSRWLockShared", slim.enterShared) &&
                     find(kernel, "AcquireSRWLockExclusive", slim.enterExclusive) &&
                     find(kernel, "ReleaseSRWLockShared", slim.leaveShared) &&
                     find(kernel, "ReleaseSRWLockExclusive", slim.leaveExclusive);
    FreeLibrary(kernel); // every process keeps it
    return all;
}

void Platform::createSlimLock(LockStorage* lock) noexcept
{
    new (lock) SRWLOCK;
    call(slim.initialize, lock);
}

void Platform::enterSlimLock(LockStorage* lock, bool shared) noexcept
{
    call(shared ? slim.enterShared : slim.enterExclusive, lock);
}

void Platform::leaveSlimLock(LockStorage* lock, bool shared) noexcept
{
    call(shared ? slim.leaveShared : slim.leaveExclusive, lock);
}

void Platform::destroySlimLock(LockStorage*) noexcept {} // nothing is held for one

// --- Work. Everything that is started holds the module that holds this code, and gives it back by a call of the system
// that does not return here.

namespace {

struct Start {
    Work work;
    HMODULE module;
};

/// The work as a thread or the pool takes it over; null without memory.
Start* makeStart(const Work& work) noexcept
{
    HMODULE module;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<const WCHAR*>(&makeStart),
                            &module))
        return nullptr;
    void* const memory = platform().allocate(sizeof(Start));
    if (memory != nullptr) return new (memory) Start{work, module};
    FreeLibrary(module);
    return nullptr;
}

/// The work is this thread's now, and nobody else's.
Start take(void* start) noexcept
{
    const Start taken = *static_cast<Start*>(start);
    platform().release(start);
    return taken;
}

/// Nobody will take it. The caller still holds the module, so that this reference is not the last.
void drop(Start* start) noexcept { FreeLibrary(take(start).module); }

DWORD WINAPI runThread(void* argument)
{
    const Start start = take(argument);
    const R_UINT result = start.work.run(start.work);
    FreeLibraryAndExitThread(start.module, result);
}

void CALLBACK runItem(PTP_CALLBACK_INSTANCE instance, void* argument)
{
    const Start start = take(argument);
    FreeLibraryWhenCallbackReturns(instance, start.module);
    start.work.run(start.work);
}

} // namespace

bool Platform::startThread(const Work& work) noexcept
{
    Start* const start = makeStart(work);
    if (start == nullptr) return false;
    const HANDLE thread = CreateThread(nullptr, 0, &runThread, start, 0, nullptr);
    if (thread == nullptr) {
        drop(start);
        return false;
    }
    CloseHandle(thread);
    return true;
}

bool Platform::queueWork(const Work& work, bool mayRunLong) noexcept
{
    Start* const start = makeStart(work);
    if (start == nullptr) return false;
    TP_CALLBACK_ENVIRON environment;
    InitializeThreadpoolEnvironment(&environment);
    if (mayRunLong) SetThreadpoolCallbackRunsLong(&environment);
    const bool queued = TrySubmitThreadpoolCallback(&runItem, start, &environment) != 0;
    DestroyThreadpoolEnvironment(&environment);
    if (!queued) drop(start);
    return queued;
}

void Platform::endWork() noexcept {} // the module is not unloaded while anything holds it

uint32_t Platform::coreCount() noexcept
{
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    return system.dwNumberOfProcessors;
}

} // namespace rv
