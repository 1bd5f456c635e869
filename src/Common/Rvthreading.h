/// What the threading tools hold for the whole process.
#pragma once

#include "Platform/Platform.h"
#include "R_Threads.h"

namespace rv {

/// A program's work, as the platform takes it.
Work workOf(RAVOTHREADPROC proc, void* context) noexcept;
/// Hands work to a thread of its own or to the pool. SUCCESS, or ERROR_FAILURE.
R_INT startWork(const Work& work, R_UINT threadFlags) noexcept;

/// Before the library goes: gives back the slots that programs have left, and forgets what was found out about the
/// system.
void releaseThreading() noexcept;
/// The part of it that is locks'.
void forgetLockKind() noexcept;

} // namespace rv
