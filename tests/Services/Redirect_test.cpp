// Sets in force and by name, the handles they open, filters, and a thread's files in a block of memory.
#include "Support/FailingPlatform.h"
#include "Support/FileModel.h"
#include "Support/MemoryDisk.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <thread>

namespace rv::test {
namespace {

using Name = std::basic_string<R_WCHAR>;
constexpr R_UINT kSize = REDIRECTSET_SIZE;
constexpr R_INT kBoth = FILE_MODE_READ_WRITE;

Name wide(const std::string& text) { return Name(text.begin(), text.end()); }
REDIRECTSET get(R_UINT kind, R_INT processOnly = 0)
{
    REDIRECTSET set{};
    EXPECT_EQ(R_GetRedirectFunctions(&set, kSize, kind, processOnly), SUCCESS);
    return set;
}
bool same(const REDIRECTSET& a, const REDIRECTSET& b) { return std::memcmp(&a, &b, kSize) == 0; }
template <class Operation> Operation standFor(intptr_t number) { return reinterpret_cast<Operation>(number); }

/// The process and the thread as they were at the start.
struct Restore {
    ~Restore()
    {
        EXPECT_EQ(R_SetFileCaching(FILE_CACHING_BUFFERED), SUCCESS); // what changes is made anew
        EXPECT_EQ(R_SetFileCaching(FILE_CACHING_NONE), SUCCESS);
        REDIRECTSET own{};
        EXPECT_EQ(R_ExtractRedirectFunctions(&own, kSize), SUCCESS);
    }
};

TEST(RedirectSets, TheThreadsOperationsLieOverTheProcesss)
{
    const Restore restore;
    MemoryDisk mine, everybodys;
    const REDIRECTSET os = get(REDIRECT_OS), fresh = get(REDIRECT_CURRENT);
    EXPECT_TRUE(same(os, fresh));
    REDIRECTSET set = everybodys.set();
    set.pfnSeek = nullptr; // the default
    set.pfnClose = standFor<REDIRECTCLOSE>(REDIRECT_RESTORE_OPERATION);
    EXPECT_EQ(R_SetRedirectFunctions(&set, REDIRECT_CURRENT, 1), SUCCESS);
    EXPECT_EQ(R_RedirectIO(mine.set().pfnOpen, standFor<REDIRECTREAD>(REDIRECT_NO_OPERATION), nullptr, nullptr, nullptr,
                           &mine),
              SUCCESS);
    const REDIRECTSET both = get(REDIRECT_CURRENT), process = get(REDIRECT_CURRENT, 1);
    EXPECT_EQ(both.pOpenData, &mine);
    EXPECT_EQ(both.pReadData, &everybodys);
    EXPECT_EQ(both.pfnWrite, os.pfnWrite);
    EXPECT_EQ(process.pfnSeek, os.pfnSeek);
    EXPECT_EQ(process.pfnClose, os.pfnClose);
    EXPECT_EQ(process.pCloseData, nullptr);
    std::thread([&] { EXPECT_TRUE(same(get(REDIRECT_CURRENT), process)); }).join();

    REDIRECTSET own{}, two{};
    EXPECT_EQ(R_ExtractRedirectFunctions(&own, kSize), SUCCESS);
    EXPECT_EQ(R_GetRedirectFunctions2(&two, kSize), SUCCESS);
    EXPECT_TRUE(same(get(REDIRECT_CURRENT), process) && same(two, process));
    own.pfnWrite = nullptr;
    EXPECT_EQ(R_UpdateRedirectFunctions(&own), SUCCESS);
    EXPECT_EQ(get(REDIRECT_CURRENT).pOpenData, &mine);
    EXPECT_EQ(get(REDIRECT_CURRENT).pWriteData, &everybodys);

    // Temporary files have a set of their own, for the process.
    const REDIRECTSET temp = get(REDIRECT_TEMPFILE);
    EXPECT_TRUE(same(temp, get(REDIRECT_MEMORY)));
    EXPECT_EQ(R_SetRedirectFunctions(&set, REDIRECT_TEMPFILE, 0), SUCCESS);
    EXPECT_EQ(get(REDIRECT_TEMPFILE).pfnSeek, temp.pfnSeek);
    const R_INT64 file = R_RedirectedTempFileOpen(wide("any").c_str(), kBoth, 0);
    EXPECT_TRUE(R_RedirectedTempFileRead(file, &two, 1) == 0 && everybodys.opened == 1);
    EXPECT_EQ(R_SetRedirectFunctions(&temp, REDIRECT_TEMPFILE, 0), SUCCESS);
    EXPECT_EQ(R_RedirectedTempFileClose(file), -1) << "the handle of another is none of the system's";

    // An R_Os call by a cast takes no user data; it is taken for what it is.
    own = REDIRECTSET{};
    own.uStructSize = kSize;
    void (*const cast)() = reinterpret_cast<void (*)()>(&R_OsRead);
    own.pfnRead = reinterpret_cast<REDIRECTREAD>(cast);
    EXPECT_EQ(R_SetRedirectFunctions(&own, REDIRECT_CURRENT, 0), SUCCESS);
    EXPECT_EQ(get(REDIRECT_CURRENT).pfnRead, os.pfnRead);
}

TEST(RedirectSets, AnswerTheirStatuses)
{
    const Restore restore;
    REDIRECTSET set = get(REDIRECT_OS);
    EXPECT_EQ(R_GetRedirectFunctions(nullptr, 7, 9, 0), ERROR_NULL_PTR);
    EXPECT_EQ(R_GetRedirectFunctions(&set, 7, 9, 0), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_GetRedirectFunctions(&set, kSize, 6, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_SetRedirectFunctions(&set, 6, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_SetRedirectFunctions(&set, REDIRECT_OS, 1), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_SetRedirectFunctions(&set, REDIRECT_MEMORY, 0), ERROR_FEATURE_NOT_SUPPORTED);
    set.uStructSize = 121;
    EXPECT_EQ(R_SetRedirectFunctions(&set, REDIRECT_MEMORY, 0), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_SetRedirectFunctions(nullptr, REDIRECT_MEMORY, 0), ERROR_NULL_PTR);
    R_UINT mode = 9;
    for (const auto& [wanted, stored, status] :
         {std::array<R_INT, 3>{1, 1, 1}, {3, 1, ERROR_INV_PARAMETER}, {2, 0, 1}}) {
        EXPECT_EQ(R_SetFileCaching(static_cast<R_UINT>(wanted)), status);
        EXPECT_EQ(R_GetFileCaching(&mode), SUCCESS);
        EXPECT_EQ(mode, static_cast<R_UINT>(stored));
        EXPECT_TRUE(same(get(REDIRECT_CURRENT), get(stored == 1 ? REDIRECT_BUFFERED : REDIRECT_OS)));
    }
    EXPECT_EQ(R_GetFileCaching(nullptr), ERROR_NULL_PTR);

    R_INT64 file = 5;
    EXPECT_EQ(R_CreateRedirectedFileHandle(-1, nullptr, 0), ERROR_NULL_PTR);
    EXPECT_EQ(R_CreateRedirectedFileHandle(-2, &file, 0), ERROR_INV_PARAMETER);
    for (const R_INT64 none : {R_INT64{-1}, R_INT64{0}, R_INT64{65535}, R_INT64{65537}, INT64_MIN}) {
        EXPECT_EQ(R_GetRedirectFunctions3(none, nullptr, 0), ERROR_INV_HANDLE);
        EXPECT_EQ(R_RedirectedRead(none, &file, 8) + R_RedirectedWrite(none, &file, 8) + R_RedirectedClose(none), -3);
        EXPECT_EQ(R_RedirectedSeek(none, 0, 0) + R_RedirectedReadBig(none, &file, 8), -2);
        EXPECT_EQ(R_FilterIO(none, nullptr, nullptr), ERROR_INV_HANDLE);
    }
}

TEST(RedirectNames, OpenThroughTheSetOfTheName)
{
    const LiveBlocks live;
    MemoryDisk disk;
    const REDIRECTSET set = disk.set();
    REDIRECTSET wrong = set;
    wrong.uStructSize = 128;
    Name name = wide("RAVORedirect://0000000A-0000000B"), lower = wide("RAVORedirect://0000000a-0000000b");
    Name room(50, 0);
    EXPECT_EQ(R_SetGlobalRedirectFunctions(nullptr, 0, &set), ERROR_NULL_PTR);
    EXPECT_EQ(R_SetGlobalRedirectFunctions(name.data(), 33, &wrong), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_SetGlobalRedirectFunctions(room.data(), 49, &set), ERROR_BUFFER_TOO_SMALL);
    EXPECT_EQ(R_SetGlobalRedirectFunctions(room.data(), 50, nullptr), ERROR_INV_FILENAME);
    for (const char* bad :
         {"RAVORedirect://A-B", "ravoredirect://0000000A-0000000B", "RAVORedirect://0000000A-0000000B1",
          "RAVORedirect://0000000A00000000B", "RAVORedirect:/", "x"})
        EXPECT_EQ(R_SetGlobalRedirectFunctions(wide(bad).data(), 50, &set), ERROR_INV_FILENAME) << bad;
    EXPECT_EQ(R_SetGlobalRedirectFunctions(name.data(), 33, nullptr), ERROR_NO_SUCH_FILE);
    EXPECT_EQ(R_SetGlobalRedirectFunctions(name.data(), 33, &set), SUCCESS);
    EXPECT_EQ(R_SetGlobalRedirectFunctions(lower.data(), 33, &set), ERROR_FILE_REGISTERED);
    EXPECT_EQ(R_SetGlobalRedirectFunctions(room.data(), 50, &set), SUCCESS);

    disk.bytes = {1, 2, 3};
    char byte = 0, big[8];
    const R_INT64 file = R_RedirectedOpenUTF8("RAVORedirect://0000000a-0000000B", FILE_MODE_READ, 0);
    EXPECT_EQ(R_UsesRedirectIO(nullptr, file) + R_UsesRedirectIO(room.data(), -1), 2);
    EXPECT_EQ(R_SetGlobalRedirectFunctions(name.data(), 33, nullptr), SUCCESS);
    EXPECT_EQ(R_RedirectedOpen(name.data(), FILE_MODE_READ, 0), R_INVALID_FILE);
    EXPECT_EQ(R_RedirectedRead(file, &byte, 1), 1) << "open files keep their operations";
    EXPECT_EQ(R_RedirectedReadBig(file, big, 3), -1) << "the file ends before";
    EXPECT_EQ(R_RedirectedWriteBig(file, nullptr, 0), 0);
    disk.answersTooMuch = true;
    EXPECT_EQ(R_RedirectedRead(file, &byte, 1), -1);
    EXPECT_EQ(R_RedirectedClose(file), 0);
    const NoMemory none;
    EXPECT_EQ(R_RedirectedOpen(room.data(), FILE_MODE_READ, 0), R_INVALID_FILE);
    EXPECT_EQ(disk.closed, disk.opened) << "what cannot be handed out is closed";
    EXPECT_EQ(R_SetGlobalRedirectFunctions(room.data(), 50, nullptr), SUCCESS);
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(RedirectNames, AreNeverGivenTwiceWhateverTheThreads)
{
    constexpr int kThreads = 6, kNames = 200;
    MemoryDisk disk;
    const REDIRECTSET set = disk.set();
    std::vector<std::vector<Name>> names(kThreads);
    std::vector<std::thread> threads;
    for (auto& own : names)
        threads.emplace_back([&own, &set] {
            for (int i = 0; i < kNames; ++i) {
                Name name(50, 0), unused(50, 0);
                EXPECT_EQ(R_SetGlobalRedirectFunctions(name.data(), 50, &set), SUCCESS);
                EXPECT_EQ(R_GetUniqueRedirectFileName(unused.data(), 50), SUCCESS);
                EXPECT_EQ(R_SetGlobalRedirectFunctions(name.data(), 50, &set), ERROR_FILE_REGISTERED);
                own.insert(own.end(), {name, unused});
            }
            for (size_t i = 0; i < own.size(); i += 2)
                EXPECT_EQ(R_SetGlobalRedirectFunctions(own[i].data(), 50, nullptr), SUCCESS);
        });
    for (std::thread& thread : threads) thread.join();
    std::set<Name> all;
    for (const auto& own : names) all.insert(own.begin(), own.end());
    EXPECT_EQ(all.size(), size_t{2} * kThreads * kNames);
}

/// A file on disk, of zeros and three bytes at its end.
struct DiskFile {
    explicit DiskFile(R_INT64 size)
    {
        const R_INT64 file = R_OsOpen(name.c_str(), kBoth | FILE_MODE_CREATE, 0);
        EXPECT_EQ(R_OsSeek(file, size - 3, FILE_FROM_START), size - 3);
        EXPECT_EQ(R_OsWrite(file, "end", 3), 3);
        EXPECT_EQ(R_OsClose(file), 0);
    }
    ~DiskFile() { EXPECT_EQ(R_OsDelete(name.c_str()), 0) << "somebody has it open"; }
    std::string ending() const
    {
        const R_INT64 file = R_OsOpen(name.c_str(), FILE_MODE_READ, 0);
        char text[4] = {};
        EXPECT_GT(R_OsSeek(file, -3, FILE_FROM_END), 0);
        EXPECT_EQ(R_OsRead(file, text, 3), 3);
        EXPECT_EQ(R_OsClose(file), 0);
        return text;
    }
    const Name name =
        (std::filesystem::temp_directory_path() / ("rv" + std::to_string(std::random_device{}()))).string<R_WCHAR>();
};

TEST(RedirectedFiles, AreTheFilesOnDiskWhereverTheyAreHeld)
{
    const Restore restore;
    const LiveBlocks live;
    constexpr R_INT64 kMostHeld = 32 << 20;
    for (const R_UINT caching : {FILE_CACHING_NONE, FILE_CACHING_BUFFERED}) {
        EXPECT_EQ(R_SetFileCaching(caching), SUCCESS);
        for (const R_INT64 size : {R_INT64{1000}, kMostHeld, kMostHeld + 1}) {
            const DiskFile disk(size);
            const R_INT64 file = R_RedirectedOpen(disk.name.c_str(), kBoth, 0);
            REDIRECTSET set{};
            EXPECT_EQ(R_GetRedirectFunctions3(file, &set, kSize), SUCCESS);
            if (size > kMostHeld) {
                EXPECT_TRUE(same(set, get(caching == 0 ? REDIRECT_OS : REDIRECT_BUFFERED))) << size << " is held";
            }
            char text[4] = {};
            EXPECT_EQ(R_RedirectedSeek(file, 0, FILE_FROM_CURRENT), 0);
            EXPECT_EQ(R_RedirectedSeek(file, -3, FILE_FROM_END), size - 3);
            EXPECT_EQ(R_RedirectedReadBig(file, text, 3), 3);
            EXPECT_STREQ(text, "end");
            EXPECT_EQ(R_RedirectedSeek(file, size - 2, FILE_FROM_START), size - 2);
            EXPECT_EQ(R_RedirectedWriteBig(file, "NDs", 3), 3);
            EXPECT_EQ(R_RedirectedClose(file), 0);
            EXPECT_EQ(disk.ending(), "NDs") << size;
            // A native handle is wrapped where it stands.
            R_INT64 wrapped = -1;
            const R_INT64 native = R_OsOpen(disk.name.c_str(), kBoth, 0);
            EXPECT_EQ(R_OsSeek(native, -1, FILE_FROM_END), size);
            EXPECT_EQ(R_CreateRedirectedFileHandle(native, &wrapped, kBoth), SUCCESS);
            EXPECT_EQ(R_ExtractRedirectedFileHandle(wrapped) == native, caching == 0);
            EXPECT_EQ(R_RedirectedWrite(wrapped, nullptr, 0), 0);
            EXPECT_EQ(R_RedirectedWrite(wrapped, "z", 1), 1);
            EXPECT_EQ(R_RedirectedClose(wrapped), 0);
            EXPECT_EQ(disk.ending(), "NDz") << size;
        }
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(RedirectedFiles, HaveTheirBufferOverAProgramsSet)
{
    const Restore restore;
    const LiveBlocks live;
    const DiskFile onDisk(1000);
    MemoryDisk disk;
    disk.bytes.resize(3);
    REDIRECTSET under = disk.set(), set = get(REDIRECT_BUFFERED);
    set.pOpenData = &under;
    EXPECT_EQ(R_SetRedirectFunctions(&set, REDIRECT_CURRENT, 0), SUCCESS);
    R_INT64 wrapped = -1;
    const R_INT64 file = R_RedirectedOpen(onDisk.name.c_str(), kBoth, 0);
    EXPECT_EQ(R_CreateRedirectedFileHandle(R_OsOpen(onDisk.name.c_str(), kBoth, 0), &wrapped, kBoth), SUCCESS);
    EXPECT_EQ(R_RedirectedSeek(file, 0, FILE_FROM_END), 3);
    EXPECT_EQ(R_RedirectedSeek(wrapped, 0, FILE_FROM_END), 1000) << "what is open already is a native file";
    EXPECT_EQ(R_RedirectedClose(file) + R_RedirectedClose(wrapped), 0);
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(RedirectedFiles, TellOfEachFault)
{
    const LiveBlocks live;
    for (int nth = 1;; ++nth) {
        const DiskFile disk(1000);
        bool good = false, happened = false;
        {
            const FailingAllocation fault(nth, kFailHeap | kFailFiles);
            const R_INT64 file = R_RedirectedOpen(disk.name.c_str(), kBoth, 0);
            good = R_RedirectedSeek(file, -3, FILE_FROM_END) == 997 && R_RedirectedWrite(file, "NEW", 3) == 3;
            good = R_RedirectedClose(file) == 0 && good;
            happened = fault.happened();
        }
        EXPECT_TRUE(good || happened);
        EXPECT_TRUE(!good || disk.ending() == "NEW") << "lost at call " << nth;
        if (!happened) break;
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(RedirectedFiles, PassTheirFilterBothWays)
{
    MemoryDisk disk;
    REDIRECTSET set = disk.set();
    R_INT64 file = -1;
    EXPECT_EQ(R_CreateRedirectedCallbackFileHandle(70001, &set, &file), SUCCESS);
    R_INT fails = 0;
    const FILTERIOCALLBACK invert = [](R_INT64, void* buffer, R_UINT count, R_INT, void* data) -> R_INT {
        for (R_UINT i = 0; i < count; ++i) static_cast<uint8_t*>(buffer)[i] ^= 0xFF;
        return *static_cast<R_INT*>(data) != 0 ? FAILURE : SUCCESS;
    };
    EXPECT_EQ(R_FilterIO(file, invert, &fails), SUCCESS);
    std::vector<uint8_t> bytes(10001, 5), back(10001);
    EXPECT_EQ(R_RedirectedWrite(file, bytes.data(), 10001), 10001);
    EXPECT_TRUE(disk.bytes == std::vector<uint8_t>(10001, 0xFA));
    EXPECT_EQ(bytes[0], 5) << "what is written is the caller's";
    EXPECT_EQ(R_RedirectedSeek(file, 0, 0), 0);
    EXPECT_EQ(R_RedirectedReadBig(file, back.data(), 10001), 10001);
    EXPECT_TRUE(bytes == back);
    fails = 1;
    for (const R_UINT count : {1u, 0x80000000u}) EXPECT_EQ(R_RedirectedWrite(file, bytes.data(), count), -1);
    EXPECT_EQ(disk.bytes.size(), 10001u);
    EXPECT_EQ(R_CloseRedirectedCallbackFileHandle(file), SUCCESS);
    EXPECT_EQ(disk.closed, 0);
}

TEST(RedirectToBuffer, HoldsWhatAPlainArrayHolds)
{
    const LiveBlocks live;
    for (unsigned seed = 1; seed <= 20 && !::testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        FileModel model({R_RedirectedRead, R_RedirectedWrite, R_RedirectedSeek}, seed);
        void *record = nullptr, *data = nullptr;
        R_SIZE size = 9;
        R_INT64 files[3];
        size_t at[3] = {};
        EXPECT_EQ(R_StartRedirectToBuffer(&record, &files[0], 0, nullptr, 0, seed % 2 * 100), SUCCESS);
        for (const int i : {1, 2}) files[i] = R_RedirectedOpen(wide("any").c_str(), kBoth, 0);
        for (int step = 0; step < 300 && !::testing::Test::HasFailure(); ++step) {
            const size_t i = model.random() % 3;
            model.step(files[i], at[i]);
        }
        EXPECT_EQ(R_RedirectedClose(files[1]), 0);
        EXPECT_EQ(R_StopRedirectToBuffer(record, &data, &size), SUCCESS);
        ASSERT_EQ(size, model.content.size());
        EXPECT_TRUE(size == 0 || std::memcmp(data, model.content.data(), size) == 0);
        R_HeapTerm(data);
        EXPECT_EQ(R_RedirectedWrite(files[0], &size, 8), -1) << "stopped";
        for (const int i : {0, 2}) EXPECT_EQ(R_RedirectedClose(files[i]), 0);
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(RedirectToBuffer, IsStoppedInAnyOrder)
{
    const Restore restore;
    const LiveBlocks live;
    MemoryDisk disk;
    EXPECT_EQ(R_RedirectIO(disk.set().pfnOpen, nullptr, nullptr, nullptr, nullptr, &disk), SUCCESS);
    const REDIRECTSET before = get(REDIRECT_CURRENT);
    for (const auto& order : {std::array<int, 3>{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}}) {
        void* records[3] = {};
        for (void*& record : records) EXPECT_EQ(R_StartRedirectToBuffer(&record, nullptr, 0, &record, 10, 10), SUCCESS);
        const REDIRECTSET kept = get(REDIRECT_CURRENT);
        for (int left = 3; const int which : order) {
            std::thread([&] {
                EXPECT_EQ(R_StopRedirectToBuffer(records[which], nullptr, nullptr), ERROR_INV_PARAMETER);
            }).join();
            EXPECT_EQ(R_StopRedirectToBuffer(records[which], nullptr, nullptr), SUCCESS);
            EXPECT_EQ(R_StopRedirectToBuffer(records[which], nullptr, nullptr), ERROR_INV_PARAMETER);
            const R_INT64 file = R_RedirectedOpen(wide("any").c_str(), FILE_MODE_READ, 0);
            EXPECT_EQ(disk.opened, --left == 0 ? disk.closed + 1 : disk.closed);
            disk.opened = disk.closed = 0;
            EXPECT_EQ(R_CloseRedirectedCallbackFileHandle(file), ERROR_INV_HANDLE) << "it was not made by a program";
            (void)R_RedirectedClose(file); // of the last, by the system: it is none of its handles
        }
        EXPECT_TRUE(same(get(REDIRECT_CURRENT), before));
        EXPECT_EQ(kept.pfnOpen(wide("any").c_str(), kBoth, 0, kept.pOpenData), -1) << "kept operations open nothing";
    }
    EXPECT_EQ(R_StartRedirectToBuffer(nullptr, nullptr, 0, nullptr, 0, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(live.count(), 0) << live.text();
}

} // namespace
} // namespace rv::test
