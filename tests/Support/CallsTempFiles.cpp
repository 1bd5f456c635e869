#include "Support/Calls.h"

#include <string>

namespace rv::test {

namespace {

constexpr R_UINT kRoom = 400;
constexpr R_WCHAR kPrefix[] = {'c', 'a', 'l', 'l', 0};
constexpr R_UINT kBytes = 5000;

void remove(const R_WCHAR* name) { (void)R_DeleteTempFile(name); }
void remove(const char* name) { (void)R_DeleteTempFileA(name); }

/// Has f make a name, which must be that of a file, and removes that.
template <class Unit, class F> R_INT64 named(F make)
{
    Unit name[kRoom] = {};
    const R_INT64 status = make(name);
    if (status == SUCCESS) remove(name);
    return status;
}

/// A temporary file in memory; whatever happens, it is gone afterwards.
template <class Unit = R_WCHAR, class F> R_INT64 withName(F use)
{
    R_WCHAR name[kRoom] = {};
    const R_INT made = R_GetTempFileName4(nullptr, name, kRoom, TEMPFILE_DISK_AND_MEMORY, kPrefix, nullptr);
    if (made != SUCCESS) return made;
    R_INT64 status = FAILURE;
    if constexpr (sizeof(Unit) == 1) {
        std::string text;
        for (const R_WCHAR* at = name; *at != 0; ++at) text += static_cast<char>(*at); // 7-bit, as the folder's
        status = use(text.c_str());
    } else {
        status = use(name);
    }
    remove(name);
    return status;
}

template <class Unit = R_WCHAR, class Open, class F> R_INT64 withFile(Open open, F use)
{
    return withName<Unit>([&](const Unit* name) {
        const R_INT64 file = open(name, FILE_MODE_READ_WRITE, 0);
        if (file == R_INVALID_FILE) return R_INT64{FAILURE};
        const R_INT64 status = use(file);
        return R_RedirectedTempFileClose(file) == 0 ? status : FAILURE;
    });
}

template <class F> R_INT64 withBytes(F use)
{
    return withFile(R_RedirectedTempFileOpen, [&](R_INT64 file) {
        char bytes[kBytes] = {1, 2, 3};
        if (R_RedirectedTempFileWrite(file, bytes, kBytes) != R_INT{kBytes}) return R_INT64{FAILURE};
        if (R_RedirectedTempFileSeek(file, 0, FILE_FROM_START) != 0) return R_INT64{FAILURE};
        return use(file, bytes);
    });
}
R_INT64 nothing(R_INT64) { return SUCCESS; }

TEMPFILEOPTIONS options()
{
    TEMPFILEOPTIONS options{};
    (void)R_GetTempFileOptions(&options, TEMPFILEOPTIONS_SIZE);
    return options;
}

template <class Unit, class Get, class Set> R_INT64 setAgain(Get get, Set set)
{
    Unit folder[kRoom];
    const R_INT status = get(folder, kRoom);
    return status == SUCCESS ? set(folder) : status;
}

const Call kCalls[] = {
    DOES(R_SetTempFileOptions,
         [] {
             const TEMPFILEOPTIONS o = options();
             return R_SetTempFileOptions(&o);
         }()),
    DOES(R_GetTempFileOptions, as(options().uMode == TEMPFILE_DISK_AND_MEMORY)),
    DOES(R_GetTempFileMode, as(R_GetTempFileMode() == TEMPFILE_DISK_AND_MEMORY)),
    DOES(R_SetTempDirectory, setAgain<R_WCHAR>(R_GetTempDirectory, R_SetTempDirectory)),
    DOES(R_SetTempDirectoryA, setAgain<char>(R_GetTempDirectoryA, R_SetTempDirectoryA)),
    DOES(R_GetTempDirectory, setAgain<R_WCHAR>(R_GetTempDirectory, [](const R_WCHAR*) { return SUCCESS; })),
    DOES(R_GetTempDirectoryA, setAgain<char>(R_GetTempDirectoryA, [](const char*) { return SUCCESS; })),
    DOES(R_GetTempFileName, named<R_WCHAR>([](R_WCHAR* name) { return R_GetTempFileName(name, kPrefix); })),
    DOES(R_GetTempFileName2, named<R_WCHAR>([](R_WCHAR* name) { return R_GetTempFileName2(nullptr, name, nullptr); })),
    DOES(R_GetTempFileName3,
         named<R_WCHAR>([](R_WCHAR* name) { return R_GetTempFileName3(name, kRoom, kPrefix, nullptr); })),
    DOES(R_GetTempFileName4,
         named<R_WCHAR>([](R_WCHAR* name) { return R_GetTempFileName4(nullptr, name, kRoom, 3, kPrefix, kPrefix); })),
    DOES(R_GetTempFileNameA, named<char>([](char* name) { return R_GetTempFileNameA(name, "call"); })),
    DOES(R_GetTempFileNameUTF8, named<char>([](char* name) { return R_GetTempFileNameUTF8(name, nullptr); })),
    DOES(R_GetTempFileName2A, named<char>([](char* name) { return R_GetTempFileName2A(nullptr, name, "call"); })),
    DOES(R_GetTempFileName3UTF8,
         named<char>([](char* name) { return R_GetTempFileName3UTF8(name, kRoom, "call", nullptr); })),
    DOES(R_GetTempFileName4UTF8,
         named<char>([](char* name) { return R_GetTempFileName4UTF8(nullptr, name, kRoom, 0, "call", "x"); })),
    DOES(R_RedirectedTempFileOpen, withFile(R_RedirectedTempFileOpen, nothing)),
    DOES(R_RedirectedTempFileOpenA, withFile<char>(R_RedirectedTempFileOpenA, nothing)),
    DOES(R_RedirectedTempFileOpenUTF8, withFile<char>(R_RedirectedTempFileOpenUTF8, nothing)),
    DOES(R_RedirectedTempFileRead, withBytes([](R_INT64 file, char* bytes) {
             return as(R_RedirectedTempFileRead(file, bytes, kBytes) == R_INT{kBytes} && bytes[2] == 3);
         })),
    DOES(R_RedirectedTempFileReadBig, withBytes([](R_INT64 file, char* bytes) {
             return as(R_RedirectedTempFileReadBig(file, bytes, kBytes) == R_INT{kBytes} && bytes[2] == 3);
         })),
    DOES(R_RedirectedTempFileWrite, withBytes([](R_INT64, char*) { return R_INT64{SUCCESS}; })),
    DOES(R_RedirectedTempFileWriteBig, withBytes([](R_INT64 file, char* bytes) {
             return as(R_RedirectedTempFileWriteBig(file, bytes, kBytes) == R_INT{kBytes});
         })),
    DOES(R_RedirectedTempFileSeek, withBytes([](R_INT64 file, char*) {
             return as(R_RedirectedTempFileSeek(file, -1, FILE_FROM_END) == R_INT{kBytes} - 1);
         })),
    DOES(R_RedirectedTempFileClose, withFile(R_RedirectedTempFileOpen, nothing)),
    DOES(R_DeleteTempFile, withName([](const R_WCHAR* name) { return R_DeleteTempFile(name); })),
    DOES(R_DeleteTempFileA, withName<char>([](const char* name) { return R_DeleteTempFileA(name); })),
    DOES(R_DeleteTempFileUTF8, withName<char>([](const char* name) { return R_DeleteTempFileUTF8(name); })),
};

} // namespace

std::span<const Call> tempFileCalls() { return kCalls; }

} // namespace rv::test
