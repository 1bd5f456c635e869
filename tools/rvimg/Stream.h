/// Bytes in and out, with seeking: what the formats read from and write to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>
#include <vector>

namespace rvimg {

/// Where a picture's bytes come from. Failing reads throw Error; the end is no failure.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    /// Reads up to `bytes` bytes; fewer only at the end.
    virtual size_t read(void* data, size_t bytes) = 0;
    /// Moves to a position from the start; past the end is allowed, and reads nothing.
    virtual void seek(uint64_t position) = 0;
    virtual uint64_t position() = 0;
    virtual uint64_t size() const = 0;

    /// Reads exactly `bytes` bytes; throws where there are fewer.
    void readAll(void* data, size_t bytes);
};

/// Where a picture's bytes go. What has been written can be read again: some formats patch what came before.
class ByteSink {
public:
    virtual ~ByteSink() = default;
    virtual void write(const void* data, size_t bytes) = 0;
    virtual size_t read(void* data, size_t bytes) = 0;
    virtual void seek(uint64_t position) = 0;
    virtual uint64_t position() = 0;
    virtual uint64_t size() = 0;
};

/// What stands for the standard input and output in place of a file's name.
inline constexpr std::string_view kStandardStream = "-";

/// Opens a file, or the standard input, for reading. What cannot be sought (a pipe) is taken into memory first.
std::unique_ptr<ByteSource> openSource(const std::filesystem::path& path);

/// Reads a source byte by byte at the speed of memory. The source's own position is ahead of the reader's.
class BufferedReader {
public:
    explicit BufferedReader(ByteSource& source, size_t capacity = 65536) : source_(source), buffer_(capacity) {}

    /// The next byte, or -1 at the end.
    int get() { return next_ < end_ || fill() ? buffer_[next_++] : -1; }
    int peek() { return next_ < end_ || fill() ? buffer_[next_] : -1; }
    /// The next byte; throws at the end.
    uint8_t need();
    void readAll(void* data, size_t bytes);
    void seek(uint64_t position);
    uint64_t position() { return source_.position() - (end_ - next_); }

private:
    bool fill();

    ByteSource& source_;
    std::vector<uint8_t> buffer_;
    size_t next_ = 0;
    size_t end_ = 0;
};

} // namespace rvimg
