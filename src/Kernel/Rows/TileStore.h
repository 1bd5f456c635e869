/// What callers may know and change of a tiled bitmap's tiles.
#pragma once

#include "Kernel/Rows/RowStore.h"

namespace rv {

/// Rows borrowed by two cursors, and the tiles that are fetched meanwhile, all need views of their own.
inline constexpr R_UINT kMinTileViews = 4;

struct TileFacts {
    R_UINT64 bytes = 0; ///< of a tile
    R_UINT tiles = 0;
    R_UINT conventional = 0; ///< tiles in conventional memory
    R_UINT maxViews = 0;     ///< of tiles in the file
    R_UINT views = 0;
};

/// All 0 for slots that are not the tile store's.
TileFacts tileFacts(const StoreSlots& slots) noexcept;

/// Which tiles are in conventional memory: the first `conventional` ones. ERROR_INV_PARAMETER: slots that are not the
/// tile store's; ERROR_MEMORY_LIMIT, ERROR_FAILURE: no memory, or no room on disk. All is as it was then.
Status keepTiles(const StoreSlots& slots, R_UINT conventional) noexcept;
/// How many views may be open, at least kMinTileViews, and how many of those that are stay open now. Null: as it is.
Status limitTileViews(const StoreSlots& slots, const R_UINT* maxViews, const R_UINT* open) noexcept;

} // namespace rv
