#include "Depth.h"

#include "Error.h"

#include <algorithm>

namespace rvimg {

namespace {

bool hasOnlyGrays(const std::vector<RGBQUAD>& palette)
{
    return std::all_of(palette.begin(), palette.end(), [](const RGBQUAD& entry) {
        return entry.rgbRed == entry.rgbGreen && entry.rgbGreen == entry.rgbBlue;
    });
}

/// Samples of more than 8 bits.
bool isFine(const Layout& layout)
{
    return layout.isGray() ? layout.significantBits() > 8 : layout.bits == 48 || layout.bits == 64;
}

/// What a page can become, the best first.
std::vector<Depth> depthsOf(const Layout& layout)
{
    const bool gray = layout.isGray() || (layout.hasPalette() && hasOnlyGrays(layout.palette));
    const R_UINT order = layout.order == ORDER_BGR ? COLORRES_ORDER_BGR : 0;
    std::vector<Depth> depths;
    const auto addGrays = [&] {
        if (isFine(layout)) depths.push_back({16, COLORRES_ORDER_GRAY});
        depths.push_back({8, COLORRES_ORDER_GRAY});
    };
    if (layout.premultiplied) depths.push_back({layout.bits, order, true});
    if (layout.hasPalette())
        for (R_INT bits = layout.bits + 1; bits <= (gray ? 7 : 8); ++bits) depths.push_back({bits, COLORRES_SOURCE});
    if (gray) addGrays();
    if (layout.hasAlpha()) depths.push_back({32, order, layout.premultiplied});
    if (isFine(layout)) depths.push_back({48, order});
    depths.push_back({24, order});
    if (!gray) addGrays();
    depths.push_back({1, COLORRES_FIXED | COLORRES_DITHER});
    return depths;
}

/// The page as it will be.
Layout changed(const Layout& from, const Depth& depth)
{
    Layout to = from;
    to.bits = depth.bits;
    to.order = (depth.flags & COLORRES_ORDER_GRAY) != 0  ? ORDER_GRAY
               : (depth.flags & COLORRES_ORDER_BGR) != 0 ? ORDER_BGR
                                                         : ORDER_RGB;
    to.highBit = -1;
    if (to.hasPalette() && (depth.flags & COLORRES_SOURCE) == 0) to.palette = grayRamp(depth.bits);
    if (!to.hasPalette()) to.palette.clear();
    if (depth.unpremultiplied || !to.hasAlpha()) to.premultiplied = false;
    return to;
}

bool sameColour(const RGBQUAD& a, const RGBQUAD& b)
{
    return a.rgbRed == b.rgbRed && a.rgbGreen == b.rgbGreen && a.rgbBlue == b.rgbBlue;
}

/// Whether colours that were different still are.
bool toldApart(const Layout& before, const Layout& after)
{
    if (after.isGray()) return before.isGray() && after.significantBits() >= before.significantBits();
    if (!after.hasPalette()) return after.bits >= 24;
    return before.hasPalette() && before.palette.size() <= after.palette.size() &&
           std::equal(before.palette.begin(), before.palette.end(), after.palette.begin(), sameColour);
}

/// Gives a page of two colours black for the darker one.
void makeBlackAndWhite(Image& image)
{
    const std::vector<RGBQUAD> palette = image.layout().palette;
    const auto light = [](const RGBQUAD& entry) { return 2 * entry.rgbRed + 5 * entry.rgbGreen + entry.rgbBlue; };
    const int other = palette.size() > 1 ? light(palette[1]) : 4 * 255;
    const bool falling = !palette.empty() && light(palette[0]) > other;
    check(R_SetBitmapNewPalette(image.record(), grayRamp(1, falling ? Ramp::falling : Ramp::rising).data(), 2));
}

bool holds(const Format& format, const Layout& layout) { return format.refusal(layout).empty(); }

} // namespace

std::optional<Depth> depthFor(const Format& format, const Layout& layout)
{
    if (!holds(format, layout) && !layout.isSigned)
        for (const Depth& depth : depthsOf(layout)) {
            const Layout to = changed(layout, depth);
            if (!holds(format, to)) continue;
            checkHolds(format, to); // its orientation too
            return depth;
        }
    checkHolds(format, layout);
    return std::nullopt;
}

void changeDepth(Image& image, const Depth& depth)
{
    BITMAPHANDLE* const record = image.record();
    if (depth.unpremultiplied) check(R_UnpremultiplyBitmap(record));
    const Layout layout = image.layout();
    if (depth.unpremultiplied && layout.bits == depth.bits) return;
    if (layout.bits == 1 && depth.bits == 1) return makeBlackAndWhite(image);
    record->DitheringMethod = DITHER_FLOYD_STEINBERG;
    check(R_ColorResBitmap(nullptr, record, BITMAPHANDLE_SIZE, depth.bits, depth.flags, nullptr, 0));
}

bool showsGray(BITMAPHANDLE* record)
{
    const R_INT kind = R_IsGrayScaleBitmap(record);
    if (kind < 0) check(kind);
    return kind > 0;
}

bool dropUncertainTransparency(Image& image, const Layout& before)
{
    const Layout after = image.layout();
    if (!before.transparency || toldApart(before, after)) return false;
    image.record()->Flags &= ~FLAG_TRANSPARENCY;
    return true;
}

} // namespace rvimg
