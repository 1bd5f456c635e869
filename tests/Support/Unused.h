/// A library that nobody has used, for a test of the first use; ready for the other tests afterwards.
#pragma once

#include "Kernel/Base/System.h"
#include "Support/FailingPlatform.h"

namespace rv::test {

struct Unused : Scoped {
    Unused() { detach(); }
    ~Unused()
    {
        detach();
        attach();
        threadSettings();
    }
};

} // namespace rv::test
