// Two pictures combined into one of them, beside other libraries at the same work.
#include "Pictures.h"

namespace rv::bench {

namespace {

/// Where the rectangle lies in the source: so many columns further right.
MakeStep kernel(Size size, R_UINT flags, R_INT shift)
{
    return [=] {
        const auto to = std::make_shared<Bitmap>(size.width, size.height, size.bits);
        const auto from = std::make_shared<Bitmap>(size.width, size.height, size.bits);
        return [=] {
            return R_CombineBitmapKrn(to->get(), 0, 0, size.width, size.height, from->get(), shift, 0, flags) ==
                   SUCCESS;
        };
    };
}

#if defined(RV_BENCH_OPENCV)
/// Rows are bytes there, whatever they hold.
template <class Call> void opencv(const std::string& job, Size size, Call call)
{
    measure(job, "OpenCV", [=] {
        const auto from = std::make_shared<Warm>(size.bytes()), to = std::make_shared<Warm>(size.bytes());
        const auto rowBytes = static_cast<int>(size.rowBytes());
        const cv::Mat source(size.height, rowBytes, CV_8UC1, from->data());
        const cv::Mat target(size.height, rowBytes, CV_8UC1, to->data());
        return [=, keep = std::pair(from, to)] {
            cv::Mat result = target;
            call(source, target, result);
            return result.data == target.data;
        };
    });
}
#endif

#if defined(RV_BENCH_LEPTONICA)
MakeStep leptonica(Size size, int operation, int shift)
{
    return [=] {
        const auto make = [&] {
            const std::shared_ptr<Pix> picture(pixCreate(size.width, size.height, 1),
                                               [](Pix* pix) { pixDestroy(&pix); });
            pixSetAll(picture.get());
            return picture;
        };
        return [=, to = make(), from = make()] {
            return pixRasterop(to.get(), 0, 0, size.width, size.height, operation, from.get(), shift, 0) == 0;
        };
    };
}
#endif

void registerLogical(const std::string& job, R_UINT flags, [[maybe_unused]] int leptonicas)
{
    constexpr Size page{2480, 3508, 1};
    for (const R_INT shift : {0, 5}) {
        const std::string name = job + (shift == 0 ? "" : " shifted");
        measure(name, "kernel", kernel(page, flags, shift));
        measure(name, "copy", copyOf(page.bytes()));
#if defined(RV_BENCH_LEPTONICA)
        measure(name, "Leptonica", leptonica(page, leptonicas, shift));
#endif
    }
}

void registerSamples(const std::string& job, Size size, R_UINT flags)
{
    measure(job, "kernel", kernel(size, flags, 0));
    measure(job, "copy", copyOf(size.bytes()));
}

/// Pictures whose pixels are solid, as those of a page are, and pictures of random alphas.
MakeStep over(Size size, bool solid)
{
    return [=] {
        const auto to = std::make_shared<Bitmap>(size.width, size.height, size.bits);
        const auto from = std::make_shared<Bitmap>(size.width, size.height, size.bits);
        const R_INT filled = solid ? R_FillBitmap2(to->get(), 0x00408020, 255) : SUCCESS;
        return [=] {
            return filled == SUCCESS && R_CombineBitmapKrn(to->get(), 0, 0, size.width, size.height, from->get(), 0, 0,
                                                           COMBINE_SRC_OVER) == SUCCESS;
        };
    };
}

#if defined(RV_BENCH_LIBYUV)
MakeStep libyuvBlend(Size size)
{
    return [=] {
        const auto from = std::make_shared<Warm>(size.bytes()), to = std::make_shared<Warm>(size.bytes());
        const auto pitch = static_cast<int>(size.rowBytes());
        return [=] {
            return libyuv::ARGBBlend(from->data(), pitch, to->data(), pitch, to->data(), pitch, size.width,
                                     size.height) == 0;
        };
    };
}
#endif

} // namespace

void registerCombine()
{
#if defined(RV_BENCH_LEPTONICA)
    constexpr int ands = PIX_SRC & PIX_DST, xors = PIX_SRC ^ PIX_DST;
#else
    constexpr int ands = 0, xors = 0;
#endif
    registerLogical("AND 1", COMBINE_AND, ands);
    registerLogical("XOR 1", COMBINE_XOR, xors);
    [[maybe_unused]] constexpr Size page{2480, 3508, 1};
    constexpr Size gray{4096, 4096, 8}, colour{4096, 4096, 24}, alpha{4096, 4096, 32};
    registerSamples("add 8", gray, COMBINE_ADD);
    registerSamples("add 24", colour, COMBINE_ADD);
    registerSamples("average 24", colour, COMBINE_AVG);
    registerSamples("minimum 8", gray, COMBINE_MIN);
    registerSamples("minimum 24", colour, COMBINE_MIN);
    registerSamples("multiply 24", colour, COMBINE_MUL);
#if defined(RV_BENCH_OPENCV)
    opencv("AND 1", page, [](const auto& s, const auto& d, auto& to) { cv::bitwise_and(s, d, to); });
    opencv("XOR 1", page, [](const auto& s, const auto& d, auto& to) { cv::bitwise_xor(s, d, to); });
    opencv("add 8", gray, [](const auto& s, const auto& d, auto& to) { cv::add(s, d, to); });
    opencv("add 24", colour, [](const auto& s, const auto& d, auto& to) { cv::add(s, d, to); });
    opencv("minimum 8", gray, [](const auto& s, const auto& d, auto& to) { cv::min(s, d, to); });
    opencv("minimum 24", colour, [](const auto& s, const auto& d, auto& to) { cv::min(s, d, to); });
    opencv("multiply 24", colour, [](const auto& s, const auto& d, auto& to) { cv::multiply(s, d, to, 1 / 255.0); });
#endif
    measure("over 32", "kernel", over(alpha, true));
    measure("over 32", "kernel, random alphas below", over(alpha, false));
    measure("over 32", "copy", copyOf(alpha.bytes()));
#if defined(RV_BENCH_LIBYUV)
    measure("over 32", "libyuv", libyuvBlend(alpha));
#endif
}

} // namespace rv::bench
