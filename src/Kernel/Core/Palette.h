/// A bitmap's palette: who owns it, and the ways a bitmap gets one.
///
/// The palette of a bitmap is a movable block of its own. A call that replaces it frees the old block before it takes
/// the new one, so that a failure leaves a bitmap without palette, never one with a palette nobody asked for.
#pragma once

#include "Kernel/Base/Status.h"
#include "Kernel/Core/MovableBlock.h"
#include "R_Colour.h"

namespace rv {

/// A palette has at most so many entries, whatever the record says.
inline constexpr R_UINT kMaxColours = 256;

/// Frees the bitmap's palette; pPalette becomes null and nColors stays.
void freePalette(BITMAPHANDLE* pBitmap) noexcept;

/// Frees the old palette and makes the bitmap the owner of `palette`, which holds `colours` entries.
void adoptPalette(BITMAPHANDLE* pBitmap, MovableBlock<RGBQUAD>&& palette, R_UINT colours) noexcept;

// The calls below replace the palette and set nColors. nColors is set even when they fail with ERROR_FAILURE, for want
// of memory; pPalette is null then.

/// A copy of `colours` entries, which may be the bitmap's own. A count outside 1 to 256 is ERROR_FAILURE too.
Status copyPaletteEntries(BITMAPHANDLE* pBitmap, const RGBQUAD* entries, R_UINT colours) noexcept;

/// The 2^bits entries of a depth's fixed palette. ERROR_INV_BITS_PER_PIXEL, and nothing done, outside 1 to 8.
Status giveFixedPalette(BITMAPHANDLE* pBitmap, R_INT bits) noexcept;

/// The gray ramp of the bitmap's own depth. ERROR_INV_BITS_PER_PIXEL, and nothing done, outside 1 to 8.
Status giveGrayPalette(BITMAPHANDLE* pBitmap) noexcept;

} // namespace rv
