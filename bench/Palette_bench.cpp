// Palettes made for a picture, their time and how well the picture can be shown with them; match tables.
#include "Support.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <vector>

#if defined(RV_BENCH_LEPTONICA)
#include <leptonica/allheaders.h>
#endif
#if defined(RV_BENCH_FREEIMAGE)
// It declares system types that our headers declare, too.
#define tagRGBQUAD FreeImageQuadTag
#define RGBQUAD FreeImageQuad
#include <FreeImage.h>
#undef RGBQUAD
#undef tagRGBQUAD
#endif
#if defined(RV_BENCH_IMAGEQUANT)
#include <libimagequant.h>
#endif

namespace rv::bench {

namespace {

constexpr R_INT kSize = kPhotoSize;
constexpr R_UINT kColours = 256;
using Palette = std::vector<RGBQUAD>;

/// The photograph in rows of 3 bytes or 4.
void putPhoto(uint8_t* row, size_t pixelBytes, R_INT y)
{
    const RGBQUAD* const from = photograph().data() + size_t{kSize} * static_cast<size_t>(y);
    for (size_t x = 0; x < kSize; ++x) {
        const uint8_t bytes[] = {from[x].rgbBlue, from[x].rgbGreen, from[x].rgbRed, 255};
        std::copy_n(bytes, pixelBytes, row + x * pixelBytes);
    }
}

/// Decibels, with every 13th pixel shown as its nearest entry.
double psnr(const Palette& palette)
{
    double sum = 0, count = 0;
    for (size_t i = 0; i < photograph().size(); i += 13) {
        const RGBQUAD& p = photograph()[i];
        const RGBQUAD& q = palette[R_FindPaletteIndex(palette.data(), static_cast<R_UINT>(palette.size()), p.rgbRed,
                                                      p.rgbGreen, p.rgbBlue)];
        for (const int distance : {p.rgbRed - q.rgbRed, p.rgbGreen - q.rgbGreen, p.rgbBlue - q.rgbBlue}) {
            sum += distance * distance;
            ++count;
        }
    }
    return 10 * std::log10(255 * 255 * count / sum);
}

/// Makes a palette of the photograph, each time it is called; none when it fails.
using MakePalette = std::function<Palette()>;

/// Its time, and in a measurement of its own its quality.
void registerPalette(const std::string& who, std::function<MakePalette()> prepare)
{
    measure("palette of 256", who, [prepare] { return [make = prepare()] { return !make().empty(); }; });
    const auto quality = [prepare](benchmark::State& state) {
        const MakePalette make = prepare();
        Palette palette;
        for (auto _ : state) palette = make();
        if (palette.empty()) return state.SkipWithError("failed");
        state.counters["psnr"] = psnr(palette);
    };
    benchmark::RegisterBenchmark(("palette of 256/" + who + " quality").c_str(), quality)->Iterations(1)->UseRealTime();
}

MakePalette kernel()
{
    const auto bitmap = std::make_shared<Bitmap>(kSize, kSize, 24);
    std::vector<uint8_t> row(bitmap->get()->BytesPerLine);
    for (R_INT y = 0; y < kSize; ++y) {
        putPhoto(row.data(), 3, y);
        if (R_PutBitmapRow(bitmap->get(), row.data(), y, row.size()) < 0) return [] { return Palette(); };
    }
    return [=] {
        Palette palette(kColours);
        R_UINT colours = kColours, *table = nullptr;
        const R_INT status = R_CreateBitmapOptPal(bitmap->get(), palette.data(), &colours, &table, 0);
        R_FreeUserMatchTable(table);
        palette.resize(status == SUCCESS ? colours : 0);
        return palette;
    };
}

#if defined(RV_BENCH_LEPTONICA)
MakePalette leptonica()
{
    const std::shared_ptr<Pix> picture(pixCreate(kSize, kSize, 32), [](Pix* pix) { pixDestroy(&pix); });
    for (size_t i = 0; i < photograph().size(); ++i) {
        const RGBQUAD& p = photograph()[i];
        pixGetData(picture.get())[i] = R_UINT{p.rgbRed} << 24 | R_UINT{p.rgbGreen} << 16 | R_UINT{p.rgbBlue} << 8;
    }
    return [=] {
        Palette palette;
        Pix* indices = pixMedianCutQuantGeneral(picture.get(), 0, 8, kColours, 5, 1, 0);
        PIXCMAP* const entries = indices != nullptr ? pixGetColormap(indices) : nullptr;
        for (l_int32 i = 0, r, g, b; entries != nullptr && i < pixcmapGetCount(entries); ++i) {
            pixcmapGetColor(entries, i, &r, &g, &b);
            palette.push_back({static_cast<uint8_t>(b), static_cast<uint8_t>(g), static_cast<uint8_t>(r), 0});
        }
        pixDestroy(&indices);
        return palette;
    };
}
#endif

#if defined(RV_BENCH_FREEIMAGE)
MakePalette freeImage()
{
    const std::shared_ptr<FIBITMAP> picture(FreeImage_Allocate(kSize, kSize, 24), FreeImage_Unload);
    for (R_INT y = 0; y < kSize; ++y) putPhoto(FreeImage_GetScanLine(picture.get(), y), 3, y);
    return [=] {
        const std::unique_ptr<FIBITMAP, void (*)(FIBITMAP*)> indices(
            FreeImage_ColorQuantizeEx(picture.get(), FIQ_WUQUANT, kColours, 0, nullptr), FreeImage_Unload);
        Palette palette(indices != nullptr ? kColours : 0);
        for (size_t i = 0; i < palette.size(); ++i) {
            const auto& q = FreeImage_GetPalette(indices.get())[i];
            palette[i] = {q.rgbBlue, q.rgbGreen, q.rgbRed, 0};
        }
        return palette;
    };
}
#endif

#if defined(RV_BENCH_IMAGEQUANT)
MakePalette imagequant(int speed)
{
    const auto pixels = std::make_shared<std::vector<uint8_t>>(size_t{4} * kSize * kSize);
    for (R_INT y = 0; y < kSize; ++y) putPhoto(pixels->data() + size_t{4} * kSize * static_cast<size_t>(y), 4, y);
    return [=] {
        const std::shared_ptr<liq_attr> options(liq_attr_create(), liq_attr_destroy);
        liq_set_speed(options.get(), speed);
        // The channels change places: it reads red first. Green stays, so that only red and blue are weighed otherwise.
        const std::shared_ptr<liq_image> image(liq_image_create_rgba(options.get(), pixels->data(), kSize, kSize, 0),
                                               liq_image_destroy);
        liq_result* result = nullptr;
        Palette palette;
        if (liq_image_quantize(image.get(), options.get(), &result) == LIQ_OK) {
            const liq_palette* const made = liq_get_palette(result);
            for (unsigned i = 0; i < made->count; ++i)
                palette.push_back({made->entries[i].r, made->entries[i].g, made->entries[i].b, 0});
            liq_result_destroy(result);
        }
        return palette;
    };
}
#endif

/// All cells of a table for the photograph's palette, and the same by as many single questions.
Step matchTable(bool atOnce)
{
    return [=, palette = kernel()()] {
        if (atOnce) {
            R_UINT* const table = R_CreateUserMatchTable(palette.data(), static_cast<R_UINT>(palette.size()));
            R_FreeUserMatchTable(table);
            return table != nullptr;
        }
        for (R_INT cell = 0; cell < static_cast<R_INT>(MATCH_TABLE_CELLS); ++cell)
            benchmark::DoNotOptimize(R_FindPaletteIndex(palette.data(), static_cast<R_UINT>(palette.size()),
                                                        cell >> 7 & 0xF8, cell >> 2 & 0xF8, (cell & 31) << 3));
        return true;
    };
}

} // namespace

void registerPalettes()
{
    registerPalette("kernel", kernel);
    // Theirs is the time of a picture in the new colours: they do not make a palette alone.
#if defined(RV_BENCH_LEPTONICA)
    registerPalette("Leptonica (32)", leptonica);
#endif
#if defined(RV_BENCH_FREEIMAGE)
    registerPalette("FreeImage", freeImage);
#endif
#if defined(RV_BENCH_IMAGEQUANT)
    registerPalette("libimagequant speed 10 (32)", [] { return imagequant(10); });
    registerPalette("libimagequant speed 5 (32)", [] { return imagequant(5); });
#endif
    measure("match table", "kernel", [] { return matchTable(true); });
    measure("match table", "single questions", [] { return matchTable(false); });
}

} // namespace rv::bench
