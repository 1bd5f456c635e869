// Rotation: exact turns by what is displayed, other angles pixel by pixel beside a model.
#include "Internal/R_Int.h"
#include "Support/FailingPlatform.h"
#include "Support/Picture.h"
#include "Support/Watcher.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace rv::test {
namespace {

constexpr R_INT kQuarter = 9000;
constexpr COLORREF kFill = 0x0040C080;

Picture turnedClockwise(const Picture& picture)
{
    Picture turned = picture;
    std::swap(turned.width, turned.height);
    for (R_INT y = 0; y < turned.height; ++y)
        for (R_INT x = 0; x < turned.width; ++x)
            turned.pixels[static_cast<size_t>(y * turned.width + x)] =
                picture.pixels[static_cast<size_t>((picture.height - 1 - x) * picture.width + y)];
    return turned;
}

TEST(Rotate, SinesAreRoundedToNearest)
{
    for (R_INT angle = 0; angle < 36000; ++angle) {
        const double radians = angle / 18000.0 * 3.14159265358979323846;
        ASSERT_EQ(R_SinValue(angle), std::lround(std::sin(radians) * 16384)) << angle;
        ASSERT_EQ(R_CosValue(angle), std::lround(std::cos(radians) * 16384)) << angle;
    }
}

TEST(Rotate, QuarterTurnsAreThoseOfTheDisplayedImage)
{
    for (const R_INT bits : allDepths()) {
        for (const Home home : homesOf(bits)) {
            if (!Scene{.bits = bits, .home = home}.possible()) continue;
            for (R_INT perspective = TOP_LEFT; perspective <= LEFT_BOTTOM; ++perspective) {
                TestBitmap p({.bits = bits, .home = home});
                p->ViewPerspective = perspective;
                p->XResolution = 300;
                const std::string text = p.scene().text() + ": " + std::to_string(perspective);
                Picture wanted(p);
                for (R_INT quarters = -2; quarters <= 3; ++quarters) {
                    const bool shown = perspective % 2 != 0 && quarters == 1; // by the field alone, once
                    const R_INT angle = quarters * kQuarter;
                    ASSERT_EQ(shown ? R_RotateBitmapViewPerspective(p, angle)
                                    : R_RotateBitmap(p, angle, ROTATE_RESIZE, 0),
                              SUCCESS)
                        << text;
                    for (R_INT i = 0; i < (quarters + 4) % 4; ++i) wanted = turnedClockwise(wanted);
                    ASSERT_TRUE(Picture(p) == wanted) << text << ", " << quarters;
                    if (!shown) {
                        ASSERT_TRUE(p->ViewPerspective == TOP_LEFT || p->ViewPerspective == BOTTOM_LEFT);
                    }
                }
                p->ViewPerspective = perspective;
                const Picture before(p);
                const R_INT across = p->XResolution;
                ASSERT_EQ(R_RotateBitmap90(p, 0, 0, 100), SUCCESS);
                EXPECT_TRUE(turnedClockwise(Picture(p)) == before) << text;
                EXPECT_EQ(p->ViewPerspective, perspective);
                EXPECT_EQ(p->YResolution, across);
            }
        }
    }
}

TEST(Rotate, AThousandTurnsEndWhereTheyBegan)
{
    for (const unsigned seed : {1u, 2u, 3u}) {
        std::mt19937 random(seed);
        const R_INT bits = seed == 1 ? 1 : seed == 2 ? 12 : 24;
        TestBitmap p({.bits = bits, .home = seed == 1 ? Home::compressed : Home::conventional, .width = 29});
        const Picture first(p);
        const auto pixels = p.pixels();
        R_INT quarters = 0;
        for (int step = 0; step < 1000; ++step) {
            const auto turn = static_cast<R_INT>(random() % 8) - 4;
            const auto direction = static_cast<R_INT>(random() % 2);
            R_INT status = SUCCESS;
            switch (random() % 4) {
            case 0:
                status = R_RotateBitmap(p, turn * kQuarter, ROTATE_RESIZE, 0);
                quarters += turn;
                break;
            case 1:
                status = R_RotateBitmap90(p, direction, 0, 100);
                quarters += direction == 1 ? 1 : -1;
                break;
            case 2:
                status = R_RotateBitmapViewPerspective(p, turn * kQuarter);
                quarters += turn;
                break;
            default: status = R_ChangeBitmapViewPerspective(nullptr, p, 0, turn + 5); break;
            }
            ASSERT_EQ(status, SUCCESS) << "seed " << seed << ", step " << step;
        }
        ASSERT_EQ(R_RotateBitmap(p, -quarters * kQuarter, ROTATE_RESIZE, 0), SUCCESS);
        EXPECT_TRUE(Picture(p) == first) << seed;
        ASSERT_EQ(R_ChangeBitmapViewPerspective(nullptr, p, 0, BOTTOM_LEFT), SUCCESS);
        EXPECT_EQ(p.pixels(), pixels) << seed;
    }
}

/// Where new pixels lie on the old picture, in numbers that hold every position exactly.
struct Model {
    double sine, cosine, centreX, centreY, newX, newY;
    R_INT width, height;

    Model(const BITMAPHANDLE* p, R_INT angle, R_UINT flags, double x, double y)
        : centreX(p->Width / 2.0), centreY(p->Height / 2.0), width(p->Width), height(p->Height)
    {
        const R_INT quarters[] = {0, 2, 2, 0, 1, 1, 3, 3};
        const bool mirrored = p->ViewPerspective != TOP_LEFT && p->ViewPerspective != BOTTOM_RIGHT &&
                              p->ViewPerspective != RIGHT_TOP && p->ViewPerspective != LEFT_BOTTOM;
        angle += quarters[p->ViewPerspective - 1] * kQuarter;
        angle = ((mirrored ? -angle : angle) % 36000 + 36000) % 36000;
        sine = R_SinValue(angle) / 16384.0;
        cosine = R_CosValue(angle) / 16384.0;
        if ((flags & ROTATE_CENTER) != 0) centreX = x, centreY = y;
        newX = centreX;
        newY = centreY;
        if ((flags & (ROTATE_RESIZE | ROTATE_CENTER)) != 0) grow();
    }
    void grow()
    {
        double least[2] = {1e9, 1e9}, most[2] = {-1e9, -1e9};
        for (const double x : {0.0, double(width)}) {
            for (const double y : {0.0, double(height)}) {
                const double turned[] = {(x - centreX) * cosine - (y - centreY) * sine,
                                         (x - centreX) * sine + (y - centreY) * cosine};
                for (int i = 0; i < 2; ++i) {
                    least[i] = std::min(least[i], std::floor(turned[i] * 16384) / 16384);
                    most[i] = std::max(most[i], std::floor(turned[i] * 16384) / 16384);
                }
            }
        }
        newX = -least[0];
        newY = -least[1];
        width = static_cast<R_INT>(most[0] - least[0] + 0.6);
        height = static_cast<R_INT>(most[1] - least[1] + 0.6);
    }
    double x(R_INT column, R_INT row) const
    {
        return centreX + (column + 0.5 - newX) * cosine + (row + 0.5 - newY) * sine;
    }
    double y(R_INT column, R_INT row) const
    {
        return centreY - (column + 0.5 - newX) * sine + (row + 0.5 - newY) * cosine;
    }
};

/// The bits of one pixel that a colour becomes in a bitmap.
uint64_t filled(const BITMAPHANDLE* like, COLORREF colour, bool alphaOnTop)
{
    BITMAPHANDLE one;
    auto* const source = const_cast<BITMAPHANDLE*>(like);
    EXPECT_EQ(R_DupBitmapNewDim(&one, source, BITMAPHANDLE_SIZE, 1, 1, like->BitsPerPixel, 0x4F), SUCCESS);
    EXPECT_EQ(R_FillBitmap2(&one, alphaOnTop ? colour & 0xFFFFFF : colour,
                            static_cast<R_UCHAR>(alphaOnTop ? colour >> 24 : 255)),
              SUCCESS);
    const uint64_t pixel = pixelAt(pixelsOf(&one).data(), 0, like->BitsPerPixel);
    R_FreeBitmap(&one);
    return pixel;
}

TEST(Rotate, EveryPixelIsTheOneThatHoldsItsPoint)
{
    std::mt19937 random(7);
    const auto from = [&](R_INT low, R_INT high) {
        return low + static_cast<R_INT>(random() % static_cast<unsigned>(high - low));
    };
    for (const R_INT bits : allDepths()) {
        for (int round = 0; round < 60; ++round) {
            const auto homes = homesOf(bits);
            const Scene scene{.bits = bits,
                              .home = homes[random() % homes.size()],
                              .structSize = random() % 3 == 0 ? BITMAPHANDLE_SIZE_SHORT : BITMAPHANDLE_SIZE,
                              .width = round % 9 == 0 ? from(1, 4) : from(1, 320),
                              .height = from(1, 90)};
            if (!scene.possible()) continue;
            TestBitmap p(scene);
            p->ViewPerspective = from(TOP_LEFT, LEFT_BOTTOM + 1);
            const R_UINT choice[] = {0, ROTATE_RESIZE, ROTATE_CENTER, ROTATE_ALPHA, ROTATE_RESIZE | ROTATE_ALPHA};
            const R_UINT flags = choice[random() % 5];
            R_INT angle = from(-40000, 40000);
            if (round % 4 == 0) angle = from(-300, 300); // whole pieces of rows
            if (round % 4 == 1) angle = from(-4, 4) * kQuarter + (flags == ROTATE_CENTER ? 0 : 4500);
            const float x = static_cast<float>(from(-50, 300)) / 4, y = static_cast<float>(from(-50, 300)) / 4;
            const std::string text = scene.text() + ", " + std::to_string(angle) + ", flags " + std::to_string(flags);
            const Model model(p, angle, flags, x, y);
            const auto old = p.pixels();
            const R_INT width = p->Width, height = p->Height;
            const R_INT64 pitch = p->BytesPerLine;
            const auto colour = static_cast<COLORREF>(random());
            const uint64_t fill = filled(p, colour, (flags & ROTATE_ALPHA) != 0);

            ASSERT_EQ(R_IntRotateBitmap(p, angle, flags, colour, 0, 100, x, y), SUCCESS) << text;
            ASSERT_TRUE(p->Width == model.width && p->Height == model.height) << text;
            const auto rows = p.pixels();
            for (R_INT row = 0; row < p->Height; ++row) {
                for (R_INT column = 0; column < p->Width; ++column) {
                    const auto sx = static_cast<R_INT>(std::floor(model.x(column, row)));
                    const auto sy = static_cast<R_INT>(std::floor(model.y(column, row)));
                    const bool inside = sx >= 0 && sx < width && sy >= 0 && sy < height;
                    ASSERT_EQ(pixelAt(rows.data() + R_INT64{row} * p->BytesPerLine, column, bits),
                              inside ? pixelAt(old.data() + sy * pitch, sx, bits) : fill)
                        << text << ": " << column << ", " << row;
                }
                for (R_INT64 bit = R_INT64{p->Width} * bits; bit < R_INT64{p->BytesPerLine} * 8; ++bit)
                    ASSERT_EQ(pixelAt(rows.data() + R_INT64{row} * p->BytesPerLine, bit, 1), 0u) << text;
            }
        }
    }
}

TEST(Rotate, PerspectivesTurnTheSameImage)
{
    TestBitmap upright({.bits = 24, .width = 41, .height = 23});
    upright->ViewPerspective = TOP_LEFT;
    const GuardedRecord first(BITMAPHANDLE_SIZE);
    ASSERT_EQ(R_CopyBitmap(first, upright, first.structSize()), SUCCESS);
    ASSERT_EQ(R_RotateBitmap(first, 1037, 0, kFill), SUCCESS);
    for (const R_INT perspective : {TOP_RIGHT, BOTTOM_RIGHT, BOTTOM_LEFT}) { // of the same stored size
        const GuardedRecord other(BITMAPHANDLE_SIZE);
        ASSERT_EQ(R_ChangeBitmapViewPerspective(other, upright, other.structSize(), perspective), SUCCESS);
        ASSERT_EQ(R_RotateBitmap(other, 1037, 0, kFill), SUCCESS);
        EXPECT_TRUE(Picture(other) == Picture(first)) << perspective;
        R_FreeBitmap(other);
    }
    upright->XResolution = 204;
    upright->YResolution = 98;
    ASSERT_EQ(R_ChangeBitmapViewPerspective(nullptr, upright, 0, RIGHT_TOP), SUCCESS);
    ASSERT_EQ(R_RotateBitmap(upright, 100, 0, kFill), SUCCESS);
    EXPECT_TRUE(upright->XResolution == 204 && upright->YResolution == 98); // as seen, and now as stored
    R_FreeBitmap(first);
}

TEST(Rotate, PicturesElsewhereAreFetchedInPieces)
{
    for (const R_INT bits : {1, 24}) {
        for (const R_INT angle : {3000, 200}) {
            const R_INT width = bits == 1 ? 14000 : 2300, height = bits == 1 ? 6000 : 1900;
            const TestBitmap kept({.bits = bits, .width = width, .height = height});
            const TestBitmap filed({.bits = bits, .home = Home::disk, .width = width, .height = height});
            const R_UINT flags = ROTATE_RESIZE | (bits == 24 ? ROTATE_BILINEAR : 0);
            ASSERT_EQ(R_RotateBitmap(kept, angle, flags, kFill), SUCCESS);
            ASSERT_EQ(R_RotateBitmap(filed, angle, flags, kFill), SUCCESS);
            ASSERT_TRUE(kept.pixels() == filed.pixels()) << bits << " bits by " << angle;
        }
    }
}

TEST(RotateBilinear, SamplesAreWeighedAsTheyShouldBe)
{
    // Gray ramps of 8 and 16 bits and colours: a turned plane is a plane.
    for (const R_INT bits : {8, 12, 16, 24, 48, 64}) {
        TestBitmap p({.bits = bits, .width = 120, .height = 90});
        p->ViewPerspective = TOP_LEFT;
        if (bits <= 16) p->Order = ORDER_GRAY;
        const R_INT samples = bits < 24 ? 1 : bits == 64 ? 4 : 3, sampleBits = bits / samples;
        const double most = std::pow(2, sampleBits) - 1;
        const auto plane = [&](double x, double y) { return (x + 2 * y) / 300 * most; };
        auto rows = p.pixels();
        for (R_INT row = 0; row < p->Height; ++row)
            for (R_INT column = 0; column < p->Width; ++column)
                for (R_INT s = 0; s < samples; ++s)
                    setPixelAt(rows.data() + R_INT64{row} * p->BytesPerLine, column * samples + s, sampleBits,
                               s == 3 ? 65535 : static_cast<uint64_t>(std::lround(plane(column + 0.5, row + 0.5))));
        p.setPixels(rows);
        const Model model(p, 2345, 0, 0, 0);
        ASSERT_EQ(R_RotateBitmap(p, 2345, ROTATE_BILINEAR, 0), SUCCESS);
        rows = p.pixels();
        size_t looked = 0;
        for (R_INT row = 0; row < p->Height; ++row) {
            for (R_INT column = 0; column < p->Width; ++column) {
                const double x = model.x(column, row), y = model.y(column, row);
                if (x < 1 || x > 119 || y < 1 || y > 89) continue;
                for (R_INT s = 0; s < std::min(samples, 3); ++s, ++looked)
                    ASSERT_NEAR(static_cast<double>(pixelAt(rows.data() + R_INT64{row} * p->BytesPerLine,
                                                            column * samples + s, sampleBits)),
                                plane(x, y), sampleBits == 8 ? 1.1 : 1.6)
                        << bits << " bits: " << column << ", " << row;
            }
        }
        EXPECT_GT(looked, 5000u);
    }
}

TEST(RotateBilinear, KeepsWhatIsNotBetweenPixels)
{
    for (const R_INT bits : allDepths()) {
        for (const R_INT order : {ORDER_RGB, ORDER_GRAY}) {
            // Turned by nothing, and one colour turned by anything.
            TestBitmap p({.bits = bits, .width = 50, .height = 20});
            p->Order = order;
            auto rows = p.pixels();
            if (bits == 16 && order == ORDER_RGB)
                for (size_t i = 1; i < rows.size(); i += 2) rows[i] &= 0x7F; // nobody's bit
            p.setPixels(rows);
            const Picture before(p);
            ASSERT_EQ(R_IntRotateBitmap(p, 0, ROTATE_CENTER | ROTATE_BILINEAR, 0, 0, 100, 7, 5), SUCCESS);
            const Picture after(p);
            for (size_t i = 0; i < before.pixels.size(); ++i) {
                // Entries that stand for the same colour count alike, and so do colours that nothing is seen of.
                const auto colour = [&](uint64_t v) {
                    return bits > 8 || p->nColors == 0 ? v
                                                       : R_GetTrueColorValue(p, static_cast<COLORREF>(0x1000000 | v));
                };
                ASSERT_EQ(colour(after.pixels[i]), colour(before.pixels[i])) << bits << " bits, order " << order;
            }
            ASSERT_EQ(R_FillBitmap(p, kFill), SUCCESS);
            const Picture plain(p);
            ASSERT_EQ(R_RotateBitmap(p, 3333, ROTATE_BILINEAR | ROTATE_RESIZE, kFill), SUCCESS);
            for (const uint64_t pixel : Picture(p).pixels) ASSERT_EQ(pixel, plain.pixels[0]) << bits << " bits";
        }
    }
    // Nothing is seen of the green, so none of it comes in; of numbers with a sign those around 0 are near each other.
    TestBitmap clear({.bits = 32, .width = 40, .height = 40}), number({.bits = 16, .width = 40, .height = 40});
    number->Order = ORDER_GRAY;
    number->Flags |= FLAG_SIGNED;
    auto rows = clear.pixels(), words = number.pixels();
    for (R_INT row = 0; row < 40; ++row) {
        for (R_INT column = 0; column < 40; ++column) {
            const bool one = (row + column) % 2 == 0;
            setPixelAt(rows.data() + row * 160, column, 32, one ? 0xFFFF0000u : 0x0000FF00u);
            setPixelAt(words.data() + row * 80, column, 16, one ? 0xFFF0u : 0x0010u);
        }
    }
    clear.setPixels(rows);
    number.setPixels(words);
    ASSERT_EQ(R_RotateBitmap(clear, 1500, ROTATE_BILINEAR | ROTATE_ALPHA, 0), SUCCESS);
    ASSERT_EQ(R_RotateBitmap(number, 1500, ROTATE_BILINEAR, 0x04000000), SUCCESS);
    for (const uint64_t pixel : Picture(clear).pixels) {
        ASSERT_TRUE((pixel >> 24 & 0xFF) == 0 || (pixel & 0xFF00) == 0) << std::hex << pixel;
    }
    for (const uint64_t pixel : Picture(number).pixels) ASSERT_LE(std::abs(static_cast<int16_t>(pixel)), 16);
}

TEST(Rotate, ProgressRunsThroughItsRangeAndAnAbortChangesNothing)
{
    const LiveBlocks live;
    for (const Home home : {Home::conventional, Home::superCompressed}) {
        for (const R_INT angle : {0, 18000, kQuarter, 700}) {
            bool stopped = true;
            for (int stopAt = 0; stopped; ++stopAt) {
                TestBitmap p({.bits = 8, .home = home, .width = 70, .height = 90});
                if (!p.scene().possible()) break;
                p->ViewPerspective = BOTTOM_LEFT;
                const auto record = p.record(), pixels = p.pixels();
                const Watcher watcher(stopAt, -100);
                const R_INT status = R_IntRotateBitmap(p, angle, ROTATE_RESIZE, 0, 20, 60, 0, 0);
                stopped = watcher.percents.size() == static_cast<size_t>(stopAt) + 1;
                ASSERT_EQ(status, stopped ? -100 : SUCCESS);
                ASSERT_EQ(watcher.percents.front(), 20);
                if (stopped) {
                    ASSERT_EQ(p.record(), record) << "stopped at " << stopAt;
                    ASSERT_EQ(p.pixels(), pixels) << "stopped at " << stopAt;
                } else {
                    ASSERT_EQ(watcher.percents.back(), 60);
                }
            }
        }
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

/// What the display module was told of a region.
struct ToldRegion {
    R_INT angle = -1, width = 0, height = 0, answer = SUCCESS;
    float x = 0, y = 0, newX = 0, newY = 0;
};

TEST(Rotate, ARegionTurnsAlong)
{
    DISDISPATCH hooks{};
    hooks.uStructSize = sizeof hooks;
    hooks.DeleteRegion = [](void*) {};
    hooks.RotateRegion = [](BITMAPHANDLE* p, R_INT angle, float x, float y, float newX, float newY, R_INT width,
                            R_INT height) -> R_INT {
        auto* const told = static_cast<ToldRegion*>(p->pRgnInfo);
        *told = {angle, width, height, told->answer, x, y, newX, newY};
        return told->answer;
    };
    ASSERT_EQ(R_SetDisDispatch(&hooks), SUCCESS);
    for (const R_INT angle : {18000, kQuarter, 4500}) {
        for (const R_INT answer : {SUCCESS, -77}) {
            ToldRegion told;
            told.answer = answer;
            TestBitmap p({.bits = 8, .width = 100, .height = 100});
            p->ViewPerspective = BOTTOM_LEFT; // stored upside down, and so turned the other way
            p->pRgnInfo = &told;
            const auto pixels = p.pixels();
            EXPECT_EQ(R_RotateBitmap(p, angle, ROTATE_RESIZE, 0), answer);
            EXPECT_EQ(told.angle, 36000 - angle);
            const R_INT side = angle == 4500 ? 142 : 100;
            EXPECT_TRUE(told.width == side && told.height == side && told.x == 50 && told.y == 50);
            EXPECT_NEAR(told.newX, angle == 4500 ? 70.71 : 50, 0.01);
            EXPECT_EQ(p.pixels() == pixels, answer != SUCCESS);
            p->pRgnInfo = nullptr;
        }
    }
    ASSERT_EQ(R_SetDisDispatch(nullptr), SUCCESS);
}

TEST(RotateBuffer, TurnsPicturesInMemory)
{
    for (const R_INT bits : allDepths()) {
        for (const auto& [width, height] : {std::pair{1, 1}, {13, 5}, {8, 16}, {70, 41}}) {
            const auto bytes = [&](R_INT pixels) { return static_cast<R_UINT>((pixels * bits + 7) / 8); };
            const R_UINT pitch = bytes(width) + 3, turnedPitch = bytes(height) + 1;
            const auto source = randomPixels(width, height, bits, pitch, 5);
            for (const R_INT direction : {0, 1, 2}) { // 2: by a half, in place too
                const bool half = direction == 2;
                const R_INT rows = half ? height : width, columns = half ? width : height;
                const R_UINT targetPitch = half ? pitch : turnedPitch;
                std::vector<uint8_t> target(size_t{targetPitch} * static_cast<size_t>(rows));
                ASSERT_EQ(half ? R_RotateBuffer180(target.data(), pitch, source.data(), pitch, width, height, bits)
                               : R_RotateBuffer90(target.data(), turnedPitch, source.data(), pitch, width, height, bits,
                                                  direction),
                          SUCCESS);
                for (R_INT y = 0; y < rows; ++y) {
                    for (R_INT x = 0; x < columns; ++x) {
                        const R_INT row = half ? height - 1 - y : direction == 1 ? height - 1 - x : x;
                        const R_INT column = half ? width - 1 - x : direction == 1 ? y : width - 1 - y;
                        ASSERT_EQ(pixelAt(target.data() + R_INT64{y} * targetPitch, x, bits),
                                  pixelAt(source.data() + R_INT64{row} * pitch, column, bits))
                            << bits << " bits, direction " << direction;
                    }
                }
                if (!half) continue;
                auto inPlace = source;
                ASSERT_EQ(R_RotateBuffer180(inPlace.data(), pitch, inPlace.data(), pitch, width, height, bits),
                          SUCCESS);
                for (R_INT y = 0; y < rows; ++y)
                    ASSERT_EQ(std::memcmp(inPlace.data() + R_INT64{y} * pitch, target.data() + R_INT64{y} * pitch,
                                          bytes(width)),
                              0);
            }
        }
    }
}

TEST(Rotate, RefusesWhatItCannotTurn)
{
    EXPECT_EQ(R_RotateBitmap(nullptr, 0, 0, 0), ERROR_INV_BITMAP);
    EXPECT_EQ(R_RotateBitmap90(nullptr, 0, 0, 100), ERROR_INV_BITMAP);
    EXPECT_EQ(R_RotateBitmapViewPerspective(nullptr, 0), ERROR_INV_BITMAP);
    TestBitmap p({.bits = 8});
    const auto record = p.record();
    EXPECT_EQ(R_RotateBitmap(p, 100, 0x20, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_RotateBitmap90(p, 2, 0, 100), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_RotateBitmapViewPerspective(p, 4500), ERROR_INV_PARAMETER);
    for (const float none : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), -3e9f})
        EXPECT_EQ(R_IntRotateBitmap(p, 100, ROTATE_CENTER, 0, 0, 100, 0, none), ERROR_INV_PARAMETER);
    EXPECT_EQ(p.record(), record);
    p->Flags |= FLAG_FLOAT;
    EXPECT_EQ(R_RotateBitmap(p, 100, ROTATE_BILINEAR, 0), ERROR_FLOAT_NOT_SUPPORTED);
    EXPECT_EQ(R_RotateBitmap(p, -2147483647 - 1, ROTATE_RESIZE, 0), SUCCESS);
    p->BytesPerLine -= 4;
    EXPECT_EQ(R_RotateBitmap(p, 100, 0, 0), ERROR_INV_SIZE);
    p->ViewPerspective = 9;
    EXPECT_EQ(R_RotateBitmapViewPerspective(p, 0), ERROR_INV_PARAMETER);
    p->uStructSize = 1;
    EXPECT_EQ(R_RotateBitmap(p, 100, 0, 0), ERROR_INV_STRUCT_SIZE);
    p->uStructSize = BITMAPHANDLE_SIZE;

    uint8_t bytes[64] = {};
    EXPECT_EQ(R_RotateBuffer90(nullptr, 4, bytes, 4, 4, 4, 8, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_RotateBuffer90(bytes, 3, bytes + 32, 4, 4, 4, 8, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_RotateBuffer90(bytes, 4, bytes + 32, ~R_SIZE{0}, 4, 4, 8, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_RotateBuffer90(bytes, 4, bytes + 32, 4, 4, 4, 9, 0), ERROR_INV_BITS_PER_PIXEL);
    EXPECT_EQ(R_RotateBuffer180(bytes, 4, bytes, 5, 4, 4, 8), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_RotateBuffer180(bytes, 4, bytes + 32, 4, 0, 4, 8), ERROR_INV_PARAMETER);
}

} // namespace
} // namespace rv::test
