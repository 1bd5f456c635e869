// The loader's class as programs see it: made, derived from and called across the library's border.
#include "R_Kernel.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <typeinfo>

namespace {

class CountedLoader : public R_DllLoader {
public:
    explicit CountedLoader(int* alive) : alive_(alive) { ++*alive_; }
    ~CountedLoader() override { --*alive_; }

private:
    int* alive_;
};

TEST(Loader, LoadsTheKernelItselfByItsNumber)
{
    int alive = 0;
    {
        const std::unique_ptr<R_DllLoader> loader = std::make_unique<CountedLoader>(&alive);
        EXPECT_NE(dynamic_cast<CountedLoader*>(loader.get()), nullptr);
        ASSERT_EQ(loader->LoadLib(0, 0, nullptr), 1); // beside the library: that is where it is
        EXPECT_EQ(loader->GetFunction("R_FlipBitmap"), reinterpret_cast<void*>(&R_FlipBitmap));
        EXPECT_EQ(loader->IsFunctionOk("R_NobodyKnows"), 0);
        EXPECT_EQ(loader->Unload(), 1);
        EXPECT_EQ(loader->IsLoaded(), 0);
    }
    EXPECT_EQ(alive, 0);
}

} // namespace
