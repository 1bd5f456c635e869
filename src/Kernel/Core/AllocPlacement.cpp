// The placement decision: where a bitmap's pixels live.

#include "Kernel/Base/System.h"
#include "Kernel/Core/AllocRecord.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/RowCursor.h"

#include <algorithm>

namespace rv {

namespace {

/// Whether temporary files may live in memory only. Nothing may then spill to disk.
bool diskForbidden() noexcept { return R_GetTempFileMode() == TEMPFILE_MEMORY; }

bool canCompress(const BITMAPHANDLE* pBitmap) noexcept
{
    return pBitmap->BitsPerPixel == 1 && compressedStore().usable(shapeOf(pBitmap));
}

bool canSuperCompress(const BITMAPHANDLE* pBitmap) noexcept
{
    const R_INT bits = pBitmap->BitsPerPixel;
    return (bits == 1 || bits == 8 || bits == 24) && superCompressedStore().usable(shapeOf(pBitmap));
}

/// A share of `total`, in percent.
R_UINT64 percentOf(R_UINT64 total, R_INT64 percent) noexcept { return total / 100 * static_cast<R_UINT64>(percent); }

/// Bytes that one bitmap may take of conventional memory, by the system's memory and the thread's settings.
R_UINT64 allowedConventional(const ThreadSettings& settings) noexcept
{
    const MemoryStatus memory = platform().memoryStatus();
    const R_UINT64 available = memory.availablePhysical + memory.availablePageFile;
    const R_UINT64 reserve = settings.reserve < 0
                                 ? percentOf(memory.totalPhysical + memory.totalPageFile, -R_INT64{settings.reserve})
                                 : static_cast<R_UINT64>(settings.reserve);
    const R_UINT64 maximum = settings.maxConvSize < 0 ? percentOf(available, -settings.maxConvSize)
                                                      : static_cast<R_UINT64>(settings.maxConvSize);
    return std::min(available > reserve ? available - reserve : 0, maximum);
}

/// One bitmap's way through the decision.
class Placement {
public:
    Placement(BITMAPHANDLE* pBitmap, R_UINT memory) noexcept
        : bitmap_(pBitmap), shape_(shapeOf(pBitmap)), settings_(threadSettings()), memory_(memory),
          mayUseDisk_((memory & MEM_NO_DISK) == 0 && !diskForbidden())
    {
        const R_INT64 tileBytes = settings_.tileSize > 0 ? settings_.tileSize : kDefaultTileSize;
        request_.tileBytes = static_cast<R_UINT64>(tileBytes);
        request_.convTiles = settings_.convTiles;
        request_.convBuffers = settings_.convBuffers;
        request_.memoryOnly = diskForbidden();
        request_.noDisk = (memory & MEM_NO_DISK) != 0;
        request_.conventional = allowedConventional(settings_);
    }

    Status place() noexcept
    {
        if ((memory_ & MEM_TILED) != 0)
            keepTilesWhereUseful();
        else
            R_TRY(fitToMemory());
        if ((memory_ & (MEM_TILED | MEM_DISK)) == 0 && tryStore(linearStore(), FLAG_CONVENTIONAL_MEMORY))
            return SUCCESS;
        if ((memory_ & (MEM_DISK | MEM_NO_TILED)) == 0 && tileStore().usable(shape_) &&
            tryStore(tileStore(), FLAG_CONVENTIONAL_MEMORY | FLAG_TILED))
            return SUCCESS;
        if (mayUseDisk_ && diskStore().usable(shape_) && tryStore(diskStore(), FLAG_DISK_MEMORY)) return SUCCESS;
        return last_;
    }

private:
    /// A caller's wish for tiles counts only for bitmaps that are larger than one.
    void keepTilesWhereUseful() noexcept
    {
        if (shape_.bytes <= request_.tileBytes || !tileStore().usable(shape_)) memory_ &= ~MEM_TILED;
    }

    /// Sends a bitmap that is too large for conventional memory to tiles or disk.
    Status fitToMemory() noexcept
    {
        const R_INT64 threshold = globalBitmapThreshold();
        if (threshold > 0 && shape_.bytes > static_cast<R_UINT64>(threshold) && mayUseDisk_) {
            memory_ |= MEM_DISK;
            return SUCCESS;
        }
        if (memory_ == MEM_DISK || shape_.bytes <= request_.conventional) return SUCCESS;
        if ((memory_ & MEM_NO_TILED) == 0) {
            memory_ |= MEM_TILED;
        } else {
            if (!mayUseDisk_) return ERROR_FAILURE;
            memory_ |= MEM_DISK;
        }
        return SUCCESS;
    }

    bool tryStore(const RowStore& store, R_UINT flags) noexcept
    {
        StoreSlots slots;
        last_ = store.create(slots, shape_, request_);
        if (!last_.ok()) return false;
        setSlots(bitmap_, slots);
        bitmap_->Flags |= FLAG_ALLOCATED | flags;
        return true;
    }

    BITMAPHANDLE* bitmap_;
    StoreShape shape_;
    const ThreadSettings& settings_;
    R_UINT memory_;
    bool mayUseDisk_;
    StoreRequest request_;
    Status last_ = ERROR_FAILURE;
};

Status placeInStore(BITMAPHANDLE* pBitmap, const RowStore& store, R_UINT flags) noexcept
{
    StoreSlots slots;
    R_TRY(store.create(slots, shapeOf(pBitmap), StoreRequest{}));
    setSlots(pBitmap, slots);
    pBitmap->Flags |= FLAG_ALLOCATED | flags;
    return SUCCESS;
}

} // namespace

bool isMemorySet(R_UINT memory) noexcept
{
    switch (memory) {
    case MEM_CONVENTIONAL:
    case MEM_USER:
    case MEM_TILED:
    case MEM_NO_TILED:
    case MEM_CONVENTIONAL | MEM_NO_TILED:
    case MEM_DISK:
    case MEM_NO_DISK:
    case MEM_CONVENTIONAL | MEM_NO_DISK:
    case MEM_TILED | MEM_NO_DISK:
    case MEM_NO_TILED | MEM_NO_DISK:
    case MEM_CONVENTIONAL | MEM_NO_TILED | MEM_NO_DISK:
    case MEM_COMPRESSED | MEM_NO_DISK:
    case MEM_COMPRESSED | MEM_NO_DISK | MEM_CONVENTIONAL:
    case MEM_SUPER_COMPRESSED:
    case MEM_SUPER_COMPRESSED | MEM_CONVENTIONAL:
    case MEM_SUPER_COMPRESSED | MEM_NO_DISK:
    case MEM_SUPER_COMPRESSED | MEM_NO_DISK | MEM_CONVENTIONAL: return true;
    default: return false;
    }
}

R_UINT normalisedMemory(const BITMAPHANDLE* pBitmap, R_UINT memory) noexcept
{
    if ((memory & MEM_USER) != 0)
        memory &= ~(MEM_NO_DISK | MEM_NO_TILED);
    else if ((memory & MEM_DISK) != 0 && diskForbidden())
        memory = (memory & ~MEM_DISK) | MEM_NO_DISK;

    if ((memory & MEM_COMPRESSED) != 0) {
        if (canCompress(pBitmap)) return MEM_COMPRESSED | MEM_NO_DISK;
        memory &= ~MEM_COMPRESSED;
    }
    if ((memory & MEM_SUPER_COMPRESSED) != 0 && !canSuperCompress(pBitmap)) memory &= ~MEM_SUPER_COMPRESSED;
    return memory;
}

Status placePixels(BITMAPHANDLE* pBitmap, R_UINT memory) noexcept
{
    if (memory == MEM_USER) {
        pBitmap->Flags |= FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY | FLAG_MIRROR;
        return SUCCESS;
    }
    if ((memory & MEM_COMPRESSED) != 0)
        return placeInStore(pBitmap, compressedStore(), FLAG_CONVENTIONAL_MEMORY | FLAG_COMPRESSED);
    if ((memory & MEM_SUPER_COMPRESSED) != 0)
        return placeInStore(pBitmap, superCompressedStore(), FLAG_CONVENTIONAL_MEMORY | FLAG_SUPER_COMPRESSED);
    return Placement(pBitmap, memory).place();
}

} // namespace rv
