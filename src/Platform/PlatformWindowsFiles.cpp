// The door on Windows: files, and text in the code page.
#if !defined(_CRT_RAND_S)
#define _CRT_RAND_S // declares rand_s
#endif
#include "Platform/NativeErrors.h"
#include "Platform/Platform.h"

#include <cstdio>
#include <cstdlib>
#include <cwchar>

namespace rv {

uint32_t Platform::nativeError() noexcept { return GetLastError(); }
void Platform::setNativeError(uint32_t error) noexcept { SetLastError(error); }

// --- Names

namespace {

constexpr wchar_t kLongPrefix[] = L"\\\\?\\";
constexpr wchar_t kLongShare[] = L"\\\\?\\UNC\\";

/// A name for a call of the system. One that is longer than the system takes by itself is given its long form.
class SystemName {
public:
    explicit SystemName(const wchar_t* name) noexcept : name_(name)
    {
        if (name == nullptr || wcsncmp(name, kLongPrefix, 4) == 0 || wcsncmp(name, L"\\\\.\\", 4) == 0) return;
        const DWORD units = GetFullPathNameW(name, 0, nullptr, nullptr); // with its terminator
        if (units > MAX_PATH) lengthen(units);
    }
    ~SystemName()
    {
        const DWORD error = GetLastError(); // the name goes after the call that it was made for
        platform().release(block_);
        SetLastError(error);
    }
    SystemName(const SystemName&) = delete;
    SystemName& operator=(const SystemName&) = delete;
    /// False: there was no memory; the native error says so.
    explicit operator bool() const noexcept { return good_; }
    const wchar_t* get() const noexcept { return name_; }

private:
    void lengthen(DWORD units) noexcept
    {
        constexpr size_t kRoom = sizeof kLongShare / sizeof(wchar_t);
        block_ = static_cast<wchar_t*>(platform().allocate((units + kRoom) * sizeof(wchar_t)));
        good_ = block_ != nullptr;
        if (!good_) {
            SetLastError(native::kNotEnoughMemory);
            return;
        }
        wchar_t* const full = block_ + kRoom;
        const DWORD length = GetFullPathNameW(name_, units, full, nullptr);
        if (length == 0 || length >= units) return; // as it is, the system shall say what is wrong with it
        const bool share = full[0] == L'\\' && full[1] == L'\\';
        const wchar_t* const prefix = share ? kLongShare : kLongPrefix;
        wchar_t* const start = (share ? full + 2 : full) - wcslen(prefix);
        wmemcpy(start, prefix, wcslen(prefix));
        name_ = start;
    }

    const wchar_t* name_;
    wchar_t* block_ = nullptr;
    bool good_ = true;
};

HANDLE handleOf(int64_t file) noexcept { return reinterpret_cast<HANDLE>(static_cast<intptr_t>(file)); }
int64_t fileOf(HANDLE handle) noexcept { return reinterpret_cast<intptr_t>(handle); }

/// No handle; the system would take this one for the process's own.
bool isNone(int64_t file) noexcept
{
    if (file != kNoFile) return false;
    SetLastError(native::kInvalidHandle);
    return true;
}

} // namespace

// --- Opening and closing

namespace {

DWORD creationOf(FileRequest::Creation creation) noexcept
{
    switch (creation) {
    case FileRequest::Creation::createNew: return CREATE_NEW;
    case FileRequest::Creation::createAlways: return CREATE_ALWAYS;
    case FileRequest::Creation::truncateExisting: return TRUNCATE_EXISTING;
    default: return OPEN_EXISTING;
    }
}

DWORD attributesOf(const FileRequest& request) noexcept
{
    DWORD attributes = 0;
    if (request.readOnly) attributes |= FILE_ATTRIBUTE_READONLY;
    if (request.hidden) attributes |= FILE_ATTRIBUTE_HIDDEN;
    if (request.system) attributes |= FILE_ATTRIBUTE_SYSTEM;
    if (request.temporary) attributes |= FILE_ATTRIBUTE_TEMPORARY;
    if (attributes == 0) attributes = FILE_ATTRIBUTE_NORMAL;
    if (request.deleteOnClose) attributes |= FILE_FLAG_DELETE_ON_CLOSE;
    if (request.folders) attributes |= FILE_FLAG_BACKUP_SEMANTICS;
    return attributes;
}

} // namespace

int64_t Platform::openFile(const R_WCHAR* name, const FileRequest& request) noexcept
{
    if (request.creation == FileRequest::Creation::truncateExisting && (request.access & FileRequest::kWrite) == 0) {
        SetLastError(native::kInvalidParameter);
        return kNoFile;
    }
    const SystemName path(name);
    if (!path) return kNoFile;
    DWORD access = 0, sharing = 0;
    if ((request.access & FileRequest::kRead) != 0) access |= GENERIC_READ;
    if ((request.access & FileRequest::kWrite) != 0) access |= GENERIC_WRITE;
    if ((request.sharing & FileRequest::kRead) != 0) sharing |= FILE_SHARE_READ;
    if ((request.sharing & FileRequest::kWrite) != 0) sharing |= FILE_SHARE_WRITE;
    return fileOf(CreateFileW(path.get(), access, sharing, nullptr, creationOf(request.creation), attributesOf(request),
                              nullptr));
}

int64_t Platform::openScratchFile(const R_WCHAR* folder, uint64_t reservedBytes) noexcept
{
    if (folder == nullptr || folder[0] == 0) {
        SetLastError(native::kPathNotFound);
        return kNoFile;
    }
    const size_t length = wcslen(folder);
    constexpr size_t kNameUnits = 32;
    // Where the folder is one of the usual length, there need be no memory: those who have none left come here.
    wchar_t place[MAX_PATH + kNameUnits];
    const bool fits = length <= MAX_PATH;
    auto* const name = fits ? place : static_cast<wchar_t*>(allocate((length + kNameUnits) * sizeof(wchar_t)));
    if (name == nullptr) {
        SetLastError(native::kNotEnoughMemory);
        return kNoFile;
    }
    wmemcpy(name, folder, length);
    const bool separated = wcschr(L"\\/:", folder[length - 1]) != nullptr;
    constexpr FileRequest kScratch{.access = FileRequest::kRead | FileRequest::kWrite,
                                   .creation = FileRequest::Creation::createNew,
                                   .deleteOnClose = true,
                                   .temporary = true};
    int64_t file = kNoFile;
    do {
        unsigned int high = 0, low = 0; // what nobody guesses: the folder may be open to others
        if (rand_s(&high) != 0 || rand_s(&low) != 0)
            SetLastError(native::kGeneralFailure);
        else {
            swprintf(name + length, kNameUnits, L"%lsRV%08x%08x.tmp", separated ? L"" : L"\\", high, low);
            file = Platform::openFile(name, kScratch);
        }
    } while (file == kNoFile && GetLastError() == native::kFileExists);
    const DWORD error = GetLastError();
    if (!fits) release(name);
    SetLastError(error);
    if (file == kNoFile || reservedBytes == 0) return file;

    if (Platform::resizeScratchFile(file, reservedBytes)) return file;
    const DWORD failure = GetLastError();
    CloseHandle(handleOf(file));
    SetLastError(failure);
    return kNoFile;
}

bool Platform::resizeScratchFile(int64_t file, uint64_t bytes) noexcept
{
    if (bytes > INT64_MAX) {
        SetLastError(native::kDiskFull);
        return false;
    }
    // Setting the end takes the room on disk.
    return Platform::seekFile(file, static_cast<int64_t>(bytes), 0) != kNoFile && Platform::endFileHere(file) &&
           Platform::seekFile(file, 0, 0) == 0;
}

bool Platform::closeFile(int64_t file) noexcept { return !isNone(file) && CloseHandle(handleOf(file)) != 0; }

// --- Moving bytes

namespace {

OVERLAPPED at(uint64_t offset) noexcept
{
    OVERLAPPED place = {};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

int64_t readBytes(int64_t file, void* buffer, uint32_t bytes, OVERLAPPED* place) noexcept
{
    DWORD moved = 0;
    if (isNone(file)) return kNoFile;
    if (ReadFile(handleOf(file), buffer, bytes, &moved, place)) return moved;
    // A pipe that nobody writes to any more has come to its end, as has a file.
    const DWORD error = GetLastError();
    return error == ERROR_BROKEN_PIPE || error == ERROR_HANDLE_EOF ? 0 : kNoFile;
}

int64_t writeBytes(int64_t file, const void* buffer, uint32_t bytes, OVERLAPPED* place) noexcept
{
    DWORD moved = 0;
    if (isNone(file)) return kNoFile;
    return WriteFile(handleOf(file), buffer, bytes, &moved, place) ? static_cast<int64_t>(moved) : kNoFile;
}

} // namespace

int64_t Platform::readFile(int64_t file, void* buffer, uint32_t bytes) noexcept
{
    return readBytes(file, buffer, bytes, nullptr);
}

int64_t Platform::writeFile(int64_t file, const void* buffer, uint32_t bytes) noexcept
{
    return writeBytes(file, buffer, bytes, nullptr);
}

void Platform::copyContent(int64_t, int64_t) noexcept {} // only whole files by their names

int64_t Platform::readFileAt(int64_t file, void* buffer, uint32_t bytes, uint64_t offset) noexcept
{
    OVERLAPPED place = at(offset);
    return readBytes(file, buffer, bytes, &place);
}

int64_t Platform::writeFileAt(int64_t file, const void* buffer, uint32_t bytes, uint64_t offset) noexcept
{
    OVERLAPPED place = at(offset);
    return writeBytes(file, buffer, bytes, &place);
}

void* Platform::mapFile(int64_t file, uint64_t offset, size_t bytes) noexcept
{
    if (isNone(file)) return nullptr;
    // The file's whole length: a section that is longer would make the file grow. The view holds the section.
    const HANDLE section = CreateFileMappingW(handleOf(file), nullptr, PAGE_READWRITE, 0, 0, nullptr);
    if (section == nullptr) return nullptr;
    void* const view = MapViewOfFile(section, FILE_MAP_READ | FILE_MAP_WRITE, static_cast<DWORD>(offset >> 32),
                                     static_cast<DWORD>(offset), bytes);
    const DWORD error = GetLastError();
    CloseHandle(section);
    SetLastError(error);
    return view;
}

void Platform::unmapFile(void* view, size_t) noexcept
{
    if (view != nullptr) UnmapViewOfFile(view);
}

int64_t Platform::seekFile(int64_t file, int64_t distance, int32_t origin) noexcept
{
    LARGE_INTEGER move, position;
    move.QuadPart = distance;
    if (isNone(file)) return kNoFile;
    const DWORD from = origin == 0 ? FILE_BEGIN : origin == 1 ? FILE_CURRENT : FILE_END;
    return SetFilePointerEx(handleOf(file), move, &position, from) ? position.QuadPart : kNoFile;
}

bool Platform::endFileHere(int64_t file) noexcept { return !isNone(file) && SetEndOfFile(handleOf(file)) != 0; }

// --- Names that are not opened

bool Platform::fileFacts(const R_WCHAR* name, FileFacts* facts) noexcept
{
    const SystemName path(name);
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!path || !GetFileAttributesExW(path.get(), GetFileExInfoStandard, &data)) return false;
    facts->size = (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    facts->folder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return true;
}

bool Platform::deleteFile(const R_WCHAR* name) noexcept
{
    const SystemName path(name);
    return path && DeleteFileW(path.get()) != 0;
}

bool Platform::moveFile(const R_WCHAR* from, const R_WCHAR* to, uint32_t flags) noexcept
{
    const SystemName source(from), target(to);
    return source && target && MoveFileExW(source.get(), target.get(), flags) != 0;
}

uint32_t Platform::temporaryFolder(R_WCHAR* buffer, uint32_t capacity) noexcept
{
    wchar_t folder[MAX_PATH + 2];
    const DWORD length = GetTempPathW(MAX_PATH + 1, folder);
    if (length == 0 || length > MAX_PATH) return 0;
    if (length < capacity) wmemcpy(buffer, folder, length + 1);
    return length + 1;
}

// --- Narrow text

size_t Platform::wideFromNarrow(R_WCHAR* buffer, size_t capacity, const char* text) noexcept
{
    const int units = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    if (units <= 0) return 0;
    if (static_cast<size_t>(units) <= capacity) MultiByteToWideChar(CP_ACP, 0, text, -1, buffer, units);
    return static_cast<size_t>(units);
}

size_t Platform::narrowFromWide(char* buffer, size_t capacity, const R_WCHAR* text) noexcept
{
    const int units = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (units <= 0) return 0;
    if (static_cast<size_t>(units) <= capacity)
        WideCharToMultiByte(CP_ACP, 0, text, -1, buffer, units, nullptr, nullptr);
    return static_cast<size_t>(units);
}

} // namespace rv
