/// What the measurements share: pictures, memory that is warm, and the names under which a report finds them.
///
/// A measurement is called "job/who": "flip 24/kernel" beside "flip 24/copy", the memcpy of the same bytes, and beside
/// "flip 24/OpenCV". What is nobody's copy has none: "file reads of 16/kernel" beside "file reads of 16/stdio". Other
/// ways of ours begin with "kernel", too. A peer that holds the pixels in another depth says so: "Leptonica (32)".
#pragma once

#include "R_Kernel.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace rv::bench {

/// Memory that has been written before, in huge pages where the system has them: what a peer gets, so that neither
/// page faults nor small pages are counted against it.
class Warm {
public:
    explicit Warm(size_t bytes);
    ~Warm();
    Warm(const Warm&) = delete;
    Warm& operator=(const Warm&) = delete;
    uint8_t* data() const { return data_; }

private:
    void* block_;
    size_t blockBytes_;
    uint8_t* data_;
};

/// A bitmap of random pixels.
class Bitmap {
public:
    Bitmap(R_INT width, R_INT height, R_INT bits, R_UINT memory = MEM_CONVENTIONAL);
    ~Bitmap();
    Bitmap(const Bitmap&) = delete;
    Bitmap& operator=(const Bitmap&) = delete;
    BITMAPHANDLE* get() { return &record_; }

private:
    BITMAPHANDLE record_;
};

/// The page of text at 300 dpi that 1-bit work is measured on: packed rows without padding, black is 1.
inline constexpr R_INT kPageWidth = 2480, kPageHeight = 3508;
const uint8_t* pageOfText();

/// A picture like a photograph, kPhotoSize squared: soft light over areas of different colours, edges, and the noise of
/// a sensor.
inline constexpr R_INT kPhotoSize = 2048;
const std::vector<RGBQUAD>& photograph();

/// What one measurement repeats; false ends it as failed.
using Step = std::function<bool()>;
/// Makes what a step works on; called when the measurement runs, so that only one job's memory is held.
using MakeStep = std::function<Step()>;

/// Registers "job/who".
void measure(const std::string& job, const std::string& who, MakeStep make);

/// A memcpy of `bytes` bytes between warm blocks.
MakeStep copyOf(size_t bytes);

// One function for each file of measurements.
void registerBuffered();
void registerColorRes();
void registerCombine();
void registerCopies();
void registerDither();
void registerFiles();
void registerFills();
void registerMemory();
void registerPalettes();
void registerPerspectives();
void registerResizes();
void registerResampling();
void registerRotations();
void registerRuns();
void registerStores();
void registerThreads();
void registerTurns();
void registerWarps();

} // namespace rv::bench
