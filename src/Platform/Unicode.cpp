#include "Platform/Unicode.h"

namespace rv {
namespace {

constexpr bool isLeadSurrogate(char32_t unit) noexcept { return unit >= 0xD800 && unit <= 0xDBFF; }
constexpr bool isTrailSurrogate(char32_t unit) noexcept { return unit >= 0xDC00 && unit <= 0xDFFF; }
constexpr bool isScalarValue(char32_t c) noexcept { return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF); }

/// What the first byte of a sequence says about the bytes that follow it. The limits of the second byte shut out
/// overlong forms, surrogates and values past U+10FFFF.
struct Lead {
    int following = -1; // -1: no sequence begins so
    char32_t bits = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
};

constexpr Lead readLead(unsigned char byte) noexcept
{
    if (byte < 0x80) return {0, byte};
    if (byte < 0xC2) return {};
    if (byte < 0xE0) return {1, byte & 0x1Fu};
    if (byte < 0xF0) {
        const unsigned char low = byte == 0xE0 ? 0xA0 : 0x80;
        const unsigned char high = byte == 0xED ? 0x9F : 0xBF;
        return {2, byte & 0x0Fu, low, high};
    }
    if (byte > 0xF4) return {};
    const unsigned char low = byte == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = byte == 0xF4 ? 0x8F : 0xBF;
    return {3, byte & 0x07u, low, high};
}

} // namespace

char32_t nextCharacter(const char*& at, const char* end) noexcept
{
    Lead lead = readLead(static_cast<unsigned char>(*at++));
    if (lead.following < 0) return kInvalidCharacter;
    for (; lead.following > 0; --lead.following, ++at) {
        if (at == end) return kInvalidCharacter;
        const auto byte = static_cast<unsigned char>(*at);
        if (byte < lead.low || byte > lead.high) return kInvalidCharacter; // a terminator, too, stops here
        lead.bits = (lead.bits << 6) | (byte & 0x3Fu);
        lead.low = 0x80;
        lead.high = 0xBF;
    }
    return lead.bits;
}

char32_t nextCharacter(const R_WCHAR*& at, const R_WCHAR* end) noexcept
{
    const char32_t unit = *at++;
    if (!isLeadSurrogate(unit)) return isTrailSurrogate(unit) ? kInvalidCharacter : unit;
    if (at == end || !isTrailSurrogate(*at)) return kInvalidCharacter;
    const char32_t trail = *at++;
    return 0x10000 + ((unit - 0xD800) << 10) + (trail - 0xDC00);
}

size_t encodeCharacter(char32_t character, char (&bytes)[kMaxUtf8Bytes]) noexcept
{
    const char32_t c = isScalarValue(character) ? character : kReplacementCharacter;
    const auto following = [c](int shift) { return static_cast<char>(0x80 | ((c >> shift) & 0x3F)); };
    if (c < 0x80) {
        bytes[0] = static_cast<char>(c);
        return 1;
    }
    if (c < 0x800) {
        bytes[0] = static_cast<char>(0xC0 | (c >> 6));
        bytes[1] = following(0);
        return 2;
    }
    if (c < 0x10000) {
        bytes[0] = static_cast<char>(0xE0 | (c >> 12));
        bytes[1] = following(6);
        bytes[2] = following(0);
        return 3;
    }
    bytes[0] = static_cast<char>(0xF0 | (c >> 18));
    bytes[1] = following(12);
    bytes[2] = following(6);
    bytes[3] = following(0);
    return 4;
}

size_t encodeCharacter(char32_t character, R_WCHAR (&units)[kMaxWideUnits]) noexcept
{
    const char32_t c = isScalarValue(character) ? character : kReplacementCharacter;
    if (c < 0x10000) {
        units[0] = static_cast<R_WCHAR>(c);
        return 1;
    }
    units[0] = static_cast<R_WCHAR>(0xD800 + ((c - 0x10000) >> 10));
    units[1] = static_cast<R_WCHAR>(0xDC00 + ((c - 0x10000) & 0x3FF));
    return 2;
}

} // namespace rv
