// The built-in palettes are made by the compiler from their rules; nothing is computed at run time.

#include "Kernel/Core/PaletteTables.h"

#include "Platform/Platform.h"
#include "R_Colour.h"

#include <algorithm>
#include <array>

namespace rv {

namespace {

constexpr RGBQUAD rgb(int red, int green, int blue) noexcept
{
    return {static_cast<uint8_t>(blue), static_cast<uint8_t>(green), static_cast<uint8_t>(red), 0};
}

/// Step i of the 2^bits even steps from 0 to 255, rounded.
constexpr int level(int i, int bits) noexcept
{
    const int last = (1 << bits) - 1;
    return (2 * 255 * i + last) / (2 * last);
}

/// Colour cubes take the index apart into fields: red the highest, blue the lowest.
template <int Red, int Green, int Blue> constexpr auto colourCube() noexcept
{
    std::array<RGBQUAD, 1 << (Red + Green + Blue)> cube{};
    for (int i = 0; i < static_cast<int>(cube.size()); ++i) {
        const int red = i >> (Green + Blue);
        const int green = i >> Blue & ((1 << Green) - 1);
        const int blue = i & ((1 << Blue) - 1);
        cube[static_cast<size_t>(i)] = rgb(level(red, Red), level(green, Green), level(blue, Blue));
    }
    return cube;
}

constexpr auto webSafeCube() noexcept
{
    constexpr int kSteps = 6; // the rest of the 256 entries stays black
    std::array<RGBQUAD, 256> palette{};
    for (int i = 0; i < kSteps * kSteps * kSteps; ++i)
        palette[static_cast<size_t>(i)] = rgb(i / 36 * 51, i / 6 % 6 * 51, i % 6 * 51);
    return palette;
}

constexpr RGBQUAD kFixed1[] = {rgb(0, 0, 0), rgb(255, 255, 255)};
constexpr RGBQUAD kFixed2[] = {rgb(0, 0, 0), rgb(85, 85, 85), rgb(170, 170, 170), rgb(255, 255, 255)};
constexpr auto kFixed3 = colourCube<1, 1, 1>();
constexpr RGBQUAD kFixed4[] = {
    rgb(0, 0, 0),     rgb(128, 0, 0),     rgb(0, 128, 0),     rgb(128, 128, 0),   rgb(0, 0, 128), rgb(128, 0, 128),
    rgb(0, 128, 128), rgb(128, 128, 128), rgb(192, 192, 192), rgb(255, 0, 0),     rgb(0, 255, 0), rgb(255, 255, 0),
    rgb(0, 0, 255),   rgb(255, 0, 255),   rgb(0, 255, 255),   rgb(255, 255, 255),
};
constexpr auto kFixed5 = colourCube<2, 2, 1>();
constexpr auto kFixed6 = colourCube<2, 2, 2>();
constexpr auto kFixed7 = colourCube<2, 3, 2>();
constexpr auto kFixed8 = colourCube<3, 3, 2>();
constexpr auto kWebSafe = webSafeCube();

constexpr const RGBQUAD* kFixed[] = {kFixed1,        kFixed2,        kFixed3.data(), kFixed4,
                                     kFixed5.data(), kFixed6.data(), kFixed7.data(), kFixed8.data()};

/// A new array for a caller, who frees it with R_HeapTerm; null without memory.
RGBQUAD* newEntries(R_UINT64 count) noexcept
{
    return static_cast<RGBQUAD*>(platform().allocate(static_cast<size_t>(count) * sizeof(RGBQUAD)));
}

} // namespace

const RGBQUAD* fixedPalette(R_INT bits) noexcept { return bits >= 1 && bits <= 8 ? kFixed[bits - 1] : nullptr; }

const RGBQUAD* webSafePalette() noexcept { return kWebSafe.data(); }

void fillGrayRamp(RGBQUAD* entries, R_UINT64 count) noexcept
{
    for (R_UINT64 i = 0; i < count; ++i) {
        const auto gray = static_cast<int>(i * 255 / (count - 1));
        entries[i] = rgb(gray, gray, gray);
    }
}

} // namespace rv

using namespace rv;

const RGBQUAD* R_IntGetFixedPalette(R_INT nBitsPerPixel) noexcept { return fixedPalette(nBitsPerPixel); }

const RGBQUAD* R_IntGetNetscapePalette() noexcept { return webSafePalette(); }

R_INT R_GetFixedPalette(RGBQUAD* pPalette, R_INT nBitsPerPixel) noexcept
{
    if (pPalette == nullptr || nBitsPerPixel < 0 || nBitsPerPixel > 8) return ERROR_INV_PARAMETER;
    if (nBitsPerPixel == 0)
        fillGrayRamp(pPalette, 256);
    else
        std::copy_n(fixedPalette(nBitsPerPixel), size_t{1} << nBitsPerPixel, pPalette);
    return SUCCESS;
}

RGBQUAD* R_CreateFixedPalette(R_INT nBitsPerPixel) noexcept
{
    if (nBitsPerPixel < 0 || nBitsPerPixel > 8) return nullptr;
    const R_INT bits = std::max(nBitsPerPixel, 1); // 0 is black and white here, not the gray ramp
    const R_UINT64 count = R_UINT64{1} << bits;
    RGBQUAD* const entries = newEntries(count);
    if (entries != nullptr) std::copy_n(fixedPalette(bits), count, entries);
    return entries;
}

RGBQUAD* R_CreateGrayPalette(R_INT nBits) noexcept
{
    const R_INT bits = nBits == 0 ? 8 : nBits;
    if (bits < 0 || bits > 31) return nullptr; // more entries than a count can say
    const R_UINT64 count = R_UINT64{1} << bits;
    RGBQUAD* const entries = newEntries(count);
    if (entries != nullptr) fillGrayRamp(entries, count);
    return entries;
}
