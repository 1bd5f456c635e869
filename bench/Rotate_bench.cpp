// Rotation by angles that are no quarters, beside other libraries at the same work. Pictures of 8 and 24 bits grow to
// hold the whole turned one, whose memory is in use already.
#include "Pictures.h"

#include <cmath>
#include <cstring>

namespace rv::bench {

namespace {

/// A rotation of a picture of so many bits: clockwise, by degrees.
struct Rotation {
    Size size;
    int degrees;
    bool bilinear;
    bool grows;

    double radians() const { return degrees * 3.14159265358979323846 / 180; }
    Size turned() const
    {
        if (!grows) return size;
        const double sine = std::abs(std::sin(radians())), cosine = std::abs(std::cos(radians()));
        return {static_cast<R_INT>(size.width * cosine + size.height * sine + 0.6),
                static_cast<R_INT>(size.width * sine + size.height * cosine + 0.6), size.bits};
    }
    /// The first two rows of the matrix that turns a new picture's positions into the old one's.
    std::array<double, 6> back() const
    {
        const Size grown = turned();
        const double sine = std::sin(radians()), cosine = std::cos(radians());
        const double x = grown.width / 2.0, y = grown.height / 2.0;
        return {cosine, sine,   size.width / 2.0 - cosine * x - sine * y,
                -sine,  cosine, size.height / 2.0 + sine * x - cosine * y};
    }
};

/// A page of text where there is 1 bit, else noise.
std::shared_ptr<Warm> pictureOf(const Size& size)
{
    const auto picture = std::make_shared<Warm>(size.bytes());
    if (size.bits == 1)
        for (R_INT y = 0; y < size.height; ++y)
            std::memcpy(picture->data() + static_cast<size_t>(y) * size.rowBytes(),
                        pageOfText() + static_cast<size_t>(y) * (kPageWidth / 8), kPageWidth / 8);
    return picture;
}

/// A rotated bitmap takes the old one's place, so each time there is a new old one, in a caller's memory.
MakeStep kernel(const Rotation& job)
{
    return [=] {
        const auto from = pictureOf(job.size);
        const auto to = std::make_shared<Warm>(job.turned().bytes() + (size_t{1} << 20));
        const R_UINT flags = (job.bilinear ? ROTATE_BILINEAR : 0) | (job.grows ? ROTATE_RESIZE : 0);
        return [=] {
            BITMAPHANDLE bitmap;
            if (R_CreateBitmap(&bitmap, BITMAPHANDLE_SIZE, MEM_USER, job.size.width, job.size.height, job.size.bits,
                               job.size.bits == 8 ? ORDER_GRAY : ORDER_BGR, nullptr, TOP_LEFT, from->data(),
                               job.size.bytes()) != SUCCESS)
                return false;
            const bool done = lendMemory(&bitmap, to.get()) &&
                              R_RotateBitmap(&bitmap, job.degrees * 100, flags, 0x00FFFFFF) == SUCCESS &&
                              bitmap.Addr.Pointer == to->data();
            R_FreeBitmap(&bitmap);
            return done;
        };
    };
}

#if defined(RV_BENCH_OPENCV) && defined(RV_BENCH_IMGPROC)
MakeStep opencv(const Rotation& job)
{
    return [=] {
        const Size grown = job.turned();
        const auto from = pictureOf(job.size), to = std::make_shared<Warm>(grown.bytes());
        const int type = job.size.bits == 24 ? CV_8UC3 : CV_8UC1;
        const cv::Mat source(job.size.height, job.size.width, type, from->data(), job.size.rowBytes());
        const cv::Mat target(grown.height, grown.width, type, to->data(), grown.rowBytes());
        return [=, keep = std::pair(from, to)] {
            cv::Mat result = target;
            const std::array<double, 6> back = job.back();
            const cv::Mat matrix(2, 3, CV_64F, const_cast<double*>(back.data()));
            cv::warpAffine(source, result, matrix, result.size(),
                           (job.bilinear ? cv::INTER_LINEAR : cv::INTER_NEAREST) | cv::WARP_INVERSE_MAP,
                           cv::BORDER_CONSTANT, cv::Scalar(255, 255, 255));
            return result.data == target.data;
        };
    };
}
#endif

#if defined(RV_BENCH_PIXMAN)
/// Of 8 bits, and of 32 in place of 24.
MakeStep pixman(Rotation job)
{
    if (job.size.bits == 24) job.size.bits = 32;
    return [=] {
        const Size grown = job.turned();
        const auto from = std::make_shared<Warm>(job.size.bytes()), to = std::make_shared<Warm>(grown.bytes());
        const pixman_format_code_t format = job.size.bits == 8 ? PIXMAN_a8 : PIXMAN_x8r8g8b8;
        const auto imageOf = [format](const Size& size, Warm& block) {
            return std::shared_ptr<pixman_image_t>(pixman_image_create_bits(format, size.width, size.height,
                                                                            reinterpret_cast<uint32_t*>(block.data()),
                                                                            static_cast<int>(size.rowBytes())),
                                                   pixman_image_unref);
        };
        const auto source = imageOf(job.size, *from), target = imageOf(grown, *to);
        const std::array<double, 6> back = job.back();
        pixman_f_transform_t matrix = {{{back[0], back[1], back[2]}, {back[3], back[4], back[5]}, {0, 0, 1}}};
        pixman_transform_t fixed;
        pixman_transform_from_pixman_f_transform(&fixed, &matrix);
        pixman_image_set_transform(source.get(), &fixed);
        pixman_image_set_filter(source.get(), job.bilinear ? PIXMAN_FILTER_BILINEAR : PIXMAN_FILTER_NEAREST, nullptr,
                                0);
        return [=, keep = std::pair(from, to)] {
            pixman_image_composite32(PIXMAN_OP_SRC, source.get(), nullptr, target.get(), 0, 0, 0, 0, 0, 0, grown.width,
                                     grown.height);
            return true;
        };
    };
}
#endif

#if defined(RV_BENCH_LEPTONICA)
/// A new picture each time; 24 bits are 32 there.
MakeStep leptonica(const Rotation& job)
{
    return [=] {
        const std::shared_ptr<Pix> picture(
            pixCreate(job.size.width, job.size.height, job.size.bits == 24 ? 32 : job.size.bits),
            [](Pix* pix) { pixDestroy(&pix); });
        return [=] {
            const int width = job.grows ? job.size.width : 0, height = job.grows ? job.size.height : 0;
            Pix* turned =
                pixRotate(picture.get(), static_cast<float>(job.radians()),
                          job.bilinear ? L_ROTATE_AREA_MAP : L_ROTATE_SAMPLING, L_BRING_IN_WHITE, width, height);
            const bool done = turned != nullptr;
            pixDestroy(&turned);
            return done;
        };
    };
}
#endif

void registerRotation(const std::string& name, const Rotation& job)
{
    measure(name, "kernel", kernel(job));
    measure(name, "copy", copyOf(job.turned().bytes()));
#if defined(RV_BENCH_OPENCV) && defined(RV_BENCH_IMGPROC)
    if (job.size.bits >= 8) measure(name, "OpenCV", opencv(job));
#endif
#if defined(RV_BENCH_PIXMAN)
    if (job.size.bits >= 8) measure(name, job.size.bits == 24 ? "pixman (32)" : "pixman", pixman(job));
#endif
#if defined(RV_BENCH_LEPTONICA)
    measure(name, job.size.bits == 24 ? "Leptonica, new (32)" : "Leptonica, new", leptonica(job));
#endif
}

} // namespace

void registerRotations()
{
    constexpr Size page{kPageWidth, kPageHeight, 1};
    registerRotation("rotate 30 nearest 1", {page, 30, false, true});
    registerRotation("deskew 1", {page, 2, false, false});
    for (const R_INT bits : {8, 24}) {
        const Size size{4096, 4096, bits};
        const std::string depth = std::to_string(bits);
        registerRotation("rotate 30 nearest " + depth, {size, 30, false, true});
        registerRotation("rotate 30 bilinear " + depth, {size, 30, true, true});
    }
}

} // namespace rv::bench
