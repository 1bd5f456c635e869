/// UTF-16 and UTF-8, one character at a time.
///
/// What is not well-formed reads as one U+FFFD for each maximal piece that could have begun a character, so that a
/// broken text keeps its sound parts and can never hide a terminator or a separator.
#pragma once

#include "R_Types.h"

#include <cstddef>

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

} // namespace rv
