/// Names of files and native errors on POSIX systems.
#pragma once

#include "R_Types.h"

#include <climits>
#include <cstdint>

namespace rv {

/// The Win32 number of an errno value.
uint32_t nativeErrorOf(int error) noexcept;

/// Leaves the calling thread's native error.
void setPosixError(int error) noexcept;
/// The same after a call by name: a missing file and a missing folder on the way to it are two errors.
void setPosixError(int error, const char* name) noexcept;

/// A name as the system takes it: UTF-8, with '/' for both slashes. A name that cannot be one leaves the native error.
class PosixName {
public:
    explicit PosixName(const R_WCHAR* name) noexcept; ///< null is a name that leads nowhere
    PosixName(const PosixName&) = delete;
    PosixName& operator=(const PosixName&) = delete;
    explicit operator bool() const noexcept { return good_; }
    const char* get() const noexcept { return text_; }

private:
    bool good_;
    char text_[PATH_MAX];
};

} // namespace rv
