#include "Bmp.h"

#include "Error.h"
#include "Samples.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <utility>

namespace rvimg {

using namespace bmp;

namespace {

class Bytes {
public:
    explicit Bytes(std::span<const uint8_t> bytes) : bytes_(bytes) {}
    uint32_t u16(size_t at) const { return bytes_[at] | uint32_t{bytes_[at + 1]} << 8; }
    uint32_t u32(size_t at) const { return u16(at) | u16(at + 2) << 16; }
    int64_t i32(size_t at) const { return static_cast<int32_t>(u32(at)); }

private:
    std::span<const uint8_t> bytes_;
};

struct Header {
    uint32_t bytes = 0; ///< of the header itself
    int64_t width = 0;
    int64_t height = 0; ///< negative: rows run from the top
    unsigned bits = 0;
    uint32_t compression = kRgb;
    uint32_t colours = 0;
    int64_t xPerMetre = 0;
    int64_t yPerMetre = 0;
    Masks masks{};
    uint64_t paletteAt = 0;
    uint64_t pixelsAt = 0;
};

bool isRle(const Header& header) { return header.compression == kRle8 || header.compression == kRle4; }

[[noreturn]] void throwCorrupt(const char* what) { throw Error(text("the BMP file is corrupt: ", what)); }

void parseCore(Header& header, const Bytes& bytes)
{
    header.width = bytes.u16(4);
    header.height = bytes.u16(6);
    header.bits = bytes.u16(10);
}

void parseInfo(Header& header, const Bytes& bytes)
{
    header.width = bytes.i32(4);
    header.height = bytes.i32(8);
    header.bits = bytes.u16(14);
    header.compression = bytes.u32(16);
    if (header.bytes < kInfoHeader) return;
    header.xPerMetre = bytes.i32(24);
    header.yPerMetre = bytes.i32(28);
    header.colours = bytes.u32(32);
}

/// Bit fields stand in a longer header, or behind one of 40 bytes.
void parseMasks(Header& header, const Bytes& bytes, ByteSource& source)
{
    const bool alphaToo = header.compression == kAlphaBitFields;
    if (header.bytes == kInfoHeader) {
        std::array<uint8_t, 16> behind{};
        source.readAll(behind.data(), alphaToo ? 16 : 12);
        header.paletteAt += alphaToo ? 16 : 12;
        const Bytes masks{behind};
        header.masks = {masks.u32(0), masks.u32(4), masks.u32(8), masks.u32(12)};
    } else {
        header.masks = {bytes.u32(40), bytes.u32(44), bytes.u32(48), header.bytes >= 56 ? bytes.u32(52) : 0};
    }
}

/// Another maker's header of 64 bytes gives 3 and 4 a meaning of its own.
bool isOtherHuffman(const Header& header) { return header.bytes == 64 && header.compression >= 3; }

void checkHeader(const Header& header)
{
    if (header.compression == kJpeg || header.compression == kPng)
        throw Error("a BMP file that wraps JPEG or PNG is not supported");
    if (isOtherHuffman(header)) throw Error("this compression of BMP files is not supported");
    if (header.compression > kAlphaBitFields) throwCorrupt("unknown compression");
    const bool fields = header.compression == kBitFields || header.compression == kAlphaBitFields;
    constexpr std::array<unsigned, 7> kDepths = {1, 2, 4, 8, 16, 24, 32};
    if (std::find(kDepths.begin(), kDepths.end(), header.bits) == kDepths.end()) throwCorrupt("impossible depth");
    if (fields && header.bits != 16 && header.bits != 32) throwCorrupt("bit fields at this depth");
    if (header.compression == kRle8 && header.bits != 8) throwCorrupt("RLE8 at another depth");
    if (header.compression == kRle4 && header.bits != 4) throwCorrupt("RLE4 at another depth");
    if (isRle(header) && header.height < 0) throwCorrupt("compressed rows cannot run from the top");
    if (header.width <= 0) throwCorrupt("no width");
}

Header readHeader(ByteSource& source)
{
    std::array<uint8_t, kFileHeaderBytes + 4> start{};
    source.seek(0);
    source.readAll(start.data(), start.size());
    const Bytes file{start};
    Header header;
    header.bytes = file.u32(kFileHeaderBytes);
    header.pixelsAt = file.u32(10);
    constexpr std::array<uint32_t, 8> kKnown = {12, 16, 40, 52, 56, 64, 108, 124};
    if (std::find(kKnown.begin(), kKnown.end(), header.bytes) == kKnown.end()) throwCorrupt("unknown header");
    std::array<uint8_t, 124> body{};
    source.seek(kFileHeaderBytes);
    source.readAll(body.data(), header.bytes);
    header.paletteAt = kFileHeaderBytes + header.bytes;
    const Bytes bytes{body};
    header.bytes == kCoreHeader ? parseCore(header, bytes) : parseInfo(header, bytes);
    checkHeader(header);
    if (header.compression == kBitFields || header.compression == kAlphaBitFields) parseMasks(header, bytes, source);
    return header;
}

/// One colour component inside a stored pixel.
class Field {
public:
    explicit Field(uint32_t mask) : mask_(mask), shift_(mask == 0 ? 0 : std::countr_zero(mask)), max_(mask >> shift_)
    {
        if ((max_ & (max_ + 1)) != 0) throwCorrupt("bit fields with gaps");
        if (max_ > 255) throw Error("BMP components of more than 8 bits are not supported");
    }
    uint8_t operator()(uint32_t pixel) const
    {
        const uint32_t value = (pixel & mask_) >> shift_;
        return static_cast<uint8_t>(max_ == 255 || max_ == 0 ? value : rescale(value, max_, 255));
    }

private:
    uint32_t mask_;
    int shift_;
    uint32_t max_;
};

struct Fields {
    explicit Fields(const Masks& masks) : red(masks.red), green(masks.green), blue(masks.blue), alpha(masks.alpha) {}
    Field red, green, blue, alpha;
};

/// Undoes run-length coding, row by row.
class RleRows {
public:
    /// Some writers code the row's padding too.
    RleRows(BufferedReader& in, size_t width, bool nibbles)
        : in_(in), nibbles_(nibbles), row_(static_cast<size_t>(pitch(width, nibbles ? 4 : 8)) * (nibbles ? 2 : 1))
    {
    }

    /// The next row's indices, one a byte, and then the padding's. What the file skips is index 0.
    const Row& next()
    {
        std::fill(row_.begin(), row_.end(), uint8_t{0});
        if (down_ > 0) --down_;
        if (down_ > 0) return row_; // jumped over
        x_ = std::exchange(landAt_, 0);
        while (!ended_ && command()) continue;
        return row_;
    }

private:
    /// False at the end of the row.
    bool command()
    {
        const unsigned count = in_.need();
        const unsigned code = in_.need();
        if (count > 0) return run(count, code);
        if (code == 0) return false;
        if (code == 2) return jump();
        if (code > 2) return literal(code);
        ended_ = true;
        return false;
    }
    bool run(unsigned count, unsigned code)
    {
        for (unsigned i = 0; i < count; ++i) set(nibbles_ ? (i % 2 == 0 ? code >> 4 : code & 15) : code);
        return true;
    }
    bool literal(unsigned count)
    {
        const unsigned bytes = nibbles_ ? (count + 1) / 2 : count;
        for (unsigned i = 0, byte = 0; i < count; ++i) {
            if (!nibbles_ || i % 2 == 0) byte = in_.need();
            set(nibbles_ ? (i % 2 == 0 ? byte >> 4 : byte & 15) : byte);
        }
        if (bytes % 2 != 0) in_.need();
        return true;
    }
    bool jump()
    {
        x_ += in_.need();
        down_ = in_.need();
        if (x_ > row_.size()) throwCorrupt("a jump past the row's end");
        if (down_ == 0) return true;
        landAt_ = x_;
        return false;
    }
    void set(unsigned index)
    {
        if (x_ >= row_.size()) throwCorrupt("a run past the row's end");
        row_[x_++] = static_cast<uint8_t>(index);
    }

    BufferedReader& in_;
    bool nibbles_;
    Row row_;
    size_t x_ = 0;
    size_t landAt_ = 0; ///< column where the row below a jump goes on
    unsigned down_ = 0; ///< rows that a jump still has to go down
    bool ended_ = false;
};

class BmpDecoder final : public Decoder {
public:
    BmpDecoder(ByteSource& source, const ReadOptions& options) : source_(source), options_(options) {}

    std::optional<Layout> next() override
    {
        if (std::exchange(read_, true)) return std::nullopt;
        header_ = readHeader(source_);
        (void)Fields(header_.masks); // refuses what cannot be read, before anything is allocated
        Layout layout;
        layout.width = static_cast<R_INT>(header_.width);
        layout.height = static_cast<R_INT>(std::min<int64_t>(std::abs(header_.height), INT32_MAX));
        layout.perspective = header_.height < 0 ? TOP_LEFT : BOTTOM_LEFT;
        layout.order = header_.bits <= 8 ? ORDER_RGB : ORDER_BGR;
        layout.bits = static_cast<R_INT>(keptBits());
        layout.encoding = isRle(header_) ? "run lengths" : header_.masks == Masks{} ? "uncompressed" : "bit fields";
        if (header_.xPerMetre > 0 && header_.yPerMetre > 0)
            layout.resolution = Resolution{perInch(header_.xPerMetre), perInch(header_.yPerMetre)};
        checkSize(static_cast<uint64_t>(header_.width), static_cast<uint64_t>(layout.height), layout.bits, options_);
        if (header_.bits <= 8) layout.palette = readPalette();
        findPixels(layout);
        return layout;
    }

    void readRows(PixelRows& rows) override { isRle(header_) ? readRuns(rows) : readPlain(rows); }

private:
    static R_INT perInch(int64_t perMetre)
    {
        return static_cast<R_INT>(std::lround(static_cast<double>(perMetre) * 0.0254));
    }

    unsigned keptBits()
    {
        if (header_.bits <= 8 || header_.bits == 24) return header_.bits;
        if (header_.bits == 32 && header_.compression == kRgb && usesFourthByte()) header_.masks = kMasks8888;
        if (header_.masks.alpha != 0) return 32;
        if (header_.bits == 32) return 24;
        return header_.compression == kRgb || header_.masks == kMasks555 ? 16 : 24;
    }

    /// Without masks the fourth byte of a pixel is meant to be nothing, and some writers make it alpha all the same.
    bool usesFourthByte()
    {
        source_.seek(std::max(header_.pixelsAt, header_.paletteAt));
        BufferedReader in(source_);
        for (size_t i = 1;; ++i) {
            const int byte = in.get();
            if (byte < 0) return false;
            if (i % 4 == 0 && byte != 0) return true;
        }
    }

    std::vector<RGBQUAD> readPalette()
    {
        const uint64_t entryBytes = header_.bytes == kCoreHeader ? 3 : 4;
        uint64_t count = uint64_t{1} << header_.bits;
        if (header_.colours > 0) count = std::min<uint64_t>(count, header_.colours);
        if (header_.pixelsAt > header_.paletteAt)
            count = std::min(count, (header_.pixelsAt - header_.paletteAt) / entryBytes);
        if (count == 0) throwCorrupt("no colours");
        Row bytes(static_cast<size_t>(count * entryBytes));
        source_.seek(header_.paletteAt);
        source_.readAll(bytes.data(), bytes.size());
        std::vector<RGBQUAD> palette;
        for (size_t i = 0; i < bytes.size(); i += static_cast<size_t>(entryBytes))
            palette.push_back({bytes[i], bytes[i + 1], bytes[i + 2], 0});
        if (header_.pixelsAt == 0) header_.pixelsAt = header_.paletteAt + bytes.size();
        return palette;
    }

    /// Where the pixels start, and whether the file can hold them all.
    void findPixels(const Layout& layout)
    {
        if (header_.pixelsAt == 0) header_.pixelsAt = header_.paletteAt;
        if (header_.pixelsAt < header_.paletteAt) throwCorrupt("pixels inside the header");
        const uint64_t fileBytes = source_.size() - std::min(source_.size(), header_.pixelsAt);
        const auto height = static_cast<uint64_t>(layout.height);
        const auto width = static_cast<uint64_t>(layout.width);
        // A jump of four bytes can pass 255 rows, and nothing passes more.
        if (isRle(header_)) return checkPlausible(height, fileBytes, 64);
        const uint64_t lastRow = (width * header_.bits + 7) / 8; // its padding may be missing
        checkPlausible((height - 1) * pitch(width, header_.bits) + lastRow, fileBytes, 1);
    }

    void readPlain(PixelRows& rows)
    {
        Row stored(static_cast<size_t>(pitch(static_cast<uint64_t>(header_.width), header_.bits)));
        Row kept(rows.rowBytes());
        const size_t lastRow = (rows.layout().pixels() * header_.bits + 7) / 8;
        const bool asStored = rows.layout().bits == static_cast<R_INT>(header_.bits) && header_.bits != 16 &&
                              (header_.bits != 32 || header_.masks == kMasks8888);
        source_.seek(header_.pixelsAt);
        for (R_INT y = 0; y < rows.height(); ++y) {
            source_.readAll(stored.data(), y + 1 < rows.height() ? stored.size() : lastRow);
            if (!asStored) convert(stored.data(), kept.data(), rows.layout());
            rows.put(y, asStored ? stored : kept);
        }
    }

    void convert(const uint8_t* stored, uint8_t* out, const Layout& layout) const
    {
        const Masks masks = header_.masks == Masks{} ? (header_.bits == 16 ? kMasks555 : kMasks888) : header_.masks;
        const size_t step = header_.bits / 8;
        const Fields field(masks);
        for (size_t x = 0; x < layout.pixels(); ++x, stored += step) {
            uint32_t pixel = 0;
            for (size_t i = step; i-- > 0;) pixel = pixel << 8 | stored[i];
            if (layout.bits == 16) {
                *out++ = static_cast<uint8_t>(pixel);
                *out++ = static_cast<uint8_t>(pixel >> 8 & 0x7F); // the top bit means nothing
                continue;
            }
            *out++ = field.blue(pixel);
            *out++ = field.green(pixel);
            *out++ = field.red(pixel);
            if (layout.bits == 32) *out++ = field.alpha(pixel);
        }
    }

    void readRuns(PixelRows& rows)
    {
        source_.seek(header_.pixelsAt);
        BufferedReader in(source_);
        RleRows runs(in, rows.layout().pixels(), header_.compression == kRle4);
        Row packed(rows.rowBytes());
        std::vector<uint16_t> samples(rows.layout().pixels());
        for (R_INT y = 0; y < rows.height(); ++y) {
            const Row& indices = runs.next();
            std::copy_n(indices.begin(), samples.size(), samples.begin());
            packSamples(samples.data(), packed.data(), samples.size(), rows.layout().bits);
            rows.put(y, packed);
        }
    }

    ByteSource& source_;
    ReadOptions options_;
    Header header_;
    bool read_ = false;
};

} // namespace

std::unique_ptr<Decoder> openBmp(ByteSource& source, const ReadOptions& options)
{
    return std::make_unique<BmpDecoder>(source, options);
}

} // namespace rvimg
