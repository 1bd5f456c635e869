/// What hangs in a record's pDitherData while its rows are dithered. The record owns it.
#pragma once

#include "R_Bitmap.h"

namespace rv {

/// A state that can hang in a record. Those that do are known, so that a pointer of somebody else's, or one that a copy
/// of a record has kept, is told from them without being looked into.
class DitherState {
public:
    using Free = void (*)(DitherState* state) noexcept;
    explicit DitherState(Free free) noexcept : free_(free) {}
    DitherState(const DitherState&) = delete;
    DitherState& operator=(const DitherState&) = delete;

    /// Replaces what hangs there, which is not freed.
    static void hang(BITMAPHANDLE* pBitmap, DitherState* state) noexcept;
    /// Null: there is none of ours.
    static DitherState* of(const BITMAPHANDLE* pBitmap) noexcept;
    /// Frees the record's state and clears its field. What is not ours stays.
    static void freeOf(BITMAPHANDLE* pBitmap) noexcept;

protected:
    ~DitherState() = default;

private:
    static DitherState** find(const void* pointer) noexcept;

    Free free_;
    DitherState* next_ = nullptr;
};

} // namespace rv
