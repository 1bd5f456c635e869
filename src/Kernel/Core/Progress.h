/// Progress of an operation over a number of steps, told to the calling thread's callback.
#pragma once

#include "Kernel/Base/System.h"

namespace rv {

/// The percents that an operation runs through, for one that is a part of a larger one.
struct PercentRange {
    R_INT first = 0;
    R_INT last = 100;

    /// None where it would run backwards.
    R_INT64 length() const noexcept { return last > first ? R_INT64{last} - first : 0; }
};

/// Reports 0 before the first step and whole percents after; integers only, no percentage twice, exactly 100 after
/// the last step. Any answer but 1 ends the operation and is its result. A range has its own first and last percent.
class Progress {
public:
    /// The general callback; the copy family has one of its own.
    static Progress ofThread(R_INT64 steps, const PercentRange& range = {}) noexcept
    {
        const ThreadSettings& s = threadSettings();
        return Progress(s.statusCallback, s.statusUserData, steps, range);
    }
    static Progress ofCopy(R_INT64 steps) noexcept
    {
        const ThreadSettings& s = threadSettings();
        return Progress(s.copyStatusCallback, s.copyStatusUserData, steps, {});
    }

    /// Whether anybody is told; steps can be taken at once otherwise.
    bool watched() const noexcept { return callback_ != nullptr; }
    /// Before the first step. Without steps there is nothing between the first percent and the last.
    Status begin() noexcept
    {
        if (callback_ == nullptr) return SUCCESS;
        R_TRY(callback_(static_cast<R_INT>(percent_), userData_));
        return steps_ > 0 ? Status(SUCCESS) : Status(callback_(last_, userData_));
    }
    /// After each step.
    Status step() noexcept
    {
        if (callback_ == nullptr) return SUCCESS;
        percent_ += whole_;
        carry_ += rest_;
        if (carry_ >= steps_) {
            ++percent_;
            carry_ -= steps_;
        } else if (whole_ == 0) {
            return SUCCESS;
        }
        return callback_(static_cast<R_INT>(percent_), userData_);
    }

private:
    Progress(STATUSCALLBACK callback, void* userData, R_INT64 steps, const PercentRange& range) noexcept
        : callback_(callback), userData_(userData), steps_(steps > 0 ? steps : 0), percent_(range.first),
          last_(range.last)
    {
        if (steps_ > 0) {
            whole_ = range.length() / steps_;
            rest_ = range.length() % steps_;
        }
    }

    STATUSCALLBACK callback_;
    void* userData_;
    R_INT64 steps_;
    R_INT64 percent_;
    R_INT last_;
    R_INT64 whole_ = 0;
    R_INT64 rest_ = 0;
    R_INT64 carry_ = 0;
};

} // namespace rv
