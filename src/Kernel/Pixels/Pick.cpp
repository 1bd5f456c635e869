#include "Kernel/Pixels/Pick.h"

#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/FormatWriter.h"
#include "Kernel/Pixels/PackedPixels.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <cstring>

namespace rv {

namespace {

// --- One by one: pixels are gathered before any of them is written, so many at a time that they are whole bytes

constexpr size_t kGathered = 64;

template <size_t Bytes> struct WholePixel {
    uint8_t bytes[Bytes];
};

template <int Bits>
void pickSome(uint8_t* target, const uint8_t* source, const PickWalk& walk, size_t done, size_t count) noexcept
{
    PickWalk::Place place = walk.at(done);
    if constexpr (PixelTraits<Bits>::packed) {
        R_UINT64 pixels[kGathered];
        for (size_t i = 0; i < count; ++i, walk.advance(place))
            pixels[i] = PixelTraits<Bits>::read(source, static_cast<size_t>(place.pixel));
        target += done * Bits / 8;
        if constexpr (Bits < 8) {
            putEachPixel<Bits>(target, count, [&pixels](size_t i) { return pixels[i]; });
        } else {
            target[packedBytes(static_cast<R_INT64>(count), Bits) - 1] = 0;
            for (size_t i = 0; i < count; ++i) PixelTraits<Bits>::write(target, i, pixels[i]);
        }
    } else {
        using Pixel = WholePixel<PixelTraits<Bits>::bytes>;
        Pixel pixels[kGathered];
        for (size_t i = 0; i < count; ++i, walk.advance(place))
            std::memcpy(&pixels[i], source + place.pixel * R_INT64{sizeof(Pixel)}, sizeof(Pixel));
        std::memcpy(target + done * sizeof(Pixel), pixels, count * sizeof(Pixel));
    }
}

template <int Bits>
void pickForward(uint8_t* target, const uint8_t* source, const PickWalk& walk, size_t count) noexcept
{
    for (size_t done = 0; done < count; done += kGathered)
        pickSome<Bits>(target, source, walk, done, std::min(kGathered, count - done));
}

template <int Bits>
void pickBackward(uint8_t* target, const uint8_t* source, const PickWalk& walk, size_t count) noexcept
{
    for (size_t left = count; left > 0;) {
        const size_t some = (left - 1) % kGathered + 1;
        left -= some;
        pickSome<Bits>(target, source, walk, left, some);
    }
}

// --- Sixteen bytes at a time, by a plan

constexpr size_t kSixteen = 16;
constexpr uint8_t kNone = 128;

/// The pieces of sixteen bytes that sixteen bytes of a target come from, as few as there can be, all inside the source.
class Pieces {
public:
    Pieces(const PickWalk& walk, size_t unit, size_t sourceBytes) noexcept
        : walk_(walk), unit_(unit), last_(static_cast<R_INT64>(sourceBytes - kSixteen)), place_(walk.at(0))
    {
    }
    /// For the next `count` bytes, 16 at the most; returns the number of pieces.
    size_t find(size_t count) noexcept
    {
        size_t pieces = 0;
        std::memset(patterns, kNone, sizeof patterns);
        for (size_t i = 0; i < count; ++i) {
            // A piece begins with a pixel: the same one may follow, and its first bytes lie before this one.
            const R_INT64 pixel = place_.pixel * static_cast<R_INT64>(unit_);
            const R_INT64 byte = pixel + static_cast<R_INT64>(inPixel_);
            if (pieces == 0 || byte >= R_INT64{offsets[pieces - 1]} + R_INT64{kSixteen})
                offsets[pieces++] = static_cast<uint32_t>(std::min(pixel, last_));
            patterns[pieces - 1][i] = static_cast<uint8_t>(byte - offsets[pieces - 1]);
            if (++inPixel_ < unit_) continue;
            inPixel_ = 0;
            walk_.advance(place_);
        }
        return pieces;
    }

    uint32_t offsets[kSixteen] = {};
    uint8_t patterns[kSixteen][kSixteen];

private:
    const PickWalk& walk_;
    size_t unit_;
    R_INT64 last_;
    PickWalk::Place place_;
    size_t inPixel_ = 0;
};

/// Whether sixteen bytes at a time are worth it: rows of small pixels are unpacked for that, and packed again.
bool worthPlan(R_INT bits, R_INT64 columns, R_INT width) noexcept
{
    if (bits == 12) return false;
    if (bits >= 8) return true;
    return columns <= R_INT64{width} * (bits == 1 ? 8 : 2);
}

} // namespace

PickInOrder pickForwardFor(R_INT bits) noexcept
{
    return withDepth(bits, []<int Bits>(Depth<Bits>) -> PickInOrder { return &pickForward<Bits>; });
}

PickInOrder pickBackwardFor(R_INT bits) noexcept
{
    return withDepth(bits, []<int Bits>(Depth<Bits>) -> PickInOrder { return &pickBackward<Bits>; });
}

RowPicker::RowPicker(R_INT bits, R_INT left, R_INT right, R_INT width) noexcept
    : bits_(bits), width_(static_cast<size_t>(width)), walk_(PickWalk::between(right - left, width, left)),
      oneByOne_(pickForwardFor(bits))
{
    const bool packed = bits < 8;
    const R_INT start = packed ? left / 8 * 8 : left; // where pixels begin with a byte
    const auto columns = static_cast<size_t>(R_INT64{right} - start);
    unit_ = packed ? 1 : static_cast<size_t>(bits) / 8;
    const bool plannable = columns * unit_ >= kSixteen && columns * unit_ <= UINT32_MAX;
    if (right - left == width || !plannable || !worthPlan(bits, right - left, width)) return;
    firstByte_ = static_cast<size_t>(columnByte(start, bits));
    unpacked_ = packed ? columns : 0;
    PickWalk walk = walk_;
    walk.first = left - start;
    ready_ = planBytes(walk, columns * unit_) && (!packed || takeUnpacked());
}

bool RowPicker::planBytes(const PickWalk& walk, size_t sourceBytes) noexcept
{
    const size_t bytes = width_ * unit_;
    const size_t groups = (bytes + kSixteen - 1) / kSixteen;
    const auto inGroup = [bytes](size_t group) { return std::min(kSixteen, bytes - group * kSixteen); };
    size_t most = 0;
    Pieces counted(walk, unit_, sourceBytes);
    for (size_t group = 0; group < groups; ++group) most = std::max(most, counted.find(inGroup(group)));

    patterns_ = RowBuffer(R_UINT64{groups} * most * (kSixteen + sizeof(uint32_t)));
    if (!patterns_) return false;
    uint8_t* const patterns = patterns_.data();
    auto* const offsets = reinterpret_cast<uint32_t*>(patterns + groups * most * kSixteen);
    Pieces found(walk, unit_, sourceBytes);
    for (size_t group = 0; group < groups; ++group) {
        (void)found.find(
            inGroup(group)); // pieces that it does not need are somewhere in the row, and nothing of them counts
        std::memcpy(patterns + group * most * kSixteen, found.patterns, most * kSixteen);
        std::memcpy(offsets + group * most, found.offsets, most * sizeof(uint32_t));
    }
    plan_ = {most, offsets, patterns};
    return true;
}

bool RowPicker::takeUnpacked() noexcept
{
    unpackedSource_ = RowBuffer(unpacked_);
    unpackedTarget_ = RowBuffer(width_);
    return unpackedSource_ && unpackedTarget_;
}

void RowPicker::pick(uint8_t* target, const uint8_t* source) const noexcept
{
    const simd::RowKernels& kernels = rowKernels();
    if (walk_.step == 1 && walk_.increment == 0) {
        const R_INT64 rowBits = static_cast<R_INT64>(width_) * bits_;
        target[(rowBits - 1) / 8] = 0;
        copyBits(target, 0, source, walk_.first * bits_, rowBits);
    } else if (plan_.pieces == 0) {
        oneByOne_(target, source, walk_, width_);
    } else if (bits_ >= 8) {
        kernels.pickBytes(target, source + firstByte_, width_ * unit_, plan_);
    } else if (bits_ == 1) {
        constexpr uint8_t none[8] = {};
        kernels.expand1(unpackedSource_.data(), source + firstByte_, unpacked_, 0, 1);
        kernels.pickBytes(unpackedTarget_.data(), unpackedSource_.data(), width_, plan_);
        kernels.bitsAbove(target, unpackedTarget_.data(), width_, none);
    } else {
        unpackIndicesFor(bits_)(unpackedSource_.data(), source + firstByte_, unpacked_);
        kernels.pickBytes(unpackedTarget_.data(), unpackedSource_.data(), width_, plan_);
        packIndicesFor(bits_)(target, unpackedTarget_.data(), width_);
    }
}

} // namespace rv
