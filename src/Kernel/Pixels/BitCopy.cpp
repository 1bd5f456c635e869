#include "Kernel/Pixels/BitCopy.h"

#include "Kernel/Pixels/BitCombine.h"

namespace rv {

void copyBits(uint8_t* target, R_INT64 targetBit, const uint8_t* source, R_INT64 sourceBit, R_INT64 count) noexcept
{
    combineBits(kTableOfSource, target, targetBit, source, sourceBit, count);
}

} // namespace rv
