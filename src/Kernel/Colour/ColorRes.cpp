// Bitmaps of another depth, order or palette.

#include "Kernel/Base/System.h"
#include "Kernel/Colour/ConvertBitmap.h"
#include "Kernel/Colour/Dither.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/BitmapFormat.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Palette.h"
#include "Kernel/Core/Progress.h"
#include "Kernel/Core/Replacement.h"
#include "Kernel/Core/RowCursor.h"
#include "R_Colour.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace rv {

namespace {

/// Of the web-safe palette: a cube. Black follows.
constexpr R_UINT kWebSafeColours = 6 * 6 * 6;

constexpr R_UINT kPalettes =
    COLORRES_FIXED | COLORRES_USER | COLORRES_WEB_SAFE | COLORRES_GRAY | COLORRES_OPTIMIZED | COLORRES_SOURCE;
constexpr R_UINT kOrders = COLORRES_ORDER_BGR | COLORRES_ORDER_GRAY;

/// What is wanted, in the caller's words.
struct Wanted {
    R_INT bits;
    R_UINT flags;
    const RGBQUAD* palette;
    R_UINT colours;

    bool has(R_UINT flag) const noexcept { return (flags & flag) != 0; }
    R_UINT mostColours() const noexcept
    {
        const R_UINT all = 1u << bits;
        return colours == 0 ? all : std::min(colours, all);
    }
    /// Gray samples, and no choice of a palette.
    bool gray() const noexcept { return bits == 12 || has(COLORRES_ORDER_GRAY); }
    bool dithered() const noexcept { return bits <= 8 && !gray() && has(COLORRES_DITHER); }
};

Status checkWanted(const Wanted& wanted, const BITMAPHANDLE* pSrc) noexcept
{
    if ((wanted.flags & ~(kPalettes | kOrders | COLORRES_DITHER)) != 0) return ERROR_INV_PARAMETER;
    if (std::popcount(wanted.flags & kPalettes) > 1 || std::popcount(wanted.flags & kOrders) > 1)
        return ERROR_INV_PARAMETER;
    const R_INT bits = wanted.bits;
    const bool indices = bits <= 8;
    if (wanted.has(kPalettes) && !indices) return ERROR_INV_PARAMETER;
    if (wanted.has(COLORRES_ORDER_BGR) && (indices || bits == 12)) return ERROR_INV_PARAMETER;
    if (wanted.has(COLORRES_ORDER_GRAY) &&
        ((bits != 8 && bits != 12 && bits != 16) || wanted.has(kPalettes & ~COLORRES_GRAY)))
        return ERROR_INV_PARAMETER;
    if (wanted.has(COLORRES_WEB_SAFE) && bits != 8) return ERROR_INV_PARAMETER;
    if (wanted.has(COLORRES_SOURCE) && (pSrc->BitsPerPixel > 8 || readableColors(pSrc) == 0))
        return ERROR_INV_PARAMETER;
    const R_UINT most = indices ? 1u << bits : 0;
    if (wanted.has(COLORRES_USER) && wanted.palette != nullptr && (wanted.colours == 0 || wanted.colours > most))
        return ERROR_INV_PARAMETER;
    return SUCCESS;
}

/// The palette of the new bitmap, and the match table that has been made with it, if any.
class NewPalette {
public:
    NewPalette() noexcept = default;
    ~NewPalette() { (void)R_FreeUserMatchTable(ownTable_); }
    NewPalette(const NewPalette&) = delete;
    NewPalette& operator=(const NewPalette&) = delete;

    Status make(const Wanted& wanted, BITMAPHANDLE* pSrc) noexcept
    {
        if (wanted.has(COLORRES_OPTIMIZED)) return optimize(wanted, pSrc);
        if (wanted.has(COLORRES_USER) && wanted.palette != nullptr) {
            copy(wanted.palette, wanted.colours);
            table_ = threadSettings().userMatchTable;
        } else if (wanted.has(COLORRES_WEB_SAFE)) {
            copy(R_IntGetNetscapePalette(), 256);
        } else if (wanted.has(COLORRES_GRAY)) {
            makeRamp(wanted.mostColours());
        } else if (wanted.has(COLORRES_SOURCE)) {
            copy(pSrc->pPalette, std::min(readableColors(pSrc), wanted.mostColours()));
        } else {
            copy(R_IntGetFixedPalette(wanted.bits), 1u << wanted.bits);
        }
        if (!wanted.dithered() || table_ != nullptr || !beginsFixedPalette()) return SUCCESS;
        table_ = ownTable_ = R_CreateUserMatchTable(entries_, 0);
        return table_ != nullptr ? SUCCESS : ERROR_FAILURE;
    }
    const RGBQUAD* entries() const noexcept { return entries_; }
    R_UINT count() const noexcept { return count_; }
    R_UINT* table() const noexcept { return table_; }

private:
    void copy(const RGBQUAD* entries, R_UINT count) noexcept
    {
        count_ = count;
        std::copy_n(entries, count, entries_);
    }
    /// Whether the entries are some of a palette's whose rule, without a match table, would choose others too.
    bool beginsFixedPalette() const noexcept
    {
        const R_INT bits = bitsForColours(count_);
        if (count_ < 1u << bits && beginWith(R_IntGetFixedPalette(bits))) return true;
        return bits == 8 && count_ < kWebSafeColours && beginWith(R_IntGetNetscapePalette());
    }
    bool beginWith(const RGBQUAD* palette) const noexcept
    {
        return std::memcmp(entries_, palette, count_ * sizeof(RGBQUAD)) == 0;
    }
    void makeRamp(R_UINT count) noexcept
    {
        count_ = count;
        for (R_UINT i = 0; i < count; ++i) {
            const auto level = static_cast<uint8_t>(count > 1 ? i * 255 / (count - 1) : 0);
            entries_[i] = {level, level, level, 0};
        }
    }
    Status optimize(const Wanted& wanted, BITMAPHANDLE* pSrc) noexcept
    {
        count_ = wanted.mostColours();
        R_TRY(R_CreateBitmapOptPal(pSrc, entries_, &count_, wanted.dithered() ? &ownTable_ : nullptr, 0));
        table_ = ownTable_;
        count_ = std::max(count_, 1u); // a picture without pixels has no colours
        return SUCCESS;
    }

    RGBQUAD entries_[kMaxColours] = {};
    R_UINT count_ = 0;
    R_UINT* table_ = nullptr;
    R_UINT* ownTable_ = nullptr;
};

/// Makes the new record what is wanted.
Status describe(BITMAPHANDLE* pDst, const Wanted& wanted, const NewPalette& palette) noexcept
{
    if (wanted.gray()) return makeGray(pDst);
    dropGrayParams(pDst);
    pDst->Order = wanted.has(COLORRES_ORDER_BGR) ? ORDER_BGR : ORDER_RGB;
    if (wanted.bits <= 8) R_TRY(copyPaletteEntries(pDst, palette.entries(), palette.count()));
    if (wanted.bits != 32 && wanted.bits != 64) pDst->Flags &= ~(FLAG_ALPHA_BLEND | FLAG_PREMULTIPLY_ALPHA);
    return SUCCESS;
}

// --- Dithered

struct FreeDithering {
    Dithering* dithering = nullptr;
    ~FreeDithering() { Dithering::free(dithering); }
};

/// So many rows are dithered between two percents.
constexpr R_INT kStripe = 4 * Dithering::kRowsAtOnce;

Status ditherStripes(BITMAPHANDLE* pDst, RowCursor& to, BITMAPHANDLE* pSrc, RowCursor& from,
                     Dithering& dithering) noexcept
{
    const R_INT height = pSrc->Height;
    Progress progress = Progress::ofThread(height);
    R_TRY(progress.begin());
    for (R_INT row = 0; row < height; row += kStripe) {
        const R_INT count = std::min(kStripe, height - row);
        dithering.rows(from.row(row), static_cast<ptrdiff_t>(pSrc->BytesPerLine), to.row(row),
                       static_cast<ptrdiff_t>(pDst->BytesPerLine), count);
        for (R_INT step = 0; step < count; ++step) R_TRY(progress.step());
    }
    return SUCCESS;
}

Status ditherRows(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, Dithering& dithering) noexcept
{
    RowCursor from(pSrc, RowMode::read), to(pDst, RowMode::write);
    R_TRY(from.status());
    R_TRY(to.status());
    if (from.direct() && to.direct()) return ditherStripes(pDst, to, pSrc, from, dithering);
    const auto used = static_cast<size_t>(packedBytes(pDst->Width, pDst->BitsPerPixel));
    Progress progress = Progress::ofThread(pSrc->Height);
    R_TRY(progress.begin());
    for (R_INT row = 0; row < pSrc->Height; ++row) {
        R_TRY(from.open(row));
        R_TRY(to.open(row));
        dithering.row(from.data(), to.data());
        std::memset(to.data() + used, 0, pDst->BytesPerLine - used);
        R_TRY(to.commit());
        R_TRY(progress.step());
    }
    return SUCCESS;
}

Status ditherBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const NewPalette& palette) noexcept
{
    FreeDithering made;
    const DitherRequest request{palette.entries(), palette.count(), pDst->BitsPerPixel, palette.table()};
    R_TRY(Dithering::make(&made.dithering, pSrc, request));
    BitmapAccess source(pSrc);
    R_TRY(source.status());
    BitmapAccess target(pDst);
    R_TRY(target.status());
    return source.finish(target.finish(ditherRows(pDst, pSrc, *made.dithering)));
}

// --- All together

Status fill(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Wanted& wanted, const NewPalette& palette) noexcept
{
    R_TRY(describe(pDst, wanted, palette));
    PixelFormat from, to;
    R_TRY(formatOf(pSrc, &from));
    R_TRY(formatOf(pDst, &to));
    R_TRY(convertColours(pDst, to, pSrc, from));
    if (wanted.dithered()) return ditherBitmap(pDst, pSrc, palette);
    RowConverter rows(from, to);
    R_TRY(rows.status());
    return convertBitmap(pDst, pSrc, rows);
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_ColorResBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, R_INT nBitsPerPixel, R_UINT uFlags,
                       const RGBQUAD* pPalette, R_UINT uColors) noexcept
{
    R_TRY(checkAllocated(pSrc, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pSrc));
    const bool inPlace = pDst == nullptr || pDst == pSrc;
    if (!inPlace && !isStructSize(uStructSize)) return ERROR_INV_STRUCT_SIZE;
    if (!isDepth(nBitsPerPixel)) return ERROR_INV_BITS_PER_PIXEL;
    const Wanted wanted{nBitsPerPixel, uFlags, pPalette, uColors};
    R_TRY(checkWanted(wanted, pSrc));
    R_TRY(checkWalkable(pSrc));
    PixelFormat readable;
    R_TRY(formatOf(pSrc, &readable));
    NewPalette palette;
    if (nBitsPerPixel <= 8) R_TRY(palette.make(wanted, pSrc));
    Replacement made(pDst, pSrc, inPlace ? pSrc->uStructSize : uStructSize, {pSrc->Width, pSrc->Height, nBitsPerPixel});
    R_TRY(made.status());
    const Status filled = fill(made.bitmap(), pSrc, wanted, palette);
    return filled.ok() ? made.commit() : made.fail(filled);
}
