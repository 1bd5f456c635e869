#include "Error.h"

#include <csignal>
#include <cstdlib>

namespace rvimg {

namespace {

volatile std::sig_atomic_t gSignal = 0;

extern "C" void noteSignal(int signal) { gSignal = signal; }

constexpr int kInterruptions[] = {
    SIGINT,
    SIGTERM,
#if defined(SIGHUP)
    SIGHUP,
#endif
};

/// What was ignored when the program started, as in the background or without a terminal, stays ignored.
void answerInterruptions(void (*answer)(int))
{
    for (const int signal : kInterruptions)
        if (std::signal(signal, answer) == SIG_IGN) std::signal(signal, SIG_IGN);
}

} // namespace

std::string messageOf(R_INT status)
{
    char message[1024] = "";
    if (R_GetFriendlyErrorMessageA(status, message, sizeof message, 0) != SUCCESS) return text("status ", status);
    return text(message, " (", status, ")");
}

void check(R_INT status)
{
    if (status == SUCCESS) return;
    throwIfInterrupted();
    throw Error(messageOf(status));
}

void checkMoved(R_SSIZE moved, size_t bytes)
{
    if (moved == static_cast<R_SSIZE>(bytes)) return;
    throw Error(moved < 0 ? messageOf(static_cast<R_INT>(moved)) : "a row could be moved only in part");
}

void watchForInterruption()
{
    answerInterruptions(noteSignal);
#if defined(SIGPIPE)
    std::signal(SIGPIPE, SIG_IGN); // a reader that has gone is a failed write, which cleans up and says so
#endif
}

bool interrupted() noexcept { return gSignal != 0; }

void throwIfInterrupted()
{
    if (interrupted()) throw Interrupted();
}

EndsAtOnce::EndsAtOnce()
{
    answerInterruptions(SIG_DFL);
    throwIfInterrupted();
}

EndsAtOnce::~EndsAtOnce() { answerInterruptions(noteSignal); }

void endInterrupted()
{
    const int signal = gSignal;
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    std::abort();
}

} // namespace rvimg
