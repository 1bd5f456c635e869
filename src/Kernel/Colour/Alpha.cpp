// The alpha of bitmaps of 32 and 64 bits: read, written, multiplied into the colours and taken out again.

#include "Kernel/Colour/ConvertBitmap.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/BitmapFormat.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Progress.h"
#include "Kernel/Core/Replacement.h"
#include "Kernel/Core/RowCursor.h"
#include "R_Colour.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace rv {

namespace {

bool hasAlpha(R_INT bits) noexcept { return bits == 32 || bits == 64; }

unsigned loadWord(const uint8_t* bytes) noexcept { return bytes[0] | unsigned{bytes[1]} << 8; }
void storeWord(uint8_t* bytes, unsigned word) noexcept
{
    bytes[0] = static_cast<uint8_t>(word);
    bytes[1] = static_cast<uint8_t>(word >> 8);
}

/// A bitmap with pixels, for a call that takes some depths only.
Status checkPixels(const BITMAPHANDLE* pBitmap, bool (*takes)(R_INT bits) noexcept) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_PARAMETER));
    R_TRY(checkStructSize(pBitmap));
    if (!takes(pBitmap->BitsPerPixel)) return ERROR_INV_PARAMETER;
    return checkWalkable(pBitmap);
}

/// Calls changeRow(row) for every row of an accessed bitmap in its place; each is whole before the next.
template <class ChangeRow> Status changeRows(BITMAPHANDLE* pBitmap, RowCursor& rows, ChangeRow changeRow) noexcept
{
    const R_INT height = pBitmap->Height;
    Progress progress = Progress::ofThread(height);
    R_TRY(progress.begin());
    for (R_INT row = 0; row < height; ++row) {
        R_TRY(rows.open(row));
        R_TRY(changeRow(row, rows.data()));
        R_TRY(rows.commit());
        R_TRY(progress.step());
    }
    return SUCCESS;
}

// --- Read and written

void readAlpha(uint8_t* target, const uint8_t* source, size_t width, size_t sampleBytes) noexcept
{
    for (size_t i = 0; i < width; ++i)
        for (size_t byte = 0; byte < sampleBytes; ++byte)
            target[i * sampleBytes + byte] = source[(4 * i + 3) * sampleBytes + byte];
}

Status readAlphaRows(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc) noexcept
{
    RowCursor from(pSrc, RowMode::read), to(pDst, RowMode::write);
    R_TRY(from.status());
    R_TRY(to.status());
    const auto width = static_cast<size_t>(pSrc->Width), sampleBytes = static_cast<size_t>(pSrc->BitsPerPixel) / 32;
    const size_t used = width * sampleBytes;
    const R_UINT rowBytes = pDst->BytesPerLine;
    return changeRows(pDst, to, [&](R_INT row, uint8_t* target) noexcept -> Status {
        R_TRY(from.open(row));
        readAlpha(target, from.data(), width, sampleBytes);
        std::memset(target + used, 0, rowBytes - used);
        return SUCCESS;
    });
}

/// Samples of the pixels' own depth, into the last of each four.
void writeAlpha(uint8_t* pixels, const uint8_t* samples, size_t width, size_t sampleBytes) noexcept
{
    for (size_t i = 0; i < width; ++i)
        for (size_t byte = 0; byte < sampleBytes; ++byte)
            pixels[(4 * i + 3) * sampleBytes + byte] = samples[i * sampleBytes + byte];
}

/// The format in which a bitmap's rows become alpha. A bitmap of 8 bits without palette has samples all the same.
Status alphaSource(const BITMAPHANDLE* pAlpha, const RGBQUAD* ramp, PixelFormat* format) noexcept
{
    R_TRY(formatOf(pAlpha, format));
    if (format->bits == 16 && !format->gray) return ERROR_INV_PARAMETER;
    if (format->bits == 8 && format->colours == 0) {
        format->palette = ramp;
        format->colours = 256;
    }
    return SUCCESS;
}

Status writeAlphaRows(BITMAPHANDLE* pBitmap, BITMAPHANDLE* pAlpha, RowConverter& converter) noexcept
{
    const auto width = static_cast<size_t>(pBitmap->Width),
               sampleBytes = static_cast<size_t>(pBitmap->BitsPerPixel) / 32;
    RowCursor from(pAlpha, RowMode::read), to(pBitmap, RowMode::update);
    R_TRY(from.status());
    R_TRY(to.status());
    const RowBuffer samples(width * sampleBytes);
    if (!samples) return ERROR_FAILURE;
    return changeRows(pBitmap, to, [&](R_INT row, uint8_t* pixels) noexcept -> Status {
        R_TRY(from.open(row));
        converter.convert(samples.data(), from.data(), width);
        writeAlpha(pixels, samples.data(), width, sampleBytes);
        return SUCCESS;
    });
}

// --- Multiplied and divided

/// v * alpha / 255 to nearest.
constexpr uint8_t multiplied(unsigned value, unsigned alpha) noexcept
{
    const unsigned product = value * alpha + 128;
    return static_cast<uint8_t>((product + (product >> 8)) >> 8);
}

/// 2^32 / alpha, rounded up: exact for the products below, which have 16 bits.
constexpr auto kReciprocals = [] {
    std::array<uint64_t, 256> made{};
    for (uint64_t alpha = 1; alpha < 256; ++alpha) made[alpha] = ((uint64_t{1} << 32) + alpha - 1) / alpha;
    return made;
}();

/// v * 255 / alpha to nearest; white at most.
uint8_t divided(unsigned value, unsigned alpha) noexcept
{
    return static_cast<uint8_t>(std::min<uint64_t>((value * 255 + alpha / 2) * kReciprocals[alpha] >> 32, 255));
}

void premultiply8(uint8_t* row, size_t width) noexcept
{
    for (size_t i = 0; i < width; ++i, row += 4)
        for (size_t k = 0; k < 3; ++k) row[k] = multiplied(row[k], row[3]);
}
void unpremultiply8(uint8_t* row, size_t width) noexcept
{
    for (size_t i = 0; i < width; ++i, row += 4)
        for (size_t k = 0; k < 3; ++k) row[k] = divided(row[k], row[3]);
}
void premultiply16(uint8_t* row, size_t width) noexcept
{
    for (size_t i = 0; i < width; ++i, row += 8) {
        const uint64_t alpha = loadWord(row + 6);
        for (size_t k = 0; k < 6; k += 2)
            storeWord(row + k, static_cast<unsigned>((loadWord(row + k) * alpha + 32767) / 65535));
    }
}
void unpremultiply16(uint8_t* row, size_t width) noexcept
{
    for (size_t i = 0; i < width; ++i, row += 8) {
        const uint64_t alpha = loadWord(row + 6);
        for (size_t k = 0; k < 6; k += 2) {
            const uint64_t scaled = loadWord(row + k) * uint64_t{65535} + alpha / 2;
            storeWord(row + k, alpha == 0 ? 0 : static_cast<unsigned>(std::min<uint64_t>(scaled / alpha, 65535)));
        }
    }
}

Status changeMultiplied(BITMAPHANDLE* pBitmap, bool multiplies) noexcept
{
    R_TRY(checkPixels(pBitmap, hasAlpha));
    if (((pBitmap->Flags & FLAG_PREMULTIPLY_ALPHA) != 0) == multiplies) return SUCCESS;
    const bool words = pBitmap->BitsPerPixel == 64;
    const auto change =
        multiplies ? (words ? premultiply16 : premultiply8) : (words ? unpremultiply16 : unpremultiply8);
    BitmapAccess access(pBitmap);
    R_TRY(access.status());
    const auto changeAll = [&]() noexcept -> Status {
        RowCursor rows(pBitmap, RowMode::update);
        R_TRY(rows.status());
        return changeRows(pBitmap, rows, [&](R_INT, uint8_t* row) noexcept -> Status {
            change(row, static_cast<size_t>(pBitmap->Width));
            return SUCCESS;
        });
    };
    R_TRY(access.finish(changeAll()));
    pBitmap->Flags ^= FLAG_PREMULTIPLY_ALPHA;
    return SUCCESS;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_GetBitmapAlpha(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize) noexcept
{
    if (pDst == nullptr || pDst == pSrc) return ERROR_INV_PARAMETER;
    R_TRY(checkAllocated(pSrc, ERROR_INV_PARAMETER));
    if (!isStructSize(uStructSize)) return ERROR_INV_STRUCT_SIZE;
    R_TRY(checkPixels(pSrc, hasAlpha));
    Replacement made(pDst, pSrc, uStructSize, {pSrc->Width, pSrc->Height, pSrc->BitsPerPixel / 4});
    R_TRY(made.status());
    Status status = makeGray(made.bitmap());
    if (!status.ok()) return made.fail(status);
    pDst->Flags &= ~FLAG_TRANSPARENCY; // the picture's transparent colour is no alpha
    {
        BitmapAccess source(pSrc);
        status = source.status();
        if (status.ok()) {
            BitmapAccess target(pDst);
            status = target.status();
            if (status.ok()) status = source.finish(target.finish(readAlphaRows(pDst, pSrc)));
        }
    }
    return status.ok() ? made.commit() : made.fail(status);
}

R_INT R_SetBitmapAlpha(BITMAPHANDLE* pBitmap, BITMAPHANDLE* pAlpha) noexcept
{
    R_TRY(checkPixels(pBitmap, hasAlpha));
    R_TRY(checkPixels(pAlpha, [](R_INT bits) noexcept { return bits == 8 || bits == 16; }));
    if (pAlpha->Width != pBitmap->Width || pAlpha->Height != pBitmap->Height) return ERROR_INV_PARAMETER;
    RGBQUAD ramp[256];
    (void)R_GetFixedPalette(ramp, 0);
    PixelFormat from;
    R_TRY(alphaSource(pAlpha, ramp, &from));
    PixelFormat to{.bits = pBitmap->BitsPerPixel / 4, .gray = true, .highBit = pBitmap->BitsPerPixel / 4 - 1};
    to.palette = ramp;
    to.colours = 256;
    RowConverter converter(from, to);
    R_TRY(converter.status());
    BitmapAccess alpha(pAlpha);
    R_TRY(alpha.status());
    BitmapAccess target(pBitmap);
    R_TRY(target.status());
    return alpha.finish(target.finish(writeAlphaRows(pBitmap, pAlpha, converter)));
}

R_INT R_PremultiplyBitmap(BITMAPHANDLE* pBitmap) noexcept { return changeMultiplied(pBitmap, true); }

R_INT R_UnpremultiplyBitmap(BITMAPHANDLE* pBitmap) noexcept { return changeMultiplied(pBitmap, false); }
