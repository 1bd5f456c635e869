// Rows of 1 bit as runs, held to a plain walk over the bytes; one byte too far is a fault.
#include "Kernel/Pixels/Runs.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <utility>

namespace rv::test {
namespace {

using Runs = std::vector<R_UINT16>;

bool bitAt(const uint8_t* row, size_t at) { return pixelAt(row, static_cast<R_INT64>(at), 1) != 0; }
void setBitAt(uint8_t* row, size_t at, bool bit) { setPixelAt(row, static_cast<R_INT64>(at), 1, bit ? 1 : 0); }

/// Byte by byte: an open run takes a byte's first run where the colours agree, and is closed where that would carry it
/// past what a length can say.
Runs modelRuns(const uint8_t* row, size_t first, size_t pixels)
{
    Runs runs;
    bool colour = false;
    unsigned open = 0;
    for (size_t at = first, end = first + pixels; at < end;) {
        const size_t border = std::min(end, (at | 7) + 1);
        for (bool firstOfByte = true; at < border; firstOfByte = false) {
            const bool bit = bitAt(row, at);
            unsigned length = 0;
            for (; at < border && bitAt(row, at) == bit; ++at) ++length;
            if (bit != colour || (firstOfByte && open + length > 65535)) {
                runs.push_back(static_cast<R_UINT16>(std::exchange(open, 0)));
                if (bit == colour) runs.push_back(0);
                colour = bit;
            }
            open += length;
        }
    }
    runs.push_back(static_cast<R_UINT16>(open));
    return runs;
}

/// A row whose runs are of about `length` pixels, with garbage on both sides of the piece.
std::vector<uint8_t> rowOf(std::mt19937& random, size_t pixels, size_t length)
{
    std::vector<uint8_t> row((pixels + 7) / 8);
    bool colour = random() % 2 == 0;
    for (size_t at = 0; at < pixels; ++at) setBitAt(row.data(), at, colour ^= random() % length == 0);
    return row;
}

/// Every way there and back for one piece of a row.
void checkPiece(std::mt19937& random, size_t first, size_t pixels, size_t length)
{
    const std::vector<uint8_t> row = rowOf(random, first + pixels + random() % 9, length);
    const GuardedBuffer packed((first + pixels + 7) / 8);
    std::copy_n(row.begin(), packed.size(), packed.begin());
    const Runs runs = modelRuns(row.data(), first, pixels);
    const GuardedBuffer encoded(runs.size() * kRunBytes), tight(encoded.size() - kRunBytes);
    ASSERT_EQ(encodeRuns(encoded.data(), runs.size(), packed.data(), first, pixels), runs.size());
    ASSERT_EQ(std::memcmp(encoded.data(), runs.data(), encoded.size()), 0);
    ASSERT_EQ(encodeRuns(tight.data(), runs.size() - 1, packed.data(), first, pixels), 0u) << "one run too few";
    ASSERT_EQ(countRuns(encoded.data(), runs.size(), pixels), runs.size());

    // A window of it, of as many runs as there are or fewer, among bits that stay.
    const size_t skipped = random() % (pixels + 1), wanted = random() % (pixels - skipped + 1), to = random() % 8;
    const size_t count = random() % 3 == 0 ? random() % (runs.size() + 1) : runs.size();
    const size_t sum = std::accumulate(runs.begin(), runs.begin() + static_cast<R_INT64>(count), size_t{0});
    const size_t held = std::min(wanted, sum - std::min(sum, skipped));
    const size_t told = count == runs.size() ? mostRuns(pixels) + 3 : count; // where nobody knows how many there are
    const GuardedBuffer some(count * kRunBytes);
    std::memcpy(some.data(), runs.data(), some.size());
    for (const auto side : {GuardedBuffer::Side::start, GuardedBuffer::Side::end}) {
        const GuardedBuffer target((to + wanted + 7) / 8, side);
        std::vector<uint8_t> expected(target.begin(), target.end());
        for (size_t i = 0; i < wanted; ++i)
            setBitAt(expected.data(), to + i, i < held && bitAt(row.data(), first + skipped + i));
        ASSERT_EQ(decodeRuns(target.data(), to, wanted, some.data(), told, skipped), held);
        ASSERT_TRUE(std::equal(target.begin(), target.end(), expected.begin()));
    }

    // Turned round it is the row read from the other end.
    const GuardedBuffer turned((runs.size() + (runs.size() % 2 == 0 && runs[0] != 0 ? 1 : 0)) * kRunBytes);
    std::memcpy(turned.data(), runs.data(), encoded.size());
    std::vector<uint8_t> back(packed.size()), mirrored(packed.size());
    for (size_t i = 0; i < pixels; ++i) setBitAt(mirrored.data(), i, bitAt(row.data(), first + pixels - 1 - i));
    const size_t now = mirrorRuns(turned.data(), runs.size());
    ASSERT_EQ(countRuns(turned.data(), now, pixels), now);
    ASSERT_EQ(decodeRuns(back.data(), 0, pixels, turned.data(), now), pixels);
    ASSERT_EQ(back, mirrored);
}

TEST(Runs, EveryPieceAsTheWalkOverItsBytes)
{
    for (unsigned seed = 1; seed <= 4000; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const size_t lengths[] = {1, 2, 5, 30, 150, 100000};
        const size_t first = random() % 24, pixels = 1 + random() % (seed % 4 == 0 ? 700 : 150);
        ASSERT_NO_FATAL_FAILURE(checkPiece(random, first, pixels, lengths[random() % 6]));
    }
    for (unsigned seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE("long, seed " + std::to_string(seed));
        std::mt19937 random(seed);
        ASSERT_NO_FATAL_FAILURE(checkPiece(random, random() % 24, 65520 + random() % 200000, 100000));
    }
}

TEST(Runs, LongRunsAreClosedAtAByteBorder)
{
    const std::vector<uint8_t> zeros(25000), ones(25000, 0xFF);
    const auto runsOf = [](const std::vector<uint8_t>& row, size_t first, size_t pixels) {
        Runs runs(9);
        runs.resize(encodeRuns(runs.data(), runs.size(), row.data(), first, pixels));
        return runs;
    };
    EXPECT_EQ(runsOf(zeros, 0, 65535), (Runs{65535}));
    EXPECT_EQ(runsOf(zeros, 0, 65536), (Runs{65528, 0, 8}));
    EXPECT_EQ(runsOf(zeros, 0, 70000), (Runs{65528, 0, 4472}));
    EXPECT_EQ(runsOf(zeros, 3, 70000), (Runs{65533, 0, 4467}));
    EXPECT_EQ(runsOf(ones, 1, 65535 + 65528 + 9), (Runs{0, 65535, 0, 65528, 0, 9}));
    EXPECT_EQ(runsOf(ones, 0, 100), (Runs{0, 100}));
}

TEST(RunCalls, ConvertRowsWithinTheirPitch)
{
    std::mt19937 random(7);
    const R_INT first = 5, pixels = 90, rows = 5;
    const std::vector<uint8_t> packed = rowOf(random, rows * 14 * 8, 3);
    std::vector<uint8_t> copy = packed, back(packed.size());
    const R_SIZE pitch = (pixels + 1) * kRunBytes;
    const GuardedBuffer memory(pitch * rows);
    auto* const runs = reinterpret_cast<R_UINT16*>(memory.data());
    ASSERT_EQ(R_CompressRows(runs, copy.data(), first, pixels, rows, pitch, 14), pixels);
    EXPECT_EQ(copy, packed);
    const Runs last = modelRuns(packed.data() + 4 * 14, first, pixels);
    EXPECT_EQ(std::memcmp(memory.data() + 4 * pitch, last.data(), last.size() * kRunBytes), 0);

    ASSERT_EQ(R_FlipCompressedBuffer(runs, pitch, rows), SUCCESS);
    ASSERT_EQ(R_ExpandRows(runs, back.data(), first, pixels, rows, pitch, 14), pixels);
    for (size_t y = 0; y < rows; ++y)
        for (size_t x = 0; x < 14 * 8; ++x)
            ASSERT_EQ(bitAt(&back[14 * y], x), x >= 5 && x < 95 && bitAt(&packed[14 * (4 - y)], x));
    EXPECT_EQ(R_CompressRows(runs, copy.data(), first, pixels, rows, 2 * kRunBytes, 14), ERROR_BUFFER_TOO_SMALL);
    EXPECT_EQ(R_CompressRows(runs, copy.data(), first, pixels, rows, pitch, 11), ERROR_BUFFER_TOO_SMALL);
    EXPECT_EQ(R_ExpandRows(runs, copy.data(), first, pixels, rows, pitch, 11), ERROR_BUFFER_TOO_SMALL);
}

TEST(RunCalls, TakeNothingOnTrust)
{
    R_UINT16 zeros[41] = {}, most[41];
    std::fill(std::begin(most), std::end(most), R_UINT16{65535});
    uint8_t row[7];
    std::memset(row, 0xFF, sizeof row);
    EXPECT_EQ(R_ExpandRow(zeros, row + 1, 0, 40), ERROR_INV_PARAMETER) << "41 runs of nothing, and no 42nd is read";
    EXPECT_EQ(R_MirrorCompressedBuffer(zeros, 40), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_ExpandRow(most, row + 1, 3, 33), 33);
    EXPECT_EQ((std::vector<uint8_t>(row, row + 7)), (std::vector<uint8_t>{0xFF, 0, 0, 0, 0, 0, 0xFF}));
    EXPECT_EQ(R_MirrorCompressedBuffer(most, 40), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_CompressRow(nullptr, row, 0, 8), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_CompressRow(most, row, -1, 8), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_ExpandRow(most, nullptr, 0, 8), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_ExpandRow(most, row, 0, -8), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_CompressRow(most, row, 0, 0), 0);
    EXPECT_EQ(R_FlipCompressedBuffer(nullptr, 2, 2), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_MirrorCompressedBuffer(nullptr, 2), ERROR_INV_PARAMETER);
}

} // namespace
} // namespace rv::test
