/// The kernel's state: settings of each thread, and what the process shares. Nothing else is mutable at namespace
/// scope.
#pragma once

#include "Kernel/Base/Status.h"
#include "Platform/Entry.h"
#include "Platform/Platform.h"
#include "R_Bitmap.h"
#include "R_Geometry.h"
#include "R_Services.h"

namespace rv {

/// Settings that each thread has for itself. Value-initialised, it holds the defaults.
struct ThreadSettings {
    R_INT ditheringMethod = 7;
    R_INT xResolution = 150;
    R_INT yResolution = 150;
    R_UINT memoryType = MEM_CONVENTIONAL;
    R_INT64 maxConvSize = 2147483647;
    R_INT reserve = 0;
    R_INT64 tileSize = 0; ///< 0 means kDefaultTileSize
    R_INT convTiles = -100;
    R_INT convBuffers = 1;
    R_UINT* userMatchTable = nullptr; ///< the caller's
    STATUSCALLBACK statusCallback = nullptr;
    void* statusUserData = nullptr;
    STATUSCALLBACK copyStatusCallback = nullptr;
    void* copyStatusUserData = nullptr;
    R_INT savedFileError = 0;                 ///< what R_OsSetLastError stored and nobody has asked for yet; 0 is none
    REDIRECTSET redirect{};                   ///< the thread's own file operations; null where it has none
    struct RedirectBuffer* buffers = nullptr; ///< blocks that take what the thread writes, the newest first
};

inline constexpr R_INT64 kDefaultTileSize = 16777216;
inline constexpr R_INT kDefaultResolution = 150;

/// The calling thread's settings, made on first use; the process's own block where a thread can have none.
ThreadSettings& threadSettings() noexcept;

/// A system lock that is made on first use and given back when the library is detached.
class LazyLock {
public:
    constexpr LazyLock() noexcept = default;
    LazyLock(const LazyLock&) = delete;
    LazyLock& operator=(const LazyLock&) = delete;
    void enter() noexcept;
    void leave() noexcept;

private:
    friend void detach() noexcept;
    std::atomic<int> state_{0}; // 0 not made, 1 being made, 2 ready
    LazyLock* next_ = nullptr;  // the list of locks to give back
    LockStorage storage_{};
};

/// Holds a lock for the length of a scope.
class LockGuard {
public:
    explicit LockGuard(LazyLock& lock) noexcept : lock_(lock) { lock_.enter(); }
    ~LockGuard() { lock_.leave(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    LazyLock& lock_;
};

/// Something made on first use that is to be given back when the library is detached: an object at namespace scope,
/// constinit. Detaching calls release once for each object that has been registered since, before it destroys any lock.
class ReleaseAtDetach {
public:
    constexpr explicit ReleaseAtDetach(void (*release)() noexcept) noexcept : release_(release) {}
    ReleaseAtDetach(const ReleaseAtDetach&) = delete;
    ReleaseAtDetach& operator=(const ReleaseAtDetach&) = delete;
    /// Any number of times, from any thread.
    void registerOnce() noexcept;

private:
    friend void detach() noexcept;
    void (*release_)() noexcept;
    std::atomic<bool> registered_{false};
    ReleaseAtDetach* next_ = nullptr;
};

/// Takes bytes of the process's conventional memory, or says ERROR_MEMORY_LIMIT.
Status reserveConventional(R_UINT64 bytes) noexcept;
/// The same for a block that grows: only one that grows by much is held to the limit, others are just counted.
Status growConventional(R_UINT64 bytes) noexcept;
void returnConventional(R_UINT64 bytes) noexcept;

/// The size above which one bitmap goes to disk; 0 is none.
R_INT64 globalBitmapThreshold() noexcept;

struct AllocateHook {
    ALLOCATECALLBACK callback = nullptr;
    void* userData = nullptr;
};
AllocateHook allocateHook() noexcept;

/// The display module's hooks; all null where no module has installed any.
DISDISPATCH displayHooks() noexcept;

/// Whether lock counts out of order are traced.
bool lockCountDiagnostics() noexcept;

/// The place of the check that the library has been started.
Status checkStarted() noexcept;
/// The place of the licence checks.
enum class Feature { bitmap, gray, extendedColour };
Status checkLicence(Feature feature) noexcept;

} // namespace rv
