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

/// What one call traces, its stamp as "<stamp>" when it is of this moment and this thread.
template <class Call> std::string traced(const Call& call)
{
    const DebugCapture capture;
    call();
    char id[16];
    std::snprintf(id, sizeof(id), "%08x:", rv::platform().threadId());
    return std::regex_replace(capture.text(), std::regex("\\d{2,}:\\d\\d:\\d\\d\\.\\d{3}:" + std::string(id)),
                              "<stamp>");
}
#define TRACED(call) traced([] { call; })

TEST(Trace, OnlyALeadingLineFeedBringsAStamp)
{
    const PretendTicks ticks(rv::platform().ticks());
    (void)TRACED(Trace("\nfrom here on no time passes"));
    EXPECT_EQ(TRACED(Trace("plain %d\n", 5)), "plain 5\n");
    EXPECT_EQ(TRACED(Trace("\nrow %d\nmore", 7)), "\r\n<stamp>row 7\nmore");
    EXPECT_EQ(TRACED(Trace("%s", "\n\n\nthree")), "\r\n\r\n\r\n<stamp>three");
    EXPECT_EQ(TRACED(Trace(nullptr)), "");
    EXPECT_EQ(TRACED(Trace1("R_Call", "\n\nx = %d\r\n", -1)), "\r\n\r\n<stamp>R_Call: x = -1\r\n");
    EXPECT_EQ(TRACED(Trace1W(RV_WIDE("R_Call"), RV_WIDE("\n%s %S %05d"), RV_WIDE("wide"), "narrow", 42)),
              "\r\n<stamp>R_Call: wide narrow 00042");
    EXPECT_EQ(TRACED(rv::traceLockCount("R_FreeBitmap", 2, "")), "R_FreeBitmap: pBitmap->nLockCount = 2");
    const DebugCapture capture;
    Trace("narrow");
    Trace1W(RV_WIDE("f"), RV_WIDE("wide"));
    ASSERT_EQ(capture.lines().size(), 2u);
    EXPECT_TRUE(!capture.lines()[0].wide && capture.lines()[1].wide);
}

TEST(Trace, TextsAreCutNotOverrun)
{
    static const std::string longText(5000, 'x'), lineFeeds(5000, '\n'), longName(9000, 'n');
    static const std::basic_string<R_WCHAR> wide(5000, RV_WIDE('y'));
    EXPECT_EQ(TRACED(Trace("%s", longText.c_str())), std::string(2047, 'x'));
    EXPECT_EQ(TRACED(Trace1W(RV_WIDE("f"), RV_WIDE("%s"), wide.c_str())), "f: " + std::string(2047, 'y'));
    EXPECT_TRUE(TRACED(Trace1(longName.c_str(), "%s", lineFeeds.c_str())).ends_with("nnn")); // longer than any line
}

/// The hours, days and pauses of real lines. The clock began with some earlier trace; where it stands now shows.
TEST(Trace, TimeSinceTheFirstTrace)
{
    const uint64_t now = rv::platform().ticks() + 1000;
    PretendTicks ticks(now);
    const auto line = [] {
        const DebugCapture capture;
        Trace("\nx");
        return capture.text();
    };
    unsigned hours = 0, minutes = 0, seconds = 0, milliseconds = 0;
    line();
    ASSERT_EQ(std::sscanf(line().c_str(), "\r\n%u:%u:%u.%u", &hours, &minutes, &seconds, &milliseconds), 4);
    const uint64_t start = now - (((hours * 60ull + minutes) * 60 + seconds) * 1000 + milliseconds);
    const std::pair<uint64_t, const char*> lines[] = {
        {18'305'007, "\r\n\n05:05:05.007:"},
        {18'305'107, "\r\n05:05:05.107:"},   // 100 ms later is no pause
        {18'305'208, "\r\n\n05:05:05.208:"}, // 101 ms is
        {86'400'000, "\r\n\n24:00:00.000:"},
        {86'400'001, "\r\n+1d 00:00:00.001:"},
        {40 * 86'400'000ull + 3'723'004, "\r\n\n+40d 01:02:03.004:"},
        {18'305'007, "\r\n05:05:05.007:"}, // a clock read before that of another thread makes no pause
    };
    for (const auto& [elapsed, wanted] : lines) {
        ticks.set(start + elapsed);
        const std::string text = line();
        EXPECT_EQ(text.substr(0, text.rfind(':', text.size() - 3) + 1), wanted);
    }
}

TEST(Trace, ClocksStartWithTheFirstTextOfAnyKind)
{
    TraceClock clock;
    EXPECT_EQ(clock.stamp(5000, false).elapsed, 0u);
    const TraceClock::Stamp first = clock.stamp(5400, true);
    EXPECT_TRUE(first.elapsed == 400 && !first.pause); // there is no line before it
    EXPECT_FALSE(clock.stamp(9000, false).pause);
    EXPECT_TRUE(clock.stamp(5602, true).pause); // texts between lines do not count
}

TEST(Trace, TextOfTheOtherKind)
{
#if defined(_WIN32)
    EXPECT_EQ(TRACED(Trace("<%ls>", L"\u00E9")), "<\xE9>");          // in force: each byte a character
    EXPECT_EQ(TRACED(Trace("<%ls>", L"\u3042")), "<\x82\xA0>");      // Japanese
    EXPECT_EQ(TRACED(Trace("<%ls>", L"\uAC00 after")), "<? after>"); // in none of them: the rest is seen
#else
    EXPECT_EQ(TRACED(Trace("<%ls>", u"\u00E9\U0001F600\xD800")), "<\u00E9\U0001F600\uFFFD>");
#endif
}

} // namespace
