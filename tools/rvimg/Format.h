/// What a file format offers, and the list of them all.
#pragma once

#include "Image.h"
#include "Stream.h"

#include <functional>
#include <string_view>

namespace rvimg {

struct ReadOptions {
    uint64_t maxBytes = uint64_t{1} << 31; ///< of a page's pixels in memory
};

struct WriteOptions {
    int quality = 90;        ///< of JPEG, 1 to 100
    std::string compression; ///< of TIFF; empty: what suits the depth
    bool exact = false;      ///< a format that cannot hold a page's depth refuses it
    uint64_t pixelBytes = 0; ///< of all pages together, as far as they are known beforehand
};

/// Reads the pages of one file, one after the other.
class Decoder {
public:
    virtual ~Decoder() = default;
    /// Goes to the next page and tells its layout; nothing after the last one.
    virtual std::optional<Layout> next() = 0;
    /// Puts the rows of that page, all of them, each once or more.
    virtual void readRows(PixelRows& rows) = 0;
};

/// Writes pages that the format's refusal() found nothing wrong with.
class Encoder {
public:
    virtual ~Encoder() = default;
    virtual void writePage(PixelRows& rows) = 0;
    /// After the last page.
    virtual void finish() {}
};

struct Format {
    std::string_view name;                 ///< "TIFF"
    std::vector<std::string_view> endings; ///< in lower case, without the dot; they are names of the format too
    bool manyPages = false;
    bool orientation = false; ///< has a field for the orientation
    bool (*recognises)(std::span<const uint8_t> head) = nullptr;
    std::unique_ptr<Decoder> (*open)(ByteSource& source, const ReadOptions& options) = nullptr;
    std::unique_ptr<Encoder> (*create)(ByteSink& sink, const WriteOptions& options) = nullptr;
    /// What of this page the format has no place for, as "4-bit palette"; empty when it can hold it. Orientation
    /// is asked apart.
    std::string (*refusal)(const Layout& layout) = nullptr;
};

/// All formats of this build.
const std::vector<Format>& formats();
/// By the first bytes; throws where no format knows them. The source is left at its start.
const Format& formatOf(ByteSource& source);
/// By a name such as "tiff", or the ending of a file's name; null where there is none.
const Format* formatNamed(std::string_view name);
/// "bmp, jpeg, ...", for messages.
std::string formatNames();

/// Throws where the format cannot hold the page.
void checkHolds(const Format& format, const Layout& layout);
/// Throws for a size that is absurd, or larger than the reader is allowed to take.
void checkSize(uint64_t width, uint64_t height, R_INT bits, const ReadOptions& options);
/// Throws where `rawBytes` bytes of pixels cannot come out of `fileBytes` bytes, each giving `ratio` at best.
void checkPlausible(uint64_t rawBytes, uint64_t fileBytes, uint64_t ratio);

/// In which order stored rows stand in a file, and what its orientation field says.
struct RowOrder {
    RowOrder(const Layout& layout, bool hasField);
    /// The stored row that is the file's i-th.
    R_INT operator()(R_INT i) const { return reversed ? height - 1 - i : i; }

    R_INT orientation;
    R_INT height;
    bool reversed;
};

// One for each format that may be in the build.
Format bmpFormat();
std::vector<Format> netpbmFormats();
Format pngFormat();
Format jpegFormat();
Format tiffFormat();

} // namespace rvimg
