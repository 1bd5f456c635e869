#include "Kernel/Pixels/BitCombine.h"

#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/Simd/Select.h"

namespace rv {

namespace {

/// The kernels' tables, for the bits of a byte that a row begins or ends with.
unsigned truth(unsigned table, unsigned s, unsigned d) noexcept
{
    unsigned result = 0;
    if ((table & 1) != 0) result |= ~s & ~d;
    if ((table & 2) != 0) result |= ~s & d;
    if ((table & 4) != 0) result |= s & ~d;
    if ((table & 8) != 0) result |= s & d;
    return result;
}

} // namespace

void combineBits(unsigned table, uint8_t* target, R_INT64 targetBit, const uint8_t* source, R_INT64 sourceBit,
                 R_INT64 count) noexcept
{
    if (count <= 0) return;
    target += targetBit >> 3;
    source += sourceBit >> 3;
    const auto into = static_cast<unsigned>(targetBit & 7);
    auto from = static_cast<unsigned>(sourceBit & 7);

    if (into != 0) { // up to the target's next whole byte
        const auto head = static_cast<unsigned>(count < 8 - into ? count : 8 - into);
        const unsigned mask = (0xFFu >> into) & (0xFFu << (8 - into - head));
        bits::mergeByte(target, truth(table, bits::loadByte(source, from, head) >> into, *target), mask);
        ++target;
        count -= head;
        from += head;
        source += from >> 3;
        from &= 7;
    }
    const auto whole = static_cast<size_t>(count >> 3);
    rowKernels().combineBits[table](target, source, whole, from);
    if (const auto tail = static_cast<unsigned>(count & 7); tail != 0) {
        uint8_t* const last = target + whole;
        const unsigned s = bits::loadByte(source + whole, from, tail);
        bits::mergeByte(last, truth(table, s, *last), 0xFFu << (8 - tail) & 0xFFu);
    }
}

} // namespace rv
