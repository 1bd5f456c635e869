#include "Common/WideUTF8.h"

namespace rv {
namespace {

template <class To, size_t kUnits, class From>
Conversion convert(To* out, size_t capacity, const From* text, size_t length) noexcept
{
    Conversion result;
    TextWriter<To> writer(out, capacity);
    const bool terminated = length == kTerminated;
    const From* const end = terminated ? nullptr : text + length;
    while (terminated ? *text != 0 : text != end) {
        const char32_t character = nextCharacter(text, end);
        result.valid = result.valid && character != kInvalidCharacter;
        To units[kUnits];
        const size_t count = encodeCharacter(character, units);
        result.needed += count;
        writer.appendWhole(units, count);
    }
    result.length = writer.length();
    return result;
}

} // namespace

Conversion utf8FromWide(char* out, size_t capacity, const R_WCHAR* text, size_t length) noexcept
{
    return convert<char, kMaxUtf8Bytes>(out, capacity, text, length);
}

Conversion wideFromUtf8(R_WCHAR* out, size_t capacity, const char* text, size_t length) noexcept
{
    return convert<R_WCHAR, kMaxWideUnits>(out, capacity, text, length);
}

} // namespace rv
