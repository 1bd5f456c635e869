// The door on Windows.
#include "Platform/Platform.h"

#include <cstdlib>
#include <new>

namespace rv {
namespace {

class SystemPlatform final : public Platform {};
constinit SystemPlatform systemPlatform;

} // namespace

constinit Platform& gSystemPlatform = systemPlatform;
constinit std::atomic<Platform*> gPlatform{&systemPlatform};

// --- Heap

void* Platform::allocate(size_t bytes) noexcept { return std::malloc(bytes != 0 ? bytes : 1); }
void* Platform::reallocate(void* block, size_t bytes) noexcept { return std::realloc(block, bytes != 0 ? bytes : 1); }
void Platform::release(void* block) noexcept { std::free(block); }

// --- Pages

void* Platform::createPages(uint64_t bytes) noexcept
{
    if (bytes > INT64_MAX) return nullptr; // rounding up to pages must not wrap
    const uint64_t size = bytes != 0 ? bytes : 1;
    return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, static_cast<DWORD>(size >> 32),
                              static_cast<DWORD>(size), nullptr);
}

void* Platform::mapPages(void* pages) noexcept
{
    return pages != nullptr ? MapViewOfFile(pages, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0) : nullptr;
}

void Platform::unmapPages(void*, void* view) noexcept
{
    if (view != nullptr) UnmapViewOfFile(view);
}

void Platform::closePages(void* pages) noexcept
{
    if (pages != nullptr) CloseHandle(pages);
}

// --- Movable blocks

namespace {

UINT lockCountOf(void* handle) noexcept { return GlobalFlags(handle) & GMEM_LOCKCOUNT; }

} // namespace

void* Platform::allocateMovable(size_t bytes) noexcept
{
    return GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, bytes != 0 ? bytes : 1);
}

void* Platform::reallocateMovable(void* handle, size_t bytes) noexcept
{
    if (handle == nullptr || lockCountOf(handle) != 0) return nullptr;
    return GlobalReAlloc(handle, bytes != 0 ? bytes : 1, GMEM_MOVEABLE | GMEM_ZEROINIT);
}

void* Platform::lockMovable(void* handle) noexcept { return handle != nullptr ? GlobalLock(handle) : nullptr; }

void Platform::unlockMovable(void* handle) noexcept
{
    if (handle != nullptr && lockCountOf(handle) != 0) GlobalUnlock(handle);
}

void* Platform::movableHandle(void* locked) noexcept { return locked != nullptr ? GlobalHandle(locked) : nullptr; }
size_t Platform::movableSize(void* handle) noexcept { return handle != nullptr ? GlobalSize(handle) : 0; }

void Platform::freeMovable(void* handle) noexcept
{
    if (handle == nullptr) return;
    for (UINT locks = lockCountOf(handle); locks != 0; --locks) GlobalUnlock(handle);
    GlobalFree(handle);
}

MemoryStatus Platform::memoryStatus() noexcept
{
    MEMORYSTATUSEX system = {};
    system.dwLength = sizeof system;
    if (!GlobalMemoryStatusEx(&system)) return {};
    return {system.ullTotalPhys, system.ullAvailPhys, system.ullTotalPageFile, system.ullAvailPageFile};
}

// --- Threads

bool Platform::createSlot(ThreadSlot* slot, void (*)(void*)) noexcept
{
    const DWORD index = TlsAlloc(); // the end of a thread is told to DllMain
    if (index == TLS_OUT_OF_INDEXES) return false;
    *slot = index;
    return true;
}

void* Platform::slotValue(ThreadSlot slot) noexcept
{
    const DWORD error = GetLastError(); // TlsGetValue clears it, and callers may not have read theirs yet
    void* const value = TlsGetValue(slot);
    SetLastError(error);
    return value;
}

bool Platform::setSlotValue(ThreadSlot slot, void* value) noexcept { return TlsSetValue(slot, value) != 0; }
void Platform::destroySlot(ThreadSlot slot) noexcept { TlsFree(slot); }

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(LockStorage) && alignof(CRITICAL_SECTION) <= alignof(LockStorage));

namespace {

CRITICAL_SECTION* sectionOf(LockStorage* lock) noexcept
{
    return std::launder(reinterpret_cast<CRITICAL_SECTION*>(lock));
}

} // namespace

void Platform::createLock(LockStorage* lock) noexcept { InitializeCriticalSection(new (lock) CRITICAL_SECTION); }
void Platform::enterLock(LockStorage* lock) noexcept { EnterCriticalSection(sectionOf(lock)); }
void Platform::leaveLock(LockStorage* lock) noexcept { LeaveCriticalSection(sectionOf(lock)); }
void Platform::destroyLock(LockStorage* lock) noexcept { DeleteCriticalSection(sectionOf(lock)); }

void* Platform::createEvent(bool manualReset, bool signalled) noexcept
{
    return CreateEventW(nullptr, manualReset, signalled, nullptr);
}

bool Platform::setEvent(void* event) noexcept { return event != nullptr && SetEvent(event); }
bool Platform::resetEvent(void* event) noexcept { return event != nullptr && ResetEvent(event); }

Waited Platform::waitEvent(void* event, uint32_t milliseconds) noexcept
{
    static_assert(kWaitForever == INFINITE);
    switch (event != nullptr ? WaitForSingleObject(event, milliseconds) : WAIT_FAILED) {
    case WAIT_OBJECT_0: return Waited::signalled;
    case WAIT_TIMEOUT: return Waited::timedOut;
    default: return Waited::failed;
    }
}

void Platform::closeEvent(void* event) noexcept
{
    if (event != nullptr) CloseHandle(event);
}

void Platform::sleep(uint32_t milliseconds) noexcept { Sleep(milliseconds); }
uint64_t Platform::ticks() noexcept { return GetTickCount64(); }
uint32_t Platform::processId() noexcept { return GetCurrentProcessId(); }
uint32_t Platform::threadId() noexcept { return GetCurrentThreadId(); }

// --- Diagnostics

void Platform::debugOutput(const char* text) noexcept
{
    if (text != nullptr) OutputDebugStringA(text);
}

void Platform::debugOutputWide(const R_WCHAR* text) noexcept
{
    if (text != nullptr) OutputDebugStringW(text);
}

bool Platform::lockCountDiagnosticsWanted() noexcept
{
    HKEY key;
    if (RegOpenKeyExA(HKEY_CURRENT_USER, "SOFTWARE\\Bastovel\\23\\CheckLockCount", 0, KEY_READ, &key) != 0)
        return false;
    RegCloseKey(key);
    return true;
}

// --- Palettes

HPALETTE Platform::createPalette(const PALETTEENTRY* entries, uint32_t count) noexcept
{
    if (count > 256 || (entries == nullptr && count != 0)) return nullptr;
    struct {
        LOGPALETTE head; // with its first entry
        PALETTEENTRY rest[255];
    } logical = {};
    logical.head.palVersion = 0x300;
    logical.head.palNumEntries = static_cast<WORD>(count);
    auto* const all = reinterpret_cast<unsigned char*>(&logical) + offsetof(LOGPALETTE, palPalEntry);
    if (count != 0) __builtin_memcpy(all, entries, count * sizeof(PALETTEENTRY));
    return CreatePalette(&logical.head);
}

uint32_t Platform::paletteSize(HPALETTE palette) noexcept
{
    return palette != nullptr ? GetPaletteEntries(palette, 0, 0, nullptr) : 0;
}

uint32_t Platform::paletteEntries(HPALETTE palette, uint32_t first, uint32_t count, PALETTEENTRY* entries) noexcept
{
    return palette != nullptr && entries != nullptr ? GetPaletteEntries(palette, first, count, entries) : 0;
}

uint32_t Platform::setPaletteEntries(HPALETTE palette, uint32_t first, uint32_t count,
                                     const PALETTEENTRY* entries) noexcept
{
    return palette != nullptr && entries != nullptr ? SetPaletteEntries(palette, first, count, entries) : 0;
}

void Platform::deletePalette(HPALETTE palette) noexcept
{
    if (palette != nullptr) DeleteObject(palette);
}

bool Platform::nearestPaletteIndex(HPALETTE palette, COLORREF colour, uint32_t* index) noexcept
{
    const UINT nearest = GetNearestPaletteIndex(palette, colour);
    if (nearest == CLR_INVALID) return false;
    *index = nearest;
    return true;
}

uint32_t Platform::systemPalette(PALETTEENTRY* entries, uint32_t capacity) noexcept
{
    const HDC screen = GetDC(nullptr);
    if (screen == nullptr) return 0;
    const bool hasPalette = (GetDeviceCaps(screen, RASTERCAPS) & RC_PALETTE) != 0;
    const auto size = static_cast<uint32_t>(GetDeviceCaps(screen, SIZEPALETTE));
    const uint32_t wanted = size < capacity ? size : capacity;
    const uint32_t moved = hasPalette ? GetSystemPaletteEntries(screen, 0, wanted, entries) : 0;
    ReleaseDC(nullptr, screen);
    return moved;
}

} // namespace rv
