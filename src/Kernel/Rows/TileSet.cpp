// Tiles of whole rows. Every change of a set goes one way: a copy of it is divided between memory and file anew, what
// that needs is taken, rows move, and only then the copy counts.

#include "Kernel/Rows/TileSet.h"

#include "Kernel/Base/System.h"
#include "Kernel/Pixels/RowBuffer.h"
#include "Kernel/Services/TempFile.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

/// The large pages of processors. Where a view has whole ones of a file, writing to it faults once for each, and else
/// once for each small one.
constexpr R_UINT64 kLargePage = 2 * 1024 * 1024;
/// Room in the file that may be lost for that: this part of a tile.
constexpr R_UINT64 kLostPart = 16;

constexpr R_UINT64 roundedUp(R_UINT64 bytes, R_UINT64 step) noexcept { return (bytes + step - 1) / step * step; }

/// A setting that is a number, or below 0 a percentage of `all`.
R_UINT resolved(R_INT setting, R_UINT all) noexcept
{
    if (setting >= 0) return static_cast<R_UINT>(setting);
    return static_cast<R_UINT>(R_UINT64{all} * static_cast<R_UINT>(-setting) / 100);
}

} // namespace

R_UINT64 TileSet::bytesOf(R_UINT tile) const noexcept
{
    const R_UINT64 first = R_UINT64{tile} * rowsPerTile;
    return std::min<R_UINT64>(rowsPerTile, static_cast<R_UINT64>(height) - first) * rowBytes;
}

/// What a tile takes of the file.
R_UINT64 TileSet::extentBytes() const noexcept
{
    const R_UINT64 bytes = tileBytes();
    for (const R_UINT64 step : {kLargePage, kViewGranularity})
        if (const R_UINT64 rounded = roundedUp(bytes, step); rounded - bytes <= bytes / kLostPart) return rounded;
    return bytes;
}

/// The view of a tile: all of its extent that the file has, from where a view can begin.
TileSet::View TileSet::viewOf(R_UINT tile) const noexcept
{
    const R_UINT64 start = offsetOf(tile), before = start % kViewGranularity;
    return {start - before, before + std::min(extentBytes(), fileBytes - start), before};
}

R_UINT TileSet::tilesOf(R_INT rows) const noexcept
{
    return static_cast<R_UINT>((R_UINT64{rowsPerTile} + static_cast<R_UINT>(rows) - 1) / rowsPerTile);
}

R_UINT TileSet::maxViews() const noexcept
{
    return std::max(kMinTileViews, resolved(convBuffers, count - conventional));
}

// --- Views: a list in the order of use

void TileSet::link(R_UINT tile) noexcept
{
    tiles[tile].newer = kNoTile;
    tiles[tile].older = newest;
    (newest != kNoTile ? tiles[newest].newer : oldest) = tile;
    newest = tile;
}

void TileSet::unlink(R_UINT tile) noexcept
{
    const R_UINT newer = tiles[tile].newer, older = tiles[tile].older;
    (newer != kNoTile ? tiles[newer].older : newest) = older;
    (older != kNoTile ? tiles[older].newer : oldest) = newer;
}

uint8_t* TileSet::view(R_UINT tile) noexcept
{
    uint8_t*& rows = tiles[tile].rows;
    if (rows != nullptr) {
        if (tile != newest) {
            unlink(tile);
            link(tile);
        }
        return rows;
    }
    while (views >= maxViews()) closeView(oldest);
    const View piece = viewOf(tile);
    void* start;
    while ((start = platform().mapFile(file, piece.offset, piece.bytes)) == nullptr) {
        if (views < kMinTileViews) return nullptr; // those that are left may be in use
        closeView(oldest);
    }
    rows = static_cast<uint8_t*>(start) + piece.before;
    link(tile);
    ++views;
    return rows;
}

void TileSet::closeView(R_UINT tile) noexcept
{
    unlink(tile);
    --views;
    const View piece = viewOf(tile);
    platform().unmapFile(tiles[tile].rows - piece.before, piece.bytes);
    tiles[tile].rows = nullptr;
}

void TileSet::closeViews(R_UINT keep) noexcept
{
    while (views > keep) closeView(oldest);
}

// --- Taking and giving back

Status TileSet::takeMemory(Tile& tile, R_UINT64 wantedBytes) noexcept
{
    R_TRY(reserveConventional(wantedBytes));
    if (void* const pages = platform().createPages(wantedBytes); pages != nullptr) {
        if (void* const rows = platform().mapPages(pages); rows != nullptr) {
            tile.pages = pages;
            tile.rows = static_cast<uint8_t*>(rows);
            tile.heldBytes = wantedBytes;
            heldBytes += wantedBytes;
            ++conventional;
            return SUCCESS;
        }
        platform().closePages(pages);
    }
    returnConventional(wantedBytes);
    return ERROR_FAILURE;
}

void TileSet::dropMemory(Tile& tile) noexcept
{
    platform().unmapPages(tile.pages, tile.rows);
    platform().closePages(tile.pages);
    returnConventional(tile.heldBytes);
}

bool TileSet::openFile(R_UINT64 wantedBytes) noexcept
{
    TempFolderText folder;
    if (!tempFolder(folder).ok()) return false;
    file = platform().openScratchFile(folder, wantedBytes);
    if (file != kNoFile) fileBytes = wantedBytes;
    return file != kNoFile;
}

/// The room that the tiles do not need goes back to the disk, as far as the system can. No view may be open.
void TileSet::cutFile() noexcept
{
    const R_UINT64 used = usedFileBytes();
    if (used < fileBytes && platform().resizeScratchFile(file, used)) fileBytes = used;
}

void TileSet::giveBack(const TileSet& kept) noexcept
{
    closeViews(0);
    for (R_UINT i = 0; i < count; ++i)
        if (tiles[i].pages != nullptr && (i >= kept.count || kept.tiles[i].pages != tiles[i].pages))
            dropMemory(tiles[i]);
    if (file != kNoFile && file != kept.file) platform().closeFile(file);
    platform().release(tiles);
}

// --- The file: each tile in it has a place, and places are used again

R_UINT64 TileSet::usedFileBytes() const noexcept
{
    R_UINT64 used = 0;
    for (R_UINT i = 0; i < count; ++i)
        if (tiles[i].place != kNoPlace) used = std::max(used, offsetOf(i) + bytesOf(i));
    return used;
}

/// Gives each tile that is in neither memory nor file the first free place.
Status TileSet::givePlaces() noexcept
{
    R_UINT64 places = 0;
    R_UINT missing = 0;
    for (R_UINT i = 0; i < count; ++i) {
        if (tiles[i].place != kNoPlace)
            places = std::max(places, R_UINT64{tiles[i].place} + 1);
        else if (tiles[i].pages == nullptr)
            ++missing;
    }
    if (missing == 0) return SUCCESS;
    const RowBuffer used(places + missing);
    if (!used) return ERROR_FAILURE;
    std::memset(used.data(), 0, places + missing);
    for (R_UINT i = 0; i < count; ++i)
        if (tiles[i].place != kNoPlace) used.data()[tiles[i].place] = 1;
    R_UINT next = 0;
    for (R_UINT i = 0; i < count; ++i) {
        if (tiles[i].place != kNoPlace || tiles[i].pages != nullptr) continue;
        while (used.data()[next] != 0) ++next;
        tiles[i].place = next++;
    }
    return SUCCESS;
}

Status TileSet::sizeFile() noexcept
{
    R_TRY(givePlaces());
    const R_UINT64 used = usedFileBytes();
    if (used <= fileBytes) return SUCCESS;
    if (file == kNoFile) return openFile(used) ? SUCCESS : ERROR_FAILURE;
    if (!platform().resizeScratchFile(file, used)) return ERROR_FAILURE;
    fileBytes = used;
    return SUCCESS;
}

/// Whether the system gives as many views as have to be open side by side, and room for one more beside them.
bool TileSet::viewsFit() noexcept
{
    R_UINT opened = 0;
    bool fit = true;
    const R_INT present = convBuffers;
    convBuffers = kMinTileViews + 1;
    for (R_UINT i = 0; i < count && opened <= kMinTileViews && fit; ++i) {
        if (tiles[i].pages != nullptr) continue;
        fit = view(i) != nullptr && views == ++opened;
    }
    closeViews(0);
    convBuffers = present;
    return fit;
}

/// Memory that took tiles to its last byte has none left to see the file through. Tiles that are new go to the file
/// then, one by one.
Status TileSet::leaveRoomForViews(const TileSet& former, Memory how) noexcept
{
    R_UINT last = count;
    while (!viewsFit()) {
        if (how == Memory::exactly) return ERROR_FAILURE;
        const auto isNew = [&](R_UINT i) {
            return tiles[i].pages != nullptr && (i >= former.count || former.tiles[i].pages != tiles[i].pages);
        };
        while (last > 0 && !isNew(last - 1)) --last;
        if (last == 0) return SUCCESS; // nothing more can be done for them
        Tile& tile = tiles[--last];
        dropMemory(tile);
        heldBytes -= tile.heldBytes;
        --conventional;
        tile.pages = nullptr;
        tile.rows = nullptr;
        R_TRY(sizeFile());
    }
    return SUCCESS;
}

// --- Changes

/// An array of tiles for the height, beginning with those that the former set has.
Status TileSet::takeTiles(const TileSet& former) noexcept
{
    tiles = static_cast<Tile*>(platform().allocate(size_t{count} * sizeof(Tile)));
    if (tiles == nullptr) return ERROR_FAILURE;
    const R_UINT common = std::min(count, former.count);
    if (common > 0) std::memcpy(static_cast<void*>(tiles), former.tiles, size_t{common} * sizeof(Tile));
    std::fill(tiles + common, tiles + count, Tile{});
    return SUCCESS;
}

/// Decides which tiles are in memory and takes that.
Status TileSet::divide(const TileSet& former, R_UINT wanted, Memory how) noexcept
{
    conventional = 0;
    heldBytes = 0;
    for (R_UINT i = 0; i < count; ++i) {
        Tile& tile = tiles[i];
        const R_UINT64 needed = bytesOf(i);
        const bool wish = conventional < wanted;
        if (tile.pages != nullptr && tile.heldBytes >= needed && (wish || how == Memory::asFarAsPossible)) {
            heldBytes += tile.heldBytes;
            ++conventional;
            continue;
        }
        const bool stays = tile.pages == nullptr && i < former.count && how == Memory::asFarAsPossible;
        if (stays) continue;
        tile.pages = nullptr;
        tile.rows = nullptr;
        Status taken = ERROR_FAILURE;
        if (wish && heldBytes <= allowedBytes && needed <= allowedBytes - heldBytes) taken = takeMemory(tile, needed);
        const bool must = !mayUseFile || (wish && how == Memory::exactly);
        if (!taken.ok() && must) return taken;
    }
    return SUCCESS;
}

/// Brings the rows of tiles that are elsewhere now.
Status TileSet::moveRows(TileSet& former) noexcept
{
    for (R_UINT i = 0; i < std::min(count, former.count); ++i) {
        if (tiles[i].pages == former.tiles[i].pages) continue;
        const uint8_t* const from = former.rowsOf(i);
        uint8_t* const to = from != nullptr ? rowsOf(i) : nullptr;
        if (to == nullptr) return ERROR_FAILURE;
        std::memcpy(to, from, std::min(bytesOf(i), former.bytesOf(i)));
    }
    return SUCCESS;
}

/// New memory is zero, and so is a file where it has grown; what has been in use may hold anything.
Status TileSet::clearNewRows(const TileSet& former) noexcept
{
    for (auto i = static_cast<R_UINT>(former.height) / rowsPerTile; i < count; ++i) {
        const R_UINT64 start = i * tileBytes();
        const R_UINT64 present = former.bytes() > start ? former.bytes() - start : 0;
        const bool used = tiles[i].pages != nullptr ? i < former.count && tiles[i].pages == former.tiles[i].pages
                                                    : offsetOf(i) < former.fileBytes;
        if (!used || present >= bytesOf(i)) continue;
        uint8_t* const rows = rowsOf(i);
        if (rows == nullptr) return ERROR_FAILURE;
        std::memset(rows + present, 0, bytesOf(i) - present);
    }
    return SUCCESS;
}

Status TileSet::fillFrom(TileSet& former, R_UINT wanted, Memory how) noexcept
{
    R_TRY(divide(former, wanted, how));
    R_TRY(sizeFile());
    R_TRY(leaveRoomForViews(former, how));
    R_TRY(moveRows(former));
    return clearNewRows(former);
}

Status TileSet::change(R_INT rows, R_UINT wanted, Memory how) noexcept
{
    closeViews(0);
    TileSet next = *this;
    next.height = rows;
    next.count = tilesOf(rows);
    R_TRY(next.takeTiles(*this));
    if (const Status filled = next.fillFrom(*this, wanted, how); !filled.ok()) {
        closeViews(0);
        next.giveBack(*this);
        fileBytes = file != kNoFile ? next.fileBytes : 0;
        cutFile();
        return filled;
    }
    next.closeViews(0);
    giveBack(next);
    *this = next;
    cutFile();
    return SUCCESS;
}

Status TileSet::changeHeight(R_INT rows) noexcept
{
    // Without a file there is no other place, whatever number was wished for.
    const R_UINT all = tilesOf(rows);
    return change(rows, mayUseFile ? resolved(convTiles, all) : all, Memory::asFarAsPossible);
}

Status TileSet::keep(R_UINT wanted) noexcept
{
    const R_UINT64 allowed = allowedBytes;
    allowedBytes = UINT64_MAX; // the caller's own word; the process's limit holds on
    const R_UINT kept = std::min(wanted, count);
    const Status changed = change(height, kept, Memory::exactly);
    if (changed.ok())
        convTiles = static_cast<R_INT>(kept);
    else
        allowedBytes = allowed;
    return changed;
}

} // namespace rv
