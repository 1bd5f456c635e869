// The codecs that may be there, with the few of their functions that are used. Both are stable interfaces of C.

#include "Kernel/Rows/Codec.h"

#include "Common/Text.h"
#include "Kernel/Services/Modules.h"
#include "Platform/Platform.h"

#include <initializer_list>
#include <utility>

namespace rv {

namespace {

using Names = std::initializer_list<const R_WCHAR*>;
#if defined(_WIN32)
constexpr Names kLz4Files = {RV_WIDE("liblz4.dll"), RV_WIDE("lz4.dll")};
constexpr Names kZlibFiles = {RV_WIDE("zlib1.dll")};
#else
constexpr Names kLz4Files = {RV_WIDE("liblz4.so.1")};
constexpr Names kZlibFiles = {RV_WIDE("libz.so.1")};
#endif

/// What packing answers where the bytes do not fit, and where it has failed.
constexpr int64_t kDoesNotFit = 0, kFailed = -1;

int64_t packWithLz4(void* function, uint8_t* packed, uint32_t capacity, const uint8_t* plain, uint32_t bytes) noexcept
{
    using Compress = int (*)(const uint8_t* from, uint8_t* to, int fromBytes, int toCapacity);
    return reinterpret_cast<Compress>(function)(plain, packed, static_cast<int>(bytes), static_cast<int>(capacity));
}

bool unpackWithLz4(void* function, uint8_t* plain, uint32_t plainBytes, const uint8_t* packed, uint32_t bytes) noexcept
{
    using Decompress = int (*)(const uint8_t* from, uint8_t* to, int fromBytes, int toCapacity);
    const int got =
        reinterpret_cast<Decompress>(function)(packed, plain, static_cast<int>(bytes), static_cast<int>(plainBytes));
    return got >= 0 && static_cast<uint32_t>(got) == plainBytes;
}

constexpr int kZlibDone = 0, kZlibNoRoom = -5;
constexpr int kZlibFastest = 1;

int64_t packWithZlib(void* function, uint8_t* packed, uint32_t capacity, const uint8_t* plain, uint32_t bytes) noexcept
{
    using Compress =
        int (*)(uint8_t * to, unsigned long* toBytes, const uint8_t* from, unsigned long fromBytes, int level);
    unsigned long got = capacity;
    switch (reinterpret_cast<Compress>(function)(packed, &got, plain, bytes, kZlibFastest)) {
    case kZlibDone: return static_cast<int64_t>(got);
    case kZlibNoRoom: return kDoesNotFit;
    default: return kFailed;
    }
}

bool unpackWithZlib(void* function, uint8_t* plain, uint32_t plainBytes, const uint8_t* packed, uint32_t bytes) noexcept
{
    using Decompress = int (*)(uint8_t * to, unsigned long* toBytes, const uint8_t* from, unsigned long fromBytes);
    unsigned long got = plainBytes;
    const int status = reinterpret_cast<Decompress>(function)(plain, &got, packed, bytes);
    return status == kZlibDone && got == plainBytes;
}

} // namespace

struct Codec::Library {
    Names files;
    const char* packName;
    const char* unpackName;
    int64_t (*pack)(void*, uint8_t*, uint32_t, const uint8_t*, uint32_t) noexcept;
    bool (*unpack)(void*, uint8_t*, uint32_t, const uint8_t*, uint32_t) noexcept;
};

constexpr Codec::Library Codec::kLibraries[] = {
    {kLz4Files, "LZ4_compress_default", "LZ4_decompress_safe", packWithLz4, unpackWithLz4},
    {kZlibFiles, "compress2", "uncompress", packWithZlib, unpackWithZlib},
};

Codec::Codec(Codec&& other) noexcept { *this = std::move(other); }

Codec& Codec::operator=(Codec&& other) noexcept
{
    std::swap(library_, other.library_);
    std::swap(module_, other.module_);
    std::swap(pack_, other.pack_);
    std::swap(unpack_, other.unpack_);
    return *this;
}

Codec::~Codec() { platform().freeModule(module_); }

Codec Codec::open() noexcept
{
    Codec codec;
    for (const Library& library : kLibraries)
        if (codec.take(library)) break;
    return codec;
}

/// A module that has the name and not the functions is not the library that is meant.
bool Codec::take(const Library& library) noexcept
{
    void* const module = loadSystemModule(library.files);
    pack_ = platform().moduleFunction(module, library.packName);
    unpack_ = platform().moduleFunction(module, library.unpackName);
    if (pack_ == nullptr || unpack_ == nullptr) {
        platform().freeModule(module);
        return false;
    }
    module_ = module;
    library_ = &library;
    return true;
}

Status Codec::pack(uint8_t* packed, uint32_t capacity, const uint8_t* plain, uint32_t plainBytes,
                   uint32_t* packedBytes) const noexcept
{
    const int64_t got = library_->pack(pack_, packed, capacity, plain, plainBytes);
    if (got < 0) return ERROR_FAILURE;
    *packedBytes = static_cast<uint32_t>(got);
    return SUCCESS;
}

Status Codec::unpack(uint8_t* plain, uint32_t plainBytes, const uint8_t* packed, uint32_t packedBytes) const noexcept
{
    return library_->unpack(unpack_, plain, plainBytes, packed, packedBytes) ? SUCCESS : ERROR_FAILURE;
}

} // namespace rv
