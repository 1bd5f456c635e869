/// Compression without loss, by whichever library for it this machine has.
#pragma once

#include "Kernel/Base/Status.h"
#include "R_Types.h"

namespace rv {

/// One use of a codec's module, which ends with the object. Its calls may be made on several threads at once.
class Codec {
public:
    /// What the codecs can take in one piece.
    static constexpr uint32_t kMostBytes = 0x7E000000;

    constexpr Codec() noexcept = default;
    Codec(Codec&& other) noexcept;
    Codec& operator=(Codec&& other) noexcept;
    ~Codec();

    /// The fastest that can be had; empty where there is none.
    static Codec open() noexcept;
    explicit operator bool() const noexcept { return library_ != nullptr; }

    /// Packs plain bytes. *packedBytes is 0 where they take more than capacity. ERROR_FAILURE: no memory.
    Status pack(uint8_t* packed, uint32_t capacity, const uint8_t* plain, uint32_t plainBytes,
                uint32_t* packedBytes) const noexcept;
    /// Gives packed bytes back as they were, exactly as many. ERROR_FAILURE: no memory, or never packed by this codec.
    Status unpack(uint8_t* plain, uint32_t plainBytes, const uint8_t* packed, uint32_t packedBytes) const noexcept;

private:
    struct Library;
    static const Library kLibraries[];

    bool take(const Library& library) noexcept;

    const Library* library_ = nullptr;
    void* module_ = nullptr;
    void* pack_ = nullptr; // functions of the module; their types are the library's business
    void* unpack_ = nullptr;
};

} // namespace rv
