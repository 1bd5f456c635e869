#include "Kernel/Rows/DiskStore.h"

#include "Kernel/Rows/StoreLock.h"
#include "Kernel/Services/TempFile.h"
#include "Platform/NativeErrors.h"
#include "Platform/Platform.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace rv {

namespace {

/// The system's caches like transfers of this size, and it stays in the processor's own.
constexpr R_SIZE kWindowBytes = 256 * 1024;
/// A piece that is more than this part of the window gains less by it than the second copy costs.
constexpr R_INT64 kDirectPart = 4;
constexpr R_INT64 kMostInOneTransfer = 134217727;
/// No file reaches here, and sums of positions stay far from overflow.
constexpr R_UINT64 kMostBytes = INT64_MAX / 2;

constexpr char kTag[4] = {'R', 'D', 'S', 'K'};

/// Bytes of the file, from a position up to another.
struct Span {
    R_INT64 from = 0;
    R_INT64 to = 0;

    R_INT64 size() const noexcept { return to - from; }
    bool empty() const noexcept { return from >= to; }
    bool holds(const Span& other) const noexcept { return from <= other.from && other.to <= to; }
    /// Whether the two overlap or lie side by side, so that together they are a span.
    bool meets(const Span& other) const noexcept { return from <= other.to && other.from <= to; }
    Span common(const Span& other) const noexcept { return {std::max(from, other.from), std::min(to, other.to)}; }
    Span hull(const Span& other) const noexcept
    {
        return empty() ? other : Span{std::min(from, other.from), std::max(to, other.to)};
    }
};

// Move the bytes of a span; a transfer that moves fewer than it should has failed.

Status readSpan(R_INT64 file, uint8_t* bytes, const Span& span) noexcept
{
    for (R_INT64 at = span.from; at < span.to;) {
        const auto piece = static_cast<uint32_t>(std::min(span.to - at, kMostInOneTransfer));
        if (platform().readFileAt(file, bytes + (at - span.from), piece, static_cast<R_UINT64>(at)) != piece)
            return ERROR_FILE_READ;
        at += piece;
    }
    return SUCCESS;
}

Status writeSpan(R_INT64 file, const uint8_t* bytes, const Span& span) noexcept
{
    for (R_INT64 at = span.from; at < span.to;) {
        const auto piece = static_cast<uint32_t>(std::min(span.to - at, kMostInOneTransfer));
        const R_INT64 moved = platform().writeFileAt(file, bytes + (at - span.from), piece, static_cast<R_UINT64>(at));
        if (moved == kNoFile && platform().nativeError() == native::kDiskFull) return ERROR_NO_DISK_SPACE;
        if (moved != piece) return ERROR_FILE_WRITE;
        at += piece;
    }
    return SUCCESS;
}

/// Where a caller is going, by its latest two pieces. One that jumps about is served from the file itself: a window
/// would be read for nothing.
enum class Way : uint8_t { jumps, up, down };

/// A bitmap's file and the window on it. Spans that callers ask for are inside the file and not empty. Aligned as
/// memory is, so that the window behind the record is, too.
class alignas(16) DiskRows {
public:
    static DiskRows* make(R_UINT64 bytes, R_SIZE windowBytes) noexcept;
    static DiskRows* of(const StoreSlots& slots) noexcept;
    void end() noexcept;

    R_INT64 bytes() const noexcept { return bytes_; }
    StoreLock& lock() noexcept { return lock_; } ///< for the calls below
    /// Keeps the bytes that remain; new ones are zero.
    bool resize(R_INT64 bytes) noexcept;

    Status read(uint8_t* out, const Span& span, R_INT64 rowBytes) noexcept;
    Status write(const uint8_t* in, const Span& span, R_INT64 rowBytes) noexcept;
    /// Puts in their place the bytes that only the window has.
    Status flush() noexcept;

private:
    DiskRows(R_INT64 file, R_UINT64 bytes, R_SIZE windowBytes) noexcept
        : file_(file), bytes_(static_cast<R_INT64>(bytes)), windowBytes_(static_cast<R_INT64>(windowBytes))
    {
        std::memcpy(tag_, kTag, sizeof kTag);
    }

    uint8_t* inWindow(R_INT64 position) noexcept
    {
        return reinterpret_cast<uint8_t*>(this + 1) + (position - windowAt_);
    }
    Way wayTo(const Span& span, R_INT64 rowBytes) const noexcept;
    Span windowFor(const Span& span, Way way) const noexcept;
    bool fetch(const Span& window) noexcept;
    Status readAround(uint8_t* out, const Span& span) noexcept;
    Status writeAround(const uint8_t* in, const Span& span) noexcept;

    char tag_[4];
    StoreLock lock_; // reading moves what is held of the file, too
    R_INT64 file_;
    R_INT64 bytes_;
    R_INT64 windowBytes_; // of memory, behind this record
    R_INT64 windowAt_ = 0;
    Span held_;      // what of the file the window has
    Span unwritten_; // the part of it that the file has not
    Span latest_;    // what was asked for last
};

DiskRows* DiskRows::make(R_UINT64 bytes, R_SIZE windowBytes) noexcept
{
    TempFolderText folder;
    if (bytes > kMostBytes || !tempFolder(folder).ok()) return nullptr;
    void* const memory = platform().allocate(sizeof(DiskRows) + windowBytes);
    if (memory == nullptr) return nullptr;
    const R_INT64 file = platform().openScratchFile(folder, bytes);
    if (file != kNoFile) return new (memory) DiskRows(file, bytes, windowBytes);
    platform().release(memory);
    return nullptr;
}

DiskRows* DiskRows::of(const StoreSlots& slots) noexcept { return taggedAs<DiskRows>(slots.handle, kTag); }

void DiskRows::end() noexcept
{
    (void)platform().closeFile(file_); // nobody misses what is gone with it
    this->~DiskRows();
    std::memset(static_cast<void*>(this), 0, sizeof(DiskRows)); // a copy of the record finds nothing, for a while
    platform().release(this);
}

bool DiskRows::resize(R_INT64 bytes) noexcept
{
    if (!platform().resizeScratchFile(file_, static_cast<R_UINT64>(bytes))) return false;
    bytes_ = bytes;
    const Span whole = {0, bytes};
    held_ = held_.common(whole);
    unwritten_ = unwritten_.common(whole);
    if (held_.empty()) held_ = {};
    if (unwritten_.empty()) unwritten_ = {};
    return true;
}

Way DiskRows::wayTo(const Span& span, R_INT64 rowBytes) const noexcept
{
    // The same columns of the next row count as the next bytes do.
    if (span.from >= latest_.from && span.from <= latest_.to + rowBytes) return Way::up;
    if (span.to <= latest_.to && span.to >= latest_.from - rowBytes) return Way::down;
    return Way::jumps;
}

Span DiskRows::windowFor(const Span& span, Way way) const noexcept
{
    if (way == Way::jumps || span.size() > windowBytes_ / kDirectPart) return {};
    if (way == Way::down) return {std::max<R_INT64>(span.to - windowBytes_, 0), span.to};
    return {span.from, std::min(span.from + windowBytes_, bytes_)};
}

/// Moves the window, from which nothing is unwritten. What a file that cannot be read there has in it is left to those
/// who ask for these very bytes.
bool DiskRows::fetch(const Span& window) noexcept
{
    held_ = {};
    windowAt_ = window.from;
    if (!readSpan(file_, inWindow(window.from), window).ok()) return false;
    held_ = window;
    return true;
}

/// Reads from the file, and over it what only the window has.
Status DiskRows::readAround(uint8_t* out, const Span& span) noexcept
{
    R_TRY(readSpan(file_, out, span));
    const Span newer = unwritten_.common(span);
    if (!newer.empty())
        std::memcpy(out + (newer.from - span.from), inWindow(newer.from), static_cast<size_t>(newer.size()));
    return SUCCESS;
}

/// Writes to the file, and to what the window has of it.
Status DiskRows::writeAround(const uint8_t* in, const Span& span) noexcept
{
    R_TRY(writeSpan(file_, in, span));
    const Span older = held_.common(span);
    if (!older.empty())
        std::memcpy(inWindow(older.from), in + (older.from - span.from), static_cast<size_t>(older.size()));
    return SUCCESS;
}

Status DiskRows::read(uint8_t* out, const Span& span, R_INT64 rowBytes) noexcept
{
    if (!held_.holds(span)) {
        const Span window = windowFor(span, wayTo(span, rowBytes));
        latest_ = span;
        if (window.empty()) return readAround(out, span);
        R_TRY(flush());
        if (!fetch(window)) return readAround(out, span);
    }
    latest_ = span;
    std::memcpy(out, inWindow(span.from), static_cast<size_t>(span.size()));
    return SUCCESS;
}

Status DiskRows::write(const uint8_t* in, const Span& span, R_INT64 rowBytes) noexcept
{
    const Span room = {windowAt_, windowAt_ + windowBytes_};
    if (!room.holds(span) || !held_.meets(span)) {
        const Span window = windowFor(span, wayTo(span, rowBytes));
        const bool goesOn = latest_.meets(span);
        latest_ = span;
        if (window.empty()) return writeAround(in, span);
        R_TRY(flush());
        if (goesOn) {
            windowAt_ = window.from;
            held_ = span;
        } else if (!fetch(window)) { // a caller that leaves gaps, whose bytes have to come from the file
            return writeAround(in, span);
        }
    }
    latest_ = span;
    std::memcpy(inWindow(span.from), in, static_cast<size_t>(span.size()));
    held_ = held_.hull(span);
    unwritten_ = unwritten_.hull(span);
    return SUCCESS;
}

Status DiskRows::flush() noexcept
{
    if (unwritten_.empty()) return SUCCESS;
    R_TRY(writeSpan(file_, inWindow(unwritten_.from), unwritten_));
    unwritten_ = {};
    return SUCCESS;
}

/// The span of a piece of a row; `past` is what a piece gets that begins in the file and ends behind it.
Status locate(const DiskRows& rows, const StoreShape& shape, R_INT64 row, R_INT64 first, R_SIZE count, R_INT past,
              Span* span) noexcept
{
    const R_INT64 bytes = rows.bytes();
    if (row < 0 || (shape.rowBytes != 0 && row > bytes / shape.rowBytes)) return ERROR_FILE_LSEEK;
    const R_INT64 from = row * shape.rowBytes + first;
    if (from < 0 || from > bytes) return ERROR_FILE_LSEEK;
    if (count > static_cast<R_UINT64>(bytes - from)) return past;
    *span = {from, from + static_cast<R_INT64>(count)};
    return SUCCESS;
}

constinit const DiskStore gDiskStore(kWindowBytes);

} // namespace

Status DiskStore::create(StoreSlots& slots, const StoreShape& shape, const StoreRequest&) const noexcept
{
    DiskRows* const rows = DiskRows::make(shape.bytes, windowBytes_);
    if (rows == nullptr) return ERROR_FAILURE;
    slots = {rows, nullptr, 0};
    return SUCCESS;
}

void DiskStore::destroy(StoreSlots& slots, const StoreShape&) const noexcept
{
    if (DiskRows* const rows = DiskRows::of(slots); rows != nullptr) rows->end();
    slots = {};
}

Status DiskStore::changeHeight(StoreSlots& slots, const StoreShape& shape, R_INT height) const noexcept
{
    DiskRows* const rows = DiskRows::of(slots);
    const R_UINT64 bytes = R_UINT64{shape.rowBytes} * static_cast<R_UINT64>(height);
    if (rows == nullptr || bytes > kMostBytes) return ERROR_FAILURE;
    return rows->resize(static_cast<R_INT64>(bytes)) ? SUCCESS : ERROR_FAILURE;
}

Status DiskStore::read(const StoreSlots& slots, const StoreShape& shape, void* bytes, R_INT64 row, R_INT64 first,
                       R_SIZE count) const noexcept
{
    DiskRows* const rows = DiskRows::of(slots);
    if (rows == nullptr) return ERROR_INV_BITMAP;
    Span span;
    R_TRY(locate(*rows, shape, row, first, count, ERROR_FILE_READ, &span));
    const StoreGuard guard(&rows->lock());
    return span.empty() ? Status(SUCCESS) : rows->read(static_cast<uint8_t*>(bytes), span, shape.rowBytes);
}

Status DiskStore::write(StoreSlots& slots, const StoreShape& shape, const void* bytes, R_INT64 row, R_INT64 first,
                        R_SIZE count) const noexcept
{
    DiskRows* const rows = DiskRows::of(slots);
    if (rows == nullptr) return ERROR_INV_BITMAP;
    Span span;
    R_TRY(locate(*rows, shape, row, first, count, ERROR_FILE_WRITE, &span));
    const StoreGuard guard(&rows->lock());
    return span.empty() ? Status(SUCCESS) : rows->write(static_cast<const uint8_t*>(bytes), span, shape.rowBytes);
}

Status DiskStore::settle(const StoreSlots& slots) const noexcept
{
    DiskRows* const rows = DiskRows::of(slots);
    if (rows == nullptr) return SUCCESS;
    const StoreGuard guard(&rows->lock());
    return rows->flush();
}

const RowStore& diskStore() noexcept { return gDiskStore; }

} // namespace rv
