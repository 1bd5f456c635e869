#include "Support/Calls.h"

namespace rv::test {

namespace {

const Call kCalls[] = {
    CALL(R_GetLibName, 0, 1, 0, w.answers.wide, 20),
};

} // namespace

std::span<const Call> moduleCalls() { return kCalls; }

} // namespace rv::test
