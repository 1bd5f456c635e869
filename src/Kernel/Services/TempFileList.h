/// The files that live in memory: temporary ones, listed by name, and small files that are held while they are open.
#pragma once

#include "Kernel/Base/System.h"
#include "Kernel/Services/MemoryFile.h"

namespace rv {

struct FileInMemory;

/// What a handle of such a file stands for.
struct MemoryHandle {
    struct Rights {
        R_UINT access = 0;  ///< FileRequest::kRead, kWrite
        R_UINT sharing = 0; ///< the same: what others may have
        bool deleteOnClose = false;
    };
    char tag[4]; ///< "RMEM"
    Rights rights;
    R_UINT64 position = 0; ///< guarded by the file's lock
    FileInMemory* file = nullptr;
    MemoryHandle* previous = nullptr;
    MemoryHandle* next = nullptr;
};

struct FileInMemory {
    FileInMemory(const R_WCHAR* folder, R_UINT64 chunkBytes) noexcept : content(folder, chunkBytes) {}

    LockStorage lock; ///< guards the content; the list's lock guards the rest
    MemoryFile content;
    MemoryHandle* handles = nullptr;
    FileInMemory* previous = nullptr; ///< all files, listed or not
    FileInMemory* next = nullptr;
    FileInMemory* nextListed = nullptr; ///< the files of one bucket
    R_UINT hash = 0;
    const R_WCHAR* name = nullptr; ///< with separators of one kind; null: it cannot be found
};

/// Serialises the making of names and all that finds, opens, closes or removes a file in memory. It is taken before a
/// file's own lock.
LazyLock& tempFileLock() noexcept;

// Under that lock.

/// The file of this name; null when there is none.
FileInMemory* findInMemory(const R_WCHAR* name) noexcept;
/// A new, empty file of a name that is not in the list. ERROR_FAILURE without memory.
Status listInMemory(const R_WCHAR* name, bool memoryOnly) noexcept;
/// Takes a listed file's name away; the content stays until the last handle is closed.
void unlist(FileInMemory* file) noexcept;
/// A file that nobody can find. Null without memory.
FileInMemory* makeUnlisted(R_UINT64 chunkBytes) noexcept;
/// A handle at the start of the file; null without memory.
MemoryHandle* addHandle(FileInMemory* file, const MemoryHandle::Rights& rights) noexcept;
/// The handle's end, and that of its file where nobody can reach that any more.
void dropHandle(MemoryHandle* handle) noexcept;
/// The end of an unlisted file without handles.
void endFile(FileInMemory* file) noexcept;

} // namespace rv
