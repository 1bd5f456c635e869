/// What the threading tools hold for the whole process.
#pragma once

namespace rv {

/// Before the library goes: gives back the slots that programs have left, and forgets what was found out about the
/// system.
void releaseThreading() noexcept;
/// The part of it that is locks'.
void forgetLockKind() noexcept;

} // namespace rv
