#include "Platform/Platform.h"
namespace rv {
void* Platform::loadModule(const R_WCHAR*) noexcept { return nullptr; }
void* Platform::loadModuleFrom(const R_WCHAR*, const R_WCHAR*) noexcept { return nullptr; }
void* Platform::moduleFunction(void*, const char*) noexcept { return nullptr; }
void Platform::freeModule(void*) noexcept {}
uint32_t Platform::libraryFolder(R_WCHAR*, uint32_t) noexcept { return 0; }
}
