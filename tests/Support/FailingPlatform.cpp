#include "Support/FailingPlatform.h"

#include "Platform/NativeErrors.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <optional>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#if !defined(_WIN32)
#include <pthread.h>
#endif

namespace rv::test {
namespace {

std::string toUtf8(const R_WCHAR* wide)
{
    const std::u8string text = std::filesystem::path(wide).u8string();
    return std::string(text.begin(), text.end());
}

class FailingPlatform final : public Platform {
public:
    std::mutex mutex; // guards the fields below
    LiveCounts live{};
    std::unordered_map<void*, int> locks; // by movable block
    std::unordered_set<int64_t> files;    // open ones
    unsigned failing = 0, fuse = 0;       // kinds of which every call fails, and the one that `left` counts down to
    int left = 0;
    bool happened = false;
    size_t heapAsked = 0; // bytes, ever
    std::optional<MemoryStatus> memory;
    std::optional<uint64_t> clock;
    std::optional<bool> diagnostics, slim;
    std::optional<uint32_t> cores;
    std::optional<std::vector<DebugLine>> debug;

    void* allocate(size_t bytes) noexcept override
    {
        {
            const std::lock_guard hold(mutex);
            heapAsked += bytes;
        }
        return make(kFailHeap, kHeap, [&] { return Platform::allocate(bytes); });
    }
    void* reallocate(void* block, size_t bytes) noexcept override
    {
        if (block == nullptr) return allocate(bytes);
        return fails(kFailHeap) ? nullptr : Platform::reallocate(block, bytes);
    }
    void release(void* block) noexcept override { Platform::release(end(kHeap, block)); }

    void* createPages(uint64_t bytes) noexcept override
    {
        return make(kFailPages, kPages, [&] { return Platform::createPages(bytes); });
    }
    void* mapPages(void* pages) noexcept override
    {
        return make(kFailPages, kViews, [&] { return Platform::mapPages(pages); });
    }
    void unmapPages(void* pages, void* view) noexcept override { Platform::unmapPages(pages, end(kViews, view)); }
    void closePages(void* pages) noexcept override { Platform::closePages(end(kPages, pages)); }

    void* allocateMovable(size_t bytes) noexcept override
    {
        return make(kFailMovable, kMovable, [&] { return Platform::allocateMovable(bytes); });
    }
    void* reallocateMovable(void* handle, size_t bytes) noexcept override
    {
        return fails(kFailMovable) ? nullptr : Platform::reallocateMovable(handle, bytes);
    }
    void* lockMovable(void* handle) noexcept override
    {
        void* const address = make(kFailLocking, kLocks, [&] { return Platform::lockMovable(handle); });
        const std::lock_guard hold(mutex);
        if (address != nullptr) ++locks[handle];
        return address;
    }
    void unlockMovable(void* handle) noexcept override
    {
        Platform::unlockMovable(handle);
        const std::lock_guard hold(mutex);
        --locks[handle]; // below zero, for an unlock too many, stays in the count
        --live[kLocks];
    }
    void freeMovable(void* handle) noexcept override
    {
        end(kMovable, handle);
        {
            const std::lock_guard hold(mutex);
            live[kLocks] -= std::max(locks[handle], 0); // a lock ends with its block
            locks.erase(handle);
        }
        Platform::freeMovable(handle);
    }

    bool createSlot(ThreadSlot* slot, void (*atThreadEnd)(void*)) noexcept override
    {
        return make(kFailSlots, kSlots, [&] { return Platform::createSlot(slot, atThreadEnd); });
    }
    bool setSlotValue(ThreadSlot slot, void* value) noexcept override
    {
        return !fails(kFailSlots) && Platform::setSlotValue(slot, value);
    }
    void destroySlot(ThreadSlot slot) noexcept override
    {
        end(kSlots, this);
        Platform::destroySlot(slot);
    }

    void createLock(LockStorage* lock) noexcept override
    {
        Platform::createLock(make(0, kSystemLocks, [&] { return lock; }));
    }
    void destroyLock(LockStorage* lock) noexcept override { Platform::destroyLock(end(kSystemLocks, lock)); }

    void* createEvent(bool manualReset, bool signalled) noexcept override
    {
        return make(kFailObjects, kObjects, [&] { return Platform::createEvent(manualReset, signalled); });
    }
    void closeEvent(void* event) noexcept override { Platform::closeEvent(end(kObjects, event)); }
    Waited waitEvent(void* event, uint32_t milliseconds) noexcept override
    {
        return fails(kFailWaits) ? Waited::failed : Platform::waitEvent(event, milliseconds);
    }
    HPALETTE createPalette(const PALETTEENTRY* entries, uint32_t count) noexcept override
    {
        return make(kFailObjects, kObjects, [&] { return Platform::createPalette(entries, count); });
    }
    void deletePalette(HPALETTE palette) noexcept override { Platform::deletePalette(end(kObjects, palette)); }

    bool startThread(const Work& work) noexcept override { return !fails(kFailThreads) && Platform::startThread(work); }
    bool queueWork(const Work& work, bool mayRunLong) noexcept override
    {
        return !fails(kFailThreads) && Platform::queueWork(work, mayRunLong);
    }
    bool slimLocks() noexcept override
    {
        return pretended(slim, [&] { return Platform::slimLocks(); });
    }
    uint32_t coreCount() noexcept override
    {
        return pretended(cores, [&] { return Platform::coreCount(); });
    }

    int64_t openFile(const R_WCHAR* name, const FileRequest& request) noexcept override
    {
        if (failsWith(kFailOpen, native::kTooManyOpenFiles)) return kNoFile;
        return opened(Platform::openFile(name, request));
    }
    int64_t openScratchFile(const R_WCHAR* folder, uint64_t reservedBytes) noexcept override
    {
        if (failsWith(kFailScratch, native::kDiskFull)) return kNoFile;
        return opened(Platform::openScratchFile(folder, reservedBytes));
    }
    bool resizeScratchFile(int64_t file, uint64_t bytes) noexcept override
    {
        return !failsWith(kFailScratch, native::kDiskFull) && Platform::resizeScratchFile(file, bytes);
    }
    bool closeFile(int64_t file) noexcept override
    {
        {
            const std::lock_guard hold(mutex);
            live[kFiles] -= static_cast<int>(files.erase(file)); // others may be given the number from here on
        }
        const bool closed = Platform::closeFile(file);
        return !failsWith(kFailClose, native::kDiskFull) && closed;
    }
    int64_t readFile(int64_t file, void* buffer, uint32_t bytes) noexcept override
    {
        if (failsWith(kFailRead, native::kGeneralFailure)) return kNoFile;
        return Platform::readFile(file, buffer, bytes);
    }
    int64_t readFileAt(int64_t file, void* buffer, uint32_t bytes, uint64_t offset) noexcept override
    {
        if (failsWith(kFailRead, native::kGeneralFailure)) return kNoFile;
        return Platform::readFileAt(file, buffer, bytes, offset);
    }
    int64_t writeFile(int64_t file, const void* buffer, uint32_t bytes) noexcept override
    {
        if (failsWith(kFailWrite, native::kDiskFull)) return kNoFile;
        return Platform::writeFile(file, buffer, fails(kShortWrite) ? bytes / 2 : bytes);
    }
    void copyContent(int64_t from, int64_t to) noexcept override
    {
        const std::lock_guard guard(mutex);
        if (((failing | fuse) & (kFailRead | kFailWrite | kShortWrite)) == 0) Platform::copyContent(from, to);
    }
    int64_t writeFileAt(int64_t file, const void* buffer, uint32_t bytes, uint64_t offset) noexcept override
    {
        if (failsWith(kFailPlaced, native::kDiskFull)) return kNoFile;
        return Platform::writeFileAt(file, buffer, bytes, offset);
    }
    int64_t seekFile(int64_t file, int64_t distance, int32_t origin) noexcept override
    {
        if (failsWith(kFailSeek, native::kGeneralFailure)) return kNoFile;
        return Platform::seekFile(file, distance, origin);
    }
    bool endFileHere(int64_t file) noexcept override
    {
        return !failsWith(kFailEnd, native::kDiskFull) && Platform::endFileHere(file);
    }
    void* mapFile(int64_t file, uint64_t offset, size_t bytes) noexcept override
    {
        setNativeError(native::kNotEnoughMemory); // stays where the call is not made
        return make(kFailMapping, kViews, [&] { return Platform::mapFile(file, offset, bytes); });
    }
    void unmapFile(void* view, size_t bytes) noexcept override { Platform::unmapFile(end(kViews, view), bytes); }
    bool deleteFile(const R_WCHAR* name) noexcept override
    {
        return !failsWith(kFailNames, native::kAccessDenied) && Platform::deleteFile(name);
    }
    bool moveFile(const R_WCHAR* from, const R_WCHAR* to, uint32_t flags) noexcept override
    {
        return !failsWith(kFailNames, native::kAccessDenied) && Platform::moveFile(from, to, flags);
    }

    void* loadModule(const R_WCHAR* path) noexcept override
    {
        return loaded([&] { return Platform::loadModule(path); });
    }
    void* loadModuleFrom(const R_WCHAR* folder, const R_WCHAR* name) noexcept override
    {
        return loaded([&] { return Platform::loadModuleFrom(folder, name); });
    }
    void freeModule(void* module) noexcept override { Platform::freeModule(end(kModules, module)); }
    uint32_t libraryFolder(R_WCHAR* buffer, uint32_t capacity) noexcept override
    {
        return fails(kFailModules) ? 0 : Platform::libraryFolder(buffer, capacity);
    }

    MemoryStatus memoryStatus() noexcept override
    {
        return pretended(memory, [&] { return Platform::memoryStatus(); });
    }
    uint64_t ticks() noexcept override
    {
        return pretended(clock, [&] { return Platform::ticks(); });
    }
    bool lockCountDiagnosticsWanted() noexcept override
    {
        return pretended(diagnostics, [&] { return Platform::lockCountDiagnosticsWanted(); });
    }
    void debugOutput(const char* text) noexcept override
    {
        if (!captured({text, false})) Platform::debugOutput(text);
    }
    void debugOutputWide(const R_WCHAR* text) noexcept override
    {
        if (!captured({toUtf8(text), true})) Platform::debugOutputWide(text);
    }

private:
    bool fails(unsigned kind)
    {
        const std::lock_guard hold(mutex);
        if ((failing & kind) != 0) return true;
        if ((fuse & kind) == 0 || --left != 0) return false;
        return happened = true;
    }
    bool failsWith(unsigned kind, uint32_t error)
    {
        if (!fails(kind)) return false;
        setNativeError(error);
        return true;
    }
    int64_t opened(int64_t file)
    {
        const std::lock_guard hold(mutex);
        if (file != kNoFile && files.insert(file).second) ++live[kFiles];
        return file;
    }
    template <class Make> auto make(unsigned kind, LiveKind what, Make made) -> decltype(made())
    {
        if (fails(kind)) return {};
        const auto block = made();
        const std::lock_guard hold(mutex);
        if (block) ++live[what];
        return block;
    }
    // Counted before the block is really gone: until then nobody else can be given it.
    template <class Block> Block end(LiveKind what, Block block)
    {
        const std::lock_guard hold(mutex);
        if (block != nullptr) --live[what];
        return block;
    }
    template <class Load> void* loaded(Load load)
    {
        setNativeError(native::kNotEnoughMemory); // stays where the call is not made
        return make(kFailModules, kModules, load);
    }
    template <class Value, class Ask> Value pretended(const std::optional<Value>& value, Ask ask)
    {
        {
            const std::lock_guard hold(mutex);
            if (value) return *value;
        }
        return ask();
    }
    bool captured(DebugLine line)
    {
        const std::lock_guard hold(mutex);
        if (debug) debug->push_back(std::move(line));
        return debug.has_value();
    }
};

FailingPlatform& tested()
{
    // Never destroyed: objects of static life may still free through it.
    static FailingPlatform& instance = *[] {
        auto* const made = new FailingPlatform;
        gPlatform.store(made);
        return made;
    }();
    return instance;
}

template <class Field> Field set(Field FailingPlatform::*field, std::type_identity_t<Field> value)
{
    const std::lock_guard hold(tested().mutex);
    return std::exchange(tested().*field, std::move(value));
}
template <class Field> Field get(Field FailingPlatform::*field)
{
    const std::lock_guard hold(tested().mutex);
    return tested().*field;
}

} // namespace

void installTestPlatform() { tested(); }

#if !defined(_WIN32)
namespace {
// The child of a fork finds the lock free, as it finds the kernel's own. Their handlers are registered later, and so
// run first: a thread that holds one of theirs may be about to take this one.
__attribute__((constructor(101))) void lockAroundForks()
{
    (void)pthread_atfork([] { tested().mutex.lock(); }, [] { tested().mutex.unlock(); },
                         [] { tested().mutex.unlock(); });
}
} // namespace
#endif

FailingAllocation::FailingAllocation(int nth, unsigned kinds)
{
    set(&FailingPlatform::left, nth);
    set(&FailingPlatform::happened, false);
    if (set(&FailingPlatform::fuse, kinds) != 0) std::abort(); // two at a time would not know whose turn it is
}
FailingAllocation::~FailingAllocation() { set(&FailingPlatform::fuse, 0); }
bool FailingAllocation::happened() const { return get(&FailingPlatform::happened); }

NoMemory::NoMemory(unsigned kinds) { set(&FailingPlatform::failing, kinds); }
NoMemory::~NoMemory() { set(&FailingPlatform::failing, 0); }

LiveBlocks::LiveBlocks() : start_(get(&FailingPlatform::live)) {}
int LiveBlocks::count(LiveKind kind) const { return get(&FailingPlatform::live)[kind] - start_[kind]; }

int LiveBlocks::count() const
{
    int sum = 0;
    for (int kind = 0; kind < kLeaks; ++kind) sum += std::abs(count(static_cast<LiveKind>(kind)));
    return sum;
}

std::string LiveBlocks::text() const
{
    std::string text = "alive since:";
    for (int kind = 0; const char* const name :
                       {"heap", "movable", "locks", "pages", "views", "objects", "slots", "files", "modules"})
        text += std::string(" ") + name + " " + std::to_string(count(static_cast<LiveKind>(kind++)));
    return text;
}

AskedMemory::AskedMemory() : start_(get(&FailingPlatform::heapAsked)) {}
size_t AskedMemory::bytes() const { return get(&FailingPlatform::heapAsked) - start_; }

PretendMemory::PretendMemory(const MemoryStatus& status) { set(&FailingPlatform::memory, status); }
PretendMemory::~PretendMemory() { set(&FailingPlatform::memory, {}); }
PretendTicks::PretendTicks(uint64_t milliseconds) { set(milliseconds); }
PretendTicks::~PretendTicks() { test::set(&FailingPlatform::clock, {}); }
void PretendTicks::set(uint64_t milliseconds) { test::set(&FailingPlatform::clock, milliseconds); }
PretendDiagnostics::PretendDiagnostics(bool wanted) { set(&FailingPlatform::diagnostics, wanted); }
PretendDiagnostics::~PretendDiagnostics() { set(&FailingPlatform::diagnostics, {}); }

PretendLocks::PretendLocks(bool slim) { set(&FailingPlatform::slim, slim); }
PretendLocks::~PretendLocks() { set(&FailingPlatform::slim, {}); }
PretendCores::PretendCores(uint32_t cores) { set(&FailingPlatform::cores, cores); }
PretendCores::~PretendCores() { set(&FailingPlatform::cores, {}); }

DebugCapture::DebugCapture() { set(&FailingPlatform::debug, std::vector<DebugLine>()); }
DebugCapture::~DebugCapture() { set(&FailingPlatform::debug, {}); }
std::vector<DebugLine> DebugCapture::lines() const { return get(&FailingPlatform::debug).value(); }

std::string DebugCapture::text() const
{
    std::string all;
    for (const DebugLine& line : lines()) all += line.text;
    return all;
}

} // namespace rv::test
