// Placements that this build cannot serve. Asked first, they say so, and the placement decision goes on without them.

#include "Kernel/Rows/RowStore.h"

namespace rv {

namespace {

class UnavailableStore final : public RowStore {
public:
    constexpr UnavailableStore() noexcept = default;

    bool usable(const StoreShape&) const noexcept override { return false; }
    Status create(StoreSlots&, const StoreShape&, const StoreRequest&) const noexcept override { return ERROR_FAILURE; }
    void destroy(StoreSlots&, const StoreShape&) const noexcept override {}
    Status changeHeight(StoreSlots&, const StoreShape&, R_INT) const noexcept override { return ERROR_FAILURE; }
    Status read(const StoreSlots&, const StoreShape&, void*, R_INT64, R_INT64, R_SIZE) const noexcept override
    {
        return ERROR_INV_BITMAP;
    }
    Status write(StoreSlots&, const StoreShape&, const void*, R_INT64, R_INT64, R_SIZE) const noexcept override
    {
        return ERROR_INV_BITMAP;
    }
};

constinit const UnavailableStore gUnavailableStore;

} // namespace

const RowStore& compressedStore() noexcept { return gUnavailableStore; }

} // namespace rv
