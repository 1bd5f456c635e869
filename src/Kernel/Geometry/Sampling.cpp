// A new picture is painted in bands of rows. What lies beside the old picture is filled first; the rest goes tile by
// tile, each of which looks at a small piece of the old picture. Such a piece is used where it lies, or copied
// together: from rows that are not in memory, in another form, or where pixels beside the picture are looked for.

#include "Kernel/Geometry/Sampling.h"

#include "Kernel/Core/RowCursor.h"
#include "Kernel/Geometry/PixelPicker.h"
#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/FillRow.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

constexpr R_INT64 kPixel = R_INT64{1} << kPositionBits;

/// A tile of the new picture whose piece of the old one stays near.
constexpr R_INT kNearRows = 64;
constexpr R_INT nearColumns(R_INT bits) noexcept { return std::clamp(1024 / bits, 128, 1024); }
/// Bytes for a piece that is copied together: from memory, and from elsewhere, where fetching twice is dear.
constexpr R_UINT64 kNearBytes = R_UINT64{512} << 10;
constexpr R_UINT64 kFarBytes = R_UINT64{4} << 20;
/// Bytes for a band of a new picture whose rows are not in memory, and the most rows of one that reads from elsewhere.
constexpr R_UINT64 kBandBytes = R_UINT64{16} << 20;
constexpr R_INT kFarRows = 2048;
/// Rows and columns of a piece: positions on it have 32 bits.
constexpr R_INT64 kPieceSide = R_INT64{1} << (31 - kPositionBits);

/// Rows so many bytes apart share a few sets of the caches.
constexpr R_UINT kCrowded = 512;

constexpr R_INT64 wholePixels(R_INT64 position) noexcept { return position >> kPositionBits; }

/// Rows and columns of a picture; right and bottom stand behind the last ones.
struct Area {
    R_INT64 left, top, right, bottom;

    R_INT64 columns() const noexcept { return right - left; }
    R_INT64 rows() const noexcept { return bottom - top; }
    bool empty() const noexcept { return left >= right; }
};

/// A piece of the old picture: pixel (left, top) is the first of `first`.
struct Piece {
    Area area;
    const uint8_t* first;
    ptrdiff_t pitch;
};

class Painter {
public:
    Painter(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Mapping& mapping, const Sampling& how) noexcept
        : target_(pDst), source_(pSrc), mapping_(mapping), picker_(pSrc, how.bilinear),
          targetRows_(pDst, RowMode::write), sourceRows_(pSrc, RowMode::read), fill_(how.fill)
    {
    }

    Status run(Progress& progress) noexcept
    {
        R_TRY(picker_.status());
        R_TRY(targetRows_.status());
        R_TRY(sourceRows_.status());
        R_TRY(takeBuffers());
        for (R_INT row = 0; row < target_->Height; row += bandRows_) {
            const R_INT end = std::min(bandRows_, target_->Height - row) + row;
            R_TRY(paintBand(row, end));
            for (R_INT done = row; done < end; ++done) {
                if (!targetRows_.direct()) R_TRY(writeRow(done, row));
                R_TRY(progress.step());
            }
        }
        return SUCCESS;
    }

private:
    /// How far from a point pixels are looked at.
    R_INT64 around() const noexcept { return picker_.bilinear() ? kPixel / 2 : 0; }
    bool copiesAll() const noexcept { return !sourceRows_.direct() || picker_.loosens(); }
    size_t bytesOf(R_INT64 pixels) const noexcept
    {
        return static_cast<size_t>(packedBytes(pixels, target_->BitsPerPixel));
    }

    Status takeBuffers() noexcept
    {
        const R_UINT64 rowBytes = target_->BytesPerLine;
        bandRows_ = std::min(sourceRows_.direct() ? kNearRows : kFarRows, target_->Height);
        if (!targetRows_.direct()) {
            const R_UINT64 fit = std::max<R_UINT64>(kBandBytes / std::max<R_UINT64>(rowBytes, 1), 8);
            bandRows_ = static_cast<R_INT>(std::min<R_UINT64>(fit, static_cast<R_UINT64>(bandRows_)));
            band_ = RowBuffer(rowBytes * static_cast<R_UINT64>(bandRows_));
            if (!band_) return ERROR_FAILURE;
        }
        spans_ = RowBuffer(sizeof(Span) * static_cast<R_UINT64>(bandRows_));
        fillRow_ = RowBuffer(rowBytes);
        pieceBytes_ = sourceRows_.direct() ? kNearBytes : kFarBytes;
        piece_ = RowBuffer(pieceBytes_ + kPickSlack);
        line_ = RowBuffer(picker_.loosens() ? pieceBytes_ + kSampleSlack : 0); // no row of a piece is longer
        if (!spans_ || !fillRow_ || !piece_ || !line_) return ERROR_FAILURE;
        fillRow(fillRow_.data(), rowBytes, target_->Width, target_->BitsPerPixel, fill_.bits);
        return SUCCESS;
    }

    uint8_t* targetRow(R_INT64 row) const noexcept
    {
        return targetRows_.direct() ? targetRows_.row(row) : band_.data() + (row - bandTop_) * target_->BytesPerLine;
    }
    Span& span(R_INT64 row) const noexcept { return reinterpret_cast<Span*>(spans_.data())[row - bandTop_]; }

    Status writeRow(R_INT row, R_INT bandTop) noexcept
    {
        R_TRY(targetRows_.open(row));
        std::memcpy(targetRows_.data(), band_.data() + R_INT64{row - bandTop} * target_->BytesPerLine,
                    target_->BytesPerLine);
        return targetRows_.commit();
    }

    Status paintBand(R_INT top, R_INT bottom) noexcept
    {
        bandTop_ = top;
        R_INT64 left = target_->Width, right = 0;
        for (R_INT row = top; row < bottom; ++row) {
            span(row) = mapping_.inside(row);
            fillBeside(row);
            if (span(row).first == span(row).end) continue;
            left = std::min<R_INT64>(left, span(row).first);
            right = std::max<R_INT64>(right, span(row).end);
        }
        const R_INT64 columns = sourceRows_.direct() ? nearColumns(target_->BitsPerPixel) : target_->Width;
        for (left &= ~R_INT64{7}; left < right; left += columns)
            R_TRY(paintTile({left, top, std::min(left + columns, right), bottom}));
        return SUCCESS;
    }

    void fillBeside(R_INT row) noexcept
    {
        const R_INT64 bits = target_->BitsPerPixel, rowBits = R_INT64{target_->BytesPerLine} * 8;
        const Span inside = span(row);
        uint8_t* const pixels = targetRow(row);
        const auto fillBits = [&](R_INT64 from, R_INT64 end) noexcept {
            copyBits(pixels, from, fillRow_.data(), from, end - from);
        };
        fillBits(0, inside.first * bits);
        fillBits(inside.end * bits, rowBits);
    }

    /// What of a row is in a tile.
    Span within(const Area& tile, R_INT64 row) const noexcept
    {
        const Span inside = span(row);
        const auto first = static_cast<R_INT>(std::max<R_INT64>(inside.first, tile.left));
        return {first, std::max(first, static_cast<R_INT>(std::min<R_INT64>(inside.end, tile.right)))};
    }

    /// What a tile looks at. A row's points lie on a line, and so between the first and the last of them, but for what
    /// is rounded where steps are not whole units.
    Area areaOf(const Area& tile) const noexcept
    {
        Area area = {INT64_MAX, INT64_MAX, INT64_MIN, INT64_MIN};
        const R_INT64 half = around() + (mapping_.step() == nullptr ? 1 : 0);
        for (R_INT64 row = tile.top; row < tile.bottom; ++row) {
            const Span columns = within(tile, row);
            if (columns.first == columns.end) continue;
            for (const R_INT column : {columns.first, columns.end - 1}) {
                const Position at = mapping_.at(static_cast<R_INT>(row), column);
                area.left = std::min(area.left, wholePixels(at.x - half));
                area.top = std::min(area.top, wholePixels(at.y - half));
                area.right = std::max(area.right, wholePixels(at.x + half) + 1);
                area.bottom = std::max(area.bottom, wholePixels(at.y + half) + 1);
            }
        }
        if (area.empty()) return area;
        if (!picker_.bilinear())
            area = {std::max<R_INT64>(area.left, 0), std::max<R_INT64>(area.top, 0),
                    std::min<R_INT64>(area.right, source_->Width), std::min<R_INT64>(area.bottom, source_->Height)};
        area.left &= ~R_INT64{7}; // eight pixels begin with a byte
        return area;
    }

    /// Whether an area of the old picture can be looked at where it is: there are other rows behind it, whose bytes may
    /// be read.
    bool liesReady(const Area& area) const noexcept
    {
        return !copiesAll() && area.left >= 0 && area.top >= 0 && area.right <= source_->Width &&
               area.bottom < source_->Height && source_->BytesPerLine >= kPickSlack &&
               source_->BytesPerLine < kPieceSide && source_->BytesPerLine % kCrowded != 0;
    }
    R_UINT64 pitchOf(const Area& area) const noexcept
    {
        const auto pixels = static_cast<R_UINT64>((area.columns() + 7) / 8 * 8) + kSampleSlack;
        return (pixels * picker_.pixelBits() / 8 + 31) / 32 * 32;
    }
    bool fits(const Area& area) const noexcept
    {
        if (area.columns() >= kPieceSide || area.rows() >= kPieceSide) return false;
        return liesReady(area) || pitchOf(area) * static_cast<R_UINT64>(area.rows()) <= pieceBytes_;
    }

    Status paintTile(const Area& tile) noexcept
    {
        const Area area = areaOf(tile);
        if (area.empty()) return SUCCESS;
        if (!fits(area)) return paintHalves(tile);
        Piece piece = {area, piece_.data(), static_cast<ptrdiff_t>(pitchOf(area))};
        if (liesReady(area))
            piece = {area, sourceRows_.row(area.top) + columnByte(area.left, source_->BitsPerPixel),
                     static_cast<ptrdiff_t>(source_->BytesPerLine)};
        else
            R_TRY(fetch(area));
        for (R_INT64 row = tile.top; row < tile.bottom; ++row)
            paintSpan(static_cast<R_INT>(row), within(tile, row), piece);
        return SUCCESS;
    }

    Status paintHalves(const Area& tile) noexcept
    {
        Area one = tile, other = tile;
        if (tile.rows() > tile.columns())
            one.bottom = other.top = tile.top + tile.rows() / 2;
        else
            one.right = other.left = tile.left + (tile.columns() > 16 ? tile.columns() / 16 * 8 : tile.columns() / 2);
        R_TRY(paintTile(one));
        return paintTile(other);
    }

    void paintSpan(R_INT row, Span columns, const Piece& piece) noexcept
    {
        const Position origin = {piece.area.left * kPixel, piece.area.top * kPixel};
        const Position* const step = mapping_.step();
        constexpr auto most = static_cast<R_INT>(PixelPicker::kMost);
        int32_t xs[most], ys[most];
        uint8_t* const pixels = targetRow(row);
        while (columns.first < columns.end) {
            // So that the next ones begin with a byte.
            const R_INT count = std::min(most - columns.first % 8, columns.end - columns.first);
            PixelPositions at;
            if (step != nullptr) {
                const Position first = mapping_.at(row, columns.first);
                at.x = static_cast<int32_t>(first.x - origin.x);
                at.y = static_cast<int32_t>(first.y - origin.y);
                at.stepX = static_cast<int32_t>(step->x);
                at.stepY = static_cast<int32_t>(step->y);
            } else {
                mapping_.locate(row, columns.first, static_cast<size_t>(count), origin, xs, ys);
                keepWithin(xs, static_cast<size_t>(count), piece.area.columns());
                keepWithin(ys, static_cast<size_t>(count), piece.area.rows());
                at.xs = xs;
                at.ys = ys;
            }
            picker_.take(pixels, columns.first, piece.first, piece.pitch, at, static_cast<size_t>(count));
            columns.first += count;
        }
    }

    /// Whatever a mapping reckons, no pixel beside the piece is looked at.
    void keepWithin(int32_t* positions, size_t count, R_INT64 pixels) const noexcept
    {
        const auto least = static_cast<int32_t>(around());
        const auto most = static_cast<int32_t>(pixels * kPixel - 1 - around());
        for (size_t i = 0; i < count; ++i) positions[i] = std::clamp(positions[i], least, most);
    }

    /// Copies a piece together. Beside the picture its edge goes on.
    Status fetch(const Area& area) noexcept
    {
        const size_t pitch = static_cast<size_t>(pitchOf(area)), pixelBits = picker_.pixelBits();
        const R_INT64 left = std::max<R_INT64>(area.left, 0), right = std::min<R_INT64>(area.right, source_->Width);
        uint8_t* row = piece_.data();
        for (R_INT64 y = area.top; y < area.bottom; ++y, row += pitch) {
            const auto from = static_cast<R_INT>(std::clamp<R_INT64>(y, 0, source_->Height - 1));
            R_TRY(fetchRow(row + static_cast<size_t>(left - area.left) * pixelBits / 8, from, left, right - left));
            // Where pixels lie beside the picture, they have whole bytes.
            const size_t bytes = pixelBits / 8;
            if (area.left < 0) std::memcpy(row + (7 * bytes), row + 8 * bytes, bytes);
            if (area.right > right) {
                uint8_t* const behind = row + static_cast<size_t>(right - area.left) * bytes;
                std::memcpy(behind, behind - bytes, bytes);
            }
        }
        return SUCCESS;
    }

    Status fetchRow(uint8_t* to, R_INT row, R_INT64 column, R_INT64 pixels) noexcept
    {
        const size_t bytes = bytesOf(pixels);
        R_TRY(sourceRows_.openPart(row, static_cast<R_INT>(column), bytes));
        const uint8_t* from = sourceRows_.data() + columnByte(column, source_->BitsPerPixel);
        if (picker_.loosens()) { // which looks a little further
            std::memcpy(line_.data(), from, bytes);
            from = line_.data();
        }
        picker_.prepare(to, from, static_cast<size_t>(pixels));
        return SUCCESS;
    }

    BITMAPHANDLE* target_;
    BITMAPHANDLE* source_;
    const Mapping& mapping_;
    PixelPicker picker_;
    RowCursor targetRows_;
    RowCursor sourceRows_;
    StoredPixel fill_;
    RowBuffer band_;  // of target rows that are not in memory
    RowBuffer spans_; // of the band's rows
    RowBuffer fillRow_;
    RowBuffer piece_;
    RowBuffer line_;
    R_UINT64 pieceBytes_ = 0;
    R_INT bandRows_ = 0;
    R_INT bandTop_ = 0;
};

// --- Linear mappings

/// The numbers k for which 0 <= start + k * step < limit, cut to those from 0 to count.
Span between(R_INT64 start, R_INT64 step, R_INT64 limit, R_INT64 count) noexcept
{
    if (step < 0) { // seen from the other end
        start = limit - 1 - start;
        step = -step;
    }
    const auto firstAtLeast = [&](R_INT64 bound) noexcept -> R_INT64 { // k whose place is at or behind it
        if (start >= bound) return 0;
        return step == 0 ? count : std::min((bound - start + step - 1) / step, count);
    };
    return {static_cast<R_INT>(firstAtLeast(0)), static_cast<R_INT>(firstAtLeast(limit))};
}

} // namespace

Position LinearMapping::rowStart(R_INT row) const noexcept
{
    constexpr unsigned finer = kFineBits - kPositionBits;
    return {(origin_.x + row * perRow_.x) >> finer, (origin_.y + row * perRow_.y) >> finer};
}

Span LinearMapping::inside(R_INT row) const noexcept
{
    const Position start = rowStart(row);
    const Span across = between(start.x, perColumn_.x, width_ * kPixel, columns_);
    const Span down = between(start.y, perColumn_.y, height_ * kPixel, columns_);
    const R_INT first = std::max(across.first, down.first);
    return {first, std::max(first, std::min(across.end, down.end))};
}

Position LinearMapping::at(R_INT row, R_INT column) const noexcept
{
    const Position start = rowStart(row);
    return {start.x + column * perColumn_.x, start.y + column * perColumn_.y};
}

void LinearMapping::locate(R_INT row, R_INT column, size_t count, const Position& origin, int32_t* x,
                           int32_t* y) const noexcept
{
    Position place = at(row, column);
    for (size_t i = 0; i < count; ++i, place.x += perColumn_.x, place.y += perColumn_.y) {
        x[i] = static_cast<int32_t>(place.x - origin.x);
        y[i] = static_cast<int32_t>(place.y - origin.y);
    }
}

StoredPixel fillPixel(BITMAPHANDLE* pBitmap, COLORREF crFill, bool alphaOnTop) noexcept
{
    constexpr uint8_t opaque = 255;
    return alphaOnTop ? pixelOfColour(pBitmap, rgbBits(crFill), static_cast<uint8_t>(crFill >> 24))
                      : pixelOfColour(pBitmap, crFill, opaque);
}

Status sampleInto(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, const Mapping& mapping, const Sampling& how,
                  Progress& progress) noexcept
{
    return Painter(pDst, pSrc, mapping, how).run(progress);
}

} // namespace rv
