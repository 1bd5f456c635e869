/// Rows of any format dithered to indices of a palette.
///
/// Errors are kept as sums of their weighted numerators, and each sum is divided once, by the pixel that takes it. So
/// a row at a time and many rows at once give the same bytes.
#pragma once

#include "Kernel/Colour/DitherTarget.h"
#include "Kernel/Core/DitherState.h"
#include "Kernel/Pixels/FormatReader.h"
#include "Kernel/Pixels/Samples.h"
#include "Kernel/Pixels/Simd/RowKernels.h"
#include "R_Bitmap.h"

namespace rv {

/// What a picture is dithered to.
struct DitherRequest {
    const RGBQUAD* palette; ///< null: the fixed palette of so many colours
    R_UINT colours;         ///< 1 to 256
    R_INT bits;             ///< of an index, 1 to 8
    R_UINT* userTable;      ///< a match table of the caller's, or null
};

class Dithering : public DitherState {
public:
    /// A new one for the rows of a bitmap, by its format and method as they are now. Errors as of R_StartDitheringExt.
    static Status make(Dithering** ppDithering, const BITMAPHANDLE* pBitmap, const DitherRequest& request) noexcept;
    /// Null is ignored.
    static void free(Dithering* dithering) noexcept;
    /// The one that hangs in a bitmap; null where there is none of ours.
    static Dithering* of(const BITMAPHANDLE* pBitmap) noexcept;

    /// The next row. The two may be the same.
    void row(const uint8_t* source, uint8_t* target) noexcept;

    /// The next rows, a pitch of bytes apart each. Many at a time are faster than one by one, where there is memory
    /// for it; they go together best by multiples of kRowsAtOnce.
    void rows(const uint8_t* source, ptrdiff_t sourcePitch, uint8_t* target, ptrdiff_t targetPitch,
              R_INT count) noexcept;
    static constexpr R_INT kRowsAtOnce = 16;

private:
    Dithering(const PixelFormat& format, const BITMAPHANDLE* pBitmap, R_INT bits) noexcept;
    ~Dithering() = default;

    Status prepare(const DitherRequest& request, bool grayFormat) noexcept;
    bool takeRowMemory() noexcept;
    bool isByteRamp() const noexcept;
    bool grayOnly(bool grayFormat) const noexcept;

    template <class Rule> void indicesBy(const Rule& rule) noexcept;
    template <size_t Channels, class Rule> void diffuse(const Rule& rule) noexcept;
    template <class Rule> void plain(const Rule& rule) noexcept;
    void makeIndices() noexcept;
    void advance(const int32_t* const* errors) noexcept;

    struct Band;
    const simd::DiffuseRows* bandKernel() const noexcept;
    bool prepareBand(Band* band) noexcept;
    void band(const Band& band, const uint8_t* source, ptrdiff_t sourcePitch, uint8_t* target,
              ptrdiff_t targetPitch) noexcept;
    void runKernel(const Band& band) noexcept;
    void compareRow(const uint8_t* source, uint8_t* target) noexcept;
    void readGray(uint8_t* target, const uint8_t* source) noexcept;
    void pack(uint8_t* target) noexcept;

    R_UINT line_ = 0;
    R_INT method_;
    size_t width_;
    R_INT bits_;
    size_t sourceBits_;
    size_t channels_ = 3;
    bool sourceIsGray_ = false; // bytes that are their own gray
    FormatReader reader_;
    DitherTarget target_;
    SampleFormat packing_;
    int16_t thresholds_[64];
    const Diffusion* diffusion_ = nullptr; // null: an error stays where it is

    RowBuffer colours_; // of the row
    RowBuffer indices_; // of the row, a byte each
    RowBuffer packed_;
    RowBuffer sums_;                           // what the pointers below point into, each at column 0
    int32_t* pending_[kDiffusionRows][3] = {}; // numerators for the next row and those below it, by channel
    RowBuffer band_;
    size_t bandBytes_ = 0;
    int32_t* errors_[3] = {}; // of the row, by channel
};

} // namespace rv
