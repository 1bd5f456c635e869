// The record's life: initialise, create, allocate, free.

#include "Kernel/Base/System.h"
#include "Kernel/Base/Util.h"
#include "Kernel/Core/AllocRecord.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/DitherState.h"
#include "Kernel/Core/Palette.h"
#include "Kernel/Core/RowCursor.h"

#include <cstring>

namespace rv {

namespace {

constexpr R_INT kOrderOfWholeSamples = 5; // only 24 and 48 bits can be in it

/// The most significant bit of a sample, as a new record has it. A 32-bit bitmap carries no range.
R_INT defaultHighBit(R_INT bits) noexcept
{
    switch (bits) {
    case 24: return 7;
    case 32: return -1;
    case 48:
    case 64: return 15;
    default: return bits - 1;
    }
}

R_INT defaultOrder(R_INT bits) noexcept
{
    if (bits <= 8) return ORDER_RGB;
    return bits == 12 ? ORDER_GRAY : ORDER_BGR;
}

/// Whole 32-bit words. The product is taken in 32 bits; a record whose rows came out too short is refused wherever
/// its pixels are walked.
R_UINT bytesPerLine(R_INT width, R_INT bits) noexcept
{
    return ((static_cast<R_UINT>(width) * static_cast<R_UINT>(bits) + 31u) >> 3) & 0x1FFFFFFCu;
}

R_INT usableResolution(R_INT resolution) noexcept { return resolution < 1 ? kDefaultResolution : resolution; }

Status fillGeometry(BITMAPHANDLE* pBitmap, R_INT width, R_INT height, R_INT bits) noexcept
{
    pBitmap->Width = width;
    pBitmap->Height = height;
    pBitmap->BitsPerPixel = bits;
    pBitmap->BytesPerLine = bytesPerLine(width, bits);
    const R_UINT64 size = R_UINT64{pBitmap->BytesPerLine} * static_cast<R_UINT64>(height);
    if (!hasSize64(pBitmap) && size > kShortRecordMaxSize) {
        std::memset(pBitmap, 0, BITMAPHANDLE_SIZE_SHORT);
        return ERROR_NO_MEMORY;
    }
    setPixelBytes(pBitmap, size);
    return SUCCESS;
}

void fillDefaults(BITMAPHANDLE* pBitmap, R_INT bits) noexcept
{
    const ThreadSettings& settings = threadSettings();
    pBitmap->DitheringMethod = settings.ditheringMethod;
    pBitmap->ViewPerspective = BOTTOM_LEFT;
    pBitmap->Order = defaultOrder(bits);
    if (bits <= 8) pBitmap->nColors = 1u << bits;
    pBitmap->XResolution = usableResolution(settings.xResolution);
    pBitmap->YResolution = usableResolution(settings.yResolution);
    pBitmap->HighBit = defaultHighBit(bits);
    pBitmap->PaintHighBit = defaultHighBit(bits);
    pBitmap->PaintGamma = 100;
}

Status initialise(BITMAPHANDLE* pBitmap, R_UINT uStructSize, R_INT width, R_INT height, R_INT bits,
                  const BITMAPHANDLEDATACALLBACKS* pCallbacks) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_PARAMETER;
    if (!isStructSize(uStructSize)) return ERROR_INV_STRUCT_SIZE;
    std::memset(static_cast<void*>(pBitmap), 0, uStructSize);
    pBitmap->uStructSize = uStructSize;
    if (width == 0 && height == 0 && bits == 0) return SUCCESS;
    if (width < 0 || height < 0) return ERROR_INV_SIZE;
    R_TRY(checkLicence(Feature::bitmap));
    R_TRY(checkStarted());
    if (!isDepth(bits)) return ERROR_INV_BITS_PER_PIXEL;
    R_TRY(fillGeometry(pBitmap, width, height, bits));
    fillDefaults(pBitmap, bits);
    return pCallbacks != nullptr ? R_SetBitmapDataCallbacks(pBitmap, pCallbacks) : SUCCESS;
}

/// What R_CreateBitmap adds to an initialised record.
struct Creation {
    R_UINT memory;
    R_INT bits; ///< as the caller gave it
    R_INT order;
    const RGBQUAD* palette;
    R_INT perspective;
    void* data;
    R_UINT64 dataBytes;

    bool wantsGray() const noexcept { return bits == 0 || (bits <= 8 && order == ORDER_GRAY && palette == nullptr); }
};

Status setOrderAndPerspective(BITMAPHANDLE* pBitmap, const Creation& creation) noexcept
{
    const R_INT bits = pBitmap->BitsPerPixel;
    pBitmap->Order = creation.bits != 0 && creation.wantsGray() ? ORDER_RGB : creation.order;
    if (creation.order == kOrderOfWholeSamples && bits != 24 && bits != 48) return ERROR_INV_BITS_PER_PIXEL;
    const R_INT perspective = creation.perspective == 0 ? TOP_LEFT : creation.perspective;
    if (!isViewPerspective(perspective)) return ERROR_INV_PARAMETER;
    pBitmap->ViewPerspective = perspective;
    return SUCCESS;
}

Status givePalette(BITMAPHANDLE* pBitmap, const Creation& creation) noexcept
{
    if (pBitmap->BitsPerPixel > 8) return SUCCESS;
    pBitmap->Order = ORDER_RGB;
    if (creation.palette != nullptr) return copyPaletteEntries(pBitmap, creation.palette, pBitmap->nColors);
    if (creation.wantsGray()) return giveGrayPalette(pBitmap);
    return giveFixedPalette(pBitmap, pBitmap->BitsPerPixel);
}

/// Points a bitmap of the caller's memory at its pixels. A hook may have placed it elsewhere, and then it has pixels
/// of its own.
Status takeCallersPixels(BITMAPHANDLE* pBitmap, const Creation& creation) noexcept
{
    if ((creation.memory & MEM_USER) == 0 || creation.data == nullptr || (pBitmap->Flags & FLAG_MIRROR) == 0)
        return SUCCESS;
    if (!hasCallbackPixels(pBitmap) && pixelBytes(pBitmap) != creation.dataBytes) return ERROR_INV_PARAMETER;
    pBitmap->Addr.Pointer = creation.data;
    return SUCCESS;
}

Status complete(BITMAPHANDLE* pBitmap, const Creation& creation) noexcept
{
    R_TRY(setOrderAndPerspective(pBitmap, creation));
    R_TRY(allocatePixels(pBitmap, creation.memory, creation.data));
    R_TRY(givePalette(pBitmap, creation));
    return takeCallersPixels(pBitmap, creation);
}

Status checkPixelLicence(const BITMAPHANDLE* pBitmap) noexcept
{
    const R_INT bits = pBitmap->BitsPerPixel;
    if ((bits == 12 || bits == 16) && pBitmap->Order == ORDER_GRAY) return checkLicence(Feature::gray);
    if (bits >= 48) return checkLicence(Feature::extendedColour);
    return SUCCESS;
}

void clearPlacement(BITMAPHANDLE* pBitmap) noexcept
{
    pBitmap->Flags &= ~kPlacementFlags;
    setSlots(pBitmap, {});
}

/// Asks the bitmap's own allocate callback. It may change the flags, or supply the pixels (*supplied).
Status askAllocateCallback(BITMAPHANDLE* pBitmap, R_UINT* memory, void* data, bool* supplied) noexcept
{
    const BITMAPHANDLEDATACALLBACKS* const callbacks = dataCallbacks(pBitmap);
    if (callbacks == nullptr || callbacks->AllocateBitmapDataCallback == nullptr) return SUCCESS;
    ALLOCATIONINFO info;
    fillAllocationInfo(&info, pBitmap, *memory, data);
    const R_INT answer = callbacks->AllocateBitmapDataCallback(pBitmap, &info, callbacks->pUserData);
    *supplied = answer == SUCCESS_ABORT;
    if (*supplied) return SUCCESS;
    if (answer == SUCCESS && info.uMemory != *memory) {
        *memory = normalisedMemory(pBitmap, info.uMemory);
        if (!isMemorySet(*memory)) return ERROR_INV_PARAMETER;
    }
    return answer;
}

Status askAllocateHook(const BITMAPHANDLE* pBitmap, R_UINT* memory, void* data) noexcept
{
    const AllocateHook hook = allocateHook();
    if (hook.callback == nullptr) return SUCCESS;
    ALLOCATIONINFO info;
    fillAllocationInfo(&info, pBitmap, *memory, data);
    const R_INT answer = hook.callback(&info, hook.userData);
    *memory = info.uMemory;
    return answer;
}

/// Frees the movable block of a Global bitmap, locked or not.
void freeMovablePixels(BITMAPHANDLE* pBitmap) noexcept { platform().freeMovable(pBitmap->Addr.Handle); }

/// What the display module hung on the record.
void freeDisplayData(BITMAPHANDLE* pBitmap) noexcept
{
    const DISDISPATCH& hooks = displayHooks();
    if (pBitmap->pRgnInfo != nullptr && hooks.DeleteRegion != nullptr) hooks.DeleteRegion(pBitmap->pRgnInfo);
    pBitmap->pRgnInfo = nullptr;
    freePalette(pBitmap);
    if (pBitmap->pOverlays != nullptr && hooks.DeleteOverlays != nullptr) hooks.DeleteOverlays(pBitmap->pOverlays);
    pBitmap->pOverlays = nullptr;
}

} // namespace

void freePixels(BITMAPHANDLE* pBitmap) noexcept
{
    if ((pBitmap->Flags & FLAG_ALLOCATED) == 0) return;
    const BITMAPHANDLEDATACALLBACKS* const callbacks = dataCallbacks(pBitmap);
    if (callbacks != nullptr && callbacks->FreeBitmapDataCallback != nullptr &&
        callbacks->FreeBitmapDataCallback(pBitmap, callbacks->pUserData) == SUCCESS_ABORT)
        return;
    const R_UINT flags = pBitmap->Flags;
    if ((flags & FLAG_MIRROR) != 0) return;
    const RowStore* const store = storeOf(pBitmap);
    if (store == &linearStore() && (flags & FLAG_GLOBAL) != 0) {
        freeMovablePixels(pBitmap);
    } else if (store != nullptr) {
        StoreSlots slots = slotsOf(pBitmap);
        const StoreShape shape = shapeOf(pBitmap);
        store->destroy(slots, shape);
        // So that the record can be allocated again.
        if ((flags & (FLAG_COMPRESSED | FLAG_SUPER_COMPRESSED)) != 0) setPixelBytes(pBitmap, shape.bytes);
    }
}

void fillAllocationInfo(ALLOCATIONINFO* pInfo, const BITMAPHANDLE* pBitmap, R_UINT memory, void* data) noexcept
{
    pInfo->uStructSize = ALLOCATIONINFO_SIZE;
    pInfo->Width = pBitmap->Width;
    pInfo->Height = pBitmap->Height;
    pInfo->BitsPerPixel = pBitmap->BitsPerPixel;
    pInfo->BytesPerLine = static_cast<R_INT>(pBitmap->BytesPerLine);
    pInfo->Order = pBitmap->Order;
    pInfo->ViewPerspective = pBitmap->ViewPerspective;
    pInfo->Size = pixelBytes(pBitmap);
    pInfo->uMemory = memory;
    pInfo->pData = data;
    pInfo->Reserved = 0;
}

Status allocatePixels(BITMAPHANDLE* pBitmap, R_UINT memory, void* data) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    if (pixelBytes(pBitmap) == 0 || !holdsRows(pBitmap)) return ERROR_INV_SIZE;
    R_TRY(checkPixelLicence(pBitmap));
    R_TRY(checkStarted());
    R_TRY(askAllocateHook(pBitmap, &memory, data));
    pBitmap->Flags &= ~kPlacementFlags; // from here on a record that fails says that it has no pixels
    memory = normalisedMemory(pBitmap, memory);
    if (!isMemorySet(memory)) return ERROR_INV_PARAMETER;
    clearPlacement(pBitmap);
    bool supplied = false;
    if (const Status asked = askAllocateCallback(pBitmap, &memory, data, &supplied); !asked.ok()) {
        clearPlacement(pBitmap);
        return asked;
    }
    if (supplied) {
        pBitmap->Flags |= FLAG_ALLOCATED | FLAG_MIRROR;
        return SUCCESS;
    }
    clearPlacement(pBitmap); // whatever a callback that left the placing to us may have written there
    return placePixels(pBitmap, memory);
}

} // namespace rv

using namespace rv;

R_INT R_InitBitmap(BITMAPHANDLE* pBitmap, R_UINT uStructSize, R_INT nWidth, R_INT nHeight, R_INT nBitsPerPixel) noexcept
{
    return initialise(pBitmap, uStructSize, nWidth, nHeight, nBitsPerPixel, nullptr);
}

R_INT R_InitBitmapWithCallbacks(BITMAPHANDLE* pBitmap, R_UINT uStructSize, R_INT nWidth, R_INT nHeight,
                                R_INT nBitsPerPixel, const BITMAPHANDLEDATACALLBACKS* pCallbacks) noexcept
{
    return initialise(pBitmap, uStructSize, nWidth, nHeight, nBitsPerPixel, pCallbacks);
}

R_INT R_CreateBitmap(BITMAPHANDLE* pBitmap, R_UINT uStructSize, R_UINT uMemory, R_INT nWidth, R_INT nHeight,
                     R_INT nBitsPerPixel, R_INT nOrder, const RGBQUAD* pPalette, R_INT nViewPerspective, void* pData,
                     R_UINT64 uDataSize) noexcept
{
    return R_CreateBitmapWithCallbacks(pBitmap, uStructSize, uMemory, nWidth, nHeight, nBitsPerPixel, nOrder, pPalette,
                                       nViewPerspective, pData, uDataSize, nullptr);
}

R_INT R_CreateBitmapWithCallbacks(BITMAPHANDLE* pBitmap, R_UINT uStructSize, R_UINT uMemory, R_INT nWidth,
                                  R_INT nHeight, R_INT nBitsPerPixel, R_INT nOrder, const RGBQUAD* pPalette,
                                  R_INT nViewPerspective, void* pData, R_UINT64 uDataSize,
                                  const BITMAPHANDLEDATACALLBACKS* pCallbacks) noexcept
{
    R_TRY(initialise(pBitmap, uStructSize, nWidth, nHeight, nBitsPerPixel == 0 ? 8 : nBitsPerPixel, pCallbacks));
    const Creation creation{uMemory, nBitsPerPixel, nOrder, pPalette, nViewPerspective, pData, uDataSize};
    const Status completed = complete(pBitmap, creation);
    if (!completed.ok()) R_FreeBitmap(pBitmap); // nobody else knows what the record already owns
    return completed;
}

R_INT R_AllocateBitmap(BITMAPHANDLE* pBitmap, R_UINT uMemory) noexcept
{
    return allocatePixels(pBitmap, uMemory, nullptr);
}

void R_FreeBitmap(BITMAPHANDLE* pBitmap) noexcept
{
    if (pBitmap == nullptr || !isStructSize(pBitmap->uStructSize)) return;
    if (lockCountDiagnostics() && lockCount(pBitmap) != 0) traceLockCount("R_FreeBitmap", lockCount(pBitmap), "");
    freeDisplayData(pBitmap);
    freePixels(pBitmap);
    clearPlacement(pBitmap);
    DitherState::freeOf(pBitmap);
    freeExtraData(pBitmap);
    freeCallbacks(pBitmap);
}
