// Bitmaps in other depths: every row as the row calls make it, whole or not at all.
#include "Support/Watcher.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <random>

namespace rv::test {
namespace {

/// A random bitmap and what it is to become.
struct Job {
    explicit Job(unsigned seed) : random(seed), source(scene(seed))
    {
        if (below(2) != 0 && source->BitsPerPixel != 12) source->Order = static_cast<R_INT>(below(3));
        if (source->BitsPerPixel == 16) source->HighBit = static_cast<R_INT>(below(17)) - 1;
        source->ViewPerspective = TOP_LEFT;
        source->Transparency = R_GetPixelColor(source, 0, 0);
        source->DitheringMethod = static_cast<R_INT>(below(9));
        bits = allDepths()[below(allDepths().size())];
        for (RGBQUAD& entry : palette)
            entry = {static_cast<uint8_t>(random()), static_cast<uint8_t>(random()), static_cast<uint8_t>(random()), 0};
        if (bits <= 8) {
            constexpr R_UINT kinds[] = {0, COLORRES_FIXED, COLORRES_USER, COLORRES_GRAY, COLORRES_OPTIMIZED};
            flags = kinds[below(5)] | (below(2) != 0 ? COLORRES_DITHER : 0);
            colours = 1 + below(1u << bits);
            if (source->BitsPerPixel <= 8 && below(4) == 0) flags = COLORRES_SOURCE;
            if (bits == 8 && below(4) == 0) flags = below(2) != 0 ? COLORRES_WEB_SAFE : COLORRES_ORDER_GRAY;
        } else if (bits != 12 && below(2) != 0) {
            flags = bits == 16 && below(2) != 0 ? COLORRES_ORDER_GRAY : COLORRES_ORDER_BGR;
        }
    }
    Scene scene(unsigned seed)
    {
        Scene s;
        do {
            s.bits = allDepths()[below(allDepths().size())];
            const auto homes = homesOf(s.bits);
            s.home = homes[below(homes.size())];
            s.structSize = below(2) != 0 ? BITMAPHANDLE_SIZE : BITMAPHANDLE_SIZE_SHORT;
            s.width = static_cast<R_INT>(1 + below(70));
            s.height = static_cast<R_INT>(1 + below(90));
            s.seed = seed;
        } while (!s.possible());
        return s;
    }
    unsigned below(size_t end) { return static_cast<unsigned>(random() % end); }
    R_INT make(BITMAPHANDLE* target)
    {
        return R_ColorResBitmap(target, source, BITMAPHANDLE_SIZE, bits, flags, palette.data(), colours);
    }
    /// Whether a colour value tells all of a pixel, and always becomes the same.
    bool namesPixels() const
    {
        const R_INT from = source->BitsPerPixel;
        return (from <= 8 || from == 24 || from == 32) && (flags & COLORRES_DITHER) == 0;
    }
    /// The rows that `like` has to have, by the row calls.
    std::vector<uint8_t> wanted(BITMAPHANDLE* like)
    {
        std::vector<uint8_t> from = source.pixels(),
                             rows(size_t{like->BytesPerLine} * static_cast<size_t>(like->Height));
        const bool dithers = (flags & COLORRES_DITHER) != 0;
        R_UINT* table = nullptr;
        if (dithers && (flags & COLORRES_OPTIMIZED) != 0) {
            std::array<RGBQUAD, 256> entries;
            R_UINT count = colours;
            EXPECT_EQ(R_CreateBitmapOptPal(source, entries.data(), &count, &table, 0), SUCCESS);
        }
        // A table keeps the rule of a fixed palette from naming entries that are not there.
        if (dithers && table == nullptr && (!std::has_single_bit(like->nColors) || like->nColors == 1))
            table = R_CreateUserMatchTable(like->pPalette, 0);
        if (dithers) {
            EXPECT_EQ(R_StartDitheringExt(source, like->pPalette, like->nColors, bits, table), SUCCESS);
        }
        for (R_INT row = 0; row < like->Height; ++row) {
            uint8_t* const to = rows.data() + R_INT64{row} * like->BytesPerLine;
            uint8_t* const at = from.data() + R_INT64{row} * source->BytesPerLine;
            EXPECT_EQ(dithers ? R_DitherLine(source, at, to)
                              : R_ConvertRow(like, to, source, at, static_cast<R_UINT>(like->Width)),
                      SUCCESS);
        }
        EXPECT_EQ(R_StopDithering(source), SUCCESS);
        EXPECT_EQ(R_FreeUserMatchTable(table), SUCCESS);
        return rows;
    }

    std::mt19937 random;
    TestBitmap source;
    R_INT bits;
    R_UINT flags = 0;
    R_UINT colours = 0;
    std::array<RGBQUAD, 256> palette;
};

TEST(ColorRes, EveryRowIsWhatTheRowCallsMakeOfIt)
{
    for (unsigned seed = 0; seed < 500 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Job job(seed);
        BITMAPHANDLE made;
        ASSERT_EQ(job.make(&made), SUCCESS) << job.source.scene().text() << " to " << job.bits << ", " << job.flags;
        const auto rows = pixelsOf(&made);
        if (job.namesPixels()) {
            EXPECT_EQ(made.Transparency, R_GetPixelColor(&made, 0, 0)) << job.source.scene().text();
        }
        EXPECT_EQ(rows, job.wanted(&made)) << job.source.scene().text() << " to " << job.bits << ", " << job.flags;
        const bool gray = job.bits == 12 || (job.flags & COLORRES_ORDER_GRAY) != 0;
        const bool bgr = (job.flags & COLORRES_ORDER_BGR) != 0;
        EXPECT_EQ(made.Order, gray ? ORDER_GRAY : bgr ? ORDER_BGR : ORDER_RGB);
        if ((job.flags & COLORRES_USER) != 0) {
            EXPECT_EQ(made.nColors, job.colours);
            EXPECT_EQ(R_CompareBitmapToPalette(&made, job.palette.data(), job.colours), 1);
        }
        // In place, half of the times with something in the way: then nothing has changed.
        if (seed % 2 != 0) {
            const auto record = job.source.record(), pixels = job.source.pixels(), palette = job.source.palette();
            Watcher watcher(static_cast<int>(job.below(2)));
            EXPECT_EQ(job.make(nullptr), -100);
            EXPECT_EQ(record, job.source.record());
            EXPECT_EQ(pixels, job.source.pixels());
            EXPECT_EQ(palette, job.source.palette());
        } else {
            EXPECT_EQ(job.make(job.below(2) != 0 ? job.source.get() : nullptr), SUCCESS);
            EXPECT_EQ(rows, pixelsOf(job.source));
        }
        R_FreeBitmap(&made);
    }
}

TEST(ColorRes, NoPixelNamesAnEntryThatIsNotThere)
{
    std::array<RGBQUAD, 16> fixed;
    ASSERT_EQ(R_GetFixedPalette(fixed.data(), 4), SUCCESS);
    const std::pair<const RGBQUAD*, R_UINT> starts[] = {{fixed.data(), 10}, {R_IntGetNetscapePalette(), 150}};
    for (const auto& [palette, colours] : starts) {
        const TestBitmap picture({.bits = 24});
        const R_INT bits = colours > 16 ? 8 : 4;
        ASSERT_EQ(R_ColorResBitmap(nullptr, picture, 0, bits, COLORRES_USER | COLORRES_DITHER, palette, colours),
                  SUCCESS);
        const auto rows = picture.pixels();
        for (size_t at = 0; at < rows.size() * 8 / static_cast<size_t>(bits); ++at) // padding too
            ASSERT_LT(pixelAt(rows.data(), static_cast<R_INT64>(at), bits), picture->nColors);
    }

    const TestBitmap page({.bits = 1});
    ASSERT_EQ(R_SetBitmapNewPalette(page, fixed.data(), 16), SUCCESS); // more than a bit can tell apart
    const uint8_t green[] = {0, 255, 0};
    BITMAPHANDLE from;
    ASSERT_EQ(R_InitBitmap(&from, BITMAPHANDLE_SIZE, 1, 1, 24), SUCCESS);
    uint8_t index = 0xFF;
    EXPECT_EQ(R_ConvertRow(page, &index, &from, green, 1), SUCCESS);
    EXPECT_EQ(index, 0);
}

TEST(ColorRes, WhatMakesNoSenseIsRefused)
{
    const TestBitmap bitmap({.bits = 24});
    const std::array<RGBQUAD, 2> palette{};
    const struct {
        R_INT bits;
        R_UINT flags, colours;
        R_INT status = ERROR_INV_PARAMETER;
    } refused[] = {
        {9, 0, 0, ERROR_INV_BITS_PER_PIXEL},
        {8, COLORRES_FIXED | COLORRES_GRAY, 0},
        {8, 0x8000, 0},
        {4, COLORRES_WEB_SAFE, 0},
        {8, COLORRES_SOURCE, 0},
        {8, COLORRES_ORDER_BGR, 0},
        {4, COLORRES_ORDER_GRAY, 0},
        {24, COLORRES_ORDER_GRAY, 0},
        {24, COLORRES_FIXED, 0},
        {24, COLORRES_ORDER_BGR | COLORRES_ORDER_GRAY, 0},
        {1, COLORRES_USER, 3},
        {1, COLORRES_USER, 0},
    };
    for (const auto& r : refused)
        EXPECT_EQ(R_ColorResBitmap(nullptr, bitmap, 0, r.bits, r.flags, palette.data(), r.colours), r.status)
            << r.bits << " bits, flags " << r.flags;
    EXPECT_EQ(R_ColorResBitmap(nullptr, nullptr, 0, 8, 0, nullptr, 0), ERROR_INV_PARAMETER);
    BITMAPHANDLE made; // the size comes before the depth
    EXPECT_EQ(R_ColorResBitmap(&made, bitmap, 100, 9, 0, nullptr, 0), ERROR_INV_STRUCT_SIZE);

    // Rows of 64 bits that a record cannot count.
    const TestBitmap wide({.bits = 1, .width = 70000000, .height = 1});
    EXPECT_EQ(R_ColorResBitmap(&made, wide, BITMAPHANDLE_SIZE, 64, 0, nullptr, 0), ERROR_INV_SIZE);
}

} // namespace
} // namespace rv::test
