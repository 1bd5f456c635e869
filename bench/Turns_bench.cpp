// Flip and mirror of whole pictures, beside other libraries at the same work.
#include "Pictures.h"

#include <cstring>

namespace rv::bench {

namespace {

/// The kernel's own operations work in place.
MakeStep kernel(Size size, R_INT (*call)(BITMAPHANDLE*))
{
    return [=] {
        const auto bitmap = std::make_shared<Bitmap>(size.width, size.height, size.bits);
        return [=] { return call(bitmap->get()) == SUCCESS; };
    };
}

#if defined(RV_BENCH_OPENCV)
/// flipCode 0 flips, 1 mirrors.
MakeStep opencv(Size size, int flipCode, bool inPlace)
{
    return [=] {
        const auto from = std::make_shared<Warm>(size.bytes()), to = std::make_shared<Warm>(size.bytes());
        const int type = size.bits == 24 ? CV_8UC3 : CV_8UC1;
        const cv::Mat source(size.height, size.width, type, from->data(), size.rowBytes());
        const cv::Mat target(size.height, size.width, type, (inPlace ? from : to)->data(), size.rowBytes());
        return [=, keep = std::pair(from, to)] {
            cv::Mat result = target;
            cv::flip(source, result, flipCode);
            return result.data == target.data;
        };
    };
}
#endif

#if defined(RV_BENCH_LIBYUV)
/// A negative height turns the picture upside down.
MakeStep libyuv(Size size, bool mirror)
{
    return [=] {
        const auto from = std::make_shared<Warm>(size.bytes()), to = std::make_shared<Warm>(size.bytes());
        const auto pitch = static_cast<int>(size.rowBytes());
        return [=] {
            if (!mirror)
                libyuv::CopyPlane(from->data(), pitch, to->data(), pitch, pitch, -size.height);
            else if (size.bits == 24)
                return libyuv::RGB24Mirror(from->data(), pitch, to->data(), pitch, size.width, size.height) == 0;
            else
                libyuv::MirrorPlane(from->data(), pitch, to->data(), pitch, size.width, size.height);
            return true;
        };
    };
}
#endif

#if defined(RV_BENCH_LEPTONICA)
/// In place; 24 bits are 32 there.
MakeStep leptonica(Size size, bool mirror)
{
    return [=] {
        const std::shared_ptr<Pix> picture(pixCreate(size.width, size.height, size.bits == 24 ? 32 : size.bits),
                                           [](Pix* pix) { pixDestroy(&pix); });
        pixSetAll(picture.get());
        return [=] {
            Pix* const result =
                mirror ? pixFlipLR(picture.get(), picture.get()) : pixFlipTB(picture.get(), picture.get());
            return result == picture.get();
        };
    };
}
#endif

void registerTurn(const std::string& job, Size size, bool mirror)
{
    measure(job, "kernel", kernel(size, mirror ? R_ReverseBitmap : R_FlipBitmap));
    measure(job, "copy", copyOf(size.bytes()));
#if defined(RV_BENCH_OPENCV)
    if (size.bits >= 8) {
        measure(job, "OpenCV", opencv(size, mirror, false));
        measure(job, "OpenCV in place", opencv(size, mirror, true));
    }
#endif
#if defined(RV_BENCH_LIBYUV)
    if (size.bits >= 8) measure(job, "libyuv", libyuv(size, mirror));
#endif
#if defined(RV_BENCH_LEPTONICA)
    measure(job, size.bits == 24 ? "Leptonica (32)" : "Leptonica", leptonica(size, mirror));
#endif
}

/// One row again and again, in the cache.
MakeStep line(R_UINT width, R_INT bits)
{
    return [=] {
        const auto row = std::make_shared<Warm>(static_cast<size_t>(width) * 8);
        return [=] {
            for (int i = 0; i < 1000; ++i)
                if (R_MirrorLine(row->data(), width, bits) != SUCCESS) return false;
            return true;
        };
    };
}

MakeStep lineCopy(size_t bytes)
{
    return [=] {
        const auto from = std::make_shared<Warm>(bytes), to = std::make_shared<Warm>(bytes);
        return [=] {
            for (int i = 0; i < 1000; ++i) {
                std::memcpy(to->data(), from->data(), bytes);
                benchmark::ClobberMemory();
            }
            return true;
        };
    };
}

} // namespace

void registerTurns()
{
    constexpr Size page{2480, 3508, 1}, gray{4096, 4096, 8}, colour{4096, 4096, 24};
    registerTurn("flip 1", page, false);
    registerTurn("flip 8", gray, false);
    registerTurn("flip 24", colour, false);
    registerTurn("mirror 1", page, true);
    registerTurn("mirror 8", gray, true);
    registerTurn("mirror 24", colour, true);
    constexpr R_UINT width = 4000;
    for (const R_INT bits : {1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64}) {
        // Named by what it moves: a million pixels are 250 rows; the report divides.
        const std::string job = "mirror line " + std::to_string(bits);
        measure(job, "kernel", line(width, bits));
        measure(job, "copy", lineCopy(size_t{width} * static_cast<size_t>(bits) / 8));
    }
}

} // namespace rv::bench
