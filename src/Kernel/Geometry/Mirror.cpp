// Left to right: one row, every row of a bitmap, or the perspective alone.

#include "Kernel/Geometry/Mirror.h"

#include "Internal/R_Int.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Progress.h"
#include "Kernel/Core/RowCursor.h"
#include "Kernel/Geometry/Perspective.h"
#include "Kernel/Pixels/Simd/Select.h"

namespace rv {

simd::MirrorRow mirrorRowFor(R_INT bits) noexcept
{
    const simd::RowKernels& kernels = rowKernels();
    switch (bits) {
#define RV_CASE(B)                                                                                                     \
    case B: return kernels.mirror##B;
        RV_FOR_EACH_DEPTH(RV_CASE)
#undef RV_CASE
    default: return nullptr;
    }
}

namespace {

Status mirrorRows(BITMAPHANDLE* pBitmap) noexcept
{
    RowCursor cursor(pBitmap, RowMode::update);
    R_TRY(cursor.status());
    const simd::MirrorRow mirror = mirrorRowFor(pBitmap->BitsPerPixel);
    const auto width = static_cast<size_t>(pBitmap->Width);
    const size_t toNext = cursor.direct() ? pBitmap->BytesPerLine : 0;
    const R_INT height = pBitmap->Height;

    Progress progress = Progress::ofThread(height);
    R_TRY(progress.begin());
    for (R_INT row = 0; row < height; ++row) {
        R_TRY(cursor.open(row));
        mirror(cursor.data(), cursor.data(), width, cursor.data() + toNext);
        R_TRY(cursor.commit());
        R_TRY(progress.step());
    }
    return SUCCESS;
}

} // namespace

} // namespace rv

using namespace rv;

R_INT R_MirrorLine(void* pRow, R_UINT uWidth, R_INT nBitsPerPixel) noexcept
{
    if (pRow == nullptr) return ERROR_INV_PARAMETER;
    const simd::MirrorRow mirror = mirrorRowFor(nBitsPerPixel);
    if (mirror == nullptr) return SUCCESS; // deliberately not an error: there is nothing that could be mirrored
    auto* const row = static_cast<uint8_t*>(pRow);
    mirror(row, row, uWidth, row);
    return SUCCESS;
}

R_INT R_ReverseBitmap(BITMAPHANDLE* pBitmap) noexcept
{
    if (pBitmap == nullptr) return ERROR_INV_PARAMETER; // a bitmap without pixels is the internal call's to refuse
    R_TRY(checkStructSize(pBitmap));
    return showsRowsAsColumns(pBitmap->ViewPerspective) ? R_IntFlipBitmap(pBitmap) : R_IntReverseBitmap(pBitmap);
}

R_INT R_IntReverseBitmap(BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkAllocated(pBitmap, ERROR_INV_BITMAP));
    R_TRY(checkStructSize(pBitmap));
    R_TRY(checkWalkable(pBitmap));
    BitmapAccess access(pBitmap);
    R_TRY(access.status());
    return access.finish(mirrorRows(pBitmap));
}

R_INT R_ReverseBitmapViewPerspective(BITMAPHANDLE* pBitmap) noexcept
{
    R_TRY(checkPerspectiveCall(pBitmap));
    return R_IntReverseBitmapViewPerspective(pBitmap);
}

R_INT R_IntReverseBitmapViewPerspective(BITMAPHANDLE* pBitmap) noexcept
{
    constexpr PerspectiveMap reversed = {TOP_RIGHT, TOP_LEFT, BOTTOM_LEFT, BOTTOM_RIGHT,
                                         RIGHT_TOP, LEFT_TOP, LEFT_BOTTOM, RIGHT_BOTTOM};
    return mapPerspective(pBitmap, reversed);
}
