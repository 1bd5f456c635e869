// Other depths and palettes for the pages of a picture.
#include "Depth.h"
#include "Operations.h"
#include "Palettes.h"

#include <algorithm>
#include <bit>
#include <iterator>

namespace rvimg {

namespace {

constexpr const char* kMethods[] = {
    "none",           "floyd-steinberg", "stucki",  "burkes",   "sierra",
    "stevenson-arce", "jarvis",          "ordered", "clustered"}; // at the kernel's own numbers

struct PaletteName {
    const char* name;
    R_UINT flag;
};
constexpr PaletteName kPalettes[] = {{"optimized", COLORRES_OPTIMIZED},
                                     {"fixed", COLORRES_FIXED},
                                     {"web-safe", COLORRES_WEB_SAFE},
                                     {"gray", COLORRES_GRAY},
                                     {"own", COLORRES_SOURCE}};

/// What R_ColorResBitmap wants to know.
struct Request {
    R_INT bits = 8;
    R_UINT flags = 0;
    Palette entries; ///< the caller's own
    unsigned colours = 0;
};

R_INT colourRes(BITMAPHANDLE* record, const Request& request)
{
    return R_ColorResBitmap(nullptr, record, BITMAPHANDLE_SIZE, request.bits, request.flags,
                            request.entries.empty() ? nullptr : request.entries.data(), request.colours);
}

/// The first entries of a palette; none of them is marked as not to be used.
Request requestFor(Palette entries, unsigned most)
{
    entries.resize(std::min<size_t>(entries.size(), most));
    for (RGBQUAD& entry : entries) entry.rgbReserved = 0;
    const auto count = static_cast<unsigned>(entries.size());
    return {bitsFor(count), COLORRES_USER, std::move(entries), count};
}

Request requestFixed(unsigned colours)
{
    if (!std::has_single_bit(colours) || colours < 2)
        throw UsageError("fixed palettes have 2, 4, 8, 16, 32, 64, 128 or 256 colours");
    Palette entries(colours);
    check(R_GetFixedPalette(entries.data(), std::countr_zero(colours)));
    return requestFor(std::move(entries), colours);
}

/// A request for colours of a palette that has a name; the picture's own are asked for when there is a picture.
Request requestNamed(R_UINT flag, unsigned wanted)
{
    const unsigned colours = wanted == 0 ? kMostColours : wanted;
    if (flag == COLORRES_FIXED) return requestFixed(colours);
    if (flag == COLORRES_WEB_SAFE && wanted != 0 && wanted != kMostColours)
        throw UsageError("the web-safe palette has its own number of colours");
    return {bitsFor(colours), flag, {}, colours};
}

/// Nothing for the name of a file.
std::optional<R_UINT> paletteFlag(const std::string& name)
{
    const auto* const found =
        std::find_if(std::begin(kPalettes), std::end(kPalettes), [&](const PaletteName& p) { return p.name == name; });
    return found == std::end(kPalettes) ? std::nullopt : std::optional(found->flag);
}

Request requestFor(const std::string& palette, unsigned colours, const ReadOptions& reading)
{
    if (const auto flag = paletteFlag(palette)) return requestNamed(*flag, colours);
    return requestFor(readPalette(palette, reading), colours == 0 ? kMostColours : colours);
}

/// A request for the picture's own colours, as many as are wanted of them.
Request ownColours(BITMAPHANDLE* record, unsigned wanted)
{
    if (record->BitsPerPixel > 8) throw Error("has no palette of its own");
    const unsigned colours = std::min<unsigned>(wanted, record->nColors);
    return {bitsFor(colours), COLORRES_SOURCE, {}, colours};
}

/// The palette of a depth, where none is asked for: the picture's own, or grays, where it has no other colours.
Request suitedTo(BITMAPHANDLE* record, R_INT bits)
{
    const unsigned colours = 1u << bits;
    if (record->BitsPerPixel <= 8 && record->nColors <= colours) return {bits, COLORRES_SOURCE, {}, colours};
    if (bits == 1) return {bits, COLORRES_FIXED, {}, 0};
    return {bits, showsGray(record) ? COLORRES_GRAY : COLORRES_OPTIMIZED, {}, colours};
}

/// More than 8 bits.
Request samplesOf(BITMAPHANDLE* record, R_INT bits)
{
    if (bits == 12 || (bits == 16 && showsGray(record))) return {bits, COLORRES_ORDER_GRAY, {}, 0};
    return {bits, record->Order == ORDER_BGR ? COLORRES_ORDER_BGR : R_UINT{0}, {}, 0};
}

} // namespace

std::vector<std::string> paletteNames()
{
    std::vector<std::string> names;
    for (const PaletteName& palette : kPalettes) names.emplace_back(palette.name);
    return names;
}

std::vector<std::string> ditheringMethods() { return {std::begin(kMethods), std::end(kMethods)}; }

Operation ditherTo(const Colours& colours, const ReadOptions& reading)
{
    const std::string palette = !colours.palette.empty() ? colours.palette
                                : colours.count == 2     ? "fixed" // black and white
                                                         : "optimized";
    const Request request = requestFor(palette, colours.count, reading);
    const auto* const method = std::find(std::begin(kMethods), std::end(kMethods), colours.method);
    return [=, number = static_cast<R_INT>(method - kMethods)](BITMAPHANDLE* record) {
        Request asked = request.flags == COLORRES_SOURCE ? ownColours(record, request.colours) : request;
        asked.flags |= COLORRES_DITHER;
        record->DitheringMethod = number;
        return colourRes(record, asked);
    };
}

Operation depthTo(R_INT bits, const std::string& palette, const ReadOptions& reading)
{
    if (palette.empty())
        return [=](BITMAPHANDLE* record) {
            return colourRes(record, bits > 8 ? samplesOf(record, bits) : suitedTo(record, bits));
        };
    if (bits > 8) throw UsageError("pictures of more than 8 bits have no palette");
    const Request request = requestFor(palette, palette == "web-safe" && bits == 8 ? 0 : 1u << bits, reading);
    return [=](BITMAPHANDLE* record) {
        Request asked = request.flags == COLORRES_SOURCE ? ownColours(record, request.colours) : request;
        asked.bits = bits;
        return colourRes(record, asked);
    };
}

Operation grayTo(R_INT bits)
{
    return [=](BITMAPHANDLE* record) {
        const R_INT own = record->BitsPerPixel;
        const bool fine = own > 32 || own == 12 || (own == 16 && record->Order == ORDER_GRAY);
        return R_GrayScaleBitmap(record, bits != 0 ? bits : fine ? 16 : 8);
    };
}

Operation paletteFrom(const std::string& file, bool keepIndices, const ReadOptions& reading)
{
    const Request request = requestFor(readPalette(file, reading), kMostColours);
    return [=](BITMAPHANDLE* record) {
        if (!keepIndices) return colourRes(record, request);
        if (record->BitsPerPixel > 8) throw Error("has no indices to keep");
        Palette entries = request.entries;
        entries.resize(std::min<size_t>(entries.size(), size_t{1} << record->BitsPerPixel));
        // Indices that the other palette lacks keep their colours.
        const R_UINT had = record->nColors;
        const auto count = static_cast<R_UINT>(entries.size());
        if (count < had) {
            entries.resize(had);
            entries.resize(count + R_GetBitmapPaletteEntries(record, static_cast<R_INT>(count), had - count,
                                                             entries.data() + count));
        }
        return R_SetBitmapNewPalette(record, entries.data(), static_cast<R_UINT>(entries.size()));
    };
}

} // namespace rvimg
