// Palettes made for pictures: their pixels are counted, and the counts divided.

#include "Kernel/Colour/OptPal.h"

#include "Kernel/Colour/ColourBoxes.h"
#include "Kernel/Colour/ColourHistogram.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/BitmapFormat.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Pixels/FormatReader.h"

#include <algorithm>

namespace rv {

/// What all this works in, as one block.
struct OptimizedPalette::Work {
    /// Pixels that are converted at a time: whole bytes at every depth.
    static constexpr size_t kPiece = 512;

    ColourHistogram histogram;
    ColourBoxes boxes;
    RGBQUAD piece[kPiece];
    uint16_t colourOfIndex[256];

    void countRow(const FormatReader& reader, const PixelFormat& format, const uint8_t* row, size_t width) noexcept;
    void prepare(const FormatReader& reader) noexcept;
};

OptimizedPalette::OptimizedPalette() noexcept : memory_(sizeof(Work))
{
    if (memory_) work().histogram.clear();
}

OptimizedPalette::Work& OptimizedPalette::work() const noexcept { return *reinterpret_cast<Work*>(memory_.data()); }

void OptimizedPalette::Work::prepare(const FormatReader& reader) noexcept
{
    std::transform(reader.colours(), reader.colours() + 256, colourOfIndex, [](const RGBQUAD& colour) noexcept {
        return static_cast<uint16_t>(colour15(colour.rgbRed, colour.rgbGreen, colour.rgbBlue));
    });
}

/// The common depths are counted as they are, the others as the colours that they are read as.
void OptimizedPalette::Work::countRow(const FormatReader& reader, const PixelFormat& format, const uint8_t* row,
                                      size_t width) noexcept
{
    switch (format.bits) {
    case 8: return histogram.addIndices(row, width, colourOfIndex);
    case 24: return format.redFirst ? histogram.addRgb24(row, width) : histogram.addBgr24(row, width);
    case 32: return format.redFirst ? histogram.addRgb32(row, width) : histogram.addBgr32(row, width);
    default: break;
    }
    for (size_t done = 0; done < width; done += kPiece) {
        const size_t count = std::min(kPiece, width - done);
        reader.read(piece, row + done / 8 * static_cast<size_t>(format.bits), count);
        histogram.addBgr32(reinterpret_cast<const uint8_t*>(piece), count);
    }
}

Status OptimizedPalette::add(BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pBitmap));
    R_TRY(checkWalkable(pBitmap));
    PixelFormat format;
    R_TRY(formatOf(pBitmap, &format));
    const FormatReader reader(format);
    if (format.bits == 8) work().prepare(reader);
    BitmapAccess access(pBitmap);
    R_TRY(access.status());
    RowCursor cursor(pBitmap, RowMode::read);
    R_TRY(cursor.status());
    for (R_INT row = 0; row < pBitmap->Height; ++row) {
        R_TRY(cursor.open(row));
        work().countRow(reader, format, cursor.data(), static_cast<size_t>(pBitmap->Width));
    }
    return access.finish(SUCCESS);
}

Status OptimizedPalette::write(RGBQUAD* pPalette, R_UINT* puColors, R_UINT** ppMatchTable, R_UINT uFlags) noexcept
{
    R_UINT* const table = ppMatchTable != nullptr ? newMatchTable() : nullptr;
    if (ppMatchTable != nullptr && table == nullptr) return ERROR_FAILURE;
    const R_UINT wanted = *puColors;
    ColourBoxes& boxes = work().boxes;
    boxes.divide(work().histogram.counts(), wanted,
                 (uFlags & OPTPAL_SMALL_THRESHOLD) != 0 ? ColourBoxes::kSmallDominantFrom : ColourBoxes::kDominantFrom);
    boxes.writePalette(pPalette);
    std::fill(pPalette + boxes.count(), pPalette + wanted, RGBQUAD{});
    *puColors = boxes.count();
    if (table != nullptr) {
        boxes.writeMatchTable(table);
        *ppMatchTable = table;
    }
    return SUCCESS;
}

Status checkOptPalOutputs(const RGBQUAD* pPalette, const R_UINT* puColors, R_UINT uFlags) noexcept
{
    if (pPalette == nullptr || puColors == nullptr || (uFlags & ~OPTPAL_SMALL_THRESHOLD) != 0)
        return ERROR_INV_PARAMETER;
    return *puColors >= 1 && *puColors <= kMaxColours ? SUCCESS : ERROR_INV_PARAMETER;
}

} // namespace rv

using namespace rv;

R_INT R_CreateBitmapOptPal(BITMAPHANDLE* pBitmap, RGBQUAD* pPalette, R_UINT* puColors, R_UINT** ppMatchTable,
                           R_UINT uFlags) noexcept
{
    OptimizedPalette palette;
    R_TRY(palette.status()); // a want of memory is told first, whatever the bitmap is
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pBitmap));
    R_TRY(checkOptPalOutputs(pPalette, puColors, uFlags));
    R_TRY(palette.add(pBitmap));
    return palette.write(pPalette, puColors, ppMatchTable, uFlags);
}
