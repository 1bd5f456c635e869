#include "Kernel/Core/Replacement.h"

#include "Internal/R_Int.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/AllocRecord.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/DitherState.h"
#include "Kernel/Core/Palette.h"
#include "Kernel/Core/RowCursor.h"
#include "R_Geometry.h"

#include <cstring>
#include <utility>

namespace rv {

namespace {

/// What a duplicate takes over: a palette of its own, and all that describes the image.
constexpr R_UINT kAttributes = DUP_PALETTE | 0x0Cu;

/// What of a record is not its image's, and stays when another image takes its place.
class CallersPart {
public:
    explicit CallersPart(const BITMAPHANDLE* pBitmap) noexcept : kept_{}
    {
        std::memcpy(static_cast<void*>(&kept_), pBitmap, pBitmap->uStructSize);
    }
    void restoreTo(BITMAPHANDLE* pBitmap) const noexcept
    {
        pBitmap->pExtraData = kept_.pExtraData;
        pBitmap->ExtraDataSize = kept_.ExtraDataSize;
        pBitmap->pOverlays = kept_.pOverlays;
        pBitmap->pRgnInfo = kept_.pRgnInfo;
        if (!hasCallbackSlot(pBitmap)) return;
        pBitmap->nLockCount = kept_.nLockCount;
        pBitmap->Reserved = kept_.Reserved;
        if (pBitmap->pDataCallbacks == nullptr) pBitmap->pDataCallbacks = kept_.pDataCallbacks;
    }

private:
    BITMAPHANDLE kept_;
};

/// Whether callbacks hold the pixels of a bitmap, which the kernel is then only told of.
bool keepsRows(const BITMAPHANDLEDATACALLBACKS* callbacks) noexcept
{
    return callbacks != nullptr &&
           (callbacks->AllocateBitmapDataCallback != nullptr || callbacks->GetBitmapRowColCallback != nullptr ||
            callbacks->PutBitmapRowColCallback != nullptr);
}

/// Where a bitmap's pixels are: its address slots and its flags about them.
class Placement {
public:
    explicit Placement(const BITMAPHANDLE* pBitmap) noexcept
        : store_(storeOf(pBitmap)), slots_(slotsOf(pBitmap)), shape_(shapeOf(pBitmap)),
          flags_(pBitmap->Flags & kPlacementFlags)
    {
    }
    void restoreTo(BITMAPHANDLE* pBitmap) const noexcept
    {
        setSlots(pBitmap, slots_);
        pBitmap->Flags = (pBitmap->Flags & ~kPlacementFlags) | flags_;
    }
    void destroy() noexcept { store_->destroy(slots_, shape_); }

private:
    const RowStore* store_;
    StoreSlots slots_;
    StoreShape shape_;
    R_UINT flags_;
};

/// Offers the callbacks of a bitmap to hold its pixels. *supplied: they have room for them, and the record tells where,
/// if that is their way; otherwise its slots hold nothing of account.
Status offerPixels(BITMAPHANDLE* pBitmap, bool* supplied) noexcept
{
    *supplied = false;
    const BITMAPHANDLEDATACALLBACKS* const callbacks = dataCallbacks(pBitmap);
    if (callbacks == nullptr || callbacks->AllocateBitmapDataCallback == nullptr) return SUCCESS;
    ALLOCATIONINFO info;
    fillAllocationInfo(&info, pBitmap, MEM_CONVENTIONAL, nullptr);
    setSlots(pBitmap, {});
    pBitmap->Flags &= ~kPlacementFlags;
    const R_INT answer = callbacks->AllocateBitmapDataCallback(pBitmap, &info, callbacks->pUserData);
    *supplied = answer == SUCCESS_ABORT;
    if (!*supplied) return answer;
    pBitmap->Flags |= FLAG_ALLOCATED | FLAG_MIRROR;
    return SUCCESS;
}

/// Gives every row to the callback that takes rows. *all: it has kept each of them.
Status giveRows(BITMAPHANDLE* pBitmap, RowCursor& rows, bool* all) noexcept
{
    const BITMAPHANDLEDATACALLBACKS* const callbacks = dataCallbacks(pBitmap);
    const BITMAPROWCOLCALLBACK put = callbacks != nullptr ? callbacks->PutBitmapRowColCallback : nullptr;
    *all = put != nullptr;
    if (put == nullptr) return SUCCESS;
    BitmapAccess access(pBitmap);
    R_TRY(access.status());
    const R_UINT rowBytes = pBitmap->BytesPerLine;
    for (R_INT row = 0; row < pBitmap->Height; ++row) {
        R_TRY(rows.open(row));
        const R_INT answer = put(pBitmap, rows.data(), row, 0, rowBytes, callbacks->pUserData);
        if (answer == 0)
            *all = false;
        else
            R_TRY(rowMoved(answer, rowBytes));
    }
    return access.finish(SUCCESS);
}

/// Moves the pixels of a bitmap, which the kernel holds, to where its callbacks hold rows. They stay where they are
/// when a row is not taken.
Status movePixelsToCallbacks(BITMAPHANDLE* pBitmap, RowCursor& rows) noexcept
{
    Placement kernels(pBitmap);
    bool supplied = false, all = false;
    Status moved = offerPixels(pBitmap, &supplied);
    if (!supplied) kernels.restoreTo(pBitmap);
    if (moved.ok()) moved = giveRows(pBitmap, rows, &all);
    if (moved.ok() && supplied && all)
        kernels.destroy();
    else
        kernels.restoreTo(pBitmap);
    return moved;
}

/// Puts an image in the place of pBitmap's, which is freed; the record keeps what is its caller's.
void takePlace(BITMAPHANDLE* pBitmap, const BITMAPHANDLE* image) noexcept
{
    const CallersPart callers(pBitmap);
    freePixels(pBitmap);
    freePalette(pBitmap);
    DitherState::freeOf(pBitmap); // it was for rows of the old image
    if (dataCallbacks(image) != nullptr) freeCallbacks(pBitmap);
    std::memcpy(static_cast<void*>(pBitmap), image, image->uStructSize);
    callers.restoreTo(pBitmap);
}

} // namespace

Replacement::Replacement(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, const Shape& shape) noexcept
    : own_{}, target_(pDst != nullptr && pDst != pSrc ? pDst : &own_), source_(pSrc),
      status_(duplicate(uStructSize, shape,
                        DUP_ALLOCATE | kAttributes | 0x30u | (replaces() ? DUP_REPLACES_SOURCE : DUP_NEW_BITMAP)))
{
    begun_ = status_.ok();
}

Replacement::Replacement(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, const Shape& shape,
                         R_UINT uMemory) noexcept
    : own_{}, target_(pDst != nullptr && pDst != pSrc ? pDst : &own_), source_(pSrc),
      status_(duplicate(uStructSize, shape, kAttributes))
{
    if (!status_.ok()) return;
    ALLOCATIONINFO info{};
    info.uMemory = uMemory;
    status_ = R_IntBeginCopyBitmap(target_, source_, replaces() ? DUP_REPLACES_SOURCE : DUP_NEW_BITMAP, &info);
    begun_ = status_.ok();
    if (begun_) status_ = R_AllocateBitmap(target_, uMemory);
    if (!status_.ok()) (void)fail(status_);
}

Replacement::~Replacement()
{
    if (target_ != nullptr) (void)fail(ERROR_FAILURE);
}

BITMAPHANDLE* Replacement::bitmap() noexcept { return target_; }

Status Replacement::duplicate(R_UINT uStructSize, const Shape& shape, R_UINT flags) noexcept
{
    // Longer rows than a record counts would be cut by it, and then be filled whole.
    constexpr R_UINT64 longestRow = 0x1FFFFFFC;
    if (shape.width > 0 && isDepth(shape.bits) && packedBytes(shape.width, shape.bits) > longestRow) {
        target_ = nullptr;
        return ERROR_INV_SIZE;
    }
    // A record keeps its own size, whatever size was asked for.
    if (replaces() && source_ != nullptr && isStructSize(uStructSize)) uStructSize = source_->uStructSize;
    const Status made = R_DupBitmapNewDim(target_, source_, uStructSize, shape.width, shape.height, shape.bits, flags);
    if (!made.ok()) target_ = nullptr; // which may never have been a record
    return made;
}

Status Replacement::commit() noexcept
{
    const Status ended = R_IntEndCopyBitmap(target_, source_, SUCCESS);
    begun_ = false;
    if (!ended.ok()) return fail(ended);
    BITMAPHANDLE* const image = std::exchange(target_, nullptr);
    if (image != &own_) return SUCCESS;
    if (dataCallbacks(image) != nullptr || !keepsRows(dataCallbacks(source_))) {
        takePlace(source_, image);
        return SUCCESS;
    }
    RowCursor rows(image, RowMode::read);
    if (!rows.status().ok()) {
        target_ = image;
        return fail(rows.status());
    }
    takePlace(source_, image);
    return movePixelsToCallbacks(source_, rows);
}

Status Replacement::fail(Status status) noexcept
{
    if (target_ == nullptr) return status;
    if (begun_) (void)R_IntEndCopyBitmap(target_, source_, status);
    begun_ = false;
    R_FreeDuplicateBitmap(target_, source_);
    target_ = nullptr;
    return status;
}

} // namespace rv
