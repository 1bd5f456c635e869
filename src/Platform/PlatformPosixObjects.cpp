// Movable blocks and palettes: objects that Windows has and POSIX systems have not.
#include "Platform/Platform.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <pthread.h>

namespace rv {

// --- Movable blocks

namespace {

/// What a handle points to. The block itself may move while nobody has locked it.
struct Movable {
    void* data;
    size_t size;
    std::atomic<uint32_t> locks;
    Movable* next; // with the same hash
};

// All blocks by address. An address comes out of a record, and a caller can have put memory of its own there: what is
// not in the table is no block of ours and is left alone.
struct MovableTable {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    Movable* buckets[4096] = {};
};
constinit MovableTable table;

class TableGuard {
public:
    TableGuard() noexcept { pthread_mutex_lock(&table.mutex); }
    ~TableGuard() { pthread_mutex_unlock(&table.mutex); }
    TableGuard(const TableGuard&) = delete;
    TableGuard& operator=(const TableGuard&) = delete;
};

Movable** bucketOf(const void* data) noexcept
{
    constexpr uint64_t kGolden = 0x9E3779B97F4A7C15u;
    static_assert(sizeof(table.buckets) / sizeof(table.buckets[0]) == size_t{1} << 12);
    return &table.buckets[reinterpret_cast<uintptr_t>(data) * kGolden >> (64 - 12)];
}

void enter(Movable* block) noexcept
{
    const TableGuard guard;
    Movable** const bucket = bucketOf(block->data);
    block->next = *bucket;
    *bucket = block;
}

void leave(Movable* block) noexcept
{
    const TableGuard guard;
    Movable** link = bucketOf(block->data);
    while (*link != block) link = &(*link)->next;
    *link = block->next;
}

} // namespace

void* Platform::allocateMovable(size_t bytes) noexcept
{
    const size_t size = bytes != 0 ? bytes : 1;
    void* const memory = std::malloc(sizeof(Movable));
    void* const data = std::calloc(1, size);
    if (memory == nullptr || data == nullptr) {
        std::free(memory);
        std::free(data);
        return nullptr;
    }
    auto* const block = new (memory) Movable{data, size, 0, nullptr};
    enter(block);
    return block;
}

void* Platform::reallocateMovable(void* handle, size_t bytes) noexcept
{
    auto* const block = static_cast<Movable*>(handle);
    if (block == nullptr || block->locks != 0) return nullptr;
    const size_t size = bytes != 0 ? bytes : 1;
    // Out of the table meanwhile: its old address may be another block's before this returns. In place where that can
    // be, so that a block may grow in many small steps.
    leave(block);
    void* const data = std::realloc(block->data, size);
    if (data != nullptr) {
        if (size > block->size) std::memset(static_cast<char*>(data) + block->size, 0, size - block->size);
        block->data = data;
        block->size = size;
    }
    enter(block);
    return data != nullptr ? block : nullptr;
}

void* Platform::lockMovable(void* handle) noexcept
{
    auto* const block = static_cast<Movable*>(handle);
    if (block == nullptr) return nullptr;
    ++block->locks;
    return block->data;
}

void Platform::unlockMovable(void* handle) noexcept
{
    auto* const block = static_cast<Movable*>(handle);
    if (block == nullptr) return;
    uint32_t locks = block->locks;
    while (locks != 0 && !block->locks.compare_exchange_weak(locks, locks - 1)) {}
}

void* Platform::movableHandle(void* locked) noexcept
{
    if (locked == nullptr) return nullptr;
    const TableGuard guard;
    Movable* block = *bucketOf(locked);
    while (block != nullptr && block->data != locked) block = block->next;
    return block;
}

size_t Platform::movableSize(void* handle) noexcept
{
    return handle != nullptr ? static_cast<Movable*>(handle)->size : 0;
}

void Platform::freeMovable(void* handle) noexcept
{
    auto* const block = static_cast<Movable*>(handle);
    if (block == nullptr) return;
    leave(block);
    std::free(block->data);
    std::free(block);
}

// --- Palettes

} // namespace rv

struct HPALETTE__ {
    uint32_t count;
    PALETTEENTRY entries[256];
};

namespace rv {
namespace {

/// How many of count entries from `first` on the palette has.
uint32_t present(HPALETTE palette, uint32_t first, uint32_t count) noexcept
{
    if (palette == nullptr || first >= palette->count) return 0;
    const uint32_t left = palette->count - first;
    return count < left ? count : left;
}

} // namespace

HPALETTE Platform::createPalette(const PALETTEENTRY* entries, uint32_t count) noexcept
{
    if (count > 256 || (entries == nullptr && count != 0)) return nullptr;
    auto* const palette = static_cast<HPALETTE>(std::calloc(1, sizeof(HPALETTE__)));
    if (palette == nullptr) return nullptr;
    palette->count = count;
    if (count != 0) std::memcpy(palette->entries, entries, count * sizeof(PALETTEENTRY));
    return palette;
}

uint32_t Platform::paletteSize(HPALETTE palette) noexcept { return palette != nullptr ? palette->count : 0; }

uint32_t Platform::paletteEntries(HPALETTE palette, uint32_t first, uint32_t count, PALETTEENTRY* entries) noexcept
{
    const uint32_t moved = entries != nullptr ? present(palette, first, count) : 0;
    if (moved != 0) std::memcpy(entries, palette->entries + first, moved * sizeof(PALETTEENTRY));
    return moved;
}

uint32_t Platform::setPaletteEntries(HPALETTE palette, uint32_t first, uint32_t count,
                                     const PALETTEENTRY* entries) noexcept
{
    const uint32_t moved = entries != nullptr ? present(palette, first, count) : 0;
    if (moved != 0) std::memcpy(palette->entries + first, entries, moved * sizeof(PALETTEENTRY));
    return moved;
}

void Platform::deletePalette(HPALETTE palette) noexcept { std::free(palette); }

bool Platform::nearestPaletteIndex(HPALETTE, COLORREF, uint32_t*) noexcept { return false; }
uint32_t Platform::systemPalette(PALETTEENTRY*, uint32_t) noexcept { return 0; }

} // namespace rv
