// The door on POSIX systems: modules.
#include "Platform/NativeErrors.h"
#include "Platform/Platform.h"
#include "Platform/PlatformPosixNames.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <dlfcn.h>
#include <string_view>
#include <unistd.h>

namespace rv {
namespace {

using WideView = std::basic_string_view<R_WCHAR>;

/// The loader tells what was wrong in words alone. They carry the system's text of an error number, in the language of
/// both.
bool tells(const char* text, int error) noexcept
{
    char place[256];
    return std::strstr(text, strerror_r(error, place, sizeof place)) != nullptr;
}

uint32_t loaderError() noexcept
{
    const char* const text = dlerror();
    if (text == nullptr) return native::kModuleNotFound;
    if (tells(text, ENOMEM) || std::strstr(text, "out of memory") != nullptr) return native::kNotEnoughMemory;
    if (tells(text, ENOENT) || tells(text, ENOTDIR)) return native::kModuleNotFound;
    return tells(text, EACCES) ? native::kAccessDenied : native::kBadModule;
}

/// Loads one file; *error is kNone or says why not.
void* load(const R_WCHAR* path, uint32_t* error) noexcept
{
    const PosixName name(path);
    if (!name) {
        *error = platform().nativeError();
        return nullptr;
    }
    void* const module = dlopen(name.get(), RTLD_NOW | RTLD_LOCAL);
    *error = module != nullptr ? native::kNone : loaderError();
    return module;
}

constexpr bool isSeparator(R_WCHAR unit) noexcept { return unit == u'/' || unit == u'\\'; }
constexpr R_WCHAR lower(R_WCHAR unit) noexcept
{
    return unit >= u'A' && unit <= u'Z' ? static_cast<R_WCHAR>(unit + (u'a' - u'A')) : unit;
}

/// The NAME of a base name NAMEX.DLL, or NAME.DLL; empty for any other.
WideView moduleStem(WideView base) noexcept
{
    constexpr WideView kEnding = u".dll";
    if (base.size() <= kEnding.size()) return {};
    for (size_t i = 0; i < kEnding.size(); ++i)
        if (lower(base[base.size() - kEnding.size() + i]) != kEnding[i]) return {};
    base.remove_suffix(kEnding.size());
    if (base.size() > 1 && lower(base.back()) == u'x') base.remove_suffix(1);
    return base;
}

/// Adds a text to what stands in a buffer of `capacity` units; false where it does not fit.
bool add(R_WCHAR* buffer, size_t capacity, size_t* length, WideView text) noexcept
{
    if (text.size() >= capacity - *length) return false;
    std::memcpy(buffer + *length, text.data(), text.size() * sizeof(R_WCHAR));
    *length += text.size();
    buffer[*length] = 0;
    return true;
}

/// Something of this library, to find out what it was loaded from.
void landmark() noexcept {}

} // namespace

bool Platform::localModuleName(const R_WCHAR* path, R_WCHAR* buffer, uint32_t capacity) noexcept
{
    if (path == nullptr || capacity == 0) return false;
    const WideView whole(path);
    size_t folder = whole.size();
    while (folder > 0 && !isSeparator(whole[folder - 1])) --folder;
    const WideView stem = moduleStem(whole.substr(folder));
    size_t length = 0;
    return !stem.empty() && add(buffer, capacity, &length, whole.substr(0, folder)) &&
           add(buffer, capacity, &length, u"lib") && add(buffer, capacity, &length, stem) &&
           add(buffer, capacity, &length, u".so");
}

void* Platform::loadModule(const R_WCHAR* path) noexcept
{
    uint32_t error = native::kNone;
    void* module = load(path, &error);
    R_WCHAR local[PATH_MAX];
    if (module == nullptr && localModuleName(path, local, PATH_MAX)) {
        uint32_t localError = native::kNone;
        module = load(local, &localError);
        if (error == native::kModuleNotFound) error = localError; // what is wrong with a file there is says more
    }
    if (module == nullptr) setNativeError(error);
    return module;
}

void* Platform::loadModuleFrom(const R_WCHAR* folder, const R_WCHAR* name) noexcept
{
    // The system's search knows of no current folder: the folder itself comes first, then that search.
    R_WCHAR path[PATH_MAX];
    size_t length = 0;
    if (folder != nullptr && name != nullptr && add(path, PATH_MAX, &length, folder) &&
        (length == 0 || isSeparator(path[length - 1]) || add(path, PATH_MAX, &length, u"/")) &&
        add(path, PATH_MAX, &length, name)) {
        void* const module = Platform::loadModule(path);
        if (module != nullptr || nativeError() != native::kModuleNotFound) return module;
    }
    return Platform::loadModule(name);
}

void* Platform::moduleFunction(void* module, const char* name) noexcept
{
    return module != nullptr && name != nullptr ? dlsym(module, name) : nullptr;
}

void Platform::freeModule(void* module) noexcept
{
    if (module != nullptr) dlclose(module);
}

uint32_t Platform::libraryFolder(R_WCHAR* buffer, uint32_t capacity) noexcept
{
    Dl_info library;
    if (dladdr(reinterpret_cast<const void*>(&landmark), &library) == 0 || library.dli_fname == nullptr) return 0;
    const char* const slash = std::strrchr(library.dli_fname, '/');
    if (slash == nullptr) return 0; // a program that was found in PATH
    char folder[PATH_MAX] = "";
    if (library.dli_fname[0] != '/') { // by a path from the folder that was current then, and is likely to be still
        if (getcwd(folder, sizeof folder) == nullptr) return 0;
        std::strncat(folder, "/", sizeof folder - std::strlen(folder) - 1);
    }
    const size_t before = std::strlen(folder), length = static_cast<size_t>(slash - library.dli_fname) + 1;
    if (length >= sizeof folder - before) return 0;
    std::memcpy(folder + before, library.dli_fname, length);
    folder[before + length] = 0;
    return static_cast<uint32_t>(wideFromNarrow(buffer, capacity, folder));
}

} // namespace rv
