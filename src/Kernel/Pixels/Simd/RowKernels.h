/// The row kernels: loops over the bytes of one row, built once for each instruction set. They know no bitmaps.
///
/// All variants give the same bytes. They read and write exactly the bytes named here, at any alignment, and never
/// one past them. This header is included where each instruction set is built, so it holds no inline code.
#pragma once

#include "Kernel/Pixels/Diffusion.h"
#include "Kernel/Pixels/PixelPositions.h"
#include "Kernel/Pixels/Resampling.h"

#include <stddef.h>
#include <stdint.h>

namespace rv::simd {

/// target[i] = ~source[i]. The two are the same array or apart.
using InvertBytes = void (*)(uint8_t* target, const uint8_t* source, size_t bytes) noexcept;

/// Exchanges two arrays, which are apart.
/// next  what will be exchanged next instead of other and is fetched meanwhile; a hint, any address will do
using SwapBytes = void (*)(uint8_t* one, uint8_t* other, size_t bytes, const uint8_t* next) noexcept;

/// Fills `bytes` bytes of target with what repeats itself.
/// pattern  period + kRepeatAhead bytes, of which those behind the period are the first ones again
/// period   at least kRepeatAhead; longer ones are faster
/// past     whether not to go through the caches: for more than they can keep
using RepeatBytes = void (*)(uint8_t* target, size_t bytes, const uint8_t* pattern, size_t period, bool past) noexcept;
constexpr size_t kRepeatAhead = 32;

/// Moves a row of `bytes` bytes by `shift` (0 to 7) bits towards its first bit, the top one of byte 0; zeros follow.
/// target is source, or the two are apart.
using ShiftBits = void (*)(uint8_t* target, const uint8_t* source, size_t bytes, unsigned shift) noexcept;

/// Reverses the order of `width` pixels. Pixels of less than 8 and of 12 bits are one stream, top bit first; the bits
/// behind the last pixel in its byte become 0 in target and do not count in source.
/// target, source  the bytes that hold the pixels, rounded up; the same array or apart
/// next            what will be mirrored next and is fetched meanwhile; a hint, any address will do
using MirrorRow = void (*)(uint8_t* target, const uint8_t* source, size_t width, const uint8_t* next) noexcept;

/// Turns rows into columns: pixel x of source row y becomes pixel y of target row x. Packed pixels are as above. A
/// pitch may be negative, from the last row on, which turns a picture the other way round: rows taken from the last one
/// on come clockwise by 90 degrees, rows given from the last one on counter-clockwise. target         `width` rows,
/// targetPitch bytes apart; of each the bytes that hold `height` pixels, rounded up source         `height` rows,
/// sourcePitch bytes apart; of each the bytes that hold `width` pixels are read past           the whole target is so
/// large that it need not go through the caches Target and source are apart.
using TurnPixels = void (*)(uint8_t* target, ptrdiff_t targetPitch, const uint8_t* source, ptrdiff_t sourcePitch,
                            size_t width, size_t height, bool past) noexcept;

/// Finds the palette entries nearest to a colour: those of the least squared distance over the first three bytes of an
/// entry. Returns that distance.
/// entries  4 * count bytes; count is 1 to 64 * kNearestMarks
/// colour   three bytes, in the order of an entry's
/// marks    out, kNearestMarks words: bit i % 64 of word i / 64 is set for each entry i at that distance
using NearestEntries = uint32_t (*)(const uint8_t* entries, size_t count, const uint8_t* colour,
                                    uint64_t* marks) noexcept;
constexpr size_t kNearestMarks = 4;

/// Writes the top byte of the item that is nearest to each colour; returns how many colours it could answer for before
/// the first one whose cell has no list, or whose nearest items are several.
/// colours  four bytes each, of which the last does not count
/// cells    of colours by the upper five bits of their third, second and first byte: where the list begins in items,
///          times 64, and its length, which is 1 to kLongestList; any other length is no list
/// items    like colours, with kItemsBehind more behind the last list
using NearestInLists = size_t (*)(uint8_t* indices, const uint8_t* colours, size_t width, const uint32_t* cells,
                                  const uint32_t* items) noexcept;
constexpr uint32_t kLongestList = 32;
constexpr size_t kItemsBehind = 7;

/// Combines whole bytes of a row with bits of another by a truth table: a bit of source and one of target, s and d,
/// become bit 2 * s + d of the table, which is the kernel's number.
/// source  its bits from `shift` (0 to 7) bits into byte 0 on, and nothing behind the last of them; where the table
/// does
///         not look at it, any pointer will do
/// target  source itself, where the shift is 0, or apart from it
using CombineBits = void (*)(uint8_t* target, const uint8_t* source, size_t bytes, unsigned shift) noexcept;
constexpr size_t kTruthTables = 16;

/// target[i] = the target's sample, the source's and the operation's result from them; bytes, or words in the machine's
/// order at any address. What does not fit a sample loses its upper bits.
/// top  the largest sample: from 1 to 255, or to 65535; samples may be above it
using CombineSamples = void (*)(uint8_t* target, const uint8_t* source, size_t count, unsigned top) noexcept;

/// How samples are combined. The target's sample is d, the source's s.
enum class Arithmetic : unsigned {
    add,            ///< at most top
    subtractSource, ///< d - s, at least 0
    subtractTarget, ///< s - d, at least 0
    multiply,       ///< d * s / top
    divideBySource, ///< d * top / s, at most top; top where s is 0
    divideByTarget, ///< s * top / d, likewise
    average,        ///< half of d + s
    minimum,
    maximum,
};
constexpr size_t kArithmetics = 9;

/// Composites pixels of four bytes, or of four words, the last of which is alpha, over the target's. The target's alpha
/// stays. The two rows are the same or apart.
using CompositePixels = void (*)(uint8_t* target, const uint8_t* source, size_t count) noexcept;

/// Makes a byte of every bit of a row, the top one of byte 0 first: zero or one. Target and source are apart.
using ExpandBits = void (*)(uint8_t* target, const uint8_t* source, size_t width, uint8_t zero, uint8_t one) noexcept;

/// Luminance of pixels of three bytes: (2R + 5G + B + 4) >> 3. Target and source are apart.
using LumaRow = void (*)(uint8_t* target, const uint8_t* source, size_t width) noexcept;

/// Writes each of `width` bytes two or three times. Target and source are apart.
using RepeatEachByte = void (*)(uint8_t* target, const uint8_t* source, size_t width) noexcept;

/// Makes pixels of one format of whole samples from those of another: words have the high byte of theirs taken, or the
/// byte twice. Alpha that is not there is opaque. Target and source are apart.
using ReorderPixels = void (*)(uint8_t* target, const uint8_t* source, size_t width) noexcept;
/// Samples of a pixel: bytes, or words with the low byte first; alpha is the last of four.
enum SampleLayout : size_t { kThreeBytes, kFourBytes, kThreeWords, kFourWords };
constexpr size_t kSampleLayouts = 4;

/// Adds numbers to the first three bytes of pixels of four, and keeps them within bytes.
/// numbers  from -255 to 255, of eight columns, after which they repeat themselves
using AddToPixels = void (*)(uint8_t* pixels, size_t width, const int16_t* numbers) noexcept;

/// Diffuses errors in `lanes` rows at once, which are `width` pixels long. At each of width + (lanes - 1) * delay steps
/// it takes one pixel of every row: of row i the one in column step - i * delay, be it in the row or not.
struct DiffusionBand {
    /// Gray: for each step a byte of every row. Colour: blue, green, red and any byte; that of row i for step s is at
    /// place s + i * skew.
    const uint8_t* pixels;
    size_t skew;
    uint8_t* indices; ///< out: for each step an index of every row
    size_t width;
    const IndexItems* items;
    /// Numerators from above the band for its first rows, by channel. What is read beside a row does not count.
    const int32_t* pending[kDiffusionRows][3];
    /// Out: the errors of the last row, of the one before it and so on; zeros beside them.
    int32_t* errors[kDiffusionRows][3];
};
struct DiffuseRows {
    size_t lanes;
    size_t delay;
    void (*run)(const DiffusionBand& band) noexcept;
};
/// Adds a row's errors to the sums of a row below it: weights[3 + o] times each, o columns on. There are zeros beside
/// the errors. Up to 8 columns behind the width are read and written.
using SpreadErrors = void (*)(int32_t* sums, const int32_t* errors, size_t width, const int* weights) noexcept;
constexpr size_t kDiffusionPad = 96; ///< columns beside a row of numerators or errors that are read or written

/// A bit for each of width bytes, the first one on top of the first byte: whether it is above its column's level. Bits
/// behind the last one become 0.
/// levels  of eight columns, after which they repeat themselves
using BitsAboveLevels = void (*)(uint8_t* bits, const uint8_t* gray, size_t width, const uint8_t* levels) noexcept;

/// sums[i] += samples[i] * weight; begins: = instead. The two are apart.
/// samples  bytes, words in the machine's order at any address, or floats
using AddSamples = void (*)(float* sums, const uint8_t* samples, size_t count, float weight, bool begins) noexcept;
using AddFloats = void (*)(float* sums, const float* samples, size_t count, float weight, bool begins) noexcept;
/// Makes `width` pixels, each from those that its taps name; kFloatSlack floats behind either row are touched.
using SumColumns = void (*)(float* target, const float* source, const Taps* taps, size_t width, float middle) noexcept;
/// Floats as bytes, or words, cut to 0 to top and rounded, halves up; kFloatSlack floats behind source are read.
using RoundFloats = void (*)(uint8_t* target, const float* source, size_t count, float top) noexcept;
/// Rows side by side: float i of row l becomes float i * kSplineLanes + l. count is a multiple of kSplineLanes.
using SideBySide = void (*)(float* lanes, const float* rows, size_t pitch, size_t count) noexcept;
/// Solves natural cubic splines, one in each of `lanes` lanes (a multiple of kSplineLanes): the second derivatives at
/// points that are one apart. A point that lies on the line through its neighbours gets none.
/// moments  out; point by point, as samples are
/// ratios   room for as many
/// points   at least 1
using SolveSplines = void (*)(float* moments, float* ratios, const float* samples, size_t points,
                              size_t lanes) noexcept;
/// The curves of kSplineLanes rows that lie side by side, taken at `width` points (a multiple of kSplineLanes), as rows
/// `pitch` floats apart.
using CurveColumns = void (*)(float* rows, size_t pitch, const float* samples, const float* moments,
                              const CurvePoint* points, size_t width, size_t channels) noexcept;
/// The curves of columns at one point: rows holds the two rows beside it, bent the second derivatives in them.
/// kFloatSlack floats behind each row are touched.
using CurveRow = void (*)(float* target, const float* const rows[2], const float* const bent[2],
                          const CurvePoint& point, size_t count) noexcept;
/// Bytes as sums of two, weighed and less 128 each: (a - 128) * (128 - steps) + (b - 128) * steps. Of the row,
/// kMixBytes bytes from each offset on are read; mixBlocks takes the two offsets of each block to be one.
using MixBlocks = void (*)(int16_t* target, const uint8_t* row, const MixBlock* plan, size_t blocks) noexcept;
/// The same by pixels, at any distance.
using MixPixels = void (*)(int16_t* target, const uint8_t* row, const MixedPixel* plan, size_t width,
                           size_t channels) noexcept;
/// Two rows of such sums mixed as bytes; the next one weighs steps / kMixRowSteps, less than 1. Halves go up.
using MixRows = void (*)(uint8_t* target, const int16_t* first, const int16_t* next, int steps, size_t count) noexcept;
/// Counts the bits of half bytes: of the upper ones in counts, of the lower ones behind, in whole blocks of kCountBlock
/// bytes each. begins: the counts are new; else added, up to kMostFourRows rows.
using CountFours = void (*)(uint8_t* counts, const uint8_t* bits, size_t bytes, bool begins) noexcept;
constexpr int kMostFourRows = 63;
constexpr size_t kCountBlock = 32;
/// The counts as levels: levelOf[count * 255 / all], for `width` of them, the upper and the lower ones in turn.
/// levelOf  straight between its first and its last
using LevelsOfFours = void (*)(uint8_t* levels, const uint8_t* counts, size_t width, int all,
                               const uint8_t* levelOf) noexcept;
/// Adds a weight to the sums of those columns whose bit is set; begins: they are 0 before.
using AddBits = void (*)(uint16_t* sums, const uint8_t* bits, size_t width, uint16_t weight, bool begins) noexcept;
/// What columns sum up to, up to kRowsWeigh each, as levels levelOf[sum * 255 / all] of `width` pixels: at most as many
/// as columns, and fewer than 65536 of them in one.
/// before   room for columns + 1
/// borders  of the pixels, width + 1
using LevelsOfSums = void (*)(uint8_t* levels, uint32_t* before, const uint16_t* sums, size_t columns,
                              const ColumnBorder* borders, size_t width, const uint8_t* levelOf) noexcept;

/// Takes the pixel that holds each position, or weighs the four whose centres lie around it: those that hold the
/// position less half a pixel, and their neighbours to the right and below. Bytes are weighed by 256ths of a pixel, and
/// what comes out is rounded to nearest.
/// target  out, `count` pixels, those of 1 bit from the top bit of the first byte on; bits behind the last become 0,
/// and
///         no byte is written that holds none of them
/// source  rows of pixels `pitch` bytes apart; behind the four bytes of a pixel, kPickSlack more may be read
using PickPixels = void (*)(uint8_t* target, const uint8_t* source, ptrdiff_t pitch, const PixelPositions& at,
                            size_t count) noexcept;

/// Where the bytes of a row come from: sixteen of them together from some pieces of sixteen bytes of another row.
struct PickPlan {
    size_t pieces;           ///< of which each sixteen bytes come, at least one
    const uint32_t* offsets; ///< of each piece; it lies inside the row
    const uint8_t* patterns; ///< for each piece sixteen places in it; 128: not from this piece
};
/// Makes `bytes` bytes by a plan. Target and source are apart.
using PickBytes = void (*)(uint8_t* target, const uint8_t* source, size_t bytes, const PickPlan& plan) noexcept;

/// One variant of every kernel.
struct RowKernels {
    const char* name;
    InvertBytes invert;
    SwapBytes swap;
    RepeatBytes repeat;
    ShiftBits shiftLeft;
    MirrorRow mirror1;
    MirrorRow mirror2;
    MirrorRow mirror3;
    MirrorRow mirror4;
    MirrorRow mirror5;
    MirrorRow mirror6;
    MirrorRow mirror7;
    MirrorRow mirror8;
    MirrorRow mirror12;
    MirrorRow mirror16;
    MirrorRow mirror24;
    MirrorRow mirror32;
    MirrorRow mirror48;
    MirrorRow mirror64;
    TurnPixels turn1;
    TurnPixels turn2;
    TurnPixels turn3;
    TurnPixels turn4;
    TurnPixels turn5;
    TurnPixels turn6;
    TurnPixels turn7;
    TurnPixels turn8;
    TurnPixels turn12;
    TurnPixels turn16;
    TurnPixels turn24;
    TurnPixels turn32;
    TurnPixels turn48;
    TurnPixels turn64;
    NearestEntries nearest;
    NearestInLists nearestInLists;
    CombineBits combineBits[kTruthTables];
    CombineSamples combine8[kArithmetics]; ///< by Arithmetic
    CombineSamples combine16[kArithmetics];
    CompositePixels over8;
    CompositePixels over16;
    ExpandBits expand1;
    LumaRow lumaBgr;
    LumaRow lumaRgb;
    RepeatEachByte twice;
    RepeatEachByte triple;
    ReorderPixels reorder[kSampleLayouts][kSampleLayouts][2]; ///< from, to, whether red and blue change places
    AddToPixels addToPixels;
    DiffuseRows diffuseToTwo[kDiffusions];  ///< gray to black and white
    DiffuseRows diffuseToFour[kDiffusions]; ///< gray to four grays
    DiffuseRows diffuseColour[kDiffusions]; ///< by the items
    SpreadErrors spreadErrors;
    BitsAboveLevels bitsAbove;
    PickPixels pick1;
    PickPixels pick8;
    PickPixels pick16;
    PickPixels pick24;
    PickPixels pick32;
    PickPixels pick48;
    PickPixels pick64;
    PickPixels weigh8; ///< of 1, 3 and 4 bytes
    PickPixels weigh24;
    PickPixels weigh32;
    PickPixels weighByAlpha32; ///< the fourth byte is alpha, by which the others are weighed
    AddSamples addBytes;
    AddSamples addWords;
    AddFloats addFloats;
    SumColumns sum1; ///< by channels
    SumColumns sum3;
    SumColumns sum4;
    RoundFloats roundToBytes;
    RoundFloats roundToWords;
    SideBySide sideBySide;
    SolveSplines solveSplines;
    CurveColumns curveColumns;
    CurveRow curveRow;
    PickBytes pickBytes;
    MixBlocks mixBlocks;
    MixBlocks mixHalves;
    MixPixels mixPixels;
    MixRows mixRows;
    CountFours countFours;
    LevelsOfFours levelsOfFours;
    AddBits addBits;
    LevelsOfSums levelsOfSums;
};

// Which of them this machine can run is Select.h's business.
namespace base {
extern const RowKernels kRowKernels; ///< plain words; runs everywhere
}
namespace ssse3 {
extern const RowKernels kRowKernels;
}
namespace avx2 {
extern const RowKernels kRowKernels;
}

} // namespace rv::simd
