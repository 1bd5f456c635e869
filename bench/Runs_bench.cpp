// A page of text at 300 dpi as runs and back, beside what fax and TIFF programs do with it.
#include "Support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <vector>

#if defined(RV_BENCH_LIBTIFF)
#include <tiffio.h>
#endif
#if defined(RV_BENCH_LEPTONICA)
#include <leptonica/allheaders.h>
#endif

namespace rv::bench {

namespace {

constexpr R_INT kWidth = kPageWidth, kHeight = kPageHeight;
constexpr size_t kRowBytes = size_t{kWidth} / 8;
constexpr size_t kBytes = kRowBytes * kHeight;
constexpr R_SIZE kRunPitch = 512; ///< room for the longest rows of text

/// Letters of 11 points, made of stems, bars, bows and slants as ours are.
class Letter {
public:
    explicit Letter(std::mt19937& random) : width_(20 + static_cast<int>(random() % 13)), tall_(random() % 3 == 0)
    {
        constexpr unsigned kinds[] = {kStem, kStem | kBar, kBow, kStem | kBow, kSlant, kSlant | kBar};
        shapes_ = kinds[random() % std::size(kinds)];
        if (shapes_ == kStem) width_ = 8;
    }
    int width() const { return width_; }
    bool inked(int x, int y) const ///< y from the top of the tall ones, which are 36 high
    {
        const int top = tall_ ? 0 : 11;
        if (y < top || y >= 36 || x < 0 || x >= width_) return false;
        if ((shapes_ & kStem) != 0 && x < 4) return true;
        if ((shapes_ & kBar) != 0 && (y < top + 3 || y >= 33)) return true;
        if ((shapes_ & kSlant) != 0 && std::abs((x - 2) * (36 - top) - (y - top) * (width_ - 4)) < 2 * 36) return true;
        if ((shapes_ & kBow) == 0) return false;
        const double across = (2.0 * x + 1) / width_ - 1, down = (y - 23.0) / 13.0;
        const double away = across * across + down * down;
        return away <= 1.0 && away > 0.6;
    }

private:
    static constexpr unsigned kStem = 1, kBar = 2, kBow = 4, kSlant = 8;
    int width_;
    bool tall_;
    unsigned shapes_ = 0;
};

std::vector<uint8_t> drawPage()
{
    std::mt19937 random(11);
    std::vector<Letter> letters;
    letters.reserve(40);
    while (letters.size() < 40) letters.emplace_back(random);
    std::vector<uint8_t> page(kBytes);
    for (int line = 300; line + 64 < kHeight - 300; line += 64) {
        if (random() % 8 == 0) continue; // between paragraphs
        const int end = kWidth - 290 - (random() % 4 == 0 ? static_cast<int>(random() % 1500) : 0);
        for (int at = 290; at < end;) {
            const Letter& letter = letters[random() % letters.size()];
            for (int y = 0; y < 36; ++y)
                for (int x = at; x < at + letter.width(); ++x)
                    if (letter.inked(x - at, y))
                        page[static_cast<size_t>(line + y) * kRowBytes + static_cast<size_t>(x / 8)] |=
                            static_cast<uint8_t>(0x80 >> (x & 7));
            at += letter.width() + (random() % 5 == 0 ? 22 : 5);
        }
    }
    return page;
}

const std::vector<uint8_t>& page()
{
    static const std::vector<uint8_t> drawn = drawPage();
    return drawn;
}

/// The page and its runs, in memory that has been used.
struct Forms {
    Warm packed{kBytes};
    Warm runs{kRunPitch * kHeight};

    Forms() { std::memcpy(packed.data(), page().data(), kBytes); }
    bool encode()
    {
        return R_CompressRows(reinterpret_cast<R_UINT16*>(runs.data()), packed.data(), 0, kWidth, kHeight, kRunPitch,
                              kRowBytes) == kWidth;
    }
    bool decode()
    {
        return R_ExpandRows(reinterpret_cast<R_UINT16*>(runs.data()), packed.data(), 0, kWidth, kHeight, kRunPitch,
                            kRowBytes) == kWidth;
    }
};

Step encodeRuns()
{
    const auto forms = std::make_shared<Forms>();
    return [=] { return forms->encode(); };
}

Step decodeRuns()
{
    const auto forms = std::make_shared<Forms>();
    const bool encoded = forms->encode();
    std::memset(forms->packed.data(), 0, kBytes);
    const bool same = forms->decode() && std::equal(page().begin(), page().end(), forms->packed.data());
    return [=] { return encoded && same && forms->decode(); };
}

/// Pages one above the other that move down with each pass: every row is written anew, longer or shorter than it was.
class RewrittenPages {
public:
    explicit RewrittenPages(R_UINT memory)
    {
        good_ = R_CreateBitmap(&record_, BITMAPHANDLE_SIZE, memory, kWidth, kRows, 1, ORDER_RGB, nullptr, TOP_LEFT,
                               nullptr, 0) == SUCCESS;
    }
    ~RewrittenPages()
    {
        if (good_) R_FreeBitmap(&record_);
    }
    RewrittenPages(const RewrittenPages&) = delete;
    RewrittenPages& operator=(const RewrittenPages&) = delete;
    bool moveDown()
    {
        at_ += 1009;
        std::vector<uint8_t> row(record_.BytesPerLine);
        for (R_INT y = 0; good_ && y < kRows; ++y) {
            std::memcpy(row.data(), pageOfText() + (at_ + static_cast<size_t>(y)) % kHeight * kRowBytes, kRowBytes);
            good_ = R_PutBitmapRow(&record_, row.data(), y, row.size()) == static_cast<R_SSIZE>(row.size());
        }
        return good_;
    }

private:
    static constexpr R_INT kRows = 32768;
    BITMAPHANDLE record_;
    bool good_;
    size_t at_ = 0;
};

MakeStep rewriteRows(R_UINT memory)
{
    return [=]() -> Step {
        const auto pages = std::make_shared<RewrittenPages>(memory);
        for (int pass = 0; pass < 6; ++pass) (void)pages->moveDown(); // until free room is as scattered as it gets
        return [=] { return pages->moveDown(); };
    };
}

#if defined(RV_BENCH_LIBTIFF)
/// A file of libtiff's in memory.
class TiffMemory {
public:
    TiffMemory() : block_(kBytes * 2) {}

    TIFF* open(const char* mode)
    {
        at_ = 0;
        if (*mode == 'w') size_ = 0;
        return TIFFClientOpen("page", mode, this, read, write, seek, close, size, map, unmap);
    }
    bool put(uint16_t compression)
    {
        TIFF* const file = open("w");
        if (file == nullptr) return false;
        TIFFSetField(file, TIFFTAG_IMAGEWIDTH, kWidth);
        TIFFSetField(file, TIFFTAG_IMAGELENGTH, kHeight);
        TIFFSetField(file, TIFFTAG_ROWSPERSTRIP, kHeight);
        TIFFSetField(file, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
        TIFFSetField(file, TIFFTAG_COMPRESSION, compression);
        auto* const bytes = const_cast<uint8_t*>(page().data());
        const bool written = TIFFWriteEncodedStrip(file, 0, bytes, kBytes) == static_cast<tmsize_t>(kBytes);
        TIFFClose(file);
        return written;
    }
    bool get(uint8_t* bytes)
    {
        TIFF* const file = open("r");
        if (file == nullptr) return false;
        const bool read = TIFFReadEncodedStrip(file, 0, bytes, kBytes) == static_cast<tmsize_t>(kBytes);
        TIFFClose(file);
        return read;
    }

private:
    static TiffMemory& of(thandle_t handle) { return *static_cast<TiffMemory*>(handle); }
    static tmsize_t read(thandle_t handle, void* to, tmsize_t count)
    {
        TiffMemory& file = of(handle);
        const size_t some = std::min(static_cast<size_t>(count), file.size_ - std::min(file.at_, file.size_));
        std::memcpy(to, file.block_.data() + file.at_, some);
        file.at_ += some;
        return static_cast<tmsize_t>(some);
    }
    static tmsize_t write(thandle_t handle, void* from, tmsize_t count)
    {
        TiffMemory& file = of(handle);
        if (file.at_ + static_cast<size_t>(count) > kBytes * 2) return 0;
        std::memcpy(file.block_.data() + file.at_, from, static_cast<size_t>(count));
        file.at_ += static_cast<size_t>(count);
        file.size_ = std::max(file.size_, file.at_);
        return count;
    }
    static toff_t seek(thandle_t handle, toff_t to, int whence)
    {
        TiffMemory& file = of(handle);
        file.at_ = static_cast<size_t>(to) + (whence == SEEK_CUR ? file.at_ : whence == SEEK_END ? file.size_ : 0);
        return file.at_;
    }
    static int close(thandle_t) { return 0; }
    static toff_t size(thandle_t handle) { return of(handle).size_; }
    static int map(thandle_t handle, void** base, toff_t* bytes)
    {
        *base = of(handle).block_.data();
        *bytes = of(handle).size_;
        return 1;
    }
    static void unmap(thandle_t, void*, toff_t) {}

    Warm block_;
    size_t size_ = 0;
    size_t at_ = 0;
};

void measureTiff(const char* name, uint16_t compression)
{
    const std::string who = std::string("libtiff ") + name;
    measure("page to runs", who, [compression] {
        const auto file = std::make_shared<TiffMemory>();
        return [=] { return file->put(compression); };
    });
    measure("runs to page", who, [compression] {
        const auto file = std::make_shared<TiffMemory>();
        const auto packed = std::make_shared<Warm>(kBytes);
        const bool same = file->put(compression) && file->get(packed->data()) &&
                          std::equal(page().begin(), page().end(), packed->data());
        return [=] { return same && file->get(packed->data()); };
    });
}
#endif

#if defined(RV_BENCH_LEPTONICA)
/// The runs of ones of each row; nothing there makes pixels of them.
Step leptonica()
{
    const std::shared_ptr<PIX> picture(pixCreate(kWidth, kHeight, 1), [](PIX* p) { pixDestroy(&p); });
    const auto words = static_cast<size_t>(pixGetWpl(picture.get()));
    for (size_t y = 0; y < kHeight; ++y)
        std::memcpy(pixGetData(picture.get()) + words * y, page().data() + kRowBytes * y, kRowBytes);
    pixEndianByteSwap(picture.get());
    struct Runs {
        l_int32 first[kWidth], last[kWidth];
    };
    const auto runs = std::make_shared<Runs>();
    return [=] {
        l_int32 count = 0;
        for (l_int32 y = 0; y < kHeight; ++y)
            if (pixFindHorizontalRuns(picture.get(), y, runs->first, runs->last, &count) != 0) return false;
        return true;
    };
}
#endif

} // namespace

const uint8_t* pageOfText() { return page().data(); }

void registerRuns()
{
    measure("page to runs", "kernel", encodeRuns);
    measure("page to runs", "copy", copyOf(kBytes));
    measure("runs to page", "kernel", decodeRuns);
    measure("runs to page", "copy", copyOf(kBytes));
    measure("rewrite tall pages", "kernel", rewriteRows(MEM_COMPRESSED));
    measure("rewrite tall pages", "kernel, conventional", rewriteRows(MEM_CONVENTIONAL));
#if defined(RV_BENCH_LIBTIFF)
    measureTiff("PackBits", COMPRESSION_PACKBITS);
    measureTiff("G3", COMPRESSION_CCITTFAX3);
    measureTiff("G4", COMPRESSION_CCITTFAX4);
#endif
#if defined(RV_BENCH_LEPTONICA)
    measure("page to runs", "Leptonica", leptonica);
#endif
}

} // namespace rv::bench
