// The DLL's entry point.
#include "Platform/Entry.h"
#include "R_Types.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID processEnds)
{
    switch (reason) {
    case DLL_PROCESS_ATTACH: rv::attach(); break;
    case DLL_THREAD_DETACH: rv::threadEnded(rv::currentThreadBlock()); break;
    case DLL_PROCESS_DETACH:
        // When the process ends, its other threads have been stopped wherever they stood: a lock that one of them
        // held would never be free, and the system takes everything back anyway.
        if (processEnds == nullptr) rv::detach();
        break;
    default: break;
    }
    return TRUE;
}
