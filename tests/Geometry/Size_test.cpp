// Bitmaps of another size, against a model that takes one pixel at a time.
#include "Internal/R_Int.h"
#include "Support/FailingPlatform.h"
#include "Support/FakeRegion.h"
#include "Support/Picture.h"
#include "Support/Watcher.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace rv::test {
namespace {

/// The row of `old` that becomes row y: the one with which the y-th row is due.
R_INT64 rowFor(R_INT64 y, R_INT64 old, R_INT64 wanted)
{
    R_INT64 row = 0;
    while ((row + 1) * wanted / old <= y) ++row;
    return row;
}

/// Nearest pixels of rows; bits behind the last one are 0.
std::vector<uint8_t> modelOf(const std::vector<uint8_t>& rows, R_UINT pitch, RECT part, R_INT width, R_INT height,
                             R_INT bits)
{
    const auto newPitch = static_cast<size_t>((width * bits + 31) / 32 * 4);
    std::vector<uint8_t> model(newPitch * static_cast<size_t>(height));
    for (R_INT y = 0; y < height; ++y) {
        const uint8_t* const row = rows.data() + (part.top + rowFor(y, part.bottom - part.top, height)) * pitch;
        for (R_INT x = 0; x < width; ++x)
            setPixelAt(model.data() + newPitch * static_cast<size_t>(y), x, bits,
                       pixelAt(row, part.left + R_INT64{x} * (part.right - part.left) / width, bits));
    }
    return model;
}

/// All rows on demand, in an order of its own.
std::vector<uint8_t> onDemand(BITMAPHANDLE* p, const RECT& part, R_INT width, R_INT height, R_UINT flags,
                              unsigned start)
{
    const GuardedRecord format(BITMAPHANDLE_SIZE);
    void* state = nullptr;
    EXPECT_EQ(R_StartResizeBitmap2(p, &part, width, height, flags, format, BITMAPHANDLE_SIZE, &state), SUCCESS);
    EXPECT_TRUE(format->Width == width && format->Height == height && (format->Flags & FLAG_ALLOCATED) == 0);
    const size_t pitch = format->BytesPerLine;
    std::vector<uint8_t> rows(pitch * static_cast<size_t>(height));
    for (R_INT i = 0; i < height; ++i) {
        const auto y =
            start % 2 == 0 ? i : static_cast<R_INT>((static_cast<unsigned>(i) + start) % static_cast<unsigned>(height));
        uint8_t* const row = rows.data() + static_cast<size_t>(start % 3 == 0 ? height - 1 - y : y) * pitch;
        const R_INT at = start % 3 == 0 ? height - 1 - y : y, column = width / 2;
        const auto split = static_cast<size_t>(R_INT64{column} * format->BitsPerPixel / 8);
        EXPECT_EQ(R_GetResizedRowCol(state, row + split, at, column, pitch), static_cast<R_SSIZE>(pitch - split));
        EXPECT_EQ(R_GetResizedRowCol(state, row, at, 0, split), static_cast<R_SSIZE>(split));
    }
    EXPECT_EQ(R_GetResizedRowCol(state, rows.data(), height, 0, 1), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetResizedRowCol(state, rows.data(), 0, width, 1), ERROR_INV_PARAMETER);
    R_FreeBitmap(format);
    EXPECT_EQ(R_StopResizeBitmap(state), SUCCESS);
    return rows;
}

TEST(Size, NearestOfEveryDepthAndPlacement)
{
    const LiveBlocks live;
    std::mt19937 random(41);
    const auto upTo = [&](unsigned limit) { return static_cast<R_INT>(1 + random() % limit); };
    for (const R_INT bits : allDepths()) {
        for (const Home home : homesOf(bits)) {
            for (unsigned seed = 1; seed <= 12; ++seed) {
                const Scene scene{bits,
                                  home,
                                  seed % 2 != 0 ? BITMAPHANDLE_SIZE : BITMAPHANDLE_SIZE_SHORT,
                                  upTo(seed % 4 == 0 ? 900 : 70),
                                  upTo(20),
                                  seed};
                if (!scene.possible()) continue;
                const TestBitmap p(scene);
                const R_INT width = upTo(seed % 3 == 0 ? 900 : 70), height = upTo(30);
                const std::string text = scene.text() + " to " + std::to_string(width) + " x " + std::to_string(height);
                const RECT whole = {0, 0, scene.width, scene.height};
                RECT part = whole;
                part.left = upTo(static_cast<unsigned>(scene.width)) - 1;
                part.right = part.left + upTo(static_cast<unsigned>(scene.width - part.left));
                part.top = upTo(static_cast<unsigned>(scene.height)) - 1;
                const auto rows = p.pixels();
                ASSERT_EQ(onDemand(p, part, width, height, 0, seed),
                          modelOf(rows, p->BytesPerLine, part, width, height, bits))
                    << text << " on demand";
                const Watcher watcher;
                ASSERT_EQ(R_SizeBitmap(p, width, height, 0), SUCCESS) << text;
                ASSERT_EQ(p.pixels(), modelOf(rows, (static_cast<R_UINT>(scene.width * bits) + 31) / 32 * 4, whole,
                                              width, height, bits))
                    << text;
                ASSERT_EQ(watcher.percents.empty(), width == scene.width && height == scene.height);
            }
        }
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(Size, LargeRowsGoPastTheCaches)
{
    const TestBitmap p({.bits = 24, .width = 901, .height = 1100});
    const auto rows = p.pixels();
    ASSERT_EQ(R_SizeBitmap(p, 1705, 2003, 0), SUCCESS);
    EXPECT_EQ(p.pixels(), modelOf(rows, 2704, {0, 0, 901, 1100}, 1705, 2003, 24));
}

TEST(Size, FavoursBlack)
{
    for (const bool blackIsOne : {false, true}) {
        for (unsigned seed = 1; seed <= 40; ++seed) {
            std::mt19937 random(seed);
            const auto upTo = [&](unsigned limit) { return static_cast<R_INT>(1 + random() % limit); };
            const TestBitmap p({.bits = 1,
                                .home = seed % 2 == 0 ? Home::compressed : Home::disk,
                                .width = upTo(400),
                                .height = upTo(90),
                                .seed = seed});
            const RGBQUAD black = {}, white = {255, 255, 255, 0},
                          palette[] = {blackIsOne ? white : black, blackIsOne ? black : white};
            ASSERT_EQ(R_SetBitmapNewPalette(p, palette, 2), SUCCESS);
            p->ViewPerspective = TOP_LEFT;
            const Picture old(p);
            const R_INT oldWidth = p->Width, oldHeight = p->Height, width = upTo(seed % 5 == 0 ? 4 : 200),
                        height = upTo(60);
            ASSERT_EQ(R_SizeBitmap(p, width, height, SIZE_FAVOR_BLACK | SIZE_BILINEAR), SUCCESS);
            if (width == oldWidth && height == oldHeight) continue;
            const Picture made(p);
            for (R_INT y = 0; y < height; ++y) {
                const R_INT64 last = rowFor(y, oldHeight, height);
                const R_INT64 first = y == 0 ? 0 : std::min(rowFor(y - 1, oldHeight, height) + 1, last);
                for (R_INT x = 0; x < width; ++x) {
                    const R_INT64 left = R_INT64{x} * oldWidth / width;
                    const R_INT64 right = std::max((R_INT64{x} + 1) * oldWidth / width, left + 1);
                    R_INT64 blacks = 0;
                    for (R_INT64 row = first; row <= last; ++row)
                        for (R_INT64 column = left; column < right; ++column)
                            blacks += old.pixels[static_cast<size_t>(row * oldWidth + column)] == blackIsOne;
                    const auto area = static_cast<double>((last - first + 1) * (right - left));
                    ASSERT_EQ(made.pixels[static_cast<size_t>(y * width + x)] == blackIsOne,
                              static_cast<double>(blacks) >= std::floor(std::sqrt(area)))
                        << seed << ": " << x << ", " << y;
                }
            }
        }
    }
}

/// A colour that every depth has: the picture's pixel in RGB.
COLORREF colourAt(BITMAPHANDLE* p, R_INT x, R_INT y)
{
    (void)R_PointToBitmap(p, TOP_LEFT, &x, &y);
    return R_GetTrueColorValue(p, R_GetPixelColor(p, y, x)) & 0xFFFFFF;
}

TEST(Size, IntoBitmapsThatLieAnotherWayOrAreOfAnotherDepth)
{
    const LiveBlocks live;
    for (R_INT from = TOP_LEFT; from <= LEFT_BOTTOM; ++from) {
        for (R_INT to = TOP_LEFT; to <= LEFT_BOTTOM; ++to) {
            for (const R_INT bits : {1, 8, 16, 24, 32, 64}) {
                const bool page = bits == 1;
                const TestBitmap source({.bits = page ? 1 : 24, .width = 12, .height = 8}),
                    target({.bits = bits, .width = 24, .height = 24});
                source->ViewPerspective = from;
                target->ViewPerspective = to;
                target->Order = bits == 24 ? source->Order : (from + to) % 2; // pixels of one depth stay as they are
                for (const TestBitmap* const p : {&source, &target})          // with the primary colours in it
                    if (p->get()->BitsPerPixel <= 8) (void)R_CreateBitmapFixedPalette(*p);
                if (!page) { // colours that every depth has
                    auto rows = source.pixels();
                    for (auto& byte : rows) byte = byte < 128 ? 0 : 255;
                    source.setPixels(rows);
                }
                ASSERT_EQ(R_ResizeBitmap(source, target, 0), SUCCESS);
                const bool sideways = from >= LEFT_TOP;
                const R_INT across = sideways ? 8 : 12, down = sideways ? 12 : 8; // of the displayed source
                // Of 24 both sizes are divisors: there all rules agree.
                for (R_INT y = 0; y < 24; ++y)
                    for (R_INT x = 0; x < 24; ++x)
                        ASSERT_EQ(colourAt(target, x, y), colourAt(source, x * across / 24, y * down / 24))
                            << from << " to " << to << ", " << bits << " bits: " << x << ", " << y;
            }
        }
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(Size, FlagsChooseTheWay)
{
    // On demand and as a whole are the same picture, by every set of flags; which ones differ tells what they are.
    for (const R_INT bits : {1, 4, 8, 12, 16, 24, 32, 64}) {
        for (R_UINT flags = 0; flags < 0x40; ++flags) {
            const Scene scene{.bits = bits, .width = 50, .height = 20};
            const TestBitmap p(scene), same(scene);
            if (bits == 1) (void)R_CreateBitmapFixedPalette(p), (void)R_CreateBitmapFixedPalette(same);
            const R_INT width = flags % 3 == 0 ? 31 : 77, height = 13;
            const auto rows = onDemand(p, {0, 0, 50, 20}, width, height, flags, flags);
            ASSERT_EQ(R_SizeBitmap(p, width, height, flags), SUCCESS);
            ASSERT_EQ(p.pixels(), rows) << bits << " bits, flags " << flags;
            R_UINT meant = flags & ~(bits == 1 ? 0 : SIZE_FAVOR_BLACK | SIZE_TO_GRAY);
            if ((meant & (SIZE_FAVOR_BLACK | SIZE_TO_GRAY)) != 0) meant &= ~SIZE_BILINEAR;
            const bool weighed = (meant & (SIZE_BILINEAR | SIZE_BICUBIC | SIZE_AREA)) != 0;
            const bool toGray = !weighed && (meant & SIZE_TO_GRAY) != 0;
            EXPECT_EQ(p->BitsPerPixel, toGray ? 8 : bits);
            EXPECT_TRUE(!toGray || R_IsGrayScaleBitmap(p) == 1);
            if ((meant & SIZE_AREA) != 0)
                meant = SIZE_AREA | (meant & SIZE_ALPHA);
            else if ((meant & SIZE_BICUBIC) != 0)
                meant = (width > 50 ? SIZE_BICUBIC : SIZE_BILINEAR) | (meant & SIZE_ALPHA);
            if (bits != 32 && bits != 64) meant &= ~SIZE_ALPHA;
            ASSERT_EQ(R_SizeBitmap(same, width, height, meant), SUCCESS);
            EXPECT_EQ(same.pixels(), rows) << bits << " bits, flags " << flags << " are " << meant;
        }
    }
}

/// Makes every pixel of a gray bitmap one of two, in turn by columns.
void makeStripes(const TestBitmap& p, uint64_t even, uint64_t odd)
{
    p->Order = ORDER_GRAY;
    auto rows = p.pixels();
    for (R_INT y = 0; y < p->Height; ++y)
        for (R_INT x = 0; x < p->Width; ++x)
            setPixelAt(rows.data() + R_INT64{y} * p->BytesPerLine, x, p->BitsPerPixel, x % 2 == 0 ? even : odd);
    p.setPixels(rows);
}

TEST(Size, GrayMeansWhatItsRecordSays)
{
    std::vector<RGBQUAD> table(4096);
    for (size_t i = 0; i < table.size(); ++i) table[i].rgbGreen = i < 256 ? static_cast<uint8_t>(255 - i) : 0;
    for (const R_INT bits : {8, 12, 16}) {
        const uint64_t top = (uint64_t{1} << bits) - 1;
        const TestBitmap p({.bits = bits, .width = 20, .height = 4});
        makeStripes(p, 3, top - 4);
        p->Flags |= FLAG_SIGNED;
        if (bits > 8) {
            ASSERT_EQ(R_SizeBitmap(p, 10, 2, SIZE_AREA), SUCCESS);
            EXPECT_EQ(pixelAt(p.pixels().data(), 5, bits), top) << "half way from 3 to -5, " << bits;
        }
        makeStripes(p, 10, 20);
        p->Flags = (p->Flags & ~FLAG_SIGNED) | FLAG_NON_LINEAR_LUT;
        p->pLUT = table.data();
        p->LUTLength = 4096;
        ASSERT_EQ(R_SizeBitmap(p, 5, 1, SIZE_AREA), SUCCESS);
        ASSERT_EQ(p->BitsPerPixel, 24);
        EXPECT_EQ(R_GetPixelColor(p, 0, 2), 0xF000u) << "half way between entries, " << bits;
        EXPECT_EQ(p->pLUT, nullptr);
    }
    for (const R_INT bits : {12, 16}) { // in the bits that the destination counts
        const TestBitmap source({.bits = 24, .width = 20, .height = 4}),
            target({.bits = bits, .width = 10, .height = 8});
        source.setPixels(std::vector<uint8_t>(source.pixels().size(), 0xFF));
        makeStripes(target, 0, 0);
        target->LowBit = 1;
        target->HighBit = 10;
        ASSERT_EQ(R_ResizeBitmap(source, target, SIZE_BICUBIC), SUCCESS);
        EXPECT_EQ(pixelAt(target.pixels().data(), 5, bits), 0x7FEu);
    }
    const TestBitmap source({.bits = 8, .width = 4, .height = 4}), same({.bits = 8, .width = 8, .height = 8});
    makeStripes(source, 10, 200);
    same->ViewPerspective = RIGHT_TOP;
    ASSERT_EQ(R_ResizeBitmap(source, same, SIZE_TO_GRAY), SUCCESS);
    for (const uint8_t level : same.pixels()) ASSERT_TRUE(level == 10 || level == 200) << "turned, and not weighed";
}

TEST(Size, StartingOnDemandTakesSomeRows)
{
    constexpr R_INT side = 40000;
    BITMAPHANDLEDATACALLBACKS callbacks = callbacksFor(nullptr);
    callbacks.AllocateBitmapDataCallback = [](BITMAPHANDLE*, ALLOCATIONINFO*, void*) -> R_INT { return SUCCESS_ABORT; };
    callbacks.FreeBitmapDataCallback = [](BITMAPHANDLE*, void*) -> R_INT { return SUCCESS_ABORT; };
    callbacks.GetBitmapRowColCallback = [](BITMAPHANDLE*, void* bytes, R_INT row, R_INT, R_SIZE count, void*) -> R_INT {
        std::fill_n(static_cast<uint8_t*>(bytes), count, static_cast<uint8_t>(row / 200));
        return static_cast<R_INT>(count);
    };
    BITMAPHANDLE huge;
    ASSERT_EQ(R_CreateBitmapWithCallbacks(&huge, sizeof huge, MEM_CONVENTIONAL, side, side, 24, ORDER_BGR, nullptr,
                                          TOP_LEFT, nullptr, 0, &callbacks),
              SUCCESS);
    for (const R_UINT flags : {0u, SIZE_BILINEAR, SIZE_BICUBIC, SIZE_AREA}) {
        for (const R_INT newSide : {200, side - 1, side + 1}) {
            const AskedMemory asked;
            void* state = nullptr;
            ASSERT_EQ(R_StartResizeBitmap(&huge, newSide, newSide, flags, &state), SUCCESS);
            uint8_t pixel[3] = {};
            EXPECT_EQ(R_GetResizedRowCol(state, pixel, newSide / 2, newSide / 2, 3), 3);
            EXPECT_EQ(pixel[1], 100) << flags << ", " << newSide;
            const size_t rows = flags == SIZE_BICUBIC ? 640 : 64; // splines keep a block of rows as floats
            EXPECT_LT(asked.bytes(), rows * side * 3) << flags << ", " << newSide;
            EXPECT_EQ(R_StopResizeBitmap(state), SUCCESS);
        }
    }
    R_FreeBitmap(&huge);
}

TEST(Size, RegionsCallersAndErrors)
{
    const TestBitmap p({.bits = 24, .width = 20, .height = 10}), to({.bits = 8, .width = 7, .height = 5});
    const auto before = p.pixels();
    const auto refused = [&](R_INT status) { return p.pixels() == before && p->Width == 20 ? status : 0; };
    {
        FakeRegion region(p, 1);
        region.failAt = 0;
        EXPECT_EQ(refused(R_SizeBitmap(p, 9, 9, 0)), region.answer);
        const Watcher stopping(4, -55);
        EXPECT_EQ(refused(R_SizeBitmap(p, 9, 9, 0)), -55);
        EXPECT_EQ(region.asked, 1) << "the image comes first";
    }
    {
        FakeRegion region(p, 1);
        EXPECT_EQ(R_SizeBitmap(p, 20, 10, SIZE_AREA), SUCCESS);
        EXPECT_EQ(region.asked, 0) << "nothing to do";
        EXPECT_EQ(R_SizeBitmap(p, 40, 30, 0), SUCCESS);
        EXPECT_EQ(region.scaledTo, (std::pair<R_INT, R_INT>(40, 30)));
        EXPECT_EQ(R_SizeBitmap(p, 20, 10, 0), SUCCESS);
    }
    {
        FakeRegion region(to, 1);
        EXPECT_EQ(R_ResizeBitmap(p, to, 0), SUCCESS);
        EXPECT_EQ(region.scaledTo, (std::pair<R_INT, R_INT>(7, 5)));
    }
    void* state = nullptr;
    RECT outside = {5, 0, 21, 10}, empty = {5, 3, 5, 4};
    for (RECT* const part : {&outside, &empty})
        EXPECT_EQ(R_StartResizeBitmap2(p, part, 5, 5, 0, nullptr, 0, &state), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_StartResizeBitmap2(p, nullptr, 5, 5, 0, to, 283, &state), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(refused(R_SizeBitmap(p, -1, 5, 0)), ERROR_INV_PARAMETER);
    EXPECT_EQ(refused(R_SizeBitmap(p, 0x7FFFFFFF, 0x7FFFFFFF, 0)), ERROR_INV_SIZE);
    EXPECT_EQ(R_IntResizeBitmap(p, to, 0), ERROR_INV_BITS_PER_PIXEL);
    p->Flags |= FLAG_FLOAT;
    EXPECT_EQ(R_ResizeBitmap(p, to, 0), ERROR_FLOAT_NOT_SUPPORTED);
    EXPECT_EQ(refused(R_SizeBitmap(p, 9, 9, SIZE_AREA)), ERROR_FLOAT_NOT_SUPPORTED);
    p->Flags &= ~FLAG_FLOAT;
    p->BytesPerLine = 56;
    EXPECT_EQ(R_SizeBitmap(p, 5, 5, 0), ERROR_INV_SIZE) << "rows that do not hold their pixels";
    EXPECT_EQ(R_ResizeBitmap(to, p, 0), ERROR_INV_SIZE);
    EXPECT_EQ(R_StartResizeBitmap(p, 5, 5, 0, &state), ERROR_INV_SIZE);
    p->BytesPerLine = 60;
    EXPECT_EQ(state, nullptr);
}

} // namespace
} // namespace rv::test
