/// What the library's entry points tell the kernel, which defines these. Called when the library has been loaded,
/// before it is unloaded, and, where the system tells the library and not the slot, on a thread that ends.
#pragma once

namespace rv {

void attach() noexcept;
void detach() noexcept; ///< nobody is inside the library; afterwards it can be attached again
void threadEnded(void* threadBlock) noexcept;
/// The block that the calling thread has; null where it has none.
void* currentThreadBlock() noexcept;

} // namespace rv
