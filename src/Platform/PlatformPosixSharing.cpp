// The door on POSIX systems: files that are opened, closed, deleted and moved, with what others have open in view.
//
// The system lets everybody open everything. So each open of a plain file is on record, found by the file's identity,
// and who comes later is held to what they said about sharing. Handles are plain descriptors: those that a program
// brings along, pipes and devices have no record, and share.
#include "Platform/NativeErrors.h"
#include "Platform/Platform.h"
#include "Platform/PlatformPosixFiles.h"
#include "Platform/PlatformPosixNames.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace rv {
namespace {

constexpr uint32_t kRead = FileRequest::kRead;
constexpr uint32_t kWrite = FileRequest::kWrite;
constexpr uint32_t kDelete = 4; // beside them: nobody shares it

// --- The record of what is open

struct OpenFile {
    OpenFile* next = nullptr;
    int descriptor = -1;
    dev_t device = 0;
    ino_t node = 0;
    uint32_t access = 0;
    uint32_t sharing = 0;
    pid_t opener = 0; ///< a child that a program forks may close the file, but not delete it
    /// Where the file stands, when it is to be deleted; else nothing is behind the record.
    char* path() noexcept { return (access & kDelete) != 0 ? reinterpret_cast<char*>(this + 1) : nullptr; }
    void deleteOnClose() noexcept;
};

bool isSame(const struct stat& facts, const OpenFile& file) noexcept
{
    return facts.st_ino == file.node && facts.st_dev == file.device;
}

void OpenFile::deleteOnClose() noexcept
{
    struct stat there;
    if (path() == nullptr || opener != getpid()) return;
    if (lstat(path(), &there) == 0 && isSame(there, *this)) unlink(path());
}

/// Whether the record still holds. A descriptor that was closed, or given out anew, behind our back is another file.
bool isOpen(const OpenFile& file) noexcept
{
    struct stat facts;
    return fstat(file.descriptor, &facts) == 0 && isSame(facts, file);
}

/// The records, under one lock. Each call below expects it to be held.
class OpenFiles {
public:
    constexpr OpenFiles() noexcept = default;
    void lock() noexcept { pthread_mutex_lock(&mutex_); }
    void unlock() noexcept { pthread_mutex_unlock(&mutex_); }

    void add(OpenFile* file) noexcept
    {
        OpenFile*& first = listOf(file->device, file->node);
        file->next = first;
        first = file;
    }

    /// Takes the record of a descriptor out; null where there is none.
    OpenFile* take(const struct stat& facts, int descriptor) noexcept
    {
        for (OpenFile** at = &listOf(facts.st_dev, facts.st_ino); *at != nullptr; at = &(*at)->next)
            if ((*at)->descriptor == descriptor && isSame(facts, **at)) return unlinkRecord(at);
        return nullptr;
    }

    /// Whether nobody who has the file open minds that another has it with this access and sharing.
    bool allow(const struct stat& facts, uint32_t access, uint32_t sharing) noexcept
    {
        if (access == 0) return true;
        for (OpenFile** at = &listOf(facts.st_dev, facts.st_ino); *at != nullptr;) {
            OpenFile& other = **at;
            const bool minds = isSame(facts, other) && ((access & ~other.sharing) | (other.access & ~sharing)) != 0;
            if (minds && isOpen(other)) return false;
            if (minds) {
                platform().release(unlinkRecord(at));
            } else {
                at = &other.next;
            }
        }
        return true;
    }

    /// The program ends, or the library goes, with files open: the names that were to go then go now.
    void deleteWhatIsLeft() noexcept
    {
        for (OpenFile* file : lists_)
            for (; file != nullptr; file = file->next) file->deleteOnClose();
    }

private:
    static constexpr size_t kLists = 64;

    OpenFile*& listOf(dev_t device, ino_t node) noexcept
    {
        return lists_[(static_cast<size_t>(node) ^ static_cast<size_t>(device)) % kLists];
    }
    static OpenFile* unlinkRecord(OpenFile** at) noexcept
    {
        OpenFile* const file = *at;
        *at = file->next;
        return file;
    }

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    OpenFile* lists_[kLists] = {};
};
constinit OpenFiles openFiles;

class HoldOpenFiles {
public:
    HoldOpenFiles() noexcept { openFiles.lock(); }
    ~HoldOpenFiles() { openFiles.unlock(); }
    HoldOpenFiles(const HoldOpenFiles&) = delete;
    HoldOpenFiles& operator=(const HoldOpenFiles&) = delete;
};

// A child finds the records whole: only the thread that forked goes on in it.
__attribute__((constructor)) void beginOpenFiles()
{
    (void)pthread_atfork([] { openFiles.lock(); }, [] { openFiles.unlock(); }, [] { openFiles.unlock(); });
}

__attribute__((destructor)) void endOpenFiles()
{
    const HoldOpenFiles hold;
    openFiles.deleteWhatIsLeft();
}

/// Deleting, moving and replacing stand in for an open that shares everything.
bool mayRemove(const struct stat& facts) noexcept { return openFiles.allow(facts, kDelete, kRead | kWrite); }

/// The read-only attribute of a file is that nobody may write it. The superuser is held to it, too.
bool isReadOnly(const struct stat& facts) noexcept { return S_ISREG(facts.st_mode) && (facts.st_mode & 0222) == 0; }

// --- Opening

int accessFlags(uint32_t access) noexcept
{
    switch (access & (kRead | kWrite)) {
    case kRead | kWrite: return O_RDWR;
    case kWrite: return O_WRONLY;
    default: return O_RDONLY;
    }
}

int openUninterrupted(const char* path, int flags, mode_t mode = 0) noexcept
{
    int descriptor;
    do {
        descriptor = open(path, flags | O_CLOEXEC | O_NOCTTY, mode);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

/// One attempt at opening a file, and what belongs to it until it has succeeded.
class Opening {
public:
    Opening(const char* path, const FileRequest& request) noexcept : path_(path), request_(request) {}
    ~Opening()
    {
        if (descriptor_ >= 0) close(descriptor_);
        platform().release(record_);
    }
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;

    /// A descriptor, or the native error.
    int64_t run() noexcept
    {
        uint32_t refused = prepare();
        if (refused == native::kNone) refused = openAndRecord();
        if (refused == native::kNone) return std::exchange(descriptor_, -1);
        platform().setNativeError(refused);
        return kNoFile;
    }

private:
    using Creation = FileRequest::Creation;

    bool creates() const noexcept
    {
        return request_.creation == Creation::createNew || request_.creation == Creation::createAlways;
    }
    bool cuts() const noexcept
    {
        return request_.creation == Creation::createAlways || request_.creation == Creation::truncateExisting;
    }
    uint32_t access() const noexcept
    {
        return (request_.access & (kRead | kWrite)) | (request_.deleteOnClose ? kDelete : 0);
    }

    /// What can be refused before anything is touched.
    uint32_t prepare() noexcept
    {
        if (request_.creation == Creation::truncateExisting && (request_.access & kWrite) == 0)
            return native::kInvalidParameter;
        if (creates() && request_.readOnly && request_.deleteOnClose) return native::kAccessDenied;
        if (access() == 0) return native::kNone;
        void* const memory = platform().allocate(sizeof(OpenFile) + (request_.deleteOnClose ? PATH_MAX : 0));
        if (memory == nullptr) return native::kNotEnoughMemory;
        record_ = new (memory) OpenFile;
        return native::kNone;
    }

    uint32_t openAndRecord() noexcept
    {
        for (;;) {
            uint32_t refused = openExisting();
            if (refused == native::kNone) {
                bool goneMeanwhile = false;
                refused = admit(&goneMeanwhile);
                if (!goneMeanwhile) return refused;
                close(std::exchange(descriptor_, -1));
                continue;
            }
            if (refused != native::kFileNotFound || !creates()) return refused;
            bool thereMeanwhile = false;
            refused = create(&thereMeanwhile);
            if (!thereMeanwhile) return refused;
        }
    }

    uint32_t systemError() const noexcept
    {
        setPosixError(errno, path_);
        return platform().nativeError();
    }

    uint32_t openExisting() noexcept
    {
        if (request_.creation == Creation::createNew) return native::kFileNotFound; // creating it finds out
        int flags = accessFlags(request_.access);
#if defined(O_PATH)
        if (access() == 0 && !cuts()) flags = O_PATH; // asks for no right to the content
#endif
        descriptor_ = openUninterrupted(path_, flags);
        return descriptor_ >= 0 ? native::kNone : systemError();
    }

    /// Creates the file and puts it on record at once, so that nobody can come between.
    uint32_t create(bool* thereMeanwhile) noexcept
    {
        const mode_t mode = request_.readOnly ? 0444 : 0666;
        const HoldOpenFiles hold;
        descriptor_ = openUninterrupted(path_, accessFlags(request_.access) | O_CREAT | O_EXCL, mode);
        if (descriptor_ < 0) {
            if (errno != EEXIST) return systemError();
            if (request_.creation == Creation::createNew) return native::kFileExists;
            if (!leadsNowhere()) {
                *thereMeanwhile = true;
                return native::kFileExists;
            }
            descriptor_ = openUninterrupted(path_, accessFlags(request_.access) | O_CREAT, mode);
            if (descriptor_ < 0) return systemError();
        }
        struct stat facts;
        if (!look(&facts)) return systemError();
        enter(facts);
        return native::kNone;
    }

    /// What the file is. A record of its descriptor is of an open that the program has closed by itself.
    bool look(struct stat* facts) const noexcept
    {
        if (fstat(descriptor_, facts) != 0) return false;
        platform().release(openFiles.take(*facts, descriptor_));
        return true;
    }

    /// A link to a file that is not there: creating makes the file.
    bool leadsNowhere() const noexcept
    {
        struct stat facts;
        return stat(path_, &facts) != 0 && errno == ENOENT && lstat(path_, &facts) == 0 && S_ISLNK(facts.st_mode);
    }

    /// Whether the name leads to this file: so it may even when no folder has it, by a descriptor's name.
    bool isReachable(const struct stat& facts) const noexcept
    {
        struct stat there;
        return stat(path_, &there) == 0 && there.st_ino == facts.st_ino && there.st_dev == facts.st_dev;
    }

    /// Decides about a file that was there, cuts it where that was asked for, and puts it on record.
    uint32_t admit(bool* goneMeanwhile) noexcept
    {
        const HoldOpenFiles hold;
        struct stat facts;
        if (!look(&facts)) return systemError();
        if (S_ISDIR(facts.st_mode)) return request_.folders && !cuts() ? native::kNone : native::kAccessDenied;
        if (!S_ISREG(facts.st_mode)) return native::kNone;
        if (facts.st_nlink == 0 && !isReachable(facts)) {
            *goneMeanwhile = true;
            return native::kFileNotFound;
        }
        const bool changes = (request_.access & kWrite) != 0 || request_.deleteOnClose || cuts();
        if (changes && isReadOnly(facts)) return native::kAccessDenied;
        const uint32_t wanted = access() | (cuts() ? kWrite : 0);
        if (!openFiles.allow(facts, wanted, request_.sharing)) return native::kSharingViolation;
        if (cuts()) {
            const uint32_t refused = cut(facts);
            if (refused != native::kNone) return refused;
        }
        enter(facts);
        return native::kNone;
    }

    /// Cuts the file to nothing; through a descriptor of its own where ours only reads.
    uint32_t cut(const struct stat& facts) noexcept
    {
        const bool writes = (request_.access & kWrite) != 0;
        const int writer = writes ? descriptor_ : openUninterrupted(path_, O_WRONLY);
        struct stat there;
        bool done = writer >= 0 && fstat(writer, &there) == 0;
        if (done && (there.st_ino != facts.st_ino || there.st_dev != facts.st_dev)) {
            errno = EBUSY; // another file took the name just now
            done = false;
        }
        done = done && ftruncate(writer, 0) == 0;
        if (done && request_.readOnly) (void)fchmod(writer, facts.st_mode & 0555); // the attributes are those asked for
        const uint32_t refused = done ? native::kNone : systemError();
        if (!writes && writer >= 0) close(writer);
        return refused;
    }

    void enter(const struct stat& facts) noexcept
    {
        if (record_ == nullptr || !S_ISREG(facts.st_mode)) return;
        record_->descriptor = descriptor_;
        record_->device = facts.st_dev;
        record_->node = facts.st_ino;
        record_->access = access();
        record_->sharing = request_.sharing & (kRead | kWrite);
        record_->opener = getpid();
        // The folder in use may be another when the file is closed.
        if (record_->path() != nullptr && realpath(path_, record_->path()) == nullptr) record_->path()[0] = 0;
        openFiles.add(std::exchange(record_, nullptr));
    }

    const char* path_;
    const FileRequest& request_;
    int descriptor_ = -1;
    OpenFile* record_ = nullptr;
};

} // namespace

int64_t Platform::openFile(const R_WCHAR* name, const FileRequest& request) noexcept
{
    const PosixName path(name);
    return path ? Opening(path.get(), request).run() : kNoFile;
}

bool Platform::closeFile(int64_t file) noexcept
{
    const int descriptor = file >= 0 && file <= INT_MAX ? static_cast<int>(file) : -1;
    {
        const HoldOpenFiles hold;
        struct stat facts;
        if (fstat(descriptor, &facts) == 0) {
            OpenFile* const record = openFiles.take(facts, descriptor);
            if (record != nullptr) record->deleteOnClose();
            platform().release(record);
        }
    }
    if (close(descriptor) == 0 || errno == EINTR) return true; // interrupted, it is closed all the same
    setPosixError(errno);
    return false;
}

bool Platform::deleteFile(const R_WCHAR* name) noexcept
{
    const PosixName path(name);
    if (!path) return false;
    const HoldOpenFiles hold;
    struct stat facts;
    if (lstat(path.get(), &facts) != 0) {
        setPosixError(errno, path.get());
    } else if (S_ISDIR(facts.st_mode) || isReadOnly(facts)) {
        setNativeError(native::kAccessDenied);
    } else if (!mayRemove(facts)) {
        setNativeError(native::kSharingViolation);
    } else if (unlink(path.get()) == 0) {
        return true;
    } else {
        setPosixError(errno, path.get());
    }
    return false;
}

// --- Moving

namespace {

// Flags of R_MoveFileEx.
constexpr uint32_t kReplace = 1, kCopyAllowed = 2, kAtRestart = 4, kWriteThrough = 8, kHardLink = 16;

/// rename() that replaces nothing. Where the system has none, a second name is given and the first taken away.
int renameToNew(const char* from, const char* to, bool folder) noexcept
{
#if defined(RENAME_NOREPLACE)
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
    if (errno != ENOSYS && errno != EINVAL) return -1;
#endif
    if (folder) {
        struct stat facts;
        if (lstat(to, &facts) != 0) return rename(from, to);
        errno = EEXIST;
        return -1;
    }
    if (link(from, to) != 0) return -1;
    return unlink(from);
}

/// Whether the target may be what the source becomes: native error. The records must be held.
uint32_t refuseTarget(const struct stat& source, const char* to, uint32_t flags) noexcept
{
    struct stat target;
    if (lstat(to, &target) != 0) return native::kNone; // what else is wrong with it, renaming finds out
    if (target.st_ino == source.st_ino && target.st_dev == source.st_dev) return native::kNone;
    if ((flags & kReplace) == 0) return native::kAlreadyExists;
    if (S_ISDIR(target.st_mode) || S_ISDIR(source.st_mode) || isReadOnly(target)) return native::kAccessDenied;
    return mayRemove(target) ? native::kNone : native::kSharingViolation;
}

/// Renames on one file system: native error, kNotSameDevice where it is not one. The records must be held.
uint32_t renameHeld(const struct stat& source, const char* from, const char* to, uint32_t flags) noexcept
{
    uint32_t refused = refuseTarget(source, to, flags);
    if (refused != native::kNone) return refused;
    const bool folder = S_ISDIR(source.st_mode);
    // Onto itself, perhaps in other letters, is no replacing.
    struct stat target;
    const bool itself = lstat(to, &target) == 0 && target.st_ino == source.st_ino && target.st_dev == source.st_dev &&
                        (folder || source.st_nlink == 1);
    const int renamed = itself || (flags & kReplace) != 0 ? rename(from, to) : renameToNew(from, to, folder);
    if (renamed == 0) return native::kNone;
    if (errno == EEXIST && (flags & kReplace) == 0) return native::kAlreadyExists;
    setPosixError(errno == ENOENT ? ENOTDIR : errno); // the source is there: it is the target's folder that is not
    refused = platform().nativeError();
    return refused;
}

bool copyContent(int from, int to) noexcept
{
    char piece[65536];
    for (;;) {
        const int64_t bytes = platform().readFile(from, piece, sizeof piece);
        if (bytes == 0) return true;
        if (bytes < 0 || platform().writeFile(to, piece, static_cast<uint32_t>(bytes)) != bytes) return false;
    }
}

/// A copy with the times of the original, and its rights, but for running as its owner, who may be another now.
bool copyAll(int from, int to, const struct stat& facts, bool writeThrough) noexcept
{
    if (!copyContent(from, to)) return false;
    const timespec times[] = {facts.st_atim, facts.st_mtim};
    if (fchmod(to, facts.st_mode & 0777) == 0 && futimens(to, times) == 0 && (!writeThrough || fsync(to) == 0))
        return true;
    setPosixError(errno);
    return false;
}

/// Moves a file to another file system: a copy beside the target takes its name when it is whole, and only then the
/// original goes. Until then both are as they were.
uint32_t moveByCopy(const R_WCHAR* fromName, const char* from, const char* to, uint32_t flags) noexcept
{
    const int64_t source = platform().openFile(fromName, {.access = kRead});
    if (source == kNoFile) return platform().nativeError();
    struct stat facts;
    char beside[PATH_MAX];
    const char* const slash = std::strrchr(to, '/');
    const int folder = slash != nullptr ? static_cast<int>(slash - to) + 1 : 0;
    const int length = std::snprintf(beside, sizeof beside, "%.*sRVXXXXXX", folder, to);
    int copy = -1;
    uint32_t refused = native::kNone;
    if (length < 0 || static_cast<size_t>(length) >= sizeof beside) {
        refused = native::kNameTooLong;
    } else if (fstat(static_cast<int>(source), &facts) != 0 || (copy = mkostemp(beside, O_CLOEXEC)) < 0) {
        setPosixError(errno == ENOENT ? ENOTDIR : errno);
        refused = platform().nativeError();
    } else if (!copyAll(static_cast<int>(source), copy, facts, (flags & kWriteThrough) != 0)) {
        refused = platform().nativeError();
    }
    if (copy >= 0 && close(copy) != 0 && refused == native::kNone) refused = nativeErrorOf(errno);
    if (refused == native::kNone) {
        const HoldOpenFiles hold;
        refused = renameHeld(facts, beside, to, flags);
        // A source that cannot be deleted stays; its content has been moved.
        if (refused == native::kNone) unlink(from);
    }
    if (copy >= 0 && refused != native::kNone) unlink(beside);
    platform().closeFile(source);
    return refused;
}

uint32_t moveNamed(const R_WCHAR* fromName, const char* from, const char* to, uint32_t flags) noexcept
{
    struct stat source;
    uint32_t refused;
    {
        const HoldOpenFiles hold;
        if (lstat(from, &source) != 0) {
            setPosixError(errno, from);
            return platform().nativeError();
        }
        if (!mayRemove(source)) return native::kSharingViolation;
        refused = renameHeld(source, from, to, flags);
    }
    if (refused != native::kNotSameDevice || (flags & kCopyAllowed) == 0) return refused;
    const bool hasContent = S_ISREG(source.st_mode) || S_ISLNK(source.st_mode);
    return hasContent ? moveByCopy(fromName, from, to, flags) : native::kAccessDenied;
}

} // namespace

bool Platform::moveFile(const R_WCHAR* from, const R_WCHAR* to, uint32_t flags) noexcept
{
    const PosixName source(from);
    if (!source) return false;
    uint32_t refused = native::kNone;
    if ((flags & (kAtRestart | kHardLink)) != 0) {
        refused = native::kNotSupported;
    } else if (to == nullptr) {
        refused = native::kInvalidParameter;
    } else {
        const PosixName target(to);
        if (!target) return false;
        refused = moveNamed(from, source.get(), target.get(), flags);
    }
    if (refused == native::kNone) return true;
    setNativeError(refused);
    return false;
}

} // namespace rv
