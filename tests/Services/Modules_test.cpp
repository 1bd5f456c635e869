// Loading modules: real ones, built beside the tests. Their folders are named from this program's own.
#include "Kernel/Base/Dispatch.h"
#include "Kernel/Services/Modules.h"
#include "Platform/Entry.h"
#include "Platform/NativeErrors.h"
#include "R_Kernel.h"
#include "Support/FailingPlatform.h"

#include "Common/Text.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace rv::test;
using Wide = std::basic_string<R_WCHAR>;

#define W(literal) RV_WIDE(literal)

Wide folderOfProgram()
{
    R_WCHAR path[4096];
    EXPECT_EQ(R_GetLibFullPath(W(""), path, 4096), SUCCESS);
    return path;
}

/// A loader whose functions have been asked for before and after it loads.
struct Client {
    R_DllLoader loader;
    Client() { EXPECT_EQ(loader.AddFunction("moduleAnswer"), SUCCESS); }
    R_INT load(const Wide& name) { return loader.LoadLibName(name.c_str(), nullptr); }
    int answer() const
    {
        void* const found = loader.GetFunction("moduleAnswer");
        return found != nullptr ? reinterpret_cast<int (*)()>(found)() : -1;
    }
};

struct LoadLibCallback {
    explicit LoadLibCallback(LOADLIBCALLBACK function, void* data) { R_SetLoadLibCallback(function, data); }
    ~LoadLibCallback() { R_SetLoadLibCallback(nullptr, nullptr); }
};

TEST(Modules, PathsAreSplitBehindTheLastSeparator)
{
    const R_WCHAR* const cases[][2] = {{W(""), W("")},       {W("c:"), W("a")},  {W("/a/"), W("b")},
                                       {W("a\\b/"), W("c")}, {W("a/c:"), W("")}, {W("c:\\x\\"), W("")}};
    for (const auto& [folder, name] : cases) {
        const Wide path = Wide(folder) + name;
        R_WCHAR copy[20];
        const R_WCHAR* base = nullptr;
        EXPECT_EQ(R_DllLoader::GetDir(path.c_str(), &base, copy, 20), SUCCESS);
        EXPECT_EQ(Wide(base), name);
        EXPECT_EQ(Wide(copy), folder);
        EXPECT_EQ(R_SkipPath(path.c_str()), base);
    }
    R_WCHAR small[3] = {'x', 'x', 'x'};
    EXPECT_EQ(R_DllLoader::GetDir(W("abc/d"), nullptr, small, 2), SUCCESS);
    EXPECT_EQ(Wide(small, 3), Wide(W("a\0x"), 3));
    EXPECT_EQ(R_DllLoader::GetDir(W("abc/d"), nullptr, small, 0), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetLibFullPath(W("d"), small, 0), ERROR_INV_PARAMETER);
}

TEST(Modules, AreFoundByPathByFolderByNameAndInPackages)
{
    const LiveBlocks live;
    const Wide here = folderOfProgram();
    const bool onPath = std::filesystem::path::preferred_separator != '/'; // the system looks beside a Windows program
    const std::pair<Wide, R_INT> names[] = {
        {here + W("modules/rvdisX.DLL"), 1}, // as given
        {here + W("modules\\rvdisX.DLL"), 1},
        {here + W("nowhere/rvtwnX.DLL"), onPath}, // not there, nor by name
        {W("rvtwnX.DLL"), 1},                     // the modules' folder
        {W("rvsvgX.DLL"), 1},                     // a package within
        {W("rvannX.DLL"), 1},                     // and beside
        {W("rvdisX.DLL"), 0},                     // nowhere that a bare name leads to
        {here + W("modules/nobodyX.DLL"), 0},
    };
    for (const auto& [name, found] : names) {
        SCOPED_TRACE(testing::PrintToString(name));
        Client client;
        EXPECT_EQ(client.load(name), found);
        EXPECT_EQ(client.loader.IsLoaded(), found);
        EXPECT_EQ(client.answer(), found != 0 ? 42 : -1);
        EXPECT_EQ(client.loader.IsSystemOutOfMemory(), 0);
    }
    for (const R_INT id : {63, 46}) // rvtwn, and a number without a module
        EXPECT_EQ(Client().loader.LoadLib(id, 0, nullptr), id == 63 ? 1 : 0);

    for (const auto& [asked, missing] : {std::pair<Wide, R_INT>{W("rvtwnX.DLL"), 0},
                                         {W("rvdisX.DLL"), 1},
                                         {here + W("modules\\rvdisX.DLL"), 0},
                                         {here + W("modules"), 1},
                                         {W(""), 1}})
        EXPECT_EQ(R_IsMissingFile(asked.c_str()), missing) << testing::PrintToString(asked);
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(Modules, LoadsAreCountedAndFunctionsFollowThem)
{
    const LiveBlocks live;
    {
        Client client;
        R_DllLoader& loader = client.loader;
        EXPECT_EQ(loader.Load(), 0); // no name yet
        EXPECT_EQ(loader.Unload(), 0);
        ASSERT_EQ(client.load(folderOfProgram() + W("modules/rvdisX.DLL")), 1);
        EXPECT_EQ(client.load(W("whatever the name")), 1);
        EXPECT_EQ(loader.Load(), 1);
        for (int i = 0; i < 40; ++i) // they are sorted, and their store grows
            EXPECT_EQ(loader.AddFunction(("missing" + std::to_string(i * 7 % 40)).c_str()), SUCCESS);
        EXPECT_EQ(loader.AddFunction("moduleDouble", 4), SUCCESS);
        EXPECT_EQ(loader.AddFunction(""), ERROR_INV_PARAMETER);
        EXPECT_EQ(loader.IsFunctionOk("missing39"), 0);
        EXPECT_EQ(loader.IsFunctionOk("moduleDouble"), 1);
        for (int count = 3; count > 0; --count) {
            EXPECT_EQ(client.answer(), 42);
            EXPECT_EQ(loader.Unload(), 1);
        }
        EXPECT_EQ(client.answer(), -1);
        EXPECT_EQ(live.count(kModules), 0);
        EXPECT_EQ(loader.Load(), 1); // by the name it had, with the functions it was asked for
        EXPECT_EQ(reinterpret_cast<int (*)(int)>(loader.GetFunction("moduleDouble"))(21), 42);
        {
            const NoMemory none;
            EXPECT_EQ(loader.Load(), 1); // another count needs none
        }
        loader.Free();
        EXPECT_EQ(loader.IsLoaded() + loader.Unload(), 0);
        EXPECT_EQ(loader.Load(), 1);
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(Modules, WhatIsNoModuleOrTooLongFailsWithoutHarm)
{
    const std::filesystem::path broken = std::filesystem::temp_directory_path() / "rvfilX.DLL";
    std::ofstream(broken) << "this is no module";
    Client client;
    EXPECT_EQ(client.load(broken.is_absolute() ? Wide(broken.native().begin(), broken.native().end()) : W("")), 0);
    std::filesystem::remove(broken);
    for (const size_t units : {size_t{600}, size_t{70000}}) {
        EXPECT_EQ(client.load(Wide(units, 'n')), 0);
        EXPECT_EQ(client.load(Wide(units, 'n') + W("/rvdisX.DLL")), 0);
    }
    EXPECT_EQ(client.loader.LoadLibName(nullptr, nullptr), 0);
    // More than fits into the loader, and yet a good name.
    Wide roundabout = folderOfProgram();
    while (roundabout.size() < 600) roundabout += W("modules/../");
    EXPECT_EQ(client.load(roundabout + W("modules/rvdisX.DLL")), 1);
    EXPECT_EQ(client.answer(), 42);
    client.loader.Free();
    EXPECT_EQ(client.loader.Load(), 0); // by what the loader kept of it
    EXPECT_EQ(client.load(W("rvtwnX.DLL")), 1);
}

TEST(Modules, RefusedMemoryIsToldAndLeavesNothingBehind)
{
    (void)folderOfProgram(); // known before
    const LiveBlocks live;
    constexpr unsigned kinds = kFailAllocations | kFailModules;
    int refusals = 0;
    for (const R_WCHAR* const name : {W("rvtwnX.DLL"), W("rvsvgX.DLL"), W("modules/none/rvannX.DLL")}) {
        bool happened = true;
        for (int nth = 1; happened; ++nth) {
            R_DllLoader loader;
            R_INT added, loaded;
            {
                const FailingAllocation fault(nth, kinds);
                added = loader.AddFunction("moduleAnswer");
                loaded = loader.LoadLibName(name, nullptr);
                happened = fault.happened();
            }
            EXPECT_TRUE(added == SUCCESS || (added == ERROR_FAILURE && happened));
            EXPECT_EQ(loader.IsSystemOutOfMemory(), loaded == 1 ? 0 : 1);
            EXPECT_TRUE(loaded == 1 || happened);
            refusals += loaded != 1 ? 1 : 0;
            EXPECT_EQ(loader.LoadLibName(name, nullptr), 1); // now, or once more
            EXPECT_NE(loader.GetFunction("moduleAnswer"), nullptr);
        }
    }
    EXPECT_GT(refusals, 6);
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(Modules, BareNamesLeadNowhereWhileTheFolderIsUnknown)
{
    rv::detach();
    rv::attach();
    {
        const NoMemory unknown(kFailModules);
        R_WCHAR path[40];
        EXPECT_EQ(R_GetLibFullPath(W("rvtwnX.DLL"), path, 40), SUCCESS);
        EXPECT_EQ(Wide(path), W("rvtwnX.DLL"));
        EXPECT_EQ(Client().load(W("rvtwnX.DLL")), 0);
    }
    EXPECT_EQ(Client().load(W("rvtwnX.DLL")), 1);
}

TEST(Modules, TheCallbackSendsBringsAndRefuses)
{
    const LiveBlocks live;
    struct Wish {
        R_INT answer = SUCCESS;
        Wide path;
        void* module = nullptr;
        Wide asked;
        bool hadName = false;
    } wish;
    const LoadLibCallback installed(
        [](const R_WCHAR* name, R_WCHAR* path, R_UINT units, void** module, void* data) -> R_INT {
            auto& w = *static_cast<Wish*>(data);
            w.asked = name;
            w.hadName = w.asked == path && units >= 1024;
            if (!w.path.empty()) w.path.copy(path, w.path.size() + 1);
            if (!w.path.empty()) path[w.path.size()] = 0;
            *module = w.module;
            return w.answer;
        },
        &wish);
    EXPECT_EQ(Client().load(W("rvtwnX.DLL")), 1); // lets it go on
    EXPECT_EQ(wish.asked, W("rvtwnX.DLL"));
    EXPECT_TRUE(wish.hadName);
    wish.path = folderOfProgram() + W("modules/rvdisX.DLL");
    EXPECT_EQ(Client().load(W("nobodyX.DLL")), 1); // sends it elsewhere
    wish.answer = SUCCESS_ABORT;
    {
        Client client;
        rv::platform().setNativeError(rv::native::kNotEnoughMemory); // of some time before
        EXPECT_EQ(client.load(W("rvtwnX.DLL")), 0);                  // says it brings one, and does not
        EXPECT_EQ(client.loader.IsSystemOutOfMemory(), 0);
    }
    wish.module = rv::loadSystemModule({W("nobodyX.DLL"), wish.path.c_str()});
    ASSERT_NE(wish.module, nullptr);
    {
        Client client;
        EXPECT_EQ(client.load(W("nobodyX.DLL")), 1);
        EXPECT_EQ(client.loader.GetHInstance(), wish.module);
    }
    wish.answer = FAILURE;
    EXPECT_EQ(Client().load(W("rvtwnX.DLL")), 0);
    EXPECT_EQ(live.count(), 0) << live.text();
}

#if !defined(_WIN32)
/// Such a one has the lock of the system's loader, which other threads wait for meanwhile.
TEST(Modules, AreLoadedByOneThatIsBeingLoaded)
{
    static std::thread other;
    const Wide path = folderOfProgram() + W("modules/rvdisX.DLL");
    void (*const hook)() = [] {
        unsetenv("MODULE_HOOK");
        rv::detach(); // the modules' folder is asked for anew, by two threads
        rv::attach();
        other = std::thread([] { (void)folderOfProgram(); });
        rv::gSystemPlatform.sleep(30);
        EXPECT_EQ(Client().load(W("rvtwnX.DLL")), 1);
    };
    std::ostringstream address;
    address << std::hex << reinterpret_cast<uintptr_t>(hook);
    setenv("MODULE_HOOK", address.str().c_str(), 1);
    EXPECT_EQ(Client().load(path), 1);
    ASSERT_TRUE(other.joinable());
    other.join();
}
#endif

TEST(Modules, AMissingOneIsTracedByNameWhereThatIsAsked)
{
    for (const int asked : {0, 1}) {
        const DebugCapture capture;
        R_DllLoader loader;
        loader.SetErrorIfMissing(7 * asked);
        EXPECT_EQ(loader.LoadLib(8, 0, nullptr), 0);
        const std::string text = capture.text();
        EXPECT_EQ(text.find("rfpdfX.DLL could not be loaded: status -825, native error 126") != text.npos, asked != 0);
    }
}

} // namespace
