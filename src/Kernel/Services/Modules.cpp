// Where modules are, what they are called with their folder, and who has a say in loading them.
#include "Kernel/Services/Modules.h"

#include "Common/Text.h"
#include "Kernel/Base/System.h"

#include <algorithm>

using namespace rv;

namespace {

/// As long as any path that a system gives.
constexpr uint32_t kFolderUnits = 4096;

struct Directory {
    LazyLock lock;
    std::atomic<bool> known{false};
    R_WCHAR path[kFolderUnits] = {};
};
constinit Directory directory;
constinit ReleaseAtDetach forgetDirectory{[]() noexcept { directory.known.store(false, std::memory_order_relaxed); }};

struct Callback {
    LazyLock lock;
    LoadCallback current;
};
constinit Callback callback;

bool isThere(const R_WCHAR* name) noexcept
{
    FileFacts facts;
    return platform().fileFacts(name, &facts) && !facts.folder;
}

/// The file itself, or what a module of this name is called here.
bool isThereBySomeName(const R_WCHAR* name) noexcept
{
    if (isThere(name)) return true;
    R_WCHAR local[kFolderUnits];
    return platform().localModuleName(name, local, kFolderUnits) && isThere(local);
}

} // namespace

bool rv::acceptsModule(void*) noexcept { return true; }

void* rv::acceptedModule(void* module) noexcept
{
    if (module == nullptr || acceptsModule(module)) return module;
    platform().freeModule(module);
    return nullptr;
}

const R_WCHAR* rv::moduleDirectory() noexcept
{
    if (!directory.known.load(std::memory_order_acquire)) {
        R_WCHAR found[kFolderUnits]; // before the lock: the system's loader, which is asked, has one of its own
        const uint32_t units = platform().libraryFolder(found, kFolderUnits);
        const LockGuard guard(directory.lock);
        if (!directory.known.load(std::memory_order_relaxed) && units != 0 && units <= kFolderUnits) {
            std::copy_n(found, units, directory.path);
            directory.known.store(true, std::memory_order_release);
            forgetDirectory.registerOnce();
        }
    }
    return directory.known.load(std::memory_order_acquire) ? directory.path : RV_WIDE("");
}

void* rv::loadSystemModule(std::initializer_list<const R_WCHAR*> names) noexcept
{
    for (const R_WCHAR* const name : names)
        if (void* const module = acceptedModule(platform().loadModule(name))) return module;
    return nullptr;
}

LoadCallback rv::loadCallback() noexcept
{
    const LockGuard guard(callback.lock);
    return callback.current;
}

R_INT R_GetLibFullPath(const R_WCHAR* pszName, R_WCHAR* pszBuffer, R_UINT uBufferChars) noexcept
{
    if (pszName == nullptr || pszBuffer == nullptr || uBufferChars == 0) return ERROR_INV_PARAMETER;
    TextWriter<R_WCHAR> out(pszBuffer, uBufferChars);
    out.append(moduleDirectory());
    out.append(pszName);
    return SUCCESS;
}

const R_WCHAR* R_SkipPath(const R_WCHAR* pszPath) noexcept
{
    if (pszPath == nullptr) return nullptr;
    const R_WCHAR* base = pszPath;
    for (const R_WCHAR* at = pszPath; *at != 0; ++at)
        if (*at == ':' || *at == '\\' || *at == '/') base = at + 1;
    return base;
}

R_INT R_IsMissingFile(const R_WCHAR* pszName) noexcept
{
    if (pszName == nullptr || *pszName == 0) return 1;
    if (isThereBySomeName(pszName)) return 0;
    if (R_SkipPath(pszName) != pszName || *moduleDirectory() == 0) return 1;
    R_WCHAR path[kFolderUnits];
    TextWriter<R_WCHAR> out(path, kFolderUnits);
    out.append(moduleDirectory());
    out.append(pszName);
    return !out.cut() && isThereBySomeName(path) ? 0 : 1;
}

R_INT R_SetLoadLibCallback(LOADLIBCALLBACK pfnCallback, void* pUserData) noexcept
{
    const LockGuard guard(callback.lock);
    callback.current = {pfnCallback, pUserData};
    return SUCCESS;
}

LOADLIBCALLBACK R_GetLoadLibCallback(void** ppUserData) noexcept
{
    const LoadCallback current = loadCallback();
    if (ppUserData != nullptr) *ppUserData = current.userData;
    return current.function;
}
