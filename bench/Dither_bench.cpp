// Whole pictures with fewer colours: a new bitmap, or a row at a time, beside the other libraries.
#include "Pictures.h"

#include <cstdlib>
#include <cstring>

#if defined(RV_BENCH_ZIMG)
#include <zimg.h>
#endif
#if defined(RV_BENCH_LIBSIXEL)
#include <sixel.h>
// It leaves the library, but is in none of its headers.
extern "C" unsigned char* sixel_dither_apply_palette(sixel_dither_t*, unsigned char* pixels, int width, int height);
#endif

namespace rv::bench {

namespace {

constexpr R_INT kSide = kPhotoSize;
constexpr size_t kPixels = size_t{kSide} * kSide;

uint8_t luminance(const RGBQUAD& c)
{
    return static_cast<uint8_t>((2u * c.rgbRed + 5u * c.rgbGreen + c.rgbBlue + 4) / 8);
}

/// The photograph in 1 byte, gray, or in 3 or 4, in either order.
void putRow(uint8_t* row, size_t pixelBytes, R_INT y, bool redFirst = false)
{
    for (size_t x = 0; x < kSide; ++x, row += pixelBytes) {
        const RGBQUAD& c = photograph()[static_cast<size_t>(y) * kSide + x];
        const uint8_t gray[] = {luminance(c)},
                      colour[] = {redFirst ? c.rgbRed : c.rgbBlue, c.rgbGreen, redFirst ? c.rgbBlue : c.rgbRed, 255};
        std::memcpy(row, pixelBytes == 1 ? gray : colour, pixelBytes);
    }
}

std::shared_ptr<Bitmap> photoBitmap(R_INT bits, R_INT method = DITHER_NONE)
{
    const auto bitmap = std::make_shared<Bitmap>(kSide, kSide, bits);
    if (bits == 8) (void)R_CreateBitmapGrayPalette(bitmap->get());
    std::vector<uint8_t> row(bitmap->get()->BytesPerLine);
    for (R_INT y = 0; y < kSide; ++y) {
        putRow(row.data(), static_cast<size_t>(bits) / 8, y);
        (void)R_PutBitmapRow(bitmap->get(), row.data(), y, row.size());
    }
    bitmap->get()->DitheringMethod = method;
    return bitmap;
}

/// The photograph's own 256 colours: what all who take a palette are given.
const std::vector<RGBQUAD>& palette()
{
    static const auto entries = [] {
        std::vector<RGBQUAD> made(256);
        R_UINT count = 256;
        if (R_CreateBitmapOptPal(photoBitmap(24)->get(), made.data(), &count, nullptr, 0) != SUCCESS) std::abort();
        return made;
    }();
    return entries;
}

struct Job {
    const char* name;
    R_INT method;
    R_INT fromBits;
    R_INT toBits;
};

Step bitmapStep(const Job& job)
{
    const bool colours = job.toBits == 8;
    (void)palette(); // is not measured
    return [job, colours, source = photoBitmap(job.fromBits, job.method)] {
        BITMAPHANDLE made;
        const R_UINT dither = job.method == DITHER_NONE ? 0 : COLORRES_DITHER;
        const R_INT status =
            R_ColorResBitmap(&made, source->get(), BITMAPHANDLE_SIZE, job.toBits,
                             (colours ? COLORRES_USER : COLORRES_FIXED) | dither, palette().data(), colours ? 256 : 0);
        if (status == SUCCESS) R_FreeBitmap(&made);
        return status == SUCCESS;
    };
}

Step lineStep(const Job& job)
{
    const auto target = std::make_shared<Warm>(kPixels);
    (void)palette();
    return [job, target, source = photoBitmap(job.fromBits, job.method)] {
        BITMAPHANDLE* const from = source->get();
        const auto* const pixels = static_cast<const uint8_t*>(from->Addr.Pointer);
        const bool colours = job.toBits == 8;
        if (R_StartDithering(from, colours ? palette().data() : nullptr, colours ? 256 : 2) != SUCCESS) return false;
        const size_t targetBytes = kSide * static_cast<size_t>(job.toBits) / 8;
        bool good = true;
        for (size_t y = 0; y < kSide; ++y)
            good = good &&
                   R_DitherLine(from, pixels + y * from->BytesPerLine, target->data() + y * targetBytes) == SUCCESS;
        return R_StopDithering(from) == SUCCESS && good;
    };
}

#if defined(RV_BENCH_ZIMG)
Step zimgStep(zimg_dither_type_e method)
{
    zimg_image_format from, to;
    zimg_image_format_default(&from, ZIMG_API_VERSION);
    from.width = from.height = kSide;
    from.pixel_type = ZIMG_PIXEL_BYTE;
    from.color_family = ZIMG_COLOR_GREY;
    from.matrix_coefficients = ZIMG_MATRIX_UNSPECIFIED;
    from.pixel_range = ZIMG_RANGE_FULL;
    from.depth = 8;
    to = from;
    to.depth = 1;
    zimg_graph_builder_params options;
    zimg_graph_builder_params_default(&options, ZIMG_API_VERSION);
    options.dither_type = method;
    const std::shared_ptr<zimg_filter_graph> graph(zimg_filter_graph_build(&from, &to, &options),
                                                   zimg_filter_graph_free);
    size_t bytes = 0;
    if (graph != nullptr) (void)zimg_filter_graph_get_tmp_size(graph.get(), &bytes);
    const auto source = std::make_shared<Warm>(kPixels), target = std::make_shared<Warm>(kPixels),
               scratch = std::make_shared<Warm>(bytes + 64);
    for (R_INT y = 0; y < kSide; ++y) putRow(source->data() + size_t{kSide} * static_cast<size_t>(y), 1, y);
    return [=] {
        zimg_image_buffer_const in{};
        zimg_image_buffer out{};
        in.version = out.version = ZIMG_API_VERSION;
        in.plane[0].data = source->data();
        out.plane[0].data = target->data();
        in.plane[0].stride = out.plane[0].stride = kSide;
        in.plane[0].mask = out.plane[0].mask = ZIMG_BUFFER_MAX;
        return graph != nullptr && zimg_filter_graph_process(graph.get(), &in, &out, scratch->data(), nullptr, nullptr,
                                                             nullptr, nullptr) == ZIMG_ERROR_SUCCESS;
    };
}
#endif

#if defined(RV_BENCH_LIBSIXEL)
Step sixelStep(int method)
{
    const auto pixels = std::make_shared<std::vector<uint8_t>>(3 * kPixels);
    for (R_INT y = 0; y < kSide; ++y) putRow(pixels->data() + size_t{3} * kSide * static_cast<size_t>(y), 3, y, true);
    std::vector<uint8_t> colours;
    for (const RGBQUAD& c : palette()) colours.insert(colours.end(), {c.rgbRed, c.rgbGreen, c.rgbBlue});
    return [=]() mutable {
        sixel_dither_t* dither = nullptr;
        if (SIXEL_FAILED(sixel_dither_new(&dither, 256, nullptr))) return false;
        sixel_dither_set_palette(dither, colours.data());
        sixel_dither_set_pixelformat(dither, SIXEL_PIXELFORMAT_RGB888);
        sixel_dither_set_diffusion_type(dither, method);
        unsigned char* const indices = sixel_dither_apply_palette(dither, pixels->data(), kSide, kSide);
        sixel_dither_unref(dither);
        const bool good = indices != nullptr;
        std::free(indices);
        return good;
    };
}
#endif

#if defined(RV_BENCH_LEPTONICA)
using PixPtr = std::shared_ptr<Pix>;

PixPtr leptonicaPhoto(R_INT bits)
{
    const PixPtr picture(pixCreate(kSide, kSide, bits), [](Pix* pix) { pixDestroy(&pix); });
    for (R_INT y = 0; y < kSide; ++y) {
        l_uint32* const line = pixGetData(picture.get()) + static_cast<ptrdiff_t>(y) * pixGetWpl(picture.get());
        for (R_INT x = 0; x < kSide; ++x) {
            const RGBQUAD& c = photograph()[static_cast<size_t>(y) * kSide + static_cast<size_t>(x)];
            if (bits == 8)
                SET_DATA_BYTE(line, x, luminance(c));
            else
                line[x] = R_UINT{c.rgbRed} << 24 | R_UINT{c.rgbGreen} << 16 | R_UINT{c.rgbBlue} << 8;
        }
    }
    return picture;
}

Step leptonicaToBits()
{
    return [picture = leptonicaPhoto(8)] {
        Pix* bits = pixDitherToBinary(picture.get());
        const bool good = bits != nullptr;
        pixDestroy(&bits);
        return good;
    };
}

/// It finds the nearest entry of small cubes of colours.
Step leptonicaToPalette()
{
    const std::shared_ptr<PixColormap> colours(pixcmapCreate(8), [](PixColormap* made) { pixcmapDestroy(&made); });
    for (const RGBQUAD& c : palette()) pixcmapAddColor(colours.get(), c.rgbRed, c.rgbGreen, c.rgbBlue);
    return [colours, picture = leptonicaPhoto(32)] {
        Pix* indices = pixOctcubeQuantFromCmap(picture.get(), colours.get(), 8, 5, L_EUCLIDEAN_DISTANCE);
        const bool good = indices != nullptr;
        pixDestroy(&indices);
        return good;
    };
}
#endif

} // namespace

void registerDither()
{
    constexpr Job jobs[] = {
        {"Floyd-Steinberg 8 to 1", DITHER_FLOYD_STEINBERG, 8, 1},
        {"ordered 8 to 1", DITHER_ORDERED, 8, 1},
        {"Stucki 8 to 1", DITHER_STUCKI, 8, 1},
        {"Jarvis 8 to 1", DITHER_JARVIS, 8, 1},
        {"Burkes 8 to 1", DITHER_BURKES, 8, 1},
        {"nearest 24 to 256", DITHER_NONE, 24, 8},
        {"ordered 24 to 256", DITHER_ORDERED, 24, 8},
        {"Floyd-Steinberg 24 to 256", DITHER_FLOYD_STEINBERG, 24, 8},
        {"Stucki 24 to 256", DITHER_STUCKI, 24, 8},
        {"Jarvis 24 to 256", DITHER_JARVIS, 24, 8},
        {"Burkes 24 to 256", DITHER_BURKES, 24, 8},
        {"Stevenson-Arce 24 to 256", DITHER_STEVENSON_ARCE, 24, 8},
    };
    for (const Job& job : jobs) {
        measure(job.name, "kernel", [=] { return bitmapStep(job); });
        measure(job.name, "kernel line by line", [=] { return lineStep(job); });
        measure(job.name, "copy", copyOf(kPixels * static_cast<size_t>(job.fromBits) / 8));
    }
#if defined(RV_BENCH_ZIMG)
    measure("Floyd-Steinberg 8 to 1", "zimg (8)", [] { return zimgStep(ZIMG_DITHER_ERROR_DIFFUSION); });
    measure("ordered 8 to 1", "zimg (8)", [] { return zimgStep(ZIMG_DITHER_ORDERED); });
#endif
#if defined(RV_BENCH_LIBSIXEL)
    measure("nearest 24 to 256", "libsixel", [] { return sixelStep(SIXEL_DIFFUSE_NONE); });
    measure("Floyd-Steinberg 24 to 256", "libsixel", [] { return sixelStep(SIXEL_DIFFUSE_FS); });
    measure("Stucki 24 to 256", "libsixel", [] { return sixelStep(SIXEL_DIFFUSE_STUCKI); });
    measure("Jarvis 24 to 256", "libsixel", [] { return sixelStep(SIXEL_DIFFUSE_JAJUNI); });
    measure("Burkes 24 to 256", "libsixel", [] { return sixelStep(SIXEL_DIFFUSE_BURKES); });
#endif
#if defined(RV_BENCH_LEPTONICA)
    measure("Floyd-Steinberg 8 to 1", "Leptonica", leptonicaToBits);
    measure("nearest 24 to 256", "Leptonica (32)", leptonicaToPalette);
#endif
}

} // namespace rv::bench
