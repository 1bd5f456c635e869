// Each variant of the row kernels that this machine runs, on a row in the cache: "mirror 24/avx2".
#include "Kernel/Pixels/Depths.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

constexpr size_t kWidth = 4000;

void registerMirror(const rv::simd::RowKernels& kernels, size_t bits, rv::simd::MirrorRow mirror)
{
    const std::string name = "mirror " + std::to_string(bits) + "/" + kernels.name;
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        std::vector<uint8_t> row(kWidth * bits / 8, 0x5A);
        for (auto _ : state) {
            mirror(row.data(), row.data(), kWidth, row.data());
            benchmark::ClobberMemory();
        }
        state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(row.size()));
    });
}

/// A page of a million pixels, a quarter turn.
void registerTurn(const rv::simd::RowKernels& kernels, size_t bits, rv::simd::TurnPixels turn)
{
    const std::string name = "turn " + std::to_string(bits) + "/" + kernels.name;
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        constexpr size_t side = 1024;
        const size_t rowBytes = side * bits / 8;
        std::vector<uint8_t> source(side * rowBytes, 0x5A), target(side * rowBytes);
        const auto pitch = static_cast<ptrdiff_t>(rowBytes);
        for (auto _ : state) {
            turn(target.data(), pitch, source.data() + (side - 1) * rowBytes, -pitch, side, side, false);
            benchmark::ClobberMemory();
        }
        state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(source.size()));
    });
}

void registerBytes(const rv::simd::RowKernels& kernels)
{
    const auto both = std::string("/") + kernels.name;
    benchmark::RegisterBenchmark(("invert" + both).c_str(), [&kernels](benchmark::State& state) {
        std::vector<uint8_t> row(kWidth);
        for (auto _ : state) kernels.invert(row.data(), row.data(), row.size());
        state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(row.size()));
    });
    benchmark::RegisterBenchmark(("swap" + both).c_str(), [&kernels](benchmark::State& state) {
        std::vector<uint8_t> one(kWidth), other(kWidth);
        for (auto _ : state) kernels.swap(one.data(), other.data(), one.size(), other.data());
        state.SetBytesProcessed(2 * state.iterations() * static_cast<int64_t>(one.size()));
    });
    benchmark::RegisterBenchmark(("shift" + both).c_str(), [&kernels](benchmark::State& state) {
        std::vector<uint8_t> row(kWidth);
        for (auto _ : state) kernels.shiftLeft(row.data(), row.data(), row.size(), 3);
        state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(row.size()));
    });
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    for (size_t i = 0; const rv::simd::RowKernels* const kernels = rv::availableRowKernels(i); ++i) {
        registerBytes(*kernels);
#define RV_MIRROR(B) registerMirror(*kernels, B, kernels->mirror##B);
        RV_FOR_EACH_DEPTH(RV_MIRROR)
#undef RV_MIRROR
#define RV_TURN(B) registerTurn(*kernels, B, kernels->turn##B);
        RV_FOR_EACH_DEPTH(RV_TURN)
#undef RV_TURN
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
