#include "Progress.h"

#include "Error.h"

#include <algorithm>
#include <cstdio>
#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

namespace rvimg {

namespace {

constexpr auto kPatience = std::chrono::milliseconds(500);
constexpr auto kRedraw = std::chrono::milliseconds(80);

bool errorIsTerminal()
{
#if defined(_WIN32)
    return _isatty(_fileno(stderr)) != 0;
#else
    return isatty(fileno(stderr)) != 0;
#endif
}

} // namespace

Progress::Progress(bool wanted) : shown_(wanted && errorIsTerminal()), next_(Clock::now() + kPatience) {}

Progress::~Progress() { hide(); }

void Progress::hide()
{
    if (drawn_) std::fputs("\r\033[K", stderr);
    drawn_ = false;
}

void Progress::begin(std::string stage, uint64_t steps)
{
    stage_ = std::move(stage);
    steps_ = std::max<uint64_t>(steps, 1);
    done_ = 0;
}

void Progress::moveTo(uint64_t done)
{
    throwIfInterrupted();
    done_ = done;
    if (!shown_) return;
    const auto now = Clock::now();
    if (now >= next_) draw(now);
}

void Progress::draw(Clock::time_point now)
{
    constexpr size_t kCells = 30;
    const double share = std::min(1.0, static_cast<double>(done_) / static_cast<double>(steps_));
    const auto full = static_cast<size_t>(share * static_cast<double>(kCells));
    std::string bar(kCells, '.');
    std::fill_n(bar.begin(), full, '#');
    std::fprintf(stderr, "\r\033[K%s [%s] %3d %%", stage_.c_str(), bar.c_str(), static_cast<int>(share * 100.0));
    std::fflush(stderr);
    drawn_ = true;
    next_ = now + kRedraw;
}

} // namespace rvimg
