#include "Kernel/Services/TempFileList.h"

#include "Common/Text.h"

#include <cstring>
#include <new>

namespace rv {
namespace {

constexpr size_t kFirstBuckets = 64;
constexpr size_t kFilesPerBucket = 2;
#if defined(_WIN32)
constexpr R_WCHAR kCurrentFolder[] = RV_WIDE(".\\");
#else
constexpr R_WCHAR kCurrentFolder[] = RV_WIDE("./");
#endif

void releaseAll() noexcept;

struct FileList {
    LazyLock lock;
    ReleaseAtDetach release{&releaseAll};
    FileInMemory* first = nullptr;
    FileInMemory* fewBuckets[kFirstBuckets] = {};
    FileInMemory** manyBuckets = nullptr; ///< in their place, once there are many files
    size_t bucketCount = kFirstBuckets;   ///< a power of two
    std::atomic<size_t> listed{0};        ///< read without the lock by those who need not wait for nothing

    FileInMemory*& bucket(R_UINT hash) noexcept
    {
        return (manyBuckets != nullptr ? manyBuckets : fewBuckets)[hash & (bucketCount - 1)];
    }
};
constinit FileList list;

R_WCHAR nameUnit(R_WCHAR unit) noexcept { return unit == '/' ? R_WCHAR('\\') : unit; }

R_UINT hashOf(const R_WCHAR* name) noexcept
{
    R_UINT64 hash = 0xCBF29CE484222325;
    for (; *name != 0; ++name) hash = (hash ^ nameUnit(*name)) * 0x100000001B3;
    return static_cast<R_UINT>(hash ^ hash >> 32);
}

bool sameName(const R_WCHAR* listed, const R_WCHAR* asked) noexcept
{
    for (; *listed == nameUnit(*asked); ++listed, ++asked)
        if (*listed == 0) return true;
    return false;
}

/// Units of the folder that a name begins with, its separator included.
size_t folderLength(const R_WCHAR* name) noexcept
{
    size_t length = 0;
    for (size_t i = 0; name[i] != 0; ++i)
        if (endsFolder(name[i])) length = i + 1;
    return length;
}

/// Longer chains serve as well: without memory, the files stay where they are.
void spreadOut() noexcept
{
    const size_t count = list.bucketCount * 4;
    const size_t bytes = count * sizeof(void*);
    auto** const buckets = static_cast<FileInMemory**>(platform().allocate(bytes));
    if (buckets == nullptr) return;
    memset(buckets, 0, bytes);
    memset(list.fewBuckets, 0, sizeof list.fewBuckets); // they serve again after a detach
    platform().release(list.manyBuckets);
    list.manyBuckets = buckets;
    list.bucketCount = count;
    for (FileInMemory* file = list.first; file != nullptr; file = file->next) {
        if (file->name == nullptr) continue;
        FileInMemory*& bucket = list.bucket(file->hash);
        file->nextListed = bucket;
        bucket = file;
    }
}

void link(FileInMemory* file) noexcept
{
    list.release.registerOnce();
    file->next = list.first;
    if (file->next != nullptr) file->next->previous = file;
    list.first = file;
}

FileInMemory* makeFile(void* memory, const R_WCHAR* folder, R_UINT64 chunkBytes) noexcept
{
    auto* const file = new (memory) FileInMemory(folder, chunkBytes);
    platform().createLock(&file->lock);
    link(file);
    return file;
}

/// What a program has not closed and removed: files that are held are brought up to date, the others are gone.
void releaseAll() noexcept
{
    const LockGuard guard(list.lock);
    while (FileInMemory* const file = list.first) {
        if (file->name != nullptr)
            unlist(file);
        else if (file->handles != nullptr)
            dropHandle(file->handles);
        else
            endFile(file);
    }
    platform().release(list.manyBuckets);
    list.manyBuckets = nullptr;
    list.bucketCount = kFirstBuckets;
}

} // namespace

LazyLock& tempFileLock() noexcept { return list.lock; }

FileInMemory* findInMemory(const R_WCHAR* name) noexcept
{
    const R_UINT hash = hashOf(name);
    FileInMemory* file = list.bucket(hash);
    while (file != nullptr && !(file->hash == hash && sameName(file->name, name))) file = file->nextListed;
    return file;
}

Status listInMemory(const R_WCHAR* name, bool memoryOnly) noexcept
{
    if (list.listed.load() >= list.bucketCount * kFilesPerBucket) spreadOut();

    // The record, the name, and the folder: nothing is to be asked for when the file has to go there.
    const size_t nameUnits = textLength(name) + 1;
    const size_t folder = folderLength(name);
    const size_t folderUnits = (folder != 0 ? folder : std::size(kCurrentFolder)) + 1;
    void* const memory = platform().allocate(sizeof(FileInMemory) + (nameUnits + folderUnits) * sizeof(R_WCHAR));
    if (memory == nullptr) return ERROR_FAILURE;
    auto* const ownName = reinterpret_cast<R_WCHAR*>(static_cast<unsigned char*>(memory) + sizeof(FileInMemory));
    for (size_t i = 0; i < nameUnits; ++i) ownName[i] = nameUnit(name[i]);
    R_WCHAR* const ownFolder = ownName + nameUnits;
    TextWriter<R_WCHAR> out(ownFolder, folderUnits);
    if (folder != 0)
        out.append(name, folder);
    else
        out.append(kCurrentFolder);

    FileInMemory* const file = makeFile(memory, memoryOnly ? nullptr : ownFolder, TempFileBudget::chunkBytes());
    file->name = ownName;
    file->hash = hashOf(name);
    FileInMemory*& bucket = list.bucket(file->hash);
    file->nextListed = bucket;
    bucket = file;
    list.listed.fetch_add(1);
    return SUCCESS;
}

void unlist(FileInMemory* file) noexcept
{
    FileInMemory** at = &list.bucket(file->hash);
    while (*at != file) at = &(*at)->nextListed;
    *at = file->nextListed;
    file->name = nullptr;
    list.listed.fetch_sub(1);
    if (file->handles == nullptr) endFile(file);
}

FileInMemory* makeUnlisted(R_UINT64 chunkBytes) noexcept
{
    void* const memory = platform().allocate(sizeof(FileInMemory));
    return memory != nullptr ? makeFile(memory, nullptr, chunkBytes) : nullptr;
}

MemoryHandle* addHandle(FileInMemory* file, const MemoryHandle::Rights& rights) noexcept
{
    void* const memory = platform().allocate(sizeof(MemoryHandle));
    if (memory == nullptr) return nullptr;
    auto* const handle = new (memory) MemoryHandle{{'R', 'M', 'E', 'M'}, rights};
    handle->file = file;
    handle->next = file->handles;
    if (handle->next != nullptr) handle->next->previous = handle;
    file->handles = handle;
    return handle;
}

void dropHandle(MemoryHandle* handle) noexcept
{
    FileInMemory* const file = handle->file;
    (handle->previous != nullptr ? handle->previous->next : file->handles) = handle->next;
    if (handle->next != nullptr) handle->next->previous = handle->previous;
    const bool removes = handle->rights.deleteOnClose;
    memset(handle->tag, 0, sizeof handle->tag);
    platform().release(handle);

    if (removes && file->name != nullptr) return unlist(file);
    if (file->name == nullptr && file->handles == nullptr) endFile(file);
}

void endFile(FileInMemory* file) noexcept
{
    (file->previous != nullptr ? file->previous->next : list.first) = file->next;
    if (file->next != nullptr) file->next->previous = file->previous;
    (void)file->content.finish(); // when the library goes, there is nobody left to tell
    file->~FileInMemory();
    platform().destroyLock(&file->lock);
    platform().release(file);
}

bool isMemoryTempFile(const R_WCHAR* name) noexcept
{
    if (name == nullptr || list.listed.load() == 0) return false;
    const LockGuard guard(list.lock);
    return findInMemory(name) != nullptr;
}

} // namespace rv
