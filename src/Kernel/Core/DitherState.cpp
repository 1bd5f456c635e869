#include "Kernel/Core/DitherState.h"

#include "Kernel/Base/System.h"

namespace rv {

namespace {

constinit struct HangingStates {
    LazyLock lock;
    DitherState* first = nullptr;
} gHanging;

} // namespace

/// The link to a state that hangs somewhere; null where the pointer is none. Needs the lock.
DitherState** DitherState::find(const void* pointer) noexcept
{
    DitherState** link = &gHanging.first;
    while (*link != nullptr && *link != pointer) link = &(*link)->next_;
    return *link != nullptr ? link : nullptr;
}

void DitherState::hang(BITMAPHANDLE* pBitmap, DitherState* state) noexcept
{
    const LockGuard guard(gHanging.lock);
    state->next_ = gHanging.first;
    gHanging.first = state;
    pBitmap->pDitherData = state;
}

DitherState* DitherState::of(const BITMAPHANDLE* pBitmap) noexcept
{
    if (pBitmap->pDitherData == nullptr) return nullptr;
    const LockGuard guard(gHanging.lock);
    DitherState** const link = find(pBitmap->pDitherData);
    return link != nullptr ? *link : nullptr;
}

void DitherState::freeOf(BITMAPHANDLE* pBitmap) noexcept
{
    if (pBitmap->pDitherData == nullptr) return;
    DitherState* state = nullptr;
    {
        const LockGuard guard(gHanging.lock);
        DitherState** const link = find(pBitmap->pDitherData);
        if (link == nullptr) return;
        state = *link;
        *link = state->next_;
    }
    pBitmap->pDitherData = nullptr;
    state->free_(state);
}

} // namespace rv
