#include "Kernel/Core/Palette.h"
#include "Kernel/Pixels/Simd/Select.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>

namespace rv::test {
namespace {

using Entries = std::vector<RGBQUAD>;

constexpr RGBQUAD entry(int red, int green, int blue)
{
    return {static_cast<uint8_t>(blue), static_cast<uint8_t>(green), static_cast<uint8_t>(red), 0};
}

int rgb(const RGBQUAD& e) { return e.rgbRed << 16 | e.rgbGreen << 8 | e.rgbBlue; }

std::vector<int> colours(const RGBQUAD* entries, size_t count)
{
    std::vector<int> list;
    std::transform(entries, entries + count, std::back_inserter(list), rgb);
    return list;
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
    for (const auto& [bits, red, green, blue] :
         {std::array{3, 1, 1, 1}, {5, 2, 2, 1}, {6, 2, 2, 2}, {7, 2, 3, 2}, {8, 3, 3, 2}}) {
        for (int i = 0; i < 1 << bits; ++i) {
            const auto level = [i](int shift, int width) {
                const int last = (1 << width) - 1;
                return static_cast<int>(std::lround((i >> shift & last) * 255.0 / last));
            };
            const RGBQUAD wanted = entry(level(green + blue, red), level(blue, green), level(0, blue));
            EXPECT_EQ(std::memcmp(&R_IntGetFixedPalette(bits)[i], &wanted, 4), 0) << bits << " bits, entry " << i;
        }
    }
    EXPECT_EQ(colours(R_IntGetFixedPalette(2), 4), (std::vector{0, 0x555555, 0xAAAAAA, 0xFFFFFF}));
    EXPECT_EQ(colours(R_IntGetFixedPalette(4) + 6, 4), (std::vector{0x008080, 0x808080, 0xC0C0C0, 0xFF0000}));
    EXPECT_EQ(colours(R_IntGetNetscapePalette() + 214, 3), (std::vector{0xFFFFCC, 0xFFFFFF, 0}));
    EXPECT_EQ(rgb(R_IntGetNetscapePalette()[2 * 36 + 3 * 6 + 4]), 0x6699CC);

    // No depth is the whole gray ramp for a caller's array, and black and white for a new one.
    Entries out(256);
    EXPECT_EQ(R_GetFixedPalette(out.data(), 0), SUCCESS);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(rgb(out[static_cast<size_t>(i)]), i * 0x010101);
    const auto made = [](RGBQUAD* entries, size_t count) {
        const std::unique_ptr<RGBQUAD, void (*)(void*)> owner(entries, R_HeapTerm);
        return colours(entries, count);
    };
    EXPECT_EQ(made(R_CreateFixedPalette(0), 2), (std::vector{0, 0xFFFFFF}));
    EXPECT_EQ(made(R_CreateGrayPalette(3), 4), (std::vector{0, 0x242424, 0x484848, 0x6D6D6D}));
    EXPECT_EQ(made(R_CreateGrayPalette(0), 256), colours(out.data(), 256));
    EXPECT_EQ(R_GetFixedPalette(out.data(), 1), SUCCESS);
    EXPECT_EQ(colours(out.data(), 3), (std::vector{0, 0xFFFFFF, 0x020202}));
    for (const R_INT bits : {-1, 9}) {
        EXPECT_EQ(R_IntGetFixedPalette(bits), nullptr);
        EXPECT_EQ(R_GetFixedPalette(out.data(), bits), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_CreateFixedPalette(bits), nullptr);
        EXPECT_EQ(R_CreateGrayPalette(bits < 0 ? bits : 32), nullptr);
    }
}

TEST(BitmapPalette, TablesAreChosenByTheNumberOfColours)
{
    const TestBitmap bitmap({4});
    const auto fixedFor = [&](R_UINT count) {
        bitmap->nColors = count;
        EXPECT_EQ(R_CreateBitmapFixedPalette(bitmap.get()), SUCCESS);
        return colours(bitmap->pPalette, count);
    };
    for (const R_INT bits : {1, 3, 4, 5, 6, 7, 8})
        EXPECT_EQ(fixedFor(1u << bits), colours(R_IntGetFixedPalette(bits), size_t{1} << bits));
    EXPECT_EQ(fixedFor(4), (std::vector{0, 0xFFFFFF, 0, 0}));
    bitmap->nColors = 3;
    EXPECT_EQ(R_CreateBitmapFixedPalette(bitmap.get()), FAILURE);
    EXPECT_EQ(bitmap->pPalette, nullptr);
    EXPECT_EQ(R_CreateBitmapGrayPalette(bitmap.get()), SUCCESS);
    EXPECT_EQ(R_IsGrayScalePalette(bitmap->pPalette, bitmap->nColors), 1);
    EXPECT_EQ(bitmap->nColors, 16u);
}

TEST(BitmapPalette, RunsStayInside)
{
    const TestBitmap bitmap({8});
    const auto statuses = [&](R_INT first, R_UINT count, RGBQUAD* entries) {
        return std::vector<R_INT64>{R_GetBitmapColors(bitmap.get(), first, count, entries),
                                    R_GetBitmapPaletteEntries(bitmap.get(), first, count, entries),
                                    R_PutBitmapColors(bitmap.get(), first, count, entries)};
    };
    using Statuses = std::vector<R_INT64>;
    Entries out(300, entry(9, 9, 9));
    EXPECT_EQ(statuses(250, 10, out.data()), (Statuses{ERROR_INV_PARAMETER, 6, ERROR_INV_PARAMETER}));
    EXPECT_EQ(colours(out.data(), 6), colours(bitmap->pPalette + 250, 6));
    EXPECT_EQ(rgb(out[6]), 0x090909);
    EXPECT_EQ(statuses(250, 6, out.data() + 1), (Statuses{SUCCESS, 6, SUCCESS}));
    for (const R_INT first : {-1, 256, INT32_MAX})
        EXPECT_EQ(statuses(first, 0xFFFFFFFF, out.data()), (Statuses{ERROR_INV_PARAMETER, 0, ERROR_INV_PARAMETER}));
    EXPECT_EQ(statuses(0, 0, out.data()), (Statuses{ERROR_INV_PARAMETER, 0, SUCCESS}));

    // A record that claims more entries than a palette can have; then one that has none of them.
    const GuardedBuffer memory(256 * sizeof(RGBQUAD));
    RGBQUAD* const own = bitmap->pPalette;
    bitmap->pPalette = reinterpret_cast<RGBQUAD*>(memory.data());
    bitmap->nColors = 300;
    EXPECT_EQ(statuses(0, 300, out.data()), (Statuses{ERROR_INV_PARAMETER, 256, ERROR_INV_PARAMETER}));
    EXPECT_EQ(R_CompareBitmapToPalette(bitmap.get(), out.data(), 300), 1);
    EXPECT_EQ(R_GetNearestPaletteIndex(bitmap.get(), 0x123456), 0u);
    bitmap->pPalette = nullptr;
    EXPECT_EQ(R_CompareBitmapToPalette(bitmap.get(), out.data(), 300), 1);
    EXPECT_EQ(statuses(255, 1, out.data()), (Statuses{ERROR_INV_PARAMETER, 0, SUCCESS}));
    EXPECT_EQ(colours(bitmap->pPalette + 254, 2), (std::vector{0, rgb(out[0])}));
    freePalette(bitmap.get());
    bitmap->pPalette = own;
}

TEST(BitmapPalette, ReplacingStoresTheCountFirst)
{
    const TestBitmap bitmap({8}), other({2});
    const Entries kept(bitmap->pPalette + 100, bitmap->pPalette + 256);
    const auto same = [&](R_UINT count) { return R_CompareBitmapToPalette(bitmap.get(), kept.data(), count); };
    EXPECT_EQ(R_SetBitmapNewPalette(bitmap.get(), bitmap->pPalette + 100, 156), SUCCESS); // out of its own block
    EXPECT_EQ(R_CopyBitmapPalette(bitmap.get(), bitmap.get()), SUCCESS);
    bitmap->pPalette[155].rgbReserved ^= 1; // does not count
    EXPECT_EQ(same(1000), 1);
    bitmap->pPalette[155].rgbGreen ^= 1;
    EXPECT_EQ(same(156), 0);
    EXPECT_EQ(same(155), 1);

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
    const HPALETTE object = R_CreatePalette(R_IntGetFixedPalette(8), 32);
    for (const unsigned kinds : {kFailMovable, kFailLocking}) { // the old one is gone all the same
        const TestBitmap poor({4}), rich({5});
        const NoMemory none(kinds);
        EXPECT_EQ(R_SetBitmapPalette(poor.get(), object), ERROR_FAILURE);
        EXPECT_EQ(poor->nColors, 16u);
        EXPECT_EQ(poor->pPalette, nullptr);
        EXPECT_EQ(R_CopyBitmapPalette(poor.get(), rich.get()), ERROR_FAILURE);
        EXPECT_EQ(poor->nColors, 32u);
    }
    R_DeletePalette(object);
}

TEST(GrayPalette, RampsHaveWholeSteps)
{
    const auto kindOf = [](std::initializer_list<int> levels) {
        Entries entries;
        for (const int level : levels) entries.push_back(entry(level, level, level));
        return R_IsGrayScalePalette(entries.data(), static_cast<R_UINT>(entries.size()));
    };
    EXPECT_EQ(kindOf({0, 127, 255}), 3);
    EXPECT_EQ(kindOf({255, 170, 85, 0}), 2);
    EXPECT_EQ(kindOf({0, 85, 170, 255}), 1);
    EXPECT_EQ(kindOf({254, 170, 85, 0}), 3); // falls from 255 whatever the first entry holds
    EXPECT_EQ(kindOf({255}), 2);
    const RGBQUAD coloured[] = {entry(255, 255, 0), entry(0, 0, 0)};
    EXPECT_EQ(R_IsGrayScalePalette(coloured, 2), 0);
    EXPECT_EQ(R_IsGrayScalePalette(coloured, 0), 2); // looked at all the same
}

TEST(FindPaletteIndex, HasAnAnswerForEverything)
{
    const Entries tie{entry(120, 128, 136), entry(136, 128, 120)};
    EXPECT_EQ(R_FindPaletteIndex(tie.data(), 2, 128, 128, 128), 1u);
    EXPECT_EQ(R_FindPaletteIndex(nullptr, 0, 0, 0, 0), 0u);
    EXPECT_EQ(R_FindPaletteIndex(tie.data(), 0, 0, 0, 0), 0xFFFFFFFFu);
    EXPECT_EQ(R_FindPaletteIndex(tie.data(), 2, 65536 + 136, 128, 120), 1u); // 65536 squared wraps to nothing
}

TEST(FindPaletteIndex, AnswersAsThePlainScanDoesWithEveryKernel)
{
    constexpr unsigned kSeed = 20240;
    const simd::RowKernels& usual = rowKernels();
    for (size_t variant = 0; const simd::RowKernels* const kernels = availableRowKernels(variant); ++variant) {
        useRowKernels(*kernels);
        std::mt19937 random(kSeed);
        for (int round = 0; round < 400 && !HasFailure(); ++round) {
            // Few levels give ties and exact entries; few entries lie far from what is asked for.
            const int step = std::array{1, 3, 17, 51, 85, 255}[random() % 6];
            const size_t count = round % 8 == 0 ? 257 + random() % 400 : 1 + random() % 256;
            const auto level = [&] { return static_cast<uint8_t>(static_cast<int>(random() % 256) / step * step); };
            Entries entries(count);
            for (RGBQUAD& e : entries) e = {level(), level(), level(), static_cast<uint8_t>(random())};
            const GuardedBuffer memory(count * sizeof(RGBQUAD));
            std::memcpy(memory.data(), entries.data(), memory.size());
            for (int ask = 0; ask < 60; ++ask) {
                const RGBQUAD c = ask % 2 == 0 ? RGBQUAD{level(), level(), level(), 0} : entries[random() % count];
                const int green = std::min(c.rgbGreen + (ask % 3 == 0 ? static_cast<int>(random() % 9) : 0), 255);
                EXPECT_EQ(R_FindPaletteIndex(reinterpret_cast<const RGBQUAD*>(memory.data()),
                                             static_cast<R_UINT>(count), c.rgbRed, green, c.rgbBlue),
                          plainFind(entries, c.rgbRed, green, c.rgbBlue))
                    << kernels->name << ", seed " << kSeed << ", round " << round << ", " << count << " entries";
            }
        }
    }
    useRowKernels(usual);
}

TEST(PaletteObject, KeepsEveryByte)
{
    const LiveBlocks live;
    {
        const TestBitmap bitmap({8});
        for (size_t i = 0; i < 256; ++i) bitmap->pPalette[i].rgbReserved = static_cast<uint8_t>(i);
        const std::vector<uint8_t> wanted = bitmap.palette();
        const HPALETTE object = R_DupBitmapPalette(bitmap.get()), copy = R_DupPalette(object);
        const HPALETTE one = R_CreatePalette(bitmap->pPalette, 1);
        EXPECT_EQ(R_SetBitmapNewPalette(bitmap.get(), nullptr, 0), SUCCESS);
        EXPECT_EQ(R_SetBitmapPalette(bitmap.get(), copy), SUCCESS);
        EXPECT_EQ(bitmap.palette(), wanted);
        EXPECT_EQ(R_SetBitmapPalette(bitmap.get(), one), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_SetBitmapPalette(bitmap.get(), nullptr), ERROR_INV_PARAMETER);
        Entries out(3);
        EXPECT_EQ(R_SetPaletteEntries(copy, 254, 2, bitmap->pPalette + 7), 2u);
        EXPECT_EQ(R_GetPaletteEntries(copy, 253, 3, out.data()), 3u);
        EXPECT_EQ(std::memcmp(out.data(), bitmap->pPalette + 253, 4), 0);
        EXPECT_EQ(std::memcmp(out.data() + 1, bitmap->pPalette + 7, 8), 0);
        EXPECT_EQ(R_GetPaletteEntries(copy, -1, 2, out.data()) + R_SetPaletteEntries(copy, -1, 2, out.data()) +
                      R_GetPaletteEntries(copy, 0, 2, nullptr) + R_SetPaletteEntries(copy, 0, 2, nullptr) +
                      R_GetPaletteEntries(nullptr, 0, 2, out.data()) + R_GetPaletteSize(nullptr),
                  0u);
        for (const HPALETTE palette : {object, one, copy}) R_DeletePalette(palette);
        for (const R_UINT count : {0u, 257u}) EXPECT_EQ(R_CreateNewPalette(bitmap->pPalette, count), nullptr);
        bitmap->nColors = 257;
        EXPECT_EQ(R_DupBitmapPalette(bitmap.get()), nullptr);
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

} // namespace
} // namespace rv::test
