#include "Kernel/Colour/RowConverter.h"

#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/Luminance.h"
#include "Kernel/Pixels/PackedPixels.h"
#include "Kernel/Pixels/Simd/Select.h"
#include "R_Colour.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace rv {

namespace {

/// Rows are converted in pieces that stay near; eight pixels of any depth are whole bytes.
constexpr size_t kPiece = 512;

uint8_t findIndex(const PixelFormat& format, const RGBQUAD& colour) noexcept
{
    return static_cast<uint8_t>(
        R_FindPaletteIndex(format.palette, format.colours, colour.rgbRed, colour.rgbGreen, colour.rgbBlue));
}

/// Calls convertPiece(target, source, pixels) for a row's pieces.
template <class ConvertPiece>
void inPieces(R_INT fromBits, R_INT toBits, uint8_t* target, const uint8_t* source, size_t width,
              ConvertPiece convertPiece) noexcept
{
    for (size_t done = 0; done < width; done += kPiece) {
        convertPiece(target, source, std::min(kPiece, width - done));
        target += packedBytes(kPiece, toBits);
        source += packedBytes(kPiece, fromBits);
    }
}

void lookUp(uint8_t* indices, size_t count, const uint8_t* table) noexcept
{
    uint8_t own[256]; // the compiler is to know that no index that is stored changes it
    std::memcpy(own, table, sizeof own);
    for (size_t i = 0; i < count; ++i) indices[i] = own[indices[i]];
}

} // namespace

/// The ways a row can go.
struct RowConverter::Ways {
    template <class Quad>
    static void toColours(RowConverter& rows, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        Quad colours[kPiece];
        inPieces(rows.from_.bits, rows.to_.bits, target, source, width,
                 [&](uint8_t* to, const uint8_t* from, size_t pixels) {
                     rows.reader_.read(colours, from, pixels);
                     rows.writer_.write(to, colours, pixels);
                 });
    }
    template <bool Gray>
    static void toIndices(RowConverter& rows, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        RGBQUAD colours[kPiece];
        uint8_t indices[kPiece];
        inPieces(rows.from_.bits, rows.to_.bits, target, source, width,
                 [&](uint8_t* to, const uint8_t* from, size_t pixels) {
                     rows.reader_.read(colours, from, pixels);
                     if constexpr (Gray)
                         for (size_t i = 0; i < pixels; ++i) indices[i] = rows.index_[luminance(colours[i])];
                     else
                         rows.nearest_.find(indices, colours, pixels);
                     rows.pack_(to, indices, pixels);
                 });
    }

    // The target's index for each of the source's.
    static void mapIndices(RowConverter& rows, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        uint8_t indices[kPiece];
        inPieces(rows.from_.bits, rows.to_.bits, target, source, width,
                 [&](uint8_t* to, const uint8_t* from, size_t pixels) {
                     rows.unpack_(indices, from, pixels);
                     lookUp(indices, pixels, rows.index_);
                     rows.pack_(to, indices, pixels);
                 });
    }
    static void mapBytes(RowConverter& rows, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        for (size_t i = 0; i < width; ++i) target[i] = rows.index_[source[i]];
    }
    static void expandBits(RowConverter& rows, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        rowKernels().expand1(target, source, width, rows.index_[0], rows.index_[1]);
    }
    static void copyBytes(RowConverter&, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        std::memcpy(target, source, width);
    }

    static void lumaBytes(RowConverter& rows, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        (rows.from_.redFirst ? rowKernels().lumaRgb : rowKernels().lumaBgr)(target, source, width);
    }
    /// Pixels of other whole samples come to three bytes first.
    static void lumaIndices(RowConverter& rows, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        uint8_t colours[3 * kPiece], indices[kPiece];
        const auto reorder = rowKernels().reorder[sampleLayout(rows.from_.bits)][simd::kThreeBytes][0];
        inPieces(rows.from_.bits, rows.to_.bits, target, source, width,
                 [&](uint8_t* to, const uint8_t* from, size_t pixels) {
                     reorder(colours, from, pixels);
                     lumaBytes(rows, indices, colours, pixels);
                     lookUp(indices, pixels, rows.index_);
                     rows.pack_(to, indices, pixels);
                 });
    }
    /// Gray samples of more than 8 bits by those of their bits that count.
    template <int Bits>
    static void upperIndices(RowConverter& rows, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        uint8_t indices[kPiece];
        const FormatReader::UpperBits upper = rows.reader_.upperBits();
        inPieces(Bits, rows.to_.bits, target, source, width, [&](uint8_t* to, const uint8_t* from, size_t pixels) {
            forEachPixel<Bits>(from, pixels, [&indices, upper](size_t i, R_UINT64 sample) {
                indices[i] = upper.of(static_cast<unsigned>(sample));
            });
            lookUp(indices, pixels, rows.index_);
            rows.pack_(to, indices, pixels);
        });
    }

    template <size_t Times>
    static void repeatBytes(RowConverter&, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        (Times == 2 ? rowKernels().twice : rowKernels().triple)(target, source, width);
    }
    /// The whole pixel of each index. What is stored too much is overwritten by the next one.
    template <size_t Bytes>
    static void mapPixels(RowConverter& rows, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        constexpr size_t stored = std::bit_ceil(Bytes);
        uint8_t unpacked[kPiece];
        for (size_t done = 0; done < width; done += kPiece, source += packedBytes(kPiece, rows.from_.bits)) {
            const size_t pixels = std::min(kPiece, width - done), last = pixels - 1;
            const uint8_t* indices = source;
            if (rows.from_.bits != 8) {
                rows.unpack_(unpacked, source, pixels);
                indices = unpacked;
            }
            const uint64_t* const table = rows.pixels_;
            for (size_t i = 0; i < last; ++i, target += Bytes) std::memcpy(target, table + indices[i], stored);
            std::memcpy(target, table + indices[last], Bytes);
            target += Bytes;
        }
    }

    static void reorder(RowConverter& rows, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        const bool exchange = rows.from_.redFirst != rows.to_.redFirst;
        rowKernels().reorder[sampleLayout(rows.from_.bits)][sampleLayout(rows.to_.bits)][exchange](target, source,
                                                                                                   width);
    }
};

/// What index_ says of the first so many: each stands for itself.
bool RowConverter::isIdentity(R_UINT count) const noexcept
{
    for (R_UINT i = 0; i < count; ++i)
        if (index_[i] != i) return false;
    return true;
}

void RowConverter::mapSourceIndices() noexcept
{
    unpack_ = unpackIndicesFor(from_.bits);
    for (R_UINT i = 0; i < 1u << from_.bits; ++i) {
        RGBQUAD colour = reader_.colours()[i];
        if (to_.gray) colour.rgbRed = colour.rgbGreen = colour.rgbBlue = luminance(colour);
        index_[i] = findIndex(to_, colour);
    }
}

void RowConverter::mapLuminances() noexcept
{
    for (R_UINT i = 0; i < 256; ++i) {
        const auto level = static_cast<uint8_t>(i);
        index_[i] = findIndex(to_, {level, level, level, 0});
    }
}

void RowConverter::mapUpperBits() noexcept
{
    for (R_UINT i = 0; i < 256; ++i) index_[i] = findIndex(to_, reader_.colours()[i]);
}

/// Every index of the source goes by colours once.
void RowConverter::mapPixels() noexcept
{
    uint8_t indices[256], row[256], pixels[256 * 8];
    const size_t count = size_t{1} << from_.bits;
    for (size_t i = 0; i < count; ++i) indices[i] = static_cast<uint8_t>(i);
    packIndicesFor(from_.bits)(row, indices, count);
    byColours_(*this, pixels, row, count);
    const auto bytes = static_cast<size_t>(to_.bits) / 8;
    for (size_t i = 0; i < count; ++i) std::memcpy(pixels_ + i, pixels + i * bytes, bytes);
    unpack_ = unpackIndicesFor(from_.bits);
}

/// Whether a source of bytes becomes the same byte so many times.
bool RowConverter::repeatsBytes(size_t times) const noexcept
{
    if (from_.bits != 8) return false;
    for (uint64_t i = 0; i < 256; ++i)
        if (pixels_[i] != i * (times == 2 ? 0x0101u : 0x010101u)) return false;
    return true;
}

RowConverter::Convert RowConverter::fromIndicesToPixels() noexcept
{
    mapPixels();
    switch (to_.bits) {
    case 16: return repeatsBytes(2) ? Ways::repeatBytes<2> : Ways::mapPixels<2>;
    case 24: return repeatsBytes(3) ? Ways::repeatBytes<3> : Ways::mapPixels<3>;
    case 32: return Ways::mapPixels<4>;
    case 48: return Ways::mapPixels<6>;
    case 64: return Ways::mapPixels<8>;
    default: return nullptr;
    }
}

RowConverter::Convert RowConverter::fromIndicesToIndices() noexcept
{
    mapSourceIndices();
    if (to_.bits != 8) return Ways::mapIndices;
    if (from_.bits == 1) return Ways::expandBits;
    if (from_.bits != 8) return Ways::mapIndices;
    return isIdentity(256) ? Ways::copyBytes : Ways::mapBytes;
}

/// Null: there is no such way.
RowConverter::Convert RowConverter::chooseStraight() noexcept
{
    const bool indices = from_.bits <= 8 && !from_.hasTable(), grays = from_.bits == 12 || from_.bits == 16;
    if (from_.bits <= 8 && to_.bits > 12) return fromIndicesToPixels();
    if (indices && to_.bits <= 8) return fromIndicesToIndices();
    if (from_.bits >= 24 && to_.bits >= 24) return Ways::reorder;
    if (from_.bits >= 24 && to_.bits <= 8 && to_.gray) {
        mapLuminances();
        return from_.bits == 24 && to_.bits == 8 && isIdentity(256) ? Ways::lumaBytes : Ways::lumaIndices;
    }
    if (grays && from_.gray && !from_.hasTable() && to_.bits <= 8) {
        mapUpperBits();
        return from_.bits == 12 ? Ways::upperIndices<12> : Ways::upperIndices<16>;
    }
    return nullptr;
}

RowConverter::RowConverter(const PixelFormat& from, const PixelFormat& to, bool straight) noexcept
    : from_(from), to_(to), reader_(from), writer_(to)
{
    if (to_.bits > 8) {
        byColours_ = writer_.wide() ? Ways::toColours<RGBQUAD16> : Ways::toColours<RGBQUAD>;
    } else {
        byColours_ = to_.gray ? Ways::toIndices<true> : Ways::toIndices<false>;
        pack_ = packIndicesFor(to_.bits);
    }
    if (straight) straight_ = chooseStraight();
    if (straight_ != nullptr || to_.bits > 8) return;
    if (to_.gray) {
        mapLuminances();
        return;
    }
    nearest_ = NearestIndex(to_.palette, to_.colours);
    if (!nearest_) status_ = ERROR_FAILURE;
}

void RowConverter::convert(uint8_t* target, const uint8_t* source, size_t width) noexcept
{
    if (width == 0) return; // the rows of no pixels may be nowhere
    (straight_ != nullptr ? straight_ : byColours_)(*this, target, source, width);
}

} // namespace rv
