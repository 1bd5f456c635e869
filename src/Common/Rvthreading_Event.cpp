// Events.
#include "Platform/Platform.h"
#include "R_Status.h"
#include "R_Threads.h"

RVWaitEvent::RVWaitEvent() noexcept : m_hEvent(nullptr) {}
RVWaitEvent::~RVWaitEvent() { Destroy(); }

R_INT RVWaitEvent::Create(int manualReset, int initialState) noexcept
{
    Destroy();
    m_hEvent = rv::platform().createEvent(manualReset != 0, initialState != 0);
    return m_hEvent != nullptr ? SUCCESS : ERROR_FAILURE;
}

void RVWaitEvent::Destroy() noexcept
{
    rv::platform().closeEvent(m_hEvent);
    m_hEvent = nullptr;
}

R_INT RVWaitEvent::IsCreated() const noexcept { return m_hEvent != nullptr; }

R_INT RVWaitEvent::WaitOne(unsigned milliseconds) noexcept
{
    if (m_hEvent == nullptr) return 1;
    switch (rv::platform().waitEvent(m_hEvent, milliseconds)) {
    case rv::Waited::signalled: return 1;
    case rv::Waited::timedOut: return ERROR_USER_ABORT;
    case rv::Waited::failed: break;
    }
    return 0;
}

// A waiter may destroy this object as soon as the event is set: nothing of it is read after the call.
R_INT RVWaitEvent::Set() noexcept { return m_hEvent == nullptr || rv::platform().setEvent(m_hEvent); }
R_INT RVWaitEvent::Reset() noexcept { return m_hEvent == nullptr || rv::platform().resetEvent(m_hEvent); }
