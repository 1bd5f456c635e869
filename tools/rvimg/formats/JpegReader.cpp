#include "Jpeg.h"

#include "Samples.h"
#if defined(RVIMG_HAVE_EXIF)
#include "Exif.h"
#endif

#include <algorithm>
#include <array>
#include <cmath>
#include <jerror.h>
#include <utility>

namespace rvimg {

namespace jpeg {

namespace {

extern "C" void exitByJump(j_common_ptr common)
{
    Errors& errors = errorsOf(common);
    char text[JMSG_LENGTH_MAX];
    common->err->format_message(common, text);
    errors.message = text;
    std::longjmp(errors.target, 1);
}

/// Some damage costs no pixel; the rest of what libjpeg calls a warning makes a picture that is not the stored one.
bool isHarmless(int code)
{
    return code == JWRN_EXTRANEOUS_DATA || code == JWRN_ADOBE_XFORM || code == JWRN_JFIF_MAJOR;
}

extern "C" void judgeMessage(j_common_ptr common, int level)
{
    if (level < 0 && !isHarmless(common->err->msg_code)) exitByJump(common);
}
extern "C" void keepQuiet(j_common_ptr) {}

} // namespace

Errors::Errors() : manager()
{
    jpeg_std_error(&manager);
    manager.error_exit = exitByJump;
    manager.emit_message = judgeMessage;
    manager.output_message = keepQuiet;
}

Errors& errorsOf(j_common_ptr common) { return *reinterpret_cast<Errors*>(common->err); }

} // namespace jpeg

namespace {

using jpeg::bridged;
using jpeg::guarded;

constexpr unsigned kExifMarker = JPEG_APP0 + 1;

/// libjpeg's source manager over a byte source.
struct Input {
    jpeg_source_mgr manager{}; ///< first, so that its address is ours
    ByteSource* source = nullptr;
    std::array<uint8_t, 65536> buffer{};
};

Input& inputOf(j_decompress_ptr info) { return *reinterpret_cast<Input*>(info->src); }
j_common_ptr common(j_decompress_ptr info) { return reinterpret_cast<j_common_ptr>(info); }

extern "C" {

void startInput(j_decompress_ptr) {}
void endInput(j_decompress_ptr) {}

boolean fillInput(j_decompress_ptr info)
{
    bridged(common(info), [info] {
        Input& input = inputOf(info);
        const size_t got = input.source->read(input.buffer.data(), input.buffer.size());
        if (got == 0) throw Error("the file is truncated");
        input.manager.next_input_byte = input.buffer.data();
        input.manager.bytes_in_buffer = got;
    });
    return TRUE;
}

void skipInput(j_decompress_ptr info, long count)
{
    jpeg_source_mgr& manager = inputOf(info).manager;
    auto left = static_cast<size_t>(std::max(count, 0L));
    while (left > manager.bytes_in_buffer) {
        left -= manager.bytes_in_buffer;
        fillInput(info);
    }
    manager.next_input_byte += left;
    manager.bytes_in_buffer -= left;
}

/// A small file can ask for passes over a large picture without end.
void limitScans(j_common_ptr anyone)
{
    constexpr int kMostScans = 500;
    if (!anyone->is_decompressor) return;
    bridged(anyone, [anyone] {
        throwIfInterrupted();
        if (reinterpret_cast<j_decompress_ptr>(anyone)->input_scan_number > kMostScans)
            throw Error("the picture has too many scans");
    });
}

} // extern "C"

class JpegDecoder final : public Decoder {
public:
    JpegDecoder(ByteSource& source, const ReadOptions& options) : source_(source), options_(options)
    {
        info_.err = &errors_.manager;
        guarded(errors_, [this] { jpeg_create_decompress(&info_); });
        input_.manager = {nullptr, 0, startInput, fillInput, skipInput, jpeg_resync_to_restart, endInput};
        input_.source = &source_;
        info_.src = &input_.manager;
        progress_.progress_monitor = limitScans;
        info_.progress = &progress_;
    }
    ~JpegDecoder() override { jpeg_destroy_decompress(&info_); }
    JpegDecoder(const JpegDecoder&) = delete;
    JpegDecoder& operator=(const JpegDecoder&) = delete;

    std::optional<Layout> next() override
    {
        if (std::exchange(read_, true)) return std::nullopt;
        guarded(errors_, [this] {
            jpeg_save_markers(&info_, kExifMarker, 0xFFFF);
            jpeg_read_header(&info_, TRUE);
        });
        Layout layout;
        layout.bits = chooseColours();
        if (layout.bits == 8) layout.palette = grayRamp(8);
        checkSize(info_.image_width, info_.image_height, layout.bits, options_);
        constexpr uint64_t kBestBlock = 512; // 64 pixels for one bit
        if (!info_.arith_code)
            checkPlausible(uint64_t{info_.image_width} * info_.image_height, source_.size(), kBestBlock);
        layout.width = static_cast<R_INT>(info_.image_width);
        layout.height = static_cast<R_INT>(info_.image_height);
        layout.encoding = info_.progressive_mode ? "progressive" : "sequential";
        readMarkers(layout);
        return layout;
    }

    void readRows(PixelRows& rows) override
    {
        guarded(errors_, [this] { jpeg_start_decompress(&info_); });
        Row row(rows.rowBytes());
        JSAMPROW line = row.data();
        for (R_INT y = 0; y < rows.height(); ++y) {
            guarded(errors_, [&] { jpeg_read_scanlines(&info_, &line, 1); });
            rows.put(y, row);
        }
        guarded(errors_, [this] { jpeg_finish_decompress(&info_); });
    }

private:
    /// Says what rows shall be, and answers their depth.
    R_INT chooseColours()
    {
        switch (info_.jpeg_color_space) {
        case JCS_GRAYSCALE: info_.out_color_space = JCS_GRAYSCALE; return 8;
        case JCS_RGB:
        case JCS_YCbCr: info_.out_color_space = JCS_RGB; return 24;
        case JCS_CMYK: throw Error("CMYK pictures are not supported");
        case JCS_YCCK: throw Error("CMYK pictures (stored as YCCK) are not supported");
        default: throw Error(text("pictures of ", info_.num_components, " components are not supported"));
        }
    }

    void readMarkers(Layout& layout)
    {
        constexpr double kDotsPerCentimetre = 2.54;
        const double scale = info_.density_unit == 1 ? 1 : info_.density_unit == 2 ? kDotsPerCentimetre : 0;
        if (info_.saw_JFIF_marker && scale > 0 && info_.X_density > 0 && info_.Y_density > 0)
            layout.resolution = Resolution{static_cast<R_INT>(std::lround(info_.X_density * scale)),
                                           static_cast<R_INT>(std::lround(info_.Y_density * scale))};
#if defined(RVIMG_HAVE_EXIF)
        for (auto* marker = info_.marker_list; marker != nullptr; marker = marker->next) {
            const std::span<const uint8_t> block(marker->data, marker->data_length);
            if (marker->marker != kExifMarker || block.size() < kExifStart.size()) continue;
            if (!std::equal(kExifStart.begin(), kExifStart.end(), block.begin())) continue;
            apply(readExif(block), layout);
            break;
        }
#endif
    }

    ByteSource& source_;
    ReadOptions options_;
    jpeg::Errors errors_;
    Input input_;
    jpeg_progress_mgr progress_{};
    jpeg_decompress_struct info_{};
    bool read_ = false;
};

} // namespace

std::unique_ptr<Decoder> openJpeg(ByteSource& source, const ReadOptions& options)
{
    return std::make_unique<JpegDecoder>(source, options);
}

} // namespace rvimg
