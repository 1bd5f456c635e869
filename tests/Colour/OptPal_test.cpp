// Palettes made for pictures against a plain model of boxes; histograms that are halved; match tables cell by cell.
#include "Kernel/Colour/ColourHistogram.h"
#include "R_Kernel.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <tuple>

namespace rv::test {
namespace {

using Colour = std::array<int, 3>; // red, green, blue of five bits
using Counted = std::map<Colour, int64_t>;

struct ModelBox {
    Counted colours;
    Colour mean{}, variance{};
    int total() const { return variance[0] + variance[1] + variance[2]; }

    explicit ModelBox(Counted all) : colours(std::move(all))
    {
        std::vector<int64_t> counts = {0, 0};
        for (const auto& [colour, count] : colours) counts.push_back(count);
        std::sort(counts.rbegin(), counts.rend());
        const int64_t cap = counts[1] != 0 && counts[0] > 4 * counts[1] ? 4 * counts[1] : counts[0];
        for (size_t c = 0; c < 3; ++c) {
            int64_t weight = 0, sum = 0, capped = 0, spread = 0;
            for (const auto& [colour, count] : colours) weight += count, sum += count * colour[c];
            mean[c] = static_cast<int>((sum + (weight - 1) / 2) / weight);
            for (const auto& [colour, count] : colours) {
                const int64_t distance = colour[c] - mean[c];
                capped += std::min(count, cap), spread += std::min(count, cap) * distance * distance;
            }
            variance[c] = static_cast<int>((spread + (capped - 1) / 2) / capped);
        }
    }
    ModelBox split()
    {
        Colour low = mean, high = mean, width;
        for (const auto& [colour, count] : colours)
            for (size_t c = 0; c < 3; ++c) low[c] = std::min(low[c], colour[c]), high[c] = std::max(high[c], colour[c]);
        for (size_t c = 0; c < 3; ++c) width[c] = high[c] - low[c];
        const auto largest = [](auto& of) { return std::max_element(of.begin(), of.end()) - of.begin(); };
        auto channel = static_cast<size_t>(largest(variance));
        if (width[channel] == 0) channel = static_cast<size_t>(largest(width));
        Counted below, above;
        for (const auto& item : colours)
            (item.first[channel] <= mean[channel] && item.first[channel] < high[channel] ? below : above).insert(item);
        *this = ModelBox(below);
        return ModelBox(above);
    }
};

struct Model {
    std::vector<Colour> palette;
    std::map<Colour, R_UINT> cells;
    Model(const Counted& all, R_UINT wanted, R_UINT threshold)
    {
        std::vector<ModelBox> boxes;
        Counted rest = all;
        for (; wanted >= threshold && rest.size() >= 2; ++threshold) {
            const auto rarer = [](auto& a, auto& b) { return a.second < b.second; };
            const auto most = *std::max_element(rest.begin(), rest.end(), rarer);
            rest.erase(most.first);
            const bool dominant = most.second > 2 * std::max_element(rest.begin(), rest.end(), rarer)->second;
            (dominant ? boxes.emplace_back(Counted{most}).colours : rest).insert(most);
            if (!dominant) break;
        }
        if (!rest.empty()) boxes.emplace_back(rest);
        while (!boxes.empty() && boxes.size() < wanted) {
            auto& best = *std::max_element(boxes.begin(), boxes.end(), [](auto& a, auto& b) {
                return std::tuple(a.total(), a.colours.size()) < std::tuple(b.total(), b.colours.size());
            });
            if (best.colours.size() < 2) break;
            const ModelBox other = best.split();
            boxes.push_back(other);
        }
        std::stable_sort(boxes.begin(), boxes.end(), [](auto& a, auto& b) { return a.mean < b.mean; });
        for (const ModelBox& box : boxes) {
            palette.push_back(box.mean);
            for (const auto& item : box.colours) cells[item.first] = static_cast<R_UINT>(palette.size());
        }
    }
};

/// The colours of a bitmap, as they are read pixel by pixel.
Counted coloursOf(BITMAPHANDLE* bitmap)
{
    Counted all;
    for (R_INT i = 0; i < bitmap->Width * bitmap->Height; ++i) {
        const R_INT row = i / bitmap->Width, column = i % bitmap->Width;
        const auto c = static_cast<int>(R_GetTrueColorValue(bitmap, R_GetPixelColor(bitmap, row, column)));
        ++all[{c >> 3 & 31, c >> 11 & 31, c >> 19 & 31}];
    }
    return all;
}

template <class Call> void expectModel(const Counted& all, R_UINT wanted, R_UINT flags, Call call)
{
    const Model model(all, wanted, flags != 0 ? 2 : 64);
    std::vector<RGBQUAD> palette(256, {9, 9, 9, 9});
    R_UINT colours = wanted, *made = nullptr;
    ASSERT_EQ(call(palette.data(), &colours, &made, flags), SUCCESS);
    const std::unique_ptr<R_UINT, R_INT (*)(R_UINT*)> table(made, R_FreeUserMatchTable);
    ASSERT_EQ(colours, model.palette.size());
    for (R_UINT i = 0; i < 256; ++i) {
        const auto entry = i < colours ? model.palette[i] : Colour{};
        const auto widened = [&](size_t c) { return static_cast<uint8_t>(entry[c] << 3 | entry[c] >> 2); };
        const RGBQUAD expected = i < wanted ? RGBQUAD{widened(2), widened(1), widened(0), 0} : RGBQUAD{9, 9, 9, 9};
        ASSERT_EQ(std::memcmp(&palette[i], &expected, sizeof expected), 0) << i;
    }
    for (int i = 0; i < 32768; ++i) {
        const auto cell = model.cells.find({i >> 10, i >> 5 & 31, i & 31});
        ASSERT_EQ(table.get()[i], cell != model.cells.end() ? cell->second : 0) << i;
    }
}

TEST(OptPal, MakesThePaletteAndTableOfTheModel)
{
    constexpr unsigned seed = 7;
    std::mt19937 random(seed);
    constexpr R_UINT kWanted[] = {1, 2, 3, 5, 16, 63, 64, 66, 100, 256};
    for (int trial = 0; trial < 150 && !HasFailure(); ++trial) {
        HBITMAPLIST list = nullptr;
        ASSERT_EQ(R_CreateBitmapList(&list), SUCCESS);
        Counted together;
        constexpr R_INT kDepths[] = {1, 4, 7, 8, 16, 24, 24, 32, 48, 64};
        for (int item = 0; item < 2; ++item) {
            const TestBitmap bitmap(Scene{.bits = kDepths[random() % std::size(kDepths)],
                                          .width = static_cast<R_INT>(1 + random() % (trial % 3 == 0 ? 12 : 600)),
                                          .height = static_cast<R_INT>(1 + random() % 9),
                                          .seed = static_cast<unsigned>(random())});
            auto pixels = bitmap.pixels(); // few colours or many, some of them far more often than others
            const auto pixel = static_cast<size_t>(std::max(bitmap->BitsPerPixel / 8, 1)),
                       spread = size_t{1} + random() % 2000;
            for (size_t i = pixel; i + pixel <= pixels.size() && trial % 4 != 0; i += pixel)
                if (random() % spread != 0)
                    std::copy_n(&pixels[i % (1 + random() % i) / pixel * pixel], pixel, &pixels[i]);
            bitmap.setPixels(pixels);
            bitmap->Order = bitmap->BitsPerPixel >= 24 ? static_cast<R_INT>(random() % 2) : bitmap->Order;
            const Counted all = coloursOf(bitmap);
            for (const auto& [colour, count] : all) together[colour] += count;
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", trial " << trial << ", " << bitmap.scene().text());
            expectModel(all, kWanted[random() % std::size(kWanted)], random() % 2,
                        [&](auto... outputs) { return R_CreateBitmapOptPal(bitmap, outputs...); });
            BITMAPHANDLE copy;
            ASSERT_EQ(R_CopyBitmap(&copy, bitmap, BITMAPHANDLE_SIZE), SUCCESS);
            ASSERT_EQ(R_InsertBitmapListItem(list, LIST_END, &copy), SUCCESS);
        }
        expectModel(together, kWanted[random() % std::size(kWanted)], random() % 2,
                    [&](auto... outputs) { return R_CreateBitmapListOptPal(list, outputs...); });
        R_DestroyBitmapList(list);
    }
}

TEST(OptPal, RefusesInTheOrderOfItsErrors)
{
    RGBQUAD palette[256];
    R_UINT* table = nullptr;
    const TestBitmap bitmap(Scene{.bits = 24});
    BITMAPHANDLE empty{};
    empty.uStructSize = BITMAPHANDLE_SIZE;
    const auto call = [&](BITMAPHANDLE* b, R_UINT colours, R_UINT flags) {
        return R_CreateBitmapOptPal(b, palette, &colours, &table, flags);
    };
    EXPECT_EQ(call(nullptr, 0, 8), ERROR_INV_BITMAP);
    EXPECT_EQ(call(&empty, 0, 8), ERROR_INV_BITMAP);
    bitmap->uStructSize = 283;
    EXPECT_EQ(call(bitmap, 0, 8), ERROR_INV_STRUCT_SIZE);
    bitmap->uStructSize = BITMAPHANDLE_SIZE;
    for (const auto& [colours, flags] : {std::pair(0u, 0u), std::pair(257u, 1u), std::pair(256u, 2u)})
        EXPECT_EQ(call(bitmap, colours, flags), ERROR_INV_PARAMETER);
    bitmap->BytesPerLine = 4;
    EXPECT_EQ(call(bitmap, 256, 0), ERROR_INV_SIZE);
    bitmap->BytesPerLine = 4 * 28;
    EXPECT_EQ(table, nullptr);
    HBITMAPLIST list = nullptr;
    R_UINT colours = 7;
    ASSERT_EQ(R_CreateBitmapList(&list), SUCCESS);
    expectModel({}, colours, 0, [&](auto... outputs) { return R_CreateBitmapListOptPal(list, outputs...); });
    EXPECT_EQ(R_InsertBitmapListItem(list, 0, &empty), SUCCESS);
    EXPECT_EQ(R_CreateBitmapListOptPal(list, palette, &colours, nullptr, 0), ERROR_INV_BITMAP);
    R_DestroyBitmapList(list);
}

TEST(ColourHistogram, HalvesEveryCountWhenOneIsFull)
{
    const auto histogram = std::make_unique<ColourHistogram>();
    histogram->clear(50);
    std::vector<R_UINT> model(MATCH_TABLE_CELLS);
    std::mt19937 random(3);
    uint16_t colours[256] = {7, 9, 7, 32767};
    for (int row = 0; row < 300; ++row) {
        uint8_t pixels[30];
        const size_t width = random() % 31;
        for (size_t i = 0; i < width; ++i) {
            pixels[i] = static_cast<uint8_t>(random() % 5 != 0 ? 0 : random() % 5);
            R_UINT& cell = model[colours[pixels[i]]];
            if (cell >= 50)
                std::transform(model.begin(), model.end(), model.begin(), [](R_UINT c) { return (c + 1) / 2; });
            ++cell;
        }
        histogram->addIndices(pixels, width, colours);
        ASSERT_TRUE(row % 7 != 0 || std::equal(model.begin(), model.end(), histogram->counts())) << row;
    }
}

TEST(ColorMatch, EachCellIsTheNearestEntryOfTheWholePalette)
{
    std::mt19937 random(11);
    for (const R_UINT colours : {0u, 1u, 2u, 3u, 16u, 37u, 256u, 300u}) {
        for (const unsigned mask : {0xFFu, 0xF8u}) { // anything, or near-grays on the table's own levels
            RGBQUAD palette[300];
            for (RGBQUAD& entry : palette) {
                const auto level = [&, gray = random() % 256]() {
                    return static_cast<uint8_t>((mask == 0xFF ? random() : gray + random() % 17) & mask);
                };
                entry = {level(), level(), level(), 3};
            }
            if (mask == 0xF8) palette[0] = palette[colours / 2] = {}, palette[colours / 3] = {255, 255, 255, 0};
            R_UINT* const table = R_CreateUserMatchTable(palette, colours);
            for (R_INT i = 0; i < 32768; ++i)
                ASSERT_EQ(table[i],
                          1 + R_FindPaletteIndex(palette, colours, i >> 10 << 3, i >> 2 & 0xF8, (i & 31) << 3))
                    << colours << " entries, mask " << mask << ", cell " << i;
            R_FreeUserMatchTable(table);
        }
    }
    EXPECT_EQ(R_CreateUserMatchTable(nullptr, 4), nullptr);
}

} // namespace
} // namespace rv::test
