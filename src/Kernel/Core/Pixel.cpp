// Single pixels, over the row layer. Their bits come and go in the bytes that hold them, so neighbours in a shared byte
// are read first and written back.

#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/ColourValue.h"
#include "Kernel/Core/RowCol.h"

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

/// The bytes of a row that hold one pixel, as they are moved. A pixel of less than 8 or of 12 bits is a run of bits,
/// the top bit of a byte first, and never touches a third byte.
class PixelBytes {
public:
    PixelBytes(R_INT column, R_INT bits) noexcept
        : packed_(bits % 8 != 0), mask_(pixelMask(bits)), bitOffset_(static_cast<R_INT>(R_INT64{column} * bits & 7)),
          shift_(packed_ ? 16 - bitOffset_ - bits : 0), count_(packedBytes(1, bitOffset_ + bits))
    {
    }
    uint8_t* data() noexcept { return bytes_; }
    R_SIZE count() const noexcept { return count_; }
    /// Whether other pixels have bits in these bytes.
    bool shared() const noexcept { return packed_; }

    R_UINT64 value() const noexcept { return word() >> shift_ & mask_; }
    /// Replaces the pixel's bits under mask.
    void replace(R_UINT64 value, R_UINT64 mask) noexcept
    {
        const R_UINT64 changed = (mask & mask_) << shift_;
        const R_UINT64 result = (word() & ~changed) | (value << shift_ & changed);
        if (!packed_) {
            storeBytes(bytes_, count_, result);
        } else {
            bytes_[0] = static_cast<uint8_t>(result >> 8);
            bytes_[1] = static_cast<uint8_t>(result);
        }
    }

private:
    R_UINT64 word() const noexcept
    {
        return packed_ ? R_UINT64{bytes_[0]} << 8 | bytes_[1] : loadBytes(bytes_, count_);
    }

    bool packed_;
    R_UINT64 mask_;
    R_INT bitOffset_;
    R_INT shift_; // from the pixel's last bit to the end of the second byte
    R_SIZE count_;
    uint8_t bytes_[8]{};
};

Status checkPixel(const BITMAPHANDLE* pBitmap, R_INT row, R_INT column) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    R_TRY(checkWalkable(pBitmap));
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
