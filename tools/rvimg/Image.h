/// A page as the formats and the kernel share it: its layout, its bitmap, its rows.
#pragma once

#include "R_Kernel.h"

#include <array>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace rvimg {

class Progress;

struct Resolution {
    R_INT x; ///< dots per inch
    R_INT y;
};

/// What a page is, apart from its pixels. Pixels are those of the kernel: packed rows most significant bit first,
/// 16-bit words in the machine's order, components in the given order with alpha last.
struct Layout {
    R_INT width = 0;
    R_INT height = 0;
    R_INT bits = 0;
    R_INT order = ORDER_RGB;
    R_INT highBit = -1;           ///< of gray above 8 bits where it is not the depth's own
    std::vector<RGBQUAD> palette; ///< of 1 to 8 bits, at most 2^bits entries
    R_INT perspective = TOP_LEFT;
    bool tagged = false; ///< the perspective came from an orientation field, and is worth one
    std::optional<Resolution> resolution;
    std::optional<COLORREF> transparency; ///< a colour value
    bool premultiplied = false;
    bool isSigned = false;
    std::string encoding; ///< how the file holds it, for people

    bool hasPalette() const { return bits <= 8; }
    bool isGray() const { return bits > 8 && order == ORDER_GRAY; }
    bool hasAlpha() const { return bits == 32 || bits == 64; }
    size_t pixels() const { return static_cast<size_t>(width); }
    /// Bytes that hold the pixels of a row.
    size_t rowBytes() const { return (pixels() * static_cast<size_t>(bits) + 7) / 8; }
    /// Significant bits of a gray sample.
    R_INT significantBits() const { return highBit < 0 ? bits : highBit + 1; }
};

/// How a palette runs from end to end.
enum class Ramp {
    none,
    rising,  ///< even grays from black to white
    falling, ///< even grays from white to black
};
Ramp evenGrays(const std::vector<RGBQUAD>& palette);
/// The same for a palette that has an entry for every index of its depth; else none.
Ramp rampOf(const Layout& layout);
/// The gray of each index of an 8-bit palette that has nothing but grays.
using GrayLevels = std::array<uint8_t, 256>;
std::optional<GrayLevels> grayLevels(const Layout& layout);
/// 2^bits grays.
std::vector<RGBQUAD> grayRamp(R_INT bits, Ramp ramp = Ramp::rising);

/// "24-bit colour", "1-bit palette", "16-bit gray".
std::string describe(const Layout& layout);
/// "top-left" and so on; TIFF's names.
const char* perspectiveName(R_INT perspective);
/// The perspective of such a name; nothing for another one.
std::optional<R_INT> perspectiveNamed(const std::string& name);

/// Owns a bitmap.
class Image {
public:
    /// Creates a bitmap of this layout; its pixels are zeros.
    explicit Image(const Layout& layout);

    BITMAPHANDLE* record() { return record_.get(); }
    /// The bitmap's present layout, whatever has been done to it.
    Layout layout() const;
    /// Makes the present perspective worth an orientation field.
    void tagOrientation() { tagged_ = true; }
    /// Lengthens a palette that lacks an index which the pixels use.
    void coverIndices(unsigned maxIndex);

private:
    struct Free {
        void operator()(BITMAPHANDLE* record) const noexcept
        {
            R_FreeBitmap(record);
            delete record;
        }
    };
    std::unique_ptr<BITMAPHANDLE, Free> record_;
    bool tagged_;
    bool resolved_;
};

/// The rows of a bitmap, accessed for the length of a scope.
class PixelRows {
public:
    PixelRows(Image& image, Progress& progress);
    ~PixelRows();
    PixelRows(const PixelRows&) = delete;
    PixelRows& operator=(const PixelRows&) = delete;

    const Layout& layout() const { return layout_; }
    R_INT height() const { return layout_.height; }
    size_t rowBytes() const { return layout_.rowBytes(); }

    /// Stores a row of rowBytes() bytes. Bits behind the last pixel are cleared in the caller's buffer too.
    void put(R_INT row, std::span<uint8_t> bytes);
    void get(R_INT row, std::span<uint8_t> bytes);
    /// Ends the access; the largest palette index that was put is covered.
    void finish();

private:
    Image& image_;
    Progress& progress_;
    Layout layout_;
    bool open_ = true;
    bool watchIndices_;
    unsigned maxIndex_ = 0;
};

} // namespace rvimg
