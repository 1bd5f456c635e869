#include "Support/Calls.h"

namespace rv::test {

std::span<const Call> tempFileCalls() { return {}; }

} // namespace rv::test
