#include "Netpbm.h"

#include "Error.h"
#include "Samples.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

namespace rvimg {

using namespace netpbm;

namespace {

[[noreturn]] void throwCorrupt(const char* what) { throw Error(text("the Netpbm file is corrupt: ", what)); }

bool isSpace(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool isDigit(int c) { return c >= '0' && c <= '9'; }

void skipLine(BufferedReader& in)
{
    for (int c = in.get(); c >= 0 && c != '\n' && c != '\r';) c = in.get();
}

/// Numbers of headers and plain pictures stand between white space and comments.
void skipBlank(BufferedReader& in)
{
    for (int c = in.peek(); isSpace(c) || c == '#'; c = in.peek()) {
        in.get();
        if (c == '#') skipLine(in);
    }
}

unsigned readNumber(BufferedReader& in)
{
    skipBlank(in);
    uint64_t number = in.need();
    if (!isDigit(static_cast<int>(number))) throwCorrupt("a number is missing");
    number -= '0';
    while (isDigit(in.peek())) {
        number = number * 10 + static_cast<unsigned>(in.get() - '0');
        if (number > INT32_MAX) throwCorrupt("a number is too large");
    }
    return static_cast<unsigned>(number);
}

std::string readWord(BufferedReader& in)
{
    constexpr size_t kLongest = 64;
    skipBlank(in);
    std::string word;
    while (in.peek() >= 0 && !isSpace(in.peek()) && word.size() < kLongest) word += static_cast<char>(in.get());
    return word;
}

/// What is left of a line, without the blanks around it. Odd bytes are not worth showing to a terminal.
std::string readLine(BufferedReader& in)
{
    constexpr size_t kLongest = 64;
    std::string line;
    for (int c = in.get(); c >= 0 && c != '\n' && c != '\r'; c = in.get())
        if ((!line.empty() || !isSpace(c)) && line.size() < kLongest)
            line += c >= ' ' && c <= '~' ? static_cast<char>(c) : '?';
    return line.substr(0, line.find_last_not_of(' ') + 1);
}

struct Header {
    char magic = 0; ///< '1' to '7'
    unsigned width = 0;
    unsigned height = 0;
    unsigned components = 1;
    unsigned maximum = 1;

    bool plain() const { return magic <= '3'; }
    bool packedBits() const { return magic == '1' || magic == '4'; } ///< 1 is black
    size_t sampleBytes() const { return maximum > 255 ? 2 : 1; }
    uint64_t rowSamples() const { return uint64_t{width} * components; }
    uint64_t rowBytes() const { return magic == '4' ? (uint64_t{width} + 7) / 8 : rowSamples() * sampleBytes(); }
};

/// What the components mean; without a word about it, their number says enough.
void checkTupleType(const std::string& type, unsigned components)
{
    struct Known {
        std::string_view name;
        unsigned components;
    };
    constexpr Known kKnown[] = {{"BLACKANDWHITE", 1},       {"GRAYSCALE", 1},       {"RGB", 3},
                                {"BLACKANDWHITE_ALPHA", 2}, {"GRAYSCALE_ALPHA", 2}, {"RGB_ALPHA", 4}};
    if (type.empty()) return;
    if (type.starts_with("CMYK")) throw Error("CMYK pictures are not supported");
    const auto* const known =
        std::find_if(std::begin(kKnown), std::end(kKnown), [&](const Known& k) { return k.name == type; });
    if (known == std::end(kKnown)) throw Error(text("pictures of tuple type ", type, " are not supported"));
    if (known->components != components) throwCorrupt("the tuple type and the depth disagree");
}

void readArbitraryHeader(BufferedReader& in, Header& header)
{
    std::string tupleType;
    for (std::string word = readWord(in); word != "ENDHDR"; word = readWord(in)) {
        if (word == "WIDTH")
            header.width = readNumber(in);
        else if (word == "HEIGHT")
            header.height = readNumber(in);
        else if (word == "DEPTH")
            header.components = readNumber(in);
        else if (word == "MAXVAL")
            header.maximum = readNumber(in);
        else if (word == "TUPLTYPE")
            tupleType = readLine(in);
        else
            throwCorrupt(word.empty() ? "the header does not end" : "unknown words in the header");
    }
    skipLine(in);
    checkTupleType(tupleType, header.components);
    if (header.components < 1 || header.components > 4)
        throw Error(text("pictures of ", header.components, " components are not supported"));
}

Header readHeader(BufferedReader& in)
{
    Header header;
    if (in.need() != 'P') throwCorrupt("no header");
    header.magic = static_cast<char>(in.need());
    if (header.magic == 'F' || header.magic == 'f') throw Error("floating-point pictures are not supported");
    if (header.magic < '1' || header.magic > '7') throwCorrupt("unknown kind");
    if (header.magic == '7') {
        readArbitraryHeader(in, header);
    } else {
        header.width = readNumber(in);
        header.height = readNumber(in);
        if (!header.packedBits()) header.maximum = readNumber(in);
        header.components = header.magic == '3' || header.magic == '6' ? 3 : 1;
        if (!isSpace(in.need())) throwCorrupt("no space behind the header");
    }
    if (header.maximum < 1 || header.maximum > 65535) throwCorrupt("impossible maximum");
    return header;
}

/// The bitmap that holds the samples unchanged where there is one, and rescaled to whole bytes where not.
void chooseDepth(const Header& header, Layout& layout)
{
    const int bits = bitsOfMaximum(header.maximum);
    const bool words = header.maximum > 255;
    if (header.packedBits()) {
        layout.bits = 1;
        layout.palette = grayRamp(1, Ramp::falling);
    } else if (header.components == 1 && !words) {
        layout.bits = bits > 0 ? bits : 8;
        for (unsigned i = 0; i <= header.maximum; ++i) {
            const auto level = static_cast<uint8_t>(rescale(i, header.maximum, 255));
            layout.palette.push_back({level, level, level, 0});
        }
    } else if (header.components == 1) {
        layout.bits = bits == 12 ? 12 : 16;
        layout.order = ORDER_GRAY;
        if (bits > 0 && bits < layout.bits) layout.highBit = bits - 1;
    } else if (header.components == 3) {
        layout.bits = header.maximum == kMax555 ? 16 : words ? 48 : 24;
    } else {
        layout.bits = words ? 64 : 32;
    }
}

class NetpbmDecoder final : public Decoder {
public:
    NetpbmDecoder(ByteSource& source, const ReadOptions& options) : source_(source), options_(options), in_(source) {}

    std::optional<Layout> next() override
    {
        if (nextAt_ > 0) {
            if (header_.plain()) return std::nullopt;
            in_.seek(nextAt_);
            if (in_.peek() != 'P') return std::nullopt; // raw pictures follow each other without a gap
        }
        header_ = readHeader(in_);
        rasterAt_ = in_.position();
        Layout layout;
        chooseDepth(header_, layout);
        checkSize(header_.width, header_.height, layout.bits, options_);
        layout.width = static_cast<R_INT>(header_.width);
        layout.height = static_cast<R_INT>(header_.height);
        layout.encoding = text('P', header_.magic, header_.plain() ? " plain" : " raw");
        const uint64_t rasterBytes = header_.rowBytes() * header_.height;
        const bool spaced = header_.plain() && !header_.packedBits(); // a plain sample needs a gap to the next one
        checkPlausible(spaced ? header_.rowSamples() * header_.height * 2 - 1 : rasterBytes,
                       source_.size() - std::min(source_.size(), rasterAt_), 1);
        nextAt_ = rasterAt_ + rasterBytes;
        return layout;
    }

    void readRows(PixelRows& rows) override
    {
        in_.seek(rasterAt_);
        Row out(rows.rowBytes());
        std::vector<uint16_t> samples(static_cast<size_t>(header_.rowSamples()));
        Row stored(static_cast<size_t>(header_.rowBytes()));
        for (R_INT y = 0; y < rows.height(); ++y) {
            if (header_.magic == '4') {
                in_.readAll(out.data(), out.size());
            } else {
                header_.plain() ? readPlain(samples) : readRaw(stored, samples);
                convert(samples, out, rows.layout());
            }
            rows.put(y, out);
        }
    }

private:
    void readPlain(std::vector<uint16_t>& samples)
    {
        for (uint16_t& sample : samples) {
            unsigned value = 0;
            if (header_.packedBits()) {
                skipBlank(in_); // digits need no gaps between them
                value = in_.need() - unsigned{'0'};
            } else {
                value = readNumber(in_);
            }
            sample = checked(value);
        }
    }

    void readRaw(Row& stored, std::vector<uint16_t>& samples)
    {
        in_.readAll(stored.data(), stored.size());
        const bool words = header_.sampleBytes() == 2;
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] = checked(words ? unsigned{stored[2 * i]} << 8 | stored[2 * i + 1] : stored[i]);
    }

    uint16_t checked(unsigned value) const
    {
        if (value > header_.maximum) throwCorrupt("a sample above the maximum");
        return static_cast<uint16_t>(value);
    }

    void convert(std::vector<uint16_t>& samples, Row& out, const Layout& layout)
    {
        if (layout.bits <= 8 || layout.bits == 12)
            return packSamples(samples.data(), out.data(), samples.size(), layout.bits);
        if (layout.bits == 16 && layout.order != ORDER_GRAY) return convert555(samples, out);
        const unsigned top =
            layout.bits == 24 || layout.bits == 32 ? 255 : (1u << std::min(layout.significantBits(), 16)) - 1;
        if (header_.maximum != top)
            for (uint16_t& sample : samples) sample = static_cast<uint16_t>(rescale(sample, header_.maximum, top));
        if (header_.components == 2) spread(samples);
        const std::vector<uint16_t>& pixels = header_.components == 2 ? spread_ : samples;
        if (top == 255)
            std::copy(pixels.begin(), pixels.end(), out.begin());
        else
            std::memcpy(out.data(), pixels.data(), out.size());
    }

    static void convert555(const std::vector<uint16_t>& samples, Row& out)
    {
        for (size_t x = 0; x < samples.size() / 3; ++x) {
            const unsigned pixel = samples[3 * x] * 1024u + samples[3 * x + 1] * 32u + samples[3 * x + 2];
            out[2 * x] = static_cast<uint8_t>(pixel);
            out[2 * x + 1] = static_cast<uint8_t>(pixel >> 8);
        }
    }

    /// Gray with alpha as colour with alpha.
    void spread(const std::vector<uint16_t>& samples)
    {
        spread_.clear();
        for (size_t i = 0; i < samples.size(); i += 2) {
            spread_.insert(spread_.end(), 3, samples[i]);
            spread_.push_back(samples[i + 1]);
        }
    }

    ByteSource& source_;
    ReadOptions options_;
    BufferedReader in_;
    Header header_;
    uint64_t rasterAt_ = 0;
    uint64_t nextAt_ = 0;
    std::vector<uint16_t> spread_;
};

} // namespace

std::unique_ptr<Decoder> openNetpbm(ByteSource& source, const ReadOptions& options)
{
    return std::make_unique<NetpbmDecoder>(source, options);
}

} // namespace rvimg
