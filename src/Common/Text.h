/// Text in buffers of a fixed size: cut to fit, always terminated.
#pragma once

#include "R_Types.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

/// A literal of R_WCHAR units.
#if defined(_WIN32)
#define RV_WIDE(literal) L##literal
#else
#define RV_WIDE(literal) u##literal
#endif

namespace rv {

/// Units before the terminator, at most `limit`; nothing past the limit is read.
template <class Unit> size_t textLength(const Unit* text, size_t limit = SIZE_MAX) noexcept
{
    size_t length = 0;
    while (length < limit && text[length] != 0) ++length;
    return length;
}

/// Writes text into a caller's buffer of `capacity` units, terminator included. What does not fit is dropped; the
/// buffer is terminated after every call. A capacity of 0 is room for nothing, not even a terminator.
template <class Unit> class TextWriter {
public:
    TextWriter(Unit* buffer, size_t capacity) noexcept : buffer_(buffer), capacity_(capacity)
    {
        if (capacity_ > 0) buffer_[0] = 0;
    }

    void append(const Unit* text, size_t length) noexcept
    {
        const size_t fits = length < room() ? length : room();
        cut_ = cut_ || fits < length;
        if (fits == 0) return;
        memcpy(buffer_ + length_, text, fits * sizeof(Unit));
        length_ += fits;
        buffer_[length_] = 0;
    }
    void append(const Unit* text) noexcept { append(text, textLength(text)); }
    void append(Unit unit) noexcept { append(&unit, 1); }
    void fill(Unit unit, size_t count) noexcept
    {
        for (; count > 0 && !cut_; --count) append(unit);
    }
    /// Units that belong together: all or none of them, and nothing after units that were left out.
    void appendWhole(const Unit* units, size_t count) noexcept
    {
        cut_ = cut_ || count > room();
        if (!cut_) append(units, count);
    }
    /// 7-bit text into a buffer of either kind.
    void ascii(const char* text) noexcept
    {
        for (; *text != 0; ++text) append(static_cast<Unit>(static_cast<unsigned char>(*text)));
    }
    void number(R_INT64 value) noexcept
    {
        char digits[24];
        char* first = digits + sizeof(digits);
        *--first = 0;
        // Negative all the way down: the least value has no positive counterpart.
        for (R_INT64 rest = value > 0 ? -value : value;; rest /= 10) {
            *--first = static_cast<char>('0' - rest % 10);
            if (rest > -10) break;
        }
        if (value < 0) *--first = '-';
        ascii(first);
    }

    size_t length() const noexcept { return length_; }
    bool cut() const noexcept { return cut_; }

private:
    size_t room() const noexcept { return capacity_ > 0 ? capacity_ - 1 - length_ : 0; }

    Unit* buffer_;
    size_t capacity_;
    size_t length_ = 0;
    bool cut_ = false;
};

} // namespace rv
