#include "Support/Calls.h"
#include "Support/Folder.h"

#include "Internal/R_Int.h"

namespace rv::test {

namespace {

/// What f makes of an open file of nine bytes; 1 when it closed well, too.
template <class F> R_INT64 withFile(F f)
{
    const Folder folder;
    folder.write("file", "nine byte");
    const R_INT64 file = R_OsOpen((folder / "file").c_str(), FILE_MODE_READ_WRITE, 0);
    if (file == R_INVALID_FILE) return ERROR_FAILURE;
    const bool done = f(file);
    const bool closed = R_OsClose(file) == 0;
    return as(done && closed);
}

/// What f makes of a folder with one file, "file"; 1 when another, "new", is in it then.
template <class F> R_INT64 withNames(F f)
{
    const Folder folder;
    folder.write("file", "nine byte");
    const bool done = f((folder / "file").c_str(), (folder / "new").c_str());
    return as(done && folder.read("new") != "(none)");
}

bool closes(R_INT64 file) { return file != R_INVALID_FILE && R_OsClose(file) == 0; }

bool isNewAndEmpty(const R_WCHAR* name)
{
    const R_INT64 file = R_OsOpen(name, FILE_MODE_READ, 0);
    char byte;
    const bool empty = file != R_INVALID_FILE && R_OsRead(file, &byte, 1) == 0;
    return closes(file) && R_OsDelete(name) == 0 && empty;
}

char buffer[9];

R_INT64 saveStatus()
{
    R_OsSetLastError(ERROR_FILE_READ);
    return as(R_OsGetLastError(0) == ERROR_FILE_READ && R_OsGetLastError(7) == 7);
}

const Call kCalls[] = {
    DOES(R_OsOpen, withNames([](auto, auto name) { return closes(R_OsOpen(name, FILE_MODE_CREATE | 2, 0)); })),
    DOES(R_OsCreat, withNames([](auto, auto name) { return closes(R_OsCreat(name, 0)); })),
    DOES(R_OsRead, withFile([](R_INT64 file) { return R_OsRead(file, buffer, 9) == 9; })),
    DOES(R_OsReadBig, withFile([](R_INT64 file) { return R_OsReadBig(file, buffer, 9) == 9; })),
    DOES(R_OsWrite, withFile([](R_INT64 file) { return R_OsWrite(file, buffer, 9) == 9; })),
    DOES(R_OsWriteBig, withFile([](R_INT64 file) { return R_OsWriteBig(file, buffer, 9) == 9; })),
    DOES(R_OsSeek, withFile([](R_INT64 file) { return R_OsSeek(file, -4, FILE_FROM_END) == 5; })),
    DOES(R_OsSetFileSize, withFile([](R_INT64 file) { return R_OsSetFileSize(file, 3) == 0; })),
    DOES(R_OsClose, withFile([](R_INT64) { return true; })),
    DOES(R_OsDelete,
         withNames([](auto name, auto other) { return closes(R_OsCreat(other, 0)) && R_OsDelete(name) == 0; })),
    DOES(R_OsSetLastError, saveStatus()),
    DOES(R_OsGetLastError, saveStatus()),
    DOES(R_MoveFileEx, withNames([](auto from, auto to) { return R_MoveFileEx(from, to, 0) == 1; })),
    DOES(R_OsGetTempName,
         [] {
             R_WCHAR name[260];
             const R_INT made = R_OsGetTempName(name);
             return made == SUCCESS ? as(isNewAndEmpty(name)) : made;
         }()),
    DOES(R_CopyFile, withNames([](auto from, auto to) { return R_CopyFile(from, to, 1) == 1; })),
    DOES(R_CopyFile2, withNames([](auto from, auto to) { return R_CopyFile2(from, to, 1) == 1; })),
    DOES(R_IntCopyFile, withNames([](auto from, auto to) {
             return R_IntCopyFile(from, to, COPYFILE_FROM_TEMPFILE | COPYFILE_TO_TEMPFILE) == 1;
         })),
    DOES(R_FileExists, withNames([](auto name, auto other) {
             return R_FileExists(name) == 1 && R_FileExists(other) == 0 && closes(R_OsCreat(other, 0));
         })),
    DOES(R_FileExistsUTF8, as(R_FileExistsUTF8("/") == 1)),
};

} // namespace

std::span<const Call> fileCalls() { return kCalls; }

} // namespace rv::test
