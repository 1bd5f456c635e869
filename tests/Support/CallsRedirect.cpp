#include "Support/Calls.h"

namespace rv::test {

namespace {

constexpr R_WCHAR kName[] = {'f', 0};

REDIRECTSET setOf(R_UINT kind)
{
    REDIRECTSET set{};
    return R_GetRedirectFunctions(&set, REDIRECTSET_SIZE, kind, 0) == SUCCESS ? set : REDIRECTSET{};
}

/// Has f use a file in a block of memory; 1 when nothing was lost, FAILURE when the file could not be had.
template <class F> R_INT64 withFile(F f)
{
    void* record = nullptr;
    R_INT64 file = R_INVALID_FILE;
    if (R_StartRedirectToBuffer(&record, &file, FILE_MODE_READ_WRITE, nullptr, 0, 0) != SUCCESS) return FAILURE;
    const R_INT64 status = f(file);
    (void)R_RedirectedClose(file);
    (void)R_StopRedirectToBuffer(record, nullptr, nullptr);
    return status;
}

/// The same, buffered.
template <class F> R_INT64 withBuffered(F f)
{
    return withFile([&](R_INT64) {
        REDIRECTSET under = setOf(REDIRECT_CURRENT);
        const R_INT64 file = R_BufferedOpen(kName, FILE_MODE_READ_WRITE, 0, &under);
        if (file == R_INVALID_FILE) return R_INT64{FAILURE};
        const R_INT64 status = f(file);
        const R_INT closed = R_BufferedClose(file, nullptr);
        return closed < 0 ? closed : status;
    });
}

/// Registers a set under a new name and removes it.
R_INT64 registerSet()
{
    R_WCHAR name[50] = {};
    const REDIRECTSET os = setOf(REDIRECT_OS);
    const R_INT status = R_SetGlobalRedirectFunctions(name, 50, &os);
    return status == SUCCESS ? R_SetGlobalRedirectFunctions(name, 50, nullptr) : as(name[0] != 0);
}

template <class Open, class Text> R_INT64 openedBy(Open open, const Text* name)
{
    return withFile([&](R_INT64) {
        const R_INT64 file = open(name, FILE_MODE_READ_WRITE, 0);
        return as(file != R_INVALID_FILE && R_RedirectedClose(file) == 0);
    });
}

template <class Make> R_INT64 made(Make make)
{
    R_INT64 file = R_INVALID_FILE;
    const R_INT64 status = make(&file);
    (void)R_CloseRedirectedCallbackFileHandle(file);
    return status;
}

R_INT64 callbackHandle()
{
    const REDIRECTSET os = setOf(REDIRECT_OS);
    return made([&](R_INT64* file) { return R_CreateRedirectedCallbackFileHandle(70001, &os, file); });
}

/// Over a handle that is nobody's, so that closing it is harmless.
R_INT64 wrappedHandle()
{
    R_INT64 file = R_INVALID_FILE;
    const R_INT status = R_CreateRedirectedFileHandle(0x7FFFFFF0, &file, FILE_MODE_READ);
    (void)R_RedirectedClose(file);
    return status;
}

R_INT64 restoredSet(R_INT64 status)
{
    Out<REDIRECTSET> own;
    (void)R_ExtractRedirectFunctions(own, REDIRECTSET_SIZE);
    return status;
}

const Call kCalls[] = {
    DOES(R_RedirectIO, restoredSet(R_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr))),
    CALL(R_GetRedirectFunctions, Out<REDIRECTSET>(), REDIRECTSET_SIZE, REDIRECT_CURRENT, 0),
    CALL(R_GetRedirectFunctions2, Out<REDIRECTSET>(), REDIRECTSET_SIZE),
    DOES(R_GetRedirectFunctions3,
         withFile([](R_INT64 f) { return R_GetRedirectFunctions3(f, Out<REDIRECTSET>(), REDIRECTSET_SIZE); })),
    DOES(R_SetRedirectFunctions,
         [] {
             const REDIRECTSET os = setOf(REDIRECT_OS);
             return restoredSet(R_SetRedirectFunctions(&os, REDIRECT_CURRENT, 0));
         }()),
    DOES(R_SetGlobalRedirectFunctions, registerSet()),
    CALL(R_GetUniqueRedirectFileName, Out<R_WCHAR[50]>().value, 50),
    DOES(R_UsesRedirectIO, withFile([](R_INT64 f) { return R_INT64{R_UsesRedirectIO(nullptr, f)}; })),
    DOES(R_RedirectedOpen, openedBy(R_RedirectedOpen, kName)),
    DOES(R_RedirectedOpenA, openedBy(R_RedirectedOpenA, std::string(300, 'n').c_str())),
    DOES(R_RedirectedOpenUTF8, openedBy(R_RedirectedOpenUTF8, std::string(300, 'n').c_str())),
    DOES(R_RedirectedRead, withFile([](R_INT64 f) { return as(R_RedirectedRead(f, Out<R_INT64>(), 8) == 0); })),
    DOES(R_RedirectedReadBig, withFile([](R_INT64 f) { return as(R_RedirectedReadBig(f, nullptr, 0) == 0); })),
    DOES(R_RedirectedWrite, withFile([](R_INT64 f) { return as(R_RedirectedWrite(f, "8 bytes", 8) == 8); })),
    DOES(R_RedirectedWriteBig, withFile([](R_INT64 f) { return as(R_RedirectedWriteBig(f, "8 bytes", 8) == 8); })),
    DOES(R_RedirectedSeek, withFile([](R_INT64 f) { return as(R_RedirectedSeek(f, 5, FILE_FROM_END) == 5); })),
    DOES(R_RedirectedClose, openedBy(R_RedirectedOpen, kName)),
    DOES(R_CreateRedirectedFileHandle, wrappedHandle()),
    DOES(R_ExtractRedirectedFileHandle, withFile([](R_INT64 f) { return as(R_ExtractRedirectedFileHandle(f) != f); })),
    DOES(R_StartRedirectToBuffer, withFile([](R_INT64 f) { return as(f != R_INVALID_FILE); })),
    DOES(R_StopRedirectToBuffer, withFile([](R_INT64) { return R_INT64{SUCCESS}; })),
    DOES(R_BufferedOpen, withBuffered([](R_INT64) { return R_INT64{SUCCESS}; })),
    DOES(R_BufferedRead,
         withBuffered([](R_INT64 f) { return as(R_BufferedRead(f, Out<R_INT64>(), 8, nullptr) == 0); })),
    DOES(R_BufferedWrite, withBuffered([](R_INT64 f) { return as(R_BufferedWrite(f, "8 bytes", 8, nullptr) == 8); })),
    DOES(R_BufferedSeek, withBuffered([](R_INT64 f) { return as(R_BufferedSeek(f, 9, 0, nullptr) == 9); })),
    DOES(R_BufferedClose, withBuffered([](R_INT64) { return R_INT64{SUCCESS}; })),
    CALL(R_SetFileCaching, FILE_CACHING_NONE),
    CALL(R_GetFileCaching, w.answers.number),
    DOES(R_FilterIO, withFile([](R_INT64 f) { return R_INT64{R_FilterIO(f, nullptr, nullptr)}; })),
    DOES(R_GetFilterIOData, withFile([](R_INT64 f) { return R_INT64{R_GetFilterIOData(f, nullptr, nullptr)}; })),
    CALL(R_ExtractRedirectFunctions, Out<REDIRECTSET>(), REDIRECTSET_SIZE),
    DOES(R_UpdateRedirectFunctions,
         [] {
             const REDIRECTSET os = setOf(REDIRECT_OS);
             return restoredSet(R_UpdateRedirectFunctions(&os));
         }()),
    DOES(R_CreateRedirectedCallbackFileHandle, callbackHandle()),
    DOES(R_CloseRedirectedCallbackFileHandle, callbackHandle()),
};

} // namespace

std::span<const Call> redirectCalls() { return kCalls; }

} // namespace rv::test
