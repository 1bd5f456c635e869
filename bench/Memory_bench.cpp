// Rows in and out of a bitmap, and the first write of a new one.
#include "Support.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace rv::bench {

namespace {

constexpr R_INT kWidth = 4096;
constexpr R_INT kHeight = 4096;
constexpr R_INT kBits = 24;
constexpr size_t kRowBytes = size_t{kWidth} * kBits / 8;
constexpr size_t kBytes = kRowBytes * kHeight;

using RowCall = R_SSIZE (*)(BITMAPHANDLE*, void*, R_INT, R_SIZE);

/// All rows of a picture, one call each.
MakeStep rowsBy(RowCall call)
{
    return [call] {
        const auto bitmap = std::make_shared<Bitmap>(kWidth, kHeight, kBits);
        const auto rows = std::make_shared<Warm>(kBytes);
        return [=] {
            R_SSIZE moved = 0;
            (void)R_AccessBitmap(bitmap->get());
            for (R_INT y = 0; y < kHeight; ++y)
                moved += call(bitmap->get(), rows->data() + kRowBytes * static_cast<size_t>(y), y, kRowBytes);
            return R_ReleaseBitmap(bitmap->get()) == SUCCESS && moved == static_cast<R_SSIZE>(kBytes);
        };
    };
}

/// The same work by memcpy: one call for a whole picture would pass the caches by, which a row cannot.
MakeStep rowsByCopy()
{
    return [] {
        const auto from = std::make_shared<Warm>(kBytes), to = std::make_shared<Warm>(kBytes);
        return [=] {
            for (size_t y = 0; y < kHeight; ++y) {
                std::memcpy(to->data() + kRowBytes * y, from->data() + kRowBytes * y, kRowBytes);
                benchmark::ClobberMemory();
            }
            return true;
        };
    };
}

/// Creates, writes every row, frees.
Step firstWrite()
{
    const auto row = std::make_shared<Warm>(kRowBytes);
    return [=] {
        BITMAPHANDLE bitmap;
        if (R_CreateBitmap(&bitmap, BITMAPHANDLE_SIZE, MEM_CONVENTIONAL, kWidth, kHeight, kBits, ORDER_BGR, nullptr,
                           TOP_LEFT, nullptr, 0) != SUCCESS)
            return false;
        R_SSIZE moved = 0;
        for (R_INT y = 0; y < kHeight; ++y) moved += R_PutBitmapRow(&bitmap, row->data(), y, kRowBytes);
        R_FreeBitmap(&bitmap);
        return moved == static_cast<R_SSIZE>(kBytes);
    };
}

Step firstWriteOfPlainMemory()
{
    return [] {
        void* const block = std::malloc(kBytes);
        if (block == nullptr) return false;
        std::memset(block, 1, kBytes);
        benchmark::DoNotOptimize(block);
        std::free(block);
        return true;
    };
}

Step fillWarmMemory()
{
    const auto block = std::make_shared<Warm>(kBytes);
    return [=] {
        std::memset(block->data(), 1, kBytes);
        return true;
    };
}

} // namespace

void registerMemory()
{
    measure("read all rows", "kernel", rowsBy(R_GetBitmapRow));
    measure("read all rows", "copy", rowsByCopy());
    measure("read all rows", "one memcpy", copyOf(kBytes));
    measure("write all rows", "kernel", rowsBy(R_PutBitmapRow));
    measure("write all rows", "copy", rowsByCopy());
    measure("write all rows", "one memcpy", copyOf(kBytes));
    measure("new 50 MB, first write", "kernel", firstWrite);
    measure("new 50 MB, first write", "copy", fillWarmMemory);
    measure("new 50 MB, first write", "malloc", firstWriteOfPlainMemory);
}

} // namespace rv::bench
