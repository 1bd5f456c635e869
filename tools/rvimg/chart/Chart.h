/// The pictures that the tool can draw.
#pragma once

#include "Image.h"

#include <functional>

namespace rvimg::chart {

/// A picture in memory, rows from the top, 24 bits red first or 1 bit with 1 for white.
struct Picture {
    Layout layout;
    std::vector<uint8_t> bytes;

    explicit Picture(Layout shape)
        : layout(std::move(shape)), bytes(layout.rowBytes() * static_cast<size_t>(layout.height))
    {
    }
    uint8_t* row(int y) { return bytes.data() + layout.rowBytes() * static_cast<size_t>(y); }
    bool contains(int x, int y) const { return x >= 0 && y >= 0 && x < layout.width && y < layout.height; }
};

/// Called after each row of the slow parts.
using Step = std::function<void()>;

/// A photographic test chart: a lit scene, gradients, noise, colour patches, fine lines, a label.
Picture drawPhoto(int width, int height, const Step& step);
/// A page of text with a title, paragraphs, a table and a figure.
Picture drawPage(int width, int height, const Step& step);

} // namespace rvimg::chart
