#include "Tiff.h"

#include "Error.h"
#include "Samples.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace rvimg {

namespace {

using tiff::require;

struct Compression {
    const char* name;
    uint16_t scheme;
    bool predicts; ///< works better on differences between neighbours
};
constexpr std::array<Compression, 8> kCompressions = {{{"none", COMPRESSION_NONE, false},
                                                       {"packbits", COMPRESSION_PACKBITS, false},
                                                       {"lzw", COMPRESSION_LZW, true},
                                                       {"deflate", COMPRESSION_ADOBE_DEFLATE, true},
                                                       {"g3", COMPRESSION_CCITTFAX3, false},
                                                       {"g4", COMPRESSION_CCITTFAX4, false},
                                                       {"jpeg", COMPRESSION_JPEG, false},
                                                       {"zstd", COMPRESSION_ZSTD, true}}};

const Compression& compressionFor(const Layout& layout, const std::string& wanted)
{
    const std::string name = !wanted.empty() ? wanted : layout.bits == 1 ? "g4" : "deflate";
    const auto found =
        std::find_if(kCompressions.begin(), kCompressions.end(), [&](const Compression& c) { return c.name == name; });
    if (found == kCompressions.end()) throw UsageError(text("unknown compression ", name));
    if (TIFFIsCODECConfigured(found->scheme) == 0) throw Error(text("this build has no TIFF compression ", name));
    const bool bilevel = found->scheme == COMPRESSION_CCITTFAX3 || found->scheme == COMPRESSION_CCITTFAX4;
    const bool gray8 = layout.bits == 8 && rampOf(layout) != Ramp::none;
    if (bilevel && layout.bits != 1) throw Error(text("TIFF compression ", name, " holds 1-bit pictures only"));
    if (found->scheme == COMPRESSION_JPEG && layout.bits != 24 && !gray8)
        throw Error("TIFF compression jpeg holds 8-bit gray and 24-bit colour only");
    return *found;
}

uint16_t photometricOf(const Layout& layout, const Compression& compression)
{
    if (layout.hasPalette()) {
        const Ramp ramp = rampOf(layout);
        return ramp == Ramp::rising    ? PHOTOMETRIC_MINISBLACK
               : ramp == Ramp::falling ? PHOTOMETRIC_MINISWHITE
                                       : PHOTOMETRIC_PALETTE;
    }
    if (layout.isGray()) return PHOTOMETRIC_MINISBLACK;
    return compression.scheme == COMPRESSION_JPEG ? PHOTOMETRIC_YCBCR : PHOTOMETRIC_RGB;
}

class TiffEncoder final : public Encoder {
public:
    TiffEncoder(ByteSink& sink, const WriteOptions& options) : sink_(sink), options_(options) {}

    void writePage(PixelRows& rows) override
    {
        const Layout& layout = rows.layout();
        const Compression& compression = compressionFor(layout, options_.compression);
        if (!tiff_) open(layout);
        const RowOrder order(layout, true);
        samples_ = layout.hasPalette() || layout.isGray() ? 1 : layout.hasAlpha() ? 4 : 3;
        bits_ = layout.isGray() ? layout.significantBits() : layout.bits / static_cast<R_INT>(samples_);
        setFields(layout, compression, order);
        Row row(rows.rowBytes());
        for (R_INT i = 0; i < layout.height; ++i) {
            rows.get(order(i), row);
            prepare(row, layout);
            require(TIFFWriteScanline(tiff_.get(), row.data(), static_cast<uint32_t>(i)) == 1,
                    "a row cannot be written");
        }
        require(TIFFWriteDirectory(tiff_.get()) == 1, "the page cannot be written");
    }

    void finish() override
    {
        if (!tiff_) return;
        tiff_.reset();
        tiff::throwComplaint();
    }

private:
    /// Files of classic TIFF end at 4 GiB, and cannot become big ones when the first page is written.
    void open(const Layout& layout)
    {
        constexpr uint64_t kMostClassic = 4'000'000'000;
        const uint64_t bytes = layout.rowBytes() * static_cast<uint64_t>(layout.height);
        tiff_ = tiff::openWrite(sink_, std::max(bytes, options_.pixelBytes) > kMostClassic);
    }

    template <class... Values> void set(uint32_t tag, Values... values)
    {
        require(TIFFSetField(tiff_.get(), tag, values...) == 1, "a field cannot be written");
    }

    void setFields(const Layout& layout, const Compression& compression, const RowOrder& order)
    {
        set(TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(layout.width));
        set(TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(layout.height));
        set(TIFFTAG_BITSPERSAMPLE, bits_);
        set(TIFFTAG_SAMPLESPERPIXEL, static_cast<int>(samples_));
        set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        set(TIFFTAG_COMPRESSION, static_cast<int>(compression.scheme));
        const uint16_t photometric = photometricOf(layout, compression);
        set(TIFFTAG_PHOTOMETRIC, static_cast<int>(photometric));
        set(TIFFTAG_ORIENTATION, static_cast<int>(order.orientation));
        set(TIFFTAG_ROWSPERSTRIP, rowsPerStrip(layout));
        if (layout.isSigned) set(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_INT);
        if (photometric == PHOTOMETRIC_PALETTE) setPalette(layout);
        if (layout.hasAlpha()) {
            const uint16_t kind = layout.premultiplied ? EXTRASAMPLE_ASSOCALPHA : EXTRASAMPLE_UNASSALPHA;
            set(TIFFTAG_EXTRASAMPLES, 1, &kind);
        }
        if (layout.resolution) {
            set(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
            set(TIFFTAG_XRESOLUTION, static_cast<double>(layout.resolution->x));
            set(TIFFTAG_YRESOLUTION, static_cast<double>(layout.resolution->y));
        }
        tune(photometric, compression);
    }

    void tune(uint16_t photometric, const Compression& compression)
    {
        const bool wholeBytes = bits_ == 8 || bits_ == 16;
        if (compression.predicts && wholeBytes && photometric != PHOTOMETRIC_PALETTE)
            set(TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
        if (compression.scheme != COMPRESSION_JPEG) return;
        set(TIFFTAG_JPEGQUALITY, options_.quality);
        if (photometric == PHOTOMETRIC_YCBCR) set(TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    }

    static uint32_t rowsPerStrip(const Layout& layout)
    {
        constexpr size_t kStripBytes = size_t{1} << 18;
        constexpr size_t kBlockRows = 16; // JPEG strips are made of these
        const size_t rows = kStripBytes / std::max<size_t>(layout.rowBytes(), 1) / kBlockRows * kBlockRows;
        return static_cast<uint32_t>(std::clamp<size_t>(rows, kBlockRows, size_t{1} << 20));
    }

    void setPalette(const Layout& layout)
    {
        const size_t count = size_t{1} << layout.bits;
        std::vector<uint16_t> red(count), green(count), blue(count);
        constexpr uint16_t kSpread = 257; // 255 becomes 65535
        for (size_t i = 0; i < layout.palette.size(); ++i) {
            red[i] = static_cast<uint16_t>(layout.palette[i].rgbRed * kSpread);
            green[i] = static_cast<uint16_t>(layout.palette[i].rgbGreen * kSpread);
            blue[i] = static_cast<uint16_t>(layout.palette[i].rgbBlue * kSpread);
        }
        set(TIFFTAG_COLORMAP, red.data(), green.data(), blue.data());
    }

    void prepare(Row& row, const Layout& layout)
    {
        if (samples_ > 1 && layout.order == ORDER_BGR)
            swapRedBlue(row.data(), layout.pixels(), samples_, static_cast<size_t>(bits_ / 8));
        if (layout.bits == 16 && bits_ < 16) {
            std::vector<uint16_t> words(layout.pixels());
            std::memcpy(words.data(), row.data(), row.size());
            packSamples(words.data(), row.data(), words.size(), bits_);
        }
    }

    ByteSink& sink_;
    WriteOptions options_;
    tiff::Handle tiff_;
    size_t samples_ = 1;
    R_INT bits_ = 1; ///< of a sample
};

} // namespace

std::unique_ptr<Encoder> createTiff(ByteSink& sink, const WriteOptions& options)
{
    return std::make_unique<TiffEncoder>(sink, options);
}

} // namespace rvimg
