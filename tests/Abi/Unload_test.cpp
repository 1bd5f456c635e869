// Programs load the library as a plug-in and unload it while threads that have used it live on.
#include "R_Kernel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#if !defined(_WIN32)
#include <dlfcn.h>
#endif

namespace {

#if !defined(_WIN32)
using HMODULE = void*;
HMODULE LoadLibraryA(const char* file) { return dlopen(file, RTLD_NOW | RTLD_LOCAL); }
int FreeLibrary(HMODULE module) { return dlclose(module) == 0; }
void* GetProcAddress(HMODULE module, const char* name) { return dlsym(module, name); }
HMODULE GetModuleHandleA(const char* file)
{
    void* const module = dlopen(file, RTLD_NOW | RTLD_NOLOAD);
    if (module != nullptr) dlclose(module);
    return module;
}
#endif

/// A function of the loaded library, found when it is called.
#define CALL(module, name) reinterpret_cast<decltype(&name)>(reinterpret_cast<void*>(GetProcAddress(module, #name)))

/// Uses what a thread has of the library: its settings, and memory of every kind. Returns the X resolution found.
R_INT use(HMODULE library, R_INT resolution)
{
    BITMAPHANDLE bitmap;
    R_UCHAR row[64] = {1, 2, 3};
    if (CALL(library, R_CreateBitmap)(&bitmap, sizeof bitmap, MEM_CONVENTIONAL, 64, 64, 8, ORDER_RGB, nullptr, TOP_LEFT,
                                      nullptr, 0) != SUCCESS)
        return -2;
    const bool worked = CALL(library, R_PutBitmapRow)(&bitmap, row, 0, sizeof row) == sizeof row &&
                        CALL(library, R_FlipBitmap)(&bitmap) == SUCCESS;
    CALL(library, R_FreeBitmap)(&bitmap);
    return worked ? CALL(library, R_SetDefaultXResolution)(resolution) : -3;
}

TEST(Unload, LeavesLivingThreadsAlone)
{
    std::atomic<int> stage{0};
    std::atomic<HMODULE> current{nullptr};
    std::atomic<R_INT> found{0};
    constexpr int kRounds = 3;
    const auto waitFor = [&stage](int wanted) {
        while (stage != wanted) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    std::thread living([&] {
        for (int round = 0; round < kRounds; ++round) {
            waitFor(2 * round + 1);
            found = use(current, 1000 + round);
            stage = 2 * round + 2;
        }
        waitFor(2 * kRounds + 1);
    }); // ends after the library is gone

    for (int round = 0; round < kRounds; ++round) {
        const HMODULE library = LoadLibraryA(RV_LIBRARY_FILE);
        ASSERT_NE(library, nullptr) << "cannot load " << RV_LIBRARY_FILE;
        EXPECT_EQ(use(library, 7), 150); // each time a new library, which knows nothing of the last
        current = library;
        stage = 2 * round + 1;
        waitFor(2 * round + 2);
        EXPECT_EQ(found, 150);
        R_INT ended = 0;
        std::thread([&] { ended = use(library, 8); }).join(); // a thread that ends before
        EXPECT_EQ(ended, 150);
        EXPECT_TRUE(FreeLibrary(library));
        EXPECT_EQ(GetModuleHandleA(RV_LIBRARY_FILE), nullptr);
    }
    stage = 2 * kRounds + 1;
    living.join();
}

struct Load {
    decltype(&R_SetDefaultXResolution) call;
    std::atomic<int> started{0}, ended{0};
};

/// An item that uses the library, sooner or later. What it calls has been looked up: the system holds its loader's lock
/// while a library goes.
R_UINT item(void* context) noexcept
{
    auto& load = *static_cast<Load*>(context);
    if (++load.started % 8 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    if (load.call(77) == 150 || load.call(77) == 77) ++load.ended;
    return 0;
}

TEST(Unload, LetsTheWorkEndThatTheLibraryHasTaken)
{
    for (int round = 0; round < 20; ++round) {
        const HMODULE library = LoadLibraryA(RV_LIBRARY_FILE);
        ASSERT_NE(library, nullptr);
        Load load{CALL(library, R_SetDefaultXResolution)};
        const auto queue = reinterpret_cast<decltype(&RVThreadPool::QueueUserWorkItem)>(
            reinterpret_cast<void*>(GetProcAddress(library, "_ZN12RVThreadPool17QueueUserWorkItemEPFjPvES0_j")));
        ASSERT_NE(queue, nullptr);
        constexpr int kItems = 300;
        for (int i = 0; i < kItems; ++i) {
            const R_UINT flags = i % 50 == 0 ? THREAD_DEDICATED : i % 50 == 1 ? THREAD_LONG_RUNNING : 0;
            ASSERT_EQ(queue(item, &load, flags), SUCCESS);
        }
        EXPECT_TRUE(FreeLibrary(library));
#if defined(_WIN32)
        for (int i = 0; i < 20000 && GetModuleHandleA(RV_LIBRARY_FILE) != nullptr; ++i) Sleep(1);
#endif
        EXPECT_EQ(load.ended, kItems);
        EXPECT_EQ(GetModuleHandleA(RV_LIBRARY_FILE), nullptr);
    }
}

} // namespace
