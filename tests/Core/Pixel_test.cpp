#include "Kernel/Pixels/Depths.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <random>

namespace rv::test {
namespace {

TEST(PixelData, MovesOnePixelAndNoOther)
{
    for (const R_INT bits : allDepths())
        for (const Home home : homesOf(bits)) {
            const Scene scene{bits, home, BITMAPHANDLE_SIZE, 23, 5, static_cast<unsigned>(bits)};
            if (!scene.possible()) continue;
            const TestBitmap bitmap(scene);
            std::vector<uint8_t> model = bitmap.pixels();
            std::mt19937_64 random(bitmap.scene().seed);
            for (int step = 0; step < 60; ++step) {
                const auto row = static_cast<R_INT>(random() % 5), column = static_cast<R_INT>(random() % 23),
                           other = static_cast<R_INT>(random() % 23);
                uint8_t* const modelRow = model.data() + static_cast<size_t>(row) * bitmap->BytesPerLine;
                uint64_t value = random(), read = 0; // bits above the pixel's own do not count
                ASSERT_EQ(R_PutPixelData(bitmap.get(), &value, row, column, packedBytes(1, bits)), SUCCESS);
                setPixelAt(modelRow, column, bits, value & ~uint64_t{0} >> (64 - bits));
                ASSERT_EQ(R_GetPixelData(bitmap.get(), &read, row, other, 8), SUCCESS);
                ASSERT_EQ(read, pixelAt(modelRow, other, bits)) << bitmap.scene().text() << ", column " << other;
            }
            EXPECT_EQ(bitmap.pixels(), model) << bitmap.scene().text();
        }
}

/// What the four calls answer for a pixel that cannot be had.
void expectRefused(const TestBitmap& bitmap, R_INT row, R_INT column, R_INT status)
{
    uint64_t value = 0;
    EXPECT_EQ(R_GetPixelData(bitmap.get(), &value, row, column, 8), status);
    EXPECT_EQ(R_PutPixelData(bitmap.get(), &value, row, column, 8), status);
    EXPECT_EQ(R_PutPixelColor(bitmap.get(), row, column, 0xFFFFFF), status);
    EXPECT_EQ(R_GetPixelColor(bitmap.get(), row, column), 0u);
    EXPECT_EQ(bitmap->nLockCount, 0);
}

TEST(PixelData, RefusesWhatIsNotThere)
{
    const TestBitmap bitmap({12});
    for (const auto& [row, column] : {std::pair{-1, 0}, {11, 0}, {0, -1}, {0, 37}, {INT32_MAX, INT32_MAX}})
        expectRefused(bitmap, row, column, ERROR_INV_PARAMETER);
    const auto broken = [&](auto BITMAPHANDLE::*field, auto wrong, R_INT status) {
        const auto right = bitmap.get()->*field;
        bitmap.get()->*field = wrong;
        expectRefused(bitmap, 0, 0, status);
        bitmap.get()->*field = right;
    };
    broken(&BITMAPHANDLE::uStructSize, 283u, ERROR_INV_STRUCT_SIZE);
    broken(&BITMAPHANDLE::Flags, 0u, ERROR_INV_BITMAP);
    broken(&BITMAPHANDLE::BytesPerLine, 55u, ERROR_INV_SIZE);
    uint64_t value = 0;
    EXPECT_EQ(R_GetPixelData(bitmap.get(), &value, 0, 0, 1), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_PutPixelData(bitmap.get(), &value, 0, 0, 1), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetPixelData(bitmap.get(), nullptr, 0, 0, 8), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_PutPixelData(nullptr, &value, 0, 0, 8), ERROR_INV_PARAMETER);

    // A row callback's answer that is no count of the pixel's bytes.
    const TestBitmap told({8, Home::callbacks});
    const BITMAPHANDLEDATACALLBACKS own = *told->pDataCallbacks;
    for (R_INT answer : {-7, 2}) {
        told->pDataCallbacks->pUserData = &answer;
        told->pDataCallbacks->GetBitmapRowColCallback = told->pDataCallbacks->PutBitmapRowColCallback =
            [](BITMAPHANDLE*, void*, R_INT, R_INT, R_SIZE, void* says) { return *static_cast<R_INT*>(says); };
        expectRefused(told, 0, 0, answer < 0 ? answer : ERROR_FAILURE);
    }
    *told->pDataCallbacks = own;
}

} // namespace
} // namespace rv::test
