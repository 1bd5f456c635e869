// Pictures resized by weights, beside other libraries at the same work. Their bicubic is a convolution: it stands
// beside our splines for orientation.
#include "Pictures.h"

#include <cstring>

#if defined(RV_BENCH_IMGPROC)
#include <opencv2/imgproc.hpp>
#endif
#if defined(RV_BENCH_ZIMG)
#include <zimg.h>
#endif

namespace rv::bench {

namespace {

struct Resizing {
    Size from;
    Size to;
    R_UINT flags; ///< SIZE_

    size_t bytes() const { return std::max(from.bytes(), to.bytes()); }
};

/// Of 8 bits a gray one.
std::shared_ptr<Bitmap> bitmapOf(Size size)
{
    const auto bitmap = std::make_shared<Bitmap>(size.width, size.height, size.bits);
    for (unsigned i = 0; size.bits == 8 && i < 256; ++i) {
        const auto level = static_cast<uint8_t>(i);
        bitmap->get()->pPalette[i] = {level, level, level, 0};
    }
    return bitmap;
}

/// Into a bitmap that is there already.
MakeStep kernel(const Resizing& job)
{
    return [=] {
        const auto source = bitmapOf(job.from);
        const auto target = bitmapOf(job.to);
        return [=] { return R_ResizeBitmap(source->get(), target->get(), job.flags) == SUCCESS; };
    };
}

/// Row by row, where the depth changes on the way.
MakeStep onDemand(const Resizing& job)
{
    return [=] {
        const auto source = std::make_shared<Bitmap>(job.from.width, job.from.height, job.from.bits);
        for (R_INT y = 0; y < kPageHeight; ++y)
            (void)R_PutBitmapRow(source->get(), const_cast<uint8_t*>(pageOfText()) + y * (kPageWidth / 8), y,
                                 kPageWidth / 8);
        const auto target = std::make_shared<Warm>(job.to.bytes());
        return [=] {
            void* state = nullptr;
            if (R_StartResizeBitmap(source->get(), job.to.width, job.to.height, job.flags, &state) != SUCCESS)
                return false;
            const auto bytes = static_cast<R_SIZE>(job.to.width);
            R_SSIZE moved = static_cast<R_SSIZE>(bytes);
            for (R_INT y = 0; y < job.to.height && moved == static_cast<R_SSIZE>(bytes); ++y)
                moved =
                    R_GetResizedRowCol(state, target->data() + static_cast<size_t>(y) * job.to.rowBytes(), y, 0, bytes);
            return R_StopResizeBitmap(state) == SUCCESS && moved == static_cast<R_SSIZE>(bytes);
        };
    };
}

std::shared_ptr<Warm> pictureOf(Size size) { return std::make_shared<Warm>(size.bytes()); }

#if defined(RV_BENCH_OPENCV) && defined(RV_BENCH_IMGPROC)
MakeStep opencv(const Resizing& job)
{
    return [=] {
        const auto from = pictureOf(job.from), to = pictureOf(job.to);
        const int type = job.from.bits == 24 ? CV_8UC3 : CV_8UC1;
        const int method = job.flags == SIZE_AREA      ? cv::INTER_AREA
                           : job.flags == SIZE_BICUBIC ? cv::INTER_CUBIC
                                                       : cv::INTER_LINEAR;
        const cv::Mat source(job.from.height, job.from.width, type, from->data(), job.from.rowBytes());
        const cv::Mat target(job.to.height, job.to.width, type, to->data(), job.to.rowBytes());
        return [=, keep = std::pair(from, to)] {
            cv::Mat result = target;
            cv::resize(source, result, result.size(), 0, 0, method);
            return result.data == target.data;
        };
    };
}
#endif

#if defined(RV_BENCH_LIBYUV)
/// wide: 24 bits held as 32.
MakeStep libyuv(const Resizing& job, bool wide)
{
    return [=] {
        Size small = job.from, large = job.to;
        if (wide) small.bits = large.bits = 32;
        const auto from = pictureOf(small), to = pictureOf(large);
        const auto method = job.flags == SIZE_AREA ? libyuv::kFilterBox : libyuv::kFilterBilinear;
        const auto fromPitch = static_cast<int>(small.rowBytes()), toPitch = static_cast<int>(large.rowBytes());
        return [=] {
            if (wide)
                return libyuv::ARGBScale(from->data(), fromPitch, small.width, small.height, to->data(), toPitch,
                                         large.width, large.height, method) == 0;
            libyuv::ScalePlane(from->data(), fromPitch, small.width, small.height, to->data(), toPitch, large.width,
                               large.height, method);
            return true;
        };
    };
}
#endif

#if defined(RV_BENCH_ZIMG)
/// Plane by plane.
MakeStep zimg(const Resizing& job)
{
    return [=] {
        const int planes = job.from.bits / 8;
        const Size small{job.from.width, job.from.height, 8}, large{job.to.width, job.to.height, 8};
        const auto from = pictureOf(small), to = pictureOf(large);
        zimg_image_format formats[2];
        for (int i = 0; i < 2; ++i) {
            zimg_image_format_default(&formats[i], ZIMG_API_VERSION);
            formats[i].width = static_cast<unsigned>((i == 0 ? small : large).width);
            formats[i].height = static_cast<unsigned>((i == 0 ? small : large).height);
            formats[i].pixel_type = ZIMG_PIXEL_BYTE;
            formats[i].color_family = ZIMG_COLOR_GREY;
        }
        zimg_graph_builder_params params;
        zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
        params.resample_filter = job.flags == SIZE_BICUBIC ? ZIMG_RESIZE_BICUBIC : ZIMG_RESIZE_BILINEAR;
        params.cpu_type = ZIMG_CPU_AUTO_64B;
        const std::shared_ptr<zimg_filter_graph> graph(zimg_filter_graph_build(&formats[0], &formats[1], &params),
                                                       zimg_filter_graph_free);
        size_t bytes = 0;
        if (graph == nullptr || zimg_filter_graph_get_tmp_size(graph.get(), &bytes) != ZIMG_ERROR_SUCCESS)
            return Step([] { return false; });
        const auto work = std::make_shared<Warm>(bytes);
        return Step([=] {
            zimg_image_buffer_const source = {};
            zimg_image_buffer target = {};
            source.version = target.version = ZIMG_API_VERSION;
            source.plane[0] = {from->data(), static_cast<ptrdiff_t>(small.rowBytes()), ZIMG_BUFFER_MAX};
            target.plane[0] = {to->data(), static_cast<ptrdiff_t>(large.rowBytes()), ZIMG_BUFFER_MAX};
            bool done = true;
            for (int i = 0; i < planes; ++i)
                done = done && zimg_filter_graph_process(graph.get(), &source, &target, work->data(), nullptr, nullptr,
                                                         nullptr, nullptr) == ZIMG_ERROR_SUCCESS;
            return done;
        });
    };
}
#endif

#if defined(RV_BENCH_LEPTONICA)
/// 24 bits are 32 there.
MakeStep leptonica(const Resizing& job, Pix* (*scale)(Pix*, float, float))
{
    return [=] {
        const int depth = job.from.bits == 24 ? 32 : job.from.bits;
        const std::shared_ptr<Pix> picture(pixCreate(job.from.width, job.from.height, depth),
                                           [](Pix* pix) { pixDestroy(&pix); });
        const float x = static_cast<float>(job.to.width) / static_cast<float>(job.from.width);
        const float y = static_cast<float>(job.to.height) / static_cast<float>(job.from.height);
        return [=] {
            Pix* result = scale(picture.get(), x, y);
            const bool made = result != nullptr;
            pixDestroy(&result);
            return made;
        };
    };
}
Pix* toGrayByFour(Pix* page, float, float) { return pixScaleToGray4(page); }
Pix* toGray(Pix* page, float factor, float) { return pixScaleToGray(page, factor); }
#endif

void registerResizing(const std::string& name, const Resizing& job)
{
    measure(name, "kernel", kernel(job));
    measure(name, "copy", copyOf(job.bytes()));
#if defined(RV_BENCH_OPENCV) && defined(RV_BENCH_IMGPROC)
    measure(name, "OpenCV", opencv(job));
#endif
#if defined(RV_BENCH_LIBYUV)
    if (job.flags != SIZE_BICUBIC)
        measure(name, job.from.bits == 24 ? "libyuv (32)" : "libyuv", libyuv(job, job.from.bits == 24));
#endif
#if defined(RV_BENCH_ZIMG)
    if (job.flags != SIZE_AREA) measure(name, job.from.bits == 24 ? "zimg planar" : "zimg", zimg(job));
#endif
#if defined(RV_BENCH_LEPTONICA)
    if (job.flags == SIZE_AREA)
        measure(name, job.from.bits == 24 ? "Leptonica (32)" : "Leptonica", leptonica(job, pixScaleAreaMap));
#endif
}

void registerPage(const std::string& name, Size to, bool byFour)
{
    const Resizing job{{kPageWidth, kPageHeight, 1}, to, SIZE_TO_GRAY};
    measure(name, "kernel", onDemand(job));
    measure(name, "copy", copyOf(job.from.bytes()));
#if defined(RV_BENCH_LEPTONICA)
    measure(name, "Leptonica", leptonica(job, byFour ? toGrayByFour : toGray));
#endif
    (void)byFour;
}

} // namespace

void registerResampling()
{
    // Neither a whole factor nor the same one for all pixels.
    for (const R_INT bits : {8, 24}) {
        const Size large{4096, 4096, bits}, small{1900, 1900, bits};
        const std::string depth = std::to_string(bits);
        registerResizing("bilinear " + depth + " down", {large, small, SIZE_BILINEAR});
        registerResizing("bilinear " + depth + " up", {small, large, SIZE_BILINEAR});
        registerResizing("spline " + depth + " up", {small, large, SIZE_BICUBIC});
        registerResizing("area " + depth + " down", {large, small, SIZE_AREA});
    }
    registerPage("page to gray 1/4", {kPageWidth / 4, kPageHeight / 4, 8}, true);
    registerPage("page to gray", {670, 948, 8}, false);
}

} // namespace rv::bench
