/// Files: the handle layer over the system, redirection of every file operation, temporary files.
///
/// Names are UTF-16 (A forms: 8-bit text, UTF-8 where there is no Windows; UTF8 forms: UTF-8). Both slashes separate
/// folders. Native error numbers are the Win32 ones on every platform. File handles are 64-bit; -1 is none.
#ifndef R_FILES_H
#define R_FILES_H

#include "R_Status.h"
#include "R_Types.h"

#define R_INVALID_FILE (-1)

// nMode of the opening calls. Bits 0 and 1: 0 read, 1 write, 2 and 3 both.
#define FILE_MODE_READ 0x0000
#define FILE_MODE_WRITE 0x0001
#define FILE_MODE_READ_WRITE 0x0002
#define FILE_MODE_TEMPORARY 0x0040 ///< deleted when it is closed, or the process ends
#define FILE_MODE_CREATE 0x0100    ///< an existing file is cut to nothing
#define FILE_MODE_TRUNCATE 0x0200  ///< the file must exist

// nPermission of the opening calls: who else may open the file meanwhile.
#define FILE_SHARE_BIT_READ 0x0100  ///< alone: others may read; with the next: read and write
#define FILE_SHARE_BIT_WRITE 0x0080 ///< alone: nobody

// Origins of the seeking calls; every other value is the end.
#define FILE_FROM_START 0
#define FILE_FROM_CURRENT 1
#define FILE_FROM_END 2

// --- The handle layer. Failures are -1; R_OsGetLastError says why.

/// Opens a file. An empty one is created with FILE_MODE_CREATE, else it must exist. What is created for reading alone
/// is a read-only file.
R_API R_INT64 R_OsOpen(const R_WCHAR* pszName, R_INT nMode, R_INT nPermission) R_NOEXCEPT;

// nFlags of R_OsCreat.
#define FILE_CREATE_READ_ONLY 0x1
#define FILE_CREATE_HIDDEN 0x2
#define FILE_CREATE_SYSTEM 0x4
#define FILE_CREATE_DELETE_ON_CLOSE 0x8
/// Creates a file, or cuts an existing one to nothing; others may read and write it meanwhile.
R_API R_INT64 R_OsCreat(const R_WCHAR* pszName, R_INT nFlags) R_NOEXCEPT;

/// One read or write at the current position; the bytes moved. Writing no bytes cuts the file there.
R_API R_INT R_OsRead(R_INT64 hFile, void* pBuffer, R_UINT uBytes) R_NOEXCEPT;
R_API R_INT R_OsWrite(R_INT64 hFile, const void* pBuffer, R_UINT uBytes) R_NOEXCEPT;
/// Move exactly nBytes, in pieces of at most 134,217,727; nBytes, or -1. R_OsReadBig has no end-of-file exit: ask it
/// only for bytes that exist.
R_API R_INT64 R_OsReadBig(R_INT64 hFile, void* pBuffer, R_INT64 nBytes) R_NOEXCEPT;
R_API R_INT64 R_OsWriteBig(R_INT64 hFile, const void* pBuffer, R_INT64 nBytes) R_NOEXCEPT;
/// The new position, or -1.
R_API R_INT64 R_OsSeek(R_INT64 hFile, R_INT64 nDistance, R_INT nOrigin) R_NOEXCEPT;
/// 0 or -1; the position is the new end.
R_API R_INT R_OsSetFileSize(R_INT64 hFile, R_INT64 nSize) R_NOEXCEPT;
R_API R_INT R_OsClose(R_INT64 hFile) R_NOEXCEPT;           ///< 0 or -1
R_API R_INT R_OsDelete(const R_WCHAR* pszName) R_NOEXCEPT; ///< 0 or -1
/// A new temporary file's name in a buffer of 260 units; the file exists and is empty.
R_API R_INT R_OsGetTempName(R_WCHAR* pszBuffer) R_NOEXCEPT;

/// Stores a status for the thread's next R_OsGetLastError, and as its native error.
R_API void R_OsSetLastError(R_INT nStatus) R_NOEXCEPT;
/// The thread's last file error as a status; nDefault where it has none of its own. A stored status answers once.
R_API R_INT R_OsGetLastError(R_INT nDefault) R_NOEXCEPT;

// uFlags of R_MoveFileEx, those of the system.
#define FILE_MOVE_REPLACE 0x1u
#define FILE_MOVE_COPY_ALLOWED 0x2u
/// Renames or moves a file; 1 or 0 with the native error set.
R_API R_INT R_MoveFileEx(const R_WCHAR* pszFrom, const R_WCHAR* pszTo, R_UINT uFlags) R_NOEXCEPT;

/// Copy a file: from disk to a redirected name, and from a redirected name to disk. 1 or 0 with the native error set:
/// 80 the target exists and bFailIfExists says that it must not, 30 a read failed, 29 a write, else why it did not
/// open.
R_API R_INT R_CopyFile(const R_WCHAR* pszSource, const R_WCHAR* pszTarget, R_INT bFailIfExists) R_NOEXCEPT;
R_API R_INT R_CopyFile2(const R_WCHAR* pszSource, const R_WCHAR* pszTarget, R_INT bFailIfExists) R_NOEXCEPT;
/// Whether there is such a file or folder, or such a temporary file in memory.
R_API R_INT R_FileExists(const R_WCHAR* pszName) R_NOEXCEPT;
R_API R_INT R_FileExistsUTF8(const char* pszName) R_NOEXCEPT;

// --- Redirection

typedef R_INT64 (*REDIRECTOPEN)(const R_WCHAR* pszName, R_INT nMode, R_INT nPermission, void* pUserData);
typedef R_INT (*REDIRECTREAD)(R_INT64 hFile, void* pBuffer, R_UINT uBytes, void* pUserData);
typedef R_INT (*REDIRECTWRITE)(R_INT64 hFile, const void* pBuffer, R_UINT uBytes, void* pUserData);
typedef R_INT64 (*REDIRECTSEEK)(R_INT64 hFile, R_INT64 nDistance, R_INT nOrigin, void* pUserData);
typedef R_INT (*REDIRECTCLOSE)(R_INT64 hFile, void* pUserData);
typedef R_INT (*REDIRECTCOPY)(const R_WCHAR* pszSource, const R_WCHAR* pszTarget, R_UINT uFlags, void* pUserData);
typedef R_INT (*REDIRECTDELETE)(const R_WCHAR* pszName, void* pUserData);

/// The operations through which every file is reached. Their results follow the R_Os calls.
typedef struct REDIRECTSET {
    R_INT uStructSize; ///< 120
    REDIRECTOPEN pfnOpen;
    void* pOpenData;
    REDIRECTREAD pfnRead;
    void* pReadData;
    REDIRECTWRITE pfnWrite; ///< writing no bytes cuts the file
    void* pWriteData;
    REDIRECTSEEK pfnSeek;
    void* pSeekData;
    REDIRECTCLOSE pfnClose;
    void* pCloseData;
    REDIRECTCOPY pfnCopy;
    void* pCopyData;
    REDIRECTDELETE pfnDelete;
    void* pDeleteData;
} REDIRECTSET;
#define REDIRECTSET_SIZE 120
R_STATIC_ASSERT(sizeof(REDIRECTSET) == REDIRECTSET_SIZE, "the record is byte-exact");

/// Which set R_GetRedirectFunctions and R_SetRedirectFunctions mean.
#define REDIRECT_CURRENT 0u  ///< the one in force: the process's, with the thread's laid over it
#define REDIRECT_TEMPFILE 1u ///< what the temporary-file calls use
#define REDIRECT_MEMORY 2u   ///< temporary files in memory
#define REDIRECT_OS 3u       ///< the R_Os calls
#define REDIRECT_BUFFERED 5u ///< the R_Buffered calls

// Operations that stand for something else, cast to the operation's type. A null operation is the R_Os call in
// R_RedirectIO; elsewhere it is none: nothing that the thread redirects, for the process the default, and where a set
// opens files by itself, an operation that always fails.
#define REDIRECT_DEFAULT_OPERATION 0    ///< R_RedirectIO: the R_Os call
#define REDIRECT_NO_OPERATION (-1)      ///< none
#define REDIRECT_RESTORE_OPERATION (-2) ///< the default: the R_Os call, the generic copy, the system's delete

// An R_Os call that a program has put into a set by a cast is taken for what it is, though it takes no user data; sets
// that are copied out hold REDIRECT_OS's operation in its place. An operation that answers more bytes than it was asked
// for has failed. Structure sizes other than 120 are ERROR_INV_STRUCT_SIZE, null pointers to sets ERROR_NULL_PTR.

/// Installs the calling thread's first five operations, with one user pointer for all.
R_API R_INT R_RedirectIO(REDIRECTOPEN pfnOpen, REDIRECTREAD pfnRead, REDIRECTWRITE pfnWrite, REDIRECTSEEK pfnSeek,
                         REDIRECTCLOSE pfnClose, void* pUserData) R_NOEXCEPT;
/// Copies a set out; bProcessOnly leaves the thread's own operations out of REDIRECT_CURRENT.
/// ERROR_INV_PARAMETER for any other kind.
R_API R_INT R_GetRedirectFunctions(REDIRECTSET* pSet, R_UINT uStructSize, R_UINT uKind, R_INT bProcessOnly) R_NOEXCEPT;
/// The process-wide set alone. (R_GetRedirectFunctions with REDIRECT_CURRENT and bProcessOnly.)
R_API R_INT R_GetRedirectFunctions2(REDIRECTSET* pSet, R_UINT uStructSize) R_NOEXCEPT;
/// The set that opened a redirected handle; ERROR_INV_HANDLE for any other handle.
R_API R_INT R_GetRedirectFunctions3(R_INT64 hFile, REDIRECTSET* pSet, R_UINT uStructSize) R_NOEXCEPT;
/// Installs a set: REDIRECT_CURRENT, for the process or the calling thread, or REDIRECT_TEMPFILE, whose defaults are
/// those of REDIRECT_MEMORY. ERROR_FEATURE_NOT_SUPPORTED for REDIRECT_MEMORY, ERROR_INV_PARAMETER for other kinds.
R_API R_INT R_SetRedirectFunctions(const REDIRECTSET* pSet, R_UINT uKind, R_INT bProcessWide) R_NOEXCEPT;
/// Registers a set under a pseudo file name "RAVORedirect://XXXXXXXX-XXXXXXXX" (an empty name of at least 50 units
/// room receives a unique one), or removes it (pSet null). Any call that opens a redirected file takes the name, on
/// any thread. Files that are open keep their operations when the name is removed.
/// Errors: ERROR_NULL_PTR, ERROR_INV_STRUCT_SIZE; ERROR_BUFFER_TOO_SMALL an empty name without room;
/// ERROR_INV_FILENAME; ERROR_FILE_REGISTERED; ERROR_NO_SUCH_FILE nothing to remove; ERROR_FAILURE no memory.
R_API R_INT R_SetGlobalRedirectFunctions(R_WCHAR* pszName, R_UINT uNameChars, const REDIRECTSET* pSet) R_NOEXCEPT;
/// A pseudo file name that nothing is registered under and that no other call has given or will give.
/// ERROR_BUFFER_TOO_SMALL for less than 50 units.
R_API R_INT R_GetUniqueRedirectFileName(R_WCHAR* pszBuffer, R_UINT uBufferChars) R_NOEXCEPT;
/// 1 for a pseudo file name, or a redirected handle whose first five operations are not all R_Os calls; else 0.
R_API R_INT R_UsesRedirectIO(const R_WCHAR* pszName, R_INT64 hFile) R_NOEXCEPT;

/// Files through the set in force. Handles are the kernel's own; any other value is refused with -1. Operations answer
/// as the R_Os calls do. Where nobody redirects them, files of up to 32 MiB that are not created or cut are read into
/// memory when they are opened; what is written to them is on disk at the latest after the close.
/// A handle serves one thread at a time.
R_API R_INT64 R_RedirectedOpen(const R_WCHAR* pszName, R_INT nMode, R_INT nPermission) R_NOEXCEPT;
R_API R_INT64 R_RedirectedOpenA(const char* pszName, R_INT nMode, R_INT nPermission) R_NOEXCEPT;
R_API R_INT64 R_RedirectedOpenUTF8(const char* pszName, R_INT nMode, R_INT nPermission) R_NOEXCEPT;
R_API R_INT R_RedirectedRead(R_INT64 hFile, void* pBuffer, R_UINT uBytes) R_NOEXCEPT;
/// The Big forms move exactly nBytes, in pieces of at most 134,217,727; nBytes, or a negative number, also where the
/// file ends before. Writing no bytes cuts the file.
R_API R_INT64 R_RedirectedReadBig(R_INT64 hFile, void* pBuffer, R_INT64 nBytes) R_NOEXCEPT;
R_API R_INT R_RedirectedWrite(R_INT64 hFile, const void* pBuffer, R_UINT uBytes) R_NOEXCEPT;
R_API R_INT64 R_RedirectedWriteBig(R_INT64 hFile, const void* pBuffer, R_INT64 nBytes) R_NOEXCEPT;
R_API R_INT64 R_RedirectedSeek(R_INT64 hFile, R_INT64 nDistance, R_INT nOrigin) R_NOEXCEPT;
R_API R_INT R_RedirectedClose(R_INT64 hFile) R_NOEXCEPT;
/// Wraps an open native handle; its set is that in force. nMode is the handle's open mode. When it fails, the native
/// handle is still the caller's. ERROR_NULL_PTR no phFile; ERROR_INV_PARAMETER handles -1 and -2; ERROR_FAILURE.
R_API R_INT R_CreateRedirectedFileHandle(R_INT64 hNative, R_INT64* phFile, R_INT nMode) R_NOEXCEPT;
/// The underlying handle; -1 for a handle that is not redirected.
R_API R_INT64 R_ExtractRedirectedFileHandle(R_INT64 hFile) R_NOEXCEPT;

/// Sends what the calling thread writes into a growing block of memory, until it is stopped. Meanwhile the thread opens
/// that block under whatever name, each time with a position of its own; creating and truncating modes empty it, and so
/// does deleting. A file position behind the end is no error: what is skipped is zero.
/// *phFile, where it is asked for, is one more handle over the block, for reading and writing whatever nMode says.
/// The block starts with room for the larger of the two sizes and doubles. pUserData stands in all pairs of the
/// installed set, for the program to know it by.
/// Starts may be nested and stopped in any order; the newest block takes the files. A block serves one thread at a
/// time. ERROR_INV_PARAMETER for a null ppRecord, ERROR_FAILURE without memory: then nothing has changed.
R_API R_INT R_StartRedirectToBuffer(void** ppRecord, R_INT64* phFile, R_INT nMode, void* pUserData, R_SIZE uInitialSize,
                                    R_SIZE uMinimumSize) R_NOEXCEPT;
/// Restores the thread's operations, as they were at the start, and hands the block over (freed with R_HeapTerm; null
/// where it is empty); a null ppData frees it. Handles over the block that are still open refuse everything but to be
/// closed. ERROR_INV_PARAMETER for what is no running record of the calling thread.
R_API R_INT R_StopRedirectToBuffer(void* pRecord, void** ppData, R_SIZE* puSize) R_NOEXCEPT;

/// Files behind a buffer of 32 KiB; usable as a set's first five operations. pUnderlying is the open's user data: the
/// REDIRECTSET below, which is copied; null is the R_Os calls. -1 when its size or one of its first five is missing.
/// What has been written is below at the latest after the close, which answers the status of a write that failed then:
/// -4 the file below could not seek, else what R_OsGetLastError(-5) says. A call that fails leaves the position where
/// it was and keeps what has not been written, to be tried again. Cutting writes first what lies before the position.
R_API R_INT64 R_BufferedOpen(const R_WCHAR* pszName, R_INT nMode, R_INT nPermission, void* pUnderlying) R_NOEXCEPT;
R_API R_INT R_BufferedRead(R_INT64 hFile, void* pBuffer, R_UINT uBytes, void* pUserData) R_NOEXCEPT;
R_API R_INT R_BufferedWrite(R_INT64 hFile, const void* pBuffer, R_UINT uBytes, void* pUserData) R_NOEXCEPT;
R_API R_INT64 R_BufferedSeek(R_INT64 hFile, R_INT64 nDistance, R_INT nOrigin, void* pUserData) R_NOEXCEPT;
R_API R_INT R_BufferedClose(R_INT64 hFile, void* pUserData) R_NOEXCEPT;

#define FILE_CACHING_NONE 0u
#define FILE_CACHING_BUFFERED 1u
/// Whether files are buffered where nobody redirects them; process-wide. 2 counts as 0, more is -13.
R_API R_INT R_SetFileCaching(R_UINT uMode) R_NOEXCEPT;
R_API R_INT R_GetFileCaching(R_UINT* puMode) R_NOEXCEPT;

// --- Filter callbacks: a file layer that a client hangs between the kernel and a file

/// What R_FilterIO installs on a redirected handle: what has been read passes through it before the caller sees it, and
/// what is to be written before the file does, in pieces of at most 4096 bytes; it may change the bytes, not their
/// number. 1 continues, anything else fails the operation. Cutting a file passes nothing. Within the callback,
/// R_RedirectedSeek(hFile, 0, FILE_FROM_CURRENT) is the place behind the bytes (reading) or before them (writing).
typedef R_INT (*FILTERIOCALLBACK)(R_INT64 hFile, void* pBuffer, R_UINT uBytes, R_INT bWriting, void* pUserData);
/// Installs (null: removes) a handle's filter. -261 for a handle that is not redirected.
R_API R_INT R_FilterIO(R_INT64 hFile, FILTERIOCALLBACK pfnFilter, void* pUserData) R_NOEXCEPT;
/// A handle's filter and its user data, through the pointers that are not null.
R_API R_INT R_GetFilterIOData(R_INT64 hFile, FILTERIOCALLBACK* ppfnFilter, void** ppUserData) R_NOEXCEPT;
/// Takes the calling thread's own operations out of the thread and hands them over in pSet (empty members: none).
R_API R_INT R_ExtractRedirectFunctions(REDIRECTSET* pSet, R_UINT uStructSize) R_NOEXCEPT;
/// Puts the operations of pSet that are not empty in place of the calling thread's own. R_ExtractRedirectFunctions and
/// this one are a bracket: between them the thread's files are the process's.
R_API R_INT R_UpdateRedirectFunctions(const REDIRECTSET* pSet) R_NOEXCEPT;
/// A redirected handle (kind 4) whose operations are those of pSet, over a file that the caller has opened already;
/// closing it with R_RedirectedClose calls pSet's close, R_CloseRedirectedCallbackFileHandle gives the handle back
/// alone. Operations that are empty fail. ERROR_INV_PARAMETER for handles -1 and -2, ERROR_FAILURE without memory;
/// closing: ERROR_INV_HANDLE for any but a handle of kind 4.
R_API R_INT R_CreateRedirectedCallbackFileHandle(R_INT64 hUnderlying, const REDIRECTSET* pSet,
                                                 R_INT64* phFile) R_NOEXCEPT;
R_API R_INT R_CloseRedirectedCallbackFileHandle(R_INT64 hFile) R_NOEXCEPT;

// --- Temporary files

#define TEMPFILE_DISK 1u            ///< on disk only
#define TEMPFILE_DISK_AND_MEMORY 2u ///< in memory while there is room
#define TEMPFILE_MEMORY 3u          ///< never on disk

/// Options of temporary files, process-wide.
typedef struct TEMPFILEOPTIONS {
    R_UINT uStructSize;        ///< 24
    R_UINT uMode;              ///< TEMPFILE_ value
    R_UINT uFlags;             ///< kept for the caller
    R_UINT uMaxTotalMemSize;   ///< MiB that all files in memory may hold together
    R_UINT uMaxMemSizePerFile; ///< MiB that one file in memory may hold
    R_UINT uChunkMemSize;      ///< KiB by which a file in memory grows
} TEMPFILEOPTIONS;
#define TEMPFILEOPTIONS_SIZE 24u
R_STATIC_ASSERT(sizeof(TEMPFILEOPTIONS) == TEMPFILEOPTIONS_SIZE, "byte-exact");

/// Stores the options. uMode 0 means 2; 0xFFFFFFFF keeps the present mode.
/// ERROR_NULL_PTR null; ERROR_INV_STRUCT_SIZE uStructSize other than 24.
R_API R_INT R_SetTempFileOptions(const TEMPFILEOPTIONS* pOptions) R_NOEXCEPT;
/// ERROR_NULL_PTR null; ERROR_INV_STRUCT_SIZE uStructSize other than 24.
R_API R_INT R_GetTempFileOptions(TEMPFILEOPTIONS* pOptions, R_UINT uStructSize) R_NOEXCEPT;
R_API R_UINT R_GetTempFileMode(void) R_NOEXCEPT;

/// The folder of temporary files, process-wide: the system's until it is set.
/// Set: SUCCESS for an existing folder; FAILURE for a file; ERROR_INV_PARAMETER where there is nothing of the name;
/// ERROR_NULL_PTR. Get: SUCCESS; ERROR_NULL_PTR; -74 where the system has none.
R_API R_INT R_SetTempDirectory(const R_WCHAR* pszFolder) R_NOEXCEPT;
R_API R_INT R_SetTempDirectoryA(const char* pszFolder) R_NOEXCEPT;
R_API R_INT R_GetTempDirectory(R_WCHAR* pszBuffer, R_UINT uBufferChars) R_NOEXCEPT;
R_API R_INT R_GetTempDirectoryA(char* pszBuffer, R_UINT uBufferChars) R_NOEXCEPT;

/// New names of temporary files; the name is reserved, on disk by an empty file. Null or empty texts take their
/// defaults. The plain and 2 forms fill a buffer of 260 units.
/// Errors: -290 buffer too small; -1894 too many files; -1902 access denied; -1903 otherwise; the folder's status.
R_API R_INT R_GetTempFileName(R_WCHAR* pszBuffer, const R_WCHAR* pszPrefix) R_NOEXCEPT;
R_API R_INT R_GetTempFileName2(const R_WCHAR* pszFolder, R_WCHAR* pszBuffer, const R_WCHAR* pszPrefix) R_NOEXCEPT;
R_API R_INT R_GetTempFileName3(R_WCHAR* pszBuffer, R_UINT uBufferChars, const R_WCHAR* pszPrefix,
                               const R_WCHAR* pszExtension) R_NOEXCEPT;
R_API R_INT R_GetTempFileName4(const R_WCHAR* pszFolder, R_WCHAR* pszBuffer, R_UINT uBufferChars, R_INT nMode,
                               const R_WCHAR* pszPrefix, const R_WCHAR* pszExtension) R_NOEXCEPT;
R_API R_INT R_GetTempFileNameA(char* pszBuffer, const char* pszPrefix) R_NOEXCEPT;
R_API R_INT R_GetTempFileNameUTF8(char* pszBuffer, const char* pszPrefix) R_NOEXCEPT;
R_API R_INT R_GetTempFileName2A(const char* pszFolder, char* pszBuffer, const char* pszPrefix) R_NOEXCEPT;
R_API R_INT R_GetTempFileName3UTF8(char* pszBuffer, R_UINT uBufferChars, const char* pszPrefix,
                                   const char* pszExtension) R_NOEXCEPT;
R_API R_INT R_GetTempFileName4UTF8(const char* pszFolder, char* pszBuffer, R_UINT uBufferChars, R_INT nMode,
                                   const char* pszPrefix, const char* pszExtension) R_NOEXCEPT;

/// Temporary files, in memory or on disk as their name says and memory allows; names that were not made for memory are
/// files on disk. Handles are redirected handles, and share a file in memory as they would one on disk. Where memory is
/// refused, a file moves to disk before it loses a byte.
R_API R_INT64 R_RedirectedTempFileOpen(const R_WCHAR* pszName, R_INT nMode, R_INT nPermission) R_NOEXCEPT;
R_API R_INT64 R_RedirectedTempFileOpenA(const char* pszName, R_INT nMode, R_INT nPermission) R_NOEXCEPT;
R_API R_INT64 R_RedirectedTempFileOpenUTF8(const char* pszName, R_INT nMode, R_INT nPermission) R_NOEXCEPT;
R_API R_INT R_RedirectedTempFileRead(R_INT64 hFile, void* pBuffer, R_UINT uBytes) R_NOEXCEPT;
R_API R_INT64 R_RedirectedTempFileReadBig(R_INT64 hFile, void* pBuffer, R_INT64 nBytes) R_NOEXCEPT;
R_API R_INT R_RedirectedTempFileWrite(R_INT64 hFile, const void* pBuffer, R_UINT uBytes) R_NOEXCEPT;
R_API R_INT64 R_RedirectedTempFileWriteBig(R_INT64 hFile, const void* pBuffer, R_INT64 nBytes) R_NOEXCEPT;
R_API R_INT64 R_RedirectedTempFileSeek(R_INT64 hFile, R_INT64 nDistance, R_INT nOrigin) R_NOEXCEPT;
R_API R_INT R_RedirectedTempFileClose(R_INT64 hFile) R_NOEXCEPT;
/// Removes a temporary file, wherever it lives. 1, or a status. The content of one in memory stays until the last
/// handle over it is closed.
R_API R_INT R_DeleteTempFile(const R_WCHAR* pszName) R_NOEXCEPT;
R_API R_INT R_DeleteTempFileA(const char* pszName) R_NOEXCEPT;
R_API R_INT R_DeleteTempFileUTF8(const char* pszName) R_NOEXCEPT;

#endif
