// The comparison report: every field, rows and tables, both record sizes, every kind of home.
#include "Common/Text.h"
#include "R_Kernel.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace rv::test;

struct Outcome {
    R_INT status = 0;
    R_INT equal = 99;
    std::string text;
};

Outcome compare(BITMAPHANDLE* first, BITMAPHANDLE* second, R_UINT units = 4096, R_INT show = 0)
{
    const GuardedBuffer buffer(units * sizeof(R_WCHAR));
    auto* const text = reinterpret_cast<R_WCHAR*>(buffer.data());
    Outcome outcome;
    outcome.status = R_CompareBitmapHandles(first, second, &outcome.equal, text, units, show);
    if (outcome.status != SUCCESS) return outcome;
    for (const R_WCHAR* at = text; *at != 0; ++at) outcome.text += static_cast<char>(*at);
    EXPECT_TRUE(outcome.equal == 1 ? outcome.text.empty() : outcome.equal == 0);
    return outcome;
}

/// Two records that share everything, each on a guard page; the second may be short.
struct Pair {
    explicit Pair(const Scene& scene, R_UINT secondSize) : first(scene), second(secondSize)
    {
        memcpy(second.get(), first.get(), secondSize);
        second->uStructSize = secondSize;
    }
    std::string report() { return compare(first, second).text; }
    TestBitmap first;
    GuardedRecord second;
};

const Scene kScene{.bits = 4, .width = 9, .height = 5};

TEST(Compare, EqualInEveryDepthHomeAndSize)
{
    for (const R_INT bits : allDepths())
        for (const Home home : allHomes())
            for (const R_UINT size : {BITMAPHANDLE_SIZE, BITMAPHANDLE_SIZE_SHORT}) {
                const Scene scene{.bits = bits, .home = home, .structSize = size};
                if (!scene.possible()) continue;
                const TestBitmap first(scene);
                const TestBitmap second(scene);
                const std::vector<uint8_t> before = first.record();
                EXPECT_EQ(compare(first, second).text, "") << scene.text();
                EXPECT_EQ(first.record(), before) << scene.text(); // the access has left no trace
                std::vector<uint8_t> pixels = second.pixels();
                pixels.back() ^= 0x80; // the last byte of the last row
                second.setPixels(pixels);
                EXPECT_EQ(compare(first, second).text, "\n R_GetBitmapRow\t0\t1") << scene.text();
            }
}

TEST(Compare, EveryFieldHasItsLabelAndItsPlace)
{
    const char* const fields = // in the order of the report
        "Width 20 Height 24 BitsPerPixel 28 BytesPerLine 32 nColors 52 ViewPerspective 64 Order 68 XResolution 100 "
        "YResolution 104 Left 108 Top 112 Delay 116 Background 120 Transparency 124 DisposalMethod 128 LowBit 132 "
        "HighBit 136 PaintLowBit 168 PaintHighBit 172 LUTLength 148 LUTLength16 224 PaintGamma 176 PaintContrast 180 "
        "PaintIntensity 184";
    for (const R_UINT size : {BITMAPHANDLE_SIZE, BITMAPHANDLE_SIZE_SHORT}) {
        std::ostringstream all;
        Pair pair(kScene, size);
        std::istringstream list(fields);
        std::string label;
        for (size_t offset = 0; list >> label >> offset;) {
            R_INT value = 0;
            memcpy(&value, reinterpret_cast<char*>(pair.first.get()) + offset, 4);
            const R_INT other = value - 1'000'000'000 - static_cast<R_INT>(offset); // negative: the values are signed
            memcpy(reinterpret_cast<char*>(pair.second.get()) + offset, &other, 4);
            all << "\n " << label << '\t' << value << '\t' << other;
        }
        EXPECT_EQ(pair.report(), all.str());
    }
}

TEST(Compare, FlagsOneByOneInOrder)
{
    std::istringstream names("Allocated ConventionalMemory DiskMemory ProgressiveAvailable LockedMemory Interlaced "
                             "WaitUserInput Transparency Compressed Signed Mirror UseLUT Global UsePaintLUT Tiled "
                             "SuperCompressed NoClip PremultiplyAlpha NonLinearLUT");
    std::string name;
    std::string all;
    GuardedRecord first(BITMAPHANDLE_SIZE), second(BITMAPHANDLE_SIZE_SHORT);
    ASSERT_EQ(R_InitBitmap(first, BITMAPHANDLE_SIZE, 0, 0, 0), SUCCESS);
    ASSERT_EQ(R_InitBitmap(second, BITMAPHANDLE_SIZE_SHORT, 0, 0, 0), SUCCESS);
    for (R_UINT bit = 1; names >> name; bit <<= 1) {
        second->Flags = bit;
        const std::string line = std::string("\n Flags.").append(name).append("\t0\t1");
        EXPECT_EQ(compare(first, second).text, line);
        all += line;
    }
    for (const R_UINT ignored : {FLAG_ALPHA_BLEND, FLAG_FLOAT}) {
        second->Flags = ignored;
        EXPECT_EQ(compare(first, second).equal, 1);
    }
    second->Flags = 0xFFFFFFFFu;
    EXPECT_EQ(compare(first, second).text, all + "\n Flags.Dummy\t0\t2047");
}

TEST(Compare, Tables)
{
    Pair pair(kScene, BITMAPHANDLE_SIZE);
    std::vector<RGBQUAD> palette(pair.first->pPalette, pair.first->pPalette + pair.first->nColors);
    pair.second->pPalette = palette.data();
    EXPECT_EQ(pair.report(), "");
    palette.back().rgbReserved ^= 1;
    EXPECT_EQ(pair.report(), "\n pPalette\t0\t1");
    pair.second->pPalette = nullptr;
    EXPECT_EQ(pair.report(), "\n pPalette\t0\t1");
    pair.second->nColors = 8; // of another length: not read
    EXPECT_EQ(pair.report(), "\n nColors\t16\t8");

    Pair luts(kScene, BITMAPHANDLE_SIZE);
    RGBQUAD lut[2][3] = {};
    RGBQUAD16 lut16[2][4] = {};
    luts.first->pLUT = lut[0];
    luts.second->pLUT = lut[1];
    luts.first->LUTLength = luts.second->LUTLength = 3;
    luts.first->pLUT16 = lut16[0];
    luts.second->pLUT16 = lut16[1];
    luts.first->LUTLength16 = luts.second->LUTLength16 = 4;
    lut16[1][2].rgbBlue = 1; // the second half of 16-bit tables is not compared
    EXPECT_EQ(luts.report(), "");
    lut[1][2].rgbRed = 1;
    lut16[1][1].rgbReserved = 1;
    EXPECT_EQ(luts.report(), "\n pLUT\t0\t1\n pLUT16\t0\t1");
    luts.first->LUTLength = luts.first->LUTLength16 = 0;
    EXPECT_EQ(luts.report(), "\n LUTLength\t0\t3\n LUTLength16\t0\t4");

    // The second record is short: it has no 16-bit table, whatever lies behind it.
    Pair mixed(kScene, BITMAPHANDLE_SIZE_SHORT);
    mixed.first->pLUT16 = lut16[0];
    mixed.first->LUTLength16 = mixed.second->LUTLength16 = 4;
    EXPECT_EQ(mixed.report(), "");
}

/// Records of other sizes, that lie about theirs or have no pixels, are compared without a look outside their rows.
TEST(Compare, RecordsOfOtherSizesAndThatLie)
{
    const TestBitmap low({.height = 5}), high({.height = 8});
    std::vector<uint8_t> pixels = low.pixels();
    pixels.resize(high.pixels().size(), 0xEE);
    high.setPixels(pixels);
    EXPECT_EQ(compare(high, low).text, "\n Height\t8\t5");
    Pair narrow(kScene, BITMAPHANDLE_SIZE); // rows of another length are not compared
    narrow.second->BytesPerLine = 4;
    EXPECT_EQ(narrow.report(), "\n BytesPerLine\t8\t4");
    Pair pair({.home = Home::user}, BITMAPHANDLE_SIZE);
    pair.first->Height = pair.second->Height = 2'000'000;
    EXPECT_EQ(pair.report(), ""); // neither has such rows
    pair.first->Height = pair.second->Height = 11;
    pair.first->BytesPerLine = pair.second->BytesPerLine = 0xFFFFFFFC;
    EXPECT_EQ(pair.report(), "");
    Pair shortened({.home = Home::user}, BITMAPHANDLE_SIZE);
    shortened.second->Size64 = 8;
    EXPECT_EQ(shortened.report(), "\n R_GetBitmapRow\t0\t1");
    Pair freed(kScene, BITMAPHANDLE_SIZE);
    freed.second->Flags = 0;
    EXPECT_EQ(freed.report(), "\n R_GetBitmapRow\t0\t1\n Flags.Allocated\t1\t0\n Flags.ConventionalMemory\t1\t0");
}

TEST(Compare, Refusals)
{
    const TestBitmap bitmap(kScene);
    BITMAPHANDLE* const good = bitmap.get();
    const GuardedBuffer stub(4); // nothing but a size that no record has
    auto* const wrong = reinterpret_cast<BITMAPHANDLE*>(stub.data());
    R_INT equal = 5;
    R_WCHAR text[8] = {RV_WIDE('x')};
    const auto asked = [&](BITMAPHANDLE* first, BITMAPHANDLE* second, R_INT* answer, R_WCHAR* out, R_UINT units = 8) {
        return R_CompareBitmapHandles(first, second, answer, out, units, 0);
    };
    EXPECT_EQ((Answered{asked(nullptr, good, &equal, text), asked(good, nullptr, &equal, text),
                        asked(good, good, nullptr, text), asked(good, good, &equal, nullptr),
                        asked(wrong, good, &equal, text, 0)}),
              Answered(5, ERROR_INV_PARAMETER));
    EXPECT_EQ((Answered{asked(wrong, good, &equal, text), asked(good, wrong, &equal, text)}),
              Answered(2, ERROR_INV_STRUCT_SIZE));
    const TestBitmap first({.home = Home::callbacks});
    const TestBitmap second({.home = Home::callbacks});
    for (const int nth : {1, 2}) {
        const FailingAllocation fault(nth, kFailHeap);
        EXPECT_EQ(asked(first, second, &equal, text), ERROR_FAILURE) << nth;
    }
    EXPECT_TRUE(equal == 5 && text[0] == RV_WIDE('x')); // a call that fails leaves its outputs alone
}

TEST(Compare, CutTextFindsEveryDifference)
{
    Pair pair(kScene, BITMAPHANDLE_SIZE);
    pair.second->PaintIntensity = 1; // the last field
    const std::string whole = "\n PaintIntensity\t0\t1";
    for (R_UINT units = 1; units <= whole.size() + 2; ++units) {
        const Outcome cut = compare(pair.first, pair.second, units);
        EXPECT_TRUE(cut.equal == 0 && cut.text == whole.substr(0, units - 1)) << cut.text;
    }
}

TEST(Compare, ShowsWhatDiffers)
{
    Pair pair(kScene, BITMAPHANDLE_SIZE);
    const DebugCapture capture;
    pair.second->Left = 3;
    compare(pair.first, pair.second, 100, 0); // nobody asked
    EXPECT_TRUE(capture.lines().empty());
    compare(pair.first, pair.second, 100, 1);
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_TRUE(capture.lines()[0].wide);
    EXPECT_TRUE(capture.text().ends_with(":R_CompareBitmapHandles:  Left\t0\t3")) << capture.text();
}

} // namespace
