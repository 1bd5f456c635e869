// Resized bitmaps that are never made as a whole: rows are made when they are asked for.

#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Geometry/ResizedRows.h"
#include "Platform/Platform.h"
#include "R_Geometry.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>

namespace rv {

namespace {

/// What the caller asks for; the record that describes the new rows.
struct Wanted {
    SizeJob job;
    SizePlan plan;

    Status describe(BITMAPHANDLE* pFormat, BITMAPHANDLE* pBitmap, R_UINT uStructSize) const noexcept
    {
        R_TRY(R_DupBitmapNewDim(pFormat, pBitmap, uStructSize, job.width, job.height, plan.bits, DUP_PALETTE));
        Status status = checkWalkable(pFormat); // rows as the record counts them, which very wide ones do not fit
        if (status.ok()) status = describeResized(pFormat, pBitmap, plan);
        if (!status.ok()) R_FreeBitmap(pFormat);
        return status;
    }
};

/// Holds an access of the bitmap until it is freed.
class RowsOnDemand {
public:
    /// The one behind an opaque pointer; null for what is none of ours.
    static RowsOnDemand* of(void* pState) noexcept
    {
        auto* const state = static_cast<RowsOnDemand*>(pState);
        return state != nullptr && state->tag_ == kTag ? state : nullptr;
    }
    static Status make(RowsOnDemand** ppState, BITMAPHANDLE* pBitmap, const Wanted& wanted) noexcept
    {
        void* const memory = platform().allocate(sizeof(RowsOnDemand));
        if (memory == nullptr) return ERROR_FAILURE;
        auto* const made = new (memory) RowsOnDemand(pBitmap, wanted);
        const Status status = made->begin(wanted);
        if (status.ok())
            *ppState = made;
        else
            (void)free(made);
        return status;
    }
    /// What the release answers.
    static Status free(RowsOnDemand* state) noexcept
    {
        state->tag_ = 0; // a use after this is refused for as long as nobody else has the memory
        state->rows_.reset();
        const bool accessed = state->access_ && state->access_->status().ok();
        const Status released = accessed ? state->access_->finish(SUCCESS) : Status(SUCCESS);
        state->~RowsOnDemand();
        platform().release(state);
        return released;
    }

    R_SSIZE read(void* pBuffer, R_INT row, R_INT column, R_SIZE count) noexcept
    {
        if (row < 0 || row >= format_.Height || column < 0 || column >= format_.Width) return ERROR_INV_PARAMETER;
        R_TRY(make(row));
        const auto from = static_cast<R_SIZE>(columnByte(column, format_.BitsPerPixel));
        count = std::min<R_SIZE>(count, format_.BytesPerLine - from);
        std::memcpy(pBuffer, row_.data() + from, count);
        return static_cast<R_SSIZE>(count);
    }

private:
    RowsOnDemand(BITMAPHANDLE* pBitmap, const Wanted& wanted) noexcept : bitmap_(pBitmap)
    {
        described_ = wanted.describe(&format_, pBitmap, sizeof format_);
    }
    ~RowsOnDemand()
    {
        if (described_.ok()) R_FreeBitmap(&format_);
    }

    Status begin(const Wanted& wanted) noexcept
    {
        R_TRY(described_);
        PixelFormat format;
        R_TRY(resizedFormat(&format_, bitmap_, &format));
        row_ = RowBuffer(format_.BytesPerLine);
        if (!row_) return ERROR_FAILURE;
        std::memset(row_.data(), 0, format_.BytesPerLine);
        access_.emplace(bitmap_);
        R_TRY(access_->status());
        rows_.emplace(bitmap_, wanted.job, wanted.plan, format);
        return rows_->status();
    }

    Status make(R_INT row) noexcept
    {
        const bool same = held_ >= 0 && (row == held_ || (row == held_ + 1 && rows_->repeats(row)));
        held_ = -1;
        if (!same) R_TRY(rows_->row(row, row_.data()));
        held_ = row;
        return SUCCESS;
    }

    static constexpr uint32_t kTag = 0x726F7773; // what a caller hands in may be anybody's

    uint32_t tag_ = kTag;
    BITMAPHANDLE* bitmap_;
    BITMAPHANDLE format_ = {}; // the new bitmap's record, without pixels
    Status described_ = SUCCESS;
    std::optional<BitmapAccess> access_;
    std::optional<ResizedRows> rows_;
    RowBuffer row_; // the one that was made last
    R_INT held_ = -1;
};

Status checkPart(const BITMAPHANDLE* pBitmap, const RECT& part) noexcept
{
    if (part.left < 0 || part.top < 0 || part.left >= part.right || part.top >= part.bottom) return ERROR_INV_PARAMETER;
    return part.right <= pBitmap->Width && part.bottom <= pBitmap->Height ? SUCCESS : ERROR_INV_PARAMETER;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_StartResizeBitmap(BITMAPHANDLE* pBitmap, R_INT nNewWidth, R_INT nNewHeight, R_UINT uFlags,
                          void** ppState) noexcept
{
    return R_StartResizeBitmap2(pBitmap, nullptr, nNewWidth, nNewHeight, uFlags, nullptr, 0, ppState);
}

R_INT R_StartResizeBitmap2(BITMAPHANDLE* pBitmap, const RECT* pSource, R_INT nNewWidth, R_INT nNewHeight, R_UINT uFlags,
                           BITMAPHANDLE* pFormat, R_UINT uStructSize, void** ppState) noexcept
{
    if (ppState == nullptr || (pFormat != nullptr && pFormat == pBitmap)) return ERROR_INV_PARAMETER;
    R_TRY(checkAllocated(pBitmap, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pBitmap));
    if (pFormat != nullptr && !isStructSize(uStructSize)) return ERROR_INV_STRUCT_SIZE;
    if (nNewWidth < 1 || nNewHeight < 1) return ERROR_INV_PARAMETER;
    R_TRY(checkWalkable(pBitmap));
    Wanted wanted{{{0, 0, pBitmap->Width, pBitmap->Height}, nNewWidth, nNewHeight}, {}};
    if (pSource != nullptr) wanted.job.source = *pSource;
    R_TRY(checkPart(pBitmap, wanted.job.source));
    const bool resized = nNewWidth != wanted.job.columns() || nNewHeight != wanted.job.rows();
    wanted.plan = planSize(pBitmap, wanted.job, resized ? uFlags : 0);

    RowsOnDemand* state = nullptr;
    R_TRY(RowsOnDemand::make(&state, pBitmap, wanted));
    if (pFormat != nullptr) {
        const Status described = wanted.describe(pFormat, pBitmap, uStructSize);
        if (!described.ok()) {
            (void)RowsOnDemand::free(state);
            return described;
        }
    }
    *ppState = state;
    return SUCCESS;
}

R_SSIZE R_GetResizedRowCol(void* pState, void* pBuffer, R_INT nRow, R_INT nCol, R_SIZE uBytes) noexcept
{
    RowsOnDemand* const state = RowsOnDemand::of(pState);
    if (state == nullptr || pBuffer == nullptr) return ERROR_INV_PARAMETER;
    return state->read(pBuffer, nRow, nCol, uBytes);
}

R_INT R_StopResizeBitmap(void* pState) noexcept
{
    if (pState == nullptr) return SUCCESS;
    RowsOnDemand* const state = RowsOnDemand::of(pState);
    return state != nullptr ? R_INT(RowsOnDemand::free(state)) : ERROR_INV_PARAMETER;
}
