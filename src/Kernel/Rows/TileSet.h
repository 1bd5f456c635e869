/// The tiles of one bitmap: some in conventional memory, the others in one scratch file, seen through a few views.
#pragma once

#include "Kernel/Rows/TileStore.h"
#include "Platform/Platform.h"

namespace rv {

inline constexpr R_UINT kNoTile = 0xFFFFFFFFu;
inline constexpr R_UINT kNoPlace = 0xFFFFFFFFu;

struct Tile {
    void* pages = nullptr;   ///< conventional memory; null: the rows are in the file
    R_UINT64 heldBytes = 0;  ///< of the pages
    uint8_t* rows = nullptr; ///< the pages, or the open view of the file
    R_UINT place = kNoPlace; ///< in the file, in extents; a tile that has come to memory keeps it
    R_UINT newer = kNoTile;  ///< the views next to this one in the order of use
    R_UINT older = kNoTile;
};

/// Fields and all, a value: changes are made to a second set, which then takes the first one's place or is given back,
/// so that whatever fails on the way leaves the first as it was. What both have is given back by neither.
struct TileSet {
    static constexpr char kTag[4] = {'T', 'I', 'L', 'E'};

    char tag[4] = {'T', 'I', 'L', 'E'};
    R_UINT rowBytes = 0;
    R_UINT rowsPerTile = 0;
    R_INT height = 0;
    R_UINT count = 0;
    Tile* tiles = nullptr;

    R_UINT conventional = 0;   ///< tiles in conventional memory
    R_UINT64 heldBytes = 0;    ///< of all of them
    R_UINT64 allowedBytes = 0; ///< how much that may become
    R_INT convTiles = 0;       ///< how many it may become; negative: percent of all
    R_INT convBuffers = 0;     ///< views; negative: percent of the tiles in the file
    bool mayUseFile = false;

    int64_t file = kNoFile;
    R_UINT64 fileBytes = 0;
    R_UINT views = 0;
    R_UINT newest = kNoTile;
    R_UINT oldest = kNoTile;

    R_UINT64 tileBytes() const noexcept { return R_UINT64{rowsPerTile} * rowBytes; }
    R_UINT64 bytesOf(R_UINT tile) const noexcept; ///< of the rows that it has
    R_UINT64 bytes() const noexcept { return R_UINT64{rowBytes} * static_cast<R_UINT64>(height); }
    R_UINT maxViews() const noexcept;

    /// The rows of a tile in place. They hold while kMinTileViews - 1 other tiles are asked for. Null: no view of the
    /// file could be opened.
    uint8_t* rowsOf(R_UINT tile) noexcept { return tiles[tile].pages != nullptr ? tiles[tile].rows : view(tile); }
    void closeViews(R_UINT keep) noexcept; ///< all but the last used ones

    /// Gives the set another number of rows; new ones are zero. ERROR_MEMORY_LIMIT, ERROR_FAILURE: it is as it was.
    Status changeHeight(R_INT rows) noexcept;
    /// Has the first `wanted` tiles in conventional memory and no others.
    Status keep(R_UINT wanted) noexcept;
    /// Gives back everything that the set has and `kept` has not; the set is worth nothing then.
    void giveBack(const TileSet& kept) noexcept;

private:
    enum class Memory { asFarAsPossible, exactly };

    struct View {
        R_UINT64 offset = 0; ///< in the file
        R_UINT64 bytes = 0;
        R_UINT64 before = 0; ///< bytes before the tile's, of another one
    };
    R_UINT64 extentBytes() const noexcept;
    R_UINT64 offsetOf(R_UINT tile) const noexcept { return tiles[tile].place * extentBytes(); } ///< in the file
    View viewOf(R_UINT tile) const noexcept;
    R_UINT tilesOf(R_INT rows) const noexcept;
    uint8_t* view(R_UINT tile) noexcept;
    void closeView(R_UINT tile) noexcept;
    void link(R_UINT tile) noexcept;
    void unlink(R_UINT tile) noexcept;

    Status change(R_INT rows, R_UINT wanted, Memory how) noexcept;
    Status fillFrom(TileSet& former, R_UINT wanted, Memory how) noexcept;
    Status takeTiles(const TileSet& former) noexcept;
    Status divide(const TileSet& former, R_UINT wanted, Memory how) noexcept;
    Status takeMemory(Tile& tile, R_UINT64 wantedBytes) noexcept;
    void dropMemory(Tile& tile) noexcept;
    Status sizeFile() noexcept;
    Status givePlaces() noexcept;
    bool openFile(R_UINT64 wantedBytes) noexcept;
    void cutFile() noexcept;
    R_UINT64 usedFileBytes() const noexcept;
    bool viewsFit() noexcept;
    Status leaveRoomForViews(const TileSet& former, Memory how) noexcept;
    Status moveRows(TileSet& former) noexcept;
    Status clearNewRows(const TileSet& former) noexcept;
};

} // namespace rv
