// The door on POSIX systems: what is done with open files, and names that are not opened. Opening, closing, deleting
// and moving, which know who else has the file open: PlatformPosixSharing.cpp.
#include "Platform/PlatformPosixFiles.h"
#include "Platform/NativeErrors.h"
#include "Platform/Platform.h"
#include "Platform/PlatformPosixNames.h"
#include "Platform/Unicode.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rv {

// --- Limits

SizeLimitGuard::SizeLimitGuard() noexcept
{
    rlimit limit;
    guarded_ = getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
    if (!guarded_) return;
    sigset_t signal;
    sigemptyset(&signal);
    sigaddset(&signal, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &signal, &before_);
}

SizeLimitGuard::~SizeLimitGuard()
{
    if (!guarded_) return;
    const int error = errno;
    // Where the program itself blocks the signal, one that is pending may be its own.
    if (error == EFBIG && sigismember(&before_, SIGXFSZ) == 0) {
        sigset_t signal;
        sigemptyset(&signal);
        sigaddset(&signal, SIGXFSZ);
        const timespec now = {};
        while (sigtimedwait(&signal, nullptr, &now) < 0 && errno == EINTR) {}
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    errno = error;
}

// --- Moving bytes

namespace {

bool isRegular(int descriptor) noexcept
{
    struct stat facts;
    return fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode);
}

/// An error of an operation on an open file: one that the descriptor was not opened for is no bad descriptor.
int64_t failed(int descriptor, int error) noexcept
{
    const bool open = descriptor >= 0 && fcntl(descriptor, F_GETFL) != -1;
    setPosixError(error == EBADF && open ? EACCES : error);
    return kNoFile;
}

/// Whether a call that has failed is to be made again: it was interrupted, or a descriptor that does not wait had
/// nothing yet.
bool again(int descriptor, short events) noexcept
{
    if (errno == EINTR) return true;
    if (errno != EAGAIN) return false;
    pollfd waiting = {descriptor, events, 0};
    while (poll(&waiting, 1, -1) < 0)
        if (errno != EINTR) return false;
    return true;
}

// The system moves less than this in one go anyway.
constexpr uint32_t kPiece = 1u << 30;

/// Calls move(buffer offset, piece) until `bytes` are moved. A move of none ends it; one of too few ends it where
/// `whole` does not ask for more.
template <class Move, class Whole>
int64_t moveBytes(int descriptor, uint32_t bytes, short events, Move move, Whole whole) noexcept
{
    uint32_t moved = 0;
    do {
        const uint32_t piece = bytes - moved < kPiece ? bytes - moved : kPiece;
        const ssize_t now = move(moved, piece);
        if (now < 0) {
            if (again(descriptor, events)) continue;
            return failed(descriptor, errno);
        }
        moved += static_cast<uint32_t>(now);
        if (now == 0 || (static_cast<uint32_t>(now) < piece && !whole())) break;
    } while (moved < bytes);
    return moved;
}

/// A handle as the descriptor it is; -1 for anything else.
int descriptorOf(int64_t file) noexcept { return file >= 0 && file <= INT_MAX ? static_cast<int>(file) : -1; }

template <class Read> int64_t readBytes(int descriptor, void* buffer, uint32_t bytes, Read read) noexcept
{
    auto* const out = static_cast<unsigned char*>(buffer);
    return moveBytes(
        descriptor, bytes, POLLIN, [&](uint32_t at, uint32_t piece) { return read(out + at, piece, at); },
        [&] { return isRegular(descriptor); }); // a pipe or a terminal has given what it has
}

template <class Write> int64_t writeBytes(int descriptor, const void* buffer, uint32_t bytes, Write write) noexcept
{
    const auto* const in = static_cast<const unsigned char*>(buffer);
    const SizeLimitGuard guard;
    return moveBytes(
        descriptor, bytes, POLLOUT, [&](uint32_t at, uint32_t piece) { return write(in + at, piece, at); },
        [] { return true; });
}

bool offsetFits(uint64_t offset, uint64_t bytes) noexcept
{
    if (bytes <= INT64_MAX && offset <= INT64_MAX - bytes) return true;
    setPosixError(EINVAL);
    return false;
}

} // namespace

int64_t Platform::readFile(int64_t file, void* buffer, uint32_t bytes) noexcept
{
    const int descriptor = descriptorOf(file);
    return readBytes(descriptor, buffer, bytes,
                     [=](unsigned char* out, uint32_t piece, uint32_t) { return read(descriptor, out, piece); });
}

int64_t Platform::writeFile(int64_t file, const void* buffer, uint32_t bytes) noexcept
{
    const int descriptor = descriptorOf(file);
    return writeBytes(descriptor, buffer, bytes,
                      [=](const unsigned char* in, uint32_t piece, uint32_t) { return write(descriptor, in, piece); });
}

void Platform::copyContent(int64_t from, int64_t to) noexcept
{
#if defined(__linux__)
    // Ends at nothing copied: at the end of the file, or where the system cannot do it for these two.
    constexpr size_t kMost = 1 << 30;
    ssize_t copied;
    const SizeLimitGuard guard;
    do {
        copied = copy_file_range(descriptorOf(from), nullptr, descriptorOf(to), nullptr, kMost, 0);
    } while (copied > 0 || (copied < 0 && errno == EINTR));
#else
    (void)from, (void)to;
#endif
}

int64_t Platform::readFileAt(int64_t file, void* buffer, uint32_t bytes, uint64_t offset) noexcept
{
    if (!offsetFits(offset, bytes)) return kNoFile;
    const int descriptor = descriptorOf(file);
    return readBytes(descriptor, buffer, bytes, [=](unsigned char* out, uint32_t piece, uint32_t at) {
        return pread(descriptor, out, piece, static_cast<off_t>(offset + at));
    });
}

int64_t Platform::writeFileAt(int64_t file, const void* buffer, uint32_t bytes, uint64_t offset) noexcept
{
    if (!offsetFits(offset, bytes)) return kNoFile;
    const int descriptor = descriptorOf(file);
    return writeBytes(descriptor, buffer, bytes, [=](const unsigned char* in, uint32_t piece, uint32_t at) {
        return pwrite(descriptor, in, piece, static_cast<off_t>(offset + at));
    });
}

void* Platform::mapFile(int64_t file, uint64_t offset, size_t bytes) noexcept
{
    if (!offsetFits(offset, bytes)) return nullptr;
    const int descriptor = descriptorOf(file);
    void* const view = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, static_cast<off_t>(offset));
    if (view != MAP_FAILED) return view;
    failed(descriptor, errno);
    return nullptr;
}

void Platform::unmapFile(void* view, size_t bytes) noexcept
{
    if (view != nullptr) munmap(view, bytes);
}

int64_t Platform::seekFile(int64_t file, int64_t distance, int32_t origin) noexcept
{
    static_assert(sizeof(off_t) == sizeof distance);
    const int descriptor = descriptorOf(file);
    const off_t position = lseek(descriptor, distance, origin == 0 ? SEEK_SET : origin == 1 ? SEEK_CUR : SEEK_END);
    if (position >= 0) return position;
    const bool beforeStart = errno == EINVAL && distance < 0;
    failed(descriptor, errno);
    if (beforeStart) setNativeError(native::kNegativeSeek);
    return kNoFile;
}

namespace {

bool setSize(int descriptor, off_t bytes) noexcept
{
    const SizeLimitGuard guard;
    int set;
    do {
        set = ftruncate(descriptor, bytes);
    } while (set < 0 && errno == EINTR);
    return set == 0;
}

} // namespace

bool Platform::endFileHere(int64_t file) noexcept
{
    const int descriptor = descriptorOf(file);
    const off_t position = lseek(descriptor, 0, SEEK_CUR);
    if (position >= 0) {
        if (setSize(descriptor, position)) return true;
        // The system's word for a descriptor that is open for reading only.
        if (errno == EINVAL && (fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDONLY) errno = EACCES;
    }
    failed(descriptor, errno);
    return false;
}

// --- Names that are not opened

bool Platform::fileFacts(const R_WCHAR* name, FileFacts* facts) noexcept
{
    const PosixName path(name);
    if (!path) return false;
    struct stat found;
    if (stat(path.get(), &found) != 0) {
        setPosixError(errno, path.get());
        return false;
    }
    *facts = {static_cast<uint64_t>(found.st_size), S_ISDIR(found.st_mode)};
    return true;
}

uint32_t Platform::temporaryFolder(R_WCHAR* buffer, uint32_t capacity) noexcept
{
    const char* folder = secure_getenv("TMPDIR");
    if (folder == nullptr || folder[0] == 0) folder = "/tmp";
    char path[PATH_MAX];
    const size_t length = std::strlen(folder);
    const char* const separator = folder[length - 1] == '/' ? "" : "/";
    if (length + 2 > sizeof path) return 0;
    std::snprintf(path, sizeof path, "%s%s", folder, separator);
    return static_cast<uint32_t>(wideFromNarrow(buffer, capacity, path));
}

// --- Files without a name

namespace {

int openNameless(const char* folder) noexcept
{
#if defined(O_TMPFILE)
    const int descriptor = open(folder, O_TMPFILE | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
    // Where the file system knows no such files, or the system does not and takes the folder for what to open.
    if (descriptor >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != ENOENT)) return descriptor;
#endif
    char path[PATH_MAX];
    const int length = std::snprintf(path, sizeof path, "%s/RVXXXXXX", folder);
    if (length < 0 || static_cast<size_t>(length) >= sizeof path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    const int named = mkostemp(path, O_CLOEXEC);
    if (named >= 0) unlink(path);
    return named;
}

/// Zeros in every byte: what takes room on disk where it cannot be asked for.
bool writeZeros(int descriptor, uint64_t from, uint64_t to) noexcept
{
    static constexpr char kZeros[65536] = {};
    for (uint64_t at = from; at < to;) {
        const size_t piece = to - at < sizeof kZeros ? static_cast<size_t>(to - at) : sizeof kZeros;
        const ssize_t written = pwrite(descriptor, kZeros, piece, static_cast<off_t>(at));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        at += static_cast<uint64_t>(written);
    }
    return true;
}

/// Extends a file from its end on.
bool reserve(int descriptor, uint64_t from, uint64_t to) noexcept
{
    if (from == to) return true;
    if (to > INT64_MAX) {
        errno = EFBIG;
        return false;
    }
    const SizeLimitGuard guard;
#if defined(__linux__)
    int reserved;
    do {
        reserved = fallocate(descriptor, 0, static_cast<off_t>(from), static_cast<off_t>(to - from));
    } while (reserved < 0 && errno == EINTR);
    if (reserved == 0) return true;
    if (errno != EOPNOTSUPP && errno != ENOSYS) return false;
#endif
    return writeZeros(descriptor, from, to);
}

} // namespace

int64_t Platform::openScratchFile(const R_WCHAR* folder, uint64_t reservedBytes) noexcept
{
    const PosixName path(folder);
    if (!path) return kNoFile;
    const int descriptor = openNameless(path.get());
    if (descriptor < 0) {
        // A folder that is not there is a path that leads nowhere, not a file that was not found.
        setPosixError(errno == ENOENT ? ENOTDIR : errno);
        return kNoFile;
    }
    if (reserve(descriptor, 0, reservedBytes)) return descriptor;
    const int error = errno;
    close(descriptor);
    setPosixError(error);
    return kNoFile;
}

bool Platform::resizeScratchFile(int64_t file, uint64_t bytes) noexcept
{
    const int descriptor = descriptorOf(file);
    struct stat facts;
    if (fstat(descriptor, &facts) == 0) {
        const auto present = static_cast<uint64_t>(facts.st_size);
        if (bytes < present ? setSize(descriptor, static_cast<off_t>(bytes)) : reserve(descriptor, present, bytes))
            return true;
        const int error = errno;
        (void)setSize(descriptor, facts.st_size); // some of the room may have been had
        errno = error;
    }
    failed(descriptor, errno);
    return false;
}

// --- Narrow text

namespace {

/// Writes a text where all of it and its terminator fit: convert(writeUnit) is gone through once to count.
template <size_t kUnits, class To, class From>
size_t convertWhole(To* buffer, size_t capacity, const From* text) noexcept
{
    const auto convert = [text](To* out) {
        size_t length = 0;
        for (const From* at = text; *at != 0;) {
            To units[kUnits];
            const size_t count = encodeCharacter(nextCharacter(at, nullptr), units);
            if (out != nullptr) std::memcpy(out + length, units, count * sizeof(To));
            length += count;
        }
        if (out != nullptr) out[length] = 0;
        return length + 1;
    };
    const size_t needed = convert(nullptr);
    if (needed <= capacity) convert(buffer);
    return needed;
}

} // namespace

size_t Platform::wideFromNarrow(R_WCHAR* buffer, size_t capacity, const char* text) noexcept
{
    return convertWhole<kMaxWideUnits>(buffer, capacity, text);
}

size_t Platform::narrowFromWide(char* buffer, size_t capacity, const R_WCHAR* text) noexcept
{
    return convertWhole<kMaxUtf8Bytes>(buffer, capacity, text);
}

} // namespace rv
