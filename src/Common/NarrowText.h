/// 8-bit text of the A forms: the code page on Windows, UTF-8 elsewhere.
#pragma once

#include "Platform/Platform.h"
#include "R_Types.h"

namespace rv {

/// An A form's argument as wide text, for the length of a call: short ones in place, longer ones on the heap. Test it
/// before use: there may have been no memory. Null stays null, and is good.
class NarrowArgument {
public:
    explicit NarrowArgument(const char* text) noexcept;
    ~NarrowArgument() { platform().release(block_); }
    NarrowArgument(const NarrowArgument&) = delete;
    NarrowArgument& operator=(const NarrowArgument&) = delete;

    explicit operator bool() const noexcept { return good_; }
    const R_WCHAR* get() const noexcept { return text_; }

private:
    static constexpr size_t kPlace = 264; // a path of the usual greatest length
    bool good_ = true;
    const R_WCHAR* text_ = nullptr;
    R_WCHAR* block_ = nullptr;
    R_WCHAR place_[kPlace];
};

/// Writes a wide answer into an A form's buffer. The bytes that the whole text takes, its terminator included; more
/// than `capacity`: it was cut between two characters. A capacity of 0 writes nothing, and the buffer may be null.
size_t narrowAnswer(char* buffer, size_t capacity, const R_WCHAR* text) noexcept;

} // namespace rv
