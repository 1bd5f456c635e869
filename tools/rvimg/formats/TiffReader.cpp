#include "Tiff.h"

#include "Error.h"
#include "Samples.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <utility>

namespace rvimg {

namespace {

using tiff::require;
using tiff::throwComplaint;

/// A page's fields, as far as they say how pixels are stored.
struct Fields {
    uint32_t width = 0;
    uint32_t height = 0;
    uint16_t bits = 1;
    uint16_t samples = 1;
    uint16_t format = SAMPLEFORMAT_UINT;
    uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    uint16_t planar = PLANARCONFIG_CONTIG;
    uint16_t compression = COMPRESSION_NONE;
    bool associatedAlpha = false;
    bool tiled = false;
    bool throughRgba = false; ///< only libtiff's own conversion to colour knows how to read it

    bool grayish() const { return photometric <= PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MASK; }
    size_t planes() const { return planar == PLANARCONFIG_SEPARATE ? samples : 1; }
    size_t planeSamples() const { return planar == PLANARCONFIG_SEPARATE ? 1 : samples; }
    size_t planeRowBytes() const { return (size_t{width} * planeSamples() * bits + 7) / 8; }
};

template <class Value> Value field(TIFF* tiff, uint32_t tag, Value otherwise)
{
    Value value{};
    return TIFFGetFieldDefaulted(tiff, tag, &value) == 1 ? value : otherwise;
}

Fields fieldsOf(TIFF* tiff)
{
    Fields f;
    f.width = field<uint32_t>(tiff, TIFFTAG_IMAGEWIDTH, 0);
    f.height = field<uint32_t>(tiff, TIFFTAG_IMAGELENGTH, 0);
    f.bits = field<uint16_t>(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    f.samples = field<uint16_t>(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    f.format = field<uint16_t>(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    f.photometric = field<uint16_t>(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    f.planar = field<uint16_t>(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    f.compression = field<uint16_t>(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    f.tiled = TIFFIsTiled(tiff) != 0;
    uint16_t extras = 0;
    const uint16_t* kinds = nullptr;
    if (TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &extras, &kinds) == 1 && extras > 0)
        f.associatedAlpha = kinds[0] == EXTRASAMPLE_ASSOCALPHA;
    return f;
}

[[noreturn]] void refuse(const std::string& what) { throw Error(what + " pictures are not supported"); }

void refuseColourSpaces(uint16_t photometric)
{
    switch (photometric) {
    case PHOTOMETRIC_SEPARATED: refuse("CMYK");
    case PHOTOMETRIC_CIELAB:
    case PHOTOMETRIC_ICCLAB:
    case PHOTOMETRIC_ITULAB: refuse("CIE L*a*b*");
    case PHOTOMETRIC_LOGL:
    case PHOTOMETRIC_LOGLUV: refuse("LogLuv");
    case PHOTOMETRIC_CFA: refuse("raw sensor");
    default: break;
    }
}

/// Refuses by name what the kernel has no bitmap for.
void refuseOthers(const Fields& f)
{
    if (f.format == SAMPLEFORMAT_IEEEFP) refuse("floating-point");
    if (f.format == SAMPLEFORMAT_COMPLEXINT || f.format == SAMPLEFORMAT_COMPLEXIEEEFP) refuse("complex-number");
    refuseColourSpaces(f.photometric);
    const bool isSigned = f.format == SAMPLEFORMAT_INT;
    const std::string samples = text(isSigned ? "signed " : "", f.bits, "-bit ");
    if (f.grayish()) {
        const bool alone = f.samples == 1 && f.bits >= 1 && f.bits <= 16;
        const bool withAlpha = f.samples == 2 && (f.bits == 8 || f.bits == 16) && !isSigned;
        const bool signFits = !isSigned || (f.bits > 8 && f.photometric == PHOTOMETRIC_MINISBLACK);
        if (!signFits || (!alone && !withAlpha)) refuse(text(samples, "gray (", f.samples, " samples a pixel)"));
    } else if (f.photometric == PHOTOMETRIC_PALETTE) {
        if (f.samples != 1 || f.bits > 8) refuse(text(samples, "palette (", f.samples, " samples a pixel)"));
    } else if (f.photometric == PHOTOMETRIC_RGB || f.photometric == PHOTOMETRIC_YCBCR) {
        const bool depth = f.bits == 8 || (f.bits == 16 && f.photometric == PHOTOMETRIC_RGB);
        const bool count = f.samples == 3 || (f.samples == 4 && f.photometric == PHOTOMETRIC_RGB);
        if (!depth || !count || isSigned) refuse(text(samples, "colour (", f.samples, " samples a pixel)"));
    } else {
        refuse(text("TIFF photometric ", f.photometric));
    }
}

std::vector<RGBQUAD> paletteOf(TIFF* tiff, int bits)
{
    const uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
    require(TIFFGetField(tiff, TIFFTAG_COLORMAP, &red, &green, &blue) == 1, "the palette is missing");
    const size_t count = size_t{1} << bits;
    const auto isByte = [](uint16_t value) { return value < 256; };
    // Entries have 16 bits; old writers filled in 8.
    const bool bytes = std::all_of(red, red + count, isByte) && std::all_of(green, green + count, isByte) &&
                       std::all_of(blue, blue + count, isByte);
    const int shift = bytes ? 0 : 8;
    std::vector<RGBQUAD> palette;
    for (size_t i = 0; i < count; ++i)
        palette.push_back({static_cast<uint8_t>(blue[i] >> shift), static_cast<uint8_t>(green[i] >> shift),
                           static_cast<uint8_t>(red[i] >> shift), 0});
    return palette;
}

std::optional<Resolution> resolutionOf(TIFF* tiff)
{
    float x = 0, y = 0;
    if (TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &x) != 1 || TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &y) != 1)
        return std::nullopt;
    const auto unit = field<uint16_t>(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    if (unit == RESUNIT_NONE) return std::nullopt;
    const float scale = unit == RESUNIT_CENTIMETER ? 2.54f : 1.0f;
    constexpr float kAbsurd = 1e6f;
    if (!(x * scale >= 0.5f && y * scale >= 0.5f && x < kAbsurd && y < kAbsurd)) return std::nullopt;
    return Resolution{static_cast<R_INT>(std::lround(x * scale)), static_cast<R_INT>(std::lround(y * scale))};
}

/// The most bytes that one compressed byte can stand for; 0 where there is no such bound.
uint64_t bestRatio(uint16_t compression)
{
    switch (compression) {
    case COMPRESSION_NONE: return 1;
    case COMPRESSION_PACKBITS: return 64;
    case COMPRESSION_LZW: return 4096;
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE: return 1032;
    default: return 0;
    }
}

std::string compressionName(uint16_t compression)
{
    if (compression == COMPRESSION_NONE) return "uncompressed";
    const TIFFCodec* const codec = TIFFFindCODEC(compression);
    return codec != nullptr ? codec->name : text("compression ", compression);
}

/// Stored rows of a page, from strips or tiles, planes side by side.
class StoredRows {
public:
    StoredRows(TIFF* tiff, const Fields& fields) : tiff_(tiff), f_(fields)
    {
        chunkRows_ = f_.tiled ? field<uint32_t>(tiff_, TIFFTAG_TILELENGTH, 0)
                              : field<uint32_t>(tiff_, TIFFTAG_ROWSPERSTRIP, f_.height);
        chunkRows_ = std::clamp<uint32_t>(chunkRows_, 1, f_.height);
        interleaved_.resize(f_.planeRowBytes() * f_.planes());
        if (f_.tiled)
            measureTiles();
        else if (TIFFScanlineSize64(tiff_) != f_.planeRowBytes())
            throw Error("the TIFF file is corrupt: odd rows");
        // Not filled with zeros: a hostile size costs nothing until there is something to put there.
        band_ = std::make_unique_for_overwrite<uint8_t[]>(planeBytes() * f_.planes());
    }

    /// Row y, samples of all planes interleaved. Rows are asked for from the first to the last.
    const uint8_t* row(uint32_t y)
    {
        if (y % chunkRows_ == 0) readBand(y);
        if (f_.planes() == 1) return planeRow(0, y);
        const size_t sample = f_.bits / 8u;
        for (size_t plane = 0; plane < f_.planes(); ++plane) {
            const uint8_t* from = planeRow(plane, y);
            uint8_t* to = interleaved_.data() + plane * sample;
            for (size_t x = 0; x < f_.width; ++x, from += sample, to += sample * f_.planes())
                std::memcpy(to, from, sample);
        }
        return interleaved_.data();
    }

private:
    size_t planeBytes() const { return f_.planeRowBytes() * chunkRows_; }
    const uint8_t* planeRow(size_t plane, uint32_t y) const
    {
        return band_.get() + plane * planeBytes() + y % chunkRows_ * f_.planeRowBytes();
    }

    void measureTiles()
    {
        tileWidth_ = field<uint32_t>(tiff_, TIFFTAG_TILEWIDTH, 0);
        tileBytes_ = static_cast<uint64_t>(TIFFTileSize64(tiff_));
        tileRowBytes_ = static_cast<uint64_t>(TIFFTileRowSize64(tiff_));
        require(tileWidth_ > 0 && tileBytes_ > 0 && tileRowBytes_ > 0, "the TIFF file is corrupt: empty tiles");
        const bool wholeBytes = uint64_t{tileWidth_} * f_.planeSamples() * f_.bits % 8 == 0;
        require(tileWidth_ >= f_.width || wholeBytes, "the TIFF file is corrupt: tiles cut through bytes");
        // A tile is no larger than the picture it is cut from, but for what rounds it up.
        constexpr uint64_t kSlack = uint64_t{1} << 26;
        const bool absurd = tileBytes_ > uint64_t{f_.height} * f_.planeRowBytes() + kSlack;
        require(!absurd, "the TIFF file is corrupt: absurd tiles");
        tile_ = std::make_unique_for_overwrite<uint8_t[]>(static_cast<size_t>(tileBytes_));
    }

    /// Reads the strips or tiles whose first row is y.
    void readBand(uint32_t y)
    {
        const uint32_t rows = std::min(chunkRows_, f_.height - y);
        for (size_t plane = 0; plane < f_.planes(); ++plane) {
            uint8_t* const to = band_.get() + plane * planeBytes();
            const auto sample = static_cast<uint16_t>(plane);
            if (f_.tiled) {
                readTiles(y, sample, rows, to);
                continue;
            }
            const auto bytes = static_cast<tmsize_t>(f_.planeRowBytes() * rows);
            require(TIFFReadEncodedStrip(tiff_, TIFFComputeStrip(tiff_, y, sample), to, bytes) == bytes,
                    "a strip cannot be read");
        }
    }

    void readTiles(uint32_t y, uint16_t plane, uint32_t rows, uint8_t* to)
    {
        for (uint64_t x = 0; x < f_.width; x += tileWidth_) {
            const uint32_t tile = TIFFComputeTile(tiff_, static_cast<uint32_t>(x), y, 0, plane);
            const auto bytes = static_cast<tmsize_t>(tileBytes_);
            require(TIFFReadEncodedTile(tiff_, tile, tile_.get(), bytes) == bytes, "a tile cannot be read");
            const size_t at = static_cast<size_t>(x * f_.planeSamples() * f_.bits / 8);
            const size_t used = std::min<size_t>(tileRowBytes_, f_.planeRowBytes() - at);
            for (uint32_t row = 0; row < rows; ++row)
                std::memcpy(to + row * f_.planeRowBytes() + at, tile_.get() + row * tileRowBytes_, used);
        }
    }

    TIFF* tiff_;
    Fields f_;
    Row interleaved_;                 ///< a row of all planes
    std::unique_ptr<uint8_t[]> band_; ///< the rows of a strip or of a row of tiles, plane after plane
    std::unique_ptr<uint8_t[]> tile_;
    uint32_t chunkRows_ = 1;
    uint32_t tileWidth_ = 0;
    uint64_t tileBytes_ = 0;
    uint64_t tileRowBytes_ = 0;
};

/// Pages whose samples only libtiff's conversion understands; it answers 8-bit colour.
class RgbaRows {
public:
    RgbaRows(TIFF* tiff, const Fields& fields) : width_(fields.width), height_(fields.height)
    {
        char reason[1024] = "";
        if (TIFFRGBAImageBegin(&image_, tiff, 1, reason) != 1) throw Error(reason);
        image_.req_orientation = image_.orientation; // rows as they are stored
        rows_ = std::clamp<uint32_t>(field<uint32_t>(tiff, fields.tiled ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP, 1),
                                     1, std::min<uint32_t>(height_, kMostRows));
        raster_.resize(size_t{width_} * rows_);
        row_.resize(size_t{width_} * 3);
    }
    ~RgbaRows() { TIFFRGBAImageEnd(&image_); }
    RgbaRows(const RgbaRows&) = delete;
    RgbaRows& operator=(const RgbaRows&) = delete;

    const uint8_t* row(uint32_t y)
    {
        if (y % rows_ == 0) {
            image_.row_offset = static_cast<int>(y);
            require(TIFFRGBAImageGet(&image_, raster_.data(), width_, std::min(rows_, height_ - y)) == 1,
                    "rows cannot be converted to colour");
        }
        const uint32_t* const pixels = raster_.data() + size_t{y % rows_} * width_;
        for (size_t x = 0; x < width_; ++x) {
            row_[3 * x] = static_cast<uint8_t>(TIFFGetR(pixels[x]));
            row_[3 * x + 1] = static_cast<uint8_t>(TIFFGetG(pixels[x]));
            row_[3 * x + 2] = static_cast<uint8_t>(TIFFGetB(pixels[x]));
        }
        return row_.data();
    }

private:
    static constexpr uint32_t kMostRows = 4096;
    TIFFRGBAImage image_{};
    uint32_t width_;
    uint32_t height_;
    uint32_t rows_ = 1;
    std::vector<uint32_t> raster_;
    Row row_;
};

class TiffDecoder final : public Decoder {
public:
    TiffDecoder(ByteSource& source, const ReadOptions& options)
        : source_(source), options_(options), tiff_(tiff::openRead(source))
    {
    }

    std::optional<Layout> next() override
    {
        if (std::exchange(started_, true)) {
            if (TIFFLastDirectory(tiff_.get()) != 0) return std::nullopt;
            require(TIFFReadDirectory(tiff_.get()) == 1, "the next page cannot be read");
        }
        f_ = fieldsOf(tiff_.get());
        throwComplaint();
        if (f_.photometric == PHOTOMETRIC_YCBCR) prepareYcbcr();
        refuseOthers(f_);
        const Layout layout = layoutOf();
        checkSize(f_.width, f_.height, layout.bits, options_);
        if (const uint64_t ratio = bestRatio(f_.compression); ratio > 0 && !f_.throughRgba)
            checkPlausible(uint64_t{f_.height} * f_.planeRowBytes() * f_.planes(), source_.size(), ratio);
        return layout;
    }

    void readRows(PixelRows& rows) override
    {
        if (f_.throughRgba)
            readFrom(RgbaRows(tiff_.get(), f_), rows);
        else
            readFrom(StoredRows(tiff_.get(), f_), rows);
    }

private:
    void prepareYcbcr()
    {
        if (f_.compression == COMPRESSION_JPEG)
            TIFFSetField(tiff_.get(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        else
            f_.throughRgba = true;
    }

    Layout layoutOf()
    {
        Layout layout;
        layout.width = static_cast<R_INT>(std::min<uint32_t>(f_.width, INT32_MAX));
        layout.height = static_cast<R_INT>(std::min<uint32_t>(f_.height, INT32_MAX));
        const bool gray = f_.grayish() && f_.samples == 1;
        layout.bits = gray || f_.photometric == PHOTOMETRIC_PALETTE ? f_.bits
                      : f_.samples == 2                             ? f_.bits * 4
                                                                    : f_.bits * f_.samples;
        if (gray && f_.bits > 8) {
            layout.bits = f_.bits == 12 ? 12 : 16;
            layout.order = ORDER_GRAY;
            if (f_.bits < layout.bits) layout.highBit = f_.bits - 1;
        } else if (gray) {
            layout.palette = grayRamp(f_.bits, f_.photometric == PHOTOMETRIC_MINISWHITE ? Ramp::falling : Ramp::rising);
        } else if (f_.photometric == PHOTOMETRIC_PALETTE) {
            layout.palette = paletteOf(tiff_.get(), f_.bits);
        }
        layout.isSigned = f_.format == SAMPLEFORMAT_INT;
        layout.premultiplied = layout.hasAlpha() && f_.associatedAlpha;
        layout.resolution = resolutionOf(tiff_.get());
        uint16_t orientation = 0;
        if (TIFFGetField(tiff_.get(), TIFFTAG_ORIENTATION, &orientation) == 1 && orientation >= TOP_LEFT &&
            orientation <= LEFT_BOTTOM) {
            layout.perspective = orientation;
            layout.tagged = true;
        }
        layout.encoding = compressionName(f_.compression) + (f_.tiled ? ", tiled" : "");
        return layout;
    }

    template <class Source> void readFrom(Source&& stored, PixelRows& rows)
    {
        Row row(rows.rowBytes());
        samples_.resize(size_t{f_.width} * f_.samples);
        for (R_INT y = 0; y < rows.height(); ++y) {
            convert(stored.row(static_cast<uint32_t>(y)), row, rows.layout());
            rows.put(y, row);
        }
    }

    /// From a stored row to the bitmap's: the same bytes but for a few kinds of gray.
    void convert(const uint8_t* stored, Row& row, const Layout& layout)
    {
        const bool fromWhite = f_.photometric == PHOTOMETRIC_MINISWHITE && layout.bits > 8;
        if (layout.hasAlpha() && f_.samples == 2) {
            f_.bits == 8 ? spread<uint8_t>(stored, row, fromWhite) : spread<uint16_t>(stored, row, fromWhite);
        } else if (layout.isGray() && layout.bits == 16 && f_.bits < 16) {
            unpackSamples(stored, samples_.data(), f_.width, f_.bits);
            const auto top = static_cast<uint16_t>((1u << f_.bits) - 1);
            if (fromWhite)
                for (uint16_t& sample : samples_) sample = static_cast<uint16_t>(top - sample);
            std::memcpy(row.data(), samples_.data(), row.size());
        } else {
            std::memcpy(row.data(), stored, row.size());
            if (fromWhite) invert(row.data(), row.size());
        }
    }

    /// Gray with alpha as colour with alpha.
    template <class Sample> void spread(const uint8_t* stored, Row& row, bool fromWhite) const
    {
        for (size_t x = 0; x < f_.width; ++x) {
            Sample pair[2];
            std::memcpy(pair, stored + x * sizeof pair, sizeof pair);
            const Sample gray = fromWhite ? static_cast<Sample>(~pair[0]) : pair[0];
            const Sample pixel[4] = {gray, gray, gray, pair[1]};
            std::memcpy(row.data() + x * sizeof pixel, pixel, sizeof pixel);
        }
    }

    ByteSource& source_;
    ReadOptions options_;
    tiff::Handle tiff_;
    Fields f_;
    std::vector<uint16_t> samples_;
    bool started_ = false;
};

} // namespace

std::unique_ptr<Decoder> openTiff(ByteSource& source, const ReadOptions& options)
{
    return std::make_unique<TiffDecoder>(source, options);
}

} // namespace rvimg
