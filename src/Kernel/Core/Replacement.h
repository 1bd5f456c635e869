/// The new image of an operation that changes an image's shape.
#pragma once

#include "Kernel/Base/Status.h"
#include "R_Bitmap.h"

namespace rv {

/// Makes an allocated duplicate of pSrc with other dimensions: in pDst, or, where pDst is null or pSrc itself, in a
/// record of its own that takes pSrc's place in the end. Until commit() pSrc is as it was, and without it the duplicate
/// is freed; callbacks that were told of the copy's beginning are told of its end either way.
class Replacement {
public:
    struct Shape {
        R_INT width;
        R_INT height;
        R_INT bits;
    };
    /// Placed as pSrc is, or by MEM_ flags.
    Replacement(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, const Shape& shape) noexcept;
    Replacement(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, const Shape& shape,
                R_UINT uMemory) noexcept;
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    Status status() const noexcept { return status_; }
    /// The record to fill.
    BITMAPHANDLE* bitmap() noexcept;
    /// The last step, when the operation has released what it accessed. Where the duplicate takes pSrc's place, pSrc's
    /// old pixels go, and its extra data, overlays, region, lock count and callbacks stay (those that were installed
    /// when the copy began take their place). Callbacks that hold rows of their own are then asked to supply the new
    /// pixels and given every row; when they refuse one, the image is the new one, in the kernel's memory.
    /// What it answers is the operation's result.
    Status commit() noexcept;
    /// Ends with the operation's failure; returns it.
    Status fail(Status status) noexcept;

private:
    bool replaces() const noexcept { return target_ == &own_; }
    Status duplicate(R_UINT uStructSize, const Shape& shape, R_UINT flags) noexcept;

    BITMAPHANDLE own_;
    BITMAPHANDLE* target_;
    BITMAPHANDLE* source_;
    bool begun_ = false;
    Status status_;
};

} // namespace rv
