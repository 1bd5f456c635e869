// Bitmaps of another size.

#include "Internal/R_Int.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/BitmapFormat.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Progress.h"
#include "Kernel/Core/Replacement.h"
#include "Kernel/Geometry/Region.h"
#include "Kernel/Geometry/ResizedRows.h"
#include "Kernel/Pixels/FormatReader.h"
#include "Kernel/Pixels/FormatWriter.h"
#include "Kernel/Pixels/Simd/Select.h"
#include "R_Colour.h"
#include "R_Geometry.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

// --- All rows of a bitmap

/// From here on a picture does not go through the caches.
constexpr R_UINT64 kPastCaches = R_UINT64{8} << 20;

/// Writes rows that have been made in memory that stays in the cache, however often each is written.
class RowWriter {
public:
    explicit RowWriter(BITMAPHANDLE* pDst) noexcept
        : rows_(pDst, RowMode::write), rowBytes_(pDst->BytesPerLine),
          used_(static_cast<size_t>(packedBytes(pDst->Width, pDst->BitsPerPixel))),
          past_(rows_.direct() && rowBytes_ >= 2 * simd::kRepeatAhead &&
                R_UINT64{rowBytes_} * static_cast<R_UINT64>(pDst->Height) >= kPastCaches),
          made_(R_UINT64{rowBytes_} + simd::kRepeatAhead)
    {
    }
    Status status() const noexcept
    {
        R_TRY(rows_.status());
        return made_ ? SUCCESS : ERROR_FAILURE;
    }
    uint8_t* made() const noexcept { return made_.data(); }
    /// After a row has been made.
    void finish() noexcept
    {
        std::memset(made() + used_, 0, rowBytes_ - used_);
        std::memcpy(made() + rowBytes_, made(), past_ ? simd::kRepeatAhead : 0);
    }
    Status write(R_INT row) noexcept
    {
        R_TRY(rows_.open(row));
        if (past_)
            rowKernels().repeat(rows_.data(), rowBytes_, made(), rowBytes_, true);
        else
            std::memcpy(rows_.data(), made(), rowBytes_);
        return rows_.commit();
    }

private:
    RowCursor rows_;
    size_t rowBytes_;
    size_t used_;
    bool past_;
    RowBuffer made_;
};

Status fillRows(BITMAPHANDLE* pDst, ResizedRows& rows, bool upsideDown) noexcept
{
    R_TRY(rows.status());
    RowWriter writer(pDst);
    R_TRY(writer.status());
    const R_INT height = pDst->Height;
    Progress progress = Progress::ofThread(height);
    R_TRY(progress.begin());
    for (R_INT row = 0; row < height; ++row) {
        if (!rows.repeats(row)) {
            R_TRY(rows.row(row, writer.made()));
            writer.finish();
        }
        R_TRY(writer.write(upsideDown ? height - 1 - row : row));
        R_TRY(progress.step());
    }
    return SUCCESS;
}

bool hasPixels(const BITMAPHANDLE* pBitmap) noexcept { return pBitmap->Width > 0 && pBitmap->Height > 0; }

Status checkSizable(const BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkWalkable(pBitmap));
    return hasPixels(pBitmap) ? SUCCESS : ERROR_INV_SIZE;
}

SizeJob wholeOf(const BITMAPHANDLE* pBitmap, R_INT width, R_INT height) noexcept
{
    return {{0, 0, pBitmap->Width, pBitmap->Height}, width, height};
}

/// The image of one bitmap into another, which is what the plan asks for.
Status resizeInto(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const SizePlan& plan) noexcept
{
    R_TRY(checkSizable(pDst)); // rows as the record counts them, which very wide ones do not fit
    PixelFormat format;
    R_TRY(resizedFormat(pDst, pSrc, &format));
    BitmapAccess source(pSrc);
    R_TRY(source.status());
    BitmapAccess target(pDst);
    R_TRY(target.status());
    Status status = SUCCESS;
    {
        ResizedRows rows(pSrc, wholeOf(pSrc, pDst->Width, pDst->Height), plan, format);
        status = fillRows(pDst, rows, pSrc->ViewPerspective != pDst->ViewPerspective);
    }
    return source.finish(target.finish(status));
}

Status scaleRegion(BITMAPHANDLE* pBitmap, R_INT width, R_INT height) noexcept
{
    if (pBitmap->pRgnInfo == nullptr) return SUCCESS;
    const auto hook = displayHooks().ScaleRegion;
    return hook != nullptr ? hook(pBitmap, width, height) : SUCCESS;
}

// --- In place

Status replaceBySize(BITMAPHANDLE* pBitmap, R_INT width, R_INT height, R_UINT flags) noexcept
{
    const SizePlan plan = planSize(pBitmap, wholeOf(pBitmap, width, height), flags);
    Replacement made(nullptr, pBitmap, pBitmap->uStructSize, {width, height, plan.bits});
    R_TRY(made.status());
    Status status = describeResized(made.bitmap(), pBitmap, plan);
    if (status.ok()) status = resizeInto(made.bitmap(), pBitmap, plan);
    if (status.ok()) status = scaleRegion(pBitmap, width, height);
    return status.ok() ? made.commit() : made.fail(status);
}

// --- Into a bitmap that is there

/// Whether stored pixels lie alike, but for the order of the rows.
bool liesAlike(const BITMAPHANDLE* pOne, const BITMAPHANDLE* pOther) noexcept
{
    const auto rowsAreRows = [](R_INT perspective) { return perspective == TOP_LEFT || perspective == BOTTOM_LEFT; };
    const R_INT one = pOne->ViewPerspective, other = pOther->ViewPerspective;
    return one == other || (rowsAreRows(one) && rowsAreRows(other));
}

/// A source as the destination needs it: itself, or a copy that lies as that does and has its depth.
class MatchingSource {
public:
    MatchingSource(BITMAPHANDLE* pSrc, const BITMAPHANDLE* pDst) noexcept : bitmap_(pSrc), status_(match(pDst)) {}
    ~MatchingSource()
    {
        R_FreeBitmap(&turned_);
        R_FreeBitmap(&converted_);
    }
    MatchingSource(const MatchingSource&) = delete;
    MatchingSource& operator=(const MatchingSource&) = delete;

    Status status() const noexcept { return status_; }
    BITMAPHANDLE* bitmap() const noexcept { return bitmap_; }

private:
    Status match(const BITMAPHANDLE* pDst) noexcept
    {
        if (!liesAlike(bitmap_, pDst)) R_TRY(turn(pDst->ViewPerspective));
        return bitmap_->BitsPerPixel != pDst->BitsPerPixel ? convert(pDst) : Status(SUCCESS);
    }
    Status turn(R_INT perspective) noexcept
    {
        R_TRY(R_IntChangeBitmapViewPerspective(&turned_, bitmap_, sizeof turned_, perspective, 0xBF));
        bitmap_ = &turned_;
        return SUCCESS;
    }
    Status convert(const BITMAPHANDLE* pDst) noexcept
    {
        const bool compressed = (bitmap_->Flags & FLAG_COMPRESSED) != 0;
        if (compressed && R_IntFlushStartupBuffers(0) != SUCCESS) return ERROR_FEATURE_LOCKED;
        if ((bitmap_->Flags & FLAG_FLOAT) != 0) return ERROR_FLOAT_NOT_SUPPORTED;
        const R_INT bits = pDst->BitsPerPixel;
        if (bits > 8) {
            R_TRY(R_ColorResBitmap(&converted_, bitmap_, sizeof converted_, bits, orderFlag(pDst), nullptr, 0));
            R_TRY(narrowGray(pDst));
        } else {
            const R_UINT colours = std::min(readableColors(pDst), 1u << bits);
            const RGBQUAD* const palette = colours != 0 ? pDst->pPalette : nullptr;
            R_TRY(R_ColorResBitmap(&converted_, bitmap_, sizeof converted_, bits, COLORRES_USER, palette, colours));
        }
        bitmap_ = &converted_;
        return SUCCESS;
    }
    static R_UINT orderFlag(const BITMAPHANDLE* pDst) noexcept
    {
        const R_INT bits = pDst->BitsPerPixel;
        if (bits == 12) return 0;
        if (bits == 16 && pDst->Order == ORDER_GRAY) return COLORRES_ORDER_GRAY;
        return pDst->Order == ORDER_RGB ? 0 : COLORRES_ORDER_BGR;
    }
    /// Gray in the bits that count in the destination.
    Status narrowGray(const BITMAPHANDLE* pDst) noexcept
    {
        PixelFormat from, to;
        R_TRY(formatOf(&converted_, &from));
        R_TRY(formatOf(pDst, &to));
        if (!to.gray || to.bits <= 8 || (to.lowBit == from.lowBit && to.highBit == from.highBit)) return SUCCESS;
        BitmapAccess access(&converted_);
        R_TRY(access.status());
        converted_.LowBit = to.lowBit;
        converted_.HighBit = to.highBit;
        return access.finish(rewriteRows(FormatReader(from), FormatWriter(to)));
    }
    Status rewriteRows(const FormatReader& reader, const FormatWriter& writer) noexcept
    {
        RowCursor rows(&converted_, RowMode::update);
        R_TRY(rows.status());
        const auto width = static_cast<size_t>(converted_.Width);
        const RowBuffer levels(width * sizeof(RGBQUAD16));
        if (!levels) return ERROR_FAILURE;
        auto* const quads = reinterpret_cast<RGBQUAD16*>(levels.data());
        for (R_INT row = 0; row < converted_.Height; ++row) {
            R_TRY(rows.open(row));
            reader.read(quads, rows.data(), width);
            writer.write(rows.data(), quads, width);
            R_TRY(rows.commit());
        }
        return SUCCESS;
    }

    BITMAPHANDLE turned_ = {};
    BITMAPHANDLE converted_ = {};
    BITMAPHANDLE* bitmap_;
    Status status_;
};

Status checkBitmap(const BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_PARAMETER));
    return checkSizable(pBitmap);
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_SizeBitmap(BITMAPHANDLE* pBitmap, R_INT nNewWidth, R_INT nNewHeight, R_UINT uFlags) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pBitmap));
    if (nNewWidth == pBitmap->Width && nNewHeight == pBitmap->Height) return SUCCESS;
    if (nNewWidth < 1 || nNewHeight < 1) return ERROR_INV_PARAMETER;
    R_TRY(checkSizable(pBitmap));
    return replaceBySize(pBitmap, nNewWidth, nNewHeight, uFlags);
}

R_INT R_ResizeBitmap(BITMAPHANDLE* pSrc, BITMAPHANDLE* pDst, R_UINT uFlags) noexcept
{
    if (pSrc == nullptr || pDst == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pSrc));
    R_TRY(checkStructSize(pDst));
    R_TRY(checkBitmap(pSrc));
    R_TRY(checkBitmap(pDst));
    if (pSrc == pDst) return SUCCESS;
    const MatchingSource source(pSrc, pDst);
    R_TRY(source.status());
    const bool converted = pSrc->BitsPerPixel != pDst->BitsPerPixel;
    if (converted && pDst->BitsPerPixel > 1 && (uFlags & SIZE_TO_GRAY) != 0)
        uFlags = (uFlags & ~SIZE_TO_GRAY) | SIZE_BILINEAR;
    R_TRY(R_IntResizeBitmap(source.bitmap(), pDst, uFlags));
    return scaleRegion(pDst, pDst->Width, pDst->Height);
}

R_INT R_IntResizeBitmap(BITMAPHANDLE* pSrc, BITMAPHANDLE* pDst, R_UINT uFlags) noexcept
{
    if (pSrc == nullptr || pDst == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkBitmap(pSrc));
    R_TRY(checkBitmap(pDst));
    if (pSrc->BitsPerPixel == 1 && pDst->BitsPerPixel == 8) return resizeInto(pDst, pSrc, kPageToGray);
    if (pSrc->BitsPerPixel != pDst->BitsPerPixel) return ERROR_INV_BITS_PER_PIXEL;
    const SizeJob job = wholeOf(pSrc, pDst->Width, pDst->Height);
    SizePlan plan = planSize(pSrc, job, uFlags & ~SIZE_TO_GRAY); // which another depth asks for
    plan.bits = pDst->BitsPerPixel;
    return resizeInto(pDst, pSrc, plan);
}
