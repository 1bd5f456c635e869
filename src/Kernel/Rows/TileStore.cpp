// Rows in tiles: as many as memory shall hold there, the rest in a file of the bitmap's own.

#include "Kernel/Rows/TileStore.h"

#include "Kernel/Rows/StoreLock.h"
#include "Kernel/Rows/TileSet.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

namespace rv {

namespace {

/// What the slots lead to.
struct Tiles {
    TileSet set;
    StoreLock views; ///< those that are open change also where rows are only read
};

static_assert(std::is_standard_layout_v<Tiles> && offsetof(TileSet, tag) == 0);

/// Whose lock must be held while a tile's rows are in use: those in memory stay where they are.
StoreLock* lockOf(TileSet* set, R_UINT tile) noexcept
{
    return set->tiles[tile].pages == nullptr ? &reinterpret_cast<Tiles*>(set)->views : nullptr;
}

/// The tiles behind slots; null where they are another's.
TileSet* tilesOf(const StoreSlots& slots) noexcept { return taggedAs<TileSet>(slots.handle, TileSet::kTag); }

/// Calls move(rows in place, bytes) for the tiles that a stretch of bytes lies in, until it answers no. Rows follow
/// each other as they would in one block. `lost` is the status of a tile that cannot be reached.
template <class Move>
Status eachPiece(const StoreSlots& slots, const StoreShape& shape, R_INT64 row, R_INT64 first, R_SIZE count, R_INT lost,
                 Move move) noexcept
{
    TileSet* const set = tilesOf(slots);
    if (set == nullptr || set->rowBytes != shape.rowBytes) return ERROR_INV_BITMAP;
    const R_UINT64 all = set->bytes();
    auto position = static_cast<R_UINT64>(row * static_cast<R_INT64>(set->rowBytes) + first); // below 0: past all
    if (position > all || count > all - position) return ERROR_INV_PARAMETER;
    while (count > 0) {
        const R_UINT64 offset = position % set->tileBytes();
        const R_UINT64 piece = std::min<R_UINT64>(count, set->tileBytes() - offset);
        const auto tile = static_cast<R_UINT>(position / set->tileBytes());
        const StoreGuard guard(lockOf(set, tile));
        uint8_t* const rows = set->rowsOf(tile);
        if (rows == nullptr) return lost;
        move(rows + offset, piece);
        position += piece;
        count -= piece;
    }
    return SUCCESS;
}

class TileStore final : public RowStore {
public:
    constexpr TileStore() noexcept = default;

    bool usable(const StoreShape& shape) const noexcept override
    {
        return shape.rowBytes > 0 && shape.height > 0 && shape.bytes <= INT64_MAX; // more is in no file
    }

    Status create(StoreSlots& slots, const StoreShape& shape, const StoreRequest& request) const noexcept override
    {
        if (!usable(shape)) return ERROR_FAILURE;
        void* const memory = platform().allocate(sizeof(Tiles));
        if (memory == nullptr) return ERROR_FAILURE;
        TileSet* const set = &(new (memory) Tiles())->set;
        set->rowBytes = shape.rowBytes;
        set->rowsPerTile = static_cast<R_UINT>(
            std::clamp<R_UINT64>(request.tileBytes / shape.rowBytes, 1, static_cast<R_UINT64>(shape.height)));
        set->allowedBytes = request.conventional;
        set->convTiles = request.convTiles;
        set->convBuffers = request.convBuffers;
        set->mayUseFile = !request.memoryOnly && !request.noDisk;
        if (const Status filled = set->changeHeight(shape.height); !filled.ok()) {
            end(set);
            return filled;
        }
        slots = {set, nullptr, 0};
        return SUCCESS;
    }

    void destroy(StoreSlots& slots, const StoreShape&) const noexcept override
    {
        if (TileSet* const set = tilesOf(slots); set != nullptr) {
            set->giveBack(TileSet());
            end(set);
        }
        slots = {};
    }

    Status changeHeight(StoreSlots& slots, const StoreShape& shape, R_INT height) const noexcept override
    {
        TileSet* const set = tilesOf(slots);
        if (set == nullptr || set->rowBytes != shape.rowBytes) return ERROR_INV_BITMAP;
        return set->changeHeight(height);
    }

    Status read(const StoreSlots& slots, const StoreShape& shape, void* bytes, R_INT64 row, R_INT64 first,
                R_SIZE count) const noexcept override
    {
        auto* to = static_cast<uint8_t*>(bytes);
        return eachPiece(slots, shape, row, first, count, ERROR_FILE_READ, [&](const uint8_t* rows, R_UINT64 piece) {
            std::memcpy(to, rows, piece);
            to += piece;
        });
    }

    Status write(StoreSlots& slots, const StoreShape& shape, const void* bytes, R_INT64 row, R_INT64 first,
                 R_SIZE count) const noexcept override
    {
        const auto* from = static_cast<const uint8_t*>(bytes);
        return eachPiece(slots, shape, row, first, count, ERROR_FILE_WRITE, [&](uint8_t* rows, R_UINT64 piece) {
            std::memcpy(rows, from, piece);
            from += piece;
        });
    }

    uint8_t* borrow(const StoreSlots& slots, const StoreShape& shape, R_INT64 row, bool) const noexcept override
    {
        TileSet* const set = tilesOf(slots);
        if (set == nullptr || set->rowBytes != shape.rowBytes || row < 0 || row >= set->height) return nullptr;
        const auto index = static_cast<R_UINT>(row);
        const StoreGuard guard(lockOf(set, index / set->rowsPerTile));
        uint8_t* const rows = set->rowsOf(index / set->rowsPerTile);
        return rows != nullptr ? rows + R_UINT64{index % set->rowsPerTile} * set->rowBytes : nullptr;
    }

private:
    static void end(TileSet* set) noexcept
    {
        auto* const tiles = reinterpret_cast<Tiles*>(set);
        tiles->~Tiles();
        // A copy of the record that is freed too finds nothing, while the block is not used again.
        std::memset(static_cast<void*>(tiles), 0, sizeof TileSet::kTag);
        platform().release(tiles);
    }
};

constinit const TileStore gTileStore;

} // namespace

const RowStore& tileStore() noexcept { return gTileStore; }

TileFacts tileFacts(const StoreSlots& slots) noexcept
{
    const TileSet* const set = tilesOf(slots);
    if (set == nullptr) return {};
    return {set->tileBytes(), set->count, set->conventional, set->maxViews(), set->views};
}

Status keepTiles(const StoreSlots& slots, R_UINT conventional) noexcept
{
    TileSet* const set = tilesOf(slots);
    return set != nullptr ? set->keep(conventional) : Status(ERROR_INV_PARAMETER);
}

Status limitTileViews(const StoreSlots& slots, const R_UINT* maxViews, const R_UINT* open) noexcept
{
    TileSet* const set = tilesOf(slots);
    if (set == nullptr) return ERROR_INV_PARAMETER;
    if (maxViews != nullptr) set->convBuffers = static_cast<R_INT>(std::min<R_UINT>(*maxViews, INT32_MAX));
    set->closeViews(open != nullptr ? std::min(*open, set->maxViews()) : set->maxViews());
    return SUCCESS;
}

} // namespace rv
