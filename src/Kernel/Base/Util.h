/// Trace lines: their place in time, and the texts that several families write.
#pragma once

#include "R_Types.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace rv {

/// Traces a bitmap's lock count under the name of the function that found it out of order. ending closes the text:
/// "", "\n" or "\r\n". Callers ask lockCountDiagnostics() first.
void traceLockCount(const char* function, R_INT count, const char* ending) noexcept;

/// Room for any duration's text, terminator included.
inline constexpr size_t kDurationChars = 32;

/// Writes a duration as trace texts show it: "1.250s" from one second on, "040ms" below.
void formatDuration(char (&text)[kDurationChars], uint64_t milliseconds) noexcept;

/// Places trace lines in time. Threads may share one; it needs no lock.
class TraceClock {
public:
    struct Stamp {
        uint64_t elapsed; ///< milliseconds since the clock's first stamp
        bool pause;       ///< more than kPause milliseconds since the line before this one
    };
    static constexpr uint64_t kPause = 100;

    constexpr TraceClock() noexcept = default;
    TraceClock(const TraceClock&) = delete;
    TraceClock& operator=(const TraceClock&) = delete;

    /// startsLine: the text begins a line of its own; others only start the clock.
    Stamp stamp(uint64_t ticks, bool startsLine) noexcept;

private:
    static constexpr uint64_t kNever = UINT64_MAX;
    std::atomic<uint64_t> first_{kNever};
    std::atomic<uint64_t> lastLine_{kNever};
};

} // namespace rv
