// What a status says and whom it speaks of; what modules are called.
#include "Common/Text.h"
#include "R_Kernel.h"
#include "Support/GuardedRecord.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace {

using rv::test::GuardedBuffer;

const std::string kUnknown = "Internal or Unrecognized Error!";
const std::string kHelp = "the documentation, chapter Licensing";

std::string narrowed(const R_WCHAR* text)
{
    std::string out;
    for (; *text != 0; ++text) out += *text < 0x80 ? static_cast<char>(*text) : '?';
    return out;
}

std::string message(R_INT code)
{
    R_WCHAR wide[1024];
    char narrow[1024];
    EXPECT_EQ(R_GetFriendlyErrorMessage(code, wide, 1024, 0), SUCCESS) << code;
    EXPECT_EQ(R_GetFriendlyErrorMessageA(code, narrow, 1024, 0), SUCCESS) << code;
    EXPECT_EQ(narrowed(wide), narrow) << code;
    return narrow;
}

TEST(Messages, Known)
{
    const struct {
        R_INT code;
        const char* text;
    } cases[] = {
        {-1962, "PDF attachment not found"},
        {-1868, "The  library is invalid or out of date."}, // no module is known: its name is empty
        {-900, "Failed to load "},
        {-825, "The rvpdf library is missing."},
        {-824, "The 83 library is missing."}, // a module without a name
        {-13, "Invalid parameter passed"},
        {-3, "Not enough memory available"},
        {-1, "Not enough memory available"},
        {0, "Function not successful"},
        {1, "Success"},
    };
    for (const auto& c : cases) EXPECT_EQ(message(c.code), c.text) << c.code;
    EXPECT_TRUE(message(-16).ends_with("functionality.\r\nFor more information see " + kHelp));
    for (const R_INT code : {INT_MIN, -1963, -1945, -26, -818, -353, 9, 50, 99, 105, INT_MAX})
        EXPECT_EQ(message(code), kUnknown) << code;
}

uint64_t digestOf(const std::string& text, uint64_t digest) // FNV-1a, with the terminator
{
    for (size_t i = 0; i <= text.size(); ++i)
        digest = (digest ^ static_cast<unsigned char>(text.c_str()[i])) * 0x100000001B3u;
    return digest;
}

/// One digest over all texts and whom they speak of: what changed by accident shows, wherever it stands.
TEST(Messages, NoneIsLostOrChanged)
{
    uint64_t digest = 0xCBF29CE484222325u;
    for (R_INT code = -2100; code <= 300; ++code) {
        R_INT feature = 99, module = 99;
        ASSERT_EQ(R_GetLibIdFromErrorCode(code, &feature, &module), SUCCESS);
        const std::string text = message(code);
        EXPECT_EQ(text.find('%'), std::string::npos) << code;
        digest = digestOf(std::to_string(code) + text + std::to_string(feature) + ',' + std::to_string(module), digest);
    }
    EXPECT_EQ(digest, 0xA739005E32762CFBu);
    R_INT value = 0;
    EXPECT_EQ(R_GetLibIdFromErrorCode(-541, nullptr, &value), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetLibIdFromErrorCode(-541, &value, nullptr), ERROR_INV_PARAMETER);
}

/// Every size up to past the text's own, in a buffer that ends at an unreadable page.
TEST(Messages, CutAtEverySize)
{
    const std::string whole = message(ERROR_INV_SIZE);
    for (R_UINT units = 0; units <= whole.size() + 3; ++units) {
        const GuardedBuffer wide(units * sizeof(R_WCHAR)), narrow(units);
        auto* const wideText = reinterpret_cast<R_WCHAR*>(wide.data());
        auto* const narrowText = reinterpret_cast<char*>(narrow.data());
        const R_INT expected = units > 0 ? SUCCESS : ERROR_INV_PARAMETER;
        EXPECT_EQ(R_GetFriendlyErrorMessage(ERROR_INV_SIZE, wideText, units, 0), expected);
        EXPECT_EQ(R_GetFriendlyErrorMessageA(ERROR_INV_SIZE, narrowText, units, 0), expected);
        if (units == 0) continue;
        EXPECT_EQ(narrowed(wideText), whole.substr(0, units - 1));
        EXPECT_EQ(std::string(narrowText), whole.substr(0, units - 1));
    }
    EXPECT_EQ(R_GetFriendlyErrorMessage(1, nullptr, 10, 0), ERROR_INV_PARAMETER);
}

/// A module's file name, or the status; a failing call leaves the buffer alone.
std::string libName(R_UINT flags, R_INT module, R_INT format, R_UINT units = 64)
{
    std::vector<R_WCHAR> text(64, RV_WIDE('~'));
    const R_INT status = R_GetLibName(flags, module, format, text.data(), units);
    if (status == SUCCESS) return narrowed(text.data());
    EXPECT_EQ(text, std::vector<R_WCHAR>(64, RV_WIDE('~')));
    return std::to_string(status);
}

TEST(LibNames, ByNumberAndByFormat)
{
    const struct {
        R_UINT flags;
        R_INT module, format;
        const char* name;
        R_UINT units = 64;
    } cases[] = {
        {0, 0, 0, "rvkrnX.DLL"},
        {0, 55, 0, "rvwebkitengine.DLL"},
        {LIBNAME_NO_SUFFIX, 55, 0, "rvwebkitengine"},
        {0, 8, 1, "rfpdfX.DLL"},
        {LIBNAME_BARE, 8, 0, "pdf"},
        {0, 0, 1, "rfbmpX.DLL"},
        {0, 3, 1, "rvannX.DLL"}, // a format counts for the kernel's number alone
        {LIBNAME_NO_SUFFIX, 0, 53, "rvclr"},
        {0, 1, 0, "rvdisX.", 8},
        {0, 1, 0, "", 1},
        {0, 1, 0, "-13", 0},
    };
    for (const auto& c : cases) EXPECT_EQ(libName(c.flags, c.module, c.format, c.units), c.name);
    for (const R_INT module : {46, 82, 83, 84, 107, -1, INT_MIN, INT_MAX}) EXPECT_EQ(libName(0, module, 0), "-16");
    for (const R_INT format : {-1, 88, INT_MIN, INT_MAX}) EXPECT_EQ(libName(0, 0, format), "-16");
    EXPECT_EQ(R_GetLibName(0, 1, 0, nullptr, 10), ERROR_INV_PARAMETER);
    uint64_t digest = 0xCBF29CE484222325u;
    for (R_INT number = 0; number < 120; ++number)
        digest = digestOf(libName(0, number, 0) + libName(0, 0, number), digest);
    EXPECT_EQ(digest, 0x523F258EFF7C319u);
}

} // namespace
