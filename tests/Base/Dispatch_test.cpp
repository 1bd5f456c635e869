// What a status says and whom it speaks of; what modules are called.
#include "Common/Text.h"
#include "R_Kernel.h"
#include "Support/GuardedRecord.h"

#include <gtest/gtest.h>

#include <climits>
#include <iterator>
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
        {-13, "Invalid parameter passed"},
        {-3, "Not enough memory available"},
        {-1, "Not enough memory available"},
        {0, "Function not successful"},
        {1, "Success"},
        {104, "dialog exits successfully after selecting exit and export option, dialog parameters will have the "
              "resulting bitmap allocated"},
        {-16, "Feature not supported.\r\nSupport for the requested feature is unavailable.\r\n"
              "This could be due to:\r\n  * The file format does not support this feature.\r\n"
              "  * The required dll is missing from your system.\r\n"
              "  * The required file filter dll is disabled in this demo (ex. vector formats).\r\n"
              "  * Your runtime license does not include support for this functionality.\r\n"
              "For more information see the documentation, chapter Licensing"},
    };
    for (const auto& c : cases) EXPECT_EQ(message(c.code), c.text) << c.code;
    for (const R_INT code : {-143, -1591, -1790, -1942, -400})
        EXPECT_TRUE(message(code).find("licence") != std::string::npos && message(code).ends_with(kHelp)) << code;
    for (const R_INT code : {INT_MIN, -1963, -1945, -26, -818, -353, 9, 50, 99, 105, INT_MAX})
        EXPECT_EQ(message(code), kUnknown) << code;
}

/// One digest over all texts: a text that changed by accident shows, wherever it stands.
TEST(Messages, NoneIsLostOrChanged)
{
    uint64_t digest = 0xCBF29CE484222325u; // FNV-1a
    int count = 0;
    for (R_INT code = -2100; code <= 300; ++code) {
        const std::string text = message(code);
        EXPECT_EQ(text.find('%'), std::string::npos) << code;
        if (text == kUnknown || text.ends_with(kHelp) || text.ends_with("library is missing.")) continue;
        const std::string line = std::to_string(code) + text;
        for (size_t i = 0; i <= line.size(); ++i)
            digest = (digest ^ static_cast<unsigned char>(line.c_str()[i])) * 0x100000001B3u;
        ++count;
    }
    EXPECT_EQ(count, 677);
    EXPECT_EQ(digest, 0x1FB2AF10F8A83E72u);
}

/// Every size up to past the text's own, in a buffer that ends at an unreadable page.
TEST(Messages, CutAtEverySize)
{
    const std::string whole = message(ERROR_INV_SIZE);
    for (R_UINT units = 0; units <= whole.size() + 3; ++units) {
        const GuardedBuffer wide(units * sizeof(R_WCHAR));
        const GuardedBuffer narrow(units);
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
    EXPECT_EQ(R_GetFriendlyErrorMessageA(1, nullptr, 10, 0), ERROR_INV_PARAMETER);
}

struct ModuleCode {
    R_INT code, feature, module;
    const char* name;
};
// clang-format off
const ModuleCode kModuleCodes[] = {
    {-1598, 0, 107, "107"}, {-825, 0, 8, "rvpdf"}, {-824, 0, 83, "83"}, {-823, 0, 84, "84"},
    {-822, 0, 81, "rvodfengine"}, {-821, 0, 68, "RvPrinter"}, {-820, 0, 67, "RvEfx"}, {-819, 0, 72, "RvDlgCtrl"},
    {-818, 7, -1, nullptr}, {-541, 0, 54, "rvpdfpsengineutl"}, {-359, 0, 2, "rvfil"}, {-358, 0, 50, "rvdrwd2d"},
    {-357, 0, 0, "rvkrn"}, {-356, 0, 1, "rvdis"}, {-355, 0, 57, "rvdocwrtalto"}, {-353, 22, -1, nullptr},
    {-349, 0, 9, "rvocr"}, {-319, 0, 35, "rvimgsfx"}, {-309, 0, 34, "rvimgefx"},
};
// clang-format on

TEST(ModuleCodes, NameTheirModules)
{
    size_t mapped = 0;
    for (R_INT code = -2100; code <= 300; ++code) {
        ModuleCode expected{code, 0, -1, nullptr};
        for (const ModuleCode& c : kModuleCodes)
            if (c.code == code) expected = c;
        R_INT feature = 99;
        R_INT module = 99;
        ASSERT_EQ(R_GetLibIdFromErrorCode(code, &feature, &module), SUCCESS);
        EXPECT_EQ(feature, expected.feature) << code;
        EXPECT_EQ(module, expected.module) << code;
        if (expected.name != nullptr) {
            EXPECT_EQ(message(code), "The " + std::string(expected.name) + " library is missing.");
        }
        mapped += feature != 0 || module != -1;
    }
    EXPECT_EQ(mapped, std::size(kModuleCodes));
    R_INT value = 0;
    EXPECT_EQ(R_GetLibIdFromErrorCode(-541, nullptr, &value), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetLibIdFromErrorCode(-541, &value, nullptr), ERROR_INV_PARAMETER);
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
    EXPECT_EQ(libName(0, 0, 0), "rvkrnX.DLL");
    EXPECT_EQ(libName(0, 81, 0), "rvodfengineX.DLL");
    EXPECT_EQ(libName(0, 55, 0), "rvwebkitengine.DLL");
    EXPECT_EQ(libName(LIBNAME_NO_SUFFIX, 55, 0), "rvwebkitengine");
    EXPECT_EQ(libName(0, 8, 1), "rfpdfX.DLL");
    EXPECT_EQ(libName(LIBNAME_NO_SUFFIX, 8, 0), "rfpdf");
    EXPECT_EQ(libName(LIBNAME_BARE, 8, 0), "pdf");
    EXPECT_EQ(libName(0, 0, 1), "rfbmpX.DLL");
    EXPECT_EQ(libName(0, 3, 1), "rvannX.DLL"); // a format counts for the kernel's number alone
    const struct {
        R_INT format;
        const char* name;
    } served[] = {{25, "rvdictables"}, {56, "rvjp2"}, {87, "rvsgm"}, {80, "rffax"}, {50, "rvocr"}, {53, "rvclr"}};
    for (const auto& s : served) EXPECT_EQ(libName(LIBNAME_NO_SUFFIX, 0, s.format), s.name);
    for (const R_INT module : {46, 82, 83, 84, 107, -1, INT_MIN, INT_MAX}) EXPECT_EQ(libName(0, module, 0), "-16");
    for (const R_INT format : {-1, 88, INT_MIN, INT_MAX}) EXPECT_EQ(libName(0, 0, format), "-16");
}

TEST(LibNames, AreCut)
{
    EXPECT_EQ(libName(0, 1, 0, 11), "rvdisX.DLL");
    EXPECT_EQ(libName(0, 1, 0, 8), "rvdisX.");
    EXPECT_EQ(libName(0, 1, 0, 1), "");
    EXPECT_EQ(libName(0, 1, 0, 0), "-13");
    EXPECT_EQ(R_GetLibName(0, 1, 0, nullptr, 10), ERROR_INV_PARAMETER);
}

} // namespace
