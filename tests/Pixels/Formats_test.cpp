// Rows of every format as colours, beside a reckoning pixel by pixel.
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/FormatReader.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

namespace rv::test {
namespace {

/// Random bytes as entries of a palette or table.
template <class Entry> const Entry* randomEntries(size_t count)
{
    static const auto entries = [count] {
        std::mt19937 random(7);
        std::vector<Entry> made(count);
        for (Entry& e : made) {
            const auto sample = [&] { return static_cast<decltype(e.rgbRed)>(random()); };
            e = {sample(), sample(), sample(), sample()};
        }
        return made;
    }();
    return entries.data();
}

/// A random format and a row of it, which ends where its last pixel does.
struct RandomRow {
    explicit RandomRow(unsigned seed) : random(seed)
    {
        format.bits = allDepths()[below(allDepths().size())];
        format.gray = format.bits == 12 || (format.bits == 16 && below(2) != 0);
        format.redFirst = below(2) != 0;
        if (format.gray) {
            format.highBit = static_cast<R_INT>(below(18));
            format.lowBit = static_cast<R_INT>(below(static_cast<size_t>(format.highBit) + 1));
            if (below(8) == 0) format.highBit = INT32_MAX;
            if (below(2) != 0) format.table = randomEntries<RGBQUAD>(3000);
            if (below(2) != 0) format.table16 = randomEntries<RGBQUAD16>(70000);
            format.tableLength = below(3000);
            format.tableLength16 = below(70000);
        } else if (below(8) != 0) {
            format.palette = randomEntries<RGBQUAD>(3000);
            format.colours = below(257);
        }
        row.resize(packedBytes(static_cast<R_INT64>(width), format.bits));
        for (auto& byte : row) byte = static_cast<uint8_t>(random());
    }
    unsigned below(size_t end) { return static_cast<unsigned>(random() % end); }

    std::mt19937 random;
    size_t width = below(60);
    PixelFormat format;
    std::vector<uint8_t> row;
};

/// Red, green, blue and alpha, of samples up to `top`.
using Colour = std::array<unsigned, 4>;

Colour grayModel(const PixelFormat& f, uint64_t sample, uint64_t top)
{
    const bool tabled = f.table != nullptr || f.table16 != nullptr;
    const int64_t most = tabled || top > 255 ? f.bits : 8;
    const int64_t count = std::min<int64_t>(int64_t{f.highBit} - f.lowBit + 1, most), shift = f.highBit - count + 1;
    const uint64_t maximum = (uint64_t{1} << count) - 1, value = shift > 31 ? 0 : sample >> shift & maximum;
    const auto of = [&](auto entry, uint64_t from) {
        const auto to = [&](uint64_t v) { return static_cast<unsigned>(v * top / from); };
        return Colour{to(entry.rgbRed), to(entry.rgbGreen), to(entry.rgbBlue), static_cast<unsigned>(top)};
    };
    if (f.table != nullptr && value < f.tableLength) return of(f.table[value], 255);
    if (f.table16 != nullptr && value < f.tableLength16) return of(f.table16[value], 65535);
    const auto level = static_cast<unsigned>(value * top / maximum), opaque = static_cast<unsigned>(top);
    return {level, level, level, opaque};
}

Colour model(const RandomRow& r, size_t column, unsigned top)
{
    const PixelFormat& f = r.format;
    const uint64_t pixel = pixelAt(r.row.data(), static_cast<R_INT64>(column), f.bits);
    if (f.gray) return grayModel(f, pixel, top);
    const unsigned factor = top / 255;
    if (f.bits <= 8) {
        const RGBQUAD c = f.palette != nullptr && pixel < f.colours ? f.palette[pixel] : RGBQUAD{};
        return {c.rgbRed * factor, c.rgbGreen * factor, c.rgbBlue * factor, top};
    }
    if (f.bits == 16) {
        const auto five = [&](int shift) {
            const auto v = static_cast<unsigned>(pixel >> shift & 31);
            return top == 255 ? v << 3 | v >> 2 : v << 11 | v << 6 | v << 1 | v >> 4;
        };
        return {five(10), five(5), five(0), top};
    }
    const bool words = f.bits > 32, alpha = f.bits == 32 || f.bits == 64;
    const auto sample = [&](unsigned i) {
        const auto v = static_cast<unsigned>(pixel >> i * (words ? 16 : 8) & (words ? 65535 : 255));
        return words == (top > 255) ? v : words ? v >> 8 : v * 257;
    };
    return {sample(f.redFirst ? 0 : 2), sample(1), sample(f.redFirst ? 2 : 0), alpha ? sample(3) : top};
}

template <class Quad> void expectRead(const RandomRow& r, unsigned top)
{
    std::vector<Quad> read(r.width + 1, Quad{1, 2, 3, 4});
    FormatReader(r.format).read(read.data(), r.row.data(), r.width);
    for (size_t i = 0; i < r.width; ++i) {
        const Colour got{read[i].rgbRed, read[i].rgbGreen, read[i].rgbBlue, read[i].rgbReserved};
        ASSERT_EQ(got, model(r, i, top)) << "column " << i << " of " << r.format.bits << " bits, to " << top;
    }
    EXPECT_EQ(read[r.width].rgbGreen, 2) << "written past the row";
}

TEST(Formats, EveryFormatReadsAsItsPixelsAreDefined)
{
    for (unsigned seed = 0; seed < 3000 && !HasFatalFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const RandomRow row(seed);
        expectRead<RGBQUAD>(row, 255);
        expectRead<RGBQUAD16>(row, 65535);
    }
}

} // namespace
} // namespace rv::test
