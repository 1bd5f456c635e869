#include "Kernel/Geometry/ResizedRows.h"

#include "Kernel/Core/Checks.h"
#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/PackedPixels.h"

#include <algorithm>
#include <bit>
#include <cstring>

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

/// Bits set by halves, quarters and so on: most words of a page have none, and the others need no table.
unsigned bitsSet(uint64_t word) noexcept
{
    if (word == 0) return 0;
    word -= word >> 1 & 0x5555555555555555u;
    word = (word & 0x3333333333333333u) + (word >> 2 & 0x3333333333333333u);
    word = (word + (word >> 4)) & 0x0F0F0F0F0F0F0F0Fu;
    return static_cast<unsigned>(word * 0x0101010101010101u >> 56);
}

/// 64 bits of a row from a byte on; zeros behind its end.
uint64_t wordAt(const uint8_t* row, size_t byte, size_t rowBytes) noexcept
{
    if (rowBytes - byte >= 8) return bits::loadBigEndian(row + byte);
    uint64_t word = 0;
    for (size_t i = 0; byte + i < rowBytes; ++i) word |= uint64_t{row[byte + i]} << (56 - 8 * i);
    return word;
}

} // namespace

BlackRows::BlackRows(BITMAPHANDLE* pSrc, const SizeJob& job, unsigned black) noexcept
    : job_(job), rows_(pSrc, RowMode::read), rowBytes_(static_cast<size_t>(packedBytes(job.source.right, 1))),
      white_(black != 0 ? 0 : ~uint64_t{0}), borders_((R_UINT64{static_cast<R_UINT>(job.width)} + 1) * sizeof(R_INT)),
      counts_(R_UINT64{static_cast<R_UINT>(job.width)} * sizeof(R_INT64))
{
    if (!borders_ || !counts_) return;
    auto* const borders = reinterpret_cast<R_INT*>(borders_.data());
    for (R_INT column = 0; column <= job.width; ++column)
        borders[column] = job.source.left + static_cast<R_INT>(R_INT64{column} * job.columns() / job.width);
}

Status BlackRows::status() const noexcept
{
    R_TRY(rows_.status());
    return borders_ && counts_ ? SUCCESS : ERROR_FAILURE;
}

/// A column at least: where the row grows, neighbours share one.
R_INT BlackRows::boxWidth(size_t column) const noexcept
{
    const auto* const borders = reinterpret_cast<const R_INT*>(borders_.data());
    return std::max(borders[column + 1] - borders[column], 1);
}

void BlackRows::addBlack(const uint8_t* row) noexcept
{
    constexpr R_INT atOnce = 56; // of a word's bits, from anywhere in its first byte on
    const auto* const borders = reinterpret_cast<const R_INT*>(borders_.data());
    auto* const counts = reinterpret_cast<R_INT64*>(counts_.data());
    for (size_t column = 0; column < static_cast<size_t>(job_.width); ++column) {
        R_INT first = borders[column];
        for (R_INT left = boxWidth(column); left > 0; left -= atOnce, first += atOnce) {
            const uint64_t word = wordAt(row, static_cast<size_t>(first / 8), rowBytes_) ^ white_;
            counts[column] += bitsSet(word << first % 8 >> (64 - std::min(left, atOnce)));
        }
    }
}

Status BlackRows::row(R_INT row, uint8_t* target) noexcept
{
    const R_INT last = emittedRow(row, job_.rows(), job_.height);
    const R_INT first = row == 0 ? 0 : std::min(emittedRow(row - 1, job_.rows(), job_.height) + 1, last);
    const auto width = static_cast<size_t>(job_.width);
    auto* const counts = reinterpret_cast<R_INT64*>(counts_.data());
    std::fill_n(counts, width, 0);
    for (R_INT y = first; y <= last; ++y) {
        R_TRY(rows_.openPart(job_.source.top + y, firstFetched(job_), fetchedBytes(job_, 1)));
        addBlack(rows_.data());
    }
    const R_INT narrow = std::max(job_.columns() / job_.width, 1); // the others are wider by one
    const R_INT64 height = R_INT64{last} - first + 1;
    const R_INT64 needed[2] = {squareRoot(narrow * height), squareRoot((R_INT64{narrow} + 1) * height)};
    putEachPixel<1>(target, width, [&](size_t column) {
        const bool black = counts[column] >= needed[boxWidth(column) - narrow];
        return R_UINT64{black} ^ (white_ & 1);
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
    else
        weighed_.emplace(pSrc, Resampler::Job{job.source, job.width, job.height, plan.weighing, plan.byAlpha}, target);
}

Status ResizedRows::status() const noexcept
{
    return nearest_ ? nearest_->status() : black_ ? black_->status() : weighed_->status();
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
