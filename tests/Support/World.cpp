#include "Support/World.h"

#include "Kernel/Rows/RowStore.h"
#include "Platform/Platform.h"

#include <cstring>
#include <random>
#include <stdexcept>

namespace rv::test {

const std::vector<R_INT>& allDepths()
{
    static const std::vector<R_INT> depths{1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64};
    return depths;
}

const std::vector<Home>& allHomes()
{
    static const std::vector<Home> homes{Home::conventional, Home::user,  Home::callbacks,      Home::movable,
                                         Home::disk,         Home::tiled, Home::superCompressed};
    return homes;
}

std::vector<Home> homesOf(R_INT bits)
{
    std::vector<Home> homes = allHomes();
    if (bits == 1) homes.push_back(Home::compressed);
    return homes;
}

std::string Scene::text() const
{
    constexpr const char* names[] = {"conventional", "user",  "callbacks",        "movable",
                                     "disk",         "tiled", "super-compressed", "compressed"};
    return std::to_string(bits) + " bits, " + names[static_cast<int>(home)] + ", record of " +
           std::to_string(structSize) + ", " + std::to_string(width) + " x " + std::to_string(height) + ", seed " +
           std::to_string(seed);
}

bool Scene::possible() const
{
    switch (home) {
    case Home::callbacks: return structSize == BITMAPHANDLE_SIZE;
    case Home::compressed: return bits == 1;
    case Home::superCompressed: return (bits == 1 || bits == 8 || bits == 24) && superCompressedStore().usable({});
    default: return true;
    }
}

namespace {

void require(R_INT64 status, R_INT64 wanted, const std::string& what)
{
    if (status != wanted) throw std::runtime_error(what + " gave " + std::to_string(status));
}

std::vector<uint8_t>& blockOf(void* userData) { return *static_cast<std::vector<uint8_t>*>(userData); }

uint8_t* rowPiece(BITMAPHANDLE* p, R_INT row, R_INT column, void* userData)
{
    const auto firstByte = (R_INT64{column} * p->BitsPerPixel) >> 3;
    return blockOf(userData).data() + R_INT64{row} * p->BytesPerLine + firstByte;
}

/// Calls a row call for each row of the bitmap, and for the bytes of pixels that are the row's.
template <class F> void moveRows(BITMAPHANDLE* p, std::vector<uint8_t>& pixels, F call)
{
    const R_UINT rowBytes = p->BytesPerLine;
    require(R_AccessBitmap(p), SUCCESS, "R_AccessBitmap");
    for (R_INT row = 0; row < p->Height; ++row)
        require(call(p, pixels.data() + size_t{rowBytes} * static_cast<size_t>(row), row, rowBytes), rowBytes, "a row");
    require(R_ReleaseBitmap(p), SUCCESS, "R_ReleaseBitmap");
}

R_INT supplyPixels(BITMAPHANDLE* p, ALLOCATIONINFO* info, void* userData)
{
    blockOf(userData).assign(info->Size, 0);
    p->Addr.Pointer = blockOf(userData).data(); // its own affair: nobody else may follow it or free it
    return SUCCESS_ABORT;
}

R_INT dropPixels(BITMAPHANDLE*, void*) { return SUCCESS_ABORT; }

R_INT readPiece(BITMAPHANDLE* p, void* buffer, R_INT row, R_INT column, R_SIZE bytes, void* userData)
{
    std::memcpy(buffer, rowPiece(p, row, column, userData), bytes);
    return static_cast<R_INT>(bytes);
}

R_INT writePiece(BITMAPHANDLE* p, void* buffer, R_INT row, R_INT column, R_SIZE bytes, void* userData)
{
    std::memcpy(rowPiece(p, row, column, userData), buffer, bytes);
    return static_cast<R_INT>(bytes);
}

} // namespace

TestBitmap::TestBitmap(const Scene& scene) : scene_(scene), record_(scene.structSize)
{
    require(R_InitBitmap(*this, scene.structSize, scene.width, scene.height, scene.bits), SUCCESS, "R_InitBitmap");
    place();
    if (scene.bits <= 8) {
        std::vector<RGBQUAD> palette(size_t{1} << scene.bits);
        std::mt19937 random(scene.seed + 77);
        for (RGBQUAD& entry : palette)
            entry = {static_cast<uint8_t>(random()), static_cast<uint8_t>(random()), static_cast<uint8_t>(random()), 0};
        require(R_SetBitmapNewPalette(get(), palette.data(), static_cast<R_UINT>(palette.size())), SUCCESS, "palette");
    }
    setPixels(randomPixels(scene.width, scene.height, scene.bits, record_->BytesPerLine, scene.seed));
}

void TestBitmap::place()
{
    const R_UINT64 bytes = record_->Size;
    switch (scene_.home) {
    case Home::conventional: require(R_AllocateBitmap(get(), MEM_CONVENTIONAL), SUCCESS, "R_AllocateBitmap"); break;
    case Home::user:
        block_.resize(bytes);
        require(R_AllocateBitmap(get(), MEM_USER), SUCCESS, "R_AllocateBitmap");
        require(R_SetBitmapDataPointer(get(), block_.data(), bytes), SUCCESS, "R_SetBitmapDataPointer");
        break;
    case Home::callbacks: {
        BITMAPHANDLEDATACALLBACKS callbacks = callbacksFor(&block_);
        callbacks.AllocateBitmapDataCallback = supplyPixels;
        callbacks.FreeBitmapDataCallback = dropPixels;
        callbacks.GetBitmapRowColCallback = readPiece;
        callbacks.PutBitmapRowColCallback = writePiece;
        require(R_SetBitmapDataCallbacks(get(), &callbacks), SUCCESS, "R_SetBitmapDataCallbacks");
        require(R_AllocateBitmap(get(), MEM_CONVENTIONAL), SUCCESS, "R_AllocateBitmap");
        break;
    }
    case Home::superCompressed:
        require(R_AllocateBitmap(get(), MEM_SUPER_COMPRESSED), SUCCESS, "R_AllocateBitmap");
        break;
    case Home::movable:
        record_->Addr.Handle = platform().allocateMovable(bytes);
        record_->Flags |= FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY | FLAG_GLOBAL;
        break;
    case Home::disk: require(R_AllocateBitmap(get(), MEM_DISK), SUCCESS, "R_AllocateBitmap"); break;
    case Home::tiled:
        // A row each, two in memory: more tiles in the file than views.
        R_SetMemoryThresholds(0, 0, 1, 2, 0, THRESHOLD_TILE_SIZE | THRESHOLD_CONV_TILES);
        require(R_AllocateBitmap(get(), MEM_TILED), SUCCESS, "R_AllocateBitmap");
        R_SetMemoryThresholds(0, 0, 0, -100, 0, THRESHOLD_TILE_SIZE | THRESHOLD_CONV_TILES);
        break;
    case Home::compressed: require(R_AllocateBitmap(get(), MEM_COMPRESSED), SUCCESS, "R_AllocateBitmap"); break;
    }
}

TestBitmap::~TestBitmap() { R_FreeBitmap(get()); }

std::vector<uint8_t> pixelsOf(BITMAPHANDLE* pBitmap)
{
    std::vector<uint8_t> pixels(size_t{pBitmap->BytesPerLine} * static_cast<size_t>(pBitmap->Height));
    moveRows(pBitmap, pixels, R_GetBitmapRow);
    return pixels;
}

std::vector<uint8_t> TestBitmap::pixels() const { return pixelsOf(get()); }

void TestBitmap::setPixels(const std::vector<uint8_t>& pixels) const
{
    std::vector<uint8_t> copy = pixels; // a row is written from memory that the call could change
    moveRows(get(), copy, R_PutBitmapRow);
}

std::vector<uint8_t> TestBitmap::record() const
{
    const auto* bytes = reinterpret_cast<const uint8_t*>(get());
    return {bytes, bytes + record_.structSize()};
}

std::vector<uint8_t> TestBitmap::palette() const
{
    if (record_->pPalette == nullptr) return {};
    const auto* bytes = reinterpret_cast<const uint8_t*>(record_->pPalette);
    return {bytes, bytes + size_t{record_->nColors} * sizeof(RGBQUAD)};
}

BITMAPHANDLEDATACALLBACKS callbacksFor(void* userData)
{
    BITMAPHANDLEDATACALLBACKS callbacks{};
    callbacks.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE;
    callbacks.pUserData = userData;
    return callbacks;
}

std::vector<uint8_t> randomPixels(R_INT width, R_INT height, R_INT bits, R_UINT bytesPerLine, unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<uint8_t> pixels(size_t{bytesPerLine} * static_cast<size_t>(height));
    for (uint8_t& byte : pixels) byte = static_cast<uint8_t>(random());
    for (R_INT row = 0; row < height; ++row)
        for (R_INT64 bit = R_INT64{width} * bits; bit < R_INT64{bytesPerLine} * 8; ++bit)
            setPixelAt(pixels.data() + size_t{bytesPerLine} * static_cast<size_t>(row), bit, 1, 0);
    return pixels;
}

uint64_t pixelAt(const uint8_t* row, R_INT64 column, R_INT bits)
{
    uint64_t value = 0;
    if (bits % 8 == 0) {
        std::memcpy(&value, row + column * (bits / 8), static_cast<size_t>(bits / 8));
        return value;
    }
    for (R_INT64 bit = column * bits; bit < (column + 1) * bits; ++bit)
        value = value << 1 | ((unsigned{row[bit >> 3]} >> (7 - (bit & 7))) & 1u);
    return value;
}

void setPixelAt(uint8_t* row, R_INT64 column, R_INT bits, uint64_t value)
{
    if (bits % 8 == 0) {
        std::memcpy(row + column * (bits / 8), &value, static_cast<size_t>(bits / 8));
        return;
    }
    for (R_INT64 bit = (column + 1) * bits - 1; bit >= column * bits; --bit, value >>= 1) {
        const int mask = 0x80 >> (bit & 7);
        row[bit >> 3] = static_cast<uint8_t>((value & 1) != 0 ? row[bit >> 3] | mask : row[bit >> 3] & ~mask);
    }
}

} // namespace rv::test
