/// UTF-16 and UTF-8: characters one by one, conversion into buffers, and text converted for the length of a call.
///
/// What is not well-formed reads as one U+FFFD for each maximal piece that could have begun a character, so that a
/// broken text keeps its sound parts and can never hide a terminator or a separator.
#pragma once

#include "Common/Text.h"
#include "Platform/Platform.h"
#include "R_Types.h"

namespace rv {

inline constexpr char32_t kReplacementCharacter = 0xFFFD;
/// What reading answers for a piece that is not well-formed.
inline constexpr char32_t kInvalidCharacter = 0xFFFFFFFF;

/// Takes one character from *at on and moves past it, by at least one unit. end null: the text ends at its
/// terminator, and nothing past that is read.
char32_t nextCharacter(const char*& at, const char* end) noexcept;
char32_t nextCharacter(const R_WCHAR*& at, const R_WCHAR* end) noexcept;

inline constexpr size_t kMaxUtf8Bytes = 4;
inline constexpr size_t kMaxWideUnits = 2;

/// Write one character; return the units used. Anything but a Unicode scalar value is written as U+FFFD.
size_t encodeCharacter(char32_t character, char (&bytes)[kMaxUtf8Bytes]) noexcept;
size_t encodeCharacter(char32_t character, R_WCHAR (&units)[kMaxWideUnits]) noexcept;

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
