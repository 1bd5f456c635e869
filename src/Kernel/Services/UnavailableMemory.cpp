// Where there are no files in memory, temporary files are files on disk, and small files are read where they are.
// Goes when they come.
#include "Kernel/Services/Osys.h"
#include "Kernel/Services/TempFile.h"

namespace rv {
namespace {

R_INT64 open(const R_WCHAR* name, R_INT mode, R_INT permission, void*) noexcept
{
    return R_OsOpen(name, mode, permission);
}
R_INT read(R_INT64 file, void* buffer, R_UINT bytes, void*) noexcept { return R_OsRead(file, buffer, bytes); }
R_INT write(R_INT64 file, const void* buffer, R_UINT bytes, void*) noexcept { return R_OsWrite(file, buffer, bytes); }
R_INT64 seek(R_INT64 file, R_INT64 distance, R_INT origin, void*) noexcept { return R_OsSeek(file, distance, origin); }
R_INT close(R_INT64 file, void*) noexcept { return R_OsClose(file); }
R_INT copy(const R_WCHAR* source, const R_WCHAR* target, R_UINT flags, void* userData) noexcept
{
    return kOsRedirectSet.pfnCopy(source, target, flags, userData);
}
R_INT remove(const R_WCHAR* name, void* userData) noexcept { return kOsRedirectSet.pfnDelete(name, userData); }

} // namespace

constinit const REDIRECTSET kMemoryRedirectSet = {REDIRECTSET_SIZE, open,   nullptr, read,  nullptr, write,
                                                  nullptr,          seek,   nullptr, close, nullptr, copy,
                                                  nullptr,          remove, nullptr};

R_INT64 holdSmallFile(R_INT64, void*, R_UINT64, bool) noexcept { return R_INVALID_FILE; }

} // namespace rv
