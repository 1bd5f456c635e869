#include "Common/Format.h"

#include "Common/WideUTF8.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#if defined(_WIN32)
#include <locale.h>
#endif

namespace rv {
namespace {

/// Numbers are formatted in a piece of this size; more of one number is not shown.
constexpr int kPieceChars = 2048;

enum class Size { none, hh, h, l, ll, j, z, t, longDouble, w };

/// One % conversion, taken apart.
struct Directive {
    char flags[6] = {}; // each of "-+ #0" once
    bool leftAligned = false;
    int width = 0;
    int precision = -1; // none
    Size size = Size::none;
    char kind = 0;
};

/// An argument list that can travel by reference: a va_list may be an array, which would decay.
struct Arguments {
    explicit Arguments(va_list from) noexcept { va_copy(list, from); }
    ~Arguments() { va_end(list); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;
    va_list list;
};

constexpr int clamp(int value) noexcept
{
    return value < -kPieceChars ? -kPieceChars : value > kPieceChars ? kPieceChars : value;
}

template <class Unit> class Formatter {
public:
    Formatter(TextWriter<Unit>& out, va_list arguments, const NarrowEncoding& narrow, Unencodable unencodable) noexcept
        : out_(out), arguments_(arguments), narrow_(narrow), unencodable_(unencodable)
    {
    }

    bool run(const Unit* format) noexcept
    {
        while (*format != 0 && !failed_) {
            if (*format != '%') {
                out_.append(*format++);
                continue;
            }
            const Unit* const start = format++;
            Directive directive;
            if (!parse(format, directive) || !write(directive)) {
                out_.append(*start);
                format = start + 1;
            }
        }
        return !failed_;
    }

private:
    using Other = std::conditional_t<std::is_same_v<Unit, char>, R_WCHAR, char>;
    static constexpr bool kNarrow = std::is_same_v<Unit, char>;

    // --- Parsing

    static bool contains(const char* set, Unit unit) noexcept
    {
        for (; *set != 0; ++set)
            if (unit == static_cast<Unit>(*set)) return true;
        return false;
    }

    bool parse(const Unit*& at, Directive& directive) noexcept
    {
        for (size_t count = 0; contains("-+ #0", *at); ++at) {
            const char flag = static_cast<char>(*at);
            directive.leftAligned = directive.leftAligned || flag == '-';
            if (textLength(directive.flags) == count && !contains(directive.flags, *at))
                directive.flags[count++] = flag;
        }
        directive.width = number(at, 0);
        if (directive.width < 0) {
            directive.leftAligned = true;
            directive.width = -directive.width;
        }
        if (*at == '.') {
            ++at;
            directive.precision = number(at, 0);
            if (directive.precision < 0) directive.precision = -1;
        }
        directive.size = size(at);
        if (*at == 0 || static_cast<char32_t>(*at) > 0x7F) return false;
        directive.kind = static_cast<char>(*at++);
        return true;
    }

    int number(const Unit*& at, int value) noexcept
    {
        if (*at == '*') {
            ++at;
            return clamp(va_arg(arguments_.list, int));
        }
        for (; *at >= '0' && *at <= '9'; ++at) value = clamp(value * 10 + static_cast<int>(*at - '0'));
        return value;
    }

    static bool take(const Unit*& at, const char* text) noexcept
    {
        const Unit* end = at;
        for (; *text != 0; ++text, ++end)
            if (*end != static_cast<Unit>(*text)) return false;
        at = end;
        return true;
    }

    static Size size(const Unit*& at) noexcept
    {
        if (take(at, "hh")) return Size::hh;
        if (take(at, "h")) return Size::h;
        if (take(at, "ll") || take(at, "I64")) return Size::ll;
        if (take(at, "l")) return Size::l;
        if (take(at, "I32")) return Size::none;
        if (take(at, "z") || take(at, "I")) return Size::z;
        if (take(at, "j")) return Size::j;
        if (take(at, "t")) return Size::t;
        if (take(at, "L")) return Size::longDouble;
        if (take(at, "w")) return Size::w;
        return Size::none;
    }

    // --- Writing

    bool write(const Directive& directive) noexcept
    {
        switch (directive.kind) {
        case '%': out_.append(static_cast<Unit>('%')); return true;
        case 'd':
        case 'i': writeSigned(directive); return true;
        case 'u':
        case 'o':
        case 'x':
        case 'X': writeUnsigned(directive); return true;
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
        case 'a':
        case 'A': writeFloating(directive); return true;
        case 'p': writePointer(directive); return true;
        case 's':
        case 'S': takesOther(directive) ? writeText<Other>(directive) : writeText<Unit>(directive); return true;
        case 'c':
        case 'C': takesOther(directive) ? writeOtherCharacter(directive) : writeOwnCharacter(directive); return true;
        case 'n': (void)va_arg(arguments_.list, void*); return true;
        default: return false;
        }
    }

    /// Prints one value through the C library: "%", the flags, width and precision by argument, modifier and kind.
    template <class Value> void print(const Directive& directive, const char* modifier, Value value) noexcept
    {
        char form[24];
        TextWriter<char> spelled(form, sizeof(form));
        spelled.ascii("%");
        spelled.ascii(directive.flags);
        if (directive.leftAligned) spelled.ascii("-");
        spelled.ascii("*.*");
        spelled.ascii(modifier);
        spelled.append(directive.kind);
        char piece[kPieceChars];
        if (std::snprintf(piece, sizeof(piece), form, directive.width, directive.precision, value) > 0)
            out_.ascii(piece);
    }

    void writeSigned(const Directive& directive) noexcept
    {
        va_list& list = arguments_.list;
        long long value = 0;
        switch (directive.size) {
        case Size::hh: value = static_cast<signed char>(va_arg(list, int)); break;
        case Size::h: value = static_cast<short>(va_arg(list, int)); break;
        case Size::l: value = va_arg(list, long); break;
        case Size::ll: value = va_arg(list, long long); break;
        case Size::j: value = va_arg(list, intmax_t); break;
        case Size::z:
        case Size::t: value = va_arg(list, ptrdiff_t); break;
        default: value = va_arg(list, int); break;
        }
        print(directive, "ll", value);
    }

    void writeUnsigned(const Directive& directive) noexcept
    {
        va_list& list = arguments_.list;
        unsigned long long value = 0;
        switch (directive.size) {
        case Size::hh: value = static_cast<unsigned char>(va_arg(list, unsigned)); break;
        case Size::h: value = static_cast<unsigned short>(va_arg(list, unsigned)); break;
        case Size::l: value = va_arg(list, unsigned long); break;
        case Size::ll: value = va_arg(list, unsigned long long); break;
        case Size::j: value = va_arg(list, uintmax_t); break;
        case Size::z:
        case Size::t: value = va_arg(list, size_t); break;
        default: value = va_arg(list, unsigned); break;
        }
        print(directive, "ll", value);
    }

    void writeFloating(const Directive& directive) noexcept
    {
        if (directive.size == Size::longDouble)
            print(directive, "L", va_arg(arguments_.list, long double));
        else
            print(directive, "", va_arg(arguments_.list, double));
    }

    /// Without a precision, not even one that says "none": with one, Windows drops the leading zeros.
    void writePointer(const Directive& directive) noexcept
    {
        const char* const form = directive.leftAligned ? "%-*p" : "%*p";
        char piece[kPieceChars];
        if (std::snprintf(piece, sizeof(piece), form, directive.width, va_arg(arguments_.list, void*)) > 0)
            out_.ascii(piece);
    }

    // --- Text

    /// Whether a text or character argument is of the kind that the format is not.
    bool takesOther(const Directive& directive) const noexcept
    {
        if (directive.size == Size::h) return !kNarrow;
        if (directive.size == Size::l || directive.size == Size::w) return kNarrow;
        return directive.kind == 'S' || directive.kind == 'C';
    }

    template <class Source> void writeText(const Directive& directive) noexcept
    {
        const Source* const text = va_arg(arguments_.list, const Source*);
        const size_t limit = directive.precision < 0 ? SIZE_MAX : static_cast<size_t>(directive.precision);
        if (text == nullptr) {
            constexpr Unit kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
            writeAligned(directive, kNull, limit);
        } else {
            writeAligned(directive, text, limit);
        }
    }

    template <class Source> void writeAligned(const Directive& directive, const Source* text, size_t limit) noexcept
    {
        const size_t width = static_cast<size_t>(directive.width);
        const size_t length = width > 0 ? copy(text, limit, false) : 0; // without a width there is nothing to align
        const size_t padding = width > length ? width - length : 0;
        if (!directive.leftAligned) out_.fill(' ', padding);
        copy(text, limit, true);
        if (directive.leftAligned) out_.fill(' ', padding);
    }

    /// Returns the units that text takes in the output, at most `limit`, and writes them if asked to.
    size_t copy(const Unit* text, size_t limit, bool write) noexcept
    {
        const size_t length = textLength(text, limit);
        if (write) out_.append(text, length);
        return length;
    }
    size_t copy(const Other* text, size_t limit, bool write) noexcept
    {
        size_t length = 0;
        // The limit is looked at first: a text with a precision need not be terminated.
        while (length < limit && *text != 0 && !failed_) {
            Unit units[NarrowEncoding::kMaxBytes];
            const size_t count = convert(text, nullptr, units);
            if (count > limit - length) break;
            length += count;
            if (write) out_.appendWhole(units, count);
        }
        return length;
    }

    /// Takes one character of the other kind and gives its units in the output.
    size_t convert(const Other*& at, const Other* end, Unit (&units)[NarrowEncoding::kMaxBytes]) noexcept
    {
        char32_t character;
        if constexpr (kNarrow)
            character = nextCharacter(at, end);
        else
            character = narrow_.next(at, end);
        return encode(character, units);
    }

    size_t encode(char32_t character, Unit (&units)[NarrowEncoding::kMaxBytes]) noexcept
    {
        if (character == kInvalidCharacter) {
            failed_ = failed_ || unencodable_ == Unencodable::fail;
            character = kReplacementCharacter;
        }
        if constexpr (kNarrow) {
            const size_t count = narrow_.encode(character, units);
            if (count > 0) return count;
            failed_ = failed_ || unencodable_ == Unencodable::fail;
            units[0] = '?';
            return 1;
        } else {
            R_WCHAR pair[kMaxWideUnits] = {};
            const size_t count = encodeCharacter(character, pair);
            units[0] = pair[0];
            units[1] = pair[1];
            return count;
        }
    }

    void writeOwnCharacter(const Directive& directive) noexcept
    {
        const Unit text = static_cast<Unit>(va_arg(arguments_.list, int));
        writeUnits(directive, &text, 1);
    }

    void writeOtherCharacter(const Directive& directive) noexcept
    {
        const int value = va_arg(arguments_.list, int);
        Unit units[NarrowEncoding::kMaxBytes];
        size_t count;
        if constexpr (kNarrow) {
            count = encode(static_cast<char32_t>(value), units);
        } else {
            const char byte = static_cast<char>(value);
            const char* at = &byte;
            count = convert(at, &byte + 1, units);
        }
        writeUnits(directive, units, count);
    }

    void writeUnits(const Directive& directive, const Unit* units, size_t count) noexcept
    {
        const size_t width = static_cast<size_t>(directive.width);
        const size_t padding = width > count ? width - count : 0;
        if (!directive.leftAligned) out_.fill(' ', padding);
        out_.appendWhole(units, count);
        if (directive.leftAligned) out_.fill(' ', padding);
    }

    TextWriter<Unit>& out_;
    Arguments arguments_;
    const NarrowEncoding& narrow_;
    Unencodable unencodable_;
    bool failed_ = false;
};

} // namespace

#if defined(_WIN32)

NarrowEncoding::NarrowEncoding(const char* localeName) noexcept : locale_(_create_locale(LC_ALL, localeName)) {}
NarrowEncoding::~NarrowEncoding()
{
    if (locale_ != nullptr) _free_locale(static_cast<_locale_t>(locale_));
}

char32_t NarrowEncoding::next(const char*& at, const char* end) const noexcept
{
    wchar_t unit = 0;
    const auto locale = static_cast<_locale_t>(locale_);
    // The byte behind is looked at only where it belongs to the character: a text that a precision bounds may end here.
    const bool isPair = _isleadbyte_l(static_cast<unsigned char>(*at), locale) != 0;
    const size_t available = isPair && (end == nullptr ? at[1] != 0 : end - at > 1) ? 2 : 1;
    const int bytes = isPair && available == 1 ? -1 : _mbtowc_l(&unit, at, available, locale);
    at += bytes > 1 ? bytes : 1;
    return bytes < 0 ? kInvalidCharacter : unit;
}

size_t NarrowEncoding::encode(char32_t character, char (&bytes)[kMaxBytes]) const noexcept
{
    if (character > 0xFFFF) return 0; // code pages end there
    const int count = _wctomb_l(bytes, static_cast<wchar_t>(character), static_cast<_locale_t>(locale_));
    return count > 0 ? static_cast<size_t>(count) : 0;
}

#else

char32_t NarrowEncoding::next(const char*& at, const char* end) const noexcept { return nextCharacter(at, end); }

size_t NarrowEncoding::encode(char32_t character, char (&bytes)[kMaxBytes]) const noexcept
{
    char utf8[kMaxUtf8Bytes];
    const size_t count = encodeCharacter(character, utf8);
    memcpy(bytes, utf8, count);
    return count;
}

#endif

bool formatText(TextWriter<char>& out, const char* format, va_list arguments, const NarrowEncoding& narrow,
                Unencodable unencodable) noexcept
{
    return Formatter<char>(out, arguments, narrow, unencodable).run(format);
}

bool formatText(TextWriter<R_WCHAR>& out, const R_WCHAR* format, va_list arguments, const NarrowEncoding& narrow,
                Unencodable unencodable) noexcept
{
    return Formatter<R_WCHAR>(out, arguments, narrow, unencodable).run(format);
}

} // namespace rv
