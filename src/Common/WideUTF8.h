/// UTF-16 and UTF-8: conversion into buffers, and text converted for the length of a call. What is not well-formed is
/// replaced as Unicode.h says.
#pragma once

#include "Common/Text.h"
#include "Platform/Platform.h"
#include "Platform/Unicode.h"
#include "R_Types.h"

namespace rv {

/// A length that says: up to the terminator.
inline constexpr size_t kTerminated = SIZE_MAX;

struct Conversion {
    size_t length = 0; ///< units written, without the terminator
    size_t needed = 0; ///< units that the whole text takes
    bool valid = true; ///< nothing had to be replaced
    bool whole() const noexcept { return length == needed; }
};

/// Convert into a buffer of `capacity` units, terminated. A text that does not fit is cut between two characters.
/// With capacity 0 nothing is written, and the buffer may be null: the text is measured. A length other than
/// kTerminated counts units, terminators among them.
Conversion utf8FromWide(char* out, size_t capacity, const R_WCHAR* text, size_t length = kTerminated) noexcept;
Conversion wideFromUtf8(R_WCHAR* out, size_t capacity, const char* text, size_t length = kTerminated) noexcept;

inline Conversion convertText(char* out, size_t capacity, const R_WCHAR* text) noexcept
{
    return utf8FromWide(out, capacity, text);
}
inline Conversion convertText(R_WCHAR* out, size_t capacity, const char* text) noexcept
{
    return wideFromUtf8(out, capacity, text);
}

/// A terminated text in the other encoding, for the length of a call: short ones in place, longer ones on the heap.
/// Test it before use: there may have been no memory.
template <class To, class From> class ConvertedText {
public:
    /// text may not be null.
    explicit ConvertedText(const From* text) noexcept
    {
        const Conversion first = convertText(place_, kPlace, text);
        length_ = first.needed;
        valid_ = first.valid;
        if (first.whole()) {
            text_ = place_;
            return;
        }
        if (first.needed >= SIZE_MAX / sizeof(To)) return;
        block_ = static_cast<To*>(platform().allocate((first.needed + 1) * sizeof(To)));
        if (block_ == nullptr) return;
        convertText(block_, first.needed + 1, text);
        text_ = block_;
    }
    ~ConvertedText() { platform().release(block_); }
    ConvertedText(const ConvertedText&) = delete;
    ConvertedText& operator=(const ConvertedText&) = delete;

    explicit operator bool() const noexcept { return text_ != nullptr; }
    const To* get() const noexcept { return text_; }
    size_t length() const noexcept { return length_; }
    /// Whether the text was well-formed.
    bool valid() const noexcept { return valid_; }

private:
    static constexpr size_t kPlace = 264; // a path of the usual greatest length
    const To* text_ = nullptr;
    To* block_ = nullptr;
    size_t length_ = 0;
    bool valid_ = true;
    To place_[kPlace];
};

using WideText = ConvertedText<R_WCHAR, char>;
using Utf8Text = ConvertedText<char, R_WCHAR>;

} // namespace rv
