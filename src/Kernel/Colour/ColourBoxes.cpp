// Boxes of colours, divided at the mean of the channel that varies most.

#include "Kernel/Colour/ColourBoxes.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace rv {

namespace {

/// A quotient rounded to nearest, halves down.
constexpr R_UINT64 roundedQuotient(R_UINT64 sum, R_UINT64 weight) noexcept { return (sum + (weight - 1) / 2) / weight; }

/// The channel of the largest variance; red before green before blue.
size_t mostVarying(const R_UINT (&variance)[3]) noexcept
{
    if (variance[0] >= variance[1] && variance[0] >= variance[2]) return 0;
    return variance[1] >= variance[2] ? 1 : 2;
}

} // namespace

/// The colours of a box that are met most often.
struct ColourBoxes::Popular {
    R_UINT at = 0; ///< where the first of them is
    R_UINT64 most = 0;
    R_UINT64 second = 0;

    void offer(R_UINT place, R_UINT64 count) noexcept
    {
        if (count > most) {
            second = std::exchange(most, count);
            at = place;
        } else if (count > second) {
            second = count;
        }
    }
};

void ColourBoxes::takeColours(const R_UINT* counts) noexcept
{
    colourCount_ = 0;
    for (R_UINT colour = 0; colour < MATCH_TABLE_CELLS; ++colour) {
        if (counts[colour] == 0) continue;
        const auto level = [](R_UINT value) noexcept { return static_cast<uint8_t>(value); };
        colours_[colourCount_++] = {counts[colour],
                                    {level(red15(colour)), level(green15(colour)), level(blue15(colour))}};
    }
}

/// A box that is yet to be measured.
ColourBoxes::Box& ColourBoxes::addBox(R_UINT first, R_UINT count) noexcept
{
    Box& box = boxes_[boxCount_++];
    box.first = first;
    box.count = count;
    return box;
}

ColourBoxes::Popular ColourBoxes::popularIn(const Box& box) const noexcept
{
    Popular popular;
    for (R_UINT i = box.first; i < box.first + box.count; ++i) popular.offer(i, colours_[i].count);
    return popular;
}

/// Gives the most frequent colour of the newest box a box of its own, if it is far more frequent than any other.
bool ColourBoxes::setDominantApart() noexcept
{
    Box& newest = boxes_[boxCount_ - 1];
    if (newest.count < 2) return false;
    const Popular popular = popularIn(newest);
    if (popular.most <= 2 * popular.second) return false;
    std::swap(colours_[newest.first], colours_[popular.at]);
    addBox(newest.first + 1, newest.count - 1);
    newest.count = 1;
    measure(newest);
    return true;
}

/// The box's mean, extent and variance. A colour that is more than four times as frequent as any other of its box
/// counts four times in the variances: it would keep the others together else.
void ColourBoxes::measure(Box& box) const noexcept
{
    Popular popular;
    R_UINT64 weight = 0, sum[3] = {}, squares[3] = {};
    for (size_t c = 0; c < 3; ++c) {
        box.lowest[c] = 31;
        box.highest[c] = 0;
    }
    for (R_UINT i = box.first; i < box.first + box.count; ++i) {
        const CountedColour& colour = colours_[i];
        popular.offer(i, colour.count);
        weight += colour.count;
        for (size_t c = 0; c < 3; ++c) {
            const R_UINT64 level = colour.level[c];
            sum[c] += level * colour.count;
            squares[c] += level * level * colour.count;
            box.lowest[c] = std::min(box.lowest[c], colour.level[c]);
            box.highest[c] = std::max(box.highest[c], colour.level[c]);
        }
    }
    const R_UINT64 limit = 4 * popular.second;
    const R_UINT64 excess = limit != 0 && popular.most > limit ? popular.most - limit : 0;
    for (size_t c = 0; c < 3; ++c) {
        const R_UINT64 mean = roundedQuotient(sum[c], weight);
        const R_UINT64 distance = colours_[popular.at].level[c] - mean; // squared next, whatever its sign
        // The sum of count * (level - mean)^2, which is not negative, in arithmetic that wraps on the way.
        const R_UINT64 spread = squares[c] + mean * (mean * weight - 2 * sum[c]) - excess * (distance * distance);
        box.mean[c] = static_cast<uint8_t>(mean);
        box.variance[c] = static_cast<R_UINT>(roundedQuotient(spread, weight - excess));
    }
}

/// The one that varies most; of several, the one with more colours, and then the oldest.
ColourBoxes::Box& ColourBoxes::boxToDivide() noexcept
{
    return *std::max_element(boxes_, boxes_ + boxCount_, [](const Box& a, const Box& b) noexcept {
        return std::pair(a.totalVariance(), a.count) < std::pair(b.totalVariance(), b.count);
    });
}

/// Divides a box at a mean. False when every box has but one colour.
bool ColourBoxes::divideOne() noexcept
{
    Box& box = boxToDivide();
    if (box.count < 2) return false;
    size_t channel = mostVarying(box.variance);
    const auto width = [&box](size_t c) noexcept { return box.highest[c] - box.lowest[c]; };
    if (width(channel) == 0) { // no variance is left after rounding, but there are different colours
        channel = width(0) >= width(1) && width(0) >= width(2) ? 0 : width(1) >= width(2) ? 1 : 2;
    }
    // A mean can be rounded up to the largest level; the colours there are the ones to part with then.
    const int limit = std::min<int>(box.mean[channel], box.highest[channel] - 1);
    CountedColour* const first = colours_ + box.first;
    CountedColour* const divide = std::partition(
        first, first + box.count, [=](const CountedColour& colour) noexcept { return colour.level[channel] <= limit; });
    const auto kept = static_cast<R_UINT>(divide - first);
    Box& other = addBox(box.first + kept, box.count - kept);
    box.count = kept;
    measure(box);
    measure(other);
    return true;
}

void ColourBoxes::divide(const R_UINT* counts, R_UINT wanted, R_UINT dominantFrom) noexcept
{
    takeColours(counts);
    boxCount_ = 0;
    if (colourCount_ == 0) return;
    addBox(0, colourCount_);
    for (R_UINT threshold = dominantFrom; wanted >= threshold && setDominantApart(); ++threshold) {}
    measure(boxes_[boxCount_ - 1]);
    while (boxCount_ < wanted && divideOne()) {}
}

void ColourBoxes::writePalette(RGBQUAD* entries) noexcept
{
    R_UINT keys[kMaxColours]; // colour and box: equal colours stay in the order of their boxes
    for (R_UINT i = 0; i < boxCount_; ++i) {
        const auto& mean = boxes_[i].mean;
        keys[i] = R_UINT{mean[0]} << 18 | R_UINT{mean[1]} << 13 | R_UINT{mean[2]} << 8 | i;
    }
    std::sort(keys, keys + boxCount_);
    for (R_UINT i = 0; i < boxCount_; ++i) {
        order_[i] = static_cast<uint8_t>(keys[i]);
        const auto& mean = boxes_[order_[i]].mean;
        entries[i] = {widen5(mean[2]), widen5(mean[1]), widen5(mean[0]), 0};
    }
}

void ColourBoxes::writeMatchTable(R_UINT* cells) const noexcept
{
    std::memset(cells, 0, MATCH_TABLE_CELLS * sizeof *cells);
    for (R_UINT entry = 0; entry < boxCount_; ++entry) {
        const Box& box = boxes_[order_[entry]];
        for (const CountedColour* c = colours_ + box.first; c != colours_ + box.first + box.count; ++c)
            cells[R_UINT{c->level[0]} << 10 | R_UINT{c->level[1]} << 5 | c->level[2]] = entry + 1;
    }
}

} // namespace rv
