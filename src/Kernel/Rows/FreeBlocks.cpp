#include "Kernel/Rows/FreeBlocks.h"

#include "Platform/Platform.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace rv {

namespace {

constexpr size_t kLeastPlaces = 1024;
constexpr size_t kMostPlaces = size_t{1} << 30;

} // namespace

bool FreeBlocks::start(size_t blocks) noexcept
{
    if (blocks > kMostPlaces / 2) return false;
    const size_t places = std::bit_ceil(std::max(2 * blocks, kLeastPlaces));
    const size_t treeBytes = 2 * places * sizeof *tree_;
    auto* const memory = static_cast<uint8_t*>(platform().allocate(places * sizeof *offsets_ + treeBytes));
    if (memory == nullptr) return false;
    offsets_ = reinterpret_cast<R_UINT64*>(memory);
    tree_ = reinterpret_cast<uint32_t*>(memory + places * sizeof *offsets_);
    std::memset(tree_, 0, treeBytes);
    places_ = static_cast<uint32_t>(places);
    put_ = 0;
    return true;
}

void FreeBlocks::stop() noexcept
{
    platform().release(offsets_);
    *this = {};
}

uint32_t FreeBlocks::put(R_UINT64 offset, R_UINT64 payload) noexcept
{
    if (put_ == places_) return kNoPlace;
    offsets_[put_] = offset;
    set(put_, payload);
    return put_++;
}

void FreeBlocks::set(uint32_t place, R_UINT64 payload) noexcept
{
    size_t node = size_t{places_} + place;
    tree_[node] = static_cast<uint32_t>(std::min(payload, kMostTold));
    while ((node /= 2) != 0) {
        const uint32_t largest = std::max(tree_[2 * node], tree_[2 * node + 1]);
        if (tree_[node] == largest) return;
        tree_[node] = largest;
    }
}

R_UINT64 FreeBlocks::find(R_UINT64 size) const noexcept
{
    if (tree_[1] < size) return 0;
    size_t node = 1;
    while (node < places_) {
        node = 2 * node + 1;
        if (tree_[node] < size) --node;
    }
    return offsets_[node - places_];
}

} // namespace rv
