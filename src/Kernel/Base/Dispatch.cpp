// What a status says and whom it speaks of; what the toolkit's modules are called.

#include "Kernel/Base/Dispatch.h"

#include "Common/Text.h"
#include "R_Services.h"
#include "R_Status.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

namespace rv {
namespace {

// --- Texts

/// Where messages send a reader who needs more than a line.
constexpr char kHelpAddress[] = "the documentation, chapter Licensing";

constexpr char kUnknownText[] = "Internal or Unrecognized Error!";
constexpr char kMissingModuleText[] = "The %s library is missing.";
constexpr char kLicenceText[] = "The licence in use does not allow this operation.\r\nFor more information see %s";

enum class TextKind : uint8_t { plain, help, module };

struct StatusText {
    R_INT code;
    TextKind kind;
    const char* text;
};

constexpr StatusText kStatusTexts[] = {
#define T(code, text) {code, TextKind::plain, text},
#define H(code, text) {code, TextKind::help, text},
#define M(code, text) {code, TextKind::module, text},
#define L(code) {code, TextKind::help, kLicenceText},
#include "Kernel/Base/StatusTexts.inc"
#undef T
#undef H
#undef M
#undef L
};

constexpr R_INT kFirstCode = -1962;
constexpr R_INT kLastCode = 104;

constexpr bool ascendsInRange() noexcept
{
    R_INT before = kFirstCode - 1;
    for (const StatusText& entry : kStatusTexts) {
        if (entry.code <= before || entry.code > kLastCode) return false;
        before = entry.code;
    }
    return true;
}
static_assert(ascendsInRange(), "status texts stand in ascending order, each code once");

/// A text with a place for an argument has one, any other none; a stray % would be taken for one.
constexpr bool argumentsMatchKinds() noexcept
{
    for (const StatusText& entry : kStatusTexts) {
        int places = 0;
        for (const char* at = entry.text; *at != 0; ++at) {
            if (*at != '%') continue;
            if (at[1] != 's') return false;
            ++places;
        }
        if (places != (entry.kind == TextKind::plain ? 0 : 1)) return false;
    }
    return true;
}
static_assert(argumentsMatchKinds(), "a status text has %s where its kind has an argument, and nowhere else");

static_assert(std::size(kStatusTexts) < 0xFFFF, "a slot holds the entry's number");
using SlotTable = std::array<uint16_t, kLastCode - kFirstCode + 1>;

/// For each code the number of its entry plus 1, so that 0 can mean "no text".
constexpr SlotTable makeSlots() noexcept
{
    SlotTable slots{};
    for (size_t i = 0; i < std::size(kStatusTexts); ++i)
        slots[static_cast<size_t>(kStatusTexts[i].code - kFirstCode)] = static_cast<uint16_t>(i + 1);
    return slots;
}
constexpr SlotTable kSlots = makeSlots();

const StatusText* textOf(R_INT code) noexcept
{
    if (code < kFirstCode || code > kLastCode) return nullptr;
    const uint16_t slot = kSlots[static_cast<size_t>(code - kFirstCode)];
    return slot != 0 ? &kStatusTexts[slot - 1] : nullptr;
}

// --- Modules

constexpr R_INT kNoModule = -1;

struct Origin {
    R_INT feature = 0;
    R_INT module = kNoModule;
};

constexpr Origin originOf(R_INT code) noexcept
{
    switch (code) {
#define E(code, feature, module)                                                                                       \
    case code:                                                                                                         \
        return {feature, module};
#include "Kernel/Base/ErrorModules.inc"
#undef E
    default: return {};
    }
}

constexpr const char* kModuleNames[] = {
#define M(number, name) name,
#include "Kernel/Base/Modules.inc"
#undef M
};

struct Filter {
    const char* name; ///< of the filter; null where a module serves the format
    R_INT module;
};

constexpr Filter kFilters[] = {
#define F(number, name) {name, kNoModule},
#define S(number, module) {nullptr, module},
#include "Kernel/Base/Filters.inc"
#undef F
#undef S
};

constexpr bool numbersAreIndexes() noexcept
{
    constexpr int modules[] = {
#define M(number, name) number,
#include "Kernel/Base/Modules.inc"
#undef M
    };
    constexpr int formats[] = {
#define F(number, name) number,
#define S(number, module) number,
#include "Kernel/Base/Filters.inc"
#undef F
#undef S
    };
    int next = 0;
    for (const int number : modules)
        if (number != next++) return false;
    next = 0;
    for (const int number : formats)
        if (number != next++) return false;
    return true;
}
static_assert(numbersAreIndexes(), "modules and formats stand in the order of their numbers, without a gap");

constexpr R_INT kKernelModule = 0;
constexpr R_INT kPdfModule = 8;
constexpr R_INT kPdfFormat = 0;
constexpr R_INT kPlainSuffixModule = 55; ///< the one module whose file does not end in X
constexpr char kFilterPrefix[] = "rf";

/// A number past the table, or without a name in it, has none.
const char* moduleName(R_INT module) noexcept
{
    return module >= 0 && static_cast<size_t>(module) < std::size(kModuleNames) ? kModuleNames[module] : "";
}

struct LibName {
    const char* prefix = "";
    const char* base = ""; ///< empty: no such module
    const char* suffix = "";
};

LibName moduleLibName(R_INT module) noexcept
{
    return {"", moduleName(module), module == kPlainSuffixModule ? ".DLL" : "X.DLL"};
}

LibName filterLibName(R_INT format) noexcept
{
    if (format < 0 || static_cast<size_t>(format) >= std::size(kFilters)) return {};
    const Filter& filter = kFilters[format];
    return filter.name != nullptr ? LibName{kFilterPrefix, filter.name, "X.DLL"} : moduleLibName(filter.module);
}

LibName libNameOf(R_INT module, R_INT format) noexcept
{
    if (module == kPdfModule) return filterLibName(kPdfFormat);
    if (module == kKernelModule && format != 0) return filterLibName(format);
    return moduleLibName(module);
}

/// The codes that a module or a feature is behind.
constexpr R_INT kOriginCodes[] = {
#define E(code, feature, module) code,
#include "Kernel/Base/ErrorModules.inc"
#undef E
};

/// Whether a file is called as a module is; its ending may be another.
bool isFileOf(const R_WCHAR* fileName, const LibName& module) noexcept
{
    if (*module.base == 0) return false;
    for (const char* part : {module.prefix, module.base})
        for (; *part != 0; ++part, ++fileName)
            if (*fileName != static_cast<R_WCHAR>(*part)) return false;
    if (*fileName == 'X') ++fileName;
    return *fileName == 0 || *fileName == '.';
}

// --- Messages

template <class Unit> void writeModule(TextWriter<Unit>& out, R_INT module) noexcept
{
    if (module == kNoModule) return;
    const char* const name = moduleName(module);
    if (*name != 0)
        out.ascii(name);
    else
        out.number(module); // a sibling newer than this kernel's table
}

template <class Unit> void writeMessage(TextWriter<Unit>& out, R_INT code) noexcept
{
    const R_INT module = originOf(code).module;
    const StatusText* const entry = textOf(code);
    const char* text = entry != nullptr ? entry->text : module != kNoModule ? kMissingModuleText : kUnknownText;
    for (; *text != 0; ++text) {
        if (*text != '%') {
            out.append(static_cast<Unit>(*text));
            continue;
        }
        ++text; // the s
        if (entry != nullptr && entry->kind == TextKind::help)
            out.ascii(kHelpAddress);
        else
            writeModule(out, module);
    }
}

/// No message is longer, however large the caller's buffer is.
constexpr size_t kMessageUnits = 1024;

template <class Unit> R_INT friendlyMessage(R_INT code, Unit* buffer, R_UINT units) noexcept
{
    if (buffer == nullptr || units == 0) return ERROR_INV_PARAMETER;
    TextWriter<Unit> out(buffer, std::min<size_t>(units, kMessageUnits));
    writeMessage(out, code);
    return SUCCESS;
}

} // namespace

R_INT moduleOfFile(const R_WCHAR* fileName) noexcept
{
    for (R_INT module = 0; static_cast<size_t>(module) < std::size(kModuleNames); ++module)
        if (isFileOf(fileName, moduleLibName(module))) return module;
    return isFileOf(fileName, filterLibName(kPdfFormat)) ? kPdfModule : kNoModule;
}

R_INT missingModuleStatus(R_INT module) noexcept
{
    if (module == kNoModule) return ERROR_FEATURE_NOT_SUPPORTED;
    for (const R_INT code : kOriginCodes)
        if (originOf(code).module == module && textOf(code) == nullptr) return code;
    return ERROR_FEATURE_NOT_SUPPORTED;
}

} // namespace rv

R_INT R_GetFriendlyErrorMessage(R_INT nCode, R_WCHAR* pszBuffer, R_UINT uBufferChars, R_UINT) noexcept
{
    return rv::friendlyMessage(nCode, pszBuffer, uBufferChars);
}

// The texts are 7-bit, so they are the same bytes in UTF-8 and in every code page.
R_INT R_GetFriendlyErrorMessageA(R_INT nCode, char* pszBuffer, R_UINT uBufferChars, R_UINT) noexcept
{
    return rv::friendlyMessage(nCode, pszBuffer, uBufferChars);
}

R_INT R_GetLibIdFromErrorCode(R_INT nCode, R_INT* pnFeature, R_INT* pnLibId) noexcept
{
    if (pnFeature == nullptr || pnLibId == nullptr) return ERROR_INV_PARAMETER;
    const rv::Origin origin = rv::originOf(nCode);
    *pnFeature = origin.feature;
    *pnLibId = origin.module;
    return SUCCESS;
}

R_INT R_GetLibName(R_UINT uFlags, R_INT nLibId, R_INT nFormatId, R_WCHAR* pszBuffer, R_UINT uBufferChars) noexcept
{
    if (pszBuffer == nullptr || uBufferChars == 0) return ERROR_INV_PARAMETER;
    const rv::LibName name = rv::libNameOf(nLibId, nFormatId);
    if (*name.base == 0) return ERROR_FEATURE_NOT_SUPPORTED;
    const bool bare = (uFlags & LIBNAME_BARE) != 0;
    rv::TextWriter<R_WCHAR> out(pszBuffer, uBufferChars);
    if (!bare) out.ascii(name.prefix);
    out.ascii(name.base);
    if (!bare && (uFlags & LIBNAME_NO_SUFFIX) == 0) out.ascii(name.suffix);
    return SUCCESS;
}
