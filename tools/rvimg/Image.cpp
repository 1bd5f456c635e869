#include "Image.h"

#include "Error.h"
#include "Progress.h"
#include "Samples.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace rvimg {

namespace {

bool isRamp(const std::vector<RGBQUAD>& palette, Ramp ramp)
{
    const auto last = static_cast<int>(palette.size()) - 1;
    for (int i = 0; i <= last; ++i) {
        const RGBQUAD& entry = palette[static_cast<size_t>(i)];
        const int level = ramp == Ramp::rising ? i : last - i;
        if (entry.rgbRed != entry.rgbGreen || entry.rgbGreen != entry.rgbBlue) return false;
        if (std::abs(entry.rgbRed * last - level * 255) >= last) return false; // any way of rounding is a ramp
    }
    return true;
}

void setFlag(BITMAPHANDLE* record, R_UINT flag, bool on)
{
    if (on) record->Flags |= flag;
}

} // namespace

Ramp evenGrays(const std::vector<RGBQUAD>& palette)
{
    if (palette.size() < 2) return Ramp::none;
    if (isRamp(palette, Ramp::rising)) return Ramp::rising;
    return isRamp(palette, Ramp::falling) ? Ramp::falling : Ramp::none;
}

Ramp rampOf(const Layout& layout)
{
    return layout.hasPalette() && layout.palette.size() == size_t{1} << layout.bits ? evenGrays(layout.palette)
                                                                                    : Ramp::none;
}

std::optional<GrayLevels> grayLevels(const Layout& layout)
{
    if (layout.bits != 8) return std::nullopt;
    GrayLevels levels{};
    for (size_t i = 0; i < layout.palette.size(); ++i) {
        const RGBQUAD& entry = layout.palette[i];
        if (entry.rgbRed != entry.rgbGreen || entry.rgbGreen != entry.rgbBlue) return std::nullopt;
        levels[i] = entry.rgbGreen;
    }
    return levels;
}

std::vector<RGBQUAD> grayRamp(R_INT bits, Ramp ramp)
{
    const unsigned last = (1u << bits) - 1;
    std::vector<RGBQUAD> palette;
    for (unsigned i = 0; i <= last; ++i) {
        const auto level = static_cast<uint8_t>((i * 255 + last / 2) / last);
        palette.push_back({level, level, level, 0});
    }
    if (ramp == Ramp::falling) std::reverse(palette.begin(), palette.end());
    return palette;
}

std::string describe(const Layout& layout)
{
    if (layout.bits == 16 && !layout.isGray()) return "16-bit colour (5-5-5)";
    std::string depth = text(layout.bits, "-bit ");
    if (layout.isGray() && layout.significantBits() != layout.bits)
        depth = text(layout.significantBits(), " significant bits of ", depth);
    if (layout.isSigned) depth = "signed " + depth;
    if (layout.hasPalette())
        return depth + (rampOf(layout) == Ramp::none ? "palette" : layout.bits == 1 ? "black and white" : "gray");
    if (layout.isGray()) return depth + "gray";
    if (!layout.hasAlpha()) return depth + "colour";
    return depth + (layout.premultiplied ? "colour with premultiplied alpha" : "colour with alpha");
}

const char* perspectiveName(R_INT perspective)
{
    static constexpr std::array<const char*, 9> kNames = {"unknown",      "top-left",     "top-right",
                                                          "bottom-right", "bottom-left",  "left-top",
                                                          "right-top",    "right-bottom", "left-bottom"};
    return kNames[perspective >= TOP_LEFT && perspective <= LEFT_BOTTOM ? static_cast<size_t>(perspective) : 0];
}

std::optional<R_INT> perspectiveNamed(const std::string& name)
{
    for (R_INT perspective = TOP_LEFT; perspective <= LEFT_BOTTOM; ++perspective)
        if (name == perspectiveName(perspective)) return perspective;
    return std::nullopt;
}

Image::Image(const Layout& layout)
    : record_(new BITMAPHANDLE{}), tagged_(layout.tagged), resolved_(layout.resolution.has_value())
{
    std::vector<RGBQUAD> palette;
    if (layout.hasPalette()) {
        palette = layout.palette;
        palette.resize(size_t{1} << layout.bits);
    }
    BITMAPHANDLE* const record = record_.get();
    record->uStructSize = BITMAPHANDLE_SIZE;
    check(R_CreateBitmap(record, BITMAPHANDLE_SIZE, MEM_CONVENTIONAL, layout.width, layout.height, layout.bits,
                         layout.order, palette.empty() ? nullptr : palette.data(), layout.perspective, nullptr, 0));
    if (layout.hasPalette() && layout.palette.size() < palette.size())
        check(R_SetBitmapNewPalette(record, palette.data(), static_cast<R_UINT>(layout.palette.size())));
    if (layout.resolution) {
        record->XResolution = layout.resolution->x;
        record->YResolution = layout.resolution->y;
    }
    if (layout.highBit >= 0) record->HighBit = record->PaintHighBit = layout.highBit;
    if (layout.transparency) record->Transparency = *layout.transparency;
    setFlag(record, FLAG_TRANSPARENCY, layout.transparency.has_value());
    setFlag(record, FLAG_PREMULTIPLY_ALPHA, layout.premultiplied);
    setFlag(record, FLAG_SIGNED, layout.isSigned);
}

Layout Image::layout() const
{
    BITMAPHANDLE* const record = record_.get();
    Layout layout;
    layout.width = record->Width;
    layout.height = record->Height;
    layout.bits = record->BitsPerPixel;
    layout.order = record->Order;
    if (layout.isGray() && record->HighBit >= 0 && record->HighBit < layout.bits - 1) layout.highBit = record->HighBit;
    if (layout.hasPalette()) {
        layout.palette.resize(record->nColors);
        layout.palette.resize(R_GetBitmapPaletteEntries(record, 0, record->nColors, layout.palette.data()));
    }
    layout.perspective = record->ViewPerspective;
    layout.tagged = tagged_;
    if (resolved_) layout.resolution = Resolution{record->XResolution, record->YResolution};
    if ((record->Flags & FLAG_TRANSPARENCY) != 0) layout.transparency = COLORREF{record->Transparency};
    layout.premultiplied = (record->Flags & FLAG_PREMULTIPLY_ALPHA) != 0;
    layout.isSigned = (record->Flags & FLAG_SIGNED) != 0;
    return layout;
}

void Image::coverIndices(unsigned maxIndex)
{
    std::vector<RGBQUAD> palette = layout().palette;
    if (maxIndex < palette.size()) return;
    palette.resize(size_t{maxIndex} + 1);
    check(R_SetBitmapNewPalette(record(), palette.data(), static_cast<R_UINT>(palette.size())));
}

PixelRows::PixelRows(Image& image, Progress& progress)
    : image_(image), progress_(progress), layout_(image.layout()),
      watchIndices_(layout_.hasPalette() && layout_.palette.size() < size_t{1} << layout_.bits)
{
    check(R_AccessBitmap(image_.record()));
}

PixelRows::~PixelRows()
{
    if (open_) R_ReleaseBitmap(image_.record());
}

void PixelRows::put(R_INT row, std::span<uint8_t> bytes)
{
    const size_t used = rowBytes();
    clearBehind(bytes.data(), layout_.pixels() * static_cast<size_t>(layout_.bits));
    if (watchIndices_) maxIndex_ = std::max(maxIndex_, maxSample(bytes.data(), layout_.pixels(), layout_.bits));
    checkMoved(R_PutBitmapRow(image_.record(), bytes.data(), row, used), used);
    progress_.advance();
}

void PixelRows::get(R_INT row, std::span<uint8_t> bytes)
{
    const size_t used = rowBytes();
    checkMoved(R_GetBitmapRow(image_.record(), bytes.data(), row, used), used);
    progress_.advance();
}

void PixelRows::finish()
{
    open_ = false;
    check(R_ReleaseBitmap(image_.record()));
    if (watchIndices_) image_.coverIndices(maxIndex_);
}

} // namespace rvimg
