// Single pixels, over the row layer. Their bits come and go in the bytes that hold them, so neighbours in a shared byte
// are read first and written back.

#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/ColourValue.h"
#include "Kernel/Core/RowCol.h"
#include "Kernel/Pixels/PixelTraits.h"

namespace rv {

namespace {

constexpr R_UINT64 pixelMask(R_INT bits) noexcept { return ~R_UINT64{0} >> (64 - bits); }

/// Bytes as the number they make, lowest byte first.
R_UINT64 loadBytes(const uint8_t* bytes, R_SIZE count) noexcept
{
    R_UINT64 value = 0;
    for (R_SIZE i = 0; i < count; ++i) value |= R_UINT64{bytes[i]} << 8 * i;
    return value;
}

void storeBytes(uint8_t* bytes, R_SIZE count, R_UINT64 value) noexcept
{
    for (R_SIZE i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(value >> 8 * i);
}

/// The bytes of a row that hold one pixel, as they are moved. Every eight pixels begin at a whole byte, so the place of
/// a pixel among its eight says all.
class PixelBytes {
public:
    PixelBytes(R_INT column, R_INT bits) noexcept
        : bits_(bits), column_(static_cast<size_t>(column % 8)), first_(columnByte(column % 8, bits)),
          count_(packedBytes(column % 8 + 1, bits) - static_cast<R_UINT64>(first_))
    {
    }
    uint8_t* data() noexcept { return eight_ + first_; }
    R_SIZE count() const noexcept { return count_; }
    /// Whether other pixels have bits in these bytes.
    bool shared() const noexcept { return bits_ % 8 != 0; }

    R_UINT64 value() const noexcept
    {
        return withDepth(bits_, [this]<int Bits>(Depth<Bits>) { return PixelTraits<Bits>::read(eight_, column_); });
    }
    /// Replaces the pixel's bits under mask.
    void replace(R_UINT64 value, R_UINT64 mask) noexcept
    {
        const R_UINT64 result = (this->value() & ~mask) | (value & mask);
        withDepth(bits_, [&]<int Bits>(Depth<Bits>) {
            PixelTraits<Bits>::write(eight_, column_, result);
            return true;
        });
    }

private:
    R_INT bits_;
    size_t column_;
    R_INT64 first_;
    R_SIZE count_;
    uint8_t eight_[64]{};
};

Status checkPixel(const BITMAPHANDLE* pBitmap, R_INT row, R_INT column) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    R_TRY(checkWalkable(pBitmap));
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    const bool inside = row >= 0 && row < pBitmap->Height && column >= 0 && column < pBitmap->Width;
    return inside ? SUCCESS : ERROR_INV_PARAMETER;
}

Status readPixel(BITMAPHANDLE* pBitmap, R_INT row, R_INT column, StoredPixel* pixel) noexcept
{
    BitmapAccess access(pBitmap);
    R_TRY(access.status());
    PixelBytes bytes(column, pBitmap->BitsPerPixel);
    R_TRY(rowMoved(readRow(pBitmap, bytes.data(), row, column, bytes.count()), bytes.count()));
    pixel->bits = bytes.value();
    return access.finish(SUCCESS);
}

/// Replaces the bits under mask; the others keep their value.
Status changePixel(BITMAPHANDLE* pBitmap, R_INT row, R_INT column, StoredPixel pixel, R_UINT64 mask) noexcept
{
    BitmapAccess access(pBitmap);
    R_TRY(access.status());
    const R_INT bits = pBitmap->BitsPerPixel;
    PixelBytes bytes(column, bits);
    if (bytes.shared() || (mask & pixelMask(bits)) != pixelMask(bits))
        R_TRY(rowMoved(readRow(pBitmap, bytes.data(), row, column, bytes.count()), bytes.count()));
    bytes.replace(pixel.bits, mask);
    return access.finish(rowMoved(writeRow(pBitmap, bytes.data(), row, column, bytes.count()), bytes.count()));
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_GetPixelData(BITMAPHANDLE* pBitmap, void* pData, R_INT nRow, R_INT nCol, R_SIZE uBytes) noexcept
{
    if (pData == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkPixel(pBitmap, nRow, nCol));
    const R_SIZE bytes = packedBytes(1, pBitmap->BitsPerPixel);
    if (uBytes < bytes) return ERROR_INV_PARAMETER;
    StoredPixel pixel;
    R_TRY(readPixel(pBitmap, nRow, nCol, &pixel));
    storeBytes(static_cast<uint8_t*>(pData), bytes, pixel.bits);
    return SUCCESS;
}

R_INT R_PutPixelData(BITMAPHANDLE* pBitmap, void* pData, R_INT nRow, R_INT nCol, R_SIZE uBytes) noexcept
{
    if (pData == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkPixel(pBitmap, nRow, nCol));
    const R_SIZE bytes = packedBytes(1, pBitmap->BitsPerPixel);
    if (uBytes < bytes) return ERROR_INV_PARAMETER;
    const StoredPixel pixel{loadBytes(static_cast<const uint8_t*>(pData), bytes)};
    return changePixel(pBitmap, nRow, nCol, pixel, ~R_UINT64{0});
}

COLORREF R_GetPixelColor(BITMAPHANDLE* pBitmap, R_INT nRow, R_INT nCol) noexcept
{
    StoredPixel pixel;
    if (!checkPixel(pBitmap, nRow, nCol).ok() || !readPixel(pBitmap, nRow, nCol, &pixel).ok()) return 0;
    return colourOfPixel(pBitmap, pixel);
}

R_INT R_PutPixelColor(BITMAPHANDLE* pBitmap, R_INT nRow, R_INT nCol, COLORREF crColor) noexcept
{
    R_TRY(checkPixel(pBitmap, nRow, nCol));
    const StoredPixel pixel = pixelOfColour(pBitmap, crColor, 0);
    return changePixel(pBitmap, nRow, nCol, pixel, ~alphaMask(pBitmap->BitsPerPixel));
}
