/// Pixels of every format from one: the second half of a conversion.
#pragma once

#include "Kernel/Pixels/PixelFormat.h"

#include <cstddef>

namespace rv {

/// Writes rows of colours as rows of a format of more than 8 bits. Samples lose their lower bits, so that black and
/// white stay what they are; gray is the luminance, in the significant bits, and goes through no table.
class FormatWriter {
public:
    explicit FormatWriter(const PixelFormat& format) noexcept;

    /// Whether the format keeps more than 8 bits of a sample, and so takes colours of 16.
    bool wide() const noexcept { return write16_ != nullptr; }
    /// target  out, the bytes that hold the pixels; bits behind the last pixel become 0
    void write(uint8_t* target, const RGBQUAD* source, size_t width) const noexcept { write8_(target, source, width); }
    void write(uint8_t* target, const RGBQUAD16* source, size_t width) const noexcept
    {
        write16_(*this, target, source, width);
    }

private:
    struct Access;
    using Write8 = void (*)(uint8_t* target, const RGBQUAD* source, size_t width) noexcept;
    using Write16 = void (*)(const FormatWriter& format, uint8_t* target, const RGBQUAD16* source,
                             size_t width) noexcept;

    unsigned drop_ = 0; // of a gray sample: bits that there is no room for, and the place of those that remain
    unsigned lift_ = 0;
    Write8 write8_ = nullptr; // one of the two
    Write16 write16_ = nullptr;
};

/// Rows of indices, one byte each, to and from rows of up to 8 bits. Packing keeps an index's lower bits, and bits
/// behind the last pixel become 0. The rows are apart, and no byte is touched that holds none of the pixels.
using MoveIndices = void (*)(uint8_t* target, const uint8_t* source, size_t width) noexcept;
MoveIndices packIndicesFor(R_INT bits) noexcept;
MoveIndices unpackIndicesFor(R_INT bits) noexcept;

} // namespace rv
