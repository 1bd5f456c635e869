// Files behind a buffer: small reads and writes cost a copy and a few branches; the file below sees 32 KiB at a time.
//
// The buffer holds `valid` bytes of the file from `offset` on, and the caller is at offset + at. A call that fails
// leaves the caller where it was and keeps what has not been written, so that it can be tried again.
#include "Kernel/Base/Status.h"
#include "Kernel/Services/Osys.h"
#include "Kernel/Services/Redirect.h"
#include "Platform/NativeErrors.h"
#include "Platform/Platform.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

namespace rv {
namespace {

constexpr char kTag[] = "R_BUFFERIO";
constexpr R_UINT kBufferBytes = 32768;
/// Where the file below stands is not known: whoever moves bytes next puts it right.
constexpr R_INT64 kUnknown = -1;
/// No file reaches here, and sums of positions and counts stay far from overflow.
constexpr R_INT64 kFarthest = INT64_MAX / 2;

class BufferedFile {
public:
    BufferedFile(R_INT64 underlying, const REDIRECTSET& set, bool writable, R_INT64 position) noexcept
        : writable_(writable), offset_(position), underlying_(underlying), underlyingPosition_(position), set_(set)
    {
        memcpy(tag_, kTag, sizeof kTag);
    }

    static BufferedFile* of(R_INT64 handle) noexcept
    {
        if (!mayBeRecord(handle)) return nullptr;
        auto* const file = reinterpret_cast<BufferedFile*>(handle);
        return memcmp(file->tag_, kTag, sizeof kTag) == 0 ? file : nullptr;
    }
    /// The record's end; the handle is none from here on.
    void drop() noexcept
    {
        memset(tag_, 0, sizeof tag_);
        platform().release(this);
    }

    R_INT read(void* out, R_UINT bytes) noexcept
    {
        if (bytes > valid_ - at_) return readOn(static_cast<uint8_t*>(out), std::min<R_UINT>(bytes, INT_MAX));
        copy(static_cast<uint8_t*>(out), buffer_ + at_, bytes);
        at_ += bytes;
        return static_cast<R_INT>(bytes);
    }

    /// For at least one byte.
    R_INT write(const void* from, R_UINT bytes) noexcept
    {
        // An idle buffer takes no more than starts one, and a full one is written at once.
        if (!writable_ || bytes >= kBufferBytes - at_) return writeOn(static_cast<const uint8_t*>(from), bytes);
        copy(buffer_ + at_, static_cast<const uint8_t*>(from), bytes);
        at_ += bytes;
        valid_ = std::max(valid_, at_);
        dirty_ = true;
        return static_cast<R_INT>(bytes);
    }

    [[gnu::noinline]] R_INT cut() noexcept;
    R_INT64 seek(R_INT64 distance, R_INT origin) noexcept;
    R_INT close() noexcept;

private:
    static void copy(uint8_t* to, const uint8_t* from, R_UINT bytes) noexcept
    {
        if (bytes == 1)
            *to = *from; // the commonest of all, too small for a call
        else
            memcpy(to, from, bytes);
    }

    R_INT64 position() const noexcept { return offset_ + at_; }
    /// The caller is there, with nothing in the buffer.
    void emptyAt(R_INT64 position) noexcept
    {
        offset_ = position;
        at_ = valid_ = 0;
    }
    /// Moves where the buffer is; false: it is elsewhere.
    bool moveWithin(R_INT64 position) noexcept
    {
        if (position < offset_ || position > offset_ + valid_) return false;
        at_ = static_cast<R_UINT>(position - offset_);
        return true;
    }
    /// After a failure: what is dirty reaches as far as the caller was, or has been written.
    void returnTo(R_INT64 position) noexcept
    {
        if (!moveWithin(position)) emptyAt(position);
    }

    // Out of line, so that what fits the buffer pays for no registers of theirs.
    [[gnu::noinline]] R_INT readOn(uint8_t* out, R_UINT bytes) noexcept;
    R_INT readThrough(uint8_t* out, R_UINT bytes) noexcept;
    R_INT readSome(void* out, R_UINT bytes) noexcept;
    [[gnu::noinline]] R_INT writeOn(const uint8_t* from, R_UINT bytes) noexcept;
    R_INT writeThrough(const uint8_t* from, R_UINT bytes) noexcept;
    Status writeAll(const void* from, R_UINT bytes) noexcept;
    Status put(R_INT64 position) noexcept;
    Status flush() noexcept;

    char tag_[sizeof kTag];
    bool writable_;
    bool dirty_ = false;
    R_UINT at_ = 0;
    R_UINT valid_ = 0;
    R_INT64 offset_;
    R_INT64 underlying_;
    R_INT64 underlyingPosition_;
    REDIRECTSET set_;
    uint8_t buffer_[kBufferBytes];
};

// --- The file below

/// Puts it at a position, if it is elsewhere.
Status BufferedFile::put(R_INT64 position) noexcept
{
    if (underlyingPosition_ == position) return SUCCESS;
    if (set_.pfnSeek(underlying_, position, FILE_FROM_START, set_.pSeekData) != position) {
        underlyingPosition_ = kUnknown;
        return ERROR_FILE_LSEEK;
    }
    underlyingPosition_ = position;
    return SUCCESS;
}

/// One read at the file's position; more bytes than were asked for are a failure.
R_INT BufferedFile::readSome(void* out, R_UINT bytes) noexcept
{
    const R_INT got = set_.pfnRead(underlying_, out, bytes, set_.pReadData);
    if (got < 0 || static_cast<R_UINT>(got) > bytes) {
        underlyingPosition_ = kUnknown;
        return -1;
    }
    underlyingPosition_ += got;
    return got;
}

/// One write at the file's position, of everything.
Status BufferedFile::writeAll(const void* from, R_UINT bytes) noexcept
{
    platform().setNativeError(native::kNone); // a short write has no error of its own, and no older one's
    const R_INT written = set_.pfnWrite(underlying_, from, bytes, set_.pWriteData);
    if (written < 0 || static_cast<R_UINT>(written) != bytes) {
        underlyingPosition_ = kUnknown;
        return R_OsGetLastError(ERROR_FILE_WRITE);
    }
    underlyingPosition_ += written;
    return SUCCESS;
}

/// Writes what is dirty, as a whole, and starts a new buffer behind it. The caller's place is lost unless it is there.
Status BufferedFile::flush() noexcept
{
    if (!dirty_) return SUCCESS;
    R_TRY(put(offset_));
    R_TRY(writeAll(buffer_, valid_));
    emptyAt(offset_ + valid_);
    dirty_ = false;
    return SUCCESS;
}

// --- Reading

R_INT BufferedFile::readOn(uint8_t* out, R_UINT bytes) noexcept
{
    const R_INT64 start = position();
    const R_INT got = readThrough(out, bytes);
    if (got >= 0) return got;
    returnTo(start);
    return got;
}

R_INT BufferedFile::readThrough(uint8_t* out, R_UINT bytes) noexcept
{
    for (R_UINT done = 0;;) {
        const R_UINT count = std::min(bytes - done, valid_ - at_);
        memcpy(out + done, buffer_ + at_, count);
        at_ += count;
        done += count;
        if (done == bytes) return static_cast<R_INT>(done);
        if (const Status flushed = flush(); !flushed.ok()) return flushed;
        if (const Status stands = put(position()); !stands.ok()) return stands;
        const bool direct = bytes - done >= kBufferBytes;
        const R_INT got = direct ? readSome(out + done, bytes - done) : readSome(buffer_, kBufferBytes);
        if (got < 0) {
            // What the buffer held may have been written over.
            emptyAt(position());
            return -1;
        }
        emptyAt(position() + (direct ? got : 0));
        if (direct)
            done += static_cast<R_UINT>(got);
        else
            valid_ = static_cast<R_UINT>(got);
        if (got == 0) return static_cast<R_INT>(done);
    }
}

// --- Writing

R_INT BufferedFile::writeOn(const uint8_t* from, R_UINT bytes) noexcept
{
    if (!writable_ || bytes > INT_MAX) return -1;
    const R_INT64 start = position();
    const R_INT written = writeThrough(from, bytes);
    if (written >= 0) return written;
    // What is in the buffer stays to be written; the same bytes will be given again.
    returnTo(start);
    return written;
}

R_INT BufferedFile::writeThrough(const uint8_t* from, R_UINT bytes) noexcept
{
    R_UINT done = 0;
    if (valid_ > 0 && at_ < kBufferBytes) {
        done = std::min(bytes, kBufferBytes - at_);
        memcpy(buffer_ + at_, from, done);
        at_ += done;
        valid_ = std::max(valid_, at_);
        dirty_ = true;
    }
    if (at_ == kBufferBytes) {
        if (const Status flushed = flush(); !flushed.ok()) return flushed;
        emptyAt(position()); // where all that was in it had been read, and nothing was to be written
    }
    const R_UINT rest = bytes - done;
    if (rest >= kBufferBytes) {
        if (const Status stands = put(offset_); !stands.ok()) return stands;
        if (const Status all = writeAll(from + done, rest); !all.ok()) return all;
        emptyAt(offset_ + rest);
    } else if (rest > 0) {
        memcpy(buffer_, from + done, rest);
        at_ = valid_ = rest;
        dirty_ = true;
    }
    return static_cast<R_INT>(bytes);
}

/// The file ends at the caller's position. What lies before it in the buffer is written first; what lies behind goes
/// only when the file has been cut.
R_INT BufferedFile::cut() noexcept
{
    if (!writable_) return -1;
    if (dirty_ && at_ > 0) {
        if (const Status stands = put(offset_); !stands.ok()) return stands;
        if (const Status all = writeAll(buffer_, at_); !all.ok()) return all;
    }
    if (const Status stands = put(position()); !stands.ok()) return stands;
    const R_INT answer = set_.pfnWrite(underlying_, nullptr, 0, set_.pWriteData);
    if (answer != 0) return answer < 0 ? answer : -1;
    valid_ = at_;
    dirty_ = false;
    return 0;
}

// --- Moving, closing

R_INT64 BufferedFile::seek(R_INT64 distance, R_INT origin) noexcept
{
    const R_INT64 start = position();
    R_INT64 target = distance;
    if (origin == FILE_FROM_CURRENT) {
        if (__builtin_add_overflow(start, distance, &target)) return -1;
        origin = FILE_FROM_START;
    }
    if (origin == FILE_FROM_START && moveWithin(target)) return target;
    if (origin == FILE_FROM_START && target > kFarthest) return -1;
    if (const Status flushed = flush(); !flushed.ok()) return flushed;
    R_INT64 reached = set_.pfnSeek(underlying_, target, origin, set_.pSeekData);
    if (reached > kFarthest) reached = underlyingPosition_ = kUnknown;
    if (reached < 0) {
        returnTo(start); // the flush may have moved on
        return reached;
    }
    emptyAt(reached);
    underlyingPosition_ = reached;
    return reached;
}

R_INT BufferedFile::close() noexcept
{
    const Status flushed = flush();
    const R_INT closed = set_.pfnClose(underlying_, set_.pCloseData);
    drop();
    return flushed.ok() ? closed : flushed.code();
}

/// A record over an open file; null without memory.
BufferedFile* makeBuffered(R_INT64 underlying, const REDIRECTSET& set, R_INT nMode, R_INT64 position) noexcept
{
    void* const memory = platform().allocate(sizeof(BufferedFile));
    if (memory == nullptr) return nullptr;
    return new (memory) BufferedFile(underlying, set, (nMode & 3) != FILE_MODE_READ, position);
}

/// Whether a set can carry a buffer.
bool isComplete(const REDIRECTSET& set) noexcept
{
    bool complete = set.uStructSize == REDIRECTSET_SIZE;
    forFirstOperations([&](auto operation, auto) { complete = complete && set.*operation != nullptr; });
    return complete;
}

} // namespace

R_INT64 bufferNative(R_INT64 native, R_INT nMode) noexcept
{
    const R_INT64 position = kOsRedirectSet.pfnSeek(native, 0, FILE_FROM_CURRENT, nullptr);
    BufferedFile* const file = makeBuffered(native, kOsRedirectSet, nMode, std::max<R_INT64>(position, 0));
    return file == nullptr ? R_INVALID_FILE : reinterpret_cast<R_INT64>(file);
}

void unbufferNative(R_INT64 buffered) noexcept
{
    if (BufferedFile* const file = BufferedFile::of(buffered)) file->drop();
}

} // namespace rv

using namespace rv;

R_INT64 R_BufferedOpen(const R_WCHAR* pszName, R_INT nMode, R_INT nPermission, void* pUnderlying) noexcept
{
    REDIRECTSET set = kOsRedirectSet;
    if (pUnderlying != nullptr) {
        const auto& given = *static_cast<const REDIRECTSET*>(pUnderlying);
        if (!isComplete(given)) return R_INVALID_FILE;
        set = cleanSet(given, kOsRedirectSet);
        if (!isComplete(set)) return R_INVALID_FILE; // what stood for none
    }
    const R_INT64 underlying = set.pfnOpen(pszName, nMode, nPermission, set.pOpenData);
    if (underlying == R_INVALID_FILE) return R_INVALID_FILE;
    BufferedFile* const file = makeBuffered(underlying, set, nMode, 0);
    if (file == nullptr) {
        (void)set.pfnClose(underlying, set.pCloseData);
        return R_INVALID_FILE;
    }
    return reinterpret_cast<R_INT64>(file);
}

R_INT R_BufferedRead(R_INT64 hFile, void* pBuffer, R_UINT uBytes, void*) noexcept
{
    BufferedFile* const file = BufferedFile::of(hFile);
    return file == nullptr || pBuffer == nullptr ? -1 : file->read(pBuffer, uBytes);
}

R_INT R_BufferedWrite(R_INT64 hFile, const void* pBuffer, R_UINT uBytes, void*) noexcept
{
    BufferedFile* const file = BufferedFile::of(hFile);
    if (file == nullptr) return -1;
    if (uBytes == 0) return file->cut();
    return pBuffer == nullptr ? -1 : file->write(pBuffer, uBytes);
}

R_INT64 R_BufferedSeek(R_INT64 hFile, R_INT64 nDistance, R_INT nOrigin, void*) noexcept
{
    BufferedFile* const file = BufferedFile::of(hFile);
    return file == nullptr ? -1 : file->seek(nDistance, nOrigin);
}

R_INT R_BufferedClose(R_INT64 hFile, void*) noexcept
{
    BufferedFile* const file = BufferedFile::of(hFile);
    return file == nullptr ? -1 : file->close();
}
