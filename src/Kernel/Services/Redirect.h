/// Redirected file handles and the sets behind them.
///
/// A set as the kernel holds it is clean: an R_Os call that a program has put in by a cast, which takes no user data,
/// has become the operation of kOsRedirectSet, and what is null is refused when it is asked for.
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

/// Handles that are addresses of tagged records: whether the value can be one at all. Addresses of a process are never
/// negative, and blocks of the heap are aligned.
constexpr bool mayBeRecord(R_INT64 handle) noexcept { return handle > 0xFFFF && handle % 8 == 0; }

/// The record of a redirected handle; null for any other value: -1, -2 and 0 to 65535 are never looked at.
RedirectedFile* redirectedFile(R_INT64 handle) noexcept;

/// A redirected handle for a file that the set has opened. Without memory the file is closed through the set: -1.
R_INT64 wrapFile(R_INT64 underlying, const REDIRECTSET& set, HandleKind kind) noexcept;
/// The same, but without memory the file stays open.
R_INT64 makeHandle(R_INT64 underlying, const REDIRECTSET& set, HandleKind kind) noexcept;

// --- Sets

/// Calls visit(operation, user data) with the members of each of a set's pairs, or of the first five.
template <class Visit> void forFirstOperations(Visit visit) noexcept
{
    visit(&REDIRECTSET::pfnOpen, &REDIRECTSET::pOpenData);
    visit(&REDIRECTSET::pfnRead, &REDIRECTSET::pReadData);
    visit(&REDIRECTSET::pfnWrite, &REDIRECTSET::pWriteData);
    visit(&REDIRECTSET::pfnSeek, &REDIRECTSET::pSeekData);
    visit(&REDIRECTSET::pfnClose, &REDIRECTSET::pCloseData);
}
template <class Visit> void forAllOperations(Visit visit) noexcept
{
    forFirstOperations(visit);
    visit(&REDIRECTSET::pfnCopy, &REDIRECTSET::pCopyData);
    visit(&REDIRECTSET::pfnDelete, &REDIRECTSET::pDeleteData);
}

/// Puts the first five operations of one set into another.
void takeFirstOperations(REDIRECTSET& set, const REDIRECTSET& from) noexcept;

/// A program's set, clean: -2 is the operation of `defaults`, -1 is none.
REDIRECTSET cleanSet(const REDIRECTSET& given, const REDIRECTSET& defaults) noexcept;

/// The set in force: the process's, with the calling thread's operations laid over it.
REDIRECTSET currentRedirectSet(bool processOnly) noexcept;
/// What the temporary-file calls use.
REDIRECTSET tempFileRedirectSet() noexcept;

/// The buffered operations over the R_Os calls, with the generic copy and the system's delete.
REDIRECTSET bufferedRedirectSet() noexcept;
/// A buffered file over a native handle, at its position; nMode is the mode it was opened with. Without memory -1.
R_INT64 bufferNative(R_INT64 native, R_INT nMode) noexcept;
/// Takes such a file's buffer away unwritten; the native handle stays open.
void unbufferNative(R_INT64 buffered) noexcept;

/// Whose the first five operations are: all the handle layer's, all its or the buffered ones over it, or another's.
bool isOsSet(const REDIRECTSET& set) noexcept;
bool isDefaultSet(const REDIRECTSET& set) noexcept;
/// Whether one of them is a buffered one: files of such a set are buffered files.
bool isBufferedSet(const REDIRECTSET& set) noexcept;

// --- Named sets

/// Whether a name begins as pseudo file names do. Null does not.
bool isPseudoName(const R_WCHAR* name) noexcept;
/// The set that is registered under a pseudo file name; false when there is none.
bool namedRedirectSet(const R_WCHAR* name, REDIRECTSET* set) noexcept;

} // namespace rv
