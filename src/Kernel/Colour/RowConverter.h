/// Rows of one format as rows of another.
#pragma once

#include "Kernel/Base/Status.h"
#include "Kernel/Core/NearestIndex.h"
#include "Kernel/Pixels/FormatReader.h"
#include "Kernel/Pixels/FormatWriter.h"

namespace rv {

/// Converts rows. Indices are the nearest entries of the target's palette; gray up to 8 bits those nearest to the
/// luminance. Common pairs go straight, with the bytes of the way by colours.
class RowConverter {
public:
    /// The target has a palette where it has up to 8 bits. Both formats' palettes and tables are used until the end.
    /// straight  false has every row go by colours, as tests do
    RowConverter(const PixelFormat& from, const PixelFormat& to, bool straight = true) noexcept;
    /// ERROR_FAILURE: no memory.
    Status status() const noexcept { return status_; }

    /// The two rows are apart. Bits behind the target's last pixel become 0, and no byte is touched behind it.
    void convert(uint8_t* target, const uint8_t* source, size_t width) noexcept;

private:
    struct Ways;
    using Convert = void (*)(RowConverter& rows, uint8_t* target, const uint8_t* source, size_t width) noexcept;
    void mapSourceIndices() noexcept;
    void mapLuminances() noexcept;
    void mapUpperBits() noexcept;
    void mapPixels() noexcept;
    bool isIdentity(R_UINT count) const noexcept;
    bool repeatsBytes(size_t times) const noexcept;
    Convert fromIndicesToPixels() noexcept;
    Convert fromIndicesToIndices() noexcept;
    Convert chooseStraight() noexcept;

    PixelFormat from_;
    PixelFormat to_;
    FormatReader reader_;
    FormatWriter writer_;
    Convert byColours_ = nullptr;
    Convert straight_ = nullptr; // null where there is no such way
    MoveIndices pack_ = nullptr;
    MoveIndices unpack_ = nullptr; // where the source's indices are mapped
    uint8_t index_[256] = {};      // of the target: for each index of the source, luminance or upper bits of gray
    uint64_t pixels_[256] = {};    // of the target, for each index of the source
    NearestIndex nearest_;
    Status status_ = SUCCESS;
};

} // namespace rv
