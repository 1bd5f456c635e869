/// What a Linux system says of its memory, and what it allows this process.
#pragma once

#include "Platform/Platform.h"

namespace rv {

/// Reads proc/meminfo and the memory limits of the process's control groups below `root` ("" for the system's own).
/// All zeros where nothing can be read. The limits of the process itself are not in it.
MemoryStatus readSystemMemory(const char* root) noexcept;

/// Cuts memory and page file to what is left of a limit on both together.
void limitTogether(MemoryStatus* status, uint64_t limit, uint64_t used) noexcept;

} // namespace rv
