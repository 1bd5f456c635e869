/// Temporary files, on disk and in memory, and small files that are held in memory while they are open.
#pragma once

#include "Kernel/Base/Status.h"
#include "R_Files.h"

namespace rv {

/// The operations of temporary files that may live in memory; other names go to the handle layer. With the generic
/// copy and the system's delete.
extern const REDIRECTSET kMemoryRedirectSet;

/// Whether a temporary file of this name is in the list of those in memory.
bool isMemoryTempFile(const R_WCHAR* name) noexcept;

/// Files of up to this size are held in memory while they are open.
inline constexpr R_UINT64 kMaxHeldFile = 32 * 1024 * 1024;

/// A small file's whole content, held in memory while the file is open. Takes `content`, from platform().allocate, and
/// the native handle over; the answer is a handle of kMemoryRedirectSet's. What is written is in the file at the
/// latest when the handle is closed. kNoFile: refused, content and handle are still the caller's.
R_INT64 holdSmallFile(R_INT64 native, void* content, R_UINT64 bytes, bool writable) noexcept;

/// The mode that stands for the one of the options.
inline constexpr R_INT kCurrentTempFileMode = -1;
/// An option of names: what may live on disk and in memory begins on disk.
inline constexpr R_UINT kTempNameOnDisk = 1;

/// A new temporary file's name, which is reserved: by an empty file on disk, or in the list of those in memory. Null
/// and empty texts take their defaults; `options` is 0 or kTempNameOnDisk. A failure leaves an empty text.
Status makeTempName(R_WCHAR* buffer, R_UINT chars, R_INT mode, const R_WCHAR* folder, const R_WCHAR* prefix,
                    const R_WCHAR* extension, R_UINT options) noexcept;

/// Whether a unit of a path stands between a folder and a name.
constexpr bool endsFolder(R_WCHAR unit) noexcept
{
#if defined(_WIN32)
    if (unit == ':') return true; // a drive's
#endif
    return unit == '/' || unit == '\\';
}

/// Longest path of the folder of temporary files.
inline constexpr size_t kMaxTempFolder = 264;
using TempFolderText = R_WCHAR[kMaxTempFolder + 1];
/// The folder of temporary files: the one that was set, else the system's.
Status tempFolder(TempFolderText& folder) noexcept;

/// What the options allow files in memory; asked and told by each of them as it grows and shrinks.
class TempFileBudget {
public:
    /// What a file that has `own` bytes of memory may have when it needs `needed`: at least that, and some more for the
    /// writes to come. It counts as held from here on. 0: the file has to go to disk. A file that must not live on disk
    /// gets whatever it asks for.
    static R_UINT64 claim(R_UINT64 own, R_UINT64 needed, bool memoryOnly) noexcept;
    static void giveBack(R_UINT64 bytes) noexcept;
    static R_UINT64 held() noexcept; ///< by all files
    static R_UINT64 chunkBytes() noexcept;
    static constexpr R_UINT64 kHeadroom = 1024 * 1024; ///< what a growing file takes beyond its need
};

} // namespace rv
