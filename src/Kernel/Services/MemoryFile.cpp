#include "Kernel/Services/MemoryFile.h"

#include "Kernel/Base/System.h"
#include "Platform/NativeErrors.h"

#include <algorithm>
#include <cstring>

namespace rv {
namespace {

constexpr R_UINT64 kMaxPiece = 0x7FFFFFF;
constexpr R_UINT64 kMaxSize = INT64_MAX;
constexpr R_UINT64 kLargeIncrease = 16000000; // below, the system is not asked

bool fail(uint32_t error) noexcept
{
    platform().setNativeError(error);
    return false;
}

/// Cleaning up must not hide why it was needed.
void closeKeepingError(int64_t file) noexcept
{
    const uint32_t error = platform().nativeError();
    platform().closeFile(file);
    platform().setNativeError(error);
}

bool writeAll(int64_t file, const uint8_t* bytes, R_UINT64 count, R_UINT64 position) noexcept
{
    while (count > 0) {
        const auto piece = static_cast<uint32_t>(std::min(count, kMaxPiece));
        const int64_t written = platform().writeFileAt(file, bytes, piece, position);
        if (written < 0) return false;
        if (written == 0) return fail(native::kDiskFull);
        bytes += written;
        position += static_cast<R_UINT64>(written);
        count -= static_cast<R_UINT64>(written);
    }
    return true;
}

bool endFileAt(int64_t file, R_UINT64 size) noexcept
{
    return platform().seekFile(file, static_cast<int64_t>(size), FILE_FROM_START) != kNoFile &&
           platform().endFileHere(file);
}

} // namespace

bool systemHas(R_UINT64 increase) noexcept
{
    if (increase <= kLargeIncrease) return true;
    const MemoryStatus status = platform().memoryStatus();
    return increase <= status.availablePhysical + status.availablePageFile;
}

MemoryFile::~MemoryFile()
{
    shrink(0);
    if (native_ != kNoFile) closeKeepingError(native_);
}

bool MemoryFile::hold(int64_t native, void* content, R_UINT64 bytes) noexcept
{
    if (!reserveConventional(bytes).ok()) return false;
    if (!makeRoomInTable(1)) {
        returnConventional(bytes);
        return false;
    }
    home_ = Home::held;
    native_ = native;
    size_ = nativeSize_ = bytes;
    // A block for no bytes would look like the end of the table.
    if (bytes == 0)
        platform().release(content);
    else
        chunks_[0] = static_cast<uint8_t*>(content);
    capacity_ = bytes;
    return true;
}

bool MemoryFile::finish() noexcept
{
    if (native_ == kNoFile || home_ == Home::scratch) return true;
    const bool written = home_ == Home::native || writeBack();
    const uint32_t error = platform().nativeError();
    const bool closed = platform().closeFile(native_);
    native_ = kNoFile;
    return written ? closed : fail(error);
}

// --- Chunks

template <class Move> void MemoryFile::eachPiece(R_UINT64 from, R_UINT64 to, Move move) const noexcept
{
    size_t chunk = from / chunkBytes_;
    for (R_UINT64 offset = from % chunkBytes_; from < to; offset = 0, ++chunk) {
        const R_UINT64 bytes = std::min(to - from, chunkBytes_ - offset);
        if (!move(chunks_[chunk] + offset, bytes, from)) return;
        from += bytes;
    }
}

/// Bytes behind the end, which an earlier and longer file may have left, become part of the file.
void MemoryFile::zeroGap(R_UINT64 to) noexcept
{
    if (to <= size_) return;
    eachPiece(size_, to, [](uint8_t* bytes, R_UINT64 count, R_UINT64) noexcept {
        memset(bytes, 0, count);
        return true;
    });
}

bool MemoryFile::copyOut(int64_t file, R_UINT64 from, R_UINT64 to) const noexcept
{
    bool good = true;
    eachPiece(from, to, [&](const uint8_t* bytes, R_UINT64 count, R_UINT64 position) noexcept {
        return good = writeAll(file, bytes, count, position);
    });
    return good;
}

/// Room for what is needed, and where there is some to be had, for the writes to come.
bool MemoryFile::grow(R_UINT64 needed) noexcept
{
    if (needed <= capacity_) return true;
    R_UINT64 allowed;
    const bool temporary = home_ == Home::memory;
    if (!temporary) {
        if (needed > kMaxHeldFile) return false;
        allowed = std::min(needed + TempFileBudget::kHeadroom, kMaxHeldFile);
    } else {
        allowed = TempFileBudget::claim(capacity_, needed, folder_ == nullptr);
        if (allowed == 0) return false;
    }
    const bool grown = growExactly(allowed) || (allowed > needed && growExactly(needed));
    if (temporary) TempFileBudget::giveBack(allowed - capacity_);
    return grown;
}

/// All or nothing.
bool MemoryFile::growExactly(R_UINT64 target) noexcept
{
    const R_UINT64 before = capacity_;
    if (!systemHas(target - before) || !reserveConventional(target - before).ok()) return false;
    if (makeRoomInTable((target - 1) / chunkBytes_ + 1) && addChunks(target)) return true;
    shrinkChunks(before);
    returnConventional(target - before);
    return false;
}

bool MemoryFile::makeRoomInTable(size_t chunks) noexcept
{
    if (chunks <= tableSize_) return true;
    const size_t entries = std::max(chunks, tableSize_ * 2);
    if (entries > SIZE_MAX / sizeof(uint8_t*)) return false;
    auto* const table = static_cast<uint8_t**>(platform().reallocate(chunks_, entries * sizeof(uint8_t*)));
    if (table == nullptr) return false;
    std::fill(table + tableSize_, table + entries, nullptr);
    chunks_ = table;
    tableSize_ = entries;
    return true;
}

/// The last chunk first, up to the chunks' size, then new ones.
bool MemoryFile::addChunks(R_UINT64 target) noexcept
{
    while (capacity_ < target) {
        const size_t chunk = capacity_ / chunkBytes_;
        const R_UINT64 start = chunk * chunkBytes_;
        const R_UINT64 bytes = std::min(chunkBytes_, target - start);
        auto* const block = static_cast<uint8_t*>(platform().reallocate(chunks_[chunk], bytes));
        if (block == nullptr) return false;
        chunks_[chunk] = block;
        capacity_ = start + bytes;
    }
    return true;
}

/// The chunks alone; who has been told of them must be told of their end.
void MemoryFile::shrinkChunks(R_UINT64 capacity) noexcept
{
    if (capacity >= capacity_) return;
    const R_UINT64 inLast = capacity % chunkBytes_;
    const size_t kept = capacity / chunkBytes_ + (inLast != 0 ? 1 : 0);
    for (size_t chunk = kept; chunk < tableSize_ && chunks_[chunk] != nullptr; ++chunk) {
        platform().release(chunks_[chunk]);
        chunks_[chunk] = nullptr;
    }
    if (inLast != 0) {
        // A block that will not shrink serves as well.
        void* const smaller = platform().reallocate(chunks_[kept - 1], inLast);
        if (smaller != nullptr) chunks_[kept - 1] = static_cast<uint8_t*>(smaller);
    }
    capacity_ = capacity;
}

void MemoryFile::shrink(R_UINT64 capacity) noexcept
{
    const R_UINT64 before = capacity_;
    shrinkChunks(capacity);
    if (capacity_ < before) {
        returnConventional(before - capacity_);
        if (home_ == Home::memory) TempFileBudget::giveBack(before - capacity_);
    }
    if (capacity_ == 0) {
        platform().release(chunks_);
        chunks_ = nullptr;
        tableSize_ = 0;
    }
}

// --- From memory to disk

void MemoryFile::changed(R_UINT64 from, R_UINT64 to) noexcept
{
    changedFrom_ = std::min(changedFrom_, from);
    changedTo_ = std::max(changedTo_, to);
}

/// Brings the native file up to date. All is as before when that fails.
bool MemoryFile::writeBack() noexcept
{
    if (!copyOut(native_, changedFrom_, std::min(changedTo_, size_))) return false;
    if (size_ < nativeSize_ && !endFileAt(native_, size_)) return false;
    nativeSize_ = size_;
    changedFrom_ = UINT64_MAX;
    changedTo_ = 0;
    return true;
}

int64_t MemoryFile::moveToScratch(R_UINT64 room) noexcept
{
    if (folder_ == nullptr || R_GetTempFileMode() == TEMPFILE_MEMORY) {
        platform().setNativeError(native::kNotEnoughMemory);
        return kNoFile;
    }
    const int64_t file = platform().openScratchFile(folder_, room);
    if (file == kNoFile || copyOut(file, 0, size_)) return file;
    closeKeepingError(file);
    return kNoFile;
}

/// The chunks are given up only when all of the content is elsewhere.
bool MemoryFile::moveToDisk(R_UINT64 room) noexcept
{
    if (home_ == Home::held) {
        if (!writeBack()) return false;
        shrink(0);
        home_ = Home::native;
        return true;
    }
    const int64_t file = moveToScratch(room);
    if (file == kNoFile) return false;
    shrink(0);
    native_ = file;
    home_ = Home::scratch;
    return true;
}

// --- Moving bytes

int64_t MemoryFile::read(R_UINT64 position, void* buffer, R_UINT bytes) noexcept
{
    auto* out = static_cast<uint8_t*>(buffer);
    R_UINT64 count = bytes;
    if (home_ != Home::native) {
        if (position >= size_) return 0;
        count = std::min(count, size_ - position);
    }
    if (inMemory()) {
        eachPiece(position, position + count, [&](const uint8_t* from, R_UINT64 piece, R_UINT64) noexcept {
            memcpy(out, from, piece);
            out += piece;
            return true;
        });
        return static_cast<int64_t>(count);
    }
    R_UINT64 done = 0;
    while (done < count) {
        const auto piece = static_cast<uint32_t>(std::min(count - done, kMaxPiece));
        const int64_t got = platform().readFileAt(native_, out + done, piece, position + done);
        if (got < 0) return kNoFile;
        if (got == 0) break;
        done += static_cast<R_UINT64>(got);
    }
    return static_cast<int64_t>(done);
}

int64_t MemoryFile::write(R_UINT64 position, const void* buffer, R_UINT bytes) noexcept
{
    const R_UINT64 end = position + bytes;
    if (end > kMaxSize) return fail(native::kDiskFull), kNoFile;
    const auto* in = static_cast<const uint8_t*>(buffer);
    if (inMemory() && !grow(end) && !moveToDisk(std::min(end, size_ + bytes))) return kNoFile;
    if (inMemory()) {
        changed(std::min(position, size_), end);
        zeroGap(position);
        eachPiece(position, end, [&](uint8_t* to, R_UINT64 piece, R_UINT64) noexcept {
            memcpy(to, in, piece);
            in += piece;
            return true;
        });
    } else if (!writeAll(native_, in, bytes, position)) {
        if (home_ == Home::scratch) forgetBehindEnd();
        return kNoFile;
    }
    size_ = std::max(size_, end);
    return bytes;
}

/// What a write that failed has left behind the end must not show when the file grows over it.
void MemoryFile::forgetBehindEnd() noexcept
{
    const uint32_t error = platform().nativeError();
    (void)endFileAt(native_, size_);
    platform().setNativeError(error);
}

bool MemoryFile::setSize(R_UINT64 size) noexcept
{
    if (size > kMaxSize) return fail(native::kDiskFull);
    if (inMemory() && !grow(size) && !moveToDisk(size_)) return false;
    if (!inMemory()) {
        if (!endFileAt(native_, size)) return false;
    } else if (size > size_) {
        changed(size_, size);
        zeroGap(size);
    } else {
        shrink(size);
    }
    size_ = size;
    return true;
}

int64_t MemoryFile::size() noexcept
{
    return home_ == Home::native ? platform().seekFile(native_, 0, FILE_FROM_END) : static_cast<int64_t>(size_);
}

} // namespace rv
