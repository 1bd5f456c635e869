/// Redirected file handles and the sets behind them.
#pragma once

#include "R_Files.h"

namespace rv {

enum class HandleKind : R_INT {
    current = 0, ///< opened through the set in force
    own = 4,     ///< opened through a named set, a buffer, or a program's callbacks
};

/// What a redirected handle stands for.
struct RedirectedFile {
    char tag[4]; ///< "RFIL"
    R_INT64 underlying;
    HandleKind kind;
    REDIRECTSET set;
    FILTERIOCALLBACK filter;
    void* filterData;
};

/// The record of a redirected handle; null for any other value: -1, -2 and 0 to 65535 are never looked at.
RedirectedFile* redirectedFile(R_INT64 handle) noexcept;

/// A redirected handle for a file that the set has opened. Without memory the file is closed through the set: -1.
R_INT64 wrapFile(R_INT64 underlying, const REDIRECTSET& set, HandleKind kind) noexcept;

/// The set in force: the process's, with the calling thread's operations laid over it.
REDIRECTSET currentRedirectSet(bool processOnly) noexcept;
/// What the temporary-file calls use.
REDIRECTSET tempFileRedirectSet() noexcept;

/// The buffered operations over the R_Os calls, with the generic copy and the system's delete.
extern const REDIRECTSET kBufferedRedirectSet;

/// Handles that are pointers to tagged records: whether the value can be one at all.
constexpr bool mayBeRecord(R_INT64 handle) noexcept { return handle != -1 && handle != -2 && (handle < 0 || handle > 0xFFFF); }

} // namespace rv
