// Is a bitmap gray; bitmaps made gray; look-up tables applied.

#include "Internal/R_Int.h"
#include "Kernel/Colour/ConvertBitmap.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/BitmapFormat.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Replacement.h"
#include "Kernel/Core/RowCursor.h"
#include "R_Colour.h"

#include <algorithm>

namespace rv {

namespace {

// --- Is it gray

/// Whether all samples of each pixel but its alpha are the same. Differences are gathered, and looked at once a row.
template <size_t SampleBytes, size_t PixelBytes> bool isGrayRow(const uint8_t* row, size_t width) noexcept
{
    unsigned differing = 0;
    for (size_t i = 0; i < width; ++i, row += PixelBytes)
        for (size_t byte = 0; byte < SampleBytes; ++byte)
            differing |=
                (unsigned{row[byte]} ^ row[byte + SampleBytes]) | (unsigned{row[byte]} ^ row[byte + 2 * SampleBytes]);
    return differing == 0;
}

using IsGrayRow = bool (*)(const uint8_t* row, size_t width) noexcept;

IsGrayRow grayRowTest(R_INT bits) noexcept
{
    switch (bits) {
    case 24: return isGrayRow<1, 3>;
    case 32: return isGrayRow<1, 4>;
    case 48: return isGrayRow<2, 6>;
    default: return isGrayRow<2, 8>;
    }
}

Status lookAtRows(BITMAPHANDLE* pBitmap, bool* gray) noexcept
{
    *gray = true;
    RowCursor rows(pBitmap, RowMode::read);
    R_TRY(rows.status());
    const IsGrayRow test = grayRowTest(pBitmap->BitsPerPixel);
    for (R_INT row = 0; row < pBitmap->Height && *gray; ++row) {
        R_TRY(rows.open(row));
        *gray = test(rows.data(), static_cast<size_t>(pBitmap->Width));
    }
    return SUCCESS;
}

// --- Made gray

/// Replaces a bitmap by its rows as `from` reads them, in a format that prepare() gives the new record.
template <class Prepare>
Status replaceBy(BITMAPHANDLE* pBitmap, const PixelFormat& from, R_INT bits, Prepare prepare) noexcept
{
    Replacement made(nullptr, pBitmap, pBitmap->uStructSize, {pBitmap->Width, pBitmap->Height, bits});
    R_TRY(made.status());
    PixelFormat to;
    Status status = prepare(made.bitmap());
    if (status.ok()) status = formatOf(made.bitmap(), &to);
    if (status.ok()) status = convertColours(made.bitmap(), to, pBitmap, from);
    if (!status.ok()) return made.fail(status);
    RowConverter rows(from, to);
    status = rows.status();
    if (status.ok()) status = convertBitmap(made.bitmap(), pBitmap, rows);
    return status.ok() ? made.commit() : made.fail(status);
}

Status checkChangeable(const BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pBitmap));
    return checkWalkable(pBitmap);
}

// --- Tables

template <class Entry> bool hasColour(const Entry* entries, R_UINT count) noexcept
{
    return std::any_of(entries, entries + count,
                       [](const Entry& e) noexcept { return e.rgbRed != e.rgbGreen || e.rgbRed != e.rgbBlue; });
}

/// The depth in which nothing of the tables is lost. Entries of the second count where the first has none.
R_INT bitsOfTables(const PixelFormat& format) noexcept
{
    const R_UINT most = 1u << format.bits; // what lies behind has no sample
    const R_UINT narrow = std::min(format.tableLength, most), all = std::min(format.tableLength16, most);
    const bool wide = all > narrow;
    const bool colour = hasColour(format.table, narrow) || (wide && hasColour(format.table16 + narrow, all - narrow));
    return wide ? (colour ? 48 : 16) : (colour ? 24 : 8);
}

/// Gray samples of 8 bits have a palette to be shown by, and tables all the same.
Status formatWithTables(const BITMAPHANDLE* pBitmap, PixelFormat* format) noexcept
{
    R_TRY(formatOf(pBitmap, format));
    if (!format->gray || format->bits < 8) return ERROR_INV_PARAMETER;
    if (format->bits == 8) R_TRY(takeTables(pBitmap, format));
    if (format->table == nullptr) format->tableLength = 0;
    if (format->table16 == nullptr) format->tableLength16 = 0;
    return format->tableLength != 0 || format->tableLength16 != 0 ? SUCCESS : ERROR_INV_PARAMETER;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_IntIsGrayScaleBitmap(BITMAPHANDLE* pBitmap) noexcept
{
    const R_INT bits = pBitmap->BitsPerPixel;
    if (bits <= 8) {
        const R_UINT colours = std::min(readableColors(pBitmap), 1u << bits);
        return colours != 0 ? R_IsGrayScalePalette(pBitmap->pPalette, colours) : 0;
    }
    if (bits <= 16) return bits == 12 || pBitmap->Order == ORDER_GRAY ? 1 : 0;
    BitmapAccess access(pBitmap);
    R_TRY(access.status());
    bool gray = false;
    R_TRY(access.finish(lookAtRows(pBitmap, &gray)));
    return gray ? 1 : 0;
}

R_INT R_IsGrayScaleBitmap(BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pBitmap));
    R_TRY(checkWalkable(pBitmap));
    return R_IntIsGrayScaleBitmap(pBitmap);
}

R_INT R_GrayScaleBitmap(BITMAPHANDLE* pBitmap, R_INT nBitsPerPixel) noexcept
{
    R_TRY(checkChangeable(pBitmap));
    if (nBitsPerPixel != 8 && nBitsPerPixel != 12 && nBitsPerPixel != 16) return ERROR_INV_BITS_PER_PIXEL;
    PixelFormat from;
    R_TRY(formatOf(pBitmap, &from));
    return replaceBy(pBitmap, from, nBitsPerPixel, makeGray);
}

R_INT R_ApplyBitmapLUT(BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkChangeable(pBitmap));
    PixelFormat from;
    R_TRY(formatWithTables(pBitmap, &from));
    const R_INT bits = bitsOfTables(from);
    if (bits <= 16) return replaceBy(pBitmap, from, bits, makeGray);
    return replaceBy(pBitmap, from, bits, [](BITMAPHANDLE* made) noexcept -> Status {
        dropGrayParams(made);
        made->Order = ORDER_BGR;
        return SUCCESS;
    });
}
