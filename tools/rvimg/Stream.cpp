#include "Stream.h"

#include "Error.h"
#include "KernelFile.h"

#include <algorithm>
#include <cstring>

namespace rvimg {

namespace {

[[noreturn]] void throwTruncated() { throw Error("the file is truncated"); }

class FileSource final : public ByteSource {
public:
    FileSource(KernelFile file, uint64_t size) : file_(std::move(file)), size_(size) {}
    size_t read(void* data, size_t bytes) override
    {
        const size_t got = file_.read(data, bytes);
        position_ += got;
        return got;
    }
    void seek(uint64_t position) override
    {
        if (position == position_) return;
        file_.seek(position);
        position_ = position;
    }
    uint64_t position() override { return position_; }
    uint64_t size() const override { return size_; }

private:
    KernelFile file_;
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

std::vector<uint8_t> slurp(KernelFile& file)
{
    constexpr size_t kStep = size_t{1} << 20;
    std::vector<uint8_t> bytes;
    for (size_t got = kStep; got == kStep;) {
        const size_t start = bytes.size();
        bytes.resize(start + kStep);
        got = file.read(bytes.data() + start, kStep);
        bytes.resize(start + got);
    }
    return bytes;
}

KernelFile openNamed(const std::filesystem::path& path)
{
    std::error_code failure;
    const auto status = std::filesystem::status(path, failure);
    if (status.type() == std::filesystem::file_type::not_found) throw Error("no such file");
    if (failure) throw Error(text("cannot open: ", failure.message()));
    if (std::filesystem::is_directory(status)) throw Error("is a directory");
    return KernelFile::openForReading(path);
}

} // namespace

void ByteSource::readAll(void* data, size_t bytes)
{
    if (read(data, bytes) != bytes) throwTruncated();
}

std::unique_ptr<ByteSource> openSource(const std::filesystem::path& path)
{
    const EndsAtOnce waiting; // for who writes into a pipe
    KernelFile file = path == kStandardStream ? KernelFile::standardInput() : openNamed(path);
    uint64_t size = 0;
    if (file.measure(size)) return std::make_unique<FileSource>(std::move(file), size);
    return std::make_unique<MemorySource>(slurp(file));
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
