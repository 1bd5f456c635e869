// Rows in and out of bitmaps of each placement, beside a conventional one, and beside what the system offers for the
// same bytes. The files stay in the system's own memory: what is measured is the way there.
#include "Support.h"

#include <cstdlib>
#include <memory>

#if !defined(_WIN32)
#include <fcntl.h>
#include <unistd.h>
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
constexpr Placement kPlacements[] = {
    {"disk", MEM_DISK}, {"tiles in memory", MEM_TILED}, {"tiles in the file", MEM_TILED, 0}};

/// A picture of 48 MiB in rows of some size.
class Placed {
public:
    Placed(const Placement& placement, size_t rowBytes)
    {
        R_SetMemoryThresholds(0, 0, 4 << 20, placement.convTiles, 0, THRESHOLD_TILE_SIZE | THRESHOLD_CONV_TILES);
        good_ = R_CreateBitmap(&record_, BITMAPHANDLE_SIZE, placement.memory, static_cast<R_INT>(rowBytes),
                               static_cast<R_INT>(kBytes / rowBytes), 8, ORDER_RGB, nullptr, TOP_LEFT, nullptr,
                               0) == SUCCESS;
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
        const R_UINT rowBytes = record_.BytesPerLine;
        bool moved = true;
        for (R_INT y = 0; moved && y < record_.Height; ++y) {
            uint8_t* const row = bytes + size_t{rowBytes} * static_cast<size_t>(y);
            moved = (writing ? R_PutBitmapRow(&record_, row, y, rowBytes)
                             : R_GetBitmapRow(&record_, row, y, rowBytes)) == static_cast<R_SSIZE>(rowBytes);
        }
        return R_ReleaseBitmap(&record_) == SUCCESS && moved;
    }

private:
    BITMAPHANDLE record_;
    bool good_;
};

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

MakeStep rowsOf(const Placement& placement, bool writing, size_t rowBytes)
{
    return [=] {
        const auto bitmap = std::make_shared<Placed>(placement, rowBytes);
        const auto bytes = std::make_shared<Warm>(kBytes);
        (void)bitmap->moveAll(true, bytes->data());
        return [=] { return bitmap->moveAll(writing, bytes->data()); };
    };
}

void registerRows(const Placement& placement, bool writing, size_t rowBytes)
{
    const std::string job =
        std::string(writing ? "write" : "read") + " rows of " + std::to_string(rowBytes) + ", " + placement.name;
    measure(job, "kernel", rowsOf(placement, writing, rowBytes));
    measure(job, "kernel, conventional", rowsOf(kConventional, writing, rowBytes));
#if !defined(_WIN32)
    if (placement.memory == MEM_DISK) {
        const std::string call = writing ? "pwrite" : "pread";
        measure(job, call, plainRows(writing, rowBytes));
        measure(job, call + " of 1 MiB", plainRows(writing, 1 << 20));
    }
#endif
}

} // namespace

void registerStores()
{
    for (const Placement& placement : kPlacements)
        for (const bool writing : {false, true})
            for (const size_t rowBytes : {size_t{1024}, size_t{12288}}) registerRows(placement, writing, rowBytes);
}

} // namespace rv::bench
