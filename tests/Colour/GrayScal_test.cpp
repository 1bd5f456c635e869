// Gray, look-up tables and alpha: every pixel beside its definition.
#include "Support/Watcher.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

namespace rv::test {
namespace {

std::vector<uint64_t> samplesOf(BITMAPHANDLE* bitmap)
{
    const auto rows = pixelsOf(bitmap);
    std::vector<uint64_t> samples;
    for (R_INT row = 0; row < bitmap->Height; ++row)
        for (R_INT x = 0; x < bitmap->Width; ++x)
            samples.push_back(pixelAt(rows.data() + R_INT64{row} * bitmap->BytesPerLine, x, bitmap->BitsPerPixel));
    return samples;
}

/// Expects what a bitmap's pixels have become, one by one.
void expectBecame(const TestBitmap& bitmap, const std::vector<uint64_t>& before,
                  const std::function<uint64_t(uint64_t)>& wanted)
{
    const auto after = samplesOf(bitmap);
    ASSERT_EQ(after.size(), before.size());
    for (size_t i = 0; i < before.size(); ++i) ASSERT_EQ(after[i], wanted(before[i])) << bitmap.scene().text() << i;
}

unsigned byteOf(uint64_t pixel, int i) { return static_cast<unsigned>(pixel >> 8 * i & 255); }
unsigned wordOf(uint64_t pixel, int i) { return static_cast<unsigned>(pixel >> 16 * i & 65535); }

TEST(GrayScal, PicturesBecomeTheirLuminance)
{
    const TestBitmap colours({.bits = 24}), wide({.bits = 48, .structSize = BITMAPHANDLE_SIZE_SHORT});
    colours->Order = ORDER_BGR;
    wide->Order = ORDER_RGB;
    ASSERT_EQ(R_PutPixelColor(colours, 0, 0, colours->Transparency = 0x0000FF), SUCCESS);
    auto before = samplesOf(colours);
    ASSERT_EQ(R_GrayScaleBitmap(colours, 8), SUCCESS);
    expectBecame(colours, before,
                 [](uint64_t p) { return (2 * byteOf(p, 2) + 5 * byteOf(p, 1) + byteOf(p, 0) + 4) / 8; });
    EXPECT_EQ(colours->Transparency, R_GetPixelColor(colours, 0, 0));
    EXPECT_EQ(R_IsGrayScaleBitmap(colours), 1);
    EXPECT_EQ(colours->Order, ORDER_GRAY);

    before = samplesOf(wide);
    ASSERT_EQ(R_GrayScaleBitmap(wide, 12), SUCCESS);
    expectBecame(wide, before,
                 [](uint64_t p) { return (2 * wordOf(p, 0) + 5 * wordOf(p, 1) + wordOf(p, 2) + 4) / 8 / 16; });
    EXPECT_EQ(wide->HighBit, 11);
    EXPECT_EQ(R_GrayScaleBitmap(wide, 24), ERROR_INV_BITS_PER_PIXEL);
}

TEST(GrayScal, OneColouredPixelMakesAPictureColoured)
{
    for (const R_INT bits : {24, 32, 48, 64}) {
        const TestBitmap bitmap({.bits = bits});
        ASSERT_EQ(R_FillBitmap(bitmap, 0x808080), SUCCESS);
        EXPECT_EQ(R_IsGrayScaleBitmap(bitmap), 1) << bits;
        for (const int sample : {0, 1, 2}) {
            ASSERT_EQ(R_PutPixelColor(bitmap, 10, 36, 0x808080u ^ 1u << 8 * sample), SUCCESS);
            EXPECT_EQ(R_IsGrayScaleBitmap(bitmap), 0) << bits << ", sample " << sample;
        }
    }
}

TEST(GrayScal, ATableAppliedIsWhatItShowed)
{
    std::vector<RGBQUAD> narrow(100);
    std::vector<RGBQUAD16> wide(3000);
    for (uint8_t i = 0; i < 100; ++i) narrow[i] = {static_cast<uint8_t>(255 - i), i, 7, 0};
    for (uint16_t i = 0; i < 3000; ++i)
        wide[i].rgbBlue = wide[i].rgbGreen = wide[i].rgbRed = static_cast<uint16_t>(9 * i);

    const TestBitmap coloured({.bits = 8}), deep({.bits = 12});
    coloured->Order = ORDER_GRAY;
    EXPECT_EQ(R_ApplyBitmapLUT(coloured), ERROR_INV_PARAMETER);
    coloured->pLUT = narrow.data();
    coloured->LUTLength = 100;
    auto before = samplesOf(coloured);
    coloured->Transparency = R_GetPixelColor(coloured, 0, 0);
    ASSERT_EQ(R_ApplyBitmapLUT(coloured), SUCCESS);
    EXPECT_EQ(coloured->Transparency, R_GetPixelColor(coloured, 0, 0));
    EXPECT_EQ(coloured->pLUT, nullptr);
    expectBecame(coloured, before, [](uint64_t p) { return p < 100 ? (255 - p) | p << 8 | 7 << 16 : p * 0x10101; });

    deep->pLUT16 = wide.data();
    deep->LUTLength16 = 3000;
    deep->pLUT = narrow.data(); // without entries
    before = samplesOf(deep);
    ASSERT_EQ(R_ApplyBitmapLUT(deep), SUCCESS);
    EXPECT_EQ(deep->BitsPerPixel, 16);
    expectBecame(deep, before, [](uint64_t p) { return p < 3000 ? 9 * p : p * 65535 / 4095; });
}

TEST(Alpha, WhatIsReadIsWhatWasWritten)
{
    for (const R_INT bits : {32, 64}) {
        const TestBitmap bitmap({.bits = bits}), other({.bits = bits, .seed = 9});
        BITMAPHANDLE alpha;
        ASSERT_EQ(R_GetBitmapAlpha(&alpha, other, BITMAPHANDLE_SIZE), SUCCESS);
        EXPECT_EQ(alpha.BitsPerPixel, bits / 4);
        const int shift = bits - bits / 4;
        const auto colours = samplesOf(bitmap), above = samplesOf(other);
        ASSERT_EQ(R_SetBitmapAlpha(bitmap, &alpha), SUCCESS);
        const auto after = samplesOf(bitmap);
        for (size_t i = 0; i < after.size(); ++i)
            ASSERT_EQ(after[i], (above[i] >> shift << shift) | (colours[i] & ((uint64_t{1} << shift) - 1)));
        EXPECT_EQ(R_SetBitmapAlpha(&alpha, bitmap), ERROR_INV_PARAMETER);
        R_FreeBitmap(&alpha);
    }
}

TEST(Alpha, ColoursAreMultipliedAndDividedToNearest)
{
    const TestBitmap narrow({.bits = 32, .width = 256, .height = 256}), wide({.bits = 64, .width = 200, .height = 90});
    auto pixels = narrow.pixels(); // every value with every alpha
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(i % 4 == 3 ? i / 1024 : i / 4);
    narrow.setPixels(pixels);
    for (const TestBitmap* bitmap : {&narrow, &wide}) {
        const int bits = (*bitmap)->BitsPerPixel / 4;
        const double top = std::pow(2.0, bits) - 1;
        const auto each = [&](uint64_t pixel, auto of) {
            const auto sample = [&](int i) {
                return static_cast<double>(pixel >> i * bits & ((uint64_t{1} << bits) - 1));
            };
            uint64_t made = static_cast<uint64_t>(sample(3)) << 3 * bits;
            for (int i = 0; i < 3; ++i)
                made |= static_cast<uint64_t>(std::min(top, std::floor(of(sample(i), sample(3)) + 0.5))) << i * bits;
            return made;
        };
        auto before = samplesOf(*bitmap);
        ASSERT_EQ(R_PremultiplyBitmap(*bitmap), SUCCESS);
        ASSERT_EQ(R_PremultiplyBitmap(*bitmap), SUCCESS); // it is already
        expectBecame(*bitmap, before,
                     [&](uint64_t p) { return each(p, [&](double c, double alpha) { return c * alpha / top; }); });
        bitmap->setPixels(bitmap == &narrow ? pixels : bitmap->pixels());
        before = samplesOf(*bitmap);
        ASSERT_EQ(R_UnpremultiplyBitmap(*bitmap), SUCCESS);
        EXPECT_EQ((*bitmap)->Flags & FLAG_PREMULTIPLY_ALPHA, 0u);
        expectBecame(*bitmap, before, [&](uint64_t p) {
            return each(p, [&](double c, double alpha) { return alpha == 0 ? 0 : c * top / alpha; });
        });
    }
    Watcher watcher(3);
    EXPECT_EQ(R_PremultiplyBitmap(wide), -100);
    EXPECT_EQ(wide->Flags & FLAG_PREMULTIPLY_ALPHA, 0u);
}

} // namespace
} // namespace rv::test
