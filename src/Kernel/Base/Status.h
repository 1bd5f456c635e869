/// A status that cannot be dropped.
#pragma once

#include "R_Status.h"

namespace rv {

/// Wraps a status code; only 1 is ok. Turns into the plain code at the interface.
class [[nodiscard]] Status {
public:
    constexpr Status(R_INT code) noexcept : code_(code) {} // implicit: codes are written as such everywhere
    constexpr bool ok() const noexcept { return code_ == SUCCESS; }
    constexpr R_INT code() const noexcept { return code_; }
    constexpr operator R_INT() const noexcept { return code_; }

private:
    R_INT code_;
};

/// The status of a row call that was to move rowBytes bytes: a negative answer is the status, a short one a failure.
constexpr Status rowMoved(R_SSIZE moved, R_SIZE rowBytes) noexcept
{
    if (moved == static_cast<R_SSIZE>(rowBytes)) return SUCCESS;
    return moved < 0 ? static_cast<R_INT>(moved) : ERROR_FAILURE;
}

} // namespace rv

/// Returns the first status that is not ok, unchanged, from the function it stands in.
#define R_TRY(expression)                                                                                              \
    do {                                                                                                               \
        if (const ::rv::Status tried_ = (expression); !tried_.ok()) return tried_.code();                              \
    } while (0)
