// The inner tests link the kernel's objects, which have no entry point: the library is attached and detached here.
#include "Kernel/Base/System.h"
#include "Support/FailingPlatform.h"

#include <gtest/gtest.h>

#if defined(_WIN32)
namespace {
// Windows tells loaded libraries of threads that end; an executable hears of them through its own such callback.
void NTAPI onThread(PVOID, DWORD reason, PVOID)
{
    if (reason == DLL_THREAD_DETACH) rv::threadEnded(rv::currentThreadBlock());
}
} // namespace
extern "C" __attribute__((section(".CRT$XLC"), used)) const PIMAGE_TLS_CALLBACK rvTestThreadCallback = &onThread;
#endif

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    rv::test::installTestPlatform();
    rv::attach();
    rv::threadSettings(); // this thread's block is there before any test counts blocks
    const int result = RUN_ALL_TESTS();
    rv::detach();
    return result;
}
