#include "Kernel/Base/System.h"
#include "Kernel/Services/TempFile.h"
#include "Platform/NativeErrors.h"
#include "R_Kernel.h"
#include "Support/FailingPlatform.h"
#include "Support/Folder.h"
#include "Support/TempOptions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace rv::test {
namespace {
namespace fs = std::filesystem;
bool onDisk(const Wide& name) { return fs::exists(fs::path(name)); }

/// The folder of temporary files meanwhile; gone at the end. Its name is UTF-8.
class OwnFolder {
public:
    explicit OwnFolder(const std::string& name) : path(around_ / name)
    {
        fs::create_directory(path);
        R_WCHAR buffer[300];
        EXPECT_EQ(R_GetTempDirectory(buffer, 300), SUCCESS);
        before_ = buffer;
        EXPECT_EQ(R_SetTempDirectory(wide(path).c_str()), SUCCESS);
    }
    ~OwnFolder() { EXPECT_EQ(R_SetTempDirectory(before_.c_str()), SUCCESS); }
    OwnFolder(const OwnFolder&) = delete;
    OwnFolder& operator=(const OwnFolder&) = delete;
    size_t files() const
    {
        return static_cast<size_t>(std::distance(fs::directory_iterator(path), fs::directory_iterator()));
    }

private:
    const Folder around_;
    Wide before_;

public:
    const fs::path path;
};

std::string hex(uint32_t number)
{
    char digits[16];
    return std::snprintf(digits, sizeof digits, "%x", number), digits;
}

/// What a name of this process and thread ends in.
std::string marked(const std::string& prefix, const std::string& mark, uint32_t number, const std::string& extension)
{
    return prefix + "-R" + mark + "-" + std::to_string(platform().processId()) + "-" + hex(platform().threadId()) +
           "-" + hex(number) + "." + extension;
}

TEST(TempFileOptions, KeepTheModeWithinItsRules)
{
    constexpr R_UINT kSize = TEMPFILEOPTIONS_SIZE, kBoth = TEMPFILE_DISK_AND_MEMORY, kKeep = 0xFFFFFFFFu;
    const TEMPFILEOPTIONS defaults = {kSize, kBoth, 0, 128, 8, 16};
    const auto expectStored = [](const TEMPFILEOPTIONS& wanted) {
        TEMPFILEOPTIONS stored{};
        EXPECT_EQ(R_GetTempFileOptions(&stored, kSize), SUCCESS);
        EXPECT_EQ(std::memcmp(&stored, &wanted, sizeof stored), 0);
        EXPECT_EQ(R_GetTempFileMode(), wanted.uMode);
    };
    expectStored(defaults);
    for (const auto& [mode, stored] :
         {std::pair{TEMPFILE_MEMORY, TEMPFILE_MEMORY}, {kKeep, TEMPFILE_MEMORY}, {0u, kBoth}}) {
        const TEMPFILEOPTIONS options = {kSize, mode, mode ^ 0xBEEF, 1, 2, 3};
        EXPECT_EQ(R_SetTempFileOptions(&options), SUCCESS);
        expectStored({kSize, stored, options.uFlags, 1, 2, 3});
    }
    EXPECT_EQ(R_SetTempFileOptions(&defaults), SUCCESS);

    TEMPFILEOPTIONS wrong = {20, TEMPFILE_DISK, 1, 2, 3, 4};
    EXPECT_EQ(R_SetTempFileOptions(&wrong), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_GetTempFileOptions(&wrong, 20), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_SetTempFileOptions(nullptr), ERROR_NULL_PTR);
    EXPECT_EQ(R_GetTempFileOptions(nullptr, 20), ERROR_NULL_PTR);
    expectStored(defaults);
}

TEST(TempFolder, IsAnExistingFolder)
{
    const OwnFolder own("rv temp folder");
    const Wide folder = wide(own.path), file = wide(own.path / "file");
    std::ofstream(own.path / "file") << "x";
    EXPECT_EQ(R_SetTempDirectory(file.c_str()), FAILURE);
    EXPECT_EQ(R_SetTempDirectory((file + wide("no")).c_str()), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_SetTempDirectory(nullptr), ERROR_NULL_PTR);
    R_WCHAR buffer[300];
    EXPECT_EQ(R_GetTempDirectory(buffer, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetTempDirectory(buffer, 300), SUCCESS);
    EXPECT_EQ(buffer, folder);
    EXPECT_EQ(R_GetTempDirectory(buffer, 5), SUCCESS);
    EXPECT_EQ(buffer, folder.substr(0, 4));
}

TEST(TempFileName, SaysWhereTheFileLivesAndWhoMadeIt)
{
    // A colon at its end is a drive's on Windows alone.
    const OwnFolder own(fs::path::preferred_separator == '/' ? "rv-temp-names:" : "rv-temp-names");
    const char separator = static_cast<char>(fs::path::preferred_separator);
    const Wide folder = wide(own.path) + Wide(1, static_cast<R_WCHAR>(separator));
    const std::string id = std::to_string(platform().processId());
    const PretendTicks clock(0x1A2B);
    struct Case {
        R_INT mode;
        R_UINT options;
        const char* prefix;
        const char* extension;
        const char* mark; ///< and whether it is one for disk
        bool disk;
    };
    uint32_t number = 0x1A2B;
    const LiveBlocks live;
    for (const Case& c : {Case{kCurrentTempFileMode, kTempNameOnDisk, "", "", "DM", true},
                          {0, 1, "ab", ".bmp", "DM", true},
                          {TEMPFILE_DISK, 0, "ab", "bmp", "D", true},
                          {TEMPFILE_MEMORY, 1, "ab", "bmp", "M", false},
                          {0, 0, "ab", "bmp", "DM", false}}) {
        const auto nameOf = [&](uint32_t n) {
            return folder + wide(marked(*c.prefix ? c.prefix : id + "-R_", c.mark, n, *c.extension ? "bmp" : "tmp"));
        };
        const auto made = [&](const R_WCHAR* where) {
            R_WCHAR name[400];
            EXPECT_EQ(
                makeTempName(name, 400, c.mode, where, wide(c.prefix).c_str(), wide(c.extension).c_str(), c.options),
                SUCCESS);
            return Wide(name);
        };
        const Wide wanted = made(nullptr);
        EXPECT_EQ(wanted, nameOf(number));
        EXPECT_EQ(onDisk(wanted), c.disk);
        EXPECT_EQ(isMemoryTempFile(wanted.c_str()), !c.disk);
        // The same once more is the next number; a folder may end in a separator, and both separators are one.
        Wide next = made(folder.c_str());
        EXPECT_EQ(next, nameOf(number + 1));
        std::replace(next.begin(), next.end(), R_WCHAR(separator), R_WCHAR(separator == '/' ? '\\' : '/'));
        EXPECT_EQ(R_DeleteTempFile(next.c_str()), SUCCESS);
        EXPECT_EQ(R_DeleteTempFile(wanted.c_str()), SUCCESS);
        EXPECT_EQ(own.files(), 0u);
        EXPECT_NE(R_DeleteTempFile(wanted.c_str()), SUCCESS);
    }
#if !defined(_WIN32)
    // A link that leads nowhere has a name, too.
    const fs::path link = own.path / marked("ab", "D", number, "x");
    fs::create_symlink("nowhere", link);
    R_WCHAR buffer[400];
    EXPECT_EQ(R_GetTempFileName4(nullptr, buffer, 400, TEMPFILE_DISK, wide("ab").c_str(), wide("x").c_str()), SUCCESS);
    EXPECT_EQ(buffer, folder + wide(marked("ab", "D", number + 1, "x")));
    fs::remove(link);
#endif
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(TempFileName, RefusesBeforeItTouchesAnything)
{
    const OwnFolder own("rv-temp-full");
    const Wide folder = wide(own.path);
    const size_t marker = marked("", "D", 0, "").size() - 2;
    const auto room = static_cast<R_UINT>(folder.size() + 2 + 3 + marker + 14);
    R_WCHAR buffer[400];
    const auto make = [&](R_UINT chars, const Wide& where, const Wide& extension) {
        return R_GetTempFileName4(where.c_str(), buffer, chars, TEMPFILE_DISK, wide("ab").c_str(), extension.c_str());
    };
    EXPECT_EQ(make(room - 1, folder, wide("bmp")), ERROR_BUFFER_TOO_SMALL);
    EXPECT_EQ(make(0, folder, wide("bmp")), ERROR_INV_PARAMETER);
    EXPECT_EQ(make(400, folder, Wide(300, 'x')), ERROR_BUFFER_TOO_SMALL);
    EXPECT_EQ(R_GetTempFileName(nullptr, nullptr), ERROR_NULL_PTR);
    EXPECT_EQ(R_GetTempFileName4(nullptr, buffer, 400, 4, nullptr, nullptr), ERROR_INV_PARAMETER);
    EXPECT_EQ(own.files(), 0u);
    EXPECT_EQ(make(room, folder, wide("bmp")), SUCCESS);
    EXPECT_EQ(make(400, folder, Wide(250 - folder.size() - marker, 'x')), SUCCESS); // too long for a disk: cut
    EXPECT_LE(Wide(buffer).size(), 259u);
    EXPECT_EQ(own.files(), 2u);
    EXPECT_EQ(make(400, folder + wide("no"), wide("bmp")), ERROR_TEMP_FILE_UNKNOWN);
    EXPECT_EQ(buffer[0], 0);
    char narrow[400];
    EXPECT_EQ(R_GetTempFileName4UTF8("", narrow, room - 1, TEMPFILE_DISK, "ab", "bmp"), ERROR_BUFFER_TOO_SMALL);
    EXPECT_EQ(R_GetTempFileName4UTF8("", narrow, 400, TEMPFILE_DISK, "\xC3\xA4", "bmp"), SUCCESS);
    EXPECT_NE(std::strstr(narrow, "\xC3\xA4-RD-"), nullptr);
    EXPECT_EQ(R_DeleteTempFileUTF8(narrow), SUCCESS);
    EXPECT_EQ(own.files(), 2u);

    // A code page may have no name for the folder: then there is no file.
    const OwnFolder foreign("rv-temp-\xE6\x97\xA5");
    const R_INT status = R_GetTempFileNameA(narrow, "ab");
    EXPECT_EQ(status == SUCCESS ? R_DeleteTempFileA(narrow) : status, status == SUCCESS ? 1 : ERROR_TEMP_FILE_UNKNOWN);
    EXPECT_EQ(foreign.files(), 0u);
}

TEST(TempFileName, IsNeverGivenTwice)
{
    const OwnFolder own("rv-temp-many");
    constexpr int kThreads = 4, kNames = 200;
    const PretendTicks clock(5000); // all of a thread's names begin at one number
    std::vector<std::vector<Wide>> made(kThreads);
    std::vector<std::thread> threads;
    for (std::vector<Wide>& names : made) {
        threads.emplace_back([&names] {
            R_WCHAR buffer[400];
            for (int i = 0; i < kNames; ++i) {
                if (makeTempName(buffer, 400, 0, nullptr, nullptr, nullptr, i % 4 == 0 ? 1 : 0) == SUCCESS)
                    names.emplace_back(buffer);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::set<Wide> names;
    for (const std::vector<Wide>& some : made) names.insert(some.begin(), some.end());
    EXPECT_EQ(names.size(), static_cast<size_t>(kThreads * kNames));
    EXPECT_EQ(own.files(), names.size() / 4);
    // With the library those in memory are gone, and what finds them starts anew.
    detach();
    R_WCHAR another[400];
    EXPECT_EQ(makeTempName(another, 400, TEMPFILE_MEMORY, nullptr, nullptr, nullptr, 0), SUCCESS);
    const auto left = std::count_if(names.begin(), names.end(),
                                    [](const Wide& name) { return R_DeleteTempFile(name.c_str()) == SUCCESS; });
    EXPECT_EQ(left, kThreads * kNames / 4);
    EXPECT_EQ(R_DeleteTempFile(another), SUCCESS);
    EXPECT_EQ(own.files(), 0u);
}

} // namespace
} // namespace rv::test
