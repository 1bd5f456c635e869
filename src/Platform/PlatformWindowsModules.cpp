// The door on Windows: modules.
#include "Platform/NativeErrors.h"
#include "Platform/Platform.h"

#include <cstdlib>
#include <cwchar>

namespace rv {
namespace {

/// While it lives, what goes wrong on this thread shows no message box. The native error passes it untouched.
class QuietErrors {
public:
    QuietErrors() noexcept { SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &before_); }
    ~QuietErrors()
    {
        const DWORD error = GetLastError();
        SetThreadErrorMode(before_, nullptr);
        SetLastError(error);
    }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;

private:
    DWORD before_ = 0;
};

/// While it lives, the process's current folder is another, where that can be undone again.
class CurrentFolder {
public:
    explicit CurrentFolder(const wchar_t* folder) noexcept
    {
        const DWORD units = GetCurrentDirectoryW(0, nullptr); // with the terminator
        before_ = static_cast<wchar_t*>(std::malloc((size_t{units} + 1) * sizeof(wchar_t)));
        if (before_ == nullptr) return;
        const DWORD length = GetCurrentDirectoryW(units, before_);
        changed_ = length != 0 && length < units && SetCurrentDirectoryW(folder);
    }
    ~CurrentFolder()
    {
        const DWORD error = GetLastError();
        if (changed_) SetCurrentDirectoryW(before_);
        std::free(before_);
        SetLastError(error);
    }
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

    bool outOfMemory() const noexcept { return before_ == nullptr; }

private:
    wchar_t* before_;
    bool changed_ = false;
};

/// Handles up to 32 have always been error numbers.
constexpr uintptr_t kLastErrorHandle = 32;

void* load(const wchar_t* name) noexcept
{
    if (name == nullptr || *name == 0) {
        SetLastError(native::kModuleNotFound);
        return nullptr;
    }
    const QuietErrors quiet;
    const HMODULE module = LoadLibraryW(name);
    return reinterpret_cast<uintptr_t>(module) > kLastErrorHandle ? module : nullptr;
}

} // namespace

void* Platform::loadModule(const R_WCHAR* path) noexcept { return load(path); }

void* Platform::loadModuleFrom(const R_WCHAR* folder, const R_WCHAR* name) noexcept
{
    const CurrentFolder current(folder); // the system's search looks there, for what the module needs too
    if (!current.outOfMemory()) return load(name);
    SetLastError(native::kNotEnoughMemory);
    return nullptr;
}

void* Platform::moduleFunction(void* module, const char* name) noexcept
{
    if (module == nullptr || name == nullptr) return nullptr;
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

void Platform::freeModule(void* module) noexcept
{
    if (module != nullptr) FreeLibrary(static_cast<HMODULE>(module));
}

bool Platform::localModuleName(const R_WCHAR*, R_WCHAR*, uint32_t) noexcept { return false; }

uint32_t Platform::libraryFolder(R_WCHAR* buffer, uint32_t capacity) noexcept
{
    HMODULE library = nullptr;
    const auto* const inside = reinterpret_cast<const wchar_t*>(&kLastErrorHandle); // something of this library
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            inside, &library))
        return 0;
    wchar_t path[4096];
    const DWORD length = GetModuleFileNameW(library, path, 4096);
    if (length == 0 || length >= 4096) return 0;
    wchar_t* const slash = std::wcsrchr(path, L'\\');
    if (slash == nullptr) return 0;
    const auto units = static_cast<uint32_t>(slash + 2 - path);
    if (units > capacity) return units;
    std::wmemcpy(buffer, path, units - 1);
    buffer[units - 1] = 0;
    return units;
}

} // namespace rv
