#include "R_Geometry.h"
#include "Support/World.h"

#include <gtest/gtest.h>

namespace rv::test {
namespace {

TEST(MirrorLine, TakesWhatItCan)
{
    EXPECT_EQ(R_MirrorLine(nullptr, 3, 8), ERROR_INV_PARAMETER);
    for (const R_INT bits : {-1, 0, 9, 10, 11, 13, 20, 63, 65, 1000}) {
        uint8_t row[3] = {1, 2, 3};
        EXPECT_EQ(R_MirrorLine(row, 3, bits), SUCCESS);
        EXPECT_TRUE(row[0] == 1 && row[1] == 2 && row[2] == 3) << bits;
    }
    const GuardedBuffer nothing(0);
    for (const R_INT bits : allDepths()) EXPECT_EQ(R_MirrorLine(nothing.data(), 0, bits), SUCCESS) << bits;
}

TEST(MirrorLine, PinnedRows)
{
    const struct {
        R_UINT width;
        R_INT bits;
        std::vector<uint8_t> row, mirrored;
    } cases[] = {
        {10, 1, {0b11010000, 0b01111111}, {0b10000010, 0b11000000}}, // what was behind the row is gone
        {3, 2, {0b00011011}, {0b10010000}},
        {3, 3, {0b00101010, 0b01111111}, {0b10001000, 0b10000000}}, // 1 2 4
        {3, 4, {0x12, 0x3F}, {0x32, 0x10}},
        {3, 8, {1, 2, 3}, {3, 2, 1}},
        {2, 12, {0x12, 0x3A, 0xBC}, {0xAB, 0xC1, 0x23}},
        {3, 12, {0x12, 0x34, 0x56, 0x78, 0x9F}, {0x78, 0x94, 0x56, 0x12, 0x30}},
        {2, 16, {1, 2, 3, 4}, {3, 4, 1, 2}},
        {2, 24, {1, 2, 3, 4, 5, 6}, {4, 5, 6, 1, 2, 3}},
        {1, 64, {1, 2, 3, 4, 5, 6, 7, 8}, {1, 2, 3, 4, 5, 6, 7, 8}},
    };
    for (const auto& c : cases) {
        std::vector<uint8_t> row = c.row;
        EXPECT_EQ(R_MirrorLine(row.data(), c.width, c.bits), SUCCESS);
        EXPECT_EQ(row, c.mirrored) << c.bits << " bits";
    }
}

} // namespace
} // namespace rv::test
