#include "Png.h"

#include "Samples.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

namespace rvimg {

namespace png {

void onError(png_structp png, png_const_charp message)
{
    *static_cast<Message*>(png_get_error_ptr(png)) = message;
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {} // what libpng reads in spite of is no failure

} // namespace png

namespace {

using png::bridged;
using png::guarded;

void readBytes(png_structp png, png_bytep data, size_t bytes)
{
    bridged(png, [&] { static_cast<ByteSource*>(png_get_io_ptr(png))->readAll(data, bytes); });
}

class PngDecoder final : public Decoder {
public:
    PngDecoder(ByteSource& source, const ReadOptions& options) : source_(source), options_(options)
    {
        png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, &message_, png::onError, png::onWarning);
        info_ = png_ != nullptr ? png_create_info_struct(png_) : nullptr;
        if (info_ == nullptr) throw Error("out of memory");
    }
    ~PngDecoder() override { png_destroy_read_struct(&png_, &info_, nullptr); }
    PngDecoder(const PngDecoder&) = delete;
    PngDecoder& operator=(const PngDecoder&) = delete;

    std::optional<Layout> next() override
    {
        if (std::exchange(read_, true)) return std::nullopt;
        guarded(png_, message_, [this] {
            png_set_read_fn(png_, &source_, readBytes);
            png_set_user_limits(png_, PNG_UINT_31_MAX, PNG_UINT_31_MAX); // our own limit counts bytes
            png_read_info(png_, info_);
        });
        const uint32_t width = png_get_image_width(png_, info_);
        const uint32_t height = png_get_image_height(png_, info_);
        Layout layout = pixelsOf();
        checkSize(width, height, layout.bits, options_);
        checkPlausible(uint64_t{height} * png_get_rowbytes(png_, info_), source_.size(), kBestDeflate);
        layout.width = static_cast<R_INT>(width);
        layout.height = static_cast<R_INT>(height);
        layout.resolution = resolutionOf();
#if defined(RVIMG_PNG_HAS_EXIF)
        apply(exifOf(), layout);
#endif
        layout.encoding = png_get_interlace_type(png_, info_) == PNG_INTERLACE_NONE ? "deflate" : "deflate, interlaced";
        return layout;
    }

    void readRows(PixelRows& rows) override
    {
        Row row(rows.rowBytes());
        int passes = 1;
        guarded(png_, message_, [&] {
            passes = png_set_interlace_handling(png_);
            png_read_update_info(png_, info_);
            if (png_get_rowbytes(png_, info_) != row.size()) png_error(png_, "rows of an unexpected size");
        });
        for (int pass = 0; pass < passes; ++pass)
            for (R_INT y = 0; y < rows.height(); ++y) {
                if (pass > 0) rows.get(y, row); // a pass fills in what the ones before it left out
                guarded(png_, message_, [&] { png_read_row(png_, row.data(), nullptr); });
                rows.put(y, row);
            }
        guarded(png_, message_, [this] { png_read_end(png_, info_); });
#if defined(RVIMG_PNG_HAS_EXIF)
        // A block may stand behind the pixels too, where it comes too late to turn them.
        const R_INT orientation = exifOf().orientation;
        if (!rows.layout().tagged && orientation > TOP_LEFT)
            throw Error(text("the orientation ", perspectiveName(orientation), " behind the pixels is not supported"));
#endif
    }

private:
    static constexpr uint64_t kBestDeflate = 1032; ///< the most bytes that one compressed byte can stand for

    Layout pixelsOf()
    {
        const int depth = png_get_bit_depth(png_, info_);
        const int type = png_get_color_type(png_, info_);
        const Alphas alphas = type == PNG_COLOR_TYPE_PALETTE ? paletteAlphas() : Alphas{};
        const bool hasKey = type != PNG_COLOR_TYPE_PALETTE && png_get_valid(png_, info_, PNG_INFO_tRNS) != 0;
        if (depth == 16 && std::endian::native == std::endian::little) png_set_swap(png_);
        Layout layout;
        if (type == PNG_COLOR_TYPE_PALETTE && !alphas.shades) {
            layout.bits = depth;
            layout.palette = paletteOf();
            layout.transparency = alphas.key;
        } else if (type == PNG_COLOR_TYPE_GRAY) {
            layout.bits = depth;
            if (depth <= 8)
                layout.palette = grayRamp(depth);
            else
                layout.order = ORDER_GRAY;
        } else {
            expandTo(layout, type, depth, hasKey);
        }
        if (hasKey) layout.transparency = keyOf(layout, type);
        return layout;
    }

    /// Colour by component: with alpha where anything says how transparent pixels are.
    void expandTo(Layout& layout, int type, int depth, bool hasKey)
    {
        const bool fineKey = type == PNG_COLOR_TYPE_RGB && depth == 16 && hasKey; // no colour value is that fine
        const bool alpha = (type & PNG_COLOR_MASK_ALPHA) != 0 || type == PNG_COLOR_TYPE_PALETTE || fineKey;
        if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png_);
        if (type == PNG_COLOR_TYPE_PALETTE || fineKey) png_set_tRNS_to_alpha(png_);
        if (type == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png_);
        layout.bits = (alpha ? 32 : 24) * (depth == 16 ? 2 : 1);
    }

#if defined(RVIMG_PNG_HAS_EXIF)
    ExifFacts exifOf()
    {
        png_uint_32 bytes = 0;
        png_bytep data = nullptr;
        if (png_get_eXIf_1(png_, info_, &bytes, &data) == 0) return {};
        std::vector<uint8_t> block(kExifStart.begin(), kExifStart.end());
        block.insert(block.end(), data, data + bytes);
        return readExif(block);
    }
#endif

    /// How transparent the entries of a palette are.
    struct Alphas {
        bool shades = false;         ///< in a way that only alpha by pixel can tell
        std::optional<COLORREF> key; ///< the one entry that is not opaque
    };

    Alphas paletteAlphas()
    {
        png_bytep alphas = nullptr;
        int count = 0;
        if (png_get_tRNS(png_, info_, &alphas, &count, nullptr) == 0) return {};
        const auto isOpaque = [](png_byte alpha) { return alpha == 255; };
        const png_byte* const end = alphas + count;
        const png_byte* const first = std::find_if_not(alphas, alphas + count, isOpaque);
        if (first == end) return {};
        if (*first != 0 || !std::all_of(first + 1, end, isOpaque)) return {true, std::nullopt};
        return {false, COLOUR_PALETTE_INDEX | static_cast<COLORREF>(first - alphas)};
    }

    std::vector<RGBQUAD> paletteOf()
    {
        png_colorp colours = nullptr;
        int count = 0;
        png_get_PLTE(png_, info_, &colours, &count);
        std::vector<RGBQUAD> palette;
        palette.reserve(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) palette.push_back({colours[i].blue, colours[i].green, colours[i].red, 0});
        return palette;
    }

    std::optional<COLORREF> keyOf(const Layout& layout, int type)
    {
        png_color_16p key = nullptr;
        png_get_tRNS(png_, info_, nullptr, nullptr, &key);
        if (key == nullptr) return std::nullopt;
        if (type == PNG_COLOR_TYPE_GRAY)
            return (layout.bits <= 8 ? COLOUR_PALETTE_INDEX : COLOUR_GRAY_LEVEL) | COLORREF{key->gray};
        if (layout.bits != 24) return std::nullopt; // it has become alpha
        return COLORREF{key->red} | COLORREF{key->green} << 8 | COLORREF{key->blue} << 16;
    }

    std::optional<Resolution> resolutionOf()
    {
        png_uint_32 x = 0, y = 0;
        int unit = PNG_RESOLUTION_UNKNOWN;
        if (png_get_pHYs(png_, info_, &x, &y, &unit) == 0 || unit != PNG_RESOLUTION_METER) return std::nullopt;
        if (x == 0 || y == 0) return std::nullopt;
        return Resolution{static_cast<R_INT>(std::lround(x * 0.0254)), static_cast<R_INT>(std::lround(y * 0.0254))};
    }

    ByteSource& source_;
    ReadOptions options_;
    png::Message message_;
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
    bool read_ = false;
};

} // namespace

std::unique_ptr<Decoder> openPng(ByteSource& source, const ReadOptions& options)
{
    return std::make_unique<PngDecoder>(source, options);
}

} // namespace rvimg
