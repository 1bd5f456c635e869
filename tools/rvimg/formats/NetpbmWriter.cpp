#include "Netpbm.h"

#include "Error.h"
#include "Samples.h"

#include <algorithm>
#include <cstring>

namespace rvimg {

using namespace netpbm;

namespace {

/// How a page is written.
struct Plan {
    char magic = 0; ///< '4' to '7'; 0 where the page has no place
    unsigned components = 1;
    unsigned maximum = 1;
    bool inverted = false; ///< samples run from white to black
};

Plan planPalette(Kind kind, const Layout& layout)
{
    const Ramp ramp = evenGrays(layout.palette);
    const auto last = static_cast<unsigned>(layout.palette.size()) - 1;
    const bool whole = bitsOfMaximum(last) == layout.bits;
    const bool falling = ramp == Ramp::falling;
    if (layout.bits == 1 && whole && ramp != Ramp::none && (kind == Kind::bitmap || kind == Kind::any))
        return {'4', 1, 1, !falling}; // 1 is black
    if (kind == Kind::bitmap || kind == Kind::colour) return {};
    // A maximum that means another depth would not come back as this one.
    const bool ragged = layout.bits == 8 && bitsOfMaximum(last) == 0;
    if (ramp != Ramp::none && (whole || ragged)) return {'5', 1, last, falling};
    return grayLevels(layout) ? Plan{'5', 1, 255} : Plan{};
}

Plan planOf(Kind kind, const Layout& layout)
{
    if (layout.transparency || layout.premultiplied || layout.isSigned) return {};
    if (layout.hasPalette()) return planPalette(kind, layout);
    const bool grayFits = kind != Kind::bitmap && kind != Kind::colour;
    const bool colourFits = kind != Kind::bitmap && kind != Kind::gray;
    if (layout.isGray()) return grayFits ? Plan{'5', 1, (1u << layout.significantBits()) - 1} : Plan{};
    if (layout.hasAlpha()) return kind == Kind::arbitrary ? Plan{'7', 4, layout.bits == 32 ? 255u : 65535u} : Plan{};
    if (!colourFits) return {};
    return {'6', 3, layout.bits == 16 ? kMax555 : layout.bits == 24 ? 255u : 65535u};
}

const char* tupleType(const Plan& plan)
{
    if (plan.components == 4) return "RGB_ALPHA";
    if (plan.components == 3) return "RGB";
    return plan.maximum == 1 ? "BLACKANDWHITE" : "GRAYSCALE";
}

class NetpbmEncoder final : public Encoder {
public:
    NetpbmEncoder(ByteSink& sink, Kind kind) : sink_(sink), kind_(kind) {}

    void writePage(PixelRows& rows) override
    {
        const Layout& layout = rows.layout();
        plan_ = planOf(kind_, layout);
        levels_ = plan_.maximum == 255 ? grayLevels(layout) : std::nullopt;
        writeHeader(layout);
        const RowOrder order(layout, false);
        Row row(rows.rowBytes());
        for (R_INT i = 0; i < layout.height; ++i) {
            rows.get(order(i), row);
            plan_.magic == '4' ? writeBits(row, layout) : writeSamples(row, layout);
        }
    }

private:
    void writeHeader(const Layout& layout)
    {
        std::string header;
        if (kind_ == Kind::arbitrary)
            header = text("P7\nWIDTH ", layout.width, "\nHEIGHT ", layout.height, "\nDEPTH ", plan_.components,
                          "\nMAXVAL ", plan_.maximum, "\nTUPLTYPE ", tupleType(plan_), "\nENDHDR\n");
        else if (plan_.magic == '4')
            header = text("P4\n", layout.width, ' ', layout.height, '\n');
        else
            header = text('P', plan_.magic, '\n', layout.width, ' ', layout.height, '\n', plan_.maximum, '\n');
        sink_.write(header.data(), header.size());
    }

    void writeBits(Row& row, const Layout& layout)
    {
        if (plan_.inverted) {
            invert(row.data(), row.size());
            clearBehind(row.data(), layout.pixels());
        }
        sink_.write(row.data(), row.size());
    }

    void writeSamples(Row& row, const Layout& layout)
    {
        samples_.resize(layout.pixels() * plan_.components);
        if (layout.hasPalette() || layout.bits == 12)
            unpackSamples(row.data(), samples_.data(), samples_.size(), layout.bits);
        else if (layout.bits == 16 && !layout.isGray())
            unpack555(row);
        else
            unpackWhole(row, layout);
        if (levels_)
            for (uint16_t& sample : samples_) sample = (*levels_)[sample];
        else if (plan_.inverted)
            for (uint16_t& sample : samples_) sample = static_cast<uint16_t>(plan_.maximum - sample);
        writeOut();
    }

    void unpack555(const Row& row)
    {
        for (size_t x = 0; x < samples_.size() / 3; ++x) {
            const unsigned pixel = row[2 * x] | unsigned{row[2 * x + 1]} << 8;
            for (size_t c = 0; c < 3; ++c) samples_[3 * x + c] = static_cast<uint16_t>(pixel >> (10 - 5 * c) & kMax555);
        }
    }

    void unpackWhole(Row& row, const Layout& layout)
    {
        const size_t bytes = plan_.maximum > 255 ? 2 : 1;
        if (layout.order == ORDER_BGR) swapRedBlue(row.data(), layout.pixels(), plan_.components, bytes);
        if (bytes == 2)
            std::memcpy(samples_.data(), row.data(), row.size());
        else
            std::copy(row.begin(), row.end(), samples_.begin());
        if (layout.isGray())
            for (uint16_t& sample : samples_) sample &= static_cast<uint16_t>(plan_.maximum);
    }

    void writeOut()
    {
        if (plan_.maximum > 255) {
            swapBigEndian(samples_.data(), samples_.size());
            return sink_.write(samples_.data(), samples_.size() * 2);
        }
        bytes_.assign(samples_.begin(), samples_.end());
        sink_.write(bytes_.data(), bytes_.size());
    }

    ByteSink& sink_;
    Kind kind_;
    Plan plan_;
    std::optional<GrayLevels> levels_; ///< of an 8-bit palette
    std::vector<uint16_t> samples_;
    Row bytes_;
};

template <Kind kind> std::unique_ptr<Encoder> create(ByteSink& sink, const WriteOptions&)
{
    return std::make_unique<NetpbmEncoder>(sink, kind);
}

template <Kind kind> std::string refusal(const Layout& layout)
{
    if (planOf(kind, layout).magic != 0) return "";
    return layout.transparency ? "a transparent colour" : describe(layout);
}

/// Pictures of one name are plain ones, raw ones, and those that another reader has to refuse by name.
template <char... magics> bool recognises(std::span<const uint8_t> head)
{
    return head.size() >= 2 && head[0] == 'P' && ((head[1] == magics) || ...);
}

template <Kind kind, char... magics> Format formatOfKind(std::string_view name, std::string_view ending)
{
    Format format;
    format.name = name;
    format.endings = {ending};
    format.manyPages = true;
    if (sizeof...(magics) > 0) format.recognises = recognises<magics...>;
    format.open = openNetpbm;
    format.create = create<kind>;
    format.refusal = refusal<kind>;
    return format;
}

} // namespace

std::vector<Format> netpbmFormats()
{
    return {formatOfKind<Kind::bitmap, '1', '4'>("PBM", "pbm"), formatOfKind<Kind::gray, '2', '5'>("PGM", "pgm"),
            formatOfKind<Kind::colour, '3', '6', 'F', 'f'>("PPM", "ppm"), formatOfKind<Kind::any>("PNM", "pnm"),
            formatOfKind<Kind::arbitrary, '7'>("PAM", "pam")};
}

} // namespace rvimg
