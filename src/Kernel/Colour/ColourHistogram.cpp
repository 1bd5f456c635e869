// Counting pixels by their 15-bit colours.

#include "Kernel/Colour/ColourHistogram.h"

#include <algorithm>
#include <cstring>

namespace rv {

void ColourHistogram::clear(R_UINT limit) noexcept
{
    limit_ = limit;
    std::memset(lanes_, 0, sizeof lanes_);
    most_ = 0;
}

/// Adds the other lanes to the first.
void ColourHistogram::gather() noexcept
{
    for (size_t lane = 1; lane < kLanes; ++lane) {
        for (size_t i = 0; i < MATCH_TABLE_CELLS; ++i) lanes_[0][i] += lanes_[lane][i];
        std::memset(lanes_[lane], 0, sizeof lanes_[lane]);
    }
}

/// Whether so many pixels can be counted in any order, because no count can come to be halved.
bool ColourHistogram::takesAll(size_t count) noexcept
{
    if (most_ + count > limit_) {
        const R_UINT* const all = counts();
        most_ = *std::max_element(all, all + MATCH_TABLE_CELLS);
    }
    most_ += count;
    return most_ <= limit_;
}

void ColourHistogram::addOne(R_UINT colour) noexcept
{
    R_UINT* const all = lanes_[0];
    if (all[colour] >= limit_)
        std::transform(all, all + MATCH_TABLE_CELLS, all, [](R_UINT count) noexcept { return (count + 1) >> 1; });
    ++all[colour];
}

template <class ColourAt> void ColourHistogram::add(size_t count, ColourAt colourAt) noexcept
{
    if (!takesAll(count)) {
        for (size_t i = 0; i < count; ++i) addOne(colourAt(i));
        return;
    }
    size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        R_UINT colours[kLanes];
        for (size_t lane = 0; lane < kLanes; ++lane) colours[lane] = colourAt(i + lane);
        for (size_t lane = 0; lane < kLanes; ++lane) ++lanes_[lane][colours[lane]];
    }
    for (; i < count; ++i) ++lanes_[0][colourAt(i)];
}

void ColourHistogram::addBgr24(const uint8_t* pixels, size_t count) noexcept
{
    add(count, [pixels](size_t i) noexcept { return colour15(pixels[3 * i + 2], pixels[3 * i + 1], pixels[3 * i]); });
}

void ColourHistogram::addRgb24(const uint8_t* pixels, size_t count) noexcept
{
    add(count, [pixels](size_t i) noexcept { return colour15(pixels[3 * i], pixels[3 * i + 1], pixels[3 * i + 2]); });
}

void ColourHistogram::addBgr32(const uint8_t* pixels, size_t count) noexcept
{
    add(count, [pixels](size_t i) noexcept { return colour15(pixels[4 * i + 2], pixels[4 * i + 1], pixels[4 * i]); });
}

void ColourHistogram::addRgb32(const uint8_t* pixels, size_t count) noexcept
{
    add(count, [pixels](size_t i) noexcept { return colour15(pixels[4 * i], pixels[4 * i + 1], pixels[4 * i + 2]); });
}

void ColourHistogram::addIndices(const uint8_t* pixels, size_t count, const uint16_t* colours) noexcept
{
    add(count, [=](size_t i) noexcept { return R_UINT{colours[pixels[i]]}; });
}

} // namespace rv
