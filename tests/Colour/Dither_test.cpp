// Dithering held to a model that keeps every numerator of a whole picture, one pixel after the other.
#include "Kernel/Colour/Dither.h"
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/Simd/Select.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

namespace rv::test {
namespace {

using Colour = std::array<int, 3>; // red, green, blue
using Picture = std::vector<Colour>;

struct Spread {
    int down, right, weight;
};

/// The kernels as their authors published them.
std::vector<Spread> spreadOf(R_INT method)
{
    switch (method) {
    case DITHER_FLOYD_STEINBERG: return {{0, 1, 7}, {1, -1, 3}, {1, 0, 5}, {1, 1, 1}};
    case DITHER_STUCKI:
        return {{0, 1, 8}, {0, 2, 4},  {1, -2, 2}, {1, -1, 4}, {1, 0, 8}, {1, 1, 4},
                {1, 2, 2}, {2, -2, 1}, {2, -1, 2}, {2, 0, 4},  {2, 1, 2}, {2, 2, 1}};
    case DITHER_BURKES: return {{0, 1, 8}, {0, 2, 4}, {1, -2, 2}, {1, -1, 4}, {1, 0, 8}, {1, 1, 4}, {1, 2, 2}};
    case DITHER_SIERRA:
        return {{0, 1, 5}, {0, 2, 3}, {1, -2, 2}, {1, -1, 4}, {1, 0, 5},
                {1, 1, 4}, {1, 2, 2}, {2, -1, 2}, {2, 0, 3},  {2, 1, 2}};
    case DITHER_STEVENSON_ARCE:
        return {{0, 2, 32}, {1, -3, 12}, {1, -1, 26}, {1, 1, 30},  {1, 3, 16}, {2, -2, 12},
                {2, 0, 26}, {2, 2, 12},  {3, -3, 5},  {3, -1, 12}, {3, 1, 12}, {3, 3, 5}};
    case DITHER_JARVIS:
        return {{0, 1, 7}, {0, 2, 5},  {1, -2, 3}, {1, -1, 5}, {1, 0, 7}, {1, 1, 5},
                {1, 2, 3}, {2, -2, 1}, {2, -1, 3}, {2, 0, 5},  {2, 1, 3}, {2, 2, 1}};
    default: return {};
    }
}

constexpr int kA[8][8] = {{0, 128, 32, 160, 8, 136, 40, 168},   {192, 64, 224, 96, 200, 72, 232, 104},
                          {48, 176, 16, 144, 56, 184, 24, 152}, {236, 112, 208, 80, 244, 120, 216, 88},
                          {12, 140, 44, 172, 4, 132, 36, 164},  {204, 76, 232, 108, 196, 68, 228, 100},
                          {60, 188, 28, 156, 52, 180, 20, 148}, {248, 124, 220, 92, 240, 116, 212, 84}};
constexpr int kB[8][8] = {{112, 40, 72, 104, 144, 176, 208, 136}, {88, 8, 16, 48, 192, 232, 240, 168},
                          {56, 24, 0, 80, 160, 224, 248, 200},    {96, 64, 32, 120, 128, 216, 184, 152},
                          {148, 180, 212, 140, 116, 44, 76, 108}, {196, 236, 244, 172, 92, 12, 20, 52},
                          {164, 228, 252, 204, 60, 28, 4, 84},    {132, 220, 188, 156, 100, 68, 36, 124}};

enum class Kind { matched, fixed, webSafe };

/// What is dithered to, and how a colour finds its index there.
struct Target {
    std::string name;
    Kind kind = Kind::fixed;
    R_INT bits = 1;
    std::vector<RGBQUAD> palette;
    bool userTable = false;
    std::vector<R_UINT> cells = {};

    const RGBQUAD* entries() const { return kind == Kind::fixed ? R_IntGetFixedPalette(bits) : palette.data(); }

    Colour adjusted(Colour c, int m) const
    {
        const int d = bits;
        const int fixed[] = {0, 0, (m >> 1) - 64, m / 3 - 42, 0, m / 5 - 25, m / 6 - 21, m / 7 - 18, (m >> 3) - 16};
        const int added = kind == Kind::matched ? m / d - 128 / d : kind == Kind::webSafe ? m / 5 : fixed[bits];
        for (int& v : c) v = std::clamp(v + added, 0, 255);
        return c;
    }
    /// m is what the matrix says; without one, the middle.
    int index(const Colour& c, int m) const
    {
        const auto [r, g, b] = c;
        const int luminance = (2 * r + 5 * g + b + 4) >> 3;
        if (kind == Kind::matched) return matched(c);
        if (kind == Kind::webSafe) return r / 51 * 36 + g / 51 * 6 + b / 51;
        switch (bits) {
        case 1: return luminance > m;
        case 2: return luminance >> 6;
        case 3: return (r >> 7) * 4 + (g >> 7) * 2 + (b >> 7);
        case 4: return r <= m && g <= m && b <= m ? 0 : 8 + (r > m) + 2 * (g > m) + 4 * (b > m);
        case 5: return (r >> 6) * 8 + (g >> 6) * 2 + (b >> 7);
        case 6: return (r >> 6) * 16 + (g >> 6) * 4 + (b >> 6);
        case 7: return (r >> 6) * 32 + (g >> 5) * 4 + (b >> 6);
        default: return (r >> 5) * 32 + (g >> 5) * 4 + (b >> 6);
        }
    }
    int matched(const Colour& c) const
    {
        std::vector<RGBQUAD> usable;
        std::vector<int> indices;
        for (size_t i = 0; i < palette.size(); ++i) {
            if ((palette[i].rgbReserved & 3) != 0) continue;
            usable.push_back(palette[i]);
            indices.push_back(static_cast<int>(i));
        }
        for (size_t i = 0; i < usable.size(); ++i)
            if (usable[i].rgbRed >> 3 == c[0] >> 3 && usable[i].rgbGreen >> 3 == c[1] >> 3 &&
                usable[i].rgbBlue >> 3 == c[2] >> 3)
                return indices[i];
        return indices[R_FindPaletteIndex(usable.data(), static_cast<R_UINT>(usable.size()), c[0] & ~7, c[1] & ~7,
                                          c[2] & ~7)];
    }
};

std::vector<int> modelled(const Picture& picture, int width, R_INT method, const Target& target)
{
    const int height = static_cast<int>(picture.size()) / width;
    const int divisors[] = {1, 16, 42, 32, 32, 200, 48, 1, 1};
    Picture sums(picture.size());
    std::vector<int> indices;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto at = static_cast<size_t>(y * width + x);
            Colour wanted = picture[at];
            for (size_t c = 0; c < 3; ++c) wanted[c] = std::clamp(wanted[c] + sums[at][c] / divisors[method], 0, 255);
            int m = 127;
            if (method >= DITHER_ORDERED) {
                m = method == DITHER_ORDERED ? kA[y % 8][x % 8] : kB[y % 8][x % 8];
                wanted = target.adjusted(wanted, m);
            }
            indices.push_back(target.index(wanted, m));
            const RGBQUAD& entry = target.entries()[indices.back()];
            const Colour error = {wanted[0] - entry.rgbRed, wanted[1] - entry.rgbGreen, wanted[2] - entry.rgbBlue};
            for (const Spread& s : spreadOf(method)) {
                if (x + s.right < 0 || x + s.right >= width || y + s.down >= height) continue;
                for (size_t c = 0; c < 3; ++c)
                    sums[static_cast<size_t>((y + s.down) * width + x + s.right)][c] += s.weight * error[c];
            }
        }
    }
    return indices;
}

std::vector<Target> targets(std::mt19937& random)
{
    std::vector<Target> all;
    for (R_INT bits = 1; bits <= 8; ++bits) all.push_back({"fixed", Kind::fixed, bits, {}});
    const RGBQUAD* const web = R_IntGetNetscapePalette();
    all.push_back({"web-safe", Kind::webSafe, 8, {web, web + 256}});
    for (const size_t count : {2u, 7u, 61u, 256u}) {
        Target target{
            std::to_string(count) + " entries", Kind::matched, bitsForColours(static_cast<R_UINT>(count)), {}};
        for (size_t i = 0; i < count; ++i) {
            const auto bits = static_cast<unsigned>(random());
            target.palette.push_back({static_cast<uint8_t>(bits), static_cast<uint8_t>(bits >> 8),
                                      static_cast<uint8_t>(bits >> 16),
                                      static_cast<uint8_t>(i % 5 == 3 ? 1 + i % 2 : 4)});
        }
        target.userTable = count == 61;
        all.push_back(target);
    }
    return all;
}

/// Ramps with noise, and patches of one colour.
Picture pictureOf(int width, int height, bool gray, std::mt19937& random)
{
    Picture picture;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int noise = static_cast<int>(random() % 64);
            Colour c = {x * 255 / width, y * 255 / height, 255 - noise * 4};
            if (y % 16 > 10) c = {x / 8 * 37 % 256, 128, 255};
            if (gray) c = Colour{} = {c[0] / 2 + noise, c[0] / 2 + noise, c[0] / 2 + noise};
            picture.push_back(c);
        }
    }
    return picture;
}

/// Dithers rows of 8-bit gray or 24 bits in chunks and unpacks what comes; what lies behind a row's last bit is zero.
std::vector<int> dithered(const Picture& picture, int width, bool gray, R_INT method, Target& target, R_INT chunk)
{
    const R_INT height = static_cast<R_INT>(picture.size()) / width;
    BITMAPHANDLE bitmap;
    EXPECT_EQ(R_InitBitmap(&bitmap, sizeof bitmap, width, height, gray ? 8 : 24), SUCCESS);
    bitmap.DitheringMethod = method;
    std::vector<RGBQUAD> ramp(256);
    EXPECT_EQ(R_GetFixedPalette(ramp.data(), 0), SUCCESS);
    if (gray) bitmap.pPalette = ramp.data();
    if (target.userTable) { // half of it empty, and one cell with an answer that there is not
        target.cells.assign(MATCH_TABLE_CELLS, 0);
        target.cells[12345] = 300;
    }
    const size_t sourceBytes = bitmap.BytesPerLine, targetBytes = packedBytes(width, target.bits) + 3;
    std::vector<uint8_t> source(sourceBytes * static_cast<size_t>(height), 0xEE),
        out(targetBytes * static_cast<size_t>(height), 0xA5);
    for (size_t i = 0; i < picture.size(); ++i) {
        uint8_t* const row = source.data() + i / static_cast<size_t>(width) * sourceBytes;
        const size_t x = i % static_cast<size_t>(width);
        for (size_t c = 0; c < (gray ? 1 : 3); ++c) row[gray ? x : x * 3 + c] = static_cast<uint8_t>(picture[i][2 - c]);
    }
    EXPECT_EQ(
        R_StartDitheringExt(&bitmap, target.palette.empty() ? nullptr : target.palette.data(),
                            target.palette.empty() ? 1u << target.bits : static_cast<R_UINT>(target.palette.size()),
                            target.bits, target.cells.empty() ? nullptr : target.cells.data()),
        SUCCESS);
    for (R_INT y = 0; y < height; y += chunk) {
        const R_INT count = std::min(chunk, height - y);
        const uint8_t* const from = source.data() + static_cast<size_t>(y) * sourceBytes;
        uint8_t* const to = out.data() + static_cast<size_t>(y) * targetBytes;
        if (chunk > 1)
            Dithering::of(&bitmap)->rows(from, static_cast<ptrdiff_t>(sourceBytes), to,
                                         static_cast<ptrdiff_t>(targetBytes), count);
        else
            EXPECT_EQ(R_DitherLine(&bitmap, from, to), SUCCESS);
    }
    EXPECT_EQ(R_StopDithering(&bitmap), SUCCESS);
    EXPECT_EQ(bitmap.pDitherData, nullptr);

    std::vector<int> indices;
    for (R_INT y = 0; y < height; ++y) {
        const uint8_t* const row = out.data() + static_cast<size_t>(y) * targetBytes;
        for (R_INT x = 0; x < width; ++x) indices.push_back(static_cast<int>(pixelAt(row, x, target.bits)));
        const size_t used = packedBytes(width, target.bits);
        const unsigned spare = static_cast<unsigned>(used * 8) - static_cast<unsigned>(width * target.bits);
        EXPECT_EQ(row[used - 1] & ((1u << spare) - 1), 0u);
        EXPECT_EQ(row[used], 0xA5);
    }
    return indices;
}

TEST(Dither, EveryMethodAndPaletteAsTheModel)
{
    constexpr unsigned kSeed = 20240611;
    std::mt19937 random(kSeed);
    const simd::RowKernels& used = rowKernels();
    for (const auto& [width, height] : {std::pair{1, 40}, {5, 20}, {131, 53}}) {
        for (const bool gray : {false, true}) {
            const Picture picture = pictureOf(width, height, gray, random);
            for (Target& target : targets(random)) {
                for (R_INT method = DITHER_NONE; method <= DITHER_CLUSTERED; ++method) {
                    const auto expected = modelled(picture, width, method, target);
                    const auto what = target.name + ", " + std::to_string(target.bits) + " bits, method " +
                                      std::to_string(method) + (gray ? ", gray, " : ", ") + std::to_string(width);
                    ASSERT_EQ(dithered(picture, width, gray, method, target, 1), expected) << what;
                    for (size_t i = 0; const simd::RowKernels* const kernels = availableRowKernels(i); ++i) {
                        useRowKernels(*kernels);
                        for (const R_INT chunk : {19, 1000})
                            ASSERT_EQ(dithered(picture, width, gray, method, target, chunk), expected)
                                << what << ", " << kernels->name << ", seed " << kSeed;
                    }
                    useRowKernels(used);
                }
            }
        }
    }
}

TEST(Dither, SaysWhatItCannotStart)
{
    const TestBitmap indexed(Scene{4}), gray(Scene{16});
    const RGBQUAD* const palette = R_IntGetFixedPalette(4);
    R_UINT table[1] = {};
    EXPECT_EQ(R_StartDithering(nullptr, palette, 16), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_StartDithering(indexed, palette, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_StartDithering(indexed, palette, 257), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_StartDitheringExt(indexed, palette, 16, 9, nullptr), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_StartDitheringExt(indexed, palette, 16, 0, nullptr), ERROR_INV_PARAMETER);
    {
        const NoMemory none; // arguments come first
        EXPECT_EQ(R_StartDitheringExt(indexed, nullptr, 16, 4, table), ERROR_INV_PARAMETER);
    }
    R_INT status = ERROR_FAILURE;
    for (int nth = 1; status != SUCCESS; ++nth) {
        std::vector<R_UINT> cells(MATCH_TABLE_CELLS);
        const FailingAllocation fault(nth);
        status = R_StartDitheringExt(indexed, palette, 16, 4, cells.data());
        ASSERT_EQ(status, fault.happened() ? ERROR_FAILURE : SUCCESS);
        EXPECT_EQ(cells[0], status == SUCCESS ? 1u : 0u); // of black, the first entry
    }
    EXPECT_EQ(R_StopDithering(indexed), SUCCESS);
    const auto refused = [&](const TestBitmap& bitmap, auto spoil) {
        BITMAPHANDLE record = *bitmap.get();
        spoil(record);
        return R_StartDithering(&record, palette, 16);
    };
    EXPECT_EQ(refused(indexed, [](BITMAPHANDLE& r) { r.DitheringMethod = 9; }), ERROR_INV_PARAMETER);
    EXPECT_EQ(refused(indexed, [](BITMAPHANDLE& r) { r.DitheringMethod = -1; }), ERROR_INV_PARAMETER);
    EXPECT_EQ(refused(indexed, [](BITMAPHANDLE& r) { r.pPalette = nullptr; }), ERROR_INV_PARAMETER);
    EXPECT_EQ(refused(indexed, [](BITMAPHANDLE& r) { r.BitsPerPixel = 9; }), ERROR_INV_PARAMETER);
    EXPECT_EQ(refused(indexed, [](BITMAPHANDLE& r) { r.Width = -1; }), ERROR_INV_SIZE);
    EXPECT_EQ(refused(indexed, [](BITMAPHANDLE& r) { r.uStructSize = 7; }), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(refused(gray, [](BITMAPHANDLE& r) { r.Order = ORDER_GRAY, r.LowBit = 9, r.HighBit = 8; }),
              ERROR_INV_PARAMETER);

    uint8_t row[64] = {};
    EXPECT_EQ(R_DitherLine(indexed, row, row), ERROR_INV_PARAMETER);
    indexed->pDitherData = row; // somebody else's
    EXPECT_EQ(R_DitherLine(indexed, row, row), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_StopDithering(indexed), SUCCESS);
    EXPECT_EQ(R_StopDithering(indexed), SUCCESS);
    EXPECT_EQ(R_StopDithering(nullptr), ERROR_INV_PARAMETER);
}

TEST(Dither, WhatIsNotStoppedGoesWithItsImage)
{
    const LiveBlocks live;
    {
        const TestBitmap freed(Scene{24}), replaced(Scene{24, Home::conventional, BITMAPHANDLE_SIZE_SHORT});
        for (const TestBitmap* bitmap : {&freed, &replaced})
            ASSERT_EQ(R_StartDithering(*bitmap, nullptr, 200), SUCCESS);
        BITMAPHANDLE copy = *freed.get();
        R_FreeBitmap(freed);
        EXPECT_EQ(freed->pDitherData, nullptr);
        ASSERT_EQ(R_GrayScaleBitmap(replaced, 8), SUCCESS);
        EXPECT_EQ(replaced->pDitherData, nullptr);
        EXPECT_EQ(R_StopDithering(&copy), SUCCESS);         // what it points to is gone
        replaced->pDitherData = reinterpret_cast<void*>(1); // somebody else's, and no address at all
        R_FreeBitmap(replaced);
        EXPECT_EQ(replaced->pDitherData, reinterpret_cast<void*>(1));
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(Dither, ShortAndAllMarkedPalettes)
{
    const TestBitmap bitmap(Scene{8, Home::conventional, BITMAPHANDLE_SIZE, 3, 1});
    const std::vector<RGBQUAD> colours = {{128, 128, 128, 0}, {100, 100, 100, 0}, {100, 100, 200, 0}};
    ASSERT_EQ(R_SetBitmapNewPalette(bitmap, colours.data(), 3), SUCCESS);
    bitmap->DitheringMethod = DITHER_NONE;
    const uint8_t source[] = {0, 1, 2};
    const auto indices = [&](const RGBQUAD* palette, R_UINT count, R_INT bits = 8) {
        std::array<uint8_t, 3> row{};
        EXPECT_EQ(R_StartDitheringExt(bitmap, palette, count, bits, nullptr), SUCCESS);
        EXPECT_EQ(R_DitherLine(bitmap, source, row.data()), SUCCESS);
        EXPECT_EQ(R_StopDithering(bitmap), SUCCESS);
        return row;
    };
    using Row = std::array<uint8_t, 3>;
    EXPECT_EQ(indices(nullptr, 1), (Row{1, 0, 0})); // luminance 128, 100, 125
    EXPECT_EQ(indices(R_IntGetFixedPalette(4), 16), (Row{15, 0, 9}));
    EXPECT_EQ(indices(R_IntGetFixedPalette(4), 9), (Row{15, 0, 9})); // entries that the palette has not
    const RGBQUAD marked[] = {{0, 0, 0, 2}, {120, 120, 120, 1}, {90, 90, 210, 3}};
    EXPECT_EQ(indices(marked, 3), (Row{1, 1, 2}));
    const RGBQUAD grays[] = {{128, 128, 128, 0}, {100, 100, 100, 0}, {200, 200, 200, 0}};
    ASSERT_EQ(R_SetBitmapNewPalette(bitmap, grays, 3), SUCCESS);
    EXPECT_EQ(indices(nullptr, 4, 1), (Row{0b01100000})); // the lowest bits of 2, 1, 3
}

} // namespace
} // namespace rv::test
