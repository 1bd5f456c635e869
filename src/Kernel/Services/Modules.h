/// Modules, as the loader and the kernel itself load them.
#pragma once

#include "R_Modules.h"

#include <initializer_list>

namespace rv {

/// The place of the check that every module passes before anything of it is used.
bool acceptsModule(void* module) noexcept;

/// The module itself when it is accepted. Another is freed, and the answer is null.
void* acceptedModule(void* module) noexcept;

/// The toolkit's modules have one folder, that of this library; with its last separator, empty while it is not known.
/// The text stays as it is.
const R_WCHAR* moduleDirectory() noexcept;

/// A library that is no module of the toolkit, by the first of its names that the system finds and that is accepted;
/// null where there is none. platform().freeModule() gives it back.
void* loadSystemModule(std::initializer_list<const R_WCHAR*> names) noexcept;

struct LoadCallback {
    LOADLIBCALLBACK function = nullptr;
    void* userData = nullptr;
};
LoadCallback loadCallback() noexcept;

} // namespace rv
