#include "Kernel/Base/Util.h"

#include "Common/Format.h"
#include "Common/Text.h"
#include "Platform/Platform.h"
#include "R_Status.h"

#include <cstdio>

namespace rv {
namespace {

constexpr size_t kTextUnits = 2048; ///< of the formatted text
/// A text of line feeds alone doubles; the stamp and a function's name stand in front.
constexpr size_t kLineUnits = 2 * kTextUnits + 512;

constexpr uint64_t kSecond = 1000;
constexpr uint64_t kMinute = 60 * kSecond;
constexpr uint64_t kHour = 60 * kMinute;
constexpr uint64_t kDay = 24 * kHour;

constinit TraceClock gClock;

void debugOutput(const char* line) noexcept { platform().debugOutput(line); }
void debugOutput(const R_WCHAR* line) noexcept { platform().debugOutputWide(line); }

/// Formats into text. What the encoding in force cannot express is tried in those of two languages with many
/// characters; what none can express is replaced, so that the rest of the line is seen.
template <class Unit> void formatTrace(Unit (&text)[kTextUnits], const Unit* format, va_list arguments) noexcept
{
    const auto formatted = [&](const NarrowEncoding& narrow, Unencodable unencodable) {
        TextWriter<Unit> out(text, kTextUnits);
        return formatText(out, format, arguments, narrow, unencodable);
    };
#if defined(_WIN32) // elsewhere narrow text is UTF-8, which has every character
    if (formatted(NarrowEncoding(), Unencodable::fail)) return;
    for (const char* const language : {"Japanese", "Chinese"}) {
        const NarrowEncoding narrow(language);
        if (narrow.available() && formatted(narrow, Unencodable::fail)) return;
    }
#endif
    (void)formatted(NarrowEncoding(), Unencodable::replace);
}

/// Writes what stands before a text that begins a line; returns what follows the text's leading line feeds.
template <class Unit> const Unit* beginLine(TextWriter<Unit>& line, const Unit* text) noexcept
{
    const TraceClock::Stamp stamp = gClock.stamp(platform().ticks(), *text == '\n');
    if (*text != '\n') return text;
    for (; *text == '\n'; ++text) line.ascii("\r\n");
    if (stamp.pause) line.ascii("\n");

    uint64_t hours = stamp.elapsed / kHour;
    char place[64];
    TextWriter<char> prefix(place, sizeof(place));
    if (stamp.elapsed > kDay) { // a whole day still reads 24 hours
        prefix.ascii("+");
        prefix.number(static_cast<R_INT64>(stamp.elapsed / kDay));
        prefix.ascii("d ");
        hours %= 24;
    }
    char time[40];
    std::snprintf(time, sizeof(time), "%02d:%02d:%02d.%03d:%08x:", static_cast<int>(hours),
                  static_cast<int>(stamp.elapsed / kMinute % 60), static_cast<int>(stamp.elapsed / kSecond % 60),
                  static_cast<int>(stamp.elapsed % kSecond), static_cast<unsigned>(platform().threadId()));
    prefix.ascii(time);
    line.ascii(place);
    return text;
}

template <class Unit> void trace(const Unit* function, const Unit* format, va_list arguments) noexcept
{
    if (format == nullptr) return;
    Unit text[kTextUnits];
    formatTrace(text, format, arguments);

    Unit line[kLineUnits];
    TextWriter<Unit> out(line, kLineUnits);
    const Unit* const rest = beginLine(out, text);
    if (function != nullptr) {
        out.append(function);
        out.ascii(": ");
    }
    out.append(rest);
    debugOutput(line);
}

} // namespace

TraceClock::Stamp TraceClock::stamp(uint64_t ticks, bool startsLine) noexcept
{
    uint64_t first = kNever;
    if (first_.compare_exchange_strong(first, ticks, std::memory_order_relaxed)) first = ticks;
    Stamp stamp{};
    stamp.elapsed = ticks > first ? ticks - first : 0; // another thread may have read the clock later and come first
    if (startsLine) {
        const uint64_t before = lastLine_.exchange(ticks, std::memory_order_relaxed);
        stamp.pause = ticks > before && ticks - before > kPause; // kNever is never before
    }
    return stamp;
}

void traceLockCount(const char* function, R_INT count, const char* ending) noexcept
{
    Trace1(function, "pBitmap->nLockCount = %d%s", count, ending);
}

void formatDuration(char (&text)[kDurationChars], uint64_t milliseconds) noexcept
{
    const auto rest = static_cast<int>(milliseconds % kSecond);
    if (milliseconds < kSecond)
        std::snprintf(text, sizeof(text), "%03dms", rest);
    else
        std::snprintf(text, sizeof(text), "%llu.%03ds", static_cast<unsigned long long>(milliseconds / kSecond), rest);
}

} // namespace rv

void Trace(const char* pszFormat, ...) noexcept
{
    va_list arguments;
    va_start(arguments, pszFormat);
    rv::trace<char>(nullptr, pszFormat, arguments);
    va_end(arguments);
}

void TraceV(const char* pszFormat, va_list arguments) noexcept { rv::trace<char>(nullptr, pszFormat, arguments); }

void Trace1(const char* pszFunction, const char* pszFormat, ...) noexcept
{
    va_list arguments;
    va_start(arguments, pszFormat);
    rv::trace(pszFunction, pszFormat, arguments);
    va_end(arguments);
}

void Trace1W(const R_WCHAR* pszFunction, const R_WCHAR* pszFormat, ...) noexcept
{
    va_list arguments;
    va_start(arguments, pszFormat);
    rv::trace(pszFunction, pszFormat, arguments);
    va_end(arguments);
}
