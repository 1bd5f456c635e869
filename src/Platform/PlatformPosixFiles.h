/// What the two sources of files on POSIX systems share.
#pragma once

#include <csignal>

namespace rv {

/// While it lives, a write past the process's limit on file sizes fails instead of ending the process.
class SizeLimitGuard {
public:
    SizeLimitGuard() noexcept;
    ~SizeLimitGuard();
    SizeLimitGuard(const SizeLimitGuard&) = delete;
    SizeLimitGuard& operator=(const SizeLimitGuard&) = delete;

private:
    bool guarded_;
    sigset_t before_;
};

} // namespace rv
