#include "Kernel/Core/Palette.h"
#include "Kernel/Pixels/Simd/Select.h"
#include "Support/FailingPlatform.h"
#include "Support/GuardedRecord.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace rv::test {
namespace {

using Entries = std::vector<RGBQUAD>;

constexpr RGBQUAD entry(int red, int green, int blue, int reserved = 0)
{
    return {static_cast<uint8_t>(blue), static_cast<uint8_t>(green), static_cast<uint8_t>(red),
            static_cast<uint8_t>(reserved)};
}

int rgb(const RGBQUAD& e) { return e.rgbRed << 16 | e.rgbGreen << 8 | e.rgbBlue; }

std::vector<int> colours(const RGBQUAD* entries, size_t count)
{
    std::vector<int> list;
    std::transform(entries, entries + count, std::back_inserter(list), rgb);
    return list;
}

Entries grays(std::initializer_list<int> levels)
{
    Entries entries;
    for (const int level : levels) entries.push_back(entry(level, level, level));
    return entries;
}

R_INT isGray(const Entries& entries)
{
    return R_IsGrayScalePalette(entries.data(), static_cast<R_UINT>(entries.size()));
}

/// The rule as it reads: the extremes at the ends, then one entry after the other.
R_UINT plainFind(const Entries& entries, int red, int green, int blue)
{
    const auto hue = [](int r, int g, int b) {
        return (r < b ? 4 : 0) + (g < std::min(r, b) ? 2 : 0) + (g > std::max(r, b) ? 1 : 0);
    };
    const auto count = static_cast<R_UINT>(entries.size());
    const int asked = red << 16 | green << 8 | blue;
    if (asked == 0 && rgb(entries.front()) == 0) return 0;
    if ((asked == 0 || asked == 0xFFFFFF) && rgb(entries.back()) == asked) return count - 1;
    if (asked == 0xFFFFFF && rgb(entries.front()) == asked) return 0;
    R_UINT best = 0;
    R_UINT bestDistance = 0xFFFFFFFF;
    for (R_UINT i = 0; i < count && bestDistance != 0; ++i) {
        const int r = entries[i].rgbRed, g = entries[i].rgbGreen, b = entries[i].rgbBlue;
        const auto d = static_cast<R_UINT>((r - red) * (r - red) + (g - green) * (g - green) + (b - blue) * (b - blue));
        if (d > bestDistance || (d == bestDistance && hue(r, g, b) != hue(red, green, blue))) continue;
        best = i;
        bestDistance = d;
    }
    return best;
}

TEST(PaletteTables, FollowTheirRules)
{
    constexpr int kFields[9][3] = {{}, {}, {}, {1, 1, 1}, {}, {2, 2, 1}, {2, 2, 2}, {2, 3, 2}, {3, 3, 2}};
    for (const int bits : {3, 5, 6, 7, 8}) {
        const auto& [red, green, blue] = kFields[bits];
        const RGBQUAD* const table = R_IntGetFixedPalette(bits);
        for (int i = 0; i < 1 << bits; ++i) {
            const auto level = [i](int shift, int width) {
                const int last = (1 << width) - 1;
                return static_cast<int>(std::lround((i >> shift & last) * 255.0 / last));
            };
            EXPECT_EQ(rgb(table[i]), rgb(entry(level(green + blue, red), level(blue, green), level(0, blue))))
                << bits << " bits, entry " << i;
            EXPECT_EQ(table[i].rgbReserved, 0);
        }
    }
    EXPECT_EQ(colours(R_IntGetFixedPalette(1), 2), (std::vector<int>{0, 0xFFFFFF}));
    EXPECT_EQ(colours(R_IntGetFixedPalette(2), 4), (std::vector<int>{0, 0x555555, 0xAAAAAA, 0xFFFFFF}));
    EXPECT_EQ(colours(R_IntGetFixedPalette(4), 16),
              (std::vector<int>{0, 0x800000, 0x008000, 0x808000, 0x000080, 0x800080, 0x008080, 0x808080, 0xC0C0C0,
                                0xFF0000, 0x00FF00, 0xFFFF00, 0x0000FF, 0xFF00FF, 0x00FFFF, 0xFFFFFF}));
    const RGBQUAD* const web = R_IntGetNetscapePalette();
    EXPECT_EQ(rgb(web[2 * 36 + 3 * 6 + 4]), 0x6699CC);
    EXPECT_EQ(rgb(web[215]), 0xFFFFFF);
    for (int i = 216; i < 256; ++i) EXPECT_EQ(rgb(web[i]), 0);
    EXPECT_EQ(R_IntGetFixedPalette(0), nullptr);
    EXPECT_EQ(R_IntGetFixedPalette(9), nullptr);
}

TEST(PaletteTables, CopiesGiveZeroItsOwnMeanings)
{
    Entries out(256, entry(1, 2, 3, 4));
    EXPECT_EQ(R_GetFixedPalette(out.data(), 0), SUCCESS);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(rgb(out[static_cast<size_t>(i)]), i * 0x010101);
    EXPECT_EQ(R_GetFixedPalette(out.data(), 2), SUCCESS);
    EXPECT_EQ(colours(out.data(), 5), (std::vector<int>{0, 0x555555, 0xAAAAAA, 0xFFFFFF, 0x040404}));
    for (const R_INT bits : {-1, 9}) {
        EXPECT_EQ(R_GetFixedPalette(out.data(), bits), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_CreateFixedPalette(bits), nullptr);
    }
    EXPECT_EQ(R_GetFixedPalette(nullptr, 1), ERROR_INV_PARAMETER);

    const auto made = [](RGBQUAD* entries, size_t count) {
        const auto list = colours(entries, count);
        R_HeapTerm(entries);
        return list;
    };
    for (const R_INT bits : {0, 1}) EXPECT_EQ(made(R_CreateFixedPalette(bits), 2), (std::vector<int>{0, 0xFFFFFF}));
    EXPECT_EQ(made(R_CreateFixedPalette(8), 256), colours(R_IntGetFixedPalette(8), 256));
    EXPECT_EQ(made(R_CreateGrayPalette(3), 8),
              (std::vector<int>{0, 0x242424, 0x484848, 0x6D6D6D, 0x919191, 0xB6B6B6, 0xDADADA, 0xFFFFFF}));
    EXPECT_EQ(made(R_CreateGrayPalette(0), 256)[77], 0x4D4D4D);
    for (const R_INT bits : {-1, 32, 64}) EXPECT_EQ(R_CreateGrayPalette(bits), nullptr);
}

TEST(BitmapPalette, TablesAreChosenByTheNumberOfColours)
{
    const TestBitmap bitmap({4});
    bitmap->nColors = 4;
    EXPECT_EQ(R_CreateBitmapFixedPalette(bitmap.get()), SUCCESS);
    EXPECT_EQ(colours(bitmap->pPalette, 4), (std::vector<int>{0, 0xFFFFFF, 0, 0}));
    for (const auto& [count, bits] : {std::pair{2u, 1}, {8u, 3}, {16u, 4}, {32u, 5}, {64u, 6}, {128u, 7}, {256u, 8}}) {
        bitmap->nColors = count;
        EXPECT_EQ(R_CreateBitmapFixedPalette(bitmap.get()), SUCCESS);
        EXPECT_EQ(colours(bitmap->pPalette, count), colours(R_IntGetFixedPalette(bits), count));
    }
    bitmap->nColors = 3;
    EXPECT_EQ(R_CreateBitmapFixedPalette(bitmap.get()), FAILURE);
    EXPECT_EQ(bitmap->pPalette, nullptr);
    EXPECT_EQ(R_CreateBitmapGrayPalette(bitmap.get()), SUCCESS);
    EXPECT_EQ(bitmap->nColors, 16u);
    EXPECT_EQ(isGray({bitmap->pPalette, bitmap->pPalette + 16}), 1);
}

TEST(BitmapPalette, RunsStayInside)
{
    const TestBitmap bitmap({8, Home::conventional, BITMAPHANDLE_SIZE_SHORT});
    Entries out(256, entry(9, 9, 9));
    EXPECT_EQ(R_GetBitmapColors(bitmap.get(), 250, 10, out.data()), ERROR_INV_PARAMETER);
    EXPECT_EQ(colours(out.data(), 6), colours(bitmap->pPalette + 250, 6));
    EXPECT_EQ(rgb(out[6]), 0x090909);
    EXPECT_EQ(R_GetBitmapColors(bitmap.get(), 250, 6, out.data()), SUCCESS);
    EXPECT_EQ(R_GetBitmapPaletteEntries(bitmap.get(), 250, 0xFFFFFFFF, out.data()), 6u);
    for (const R_INT first : {-1, 256, INT32_MAX}) {
        EXPECT_EQ(R_GetBitmapColors(bitmap.get(), first, 1, out.data()), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_GetBitmapPaletteEntries(bitmap.get(), first, 1, out.data()), 0u);
        EXPECT_EQ(R_PutBitmapColors(bitmap.get(), first, 1, out.data()), ERROR_INV_PARAMETER);
    }
    EXPECT_EQ(R_PutBitmapColors(bitmap.get(), 255, 0xFFFFFFFF, out.data()), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetBitmapColors(bitmap.get(), 0, 0, out.data()), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_PutBitmapColors(bitmap.get(), 254, 2, out.data()), SUCCESS);
    EXPECT_EQ(colours(bitmap->pPalette + 254, 2), colours(out.data(), 2));

    // A record that claims more entries than a palette can have.
    const GuardedBuffer memory(256 * sizeof(RGBQUAD));
    RGBQUAD* const own = bitmap->pPalette;
    bitmap->pPalette = reinterpret_cast<RGBQUAD*>(memory.data());
    bitmap->nColors = 300;
    Entries large(300);
    EXPECT_EQ(R_GetBitmapPaletteEntries(bitmap.get(), 0, 300, large.data()), 256u);
    EXPECT_EQ(R_GetBitmapColors(bitmap.get(), 256, 1, large.data()), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_PutBitmapColors(bitmap.get(), 200, 100, large.data()), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_CompareBitmapToPalette(bitmap.get(), large.data(), 300), 1);
    EXPECT_EQ(R_GetNearestPaletteIndex(bitmap.get(), 0x123456), 0u);
    bitmap->pPalette = nullptr; // the number alone: nothing to read, room to write
    EXPECT_EQ(R_GetBitmapPaletteEntries(bitmap.get(), 0, 300, large.data()), 0u);
    EXPECT_EQ(R_CompareBitmapToPalette(bitmap.get(), large.data(), 300), 1);
    EXPECT_EQ(R_PutBitmapColors(bitmap.get(), 255, 1, out.data()), SUCCESS);
    EXPECT_EQ(rgb(bitmap->pPalette[254]), 0);
    EXPECT_EQ(rgb(bitmap->pPalette[255]), rgb(out[0]));
    freePalette(bitmap.get());
    bitmap->pPalette = own;
}

TEST(BitmapPalette, ReplacingCountsFirst)
{
    const LiveBlocks live;
    {
        const TestBitmap bitmap({8}), other({2});
        const Entries kept(bitmap->pPalette + 100, bitmap->pPalette + 256);
        EXPECT_EQ(R_SetBitmapNewPalette(bitmap.get(), bitmap->pPalette + 100, 156), SUCCESS); // out of its own block
        EXPECT_EQ(colours(bitmap->pPalette, 156), colours(kept.data(), 156));
        EXPECT_EQ(R_CopyBitmapPalette(bitmap.get(), bitmap.get()), SUCCESS);
        EXPECT_EQ(R_CompareBitmapToPalette(bitmap.get(), kept.data(), 156), 1);
        bitmap->pPalette[155].rgbReserved ^= 1; // does not count
        EXPECT_EQ(R_CompareBitmapToPalette(bitmap.get(), kept.data(), 1000), 1);
        bitmap->pPalette[155].rgbGreen ^= 1;
        EXPECT_EQ(R_CompareBitmapToPalette(bitmap.get(), kept.data(), 156), 0);
        EXPECT_EQ(R_CompareBitmapToPalette(bitmap.get(), kept.data(), 155), 1);

        EXPECT_EQ(R_CopyBitmapPalette(bitmap.get(), other.get()), SUCCESS);
        EXPECT_EQ(bitmap.palette(), other.palette());
        EXPECT_EQ(R_SetBitmapNewPalette(bitmap.get(), nullptr, 7), SUCCESS);
        EXPECT_EQ(bitmap->nColors, 4u);
        EXPECT_EQ(R_CopyBitmapPalette(other.get(), bitmap.get()), SUCCESS); // there is none to copy
        EXPECT_EQ(other->nColors, 0u);
        for (const R_UINT count : {0u, 300u}) {
            EXPECT_EQ(R_SetBitmapNewPalette(bitmap.get(), R_IntGetFixedPalette(8), count), ERROR_FAILURE);
            EXPECT_EQ(bitmap->nColors, count);
            EXPECT_EQ(bitmap->pPalette, nullptr);
        }
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(BitmapPalette, WithoutMemoryThereIsNoPalette)
{
    const LiveBlocks live;
    const Entries entries(32);
    const HPALETTE object = R_CreatePalette(entries.data(), 32);
    const auto afterFailure = [&](unsigned kinds, auto&& replace) {
        const TestBitmap bitmap({4}), other({5});
        const NoMemory none(kinds);
        EXPECT_EQ(replace(bitmap.get(), other.get()), ERROR_FAILURE);
        EXPECT_EQ(bitmap->pPalette, nullptr);
        return bitmap->nColors;
    };
    for (const unsigned kinds : {kFailMovable, kFailLocking}) {
        EXPECT_EQ(afterFailure(kinds, [](auto* p, auto*) { return R_CreateBitmapGrayPalette(p); }), 16u);
        EXPECT_EQ(afterFailure(kinds, [](auto* p, auto*) { return R_CreateBitmapFixedPalette(p); }), 16u);
        EXPECT_EQ(afterFailure(kinds, [&](auto* p, auto*) { return R_SetBitmapNewPalette(p, entries.data(), 9); }), 9u);
        EXPECT_EQ(afterFailure(kinds, [](auto* p, auto* q) { return R_CopyBitmapPalette(p, q); }), 32u);
        EXPECT_EQ(afterFailure(kinds, [&](auto* p, auto*) { return R_SetBitmapPalette(p, object); }), 16u);
        EXPECT_EQ(afterFailure(kinds,
                               [&](auto* p, auto*) {
                                   freePalette(p);
                                   return R_PutBitmapColors(p, 0, 1, entries.data());
                               }),
                  16u);
    }
    R_DeletePalette(object);
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(GrayPalette, RampsHaveWholeSteps)
{
    EXPECT_EQ(isGray(grays({0, 127, 255})), 3);
    EXPECT_EQ(isGray(grays({255, 170, 85, 0})), 2);
    EXPECT_EQ(isGray(grays({0, 85, 170, 255})), 1);
    EXPECT_EQ(isGray(grays({254, 170, 85, 0})), 3); // falls from 255 whatever the first entry holds
    EXPECT_EQ(isGray({entry(0, 0, 0), entry(0, 1, 0)}), 0);
    for (const auto& [level, kind] : {std::pair{0, 1}, {255, 2}, {7, 3}}) EXPECT_EQ(isGray(grays({level})), kind);
    const RGBQUAD coloured = entry(255, 0, 0);
    EXPECT_EQ(R_IsGrayScalePalette(&coloured, 0), 2);
    Entries longRamp(600, entry(0, 0, 0)); // steps of 0
    EXPECT_EQ(isGray(longRamp), 1);
    std::fill(longRamp.begin(), longRamp.end(), entry(255, 255, 255));
    EXPECT_EQ(isGray(longRamp), 2);
}

TEST(FindPaletteIndex, PrefersEndsThenHue)
{
    const Entries white(3, entry(255, 255, 255)), black(3, entry(0, 0, 0));
    EXPECT_EQ(R_FindPaletteIndex(black.data(), 3, 0, 0, 0), 0u);
    EXPECT_EQ(R_FindPaletteIndex(white.data(), 3, 255, 255, 255), 2u);
    EXPECT_EQ(R_FindPaletteIndex(nullptr, 0, 0, 0, 0), 0u);
    EXPECT_EQ(R_FindPaletteIndex(black.data(), 0, 0, 0, 0), 0xFFFFFFFFu);
    const Entries tie{entry(120, 128, 136), entry(136, 128, 120), entry(120, 128, 136)};
    EXPECT_EQ(R_FindPaletteIndex(tie.data(), 2, 128, 128, 128), 1u);
    EXPECT_EQ(R_FindPaletteIndex(tie.data() + 1, 2, 128, 128, 128), 0u);
    // Requests out of range wrap: 65536 squared counts as nothing, so the entry without red is 0 away.
    const Entries reds{entry(1, 0, 0), entry(0, 0, 0), entry(2, 0, 0)};
    EXPECT_EQ(R_FindPaletteIndex(reds.data(), 3, 65536, 0, 0), 1u);
}

TEST(FindPaletteIndex, AnswersAsThePlainScanDoesWithEveryKernel)
{
    constexpr unsigned kSeed = 20240;
    const simd::RowKernels& usual = rowKernels();
    for (size_t variant = 0; const simd::RowKernels* const kernels = availableRowKernels(variant); ++variant) {
        useRowKernels(*kernels);
        std::mt19937 random(kSeed);
        for (int round = 0; round < 400 && !HasFatalFailure(); ++round) {
            // Few levels give ties and exact entries; few entries lie far from what is asked for.
            const int step = std::vector<int>{1, 3, 17, 51, 85, 255}[random() % 6];
            const size_t count = round % 8 == 0 ? 257 + random() % 400 : 1 + random() % 256;
            const GuardedBuffer memory(count * sizeof(RGBQUAD));
            const auto level = [&] { return static_cast<uint8_t>(static_cast<int>(random() % 256) / step * step); };
            Entries entries(count);
            for (RGBQUAD& e : entries) e = {level(), level(), level(), static_cast<uint8_t>(random())};
            std::memcpy(memory.data(), entries.data(), memory.size());
            for (int ask = 0; ask < 60; ++ask) {
                const RGBQUAD c = ask % 2 == 0 ? RGBQUAD{level(), level(), level(), 0} : entries[random() % count];
                const int shift = ask % 3 == 0 ? static_cast<int>(random() % 9) : 0;
                const int green = std::min(c.rgbGreen + shift, 255);
                ASSERT_EQ(R_FindPaletteIndex(reinterpret_cast<const RGBQUAD*>(memory.data()),
                                             static_cast<R_UINT>(count), c.rgbRed, green, c.rgbBlue),
                          plainFind(entries, c.rgbRed, green, c.rgbBlue))
                    << kernels->name << ", seed " << kSeed << ", round " << round << ": " << count
                    << " entries in steps of " << step << ", colour " << rgb(c) << " + " << shift;
            }
        }
    }
    useRowKernels(usual);
}

TEST(PaletteObject, KeepsEveryByte)
{
    const LiveBlocks live;
    Entries entries(256);
    std::mt19937 random(5);
    for (RGBQUAD& e : entries) e = entry(random() & 255, random() & 255, random() & 255, random() & 3);
    const HPALETTE object = R_CreatePalette(entries.data(), 256);
    const HPALETTE copy = R_DupPalette(object);
    ASSERT_EQ(R_GetPaletteSize(copy), 256u);
    Entries out(256);
    const auto same = [&](size_t first, size_t count) {
        return std::memcmp(out.data(), entries.data() + first, count * sizeof(RGBQUAD)) == 0;
    };
    EXPECT_EQ(R_GetPaletteEntries(copy, 200, 20, out.data()), 20u);
    EXPECT_TRUE(same(200, 20));
    EXPECT_EQ(R_SetPaletteEntries(copy, 0, 2, entries.data() + 7), 2u);
    EXPECT_EQ(R_GetPaletteEntries(copy, 0, 2, out.data()), 2u);
    EXPECT_TRUE(same(7, 2));
    for (const auto& move : {R_GetPaletteEntries(copy, -1, 2, out.data()), R_SetPaletteEntries(copy, -1, 2, out.data()),
                             R_GetPaletteEntries(copy, 0, 2, nullptr), R_SetPaletteEntries(copy, 0, 2, nullptr),
                             R_GetPaletteEntries(nullptr, 0, 2, out.data()), R_GetPaletteSize(nullptr)})
        EXPECT_EQ(move, 0u);
    EXPECT_EQ(R_CreatePalette(entries.data(), 257), nullptr);
    EXPECT_EQ(R_CreatePalette(nullptr, 2), nullptr);
    EXPECT_EQ(R_DupPalette(nullptr), nullptr);
    R_DeletePalette(copy);
    {
        const TestBitmap bitmap({8});
        EXPECT_EQ(R_SetBitmapPalette(bitmap.get(), object), SUCCESS);
        EXPECT_EQ(std::memcmp(bitmap->pPalette, entries.data(), 1024), 0);
        EXPECT_EQ(R_SetBitmapPalette(bitmap.get(), nullptr), ERROR_INV_PARAMETER);
        const HPALETTE one = R_CreatePalette(entries.data(), 1);
        EXPECT_EQ(R_SetBitmapPalette(bitmap.get(), one), ERROR_INV_PARAMETER);
        R_DeletePalette(one);
        const HPALETTE again = R_DupBitmapPalette(bitmap.get());
        EXPECT_EQ(R_GetPaletteEntries(again, 0, 256, out.data()), 256u);
        EXPECT_TRUE(same(0, 256));
        R_DeletePalette(again);
        bitmap->nColors = 257;
        EXPECT_EQ(R_DupBitmapPalette(bitmap.get()), nullptr);
    }
    R_DeletePalette(object);
    RGBQUAD* const array = R_CreateNewPalette(entries.data(), 256);
    EXPECT_EQ(colours(array, 256), colours(entries.data(), 256));
    R_HeapTerm(array);
    for (const R_UINT count : {0u, 257u}) EXPECT_EQ(R_CreateNewPalette(entries.data(), count), nullptr);
    EXPECT_EQ(live.count(), 0) << live.text();
}

} // namespace
} // namespace rv::test
