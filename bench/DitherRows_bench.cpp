// Whole pictures dithered many rows at once, by each variant of the row kernels: "Stucki 8 to 1/avx2" beside "copy 8".
#include "Kernel/Colour/Dither.h"
#include "Kernel/Pixels/Simd/Select.h"
#include "R_Colour.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr R_INT kSide = 2048;

struct Job {
    const char* name;
    R_INT method;
};
constexpr Job kJobs[] = {{"nearest", DITHER_NONE},  {"Floyd-Steinberg", DITHER_FLOYD_STEINBERG},
                         {"Stucki", DITHER_STUCKI}, {"Burkes", DITHER_BURKES},
                         {"Sierra", DITHER_SIERRA}, {"Stevenson-Arce", DITHER_STEVENSON_ARCE},
                         {"Jarvis", DITHER_JARVIS}, {"ordered", DITHER_ORDERED}};

/// A ramp with noise, so that no error ever settles.
std::vector<uint8_t> pictureOf(size_t samples)
{
    std::minstd_rand random(7);
    std::vector<uint8_t> picture(static_cast<size_t>(kSide) * kSide * samples);
    const size_t rowBytes = kSide * samples;
    for (size_t i = 0; i < picture.size(); ++i)
        picture[i] = static_cast<uint8_t>(i % rowBytes * 240 / rowBytes + random() % 16);
    return picture;
}

std::vector<RGBQUAD> randomPalette()
{
    std::minstd_rand random(5);
    const auto byte = [&random] { return static_cast<uint8_t>(random() >> 8); };
    std::vector<RGBQUAD> palette;
    while (palette.size() < 256) palette.push_back({byte(), byte(), byte(), 0});
    return palette;
}

void ditherPicture(benchmark::State& state, R_INT method, R_INT sourceBits, const rv::simd::RowKernels& kernels)
{
    rv::useRowKernels(kernels);
    const std::vector<uint8_t> source = pictureOf(static_cast<size_t>(sourceBits) / 8);
    std::vector<RGBQUAD> ramp(256);
    const std::vector<RGBQUAD> palette = randomPalette();
    const bool gray = sourceBits == 8;
    BITMAPHANDLE bitmap;
    bool good = R_InitBitmap(&bitmap, sizeof bitmap, kSide, kSide, sourceBits) == SUCCESS &&
                R_GetFixedPalette(ramp.data(), 0) == SUCCESS;
    bitmap.DitheringMethod = method;
    if (gray) bitmap.pPalette = ramp.data();
    const ptrdiff_t targetBytes = gray ? kSide / 8 : kSide;
    std::vector<uint8_t> target(static_cast<size_t>(targetBytes * kSide));
    for (auto _ : state) {
        good = good && R_StartDithering(&bitmap, gray ? nullptr : palette.data(), gray ? 2 : 256) == SUCCESS;
        if (!good) return state.SkipWithError("dithering does not start");
        rv::Dithering::of(&bitmap)->rows(source.data(), kSide * sourceBits / 8, target.data(), targetBytes, kSide);
        good = R_StopDithering(&bitmap) == SUCCESS;
    }
    state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

void copyPicture(benchmark::State& state, R_INT sourceBits)
{
    const std::vector<uint8_t> source = pictureOf(static_cast<size_t>(sourceBits) / 8);
    std::vector<uint8_t> target(source.size());
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), source.size());
        benchmark::ClobberMemory();
    }
}

const bool kRegistered = [] {
    for (const R_INT bits : {8, 24}) {
        const std::string picture = std::to_string(bits);
        benchmark::RegisterBenchmark(("copy " + picture).c_str(), copyPicture, bits)->Unit(benchmark::kMillisecond);
        for (const Job& job : kJobs) {
            for (size_t i = 0; const rv::simd::RowKernels* const kernels = rv::availableRowKernels(i); ++i) {
                const std::string name = job.name + (" " + picture) + (bits == 8 ? " to 1/" : " to 256/");
                benchmark::RegisterBenchmark((name + kernels->name).c_str(), ditherPicture, job.method, bits,
                                             std::cref(*kernels))
                    ->Unit(benchmark::kMillisecond);
            }
        }
    }
    return true;
}();

} // namespace
