// Combinations, judged pixel by pixel by a model that looks at the displayed images.
#include "R_Geometry.h"
#include "Support/FailingPlatform.h"
#include "Support/FakeRegion.h"
#include "Support/Picture.h"
#include "Support/Watcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>

namespace rv::test {
namespace {

/// What the operations make of two pixels.
class Model {
public:
    Model(const BITMAPHANDLE* p, R_UINT flags) : bits_(p->BitsPerPixel), flags_(flags)
    {
        const bool gray = bits_ == 12 || (bits_ == 16 && p->Order == ORDER_GRAY);
        words_ = gray || bits_ >= 48;
        sampleBits_ = gray || bits_ < 8 ? bits_ : bits_ == 16 ? 5 : bits_ >= 48 ? 16 : 8;
        top_ = gray ? (uint64_t{1} << ((p->HighBit < 0 ? bits_ - 1 : p->HighBit) + 1)) - 1 : ones(sampleBits_);
    }
    uint64_t operator()(uint64_t s, uint64_t d) const
    {
        const bool fixed = bits_ == 1 || logical() || settled();
        const uint64_t result = fixed ? byBits(s, d, bits_) : bySamples(s, d);
        return result & ones(bits_);
    }
    /// Whether the source makes a difference.
    bool readsSource() const
    {
        const bool onBits = bits_ == 1 || logical() || settled();
        return !onBits || byBits(0, 0, 1) != byBits(1, 0, 1) || byBits(0, 1, 1) != byBits(1, 1, 1);
    }

private:
    static uint64_t ones(R_INT bits) { return bits == 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1; }
    R_UINT operation() const { return flags_ & 0xF00; }
    bool logical() const { return operation() <= COMBINE_XOR; }
    static uint64_t term(uint64_t value, R_UINT modifier, uint64_t all)
    {
        return modifier == 0 ? value : modifier == 1 ? ~value & all : modifier == 2 ? 0 : all;
    }
    uint64_t byBits(uint64_t s, uint64_t d, R_INT bits) const
    {
        const uint64_t all = ones(bits);
        s = term(s, flags_ & 0xF, all);
        d = term(d, flags_ >> 4 & 0xF, all);
        constexpr char kinds[] = "&|^|sr&&=|&|d|"; // by the operation's number
        const char kind = kinds[operation() >> 8];
        const uint64_t result = kind == '&'   ? s & d
                                : kind == '|' ? s | d
                                : kind == '^' ? s ^ d
                                : kind == 's' ? ~s & d
                                : kind == 'r' ? s & ~d
                                : kind == '=' ? s
                                              : d;
        return term(result & all, flags_ >> 12, all);
    }
    /// Whether no more than one operand counts, so that there is nothing to reckon; a quotient needs no operand at all.
    bool settled() const
    {
        const bool byS = byBits(0, 0, 1) != byBits(1, 0, 1) || byBits(0, 1, 1) != byBits(1, 1, 1);
        const bool byD = byBits(0, 0, 1) != byBits(0, 1, 1) || byBits(1, 0, 1) != byBits(1, 1, 1);
        const bool quotient = operation() == COMBINE_DIV_SRC || operation() == COMBINE_DIV_DST;
        return quotient ? !byS && !byD : !(byS && byD);
    }
    uint64_t bySamples(uint64_t s, uint64_t d) const
    {
        const uint64_t sample = words_ ? 0xFFFF : 0xFF;
        const R_INT count = bits_ == 16 && !words_ ? 3 : bits_ / sampleBits_;
        const bool over = operation() == COMBINE_SRC_OVER && (bits_ == 32 || bits_ == 64);
        const auto taken = [&](uint64_t pixel, R_INT i, bool inverted) {
            const uint64_t value = pixel >> (i * sampleBits_) & ones(sampleBits_);
            return inverted ? sample - value : value;
        };
        const bool notS = (flags_ & 0xF) == 1, notD = (flags_ & 0xF0) == 0x10;
        uint64_t result = 0;
        for (R_INT i = 0; i < count; ++i) {
            const uint64_t one = taken(s, i, notS), other = taken(d, i, notD);
            uint64_t value = reckon(one, other);
            if (over) value = i == 3 ? other : composed(one, other, taken(s, 3, notS), taken(d, 3, notD));
            result |= (value & ones(sampleBits_)) << (i * sampleBits_);
        }
        return flags_ >> 12 == 1 ? ~result : result;
    }
    uint64_t reckon(uint64_t s, uint64_t d) const
    {
        switch (operation()) {
        case COMBINE_ADD: return std::min(top_, s + d);
        case COMBINE_SUB_SRC: return d < s ? 0 : d - s;
        case COMBINE_SUB_DST: return s < d ? 0 : s - d;
        case COMBINE_MUL: return d * s / top_;
        case COMBINE_DIV_SRC: return s == 0 ? top_ : std::min(top_, d * top_ / s);
        case COMBINE_DIV_DST: return d == 0 ? top_ : std::min(top_, s * top_ / d);
        case COMBINE_AVG: return (s + d) / 2;
        case COMBINE_MIN: return std::min(s, d);
        case COMBINE_MAX: return std::max(s, d);
        default: return s;
        }
    }
    uint64_t composed(uint64_t s, uint64_t d, uint64_t a, uint64_t b) const
    {
        if (!words_) {
            const uint64_t w = (255 - a) * b + a * 255;
            return w == 0 ? 0 : (s * a * 255 + d * (255 - a) * b) / w;
        }
        const uint64_t w = b - b * a / 65535 + a, e = (65535 - a) * b / 65535;
        return w == 0 ? 0 : (s * a + d * e) / w;
    }

    R_INT bits_;
    R_UINT flags_;
    bool words_;
    R_INT sampleBits_;
    uint64_t top_;
};

class Random {
public:
    explicit Random(unsigned seed) : engine_(seed) {}
    R_INT below(R_INT limit) { return static_cast<R_INT>(engine_() % static_cast<unsigned>(limit)); }
    R_INT between(R_INT least, R_INT most) { return least + below(most - least + 1); }
    bool oneIn(R_INT n) { return below(n) == 0; }
    unsigned seed() { return static_cast<unsigned>(engine_()); }

private:
    std::mt19937 engine_;
};

Scene randomScene(Random& random, R_INT bits)
{
    Scene scene{.bits = bits, .seed = random.seed()};
    scene.structSize = random.oneIn(2) ? BITMAPHANDLE_SIZE_SHORT : BITMAPHANDLE_SIZE;
    const auto homes = homesOf(bits);
    scene.home = random.oneIn(2) ? homes[static_cast<size_t>(random.below(static_cast<R_INT>(homes.size())))]
                                 : Home::conventional;
    if (!scene.possible()) scene.home = Home::conventional;
    scene.width = random.between(1, random.oneIn(3) ? 300 : 40);
    scene.height = random.between(1, 12);
    return scene;
}

/// Alphas that are nothing or everything are not rare.
void setAlphas(const TestBitmap& p, Random& random)
{
    if (p->BitsPerPixel != 32 && p->BitsPerPixel != 64) return;
    auto pixels = p.pixels();
    const auto bytes = static_cast<size_t>(p->BitsPerPixel / 8), alpha = bytes / 4;
    const R_INT kind = random.below(4);
    for (size_t at = 0; at + bytes <= pixels.size(); at += bytes)
        if (kind != 0 && (kind == 1 || random.oneIn(3)))
            std::fill_n(pixels.begin() + static_cast<long>(at + bytes - alpha), alpha, kind == 2 ? 0 : 255);
    p.setPixels(pixels);
}

struct Place {
    R_INT xTo, yTo, width, height, xFrom, yFrom;
};

/// A place near two pictures that often reaches out of them.
Place randomPlace(Random& random, const Picture& to, const Picture& from)
{
    const auto start = [&](R_INT side) { return random.oneIn(3) ? 0 : random.between(-4, side); };
    const auto length = [&](R_INT side) { return random.oneIn(3) ? 100000 : random.between(1, side + 3); };
    return {start(to.width),   start(to.height),  length(to.width),
            length(to.height), start(from.width), start(from.height)};
}

/// What the model makes of the pictures; nothing where no pixel is left of the rectangles.
std::optional<Picture> combined(const Picture& to, const Picture& from, const Place& at, const Model& model,
                                const Picture& inside)
{
    Picture result = to;
    bool any = false;
    for (R_INT y = 0; y < to.height; ++y) {
        for (R_INT x = 0; x < to.width; ++x) {
            const R_INT i = x - at.xTo, j = y - at.yTo, u = at.xFrom + i, v = at.yFrom + j;
            if (i < 0 || j < 0 || i >= at.width || j >= at.height) continue;
            const bool there = u >= 0 && v >= 0 && u < from.width && v < from.height;
            if (model.readsSource() && !there) continue;
            any = true;
            const auto pixel = static_cast<size_t>(y * to.width + x);
            const uint64_t s = there ? from.pixels[static_cast<size_t>(v * from.width + u)] : 0;
            if (inside.pixels[pixel] != 0) result.pixels[pixel] = model(s, to.pixels[pixel]);
        }
    }
    return any ? std::optional(result) : std::nullopt;
}

/// Ones where the region is, in the bitmap's own perspective.
Picture insideOf(const TestBitmap& bitmap, const FakeRegion* region)
{
    const TestBitmap mask({.width = bitmap->Width, .height = bitmap->Height});
    mask->ViewPerspective = bitmap->ViewPerspective;
    auto pixels = mask.pixels();
    for (R_INT row = 0; row < mask->Height; ++row)
        for (R_INT x = 0; x < mask->Width; ++x)
            setPixelAt(pixels.data() + row * static_cast<R_INT64>(mask->BytesPerLine), x, 8,
                       region == nullptr || region->holds(row, x));
    mask.setPixels(pixels);
    return Picture(mask);
}

bool paddingIsClean(const TestBitmap& bitmap)
{
    const auto rows = bitmap.pixels();
    for (size_t row = 0; row < rows.size(); row += bitmap->BytesPerLine)
        for (R_INT64 bit = R_INT64{bitmap->Width} * bitmap->BitsPerPixel; bit < R_INT64{bitmap->BytesPerLine} * 8;
             ++bit)
            if (pixelAt(rows.data() + row, bit, 1) != 0) return false;
    return true;
}

void tryOne(R_INT bits, unsigned seed)
{
    Random random(seed);
    const TestBitmap to(randomScene(random, bits));
    const bool itself = random.oneIn(5);
    std::optional<TestBitmap> other;
    const TestBitmap& from = itself ? to : other.emplace(randomScene(random, bits));
    for (const TestBitmap* p : {&to, &from}) {
        (*p)->ViewPerspective = random.between(TOP_LEFT, LEFT_BOTTOM);
        setAlphas(*p, random);
    }
    if (bits == 16) to->Order = random.oneIn(2) ? ORDER_GRAY : ORDER_BGR;
    if (bits == 12 || bits == 16) to->HighBit = random.between(-1, bits - 1);
    const auto field = [&](R_INT values) { return static_cast<R_UINT>(random.oneIn(3) ? random.below(values) : 0); };
    const R_UINT flags = field(4) | field(4) << 4 | static_cast<R_UINT>(random.below(14)) << 8 | field(4) << 12;
    std::optional<FakeRegion> region;
    if (random.oneIn(4)) region.emplace(to, random.oneIn(9) ? 0 : random.seed());

    const Model model(to, flags);
    const Picture before(from);
    const Place at = randomPlace(random, Picture(to), before);
    const auto wanted = combined(Picture(to), before, at, model, insideOf(to, region ? &*region : nullptr));
    std::string text = "seed " + std::to_string(seed) + ", flags " + std::to_string(flags) + ", " + to.scene().text() +
                       " (" + std::to_string(to->ViewPerspective) + ") from " +
                       (itself ? "itself" : from.scene().text()) + " (" + std::to_string(from->ViewPerspective) + ")";
    const auto combine = [&] {
        return R_CombineBitmapKrn(to, at.xTo, at.yTo, at.width, at.height, from, at.xFrom, at.yFrom, flags);
    };
    const auto rows = to.pixels();
    for (int nth = 1; wanted; ++nth) { // as long as an allocation fails, nothing happens
        const LiveBlocks live;
        const FailingAllocation fault(nth);
        if (combine() == SUCCESS) break;
        ASSERT_TRUE(fault.happened() && to.pixels() == rows && live.count() == 0) << text << ", fault " << nth;
    }
    if (!wanted) {
        ASSERT_EQ(combine(), ERROR_INV_PARAMETER) << text;
    }
    ASSERT_TRUE(Picture(to) == (wanted ? *wanted : Picture(to))) << text;
    ASSERT_TRUE(paddingIsClean(to)) << text;
    ASSERT_TRUE(itself || Picture(from) == before) << text;
    ASSERT_TRUE(to.scene().structSize != BITMAPHANDLE_SIZE || to->nLockCount == 0) << text;
}

TEST(Combine, GivesThePixelsOfTheModel)
{
    for (const R_INT bits : allDepths()) {
        for (unsigned i = 0; i < 400; ++i) {
            tryOne(bits, static_cast<unsigned>(bits) * 1000 + i);
            if (HasFatalFailure()) return;
        }
    }
}

/// A source of the target's own pixels, in whatever perspective, all rows of them or those from a later one on.
TEST(Combine, SharedPixelsAreReadAsTheyWere)
{
    for (R_INT perspective = TOP_LEFT; perspective <= LEFT_BOTTOM; ++perspective) {
        for (const R_INT skipped : {0, 3}) {
            for (const R_UINT flags : {COMBINE_XOR, COMBINE_ADD}) {
                const TestBitmap to({.bits = 6});
                BITMAPHANDLE from = *to.get();
                from.ViewPerspective = perspective;
                from.Height -= skipped;
                from.Addr.Pointer = static_cast<uint8_t*>(from.Addr.Pointer) + R_INT64{from.BytesPerLine} * skipped;
                from.Size64 = from.Size = R_UINT64{from.BytesPerLine} * static_cast<R_UINT64>(from.Height);
                const Place at{0, 1, 30, 9, 1, 0};
                const auto wanted =
                    combined(Picture(to), Picture(&from), at, Model(to, flags), insideOf(to, nullptr)).value();
                ASSERT_EQ(R_CombineBitmapKrn(to, at.xTo, at.yTo, at.width, at.height, &from, at.xFrom, at.yFrom, flags),
                          SUCCESS);
                EXPECT_TRUE(Picture(to) == wanted) << perspective << " without " << skipped << " rows, " << flags;
            }
        }
    }
}

TEST(Combine, RefusesWhatMakesNoSense)
{
    const TestBitmap a({}), b({.seed = 2}), deeper({.bits = 24});
    const auto call = [&](BITMAPHANDLE* to, BITMAPHANDLE* from, R_UINT flags, R_INT width = 5, R_INT x = 0) {
        return R_CombineBitmapKrn(to, x, 0, width, 5, from, 0, 0, flags);
    };
    const auto before = a.pixels();
    const GuardedRecord empty(BITMAPHANDLE_SIZE_SHORT);
    ASSERT_EQ(R_InitBitmap(empty, empty.structSize(), 5, 5, 8), SUCCESS);
    constexpr R_INT kLargest = 2147483647;
    for (const R_INT status :
         {call(nullptr, b, 0), call(empty, b, 0), call(a, nullptr, 0), call(a, empty, 0), call(a, deeper, 0),
          call(a, b, 0x10000), call(a, b, 0xE00), call(a, b, 0x4), call(a, b, 0x40), call(a, b, 0x4000),
          call(a, b, 0, 0), call(a, b, 0, -1), call(a, b, 0, 5, kLargest), call(a, b, 0, 5, -kLargest)})
        EXPECT_EQ(status, ERROR_INV_PARAMETER);
    EXPECT_EQ(a.pixels(), before);
    EXPECT_EQ(call(a, nullptr, COMBINE_SRC_0, 2), SUCCESS) << "black AND anything needs no source";
    EXPECT_EQ(call(a, deeper, COMBINE_SRC_0, 2), SUCCESS);

    b->uStructSize = 229;
    EXPECT_EQ(call(a, b, COMBINE_SRC_0), ERROR_INV_STRUCT_SIZE);
    b->uStructSize = BITMAPHANDLE_SIZE;
    b->Width = 1000; // more than its rows hold
    EXPECT_EQ(call(a, b, 0), ERROR_INV_SIZE);
    EXPECT_EQ(call(b, a, 0), ERROR_INV_SIZE);
    b->Width = b.scene().width;
}

TEST(Combine, TellsItsProgressAndStopsBetweenRows)
{
    const TestBitmap b({.seed = 2});
    using Percents = std::vector<R_INT>;
    {
        const TestBitmap a({});
        const auto before = a.pixels();
        const Watcher watcher;
        EXPECT_EQ(R_CombineBitmapKrn(a, 0, 0, 9, 9, nullptr, 0, 0, COMBINE_SRC_0 | COMBINE_OR), SUCCESS);
        EXPECT_EQ(a.pixels(), before);
        EXPECT_EQ(watcher.percents, (Percents{0, 100}));
        EXPECT_EQ(R_CombineBitmapKrn(a, 0, -6, 9, 9, b, 0, 0, COMBINE_XOR), SUCCESS);
        const FakeRegion nothing(a, 0); // rows without pixels that may change count as well
        EXPECT_EQ(R_CombineBitmapKrn(a, 0, -6, 9, 9, b, 0, 0, COMBINE_XOR), SUCCESS);
        EXPECT_EQ(watcher.percents, (Percents{0, 100, 0, 33, 66, 100, 0, 33, 66, 100})) << "three of the nine are left";
    }
    for (int stopAt = 0; stopAt < 6; ++stopAt) {
        const TestBitmap a({});
        const auto before = a.pixels();
        const Watcher watcher(stopAt);
        EXPECT_EQ(R_CombineBitmapKrn(a, 0, 0, 37, 5, b, 0, 0, COMBINE_XOR), -100);
        auto rest = a.pixels(); // stored upside down: the first rows to change are its last but six
        const auto rowBytes = static_cast<long>(a->BytesPerLine);
        int changed = 0;
        for (long row = 0; row < 11; ++row)
            changed += !std::equal(before.begin() + row * rowBytes, before.begin() + (row + 1) * rowBytes,
                                   rest.begin() + row * rowBytes);
        EXPECT_EQ(changed, stopAt);
        EXPECT_EQ(a->nLockCount, 0);
    }
}

} // namespace
} // namespace rv::test
