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

/// One way through the file, and the piece of it that is in memory for those who go it.
struct Window {
    uint8_t* memory = nullptr;
    R_INT64 at = 0; // where in the file the memory is
    Span held;      // what of the file it has
    Span unwritten; // the part of it that the file has not
    Span latest;    // what was asked for last on this way

    uint8_t* place(R_INT64 position) const noexcept { return memory + (position - at); }
    Way wayTo(const Span& span, R_INT64 rowBytes) const noexcept;
    Status flush(R_INT64 file) noexcept;
    bool fetch(R_INT64 file, const Span& span) noexcept;
};

/// Rows from both ends of a bitmap in turn, as a flip has them, are two ways. More would be memory for nobody.
constexpr R_SIZE kWindows = 2;

/// A window that is to move, for a caller who is going somewhere.
struct Turn {
    Window* window = nullptr; // null: for one who jumps about it does not
    Span piece;               // of the file, which it is to have then
    bool goesOn = false;      // whether the span begins or ends where the one before it ended or began
};

/// A bitmap's file and the windows on it, which never hold the same byte. Spans that callers ask for are inside the
/// file and not empty. Aligned as memory is, so that the windows behind the record are, too.
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
    /// Puts in their place the bytes that only the windows have.
    Status flush() noexcept;

private:
    DiskRows(R_INT64 file, R_UINT64 bytes, R_SIZE windowBytes) noexcept
        : file_(file), bytes_(static_cast<R_INT64>(bytes)), windowBytes_(static_cast<R_INT64>(windowBytes))
    {
        std::memcpy(tag_, kTag, sizeof kTag);
        auto* memory = reinterpret_cast<uint8_t*>(this + 1);
        for (Window& window : windows_) {
            window.memory = memory;
            memory += windowBytes;
        }
    }

    Window& newest() noexcept { return windows_[newest_]; }
    Window& otherThan(const Window& window) noexcept { return windows_[&window == &windows_[0] ? 1 : 0]; }
    void use(const Window& window, const Span& span) noexcept;
    template <class Fits> Window* find(Fits fits) noexcept;
    Window& windowOfWay(const Span& span, R_INT64 rowBytes) noexcept;
    Span pieceFor(const Window& window, const Span& span, Way way) noexcept;
    Status leave(Window& window, const Span& span) noexcept;
    Status turnTo(const Span& span, R_INT64 rowBytes, Turn* turn) noexcept;
    Status readAround(uint8_t* out, const Span& span) noexcept;
    Status writeAround(const uint8_t* in, const Span& span) noexcept;

    char tag_[4];
    StoreLock lock_;      // reading moves what is held of the file, too
    unsigned newest_ = 0; // the window used last
    R_INT64 file_;
    R_INT64 bytes_;
    R_INT64 windowBytes_; // of memory for each window, behind this record
    Window windows_[kWindows];
};

DiskRows* DiskRows::make(R_UINT64 bytes, R_SIZE windowBytes) noexcept
{
    TempFolderText folder;
    if (bytes > kMostBytes || !tempFolder(folder).ok()) return nullptr;
    void* const memory = platform().allocate(sizeof(DiskRows) + kWindows * windowBytes);
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
    for (Window& window : windows_) {
        window.held = window.held.common(whole);
        window.unwritten = window.unwritten.common(whole);
        if (window.held.empty()) window.held = {};
        if (window.unwritten.empty()) window.unwritten = {};
    }
    return true;
}

// --- Windows

Way Window::wayTo(const Span& span, R_INT64 rowBytes) const noexcept
{
    // The same columns of the next row count as the next bytes do.
    if (span.from >= latest.from && span.from <= latest.to + rowBytes) return Way::up;
    if (span.to <= latest.to && span.to >= latest.from - rowBytes) return Way::down;
    return Way::jumps;
}

Status Window::flush(R_INT64 file) noexcept
{
    if (unwritten.empty()) return SUCCESS;
    R_TRY(writeSpan(file, place(unwritten.from), unwritten));
    unwritten = {};
    return SUCCESS;
}

/// Moves the window, from which nothing is unwritten. What a file that cannot be read there has in it is left to those
/// who ask for these very bytes.
bool Window::fetch(R_INT64 file, const Span& span) noexcept
{
    held = {};
    at = span.from;
    if (!readSpan(file, memory, span).ok()) return false;
    held = span;
    return true;
}

void DiskRows::use(const Window& window, const Span& span) noexcept
{
    newest_ = &window == &windows_[0] ? 0 : 1;
    newest().latest = span;
}

/// The window of which that is true, the one used last first.
template <class Fits> Window* DiskRows::find(Fits fits) noexcept
{
    Window& first = newest();
    if (fits(first)) return &first;
    Window& second = otherThan(first);
    return fits(second) ? &second : nullptr;
}

/// The window whose way goes on here; where none does, the one that has not been used for longer begins another.
Window& DiskRows::windowOfWay(const Span& span, R_INT64 rowBytes) noexcept
{
    Window* const found = find([&](const Window& window) { return window.wayTo(span, rowBytes) != Way::jumps; });
    return found != nullptr ? *found : otherThan(newest());
}

/// What a window is to have for one who goes that way, without what the other one has, which is none of the span.
Span DiskRows::pieceFor(const Window& window, const Span& span, Way way) noexcept
{
    Span piece = {span.from, std::min(span.from + windowBytes_, bytes_)};
    if (way == Way::down) piece = {std::max<R_INT64>(span.to - windowBytes_, 0), span.to};
    const Span& others = otherThan(window).held;
    if (others.empty()) return piece;
    if (others.to <= span.from) piece.from = std::max(piece.from, others.to);
    if (others.from >= span.to) piece.to = std::min(piece.to, others.from);
    return piece;
}

/// Has a window hold none of a span.
Status DiskRows::leave(Window& window, const Span& span) noexcept
{
    if (window.held.common(span).empty()) return SUCCESS;
    R_TRY(window.flush(file_));
    window.held = {};
    return SUCCESS;
}

/// Finds the window that a span, which none has, is to go through, and frees it for that.
Status DiskRows::turnTo(const Span& span, R_INT64 rowBytes, Turn* turn) noexcept
{
    Window& window = windowOfWay(span, rowBytes);
    const Way way = window.wayTo(span, rowBytes);
    const bool goesOn = window.latest.meets(span);
    use(window, span);
    if (way == Way::jumps || span.size() > windowBytes_ / kDirectPart) return SUCCESS;
    R_TRY(leave(otherThan(window), span));
    R_TRY(window.flush(file_));
    *turn = {&window, pieceFor(window, span, way), goesOn};
    return SUCCESS;
}

Status DiskRows::flush() noexcept
{
    Status status = SUCCESS;
    for (Window& window : windows_)
        if (const Status flushed = window.flush(file_); status.ok()) status = flushed;
    return status;
}

// --- Reading and writing

/// Reads from the file, and over it what only the windows have.
Status DiskRows::readAround(uint8_t* out, const Span& span) noexcept
{
    R_TRY(readSpan(file_, out, span));
    for (const Window& window : windows_) {
        const Span newer = window.unwritten.common(span);
        if (!newer.empty())
            std::memcpy(out + (newer.from - span.from), window.place(newer.from), static_cast<size_t>(newer.size()));
    }
    return SUCCESS;
}

/// Writes to the file, and to what the windows have of it.
Status DiskRows::writeAround(const uint8_t* in, const Span& span) noexcept
{
    R_TRY(writeSpan(file_, in, span));
    for (const Window& window : windows_) {
        const Span older = window.held.common(span);
        if (!older.empty())
            std::memcpy(window.place(older.from), in + (older.from - span.from), static_cast<size_t>(older.size()));
    }
    return SUCCESS;
}

Status DiskRows::read(uint8_t* out, const Span& span, R_INT64 rowBytes) noexcept
{
    Window* window = find([&](const Window& each) { return each.held.holds(span); });
    if (window == nullptr) {
        Turn turn;
        R_TRY(turnTo(span, rowBytes, &turn));
        window = turn.window;
        if (window == nullptr || !window->fetch(file_, turn.piece)) return readAround(out, span);
    }
    use(*window, span);
    std::memcpy(out, window->place(span.from), static_cast<size_t>(span.size()));
    return SUCCESS;
}

Status DiskRows::write(const uint8_t* in, const Span& span, R_INT64 rowBytes) noexcept
{
    const auto hasRoom = [&](const Window& each) {
        return Span{each.at, each.at + windowBytes_}.holds(span) && each.held.meets(span);
    };
    Window* window = find([&](const Window& each) { return each.held.holds(span); });
    if (window == nullptr) window = find(hasRoom);
    if (window != nullptr) {
        R_TRY(leave(otherThan(*window), span));
    } else {
        Turn turn;
        R_TRY(turnTo(span, rowBytes, &turn));
        window = turn.window;
        if (window == nullptr) return writeAround(in, span);
        if (turn.goesOn) {
            window->at = turn.piece.from;
            window->held = span;
        } else if (!window->fetch(file_, turn.piece)) { // bytes of the gaps that a caller leaves come from the file
            return writeAround(in, span);
        }
    }
    use(*window, span);
    std::memcpy(window->place(span.from), in, static_cast<size_t>(span.size()));
    window->held = window->held.hull(span);
    window->unwritten = window->unwritten.hull(span);
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
