// A picture larger than the memory that the process may have: made, filled with rows that differ, flipped, checked row
// by row and freed, on disk and in tiles. A program of its own, since the limit holds for the whole process.
//
//     rvkrn_beyond                    40,000 x 40,000 pixels of 24 bits under an address space of 512 MiB
//     rvkrn_beyond 3000 2000 4        another size, and a limit of the kernel's own on conventional memory, in MiB
//
// The second form is a test, wherever the tests run. Tiles are small then, so that memory takes some and refuses some.
#include "R_Kernel.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

#if defined(__linux__)
#include <sys/resource.h>
#endif

namespace {

struct Job {
    R_INT width = 40000;
    R_INT height = 40000;
    R_UINT64 limitMiB = 0; ///< of conventional memory; 0: the system's limit on addresses instead
};

bool limitMemory(const Job& job)
{
    if (job.limitMiB != 0)
        return R_SetMemoryThresholds(0, 0, 1 << 20, 0, 0, THRESHOLD_TILE_SIZE) == SUCCESS &&
               R_ManageMemory(MANAGE_SET_LIMIT, job.limitMiB << 20, nullptr) == SUCCESS;
#if defined(__linux__)
    const rlimit limit = {512u << 20, 512u << 20};
    return setrlimit(RLIMIT_AS, &limit) == 0;
#else
    return R_ManageMemory(MANAGE_SET_LIMIT, 512u << 20, nullptr) == SUCCESS;
#endif
}

R_UINT64 conventionalTotal()
{
    R_UINT64 total = 0;
    R_ManageMemory(MANAGE_GET_TOTAL, 0, &total);
    return total;
}

/// Tells how long a step took, and answers whether it was good.
template <class Step> bool timed(const char* name, R_UINT64 bytes, Step step)
{
    const auto start = std::chrono::steady_clock::now();
    const bool good = step();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("  %-8s %8.3f s  %6.2f GB/s%s\n", name, took.count(), static_cast<double>(bytes) / 1e9 / took.count(),
                good ? "" : "  FAILED");
    std::fflush(stdout);
    return good;
}

/// What the row is filled with: words that no other row has at the same place.
void fillRow(std::vector<uint64_t>& words, R_INT row)
{
    uint64_t word = static_cast<uint64_t>(row) * 0x9E3779B97F4A7C15u + 1;
    for (uint64_t& each : words) each = word += 0xD1B54A32D192ED03u;
}

class Picture {
public:
    Picture(const Job& job, R_UINT memory)
    {
        made_ = R_CreateBitmap(&record_, BITMAPHANDLE_SIZE, memory, job.width, job.height, 24, ORDER_BGR, nullptr,
                               TOP_LEFT, nullptr, 0);
        words_.resize(record_.BytesPerLine / 8 + 1);
    }
    ~Picture() { R_FreeBitmap(&record_); }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    bool made() const { return made_ == SUCCESS; }
    bool flip() { return R_FlipBitmap(&record_) == SUCCESS; }
    bool fill()
    {
        return eachRow([this](R_INT row) {
            fillRow(words_, row);
            return R_PutBitmapRow(&record_, words_.data(), row, record_.BytesPerLine);
        });
    }
    bool check()
    {
        std::vector<uint8_t> got(record_.BytesPerLine);
        return eachRow([&](R_INT row) {
            fillRow(words_, record_.Height - 1 - row);
            const R_SSIZE moved = R_GetBitmapRow(&record_, got.data(), row, got.size());
            return std::memcmp(got.data(), words_.data(), got.size()) == 0 ? moved : FAILURE;
        });
    }
    /// Whether it is where it was wished to be: of tiles some in memory, which has room for some, and some not.
    bool isPlaced(R_UINT wished)
    {
        R_UINT memory = 0, tiles = 0, conventional = 0, most = 0;
        R_UINT64 tileBytes = 0;
        R_GetBitmapMemoryInfo(&record_, &memory, &tileBytes, &tiles, &conventional, &most, nullptr);
        std::printf("  placed as %u", memory);
        if (tiles != 0)
            std::printf(": %u tiles of %.1f MB, %u in memory, %u views", tiles, static_cast<double>(tileBytes) / 1e6,
                        conventional, most);
        std::printf("\n");
        return memory == wished && (wished != MEM_TILED || (conventional > 0 && conventional < tiles));
    }

private:
    template <class Move> bool eachRow(Move move)
    {
        if (R_AccessBitmap(&record_) != SUCCESS) return false;
        bool good = true;
        for (R_INT row = 0; good && row < record_.Height; ++row)
            good = move(row) == static_cast<R_SSIZE>(record_.BytesPerLine);
        return R_ReleaseBitmap(&record_) == SUCCESS && good;
    }

    BITMAPHANDLE record_;
    R_INT made_;
    std::vector<uint64_t> words_;
};

bool run(const Job& job, const char* name, R_UINT memory)
{
    std::printf("%s, %d x %d pixels of 24 bits\n", name, job.width, job.height);
    const R_UINT64 before = conventionalTotal(),
                   bytes = R_UINT64{3} * static_cast<R_UINT64>(job.width) * static_cast<R_UINT64>(job.height);
    std::optional<Picture> picture;
    bool good = timed("create", bytes, [&] { return picture.emplace(job, memory).made(); });
    if (good) {
        good = picture->isPlaced(memory) && timed("fill", bytes, [&] { return picture->fill(); }) &&
               timed("flip", bytes, [&] { return picture->flip(); }) &&
               timed("check", bytes, [&] { return picture->check(); });
    }
    const bool givenBack = timed("free", bytes, [&] { return picture.reset(), conventionalTotal() == before; });
    return good && givenBack;
}

} // namespace

int main(int argc, char** argv)
{
    Job job;
    if (argc == 4) {
        job.width = std::atoi(argv[1]);
        job.height = std::atoi(argv[2]);
        job.limitMiB = static_cast<R_UINT64>(std::atoi(argv[3]));
    }
    if ((argc != 1 && argc != 4) || job.width <= 0 || job.height <= 0) {
        std::fprintf(stderr, "usage: rvkrn_beyond [width height MiB]\n");
        return 2;
    }
    if (!limitMemory(job)) return 1;
    // The first also pays for memory that the system has not used before.
    const bool disk = run(job, "disk", MEM_DISK);
    const bool tiled = run(job, "tiled", MEM_TILED);
    return tiled && disk ? 0 : 1;
}
