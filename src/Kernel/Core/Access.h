/// The access bracket as an object.
#pragma once

#include "Internal/R_Int.h"
#include "Kernel/Base/Status.h"

namespace rv {

/// Accesses a bitmap for the length of a scope. Leaving by any path releases; the good path passes its status through
/// finish(), where a failing release speaks only when there was no failure before it.
class BitmapAccess {
public:
    explicit BitmapAccess(BITMAPHANDLE* pBitmap) noexcept
        : bitmap_(pBitmap), status_(R_IntAccessBitmap(pBitmap, &accessed_))
    {
    }
    ~BitmapAccess()
    {
        if (bitmap_ != nullptr) (void)R_IntReleaseBitmap(bitmap_, accessed_, status_);
    }
    BitmapAccess(const BitmapAccess&) = delete;
    BitmapAccess& operator=(const BitmapAccess&) = delete;

    Status status() const noexcept { return status_; }
    Status finish(Status status) noexcept
    {
        BITMAPHANDLE* const bitmap = bitmap_;
        bitmap_ = nullptr;
        return R_IntReleaseBitmap(bitmap, accessed_, status);
    }

private:
    BITMAPHANDLE* bitmap_;
    R_INT accessed_ = 0;
    Status status_;
};

} // namespace rv
