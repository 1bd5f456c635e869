#include "R_Kernel.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(TempFileOptions, KeepTheModeWithinItsRules)
{
    TEMPFILEOPTIONS start{};
    ASSERT_EQ(R_GetTempFileOptions(&start, TEMPFILEOPTIONS_SIZE), SUCCESS);
    const TEMPFILEOPTIONS defaults = {TEMPFILEOPTIONS_SIZE, TEMPFILE_DISK_AND_MEMORY, 0, 128, 8, 16};
    EXPECT_EQ(std::memcmp(&start, &defaults, sizeof start), 0);

    TEMPFILEOPTIONS options = {TEMPFILEOPTIONS_SIZE, TEMPFILE_MEMORY, 0xF00Du, 1, 2, 3};
    EXPECT_EQ(R_SetTempFileOptions(&options), SUCCESS);
    EXPECT_EQ(R_GetTempFileMode(), TEMPFILE_MEMORY);
    options.uMode = 0xFFFFFFFFu; // as it is
    options.uFlags = 0xBEEFu;
    EXPECT_EQ(R_SetTempFileOptions(&options), SUCCESS);
    EXPECT_EQ(options.uMode, 0xFFFFFFFFu); // the caller's record is only read
    TEMPFILEOPTIONS stored{};
    EXPECT_EQ(R_GetTempFileOptions(&stored, TEMPFILEOPTIONS_SIZE), SUCCESS);
    options.uMode = TEMPFILE_MEMORY;
    EXPECT_EQ(std::memcmp(&stored, &options, sizeof stored), 0);
    options.uMode = 0;
    EXPECT_EQ(R_SetTempFileOptions(&options), SUCCESS);
    EXPECT_EQ(R_GetTempFileMode(), TEMPFILE_DISK_AND_MEMORY);

    options.uMode = TEMPFILE_DISK;
    options.uStructSize = 20;
    EXPECT_EQ(R_SetTempFileOptions(&options), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_SetTempFileOptions(nullptr), ERROR_NULL_PTR);
    EXPECT_EQ(R_GetTempFileOptions(nullptr, 20), ERROR_NULL_PTR);
    EXPECT_EQ(R_GetTempFileOptions(&stored, 20), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_GetTempFileMode(), TEMPFILE_DISK_AND_MEMORY);
    EXPECT_EQ(R_SetTempFileOptions(&start), SUCCESS);
}

} // namespace
