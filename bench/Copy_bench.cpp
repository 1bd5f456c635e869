// Copies of whole pictures and of rectangles, beside other libraries at the same work. A rectangle of ours is a new
// bitmap each time, so peers that make a new one stand beside those that write to memory they have.
#include "Pictures.h"

namespace rv::bench {

namespace {

/// A picture and the rectangle that is taken.
struct Cut {
    R_INT width;
    R_INT height;
    R_INT bits;
    R_INT left;
    R_INT top;
    R_INT cutWidth;
    R_INT cutHeight;

    size_t bytes() const { return rowBytesOf(width, bits) * static_cast<size_t>(height); }
    size_t cutBytes() const { return rowBytesOf(cutWidth, bits) * static_cast<size_t>(cutHeight); }
};

/// Rows from one bitmap to another.
MakeStep kernelData(const Cut& cut)
{
    return [=] {
        const auto from = std::make_shared<Bitmap>(cut.width, cut.height, cut.bits);
        const auto to = std::make_shared<Bitmap>(cut.width, cut.height, cut.bits);
        return [=] { return R_CopyBitmapData(to->get(), from->get()) == SUCCESS; };
    };
}

MakeStep kernelNew(const Cut& cut)
{
    return [=] {
        const auto from = std::make_shared<Bitmap>(cut.width, cut.height, cut.bits);
        return [=] {
            BITMAPHANDLE made;
            const R_INT status =
                R_CopyBitmapRect(&made, from->get(), BITMAPHANDLE_SIZE, cut.left, cut.top,
                                 static_cast<R_UINT>(cut.cutWidth), static_cast<R_UINT>(cut.cutHeight));
            if (status == SUCCESS) R_FreeBitmap(&made);
            return status == SUCCESS;
        };
    };
}

#if defined(RV_BENCH_OPENCV)
MakeStep opencv(const Cut& cut, bool makesNew)
{
    return [=] {
        const auto from = std::make_shared<Warm>(cut.bytes()), to = std::make_shared<Warm>(cut.cutBytes());
        const int type = cut.bits == 24 ? CV_8UC3 : CV_8UC1;
        const cv::Mat source(cut.height, cut.width, type, from->data(), rowBytesOf(cut.width, cut.bits));
        const cv::Mat part = source(cv::Rect(cut.left, cut.top, cut.cutWidth, cut.cutHeight));
        const cv::Mat target(cut.cutHeight, cut.cutWidth, type, to->data(), rowBytesOf(cut.cutWidth, cut.bits));
        return [=, keep = std::pair(from, to)] {
            if (makesNew) return part.clone().data != nullptr;
            cv::Mat result = target;
            part.copyTo(result);
            return result.data == target.data;
        };
    };
}
#endif

#if defined(RV_BENCH_LIBYUV)
MakeStep libyuv(const Cut& cut)
{
    return [=] {
        const auto from = std::make_shared<Warm>(cut.bytes()), to = std::make_shared<Warm>(cut.cutBytes());
        const size_t samples = static_cast<size_t>(cut.bits / 8), pitch = rowBytesOf(cut.width, cut.bits);
        const uint8_t* const first =
            from->data() + static_cast<size_t>(cut.top) * pitch + static_cast<size_t>(cut.left) * samples;
        return [=, keep = std::pair(from, to)] {
            libyuv::CopyPlane(first, static_cast<int>(pitch), to->data(),
                              static_cast<int>(rowBytesOf(cut.cutWidth, cut.bits)),
                              cut.cutWidth * static_cast<int>(samples), cut.cutHeight);
            return true;
        };
    };
}
#endif

#if defined(RV_BENCH_LEPTONICA)
using PixPtr = std::shared_ptr<Pix>;
PixPtr newPix(R_INT width, R_INT height, R_INT bits)
{
    const PixPtr pix(pixCreate(width, height, bits == 24 ? 32 : bits), [](Pix* p) { pixDestroy(&p); });
    pixSetAll(pix.get());
    return pix;
}

/// 24 bits are 32 there.
MakeStep leptonica(const Cut& cut, bool makesNew)
{
    return [=] {
        const PixPtr from = newPix(cut.width, cut.height, cut.bits), to = newPix(cut.cutWidth, cut.cutHeight, cut.bits);
        if (!makesNew)
            return Step([=] {
                return pixRasterop(to.get(), 0, 0, cut.cutWidth, cut.cutHeight, PIX_SRC, from.get(), cut.left,
                                   cut.top) == 0;
            });
        return Step([=] {
            Box* box = boxCreate(cut.left, cut.top, cut.cutWidth, cut.cutHeight);
            Pix* made = pixClipRectangle(from.get(), box, nullptr);
            boxDestroy(&box);
            const bool done = made != nullptr;
            pixDestroy(&made);
            return done;
        });
    };
}
#endif

void registerPeers(const std::string& job, const Cut& cut)
{
    measure(job, "copy", copyOf(cut.cutBytes()));
#if defined(RV_BENCH_OPENCV)
    if (cut.bits >= 8) {
        measure(job, "OpenCV", opencv(cut, false));
        measure(job, "OpenCV, new", opencv(cut, true));
    }
#endif
#if defined(RV_BENCH_LIBYUV)
    if (cut.bits >= 8) measure(job, "libyuv", libyuv(cut));
#endif
#if defined(RV_BENCH_LEPTONICA)
    const std::string who = cut.bits == 24 ? "Leptonica (32)" : "Leptonica";
    measure(job, who, leptonica(cut, false));
    measure(job, who + ", new", leptonica(cut, true));
#endif
}

void registerWhole(const std::string& job, R_INT width, R_INT height, R_INT bits)
{
    const Cut whole{width, height, bits, 0, 0, width, height};
    measure(job, "kernel", kernelData(whole));
    measure(job, "kernel, new", kernelNew(whole));
    registerPeers(job, whole);
}

void registerRectangle(const std::string& job, const Cut& cut)
{
    measure(job, "kernel", kernelNew(cut));
    registerPeers(job, cut);
}

} // namespace

void registerCopies()
{
    registerWhole("copy 1", 2480, 3508, 1);
    registerWhole("copy 8", 4096, 4096, 8);
    registerWhole("copy 24", 4096, 4096, 24);
    registerRectangle("copy rect 1 aligned", {2480, 3508, 1, 64, 64, 2048, 3000});
    registerRectangle("copy rect 1 odd", {2480, 3508, 1, 13, 64, 2048, 3000});
    registerRectangle("copy rect 1 odd, large", {9920, 14032, 1, 13, 64, 9001, 13001});
    registerRectangle("copy rect 24", {4096, 4096, 24, 501, 300, 3000, 3000});
}

} // namespace rv::bench
