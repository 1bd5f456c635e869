#include "Bmp.h"

#include "Error.h"
#include "Samples.h"

#include <cmath>

namespace rvimg {

using namespace bmp;

namespace {

class HeaderBytes {
public:
    void u16(uint32_t value)
    {
        bytes_.push_back(static_cast<uint8_t>(value));
        bytes_.push_back(static_cast<uint8_t>(value >> 8));
    }
    void u32(uint32_t value)
    {
        u16(value & 0xFFFF);
        u16(value >> 16);
    }
    void i32(int32_t value) { u32(static_cast<uint32_t>(value)); }
    const Row& bytes() const { return bytes_; }

private:
    Row bytes_;
};

int32_t perMetre(R_INT perInch) { return static_cast<int32_t>(std::lround(static_cast<double>(perInch) / 0.0254)); }

/// Alpha has a place only where bit fields are declared.
void putMasks(HeaderBytes& header)
{
    constexpr uint32_t kStandardColours = 0x73524742;
    constexpr size_t kUnused = 12; // end points and gamma, which standard colours do without
    for (const uint32_t mask : {kMasks8888.red, kMasks8888.green, kMasks8888.blue, kMasks8888.alpha}) header.u32(mask);
    header.u32(kStandardColours);
    for (size_t i = 0; i < kUnused; ++i) header.u32(0);
}

Row headerOf(const Layout& layout)
{
    const bool alpha = layout.hasAlpha();
    const auto colours = static_cast<uint32_t>(layout.palette.size());
    const uint32_t headerBytes = alpha ? kV4Header : kInfoHeader;
    const uint32_t pixelsAt = kFileHeaderBytes + headerBytes + colours * 4;
    const uint64_t pixelBytes =
        pitch(layout.pixels(), static_cast<unsigned>(layout.bits)) * static_cast<uint64_t>(layout.height);
    if (pixelBytes > UINT32_MAX - pixelsAt) throw Error("BMP cannot hold more than 4 GiB");
    HeaderBytes header;
    header.u16(0x4D42); // "BM"
    header.u32(pixelsAt + static_cast<uint32_t>(pixelBytes));
    header.u32(0);
    header.u32(pixelsAt);
    header.u32(headerBytes);
    header.i32(layout.width);
    header.i32(layout.perspective == TOP_LEFT ? -layout.height : layout.height);
    header.u16(1);
    header.u16(static_cast<uint32_t>(layout.bits));
    header.u32(alpha ? kBitFields : kRgb);
    header.u32(static_cast<uint32_t>(pixelBytes));
    header.i32(layout.resolution ? perMetre(layout.resolution->x) : 0);
    header.i32(layout.resolution ? perMetre(layout.resolution->y) : 0);
    header.u32(colours);
    header.u32(0);
    if (alpha) putMasks(header);
    for (const RGBQUAD& entry : layout.palette)
        header.u32(entry.rgbBlue | uint32_t{entry.rgbGreen} << 8 | uint32_t{entry.rgbRed} << 16);
    return header.bytes();
}

class BmpEncoder final : public Encoder {
public:
    explicit BmpEncoder(ByteSink& sink) : sink_(sink) {}

    /// Rows go out as they are stored: the header says where they start.
    void writePage(PixelRows& rows) override
    {
        const Layout& layout = rows.layout();
        const Row header = headerOf(layout);
        sink_.write(header.data(), header.size());
        Row row(static_cast<size_t>(pitch(layout.pixels(), static_cast<unsigned>(layout.bits))));
        const bool swap = layout.bits >= 24 && layout.order == ORDER_RGB;
        for (R_INT y = 0; y < layout.height; ++y) {
            rows.get(y, row);
            if (swap) swapRedBlue(row.data(), layout.pixels(), static_cast<size_t>(layout.bits / 8), 1);
            sink_.write(row.data(), row.size());
        }
    }

private:
    ByteSink& sink_;
};

bool isBmp(std::span<const uint8_t> head) { return head.size() >= 2 && head[0] == 'B' && head[1] == 'M'; }

std::string refusal(const Layout& layout)
{
    const bool depth = layout.bits == 1 || layout.bits == 4 || layout.bits == 8 || layout.bits == 16 ||
                       layout.bits == 24 || layout.bits == 32;
    if (!depth || layout.isGray() || layout.isSigned || layout.premultiplied) return describe(layout);
    return layout.transparency ? "a transparent colour" : "";
}

} // namespace

std::unique_ptr<Encoder> createBmp(ByteSink& sink, const WriteOptions&) { return std::make_unique<BmpEncoder>(sink); }

Format bmpFormat()
{
    Format format;
    format.name = "BMP";
    format.endings = {"bmp", "dib"};
    format.recognises = isBmp;
    format.open = openBmp;
    format.create = createBmp;
    format.refusal = refusal;
    return format;
}

} // namespace rvimg
