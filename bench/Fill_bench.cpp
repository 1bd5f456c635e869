// Pictures painted in one colour. The measure is a memset: nothing is read.
#include "Pictures.h"

#include <cstring>

namespace rv::bench {

namespace {

constexpr COLORREF kColour = 0x20A0F0;

MakeStep kernel(R_INT width, R_INT height, R_INT bits, COLORREF colour, R_UINT memory = MEM_CONVENTIONAL)
{
    return [=] {
        const auto bitmap = std::make_shared<Bitmap>(width, height, bits, memory);
        return [=] { return R_FillBitmap(bitmap->get(), colour) == SUCCESS; };
    };
}

MakeStep memsetOf(size_t bytes)
{
    return [bytes] {
        const auto block = std::make_shared<Warm>(bytes);
        return [=] {
            std::memset(block->data(), 0x5A, bytes);
            return true;
        };
    };
}

#if defined(RV_BENCH_OPENCV)
MakeStep opencv(R_INT width, R_INT height, R_INT bits)
{
    return [=] {
        const size_t rowBytes = static_cast<size_t>(width) * static_cast<size_t>(bits) / 8;
        const auto block = std::make_shared<Warm>(rowBytes * static_cast<size_t>(height));
        const cv::Mat picture(height, width, bits == 24 ? CV_8UC3 : CV_8UC1, block->data(), rowBytes);
        return [=, keep = block] {
            cv::Mat target = picture;
            target.setTo(cv::Scalar(0x20, 0xA0, 0xF0));
            return target.data == keep->data();
        };
    };
}
#endif

#if defined(RV_BENCH_LIBYUV)
MakeStep libyuv32(R_INT width, R_INT height)
{
    return [=] {
        const auto block = std::make_shared<Warm>(static_cast<size_t>(width) * static_cast<size_t>(height) * 4);
        return [=] { return libyuv::ARGBRect(block->data(), width * 4, 0, 0, width, height, kColour) == 0; };
    };
}
#endif

#if defined(RV_BENCH_LEPTONICA)
MakeStep leptonica(R_INT width, R_INT height, R_INT bits)
{
    return [=] {
        const std::shared_ptr<Pix> picture(pixCreate(width, height, bits), [](Pix* pix) { pixDestroy(&pix); });
        pixSetAll(picture.get());
        return [=] { return pixSetAllArbitrary(picture.get(), 0) == 0; };
    };
}
#endif

void registerFill(const std::string& job, R_INT width, R_INT height, R_INT bits, COLORREF colour)
{
    measure(job, "kernel", kernel(width, height, bits, colour));
    measure(job, "copy",
            memsetOf(static_cast<size_t>(width) * static_cast<size_t>(bits) / 8 * static_cast<size_t>(height)));
#if defined(RV_BENCH_OPENCV)
    if (bits >= 8) measure(job, "OpenCV", opencv(width, height, bits));
#endif
#if defined(RV_BENCH_LIBYUV)
    if (bits == 24) measure(job, "libyuv (32)", libyuv32(width, height));
#endif
#if defined(RV_BENCH_LEPTONICA)
    measure(job, bits == 24 ? "Leptonica (32)" : "Leptonica", leptonica(width, height, bits == 24 ? 32 : bits));
#endif
}

} // namespace

void registerFills()
{
    registerFill("fill 24", 4096, 4096, 24, kColour);
    registerFill("fill 8", 4096, 4096, 8, kColour);
    registerFill("fill 1", 2496, 3508, 1, 0);
    registerFill("fill 24, small", 640, 480, 24, kColour);
    measure("fill 1, compressed", "kernel", kernel(2496, 3508, 1, 0xFFFFFF, MEM_COMPRESSED));
    measure("fill 1, compressed", "copy", memsetOf(size_t{2496} / 8 * 3508));
}

} // namespace rv::bench
