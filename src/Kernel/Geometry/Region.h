/// The part of a bitmap that painting and combining may touch.
#pragma once

#include "Kernel/Base/System.h"
#include "Kernel/Pixels/RowBuffer.h"

namespace rv {

/// A rectangle of a bitmap in stored rows and columns, cut to the bitmap's region where it has one and the display
/// module speaks for it. Takes its memory at construction.
class Region {
public:
    /// The rectangle lies inside the bitmap.
    Region(BITMAPHANDLE* pBitmap, const RECT& rectangle) noexcept;

    /// ERROR_FAILURE no memory; what a hook answers.
    Status status() const noexcept { return status_; }
    /// Nothing is inside.
    bool empty() const noexcept;
    /// Whether every pixel of bounds() is inside.
    bool whole() const noexcept { return segments_ == nullptr; }
    const RECT& bounds() const noexcept { return bounds_; }
    /// The pieces of a row of bounds() that are inside: cut to bounds(), none of them empty; they hold until the next
    /// call.
    Status row(R_INT row, const R_SEGMENT*& segments, R_UINT& count) noexcept;

private:
    BITMAPHANDLE* bitmap_;
    DISDISPATCH hooks_;
    RECT bounds_;
    R_SEGMENT all_ = {};
    R_SEGMENT* segments_ = nullptr; // room for most_ of them
    R_UINT most_ = 0;
    RowBuffer room_;
    Status status_;
};

/// A bitmap's stored rows have been flipped: its region, which lies on them, turns with them. What the hook answers.
Status flipRegion(BITMAPHANDLE* pBitmap) noexcept;

/// Whether a bitmap has a region that the display module can turn.
bool turnsRegion(const BITMAPHANDLE* pBitmap) noexcept;
/// A bitmap's pixels are about to be turned clockwise, as they are stored, by hundredths of a degree: its region turns
/// along where it can. What the hook answers.
/// from, to  the point that they are turned about, and where it will lie in a bitmap of width x height
struct RegionPoint {
    float x;
    float y;
};
Status turnRegion(BITMAPHANDLE* pBitmap, R_INT angle, const RegionPoint& from, const RegionPoint& to, R_INT width,
                  R_INT height) noexcept;

} // namespace rv
