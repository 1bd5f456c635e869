/// Rows in bands, each compressed without loss by the codec that this machine has.
#pragma once

#include "Kernel/Rows/RowStore.h"

namespace rv {

/// A few bands are open, that is plain, at a time: the ones used last. A band that was changed is packed when it is
/// closed; one that packing would hardly make smaller stays plain; one of zeros takes no memory. An access that ends
/// closes all but the band used last, so that many bitmaps can be held and few are worked on.
///
/// What the rows are held in counts against the limit of conventional memory: a row call that must close a band says
/// ERROR_MEMORY_LIMIT, or ERROR_FAILURE without memory, and the band stays open until a later call can. Open bands are
/// counted, and only ones of more than 16,000,000 bytes, which a single row fills, are held to the limit: others can be
/// read back whatever it is. Several threads may move rows of one bitmap at a time.
class SuperCompressedStore final : public RowStore {
public:
    struct Limits {
        R_UINT64 bandBytes; ///< of the rows in a band; a band has one row at least
        R_UINT openBands;   ///< at a time, kLeastOpen to kMostOpen
    };
    static constexpr R_UINT kLeastOpen = 4; ///< borrowed rows hold for three calls more
    static constexpr R_UINT kMostOpen = 8;

    constexpr explicit SuperCompressedStore(const Limits& limits) noexcept : limits_(limits) {}

    bool usable(const StoreShape& shape) const noexcept override;
    Status create(StoreSlots& slots, const StoreShape& shape, const StoreRequest& request) const noexcept override;
    void destroy(StoreSlots& slots, const StoreShape& shape) const noexcept override;
    Status changeHeight(StoreSlots& slots, const StoreShape& shape, R_INT height) const noexcept override;
    Status read(const StoreSlots& slots, const StoreShape& shape, void* bytes, R_INT64 row, R_INT64 first,
                R_SIZE count) const noexcept override;
    Status write(StoreSlots& slots, const StoreShape& shape, const void* bytes, R_INT64 row, R_INT64 first,
                 R_SIZE count) const noexcept override;
    uint8_t* borrow(const StoreSlots& slots, const StoreShape& shape, R_INT64 row, bool writes) const noexcept override;
    Status settle(const StoreSlots& slots) const noexcept override;

    /// Bands that are open now, and what all of them take; for tests and measurements.
    struct Usage {
        R_UINT openBands = 0;
        R_UINT64 bytes = 0;
    };
    Usage usage(const StoreSlots& slots) const noexcept;

private:
    Limits limits_;
};

} // namespace rv
