#include "Kernel/Geometry/ResizedRows.h"

#include "Kernel/Core/Checks.h"
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/PackedPixels.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <algorithm>

namespace rv {

namespace {

/// The column with which the bytes that are looked at begin: a whole one in every depth.
R_INT firstFetched(const SizeJob& job) noexcept { return job.source.left / 8 * 8; }

R_SIZE fetchedBytes(const SizeJob& job, R_INT bits) noexcept
{
    return packedBytes(R_INT64{job.source.right} - firstFetched(job), bits);
}

} // namespace

// --- Nearest

NearestRows::NearestRows(BITMAPHANDLE* pSrc, const SizeJob& job) noexcept
    : job_(job), rows_(pSrc, RowMode::read), picker_(pSrc->BitsPerPixel, job.source.left, job.source.right, job.width),
      fetched_(fetchedBytes(job, pSrc->BitsPerPixel))
{
}

Status NearestRows::status() const noexcept
{
    R_TRY(rows_.status());
    return picker_.ready() ? SUCCESS : ERROR_FAILURE;
}

Status NearestRows::row(R_INT row, uint8_t* target) noexcept
{
    const R_INT from = job_.source.top + emittedRow(row, job_.rows(), job_.height);
    R_TRY(rows_.openPart(from, firstFetched(job_), fetched_));
    picker_.pick(target, rows_.data());
    return SUCCESS;
}

// --- Favouring black

namespace {

/// The whole part of a square root.
R_INT64 squareRoot(R_INT64 square) noexcept
{
    R_UINT64 root = 0;
    for (R_UINT64 bit = R_UINT64{1} << 31; bit != 0; bit >>= 1)
        if ((root + bit) * (root + bit) <= static_cast<R_UINT64>(square)) root += bit;
    return static_cast<R_INT64>(root);
}

/// Rows whose black pixels a byte can count.
constexpr R_INT kSummed = 255;

} // namespace

BlackRows::BlackRows(BITMAPHANDLE* pSrc, const SizeJob& job, unsigned black) noexcept
    : job_(job), rows_(pSrc, RowMode::read), black_(black),
      columns_(static_cast<size_t>(job.source.right - firstFetched(job))),
      borders_((static_cast<R_UINT64>(job.width) + 1) * sizeof(R_INT)),
      counts_(static_cast<R_UINT64>(job.width) * sizeof(R_INT64)), pixels_(columns_), sums_(columns_)
{
    if (!borders_) return;
    auto* const borders = reinterpret_cast<R_INT*>(borders_.data());
    const R_INT start = job.source.left - firstFetched(job);
    for (R_INT column = 0; column <= job.width; ++column)
        borders[column] = start + static_cast<R_INT>(R_INT64{column} * job.columns() / job.width);
}

Status BlackRows::status() const noexcept
{
    R_TRY(rows_.status());
    return borders_ && counts_ && pixels_ && sums_ ? SUCCESS : ERROR_FAILURE;
}

/// A column at least: where the row grows, neighbours share one.
R_INT BlackRows::boxWidth(size_t column) const noexcept
{
    const auto* const borders = reinterpret_cast<const R_INT*>(borders_.data());
    return std::max(borders[column + 1] - borders[column], 1);
}

/// The black pixels of each column in some rows, kSummed at the most.
Status BlackRows::sumColumns(R_INT first, R_INT end) noexcept
{
    const simd::RowKernels& kernels = rowKernels();
    const auto zero = static_cast<uint8_t>(1 - black_), one = static_cast<uint8_t>(black_);
    for (R_INT y = first; y < end; ++y) {
        R_TRY(rows_.openPart(job_.source.top + y, firstFetched(job_), fetchedBytes(job_, 1)));
        uint8_t* const pixels = y == first ? sums_.data() : pixels_.data();
        kernels.expand1(pixels, rows_.data() + columnByte(firstFetched(job_), 1), columns_, zero, one);
        if (y != first)
            kernels.combine8[static_cast<size_t>(simd::Arithmetic::add)](sums_.data(), pixels, columns_, kSummed);
    }
    return SUCCESS;
}

void BlackRows::sumBoxes() noexcept
{
    const auto* const borders = reinterpret_cast<const R_INT*>(borders_.data());
    auto* const counts = reinterpret_cast<R_INT64*>(counts_.data());
    for (size_t column = 0; column < static_cast<size_t>(job_.width); ++column) {
        const uint8_t* const sums = sums_.data() + borders[column];
        const R_INT width = boxWidth(column);
        for (R_INT i = 0; i < width; ++i) counts[column] += sums[i];
    }
}

Status BlackRows::row(R_INT row, uint8_t* target) noexcept
{
    const R_INT last = emittedRow(row, job_.rows(), job_.height);
    const R_INT first = row == 0 ? 0 : std::min(emittedRow(row - 1, job_.rows(), job_.height) + 1, last);
    const auto width = static_cast<size_t>(job_.width);
    auto* const counts = reinterpret_cast<R_INT64*>(counts_.data());
    std::fill_n(counts, width, 0);
    for (R_INT64 y = first; y <= last; y += kSummed) {
        R_TRY(sumColumns(static_cast<R_INT>(y), static_cast<R_INT>(std::min<R_INT64>(y + kSummed, R_INT64{last} + 1))));
        sumBoxes();
    }
    const R_INT narrow = std::max(job_.columns() / job_.width, 1); // the others are wider by one
    const R_INT64 height = R_INT64{last} - first + 1;
    const R_INT64 needed[2] = {squareRoot(narrow * height), squareRoot((R_INT64{narrow} + 1) * height)};
    putEachPixel<1>(target, width, [&](size_t column) {
        const bool black = counts[column] >= needed[boxWidth(column) - narrow];
        return R_UINT64{black} ^ (1 - black_);
    });
    return SUCCESS;
}

// --- All together

namespace {

/// The darker one of a gray page's two indices; one without an entry is black.
unsigned blackIndex(const BITMAPHANDLE* pPage) noexcept
{
    const auto level = [pPage](R_UINT i) { return i < readableColors(pPage) ? pPage->pPalette[i].rgbRed : 0; };
    return level(1) < level(0) ? 1 : 0;
}

} // namespace

ResizedRows::ResizedRows(BITMAPHANDLE* pSrc, const SizeJob& job, const SizePlan& plan,
                         const PixelFormat& target) noexcept
    : job_(job)
{
    if (plan.way == SizePlan::Way::nearest)
        nearest_.emplace(pSrc, job);
    else if (plan.way == SizePlan::Way::favorBlack)
        black_.emplace(pSrc, job, blackIndex(pSrc));
    else if ((pSrc->Flags & FLAG_FLOAT) == 0)
        weighed_.emplace(pSrc, Resampler::Job{job.source, job.width, job.height, plan.weighing, plan.byAlpha}, target);
}

Status ResizedRows::status() const noexcept
{
    if (nearest_) return nearest_->status();
    if (black_) return black_->status();
    return weighed_ ? weighed_->status() : Status(ERROR_FLOAT_NOT_SUPPORTED);
}

bool ResizedRows::repeats(R_INT row) const noexcept
{
    if (weighed_ || row == 0) return false;
    return emittedRow(row, job_.rows(), job_.height) == emittedRow(row - 1, job_.rows(), job_.height);
}

Status ResizedRows::row(R_INT row, uint8_t* target) noexcept
{
    return nearest_ ? nearest_->row(row, target) : black_ ? black_->row(row, target) : weighed_->row(row, target);
}

} // namespace rv
