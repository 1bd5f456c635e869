/// Working memory for rows.
#pragma once

#include "Platform/Platform.h"

#include <utility>

namespace rv {

/// Owns `bytes` bytes, aligned to 32, with nothing in them. Test it before use: there may have been no memory.
class RowBuffer {
public:
    RowBuffer() noexcept = default;
    explicit RowBuffer(uint64_t bytes) noexcept
    {
        if (bytes > SIZE_MAX - kAlignment) return;
        block_ = platform().allocate(static_cast<size_t>(bytes) + kAlignment);
        if (block_ == nullptr) return;
        const auto address = reinterpret_cast<uintptr_t>(block_);
        data_ = static_cast<uint8_t*>(block_) + (kAlignment - address % kAlignment);
    }
    RowBuffer(RowBuffer&& other) noexcept
        : block_(std::exchange(other.block_, nullptr)), data_(std::exchange(other.data_, nullptr))
    {
    }
    RowBuffer& operator=(RowBuffer&& other) noexcept
    {
        std::swap(block_, other.block_);
        std::swap(data_, other.data_);
        return *this;
    }
    ~RowBuffer() { platform().release(block_); }

    explicit operator bool() const noexcept { return data_ != nullptr; }
    uint8_t* data() const noexcept { return data_; }

private:
    static constexpr size_t kAlignment = 32;
    void* block_ = nullptr;
    uint8_t* data_ = nullptr;
};

} // namespace rv
