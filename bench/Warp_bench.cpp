// Sheets seen at an angle, and sheared pages, beside other libraries at the same work. New pictures are in memory that
// is in use already.
#include "Pictures.h"

#include <array>
#include <cstring>

namespace rv::bench {

namespace {

/// Each time there is a new bitmap over the old pixels, in a caller's memory; the made one takes its place.
template <class Work> MakeStep kernel(const Size& size, const Size& made, Work work)
{
    return [=] {
        const auto from = std::make_shared<Warm>(size.bytes());
        const auto to = std::make_shared<Warm>(made.bytes() + (size_t{1} << 20));
        if (size.bits == 1) std::memcpy(from->data(), pageOfText(), size_t{kPageWidth / 8} * kPageHeight);
        return [=] {
            BITMAPHANDLE bitmap;
            if (R_CreateBitmap(&bitmap, BITMAPHANDLE_SIZE, MEM_USER, size.width, size.height, size.bits,
                               size.bits == 8 ? ORDER_GRAY : ORDER_BGR, nullptr, TOP_LEFT, from->data(),
                               size.bytes()) != SUCCESS)
                return false;
            const bool done = lendMemory(&bitmap, to.get()) && work(&bitmap) == SUCCESS;
            R_FreeBitmap(&bitmap);
            return done;
        };
    };
}

/// A sheet that fills most of the picture, its upper side farther away.
using Corners = std::array<R_POINTF, 4>;
Corners sheetIn(const Size& size)
{
    const double w = size.width, h = size.height;
    return {{{w * 0.15, h * 0.05}, {w * 0.85, h * 0.1}, {w * 0.98, h * 0.95}, {w * 0.02, h * 0.9}}};
}

#if defined(RV_BENCH_OPENCV) && defined(RV_BENCH_IMGPROC)
MakeStep opencv(const Size& size, bool bilinear)
{
    return [=] {
        const auto from = std::make_shared<Warm>(size.bytes()), to = std::make_shared<Warm>(size.bytes());
        const int type = size.bits == 24 ? CV_8UC3 : CV_8UC1;
        const cv::Mat source(size.height, size.width, type, from->data(), size.rowBytes());
        const cv::Mat target(size.height, size.width, type, to->data(), size.rowBytes());
        const Corners sheet = sheetIn(size);
        const auto w = static_cast<float>(size.width), h = static_cast<float>(size.height);
        const cv::Point2f whole[] = {{0, 0}, {w, 0}, {w, h}, {0, h}};
        cv::Point2f corners[4];
        for (size_t i = 0; i < 4; ++i) corners[i] = {static_cast<float>(sheet[i].x), static_cast<float>(sheet[i].y)};
        const cv::Mat matrix = cv::getPerspectiveTransform(whole, corners);
        return [=, keep = std::pair(from, to)] {
            cv::Mat result = target;
            cv::warpPerspective(source, result, matrix, result.size(),
                                (bilinear ? cv::INTER_LINEAR : cv::INTER_NEAREST) | cv::WARP_INVERSE_MAP,
                                cv::BORDER_CONSTANT, cv::Scalar(255, 255, 255));
            return result.data == target.data;
        };
    };
}
#endif

#if defined(RV_BENCH_LEPTONICA)
std::shared_ptr<Pix> leptonicaPicture(const Size& size)
{
    return {pixCreate(size.width, size.height, size.bits == 24 ? 32 : size.bits), [](Pix* pix) { pixDestroy(&pix); }};
}

bool isMade(Pix* made)
{
    const bool done = made != nullptr;
    pixDestroy(&made);
    return done;
}

MakeStep leptonica(const Size& size, bool bilinear)
{
    return [=] {
        const auto picture = leptonicaPicture(size);
        const auto pointsOf = [](const Corners& corners) {
            const std::shared_ptr<Pta> points(ptaCreate(4), [](Pta* pta) { ptaDestroy(&pta); });
            for (const auto& [x, y] : corners) ptaAddPt(points.get(), static_cast<float>(x), static_cast<float>(y));
            return points;
        };
        const double w = size.width, h = size.height;
        const auto sheet = pointsOf(sheetIn(size)), whole = pointsOf({{{0, 0}, {w, 0}, {w, h}, {0, h}}});
        return [=] {
            return isMade((bilinear ? pixProjectivePta : pixProjectiveSampledPta)(picture.get(), whole.get(),
                                                                                  sheet.get(), L_BRING_IN_WHITE));
        };
    };
}

MakeStep leptonicaShear(const Size& size, double radians)
{
    return [=] {
        const auto picture = leptonicaPicture(size);
        return [=] {
            return isMade(
                pixHShear(nullptr, picture.get(), size.height, static_cast<float>(radians), L_BRING_IN_WHITE));
        };
    };
}
#endif

void registerWarp(const std::string& name, const Size& size, bool bilinear)
{
    measure(name, "kernel", kernel(size, size, [=](BITMAPHANDLE* bitmap) {
                const Corners sheet = sheetIn(size);
                return R_WarpBitmap(nullptr, bitmap, 0, sheet.data(), size.width, size.height,
                                    bilinear ? WARP_BILINEAR : 0, 0x00FFFFFF);
            }));
    measure(name, "copy", copyOf(size.bytes()));
#if defined(RV_BENCH_OPENCV) && defined(RV_BENCH_IMGPROC)
    if (size.bits >= 8) measure(name, "OpenCV", opencv(size, bilinear));
#endif
#if defined(RV_BENCH_LEPTONICA)
    measure(name, size.bits == 24 ? "Leptonica, new (32)" : "Leptonica, new", leptonica(size, bilinear));
#endif
}

void registerShear(const std::string& name, const Size& size, R_UINT flags)
{
    constexpr double kTangent = 0.0349207695; // of 2 degrees
    const bool columns = (flags & SHEAR_VERTICAL) != 0;
    Size made = size;
    (columns ? made.height : made.width) += static_cast<R_INT>(kTangent * (columns ? size.width : size.height)) + 1;
    measure(name, "kernel",
            kernel(size, made, [=](BITMAPHANDLE* bitmap) { return R_ShearBitmap(bitmap, 200, flags, 0x00FFFFFF); }));
    measure(name, "copy", copyOf(made.bytes()));
#if defined(RV_BENCH_LEPTONICA)
    if (flags == 0)
        measure(name, size.bits == 24 ? "Leptonica, new (32)" : "Leptonica, new", leptonicaShear(size, 2 * 0.0174533));
#endif
}

} // namespace

void registerWarps()
{
    constexpr Size page{kPageWidth, kPageHeight, 1};
    registerWarp("warp nearest 1", page, false);
    registerShear("shear 1", page, 0);
    registerShear("shear columns 1", page, SHEAR_VERTICAL);
    for (const R_INT bits : {8, 24}) {
        const Size size{4096, 4096, bits};
        const std::string depth = std::to_string(bits);
        registerWarp("warp nearest " + depth, size, false);
        registerWarp("warp bilinear " + depth, size, true);
        registerShear("shear " + depth, size, 0);
        registerShear("shear columns " + depth, size, SHEAR_VERTICAL);
    }
}

} // namespace rv::bench
