/// The image that a bitmap displays.
#pragma once

#include "Support/World.h"

#include <functional>
#include <vector>

namespace rv::test {

/// The pixels in the order in which a person sees them.
struct Picture {
    explicit Picture(BITMAPHANDLE* bitmap)
    {
        const auto rows = pixelsOf(bitmap);
        const R_INT perspective = bitmap->ViewPerspective;
        const bool turned = perspective >= LEFT_TOP;
        width = turned ? bitmap->Height : bitmap->Width;
        height = turned ? bitmap->Width : bitmap->Height;
        for (R_INT y = 0; y < height; ++y) {
            for (R_INT x = 0; x < width; ++x) {
                R_INT row = turned ? x : y, column = turned ? y : x;
                // Row 0 and column 0 stand where the perspective's name says.
                const bool rowsBackwards = perspective == BOTTOM_RIGHT || perspective == BOTTOM_LEFT ||
                                           perspective == RIGHT_TOP || perspective == RIGHT_BOTTOM;
                const bool columnsBackwards = perspective == TOP_RIGHT || perspective == BOTTOM_RIGHT ||
                                              perspective == RIGHT_BOTTOM || perspective == LEFT_BOTTOM;
                if (rowsBackwards) row = bitmap->Height - 1 - row;
                if (columnsBackwards) column = bitmap->Width - 1 - column;
                pixels.push_back(
                    pixelAt(rows.data() + R_INT64{row} * bitmap->BytesPerLine, column, bitmap->BitsPerPixel));
            }
        }
    }
    Picture upsideDown() const
    {
        return changed([this](R_INT x, R_INT y) { return (height - 1 - y) * width + x; });
    }
    Picture leftToRight() const
    {
        return changed([this](R_INT x, R_INT y) { return y * width + width - 1 - x; });
    }
    bool operator==(const Picture&) const = default;

    R_INT width, height;
    std::vector<uint64_t> pixels;

private:
    Picture changed(const std::function<R_INT(R_INT, R_INT)>& from) const
    {
        Picture result = *this;
        for (R_INT y = 0; y < height; ++y)
            for (R_INT x = 0; x < width; ++x)
                result.pixels[static_cast<size_t>(y * width + x)] = pixels[static_cast<size_t>(from(x, y))];
        return result;
    }
};

} // namespace rv::test
