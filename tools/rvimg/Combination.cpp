// Another picture combined into the pages of one.
#include "Operations.h"
#include "Samples.h"

#include <algorithm>
#include <limits>
#include <vector>

namespace rvimg {

namespace {

struct Mode {
    const char* name;
    R_UINT flags;
};

constexpr Mode kModes[] = {{"over", COMBINE_SRC_OVER}, {"and", COMBINE_AND},        {"or", COMBINE_OR},
                           {"xor", COMBINE_XOR},       {"add", COMBINE_ADD},        {"subtract", COMBINE_SUB_SRC},
                           {"multiply", COMBINE_MUL},  {"divide", COMBINE_DIV_SRC}, {"average", COMBINE_AVG},
                           {"minimum", COMBINE_MIN},   {"maximum", COMBINE_MAX}};

R_UINT flagsOf(const Combination& combination)
{
    const Mode* const mode =
        std::find_if(std::begin(kModes), std::end(kModes), [&](const Mode& m) { return combination.mode == m.name; });
    if (mode == std::end(kModes)) throw UsageError("unknown mode " + combination.mode);
    return mode->flags | (combination.invertOther ? COMBINE_SRC_NOT : COMBINE_SRC_NOP) |
           (combination.invertPicture ? COMBINE_DST_NOT : COMBINE_DST_NOP) |
           (combination.invertResult ? COMBINE_RES_NOT : COMBINE_RES_NOP);
}

/// Gives the components of a picture's pixels another order.
void exchangeRedAndBlue(BITMAPHANDLE* record)
{
    const size_t components = record->BitsPerPixel % 32 == 0 ? 4 : 3;
    const size_t componentBytes = record->BitsPerPixel > 32 ? 2 : 1;
    Row row(record->BytesPerLine);
    check(R_AccessBitmap(record));
    for (R_INT y = 0; y < record->Height; ++y) {
        checkMoved(R_GetBitmapRow(record, row.data(), y, row.size()), row.size());
        swapRedBlue(row.data(), static_cast<size_t>(record->Width), components, componentBytes);
        checkMoved(R_PutBitmapRow(record, row.data(), y, row.size()), row.size());
    }
    check(R_ReleaseBitmap(record));
    record->Order = record->Order == ORDER_BGR ? ORDER_RGB : ORDER_BGR;
}

constexpr R_INT kAll = std::numeric_limits<R_INT>::max(); // what lies outside is cut

std::vector<RGBQUAD> paletteOf(BITMAPHANDLE* record)
{
    std::vector<RGBQUAD> palette(record->nColors);
    palette.resize(R_GetBitmapPaletteEntries(record, 0, record->nColors, palette.data()));
    return palette;
}

/// Which index is black and which is white can be exchanged; other palettes have to be the same.
void makePaletteAlike(BITMAPHANDLE* record, BITMAPHANDLE* page)
{
    std::vector<RGBQUAD> own = paletteOf(record);
    const std::vector<RGBQUAD> wanted = paletteOf(page);
    const auto agree = [](const RGBQUAD& a, const RGBQUAD& b) {
        return a.rgbRed == b.rgbRed && a.rgbGreen == b.rgbGreen && a.rgbBlue == b.rgbBlue;
    };
    if (std::equal(own.begin(), own.end(), wanted.begin(), wanted.end(), agree)) return;
    std::reverse(own.begin(), own.end());
    const bool exchanged = evenGrays(own) != Ramp::none && own.size() == size_t{1} << record->BitsPerPixel &&
                           std::equal(own.begin(), own.end(), wanted.begin(), wanted.end(), agree);
    if (!exchanged) throw Error("has another palette than the other picture");
    constexpr R_UINT kInvert = COMBINE_SRC_0 | COMBINE_DST_NOT | COMBINE_OR;
    check(R_CombineBitmapKrn(record, 0, 0, kAll, kAll, nullptr, 0, 0, kInvert));
    check(R_CopyBitmapPalette(record, page));
}

/// The kernel combines pixels as they are stored: they must be stored alike.
void makeAlike(Image& other, BITMAPHANDLE* page)
{
    BITMAPHANDLE* const record = other.record();
    const bool bothGray = (record->Order == ORDER_GRAY) == (page->Order == ORDER_GRAY);
    if (record->BitsPerPixel != page->BitsPerPixel || (page->BitsPerPixel > 8 && !bothGray))
        throw Error("is of another kind than the other picture, which is " + describe(other.layout()));
    if (page->BitsPerPixel >= 24 && record->Order != page->Order) exchangeRedAndBlue(record);
    if (page->BitsPerPixel <= 8) makePaletteAlike(record, page);
}

} // namespace

std::vector<std::string> combinationModes()
{
    std::vector<std::string> names;
    for (const Mode& mode : kModes) names.emplace_back(mode.name);
    return names;
}

Operation combineWith(const Combination& combination, const ReadOptions& reading)
{
    const auto other = std::make_shared<Image>(readPicture(combination.file, reading));
    return [other, flags = flagsOf(combination), at = combination.at.value_or(Place{})](BITMAPHANDLE* page) {
        makeAlike(*other, page);
        RECT corner{at.x, at.y, at.x + 1, at.y + 1};
        check(R_RectToBitmap(page, TOP_LEFT, &corner));
        const bool inside =
            corner.left >= 0 && corner.top >= 0 && corner.left < page->Width && corner.top < page->Height;
        if (!inside) throw Error("the other picture would lie outside of it");
        return R_CombineBitmapKrn(page, at.x, at.y, kAll, kAll, other->record(), 0, 0, flags);
    };
}

} // namespace rvimg
