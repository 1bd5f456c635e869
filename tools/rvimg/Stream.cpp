#include "Stream.h"

#include "Error.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace rvimg {

namespace {

[[noreturn]] void throwTruncated() { throw Error("the file is truncated"); }

class FileSource final : public ByteSource {
public:
    explicit FileSource(const std::filesystem::path& path) : file_(openFile(path, "rb"))
    {
        if (!file_) throw Error(systemReason("cannot open"));
        size_ = std::filesystem::file_size(path);
    }
    size_t read(void* data, size_t bytes) override
    {
        const size_t got = std::fread(data, 1, bytes, file_.get());
        if (got < bytes && std::ferror(file_.get()) != 0) throw Error(systemReason("cannot read"));
        position_ += got;
        return got;
    }
    void seek(uint64_t position) override
    {
        if (position == position_) return;
        seekFile(file_.get(), position);
        position_ = position;
    }
    uint64_t position() override { return position_; }
    uint64_t size() const override { return size_; }

private:
    FileHandle file_;
    uint64_t position_ = 0;
    uint64_t size_ = 0;
};

class MemorySource final : public ByteSource {
public:
    explicit MemorySource(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}
    size_t read(void* data, size_t bytes) override
    {
        if (position_ >= bytes_.size()) return 0;
        const size_t got = std::min<size_t>(bytes, bytes_.size() - static_cast<size_t>(position_));
        std::memcpy(data, bytes_.data() + position_, got);
        position_ += got;
        return got;
    }
    void seek(uint64_t position) override { position_ = position; }
    uint64_t position() override { return position_; }
    uint64_t size() const override { return bytes_.size(); }

private:
    std::vector<uint8_t> bytes_;
    uint64_t position_ = 0;
};

std::vector<uint8_t> slurp(std::FILE* file)
{
    constexpr size_t kStep = size_t{1} << 20;
    std::vector<uint8_t> bytes;
    for (size_t got = kStep; got == kStep;) {
        throwIfInterrupted();
        const size_t start = bytes.size();
        bytes.resize(start + kStep);
        got = std::fread(bytes.data() + start, 1, kStep, file);
        bytes.resize(start + got);
    }
    if (std::ferror(file) != 0) throw Error(systemReason("cannot read"));
    return bytes;
}

} // namespace

void ByteSource::readAll(void* data, size_t bytes)
{
    if (read(data, bytes) != bytes) throwTruncated();
}

std::string systemReason(const char* what) { return text(what, ": ", std::strerror(errno)); }

FileHandle openFile(const std::filesystem::path& path, const char* mode)
{
#if defined(_WIN32)
    const std::wstring wideMode(mode, mode + std::strlen(mode));
    return FileHandle(_wfopen(path.c_str(), wideMode.c_str()));
#else
    return FileHandle(std::fopen(path.c_str(), mode));
#endif
}

void seekFile(std::FILE* file, uint64_t position)
{
#if defined(_WIN32)
    const int failed = _fseeki64(file, static_cast<long long>(position), SEEK_SET);
#else
    const int failed = fseeko(file, static_cast<off_t>(position), SEEK_SET);
#endif
    if (failed != 0) throw Error(systemReason("cannot seek"));
}

std::unique_ptr<ByteSource> openSource(const std::filesystem::path& path)
{
    std::error_code failure;
    const auto status = std::filesystem::status(path, failure);
    if (status.type() == std::filesystem::file_type::not_found) throw Error("no such file");
    if (failure) throw Error(text("cannot open: ", failure.message()));
    if (std::filesystem::is_directory(status)) throw Error("is a directory");
    if (std::filesystem::is_regular_file(status)) return std::make_unique<FileSource>(path);
    const FileHandle pipe = openFile(path, "rb");
    if (!pipe) throw Error(systemReason("cannot open"));
    return std::make_unique<MemorySource>(slurp(pipe.get()));
}

uint8_t BufferedReader::need()
{
    const int byte = get();
    if (byte < 0) throwTruncated();
    return static_cast<uint8_t>(byte);
}

void BufferedReader::readAll(void* data, size_t bytes)
{
    auto* out = static_cast<uint8_t*>(data);
    const size_t held = std::min(bytes, end_ - next_);
    std::memcpy(out, buffer_.data() + next_, held);
    next_ += held;
    if (held < bytes) source_.readAll(out + held, bytes - held);
}

void BufferedReader::seek(uint64_t position)
{
    source_.seek(position);
    next_ = end_ = 0;
}

bool BufferedReader::fill()
{
    next_ = 0;
    end_ = source_.read(buffer_.data(), buffer_.size());
    return end_ > 0;
}

} // namespace rvimg
