/// The memory that the process counts.
#pragma once

#include "R_Kernel.h"

namespace rv::test {

inline R_UINT64 conventionalTotal()
{
    R_UINT64 total = 0;
    R_ManageMemory(MANAGE_GET_TOTAL, 0, &total);
    return total;
}

} // namespace rv::test
