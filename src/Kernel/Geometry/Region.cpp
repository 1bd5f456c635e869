// What painting and combining may touch: the display module knows a region's shape, the kernel its bitmap's edges.

#include "Kernel/Geometry/Region.h"

#include <algorithm>

namespace rv {

namespace {

constexpr bool holdsPixels(const RECT& r) noexcept { return r.left < r.right && r.top < r.bottom; }

void cut(RECT& r, const RECT& to) noexcept
{
    r.left = std::max(r.left, to.left);
    r.top = std::max(r.top, to.top);
    r.right = std::min(r.right, to.right);
    r.bottom = std::min(r.bottom, to.bottom);
}

} // namespace

Region::Region(BITMAPHANDLE* pBitmap, const RECT& rectangle) noexcept
    : bitmap_(pBitmap), hooks_(displayHooks()), bounds_(rectangle), status_(SUCCESS)
{
    if (pBitmap->pRgnInfo == nullptr) return;
    if (hooks_.GetRegionBounds == nullptr || hooks_.GetRegionSegments == nullptr) return;

    RECT around = {};
    status_ = hooks_.GetRegionBounds(pBitmap, &around, &most_);
    if (!status_.ok()) return;
    if (most_ == 0) around = {}; // an empty region's rectangle means nothing
    cut(bounds_, around);
    room_ = RowBuffer(R_UINT64{most_} * sizeof(R_SEGMENT));
    segments_ = reinterpret_cast<R_SEGMENT*>(room_.data());
    if (segments_ == nullptr) status_ = ERROR_FAILURE;
}

bool Region::empty() const noexcept { return !holdsPixels(bounds_); }

Status Region::row(R_INT row, const R_SEGMENT*& segments, R_UINT& count) noexcept
{
    if (whole()) {
        all_ = {bounds_.left, bounds_.right};
        segments = &all_;
        count = 1;
        return SUCCESS;
    }
    R_UINT found = 0;
    R_TRY(hooks_.GetRegionSegments(bitmap_, row, segments_, &found));
    found = std::min(found, most_);
    R_UINT kept = 0;
    for (R_UINT i = 0; i < found; ++i) {
        const R_SEGMENT piece = {std::max<R_INT>(segments_[i].nLeft, bounds_.left),
                                 std::min<R_INT>(segments_[i].nRight, bounds_.right)};
        if (piece.nLeft < piece.nRight) segments_[kept++] = piece;
    }
    segments = segments_;
    count = kept;
    return SUCCESS;
}

Status flipRegion(BITMAPHANDLE* pBitmap) noexcept
{
    if (pBitmap->pRgnInfo == nullptr) return SUCCESS;
    const auto hook = displayHooks().FlipRegion;
    return hook != nullptr ? hook(pBitmap) : SUCCESS;
}

bool turnsRegion(const BITMAPHANDLE* pBitmap) noexcept
{
    return pBitmap->pRgnInfo != nullptr && displayHooks().RotateRegion != nullptr;
}

Status turnRegion(BITMAPHANDLE* pBitmap, R_INT angle, const RegionPoint& from, const RegionPoint& to, R_INT width,
                  R_INT height) noexcept
{
    if (pBitmap->pRgnInfo == nullptr) return SUCCESS;
    const auto hook = displayHooks().RotateRegion;
    return hook != nullptr ? hook(pBitmap, angle, from.x, from.y, to.x, to.y, width, height) : SUCCESS;
}

} // namespace rv
