// The sets that are in force: the process's, the thread's, and that of temporary files.
#include "Kernel/Services/Redirect.h"

#include "Kernel/Base/System.h"
#include "Kernel/Services/Osys.h"
#include "Kernel/Services/TempFile.h"

#include <utility>

namespace rv {
namespace {

constexpr R_UINT kNoMoreModes = 2; // counts as no caching; more is refused

/// Sets of the process; a size of 0 says that nobody has asked for one yet.
struct ProcessSets {
    LazyLock lock;
    R_UINT caching = FILE_CACHING_NONE;
    REDIRECTSET current{};
    REDIRECTSET tempFile{};
};
constinit ProcessSets sets;

void releaseSets() noexcept
{
    const LockGuard guard(sets.lock);
    sets.caching = FILE_CACHING_NONE;
    sets.current = sets.tempFile = REDIRECTSET();
}
constinit ReleaseAtDetach setsRelease(releaseSets);

bool isOs(REDIRECTOPEN pfn) noexcept { return isOsOpen(pfn); }
bool isOs(REDIRECTREAD pfn) noexcept { return isOsRead(pfn); }
bool isOs(REDIRECTWRITE pfn) noexcept { return isOsWrite(pfn); }
bool isOs(REDIRECTSEEK pfn) noexcept { return isOsSeek(pfn); }
bool isOs(REDIRECTCLOSE pfn) noexcept { return isOsClose(pfn); }
bool isOs(REDIRECTCOPY) noexcept { return false; }
bool isOs(REDIRECTDELETE) noexcept { return false; }

/// Whether an operation is one of the small numbers that stand for something else.
template <class Operation> bool stands(Operation operation, intptr_t number) noexcept
{
    return reinterpret_cast<intptr_t>(operation) == number;
}

/// The caller holds the lock.
REDIRECTSET& processSet() noexcept
{
    if (sets.current.uStructSize == 0) {
        setsRelease.registerOnce();
        sets.current = sets.caching == FILE_CACHING_BUFFERED ? bufferedRedirectSet() : kOsRedirectSet;
    }
    return sets.current;
}
REDIRECTSET& tempSet() noexcept
{
    if (sets.tempFile.uStructSize == 0) {
        setsRelease.registerOnce();
        sets.tempFile = kMemoryRedirectSet;
    }
    return sets.tempFile;
}

/// Lays what is not empty over a set.
void overlay(REDIRECTSET& set, const REDIRECTSET& upper) noexcept
{
    forAllOperations([&](auto operation, auto data) {
        if (upper.*operation == nullptr) return;
        set.*operation = upper.*operation;
        set.*data = upper.*data;
    });
}

/// A clean set whose empty operations are the defaults.
REDIRECTSET fullSet(const REDIRECTSET& given, const REDIRECTSET& defaults) noexcept
{
    REDIRECTSET set = defaults;
    overlay(set, cleanSet(given, defaults));
    return set;
}

Status checkSet(const REDIRECTSET* set, R_UINT structSize) noexcept
{
    if (set == nullptr) return ERROR_NULL_PTR;
    return structSize == REDIRECTSET_SIZE ? SUCCESS : ERROR_INV_STRUCT_SIZE;
}
Status checkSet(const REDIRECTSET* set) noexcept
{
    if (set == nullptr) return ERROR_NULL_PTR;
    return checkSet(set, static_cast<R_UINT>(set->uStructSize));
}

} // namespace

void takeFirstOperations(REDIRECTSET& set, const REDIRECTSET& from) noexcept
{
    forFirstOperations([&](auto operation, auto data) {
        set.*operation = from.*operation;
        set.*data = from.*data;
    });
}

REDIRECTSET cleanSet(const REDIRECTSET& given, const REDIRECTSET& defaults) noexcept
{
    REDIRECTSET set{};
    set.uStructSize = REDIRECTSET_SIZE;
    forAllOperations([&](auto operation, auto data) {
        if (stands(given.*operation, REDIRECT_NO_OPERATION)) return;
        const bool restored = stands(given.*operation, REDIRECT_RESTORE_OPERATION);
        set.*operation = restored                 ? defaults.*operation
                         : isOs(given.*operation) ? kOsRedirectSet.*operation
                                                  : given.*operation;
        set.*data = restored ? defaults.*data : given.*data;
    });
    return set;
}

REDIRECTSET currentRedirectSet(bool processOnly) noexcept
{
    REDIRECTSET set;
    {
        const LockGuard guard(sets.lock);
        set = processSet();
    }
    if (!processOnly) overlay(set, threadSettings().redirect);
    return set;
}

REDIRECTSET tempFileRedirectSet() noexcept
{
    const LockGuard guard(sets.lock);
    return tempSet();
}

REDIRECTSET bufferedRedirectSet() noexcept
{
    REDIRECTSET set = kOsRedirectSet;
    set.pfnOpen = R_BufferedOpen;
    set.pfnRead = R_BufferedRead;
    set.pfnWrite = R_BufferedWrite;
    set.pfnSeek = R_BufferedSeek;
    set.pfnClose = R_BufferedClose;
    return set;
}

bool isOsSet(const REDIRECTSET& set) noexcept
{
    return isOs(set.pfnOpen) && isOs(set.pfnRead) && isOs(set.pfnWrite) && isOs(set.pfnSeek) && isOs(set.pfnClose);
}

bool isDefaultSet(const REDIRECTSET& set) noexcept
{
    const auto either = [](auto operation, auto buffered) { return isOs(operation) || operation == buffered; };
    // User data of the buffered open is the set below: another than the default.
    if (set.pfnOpen == R_BufferedOpen && set.pOpenData != nullptr) return false;
    return either(set.pfnOpen, R_BufferedOpen) && either(set.pfnRead, R_BufferedRead) &&
           either(set.pfnWrite, R_BufferedWrite) && either(set.pfnSeek, R_BufferedSeek) &&
           either(set.pfnClose, R_BufferedClose);
}

bool isBufferedSet(const REDIRECTSET& set) noexcept
{
    return set.pfnOpen == R_BufferedOpen || set.pfnRead == R_BufferedRead || set.pfnWrite == R_BufferedWrite ||
           set.pfnSeek == R_BufferedSeek || set.pfnClose == R_BufferedClose;
}

} // namespace rv

using namespace rv;

R_INT R_RedirectIO(REDIRECTOPEN pfnOpen, REDIRECTREAD pfnRead, REDIRECTWRITE pfnWrite, REDIRECTSEEK pfnSeek,
                   REDIRECTCLOSE pfnClose, void* pUserData) noexcept
{
    REDIRECTSET given{};
    given.pfnOpen = pfnOpen;
    given.pfnRead = pfnRead;
    given.pfnWrite = pfnWrite;
    given.pfnSeek = pfnSeek;
    given.pfnClose = pfnClose;
    forFirstOperations([&](auto operation, auto data) {
        if (given.*operation == nullptr) given.*operation = kOsRedirectSet.*operation;
        given.*data = pUserData;
    });
    takeFirstOperations(threadSettings().redirect, cleanSet(given, kOsRedirectSet));
    return SUCCESS;
}

R_INT R_GetRedirectFunctions(REDIRECTSET* pSet, R_UINT uStructSize, R_UINT uKind, R_INT bProcessOnly) noexcept
{
    R_TRY(checkSet(pSet, uStructSize));
    switch (uKind) {
    case REDIRECT_CURRENT: *pSet = currentRedirectSet(bProcessOnly != 0); return SUCCESS;
    case REDIRECT_TEMPFILE: *pSet = tempFileRedirectSet(); return SUCCESS;
    case REDIRECT_MEMORY: *pSet = kMemoryRedirectSet; return SUCCESS;
    case REDIRECT_OS: *pSet = kOsRedirectSet; return SUCCESS;
    case REDIRECT_BUFFERED: *pSet = bufferedRedirectSet(); return SUCCESS;
    default: return ERROR_INV_PARAMETER;
    }
}

R_INT R_GetRedirectFunctions2(REDIRECTSET* pSet, R_UINT uStructSize) noexcept
{
    return R_GetRedirectFunctions(pSet, uStructSize, REDIRECT_CURRENT, 1);
}

R_INT R_GetRedirectFunctions3(R_INT64 hFile, REDIRECTSET* pSet, R_UINT uStructSize) noexcept
{
    const RedirectedFile* const file = redirectedFile(hFile);
    if (file == nullptr) return ERROR_INV_HANDLE;
    R_TRY(checkSet(pSet, uStructSize));
    *pSet = file->set;
    return SUCCESS;
}

R_INT R_SetRedirectFunctions(const REDIRECTSET* pSet, R_UINT uKind, R_INT bProcessWide) noexcept
{
    R_TRY(checkSet(pSet));
    if (uKind == REDIRECT_MEMORY) return ERROR_FEATURE_NOT_SUPPORTED;
    if (uKind != REDIRECT_CURRENT && uKind != REDIRECT_TEMPFILE) return ERROR_INV_PARAMETER;
    if (uKind == REDIRECT_CURRENT && bProcessWide == 0) {
        threadSettings().redirect = cleanSet(*pSet, kOsRedirectSet);
        return SUCCESS;
    }
    const LockGuard guard(sets.lock);
    if (uKind == REDIRECT_TEMPFILE)
        tempSet() = fullSet(*pSet, kMemoryRedirectSet);
    else
        processSet() = fullSet(*pSet, kOsRedirectSet);
    return SUCCESS;
}

R_INT R_ExtractRedirectFunctions(REDIRECTSET* pSet, R_UINT uStructSize) noexcept
{
    R_TRY(checkSet(pSet, uStructSize));
    *pSet = std::exchange(threadSettings().redirect, REDIRECTSET());
    pSet->uStructSize = REDIRECTSET_SIZE;
    return SUCCESS;
}

R_INT R_UpdateRedirectFunctions(const REDIRECTSET* pSet) noexcept
{
    R_TRY(checkSet(pSet));
    REDIRECTSET& own = threadSettings().redirect;
    const REDIRECTSET clean = cleanSet(*pSet, kOsRedirectSet);
    forAllOperations([&](auto operation, auto data) {
        if (pSet->*operation == nullptr) return;
        own.*operation = clean.*operation;
        own.*data = clean.*data;
    });
    return SUCCESS;
}

R_INT R_SetFileCaching(R_UINT uMode) noexcept
{
    if (uMode > kNoMoreModes) return ERROR_INV_PARAMETER;
    if (uMode == kNoMoreModes) uMode = FILE_CACHING_NONE;
    const LockGuard guard(sets.lock);
    setsRelease.registerOnce();
    if (std::exchange(sets.caching, uMode) != uMode) sets.current = REDIRECTSET(); // made anew when it is asked for
    return SUCCESS;
}

R_INT R_GetFileCaching(R_UINT* puMode) noexcept
{
    if (puMode == nullptr) return ERROR_NULL_PTR;
    const LockGuard guard(sets.lock);
    *puMode = sets.caching;
    return SUCCESS;
}
