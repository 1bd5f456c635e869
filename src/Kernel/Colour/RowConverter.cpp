#include "Kernel/Colour/RowConverter.h"

#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/Luminance.h"
#include "Kernel/Pixels/Simd/Select.h"
#include "R_Colour.h"

#include <algorithm>
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

} // namespace

NearestIndex::NearestIndex(const RGBQUAD* palette, R_UINT colours) noexcept
    : palette_(palette), colours_(colours), memory_(sizeof(uint32_t) << kSlotBits)
{
    // Black's slot is the first. In all others black stands for nothing, as it is never looked for there.
    if (!memory_) return;
    std::memset(memory_.data(), 0, sizeof(uint32_t) << kSlotBits);
    const uint32_t black = R_FindPaletteIndex(palette, colours, 0, 0, 0) & 0xFF;
    std::memcpy(memory_.data(), &black, sizeof black);
}

void NearestIndex::find(uint8_t* indices, const RGBQUAD* colours, size_t width) noexcept
{
    for (size_t i = 0; i < width; ++i) {
        const RGBQUAD c = colours[i];
        const uint32_t rgb = c.rgbBlue | unsigned{c.rgbGreen} << 8 | unsigned{c.rgbRed} << 16;
        uint8_t* const slot = memory_.data() + sizeof(uint32_t) * (rgb * 0x9E3779B1u >> (32 - kSlotBits));
        uint32_t known;
        std::memcpy(&known, slot, sizeof known);
        if (known >> 8 != rgb) {
            known = rgb << 8 | (R_FindPaletteIndex(palette_, colours_, c.rgbRed, c.rgbGreen, c.rgbBlue) & 0xFF);
            std::memcpy(slot, &known, sizeof known);
        }
        indices[i] = static_cast<uint8_t>(known);
    }
}

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
                     for (size_t i = 0; i < pixels; ++i) indices[i] = rows.index_[indices[i]];
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
    static void tripleBytes(RowConverter&, uint8_t* target, const uint8_t* source, size_t width) noexcept
    {
        rowKernels().triple(target, source, width);
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

RowConverter::Convert RowConverter::chooseStraight() const noexcept
{
    if (unpack_ != nullptr) {
        if (to_.bits != 8) return Ways::mapIndices;
        if (from_.bits == 1) return Ways::expandBits;
        if (from_.bits != 8) return Ways::mapIndices;
        return isIdentity(256) ? Ways::copyBytes : Ways::mapBytes;
    }
    if (from_.bits == 24 && to_.bits == 8 && to_.gray && isIdentity(256)) return Ways::lumaBytes;
    if (from_.bits == 8 && to_.bits == 24 && !from_.hasTable()) {
        for (R_UINT i = 0; i < 256; ++i) {
            const RGBQUAD c = reader_.colours()[i];
            if (c.rgbRed != i || c.rgbGreen != i || c.rgbBlue != i) return nullptr;
        }
        return Ways::tripleBytes;
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
        if (straight && from_.bits <= 8 && !from_.hasTable())
            mapSourceIndices();
        else if (to_.gray)
            mapLuminances();
    }
    if (straight) straight_ = chooseStraight();
    if (straight_ != nullptr || to_.bits > 8 || to_.gray) return;
    nearest_ = NearestIndex(to_.palette, to_.colours);
    if (!nearest_) status_ = ERROR_FAILURE;
}

void RowConverter::convert(uint8_t* target, const uint8_t* source, size_t width) noexcept
{
    (straight_ != nullptr ? straight_ : byColours_)(*this, target, source, width);
}

} // namespace rv
