/// A pair of bitmaps of a given depth, record size and placement, with known pixels, for tests that sweep.
#pragma once

#include "R_Kernel.h"
#include "Support/GuardedRecord.h"

#include <memory>
#include <string>
#include <vector>

namespace rv::test {

/// Where a test bitmap's pixels live.
enum class Home {
    conventional,
    user,      ///< the test's own block
    callbacks, ///< row by row in the test's own store: the record has no pixels at all
    movable,   ///< a movable block, addressable only inside an access
    disk,
    tiled, ///< some rows in memory, the others in the file
    superCompressed,
    compressed, ///< 1 bit only
};

const std::vector<R_INT>& allDepths();
/// Those that bitmaps of every depth can have, and those of one depth.
const std::vector<Home>& allHomes();
std::vector<Home> homesOf(R_INT bits);

/// How a bitmap is made.
struct Scene {
    R_INT bits = 8;
    Home home = Home::conventional;
    R_UINT structSize = BITMAPHANDLE_SIZE;
    R_INT width = 37;
    R_INT height = 11;
    unsigned seed = 1;

    std::string text() const;
    /// Whether such a bitmap can exist: a short record has no room for callbacks, not every depth can be compressed,
    /// and not every machine can do it.
    bool possible() const;
    /// Whether rows get to their place some time after they were written, or one by one.
    bool writesBehind() const { return home == Home::disk || home == Home::tiled; }
};

/// A bitmap made by Scene, its padding bits zero, on a guard page; freed with everything it needs.
class TestBitmap {
public:
    explicit TestBitmap(const Scene& scene);
    ~TestBitmap();
    TestBitmap(const TestBitmap&) = delete;
    TestBitmap& operator=(const TestBitmap&) = delete;

    BITMAPHANDLE* get() const { return record_.get(); }
    BITMAPHANDLE* operator->() const { return record_.get(); }
    operator BITMAPHANDLE*() const { return record_.get(); }
    std::vector<uint8_t> pixels() const;
    void setPixels(const std::vector<uint8_t>& pixels) const;
    /// The record's bytes as they stand.
    std::vector<uint8_t> record() const;
    /// The palette's entries, if there are any.
    std::vector<uint8_t> palette() const;
    const Scene& scene() const { return scene_; }

private:
    void place();
    Scene scene_;
    GuardedRecord record_;
    std::vector<uint8_t> block_; // the test's own pixels
};

/// Answers of several calls, one after the other.
using Answered = std::vector<R_INT64>;

/// All rows of a bitmap, BytesPerLine each, through the row calls.
std::vector<uint8_t> pixelsOf(BITMAPHANDLE* pBitmap);

/// Callbacks that answer nothing yet.
BITMAPHANDLEDATACALLBACKS callbacksFor(void* userData);

/// Random bytes whose bits behind `width` pixels of each row are zero.
std::vector<uint8_t> randomPixels(R_INT width, R_INT height, R_INT bits, R_UINT bytesPerLine, unsigned seed);

/// One pixel of a packed row, most significant bit first; whole-byte pixels as a little-endian number.
uint64_t pixelAt(const uint8_t* row, R_INT64 column, R_INT bits);
void setPixelAt(uint8_t* row, R_INT64 column, R_INT bits, uint64_t value);

} // namespace rv::test
