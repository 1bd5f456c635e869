// The kernel as its callers see it: the shared library behind the public headers, from C and from C++.
#include "Caller.h"
#include "R_Kernel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

#define EXPECT_KEPT(call)                                                                                              \
    do {                                                                                                               \
        const char* const broken = (call);                                                                             \
        EXPECT_EQ(broken, nullptr) << broken;                                                                          \
    } while (false)

constexpr std::array kDepths{1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64};

TEST(Records, FieldsLieWhereBindingsReadThem)
{
    EXPECT_KEPT(recordsSeenFromC());
#define RECORD_FIELD(record, field, first, bytes)                                                                      \
    EXPECT_EQ(offsetof(record, field), size_t{first}) << #record "." #field;                                           \
    EXPECT_EQ(sizeof(record::field), size_t{bytes}) << #record "." #field;
#include "Records.inc"
#undef RECORD_FIELD
}

/// A field of a record that is only known as bytes.
template <class T> T fieldAt(const std::vector<unsigned char>& record, size_t first)
{
    T value;
    std::memcpy(&value, record.data() + first, sizeof value);
    return value;
}

TEST(Records, TheLibraryWritesTheFieldsThatBindingsRead)
{
    for (const R_UINT size : {BITMAPHANDLE_SIZE, BITMAPHANDLE_SIZE_SHORT}) {
        std::vector<unsigned char> record(size + 64, 0xEE);
        ASSERT_EQ(R_InitBitmap(reinterpret_cast<BITMAPHANDLE*>(record.data()), size, 101, 50, 24), SUCCESS);
        EXPECT_EQ(fieldAt<R_UINT>(record, 0), size);
        EXPECT_EQ(fieldAt<R_INT>(record, 20), 101);   // width
        EXPECT_EQ(fieldAt<R_INT>(record, 24), 50);    // height
        EXPECT_EQ(fieldAt<R_INT>(record, 28), 24);    // bits
        EXPECT_EQ(fieldAt<R_UINT>(record, 32), 304u); // bytes of a row
        EXPECT_EQ(fieldAt<R_INT>(record, 64), BOTTOM_LEFT);
        EXPECT_EQ(fieldAt<R_INT>(record, 68), ORDER_BGR);
        EXPECT_EQ(fieldAt<R_UINT64>(record, 72), 304u * 50u);
        EXPECT_EQ(fieldAt<R_INT>(record, 100), 150); // dots per inch
        EXPECT_EQ(fieldAt<R_INT>(record, 136), 7);   // highest bit
        EXPECT_EQ(fieldAt<R_INT>(record, 176), 100); // gamma
        if (size == BITMAPHANDLE_SIZE) {
            EXPECT_EQ(fieldAt<R_UINT64>(record, 252), 304u * 50u);
        }
        EXPECT_TRUE(std::all_of(record.begin() + size, record.end(), [](unsigned char byte) { return byte == 0xEE; }));
    }
}

TEST(Caller, AProgramInCMakesPicturesOfEveryDepthInRecordsOfBothSizes)
{
    for (const int bits : kDepths) {
        SCOPED_TRACE(bits);
        EXPECT_KEPT(pictureMadeFromC(BITMAPHANDLE_SIZE, bits));
        EXPECT_KEPT(pictureMadeFromC(BITMAPHANDLE_SIZE_SHORT, bits));
    }
}

TEST(Caller, AProgramInCKeepsThePixelsItself) { EXPECT_KEPT(storageKeptInC()); }

TEST(Caller, AProgramInCIsToldWhatItDidWrong) { EXPECT_KEPT(refusalsSeenFromC()); }

TEST(Caller, ArraysOfTheLibraryAreGivenBackToIt)
{
    for (R_INT bits = 1; bits <= 8; ++bits) {
        RGBQUAD* const palette = R_CreateFixedPalette(bits);
        ASSERT_NE(palette, nullptr);
        EXPECT_EQ(std::memcmp(palette, R_IntGetFixedPalette(bits), sizeof(RGBQUAD) << bits), 0);
        R_HeapTerm(palette);
    }
    R_HeapTerm(nullptr);
}

TEST(Caller, BothFormsOfAMessageSayTheSameAndStayInTheirBuffers)
{
    for (R_INT code = -2100; code <= 10; ++code) {
        std::array<R_WCHAR, 300> wide{};
        std::array<char, 300> narrow{};
        ASSERT_EQ(R_GetFriendlyErrorMessage(code, wide.data(), wide.size(), 0), SUCCESS) << code;
        ASSERT_EQ(R_GetFriendlyErrorMessageA(code, narrow.data(), narrow.size(), 0), SUCCESS) << code;
        const std::string text(narrow.data());
        ASSERT_FALSE(text.empty()) << code;
        ASSERT_TRUE(std::equal(text.begin(), text.end() + 1, wide.begin(),
                               [](char a, R_WCHAR b) { return static_cast<R_WCHAR>(a) == b; }))
            << code << ": " << text;
    }
    std::array<char, 8> small;
    small.fill('#');
    ASSERT_EQ(R_GetFriendlyErrorMessageA(ERROR_INV_SIZE, small.data(), 5, 0), SUCCESS);
    EXPECT_EQ(std::strlen(small.data()), 4u);
    EXPECT_EQ(small[5], '#');
}

TEST(Caller, ThreadsHaveSettingsOfTheirOwnThatEndWithThem)
{
    const R_INT before = R_SetDefaultXResolution(300);
    std::vector<std::thread> threads;
    std::array<R_INT, 8> seen{}, kept{};
    for (size_t i = 0; i < seen.size(); ++i)
        threads.emplace_back([&, i] {
            seen[i] = R_SetDefaultXResolution(static_cast<R_INT>(1000 + i));
            std::this_thread::yield();
            kept[i] = R_GetDefaultXResolution();
        });
    for (std::thread& thread : threads) thread.join();
    for (size_t i = 0; i < seen.size(); ++i) {
        EXPECT_EQ(seen[i], 150);
        EXPECT_EQ(kept[i], static_cast<R_INT>(1000 + i));
    }
    EXPECT_EQ(R_SetDefaultXResolution(before), 300);
}

#if !defined(_WIN32)
TEST(Caller, TraceLinesTakeTheirArgumentsThroughTheInterface)
{
    testing::internal::CaptureStderr();
    Trace1("caller", "%d %s %.1f", 7, "pages", 2.5);
    Trace1W(u"wide", u"%d", 8);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_NE(text.find("caller: 7 pages 2.5"), std::string::npos) << text;
    EXPECT_NE(text.find("wide: 8"), std::string::npos) << text;
}
#endif

} // namespace
