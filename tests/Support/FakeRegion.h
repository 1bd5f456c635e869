/// A display module whose regions are pieces of rows.
#pragma once

#include "R_Services.h"

#include <vector>

namespace rv::test {

/// Gives a bitmap a region, for as long as both live; one at a time.
class FakeRegion {
public:
    /// Random pieces of random rows, some of which reach out of the bitmap; seed 0 gives an empty region.
    FakeRegion(BITMAPHANDLE* pBitmap, unsigned seed);
    ~FakeRegion();
    FakeRegion(const FakeRegion&) = delete;
    FakeRegion& operator=(const FakeRegion&) = delete;

    bool holds(R_INT row, R_INT column) const;

    int failAt = -1; ///< the question, from 0 on, that is answered with this
    R_INT answer = -77;
    int asked = 0;                         ///< questions
    int flipped = 0;                       ///< the rows were flipped this often; the pieces stay
    std::pair<R_INT, R_INT> scaledTo = {}; ///< the last size that it was scaled to

private:
    static FakeRegion& of(BITMAPHANDLE* pBitmap) { return *static_cast<FakeRegion*>(pBitmap->pRgnInfo); }
    R_INT next() { return asked++ == failAt ? answer : SUCCESS; }

    BITMAPHANDLE* bitmap_;
    R_INT top_ = 0; ///< the row of the first of rows_, which may lie outside
    std::vector<std::vector<R_SEGMENT>> rows_;
    RECT around_{};
    size_t most_ = 0;
};

} // namespace rv::test
