#include "Palettes.h"

#include "Operations.h"
#include "PictureWriter.h"
#include "Progress.h"
#include "Samples.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

namespace rvimg {

namespace {

/// Nothing for a file that is no list of colours.
std::optional<Palette> paletteOfText(ByteSource& source)
{
    constexpr size_t kLongest = 65536;
    std::string content(kLongest, '\0');
    source.seek(0);
    content.resize(source.read(content.data(), content.size()));
    source.seek(0);
    Palette palette;
    std::istringstream words(content);
    unsigned number = 0;
    for (std::string word; words >> word;) {
        if (word.front() != '#' && std::istringstream(word) >> number) words >> word;
        const auto colour = word.size() == 7 && word.front() == '#' ? colourOf(word) : std::nullopt;
        if (!colour || palette.size() == kMostColours) return std::nullopt;
        const auto byte = [&](int shift) { return static_cast<uint8_t>(colour->rgb >> shift); };
        palette.push_back({byte(16), byte(8), byte(0), 0});
    }
    return palette.empty() ? std::nullopt : std::optional(palette);
}

/// The palette that suits a picture.
Palette makePalette(Image& image, unsigned colours)
{
    Palette palette(colours);
    R_UINT count = colours;
    check(R_CreateBitmapOptPal(image.record(), palette.data(), &count, nullptr, 0));
    palette.resize(count);
    return palette;
}

/// A field for each colour, in rows of up to 16; those of the last row share its width.
Image drawSwatches(const Palette& palette, Progress& progress)
{
    constexpr size_t kSide = 32, kMostInRow = 16;
    const size_t inRow = std::min(palette.size(), kMostInRow), rows = (palette.size() + inRow - 1) / inRow;
    Layout layout;
    layout.width = static_cast<R_INT>(inRow * kSide);
    layout.height = static_cast<R_INT>(rows * kSide);
    layout.bits = bitsFor(palette.size());
    layout.palette = palette;
    Image image(layout);
    PixelRows pixels(image, progress);
    std::vector<uint16_t> indices(layout.pixels());
    Row row(layout.rowBytes());
    for (size_t y = 0; y < rows * kSide; ++y) {
        const size_t first = y / kSide * inRow, here = std::min(inRow, palette.size() - first);
        for (size_t x = 0; x < indices.size(); ++x)
            indices[x] = static_cast<uint16_t>(first + x * here / indices.size());
        packSamples(indices.data(), row.data(), indices.size(), layout.bits);
        pixels.put(static_cast<R_INT>(y), row);
    }
    pixels.finish();
    return image;
}

void print(const Palette& palette)
{
    unsigned index = 0;
    for (const RGBQUAD& entry : palette) {
        char line[16];
        std::snprintf(line, sizeof line, "%3u #%02x%02x%02x", index++, entry.rgbRed, entry.rgbGreen, entry.rgbBlue);
        std::cout << line << '\n';
    }
}

} // namespace

R_INT bitsFor(size_t colours) { return colours <= 2 ? 1 : colours <= 4 ? 2 : colours <= 16 ? 4 : 8; }

Palette readPalette(const std::string& file, const ReadOptions& options, unsigned page)
{
    return on(file, [&] {
        const auto source = openSource(pathOf(file));
        if (const auto palette = paletteOfText(*source)) return *palette;
        const auto decoder = formatOf(*source).open(*source, options);
        std::optional<Layout> layout;
        for (unsigned i = 0; i < page; ++i)
            if (layout = decoder->next(); !layout) throw Error(text("there is no page ", page));
        if (!layout->hasPalette()) throw Error("has no palette; it is " + describe(*layout));
        return layout->palette;
    });
}

void showPalette(const PaletteOptions& options)
{
    const Format* const format = options.swatches.empty() ? nullptr : &outputFormat(options.swatches, options.format);
    const unsigned page = std::max(options.page, 1u);
    Palette palette;
    if (options.colours == 0) {
        palette = readPalette(options.input, options.reading, page);
    } else {
        Image image = readPicture(options.input, options.reading, page);
        palette = on(options.input, [&] { return makePalette(image, options.colours); });
    }
    if (format == nullptr) return print(palette);
    on(options.swatches, [&] {
        Progress unseen(false);
        Image image = drawSwatches(palette, unseen);
        PictureWriter writer(options.swatches, *format, options.writing);
        writer.write(image, unseen);
        writer.commit();
    });
}

} // namespace rvimg
