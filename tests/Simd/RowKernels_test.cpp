// Every variant of the row kernels that this machine runs: the bytes of the plain one, and not one byte more.
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/Pick.h"
#include "Kernel/Pixels/PixelTraits.h"
#include "Kernel/Pixels/Simd/Select.h"
#include "R_Geometry.h"
#include "Support/GuardedRecord.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <span>
#include <string>

namespace rv::test {
namespace {

using simd::RowKernels;

const struct DepthMirror {
    R_INT bits;
    simd::MirrorRow RowKernels::*kernel;
} kMirrors[] = {
#define RV_MIRROR(B) {B, &RowKernels::mirror##B},
    RV_FOR_EACH_DEPTH(RV_MIRROR)
#undef RV_MIRROR
};

const struct DepthTurn {
    R_INT bits;
    simd::TurnPixels RowKernels::*kernel;
} kTurns[] = {
#define RV_TURN(B) {B, &RowKernels::turn##B},
    RV_FOR_EACH_DEPTH(RV_TURN)
#undef RV_TURN
};

constexpr size_t kThreeVectors = 3 * 32 + 1; ///< bytes, of the widest variant
constexpr size_t kOffsets = 32;

std::vector<uint8_t> randomBytes(size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<uint8_t> bytes(count);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    return bytes;
}

/// A page between unreadable ones, with one row somewhere in it.
class RowPage {
public:
    /// Lays the row `offset` bytes from the unreadable page before it or behind it.
    uint8_t* place(const std::vector<uint8_t>& row, size_t offset, GuardedBuffer::Side side)
    {
        page_.fill(GuardedBuffer::kFresh);
        row_ = side == GuardedBuffer::Side::start ? page_.begin() + offset : page_.end() - offset - row.size();
        if (!row.empty()) std::memcpy(row_, row.data(), row.size());
        return row_;
    }
    /// Whether the row is this one now, and all around it is as it was.
    bool holds(const std::vector<uint8_t>& row) const
    {
        const auto untouched = [](uint8_t byte) { return byte == GuardedBuffer::kFresh; };
        return std::equal(row.begin(), row.end(), row_) && std::all_of(page_.begin(), row_, untouched) &&
               std::all_of(row_ + row.size(), page_.end(), untouched);
    }

private:
    static constexpr size_t kBytes = 4096; // whole pages: both neighbours are unreadable
    GuardedBuffer page_{kBytes};
    uint8_t* row_ = nullptr;
};

/// Calls check(kernels, offset, side) for every variant, misalignment and side, until it says false.
template <class Check> void inEveryPlace(const std::string& what, Check check)
{
    for (size_t i = 0; const RowKernels* const kernels = availableRowKernels(i); ++i)
        for (size_t offset = 0; offset < kOffsets; ++offset)
            for (const auto side : {GuardedBuffer::Side::start, GuardedBuffer::Side::end})
                ASSERT_TRUE(check(*kernels, offset, side))
                    << kernels->name << ", " << what << ", " << offset << " bytes from the "
                    << (side == GuardedBuffer::Side::start ? "start" : "end");
}

/// The row of source that `kernel` makes of it elsewhere, and in place, is `wanted`; the source stays as it is.
template <class Kernel>
bool makesEverywhere(const std::vector<uint8_t>& source, const std::vector<uint8_t>& wanted, size_t offset,
                     GuardedBuffer::Side side, Kernel kernel)
{
    static RowPage from, to;
    const std::vector<uint8_t> blank(wanted.size(), 0x5A);
    uint8_t* const target = to.place(blank, offset, side);
    const uint8_t* const elsewhere = from.place(source, (offset * 7 + 3) % kOffsets, side);
    kernel(target, elsewhere);
    if (!to.holds(wanted) || !from.holds(source)) return false;
    uint8_t* const inPlace = to.place(source, offset, side);
    kernel(inPlace, inPlace);
    return to.holds(wanted);
}

std::vector<uint8_t> mirrored(const RowKernels& kernels, const DepthMirror& mirror, const std::vector<uint8_t>& row,
                              size_t width)
{
    std::vector<uint8_t> result(row.size());
    (kernels.*mirror.kernel)(result.data(), row.data(), width, row.data());
    return result;
}

TEST(RowKernels, ThePlainMirrorReversesPixels)
{
    for (const DepthMirror& mirror : kMirrors) {
        for (size_t width = 0; width < 150; ++width) {
            const auto row = randomBytes(packedBytes(static_cast<R_INT64>(width), mirror.bits),
                                         static_cast<unsigned>(width)); // the bits behind the pixels are random too
            std::vector<uint8_t> model(row.size());
            for (size_t x = 0; x < width; ++x)
                setPixelAt(model.data(), static_cast<R_INT64>(width - 1 - x), mirror.bits,
                           pixelAt(row.data(), static_cast<R_INT64>(x), mirror.bits));
            ASSERT_EQ(mirrored(simd::base::kRowKernels, mirror, row, width), model)
                << mirror.bits << " bits, width " << width;
        }
    }
}

TEST(RowKernels, EveryMirrorGivesThePlainBytes)
{
    for (const DepthMirror& mirror : kMirrors) {
        const auto bits = static_cast<size_t>(mirror.bits);
        const size_t widest = kThreeVectors * 8 / bits + 1;
        for (size_t i = 0; i <= widest + 20; ++i) {
            const size_t width = i <= widest ? i : widest + (i - widest) * (i - widest) * 13 / bits; // then some longer
            const auto row =
                randomBytes(packedBytes(static_cast<R_INT64>(width), mirror.bits), static_cast<unsigned>(width + bits));
            const auto wanted = mirrored(simd::base::kRowKernels, mirror, row, width);
            inEveryPlace(std::to_string(bits) + " bits, width " + std::to_string(width),
                         [&](const RowKernels& kernels, size_t offset, GuardedBuffer::Side side) {
                             return makesEverywhere(row, wanted, offset, side, [&](uint8_t* to, const uint8_t* from) {
                                 (kernels.*mirror.kernel)(to, from, width, from);
                             });
                         });
            if (HasFatalFailure()) return;
        }
    }
}

TEST(RowKernels, RepeatGoesOnWithoutASeam)
{
    for (const size_t period : {32u, 33u, 39u, 40u, 64u, 95u}) {
        auto pattern = randomBytes(period, static_cast<unsigned>(period));
        for (size_t i = 0; i < simd::kRepeatAhead; ++i) pattern.push_back(pattern[i]);
        for (size_t bytes = 0; bytes <= 3 * kThreeVectors; bytes += bytes < kThreeVectors ? 1 : 7) {
            std::vector<uint8_t> wanted(bytes);
            for (size_t i = 0; i < bytes; ++i) wanted[i] = pattern[i % period];
            inEveryPlace(std::to_string(bytes) + " bytes of every " + std::to_string(period),
                         [&](const RowKernels& kernels, size_t offset, GuardedBuffer::Side side) {
                             static RowPage from, to;
                             uint8_t* const target = to.place(std::vector<uint8_t>(bytes), offset, side);
                             const bool past = offset % 2 != bytes % 2;
                             kernels.repeat(target, bytes, from.place(pattern, offset / 2, side), period, past);
                             return to.holds(wanted);
                         });
            if (HasFatalFailure()) return;
        }
    }
}

TEST(RowKernels, InvertAndShift)
{
    for (size_t bytes = 0; bytes <= kThreeVectors; ++bytes) {
        const auto row = randomBytes(bytes, static_cast<unsigned>(bytes));
        std::vector<uint8_t> inverted = row;
        for (uint8_t& byte : inverted) byte = static_cast<uint8_t>(byte ^ 0xFF);
        inEveryPlace("invert " + std::to_string(bytes), [&](const RowKernels& kernels, size_t offset, auto side) {
            return makesEverywhere(row, inverted, offset, side,
                                   [&](uint8_t* to, const uint8_t* from) { kernels.invert(to, from, bytes); });
        });
        for (unsigned shift = 0; shift < 8; ++shift) {
            std::vector<uint8_t> shifted(bytes);
            for (size_t bit = shift; bit < bytes * 8; ++bit)
                setPixelAt(shifted.data(), static_cast<R_INT64>(bit - shift), 1,
                           pixelAt(row.data(), static_cast<R_INT64>(bit), 1));
            inEveryPlace("shift " + std::to_string(bytes) + " by " + std::to_string(shift),
                         [&](const RowKernels& kernels, size_t offset, auto side) {
                             return makesEverywhere(row, shifted, offset, side, [&](uint8_t* to, const uint8_t* from) {
                                 kernels.shiftLeft(to, from, bytes, shift);
                             });
                         });
        }
        if (HasFatalFailure()) return;
    }
}

TEST(RowKernels, Swap)
{
    RowPage one, other;
    for (size_t bytes = 0; bytes <= kThreeVectors; ++bytes) {
        const auto first = randomBytes(bytes, 1), second = randomBytes(bytes, 2);
        inEveryPlace("swap " + std::to_string(bytes), [&](const RowKernels& kernels, size_t offset, auto side) {
            uint8_t* const a = one.place(first, offset, side);
            uint8_t* const b = other.place(second, (offset * 5 + 1) % kOffsets, side);
            kernels.swap(a, b, bytes, b);
            return one.holds(second) && other.holds(first);
        });
        if (HasFatalFailure()) return;
    }
}

/// What every variant makes of two rows is what the plain one makes.
template <class Kernel>
void expectPlainBytes(const std::string& what, std::vector<uint8_t> target, const std::vector<uint8_t>& source,
                      Kernel kernel)
{
    static RowPage to, from;
    std::vector<uint8_t> wanted = target;
    kernel(simd::base::kRowKernels, wanted.data(), source.data());
    inEveryPlace(what, [&](const RowKernels& kernels, size_t offset, GuardedBuffer::Side side) {
        uint8_t* const in = to.place(target, offset, side);
        kernel(kernels, in, from.place(source, (offset * 7 + 3) % kOffsets, side));
        return to.holds(wanted) && from.holds(source);
    });
}

TEST(RowKernels, EveryCombinationGivesThePlainBytes)
{
    for (size_t bytes = 0; bytes <= kThreeVectors && !HasFatalFailure(); ++bytes) {
        for (unsigned table = 0; table < simd::kTruthTables; ++table) {
            const auto shift = static_cast<unsigned>(bytes * 5 + table) % 8;
            expectPlainBytes("table " + std::to_string(table) + ", shift " + std::to_string(shift),
                             randomBytes(bytes, table), randomBytes(bytes + (shift != 0), table + 20),
                             [&](const RowKernels& kernels, uint8_t* to, const uint8_t* from) {
                                 kernels.combineBits[table](to, from, bytes, shift);
                             });
        }
        for (size_t i = 0; i < simd::kArithmetics; ++i) {
            for (const unsigned top : {255u, 31u})
                expectPlainBytes("bytes " + std::to_string(i), randomBytes(bytes, top), randomBytes(bytes, top + 1),
                                 [&](const RowKernels& kernels, uint8_t* to, const uint8_t* from) {
                                     kernels.combine8[i](to, from, bytes, top);
                                 });
            for (const unsigned top : {65535u, 1023u})
                expectPlainBytes("words " + std::to_string(i), randomBytes(bytes * 2, top), randomBytes(bytes * 2, 9),
                                 [&](const RowKernels& kernels, uint8_t* to, const uint8_t* from) {
                                     kernels.combine16[i](to, from, bytes, top);
                                 });
        }
        for (const unsigned opaque : {0u, 1u, 2u}) { // pixels of the target: few, the second half, nearly all
            auto pixels = randomBytes(bytes * 8, opaque);
            for (size_t at = 3; at < pixels.size(); at += 4)
                if (opaque * at > 4 * bytes) pixels[at] = 255;
            const auto above = randomBytes(bytes * 8, 7);
            expectPlainBytes("over 8", pixels, above, [&](const RowKernels& k, uint8_t* to, const uint8_t* from) {
                k.over8(to, from, bytes * 2);
            });
            expectPlainBytes("over 16", pixels, above,
                             [&](const RowKernels& k, uint8_t* to, const uint8_t* from) { k.over16(to, from, bytes); });
        }
    }
}

TEST(RowKernels, EveryConversionGivesThePlainBytes)
{
    for (size_t width = 0; width <= kThreeVectors && !HasFatalFailure(); ++width) {
        const auto expect = [&](const char* what, size_t to, size_t from, auto kernel) {
            expectPlainBytes(what, std::vector<uint8_t>(to), randomBytes(from, static_cast<unsigned>(width)), kernel);
        };
        expect("bits", width, (width + 7) / 8,
               [&](const RowKernels& k, uint8_t* to, const uint8_t* from) { k.expand1(to, from, width, 3, 0xC5); });
        expect("blue first", width, 3 * width,
               [&](const RowKernels& k, uint8_t* to, const uint8_t* from) { k.lumaBgr(to, from, width); });
        expect("red first", width, 3 * width,
               [&](const RowKernels& k, uint8_t* to, const uint8_t* from) { k.lumaRgb(to, from, width); });
        expect("twice", 2 * width, width,
               [&](const RowKernels& k, uint8_t* to, const uint8_t* from) { k.twice(to, from, width); });
        for (unsigned i = 0; i < (width <= 20 ? 32 : 0); ++i) { // blocks are of sixteen bytes
            constexpr size_t bytes[] = {3, 4, 6, 8};
            const unsigned from = i / 8, to = i / 2 % 4;
            expect("reorder", bytes[to] * width, bytes[from] * width,
                   [&](const RowKernels& k, uint8_t* t, const uint8_t* s) { k.reorder[from][to][i % 2](t, s, width); });
        }
        expect("triple", 3 * width, width,
               [&](const RowKernels& k, uint8_t* to, const uint8_t* from) { k.triple(to, from, width); });
    }
}

TEST(RowKernels, NumbersAddedStayWithinBytes)
{
    const int16_t numbers[8] = {0, 3, -3, 255, -255, 100, -128, 127};
    for (size_t width = 0; width <= 40 && !HasFatalFailure(); ++width) {
        const auto pixels = randomBytes(4 * width, static_cast<unsigned>(width));
        auto wanted = pixels;
        for (size_t i = 0; i < wanted.size(); ++i)
            if (i % 4 != 3) wanted[i] = static_cast<uint8_t>(std::clamp(pixels[i] + numbers[i / 4 % 8], 0, 255));
        inEveryPlace("add to " + std::to_string(width), [&](const RowKernels& kernels, size_t offset, auto side) {
            static RowPage page;
            kernels.addToPixels(page.place(pixels, offset, side), width, numbers);
            return page.holds(wanted);
        });
    }
}

/// Rows `pitch` bytes apart that end at an unreadable page.
struct PictureRows {
    uint8_t* row(size_t y) const { return block.end() - rowBytes - (rows - 1 - y) * pitch; }
    size_t rowBytes, rows, pitch;
    GuardedBuffer block{(rows - 1) * pitch + rowBytes};
};

/// Turns a picture with every variant, given and taken from either end at once, and looks at all that was written.
void checkTurn(const DepthTurn& depth, R_INT width, R_INT height, bool aligned)
{
    const auto rowsOf = [&](R_INT pixels, R_INT rows) {
        const size_t bytes = packedBytes(pixels, depth.bits);
        return PictureRows{bytes, static_cast<size_t>(rows), aligned ? (bytes + 31) / 32 * 32 : bytes + bytes % 3};
    };
    const PictureRows source = rowsOf(width, height), target = rowsOf(height, width);
    const auto to = static_cast<ptrdiff_t>(target.pitch), from = static_cast<ptrdiff_t>(source.pitch);
    std::mt19937 random(static_cast<unsigned>(width * 1000 + height));
    std::generate(source.block.begin(), source.block.end(), [&] { return static_cast<uint8_t>(random()); });
    for (size_t i = 0; const RowKernels* const kernels = availableRowKernels(i); ++i) {
        for (const bool back : {false, true}) {
            std::fill(target.block.begin(), target.block.end(), uint8_t{0x5A});
            (kernels->*depth.kernel)(target.row(back ? target.rows - 1 : 0), back ? -to : to,
                                     source.row(back ? source.rows - 1 : 0), back ? -from : from, target.rows,
                                     source.rows, height >= 256);
            for (R_INT x = 0; x < width; ++x) {
                const uint8_t* const row = target.row(static_cast<size_t>(x));
                std::vector<uint8_t> wanted(static_cast<size_t>(to), 0x5A); // with what is between the rows
                std::fill_n(wanted.begin(), target.rowBytes, uint8_t{0});
                for (R_INT y = 0; y < height; ++y)
                    setPixelAt(wanted.data(), y, depth.bits,
                               pixelAt(source.row(static_cast<size_t>(back ? height - 1 - y : y)),
                                       back ? width - 1 - x : x, depth.bits));
                const auto bytes = static_cast<size_t>(std::min<ptrdiff_t>(to, target.block.end() - row));
                ASSERT_EQ(std::memcmp(row, wanted.data(), bytes), 0)
                    << kernels->name << ", " << depth.bits << " bits, " << width << " x " << height << ", row " << x;
            }
        }
    }
}

TEST(RowKernels, EveryTurnMakesColumnsOfRows)
{
    for (const DepthTurn& depth : kTurns) {
        // Around the tiles' sizes, and some more.
        for (const R_INT size : {1, 7, 8, 31, 32, 64, 65, 256, 257}) {
            checkTurn(depth, size, size * 5 % 67 + 1, size % 2 == 0);
            checkTurn(depth, size * 3 % 131 + 1, size, size % 2 != 0);
            if (HasFatalFailure()) return;
        }
        checkTurn(depth, 331, 211, false);
        checkTurn(depth, 70, 512, true); // whole lines, past the caches
        if (HasFatalFailure()) return;
    }
}

TEST(RowKernels, TheFastestIsInUseAndOthersCanBe)
{
    size_t count = 0;
    while (availableRowKernels(count) != nullptr) ++count;
    EXPECT_EQ(&rowKernels(), availableRowKernels(count - 1));
    for (size_t i = 0; i < count; ++i) {
        RowKernels marked = *availableRowKernels(i);
        marked.mirror8 = [](uint8_t* to, const uint8_t*, size_t, const uint8_t*) noexcept { *to = 99; };
        useRowKernels(marked);
        uint8_t row[2] = {1, 2};
        EXPECT_EQ(R_MirrorLine(row, 2, 8), SUCCESS);
        EXPECT_EQ(row[0], 99);
        selectRowKernels();
    }
    EXPECT_EQ(&rowKernels(), availableRowKernels(count - 1));
}

/// A picture up to the last byte that may be read, an unreadable page behind it, and positions on it.
TEST(RowKernels, EveryPickGivesThePlainBytes)
{
    const struct {
        simd::PickPixels RowKernels::*kernel;
        size_t bits;
        bool weighs;
    } kernels[] = {
        {&RowKernels::pick1, 1, false},   {&RowKernels::pick8, 8, false},         {&RowKernels::pick16, 16, false},
        {&RowKernels::pick24, 24, false}, {&RowKernels::pick32, 32, false},       {&RowKernels::pick48, 48, false},
        {&RowKernels::pick64, 64, false}, {&RowKernels::weigh8, 8, true},         {&RowKernels::weigh24, 24, true},
        {&RowKernels::weigh32, 32, true}, {&RowKernels::weighByAlpha32, 32, true}};
    std::mt19937 random(11);
    constexpr int32_t kSide = 40, kOne = 65536;
    for (const auto& [kernel, bits, weighs] : kernels) {
        for (size_t count = 0; count < 40; ++count) {
            const size_t pixelBytes = (bits * kSide + 7) / 8, pitch = count % 5 == 0 ? 33000 : pixelBytes + count % 3;
            const GuardedBuffer picture(pitch * (kSide - 1) + pixelBytes + kPickSlack);
            for (uint8_t& byte : std::span(picture.data(), picture.size())) // few alphas, so that some are the same
                byte = static_cast<uint8_t>(random() % 4 == 0 ? random() : 0);
            // On a line from anywhere to anywhere, ends included.
            const int32_t low = weighs ? kOne / 2 : 0, high = kSide * kOne - 1 - low;
            const auto anywhere = [&] {
                return low + static_cast<int32_t>(random() % static_cast<unsigned>(high - low));
            };
            const auto steps = static_cast<int32_t>(std::max<size_t>(count, 2)) - 1;
            PixelPositions at;
            at.x = random() % 3 == 0 ? high : anywhere();
            at.y = random() % 3 == 0 ? high : anywhere();
            at.stepX = (anywhere() - at.x) / steps;
            at.stepY = (anywhere() - at.y) / steps;
            std::vector<int32_t> xs, ys;
            for (size_t i = 0; i < count; ++i) {
                xs.push_back(at.x + static_cast<int32_t>(i) * at.stepX);
                ys.push_back(at.y + static_cast<int32_t>(i) * at.stepY);
            }
            PixelPositions listed;
            listed.xs = xs.data();
            listed.ys = ys.data();

            std::vector<uint8_t> wanted((count * bits + 7) / 8);
            (simd::base::kRowKernels.*kernel)(wanted.data(), picture.data(), static_cast<ptrdiff_t>(pitch), at, count);
            inEveryPlace(std::to_string(bits) + " bits, " + std::to_string(count) + " pixels",
                         [&, kernel = kernel](const RowKernels& variant, size_t offset, GuardedBuffer::Side side) {
                             static RowPage to;
                             const std::vector<uint8_t> blank(wanted.size(), 0x5A);
                             const PixelPositions& positions = offset % 2 == 0 ? at : listed;
                             (variant.*kernel)(to.place(blank, offset, side), picture.data(),
                                               static_cast<ptrdiff_t>(pitch), positions, count);
                             return to.holds(wanted);
                         });
        }
    }
}

TEST(RowKernels, RowsOfAnotherWidth)
{
    std::mt19937 random(77);
    const RowKernels& chosen = rowKernels();
    const auto upTo = [&random](unsigned limit) { return static_cast<R_INT>(random() % limit) + 1; };
    for (const R_INT bits : {1, 3, 8, 12, 16, 24, 32, 48, 64}) {
        for (int i = 0; i < 24 && !::testing::Test::HasFatalFailure(); ++i) {
            const R_INT right = upTo(i % 3 == 0 ? 300 : 50),
                        left = i % 2 == 0 ? 0 : upTo(static_cast<unsigned>(right)) - 1;
            const R_INT width = upTo(i % 4 == 0 ? 9 : 60);
            const auto source = randomBytes(packedBytes(right, bits), static_cast<unsigned>(i));
            std::vector<uint8_t> wanted(packedBytes(width, bits));
            for (R_INT64 x = 0; x < width; ++x)
                setPixelAt(wanted.data(), x, bits, pixelAt(source.data(), left + x * (right - left) / width, bits));
            inEveryPlace(std::to_string(bits) + " bits, " + std::to_string(left) + " to " + std::to_string(right) +
                             " as " + std::to_string(width),
                         [&](const RowKernels& variant, size_t offset, GuardedBuffer::Side side) {
                             if (bits != 24 && offset % 8 != static_cast<size_t>(bits) % 8) return true;
                             static RowPage from, to;
                             useRowKernels(variant);
                             const RowPicker picker(bits, left, right, width);
                             const std::vector<uint8_t> blank(wanted.size(), 0x5A);
                             uint8_t* const target = to.place(blank, offset, side);
                             picker.pick(target, from.place(source, (offset * 7 + 3) % kOffsets, side));
                             return to.holds(wanted) && from.holds(source);
                         });
        }
    }
    useRowKernels(chosen);
}

template <int Bits> void checkPixelTraits()
{
    const auto bytes = randomBytes(97, Bits);
    for (R_INT64 x = 0; x < 97 * 8 / Bits; ++x) {
        const auto column = static_cast<size_t>(x);
        ASSERT_EQ(PixelTraits<Bits>::read(bytes.data(), column), pixelAt(bytes.data(), x, Bits)) << Bits << ' ' << x;
        std::vector<uint8_t> written = bytes, model = bytes;
        const R_UINT64 value = 0x9E3779B97F4A7C15u * static_cast<R_UINT64>(x + 1) >> (64 - Bits);
        PixelTraits<Bits>::write(written.data(), column, value);
        setPixelAt(model.data(), x, Bits, value);
        ASSERT_EQ(written, model) << Bits << ' ' << x;
        // The last pixel of a row lies against what is not the row's.
        const GuardedBuffer row(packedBytes(x + 1, Bits));
        PixelTraits<Bits>::write(row.data(), column, value);
        ASSERT_EQ(PixelTraits<Bits>::read(row.data(), column), value) << Bits << ' ' << x;
    }
}

TEST(PixelTraits, ReadAndWriteOnePixel)
{
#define RV_CHECK(B) checkPixelTraits<B>();
    RV_FOR_EACH_DEPTH(RV_CHECK)
#undef RV_CHECK
}

} // namespace
} // namespace rv::test
