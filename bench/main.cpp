#include "Support.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>

#if !defined(_WIN32)
#include <sys/mman.h>
#endif
#if defined(RV_BENCH_OPENCV)
#include <opencv2/core.hpp>
#endif

namespace rv::bench {

namespace {

constexpr size_t kHugePage = size_t{2} << 20;

void fillRandom(uint8_t* bytes, size_t count)
{
    std::mt19937_64 random(1);
    for (size_t i = 0; i < count; i += 8) {
        const uint64_t word = random();
        std::memcpy(bytes + i, &word, std::min<size_t>(8, count - i));
    }
}

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
}

} // namespace

Warm::Warm(size_t bytes) : blockBytes_((bytes + 2 * kHugePage - 1) / kHugePage * kHugePage)
{
#if defined(_WIN32)
    block_ = std::malloc(blockBytes_);
    if (block_ == nullptr) fail("no memory");
#else
    block_ = mmap(nullptr, blockBytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block_ == MAP_FAILED) fail("no memory");
    (void)madvise(block_, blockBytes_, MADV_HUGEPAGE);
#endif
    const auto address = reinterpret_cast<uintptr_t>(block_);
    data_ = static_cast<uint8_t*>(block_) + (kHugePage - address % kHugePage) % kHugePage;
    fillRandom(data_, bytes);
}

Warm::~Warm()
{
#if defined(_WIN32)
    std::free(block_);
#else
    munmap(block_, blockBytes_);
#endif
}

Bitmap::Bitmap(R_INT width, R_INT height, R_INT bits, R_UINT memory)
{
    if (R_CreateBitmap(&record_, BITMAPHANDLE_SIZE, memory, width, height, bits, bits > 8 ? ORDER_BGR : ORDER_RGB,
                       nullptr, TOP_LEFT, nullptr, 0) != SUCCESS)
        fail("R_CreateBitmap");
    const Warm row(record_.BytesPerLine);
    for (R_INT y = 0; y < height; ++y)
        if (R_PutBitmapRow(&record_, row.data(), y, record_.BytesPerLine) < 0) fail("R_PutBitmapRow");
}

Bitmap::~Bitmap() { R_FreeBitmap(&record_); }

void measure(const std::string& job, const std::string& who, MakeStep make)
{
    const auto run = [make = std::move(make)](benchmark::State& state) {
        const Step step = make();
        for (auto _ : state) {
            if (!step()) {
                state.SkipWithError("failed");
                break;
            }
            benchmark::ClobberMemory();
        }
    };
    benchmark::RegisterBenchmark((job + "/" + who).c_str(), run)->Unit(benchmark::kMillisecond)->UseRealTime();
}

const std::vector<RGBQUAD>& photograph()
{
    static const std::vector<RGBQUAD> pixels = [] {
        std::vector<RGBQUAD> all;
        all.reserve(size_t{kPhotoSize} * kPhotoSize);
        R_UINT noise = 1;
        for (R_INT y = 0; y < kPhotoSize; ++y) {
            for (R_INT x = 0; x < kPhotoSize; ++x) {
                const double u = x / 300.0, v = y / 260.0, light = 0.6 + 0.4 * std::cos(u * 0.7 + v * 0.9);
                const double area = std::floor(u + 0.5 * std::sin(v)) * 5 + std::floor(v + 0.4 * std::cos(u));
                const auto level = [&](double phase) {
                    noise = noise * 1664525 + 1013904223;
                    const double colour = 120 + 70 * std::sin(area * 1.7 + phase) + 40 * std::sin(u * phase + v);
                    return static_cast<uint8_t>(
                        std::clamp(colour * light + static_cast<double>(noise >> 28), 0.0, 255.0));
                };
                const uint8_t blue = level(0.3), green = level(1.1), red = level(2.0);
                all.push_back({blue, green, red, 0});
            }
        }
        return all;
    }();
    return pixels;
}

MakeStep copyOf(size_t bytes)
{
    return [bytes] {
        const auto from = std::make_shared<Warm>(bytes), to = std::make_shared<Warm>(bytes);
        return [=] {
            std::memcpy(to->data(), from->data(), bytes);
            return true;
        };
    };
}

} // namespace rv::bench

int main(int argc, char** argv)
{
#if defined(RV_BENCH_OPENCV)
    cv::setNumThreads(1);
#endif
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::AddCustomContext("peers", RV_BENCH_PEERS);
    benchmark::AddCustomContext("missing", RV_BENCH_MISSING);
    rv::bench::registerMemory();
    rv::bench::registerStores();
    rv::bench::registerRuns();
    rv::bench::registerThreads();
    rv::bench::registerTurns();
    rv::bench::registerWarps();
    rv::bench::registerPerspectives();
    rv::bench::registerRotations();
    rv::bench::registerResizes();
    rv::bench::registerResampling();
    rv::bench::registerFills();
    rv::bench::registerCombine();
    rv::bench::registerPalettes();
    rv::bench::registerColorRes();
    rv::bench::registerDither();
    rv::bench::registerBuffered();
    rv::bench::registerCopies();
    rv::bench::registerFiles();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
