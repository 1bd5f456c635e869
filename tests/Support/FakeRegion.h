/// A display module whose regions are pieces of rows.
#pragma once

#include "R_Services.h"

#include <vector>

namespace rv::test {

/// Gives a bitmap a region, for as long as both live. Of several at a time the last one's bitmap must be the one that
/// is worked on.
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

    int asked = 0;   ///< questions
    int flipped = 0; ///< rows were flipped this often

private:
    R_INT next() { return asked++ == failAt ? answer : SUCCESS; }
    static FakeRegion* of(BITMAPHANDLE* pBitmap) { return static_cast<FakeRegion*>(pBitmap->pRgnInfo); }
    static R_INT flip(BITMAPHANDLE* pBitmap);
    static R_INT bounds(BITMAPHANDLE* pBitmap, RECT* pBounds, R_UINT* puMostSegments);
    static R_INT segments(BITMAPHANDLE* pBitmap, R_INT nRow, R_SEGMENT* pSegments, R_UINT* puSegments);

    BITMAPHANDLE* bitmap_;
    R_INT top_ = 0; ///< the row of the first of rows_, which may lie outside
    std::vector<std::vector<R_SEGMENT>> rows_;
};

} // namespace rv::test
