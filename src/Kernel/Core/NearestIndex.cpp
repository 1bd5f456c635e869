#include "Kernel/Core/NearestIndex.h"

#include "Kernel/Core/ColourReach.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <cstring>

namespace rv {

namespace {

constexpr R_INT redOf(uint32_t rgb) noexcept { return static_cast<R_INT>(rgb >> 16 & 255); }
constexpr R_INT greenOf(uint32_t rgb) noexcept { return static_cast<R_INT>(rgb >> 8 & 255); }
constexpr R_INT blueOf(uint32_t rgb) noexcept { return static_cast<R_INT>(rgb & 255); }

constexpr uint32_t cellOf(uint32_t rgb) noexcept
{
    return (rgb >> 9 & 0x7C00) | (rgb >> 6 & 0x3E0) | (rgb >> 3 & 0x1F);
}

/// Items are entries with something in the reserved byte.
template <class Entry> R_UINT findIn(const Entry* entries, R_UINT count, uint32_t rgb) noexcept
{
    return R_FindPaletteIndex(reinterpret_cast<const RGBQUAD*>(entries), count, redOf(rgb), greenOf(rgb), blueOf(rgb));
}

} // namespace

/// Cubes of 8 levels to a side, chosen from the lists of cubes of 32. An item is an entry with its index on top, a list
/// its place in the items, times 64, and its length.
struct NearestIndex::Lists {
    static constexpr uint32_t kItems = 1u << 17;
    static constexpr uint32_t kNoList = 63; ///< none that is worth it

    struct Span {
        uint32_t first;
        uint32_t count; ///< 0: not made yet
    };
    Span coarse[512];
    uint32_t fine[32768]; ///< 0: not made yet
    uint32_t used;
    uint32_t items[kItems + simd::kItemsBehind];

    /// Adds the list of those of `from` that can be the nearest within a cube of `side` levels.
    Span choose(const uint32_t* from, uint32_t count, R_INT red, R_INT green, R_INT blue, R_INT side) noexcept
    {
        Reach reach[256];
        uint32_t bound = ~0u, chosen = 0;
        for (uint32_t i = 0; i < count; ++i) {
            const Reach r = reachOf(redOf(from[i]), red, red + side - 1),
                        g = reachOf(greenOf(from[i]), green, green + side - 1),
                        b = reachOf(blueOf(from[i]), blue, blue + side - 1);
            reach[i] = {r.least + g.least + b.least, r.most + g.most + b.most};
            bound = std::min(bound, reach[i].most);
        }
        if (kItems - used < count) return {0, 0};
        for (uint32_t i = 0; i < count; ++i) {
            items[used + chosen] = from[i];
            chosen += reach[i].least <= bound ? 1 : 0;
        }
        used += chosen;
        return {used - chosen, chosen};
    }

    uint32_t make(const RGBQUAD* palette, R_UINT colours, uint32_t rgb) noexcept
    {
        const R_INT red = redOf(rgb), green = greenOf(rgb), blue = blueOf(rgb);
        Span& around = coarse[red >> 5 << 6 | green >> 5 << 3 | blue >> 5];
        if (around.count == 0) {
            uint32_t entries[256];
            for (R_UINT i = 0; i < colours; ++i)
                entries[i] = palette[i].rgbBlue | uint32_t{palette[i].rgbGreen} << 8 |
                             uint32_t{palette[i].rgbRed} << 16 | i << 24;
            around = choose(entries, colours, red & ~31, green & ~31, blue & ~31, 32);
        }
        const Span close = choose(items + around.first, around.count, red & ~7, green & ~7, blue & ~7, 8);
        if (close.count != 0 && close.count <= simd::kLongestList) return close.first << 6 | close.count;
        used -= close.count;
        return kNoList;
    }
};

NearestIndex::NearestIndex(const RGBQUAD* palette, R_UINT colours) noexcept
    : palette_(palette), colours_(colours), memory_(sizeof(uint32_t) << kSlotBits)
{
    // Black's slot is the first. In all others black stands for nothing, as it is never looked for there.
    if (!memory_) return;
    std::memset(memory_.data(), 0, sizeof(uint32_t) << kSlotBits);
    const uint32_t black = exact(0);
    std::memcpy(memory_.data(), &black, sizeof black);
}

uint8_t NearestIndex::exact(uint32_t rgb) const noexcept
{
    if (lists_) {
        const auto& lists = *reinterpret_cast<const Lists*>(lists_.data());
        const uint32_t list = lists.fine[cellOf(rgb)], count = list & 63;
        const uint32_t* const items = lists.items + (list >> 6);
        if (count - 1 < simd::kLongestList) return static_cast<uint8_t>(items[findIn(items, count, rgb)] >> 24);
    }
    return static_cast<uint8_t>(findIn(palette_, colours_, rgb));
}

/// Without memory for them all goes on as before.
void NearestIndex::makeLists() noexcept
{
    if (++asked_ != kPatience || colours_ < 8 || colours_ > 256) return;
    lists_ = RowBuffer(sizeof(Lists));
    if (!lists_) return;
    auto& lists = *reinterpret_cast<Lists*>(lists_.data());
    std::memset(&lists, 0, offsetof(Lists, items));
    // Black and white look at the ends of the whole palette.
    lists.fine[0] = lists.fine[32767] = Lists::kNoList;
}

uint8_t NearestIndex::answer(uint32_t rgb) noexcept
{
    uint8_t* const slot = memory_.data() + sizeof(uint32_t) * (rgb * 0x9E3779B1u >> (32 - kSlotBits));
    uint32_t known;
    std::memcpy(&known, slot, sizeof known);
    if (known >> 8 != rgb) {
        if (!lists_) makeLists();
        known = rgb << 8 | exact(rgb);
        std::memcpy(slot, &known, sizeof known);
    }
    return static_cast<uint8_t>(known);
}

void NearestIndex::find(uint8_t* indices, const RGBQUAD* colours, size_t width) noexcept
{
    const auto findInLists = rowKernels().nearestInLists;
    for (size_t i = 0; i < width; ++i) {
        if (lists_) {
            auto& lists = *reinterpret_cast<Lists*>(lists_.data());
            i += findInLists(indices + i, reinterpret_cast<const uint8_t*>(colours + i), width - i, lists.fine,
                             lists.items);
            if (i == width) return;
        }
        const RGBQUAD c = colours[i];
        const uint32_t rgb = c.rgbBlue | unsigned{c.rgbGreen} << 8 | unsigned{c.rgbRed} << 16;
        indices[i] = answer(rgb);
        if (!lists_) continue;
        auto& lists = *reinterpret_cast<Lists*>(lists_.data());
        uint32_t& list = lists.fine[cellOf(rgb)];
        if (list == 0) list = lists.make(palette_, colours_, rgb);
    }
}

} // namespace rv
