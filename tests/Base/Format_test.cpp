// Formatting is held to the C library's wherever both mean the same, in narrow and in wide text alike.
#include "Common/Format.h"
#include "Common/WideUTF8.h"
#include "Support/GuardedRecord.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <string>

namespace {

using rv::Unencodable;
using rv::test::GuardedBuffer;
using Wide = std::basic_string<R_WCHAR>;

Wide widened(const std::string& text) { return Wide(text.begin(), text.end()); } // of 7-bit text

/// Formats into a buffer of `capacity` units that ends at an unreadable page.
template <class Unit> std::basic_string<Unit> formattedTo(size_t capacity, const Unit* format, ...)
{
    const GuardedBuffer buffer(capacity * sizeof(Unit));
    Unit* const text = reinterpret_cast<Unit*>(buffer.data());
    rv::TextWriter<Unit> out(text, capacity);
    va_list arguments;
    va_start(arguments, format);
    rv::formatText(out, format, arguments, rv::NarrowEncoding(), Unencodable::replace);
    va_end(arguments);
    return text;
}

template <class Unit, class... Values> std::basic_string<Unit> formatted(const Unit* format, Values... values)
{
    return formattedTo(4096, format, values...);
}

/// The C library's text, and ours in both kinds.
#define EXPECT_AS_PRINTF(format, ...)                                                                                  \
    do {                                                                                                               \
        char expected[4096];                                                                                           \
        std::snprintf(expected, sizeof(expected), format, __VA_ARGS__);                                                \
        EXPECT_EQ(formatted<char>(format, __VA_ARGS__), expected) << format;                                           \
        EXPECT_EQ(formatted<R_WCHAR>(widened(format).c_str(), __VA_ARGS__), widened(expected)) << format;              \
    } while (false)

TEST(Format, NumbersAsTheCLibraryWritesThem)
{
    EXPECT_AS_PRINTF("%d %i %u", INT_MIN, -1, UINT_MAX);
    EXPECT_AS_PRINTF("[%5d|%-5d|%05d|%+d|% d|%.3d|%8.3d|%.0d]", 42, 42, 42, 42, 42, 7, 7, 0);
    EXPECT_AS_PRINTF("[%*d|%-*d|%*d|%.*d|%.*d]", 6, 1, 6, 2, -6, 3, 4, 5, -1, 6);
    EXPECT_AS_PRINTF("%o %x %X %#o %#x %#X", 8, 0xbeef, 0xbeef, 8, 0xbeef, 0xbeef);
    EXPECT_EQ(formatted<char>("%hhd %hd %hhu %hu", 511, 65537, 511, 65537), "-1 1 255 1");
    EXPECT_EQ(formatted<char>("%I64d %I32d %Iu", R_INT64{-5}, 6, size_t{7}), "-5 6 7"); // another system's sizes
    EXPECT_AS_PRINTF("%ld %lu %lld %llx", LONG_MIN, ULONG_MAX, LLONG_MIN, ULLONG_MAX);
    EXPECT_AS_PRINTF("%zu %td %jd", SIZE_MAX, ptrdiff_t{-3}, INTMAX_MIN);
    EXPECT_AS_PRINTF("%f %.0f %10.3f %-10.1e| %g %G %a", 1.5, 2.5, -3.14159, 12345.678, 1e-10, 1e20, 0.5);
    EXPECT_AS_PRINTF("%Lf %f %f", 2.25L, HUGE_VAL, 1e300);
    EXPECT_AS_PRINTF("%p", reinterpret_cast<void*>(uintptr_t{0x1234}));
    EXPECT_AS_PRINTF("100%% %c%c", 'a', 'b');
}

TEST(Format, TextOfBothKinds)
{
    const char* const narrow = "ab";
    const R_WCHAR* const wide = RV_WIDE("cd");
    EXPECT_EQ(formatted<char>("%s|%hs|%S|%ls|%ws", narrow, narrow, wide, wide, wide), "ab|ab|cd|cd|cd");
    EXPECT_EQ(formatted<R_WCHAR>(RV_WIDE("%s|%ls|%S|%hs|%hS"), wide, wide, narrow, narrow, narrow),
              RV_WIDE("cd|cd|ab|ab|ab"));
    EXPECT_EQ(formatted<char>("[%5s|%*S|%.1s|%4.1S]", narrow, -5, wide, narrow, wide), "[   ab|cd   |a|   c]");
    EXPECT_EQ(formatted<char>("%c%C%hc%lc", 'a', 'b', 'c', 'd'), "abcd");
    EXPECT_EQ(formatted<R_WCHAR>(RV_WIDE("[%3c|%-3C]"), RV_WIDE('a'), 'b'), RV_WIDE("[  a|b  ]"));
    EXPECT_EQ(formatted<char>("%s %S %.3s", nullptr, nullptr, nullptr), "(null) (null) (nu");
}

TEST(Format, APrecisionBoundsWhatIsRead)
{
    const GuardedBuffer buffer(4); // no terminator before the unreadable page
    memcpy(buffer.data(), "abcd", 4);
    EXPECT_EQ(formatted<char>("[%6.4s]", buffer.data()), "[  abcd]");
    EXPECT_EQ(formatted<R_WCHAR>(RV_WIDE("[%6.4S]"), buffer.data()), RV_WIDE("[  abcd]"));
}

TEST(Format, CutsAtEveryCapacity)
{
    const std::string whole = "x=00042 and some text";
    for (size_t capacity = 1; capacity <= whole.size() + 2; ++capacity) {
        EXPECT_EQ(formattedTo<char>(capacity, "x=%05d and %s text", 42, "some"), whole.substr(0, capacity - 1));
        EXPECT_EQ(formattedTo<R_WCHAR>(capacity, RV_WIDE("x=%05d and %S text"), 42, "some"),
                  widened(whole.substr(0, capacity - 1)));
    }
    EXPECT_EQ(formattedTo<char>(8, "%99999999999d", 1), "       ");
}

TEST(Format, WhatIsNoConversionStays)
{
    for (const char* const text : {"%", "50%", "%y", "%5", "%l", "%-", "%\xC3\xA9"})
        EXPECT_EQ(formatted<char>(text), text);
    int count = 77;
    EXPECT_EQ(formatted<char>("ab%n%d", &count, 5), "ab5");
    EXPECT_EQ(count, 77);
}

#if !defined(_WIN32)
TEST(Format, ConvertedTextIsUtf8)
{
    EXPECT_EQ(formatted<char>("[%6S]", u"\u00E9\U0001F600"), "[\u00E9\U0001F600]");
    EXPECT_EQ(formatted<char>("[%.5S]", u"\u00E9\U0001F600"), "[\u00E9]"); // no half character
    EXPECT_EQ(formatted<char>("%C%lc", 0x20AC, 0x1F600), "\u20AC\U0001F600");
    EXPECT_EQ(formatted<R_WCHAR>(u"[%4S]", "\u00E9\U0001F600"), u"[ \u00E9\U0001F600]");
    EXPECT_EQ(formatted<R_WCHAR>(u"%S%C", "a\xFF", 0xE9), u"a\uFFFD\uFFFD");
}
#endif

} // namespace
