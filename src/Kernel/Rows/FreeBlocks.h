/// Where in a heap's list of free blocks the first one is that is large enough: the list tells, but only one block at a
/// time, and rows that are written anew with other lengths leave a list of thousands.
///
/// Blocks are put at the head of the list and taken from anywhere in it, so the first that fits is the one that was put
/// there last. Each gets the next place in a row of places, and a tree above the places tells how large the blocks
/// below are.
#pragma once

#include "R_Types.h"

#include <cstddef>
#include <cstdint>

namespace rv {

/// All zeros is one that knows of no list. It has memory of its own while it knows of one.
class FreeBlocks {
public:
    bool active() const noexcept { return offsets_ != nullptr; }
    /// Takes memory for a list of so many blocks, and for as many that will be put there. False: there is none.
    bool start(size_t blocks) noexcept;
    void stop() noexcept;

    /// A block before all those that were put. Its place; kNoPlace when there is none left.
    static constexpr uint32_t kNoPlace = UINT32_MAX;
    uint32_t put(R_UINT64 offset, R_UINT64 payload) noexcept;
    /// What a place holds now; 0: nothing.
    void set(uint32_t place, R_UINT64 payload) noexcept;
    bool holds(uint32_t place, R_UINT64 offset) const noexcept { return place < put_ && offsets_[place] == offset; }

    /// Sizes above it are not told apart.
    static constexpr R_UINT64 kMostTold = UINT32_MAX;
    /// The block of at least this size that was put last; 0: there is none.
    R_UINT64 find(R_UINT64 size) const noexcept;

    R_UINT64 head = 0; ///< of the list that is known

private:
    R_UINT64* offsets_ = nullptr; // by place
    uint32_t* tree_ = nullptr;    // node n is above 2n and 2n + 1, and the places are the last ones
    uint32_t places_ = 0;         // a power of two
    uint32_t put_ = 0;
};

} // namespace rv
