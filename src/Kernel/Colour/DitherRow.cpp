// Dithering a row at a time.

#include "Kernel/Colour/Dither.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

// --- How a colour finds its item; a level is what ordered methods compare with

// They hold copies: what they look into could be changed by an index that is stored, for all that a compiler knows.

struct ByTable {
    explicit ByTable(const IndexItems& all) noexcept
        : all_(&all), cells_(all.cells), items_(all.items), count_(all.count)
    {
    }
    uint32_t operator()(int red, int green, int blue, int) const noexcept
    {
        const auto cell = static_cast<uint32_t>(red >> 3 << 10 | green >> 3 << 5 | blue >> 3);
        uint32_t place = cells_[cell];
        if (place - 1 >= count_) place = all_->resolve(*all_, cell);
        return items_[place - 1];
    }

private:
    const IndexItems* all_;
    const uint32_t* cells_;
    const uint32_t* items_;
    uint32_t count_;
};

struct ByFields {
    const uint32_t* items;
    IndexRule r;
    uint32_t operator()(int red, int green, int blue, int) const noexcept
    {
        return items[red >> r.redDrop << r.redPlace | green >> r.greenDrop << r.greenPlace | blue >> r.blueDrop];
    }
};

constexpr int luminance(int red, int green, int blue) noexcept { return (2 * red + 5 * green + blue + 4) >> 3; }

struct ByLevel {
    const uint32_t* items;
    uint32_t operator()(int red, int green, int blue, int level) const noexcept
    {
        return items[luminance(red, green, blue) > level ? 1 : 0];
    }
};

struct ByLuminance {
    const uint32_t* items;
    unsigned drop;
    uint32_t operator()(int red, int green, int blue, int) const noexcept
    {
        return items[luminance(red, green, blue) >> drop];
    }
};

struct ByHalves {
    const uint32_t* items;
    uint32_t operator()(int red, int green, int blue, int level) const noexcept
    {
        const int above = (red > level ? 1 : 0) | (green > level ? 2 : 0) | (blue > level ? 4 : 0);
        return items[above == 0 ? 0 : 8 + above];
    }
};

struct BySixths {
    const uint32_t* items;
    uint32_t operator()(int red, int green, int blue, int) const noexcept
    {
        return items[red / 51 * 36 + green / 51 * 6 + blue / 51];
    }
};

constexpr int clampByte(int value) noexcept { return std::clamp(value, 0, 255); }

/// The components of an item, as they follow each other in it.
constexpr int component(uint32_t item, size_t channel) noexcept { return static_cast<int>(item >> 8 * channel & 255); }
constexpr int component(const RGBQUAD& colour, size_t channel) noexcept
{
    return channel == 0 ? colour.rgbBlue : channel == 1 ? colour.rgbGreen : colour.rgbRed;
}

/// Divides sums of numerators towards zero. Sums are at most 255 times the divisor: so much is exact, and fits.
class Share {
public:
    explicit Share(int divisor) noexcept
        : scale_(((1u << 24) + static_cast<uint32_t>(divisor) - 1) / static_cast<uint32_t>(divisor))
    {
    }
    int of(int32_t sum) const noexcept
    {
        const auto size = static_cast<int>(static_cast<uint32_t>(sum < 0 ? -sum : sum) * scale_ >> 24);
        return sum < 0 ? -size : size;
    }

private:
    uint32_t scale_;
};

} // namespace

/// The nearest colour, or that of a colour changed by a matrix.
template <class Rule> void Dithering::plain(const Rule& rule) noexcept
{
    const int16_t* const thresholds = thresholds_ + line_ % 8 * 8;
    if (method_ != DITHER_NONE && !target_.comparing()) rowKernels().addToPixels(colours_.data(), width_, thresholds);
    const auto* const colours = reinterpret_cast<const RGBQUAD*>(colours_.data());
    int levels[8];
    std::copy_n(thresholds, std::size(levels), levels);
    uint8_t* const indices = indices_.data();
    const Rule find = rule;
    for (size_t x = 0, width = width_; x < width; ++x) {
        const RGBQUAD c = colours[x];
        indices[x] = static_cast<uint8_t>(find(c.rgbRed, c.rgbGreen, c.rgbBlue, levels[x % 8]) >> 24);
    }
}

/// Only the errors within the row make a pixel wait for the one before it: those from above are there as sums.
template <size_t Channels, class Rule> void Dithering::diffuse(const Rule& rule) noexcept
{
    const auto* const colours = reinterpret_cast<const RGBQUAD*>(colours_.data());
    const int toNext = diffusion_->weights[0][kDiffusionReach + 1];
    const int toSecond = diffusion_->weights[0][kDiffusionReach + 2];
    const Share share(diffusion_->divisor);
    int32_t last[Channels] = {}, before[Channels] = {};
    for (size_t x = 0; x < width_; ++x) {
        int wanted[Channels];
        for (size_t c = 0; c < Channels; ++c) {
            const int32_t sum = pending_[0][c][x] + toNext * last[c] + toSecond * before[c];
            wanted[c] = clampByte(component(colours[x], c) + share.of(sum));
        }
        const uint32_t item = rule(wanted[Channels - 1], wanted[Channels / 2], wanted[0], DitherTarget::kMiddle);
        indices_.data()[x] = static_cast<uint8_t>(item >> 24);
        for (size_t c = 0; c < Channels; ++c) {
            before[c] = last[c];
            last[c] = wanted[c] - component(item, c);
            errors_[c][x] = last[c];
        }
    }
}

template <class Rule> void Dithering::indicesBy(const Rule& rule) noexcept
{
    if (diffusion_ == nullptr)
        plain(rule);
    else if (channels_ == 1)
        diffuse<1>(rule);
    else
        diffuse<3>(rule);
}

void Dithering::makeIndices() noexcept
{
    const IndexItems& items = target_.items();
    const IndexRule& r = items.rule;
    switch (r.kind) {
    case IndexRule::matchTable: return indicesBy(ByTable(items));
    case IndexRule::fields: return indicesBy(ByFields{items.items, r});
    case IndexRule::luminance:
        return target_.comparing() ? indicesBy(ByLevel{items.items}) : indicesBy(ByLuminance{items.items, r.redDrop});
    case IndexRule::halves: return indicesBy(ByHalves{items.items});
    case IndexRule::webSafe: return indicesBy(BySixths{items.items});
    }
}

/// What the row has left for the rows below it is added to what is there, and those rows move up.
void Dithering::advance(const int32_t* const* errors) noexcept
{
    const int rows = diffusion_->rows;
    for (size_t c = 0; c < channels_; ++c) {
        int32_t* const done = pending_[0][c];
        for (int k = 1; k < rows; ++k) pending_[k - 1][c] = pending_[k][c];
        pending_[rows - 1][c] = done;
        std::memset(done, 0, (width_ + 8) * sizeof *done); // sums run on behind the row
        for (int k = 1; k <= rows; ++k)
            rowKernels().spreadErrors(pending_[k - 1][c], errors[c], width_, diffusion_->weights[k]);
    }
}

/// Bytes that hold pixels are written, and no others.
void Dithering::pack(uint8_t* target) noexcept
{
    uint8_t* const indices = indices_.data();
    if (bits_ == 8) {
        std::memcpy(target, indices, width_);
    } else if (bits_ == 1) {
        for (size_t x = 0; x < width_; x += 8) { // behind the last index there are zeros
            uint64_t eight;
            std::memcpy(&eight, indices + x, sizeof eight);
            *target++ = static_cast<uint8_t>((eight & 0x0101010101010101u) * 0x8040201008040201u >> 56);
        }
    } else {
        packing_.pack(packed_.data(), indices, width_);
        std::memcpy(target, packed_.data(), (width_ * static_cast<size_t>(bits_) + 7) / 8);
    }
}

/// Gray pixels as bytes. The target may be the row's own colours.
void Dithering::readGray(uint8_t* target, const uint8_t* source) noexcept
{
    const RGBQUAD* colours = reader_.colours();
    if (sourceIsGray_) {
        std::memcpy(target, source, width_);
    } else if (sourceBits_ == 8) {
        for (size_t x = 0; x < width_; ++x) target[x] = colours[source[x]].rgbBlue;
    } else {
        reader_.read(reinterpret_cast<RGBQUAD*>(colours_.data()), source, width_);
        colours = reinterpret_cast<const RGBQUAD*>(colours_.data());
        for (size_t x = 0; x < width_; ++x) target[x] = colours[x].rgbBlue;
    }
}

/// Gray to black and white by levels alone: no colour is made of it.
void Dithering::compareRow(const uint8_t* source, uint8_t* target) noexcept
{
    uint8_t levels[8];
    std::copy_n(thresholds_ + line_ % 8 * 8, std::size(levels), levels);
    const uint8_t* gray = source;
    if (!sourceIsGray_) {
        readGray(colours_.data(), source);
        gray = colours_.data();
    }
    rowKernels().bitsAbove(target, gray, width_, levels);
    ++line_;
}

void Dithering::row(const uint8_t* source, uint8_t* target) noexcept
{
    if (diffusion_ == nullptr && channels_ == 1 && bits_ == 1 && target_.comparing()) return compareRow(source, target);
    reader_.read(reinterpret_cast<RGBQUAD*>(colours_.data()), source, width_);
    makeIndices();
    if (diffusion_ != nullptr) advance(errors_);
    ++line_;
    pack(target);
}

} // namespace rv
