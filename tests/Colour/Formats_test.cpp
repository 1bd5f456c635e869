// Rows of every format as colours and as rows of every other, beside a reckoning pixel by pixel.
#include "Kernel/Colour/RowConverter.h"
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/Simd/Select.h"
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

const RGBQUAD* grayRamp()
{
    static const auto ramp = [] {
        std::array<RGBQUAD, 256> made;
        EXPECT_EQ(R_GetFixedPalette(made.data(), 0), SUCCESS);
        return made;
    }();
    return ramp.data();
}

/// A random format and a row of it, which ends where its last pixel does.
struct RandomRow {
    explicit RandomRow(unsigned seed) : random(seed)
    {
        format = randomFormat();
        if (below(4) == 0) width = below(1300);
        row.resize(packedBytes(static_cast<R_INT64>(width), format.bits));
        for (auto& byte : row) byte = static_cast<uint8_t>(random());
    }
    PixelFormat randomFormat()
    {
        static constexpr R_INT common[] = {1, 8, 24, 32, 64};
        PixelFormat f;
        f.bits = below(2) != 0 ? common[below(5)] : allDepths()[below(allDepths().size())];
        f.gray = f.bits == 12 || (f.bits <= 16 && below(2) != 0);
        f.redFirst = below(2) != 0;
        if (f.bits <= 8) {
            const bool ramp = f.bits == 8 && below(2) != 0;
            f.palette = ramp ? grayRamp() : randomEntries<RGBQUAD>(3000) + below(2000);
            f.colours = ramp ? 256 : 1 + below(1u << f.bits);
        }
        if (f.gray && (f.bits > 8 || (f.bits == 8 && below(4) == 0))) {
            f.highBit = static_cast<R_INT>(below(18));
            f.lowBit = static_cast<R_INT>(below(static_cast<size_t>(f.highBit) + 1));
            if (below(8) == 0) f.highBit = INT32_MAX;
            if (below(2) != 0) f.table = randomEntries<RGBQUAD>(3000);
            if (below(2) != 0) f.table16 = randomEntries<RGBQUAD16>(70000);
            f.tableLength = below(3000);
            f.tableLength16 = below(70000);
        }
        return f;
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
    if (f.gray && (f.bits > 8 || f.hasTable())) return grayModel(f, pixel, top);
    const unsigned factor = top / 255;
    if (f.bits <= 8) {
        const RGBQUAD c = pixel < f.colours ? f.palette[pixel] : RGBQUAD{};
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

unsigned luminanceOf(const Colour& c) { return (2 * c[0] + 5 * c[1] + c[2] + 4) / 8; }

/// The pixel that stands for a pixel of the row in another format.
uint64_t converted(const RandomRow& r, size_t column, const PixelFormat& to)
{
    const bool wide = to.bits > 32 || (to.gray && to.bits > 8);
    Colour c = model(r, column, wide ? 65535 : 255);
    if (to.gray) c[0] = c[1] = c[2] = luminanceOf(c);
    if (to.bits <= 8) {
        const auto level = [&](size_t i) { return static_cast<R_INT>(c[i]); };
        return R_FindPaletteIndex(to.palette, to.colours, level(0), level(1), level(2));
    }
    if (to.gray) {
        const int64_t count = std::min<int64_t>(int64_t{to.highBit} - to.lowBit + 1, to.bits);
        return uint64_t{c[0]} >> (16 - count) << std::min<int64_t>(to.lowBit, to.bits - count);
    }
    if (to.bits == 16) return c[0] / 8 << 10 | c[1] / 8 << 5 | c[2] / 8;
    if (!to.redFirst) std::swap(c[0], c[2]);
    uint64_t pixel = 0;
    for (unsigned i = 0; i < (to.bits % 32 == 0 ? 4u : 3u); ++i) pixel |= uint64_t{c[i]} << i * (wide ? 16 : 8);
    return pixel;
}

// Through 32 and 64 bits, which keep all that is read, reading is seen as well.
TEST(Formats, EveryFormatBecomesEveryOther)
{
    for (unsigned seed = 0; seed < 6000 && !HasFailure(); ++seed) {
        RandomRow row(seed);
        const PixelFormat to = row.randomFormat();
        const size_t bytes = packedBytes(static_cast<R_INT64>(row.width), to.bits);
        std::vector<uint8_t> wanted(bytes + 1);
        wanted[bytes] = 0xA5;
        for (size_t i = 0; i < row.width; ++i)
            setPixelAt(wanted.data(), static_cast<R_INT64>(i), to.bits, converted(row, i, to));
        for (const bool straight : {true, false}) {
            RowConverter rows(row.format, to, straight);
            ASSERT_EQ(rows.status(), SUCCESS);
            std::vector<uint8_t> got(bytes + 1, 0xA5);
            rows.convert(got.data(), row.row.data(), row.width);
            EXPECT_EQ(got, wanted) << "seed " << seed << ": " << row.format.bits << " to " << to.bits << " bits, "
                                   << row.width << (straight ? ", straight" : ", by colours");
        }
    }
}

// Palettes with nothing but near entries, with doubles, and with ties everywhere: enough colours for lists to be made.
TEST(Formats, TheNearestEntryOfManyColoursIsThatOfEach)
{
    std::mt19937 random(11);
    const auto byte = [&](unsigned step) { return static_cast<uint8_t>(random() % 256 / step * step); };
    const simd::RowKernels& used = rowKernels();
    for (const auto& [entries, step] : {std::pair{256u, 1u}, {256, 64}, {17, 1}, {200, 16}, {8, 128}}) {
        std::vector<RGBQUAD> palette(entries), colours(30000);
        for (RGBQUAD& c : palette) c = {byte(step), byte(step), byte(step), byte(1)};
        for (size_t i = 0; i < colours.size(); ++i) {
            const unsigned apart = i % 3 == 0 ? 1 : i % 3 == 1 ? 8 : 64; // far apart, and often the same
            colours[i] = {byte(apart), byte(apart), byte(apart), byte(1)};
            if (i % 50 == 0) colours[i] = i % 100 == 0 ? RGBQUAD{0, 0, 0, 1} : RGBQUAD{255, 255, 255, 1};
        }
        std::vector<uint8_t> wanted, got(colours.size());
        for (const RGBQUAD& c : colours)
            wanted.push_back(
                static_cast<uint8_t>(R_FindPaletteIndex(palette.data(), entries, c.rgbRed, c.rgbGreen, c.rgbBlue)));
        for (size_t i = 0; const simd::RowKernels* const kernels = availableRowKernels(i); ++i) {
            useRowKernels(*kernels);
            NearestIndex nearest(palette.data(), entries);
            ASSERT_TRUE(nearest);
            for (size_t done = 0; done < colours.size(); done += 500)
                nearest.find(got.data() + done, colours.data() + done, 500);
            EXPECT_EQ(got, wanted) << kernels->name << ", " << entries << " entries, steps of " << step;
        }
        useRowKernels(used);
    }
}

} // namespace
} // namespace rv::test
