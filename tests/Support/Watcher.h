/// A progress callback that keeps what it is told.
#pragma once

#include "R_Geometry.h"

#include <vector>

namespace rv::test {

/// Records percentages; says stop at one call.
struct Watcher {
    explicit Watcher(int stopAt = -1, R_INT answer = -100) : stopAt_(stopAt), answer_(answer)
    {
        (void)R_SetStatusCallBack(
            [](R_INT percent, void* userData) {
                auto* const self = static_cast<Watcher*>(userData);
                self->percents.push_back(percent);
                return static_cast<int>(self->percents.size()) - 1 == self->stopAt_ ? self->answer_ : SUCCESS;
            },
            this, nullptr, nullptr);
    }
    ~Watcher() { (void)R_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr); }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    std::vector<R_INT> percents;

private:
    int stopAt_;
    R_INT answer_;
};

} // namespace rv::test
