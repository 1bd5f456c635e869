// Redirecting a thread's files into a block of memory.
//
// Each start puts a block before the thread's earlier ones; each file that is opened meanwhile is a cursor of its own
// over the thread's newest block. A block is found through the thread and never through user data, so that operations
// which somebody has kept find no block that is gone: after the last stop they open nothing. Blocks may be stopped in
// any order. The newest one puts back what it displaced; an older one leaves that to its successor. A block whose
// handles are still open when it is stopped gives its bytes away and stays, empty and refusing, until they are closed.
#include "Kernel/Base/System.h"
#include "Kernel/Services/MemoryFile.h"
#include "Kernel/Services/Redirect.h"
#include "Platform/NativeErrors.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <utility>

namespace rv {

struct RedirectBuffer {
    char tag[4]; ///< "RBUF"
    bool stopped;
    R_UINT handles; ///< cursors that are open
    uint8_t* data;
    R_SIZE size;
    R_SIZE capacity;
    RedirectBuffer* older; ///< the block that the thread had before
    REDIRECTSET displaced; ///< the operations that the thread had before
};

namespace {

constexpr char kTag[4] = {'R', 'B', 'U', 'F'};
constexpr char kCursorTag[4] = {'R', 'B', 'U', 'C'};
constexpr R_SIZE kLeastCapacity = 4096;
/// Blocks that grow by more are held to the limit of the process's conventional memory.
constexpr R_SIZE kFreeGrowth = 16000000;

/// One open file.
struct Cursor {
    char tag[4];
    bool reads, writes;
    RedirectBuffer* owner;
    R_INT64 position;
};

R_INT refuse(uint32_t error) noexcept
{
    platform().setNativeError(error);
    return -1;
}

// --- The block

bool resize(RedirectBuffer& block, R_SIZE capacity) noexcept
{
    const R_SIZE growth = capacity - block.capacity;
    if (!systemHas(growth)) return false;
    if (growth > kFreeGrowth && R_ManageMemory(MANAGE_GET_AVAILABLE, growth, nullptr) != SUCCESS) return false;
    void* const data = platform().reallocate(block.data, capacity);
    if (data == nullptr) return false;
    block.data = static_cast<uint8_t*>(data);
    block.capacity = capacity;
    return true;
}

/// Room for `size` bytes: twice as much as there was, or at least what is needed.
bool reserve(RedirectBuffer& block, R_SIZE size) noexcept
{
    if (size <= block.capacity) return true;
    const R_SIZE doubled = std::max(block.capacity * 2, kLeastCapacity);
    return (size < doubled && resize(block, doubled)) || resize(block, size);
}

/// The block's bytes up to `size`; new ones are zero. False without memory.
bool setSize(RedirectBuffer& block, R_SIZE size) noexcept
{
    if (!reserve(block, size)) return false;
    if (size > block.size) memset(block.data + block.size, 0, size - block.size);
    block.size = size;
    return true;
}

void dropIfUnused(RedirectBuffer* block) noexcept
{
    if (!block->stopped || block->handles != 0) return;
    memset(block->tag, 0, sizeof block->tag);
    platform().release(block);
}

// --- The operations

R_INT64 openCursor(RedirectBuffer& block, bool reads, bool writes) noexcept
{
    void* const memory = platform().allocate(sizeof(Cursor));
    if (memory == nullptr) return refuse(native::kNotEnoughMemory);
    auto* const cursor = new (memory) Cursor{{}, reads, writes, &block, 0};
    memcpy(cursor->tag, kCursorTag, sizeof kCursorTag);
    ++block.handles;
    return reinterpret_cast<R_INT64>(cursor);
}

Cursor* cursorOf(R_INT64 handle) noexcept
{
    if (!mayBeRecord(handle)) return nullptr;
    auto* const cursor = reinterpret_cast<Cursor*>(handle);
    return memcmp(cursor->tag, kCursorTag, sizeof kCursorTag) == 0 ? cursor : nullptr;
}

/// A cursor whose block still takes bytes.
Cursor* runningCursor(R_INT64 handle) noexcept
{
    Cursor* const cursor = cursorOf(handle);
    if (cursor != nullptr && !cursor->owner->stopped) return cursor;
    platform().setNativeError(native::kInvalidHandle);
    return nullptr;
}

R_INT64 bufferOpen(const R_WCHAR*, R_INT nMode, R_INT, void*) noexcept
{
    RedirectBuffer* const block = threadSettings().buffers;
    if (block == nullptr) return refuse(native::kFileNotFound);
    const R_INT access = nMode & 3;
    const R_INT64 handle = openCursor(*block, access != FILE_MODE_WRITE, access != FILE_MODE_READ);
    if (handle != R_INVALID_FILE && (nMode & (FILE_MODE_CREATE | FILE_MODE_TRUNCATE)) != 0) block->size = 0;
    return handle;
}

R_INT bufferRead(R_INT64 handle, void* buffer, R_UINT bytes, void*) noexcept
{
    Cursor* const cursor = runningCursor(handle);
    if (cursor == nullptr || buffer == nullptr) return -1;
    if (!cursor->reads) return refuse(native::kAccessDenied);
    const RedirectBuffer& block = *cursor->owner;
    const auto at = static_cast<R_SIZE>(cursor->position);
    if (at >= block.size) return 0;
    const R_SIZE count = std::min<R_SIZE>({bytes, block.size - at, INT_MAX});
    memcpy(buffer, block.data + at, count);
    cursor->position += static_cast<R_INT64>(count);
    return static_cast<R_INT>(count);
}

R_INT bufferWrite(R_INT64 handle, const void* buffer, R_UINT bytes, void*) noexcept
{
    Cursor* const cursor = runningCursor(handle);
    if (cursor == nullptr || bytes > INT_MAX || (buffer == nullptr && bytes > 0)) return -1;
    if (!cursor->writes) return refuse(native::kAccessDenied);
    RedirectBuffer& block = *cursor->owner;
    const auto at = static_cast<R_SIZE>(cursor->position);
    const R_SIZE end = at + bytes; // no overflow: positions are signed
    if (bytes == 0) return setSize(block, at) ? 0 : refuse(native::kNotEnoughMemory);
    if (end > INT64_MAX || !reserve(block, end)) return refuse(native::kNotEnoughMemory);
    if (at > block.size) memset(block.data + block.size, 0, at - block.size);
    memcpy(block.data + at, buffer, bytes);
    block.size = std::max(block.size, end);
    cursor->position = static_cast<R_INT64>(end);
    return static_cast<R_INT>(bytes);
}

R_INT64 bufferSeek(R_INT64 handle, R_INT64 distance, R_INT origin, void*) noexcept
{
    Cursor* const cursor = runningCursor(handle);
    if (cursor == nullptr) return -1;
    const R_INT64 from = origin == FILE_FROM_START     ? 0
                         : origin == FILE_FROM_CURRENT ? cursor->position
                                                       : static_cast<R_INT64>(cursor->owner->size);
    R_INT64 position = 0;
    if (__builtin_add_overflow(from, distance, &position)) return refuse(native::kInvalidParameter);
    if (position < 0) return refuse(native::kNegativeSeek);
    return cursor->position = position;
}

R_INT bufferClose(R_INT64 handle, void*) noexcept
{
    Cursor* const cursor = cursorOf(handle);
    if (cursor == nullptr) return refuse(native::kInvalidHandle);
    RedirectBuffer* const block = cursor->owner;
    memset(cursor->tag, 0, sizeof cursor->tag);
    platform().release(cursor);
    --block->handles;
    dropIfUnused(block);
    return 0;
}

R_INT bufferCopy(const R_WCHAR*, const R_WCHAR*, R_UINT, void*) noexcept
{
    platform().setNativeError(native::kNotSupported); // there is one file only
    return 0;
}

/// What is deleted is what was written: a file of that name on disk is none of the thread's files.
R_INT bufferDelete(const R_WCHAR*, void*) noexcept
{
    RedirectBuffer* const block = threadSettings().buffers;
    if (block == nullptr) return ERROR_NO_SUCH_FILE;
    block->size = 0;
    return SUCCESS;
}

REDIRECTSET bufferSet(void* userData) noexcept
{
    return {REDIRECTSET_SIZE, bufferOpen,  userData, bufferRead, userData, bufferWrite,  userData, bufferSeek,
            userData,         bufferClose, userData, bufferCopy, userData, bufferDelete, userData};
}

// --- Start and stop

RedirectBuffer* makeBlock(R_SIZE capacity) noexcept
{
    void* const memory = platform().allocate(sizeof(RedirectBuffer));
    if (memory == nullptr) return nullptr;
    auto* const block = new (memory) RedirectBuffer{};
    memcpy(block->tag, kTag, sizeof kTag);
    if (capacity == 0 || resize(*block, capacity)) return block;
    platform().release(block);
    return nullptr;
}

/// Takes a block out of the thread's; the operations that it displaced go where they belong now.
void unlink(ThreadSettings& settings, RedirectBuffer* block) noexcept
{
    if (settings.buffers == block) {
        settings.buffers = block->older;
        settings.redirect = block->displaced;
        return;
    }
    RedirectBuffer* newer = settings.buffers;
    while (newer->older != block) newer = newer->older;
    newer->older = block->older;
    newer->displaced = block->displaced;
}

/// Gives the bytes away, without the room that they do not fill.
void handOver(RedirectBuffer& block, void** ppData, R_SIZE* puSize) noexcept
{
    uint8_t* data = std::exchange(block.data, nullptr);
    if (ppData == nullptr || block.size == 0) {
        platform().release(data);
        data = nullptr;
    } else if (block.size < block.capacity) {
        void* const cut = platform().reallocate(data, block.size);
        if (cut != nullptr) data = static_cast<uint8_t*>(cut);
    }
    if (ppData != nullptr) *ppData = data;
    if (puSize != nullptr) *puSize = block.size;
    block.size = block.capacity = 0;
}

} // namespace
} // namespace rv

using namespace rv;

R_INT R_StartRedirectToBuffer(void** ppRecord, R_INT64* phFile, R_INT, void* pUserData, R_SIZE uInitialSize,
                              R_SIZE uMinimumSize) noexcept
{
    if (ppRecord == nullptr) return ERROR_INV_PARAMETER;
    *ppRecord = nullptr;
    if (phFile != nullptr) *phFile = R_INVALID_FILE;
    RedirectBuffer* const block = makeBlock(std::max(uInitialSize, uMinimumSize));
    if (block == nullptr) return ERROR_FAILURE;
    const REDIRECTSET set = bufferSet(pUserData);
    if (phFile != nullptr) {
        const R_INT64 cursor = openCursor(*block, true, true);
        if (cursor != R_INVALID_FILE) *phFile = wrapFile(cursor, set, HandleKind::own);
        if (*phFile == R_INVALID_FILE) {
            handOver(*block, nullptr, nullptr);
            block->stopped = true;
            dropIfUnused(block);
            return ERROR_FAILURE;
        }
    }
    ThreadSettings& settings = threadSettings();
    block->older = std::exchange(settings.buffers, block);
    block->displaced = std::exchange(settings.redirect, set);
    *ppRecord = block;
    return SUCCESS;
}

R_INT R_StopRedirectToBuffer(void* pRecord, void** ppData, R_SIZE* puSize) noexcept
{
    ThreadSettings& settings = threadSettings();
    RedirectBuffer* block = settings.buffers;
    while (block != nullptr && block != pRecord) block = block->older;
    if (block == nullptr) return ERROR_INV_PARAMETER; // never started, stopped before, or another thread's
    unlink(settings, block);
    handOver(*block, ppData, puSize);
    block->stopped = true;
    dropIfUnused(block);
    return SUCCESS;
}
