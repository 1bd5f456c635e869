// Between compressed and packed pixels, and the heaps of compressed bitmaps.

#include "Kernel/Core/Access.h"
#include "Kernel/Core/AllocRecord.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Rows/BitmapHeap.h"
#include "Kernel/Rows/CompressedStore.h"
#include "R_Rows.h"

#include <cstring>

namespace rv {

namespace {

bool isCompressed(const BITMAPHANDLE* pBitmap) noexcept { return (pBitmap->Flags & FLAG_COMPRESSED) != 0; }

/// A compressed bitmap's size is what its heaps take.
void tellHeldBytes(BITMAPHANDLE* pBitmap) noexcept
{
    setPixelBytes(pBitmap, compressedStore().heldBytes(slotsOf(pBitmap), shapeOf(pBitmap)));
}

/// A record for other pixels of the same bitmap, which it frees.
class OtherPixels {
public:
    explicit OtherPixels(const BITMAPHANDLE* pBitmap) noexcept
    {
        record_.uStructSize = BITMAPHANDLE_SIZE;
        record_.Width = pBitmap->Width;
        record_.Height = pBitmap->Height;
        record_.BitsPerPixel = pBitmap->BitsPerPixel;
        record_.BytesPerLine = pBitmap->BytesPerLine;
        setPixelBytes(&record_, R_UINT64{pBitmap->BytesPerLine} * static_cast<R_UINT64>(pBitmap->Height));
    }
    ~OtherPixels() { R_FreeBitmap(&record_); }
    OtherPixels(const OtherPixels&) = delete;
    OtherPixels& operator=(const OtherPixels&) = delete;

    BITMAPHANDLE* record() noexcept { return &record_; }
    /// Gives the bitmap these pixels and takes its own.
    void swapWith(BITMAPHANDLE* pBitmap) noexcept
    {
        const StoreSlots slots = slotsOf(pBitmap);
        const R_UINT64 bytes = shapeOf(pBitmap).bytes;
        const R_UINT placement = pBitmap->Flags & kPlacementFlags;
        setSlots(pBitmap, slotsOf(&record_));
        setPixelBytes(pBitmap, pixelBytes(&record_));
        pBitmap->Flags = (pBitmap->Flags & ~kPlacementFlags) | record_.Flags;
        setSlots(&record_, slots);
        setPixelBytes(&record_, bytes);
        record_.Flags = placement;
    }

private:
    BITMAPHANDLE record_{};
};

Status copyRows(BITMAPHANDLE* target, BITMAPHANDLE* source) noexcept
{
    RowCursor to(target, RowMode::write), from(source, RowMode::read);
    R_TRY(to.status());
    for (R_INT row = 0; row < source->Height; ++row) {
        R_TRY(from.open(row));
        R_TRY(to.open(row));
        std::memcpy(to.data(), from.data(), source->BytesPerLine);
        R_TRY(to.commit());
    }
    return from.status();
}

Status copyPixels(BITMAPHANDLE* target, BITMAPHANDLE* source) noexcept
{
    BitmapAccess sourceAccess(source);
    R_TRY(sourceAccess.status());
    BitmapAccess targetAccess(target);
    R_TRY(targetAccess.status());
    const Status copied = targetAccess.finish(copyRows(target, source));
    return sourceAccess.finish(copied);
}

Status changeCompression(BITMAPHANDLE* pBitmap, bool compress) noexcept
{
    if (isCompressed(pBitmap) == compress) return SUCCESS;
    OtherPixels other(pBitmap);
    R_TRY(placePixels(other.record(), compress ? MEM_COMPRESSED | MEM_NO_DISK : MEM_CONVENTIONAL));
    R_TRY(copyPixels(other.record(), pBitmap));
    other.swapWith(pBitmap);
    if (compress) tellHeldBytes(pBitmap);
    return SUCCESS;
}

Status checkCompression(const BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pBitmap));
    R_TRY(checkWalkable(pBitmap));
    if (pBitmap->BitsPerPixel != 1) return ERROR_INV_BITS_PER_PIXEL;
    // Pixels that somebody holds an address of, or that are not the kernel's.
    return (pBitmap->Flags & (FLAG_LOCKED_MEMORY | FLAG_MIRROR)) == 0 ? SUCCESS : ERROR_INV_PARAMETER;
}

Status checkHeaps(const BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_PARAMETER));
    return isCompressed(pBitmap) ? SUCCESS : ERROR_INV_PARAMETER;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_ChangeBitmapCompression(BITMAPHANDLE* pBitmap, R_INT bCompress) noexcept
{
    R_TRY(checkCompression(pBitmap));
    return changeCompression(pBitmap, bCompress != 0);
}

R_INT R_ToggleBitmapCompression(BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkCompression(pBitmap));
    return changeCompression(pBitmap, !isCompressed(pBitmap));
}

void R_HeapFree(void* pHeap, R_UINT64 uOffset) noexcept
{
    if (pHeap != nullptr) BitmapHeap(&pHeap).free(uOffset);
}

R_INT R_GrowBitmapHeap(BITMAPHANDLE* pBitmap, R_UINT64 uBytes) noexcept
{
    // The record's size is not checked: callers of this one have always come with any.
    R_TRY(checkHeaps(pBitmap));
    const Status grown = growHeaps(slotsOf(pBitmap), uBytes);
    if (grown != ERROR_INV_BITMAP) tellHeldBytes(pBitmap);
    return grown;
}

R_INT R_TrimBitmapHeap(BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkHeaps(pBitmap));
    R_TRY(checkStructSize(pBitmap));
    const Status trimmed = trimHeaps(slotsOf(pBitmap));
    if (trimmed != ERROR_INV_BITMAP) tellHeldBytes(pBitmap);
    return trimmed;
}
