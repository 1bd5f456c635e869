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

/// The library, loaded.
class Library {
public:
#if defined(_WIN32)
    Library() : module_(LoadLibraryA(RV_LIBRARY_FILE)) {}
    bool unload() { return FreeLibrary(module_) != 0; }
    static bool loaded() { return GetModuleHandleA(RV_LIBRARY_FILE) != nullptr; }
    void* symbol(const char* name) const { return reinterpret_cast<void*>(GetProcAddress(module_, name)); }

private:
    HMODULE module_;
#else
    Library() : module_(dlopen(RV_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL)) {}
    bool unload() { return dlclose(module_) == 0; }
    static bool loaded()
    {
        void* const module = dlopen(RV_LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD);
        if (module != nullptr) dlclose(module);
        return module != nullptr;
    }
    void* symbol(const char* name) const { return dlsym(module_, name); }

private:
    void* module_;
#endif
public:
    explicit operator bool() const { return module_ != nullptr; }
    template <class Function> Function* call(const char* name) const
    {
        return reinterpret_cast<Function*>(symbol(name));
    }
};

/// Uses what a thread has of the library: its settings, and memory of every kind. Returns the X resolution found.
R_INT use(const Library& library, R_INT resolution)
{
    const auto setResolution = library.call<decltype(R_SetDefaultXResolution)>("R_SetDefaultXResolution");
    const auto create = library.call<decltype(R_CreateBitmap)>("R_CreateBitmap");
    const auto putRow = library.call<decltype(R_PutBitmapRow)>("R_PutBitmapRow");
    const auto flip = library.call<decltype(R_FlipBitmap)>("R_FlipBitmap");
    const auto free = library.call<decltype(R_FreeBitmap)>("R_FreeBitmap");
    if (!setResolution || !create || !putRow || !flip || !free) return -1;
    BITMAPHANDLE bitmap;
    R_UCHAR row[64] = {1, 2, 3};
    if (create(&bitmap, sizeof bitmap, MEM_CONVENTIONAL, 64, 64, 8, ORDER_RGB, nullptr, TOP_LEFT, nullptr, 0) !=
        SUCCESS)
        return -2;
    const bool worked = putRow(&bitmap, row, 0, sizeof row) == sizeof row && flip(&bitmap) == SUCCESS;
    free(&bitmap);
    return worked ? setResolution(resolution) : -3;
}

TEST(Unload, LeavesLivingThreadsAlone)
{
    {
        Library library;
        ASSERT_TRUE(library) << "cannot load " << RV_LIBRARY_FILE;
        ASSERT_TRUE(library.unload());
    }
    std::atomic<int> stage{0};
    std::atomic<const Library*> current{nullptr};
    std::atomic<R_INT> found{0};
    constexpr int kRounds = 3;
    const auto waitFor = [&stage](int wanted) {
        while (stage != wanted) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    std::thread living([&] {
        for (int round = 0; round < kRounds; ++round) {
            waitFor(2 * round + 1);
            found = use(*current.load(), 1000 + round);
            stage = 2 * round + 2;
        }
        waitFor(2 * kRounds + 1);
    }); // ends after the library is gone

    for (int round = 0; round < kRounds; ++round) {
        Library library;
        EXPECT_EQ(use(library, 7), 150); // each time a new library, which knows nothing of the last
        current = &library;
        stage = 2 * round + 1;
        waitFor(2 * round + 2);
        EXPECT_EQ(found, 150);
        R_INT ended = 0;
        std::thread([&] { ended = use(library, 8); }).join(); // a thread that ends before
        EXPECT_EQ(ended, 150);
        EXPECT_TRUE(library.unload());
        EXPECT_FALSE(Library::loaded());
    }
    stage = 2 * kRounds + 1;
    living.join();
}

} // namespace
