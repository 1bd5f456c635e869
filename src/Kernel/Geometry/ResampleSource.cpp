#include "Kernel/Geometry/ResampleSource.h"

#include "Kernel/Core/BitmapFormat.h"
#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/Luminance.h"
#include "R_Colour.h"

#include <algorithm>
#include <cstring>

namespace rv {

namespace {

constexpr size_t kQuad = sizeof(RGBQUAD);

/// How many values a significant sample has, and where it lies.
struct Significance {
    unsigned low;
    unsigned top;

    explicit Significance(const PixelFormat& format) noexcept
    {
        const R_INT high = std::clamp(format.highBit, 0, format.bits - 1);
        low = static_cast<unsigned>(std::clamp(format.lowBit, 0, high));
        top = (2u << (static_cast<unsigned>(high) - low)) - 1;
    }
    bool wholeWord() const noexcept { return top == 65535; }
};

/// Whether bytes of a format are levels of gray.
bool holdsLevels(const PixelFormat& format) noexcept
{
    if (format.bits != 8 || format.gray) return format.bits == 8;
    for (R_UINT i = 0; i < 256; ++i) {
        if (i >= format.colours) return false;
        const RGBQUAD& entry = format.palette[i];
        if (entry.rgbRed != i || entry.rgbGreen != i || entry.rgbBlue != i) return false;
    }
    return true;
}

} // namespace

/// The ways of a row, which know the inside.
struct ResampleSource::Ways {
    static void takeLevels(ResampleSource& rows, const uint8_t* row) noexcept
    {
        const auto width = static_cast<size_t>(rows.width_);
        uint8_t* const levels = rows.taken_.data();
        rows.unpack_(levels, row, width);
        for (size_t x = 0; x < width; ++x) levels[x] = rows.levelOf_[levels[x]];
    }
    static void putLevels(ResampleSource& rows, uint8_t* target) noexcept
    {
        const auto width = static_cast<size_t>(rows.newWidth_);
        uint8_t* const levels = rows.made_.data();
        for (size_t x = 0; x < width; ++x) levels[x] = rows.indexOf_[levels[x]];
        rows.pack_(target, levels, width);
    }

    static void takeColours(ResampleSource& rows, const uint8_t* row) noexcept
    {
        rows.reader_.read(reinterpret_cast<RGBQUAD*>(rows.taken_.data()), row, static_cast<size_t>(rows.width_));
    }
    static void putNearest(ResampleSource& rows, uint8_t* target) noexcept
    {
        const auto width = static_cast<size_t>(rows.newWidth_);
        uint8_t* const indices = rows.made_.data() + width * kQuad;
        rows.nearest_.find(indices, reinterpret_cast<const RGBQUAD*>(rows.made_.data()), width);
        rows.pack_(target, indices, width);
    }
    static void putColours(ResampleSource& rows, uint8_t* target) noexcept
    {
        const auto* const colours = reinterpret_cast<const RGBQUAD*>(rows.made_.data());
        rows.writer_.write(target, colours, static_cast<size_t>(rows.newWidth_));
    }

    static void takeGray(ResampleSource& rows, const uint8_t* row) noexcept
    {
        const auto width = static_cast<size_t>(rows.width_);
        if (rows.packed_.unpack != nullptr)
            rows.packed_.unpack(rows.taken_.data(), row, width);
        else
            std::memcpy(rows.taken_.data(), row, 2 * width);
        const Significance bits(rows.from_);
        auto* const samples = reinterpret_cast<uint16_t*>(rows.taken_.data());
        const unsigned sign = rows.sign_;
        for (size_t x = 0; x < width; ++x)
            samples[x] = static_cast<uint16_t>((unsigned{samples[x]} >> bits.low & bits.top) ^ sign);
    }
    static void putGray(ResampleSource& rows, uint8_t* target) noexcept
    {
        const auto width = static_cast<size_t>(rows.newWidth_);
        const Significance bits(rows.to_);
        auto* const samples = reinterpret_cast<uint16_t*>(rows.made_.data());
        const unsigned sign = rows.sign_;
        for (size_t x = 0; x < width; ++x) samples[x] = static_cast<uint16_t>((samples[x] ^ sign) << bits.low);
        if (rows.packed_.pack == nullptr) {
            std::memcpy(target, samples, 2 * width);
            return;
        }
        if (width % 2 != 0) samples[width] = 0; // its bits share the last byte
        rows.packed_.pack(rows.made_.data() + 2 * (width + kSampleSlack), rows.made_.data(), width);
        std::memcpy(target, rows.made_.data() + 2 * (width + kSampleSlack), packedBytes(rows.newWidth_, rows.to_.bits));
    }

    static void takeFives(ResampleSource& rows, const uint8_t* row) noexcept
    {
        rows.packed_.unpack(rows.taken_.data(), row, static_cast<size_t>(rows.width_));
    }
    static void putFives(ResampleSource& rows, uint8_t* target) noexcept
    {
        rows.packed_.pack(target, rows.made_.data(), static_cast<size_t>(rows.newWidth_));
    }
};

ResampleSource::ResampleSource(BITMAPHANDLE* pSrc, const Resampler::Job& job, const PixelFormat& target) noexcept
    : to_(target), cursor_(pSrc, RowMode::read), left_(job.source.left), firstRow_(job.source.top),
      width_(job.source.right - job.source.left), height_(job.source.bottom - job.source.top), newWidth_(job.width),
      newHeight_(job.height), byAlpha_(job.byAlpha), status_(formatOf(pSrc, &from_))
{
    if (!status_.ok()) return;
    if (from_.bits == 8 && from_.gray && to_.bits > 8) status_ = takeTables(pSrc, &from_);
    if (status_.ok()) status_ = cursor_.status();
    if (!status_.ok()) return;
    signed_ = (pSrc->Flags & FLAG_SIGNED) != 0;
    choose();
    byAlpha_ = byAlpha_ && channels_ == 4 && take_ == nullptr;
    status_ = takeMemory();
}

void ResampleSource::choose() noexcept
{
    if (from_.bits <= 8) {
        chooseIndices();
    } else if (to_.bits != from_.bits || to_.gray != from_.gray) {
        take_ = Ways::takeColours;
    } else if (from_.gray) {
        chooseGray();
    } else {
        packed_ = sampleFormatOf(from_.bits, false);
        channels_ = packed_.samplesPerPixel;
        wide_ = packed_.sampleBytes == 2;
        top_ = wide_ ? 65535 : 255;
        if (from_.bits != 16) return;
        top_ = 31;
        take_ = Ways::takeFives;
        put_ = Ways::putFives;
    }
    if (take_ != Ways::takeColours) return;
    channels_ = kQuad;
    reader_ = FormatReader(from_);
    if (to_.bits > 8) {
        writer_ = FormatWriter(to_);
        put_ = Ways::putColours;
    } else {
        pack_ = packIndicesFor(to_.bits);
        nearest_ = NearestIndex(to_.palette, to_.colours);
        put_ = Ways::putNearest;
    }
}

/// Whether all indices are gray; the levels then.
bool ResampleSource::mapsGray() noexcept
{
    const unsigned count = 1u << from_.bits;
    for (unsigned i = 0; i < count; ++i) {
        const RGBQUAD colour = reader_.colours()[i];
        if (colour.rgbRed != colour.rgbGreen || colour.rgbRed != colour.rgbBlue) return false;
        levelOf_[i] = colour.rgbRed;
    }
    return true;
}

void ResampleSource::chooseIndices() noexcept
{
    reader_ = FormatReader(from_);
    const bool toLevels = from_.bits == 1 && holdsLevels(to_);
    if (to_.bits > 8 || (!toLevels && from_.bits != to_.bits)) {
        take_ = Ways::takeColours;
        return;
    }
    const unsigned count = 1u << from_.bits;
    const bool bare = from_.palette == nullptr && !from_.hasTable(); // indices stand for themselves
    if (bare)
        for (unsigned i = 0; i < count; ++i) levelOf_[i] = static_cast<uint8_t>(i * 255 / (count - 1));
    else if (!mapsGray() && !toLevels)
        take_ = Ways::takeColours;
    if (take_ != nullptr) return;
    unpack_ = unpackIndicesFor(from_.bits);
    take_ = Ways::takeLevels;
    if (toLevels) {
        for (unsigned i = 0; i < count && !bare; ++i) levelOf_[i] = luminance(reader_.colours()[i]);
        return;
    }
    pack_ = packIndicesFor(to_.bits);
    put_ = Ways::putLevels;
    bool plain = from_.bits == 8;
    for (R_INT i = 0; i < 256; ++i) {
        const R_UINT index = bare ? (static_cast<unsigned>(i) * (count - 1) + 127) / 255
                                  : R_FindPaletteIndex(to_.palette, to_.colours, i, i, i);
        indexOf_[i] = static_cast<uint8_t>(index);
        plain = plain && levelOf_[i] == i && indexOf_[i] == i;
    }
    if (!plain) return;
    take_ = nullptr;
    put_ = nullptr;
}

void ResampleSource::chooseGray() noexcept
{
    const Significance bits(from_);
    packed_ = sampleFormatOf(from_.bits, true);
    wide_ = true;
    top_ = bits.top;
    if (signed_) sign_ = (top_ + 1) / 2;
    if (from_.bits == 16 && bits.wholeWord() && Significance(to_).wholeWord() && sign_ == 0) return;
    take_ = Ways::takeGray;
    put_ = Ways::putGray;
}

Status ResampleSource::takeMemory() noexcept
{
    const auto width = static_cast<R_UINT64>(width_), newWidth = static_cast<R_UINT64>(newWidth_);
    const R_UINT64 unit = channels_ * (wide_ ? 2u : 1u);
    if ((static_cast<R_INT64>(left_) * from_.bits & 7) != 0 || from_.bits == 12) { // of 12 bits, pairs are read
        shifted_ = RowBuffer(packedBytes(width_, from_.bits) + kSampleSlack);
        if (!shifted_) return ERROR_FAILURE;
    }
    if (take_ != nullptr) {
        taken_ = RowBuffer(unit * (width + 8) + kSampleSlack);
        if (!taken_) return ERROR_FAILURE;
    }
    if (put_ != nullptr) { // with room for indices, or for packed pixels, behind them
        made_ = RowBuffer((unit + 2) * (newWidth + 8) + 4 * kSampleSlack);
        if (!made_) return ERROR_FAILURE;
    }
    return put_ != Ways::putNearest || nearest_ ? Status(SUCCESS) : Status(ERROR_FAILURE);
}

Status ResampleSource::readBits(R_INT row, const uint8_t** bits) noexcept
{
    const R_INT64 firstBit = static_cast<R_INT64>(left_) * from_.bits;
    const auto bytes = static_cast<R_SIZE>(((firstBit & 7) + static_cast<R_INT64>(width_) * from_.bits + 7) / 8);
    R_TRY(cursor_.openPart(firstRow_ + row, left_, bytes));
    const uint8_t* const data = cursor_.data() + (firstBit >> 3);
    *bits = data;
    if (!shifted_) return SUCCESS;
    copyBits(shifted_.data(), 0, data, firstBit & 7, static_cast<R_INT64>(width_) * from_.bits);
    *bits = shifted_.data();
    return SUCCESS;
}

Status ResampleSource::read(R_INT row, const uint8_t** samples) noexcept
{
    R_TRY(readBits(row, samples));
    if (take_ == nullptr) return SUCCESS;
    take_(*this, *samples);
    *samples = taken_.data();
    return SUCCESS;
}

} // namespace rv
