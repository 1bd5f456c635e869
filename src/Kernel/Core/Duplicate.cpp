// Records shaped like another: what a duplicate takes over, and what it leaves behind.

#include "Internal/R_Int.h"
#include "Kernel/Core/AllocRecord.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Palette.h"
#include "R_Colour.h"
#include "R_Geometry.h"

namespace rv {

namespace {

/// Flags that go with the image. Those of a placement are of no account once the duplicate has pixels of its own; until
/// then they tell where the source has them.
constexpr R_UINT kImageFlags = FLAG_DISK_MEMORY | FLAG_WAIT_USER_INPUT | FLAG_TRANSPARENCY | FLAG_COMPRESSED |
                               FLAG_SIGNED | FLAG_USE_LUT | FLAG_USE_PAINT_LUT | FLAG_SUPER_COMPRESSED | FLAG_NO_CLIP |
                               FLAG_PREMULTIPLY_ALPHA | FLAG_ALPHA_BLEND | FLAG_FLOAT;
/// Those that go with gray samples alone.
constexpr R_UINT kTableFlags = FLAG_USE_LUT | FLAG_USE_PAINT_LUT | FLAG_NON_LINEAR_LUT;

/// Replaces the bits of *flags under mask.
void mergeFlags(BITMAPHANDLE* pDst, R_UINT flags, R_UINT mask) noexcept
{
    pDst->Flags = (pDst->Flags & ~mask) | (flags & mask);
}

void copySampleRange(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) noexcept
{
    pDst->LowBit = pSrc->LowBit;
    pDst->HighBit = pSrc->HighBit;
    pDst->MinVal = pSrc->MinVal;
    pDst->MaxVal = pSrc->MaxVal;
    pDst->PaintLowBit = pSrc->PaintLowBit;
    pDst->PaintHighBit = pSrc->PaintHighBit;
}

/// The tables are the caller's, and so shared. A table that a short source could not name has no length.
void copyTables(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) noexcept
{
    pDst->pLUT = pSrc->pLUT;
    pDst->LUTLength = pSrc->LUTLength;
    pDst->pPaintLUT = pSrc->pPaintLUT;
    pDst->LUTLength16 = pSrc->LUTLength16;
    if (!hasCallbackSlot(pDst)) return;
    pDst->pLUT16 = lut16(pSrc);
    pDst->pPaintLUT16 = hasCallbackSlot(pSrc) ? pSrc->pPaintLUT16 : nullptr;
    if (pDst->pLUT16 == nullptr) pDst->LUTLength16 = 0;
}

void copyDescription(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) noexcept
{
    pDst->ViewPerspective = pSrc->ViewPerspective;
    const R_INT order = pSrc->Order;
    const R_INT bits = pDst->BitsPerPixel;
    if (bits <= 8 && bits != pSrc->BitsPerPixel)
        pDst->Order = ORDER_RGB;
    else
        pDst->Order = order == ORDER_GRAY && bits == 24 ? ORDER_BGR : order;
    mergeFlags(pDst, pSrc->Flags, kImageFlags | (order == ORDER_GRAY ? FLAG_NON_LINEAR_LUT : 0));

    pDst->DitheringMethod = pSrc->DitheringMethod;
    pDst->XResolution = pSrc->XResolution;
    pDst->YResolution = pSrc->YResolution;
    pDst->Left = pSrc->Left;
    pDst->Top = pSrc->Top;
    pDst->Delay = pSrc->Delay;
    pDst->DisposalMethod = pSrc->DisposalMethod;
    pDst->PaintGamma = pSrc->PaintGamma;
    pDst->PaintContrast = pSrc->PaintContrast;
    pDst->PaintIntensity = pSrc->PaintIntensity;
    pDst->OriginalFormat = pSrc->OriginalFormat;
    if (bits == pSrc->BitsPerPixel) copySampleRange(pDst, pSrc); // samples of another depth have another range
    copyTables(pDst, pSrc);
}

/// A bitmap without palette has as many colours as one of its depth has, or as the source says that it has. Above 8
/// bits a palette is one that a picture of the same depth is to be shown with.
Status takePalette(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uFlags) noexcept
{
    if (pDst->BitsPerPixel > 8 && pDst->BitsPerPixel != pSrc->BitsPerPixel) return SUCCESS;
    if (readableColors(pSrc) == 0) {
        if (pDst->BitsPerPixel == pSrc->BitsPerPixel) pDst->nColors = pSrc->nColors;
        return SUCCESS;
    }
    if ((uFlags & DUP_PALETTE) != 0) return R_CopyBitmapPalette(pDst, pSrc);
    pDst->pPalette = pSrc->pPalette;
    pDst->nColors = pSrc->nColors;
    return SUCCESS;
}

/// Needs the duplicate's palette.
void takeColours(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc) noexcept
{
    pDst->Transparency = R_TranslateBitmapColor(pDst, pSrc, pSrc->Transparency);
    pDst->Background = R_TranslateBitmapColor(pDst, pSrc, pSrc->Background);
}

/// The flags that place pixels where the source has its own.
R_UINT memoryLike(const BITMAPHANDLE* pSrc) noexcept
{
    // Where the new depth cannot be compressed, what is left asks for conventional memory.
    const R_UINT flags = pSrc->Flags;
    if ((flags & FLAG_COMPRESSED) != 0) return MEM_COMPRESSED | MEM_CONVENTIONAL;
    if ((flags & FLAG_TILED) != 0) return MEM_TILED;
    if ((flags & FLAG_SUPER_COMPRESSED) != 0) return MEM_SUPER_COMPRESSED | MEM_CONVENTIONAL;
    if ((flags & FLAG_CONVENTIONAL_MEMORY) == 0 && (flags & FLAG_DISK_MEMORY) != 0) return MEM_DISK;
    return MEM_CONVENTIONAL;
}

/// The steps that can fail; those before the copy's beginning leave callbacks alone.
Status fillDuplicate(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uFlags) noexcept
{
    copyDescription(pDst, pSrc);
    R_TRY(takePalette(pDst, pSrc, uFlags));
    takeColours(pDst, pSrc);
    constexpr R_UINT copies = DUP_REPLACES_SOURCE | DUP_NEW_BITMAP;
    const R_UINT memory = memoryLike(pSrc);
    if ((uFlags & copies) != 0) {
        ALLOCATIONINFO info{};
        info.uMemory = memory;
        R_TRY(R_IntBeginCopyBitmap(pDst, pSrc, uFlags & copies, &info));
    }
    if ((uFlags & DUP_ALLOCATE) == 0) return SUCCESS;
    const Status placed = R_AllocateBitmap(pDst, memory);
    if (!placed.ok() && (uFlags & copies) != 0) return R_IntEndCopyBitmap(pDst, pSrc, placed);
    return placed;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_DupBitmapNewDim(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, R_INT nWidth, R_INT nHeight,
                        R_INT nBitsPerPixel, R_UINT uFlags) noexcept
{
    if (pDst == nullptr) return ERROR_INV_BITMAP;
    R_TRY(checkAllocated(pSrc, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pSrc));
    if (pDst == pSrc) return ERROR_INV_PARAMETER; // the source would be gone before it was read
    R_TRY(R_InitBitmapWithCallbacks(pDst, uStructSize, nWidth, nHeight, nBitsPerPixel, nullptr));
    if (!isDepth(pDst->BitsPerPixel)) return ERROR_INV_BITS_PER_PIXEL; // an empty record has none
    const Status filled = fillDuplicate(pDst, pSrc, uFlags);
    if (!filled.ok()) R_FreeDuplicateBitmap(pDst, pSrc);
    return filled;
}

void R_FreeDuplicateBitmap(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) noexcept
{
    if (pDst == nullptr || !isStructSize(pDst->uStructSize)) return;
    if (pSrc != nullptr && pDst->pPalette == pSrc->pPalette) pDst->pPalette = nullptr;
    R_FreeBitmap(pDst);
}

R_INT R_CopyGrayParams(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) noexcept
{
    if (pDst == nullptr || pSrc == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pDst));
    R_TRY(checkStructSize(pSrc));
    if (pDst == pSrc) return SUCCESS;
    copySampleRange(pDst, pSrc);
    copyTables(pDst, pSrc);
    mergeFlags(pDst, pSrc->Flags, FLAG_SIGNED | kTableFlags);
    return SUCCESS;
}
