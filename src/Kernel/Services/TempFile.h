/// Files in memory: temporary ones, known by name, and small files that are held while they are open.
#pragma once

#include "R_Files.h"

namespace rv {

/// The operations of temporary files that may live in memory; other names go to the handle layer. With the generic
/// copy and the system's delete.
extern const REDIRECTSET kMemoryRedirectSet;

/// Whether a temporary file of this name is in the list of those in memory.
bool isMemoryTempFile(const R_WCHAR* name) noexcept;

/// A small file's whole content, held in memory while the file is open. Takes `content`, from platform().allocate, and
/// the native handle over; the answer is a handle of kMemoryRedirectSet's. What is written is in the file at the
/// latest when the handle is closed. kNoFile: refused, content and handle are still the caller's.
R_INT64 holdSmallFile(R_INT64 native, void* content, R_UINT64 bytes, bool writable) noexcept;

} // namespace rv
