/// The progress bar of work that takes long enough to wonder.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace rvimg {

/// One line on standard error that is drawn over and over, and wiped when the work is done. It appears only on a
/// terminal, and only when the work has already taken a while.
class Progress {
public:
    explicit Progress(bool wanted);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// A new stage of `steps` steps, such as ("reading photo.png", rows).
    void begin(std::string stage, uint64_t steps);
    void advance() { moveTo(done_ + 1); }
    void moveTo(uint64_t done);
    /// Wipes the bar, so that something else can be told. It comes back by itself.
    void hide();

private:
    using Clock = std::chrono::steady_clock;
    void draw(Clock::time_point now);

    bool shown_;
    bool drawn_ = false;
    std::string stage_;
    uint64_t steps_ = 1;
    uint64_t done_ = 0;
    Clock::time_point next_;
};

} // namespace rvimg
