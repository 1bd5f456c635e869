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

/// The few bits between the runs of two rows, kept while both are combined as if they were one.
class Gap {
public:
    static constexpr R_INT64 kMostBits = 56; // with those before them in their first byte, they lie in a word

    Gap(R_INT64 end, R_INT64 bits) noexcept
        : byte_(end >> 3), mask_(bits == 0 ? 0 : ~R_UINT64{0} << (64 - bits) >> (end & 7))
    {
    }
    R_UINT64 take(const uint8_t* row) const noexcept { return bits::loadBigEndian(row + byte_) & mask_; }
    void put(uint8_t* row, R_UINT64 kept) const noexcept
    {
        bits::storeBigEndian(row + byte_, (bits::loadBigEndian(row + byte_) & ~mask_) | kept);
    }

private:
    R_INT64 byte_;
    R_UINT64 mask_;
};

} // namespace

void combineBitRows(unsigned table, uint8_t* target, R_INT64 targetBit, const uint8_t* source, R_INT64 sourceBit,
                    R_INT64 count, R_INT64 rows, R_INT64 rowBytes) noexcept
{
    constexpr R_INT64 kJoined = 32, kLeastBytes = 16;
    const R_INT64 between = rowBytes * 8 - count;
    // Of rows that are short enough to matter, the beginnings and the ends take longer than the rest.
    const R_INT64 joined = between <= Gap::kMostBits && rowBytes >= kLeastBytes ? kJoined : 1;
    const Gap gap(targetBit + count, joined > 1 ? between : 0);
    R_UINT64 kept[kJoined];
    while (rows > 0) {
        const R_INT64 some = rows < joined ? rows : joined;
        for (R_INT64 i = 0; i + 1 < some; ++i) kept[i] = gap.take(target + i * rowBytes);
        combineBits(table, target, targetBit, source, sourceBit, (some - 1) * rowBytes * 8 + count);
        for (R_INT64 i = 0; i + 1 < some; ++i) gap.put(target + i * rowBytes, kept[i]);
        target += some * rowBytes;
        source += some * rowBytes;
        rows -= some;
    }
}

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
