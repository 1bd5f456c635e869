// Platform palette objects, and their traffic with bitmaps.

#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Palette.h"
#include "Platform/Platform.h"

#include <algorithm>

namespace rv {

namespace {

/// A platform palette's entries on the stack; there are never more of them than of a bitmap's.
using ObjectEntries = PALETTEENTRY[kMaxColours];

void toObject(PALETTEENTRY* out, const RGBQUAD* in, R_UINT count) noexcept
{
    std::transform(in, in + count, out, [](const RGBQUAD& entry) -> PALETTEENTRY {
        return {entry.rgbRed, entry.rgbGreen, entry.rgbBlue, entry.rgbReserved};
    });
}

void fromObject(RGBQUAD* out, const PALETTEENTRY* in, R_UINT count) noexcept
{
    std::transform(in, in + count, out, [](const PALETTEENTRY& entry) -> RGBQUAD {
        return {entry.peBlue, entry.peGreen, entry.peRed, entry.peFlags};
    });
}

/// Reads entries; an answer that cannot be is taken as none.
R_UINT readObject(HPALETTE hPalette, R_UINT first, R_UINT count, PALETTEENTRY* entries) noexcept
{
    const R_UINT read = platform().paletteEntries(hPalette, first, std::min(count, kMaxColours), entries);
    return read <= kMaxColours ? std::min(read, count) : 0;
}

} // namespace

} // namespace rv

using namespace rv;

HPALETTE R_CreatePalette(const RGBQUAD* pPalette, R_UINT uCount) noexcept
{
    if (pPalette == nullptr || uCount > kMaxColours) return nullptr;
    ObjectEntries entries;
    toObject(entries, pPalette, uCount);
    return platform().createPalette(entries, uCount);
}

RGBQUAD* R_CreateNewPalette(const RGBQUAD* pPalette, R_UINT uCount) noexcept
{
    if (pPalette == nullptr || uCount == 0 || uCount > kMaxColours) return nullptr;
    auto* const copy = static_cast<RGBQUAD*>(platform().allocate(uCount * sizeof(RGBQUAD)));
    if (copy != nullptr) std::copy_n(pPalette, uCount, copy);
    return copy;
}

R_UINT R_GetPaletteSize(HPALETTE hPalette) noexcept
{
    return hPalette != nullptr ? platform().paletteSize(hPalette) : 0;
}

R_UINT R_GetPaletteEntries(HPALETTE hPalette, R_INT nStart, R_UINT uCount, RGBQUAD* pPalette) noexcept
{
    if (hPalette == nullptr || pPalette == nullptr || nStart < 0) return 0;
    ObjectEntries entries{};
    const R_UINT read = readObject(hPalette, static_cast<R_UINT>(nStart), uCount, entries);
    fromObject(pPalette, entries, read);
    return read;
}

R_UINT R_SetPaletteEntries(HPALETTE hPalette, R_INT nStart, R_UINT uCount, const RGBQUAD* pPalette) noexcept
{
    if (hPalette == nullptr || pPalette == nullptr || nStart < 0) return 0;
    const R_UINT count = std::min(uCount, kMaxColours);
    ObjectEntries entries;
    toObject(entries, pPalette, count);
    return platform().setPaletteEntries(hPalette, static_cast<R_UINT>(nStart), count, entries);
}

HPALETTE R_DupPalette(HPALETTE hPalette) noexcept
{
    const R_UINT size = R_GetPaletteSize(hPalette);
    if (size == 0 || size > kMaxColours) return nullptr;
    ObjectEntries entries{};
    const R_UINT read = readObject(hPalette, 0, size, entries);
    return read != 0 ? platform().createPalette(entries, read) : nullptr;
}

HPALETTE R_DupBitmapPalette(BITMAPHANDLE* pBitmap) noexcept
{
    if (pBitmap == nullptr || !checkStructSize(pBitmap).ok()) return nullptr;
    return R_CreatePalette(pBitmap->pPalette, pBitmap->nColors);
}

R_INT R_SetBitmapPalette(BITMAPHANDLE* pBitmap, HPALETTE hPalette) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_BITMAP;
    R_TRY(checkStructSize(pBitmap));
    const R_UINT size = R_GetPaletteSize(hPalette);
    if (size < 2 || size > kMaxColours) return ERROR_INV_PARAMETER;
    freePalette(pBitmap);
    auto palette = MovableBlock<RGBQUAD>::zeroed(size);
    if (!palette) return ERROR_FAILURE; // the number of colours stays
    R_GetPaletteEntries(hPalette, 0, size, palette.data());
    adoptPalette(pBitmap, std::move(palette), size);
    return SUCCESS;
}

HPALETTE R_CreateSystemPalette() noexcept
{
    ObjectEntries entries;
    const R_UINT count = platform().systemPalette(entries, kMaxColours);
    return count != 0 && count <= kMaxColours ? platform().createPalette(entries, count) : nullptr;
}

void R_DeletePalette(HPALETTE hPalette) noexcept
{
    if (hPalette != nullptr) platform().deletePalette(hPalette);
}
