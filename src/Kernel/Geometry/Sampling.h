/// Pixels of one bitmap picked for another by where they lie: what rotation, shear and warp have in common.
///
/// Positions on a picture, in stored columns and rows, count in units of 2^-16 pixels: pixel (0, 0) reaches from 0 to
/// 65535, and its centre is at (32768, 32768).
#pragma once

#include "Kernel/Core/ColourValue.h"
#include "Kernel/Core/Progress.h"
#include "R_Bitmap.h"

namespace rv {

constexpr unsigned kPositionBits = 16;

struct Position {
    R_INT64 x;
    R_INT64 y;
};

/// Columns of a row: from first to the one before end, or none where the two are equal.
struct Span {
    R_INT first;
    R_INT end;
};

/// Where the centres of a new bitmap's pixels lie on an old one. Straight lines stay straight, and so does their order:
/// in each row the pixels that lie on the old picture stand side by side, and each of them between its neighbours, in x
/// as in y.
class Mapping {
public:
    Mapping() noexcept = default;
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    /// The pixels of a row that lie on the old picture: 0 <= x < its width, 0 <= y < its height, in whole pixels.
    virtual Span inside(R_INT row) const noexcept = 0;
    /// The position of one pixel, which lies on the old picture.
    virtual Position at(R_INT row, R_INT column) const noexcept = 0;
    /// Positions of `count` pixels from `column` on, all of which lie on the old picture, seen from `origin`; the
    /// differences fit. The same as from at().
    virtual void locate(R_INT row, R_INT column, size_t count, const Position& origin, int32_t* x,
                        int32_t* y) const noexcept = 0;
    /// Where positions grow by the same step from column to column: that step, and locate() is not asked. Else null.
    virtual const Position* step() const noexcept { return nullptr; }

protected:
    ~Mapping() = default; // nobody owns one by its base
};

/// A mapping that keeps parallels: position = origin + row * perRow, cut to whole units, + column * perColumn.
class LinearMapping final : public Mapping {
public:
    /// Units of 2^-28 pixels, in which rows are counted so that thousands of them still lie right.
    static constexpr unsigned kFineBits = 28;

    /// width, height  of the old picture
    /// columns        of the new one
    /// origin, perRow in units of 2^-28 pixels: the centre of the new picture's pixel (0, 0), and the step between rows
    LinearMapping(R_INT width, R_INT height, R_INT columns, const Position& origin, const Position& perRow,
                  const Position& perColumn) noexcept
        : width_(width), height_(height), columns_(columns), origin_(origin), perRow_(perRow), perColumn_(perColumn)
    {
    }
    Span inside(R_INT row) const noexcept override;
    Position at(R_INT row, R_INT column) const noexcept override;
    void locate(R_INT row, R_INT column, size_t count, const Position& origin, int32_t* x,
                int32_t* y) const noexcept override;
    const Position* step() const noexcept override { return &perColumn_; }

private:
    Position rowStart(R_INT row) const noexcept;

    R_INT width_;
    R_INT height_;
    R_INT columns_;
    Position origin_;
    Position perRow_;
    Position perColumn_;
};

struct Sampling {
    /// Weighs the four pixels whose centres lie around the point; those at the picture's edge go on beyond it. Indices
    /// are weighed as colours, colours by their alpha, gray by its significant bits. Else the pixel that holds the
    /// point counts.
    bool bilinear;
    StoredPixel fill; ///< where the old picture is not
};

/// The pixel that a fill colour stands for: opaque, or, with `alphaOnTop`, with the alpha in its top byte beside RGB.
StoredPixel fillPixel(BITMAPHANDLE* pBitmap, COLORREF crFill, bool alphaOnTop) noexcept;

/// Paints every pixel of pDst from pSrc, a bitmap of the same format. Both are accessed and walkable. Rows that are not
/// in memory are fetched in pieces, as many as a few megabytes hold. The progress has begun, and counts pDst's rows.
/// ERROR_FAILURE no memory; ERROR_FLOAT_NOT_SUPPORTED numbers of floating point to be weighed; those of formatOf(); a
/// store's own; a progress callback's answer.
Status sampleInto(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Mapping& mapping, const Sampling& how,
                  Progress& progress) noexcept;

} // namespace rv
