#include "Jpeg.h"

#include "Samples.h"
#if defined(RVIMG_HAVE_EXIF)
#include "Exif.h"
#endif

#include <algorithm>
#include <array>

namespace rvimg {

namespace {

using jpeg::bridged;
using jpeg::guarded;

/// libjpeg's destination manager over a byte sink.
struct Output {
    jpeg_destination_mgr manager{}; ///< first, so that its address is ours
    ByteSink* sink = nullptr;
    std::array<uint8_t, 65536> buffer{};
};

Output& outputOf(j_compress_ptr info) { return *reinterpret_cast<Output*>(info->dest); }

void flush(j_compress_ptr info, size_t bytes)
{
    bridged(reinterpret_cast<j_common_ptr>(info),
            [=] { outputOf(info).sink->write(outputOf(info).buffer.data(), bytes); });
}

extern "C" {

void startOutput(j_compress_ptr info)
{
    Output& output = outputOf(info);
    output.manager.next_output_byte = output.buffer.data();
    output.manager.free_in_buffer = output.buffer.size();
}
boolean emptyOutput(j_compress_ptr info)
{
    flush(info, outputOf(info).buffer.size());
    startOutput(info);
    return TRUE;
}
void endOutput(j_compress_ptr info)
{
    flush(info, outputOf(info).buffer.size() - outputOf(info).manager.free_in_buffer);
}

} // extern "C"

class JpegEncoder final : public Encoder {
public:
    JpegEncoder(ByteSink& sink, int quality) : quality_(quality)
    {
        info_.err = &errors_.manager;
        guarded(errors_, [this] { jpeg_create_compress(&info_); });
        output_.manager = {nullptr, 0, startOutput, emptyOutput, endOutput};
        output_.sink = &sink;
        info_.dest = &output_.manager;
    }
    ~JpegEncoder() override { jpeg_destroy_compress(&info_); }
    JpegEncoder(const JpegEncoder&) = delete;
    JpegEncoder& operator=(const JpegEncoder&) = delete;

    void writePage(PixelRows& rows) override
    {
        const Layout& layout = rows.layout();
        const RowOrder order(layout, true);
        guarded(errors_, [&] { start(layout); });
#if defined(RVIMG_HAVE_EXIF)
        if (layout.tagged) {
            const std::vector<uint8_t> exif = makeExif(order.orientation);
            guarded(errors_,
                    [&] { jpeg_write_marker(&info_, JPEG_APP0 + 1, exif.data(), static_cast<unsigned>(exif.size())); });
        }
#endif
        const auto levels = grayLevels(layout);
        Row row(rows.rowBytes());
        JSAMPROW line = row.data();
        for (R_INT i = 0; i < layout.height; ++i) {
            rows.get(order(i), row);
            if (levels)
                for (uint8_t& sample : row) sample = (*levels)[sample];
            guarded(errors_, [&] { jpeg_write_scanlines(&info_, &line, 1); });
        }
        guarded(errors_, [this] { jpeg_finish_compress(&info_); });
    }

private:
    void start(const Layout& layout)
    {
        const bool gray = layout.bits == 8;
        info_.image_width = static_cast<JDIMENSION>(layout.width);
        info_.image_height = static_cast<JDIMENSION>(layout.height);
        info_.input_components = gray ? 1 : 3;
        info_.in_color_space = gray ? JCS_GRAYSCALE : layout.order == ORDER_BGR ? JCS_EXT_BGR : JCS_RGB;
        jpeg_set_defaults(&info_);
        jpeg_set_quality(&info_, quality_, TRUE);
        // Tables made for the picture need all of it in memory, as coefficients.
        constexpr int64_t kSmall = int64_t{1} << 24;
        info_.optimize_coding = int64_t{layout.width} * layout.height <= kSmall ? TRUE : FALSE;
        constexpr int kFineQuality = 90; // from here on colour keeps its full resolution
        if (!gray && quality_ >= kFineQuality) info_.comp_info[0].h_samp_factor = info_.comp_info[0].v_samp_factor = 1;
        if (layout.resolution) {
            info_.density_unit = 1;
            info_.X_density = density(layout.resolution->x);
            info_.Y_density = density(layout.resolution->y);
        }
        jpeg_start_compress(&info_, TRUE);
    }

    static UINT16 density(R_INT perInch) { return static_cast<UINT16>(std::clamp(perInch, 1, 65535)); }

    int quality_;
    jpeg::Errors errors_;
    Output output_;
    jpeg_compress_struct info_{};
};

std::unique_ptr<Encoder> createJpeg(ByteSink& sink, const WriteOptions& options)
{
    return std::make_unique<JpegEncoder>(sink, options.quality);
}

bool isJpeg(std::span<const uint8_t> head)
{
    return head.size() >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF;
}

std::string refusal(const Layout& layout)
{
    if (layout.transparency) return "a transparent colour";
    return layout.bits == 24 || grayLevels(layout) ? "" : describe(layout);
}

} // namespace

Format jpegFormat()
{
    Format format;
    format.name = "JPEG";
    format.endings = {"jpg", "jpeg", "jpe", "jfif"};
#if defined(RVIMG_HAVE_EXIF)
    format.orientation = true;
#endif
    format.recognises = isJpeg;
    format.open = openJpeg;
    format.create = createJpeg;
    format.refusal = refusal;
    return format;
}

} // namespace rvimg
