#include "Commands.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

namespace rvimg {

namespace {

using Json = nlohmann::ordered_json;

struct FileFacts {
    std::string file;
    std::string format;
    std::vector<Layout> pages;
    std::string failure; ///< what ended the reading; pages before it stand
};

FileFacts factsOf(const std::string& file, const ReadOptions& options)
{
    FileFacts facts;
    facts.file = file;
    try {
        const auto source = openSource(pathOf(file));
        const Format& format = formatOf(*source);
        facts.format = format.name;
        const auto decoder = format.open(*source, options);
        while (const auto layout = decoder->next()) {
            throwIfInterrupted();
            facts.pages.push_back(*layout);
        }
    } catch (const Interrupted&) {
        throw;
    } catch (const std::exception& error) {
        facts.failure = error.what();
    }
    return facts;
}

/// The record the kernel would make of the page.
BITMAPHANDLE recordOf(const Layout& layout)
{
    BITMAPHANDLE record{};
    check(R_InitBitmap(&record, BITMAPHANDLE_SIZE, layout.width, layout.height, layout.bits));
    return record;
}

const char* orderName(const Layout& layout)
{
    if (layout.hasPalette()) return rampOf(layout) == Ramp::none ? "palette" : "gray";
    return layout.order == ORDER_GRAY ? "gray" : layout.order == ORDER_BGR ? "BGR" : "RGB";
}

std::string colourText(COLORREF colour)
{
    constexpr char kDigits[] = "0123456789abcdef";
    if ((colour & COLOUR_KIND_MASK) == COLOUR_PALETTE_INDEX) return text("index ", colour & 0xFFFFFF);
    if ((colour & COLOUR_KIND_MASK) == COLOUR_GRAY_LEVEL) return text("gray ", colour & 0xFFFFFF);
    std::string name = "#";
    for (const unsigned shift : {4u, 0u, 12u, 8u, 20u, 16u}) name += kDigits[colour >> shift & 15];
    return name;
}

Json jsonOf(const Layout& layout, size_t page)
{
    const BITMAPHANDLE record = recordOf(layout);
    const R_UINT bytesPerLine = record.BytesPerLine;
    const R_UINT64 size = record.Size64;
    Json json = {{"page", page},
                 {"width", layout.width},
                 {"height", layout.height},
                 {"bitsPerPixel", layout.bits},
                 {"order", orderName(layout)},
                 {"colors", layout.palette.size()},
                 {"alpha", layout.hasAlpha()},
                 {"premultiplied", layout.premultiplied},
                 {"signed", layout.isSigned},
                 {"significantBits", layout.isGray() ? Json(layout.significantBits()) : Json(nullptr)},
                 {"transparency", layout.transparency ? Json(colourText(*layout.transparency)) : Json(nullptr)},
                 {"viewPerspective", layout.perspective},
                 {"orientation", perspectiveName(layout.perspective)},
                 {"xResolution", layout.resolution ? Json(layout.resolution->x) : Json(nullptr)},
                 {"yResolution", layout.resolution ? Json(layout.resolution->y) : Json(nullptr)},
                 {"encoding", layout.encoding},
                 {"bytesPerLine", bytesPerLine},
                 {"size", size}};
    if (layout.hasPalette()) {
        Json palette = Json::array();
        for (const RGBQUAD& entry : layout.palette) palette.push_back({entry.rgbRed, entry.rgbGreen, entry.rgbBlue});
        json["palette"] = std::move(palette);
    }
    return json;
}

Json jsonOf(const FileFacts& facts)
{
    Json json = {{"file", facts.file}};
    json["format"] = facts.format.empty() ? Json(nullptr) : Json(facts.format);
    json["pages"] = Json::array();
    for (size_t i = 0; i < facts.pages.size(); ++i) json["pages"].push_back(jsonOf(facts.pages[i], i + 1));
    if (!facts.failure.empty()) json["error"] = facts.failure;
    return json;
}

void print(const FileFacts& facts)
{
    if (facts.pages.empty()) return;
    std::cout << facts.file << ": " << facts.format;
    if (facts.pages.size() > 1) std::cout << ", " << facts.pages.size() << " pages";
    std::cout << '\n';
    for (size_t i = 0; i < facts.pages.size(); ++i) {
        const Layout& layout = facts.pages[i];
        std::cout << (facts.pages.size() > 1 ? text("  page ", i + 1, ": ") : "  ") << layout.width << " x "
                  << layout.height << ", " << describe(layout);
        if (layout.hasPalette() && rampOf(layout) == Ramp::none)
            std::cout << ", " << layout.palette.size() << " colours";
        if (layout.transparency) std::cout << ", transparent " << colourText(*layout.transparency);
        if (layout.resolution) std::cout << ", " << layout.resolution->x << " x " << layout.resolution->y << " dpi";
        std::cout << ", " << perspectiveName(layout.perspective) << ", " << layout.encoding << '\n';
    }
}

} // namespace

bool showInfo(const InfoOptions& options)
{
    bool allRead = true;
    Json all = Json::array();
    for (const std::string& file : options.files) {
        const FileFacts facts = factsOf(file, options.reading);
        if (options.json)
            all.push_back(jsonOf(facts));
        else
            print(facts);
        std::cout.flush();
        if (facts.failure.empty()) continue;
        allRead = false;
        report(file, facts.failure);
    }
    if (options.json) std::cout << all.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    return allRead;
}

} // namespace rvimg
