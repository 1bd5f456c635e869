// The shared library's entry point: the loader calls these when it maps the library and before it unmaps it.
#include "Platform/Entry.h"

namespace {

__attribute__((constructor)) void loaded() { rv::attach(); }
__attribute__((destructor)) void unloading() { rv::detach(); }

} // namespace
