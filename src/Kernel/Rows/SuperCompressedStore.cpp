// Bands of rows: a table of packed bands, and a few slots for the open ones.

#include "Kernel/Rows/SuperCompressedStore.h"

#include "Kernel/Base/System.h"
#include "Kernel/Rows/Codec.h"
#include "Kernel/Rows/StoreLock.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace rv {

namespace {

constexpr char kTag[4] = {'B', 'a', 'n', 'd'};
constexpr R_UINT64 kCallsBorrowed = 3; // that a borrowed row must outlive

/// A band, as it is held while it is closed.
struct Band {
    uint8_t* bytes = nullptr; ///< null: the rows are zero, or lie in a slot and nowhere else
    uint32_t size = 0;        ///< of what is packed; a whole band's for one that is plain, also while it is open
    uint32_t slot = 0;        ///< 1 + where the band is open; 0 where it is not
};

/// Room for an open band.
struct Slot {
    uint8_t* bytes = nullptr; ///< null: free
    R_UINT64 band = 0;
    R_UINT64 used = 0;          ///< by the clock of uses
    R_UINT64 borrowedUntil = 0; ///< the last call that a borrowed row holds for
    bool changed = false;       ///< the band's closed form is gone
};

/// How rows are cut into bands.
struct Cut {
    R_UINT rowBytes = 0;
    R_INT mostRows = 1; ///< of one band
    R_UINT openBands = SuperCompressedStore::kLeastOpen;
};

/// The rows of one bitmap.
class Bands {
public:
    static Status make(Codec&& codec, const Cut& cut, R_INT height, Bands** made) noexcept;
    /// The bands that slots hold; null for slots that nobody here has filled.
    static Bands* of(const StoreSlots& slots) noexcept;
    void remove() noexcept;

    /// Where bytes of a row begin among the bytes of all rows. False: they are not all there.
    bool find(R_INT64 row, R_INT64 first, R_SIZE count, R_UINT64* position) const noexcept;
    Status read(uint8_t* to, R_UINT64 position, R_SIZE count) noexcept;
    Status write(const uint8_t* from, R_UINT64 position, R_SIZE count) noexcept;
    uint8_t* borrow(R_UINT64 position, bool writes) noexcept;
    void rest() noexcept;
    /// *changed: the bands to be used from now on.
    Status changeHeight(R_INT height, Bands** changed) noexcept;

    R_UINT rowBytes() const noexcept { return cut_.rowBytes; }
    SuperCompressedStore::Usage usage() const noexcept { return {open_, bytes_}; }
    StoreLock& lock() noexcept { return lock_; }

private:
    Bands(Codec&& codec, const Cut& cut, R_INT height) noexcept;

    Status take(uint8_t** block, uint32_t bytes, bool open) noexcept;
    void give(uint8_t* block, uint32_t bytes) noexcept;
    void keepSpare(uint8_t* block) noexcept;
    Status growTable(R_UINT64 bands) noexcept;
    R_UINT64 bandsFor(R_INT height) const noexcept;

    Status open(R_UINT64 index, Slot** slot) noexcept;
    Status bringIn(Band& band, R_UINT64 index) noexcept;
    Status makeRoom(bool needsBytes) noexcept;
    void markChanged(Slot& slot) noexcept;
    bool closable(const Slot& slot) const noexcept { return slot.bytes != nullptr && calls_ > slot.borrowedUntil; }
    Slot* oldestClosable(R_UINT64 after) noexcept;
    Status closeOldest() noexcept;
    Status close(Slot& slot) noexcept;
    Status packScratch(const uint8_t* plain, uint32_t capacity, uint32_t* size) noexcept;
    Status pack(Band& band, const uint8_t* plain) noexcept;
    void drop(Band& band) noexcept;
    Status cutTo(R_INT height) noexcept;
    Status copyTo(Bands& other) noexcept;

    char tag_[4]; // first of all
    R_INT height_ = 0;
    Cut cut_;
    R_INT rows_;         // of each band
    uint32_t bandBytes_; // as many for the last one, whose rows past the bitmap's are zero
    Codec codec_;
    Band* table_ = nullptr;
    R_UINT64 tableBands_ = 0;
    Slot slots_[SuperCompressedStore::kMostOpen];
    R_UINT open_ = 0;
    uint8_t* spare_ = nullptr;   // room for one band more
    uint8_t* scratch_ = nullptr; // what a band is packed into, before anybody knows how small it gets
    R_UINT64 uses_ = 0;
    R_UINT64 calls_ = 0;
    R_UINT64 bytes_ = 0; // taken of the process's conventional memory
    StoreLock lock_;
};

/// The bands of a bitmap, for one call.
class Call {
public:
    explicit Call(const StoreSlots& slots) noexcept
        : bands_(Bands::of(slots)), guard_(bands_ != nullptr ? &bands_->lock() : nullptr)
    {
    }

    Bands* operator->() const noexcept { return bands_; }
    /// Whether the bands are there and have these bytes.
    bool find(const StoreShape& shape, R_INT64 row, R_INT64 first, R_SIZE count, R_UINT64* position) const noexcept
    {
        return bands_ != nullptr && bands_->rowBytes() == shape.rowBytes && bands_->find(row, first, count, position);
    }
    explicit operator bool() const noexcept { return bands_ != nullptr; }

private:
    Bands* bands_;
    StoreGuard guard_;
};

bool isZero(const uint8_t* bytes, uint32_t count) noexcept
{
    return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, count - 1) == 0;
}

/// What a packed band may take. The last sixteenth is not worth the time that unpacking takes.
constexpr uint32_t mostPacked(uint32_t plainBytes) noexcept { return plainBytes - plainBytes / 16 - 1; }

// Noise is known by a sample, so that not all of it is packed in vain: the same columns of a few rows that follow each
// other, at a few places, for rows may repeat what has no repetition in itself.
constexpr uint32_t kSamplePlaces = 4, kSampleRows = 4, kSampleColumns = 512; // columns are bytes here
constexpr uint32_t kSampleBytes = kSamplePlaces * kSampleRows * kSampleColumns;
constexpr uint32_t kLeastSampled = 8 * kSampleBytes; // a band of fewer bytes is packed as soon
/// A sample packs less well than the whole does: any gain speaks for it.
constexpr uint32_t kMostPackedSample = kSampleBytes - kSampleBytes / 64;

void takeSample(uint8_t* sample, const uint8_t* plain, uint32_t rows, uint32_t rowBytes) noexcept
{
    const bool acrossRows = rows >= kSampleRows && rowBytes >= kSampleColumns;
    const uint32_t step = acrossRows ? rowBytes : kSampleColumns; // from one piece to the next of a place
    const uint32_t lastRow = acrossRows ? rows - kSampleRows : 0;
    const uint32_t lastColumn = acrossRows ? rowBytes - kSampleColumns : rows * rowBytes - kSampleRows * kSampleColumns;
    for (uint32_t place = 0; place < kSamplePlaces; ++place) {
        const uint8_t* piece = plain + lastRow * place / (kSamplePlaces - 1) * rowBytes +
                               R_UINT64{lastColumn} * place / (kSamplePlaces - 1);
        for (uint32_t i = 0; i < kSampleRows; ++i, piece += step, sample += kSampleColumns)
            std::memcpy(sample, piece, kSampleColumns);
    }
}

// --- Life

Bands::Bands(Codec&& codec, const Cut& cut, R_INT height) noexcept
    : height_(height), cut_(cut), rows_(std::clamp(height, 1, cut.mostRows)),
      bandBytes_(cut.rowBytes * static_cast<uint32_t>(rows_)), codec_(std::move(codec))
{
    std::memcpy(tag_, kTag, sizeof tag_);
}

Status Bands::make(Codec&& codec, const Cut& cut, R_INT height, Bands** made) noexcept
{
    void* const memory = platform().allocate(sizeof(Bands));
    if (memory == nullptr) return ERROR_FAILURE;
    auto* const bands = new (memory) Bands(std::move(codec), cut, height);
    if (const Status grown = bands->growTable(bands->bandsFor(height)); !grown.ok()) {
        bands->remove();
        return grown;
    }
    *made = bands;
    return SUCCESS;
}

Bands* Bands::of(const StoreSlots& slots) noexcept
{
    return slots.pointer == nullptr ? taggedAs<Bands>(slots.handle, kTag) : nullptr;
}

void Bands::remove() noexcept
{
    for (R_UINT64 i = 0; i < tableBands_; ++i) platform().release(table_[i].bytes);
    for (const Slot& slot : slots_) platform().release(slot.bytes);
    for (void* const block : {static_cast<void*>(spare_), static_cast<void*>(scratch_), static_cast<void*>(table_)})
        platform().release(block);
    returnConventional(bytes_);
    this->~Bands();
    std::memset(static_cast<void*>(this), 0, sizeof kTag); // a copy of the record finds nothing, for a while at least
    platform().release(this);
}

// --- Memory

/// What bands are held in is subject to the process's limit; what they are opened in is counted.
Status Bands::take(uint8_t** block, uint32_t bytes, bool open) noexcept
{
    R_TRY(open ? growConventional(bytes) : reserveConventional(bytes));
    *block = static_cast<uint8_t*>(platform().allocate(bytes));
    if (*block == nullptr) {
        returnConventional(bytes);
        return ERROR_FAILURE;
    }
    bytes_ += bytes;
    return SUCCESS;
}

void Bands::give(uint8_t* block, uint32_t bytes) noexcept
{
    if (block == nullptr) return;
    platform().release(block);
    returnConventional(bytes);
    bytes_ -= bytes;
}

void Bands::keepSpare(uint8_t* block) noexcept
{
    give(spare_, bandBytes_);
    spare_ = block;
}

R_UINT64 Bands::bandsFor(R_INT height) const noexcept
{
    return (static_cast<R_UINT64>(height) + static_cast<R_UINT64>(rows_) - 1) / static_cast<R_UINT64>(rows_);
}

/// The bands that come are zero. There are never fewer than before: the table is small beside what it tells of.
Status Bands::growTable(R_UINT64 bands) noexcept
{
    if (bands <= tableBands_) return SUCCESS;
    const R_UINT64 more = (bands - tableBands_) * sizeof(Band);
    R_TRY(reserveConventional(more));
    void* const grown = platform().reallocate(table_, bands * sizeof(Band));
    if (grown == nullptr) {
        returnConventional(more);
        return ERROR_FAILURE;
    }
    table_ = static_cast<Band*>(grown);
    std::fill(table_ + tableBands_, table_ + bands, Band());
    tableBands_ = bands;
    bytes_ += more;
    return SUCCESS;
}

// --- Opening and closing

Status Bands::open(R_UINT64 index, Slot** slot) noexcept
{
    Band& band = table_[index];
    if (band.slot == 0) R_TRY(bringIn(band, index));
    *slot = &slots_[band.slot - 1];
    (*slot)->used = ++uses_;
    return SUCCESS;
}

Status Bands::bringIn(Band& band, R_UINT64 index) noexcept
{
    const bool plain = band.size == bandBytes_;
    R_TRY(makeRoom(!plain));
    if (band.size == 0)
        std::memset(spare_, 0, bandBytes_);
    else if (!plain)
        R_TRY(codec_.unpack(spare_, bandBytes_, band.bytes, band.size));
    Slot* const slot = std::find_if(slots_, std::end(slots_), [](const Slot& s) { return s.bytes == nullptr; });
    *slot = {};
    slot->bytes = std::exchange(plain ? band.bytes : spare_, nullptr);
    slot->band = index;
    band.slot = static_cast<uint32_t>(slot - slots_) + 1;
    ++open_;
    return SUCCESS;
}

/// A slot for one band more, and where that is needed the spare bytes for it. Without memory for those, open bands give
/// way earlier.
Status Bands::makeRoom(bool needsBytes) noexcept
{
    for (;;) {
        if (open_ < cut_.openBands) {
            if (!needsBytes || spare_ != nullptr) return SUCCESS;
            const Status taken = take(&spare_, bandBytes_, true);
            if (taken.ok() || oldestClosable(0) == nullptr) return taken;
        }
        R_TRY(closeOldest());
    }
}

void Bands::markChanged(Slot& slot) noexcept
{
    slot.changed = true;
    drop(table_[slot.band]);
}

/// Forgets what a band is while it is closed.
void Bands::drop(Band& band) noexcept
{
    give(std::exchange(band.bytes, nullptr), band.size);
    band.size = 0;
}

Slot* Bands::oldestClosable(R_UINT64 after) noexcept
{
    Slot* oldest = nullptr;
    for (Slot& slot : slots_)
        if (closable(slot) && slot.used > after && (oldest == nullptr || slot.used < oldest->used)) oldest = &slot;
    return oldest;
}

/// One that cannot be closed now stays, and the next one is asked: a band that was only read can always be closed.
Status Bands::closeOldest() noexcept
{
    Status closed = ERROR_FAILURE;
    for (Slot* slot = oldestClosable(0); slot != nullptr; slot = oldestClosable(slot->used))
        if (closed = close(*slot); closed.ok()) break;
    return closed;
}

Status Bands::close(Slot& slot) noexcept
{
    Band& band = table_[slot.band];
    if (slot.changed && !isZero(slot.bytes, bandBytes_)) R_TRY(pack(band, slot.bytes));
    uint8_t* const bytes = std::exchange(slot.bytes, nullptr);
    if (band.size == bandBytes_)
        band.bytes = bytes;
    else
        keepSpare(bytes);
    band.slot = 0;
    --open_;
    return SUCCESS;
}

/// Packs a band into the scratch block, unless it is noise. *size is 0 where that would hardly make it smaller.
Status Bands::packScratch(const uint8_t* plain, uint32_t capacity, uint32_t* size) noexcept
{
    if (bandBytes_ >= kLeastSampled) {
        uint8_t* const sample = scratch_ + capacity - kSampleBytes;
        takeSample(sample, plain, static_cast<uint32_t>(rows_), cut_.rowBytes);
        R_TRY(codec_.pack(scratch_, kMostPackedSample, sample, kSampleBytes, size));
        if (*size == 0) return SUCCESS;
    }
    return codec_.pack(scratch_, capacity, plain, bandBytes_, size);
}

/// Says by its size how a band is to be held. The band is as it was when it fails.
Status Bands::pack(Band& band, const uint8_t* plain) noexcept
{
    const uint32_t capacity = mostPacked(bandBytes_);
    if (scratch_ == nullptr) R_TRY(take(&scratch_, capacity, true));
    uint32_t size = 0;
    R_TRY(packScratch(plain, capacity, &size));
    if (size == 0) { // the bytes stay where they are, counted as they were; but the limit may not allow to hold them
        R_TRY(reserveConventional(bandBytes_));
        returnConventional(bandBytes_);
        band.size = bandBytes_;
        return SUCCESS;
    }
    R_TRY(take(&band.bytes, size, false));
    std::memcpy(band.bytes, scratch_, size);
    band.size = size;
    return SUCCESS;
}

// --- Rows

bool Bands::find(R_INT64 row, R_INT64 first, R_SIZE count, R_UINT64* position) const noexcept
{
    if (row < 0 || row >= height_ || first < 0) return false;
    const R_UINT64 all = static_cast<R_UINT64>(height_) * cut_.rowBytes;
    const R_UINT64 start = static_cast<R_UINT64>(row) * cut_.rowBytes;
    if (static_cast<R_UINT64>(first) > all - start) return false;
    *position = start + static_cast<R_UINT64>(first);
    return count <= all - *position;
}

Status Bands::read(uint8_t* to, R_UINT64 position, R_SIZE count) noexcept
{
    ++calls_;
    while (count > 0) {
        const R_UINT64 index = position / bandBytes_, offset = position % bandBytes_;
        const R_SIZE piece = std::min<R_SIZE>(count, bandBytes_ - offset);
        const Band& band = table_[index];
        if (band.slot == 0 && band.size == 0) {
            std::memset(to, 0, piece);
        } else if (band.slot == 0 && band.size == bandBytes_) {
            std::memcpy(to, band.bytes + offset, piece);
        } else {
            Slot* slot = nullptr;
            R_TRY(open(index, &slot));
            std::memcpy(to, slot->bytes + offset, piece);
        }
        to += piece;
        position += piece;
        count -= piece;
    }
    return SUCCESS;
}

Status Bands::write(const uint8_t* from, R_UINT64 position, R_SIZE count) noexcept
{
    ++calls_;
    while (count > 0) {
        const R_UINT64 offset = position % bandBytes_;
        const R_SIZE piece = std::min<R_SIZE>(count, bandBytes_ - offset);
        Slot* slot = nullptr;
        R_TRY(open(position / bandBytes_, &slot));
        markChanged(*slot);
        std::memcpy(slot->bytes + offset, from, piece);
        from += piece;
        position += piece;
        count -= piece;
    }
    return SUCCESS;
}

uint8_t* Bands::borrow(R_UINT64 position, bool writes) noexcept
{
    ++calls_;
    const R_UINT64 index = position / bandBytes_;
    const Band& band = table_[index];
    if (!writes && band.slot == 0 && band.size == 0) return nullptr; // zeros are copied: nothing is taken for them
    Slot* slot = nullptr;
    if (!open(index, &slot).ok()) return nullptr;
    slot->borrowedUntil = calls_ + kCallsBorrowed;
    if (writes) markChanged(*slot);
    return slot->bytes + position % bandBytes_;
}

/// Closes what nobody is likely to use soon: all but the band used last. What cannot be closed now stays open.
void Bands::rest() noexcept
{
    ++calls_;
    for (Slot* slot = oldestClosable(0); slot != nullptr && slot->used != uses_; slot = oldestClosable(slot->used))
        (void)close(*slot);
    keepSpare(nullptr);
    give(std::exchange(scratch_, nullptr), mostPacked(bandBytes_));
}

// --- Height

Status Bands::changeHeight(R_INT height, Bands** changed) noexcept
{
    ++calls_;
    *changed = this;
    // All rows are in one band that could be larger: the new rows would else be cut as small as the first ones.
    if (height > rows_ && rows_ < cut_.mostRows) {
        R_TRY(make(Codec(), cut_, height, changed));
        if (const Status copied = copyTo(**changed); !copied.ok()) {
            (*changed)->remove();
            return copied;
        }
        (*changed)->codec_ = std::move(codec_);
        return SUCCESS;
    }
    R_TRY(height < height_ ? cutTo(height) : growTable(bandsFor(height)));
    height_ = height;
    return SUCCESS;
}

/// The rows of the one band there is become the first ones of another's first band, which it then has open.
Status Bands::copyTo(Bands& other) noexcept
{
    if (height_ == 0 || (table_[0].size == 0 && table_[0].slot == 0)) return SUCCESS;
    Slot* slot = nullptr;
    R_TRY(open(0, &slot));
    return other.write(slot->bytes, 0, static_cast<R_UINT64>(height_) * cut_.rowBytes);
}

/// Rows that are cut off become zero: as such they would come back.
Status Bands::cutTo(R_INT height) noexcept
{
    const R_UINT64 kept = static_cast<R_UINT64>(height) * cut_.rowBytes;
    const uint32_t part = static_cast<uint32_t>(kept % bandBytes_);
    const R_UINT64 last = kept / bandBytes_;
    if (part != 0 && (table_[last].size != 0 || table_[last].slot != 0)) {
        Slot* slot = nullptr;
        R_TRY(open(last, &slot));
        markChanged(*slot);
        std::memset(slot->bytes + part, 0, bandBytes_ - part);
    }
    for (R_UINT64 i = last + (part != 0 ? 1 : 0); i < bandsFor(height_); ++i) {
        Band& band = table_[i];
        if (band.slot != 0) {
            keepSpare(std::exchange(slots_[band.slot - 1].bytes, nullptr));
            band.slot = 0;
            --open_;
        }
        // The bytes of a plain one that was open have just gone, and were counted with the slot's.
        drop(band);
    }
    return SUCCESS;
}

constinit const SuperCompressedStore gSuperCompressedStore({128 * 1024, SuperCompressedStore::kMostOpen});

} // namespace

// --- The store

bool SuperCompressedStore::usable(const StoreShape& shape) const noexcept
{
    return shape.rowBytes <= Codec::kMostBytes && static_cast<bool>(Codec::open());
}

Status SuperCompressedStore::create(StoreSlots& slots, const StoreShape& shape, const StoreRequest&) const noexcept
{
    if (shape.height <= 0 || shape.rowBytes == 0 || shape.rowBytes > Codec::kMostBytes) return ERROR_INV_SIZE;
    Cut cut;
    cut.rowBytes = shape.rowBytes;
    cut.mostRows = static_cast<R_INT>(std::max<R_UINT64>(limits_.bandBytes / shape.rowBytes, 1));
    cut.openBands = std::clamp(limits_.openBands, kLeastOpen, kMostOpen);
    Codec codec = Codec::open();
    if (!codec) return ERROR_FAILURE;
    Bands* bands = nullptr;
    R_TRY(Bands::make(std::move(codec), cut, shape.height, &bands));
    slots = {bands, nullptr, 0};
    return SUCCESS;
}

void SuperCompressedStore::destroy(StoreSlots& slots, const StoreShape&) const noexcept
{
    if (Bands* const bands = Bands::of(slots); bands != nullptr) bands->remove();
    slots = {};
}

Status SuperCompressedStore::changeHeight(StoreSlots& slots, const StoreShape& shape, R_INT height) const noexcept
{
    Bands* const bands = Bands::of(slots);
    if (bands == nullptr || bands->rowBytes() != shape.rowBytes || height < 0) return ERROR_INV_BITMAP;
    Bands* changed = nullptr;
    R_TRY(bands->changeHeight(height, &changed));
    if (changed != bands) bands->remove();
    slots.handle = changed;
    return SUCCESS;
}

Status SuperCompressedStore::read(const StoreSlots& slots, const StoreShape& shape, void* bytes, R_INT64 row,
                                  R_INT64 first, R_SIZE count) const noexcept
{
    const Call call(slots);
    R_UINT64 position = 0;
    if (!call.find(shape, row, first, count, &position)) return ERROR_INV_BITMAP;
    return call->read(static_cast<uint8_t*>(bytes), position, count);
}

Status SuperCompressedStore::write(StoreSlots& slots, const StoreShape& shape, const void* bytes, R_INT64 row,
                                   R_INT64 first, R_SIZE count) const noexcept
{
    const Call call(slots);
    R_UINT64 position = 0;
    if (!call.find(shape, row, first, count, &position)) return ERROR_INV_BITMAP;
    return call->write(static_cast<const uint8_t*>(bytes), position, count);
}

uint8_t* SuperCompressedStore::borrow(const StoreSlots& slots, const StoreShape& shape, R_INT64 row,
                                      bool writes) const noexcept
{
    const Call call(slots);
    R_UINT64 position = 0;
    return call.find(shape, row, 0, shape.rowBytes, &position) ? call->borrow(position, writes) : nullptr;
}

Status SuperCompressedStore::settle(const StoreSlots& slots) const noexcept
{
    const Call call(slots);
    if (call) call->rest();
    return SUCCESS;
}

SuperCompressedStore::Usage SuperCompressedStore::usage(const StoreSlots& slots) const noexcept
{
    const Call call(slots);
    return call ? call->usage() : Usage();
}

const RowStore& superCompressedStore() noexcept { return gSuperCompressedStore; }

} // namespace rv
