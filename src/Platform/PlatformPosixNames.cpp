#include "Platform/PlatformPosixNames.h"

#include "Platform/NativeErrors.h"
#include "Platform/Platform.h"
#include "Platform/Unicode.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace rv {
namespace {

constinit thread_local uint32_t threadError = native::kNone;

/// The UTF-8 of a name; the native error that refuses it, or kNone.
uint32_t convertName(const R_WCHAR* name, char* text, size_t capacity) noexcept
{
    if (name == nullptr || *name == 0) return native::kPathNotFound;
    size_t length = 0;
    while (*name != 0) {
        const char32_t character = nextCharacter(name, nullptr);
        if (character == kInvalidCharacter) return native::kInvalidName;
        char bytes[kMaxUtf8Bytes];
        const size_t count = encodeCharacter(character == U'\\' ? U'/' : character, bytes);
        if (count >= capacity - length) return native::kNameTooLong;
        std::memcpy(text + length, bytes, count);
        length += count;
    }
    text[length] = 0;
    return native::kNone;
}

/// Whether the folder that a name stands in is there.
bool hasFolder(const char* name) noexcept
{
    const char* const slash = std::strrchr(name, '/');
    if (slash == nullptr || slash == name) return true;
    char folder[PATH_MAX];
    const auto length = static_cast<size_t>(slash - name);
    if (length >= sizeof folder) return false;
    std::memcpy(folder, name, length);
    folder[length] = 0;
    struct stat facts;
    return stat(folder, &facts) == 0 && S_ISDIR(facts.st_mode);
}

} // namespace

uint32_t Platform::nativeError() noexcept { return threadError; }
void Platform::setNativeError(uint32_t error) noexcept { threadError = error; }

uint32_t nativeErrorOf(int error) noexcept
{
    switch (error) {
    case 0: return native::kNone;
    case ENOENT:
    case ENXIO:
    case ENODEV: return native::kFileNotFound;
    case ENOTDIR:
    case ELOOP: return native::kPathNotFound;
    case EMFILE:
    case ENFILE: return native::kTooManyOpenFiles;
    case EACCES:
    case EPERM:
    case EISDIR: return native::kAccessDenied;
    case EBADF: return native::kInvalidHandle;
    case ENOMEM: return native::kNotEnoughMemory;
    case EXDEV: return native::kNotSameDevice;
    case EROFS: return native::kWriteProtected;
    case EBUSY:
    case ETXTBSY: return native::kSharingViolation;
    case EOPNOTSUPP:
    case ENOSYS: return native::kNotSupported;
    case EEXIST: return native::kFileExists;
    case EINVAL:
    case ESPIPE: return native::kInvalidParameter;
    case EPIPE: return native::kBrokenPipe;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return native::kDiskFull;
    case ENOTEMPTY: return native::kDirectoryNotEmpty;
    case ENAMETOOLONG: return native::kNameTooLong;
    default: return native::kGeneralFailure;
    }
}

void setPosixError(int error) noexcept { threadError = nativeErrorOf(error); }

void setPosixError(int error, const char* name) noexcept
{
    threadError = error == ENOENT && !hasFolder(name) ? native::kPathNotFound : nativeErrorOf(error);
}

PosixName::PosixName(const R_WCHAR* name) noexcept
{
    const uint32_t refused = convertName(name, text_, sizeof text_);
    good_ = refused == native::kNone;
    if (!good_) threadError = refused;
}

} // namespace rv
