/// How the tool fails: an exception whose text a person can act on.
#pragma once

#include "R_Kernel.h"

#include <sstream>
#include <stdexcept>
#include <string>

namespace rvimg {

/// The work on a file cannot be done. The text says why; whoever reports it puts the file's name in front.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The person asked to stop. Unwinds like an error, so that nothing half-written stays behind.
class Interrupted : public Error {
public:
    Interrupted() : Error("interrupted") {}
};

/// The arguments make no sense together; reported like any other mistake on the command line.
class UsageError : public Error {
public:
    using Error::Error;
};

/// Joins its arguments into one text.
template <class... Parts> std::string text(const Parts&... parts)
{
    std::ostringstream out;
    (out << ... << parts);
    return std::move(out).str();
}

/// The kernel's message of a status.
std::string messageOf(R_INT status);
/// Turns a kernel status other than SUCCESS into an Error with the kernel's message.
void check(R_INT status);
/// The same for row calls: anything but the whole row is a failure.
void checkMoved(R_SSIZE moved, size_t bytes);

/// Asks for interruption signals to be noted, and throws where one has been.
void watchForInterruption();
void throwIfInterrupted();
bool interrupted() noexcept;
/// While it lives, an interruption ends the process there and then: for waits on others, which nothing else would end,
/// at a time when nothing would stay behind.
class EndsAtOnce {
public:
    EndsAtOnce();
    ~EndsAtOnce();
    EndsAtOnce(const EndsAtOnce&) = delete;
    EndsAtOnce& operator=(const EndsAtOnce&) = delete;
};
/// Ends the process the way the signal would have.
[[noreturn]] void endInterrupted();

} // namespace rvimg
