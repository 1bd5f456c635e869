/// Rows of a bitmap in another size, whichever way they are made.
#pragma once

#include "Kernel/Core/RowCursor.h"
#include "Kernel/Geometry/Resample.h"
#include "Kernel/Pixels/Pick.h"

#include <optional>

namespace rv {

/// A part of a bitmap, and the size it is to have.
struct SizeJob {
    RECT source; ///< stored rows and columns; not empty, and inside
    R_INT width; ///< at least 1
    R_INT height;

    R_INT columns() const noexcept { return source.right - source.left; }
    R_INT rows() const noexcept { return source.bottom - source.top; }
};

/// What a set of SIZE_ flags comes to for a bitmap and a size.
struct SizePlan {
    enum class Way { nearest, favorBlack, weighed };

    Way way = Way::nearest;
    Weighing weighing = Weighing::bilinear;
    bool byAlpha = false;
    R_INT bits = 8;       ///< of the new bitmap
    bool newGray = false; ///< which is made gray, of 8 bits
};
SizePlan planSize(BITMAPHANDLE* pBitmap, const SizeJob& job, R_UINT flags) noexcept;
/// The plan for pages that become gray.
inline constexpr SizePlan kPageToGray = {SizePlan::Way::weighed, Weighing::area, false, 8, true};

/// Makes a duplicate of pSrc's record, of the plan's depth, one of such an image. ERROR_FAILURE: no memory.
Status describeResized(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const SizePlan& plan) noexcept;
/// The format of rows that are made for pDst. Stored pixels of one depth are taken as they are, but indices that have
/// been weighed are those of pDst's palette, where it has one.
Status resizedFormat(const BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc, PixelFormat* format) noexcept;

/// The last one of the rows from 0 to y of a part of a picture: row y of the new one is written when it comes.
/// Row r of `old` is written floor((r + 1) * new / old) - floor(r * new / old) times.
constexpr R_INT emittedRow(R_INT y, R_INT oldHeight, R_INT newHeight) noexcept
{
    return static_cast<R_INT>(((R_INT64{y} + 1) * oldHeight - 1) / newHeight);
}

/// Rows that repeat and leave out pixels.
class NearestRows {
public:
    NearestRows(BITMAPHANDLE* pSrc, const SizeJob& job) noexcept;
    Status status() const noexcept;
    Status row(R_INT row, uint8_t* target) noexcept;

private:
    SizeJob job_;
    RowCursor rows_;
    RowPicker picker_;
    R_SIZE fetched_; // bytes of a source row
};

/// Rows of a page on which thin strokes are kept: each new pixel stands for a box of old ones, whose rows and columns
/// are those between two that nearest pixels are taken from, and is black where at least as many of them are as the
/// square root of their number, cut: a stroke that crosses the box.
class BlackRows {
public:
    /// black  the index that is black
    BlackRows(BITMAPHANDLE* pSrc, const SizeJob& job, unsigned black) noexcept;
    Status status() const noexcept;
    Status row(R_INT row, uint8_t* target) noexcept;

private:
    Status sumColumns(R_INT first, R_INT end) noexcept;
    void sumBoxes() noexcept;
    R_INT boxWidth(size_t column) const noexcept;

    SizeJob job_;
    RowCursor rows_;
    unsigned black_;
    size_t columns_;    // that are looked at: from a whole byte on
    RowBuffer borders_; // between boxes: job_.width + 1 of them
    RowBuffer counts_;  // of black pixels in each box
    RowBuffer pixels_;  // of a row, a byte each: 1 for black
    RowBuffer sums_;    // of such rows
};

/// The rows of one of these kinds, or of a resampler.
class ResizedRows {
public:
    /// Takes all memory at construction: some rows of either size. pSrc is accessed and walkable; target is the new
    /// rows' format, whose palette is used until the end.
    ResizedRows(BITMAPHANDLE* pSrc, const SizeJob& job, const SizePlan& plan, const PixelFormat& target) noexcept;
    /// ERROR_FAILURE: no memory. ERROR_FLOAT_NOT_SUPPORTED: samples of floating point cannot be weighed. Else what the
    /// source's format or cursor says.
    Status status() const noexcept;

    /// Whether a row is the same as the one above it, and need not be made.
    bool repeats(R_INT row) const noexcept;
    /// One row, in the bytes that hold its pixels; bits behind the last become 0. Any order gives the same pixels.
    Status row(R_INT row, uint8_t* target) noexcept;

private:
    SizeJob job_;
    std::optional<NearestRows> nearest_; // one of the three, or none that could be
    std::optional<BlackRows> black_;
    std::optional<Resampler> weighed_;
};

} // namespace rv
