#include "Format.h"

#include "Error.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace rvimg {

namespace {

std::vector<Format> allFormats()
{
    std::vector<Format> list = {bmpFormat()};
#if defined(RVIMG_HAVE_JPEG)
    list.push_back(jpegFormat());
#endif
    for (Format& format : netpbmFormats()) list.push_back(std::move(format));
#if defined(RVIMG_HAVE_PNG)
    list.push_back(pngFormat());
#endif
#if defined(RVIMG_HAVE_TIFF)
    list.push_back(tiffFormat());
#endif
    return list;
}

/// Upside-down rows without a field to say so are merely another way to store the picture.
bool needsField(const Layout& layout) { return layout.perspective != TOP_LEFT && layout.perspective != BOTTOM_LEFT; }

} // namespace

const std::vector<Format>& formats()
{
    static const std::vector<Format> list = allFormats();
    return list;
}

const Format& formatOf(ByteSource& source)
{
    std::array<uint8_t, 16> head{};
    source.seek(0);
    const size_t got = source.read(head.data(), head.size());
    source.seek(0);
    if (got == 0) throw Error("the file is empty");
    for (const Format& format : formats())
        if (format.recognises != nullptr && format.recognises(std::span(head).first(got))) return format;
    throw Error(text("not a picture of a known format (", formatNames(), ")"));
}

const Format* formatNamed(std::string_view name)
{
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const Format& format : formats())
        if (std::find(format.endings.begin(), format.endings.end(), lower) != format.endings.end()) return &format;
    return nullptr;
}

std::string formatNames()
{
    std::string names;
    for (const Format& format : formats()) names += (names.empty() ? "" : ", ") + std::string(format.endings.front());
    return names;
}

void checkHolds(const Format& format, const Layout& layout)
{
    const std::string missing = format.refusal(layout);
    if (!missing.empty()) throw Error(text(format.name, " cannot hold ", missing));
    if (!format.orientation && needsField(layout))
        throw Error(text(format.name, " cannot hold the orientation ", perspectiveName(layout.perspective)));
}

void checkSize(uint64_t width, uint64_t height, R_INT bits, const ReadOptions& options)
{
    if (width == 0 || height == 0) throw Error("the picture has no pixels");
    constexpr uint64_t kMaxSide = 0x7FFFFFFF;
    if (width > kMaxSide || height > kMaxSide) throw Error(text("absurd size ", width, " x ", height));
    const uint64_t lineBits = width * static_cast<uint64_t>(bits);
    if (lineBits > 0xFFFFFFFFu - 31) throw Error(text("rows of ", width, " pixels are too long"));
    const uint64_t lineBytes = (lineBits + 31) / 32 * 4;
    if (lineBytes > options.maxBytes / height)
        throw Error(text(width, " x ", height, " pixels of ", bits, " bits take more than ", options.maxBytes,
                         " bytes (--max-size allows more)"));
}

void checkPlausible(uint64_t rawBytes, uint64_t fileBytes, uint64_t ratio)
{
    if (rawBytes / ratio > fileBytes) throw Error("the file is truncated: it is too short for its picture's size");
}

RowOrder::RowOrder(const Layout& layout, bool hasField)
    : orientation(layout.perspective), height(layout.height),
      reversed(layout.perspective == BOTTOM_LEFT && !(hasField && layout.tagged))
{
    if (reversed) orientation = TOP_LEFT;
}

} // namespace rvimg
