// Dithering many rows at once: a band of rows goes through a kernel that has a lane for each.

#include "Kernel/Colour/Dither.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <cstring>
#include <utility>

namespace rv {

/// What a band needs beside the dithering's own rows. A kernel gives indices, and takes gray pixels, step by step: rows
/// become steps, and steps rows, when they are turned with a pitch that is shorter than theirs by the delay.
struct Dithering::Band {
    simd::DiffuseRows kernel;
    size_t beside; // columns that the last row is behind the first one
    size_t steps;
    size_t pitch; // of the rows, in pixels
    uint8_t* rows;
    uint8_t* pixels;
    uint8_t* indexRows;
    uint8_t* indices;
    int32_t* errors;

    Band(const simd::DiffuseRows& rowsKernel, size_t width) noexcept
        : kernel(rowsKernel), beside((rowsKernel.lanes - 1) * rowsKernel.delay), steps(width + beside),
          pitch(width + 2 * beside)
    {
    }
    size_t lanes() const noexcept { return kernel.lanes; }
    size_t skew() const noexcept { return pitch - kernel.delay; }
};

const simd::DiffuseRows* Dithering::bandKernel() const noexcept
{
    if (diffusion_ == nullptr) return nullptr;
    const auto method = static_cast<size_t>(method_ - DITHER_FLOYD_STEINBERG);
    const simd::RowKernels& kernels = rowKernels();
    if (channels_ == 3) return &kernels.diffuseColour[method];
    return target_.comparing() ? &kernels.diffuseToTwo[method] : &kernels.diffuseToFour[method];
}

/// Divides the memory of a band, which is taken when there is none yet. False: there is none.
bool Dithering::prepareBand(Band* band) noexcept
{
    const size_t pixelBytes = channels_ == 1 ? 1 : sizeof(RGBQUAD);
    const size_t rowPixels = band->pitch * band->lanes(), stepPixels = band->steps * band->lanes();
    const size_t errorRow = (width_ + 2 * simd::kDiffusionPad) * sizeof(int32_t);
    const size_t errorBytes = errorRow * channels_ * static_cast<size_t>(diffusion_->rows);
    const auto aligned = [](size_t bytes) noexcept { return (bytes + 63) / 64 * 64; };
    const size_t sizes[] = {errorBytes, rowPixels * pixelBytes, channels_ == 1 ? stepPixels : 0, rowPixels, stepPixels};
    size_t bytes = 0;
    for (const size_t size : sizes) bytes += aligned(size);
    if (bandBytes_ < bytes) { // or kernels of more lanes than the last time
        bandBytes_ = 0;
        band_ = RowBuffer(bytes);
        if (!band_) return false;
        bandBytes_ = bytes;
        std::memset(band_.data(), 0, bytes); // what is beside rows goes through the lanes, and does not count
    }
    uint8_t* next = band_.data();
    const auto take = [&](size_t i) noexcept { return std::exchange(next, next + aligned(sizes[i])); };
    band->errors = reinterpret_cast<int32_t*>(take(0)) + simd::kDiffusionPad;
    band->rows = take(1);
    band->pixels = take(2);
    band->indexRows = take(3);
    band->indices = take(4);
    return true;
}

void Dithering::band(const Band& band, const uint8_t* source, ptrdiff_t sourcePitch, uint8_t* target,
                     ptrdiff_t targetPitch) noexcept
{
    const size_t lanes = band.lanes(), pixelBytes = channels_ == 1 ? 1 : sizeof(RGBQUAD);
    const simd::RowKernels& kernels = rowKernels();
    for (size_t lane = 0; lane < lanes; ++lane, source += sourcePitch) {
        uint8_t* const row = band.rows + (lane * band.pitch + band.beside) * pixelBytes;
        if (channels_ == 1)
            readGray(row, source);
        else
            reader_.read(reinterpret_cast<RGBQUAD*>(row), source, width_);
    }
    if (channels_ == 1)
        kernels.turn8(band.pixels, static_cast<ptrdiff_t>(lanes), band.rows + band.beside,
                      static_cast<ptrdiff_t>(band.skew()), band.steps, lanes, false);

    runKernel(band);

    kernels.turn8(band.indexRows + band.beside, static_cast<ptrdiff_t>(band.skew()), band.indices,
                  static_cast<ptrdiff_t>(lanes), lanes, band.steps, false);
    for (size_t lane = 0; lane < lanes; ++lane, target += targetPitch) {
        std::memcpy(indices_.data(), band.indexRows + lane * band.pitch + band.beside, width_);
        pack(target);
    }
    line_ += static_cast<R_UINT>(lanes);
}

void Dithering::runKernel(const Band& band) noexcept
{
    const size_t stride = width_ + 2 * simd::kDiffusionPad;
    const uint8_t* const pixels = channels_ == 1 ? band.pixels : band.rows + band.beside * sizeof(RGBQUAD);
    simd::DiffusionBand work{pixels, band.skew(), band.indices, width_, &target_.items(), {}, {}};
    for (int row = 0; row < diffusion_->rows; ++row) {
        for (size_t c = 0; c < channels_; ++c) {
            work.pending[row][c] = pending_[row][c];
            work.errors[row][c] = band.errors + (static_cast<size_t>(row) * channels_ + c) * stride;
        }
    }
    band.kernel.run(work);
    // A band is higher than any kernel reaches: nothing from above it is left.
    for (int row = 0; row < diffusion_->rows; ++row)
        for (size_t c = 0; c < channels_; ++c) std::memset(pending_[row][c], 0, (width_ + 8) * sizeof(int32_t));
    for (int row = diffusion_->rows; row-- > 0;) advance(work.errors[row]);
}

void Dithering::rows(const uint8_t* source, ptrdiff_t sourcePitch, uint8_t* target, ptrdiff_t targetPitch,
                     R_INT count) noexcept
{
    R_INT done = 0;
    const simd::DiffuseRows* const kernel = bandKernel();
    if (kernel != nullptr && count >= static_cast<R_INT>(kernel->lanes)) {
        Band next(*kernel, width_);
        const auto lanes = static_cast<R_INT>(kernel->lanes);
        const bool possible = prepareBand(&next);
        for (; possible && count - done >= lanes; done += lanes)
            band(next, source + done * sourcePitch, sourcePitch, target + done * targetPitch, targetPitch);
    }
    for (; done < count; ++done) row(source + done * sourcePitch, target + done * targetPitch);
}

} // namespace rv
