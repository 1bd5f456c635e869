/// The one door to the operating system. It says what the kernel needs, not what an API offers; a POSIX and a Windows
/// source answer. Outside this folder no source includes a system header.
///
/// Every call goes through platform(), so that a test can put a platform that fails on cue behind the same door.
/// Nothing here throws; what can fail says so in its result.
#pragma once

#include "R_Types.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace rv {

/// Memory of the system, in bytes. Limits of the process itself are taken into account.
struct MemoryStatus {
    uint64_t totalPhysical = 0;
    uint64_t availablePhysical = 0;
    uint64_t totalPageFile = 0;
    uint64_t availablePageFile = 0;
};

/// Room for one system lock; large and aligned enough for either platform's.
struct LockStorage {
    alignas(16) unsigned char bytes[64];
};

/// What the start of mapped pages is at least a multiple of.
inline constexpr size_t kPagesAlignment = 64;

/// What the start of a view of a file is a multiple of.
inline constexpr uint64_t kViewGranularity = 65536;

/// What a thread or the pool runs, and what it tells it. Copied when it is handed over, so that nobody has to keep it.
struct Work {
    R_UINT (*run)(const Work& work);
    void (*function)(); ///< of any type; run knows
    void* object;
    void* data;
};

/// How a wait ended.
enum class Waited : uint8_t { failed, timedOut, signalled };

/// How a file is opened. The meanings are those of the Win32 calls, on every platform.
struct FileRequest {
    static constexpr uint32_t kRead = 1, kWrite = 2;

    enum class Creation : uint8_t {
        openExisting,
        createNew,        ///< fails with kFileExists where there is one
        createAlways,     ///< an existing file is cut to nothing, once sharing allows the open
        truncateExisting, ///< needs write access
    };
    uint32_t access = 0;  ///< kRead, kWrite; 0 asks only whether it could be opened
    uint32_t sharing = 0; ///< kRead, kWrite: what others may have or get meanwhile
    Creation creation = Creation::openExisting;
    bool deleteOnClose = false;
    bool folders = false;                                                     ///< a folder may be opened too
    bool readOnly = false, hidden = false, system = false, temporary = false; ///< attributes of a new file
};

/// What is known of a file without opening it.
struct FileFacts {
    uint64_t size = 0;
    bool folder = false;
};

/// No file, and what the file calls below answer when they fail.
inline constexpr int64_t kNoFile = -1;

/// Names one thread-local slot.
using ThreadSlot = uint32_t;

class Platform {
public:
    constexpr Platform() noexcept = default;
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;

    // --- Heap: what the kernel works in, and what it hands to callers.
    virtual void* allocate(size_t bytes) noexcept; ///< null without memory; bytes 0 counts as 1
    virtual void* reallocate(void* block, size_t bytes) noexcept;
    virtual void release(void* block) noexcept; ///< null is ignored

    // --- Pages: zero-filled blocks for pixels, backed by the page file, never by a named file.
    virtual void* createPages(uint64_t bytes) noexcept; ///< a handle, or null
    /// The whole block, writable, aligned to kPagesAlignment; null when it cannot be mapped.
    virtual void* mapPages(void* pages) noexcept;
    virtual void unmapPages(void* pages, void* view) noexcept;
    virtual void closePages(void* pages) noexcept;

    // --- Movable blocks: zero-filled, held by a handle, addressable while locked. A block's lock count may exceed 1.
    virtual void* allocateMovable(size_t bytes) noexcept; ///< a handle, or null
    /// For an unlocked block: new bytes are zero. Null: the block is as it was.
    virtual void* reallocateMovable(void* handle, size_t bytes) noexcept;
    virtual void* lockMovable(void* handle) noexcept; ///< the block's bytes, fixed until the last unlock
    virtual void unlockMovable(void* handle) noexcept;
    /// The handle of a block from lockMovable's address; null for memory that is no movable block.
    virtual void* movableHandle(void* locked) noexcept;
    virtual size_t movableSize(void* handle) noexcept; ///< 0 for null
    virtual void freeMovable(void* handle) noexcept;   ///< null is ignored; locked or not

    virtual MemoryStatus memoryStatus() noexcept;

    // --- Threads
    /// A slot whose values are null on every thread. atThreadEnd, where the system can tell, is given the value of a
    /// thread that ends; elsewhere the library's entry point is told.
    virtual bool createSlot(ThreadSlot* slot, void (*atThreadEnd)(void*)) noexcept;
    virtual void* slotValue(ThreadSlot slot) noexcept;
    virtual bool setSlotValue(ThreadSlot slot, void* value) noexcept;
    virtual void destroySlot(ThreadSlot slot) noexcept;

    /// A critical section: one thread at a time, and the same thread again.
    virtual void createLock(LockStorage* lock) noexcept;
    virtual void enterLock(LockStorage* lock) noexcept;
    virtual void leaveLock(LockStorage* lock) noexcept;
    virtual void destroyLock(LockStorage* lock) noexcept;

    virtual void* createEvent(bool manualReset, bool signalled) noexcept; ///< null without memory
    /// Whoever sees the signal may close the event at once.
    virtual bool setEvent(void* event) noexcept;
    virtual bool resetEvent(void* event) noexcept;
    virtual Waited waitEvent(void* event, uint32_t milliseconds) noexcept;
    virtual void closeEvent(void* event) noexcept;

    /// A reader/writer lock with truly shared readers; not to be taken twice by one thread. Where the system has none
    /// (slimLocks false, asked once), nobody makes one.
    virtual bool slimLocks() noexcept;
    virtual void createSlimLock(LockStorage* lock) noexcept;
    virtual void enterSlimLock(LockStorage* lock, bool shared) noexcept;
    virtual void leaveSlimLock(LockStorage* lock, bool shared) noexcept;
    virtual void destroySlimLock(LockStorage* lock) noexcept;

    /// Run work on a thread of its own, or on the process's pool, where mayRunLong says that the worker will not be
    /// back soon. The library stays loaded until the work has ended: on Windows each item holds it, elsewhere endWork()
    /// waits. False: nothing will run.
    virtual bool startThread(const Work& work) noexcept;
    virtual bool queueWork(const Work& work, bool mayRunLong) noexcept;
    /// Before the library goes: returns when nothing that was started above can still enter it.
    virtual void endWork() noexcept;
    virtual uint32_t coreCount() noexcept; ///< of the machine, as far as the process may use them; 0: not known

    virtual void sleep(uint32_t milliseconds) noexcept;
    virtual uint64_t ticks() noexcept; ///< milliseconds of a clock that never goes back
    virtual uint32_t processId() noexcept;
    virtual uint32_t threadId() noexcept; ///< the system's own id of the calling thread

    // --- Files. Failures leave the calling thread's native error, a Win32 number (NativeErrors.h) on every platform.
    virtual uint32_t nativeError() noexcept;
    virtual void setNativeError(uint32_t error) noexcept;

    /// A file handle as programs have them (Windows: a HANDLE; elsewhere a descriptor), or kNoFile.
    virtual int64_t openFile(const R_WCHAR* name, const FileRequest& request) noexcept;
    /// A new nameless file for reading and writing, as big as asked, in a folder; gone when it is closed, and with the
    /// process however that ends. Its room on disk is reserved, so that no later write finds the disk full.
    virtual int64_t openScratchFile(const R_WCHAR* folder, uint64_t reservedBytes) noexcept;
    /// Cuts such a file, or extends it by zeros with their room reserved; it is as it was where it cannot be had.
    virtual bool resizeScratchFile(int64_t file, uint64_t bytes) noexcept;
    virtual bool closeFile(int64_t file) noexcept;
    /// The bytes moved, fewer only at the end of the file (or of what a pipe has now); kNoFile when it fails.
    virtual int64_t readFile(int64_t file, void* buffer, uint32_t bytes) noexcept;
    virtual int64_t writeFile(int64_t file, const void* buffer, uint32_t bytes) noexcept;
    /// The same at a place of its own; the file's position may be anywhere afterwards.
    virtual int64_t readFileAt(int64_t file, void* buffer, uint32_t bytes, uint64_t offset) noexcept;
    virtual int64_t writeFileAt(int64_t file, const void* buffer, uint32_t bytes, uint64_t offset) noexcept;
    /// A piece of a scratch file as memory, within the file, from a multiple of kViewGranularity on. It may outlive the
    /// file's handle, but where a view is open the file cannot be cut.
    virtual void* mapFile(int64_t file, uint64_t offset, size_t bytes) noexcept;
    virtual void unmapFile(void* view, size_t bytes) noexcept; ///< null is ignored
    /// Copies from one file's position to another's without taking the bytes to the program, as far as the system can,
    /// which may be not at all; both positions move on. What is left, and why, a read and a write will tell.
    virtual void copyContent(int64_t from, int64_t to) noexcept;
    /// The new position. origin: 0 the start, 1 the position, anything else the end.
    virtual int64_t seekFile(int64_t file, int64_t distance, int32_t origin) noexcept;
    virtual bool endFileHere(int64_t file) noexcept; ///< the file ends at its position

    virtual bool fileFacts(const R_WCHAR* name, FileFacts* facts) noexcept;
    virtual bool deleteFile(const R_WCHAR* name) noexcept;
    virtual bool moveFile(const R_WCHAR* from, const R_WCHAR* to, uint32_t flags) noexcept; ///< flags of R_MoveFileEx
    /// The system's folder for temporary files, with a separator at its end; the units it takes, its terminator
    /// included, 0 when there is none. A buffer that is too small is left alone.
    virtual uint32_t temporaryFolder(R_WCHAR* buffer, uint32_t capacity) noexcept;

    // --- Narrow text: the code page on Windows, UTF-8 elsewhere. The units that the whole text takes, its terminator
    // included; where they fit, they are written.
    virtual size_t wideFromNarrow(R_WCHAR* buffer, size_t capacity, const char* text) noexcept;
    virtual size_t narrowFromWide(char* buffer, size_t capacity, const R_WCHAR* text) noexcept;

    // --- Modules
    /// Loads a module by a path, or by a bare name where the system looks for those, without a word to the user; null
    /// with the native error: kModuleNotFound where it or something it needs is missing. Each success is freed once.
    virtual void* loadModule(const R_WCHAR* path) noexcept;
    /// The same by a bare name, with a folder as a place to look for it and, where the system knows of a current
    /// folder in its search, for what it needs. That folder is the whole process's: one thread at a time.
    virtual void* loadModuleFrom(const R_WCHAR* folder, const R_WCHAR* name) noexcept;
    virtual void* moduleFunction(void* module, const char* name) noexcept; ///< null where it has none
    virtual void freeModule(void* module) noexcept;                        ///< null is ignored
    /// What the file of a module is called here if not by its name, with the folder that stands before it: the calls
    /// above look for it too. False: modules have their own names, this is none, or it does not fit.
    virtual bool localModuleName(const R_WCHAR* path, R_WCHAR* buffer, uint32_t capacity) noexcept;
    /// The folder that this library was loaded from, with a separator at its end; the units it takes, its terminator
    /// included, 0 when it is not known. A buffer that is too small is left alone.
    virtual uint32_t libraryFolder(R_WCHAR* buffer, uint32_t capacity) noexcept;

    // --- Diagnostics
    virtual void debugOutput(const char* text) noexcept; ///< UTF-8 (Windows: the code page)
    virtual void debugOutputWide(const R_WCHAR* text) noexcept;
    /// Whether the user has switched the lock-count diagnostics on; asked once, when the library is attached.
    virtual bool lockCountDiagnosticsWanted() noexcept;

    // --- Palette objects of the window system
    virtual HPALETTE createPalette(const PALETTEENTRY* entries, uint32_t count) noexcept; ///< 0 to 256 entries
    virtual uint32_t paletteSize(HPALETTE palette) noexcept;
    virtual uint32_t paletteEntries(HPALETTE palette, uint32_t first, uint32_t count, PALETTEENTRY* entries) noexcept;
    virtual uint32_t setPaletteEntries(HPALETTE palette, uint32_t first, uint32_t count,
                                       const PALETTEENTRY* entries) noexcept;
    virtual void deletePalette(HPALETTE palette) noexcept;
    /// The window system's own nearest index; false where it has no rule of its own.
    virtual bool nearestPaletteIndex(HPALETTE palette, COLORREF colour, uint32_t* index) noexcept;
    /// The screen's palette, up to capacity entries; 0 where the screen has none.
    virtual uint32_t systemPalette(PALETTEENTRY* entries, uint32_t capacity) noexcept;

protected:
    ~Platform() = default; // never destroyed through the door
};

inline constexpr uint32_t kWaitForever = 0xFFFFFFFFu;

/// The system's own platform.
extern Platform& gSystemPlatform;
/// The platform in use: the system's, unless a test stands another before it.
extern std::atomic<Platform*> gPlatform;

inline Platform& platform() noexcept { return *gPlatform.load(std::memory_order_relaxed); }

} // namespace rv
