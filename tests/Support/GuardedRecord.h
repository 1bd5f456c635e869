/// Memory with unreadable pages around it: one byte too far is a fault, not a wrong result.
#pragma once

#include "R_Bitmap.h"

#include <cstddef>
#include <cstdint>

namespace rv::test {

/// `bytes` bytes between two unreadable pages. They end at the one behind (Side::end: all lengths together give every
/// alignment of the start) or start at the one before (Side::start, on a page boundary). Filled with kFresh.
class GuardedBuffer {
public:
    enum class Side { start, end };
    static constexpr uint8_t kFresh = 0xCD;

    explicit GuardedBuffer(size_t bytes, Side side = Side::end);
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    uint8_t* begin() const { return data_; }
    uint8_t* end() const { return data_ + size_; }
    void fill(uint8_t value) const;

private:
    uint8_t* data_ = nullptr;
    size_t size_ = 0;
    uint8_t* block_ = nullptr; // with its guard pages
    size_t blockBytes_ = 0;
};

/// A bitmap record of exactly structSize bytes (284 or 228) that ends at an unreadable page. Its content is kFresh
/// bytes until a call fills it; the pixels are the test's to free.
class GuardedRecord {
public:
    explicit GuardedRecord(R_UINT structSize) : memory_(structSize) {}
    BITMAPHANDLE* get() const { return reinterpret_cast<BITMAPHANDLE*>(memory_.data()); }
    BITMAPHANDLE* operator->() const { return get(); }
    operator BITMAPHANDLE*() const { return get(); }
    R_UINT structSize() const { return static_cast<R_UINT>(memory_.size()); }

private:
    GuardedBuffer memory_;
};

} // namespace rv::test
