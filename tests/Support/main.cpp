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

#if defined(__linux__)
// A sanitizer's allocator ends the program when it is asked for too much; tests want to see the kernel told "no". Both
// are hooks that the sanitizers look up by these names.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "allocator_may_return_null=1"; }
#endif

namespace {
/// This thread's block is there before any test counts blocks, whichever tests ran before it.
class BlockFirst : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override { rv::threadSettings(); }
};
} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new BlockFirst);
    rv::test::installTestPlatform();
    rv::attach();
    const int result = RUN_ALL_TESTS();
    rv::detach();
    return result;
}
