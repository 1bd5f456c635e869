#include "Kernel/Pixels/Runs.h"

#include "Kernel/Pixels/BitCopy.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace rv {

namespace {

constexpr size_t kLongestRun = 0xFFFF;
constexpr uint64_t kOnes = ~uint64_t{0};

R_UINT16 loadRun(const uint8_t* runs, size_t index) noexcept
{
    R_UINT16 run;
    std::memcpy(&run, runs + index * kRunBytes, sizeof run);
    return run;
}

void storeRun(uint8_t* runs, size_t index, R_UINT16 run) noexcept
{
    std::memcpy(runs + index * kRunBytes, &run, sizeof run);
}

/// Room that is left for runs. It is handed on by value: bytes that are written might be its own if it had an address,
/// and it would be read anew after every run.
struct RunRoom {
    uint8_t* next; ///< null: it was not enough
    uint8_t* end;
};

/// Writes the run from `begin` to `place`, however long it is. Places count from a byte border of the row.
RunRoom putLongRun(RunRoom room, size_t begin, size_t place) noexcept
{
    const auto put = [&room](size_t length) {
        if (room.next == room.end) room.next = room.end = nullptr;
        if (room.next == nullptr) return false;
        storeRun(room.next, 0, static_cast<R_UINT16>(length));
        room.next += kRunBytes;
        return true;
    };
    size_t length = place - begin, inByte = 8 - (begin & 7);
    for (; length > kLongestRun; inByte = 8) {
        const size_t part = kLongestRun - ((kLongestRun - inByte) & 7);
        if (!put(part) || !put(0)) return room;
        length -= part;
    }
    (void)put(length);
    return room;
}

inline RunRoom putRun(RunRoom room, size_t begin, size_t place) noexcept
{
    const size_t length = place - begin;
    if (length > kLongestRun || room.next == room.end) [[unlikely]]
        return putLongRun(room, begin, place);
    storeRun(room.next, 0, static_cast<R_UINT16>(length));
    room.next += kRunBytes;
    return room;
}

/// The pixels of up to 8 bytes, pixel n as bit n.
uint64_t loadPixels(const uint8_t* bytes, size_t count) noexcept
{
    uint64_t word = 0;
    std::memcpy(&word, bytes, count);
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
    return word;
}

/// Bytes have their first pixel on top: turned round, the first change is the lowest bit that is set, which is the one
/// that is quick to find and to take away.
uint64_t turnBytes(uint64_t word) noexcept
{
    word = (word & 0x0F0F0F0F0F0F0F0Fu) << 4 | (word >> 4 & 0x0F0F0F0F0F0F0F0Fu);
    word = (word & 0x3333333333333333u) << 2 | (word >> 2 & 0x3333333333333333u);
    return (word & 0x5555555555555555u) << 1 | (word >> 1 & 0x5555555555555555u);
}

/// Sets pixels in a row of zeros, from the first to the last. What is written once is not read again: a short run is
/// stored as a word, together with what precedes it in its first byte.
class OnesWriter {
public:
    OnesWriter(uint8_t* row, size_t bytes) noexcept : row_(row), wholeWords_(bytes < 8 ? 0 : bytes - 7) {}

    void put(size_t at, size_t length) noexcept
    {
        const size_t byte = at >> 3;
        if (length > kInOneWord || byte >= wholeWords_) return putLong(at, length);
        const size_t moved = (byte - byte_) * 8;
        word_ = moved < 64 ? word_ << moved : 0;
        word_ |= ~(kOnes >> length) >> (at & 7);
        byte_ = byte;
        bits::storeBigEndian(row_ + byte, word_);
    }

private:
    static constexpr size_t kInOneWord = 56; ///< from any bit of the first byte on

    void putLong(size_t at, size_t length) noexcept
    {
        if (length == 0) return;
        const size_t end = at + length, last = (end - 1) >> 3;
        byte_ = at >> 3;
        const unsigned fromHere = 0xFFu >> (at & 7), toHere = 0xFFu << (7 - ((end - 1) & 7)) & 0xFFu;
        if (byte_ == last) {
            row_[last] |= static_cast<uint8_t>(fromHere & toHere);
        } else {
            row_[byte_] |= static_cast<uint8_t>(fromHere);
            std::memset(row_ + byte_ + 1, 0xFF, last - byte_ - 1);
            row_[last] = static_cast<uint8_t>(toHere);
        }
        byte_ = last;
        word_ = uint64_t{row_[last]} << 56;
    }

    uint8_t* row_;
    size_t wholeWords_; ///< bytes at which a word may be stored
    size_t byte_ = 0;   ///< where word_ was stored
    uint64_t word_ = 0;
};

/// Decodes into a row of zeros; answers how many pixels the runs hold.
size_t putOnes(uint8_t* row, size_t begin, size_t pixels, const uint8_t* runs, size_t count, size_t skipped) noexcept
{
    size_t index = 0;
    uint64_t passed = 0; // pixels of the runs so far
    while (index < count && passed <= skipped) passed += loadRun(runs, index++);
    if (passed <= skipped) return 0;

    OnesWriter writer(row, (begin + pixels + 7) >> 3);
    const size_t end = begin + pixels;
    const size_t ahead = static_cast<size_t>(std::min<uint64_t>(passed - skipped, pixels)); // of the run that was cut
    size_t at = begin + ahead;
    if ((index & 1) == 0) { // it was one of ones
        writer.put(begin, ahead);
        if (index < count && at < end) at += loadRun(runs, index++);
    }
    while (index < count && at < end) {
        const size_t ones = std::min<size_t>(loadRun(runs, index++), end - at);
        writer.put(at, ones);
        at += ones;
        if (index < count && at < end) at += loadRun(runs, index++);
    }
    return std::min(at, end) - begin;
}

} // namespace

size_t encodeRuns(void* runs, size_t room, const uint8_t* row, size_t first, size_t pixels) noexcept
{
    if (pixels == 0) return 0;
    row += first >> 3;
    const size_t begin = first & 7, end = begin + pixels, bytes = (end + 7) >> 3;
    auto* const out = static_cast<uint8_t*>(runs);
    RunRoom left{out, out + std::min(room, mostRuns(pixels)) * kRunBytes};
    size_t opened = begin; // where the open run begins
    uint64_t open = 0;     // its colour, in every bit
    uint64_t dropped = 0xFFu & ~(0xFFu >> begin);
    for (size_t byte = 0; byte < bytes; byte += 8) {
        const bool whole = bytes - byte >= 8;
        const uint64_t word = (whole ? loadPixels(row + byte, 8) : loadPixels(row + byte, bytes - byte)) & ~dropped;
        dropped = 0;
        if (word == open) continue;
        const uint64_t turned = turnBytes(word);
        uint64_t changes = turned ^ (turned << 1 | (open & 1));
        if (end - byte * 8 < 64) changes &= kOnes >> (64 - (end - byte * 8));
        for (; changes != 0; changes &= changes - 1) {
            const size_t place = byte * 8 + static_cast<size_t>(std::countr_zero(changes));
            left = putRun(left, opened, place);
            if (left.next == nullptr) [[unlikely]]
                return 0;
            opened = place;
        }
        open = uint64_t{0} - (turned >> 63);
    }
    left = putRun(left, opened, end);
    return left.next == nullptr ? 0 : static_cast<size_t>(left.next - out) / kRunBytes;
}

size_t decodeRuns(uint8_t* row, size_t first, size_t pixels, const void* runs, size_t count, size_t skipped) noexcept
{
    if (pixels == 0) return 0;
    row += first >> 3;
    const size_t begin = first & 7, end = begin + pixels, last = (end - 1) >> 3;
    const unsigned before = row[0] & ~(0xFFu >> begin), behind = row[last] & (0x7Fu >> ((end - 1) & 7));
    std::memset(row, 0, last + 1);
    const size_t held = putOnes(row, begin, pixels, static_cast<const uint8_t*>(runs), count, skipped);
    row[0] |= static_cast<uint8_t>(before);
    row[last] |= static_cast<uint8_t>(behind);
    return held;
}

size_t countRuns(const void* runs, size_t count, size_t pixels) noexcept
{
    const auto* const bytes = static_cast<const uint8_t*>(runs);
    const size_t most = std::min(count, mostRuns(pixels));
    size_t index = 0;
    uint64_t passed = 0;
    while (index < most && passed < pixels) passed += loadRun(bytes, index++);
    return passed == pixels ? index : 0;
}

size_t mirrorRuns(void* runs, size_t count) noexcept
{
    if (count == 0) return 0;
    auto* const bytes = static_cast<uint8_t*>(runs);
    const bool endsInOnes = (count & 1) == 0, beginsWithOnes = loadRun(bytes, 0) == 0;
    size_t left = endsInOnes ? 1 : 0; // behind the run of 0 that says so
    if (endsInOnes && !beginsWithOnes) {
        std::memmove(bytes + kRunBytes, bytes, count * kRunBytes);
        storeRun(bytes, 0, 0);
        ++count;
    }
    for (size_t right = count; left + 1 < right; ++left) {
        const R_UINT16 run = loadRun(bytes, --right);
        storeRun(bytes, right, loadRun(bytes, left));
        storeRun(bytes, left, run);
    }
    return !endsInOnes && beginsWithOnes ? count - 1 : count;
}

} // namespace rv
