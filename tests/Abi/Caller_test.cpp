// The kernel as its callers see it: the shared library behind the public headers, from C and from C++.
#include "R_Kernel.h"

#include <gtest/gtest.h>

#include <memory>

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

class NamedEvent : public RVWaitEvent {
public:
    int name = 7;
};

TEST(Caller, AProgramDerivesFromTheClasses)
{
    const std::unique_ptr<RVWaitEvent> event = std::make_unique<NamedEvent>();
    EXPECT_EQ(event->Create(0, 1), SUCCESS);
    EXPECT_EQ(event->WaitOne(0), 1);
    const auto* const named = dynamic_cast<NamedEvent*>(event.get()); // by the type information on both sides
    ASSERT_NE(named, nullptr);
    EXPECT_EQ(named->name, 7);
}

} // namespace
