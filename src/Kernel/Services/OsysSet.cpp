// The handle layer as a set of operations.
#include "Internal/R_Int.h"
#include "Kernel/Services/Osys.h"
#include "Platform/Platform.h"

namespace rv {
namespace {

R_INT64 osOpen(const R_WCHAR* name, R_INT mode, R_INT permission, void*) noexcept
{
    return R_OsOpen(name, mode, permission);
}
R_INT osRead(R_INT64 file, void* buffer, R_UINT bytes, void*) noexcept { return R_OsRead(file, buffer, bytes); }
R_INT osWrite(R_INT64 file, const void* buffer, R_UINT bytes, void*) noexcept { return R_OsWrite(file, buffer, bytes); }
R_INT64 osSeek(R_INT64 file, R_INT64 distance, R_INT origin, void*) noexcept
{
    return R_OsSeek(file, distance, origin);
}
R_INT osClose(R_INT64 file, void*) noexcept { return R_OsClose(file); }
R_INT osCopy(const R_WCHAR* source, const R_WCHAR* target, R_UINT flags, void*) noexcept
{
    return copyFileThrough(source, target, flags);
}
R_INT osDelete(const R_WCHAR* name, void*) noexcept
{
    return platform().deleteFile(name) ? SUCCESS : R_OsGetLastError(ERROR_FILE_DELETE);
}

/// Whether an operation is `own`, or the exported call that a program has cast to an operation.
template <class Operation, class Exported> bool isOneOf(Operation operation, Operation own, Exported exported) noexcept
{
    using Any = void (*)();
    return operation == own || reinterpret_cast<Any>(operation) == reinterpret_cast<Any>(exported);
}

} // namespace

const REDIRECTSET kOsRedirectSet = {REDIRECTSET_SIZE, osOpen,  nullptr, osRead, nullptr, osWrite,  nullptr, osSeek,
                                    nullptr,          osClose, nullptr, osCopy, nullptr, osDelete, nullptr};

bool isOsOpen(REDIRECTOPEN pfn) noexcept { return isOneOf<REDIRECTOPEN>(pfn, osOpen, &R_OsOpen); }
bool isOsRead(REDIRECTREAD pfn) noexcept { return isOneOf<REDIRECTREAD>(pfn, osRead, &R_OsRead); }
bool isOsWrite(REDIRECTWRITE pfn) noexcept { return isOneOf<REDIRECTWRITE>(pfn, osWrite, &R_OsWrite); }
bool isOsSeek(REDIRECTSEEK pfn) noexcept { return isOneOf<REDIRECTSEEK>(pfn, osSeek, &R_OsSeek); }
bool isOsClose(REDIRECTCLOSE pfn) noexcept { return isOneOf<REDIRECTCLOSE>(pfn, osClose, &R_OsClose); }

} // namespace rv
