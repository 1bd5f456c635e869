#include "Png.h"

#include "Samples.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace rvimg {

namespace {

using png::bridged;
using png::guarded;

void writeBytes(png_structp png, png_bytep data, size_t bytes)
{
    bridged(png, [&] { static_cast<ByteSink*>(png_get_io_ptr(png))->write(data, bytes); });
}
void flushNothing(png_structp) {}

#if defined(RVIMG_PNG_HAS_EXIF)
constexpr bool kHasOrientation = true;
#else
constexpr bool kHasOrientation = false;
#endif

COLORREF colourKind(COLORREF colour) { return colour & COLOUR_KIND_MASK; }

class PngEncoder final : public Encoder {
public:
    explicit PngEncoder(ByteSink& sink) : sink_(sink)
    {
        png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, &message_, png::onError, png::onWarning);
        info_ = png_ != nullptr ? png_create_info_struct(png_) : nullptr;
        if (info_ == nullptr) throw Error("out of memory");
    }
    ~PngEncoder() override { png_destroy_write_struct(&png_, &info_); }
    PngEncoder(const PngEncoder&) = delete;
    PngEncoder& operator=(const PngEncoder&) = delete;

    void writePage(PixelRows& rows) override
    {
        const Layout& layout = rows.layout();
        guarded(png_, message_, [&] {
            png_set_write_fn(png_, &sink_, writeBytes, flushNothing);
            prepare(layout);
        });
        const RowOrder order(layout, kHasOrientation);
        if (kHasOrientation && layout.tagged) setOrientation(order.orientation);
        guarded(png_, message_, [&] { writeHeader(layout); });
        Row row(rows.rowBytes());
        for (R_INT i = 0; i < layout.height; ++i) {
            rows.get(order(i), row);
            guarded(png_, message_, [&] { png_write_row(png_, row.data()); });
        }
        guarded(png_, message_, [this] { png_write_end(png_, info_); });
    }

private:
    static int typeOf(const Layout& layout)
    {
        if (layout.hasPalette()) return rampOf(layout) == Ramp::rising ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_PALETTE;
        if (layout.isGray()) return PNG_COLOR_TYPE_GRAY;
        return layout.hasAlpha() ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
    }

    static int depthOf(const Layout& layout)
    {
        return layout.bits <= 16 ? layout.bits : layout.bits == 48 || layout.bits == 64 ? 16 : 8;
    }

    void prepare(const Layout& layout)
    {
        const int type = typeOf(layout);
        png_set_IHDR(png_, info_, static_cast<png_uint_32>(layout.width), static_cast<png_uint_32>(layout.height),
                     depthOf(layout), type, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        if (type == PNG_COLOR_TYPE_PALETTE) setPalette(layout);
        if (layout.transparency) setKey(*layout.transparency, type);
        if (layout.resolution)
            png_set_pHYs(png_, info_, perMetre(layout.resolution->x), perMetre(layout.resolution->y),
                         PNG_RESOLUTION_METER);
    }

    void setOrientation([[maybe_unused]] R_INT orientation)
    {
#if defined(RVIMG_PNG_HAS_EXIF)
        std::vector<uint8_t> block = makeExif(orientation);
        const auto bytes = static_cast<png_uint_32>(block.size() - kExifStart.size());
        guarded(png_, message_, [&] { png_set_eXIf_1(png_, info_, bytes, block.data() + kExifStart.size()); });
#endif
    }

    void writeHeader(const Layout& layout)
    {
        png_write_info(png_, info_);
        if (depthOf(layout) == 16 && std::endian::native == std::endian::little) png_set_swap(png_);
        if (layout.bits >= 24 && layout.order == ORDER_BGR) png_set_bgr(png_);
    }

    static png_uint_32 perMetre(R_INT perInch)
    {
        return static_cast<png_uint_32>(std::lround(static_cast<double>(perInch) / 0.0254));
    }

    void setPalette(const Layout& layout)
    {
        png_color colours[PNG_MAX_PALETTE_LENGTH] = {};
        const size_t count = std::min<size_t>(layout.palette.size(), PNG_MAX_PALETTE_LENGTH);
        for (size_t i = 0; i < count; ++i) {
            const RGBQUAD& entry = layout.palette[i];
            colours[i] = {entry.rgbRed, entry.rgbGreen, entry.rgbBlue};
        }
        png_set_PLTE(png_, info_, colours, static_cast<int>(count));
    }

    void setKey(COLORREF colour, int type)
    {
        png_color_16 key = {};
        key.gray = static_cast<png_uint_16>(colour & 0xFFFF);
        key.red = static_cast<png_uint_16>(colour & 0xFF);
        key.green = static_cast<png_uint_16>(colour >> 8 & 0xFF);
        key.blue = static_cast<png_uint_16>(colour >> 16 & 0xFF);
        png_byte alphas[PNG_MAX_PALETTE_LENGTH];
        std::fill_n(alphas, PNG_MAX_PALETTE_LENGTH, png_byte{255});
        const int index = static_cast<int>(colour & 0xFF);
        alphas[index] = 0;
        if (type == PNG_COLOR_TYPE_PALETTE)
            png_set_tRNS(png_, info_, alphas, index + 1, nullptr);
        else
            png_set_tRNS(png_, info_, nullptr, 0, &key);
    }

    ByteSink& sink_;
    png::Message message_;
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
};

std::unique_ptr<Encoder> createPng(ByteSink& sink, const WriteOptions&) { return std::make_unique<PngEncoder>(sink); }

bool isPng(std::span<const uint8_t> head) { return head.size() >= 8 && png_sig_cmp(head.data(), 0, 8) == 0; }

/// A colour value means something at its own depths only.
bool keyFits(const Layout& layout)
{
    if (!layout.transparency) return true;
    const COLORREF kind = colourKind(*layout.transparency);
    if (layout.hasPalette())
        return kind == COLOUR_PALETTE_INDEX && (*layout.transparency & 0xFFFFFF) < layout.palette.size();
    return layout.isGray() ? kind == COLOUR_GRAY_LEVEL : layout.bits == 24 && kind == COLOUR_RGB;
}

std::string refusal(const Layout& layout)
{
    const bool depth =
        layout.hasPalette() ? std::has_single_bit(static_cast<unsigned>(layout.bits)) : layout.bits != 12;
    const bool wholeGray = !layout.isGray() || layout.significantBits() == 16;
    const bool rgb555 = layout.bits == 16 && !layout.isGray();
    if (!depth || !wholeGray || rgb555 || layout.isSigned || layout.premultiplied) return describe(layout);
    return keyFits(layout) ? "" : "this transparent colour";
}

} // namespace

Format pngFormat()
{
    Format format;
    format.name = "PNG";
    format.endings = {"png"};
    format.orientation = kHasOrientation;
    format.recognises = isPng;
    format.open = openPng;
    format.create = createPng;
    format.refusal = refusal;
    return format;
}

} // namespace rvimg
