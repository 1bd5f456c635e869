/// What reading and writing of BMP files share.
#pragma once

#include "Format.h"

namespace rvimg {

std::unique_ptr<Decoder> openBmp(ByteSource& source, const ReadOptions& options);
std::unique_ptr<Encoder> createBmp(ByteSink& sink, const WriteOptions& options);

} // namespace rvimg

namespace rvimg::bmp {

inline constexpr uint32_t kFileHeaderBytes = 14;
inline constexpr uint32_t kCoreHeader = 12;
inline constexpr uint32_t kInfoHeader = 40;
inline constexpr uint32_t kV4Header = 108;

enum Compression : uint32_t {
    kRgb = 0,
    kRle8 = 1,
    kRle4 = 2,
    kBitFields = 3,
    kJpeg = 4,
    kPng = 5,
    kAlphaBitFields = 6
};

/// Bits of a stored pixel that make its red, green, blue and alpha.
struct Masks {
    uint32_t red, green, blue, alpha;
    bool operator==(const Masks&) const = default;
};
inline constexpr Masks kMasks555 = {0x7C00, 0x03E0, 0x001F, 0};
inline constexpr Masks kMasks888 = {0xFF0000, 0xFF00, 0xFF, 0};
inline constexpr Masks kMasks8888 = {0xFF0000, 0xFF00, 0xFF, 0xFF000000};

constexpr uint64_t pitch(uint64_t width, unsigned bits) { return (width * bits + 31) / 32 * 4; }

} // namespace rvimg::bmp
