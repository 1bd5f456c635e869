// The line resizer: rows that come one at a time are made longer or shorter where they are, and it is told how often
// each is to be written. All of it is a walk in integers.

#include "Internal/R_Int.h"
#include "Kernel/Base/System.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Pixels/Pick.h"
#include "Platform/Platform.h"
#include "R_Geometry.h"

#include <cmath>
#include <cstring>
#include <new>
#include <optional>

namespace rv {

namespace {

/// Rounded to nearest, ties to even, whatever way the caller's thread rounds. 0 for what is no size.
R_INT roundedSize(double size) noexcept
{
    if (!(size > 0.0 && size < 2147483647.0)) return 0;
    const double whole = std::floor(size), rest = size - whole;
    const R_INT lower = static_cast<R_INT>(whole);
    return rest > 0.5 || (rest == 0.5 && lower % 2 != 0) ? lower + 1 : lower;
}

/// The size that keeps the proportions when the other one is `known`. The order of the two operations hangs on how that
/// compares with the old size that is looked for, and can change the last bit: kept, so that sizes never move.
R_INT derivedSize(R_INT known, R_INT oldKnown, R_INT oldWanted, R_INT compared) noexcept
{
    const double to = known, from = oldKnown, wanted = oldWanted;
    return roundedSize(known > compared ? to / from * wanted : to * (wanted / from));
}

struct Sizes {
    R_INT oldWidth;
    R_INT oldHeight;
    R_INT newWidth;
    R_INT newHeight;

    Status complete() noexcept
    {
        if (newWidth < 0 || newHeight < 0 || oldWidth < 1 || oldHeight < 1) return ERROR_INV_PARAMETER;
        if (newWidth == 0 && newHeight == 0) return ERROR_INV_PARAMETER;
        if (newWidth == 0)
            newWidth = derivedSize(newHeight, oldHeight, oldWidth, oldWidth);
        else if (newHeight == 0)
            newHeight = derivedSize(newWidth, oldWidth, oldHeight, oldHeight);
        return newWidth >= 1 && newHeight >= 1 ? SUCCESS : ERROR_INV_PARAMETER;
    }
    bool unchanged() const noexcept { return oldWidth == newWidth && oldHeight == newHeight; }
};

class LineResizer {
public:
    explicit LineResizer(const Sizes& sizes) noexcept
        : sizes_(sizes), repeat_(sizes.newHeight / sizes.oldHeight), rest_(sizes.newHeight % sizes.oldHeight)
    {
    }
    /// The one behind an opaque pointer; null for what is none of ours.
    static LineResizer* of(void* pState) noexcept
    {
        auto* const state = static_cast<LineResizer*>(pState);
        return state != nullptr && state->tag_ == kTag ? state : nullptr;
    }
    static void free(LineResizer* state) noexcept
    {
        state->tag_ = 0; // a use after this is refused for as long as nobody else has the memory
        state->~LineResizer();
        platform().release(state);
    }

    const Sizes& sizes() const noexcept { return sizes_; }
    /// How often a row is written.
    R_INT repeats(R_INT row) noexcept
    {
        const R_INT count = row == last_ - 1 ? upwards(row) : downwards(row);
        last_ = row;
        return count;
    }

    /// Makes a row longer or shorter in its buffer.
    void resizeLine(uint8_t* row, R_INT bits) noexcept;

private:
    ~LineResizer() = default;
    R_INT64 errorOf(R_INT row) const noexcept { return R_INT64{row} * rest_ % sizes_.oldHeight; }
    R_INT downwards(R_INT row) noexcept
    {
        if (row != last_ + 1 || reverse_) error_ = errorOf(row);
        reverse_ = false;
        error_ += rest_;
        if (error_ < sizes_.oldHeight) return repeat_;
        error_ -= sizes_.oldHeight;
        return repeat_ + 1;
    }
    R_INT upwards(R_INT row) noexcept
    {
        if (!reverse_) error_ = errorOf(row);
        reverse_ = true;
        error_ -= rest_;
        if (error_ >= 0) return repeat_;
        error_ += sizes_.oldHeight;
        return repeat_ + 1;
    }

    static constexpr uint32_t kTag = 0x72657369; // what a caller hands in may be anybody's

    uint32_t tag_ = kTag;
    bool reverse_ = false; // rows come from the last one upwards
    R_INT last_ = -1;
    Sizes sizes_;
    R_INT repeat_; // every row at least so often
    R_INT rest_;   // and so many of oldHeight rows once more
    R_INT64 error_ = 0;

    R_INT bits_ = 0; // for which there is a picker, or could be none
    std::optional<RowPicker> picker_;
    RowBuffer old_; // a row as it was
};

struct LineWalk {
    R_INT bits;
    R_UINT rowBytes;
    PickWalk walk;
    R_UINT pixels;
};

/// The walk in the way in which it does not overwrite what it has yet to take, if the rows are one.
void walkLine(const LineWalk& line, uint8_t* target, const uint8_t* source, bool backward) noexcept
{
    const PickInOrder pick = backward ? pickBackwardFor(line.bits) : pickForwardFor(line.bits);
    pick(target, source, line.walk, line.pixels);
    const bool packed = line.bits < 8 || line.bits == 12;
    const R_UINT64 used = packedBytes(line.pixels, line.bits);
    if (packed && used < line.rowBytes) std::memset(target + used, 0, line.rowBytes - used);
}

/// Many rows are picked much faster with a plan; without memory for it each is walked.
void LineResizer::resizeLine(uint8_t* row, R_INT bits) noexcept
{
    const R_UINT64 oldBytes = packedBytes(sizes_.oldWidth, bits), newBytes = packedBytes(sizes_.newWidth, bits);
    if (bits != bits_) {
        picker_.emplace(bits, 0, sizes_.oldWidth, sizes_.newWidth);
        old_ = RowBuffer(oldBytes);
        bits_ = bits;
    }
    if (!picker_->ready() || !old_) {
        const auto rowBytes = static_cast<R_UINT>(oldBytes), pixels = static_cast<R_UINT>(sizes_.newWidth);
        const PickWalk walk = PickWalk::between(sizes_.oldWidth, sizes_.newWidth);
        return walkLine({bits, rowBytes, walk, pixels}, row, row, sizes_.newWidth > sizes_.oldWidth);
    }
    std::memcpy(old_.data(), row, oldBytes);
    picker_->pick(row, old_.data());
    if ((bits < 8 || bits == 12) && newBytes < oldBytes) std::memset(row + newBytes, 0, oldBytes - newBytes);
}

/// A row that grows takes its step as 0.
PickWalk givenWalk(R_UINT first, R_INT step, R_UINT error, R_UINT increment, R_UINT denominator, R_UINT grows) noexcept
{
    return {first, grows != 0 ? 0 : step, error, increment, denominator};
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_StartResize(R_INT nOldWidth, R_INT nOldHeight, R_INT nNewWidth, R_INT nNewHeight, void** ppState) noexcept
{
    R_TRY(checkLicence(Feature::bitmap));
    if (ppState == nullptr) return ERROR_INV_PARAMETER;
    Sizes sizes{nOldWidth, nOldHeight, nNewWidth, nNewHeight};
    R_TRY(sizes.complete());
    void* const memory = platform().allocate(sizeof(LineResizer));
    if (memory == nullptr) return ERROR_FAILURE;
    *ppState = new (memory) LineResizer(sizes);
    return SUCCESS;
}

R_INT R_Resize(void* pRow, R_INT nRow, R_INT nBitsPerPixel, R_INT* pnNewWidth, R_INT* pnRepeat, void* pState) noexcept
{
    if (pRow == nullptr || pnNewWidth == nullptr || pnRepeat == nullptr) return ERROR_INV_PARAMETER;
    LineResizer* const state = LineResizer::of(pState);
    if (state == nullptr) return ERROR_INV_PARAMETER;
    const Sizes& sizes = state->sizes();
    if (nRow < 0 || nRow >= sizes.oldHeight) return ERROR_INV_PARAMETER;
    if (!isDepth(nBitsPerPixel)) return ERROR_INV_BITS_PER_PIXEL;

    *pnNewWidth = sizes.newWidth;
    *pnRepeat = sizes.unchanged() ? 1 : state->repeats(nRow);
    if (*pnRepeat == 0 || sizes.newWidth == sizes.oldWidth) return *pnRepeat;
    state->resizeLine(static_cast<uint8_t*>(pRow), nBitsPerPixel);
    return *pnRepeat;
}

R_INT R_StopResize(void* pState) noexcept
{
    if (pState == nullptr) return SUCCESS;
    LineResizer* const state = LineResizer::of(pState);
    if (state == nullptr) return ERROR_INV_PARAMETER;
    LineResizer::free(state);
    return SUCCESS;
}

void R_GetResizedScanLine(R_INT nBitsPerPixel, R_UINT uRowBytes, R_UINT uFirst, R_INT nStep, R_UINT uError,
                          R_UINT uIncrement, const void* pSrc, void* pDst, R_UINT uPixels, R_UINT uDenominator,
                          R_UINT uUnitStep) noexcept
{
    if (pSrc == nullptr || pDst == nullptr || !isDepth(nBitsPerPixel)) return;
    walkLine({nBitsPerPixel, uRowBytes, givenWalk(uFirst, nStep, uError, uIncrement, uDenominator, uUnitStep), uPixels},
             static_cast<uint8_t*>(pDst), static_cast<const uint8_t*>(pSrc), false);
}

void R_ReverseGetResizedScanLine(R_INT nBitsPerPixel, R_UINT uRowBytes, R_UINT uFirst, R_INT nStep, R_UINT uError,
                                 R_UINT uIncrement, const void* pSrc, void* pDst, R_UINT uPixels, R_UINT uDenominator,
                                 R_UINT bGrows) noexcept
{
    if (pSrc == nullptr || pDst == nullptr || !isDepth(nBitsPerPixel)) return;
    walkLine({nBitsPerPixel, uRowBytes, givenWalk(uFirst, nStep, uError, uIncrement, uDenominator, bGrows), uPixels},
             static_cast<uint8_t*>(pDst), static_cast<const uint8_t*>(pSrc), bGrows != 0);
}
