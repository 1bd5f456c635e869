// A module that a client uses: found, loaded once however often it is asked for, its functions by name.
#include "Common/Text.h"
#include "Kernel/Base/Dispatch.h"
#include "Kernel/Base/System.h"
#include "Kernel/Services/DllLoaderTable.h"
#include "Kernel/Services/Modules.h"
#include "Platform/NativeErrors.h"

#include <algorithm>
#include <climits>
#include <iterator>
#include <new>

struct R_DllLoader::FunctionTable : rv::FunctionTable {};

using namespace rv;

namespace {

#if defined(_WIN32)
constexpr R_WCHAR kSeparator[] = RV_WIDE("\\");
constexpr R_WCHAR kBeside[] = RV_WIDE("..\\");

/// Loading from a folder sets the process's current one and puts it back: two at once would put back each other's.
constinit LazyLock currentFolder;
struct FolderHold {
    const LockGuard guard{currentFolder};
};
#else
constexpr R_WCHAR kSeparator[] = RV_WIDE("/");
constexpr R_WCHAR kBeside[] = RV_WIDE("../");

/// Nothing is set, and nothing may be held: whoever loads a module here may be a module that is being loaded, on a
/// thread that has the system loader's own lock.
struct FolderHold {};
#endif

/// Pieces of text as one; null without memory.
class JoinedText {
public:
    struct Piece {
        Piece(const R_WCHAR* whole) noexcept : text(whole), length(textLength(whole)) {} // implicit: it is one
        Piece(const R_WCHAR* start, size_t units) noexcept : text(start), length(units) {}
        const R_WCHAR* text;
        size_t length;
    };

    explicit JoinedText(std::initializer_list<Piece> pieces, size_t leastUnits = 1) noexcept
    {
        size_t units = 1;
        for (const Piece& piece : pieces) units += piece.length;
        units_ = std::max(units, leastUnits);
        text_ = static_cast<R_WCHAR*>(platform().allocate(units_ * sizeof(R_WCHAR)));
        if (text_ == nullptr) return;
        TextWriter<R_WCHAR> out(text_, units_);
        for (const Piece& piece : pieces) out.append(piece.text, piece.length);
    }
    ~JoinedText() { platform().release(text_); }
    JoinedText(const JoinedText&) = delete;
    JoinedText& operator=(const JoinedText&) = delete;

    explicit operator bool() const noexcept { return text_ != nullptr; }
    R_WCHAR* get() const noexcept { return text_; }
    size_t units() const noexcept { return units_; }

private:
    R_WCHAR* text_;
    size_t units_;
};

/// One search for a module.
class Search {
public:
    void* module() const noexcept { return module_; }
    bool outOfMemory() const noexcept { return outOfMemory_; }

    void byName(const R_WCHAR* name) noexcept
    {
        const R_WCHAR* const base = R_SkipPath(name);
        if (base != name) {
            if (take(platform().loadModule(name))) return;
            const JoinedText folder({{name, static_cast<size_t>(base - name)}});
            if (!folder) {
                outOfMemory_ = true;
                return;
            }
            inFolder(folder.get(), base);
        } else if (*moduleDirectory() != 0) {
            inFolder(moduleDirectory(), base);
        }
        if (module_ == nullptr && missing_) inPackageFolders(base);
    }

    /// With the load callback asked first: it can bring the module, send the search elsewhere, or end it.
    void byCallback(const LoadCallback& callback, const R_WCHAR* name) noexcept
    {
        constexpr size_t kLeastPathUnits = 1024;
        const JoinedText path({name}, kLeastPathUnits);
        if (!path) {
            outOfMemory_ = true;
            return;
        }
        void* module = nullptr;
        platform().setNativeError(native::kNone); // a callback that brings nothing may say why
        const auto units = static_cast<R_UINT>(std::min<size_t>(path.units(), UINT_MAX));
        const R_INT answer = callback.function(name, path.get(), units, &module, callback.userData);
        path.get()[path.units() - 1] = 0;
        if (answer == SUCCESS_ABORT)
            (void)take(module);
        else if (answer == SUCCESS && *path.get() != 0)
            byName(path.get());
    }

private:
    bool take(void* module) noexcept
    {
        const uint32_t error = module == nullptr ? platform().nativeError() : native::kNone;
        missing_ = error == native::kModuleNotFound || error == native::kFileNotFound || error == native::kPathNotFound;
        outOfMemory_ = outOfMemory_ || error == native::kNotEnoughMemory;
        module_ = acceptedModule(module);
        return module_ != nullptr;
    }

    /// A module of a folder, or one that the system finds by its bare name with that folder as one of the places.
    bool inFolder(const R_WCHAR* folder, const R_WCHAR* base) noexcept
    {
        const JoinedText path({folder, base});
        if (!path) {
            outOfMemory_ = true;
            return false;
        }
        if (take(platform().loadModule(path.get()))) return true;
        [[maybe_unused]] const FolderHold hold;
        return take(platform().loadModuleFrom(folder, base));
    }

    /// Modules may have been installed as packages, each area with a folder ravokit.<area> of its own: in the modules'
    /// folder, or beside it.
    void inPackageFolders(const R_WCHAR* base) noexcept;
    bool inPackageFolder(const R_WCHAR* root, const R_WCHAR* area, const R_WCHAR* base) noexcept
    {
        const JoinedText path({moduleDirectory(), root, RV_WIDE("ravokit."), area, kSeparator, base});
        if (!path) {
            outOfMemory_ = true;
            return false;
        }
        return take(platform().loadModule(path.get()));
    }

    void* module_ = nullptr;
    bool missing_ = false; // at the last place
    bool outOfMemory_ = false;
};

struct PackageArea {
    const char* modules; ///< what their names begin with, in small letters
    const R_WCHAR* name;
};

constexpr PackageArea kPackageAreas[] = {
    {"rvmrc", RV_WIDE("mrc")},      {"rvdic", RV_WIDE("dicom")},     {"rvmedical3d", RV_WIDE("dicom")},
    {"rvpdf", RV_WIDE("pdf")},      {"rfpdf", RV_WIDE("pdf")},       {"rvsvg", RV_WIDE("svg")},
    {"rvjp2", RV_WIDE("jpeg2000")}, {"rvjpip", RV_WIDE("jpeg2000")},
};

bool beginsWith(const R_WCHAR* name, const char* small) noexcept
{
    for (; *small != 0; ++small, ++name) {
        const R_WCHAR unit = *name >= 'A' && *name <= 'Z' ? static_cast<R_WCHAR>(*name + ('a' - 'A')) : *name;
        if (unit != static_cast<R_WCHAR>(*small)) return false;
    }
    return true;
}

const R_WCHAR* packageAreaOf(const R_WCHAR* base) noexcept
{
    for (const PackageArea& area : kPackageAreas)
        if (beginsWith(base, area.modules)) return area.name;
    return RV_WIDE("kernel");
}

void Search::inPackageFolders(const R_WCHAR* base) noexcept
{
    if (*moduleDirectory() == 0) return;
    const R_WCHAR* const area = packageAreaOf(base);
    if (!inPackageFolder(RV_WIDE(""), area, base)) (void)inPackageFolder(kBeside, area, base);
}

/// Tells the developer what a missing module will make callers answer.
void reportMissing(const R_WCHAR* name) noexcept
{
    const uint32_t error = platform().nativeError();
    const R_INT status = missingModuleStatus(moduleOfFile(R_SkipPath(name)));
    Trace1W(RV_WIDE("R_DllLoader"), RV_WIDE("\n%s could not be loaded: status %d, native error %u"), name, status,
            static_cast<unsigned>(error));
    platform().setNativeError(error);
}

} // namespace

R_DllLoader::R_DllLoader() noexcept
    : m_hModule(nullptr), m_pFunctions(nullptr), m_nLoadCount(0), m_bOutOfMemory(0), m_szName{}, m_bErrorIfMissing(0)
{
}

R_DllLoader::~R_DllLoader()
{
    Free();
    if (m_pFunctions == nullptr) return;
    m_pFunctions->~FunctionTable();
    platform().release(m_pFunctions);
}

R_INT R_DllLoader::Load() noexcept
{
    R_WCHAR name[sizeof m_szName / sizeof(R_WCHAR)]; // what the loading writes is the very place that it stands in
    std::copy(std::begin(m_szName), std::end(m_szName), name);
    return LoadLibName(name, nullptr);
}

R_INT R_DllLoader::LoadLib(RV_LIBID nLibId, int nFormatId, const void* pReserved) noexcept
{
    R_WCHAR name[64];
    if (R_GetLibName(0, nLibId, nFormatId, name, static_cast<R_UINT>(std::size(name))) != SUCCESS) name[0] = 0;
    return LoadLibName(name, pReserved);
}

R_INT R_DllLoader::LoadLibName(const R_WCHAR* pszName, const void*) noexcept
{
    if (m_nLoadCount == INT_MAX) return FAILURE;
    if (m_nLoadCount > 0) {
        ++m_nLoadCount;
        return SUCCESS;
    }
    m_bOutOfMemory = 0;
    if (pszName == nullptr || *pszName == 0) return FAILURE;

    Search search;
    const LoadCallback callback = loadCallback();
    if (callback.function != nullptr)
        search.byCallback(callback, pszName);
    else
        search.byName(pszName);
    if (search.module() == nullptr) {
        m_bOutOfMemory = search.outOfMemory() ? 1 : 0;
        if (m_bErrorIfMissing != 0) reportMissing(pszName);
        return FAILURE;
    }
    m_hModule = search.module();
    TextWriter<R_WCHAR>(m_szName, std::size(m_szName)).append(pszName);
    if (m_pFunctions != nullptr) m_pFunctions->resolve(m_hModule);
    m_nLoadCount = 1;
    return SUCCESS;
}

R_INT R_DllLoader::Unload() noexcept
{
    if (m_nLoadCount <= 0) return FAILURE;
    if (m_nLoadCount == 1)
        Free();
    else
        --m_nLoadCount;
    return SUCCESS;
}

void R_DllLoader::Free() noexcept
{
    if (m_pFunctions != nullptr) m_pFunctions->resolve(nullptr);
    platform().freeModule(m_hModule);
    m_hModule = nullptr;
    m_nLoadCount = 0;
}

R_INT R_DllLoader::IsLoaded() const noexcept { return m_hModule != nullptr ? 1 : 0; }
void* R_DllLoader::GetHInstance() const noexcept { return m_hModule; }

R_INT R_DllLoader::AddFunction(const char* pszName) noexcept
{
    if (pszName == nullptr || *pszName == 0) return ERROR_INV_PARAMETER;
    if (m_pFunctions == nullptr) {
        void* const memory = platform().allocate(sizeof(FunctionTable));
        if (memory == nullptr) return ERROR_FAILURE;
        m_pFunctions = new (memory) FunctionTable;
    }
    return m_pFunctions->add(pszName, m_hModule);
}

R_INT R_DllLoader::AddFunction(const char* pszName, int) noexcept { return AddFunction(pszName); }

void* R_DllLoader::GetFunction(const char* pszName) const noexcept
{
    if (pszName == nullptr || m_hModule == nullptr) return nullptr;
    const auto* const entry = m_pFunctions != nullptr ? m_pFunctions->find(pszName) : nullptr;
    return entry != nullptr ? entry->address : platform().moduleFunction(m_hModule, pszName);
}

R_INT R_DllLoader::IsFunctionOk(const char* pszName) const noexcept { return GetFunction(pszName) != nullptr ? 1 : 0; }
R_INT R_DllLoader::GetErrorIfMissing() const noexcept { return m_bErrorIfMissing; }
void R_DllLoader::SetErrorIfMissing(int bError) noexcept { m_bErrorIfMissing = bError != 0 ? 1 : 0; }
R_INT R_DllLoader::IsSystemOutOfMemory() const noexcept { return m_bOutOfMemory; }

R_INT R_DllLoader::GetDir(const R_WCHAR* pszPath, const R_WCHAR** ppszBase, R_WCHAR* pszBuffer,
                          R_UINT uBufferChars) noexcept
{
    if (pszPath == nullptr || pszBuffer == nullptr || uBufferChars == 0) return ERROR_INV_PARAMETER;
    const R_WCHAR* const base = R_SkipPath(pszPath);
    TextWriter<R_WCHAR>(pszBuffer, uBufferChars).append(pszPath, static_cast<size_t>(base - pszPath));
    if (ppszBase != nullptr) *ppszBase = base;
    return SUCCESS;
}
