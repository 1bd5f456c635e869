// Copies between files on disk, redirected files and temporary ones.
#include "Internal/R_Int.h"
#include "Kernel/Services/Osys.h"
#include "Kernel/Services/Redirect.h"
#include "Platform/NativeErrors.h"
#include "Platform/Platform.h"

namespace rv {
namespace {

constexpr R_UINT kSources = COPYFILE_FROM_DISK | COPYFILE_FROM_REDIRECTED | COPYFILE_FROM_TEMPFILE;
constexpr R_UINT kTargets = COPYFILE_TO_DISK | COPYFILE_TO_REDIRECTED | COPYFILE_TO_TEMPFILE;

// What one step moves; those who redirect files see it.
constexpr R_UINT kPiece = 32768;

/// How the files of one kind are reached. Reading and writing answer as the R_Os calls do.
struct Road {
    R_INT64 (*openSource)(const R_WCHAR* name);
    R_INT64 (*openTarget)(const R_WCHAR* name);
    R_INT (*read)(R_INT64 file, void* buffer, R_UINT bytes);
    R_INT (*write)(R_INT64 file, const void* buffer, R_UINT bytes);
    R_INT (*close)(R_INT64 file);
    R_INT64 (*native)(R_INT64 file); ///< the system's file, where nobody stands before it; else none
};

constexpr uint32_t kRead = FileRequest::kRead;
constexpr uint32_t kWrite = FileRequest::kWrite;

constexpr Road kDisk = {
    [](const R_WCHAR* name) { return platform().openFile(name, {.access = kRead, .sharing = kRead}); },
    [](const R_WCHAR* name) {
        return platform().openFile(
            name,
            {.access = kRead | kWrite, .sharing = kRead | kWrite, .creation = FileRequest::Creation::createAlways});
    },
    [](R_INT64 file, void* buffer, R_UINT bytes) { return R_OsRead(file, buffer, bytes); },
    [](R_INT64 file, const void* buffer, R_UINT bytes) { return R_OsWrite(file, buffer, bytes); },
    [](R_INT64 file) { return R_OsClose(file); },
    [](R_INT64 file) { return file; },
};

// Redirected and temporary files differ in how they are opened.
constexpr R_INT kTargetMode = FILE_MODE_CREATE | FILE_MODE_TRUNCATE | FILE_MODE_READ_WRITE;
constexpr R_INT kTargetSharing = FILE_SHARE_BIT_READ | FILE_SHARE_BIT_WRITE;

constexpr Road kRedirected = {
    [](const R_WCHAR* name) { return R_RedirectedOpen(name, FILE_MODE_READ, FILE_SHARE_BIT_READ); },
    [](const R_WCHAR* name) { return R_RedirectedOpen(name, kTargetMode, kTargetSharing); },
    [](R_INT64 file, void* buffer, R_UINT bytes) { return R_RedirectedRead(file, buffer, bytes); },
    [](R_INT64 file, const void* buffer, R_UINT bytes) { return R_RedirectedWrite(file, buffer, bytes); },
    [](R_INT64 file) { return R_RedirectedClose(file); },
    [](R_INT64 file) {
        const RedirectedFile& record = *redirectedFile(file);
        return isOsSet(record.set) && record.filter == nullptr ? record.underlying : R_INVALID_FILE;
    },
};

constexpr Road kTemporary = {
    [](const R_WCHAR* name) { return R_RedirectedTempFileOpen(name, FILE_MODE_READ, FILE_SHARE_BIT_READ); },
    [](const R_WCHAR* name) { return R_RedirectedTempFileOpen(name, kTargetMode, kTargetSharing); },
    kRedirected.read,
    kRedirected.write,
    kRedirected.close,
    kRedirected.native,
};

/// Of several kinds, the one that counts.
constexpr R_UINT firstOf(R_UINT kinds) noexcept { return kinds & (0 - kinds); }
static_assert(COPYFILE_FROM_DISK < COPYFILE_FROM_REDIRECTED && COPYFILE_FROM_REDIRECTED < COPYFILE_FROM_TEMPFILE);
static_assert(COPYFILE_TO_DISK < COPYFILE_TO_REDIRECTED && COPYFILE_TO_REDIRECTED < COPYFILE_TO_TEMPFILE);

const Road& roadOf(R_UINT kind) noexcept
{
    switch (kind) {
    case COPYFILE_FROM_DISK:
    case COPYFILE_TO_DISK: return kDisk;
    case COPYFILE_FROM_REDIRECTED:
    case COPYFILE_TO_REDIRECTED: return kRedirected;
    default: return kTemporary;
    }
}

/// An open file of the copy. Closing leaves the native error that stood before.
class CopyFile {
public:
    CopyFile(const Road& road, R_INT64 file) noexcept : road_(road), file_(file) {}
    ~CopyFile() { (void)close(); }
    CopyFile(const CopyFile&) = delete;
    CopyFile& operator=(const CopyFile&) = delete;
    explicit operator bool() const noexcept { return file_ != R_INVALID_FILE; }

    R_INT read(void* buffer) noexcept { return road_.read(file_, buffer, kPiece); }
    bool write(const void* buffer, R_INT bytes) noexcept
    {
        return road_.write(file_, buffer, static_cast<R_UINT>(bytes)) == bytes;
    }
    R_INT64 native() const noexcept { return road_.native(file_); }
    bool close() noexcept
    {
        if (file_ == R_INVALID_FILE) return true;
        const uint32_t error = platform().nativeError();
        const bool closed = road_.close(file_) >= 0;
        file_ = R_INVALID_FILE;
        platform().setNativeError(error);
        return closed;
    }

private:
    const Road& road_;
    R_INT64 file_;
};

class PieceBuffer {
public:
    PieceBuffer() noexcept : bytes_(platform().allocate(kPiece)) {}
    ~PieceBuffer() { platform().release(bytes_); }
    PieceBuffer(const PieceBuffer&) = delete;
    PieceBuffer& operator=(const PieceBuffer&) = delete;
    void* get() const noexcept { return bytes_; }

private:
    void* bytes_;
};

R_INT failWith(uint32_t error) noexcept
{
    platform().setNativeError(error);
    return FAILURE;
}

R_INT copyContent(CopyFile& source, CopyFile& target) noexcept
{
    const PieceBuffer buffer;
    if (buffer.get() == nullptr) return failWith(native::kNotEnoughMemory);
    if (source.native() != R_INVALID_FILE && target.native() != R_INVALID_FILE)
        platform().copyContent(source.native(), target.native());
    for (;;) {
        const R_INT bytes = source.read(buffer.get());
        if (bytes < 0) return failWith(native::kReadFault);
        if (bytes == 0) break;
        if (!target.write(buffer.get(), bytes)) return failWith(native::kWriteFault);
    }
    // What the target held back is written now, if ever.
    return target.close() ? SUCCESS : failWith(native::kWriteFault);
}

} // namespace

R_INT copyFileThrough(const R_WCHAR* source, const R_WCHAR* target, R_UINT flags) noexcept
{
    if ((flags & kSources) == 0 || (flags & kTargets) == 0) return ERROR_INV_PARAMETER;
    if (source == nullptr || target == nullptr) return failWith(native::kInvalidParameter);
    const Road& from = roadOf(firstOf(flags & kSources));
    const Road& to = roadOf(firstOf(flags & kTargets));
    if ((flags & COPYFILE_FAIL_IF_EXISTS) != 0) {
        CopyFile existing(to, to.openSource(target));
        if (existing) {
            (void)existing.close();
            return failWith(native::kFileExists);
        }
    }
    CopyFile in(from, from.openSource(source));
    if (!in) return FAILURE;
    CopyFile out(to, to.openTarget(target));
    return out ? copyContent(in, out) : FAILURE;
}

} // namespace rv

using namespace rv;

R_INT R_IntCopyFile(const R_WCHAR* pszSource, const R_WCHAR* pszTarget, R_UINT uFlags) noexcept
{
    const R_UINT from = firstOf(uFlags & kSources);
    const R_UINT to = firstOf(uFlags & kTargets);
    const bool redirected = from == COPYFILE_FROM_REDIRECTED && to == COPYFILE_TO_REDIRECTED;
    if (!redirected && (from != COPYFILE_FROM_TEMPFILE || to != COPYFILE_TO_TEMPFILE))
        return copyFileThrough(pszSource, pszTarget, uFlags);
    // Who has both files may know a shorter way.
    const REDIRECTSET set = redirected ? currentRedirectSet(false) : tempFileRedirectSet();
    if (set.pfnCopy == nullptr) return failWith(native::kNotSupported);
    return set.pfnCopy(pszSource, pszTarget, uFlags, set.pCopyData);
}

R_INT R_CopyFile(const R_WCHAR* pszSource, const R_WCHAR* pszTarget, R_INT bFailIfExists) noexcept
{
    const R_UINT flag = bFailIfExists != 0 ? COPYFILE_FAIL_IF_EXISTS : 0;
    return R_IntCopyFile(pszSource, pszTarget, COPYFILE_FROM_DISK | COPYFILE_TO_REDIRECTED | flag);
}

R_INT R_CopyFile2(const R_WCHAR* pszSource, const R_WCHAR* pszTarget, R_INT bFailIfExists) noexcept
{
    const R_UINT flag = bFailIfExists != 0 ? COPYFILE_FAIL_IF_EXISTS : 0;
    return R_IntCopyFile(pszSource, pszTarget, COPYFILE_FROM_REDIRECTED | COPYFILE_TO_DISK | flag);
}
