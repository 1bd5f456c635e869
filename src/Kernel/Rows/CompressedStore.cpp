// Rows of 1 bit as runs. They come in bands of 32,768 rows, each with a heap of its own for the runs, so that no heap
// that moves is the whole bitmap.

#include "Kernel/Rows/CompressedStore.h"

#include "Kernel/Pixels/BitCopy.h"
#include "Kernel/Pixels/Runs.h"
#include "Kernel/Rows/BitmapHeap.h"
#include "Platform/Platform.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace rv {

namespace {

constexpr int kBandShift = 15;
constexpr R_INT kBandRows = 1 << kBandShift;
constexpr R_UINT64 kHeapStep = 262144;
constexpr R_UINT64 kLargeHeap = 4194304;
constexpr R_INT kLongestRun = 65535;

/// Where a row's runs are in the heap of its band.
struct RowSlot {
    R_UINT64 offset; ///< 0: the row has none and is blank
    R_UINT64 runs;
};

/// A band of rows, as the record's pointers lead to it. One slot for each row stands behind it, and before it what is
/// known of its heap, which is nobody else's business.
struct Band {
    void* scratch;  ///< room for the runs of any row
    void* blankRow; ///< a 32-bit count and the runs of a blank row that needs more than one; else null
    R_UINT64 scratchBytes;
    void* heap;

    RowSlot* slots() noexcept { return reinterpret_cast<RowSlot*>(this + 1); }
    FreeBlocks* known() noexcept { return reinterpret_cast<FreeBlocks*>(this) - 1; }
    BitmapHeap runs() noexcept { return BitmapHeap(&heap, known()); }
};
static_assert(sizeof(Band) == 32 && sizeof(RowSlot) == 16 && sizeof(FreeBlocks) % alignof(Band) == 0);

/// What the record's handle leads to. A packed row stands behind it, for writes of pieces.
struct Rows {
    static constexpr char kTag[4] = {'R', 'u', 'n', 's'};

    char tag[4];
    R_INT width;
    R_INT height;
    Band** bands; ///< the record's pointer

    uint8_t* packed() noexcept { return reinterpret_cast<uint8_t*>(this + 1); }
    RowSlot& slot(R_INT64 row) const noexcept { return band(row)->slots()[row & (kBandRows - 1)]; }
    Band* band(R_INT64 row) const noexcept { return bands[row >> kBandShift]; }
};

constexpr R_INT64 bandsOf(R_INT height) noexcept { return (R_INT64{height} + kBandRows - 1) >> kBandShift; }
/// Rows in one of the bands of a bitmap.
constexpr R_INT rowsInBand(R_INT height, R_INT64 band) noexcept
{
    return static_cast<R_INT>(std::min<R_INT64>(kBandRows, height - (band << kBandShift)));
}

Rows* rowsOf(const StoreSlots& slots) noexcept
{
    auto* const rows = taggedAs<Rows>(slots.handle, Rows::kTag);
    return rows != nullptr && rows->bands == slots.pointer ? rows : nullptr;
}

void* allocateZeroed(R_UINT64 bytes) noexcept
{
    void* const block = platform().allocate(bytes);
    if (block != nullptr) std::memset(block, 0, bytes);
    return block;
}

// --- Bands

constexpr R_UINT64 bandBytes(R_INT rows) noexcept { return (static_cast<R_UINT64>(rows) + 2) * sizeof(RowSlot); }

/// What a heap starts with: an estimate, and much where that is not little.
constexpr R_UINT64 firstCapacity(R_INT rows, R_INT width) noexcept
{
    const R_UINT64 estimate = static_cast<R_UINT64>(rows) * static_cast<R_UINT64>(width) / 64;
    const R_UINT64 bytes = estimate == 0 ? 56 : estimate + 24;
    return bytes > kHeapStep ? kLargeHeap : kHeapStep;
}

/// The runs of a blank row, which needs more than one.
void* blankRowOf(R_INT width) noexcept
{
    const R_INT whole = (width - 1) / kLongestRun; // each with a run of 0 behind it, and a last one
    const R_UINT count = static_cast<R_UINT>(whole) * 2 + 1;
    auto* const block = static_cast<uint8_t*>(allocateZeroed(sizeof count + count * kRunBytes));
    if (block == nullptr) return nullptr;
    std::memcpy(block, &count, sizeof count);
    auto* const runs = reinterpret_cast<R_UINT16*>(block + sizeof count);
    for (R_INT i = 0; i < whole; ++i) runs[2 * i] = kLongestRun;
    runs[2 * whole] = static_cast<R_UINT16>(width - whole * kLongestRun);
    return block;
}

Band* allocateBand(R_INT rows) noexcept
{
    void* const block = allocateZeroed(sizeof(FreeBlocks) + bandBytes(rows));
    return block != nullptr ? reinterpret_cast<Band*>(static_cast<FreeBlocks*>(block) + 1) : nullptr;
}

/// The band alone, without what it leads to.
void releaseBand(Band* band) noexcept
{
    if (band != nullptr) platform().release(band->known());
}

void destroyBand(Band* band) noexcept
{
    band->runs().destroy();
    platform().release(band->blankRow);
    platform().release(band->scratch);
    releaseBand(band);
}

/// A band of blank rows; null without memory.
Band* createBand(R_INT rows, R_INT width) noexcept
{
    Band* const band = allocateBand(rows);
    if (band == nullptr) return nullptr;
    band->scratchBytes = (static_cast<R_UINT64>(width) + 4) * kRunBytes;
    band->scratch = platform().allocate(band->scratchBytes);
    const bool needsTemplate = width > kLongestRun;
    if (needsTemplate) band->blankRow = blankRowOf(width);
    if (band->scratch != nullptr && (band->blankRow != nullptr || !needsTemplate) &&
        BitmapHeap::create(&band->heap, firstCapacity(rows, width)))
        return band;
    destroyBand(band);
    return nullptr;
}

/// A band with the rows of another, which stays, and slots for more.
Band* extendedBand(Band* band, R_INT rows, R_INT newRows) noexcept
{
    Band* const extended = allocateBand(newRows);
    if (extended != nullptr)
        std::memcpy(static_cast<void*>(extended->known()), band->known(), sizeof(FreeBlocks) + bandBytes(rows));
    return extended;
}

/// The bands of a bitmap that grows, until it takes them over.
class NewBands {
public:
    NewBands(const Rows& rows, R_INT height) noexcept : first_(bandsOf(rows.height)), extended_(first_)
    {
        const R_INT64 wanted = bandsOf(height);
        bands_ = static_cast<Band**>(platform().allocate(static_cast<size_t>(wanted) * sizeof(void*)));
        if (bands_ == nullptr) return;
        std::copy_n(rows.bands, first_, bands_);
        if ((rows.height & (kBandRows - 1)) != 0) {
            const R_INT64 last = first_ - 1;
            bands_[last] = extendedBand(rows.bands[last], rowsInBand(rows.height, last), rowsInBand(height, last));
            if (bands_[last] == nullptr) return;
            extended_ = last;
        }
        for (made_ = first_; made_ < wanted; ++made_) {
            bands_[made_] = createBand(rowsInBand(height, made_), rows.width);
            if (bands_[made_] == nullptr) return;
        }
        complete_ = true;
    }
    ~NewBands()
    {
        if (bands_ == nullptr) return;
        while (made_ > first_) destroyBand(bands_[--made_]);
        if (extended_ < first_) releaseBand(bands_[extended_]);
        platform().release(bands_);
    }
    NewBands(const NewBands&) = delete;
    NewBands& operator=(const NewBands&) = delete;

    explicit operator bool() const noexcept { return complete_; }
    void moveInto(Rows& rows) noexcept
    {
        if (extended_ < first_) releaseBand(rows.bands[extended_]);
        platform().release(rows.bands);
        rows.bands = std::exchange(bands_, nullptr);
    }

private:
    R_INT64 first_;    // the first new band
    R_INT64 extended_; // the last old one where it has become longer; else first_
    R_INT64 made_ = 0;
    Band** bands_ = nullptr;
    bool complete_ = false;
};

/// Gives the bands behind the last row back, and the runs of rows that go.
void dropRows(Rows& rows, R_INT height) noexcept
{
    const R_INT64 kept = bandsOf(height);
    for (R_INT64 band = bandsOf(rows.height); band-- > kept;) destroyBand(rows.bands[band]);
    const R_INT64 end = std::min<R_INT64>(rows.height, kept << kBandShift);
    for (R_INT64 row = height; row < end; ++row) {
        RowSlot& slot = rows.slot(row);
        rows.band(row)->runs().free(slot.offset);
        slot = {};
    }
    rows.height = height;
}

Status growRows(Rows& rows, R_INT height) noexcept
{
    NewBands bands(rows, height);
    if (!bands) return ERROR_FAILURE;
    bands.moveInto(rows);
    rows.height = height;
    return SUCCESS;
}

// --- Rows

/// The row must be there; the column's byte is not checked further, as there are no pixels behind the last.
Status checkRow(const Rows* rows, R_INT64 row, R_INT64 first) noexcept
{
    if (rows == nullptr) return ERROR_INV_BITMAP;
    return row >= 0 && row < rows->height && first >= 0 ? SUCCESS : ERROR_INV_PARAMETER;
}

/// The runs of a row, wherever they are kept.
struct RunList {
    const void* runs;
    size_t count;
};

RunList runsOf(const Rows& rows, R_INT64 row, const R_UINT16& shortBlank) noexcept
{
    Band* const band = rows.band(row);
    const RowSlot& slot = rows.slot(row);
    if (slot.offset != 0) return {band->runs().data(slot.offset), slot.runs};
    if (band->blankRow == nullptr) return {&shortBlank, 1};
    R_UINT count = 0;
    std::memcpy(&count, band->blankRow, sizeof count);
    return {static_cast<const uint8_t*>(band->blankRow) + sizeof count, count};
}

void decodeRow(const Rows& rows, R_INT64 row, uint8_t* bytes, size_t first, size_t pixels) noexcept
{
    const auto blank = static_cast<R_UINT16>(rows.width);
    const RunList list = runsOf(rows, row, blank);
    decodeRuns(bytes, 0, pixels, list.runs, list.count, first);
}

Status storeRuns(const Rows& rows, R_INT64 row, const void* runs, size_t count) noexcept
{
    BitmapHeap heap = rows.band(row)->runs();
    RowSlot& slot = rows.slot(row);
    const size_t bytes = count * kRunBytes;
    const R_UINT64 offset = slot.offset != 0 ? heap.reallocate(slot.offset, bytes) : heap.allocate(bytes);
    if (offset == 0) return ERROR_FAILURE;
    std::memcpy(heap.data(offset), runs, bytes);
    slot = {offset, count};
    return SUCCESS;
}

Status encodeRow(const Rows& rows, R_INT64 row, const uint8_t* bytes) noexcept
{
    Band* const band = rows.band(row);
    const size_t room = band->scratchBytes / kRunBytes;
    return storeRuns(rows, row, band->scratch,
                     encodeRuns(band->scratch, room, bytes, 0, static_cast<size_t>(rows.width)));
}

/// The pixels of a row that are in `count` bytes from byte `first` on.
size_t pixelsIn(const Rows& rows, R_INT64 first, R_SIZE count) noexcept
{
    const R_INT64 rowBytes = (R_INT64{rows.width} + 7) / 8;
    if (first >= rowBytes) return 0;
    const auto pixels = static_cast<size_t>(rows.width - first * 8);
    return count < static_cast<R_SIZE>(rowBytes - first) ? count * 8 : pixels;
}

class CompressedStore final : public RowStore {
public:
    constexpr CompressedStore() noexcept = default;

    bool usable(const StoreShape& shape) const noexcept override { return shape.bits == 1; }

    Status create(StoreSlots& slots, const StoreShape& shape, const StoreRequest&) const noexcept override
    {
        if (shape.width <= 0 || shape.height < 0) return ERROR_INV_SIZE;
        const size_t rowBytes = (static_cast<size_t>(shape.width) + 7) / 8;
        auto* const rows = static_cast<Rows*>(allocateZeroed(sizeof(Rows) + rowBytes));
        if (rows == nullptr) return ERROR_FAILURE;
        std::memcpy(rows->tag, Rows::kTag, sizeof rows->tag);
        rows->width = shape.width;
        if (!growRows(*rows, shape.height).ok()) {
            platform().release(rows);
            return ERROR_FAILURE;
        }
        slots = {rows, rows->bands, 0};
        return SUCCESS;
    }

    void destroy(StoreSlots& slots, const StoreShape&) const noexcept override
    {
        Rows* const rows = rowsOf(slots);
        slots = {};
        if (rows == nullptr) return;
        dropRows(*rows, 0);
        platform().release(rows->bands);
        std::memset(rows->tag, 0, sizeof rows->tag);
        platform().release(rows);
    }

    Status changeHeight(StoreSlots& slots, const StoreShape&, R_INT height) const noexcept override
    {
        Rows* const rows = rowsOf(slots);
        if (rows == nullptr) return ERROR_INV_BITMAP;
        if (height > rows->height)
            R_TRY(growRows(*rows, height));
        else
            dropRows(*rows, height);
        slots.pointer = rows->bands;
        return SUCCESS;
    }

    Status read(const StoreSlots& slots, const StoreShape&, void* bytes, R_INT64 row, R_INT64 first,
                R_SIZE count) const noexcept override
    {
        const Rows* const rows = rowsOf(slots);
        R_TRY(checkRow(rows, row, first));
        const size_t pixels = pixelsIn(*rows, first, count);
        auto* const target = static_cast<uint8_t*>(bytes);
        std::memset(target + pixels / 8, 0, count - pixels / 8); // what is behind the last pixel is not kept
        decodeRow(*rows, row, target, static_cast<size_t>(first) * 8, pixels);
        return SUCCESS;
    }

    Status write(StoreSlots& slots, const StoreShape&, const void* bytes, R_INT64 row, R_INT64 first,
                 R_SIZE count) const noexcept override
    {
        Rows* const rows = rowsOf(slots);
        R_TRY(checkRow(rows, row, first));
        const auto* const source = static_cast<const uint8_t*>(bytes);
        const size_t pixels = pixelsIn(*rows, first, count);
        const auto width = static_cast<size_t>(rows->width);
        if (pixels == width) return encodeRow(*rows, row, source);
        decodeRow(*rows, row, rows->packed(), 0, width);
        copyBits(rows->packed(), first * 8, source, 0, static_cast<R_INT64>(pixels));
        return encodeRow(*rows, row, rows->packed());
    }

    /// As it has always been told: what the first heap takes, for each band.
    R_UINT64 heldBytes(const StoreSlots& slots, const StoreShape&) const noexcept override
    {
        const Rows* const rows = rowsOf(slots);
        if (rows == nullptr || rows->height == 0) return 0;
        return static_cast<R_UINT64>(bandsOf(rows->height)) * rows->band(0)->runs().capacity();
    }
};

constinit const CompressedStore gCompressedStore;

} // namespace

const RowStore& compressedStore() noexcept { return gCompressedStore; }

Status readRowRuns(const StoreSlots& slots, const StoreShape& shape, R_INT64 row, void* runs, size_t room) noexcept
{
    const Rows* const rows = rowsOf(slots);
    R_TRY(checkRow(rows, row, 0));
    if (shape.width != rows->width) return ERROR_INV_BITMAP;
    const auto blank = static_cast<R_UINT16>(rows->width);
    const RunList list = runsOf(*rows, row, blank);
    if (list.count > room) return ERROR_BUFFER_TOO_SMALL;
    std::memcpy(runs, list.runs, list.count * kRunBytes);
    return SUCCESS;
}

Status writeRowRuns(const StoreSlots& slots, const StoreShape& shape, R_INT64 row, const void* runs,
                    size_t count) noexcept
{
    const Rows* const rows = rowsOf(slots);
    R_TRY(checkRow(rows, row, 0));
    if (shape.width != rows->width) return ERROR_INV_BITMAP;
    return storeRuns(*rows, row, runs, count);
}

Status growHeaps(const StoreSlots& slots, R_UINT64 bytes) noexcept
{
    const Rows* const rows = rowsOf(slots);
    if (rows == nullptr) return ERROR_INV_BITMAP;
    const R_INT64 bands = bandsOf(rows->height);
    for (R_INT64 band = bands; band-- > 0;)
        if (!rows->bands[band]->runs().grow(bytes / static_cast<R_UINT64>(bands))) return FAILURE;
    return SUCCESS;
}

Status trimHeaps(const StoreSlots& slots) noexcept
{
    const Rows* const rows = rowsOf(slots);
    if (rows == nullptr) return ERROR_INV_BITMAP;
    for (R_INT64 band = bandsOf(rows->height); band-- > 0;)
        if (!rows->bands[band]->runs().trim()) return FAILURE;
    return SUCCESS;
}

} // namespace rv
