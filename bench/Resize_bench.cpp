// Pictures of another size by repeating and leaving out pixels, beside other libraries at the same work. A picture's
// copy is that of the larger of the two.
#include "Pictures.h"

namespace rv::bench {

namespace {

struct Resizing {
    Size from;
    Size to;

    size_t largerBytes() const { return std::max(from.bytes(), to.bytes()); }
};

MakeStep kernel(const Resizing& job, R_UINT flags)
{
    return [=] {
        const auto from = std::make_shared<Bitmap>(job.from.width, job.from.height, job.from.bits);
        const auto to = std::make_shared<Bitmap>(job.to.width, job.to.height, job.to.bits);
        return [=] { return R_ResizeBitmap(from->get(), to->get(), flags) == SUCCESS; };
    };
}

/// One row again and again in the line resizer, which makes it longer or shorter in its own buffer.
MakeStep line(R_INT width, R_INT newWidth, R_INT bits)
{
    return [=] {
        const auto row = std::make_shared<Warm>(static_cast<size_t>(std::max(width, newWidth)) * 8);
        return [=] {
            void* state = nullptr;
            R_INT made = 0, repeats = 0;
            if (R_StartResize(width, 1000, newWidth, 1000, &state) != SUCCESS) return false;
            for (R_INT y = 0; y < 1000; ++y)
                if (R_Resize(row->data(), y, bits, &made, &repeats, state) != 1) return false;
            return R_StopResize(state) == SUCCESS;
        };
    };
}

#if defined(RV_BENCH_OPENCV) && defined(RV_BENCH_IMGPROC)
MakeStep opencv(const Resizing& job)
{
    return [=] {
        const auto from = std::make_shared<Warm>(job.from.bytes()), to = std::make_shared<Warm>(job.to.bytes());
        const int type = job.from.bits == 24 ? CV_8UC3 : CV_8UC1;
        const cv::Mat source(job.from.height, job.from.width, type, from->data(), job.from.rowBytes());
        const cv::Mat target(job.to.height, job.to.width, type, to->data(), job.to.rowBytes());
        return [=, keep = std::pair(from, to)] {
            cv::Mat result = target;
            cv::resize(source, result, result.size(), 0, 0, cv::INTER_NEAREST);
            return result.data == target.data;
        };
    };
}
#endif

#if defined(RV_BENCH_LIBYUV)
/// 24 bits are 32 there.
MakeStep libyuv(Resizing job)
{
    const bool plane = job.from.bits == 8;
    if (!plane) job.from.bits = job.to.bits = 32;
    return [=] {
        const auto from = std::make_shared<Warm>(job.from.bytes()), to = std::make_shared<Warm>(job.to.bytes());
        const auto pitch = static_cast<int>(job.from.rowBytes()), newPitch = static_cast<int>(job.to.rowBytes());
        return [=] {
            if (plane)
                libyuv::ScalePlane(from->data(), pitch, job.from.width, job.from.height, to->data(), newPitch,
                                   job.to.width, job.to.height, libyuv::kFilterNone);
            else
                libyuv::ARGBScale(from->data(), pitch, job.from.width, job.from.height, to->data(), newPitch,
                                  job.to.width, job.to.height, libyuv::kFilterNone);
            return true;
        };
    };
}
#endif

#if defined(RV_BENCH_LEPTONICA)
/// A new picture each time; 24 bits are 32 there.
MakeStep leptonica(const Resizing& job)
{
    return [=] {
        const std::shared_ptr<Pix> picture(
            pixCreate(job.from.width, job.from.height, job.from.bits == 24 ? 32 : job.from.bits),
            [](Pix* pix) { pixDestroy(&pix); });
        pixSetAll(picture.get());
        const float across = static_cast<float>(job.to.width) / static_cast<float>(job.from.width);
        const float down = static_cast<float>(job.to.height) / static_cast<float>(job.from.height);
        return [=] {
            Pix* sized = job.from.bits == 1 ? pixScaleBinary(picture.get(), across, down)
                                            : pixScaleBySampling(picture.get(), across, down);
            const bool done = sized != nullptr;
            pixDestroy(&sized);
            return done;
        };
    };
}
#endif

void registerResize(const std::string& job, const Resizing& sizes)
{
    measure(job, "kernel", kernel(sizes, 0));
    measure(job, "copy", copyOf(sizes.largerBytes()));
#if defined(RV_BENCH_OPENCV) && defined(RV_BENCH_IMGPROC)
    if (sizes.from.bits >= 8) measure(job, "OpenCV", opencv(sizes));
#endif
#if defined(RV_BENCH_LIBYUV)
    if (sizes.from.bits >= 8) measure(job, sizes.from.bits == 24 ? "libyuv (32)" : "libyuv", libyuv(sizes));
#endif
#if defined(RV_BENCH_LEPTONICA)
    measure(job, sizes.from.bits == 24 ? "Leptonica (32)" : "Leptonica", leptonica(sizes));
#endif
}

} // namespace

void registerResizes()
{
    for (const R_INT bits : {8, 24}) {
        const Size large{4096, 4096, bits}, small{1600, 1600, bits};
        const std::string job = "resize nearest " + std::to_string(bits);
        registerResize(job + " down", {large, small});
        registerResize(job + " up", {small, large});
    }
    const Size page{kPageWidth, kPageHeight, 1}, smaller{969, 1370, 1};
    registerResize("resize nearest 1 down", {page, smaller});
    registerResize("resize nearest 1 up", {smaller, page});
    measure("shrink page, favour black", "kernel", kernel({page, {620, 877, 1}}, SIZE_FAVOR_BLACK));
    measure("shrink page, favour black", "copy", copyOf(page.bytes()));
    for (const R_INT bits : {1, 8, 24}) {
        const std::string job = "resize line " + std::to_string(bits);
        measure(job + " down", "kernel", line(4000, 3000, bits));
        measure(job + " up", "kernel", line(3000, 4000, bits));
        const auto bytes = rowBytesOf(4000, bits) * 1000;
        for (const char* const way : {" down", " up"}) measure(job + way, "copy", copyOf(bytes));
    }
}

} // namespace rv::bench
