#include "Kernel/Core/Checks.h"

namespace rv {

namespace {

/// Whether the size fields say how many bytes the rows have. Compressed placements keep their own size there, and a
/// short record's field may be capped.
bool sizeTellsRows(const BITMAPHANDLE* p) noexcept
{
    if ((p->Flags & (FLAG_COMPRESSED | FLAG_SUPER_COMPRESSED)) != 0) return false;
    return hasSize64(p) || p->Size != kShortRecordMaxSize;
}

} // namespace

bool holdsRows(const BITMAPHANDLE* p) noexcept
{
    if (!hasSize64(p) && p->Size > kShortRecordMaxSize) return false; // no short record was ever given that many
    const R_UINT64 rowBytes = p->BytesPerLine;
    return p->Height >= 0 && (!sizeTellsRows(p) || rowBytes * static_cast<R_UINT64>(p->Height) <= pixelBytes(p));
}

Status checkWalkable(const BITMAPHANDLE* p) noexcept
{
    const R_INT bits = p->BitsPerPixel;
    if (p->Width < 0 || p->Height < 0) return ERROR_INV_SIZE;
    if (!isDepth(bits)) return ERROR_INV_BITS_PER_PIXEL;
    const R_UINT64 rowBytes = p->BytesPerLine;
    if (packedBytes(p->Width, bits) > rowBytes) return ERROR_INV_SIZE;
    return holdsRows(p) ? SUCCESS : ERROR_INV_SIZE;
}

} // namespace rv
