#include "Support/Calls.h"

#include "Platform/Platform.h"

namespace rv::test {

namespace {

R_UINT signal(void* event) { return static_cast<RVWaitEvent*>(event)->Set() == 1; }

/// A thread that has run by the time this answers. What started it has been given back by then.
R_INT64 startAndWait()
{
    RVWaitEvent ran;
    R_INT status = ran.Create(1, 0);
    if (status == SUCCESS) status = R_RavoThreadCreateAndRun(signal, &ran, 0);
    if (status == SUCCESS) ran.WaitOne(kWaitForever);
    return status;
}

template <class F> R_INT64 withSlot(F f)
{
    const R_UINT slot = R_TlsAlloc();
    const R_INT64 status = f(slot);
    R_TlsFree(slot);
    return status;
}

R_INT64 setAndGet(R_UINT slot)
{
    int value;
    const R_INT64 status = R_TlsSetValue(slot, &value);
    return status != SUCCESS ? status : as(R_TlsGetValue(slot) == &value);
}

const Call kCalls[] = {
    DOES(R_RavoThreadCreateAndRun, startAndWait()),
    DOES(R_RavoThreadCreateAndRunST,
         R_RavoThreadCreateAndRunST([](void* flag) noexcept -> R_UINT { return *static_cast<R_INT*>(flag) = 1, 5; },
                                    &w.answers.flag, 0) == SUCCESS
             ? as(w.answers.flag == 1)
             : FAILURE),
    DOES(R_TlsAlloc, withSlot([](R_UINT slot) { return as(slot != 0xFFFFFFFFu); })),
    DOES(R_TlsFree, as(R_TlsFree(R_TlsAlloc()) == SUCCESS)),
    DOES(R_TlsGetValue, withSlot([](R_UINT slot) { return as(R_TlsGetValue(slot) == nullptr); })),
    DOES(R_TlsSetValue, withSlot(setAndGet)),
};

} // namespace

std::span<const Call> threadCalls() { return kCalls; }

} // namespace rv::test
