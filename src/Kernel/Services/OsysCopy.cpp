#include "Internal/R_Int.h"
#include "Kernel/Services/Osys.h"
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
};

/// Of several kinds, the one that counts.
constexpr R_UINT firstOf(R_UINT kinds) noexcept { return kinds & (0 - kinds); }
static_assert(COPYFILE_FROM_DISK < COPYFILE_FROM_REDIRECTED && COPYFILE_FROM_REDIRECTED < COPYFILE_FROM_TEMPFILE);
static_assert(COPYFILE_TO_DISK < COPYFILE_TO_REDIRECTED && COPYFILE_TO_REDIRECTED < COPYFILE_TO_TEMPFILE);

const Road* roadOf(R_UINT kind) noexcept
{
    return kind == COPYFILE_FROM_DISK || kind == COPYFILE_TO_DISK ? &kDisk : nullptr;
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
    if (roadOf(firstOf(flags & kSources)) == nullptr || roadOf(firstOf(flags & kTargets)) == nullptr)
        return failWith(native::kNotSupported);
    const Road& from = *roadOf(firstOf(flags & kSources));
    const Road& to = *roadOf(firstOf(flags & kTargets));
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
