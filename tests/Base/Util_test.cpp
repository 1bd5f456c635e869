// Trace lines as the debugger sees them.
#include "Common/Text.h"
#include "Kernel/Base/Util.h"
#include "R_Status.h"
#include "Support/FailingPlatform.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>

namespace {

using rv::TraceClock;
using rv::test::DebugCapture;
using rv::test::PretendTicks;

/// The one line that was traced since the last look, its stamp as "<time>" and "<id>" when it is this thread's.
class Lines {
public:
    std::string last()
    {
        const auto lines = capture_.lines();
        EXPECT_EQ(lines.size(), seen_ + 1);
        seen_ = lines.size();
        if (lines.empty()) return "none";
        wide_ = lines.back().wide;
        char id[16];
        std::snprintf(id, sizeof(id), "%08x:", rv::platform().threadId());
        static const std::regex stamp("\\d{2,}:\\d\\d:\\d\\d\\.\\d{3}:([0-9a-f]{8}:)");
        std::smatch match;
        std::string text = lines.back().text;
        if (std::regex_search(text, match, stamp) && match[1] == id)
            text = match.prefix().str() + "<time><id>" + match.suffix().str();
        return text;
    }
    bool wide() const { return wide_; }

private:
    DebugCapture capture_;
    size_t seen_ = 0;
    bool wide_ = false;
};

void traceV(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    TraceV(format, arguments);
    va_end(arguments);
}

TEST(Trace, OnlyALeadingLineFeedBringsAStamp)
{
    const PretendTicks ticks(rv::platform().ticks());
    Lines lines;
    Trace("\nlevel");
    lines.last(); // the next line's distance to this one is 0
    Trace("plain %d\n", 5);
    EXPECT_EQ(lines.last(), "plain 5\n");
    EXPECT_FALSE(lines.wide());
    Trace("\nrow %d\nmore", 7);
    EXPECT_EQ(lines.last(), "\r\n<time><id>row 7\nmore");
    Trace("%s", "\n\n\nthree");
    EXPECT_EQ(lines.last(), "\r\n\r\n\r\n<time><id>three");
    traceV("\n%s-%u", "v", 3u);
    EXPECT_EQ(lines.last(), "\r\n<time><id>v-3");
    Trace("");
    EXPECT_EQ(lines.last(), "");
    Trace(nullptr);
    EXPECT_EQ(rv::test::DebugCapture().lines().size(), 0u);
}

TEST(Trace, FunctionsNamesStandBehindTheStamp)
{
    const PretendTicks ticks(rv::platform().ticks());
    Lines lines;
    Trace("\nlevel");
    lines.last();
    Trace1("R_Call", "count = %d\r\n", -1);
    EXPECT_EQ(lines.last(), "R_Call: count = -1\r\n");
    Trace1("R_Call", "\n\nx");
    EXPECT_EQ(lines.last(), "\r\n\r\n<time><id>R_Call: x");
    Trace1(nullptr, "nameless");
    EXPECT_EQ(lines.last(), "nameless");
    Trace1W(RV_WIDE("R_Call"), RV_WIDE("\n%s %S %05d"), RV_WIDE("wide"), "narrow", 42);
    EXPECT_EQ(lines.last(), "\r\n<time><id>R_Call: wide narrow 00042");
    EXPECT_TRUE(lines.wide());
    rv::traceLockCount("R_FreeBitmap", 2, "");
    EXPECT_EQ(lines.last(), "R_FreeBitmap: pBitmap->nLockCount = 2");
    rv::traceLockCount("R_AccessBitmap", -1, "\n");
    EXPECT_EQ(lines.last(), "R_AccessBitmap: pBitmap->nLockCount = -1\n");
}

TEST(Trace, TextsAreCutNotOverrun)
{
    Lines lines;
    Trace("%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(lines.last(), std::string(2047, 'x'));
    const std::basic_string<R_WCHAR> wide(5000, RV_WIDE('y'));
    Trace1W(RV_WIDE("f"), RV_WIDE("%s"), wide.c_str());
    EXPECT_EQ(lines.last(), "f: " + std::string(2047, 'y'));
    Trace("%s", std::string(5000, '\n').c_str());
    EXPECT_TRUE(lines.last().starts_with("\r\n\r\n"));
    Trace1(std::string(9000, 'n').c_str(), "%s", std::string(5000, '\n').c_str()); // longer than any line
    EXPECT_TRUE(lines.last().ends_with("nnn"));
}

/// The hours, days and pauses of real lines. The clock began with some earlier trace; where it stands now shows.
TEST(Trace, TimeSinceTheFirstTrace)
{
    const uint64_t now = rv::platform().ticks() + 1000;
    PretendTicks ticks(now);
    const auto traced = [] {
        const DebugCapture capture;
        Trace("\nx");
        return capture.text();
    };
    unsigned hours = 0, minutes = 0, seconds = 0, milliseconds = 0;
    traced();
    ASSERT_EQ(std::sscanf(traced().c_str(), "\r\n%u:%u:%u.%u", &hours, &minutes, &seconds, &milliseconds), 4);
    const uint64_t start = now - (((hours * 60ull + minutes) * 60 + seconds) * 1000 + milliseconds);
    const auto at = [&](uint64_t elapsed) {
        ticks.set(start + elapsed);
        const std::string text = traced();
        return text.substr(0, text.rfind(':', text.size() - 3) + 1);
    };
    EXPECT_EQ(at(18'305'007), "\r\n\n05:05:05.007:");
    EXPECT_EQ(at(18'305'107), "\r\n05:05:05.107:");   // 100 ms later is no pause
    EXPECT_EQ(at(18'305'208), "\r\n\n05:05:05.208:"); // 101 ms is
    EXPECT_EQ(at(86'400'000), "\r\n\n24:00:00.000:");
    EXPECT_EQ(at(86'400'001), "\r\n+1d 00:00:00.001:");
    EXPECT_EQ(at(40 * 86'400'000ull + 3'723'004), "\r\n\n+40d 01:02:03.004:");
    EXPECT_EQ(at(18'305'007), "\r\n05:05:05.007:"); // a clock read before that of another thread makes no pause
}

TEST(Trace, ClocksStartWithTheFirstTextOfAnyKind)
{
    TraceClock clock;
    EXPECT_EQ(clock.stamp(5000, false).elapsed, 0u);
    const TraceClock::Stamp first = clock.stamp(5400, true);
    EXPECT_EQ(first.elapsed, 400u);
    EXPECT_FALSE(first.pause); // there is no line before it
    EXPECT_TRUE(clock.stamp(5501, true).pause);
    EXPECT_FALSE(clock.stamp(9000, false).pause);
    EXPECT_TRUE(clock.stamp(5602, true).pause); // texts between lines do not count
    EXPECT_EQ(clock.stamp(4000, true).elapsed, 0u);
}

#if defined(_WIN32)
TEST(Trace, OtherCodePagesAreTried)
{
    const auto traced = [](const wchar_t* text) {
        const DebugCapture capture;
        Trace("<%ls>", text);
        return capture.text();
    };
    EXPECT_EQ(traced(L"\u00E9"), "<\xE9>");          // in force: each byte a character
    EXPECT_EQ(traced(L"\u3042"), "<\x82\xA0>");      // Japanese
    EXPECT_EQ(traced(L"\uAC00 after"), "<? after>"); // in none of them: the rest of the line is seen
}
#else
TEST(Trace, ConvertedTextIsUtf8)
{
    const DebugCapture capture;
    Trace("<%ls>", u"\u00E9\u3042\U0001F600\xD800");
    EXPECT_EQ(capture.text(), "<\u00E9\u3042\U0001F600\uFFFD>");
}
#endif

TEST(Trace, Durations)
{
    const struct {
        uint64_t milliseconds;
        const char* text;
    } cases[] = {{0, "000ms"},     {7, "007ms"},        {999, "999ms"},
                 {1000, "1.000s"}, {61'042, "61.042s"}, {UINT64_MAX, "18446744073709551.615s"}};
    for (const auto& c : cases) {
        char text[rv::kDurationChars];
        rv::formatDuration(text, c.milliseconds);
        EXPECT_STREQ(text, c.text);
    }
}

} // namespace
