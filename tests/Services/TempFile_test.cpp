#include "R_Kernel.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

namespace {

TEST(TempFileOptions, KeepTheModeWithinItsRules)
{
    constexpr R_UINT kSize = TEMPFILEOPTIONS_SIZE, kBoth = TEMPFILE_DISK_AND_MEMORY, kKeep = 0xFFFFFFFFu;
    const TEMPFILEOPTIONS defaults = {kSize, kBoth, 0, 128, 8, 16};
    const auto expectStored = [](const TEMPFILEOPTIONS& wanted) {
        TEMPFILEOPTIONS stored{};
        EXPECT_EQ(R_GetTempFileOptions(&stored, kSize), SUCCESS);
        EXPECT_EQ(std::memcmp(&stored, &wanted, sizeof stored), 0);
        EXPECT_EQ(R_GetTempFileMode(), wanted.uMode);
    };
    expectStored(defaults);
    for (const auto& [mode, stored] : {std::pair<R_UINT, R_UINT>{TEMPFILE_MEMORY, TEMPFILE_MEMORY},
                                       {kKeep, TEMPFILE_MEMORY},
                                       {0, kBoth},
                                       {kKeep, kBoth}}) {
        const TEMPFILEOPTIONS options = {kSize, mode, mode ^ 0xBEEF, 1, 2, 3};
        EXPECT_EQ(R_SetTempFileOptions(&options), SUCCESS);
        expectStored({kSize, stored, options.uFlags, 1, 2, 3});
    }
    EXPECT_EQ(R_SetTempFileOptions(&defaults), SUCCESS);

    TEMPFILEOPTIONS wrong = {20, TEMPFILE_DISK, 1, 2, 3, 4};
    EXPECT_EQ(R_SetTempFileOptions(&wrong), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_GetTempFileOptions(&wrong, 20), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_SetTempFileOptions(nullptr), ERROR_NULL_PTR);
    EXPECT_EQ(R_GetTempFileOptions(nullptr, 20), ERROR_NULL_PTR);
    expectStored(defaults);
}

} // namespace
