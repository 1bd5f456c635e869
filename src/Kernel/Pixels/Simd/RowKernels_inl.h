// The text of the row kernels. Each variant includes it once, after defining
//   RV_SIMD          the variant's namespace
//   RV_VECTOR_BYTES  bytes of its widest block: 8 (plain words), 16 or 32
// and is compiled for its own instruction set. Nothing here may have linkage but the table, and nothing may be
// included that brings inline functions along: the linker keeps one copy of each for the whole library, and that
// could be the one that needs AVX2.
//
// What a step reads is loaded before the step stores. That lets target and source be one array, and lets a store
// spill into bytes that a later store will fill.

#include "Kernel/Pixels/Simd/RowKernels.h"

#include "Kernel/Pixels/Simd/Blocks_inl.h"
#include "Kernel/Pixels/Simd/Bytes_inl.h"
#include "Kernel/Pixels/Simd/Combine_inl.h"
#include "Kernel/Pixels/Simd/Convert_inl.h"
#include "Kernel/Pixels/Simd/Mirror_inl.h"
#include "Kernel/Pixels/Simd/Mix_inl.h"
#include "Kernel/Pixels/Simd/NearestEntries_inl.h"
#include "Kernel/Pixels/Simd/Page_inl.h"
#include "Kernel/Pixels/Simd/PickBytes_inl.h"
#include "Kernel/Pixels/Simd/Pick_inl.h"
#include "Kernel/Pixels/Simd/Repeat_inl.h"
#include "Kernel/Pixels/Simd/Resample_inl.h"
#include "Kernel/Pixels/Simd/Spline_inl.h"
#include "Kernel/Pixels/Simd/Turns_inl.h"
// After those whose lists of indices it uses.
#include "Kernel/Pixels/Simd/Diffusion_inl.h"

#define RV_NAME_OF(word) #word
#define RV_NAME(macro) RV_NAME_OF(macro)

namespace rv::simd::RV_SIMD {

#define RV_ARITHMETIC(Sample)                                                                                          \
    {                                                                                                                  \
        combineSamples<AddSamples, Sample>, combineSamples<SubtractSource, Sample>,                                    \
            combineExchanged<SubtractSource, Sample>, multiplySamples<Sample>, combineSamples<DivideBySource, Sample>, \
            combineExchanged<DivideBySource, Sample>, combineSamples<AverageSamples, Sample>,                          \
            combineSamples<LesserSamples, Sample>, combineSamples<GreaterSamples, Sample>                              \
    }

#define RV_REORDER_TO(From, To)                                                                                        \
    {                                                                                                                  \
        reorder<From, To, false>, reorder<From, To, true>                                                              \
    }
#define RV_REORDER(From)                                                                                               \
    {                                                                                                                  \
        RV_REORDER_TO(From, kThreeBytes), RV_REORDER_TO(From, kFourBytes), RV_REORDER_TO(From, kThreeWords),           \
            RV_REORDER_TO(From, kFourWords)                                                                            \
    }

const RowKernels kRowKernels = {
    .name = RV_NAME(RV_SIMD),
    .invert = invertBytes,
    .swap = swapBytes,
    .repeat = repeatBytes,
    .shiftLeft = shiftLeft,
    .mirror1 = mirrorSamples<1>,
    .mirror2 = mirrorSamples<2>,
    .mirror3 = mirrorOdd<3, 1>,
    .mirror4 = mirrorSamples<4>,
    .mirror5 = mirrorOdd<5, 1>,
    .mirror6 = mirrorOdd<6, 2>,
    .mirror7 = mirrorOdd<7, 1>,
    .mirror8 = mirrorUnits<1>,
    .mirror12 = mirrorOdd<12, 4>,
    .mirror16 = mirrorUnits<2>,
    .mirror24 = mirrorLoose<3>,
    .mirror32 = mirrorUnits<4>,
    .mirror48 = mirrorLoose<6>,
    .mirror64 = mirrorUnits<8>,
    .turn1 = turnPixels<1>,
    .turn2 = turnPixels<2>,
    .turn3 = turnPixels<3>,
    .turn4 = turnPixels<4>,
    .turn5 = turnPixels<5>,
    .turn6 = turnPixels<6>,
    .turn7 = turnPixels<7>,
    .turn8 = turnPixels<8>,
    .turn12 = turnPixels<12>,
    .turn16 = turnPixels<16>,
    .turn24 = turnPixels<24>,
    .turn32 = turnPixels<32>,
    .turn48 = turnPixels<48>,
    .turn64 = turnPixels<64>,
    .nearest = nearestEntries,
    .nearestInLists = nearestInLists,
    .combineBits = {combineBits<0>, combineBits<1>, combineBits<2>, combineBits<3>, combineBits<4>, combineBits<5>,
                    combineBits<6>, combineBits<7>, combineBits<8>, combineBits<9>, combineBits<10>, combineBits<11>,
                    combineBits<12>, combineBits<13>, combineBits<14>, combineBits<15>},
    .combine8 = RV_ARITHMETIC(uint8_t),
    .combine16 = RV_ARITHMETIC(uint16_t),
    .over8 = over8,
    .over16 = over16,
    .expand1 = expand1,
    .lumaBgr = luma<1>,
    .lumaRgb = luma<2>,
    .twice = repeatEach<2>,
    .triple = repeatEach<3>,
    .reorder = {RV_REORDER(kThreeBytes), RV_REORDER(kFourBytes), RV_REORDER(kThreeWords), RV_REORDER(kFourWords)},
    .addToPixels = addToPixels,
    .diffuseToTwo = {grayRows<0, 7>(), grayRows<1, 7>(), grayRows<2, 7>(), grayRows<3, 7>(), grayRows<4, 7>(),
                     grayRows<5, 7>()},
    .diffuseToFour = {grayRows<0, 6>(), grayRows<1, 6>(), grayRows<2, 6>(), grayRows<3, 6>(), grayRows<4, 6>(),
                      grayRows<5, 6>()},
    .diffuseColour = {colourRows<0>(), colourRows<1>(), colourRows<2>(), colourRows<3>(), colourRows<4>(),
                      colourRows<5>()},
    .spreadErrors = spreadErrors,
    .bitsAbove = bitsAboveLevels,
    .pick1 = pickBits,
    .pick8 = pickPixels<1>,
    .pick16 = pickPixels<2>,
    .pick24 = pickPixels<3>,
    .pick32 = pickPixels<4>,
    .pick48 = pickPixels<6>,
    .pick64 = pickPixels<8>,
    .weigh8 = weighGray,
    .weigh24 = weighPixels<3, false>,
    .weigh32 = weighPixels<4, false>,
    .weighByAlpha32 = weighPixels<4, true>,
    .addBytes = addBytes,
    .addWords = addWords,
    .addFloats = addFloats,
    .sum1 = sumColumns<1>,
    .sum3 = sumColumns<3>,
    .sum4 = sumColumns<4>,
    .roundToBytes = roundToBytes,
    .roundToWords = roundToWords,
    .sideBySide = sideBySide,
    .solveSplines = solveSplines,
    .curveColumns = curveColumns,
    .curveRow = curveRow,
    .pickBytes = pickBytes,
    .mixBlocks = mixBlocks<true>,
    .mixHalves = mixBlocks<false>,
    .mixPixels = mixPixels,
    .mixRows = mixRows,
    .countFours = countFours,
    .levelsOfFours = levelsOfFours,
    .addBits = addBits,
    .levelsOfSums = levelsOfSums,
};

} // namespace rv::simd::RV_SIMD
