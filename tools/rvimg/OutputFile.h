/// A file that appears under its name only when it is whole.
#pragma once

#include "KernelFile.h"
#include "Stream.h"

namespace rvimg {

/// Writes beside the target under a name of its own; commit() puts the file in its place, leaving without it removes
/// it. The standard output, and a target that is no regular file (a device, a pipe), is written when all its bytes are
/// known.
class OutputFile final : public ByteSink {
public:
    explicit OutputFile(const std::filesystem::path& target);
    ~OutputFile() override;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(const void* data, size_t bytes) override;
    size_t read(void* data, size_t bytes) override;
    void seek(uint64_t position) override;
    uint64_t position() override { return position_; }
    uint64_t size() override { return size_; }

    void commit();

private:
    void copyTo(KernelFile target);

    enum class Way { exchange, device, standardOutput };
    Way way_ = Way::exchange;
    std::filesystem::path target_;
    std::filesystem::path temporary_; ///< empty when there is nothing to remove
    KernelFile file_;
    uint64_t position_ = 0;
    uint64_t size_ = 0;
};

} // namespace rvimg
