#include "Kernel/Core/ColourValue.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

namespace rv::test {
namespace {

constexpr COLORREF index(R_UINT i) { return COLOUR_PALETTE_INDEX | i; }
constexpr COLORREF level(R_UINT v) { return COLOUR_GRAY_LEVEL | v; }

/// A bitmap of two rows of 8 bits with palette entries chosen here.
struct Paletted : TestBitmap {
    explicit Paletted(std::initializer_list<COLORREF> colours, R_INT bits = 8) : TestBitmap({bits})
    {
        std::vector<RGBQUAD> entries;
        for (const COLORREF c : colours)
            entries.push_back(
                {static_cast<uint8_t>(blueOf(c)), static_cast<uint8_t>(greenOf(c)), static_cast<uint8_t>(redOf(c)), 0});
        EXPECT_EQ(R_SetBitmapNewPalette(get(), entries.data(), static_cast<R_UINT>(entries.size())), SUCCESS);
    }
};

TEST(TranslateColour, FollowsTheKindAndBothBitmaps)
{
    const Paletted target({0x000000, 0x0000FF, 0x00FF00, 0xFFFFFF}), source({0x000000, 0x00FE01, 0x00FF00});
    const TestBitmap direct({24}), gray({12});
    const TestBitmap* const none = nullptr;
    const auto translate = [](const TestBitmap& dst, const TestBitmap* src, COLORREF c) {
        return R_TranslateBitmapColor(dst.get(), src != nullptr ? src->get() : nullptr, c);
    };
    const struct {
        const TestBitmap &dst, *src;
        COLORREF colour, wanted;
    } cases[] = {
        {direct, none, 0x02123456, 0x123456},
        {target, none, 0x0000F0, index(1)},
        // a palette index: by the source's entry, kept where both have the same; black without an entry
        {direct, &source, index(0xABCD01), 0x00FE01},
        {target, &source, index(0xABCD02), index(0xABCD02)},
        {target, &source, index(1), index(2)},
        {direct, none, index(3), 0},
        {target, &direct, index(3), index(0)},
        {direct, &source, index(3), 0},
        // a gray level
        {gray, none, level(0x0FFF), level(0x0FFF)},
        {direct, none, level(0x12C1FF), 0xC1C1C1},
        {target, none, level(0xF000), index(3)},
    };
    EXPECT_EQ(R_TranslateBitmapColor(nullptr, source.get(), 0x02ABCDEF), 0x02ABCDEFu);
    for (const auto& c : cases) EXPECT_EQ(translate(c.dst, c.src, c.colour), c.wanted) << &c - cases;
    std::vector<RGBQUAD> lut(65536);
    lut[9] = lut[65535] = {0, 0, 255, 0};
    gray->pLUT = lut.data();
    gray->LUTLength = 65536;
    EXPECT_EQ(translate(gray, none, level(0xFE)), level(0xFE)); // the table is not in use
    gray->Flags |= FLAG_USE_LUT;
    EXPECT_EQ(translate(gray, none, level(0xFE)), index(9)); // the last of 65536 is out of an index's reach

    // The destination's palette may be shorter than the index, or not be there.
    target->nColors = 2;
    EXPECT_EQ(translate(target, &source, index(2)), index(0));
    RGBQUAD* const palette = target->pPalette;
    target->pPalette = nullptr;
    EXPECT_EQ(translate(target, &source, 0xFFFFFF), index(0));
    target->pPalette = palette;
    EXPECT_EQ(R_GetNearestPaletteIndex(target.get(), 0xFF0000FF), 1u);
    const NoMemory nothing;
    EXPECT_EQ(translate(target, none, 0x0000FF), index(0));
}

TEST(TrueColour, LooksThroughPaletteAndTables)
{
    const Paletted paletted({0x010101, 0x123456});
    const TestBitmap gray({16}), eight({8}), small({16, Home::conventional, BITMAPHANDLE_SIZE_SHORT});
    RGBQUAD lut[3] = {{}, {}, {0x12, 0x34, 0x56, 0}};
    RGBQUAD16 wide[4] = {{}, {}, {}, {0x1234, 0x5678, 0x9ABC, 0}};
    for (const TestBitmap* const bitmap : {&gray, &eight, &small}) {
        (*bitmap)->Order = ORDER_GRAY;
        (*bitmap)->pLUT = lut;
        (*bitmap)->LUTLength = 3;
        (*bitmap)->LUTLength16 = 4;
    }
    gray->pLUT16 = wide;
    const struct {
        const TestBitmap& bitmap;
        COLORREF colour, wanted;
    } cases[] = {
        {paletted, index(0xFF01), 0x123456}, {paletted, 0x113355, 0x123456},
        {paletted, index(2), 0x010101}, // no such entry: the nearest to black
        {gray, level(2), 0x123456},          {gray, level(3), 0x12569A},
        {gray, level(4), level(4)},          {small, level(3), level(3)}, // has no room for the second table
        {eight, level(2), level(2)},                                      // has no tables to look through
    };
    for (const auto& c : cases) EXPECT_EQ(R_GetTrueColorValue(c.bitmap.get(), c.colour), c.wanted) << &c - cases;
    EXPECT_EQ(R_GetTrueColorValue(nullptr, 0x010203), 0u);
}

TEST(StoredPixel, HoldsAColourInEveryFormat)
{
    struct Case {
        R_INT bits, order, highBit;
        COLORREF colour;
        R_UINT64 stored;
        COLORREF back;
    };
    const COLORREF rgb = 0x8540F8; // red F8, green 40, blue 85; luminance (2 * 248 + 5 * 64 + 133 + 4) >> 3 = 119
    const Case cases[] = {
        {8, 0, 7, index(200), 200, index(200)},
        {8, 2, 7, rgb, 119, index(119)},
        {8, 2, 5, rgb, 119 * 63 / 255, index(29)},
        {12, 2, 11, rgb, 119 * 4095 / 255, level(1911)},
        {12, 2, -1, level(0xFFFF), 4095, level(4095)},
        {12, 0, 9, 0xFFFFFF, 1023, level(1023)},
        {16, 2, 40, 0xFFFFFF, 65535, level(65535)},
        {16, 2, 15, index(5), 0, level(0)},
        {16, 1, 15, rgb, 31 << 10 | 8 << 5 | 16, 0x8442FF},
        {16, 0, 15, level(0x8000), 16 << 10 | 16 << 5 | 16, 0x848484},
        {24, 0, 7, rgb, 0x8540F8, rgb},
        {24, 1, 7, rgb, 0xF84085, rgb},
        {32, 0, -1, rgb, 0x5A8540F8, rgb},
        {64, 1, 15, rgb, 0x5A5AF8F840408585, rgb},
    };
    for (const Case& c : cases) {
        const TestBitmap bitmap({c.bits});
        bitmap->Order = c.order;
        bitmap->HighBit = c.highBit;
        const StoredPixel pixel = pixelOfColour(bitmap.get(), c.colour, 0x5A);
        const auto name = ::testing::Message()
                          << c.bits << " bits, order " << c.order << ", colour " << std::hex << c.colour;
        EXPECT_EQ(pixel.bits, c.stored) << name;
        EXPECT_EQ(colourOfPixel(bitmap.get(), pixel), c.back) << name;

        // Through the pixel calls, alpha stays.
        uint64_t before = 0, after = 0;
        EXPECT_EQ(R_GetPixelData(bitmap.get(), &before, 3, 5, 8), SUCCESS);
        EXPECT_EQ(R_PutPixelColor(bitmap.get(), 3, 5, c.colour), SUCCESS);
        EXPECT_EQ(R_GetPixelData(bitmap.get(), &after, 3, 5, 8), SUCCESS);
        const R_UINT64 alpha = alphaMask(c.bits);
        EXPECT_EQ(after, (c.stored & ~alpha) | (before & alpha)) << name;
        EXPECT_EQ(R_GetPixelColor(bitmap.get(), 3, 5), c.back) << name;
    }
}

TEST(StoredPixel, NeverPassesAPaletteDepth)
{
    for (const R_INT bits : {1, 2, 3, 4, 5, 6, 7}) {
        const TestBitmap bitmap({bits});
        RGBQUAD entries[256] = {}; // more of them than a pixel can name
        entries[255] = {0, 255, 0, 0};
        EXPECT_EQ(R_SetBitmapNewPalette(bitmap.get(), entries, 256), SUCCESS);
        for (const R_INT order : {ORDER_RGB, ORDER_GRAY}) { // means nothing below 8 bits
            bitmap->Order = order;
            EXPECT_EQ(pixelOfColour(bitmap.get(), 0x00FF00, 0).bits, (1u << bits) - 1);
            EXPECT_EQ(pixelOfColour(bitmap.get(), index(255), 0).bits, (1u << bits) - 1);
        }
    }
}

} // namespace
} // namespace rv::test
