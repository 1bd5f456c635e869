/// Which module a file is, and what is said when it is missing.
#pragma once

#include "R_Types.h"

namespace rv {

/// The number of the module that a file name stands for, whatever its ending; -1 for any other name.
R_INT moduleOfFile(const R_WCHAR* fileName) noexcept;

/// The status that says that a module is missing: its own, or ERROR_FEATURE_NOT_SUPPORTED where it has none.
R_INT missingModuleStatus(R_INT module) noexcept;

} // namespace rv
