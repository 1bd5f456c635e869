#include "Support/FakeRegion.h"

#include <algorithm>
#include <random>

namespace rv::test {

FakeRegion::FakeRegion(BITMAPHANDLE* pBitmap, unsigned seed) : bitmap_(pBitmap)
{
    DISDISPATCH hooks{};
    hooks.uStructSize = sizeof hooks;
    hooks.FlipRegion = [](BITMAPHANDLE* p) -> R_INT {
        ++of(p).flipped;
        return p->nLockCount == 0 ? of(p).next() : FAILURE; // the pixels are at rest
    };
    hooks.GetRegionBounds = [](BITMAPHANDLE* p, RECT* bounds, R_UINT* most) -> R_INT {
        *bounds = of(p).around_;
        *most = static_cast<R_UINT>(of(p).most_);
        return of(p).next();
    };
    hooks.GetRegionSegments = [](BITMAPHANDLE* p, R_INT nRow, R_SEGMENT* segments, R_UINT* count) -> R_INT {
        const auto& row = of(p).rows_.at(static_cast<size_t>(nRow - of(p).top_)); // the kernel asks of no other
        std::copy(row.begin(), row.end(), segments);
        *count = static_cast<R_UINT>(row.size());
        return of(p).next();
    };
    hooks.ScaleRegion = [](BITMAPHANDLE* p, R_INT width, R_INT height) -> R_INT {
        of(p).scaledTo = {width, height};
        return of(p).next();
    };
    (void)R_SetDisDispatch(&hooks);
    pBitmap->pRgnInfo = this;
    if (seed == 0) return;

    std::mt19937 random(seed);
    const auto below = [&random](R_INT limit) { return static_cast<R_INT>(random() % static_cast<unsigned>(limit)); };
    top_ = below(pBitmap->Height + 4) - 3;
    rows_.resize(static_cast<size_t>(1 + below(pBitmap->Height + 4)));
    around_ = {pBitmap->Width, top_, 0, top_ + static_cast<R_INT>(rows_.size())};
    for (auto& row : rows_) {
        for (R_INT pieces = below(4); pieces > 0; --pieces) {
            const R_INT left = below(pBitmap->Width + 8) - 4;
            row.push_back({left, left + below(pBitmap->Width / 2 + 4)});
            around_.left = std::min<R_INT>(around_.left, left);
            around_.right = std::max<R_INT>(around_.right, row.back().nRight);
        }
        most_ = std::max(most_, row.size());
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

} // namespace rv::test
