// Pictures in a caller's own memory, turned by quarters and halves.

#include "Kernel/Base/Status.h"
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/Turns.h"
#include "R_Geometry.h"

namespace rv {

namespace {

constexpr R_UINT64 kPastCaches = R_UINT64{8} << 20; // a picture that does not go through them

Status checkPictures(const void* pDst, const void* pSrc, R_INT width, R_INT height, R_INT bits) noexcept
{
    if (pDst == nullptr || pSrc == nullptr || width < 1 || height < 1) return ERROR_INV_PARAMETER;
    return isDepth(bits) ? SUCCESS : ERROR_INV_BITS_PER_PIXEL;
}

/// Whether rows so far apart hold their pixels, and have addresses.
Status checkPitch(R_SIZE pitch, R_INT width, R_INT height, R_INT bits) noexcept
{
    const bool holds = pitch >= packedBytes(width, bits) && pitch <= INT64_MAX / static_cast<R_UINT64>(height);
    return holds ? SUCCESS : ERROR_INV_PARAMETER;
}

PixelRows<uint8_t> rowsAt(void* first, R_SIZE pitch) noexcept
{
    return {static_cast<uint8_t*>(first), static_cast<R_INT64>(pitch)};
}
PixelRows<const uint8_t> rowsAt(const void* first, R_SIZE pitch) noexcept
{
    return {static_cast<const uint8_t*>(first), static_cast<R_INT64>(pitch)};
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_RotateBuffer90(void* pDst, R_SIZE uDstBytesPerRow, const void* pSrc, R_SIZE uSrcBytesPerRow, R_INT nWidth,
                       R_INT nHeight, R_INT nBitsPerPixel, R_INT nDirection) noexcept
{
    if (nDirection != 0 && nDirection != 1) return ERROR_INV_PARAMETER;
    R_TRY(checkPictures(pDst, pSrc, nWidth, nHeight, nBitsPerPixel));
    R_TRY(checkPitch(uSrcBytesPerRow, nWidth, nHeight, nBitsPerPixel));
    R_TRY(checkPitch(uDstBytesPerRow, nHeight, nWidth, nBitsPerPixel));
    const Turn turn = {false, nDirection == 1 ? 1 : 3};
    const bool past = uDstBytesPerRow * static_cast<R_UINT64>(nWidth) >= kPastCaches;
    turnPixels(TurnKernels(nBitsPerPixel), turn, rowsAt(pDst, uDstBytesPerRow), rowsAt(pSrc, uSrcBytesPerRow), nWidth,
               nHeight, past);
    return SUCCESS;
}

R_INT R_RotateBuffer180(void* pDst, R_SIZE uDstBytesPerRow, const void* pSrc, R_SIZE uSrcBytesPerRow, R_INT nWidth,
                        R_INT nHeight, R_INT nBitsPerPixel) noexcept
{
    R_TRY(checkPictures(pDst, pSrc, nWidth, nHeight, nBitsPerPixel));
    R_TRY(checkPitch(uSrcBytesPerRow, nWidth, nHeight, nBitsPerPixel));
    R_TRY(checkPitch(uDstBytesPerRow, nWidth, nHeight, nBitsPerPixel));
    const TurnKernels kernels(nBitsPerPixel);
    constexpr Turn half = {false, 2};
    if (pDst != pSrc) {
        turnPixels(kernels, half, rowsAt(pDst, uDstBytesPerRow), rowsAt(pSrc, uSrcBytesPerRow), nWidth, nHeight, false);
        return SUCCESS;
    }
    if (uDstBytesPerRow != uSrcBytesPerRow) return ERROR_INV_PARAMETER;
    turnInPlace(kernels, half, rowsAt(pDst, uDstBytesPerRow), nWidth, nHeight, 0, nHeight - nHeight / 2);
    return SUCCESS;
}
