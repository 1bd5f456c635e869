/// What measurements of whole pictures share: the other libraries, and how many bytes a picture has.
#pragma once

#include "Support.h"

#include <memory>

#if defined(RV_BENCH_OPENCV)
#include <opencv2/core.hpp>
#endif
#if defined(RV_BENCH_IMGPROC)
#include <opencv2/imgproc.hpp>
#endif
#if defined(RV_BENCH_PIXMAN)
#include <pixman.h>
#endif
#if defined(RV_BENCH_LIBYUV)
#include <libyuv.h>
#endif
#if defined(RV_BENCH_LEPTONICA)
#include <leptonica/allheaders.h>
#endif

namespace rv::bench {

/// Bytes from one row of a bitmap to the next.
inline size_t rowBytesOf(R_INT width, R_INT bits)
{
    return (static_cast<size_t>(width) * static_cast<size_t>(bits) + 31) / 32 * 4;
}

struct Size {
    R_INT width;
    R_INT height;
    R_INT bits;

    size_t rowBytes() const { return rowBytesOf(width, bits); }
    size_t bytes() const { return rowBytes() * static_cast<size_t>(height); }
    /// Of the picture whose columns are rows.
    size_t turnedBytes() const { return rowBytesOf(height, bits) * static_cast<size_t>(width); }
};

/// Has copies of a bitmap lie in a block, which is the copies' user data.
inline bool lendMemory(BITMAPHANDLE* source, Warm* block)
{
    BITMAPHANDLEDATACALLBACKS lender{};
    lender.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE;
    lender.pUserData = block;
    lender.BeginCopyBitmapDataCallback = [](BITMAPHANDLE*, R_UINT, ALLOCATIONINFO*, BITMAPHANDLEDATACALLBACKS* copies,
                                            void* user) -> R_INT {
        copies->pUserData = user;
        copies->AllocateBitmapDataCallback = [](BITMAPHANDLE*, ALLOCATIONINFO* info, void*) -> R_INT {
            info->uMemory = MEM_USER;
            return SUCCESS;
        };
        copies->AccessBitmapCallback = [](BITMAPHANDLE* copy, void* pixels) -> R_INT {
            copy->Addr.Pointer = static_cast<Warm*>(pixels)->data();
            return SUCCESS;
        };
        return SUCCESS;
    };
    return R_SetBitmapDataCallbacks(source, &lender) == SUCCESS;
}

} // namespace rv::bench
