// UTF-8 and UTF-16: every character both ways, broken text, cut text, and nothing read or written outside.
#include "Common/WideUTF8.h"
#include "Support/FailingPlatform.h"
#include "Support/GuardedRecord.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using rv::test::GuardedBuffer;
using Wide = std::basic_string<R_WCHAR>;

std::string utf8(const Wide& text)
{
    std::string out(text.size() * 3 + 1, '?');
    out.resize(rv::utf8FromWide(out.data(), out.size(), text.data(), text.size()).length);
    return out;
}

Wide wide(const std::string& text)
{
    Wide out(text.size() + 1, RV_WIDE('?'));
    out.resize(rv::wideFromUtf8(out.data(), out.size(), text.data(), text.size()).length);
    return out;
}

TEST(WideUTF8, EveryCharacterSurvivesBothWays)
{
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c == 0xD800) c = 0xE000;
        char bytes[rv::kMaxUtf8Bytes];
        const std::string narrow(bytes, rv::encodeCharacter(c, bytes));
        ASSERT_EQ(narrow.size(), c < 0x80 ? 1u : c < 0x800 ? 2u : c < 0x10000 ? 3u : 4u) << std::hex << uint32_t{c};
        const char* at = narrow.data();
        ASSERT_TRUE(rv::nextCharacter(at, narrow.data() + narrow.size()) == c) << std::hex << uint32_t{c};
        ASSERT_EQ(utf8(wide(narrow)), narrow) << std::hex << uint32_t{c};
    }
}

TEST(WideUTF8, KnownBytes)
{
    EXPECT_EQ(utf8(RV_WIDE("a\u00E9\u20AC\U0001F600")), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(wide("\xF0\x9F\x98\x80"), (Wide{R_WCHAR(0xD83D), R_WCHAR(0xDE00)}));
}

TEST(WideUTF8, EachBrokenPieceIsOneReplacement)
{
    const struct {
        std::string narrow, wide; // of the wide text R stands for a replacement
    } cases[] = {
        {"\x80"
         "a",
         "Ra"},                       // a continuation alone
        {"\xC0\xAF", "RR"},           // overlong
        {"\xE0\x80\xAF", "RRR"},      // overlong
        {"\xF0\x8F\xBF\xBF", "RRRR"}, // overlong
        {"\xED\xA0\x80", "RRR"},      // a surrogate
        {"\xF4\x90\x80\x80", "RRRR"}, // past the last character
        {"\xF5\xFF", "RR"},           // never bytes of a text
        {"\xE2\x82", "R"},            // ends inside a character
        {"\xF0\x9F\x98"
         "a",
         "Ra"},                        // broken off by another
        {"\xE2\x82\xC3\xA9", "R\xE9"}, // broken off by a longer one
    };
    for (const auto& c : cases) {
        Wide expected;
        for (const char unit : c.wide) expected += unit == 'R' ? R_WCHAR(0xFFFD) : R_WCHAR(static_cast<uint8_t>(unit));
        R_WCHAR out[16];
        EXPECT_FALSE(rv::wideFromUtf8(out, 16, c.narrow.c_str()).valid);
        EXPECT_EQ(Wide(out), expected) << testing::PrintToString(c.narrow);
    }
    for (const Wide& broken : {Wide{R_WCHAR(0xD83D)}, Wide{R_WCHAR(0xDE00)}})
        EXPECT_EQ(utf8(broken + RV_WIDE('a')), std::string("\xEF\xBF\xBD") + 'a');
}

/// Texts that end at an unreadable page, with and without a terminator: all but the last unit may be looked at.
TEST(WideUTF8, ReadsNothingPastTheEnd)
{
    for (const std::string ending : {"a", "\xC3", "\xE2\x82", "\xF0\x9F\x98", "\xF0\x9F\x98\x80"}) {
        R_WCHAR texts[2][8];
        for (const size_t more : {size_t{0}, size_t{1}}) {
            const GuardedBuffer buffer(ending.size() + more);
            memcpy(buffer.data(), ending.c_str(), ending.size() + more);
            rv::wideFromUtf8(texts[more], 8, reinterpret_cast<const char*>(buffer.data()),
                             more != 0 ? rv::kTerminated : ending.size());
        }
        EXPECT_EQ(Wide(texts[0]), Wide(texts[1])) << testing::PrintToString(ending);
    }
    const GuardedBuffer lead(sizeof(R_WCHAR));
    const R_WCHAR surrogate = 0xD83D;
    memcpy(lead.data(), &surrogate, sizeof(surrogate));
    char out[8];
    EXPECT_FALSE(rv::utf8FromWide(out, 8, reinterpret_cast<const R_WCHAR*>(lead.data()), 1).valid);
}

TEST(WideUTF8, CutsBetweenCharactersAndTellsTheNeed)
{
    const Wide text = RV_WIDE("\u00E9\U0001F600z"); // 2, 4 and 1 bytes; 1, 2 and 1 units
    const std::string narrow = utf8(text);
    const size_t fits[] = {0, 0, 0, 2, 2, 2, 2, 6, 7, 7};
    for (size_t capacity = 0; capacity < std::size(fits); ++capacity) {
        const GuardedBuffer buffer(capacity);
        char* const out = reinterpret_cast<char*>(buffer.data());
        const rv::Conversion result = rv::utf8FromWide(out, capacity, text.c_str());
        EXPECT_EQ(result.length, fits[capacity]) << capacity;
        EXPECT_EQ(result.needed, narrow.size());
        if (capacity > 0) {
            EXPECT_STREQ(out, narrow.substr(0, fits[capacity]).c_str());
        }
    }
    R_WCHAR out[4];
    EXPECT_EQ(rv::wideFromUtf8(out, 3, narrow.c_str()).length, 1u); // half a pair is no character
    EXPECT_EQ(rv::wideFromUtf8(nullptr, 0, narrow.c_str()).needed, text.size());
    EXPECT_EQ(rv::wideFromUtf8(out, 4, nullptr, 0).needed, 0u);
}

TEST(WideUTF8, ConvertsForACall)
{
    const rv::test::NoMemory none;
    for (const size_t length : {size_t{0}, size_t{263}, size_t{264}}) { // the last does not fit into the object
        const rv::WideText converted(std::string(length, 'x').c_str());
        ASSERT_EQ(static_cast<bool>(converted), length < 264);
        if (length < 264) {
            EXPECT_EQ(converted.get(), Wide(length, RV_WIDE('x')));
        }
    }
    EXPECT_FALSE(rv::Utf8Text(Wide{R_WCHAR(0xDC00)}.c_str()).valid());
}

} // namespace
