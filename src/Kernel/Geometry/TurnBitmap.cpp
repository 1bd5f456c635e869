#include "Kernel/Geometry/TurnBitmap.h"

#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/RowCol.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Geometry/CopyRuns.h"
#include "Kernel/Pixels/Depths.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

/// From here on a picture does not go through the caches.
constexpr R_UINT64 kPastCaches = R_UINT64{8} << 20;
/// Rows that are turned between two looks at the progress: whole tiles of every kernel.
constexpr R_INT kSlabRows = 256;
/// Bytes for rows that cannot be had in place: those of the source a few at a time, those of the target as many as fit,
/// for each part of the target takes the whole source anew.
constexpr R_UINT64 kSlabBytes = R_UINT64{2} << 20;
constexpr R_UINT64 kBandBytes = R_UINT64{16} << 20;

/// How many of `count` rows of so many bytes fit; eight at least, and a multiple of eight pixels, which begin and end
/// with a byte in every depth.
R_INT rowsWithin(R_UINT64 bytes, R_UINT64 rowBytes, R_INT count) noexcept
{
    const R_UINT64 rows = std::max<R_UINT64>(bytes / std::max<R_UINT64>(rowBytes, 1) / 8 * 8, 8);
    return static_cast<R_INT>(std::min<R_UINT64>(rows, static_cast<R_UINT64>(count)));
}

/// Steps of the progress that are behind a slab.
Status stepOver(Progress& progress, R_INT steps) noexcept
{
    for (R_INT step = 0; step < steps; ++step) R_TRY(progress.step());
    return SUCCESS;
}

/// A turn that makes rows of columns. The source's columns are taken in bands, each of which is so many rows of the
/// target, and its rows in slabs, each of which is so many pixels of every one of those.
class SidewaysMove {
public:
    SidewaysMove(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Turn& turn, const PercentRange& range) noexcept
        : target_(pDst), source_(pSrc), kernels_(pSrc->BitsPerPixel), turn_(turn), range_(range),
          targetRows_(pDst, RowMode::write), sourceRows_(pSrc, RowMode::read)
    {
    }

    Status run() noexcept
    {
        R_TRY(targetRows_.status());
        R_TRY(sourceRows_.status());
        R_TRY(takeBuffers());
        const R_INT64 bands = (R_INT64{source_->Width} + bandColumns_ - 1) / std::max(bandColumns_, 1);
        Progress progress = Progress::ofThread(bands * source_->Height, range_);
        R_TRY(progress.begin());
        for (R_INT column = 0; column < source_->Width; column += columnsFrom(column)) {
            for (R_INT pixel = 0; pixel < source_->Height; pixel += slabFrom(pixel)) {
                R_TRY(moveSlab(column, pixel));
                R_TRY(stepOver(progress, slabFrom(pixel)));
            }
            if (!targetRows_.direct()) R_TRY(writeBand(column));
        }
        return SUCCESS;
    }

private:
    R_INT columnsFrom(R_INT column) const noexcept { return std::min(bandColumns_, source_->Width - column); }
    R_INT slabFrom(R_INT pixel) const noexcept { return std::min(slabRows_, source_->Height - pixel); }
    size_t bytesOf(R_INT pixels) const noexcept { return static_cast<size_t>(packedBytes(pixels, kernels_.bits)); }

    Status takeBuffers() noexcept
    {
        bandColumns_ = source_->Width;
        slabRows_ = std::min(kSlabRows, source_->Height);
        if (!targetRows_.direct()) {
            const R_UINT64 rowBytes = target_->BytesPerLine;
            bandColumns_ = rowsWithin(kBandBytes, rowBytes, bandColumns_);
            band_ = RowBuffer(rowBytes * static_cast<R_UINT64>(bandColumns_));
            if (!band_) return ERROR_FAILURE;
        }
        if (!sourceRows_.direct()) {
            const R_UINT64 pieceBytes = bytesOf(bandColumns_);
            slabRows_ = rowsWithin(kSlabBytes, pieceBytes, slabRows_);
            slab_ = RowBuffer(pieceBytes * static_cast<R_UINT64>(slabRows_));
            if (!slab_) return ERROR_FAILURE;
        }
        return SUCCESS;
    }

    /// The source's row that becomes a pixel of the target's rows.
    R_INT sourceRow(R_INT pixel) const noexcept { return turn_.rowsBackwards() ? source_->Height - 1 - pixel : pixel; }
    R_INT targetRow(R_INT column) const noexcept
    {
        return turn_.columnsBackwards() ? source_->Width - 1 - column : column;
    }

    /// Turns columns from `column` on of the rows that become pixels from `pixel` on.
    Status moveSlab(R_INT column, R_INT pixel) noexcept
    {
        PixelRows<const uint8_t> from = {slab_.data(), static_cast<R_INT64>(bytesOf(columnsFrom(column)))};
        if (sourceRows_.direct())
            from = {sourceRows_.row(sourceRow(pixel)) + columnByte(column, kernels_.bits),
                    turn_.rowsBackwards() ? -R_INT64{source_->BytesPerLine} : R_INT64{source_->BytesPerLine}};
        else
            R_TRY(readSlab(column, pixel));

        PixelRows<uint8_t> to = {band_.data(), target_->BytesPerLine};
        if (targetRows_.direct())
            to = {targetRows_.row(targetRow(column)),
                  turn_.columnsBackwards() ? -R_INT64{target_->BytesPerLine} : R_INT64{target_->BytesPerLine}};
        kernels_.turn(to.first + columnByte(pixel, kernels_.bits), static_cast<ptrdiff_t>(to.pitch), from.first,
                      static_cast<ptrdiff_t>(from.pitch), static_cast<size_t>(columnsFrom(column)),
                      static_cast<size_t>(slabFrom(pixel)), targetRows_.direct() && pastCaches());
        return SUCCESS;
    }

    Status readSlab(R_INT column, R_INT pixel) noexcept
    {
        const size_t bytes = bytesOf(columnsFrom(column));
        for (R_INT i = 0; i < slabFrom(pixel); ++i) {
            uint8_t* const piece = slab_.data() + static_cast<size_t>(i) * bytes;
            R_TRY(rowMoved(readRow(source_, piece, sourceRow(pixel + i), column, bytes), bytes));
        }
        return SUCCESS;
    }

    Status writeBand(R_INT column) noexcept
    {
        const size_t rowBytes = target_->BytesPerLine;
        const size_t pixelBytes = bytesOf(target_->Width);
        for (R_INT i = 0; i < columnsFrom(column); ++i) {
            R_TRY(targetRows_.open(targetRow(column + i)));
            std::memcpy(targetRows_.data(), band_.data() + static_cast<size_t>(i) * rowBytes, pixelBytes);
            std::memset(targetRows_.data() + pixelBytes, 0, rowBytes - pixelBytes);
            R_TRY(targetRows_.commit());
        }
        return SUCCESS;
    }

    bool pastCaches() const noexcept
    {
        return R_UINT64{target_->BytesPerLine} * static_cast<R_UINT64>(target_->Height) >= kPastCaches;
    }

    BITMAPHANDLE* target_;
    BITMAPHANDLE* source_;
    TurnKernels kernels_;
    Turn turn_;
    PercentRange range_;
    RowCursor targetRows_;
    RowCursor sourceRows_;
    RowBuffer band_; // of target rows, in the order of the source's columns
    RowBuffer slab_; // of source rows, in the order of the target's pixels
    R_INT bandColumns_ = 0;
    R_INT slabRows_ = 0;
};

/// A turn that leaves rows what they are.
Status moveRows(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Turn& turn, const PercentRange& range) noexcept
{
    if (bothMoveRuns(pDst, pSrc) && pSrc->Width <= kWidestOfWholeRuns) {
        Progress progress = Progress::ofThread(pSrc->Height, range);
        return turnRuns(pDst, pSrc, turn, progress);
    }
    RowCursor target(pDst, RowMode::write);
    R_TRY(target.status());
    RowCursor source(pSrc, RowMode::read);
    R_TRY(source.status());
    const TurnKernels kernels(pSrc->BitsPerPixel);
    const Turn ofRow = {turn.columnsBackwards(), turn.columnsBackwards() ? 2 : 0};
    const size_t pixelBytes = static_cast<size_t>(packedBytes(pSrc->Width, kernels.bits));
    const R_INT height = pSrc->Height;

    Progress progress = Progress::ofThread(height, range);
    R_TRY(progress.begin());
    for (R_INT row = 0; row < height; ++row) {
        R_TRY(source.open(row));
        R_TRY(target.open(turn.rowsBackwards() ? height - 1 - row : row));
        turnPixels(kernels, ofRow, {target.data(), 0}, {source.data(), 0}, pSrc->Width, 1, false);
        std::memset(target.data() + pixelBytes, 0, pDst->BytesPerLine - pixelBytes);
        R_TRY(target.commit());
        R_TRY(progress.step());
    }
    return SUCCESS;
}

/// changeWhereItIs() for pixels alone, of an accessed bitmap.
Status turnWhereItIs(BITMAPHANDLE* pBitmap, const Turn& turn, bool* done, const PercentRange& range) noexcept
{
    *done = turn == Turn{};
    if (*done) return Progress::ofThread(0, range).begin();
    if (turn.sideways()) return SUCCESS;
    const RowCursor cursor(pBitmap, RowMode::update);
    R_TRY(cursor.status());
    *done = cursor.direct(); // another row that cannot be written could not be put back either
    if (!*done) return SUCCESS;
    const TurnKernels kernels(pBitmap->BitsPerPixel);
    const PixelRows<uint8_t> rows = {cursor.row(0), pBitmap->BytesPerLine};
    const R_INT width = pBitmap->Width, height = pBitmap->Height;
    const R_INT steps = height - height / 2;

    Progress progress = Progress::ofThread(steps, range);
    R_TRY(progress.begin());
    for (R_INT row = 0; row < steps; ++row) {
        turnInPlace(kernels, turn, rows, width, height, row, row + 1);
        const Status status = progress.step();
        if (status.ok()) continue;
        turnInPlace(kernels, turn, rows, width, height, 0, row + 1); // back
        return status;
    }
    return SUCCESS;
}

} // namespace

Status turnInto(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Turn& turn, const PercentRange& range) noexcept
{
    return turn.sideways() ? SidewaysMove(pDst, pSrc, turn, range).run() : moveRows(pDst, pSrc, turn, range);
}

Status fillTurned(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Turn& turn, R_INT perspective,
                  const PercentRange& range) noexcept
{
    const bool sideways = turn.sideways();
    if (pDst->Width != (sideways ? pSrc->Height : pSrc->Width)) return ERROR_INV_SIZE;
    if (pDst->Height != (sideways ? pSrc->Width : pSrc->Height)) return ERROR_INV_SIZE;
    R_TRY(checkWalkable(pDst));
    BitmapAccess source(pSrc);
    R_TRY(source.status());
    BitmapAccess target(pDst);
    R_TRY(target.status());
    Status status = turnInto(pDst, pSrc, turn, range);
    status = target.finish(status);
    status = source.finish(status);
    if (!status.ok()) return status;
    pDst->ViewPerspective = perspective;
    if (sideways) takeResolutionsSideways(pDst, pSrc);
    return SUCCESS;
}

void takeResolutionsSideways(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) noexcept
{
    pDst->XResolution = pSrc->YResolution;
    pDst->YResolution = pSrc->XResolution;
}

Status changeWhereItIs(BITMAPHANDLE* pBitmap, const Turn& turn, R_INT perspective, bool* done,
                       const PercentRange& range) noexcept
{
    *done = false;
    BitmapAccess access(pBitmap);
    R_TRY(access.status());
    const Status status = turnWhereItIs(pBitmap, turn, done, range);
    if (status.ok() && *done) pBitmap->ViewPerspective = perspective;
    return access.finish(status);
}

} // namespace rv
