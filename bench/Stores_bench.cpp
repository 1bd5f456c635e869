// Rows in and out of bitmaps of each placement, beside a conventional one, and beside what the system offers for the
// same bytes. The files stay in the system's own memory: what is measured is the way there.
#include "Support.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#if !defined(_WIN32)
#include <fcntl.h>
#include <unistd.h>
#endif
#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace rv::bench {

namespace {

constexpr size_t kBytes = size_t{48} << 20;

struct Placement {
    const char* name;
    R_UINT memory;
    R_INT convTiles = -100; ///< as R_SetMemoryThresholds takes it
};
constexpr Placement kConventional = {"conventional", MEM_CONVENTIONAL};
constexpr Placement kDisk = {"disk", MEM_DISK};
constexpr Placement kTiles = {"tiles in memory", MEM_TILED};
constexpr Placement kFileTiles = {"tiles in the file", MEM_TILED, 0};
constexpr Placement kCompressed = {"compressed", MEM_COMPRESSED};
constexpr Placement kSuperCompressed = {"super-compressed", MEM_SUPER_COMPRESSED};

/// What is placed.
struct Picture {
    std::string name;
    R_INT bits;
    R_UINT rowBytes;
    R_INT height;
    std::function<void(uint8_t*)> draw; ///< into rows that lie one after the other; null leaves noise

    size_t bytes() const { return size_t{rowBytes} * static_cast<size_t>(height); }
};

Picture noise(R_UINT rowBytes)
{
    return {"rows of " + std::to_string(rowBytes), 8, rowBytes, static_cast<R_INT>(kBytes / rowBytes), nullptr};
}

/// Gentle slopes with grain in the lowest bit.
Picture slopes()
{
    Picture picture = noise(12288);
    picture.name = "rows of slopes";
    picture.draw = [rowBytes = picture.rowBytes](uint8_t* rows) {
        for (size_t i = 0; i < kBytes; ++i) {
            const size_t x = i % rowBytes, y = i / rowBytes;
            rows[i] = static_cast<uint8_t>(((x + y / 2) / 64 & 0xFEu) | (rows[i] & (x / 1024 % 4 == 0 ? 1u : 0u)));
        }
    };
    return picture;
}

/// Pages of text, one below the other.
Picture pages(R_INT count)
{
    constexpr R_UINT kRowBytes = kPageWidth / 8;
    return {count == 1 ? "a page" : "rows of text", 1, kRowBytes, kPageHeight * count, [count](uint8_t* rows) {
                constexpr size_t kPage = size_t{kRowBytes} * kPageHeight;
                for (R_INT i = 0; i < count; ++i)
                    std::memcpy(rows + kPage * static_cast<size_t>(i), pageOfText(), kPage);
            }};
}

/// A picture in a bitmap.
class Placed {
public:
    Placed(const Placement& placement, const Picture& picture)
    {
        R_SetMemoryThresholds(0, 0, static_cast<R_INT64>(picture.bytes() / 12), placement.convTiles, 0,
                              THRESHOLD_TILE_SIZE | THRESHOLD_CONV_TILES);
        const auto width = static_cast<R_INT>(R_UINT64{picture.rowBytes} * 8 / static_cast<R_UINT>(picture.bits));
        good_ = R_CreateBitmap(&record_, BITMAPHANDLE_SIZE, placement.memory, width, picture.height, picture.bits,
                               ORDER_RGB, nullptr, TOP_LEFT, nullptr, 0) == SUCCESS;
        rowBytes_ = picture.rowBytes;
    }
    ~Placed()
    {
        if (good_) R_FreeBitmap(&record_);
    }
    Placed(const Placed&) = delete;
    Placed& operator=(const Placed&) = delete;
    bool moveAll(bool writing, uint8_t* bytes)
    {
        if (!good_ || R_AccessBitmap(&record_) != SUCCESS) return false;
        bool moved = true;
        for (R_INT y = 0; moved && y < record_.Height; ++y) {
            uint8_t* const row = bytes + rowBytes_ * static_cast<size_t>(y);
            moved = (writing ? R_PutBitmapRow(&record_, row, y, rowBytes_)
                             : R_GetBitmapRow(&record_, row, y, rowBytes_)) == static_cast<R_SSIZE>(rowBytes_);
        }
        return R_ReleaseBitmap(&record_) == SUCCESS && moved;
    }

private:
    BITMAPHANDLE record_;
    size_t rowBytes_;
    bool good_;
};

std::shared_ptr<Warm> rowsIn(const Picture& picture)
{
    auto bytes = std::make_shared<Warm>(picture.bytes());
    if (picture.draw) picture.draw(bytes->data());
    return bytes;
}

#if !defined(_WIN32)
/// The same bytes in a file that is reserved, piece by piece at its place.
class PlainFile {
public:
    PlainFile()
    {
        char name[] = "/tmp/rvkrn-bench-XXXXXX";
        file_ = mkstemp(name);
        if (file_ < 0) return;
        unlink(name);
        good_ = posix_fallocate(file_, 0, kBytes) == 0;
    }
    ~PlainFile()
    {
        if (file_ >= 0) close(file_);
    }
    PlainFile(const PlainFile&) = delete;
    PlainFile& operator=(const PlainFile&) = delete;
    bool moveAll(bool writing, uint8_t* bytes, size_t piece) const
    {
        bool moved = good_;
        for (size_t at = 0; moved && at < kBytes; at += piece) {
            const auto place = static_cast<off_t>(at);
            moved = (writing ? pwrite(file_, bytes + at, piece, place) : pread(file_, bytes + at, piece, place)) ==
                    static_cast<ssize_t>(piece);
        }
        return moved;
    }

private:
    int file_ = -1;
    bool good_ = false;
};

MakeStep plainRows(bool writing, size_t piece)
{
    return [=] {
        const auto file = std::make_shared<PlainFile>();
        const auto bytes = std::make_shared<Warm>(kBytes);
        (void)file->moveAll(true, bytes->data(), piece); // what is read has been written
        return [=] { return file->moveAll(writing, bytes->data(), piece); };
    };
}
#endif

MakeStep rowsOf(const Placement& placement, bool writing, const Picture& picture)
{
    return [=] {
        const auto bitmap = std::make_shared<Placed>(placement, picture);
        const auto bytes = rowsIn(picture);
        (void)bitmap->moveAll(true, bytes->data());
        return [=] { return bitmap->moveAll(writing, bytes->data()); };
    };
}

void registerRows(const Placement& placement, const Picture& picture)
{
    for (const bool writing : {false, true}) {
        const std::string job = (writing ? "write " : "read ") + picture.name + ", " + placement.name;
        measure(job, "kernel", rowsOf(placement, writing, picture));
        measure(job, "kernel, conventional", rowsOf(kConventional, writing, picture));
#if !defined(_WIN32)
        if (placement.memory == MEM_DISK) {
            const std::string call = writing ? "pwrite" : "pread";
            measure(job, call, plainRows(writing, picture.rowBytes));
            measure(job, call + " of 1 MiB", plainRows(writing, 1 << 20));
        }
#endif
    }
}

#if defined(__GLIBC__)
/// Bytes of the process that are in memory now.
double residentBytes()
{
    malloc_trim(0);
    long all = 0, resident = 0;
    if (FILE* const file = std::fopen("/proc/self/statm", "r"); file != nullptr) {
        if (std::fscanf(file, "%ld %ld", &all, &resident) != 2) resident = 0;
        std::fclose(file);
    }
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

/// What a picture takes of memory in a placement, by several of them that are held at once. Not a time: the report
/// shows its bytes.
void registerHeld(const Placement& placement, const Picture& picture)
{
    constexpr int kHeld = 16;
    const auto run = [=](benchmark::State& state) {
        const auto bytes = rowsIn(picture);
        std::vector<std::unique_ptr<Placed>> held;
        held.reserve(kHeld);
        const double before = residentBytes();
        for (auto _ : state) {
            held.push_back(std::make_unique<Placed>(placement, picture));
            if (!held.back()->moveAll(true, bytes->data())) state.SkipWithError("failed");
        }
        state.counters["bytes"] = (residentBytes() - before) / kHeld;
        state.counters["of"] = static_cast<double>(picture.bytes());
    };
    benchmark::RegisterBenchmark((picture.name + " held/" + placement.name).c_str(), run)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Iterations(kHeld);
}
#endif

} // namespace

void registerStores()
{
    for (const Placement& placement : {kDisk, kTiles, kFileTiles})
        for (const R_UINT rowBytes : {1024u, 12288u}) registerRows(placement, noise(rowBytes));
    for (const Picture& picture : {noise(12288), slopes(), pages(40)}) registerRows(kSuperCompressed, picture);
    registerRows(kCompressed, pages(40));
#if defined(__GLIBC__)
    for (const Placement& placement : {kConventional, kDisk, kTiles, kFileTiles, kCompressed, kSuperCompressed})
        registerHeld(placement, pages(1));
#endif
}

} // namespace rv::bench
