// What callers and sibling modules hang into the kernel for the whole process.
#include "Kernel/Base/System.h"

#include <utility>

using namespace rv;

namespace {

struct Hooks {
    LazyLock lock;
    AllocateHook allocate;
    DISDISPATCH display = {};
};
constinit Hooks hooks;

} // namespace

AllocateHook rv::allocateHook() noexcept
{
    const LockGuard guard(hooks.lock);
    return hooks.allocate;
}

DISDISPATCH rv::displayHooks() noexcept
{
    const LockGuard guard(hooks.lock);
    return hooks.display;
}

R_INT R_SetAllocateBitmapCallback(ALLOCATECALLBACK pfnCallback, void* pUserData, ALLOCATECALLBACK* ppfnOld,
                                  void** ppOldUserData) noexcept
{
    AllocateHook hook = {pfnCallback, pUserData};
    {
        const LockGuard guard(hooks.lock);
        std::swap(hook, hooks.allocate);
    }
    if (ppfnOld != nullptr) *ppfnOld = hook.callback;
    if (ppOldUserData != nullptr) *ppOldUserData = hook.userData;
    return SUCCESS;
}

R_INT R_SetDisDispatch(const DISDISPATCH* pDispatch) noexcept
{
    DISDISPATCH display = {};
    if (pDispatch != nullptr) {
        if (pDispatch->uStructSize != sizeof(DISDISPATCH)) return ERROR_INV_STRUCT_SIZE;
        display = *pDispatch;
    }
    const LockGuard guard(hooks.lock);
    hooks.display = display;
    return SUCCESS;
}
