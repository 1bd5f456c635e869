#include "Kernel/Pixels/Samples.h"

#include "Kernel/Pixels/BitCopy.h"

#include <cstring>

namespace rv {

namespace {

constexpr R_UINT64 lowBits(unsigned count) noexcept { return (R_UINT64{1} << count) - 1; }
/// A value in every lane of so many bits.
constexpr R_UINT64 everyLane(unsigned bits, R_UINT64 value) noexcept { return ~R_UINT64{0} / lowBits(bits) * value; }

/// Eight pixels of Bits bits are Bits bytes: a word of them becomes a word of eight bytes in three halvings.
template <unsigned Bits> void unpackPixels(uint8_t* samples, const uint8_t* row, size_t pixels) noexcept
{
    constexpr R_UINT64 pair = everyLane(32, lowBits(2 * Bits)), one = everyLane(16, lowBits(Bits));
    for (size_t done = 0; done < pixels; done += 8, row += Bits) {
        const R_UINT64 eight = bits::loadBigEndian(row) >> (64 - 8 * Bits);
        const R_UINT64 fours = (eight & lowBits(4 * Bits)) | eight >> 4 * Bits << 32;
        const R_UINT64 pairs = (fours & pair) | (fours >> 2 * Bits & pair) << 16;
        bits::storeBigEndian(samples + done, (pairs & one) | (pairs >> Bits & one) << 8);
    }
}

template <unsigned Bits> void packPixels(uint8_t* row, const uint8_t* samples, size_t pixels) noexcept
{
    constexpr R_UINT64 pair = everyLane(32, lowBits(2 * Bits)), one = everyLane(16, lowBits(Bits));
    for (size_t done = 0; done < pixels; done += 8, row += Bits) {
        const R_UINT64 eight = bits::loadBigEndian(samples + done);
        const R_UINT64 pairs = (eight & one) | (eight >> 8 & one) << Bits;
        const R_UINT64 fours = (pairs & pair) | (pairs >> 16 & pair) << 2 * Bits;
        const R_UINT64 packed = (fours & lowBits(4 * Bits)) | fours >> 32 << 4 * Bits;
        bits::storeBigEndian(row, packed << (64 - 8 * Bits));
    }
}

void storeWord(uint8_t* bytes, unsigned value) noexcept
{
    const auto word = static_cast<uint16_t>(value);
    std::memcpy(bytes, &word, sizeof word);
}

unsigned loadWord(const uint8_t* bytes) noexcept
{
    uint16_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

/// Two pixels of 12 bits are three bytes.
void unpackTwelve(uint8_t* samples, const uint8_t* row, size_t pixels) noexcept
{
    for (size_t done = 0; done < pixels; done += 2, row += 3, samples += 4) {
        storeWord(samples, static_cast<unsigned>(row[0]) << 4 | row[1] >> 4);
        storeWord(samples + 2, (row[1] & 0xFu) << 8 | row[2]);
    }
}

void packTwelve(uint8_t* row, const uint8_t* samples, size_t pixels) noexcept
{
    for (size_t done = 0; done < pixels; done += 2, row += 3, samples += 4) {
        const unsigned first = loadWord(samples), second = loadWord(samples + 2);
        row[0] = static_cast<uint8_t>(first >> 4);
        row[1] = static_cast<uint8_t>(first << 4 | (second >> 8 & 0xF));
        row[2] = static_cast<uint8_t>(second);
    }
}

/// Red, green and blue of 5 bits each; blue is lowest, the top bit is nobody's.
void unpackColour5(uint8_t* samples, const uint8_t* row, size_t pixels) noexcept
{
    for (size_t done = 0; done < pixels; ++done, row += 2, samples += 3) {
        const unsigned pixel = loadWord(row);
        samples[0] = static_cast<uint8_t>(pixel >> 10 & 0x1F);
        samples[1] = static_cast<uint8_t>(pixel >> 5 & 0x1F);
        samples[2] = static_cast<uint8_t>(pixel & 0x1F);
    }
}

void packColour5(uint8_t* row, const uint8_t* samples, size_t pixels) noexcept
{
    for (size_t done = 0; done < pixels; ++done, row += 2, samples += 3)
        storeWord(row, (samples[0] & 0x1Fu) << 10 | (samples[1] & 0x1Fu) << 5 | (samples[2] & 0x1Fu));
}

} // namespace

SampleFormat sampleFormatOf(R_INT bits, bool gray) noexcept
{
    switch (bits) {
    case 2: return {unpackPixels<2>, packPixels<2>, 1, 1};
    case 3: return {unpackPixels<3>, packPixels<3>, 1, 1};
    case 4: return {unpackPixels<4>, packPixels<4>, 1, 1};
    case 5: return {unpackPixels<5>, packPixels<5>, 1, 1};
    case 6: return {unpackPixels<6>, packPixels<6>, 1, 1};
    case 7: return {unpackPixels<7>, packPixels<7>, 1, 1};
    case 12: return {unpackTwelve, packTwelve, 2, 1};
    case 16: return gray ? SampleFormat{nullptr, nullptr, 2, 1} : SampleFormat{unpackColour5, packColour5, 1, 3};
    case 48: return {nullptr, nullptr, 2, 3};
    case 64: return {nullptr, nullptr, 2, 4};
    default: return {nullptr, nullptr, 1, static_cast<size_t>(bits) / 8};
    }
}

} // namespace rv
