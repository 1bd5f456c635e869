// Small reads and writes of a file that the system has in memory: through the kernel's buffered files, by themselves
// and behind redirected handles, and through C stdio with a buffer of the same size, locking and not.
#include "Support.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <vector>

namespace rv::bench {

namespace {

constexpr R_UINT kBytes = 1 << 20;
constexpr size_t kBufferBytes = 32768;

/// A file that is gone with this.
class File {
public:
    File() : path(std::filesystem::temp_directory_path() / ("rvkrn-bench-" + std::to_string(std::random_device{}())))
    {
        std::FILE* const file = std::fopen(path.string().c_str(), "wb");
        if (file == nullptr) return;
        const Warm bytes(kBytes);
        std::fwrite(bytes.data(), 1, kBytes, file);
        std::fclose(file);
    }
    ~File()
    {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    const std::filesystem::path path;
};

/// An open file, piece by piece. The destructor closes it.
struct Buffered {
    explicit Buffered(const File& file)
        : handle(R_BufferedOpen(file.path.string<R_WCHAR>().c_str(), FILE_MODE_READ_WRITE, 0, nullptr))
    {
    }
    ~Buffered() { R_BufferedClose(handle, nullptr); }
    Buffered(const Buffered&) = delete;
    Buffered& operator=(const Buffered&) = delete;
    bool read(void* to, R_UINT n) const { return R_BufferedRead(handle, to, n, nullptr) == static_cast<R_INT>(n); }
    bool write(const void* from, R_UINT n) const
    {
        return R_BufferedWrite(handle, from, n, nullptr) == static_cast<R_INT>(n);
    }
    bool rewind() const { return R_BufferedSeek(handle, 0, FILE_FROM_START, nullptr) == 0; }
    const R_INT64 handle;
};

struct Redirected {
    explicit Redirected(const File& file)
    {
        const auto name = file.path.string<R_WCHAR>();
        REDIRECTSET set;
        if (R_GetRedirectFunctions(&set, REDIRECTSET_SIZE, REDIRECT_BUFFERED, 0) == SUCCESS)
            (void)R_CreateRedirectedCallbackFileHandle(R_BufferedOpen(name.c_str(), FILE_MODE_READ_WRITE, 0, nullptr),
                                                       &set, &handle);
    }
    ~Redirected() { R_RedirectedClose(handle); }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;
    bool read(void* to, R_UINT n) const { return R_RedirectedRead(handle, to, n) == static_cast<R_INT>(n); }
    bool write(const void* from, R_UINT n) const { return R_RedirectedWrite(handle, from, n) == static_cast<R_INT>(n); }
    bool rewind() const { return R_RedirectedSeek(handle, 0, FILE_FROM_START) == 0; }
    R_INT64 handle = R_INVALID_FILE;
};

struct Stdio {
    explicit Stdio(const File& file) : buffer(kBufferBytes), stream(std::fopen(file.path.string().c_str(), "r+b"))
    {
        if (stream != nullptr) std::setvbuf(stream, buffer.data(), _IOFBF, buffer.size());
    }
    ~Stdio()
    {
        if (stream != nullptr) std::fclose(stream);
    }
    Stdio(const Stdio&) = delete;
    Stdio& operator=(const Stdio&) = delete;
    bool read(void* to, R_UINT n) const { return std::fread(to, 1, n, stream) == n; }
    bool write(const void* from, R_UINT n) const { return std::fwrite(from, 1, n, stream) == n; }
    bool rewind() const { return stream != nullptr && std::fseek(stream, 0, SEEK_SET) == 0; }
    std::vector<char> buffer;
    std::FILE* const stream;
};

/// A byte at a time by the calls made for it.
struct Characters : Stdio {
    using Stdio::Stdio;
    bool read(void* to, R_UINT) const
    {
        const int byte = std::getc(stream);
        *static_cast<char*>(to) = static_cast<char>(byte);
        return byte != EOF;
    }
    bool write(const void* from, R_UINT) const { return std::putc(*static_cast<const uint8_t*>(from), stream) != EOF; }
};

#if defined(__GLIBC__)
struct StdioUnlocked : Stdio {
    using Stdio::Stdio;
    bool read(void* to, R_UINT n) const { return fread_unlocked(to, 1, n, stream) == n; }
    bool write(const void* from, R_UINT n) const { return fwrite_unlocked(from, 1, n, stream) == n; }
};
struct CharactersUnlocked : Stdio {
    using Stdio::Stdio;
    bool read(void* to, R_UINT) const
    {
        const int byte = getc_unlocked(stream);
        *static_cast<char*>(to) = static_cast<char>(byte);
        return byte != EOF;
    }
    bool write(const void* from, R_UINT) const
    {
        return putc_unlocked(*static_cast<const uint8_t*>(from), stream) != EOF;
    }
};
#endif

/// Reads or writes a whole file; the rewind at the end writes what is still in the buffer.
template <class Stream> MakeStep pieces(R_UINT piece, bool writing)
{
    return [=] {
        const auto file = std::make_shared<File>();
        const auto bytes = std::make_shared<Warm>(kBytes);
        const auto stream = std::make_shared<Stream>(*file);
        return [=] {
            bool good = stream->rewind();
            if (writing)
                for (R_UINT at = 0; good && at < kBytes; at += piece) good = stream->write(bytes->data() + at, piece);
            else
                for (R_UINT at = 0; good && at < kBytes; at += piece) good = stream->read(bytes->data() + at, piece);
            return good && stream->rewind();
        };
    };
}

void registerPieces(R_UINT piece, bool writing)
{
    const std::string job = std::string(writing ? "file writes of " : "file reads of ") + std::to_string(piece);
    measure(job, "kernel", pieces<Buffered>(piece, writing));
    measure(job, "kernel, redirected", pieces<Redirected>(piece, writing));
    measure(job, "stdio", pieces<Stdio>(piece, writing));
    if (piece == 1) measure(job, writing ? "putc" : "getc", pieces<Characters>(piece, writing));
#if defined(__GLIBC__)
    measure(job, "stdio unlocked", pieces<StdioUnlocked>(piece, writing));
    if (piece == 1)
        measure(job, writing ? "putc_unlocked" : "getc_unlocked", pieces<CharactersUnlocked>(piece, writing));
#endif
}

} // namespace

void registerBuffered()
{
    for (const bool writing : {false, true})
        for (const R_UINT piece : {1u, 16u, 512u}) registerPieces(piece, writing);
}

} // namespace rv::bench
