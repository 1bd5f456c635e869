// Pictures in another perspective: quarter turns into another bitmap, half turns where the pixels are, beside other
// libraries at the same work. Memory for the other bitmap is in use already, or new each time.
#include "Pictures.h"

namespace rv::bench {

namespace {

MakeStep kernelQuarter(Size size, bool makesNew)
{
    return [=]() -> Step {
        const auto from = std::make_shared<Bitmap>(size.width, size.height, size.bits);
        const auto to = std::make_shared<Warm>(makesNew ? 1 : size.turnedBytes());
        from->get()->ViewPerspective = RIGHT_TOP;
        if (!makesNew && !lendMemory(from->get(), to.get())) return [] { return false; };
        return [=, keep = to] {
            BITMAPHANDLE made;
            const R_INT status = R_ChangeBitmapViewPerspective(&made, from->get(), BITMAPHANDLE_SIZE, TOP_LEFT);
            if (status == SUCCESS) R_FreeBitmap(&made);
            return status == SUCCESS;
        };
    };
}

MakeStep kernelHalf(Size size)
{
    return [=] {
        const auto bitmap = std::make_shared<Bitmap>(size.width, size.height, size.bits);
        return [=] {
            bitmap->get()->ViewPerspective = BOTTOM_RIGHT; // the same pixels, lying the other way
            return R_ChangeBitmapViewPerspective(nullptr, bitmap->get(), 0, TOP_LEFT) == SUCCESS;
        };
    };
}

#if defined(RV_BENCH_OPENCV)
MakeStep opencv(Size size, bool quarter, bool makesNew)
{
    return [=] {
        const auto from = std::make_shared<Warm>(size.bytes()), to = std::make_shared<Warm>(size.turnedBytes());
        const int type = size.bits == 24 ? CV_8UC3 : CV_8UC1;
        const cv::Mat source(size.height, size.width, type, from->data(), rowBytesOf(size.width, size.bits));
        const R_INT width = quarter ? size.height : size.width, height = quarter ? size.width : size.height;
        const cv::Mat target(height, width, type, to->data(), rowBytesOf(width, size.bits));
        return [=, keep = std::pair(from, to)] {
            cv::Mat result;
            if (!makesNew) result = target;
            cv::rotate(source, result, quarter ? cv::ROTATE_90_CLOCKWISE : cv::ROTATE_180);
            return makesNew || result.data == target.data;
        };
    };
}
#endif

#if defined(RV_BENCH_LIBYUV)
/// Of 8 bits, and of 32 in place of 24.
MakeStep libyuv(Size size, bool quarter)
{
    if (size.bits == 24) size.bits = 32;
    return [=] {
        const auto from = std::make_shared<Warm>(size.bytes()), to = std::make_shared<Warm>(size.turnedBytes());
        const auto pitch = static_cast<int>(rowBytesOf(size.width, size.bits));
        const auto turned = quarter ? static_cast<int>(rowBytesOf(size.height, size.bits)) : pitch;
        const auto mode = quarter ? libyuv::kRotate90 : libyuv::kRotate180;
        const auto call = size.bits == 8 ? libyuv::RotatePlane : libyuv::ARGBRotate;
        return [=] { return call(from->data(), pitch, to->data(), turned, size.width, size.height, mode) == 0; };
    };
}
#endif

#if defined(RV_BENCH_LEPTONICA)
/// A new picture each time; 24 bits are 32 there.
MakeStep leptonica(Size size, bool quarter)
{
    return [=] {
        const std::shared_ptr<Pix> picture(pixCreate(size.width, size.height, size.bits == 24 ? 32 : size.bits),
                                           [](Pix* pix) { pixDestroy(&pix); });
        pixSetAll(picture.get());
        return [=] {
            Pix* turned = quarter ? pixRotate90(picture.get(), 1) : pixRotate180(nullptr, picture.get());
            const bool done = turned != nullptr;
            pixDestroy(&turned);
            return done;
        };
    };
}
#endif

void registerTurn(const std::string& job, Size size, bool quarter)
{
    measure(job, "kernel", quarter ? kernelQuarter(size, false) : kernelHalf(size));
    if (quarter) measure(job, "kernel, new", kernelQuarter(size, true));
    measure(job, "copy", copyOf(size.bytes()));
#if defined(RV_BENCH_OPENCV)
    if (size.bits >= 8) {
        measure(job, "OpenCV", opencv(size, quarter, false));
        if (quarter) measure(job, "OpenCV, new", opencv(size, quarter, true));
    }
#endif
#if defined(RV_BENCH_LIBYUV)
    if (size.bits >= 8) measure(job, size.bits == 24 ? "libyuv (32)" : "libyuv", libyuv(size, quarter));
#endif
#if defined(RV_BENCH_LEPTONICA)
    measure(job, size.bits == 24 ? "Leptonica, new (32)" : "Leptonica, new", leptonica(size, quarter));
#endif
}

} // namespace

void registerPerspectives()
{
    constexpr Size page{2480, 3508, 1};
    registerTurn("rotate 90 1", page, true);
    registerTurn("rotate 180 1", page, false);
    for (const R_INT bits : {8, 24}) {
        const std::string depth = std::to_string(bits);
        registerTurn("rotate 90 " + depth + ", 4000x3000", {4000, 3000, bits}, true);
        registerTurn("rotate 90 " + depth + ", 4096x4096", {4096, 4096, bits}, true);
        registerTurn("rotate 180 " + depth, {4096, 4096, bits}, false);
    }
}

} // namespace rv::bench
