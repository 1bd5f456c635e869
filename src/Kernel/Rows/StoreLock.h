/// What lets several threads read rows of one bitmap from a store whose reading moves something of its own.
#pragma once

#include "Platform/Platform.h"

namespace rv {

/// The lock of one bitmap's rows, a part of the store's record.
class StoreLock {
public:
    StoreLock() noexcept { platform().createLock(&storage_); }
    ~StoreLock() { platform().destroyLock(&storage_); }
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

    void enter() noexcept { platform().enterLock(&storage_); }
    void leave() noexcept { platform().leaveLock(&storage_); }

private:
    LockStorage storage_{};
};

/// Holds it for the length of a scope; null holds nothing.
class StoreGuard {
public:
    explicit StoreGuard(StoreLock* lock) noexcept : lock_(lock)
    {
        if (lock_ != nullptr) lock_->enter();
    }
    ~StoreGuard()
    {
        if (lock_ != nullptr) lock_->leave();
    }
    StoreGuard(const StoreGuard&) = delete;
    StoreGuard& operator=(const StoreGuard&) = delete;

private:
    StoreLock* lock_;
};

} // namespace rv
