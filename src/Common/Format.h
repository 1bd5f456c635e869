/// printf-style formatting into a fixed buffer, in narrow and in wide text, without memory of its own.
#pragma once

#include "Common/Text.h"
#include "R_Types.h"

#include <cstdarg>

namespace rv {

/// How narrow text is encoded: UTF-8; on Windows a locale of the C runtime.
class NarrowEncoding {
public:
    static constexpr size_t kMaxBytes = 8;

    /// The encoding in force.
    NarrowEncoding() noexcept = default;
    NarrowEncoding(const NarrowEncoding&) = delete;
    NarrowEncoding& operator=(const NarrowEncoding&) = delete;
#if defined(_WIN32)
    /// That of a named locale. It is used beside the one in force, which other threads go on using: the runtime's
    /// locale belongs to the whole process.
    explicit NarrowEncoding(const char* localeName) noexcept;
    ~NarrowEncoding();
    bool available() const noexcept { return locale_ != nullptr; }
#endif

    /// As nextCharacter() for narrow text.
    char32_t next(const char*& at, const char* end) const noexcept;
    /// Returns the bytes used; 0: the encoding has no such character.
    size_t encode(char32_t character, char (&bytes)[kMaxBytes]) const noexcept;

private:
#if defined(_WIN32)
    void* locale_ = nullptr;
#endif
};

enum class Unencodable {
    fail,    ///< formatting ends at the first character that cannot be converted
    replace, ///< U+FFFD or, where the encoding has none, a question mark stands for it
};

/// Formats as printf does, with these rules: %s and %c take text of the format's own kind, %S and %C of the other
/// kind; with h (%hs) it is narrow and with l or w (%ls) wide in either, and wide text is R_WCHAR on every platform.
/// A null text reads "(null)". A precision counts units of the output and cuts converted text between characters.
/// %n takes its argument and stores nothing. What is no conversion is copied as it stands.
/// Returns whether every text could be converted.
bool formatText(TextWriter<char>& out, const char* format, va_list arguments, const NarrowEncoding& narrow,
                Unencodable unencodable) noexcept;
bool formatText(TextWriter<R_WCHAR>& out, const R_WCHAR* format, va_list arguments, const NarrowEncoding& narrow,
                Unencodable unencodable) noexcept;

} // namespace rv
