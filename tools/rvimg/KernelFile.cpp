#include "KernelFile.h"

#include "Error.h"

#include <algorithm>
#include <cstring>
#include <utility>
#if !defined(_WIN32)
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace rvimg {

namespace {

constexpr R_INT kErrorOpening = -14;
constexpr R_INT kOthersMayRead = FILE_SHARE_BIT_READ;
constexpr R_INT kOthersMayDoBoth = FILE_SHARE_BIT_READ | FILE_SHARE_BIT_WRITE;
/// Most that one call of the kernel moves here.
constexpr size_t kStep = size_t{1} << 26;

std::string utf8Of(const std::filesystem::path& path)
{
    const std::u8string name = path.u8string();
    return std::string(name.begin(), name.end());
}

R_INT64 wrapped(R_INT64 native, R_INT mode, const char* what)
{
    R_INT64 handle = R_INVALID_FILE;
    const R_INT status = R_CreateRedirectedFileHandle(native, &handle, mode);
    if (status != SUCCESS) throw Error(text(what, ": ", messageOf(status)));
    return handle;
}

#if defined(_WIN32)
R_INT64 standardHandle(DWORD which) { return static_cast<R_INT64>(reinterpret_cast<intptr_t>(GetStdHandle(which))); }
#else
/// A file that only the system's own name leads to.
R_INT64 openBytes(const std::filesystem::path& path, int flags, R_INT mode, const char* what)
{
    const int file = ::open(path.c_str(), flags | O_CLOEXEC, 0666);
    if (file < 0) throw Error(text(what, ": ", std::generic_category().message(errno)));
    try {
        return wrapped(file, mode, what);
    } catch (...) {
        ::close(file);
        if ((flags & O_CREAT) != 0) ::unlink(path.c_str());
        throw;
    }
}

/// Whether the kernel can name it. Its names are text, and take both slashes for one; here names are bytes.
bool hasKernelName(const std::filesystem::path& path)
{
    if (path.native().find('\\') != std::string::npos) return false;
    try {
        return std::filesystem::path(path.u16string()) == path;
    } catch (const std::exception&) {
        return false; // no UTF-8
    }
}
#endif

[[noreturn]] void throwNotMade(R_INT status) { throw Error(text("cannot write: ", messageOf(status))); }

} // namespace

std::string fileReason(const char* what, R_INT otherwise)
{
    return text(what, ": ", messageOf(R_OsGetLastError(otherwise)));
}

KernelFile::KernelFile(KernelFile&& other) noexcept
    : handle_(std::exchange(other.handle_, R_INVALID_FILE)), spool_(std::exchange(other.spool_, {})),
      flows_(other.flows_)
{
}

KernelFile& KernelFile::operator=(KernelFile&& other) noexcept
{
    std::swap(handle_, other.handle_);
    std::swap(spool_, other.spool_);
    std::swap(flows_, other.flows_);
    return *this;
}

KernelFile::~KernelFile() { leave(); }

void KernelFile::leave() noexcept
{
    if (handle_ != R_INVALID_FILE) R_RedirectedClose(std::exchange(handle_, R_INVALID_FILE));
    if (!spool_.empty()) R_DeleteTempFileUTF8(spool_.c_str());
    spool_.clear();
}

KernelFile KernelFile::openForReading(const std::filesystem::path& path)
{
#if !defined(_WIN32)
    if (!hasKernelName(path)) return KernelFile(openBytes(path, O_RDONLY, FILE_MODE_READ, "cannot open"));
#endif
    KernelFile file(R_RedirectedOpenUTF8(utf8Of(path).c_str(), FILE_MODE_READ, kOthersMayDoBoth));
    if (!file) throw Error(fileReason("cannot open", kErrorOpening));
    return file;
}

KernelFile KernelFile::createBeside(const std::filesystem::path& target, std::filesystem::path& made)
{
    const std::filesystem::path folder = target.has_parent_path() ? target.parent_path() : ".";
#if !defined(_WIN32)
    for (unsigned number = 0; !hasKernelName(folder); ++number) {
        made = folder / (".rvimg-" + std::to_string(::getpid()) + "-" + std::to_string(number));
        std::error_code ignored;
        if (std::filesystem::exists(std::filesystem::symlink_status(made, ignored))) continue;
        constexpr int kNew = O_RDWR | O_CREAT | O_EXCL;
        return KernelFile(openBytes(made, kNew, FILE_MODE_READ_WRITE, "cannot write"));
    }
#endif
    constexpr R_UINT kRoom = 4096;
    char name[kRoom];
    const R_INT status = R_GetTempFileName4UTF8(utf8Of(folder).c_str(), name, kRoom, TEMPFILE_DISK, ".rvimg-", nullptr);
    if (status != SUCCESS) throwNotMade(status);
    made = std::filesystem::path(std::u8string(name, name + std::strlen(name)));
    constexpr R_INT kMode = FILE_MODE_READ_WRITE | FILE_MODE_TRUNCATE;
    KernelFile file(R_RedirectedOpenUTF8(name, kMode, kOthersMayRead));
    if (!file) {
        const std::string reason = fileReason("cannot write", kErrorOpening);
        R_OsDelete(made.string<R_WCHAR>().c_str());
        throw Error(reason);
    }
    return file;
}

KernelFile KernelFile::openDevice(const std::filesystem::path& path)
{
#if !defined(_WIN32)
    if (!hasKernelName(path)) return KernelFile(openBytes(path, O_WRONLY | O_TRUNC, FILE_MODE_WRITE, "cannot write"));
#endif
    constexpr R_INT kMode = FILE_MODE_WRITE | FILE_MODE_CREATE;
    KernelFile file(R_RedirectedOpenUTF8(utf8Of(path).c_str(), kMode, kOthersMayDoBoth));
    if (!file) throw Error(fileReason("cannot write", kErrorOpening));
    return file;
}

KernelFile KernelFile::standardInput()
{
#if defined(_WIN32)
    KernelFile file(wrapped(standardHandle(STD_INPUT_HANDLE), FILE_MODE_READ, "cannot open"));
    // The system lets a pipe be sought, and calls what is in it now its size.
    file.flows_ = GetFileType(GetStdHandle(STD_INPUT_HANDLE)) != FILE_TYPE_DISK;
    return file;
#else
    return KernelFile(wrapped(STDIN_FILENO, FILE_MODE_READ, "cannot open"));
#endif
}

KernelFile KernelFile::standardOutput()
{
#if defined(_WIN32)
    return KernelFile(wrapped(standardHandle(STD_OUTPUT_HANDLE), FILE_MODE_WRITE, "cannot write"));
#else
    return KernelFile(wrapped(STDOUT_FILENO, FILE_MODE_WRITE, "cannot write"));
#endif
}

bool KernelFile::outputIsTerminal()
{
#if defined(_WIN32)
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != 0;
#else
    return ::isatty(STDOUT_FILENO) != 0;
#endif
}

KernelFile KernelFile::createSpool()
{
    constexpr R_UINT kRoom = 1024;
    char name[kRoom];
    const R_INT status = R_GetTempFileName4UTF8(nullptr, name, kRoom, TEMPFILE_DISK_AND_MEMORY, "rvimg-", nullptr);
    if (status != SUCCESS) throwNotMade(status);
    KernelFile file(R_RedirectedTempFileOpenUTF8(name, FILE_MODE_READ_WRITE, kOthersMayRead), name);
    if (!file) throw Error(fileReason("cannot write", kErrorOpening));
    return file;
}

size_t KernelFile::read(void* data, size_t bytes)
{
    auto* out = static_cast<uint8_t*>(data);
    size_t got = 0;
    while (got < bytes) {
        const auto step = static_cast<R_UINT>(std::min(bytes - got, kStep));
        const R_INT moved = R_RedirectedRead(handle_, out + got, step);
        if (moved < 0) throw Error(fileReason("cannot read", ERROR_FILE_READ));
        if (moved == 0) break;
        got += static_cast<size_t>(moved);
    }
    return got;
}

void KernelFile::write(const void* data, size_t bytes)
{
    const auto* in = static_cast<const uint8_t*>(data);
    while (bytes > 0) { // writing no bytes would cut the file
        const auto step = static_cast<R_UINT>(std::min(bytes, kStep));
        const R_INT moved = R_RedirectedWrite(handle_, in, step);
        if (moved <= 0) throw Error(fileReason("cannot write", ERROR_FILE_WRITE));
        in += moved;
        bytes -= static_cast<size_t>(moved);
    }
}

void KernelFile::seek(uint64_t position)
{
    if (R_RedirectedSeek(handle_, static_cast<R_INT64>(position), FILE_FROM_START) < 0)
        throw Error(fileReason("cannot seek", ERROR_FILE_LSEEK));
}

bool KernelFile::measure(uint64_t& size)
{
    if (flows_ || R_RedirectedSeek(handle_, 0, FILE_FROM_CURRENT) != 0) return false; // others read the beginning
    const R_INT64 end = R_RedirectedSeek(handle_, 0, FILE_FROM_END);
    if (end < 0 || R_RedirectedSeek(handle_, 0, FILE_FROM_START) != 0) return false;
    size = static_cast<uint64_t>(end);
    return true;
}

void KernelFile::close()
{
    const bool kept = R_RedirectedClose(std::exchange(handle_, R_INVALID_FILE)) >= 0;
    const std::string reason = kept ? std::string() : fileReason("cannot write", ERROR_FILE_WRITE);
    leave();
    if (!kept) throw Error(reason);
}

} // namespace rvimg
