/// Movable memory that a record will own: palettes, extra data, lists.
#pragma once

#include "Platform/Platform.h"

#include <utility>

namespace rv {

/// Owns one movable, zero-filled block until a record adopts it. Empty when there was no memory.
template <class T> class MovableBlock {
public:
    MovableBlock() noexcept = default;
    /// count entries of zeros, locked.
    static MovableBlock zeroed(size_t count) noexcept
    {
        MovableBlock block;
        if (count > SIZE_MAX / sizeof(T)) return block;
        block.handle_ = platform().allocateMovable(count * sizeof(T));
        if (block.handle_ != nullptr) block.data_ = static_cast<T*>(platform().lockMovable(block.handle_));
        return block;
    }
    MovableBlock(MovableBlock&& other) noexcept
        : handle_(std::exchange(other.handle_, nullptr)), data_(std::exchange(other.data_, nullptr))
    {
    }
    MovableBlock& operator=(MovableBlock&&) = delete;
    ~MovableBlock() // which may have a handle and no address: a block can fail to lock
    {
        if (data_ != nullptr) platform().unlockMovable(handle_);
        platform().freeMovable(handle_);
    }

    explicit operator bool() const noexcept { return data_ != nullptr; }
    T* data() const noexcept { return data_; }

    /// Hands the block over; who takes the address frees it with free().
    [[nodiscard]] T* detach() noexcept
    {
        handle_ = nullptr;
        return std::exchange(data_, nullptr);
    }

    /// Frees a block that a record owned; null is ignored.
    static void free(T* data) noexcept
    {
        if (data == nullptr) return;
        void* const handle = platform().movableHandle(data);
        platform().unlockMovable(handle);
        platform().freeMovable(handle);
    }

private:
    void* handle_ = nullptr;
    T* data_ = nullptr;
};

} // namespace rv
