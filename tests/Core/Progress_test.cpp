// The percentages of an operation, for any number of steps.
#include "Kernel/Core/Progress.h"
#include "Support/Watcher.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace rv::test {
namespace {

TEST(Progress, EachPercentOnceAndNoneTooEarly)
{
    for (const R_INT64 steps : {1ll, 2ll, 3ll, 7ll, 99ll, 100ll, 101ll, 150ll, 300ll, 12345ll, 3000000000ll}) {
        const Watcher watcher;
        Progress progress = Progress::ofThread(steps);
        ASSERT_EQ(progress.begin(), SUCCESS);
        const R_INT64 taken = std::min<R_INT64>(steps, 100000);
        std::vector<R_INT> wanted = {0};
        for (R_INT64 step = 1; step <= taken; ++step) {
            ASSERT_EQ(progress.step(), SUCCESS);
            const auto percent = static_cast<R_INT>(step * 100 / steps);
            if (percent != wanted.back()) wanted.push_back(percent);
        }
        ASSERT_EQ(watcher.percents, wanted) << steps << " steps";
    }
}

} // namespace
} // namespace rv::test
