#include "Common/NarrowText.h"

#include "Common/Text.h"
#include "Platform/Unicode.h"

namespace rv {

NarrowArgument::NarrowArgument(const char* text) noexcept
{
    if (text == nullptr) return;
    const size_t needed = platform().wideFromNarrow(place_, kPlace, text);
    if (needed <= kPlace) {
        good_ = needed != 0;
        text_ = good_ ? place_ : nullptr;
        return;
    }
    block_ = static_cast<R_WCHAR*>(platform().allocate(needed * sizeof(R_WCHAR)));
    good_ = block_ != nullptr && platform().wideFromNarrow(block_, needed, text) == needed;
    text_ = good_ ? block_ : nullptr;
}

size_t narrowAnswer(char* buffer, size_t capacity, const R_WCHAR* text) noexcept
{
    const size_t needed = platform().narrowFromWide(buffer, capacity, text);
    if (needed <= capacity || capacity == 0) return needed;
    TextWriter<char> out(buffer, capacity);
    while (*text != 0 && !out.cut()) {
        const R_WCHAR* const first = text;
        nextCharacter(text, nullptr);
        R_WCHAR character[kMaxWideUnits + 1] = {};
        for (const R_WCHAR* from = first; from != text; ++from) character[from - first] = *from;
        char bytes[16];
        const size_t count = platform().narrowFromWide(bytes, sizeof bytes, character);
        if (count == 0 || count > sizeof bytes) break;
        out.appendWhole(bytes, count - 1);
    }
    return needed;
}

} // namespace rv
