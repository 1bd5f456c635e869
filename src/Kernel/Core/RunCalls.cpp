// Runs in buffers of the caller. They lie wherever he has them, so that nothing but the arguments can be checked.

#include "Kernel/Base/Status.h"
#include "Kernel/Pixels/Runs.h"
#include "Kernel/Pixels/Simd/Select.h"
#include "R_Rows.h"

namespace rv {

namespace {

/// The same pixels of several rows, and how far those lie apart.
struct Rows {
    R_INT first;
    R_INT pixels;
    R_INT count;
    R_SIZE runBytes;
    R_SIZE bytes;

    /// One row by itself, which has all the room that it can need.
    static Rows one(R_INT first, R_INT pixels) noexcept
    {
        const auto most = pixels < 0 ? 0 : mostRuns(static_cast<size_t>(pixels)) * kRunBytes;
        return {first, pixels, 1, most, SIZE_MAX};
    }
    Status check(const void* runs, const void* packed) const noexcept
    {
        if (runs == nullptr || packed == nullptr || first < 0 || pixels < 0 || count < 0) return ERROR_INV_PARAMETER;
        return bytes < (static_cast<R_SIZE>(first) + static_cast<R_SIZE>(pixels) + 7) >> 3 ? ERROR_BUFFER_TOO_SMALL
                                                                                           : SUCCESS;
    }
    size_t room() const noexcept { return runBytes / kRunBytes; }
};

R_INT compress(R_UINT16* pRuns, const R_UCHAR* pRow, const Rows& rows) noexcept
{
    R_TRY(rows.check(pRuns, pRow));
    if (rows.pixels == 0) return 0;
    auto* runs = reinterpret_cast<uint8_t*>(pRuns);
    for (R_INT row = 0; row < rows.count; ++row, runs += rows.runBytes, pRow += rows.bytes) {
        const size_t written =
            encodeRuns(runs, rows.room(), pRow, static_cast<size_t>(rows.first), static_cast<size_t>(rows.pixels));
        if (written == 0) return ERROR_BUFFER_TOO_SMALL;
    }
    return rows.pixels;
}

R_INT expand(const R_UINT16* pRuns, R_UCHAR* pRow, const Rows& rows) noexcept
{
    R_TRY(rows.check(pRuns, pRow));
    const auto* runs = reinterpret_cast<const uint8_t*>(pRuns);
    const auto pixels = static_cast<size_t>(rows.pixels);
    const size_t count = rows.room() < mostRuns(pixels) ? rows.room() : mostRuns(pixels);
    for (R_INT row = 0; row < rows.count; ++row, runs += rows.runBytes, pRow += rows.bytes)
        if (decodeRuns(pRow, static_cast<size_t>(rows.first), pixels, runs, count) != pixels)
            return ERROR_INV_PARAMETER;
    return rows.pixels;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_CompressRow(R_UINT16* pRuns, R_UCHAR* pRow, R_INT nCol, R_INT nPixels) noexcept
{
    return compress(pRuns, pRow, Rows::one(nCol, nPixels));
}

R_INT R_ExpandRow(const R_UINT16* pRuns, R_UCHAR* pRow, R_INT nCol, R_INT nPixels) noexcept
{
    return expand(pRuns, pRow, Rows::one(nCol, nPixels));
}

R_INT R_CompressRows(R_UINT16* pRuns, R_UCHAR* pRow, R_INT nCol, R_INT nPixels, R_INT nRows, R_SIZE uRunBytesPerRow,
                     R_SIZE uBytesPerRow) noexcept
{
    return compress(pRuns, pRow, {nCol, nPixels, nRows, uRunBytesPerRow, uBytesPerRow});
}

R_INT R_ExpandRows(const R_UINT16* pRuns, R_UCHAR* pRow, R_INT nCol, R_INT nPixels, R_INT nRows, R_SIZE uRunBytesPerRow,
                   R_SIZE uBytesPerRow) noexcept
{
    return expand(pRuns, pRow, {nCol, nPixels, nRows, uRunBytesPerRow, uBytesPerRow});
}

R_INT R_MirrorCompressedBuffer(R_UINT16* pRuns, R_INT nPixels) noexcept
{
    if (pRuns == nullptr || nPixels < 0) return ERROR_INV_PARAMETER;
    if (nPixels == 0) return SUCCESS;
    const auto pixels = static_cast<size_t>(nPixels);
    const size_t count = countRuns(pRuns, mostRuns(pixels), pixels);
    if (count == 0) return ERROR_INV_PARAMETER;
    (void)mirrorRuns(pRuns, count);
    return SUCCESS;
}

R_INT R_FlipCompressedBuffer(R_UINT16* pRuns, R_SIZE uRunBytesPerRow, R_INT nRows) noexcept
{
    if (pRuns == nullptr || nRows < 0) return ERROR_INV_PARAMETER;
    if (nRows < 2) return SUCCESS;
    auto* top = reinterpret_cast<uint8_t*>(pRuns);
    auto* bottom = top + uRunBytesPerRow * static_cast<size_t>(nRows - 1);
    for (; top < bottom; top += uRunBytesPerRow, bottom -= uRunBytesPerRow)
        rowKernels().swap(top, bottom, uRunBytesPerRow, bottom - uRunBytesPerRow);
    return SUCCESS;
}
