#include "Support/FakeRegion.h"

#include <algorithm>
#include <random>

namespace rv::test {

FakeRegion::FakeRegion(BITMAPHANDLE* pBitmap, unsigned seed) : bitmap_(pBitmap)
{
    DISDISPATCH hooks{};
    hooks.uStructSize = sizeof hooks;
    hooks.FlipRegion = flip;
    hooks.GetRegionBounds = bounds;
    hooks.GetRegionSegments = segments;
    (void)R_SetDisDispatch(&hooks);
    pBitmap->pRgnInfo = this;
    if (seed == 0) return;

    std::mt19937 random(seed);
    const auto below = [&random](R_INT limit) { return static_cast<R_INT>(random() % static_cast<unsigned>(limit)); };
    top_ = below(pBitmap->Height + 4) - 3;
    rows_.resize(static_cast<size_t>(1 + below(pBitmap->Height + 4)));
    for (auto& row : rows_) {
        for (R_INT pieces = below(4); pieces > 0; --pieces) {
            const R_INT left = below(pBitmap->Width + 8) - 4;
            row.push_back({left, left + below(pBitmap->Width / 2 + 4)});
        }
    }
}

FakeRegion::~FakeRegion()
{
    bitmap_->pRgnInfo = nullptr;
    (void)R_SetDisDispatch(nullptr);
}

bool FakeRegion::holds(R_INT row, R_INT column) const
{
    if (row < top_ || row - top_ >= static_cast<R_INT>(rows_.size())) return false;
    const auto& pieces = rows_[static_cast<size_t>(row - top_)];
    return std::any_of(pieces.begin(), pieces.end(),
                       [column](const R_SEGMENT& s) { return s.nLeft <= column && column < s.nRight; });
}

R_INT FakeRegion::flip(BITMAPHANDLE* pBitmap)
{
    FakeRegion* const self = of(pBitmap);
    ++self->flipped;
    if (const R_INT status = self->next(); status != SUCCESS) return status;
    self->top_ = pBitmap->Height - self->top_ - static_cast<R_INT>(self->rows_.size());
    std::reverse(self->rows_.begin(), self->rows_.end());
    const bool accessed = pBitmap->uStructSize == BITMAPHANDLE_SIZE && pBitmap->nLockCount != 0;
    return accessed ? FAILURE : SUCCESS;
}

R_INT FakeRegion::bounds(BITMAPHANDLE* pBitmap, RECT* pBounds, R_UINT* puMostSegments)
{
    FakeRegion* const self = of(pBitmap);
    if (const R_INT status = self->next(); status != SUCCESS) return status;
    R_INT left = INT32_MAX, right = INT32_MIN;
    size_t most = 0;
    for (const auto& row : self->rows_) {
        most = std::max(most, row.size());
        for (const R_SEGMENT& piece : row) {
            left = std::min(left, piece.nLeft);
            right = std::max(right, piece.nRight);
        }
    }
    *pBounds = {left, self->top_, right, self->top_ + static_cast<R_INT>(self->rows_.size())};
    *puMostSegments = static_cast<R_UINT>(most);
    return SUCCESS;
}

R_INT FakeRegion::segments(BITMAPHANDLE* pBitmap, R_INT nRow, R_SEGMENT* pSegments, R_UINT* puSegments)
{
    FakeRegion* const self = of(pBitmap);
    if (const R_INT status = self->next(); status != SUCCESS) return status;
    const auto& row = self->rows_.at(static_cast<size_t>(nRow - self->top_)); // the kernel asks of no other
    std::copy(row.begin(), row.end(), pSegments);
    *puSegments = static_cast<R_UINT>(row.size());
    return SUCCESS;
}

} // namespace rv::test
