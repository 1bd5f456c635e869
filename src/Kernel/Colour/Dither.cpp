// The life of a dithering, and the calls.

#include "Kernel/Colour/Dither.h"

#include "Kernel/Base/System.h"
#include "Kernel/Core/BitmapFormat.h"
#include "Kernel/Core/Checks.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace rv {

namespace {

bool isMethod(R_INT method) noexcept { return method >= DITHER_NONE && method <= DITHER_CLUSTERED; }

bool diffuses(R_INT method) noexcept { return method >= DITHER_FLOYD_STEINBERG && method <= DITHER_JARVIS; }

/// What is to be known before anything is made.
Status checkRequest(const BITMAPHANDLE* pBitmap, const DitherRequest& request, PixelFormat* format) noexcept
{
    const bool sensible = formatOf(pBitmap, format).ok() && request.colours >= 1 && request.colours <= 256 &&
                          request.bits >= 1 && request.bits <= 8 && isMethod(pBitmap->DitheringMethod) &&
                          (format->bits > 8 || format->colours != 0) &&
                          (request.palette != nullptr || request.userTable == nullptr);
    if (!sensible) return ERROR_INV_PARAMETER;
    return pBitmap->Width >= 0 ? SUCCESS : ERROR_INV_SIZE;
}

} // namespace

Dithering::Dithering(const PixelFormat& format, const BITMAPHANDLE* pBitmap, R_INT bits) noexcept
    : DitherState([](DitherState* state) noexcept { free(static_cast<Dithering*>(state)); }),
      method_(pBitmap->DitheringMethod), width_(static_cast<size_t>(pBitmap->Width)), bits_(bits),
      sourceBits_(static_cast<size_t>(format.bits)), reader_(format)
{
    if (bits > 1 && bits < 8) packing_ = sampleFormatOf(bits, true);
    if (diffuses(method_)) diffusion_ = &kDiffusionOf[method_ - DITHER_FLOYD_STEINBERG];
}

Status Dithering::make(Dithering** ppDithering, const BITMAPHANDLE* pBitmap, const DitherRequest& request) noexcept
{
    PixelFormat format;
    R_TRY(checkRequest(pBitmap, request, &format));
    R_TRY(checkLicence(Feature::bitmap));
    void* const memory = platform().allocate(sizeof(Dithering));
    if (memory == nullptr) return ERROR_FAILURE;
    auto* const dithering = new (memory) Dithering(format, pBitmap, request.bits);
    const Status status = dithering->prepare(request, format.gray && !format.hasTable());
    if (!status.ok()) {
        free(dithering);
        return status;
    }
    *ppDithering = dithering;
    return SUCCESS;
}

void Dithering::free(Dithering* dithering) noexcept
{
    if (dithering == nullptr) return;
    dithering->~Dithering();
    platform().release(dithering);
}

Dithering* Dithering::of(const BITMAPHANDLE* pBitmap) noexcept
{
    return static_cast<Dithering*>(DitherState::of(pBitmap));
}

Status Dithering::prepare(const DitherRequest& request, bool grayFormat) noexcept
{
    R_TRY(target_.prepare(request.palette, request.colours, request.userTable));
    if (method_ == DITHER_ORDERED || method_ == DITHER_CLUSTERED)
        target_.fillThresholds(method_, thresholds_);
    else
        std::fill_n(thresholds_, std::size(thresholds_), target_.comparing() ? DitherTarget::kMiddle : int16_t{0});
    if (grayOnly(grayFormat)) channels_ = 1;
    sourceIsGray_ = channels_ == 1 && isByteRamp();
    if (!takeRowMemory()) return ERROR_FAILURE;
    target_.seedTable(); // last: a start that fails leaves the caller's table as it was
    return SUCCESS;
}

/// Whether one channel tells everything: all colours are gray, and so are the entries that they can become.
bool Dithering::grayOnly(bool grayFormat) const noexcept
{
    if (!target_.grayByLuminance() || sourceBits_ > 16) return false;
    if (sourceBits_ > 8) return grayFormat;
    return std::all_of(reader_.colours(), reader_.colours() + (size_t{1} << sourceBits_),
                       [](const RGBQUAD& c) { return c.rgbRed == c.rgbGreen && c.rgbGreen == c.rgbBlue; });
}

bool Dithering::isByteRamp() const noexcept
{
    if (sourceBits_ != 8) return false;
    for (int level = 0; level < 256; ++level)
        if (reader_.colours()[level].rgbBlue != level) return false;
    return true;
}

bool Dithering::takeRowMemory() noexcept
{
    const size_t roomy = (width_ + 7) / 8 * 8 + kSampleSlack;
    colours_ = RowBuffer(width_ * sizeof(RGBQUAD));
    indices_ = RowBuffer(roomy);
    if (!colours_ || !indices_) return false;
    std::memset(indices_.data(), 0, roomy);
    if (packing_.pack != nullptr && !(packed_ = RowBuffer(roomy))) return false;
    if (diffusion_ == nullptr) return true;

    const size_t stride = width_ + 2 * simd::kDiffusionPad;
    const size_t count = (static_cast<size_t>(diffusion_->rows) + 1) * channels_ * stride;
    sums_ = RowBuffer(count * sizeof(int32_t));
    if (!sums_) return false;
    std::memset(sums_.data(), 0, count * sizeof(int32_t));
    auto* next = reinterpret_cast<int32_t*>(sums_.data()) + simd::kDiffusionPad;
    for (size_t channel = 0; channel < channels_; ++channel) {
        for (int row = 0; row < diffusion_->rows; ++row, next += stride) pending_[row][channel] = next;
        errors_[channel] = next;
        next += stride;
    }
    return true;
}

} // namespace rv

using namespace rv;

R_INT R_StartDitheringExt(BITMAPHANDLE* pBitmap, const RGBQUAD* pPalette, R_UINT uColors, R_INT nDestBitsPerPixel,
                          R_UINT* pUserMatchTable) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    Dithering* dithering = nullptr;
    R_TRY(Dithering::make(&dithering, pBitmap, {pPalette, uColors, nDestBitsPerPixel, pUserMatchTable}));
    DitherState::hang(pBitmap, dithering);
    return SUCCESS;
}

R_INT R_StartDithering(BITMAPHANDLE* pBitmap, const RGBQUAD* pPalette, R_UINT uColors) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    return R_StartDitheringExt(pBitmap, pPalette, uColors, bitsForColours(uColors), nullptr);
}

R_INT R_DitherLine(BITMAPHANDLE* pBitmap, const void* pSrcRow, void* pDstRow) noexcept
{
    if (pBitmap == nullptr || pSrcRow == nullptr || pDstRow == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    Dithering* const dithering = Dithering::of(pBitmap);
    if (dithering == nullptr) return ERROR_INV_PARAMETER;
    dithering->row(static_cast<const uint8_t*>(pSrcRow), static_cast<uint8_t*>(pDstRow));
    return SUCCESS;
}

R_INT R_StopDithering(BITMAPHANDLE* pBitmap) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_PARAMETER;
    R_TRY(checkStructSize(pBitmap));
    DitherState::freeOf(pBitmap);
    pBitmap->pDitherData = nullptr; // somebody else's, too
    return SUCCESS;
}

R_INT R_DefaultDithering(R_INT nMethod) noexcept
{
    if (!isMethod(nMethod)) return ERROR_INV_PARAMETER;
    threadSettings().ditheringMethod = nMethod;
    return SUCCESS;
}

R_INT R_GetDefaultDithering() noexcept { return threadSettings().ditheringMethod; }
