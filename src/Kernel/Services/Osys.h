/// The handle layer over the system's files, as the other services use it.
#pragma once

#include "R_Files.h"

namespace rv {

/// The set whose operations are the R_Os calls, the generic copy and the system's delete, without user data. Its
/// operations are functions of the redirect types: an R_Os call itself takes no user data.
extern const REDIRECTSET kOsRedirectSet;

/// Most bytes that one transfer moves; longer ones go in pieces.
inline constexpr R_UINT kMaxTransfer = 0x7FFFFFF;

/// Whether an operation of a set is the handle layer's: kOsRedirectSet's own, or the R_Os call that a program has put
/// there by a cast.
bool isOsOpen(REDIRECTOPEN pfn) noexcept;
bool isOsRead(REDIRECTREAD pfn) noexcept;
bool isOsWrite(REDIRECTWRITE pfn) noexcept;
bool isOsSeek(REDIRECTSEEK pfn) noexcept;
bool isOsClose(REDIRECTCLOSE pfn) noexcept;

/// The copy that no set has a say in: R_IntCopyFile, but for the kinds that it hands over to a set as a whole.
R_INT copyFileThrough(const R_WCHAR* source, const R_WCHAR* target, R_UINT flags) noexcept;

/// Whether the system has a file or a folder of this name.
bool existsOnDisk(const R_WCHAR* name) noexcept;

/// The place of the licence check that opening a file makes.
bool mayOpenFiles() noexcept;

} // namespace rv
