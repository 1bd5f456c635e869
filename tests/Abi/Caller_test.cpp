// The kernel as its callers see it: the shared library behind the public headers, from C and from C++.
#include "R_Kernel.h"

#include <gtest/gtest.h>

extern "C" const char* recordsSeenFromC();
extern "C" const char* storageKeptInC();

namespace {

TEST(Records, FieldsLieWhereBindingsReadThem)
{
    EXPECT_STREQ(recordsSeenFromC(), nullptr);
#define FIELD(field, first, bytes)                                                                                     \
    EXPECT_EQ(offsetof(RECORD, field), size_t{first}) << #field;                                                       \
    EXPECT_EQ(sizeof(RECORD::field), size_t{bytes}) << #field;
#include "Records.inc"
}

TEST(Caller, AProgramInCKeepsThePixelsItself) { EXPECT_STREQ(storageKeptInC(), nullptr); }

} // namespace
