// Rows in another depth: common pairs, and the way by colours.
#include "Pictures.h"

#include <algorithm>

#if defined(RV_BENCH_IMGPROC)
#include <opencv2/imgproc.hpp>
#endif

namespace rv::bench {

namespace {

constexpr R_INT kWidth = 4000, kHeight = 3000;
constexpr size_t kPixels = size_t{kWidth} * kHeight;

struct Format {
    R_INT bits;
    R_INT order;
    size_t bytes() const { return kPixels * static_cast<size_t>(bits) / 8; }
};
constexpr Format kBits{1, ORDER_RGB}, kIndices{8, ORDER_RGB}, kGray{8, ORDER_GRAY}, kGray16{16, ORDER_GRAY},
    kColour{24, ORDER_BGR}, kAlpha{32, ORDER_BGR}, kDeep{48, ORDER_BGR};

void registerPair(const std::string& job, Format from, Format to)
{
    measure(job, "kernel", [=] {
        const auto source = std::make_shared<Bitmap>(kWidth, kHeight, from.bits);
        const auto target = std::make_shared<Bitmap>(kWidth, kHeight, to.bits);
        source->get()->Order = from.order;
        target->get()->Order = to.order;
        if (from.order == ORDER_GRAY && from.bits == 8) (void)R_CreateBitmapGrayPalette(source->get());
        if (to.order == ORDER_GRAY && to.bits == 8) (void)R_CreateBitmapGrayPalette(target->get());
        return [=] {
            BITMAPHANDLE* const in = source->get();
            BITMAPHANDLE* const out = target->get();
            // These rows have no bytes behind their pixels, so that all of them are one.
            return R_ConvertRow(out, out->Addr.Pointer, in, in->Addr.Pointer, R_UINT{kPixels}) == SUCCESS;
        };
    });
    measure(job, "copy", copyOf(std::max(from.bytes(), to.bytes())));
}

/// Of a whole picture that others convert from one block of memory to another: convert(target, source) says whether.
template <class Convert>
[[maybe_unused]] void registerPeer(const std::string& job, const std::string& who, Format from, Format to,
                                   Convert convert)
{
    measure(job, who, [=] {
        const auto source = std::make_shared<Warm>(from.bytes()), target = std::make_shared<Warm>(to.bytes());
        return [=] { return convert(target->data(), source->data()); };
    });
}

#if defined(RV_BENCH_IMGPROC)
void registerOpenCv(const std::string& job, Format from, int fromType, Format to, int toType, int code)
{
    registerPeer(job, "OpenCV", from, to, [=](uint8_t* out, uint8_t* in) {
        const cv::Mat source(kHeight, kWidth, fromType, in);
        cv::Mat target(kHeight, kWidth, toType, out);
        if (code >= 0)
            cv::cvtColor(source, target, code);
        else
            source.convertTo(target, toType, 257);
        return target.data == out;
    });
}
#endif

#if defined(RV_BENCH_LEPTONICA)
void registerLeptonica(const std::string& job, const std::string& who, int bits, Pix* (*convert)(Pix*))
{
    measure(job, who, [=] {
        const std::shared_ptr<Pix> source(pixCreate(kWidth, kHeight, bits), [](Pix* pix) { pixDestroy(&pix); });
        pixSetAllArbitrary(source.get(), 0x5A);
        return [=] {
            Pix* made = convert(source.get());
            const bool good = made != nullptr;
            pixDestroy(&made);
            return good;
        };
    });
}
#endif

void registerPeers()
{
#if defined(RV_BENCH_LIBYUV)
    registerPeer("24 to 32", "libyuv", kColour, kAlpha, [](uint8_t* out, uint8_t* in) {
        return libyuv::RGB24ToARGB(in, 3 * kWidth, out, 4 * kWidth, kWidth, kHeight) == 0;
    });
    registerPeer("32 to 24", "libyuv", kAlpha, kColour, [](uint8_t* out, uint8_t* in) {
        return libyuv::ARGBToRGB24(in, 4 * kWidth, out, 3 * kWidth, kWidth, kHeight) == 0;
    });
    registerPeer("24 to gray", "libyuv", kColour, kGray, [](uint8_t* out, uint8_t* in) {
        return libyuv::RGB24ToJ400(in, 3 * kWidth, out, kWidth, kWidth, kHeight) == 0;
    });
    registerPeer("gray to 24", "libyuv (32)", kGray, kAlpha, [](uint8_t* out, uint8_t* in) {
        return libyuv::J400ToARGB(in, kWidth, out, 4 * kWidth, kWidth, kHeight) == 0;
    });
    registerPeer("gray 8 to 16", "libyuv", kGray, kGray16, [](uint8_t* out, uint8_t* in) {
        libyuv::Convert8To16Plane(in, kWidth, reinterpret_cast<uint16_t*>(out), kWidth, 65536, kWidth, kHeight);
        return true;
    });
    registerPeer("gray 16 to 8", "libyuv", kGray16, kGray, [](uint8_t* out, uint8_t* in) {
        libyuv::Convert16To8Plane(reinterpret_cast<const uint16_t*>(in), kWidth, out, kWidth, 256, kWidth, kHeight);
        return true;
    });
#endif
#if defined(RV_BENCH_IMGPROC)
    registerOpenCv("24 to 32", kColour, CV_8UC3, kAlpha, CV_8UC4, cv::COLOR_BGR2BGRA);
    registerOpenCv("32 to 24", kAlpha, CV_8UC4, kColour, CV_8UC3, cv::COLOR_BGRA2BGR);
    registerOpenCv("24 to gray", kColour, CV_8UC3, kGray, CV_8UC1, cv::COLOR_BGR2GRAY);
    registerOpenCv("gray to 24", kGray, CV_8UC1, kColour, CV_8UC3, cv::COLOR_GRAY2BGR);
    registerOpenCv("24 red first to 24", kColour, CV_8UC3, kColour, CV_8UC3, cv::COLOR_BGR2RGB);
    registerOpenCv("24 to 48", kColour, CV_8UC3, kDeep, CV_16UC3, -1);
    registerOpenCv("gray 8 to 16", kGray, CV_8UC1, kGray16, CV_16UC1, -1);
#endif
#if defined(RV_BENCH_LEPTONICA)
    registerLeptonica("bits to bytes", "Leptonica", 1, [](Pix* p) { return pixConvert1To8(nullptr, p, 0, 255); });
    registerLeptonica("24 to 32", "Leptonica", 24, pixConvert24To32);
    registerLeptonica("32 to 24", "Leptonica", 32, pixConvert32To24);
    registerLeptonica("24 to gray", "Leptonica (32)", 32, pixConvertRGBToLuminance);
    registerLeptonica("gray to 24", "Leptonica (32)", 8, pixConvert8To32);
    registerLeptonica("gray 8 to 16", "Leptonica", 8, [](Pix* p) { return pixConvert8To16(p, 8); });
    registerLeptonica("gray 16 to 8", "Leptonica", 16, [](Pix* p) { return pixConvert16To8(p, L_MS_BYTE); });
#endif
}

} // namespace

void registerColorRes()
{
    registerPair("bits to bytes", kBits, kIndices);
    registerPair("24 to gray", kColour, kGray);
    registerPair("32 to gray", kAlpha, kGray);
    registerPair("gray to 24", kGray, kColour);
    registerPair("gray 8 to 16", kGray, kGray16);
    registerPair("gray 16 to 8", kGray16, kGray);
    registerPair("24 to 32", kColour, kAlpha);
    registerPair("32 to 24", kAlpha, kColour);
    registerPair("24 red first to 24", {24, ORDER_RGB}, kColour);
    registerPair("24 to 48", kColour, kDeep);
    registerPair("palette to 24", kIndices, kColour);
    registerPeers();
}

} // namespace rv::bench
