/// A file as the kernel's redirected layer has it.
#pragma once

#include "R_Kernel.h"

#include <filesystem>
#include <string>

namespace rvimg {

/// The kernel's reason for the calling thread's last failing file call, as "cannot open: reason".
std::string fileReason(const char* what, R_INT otherwise);

/// Owns a redirected handle. What fails throws Error.
class KernelFile {
public:
    KernelFile() = default;
    KernelFile(KernelFile&& other) noexcept;
    KernelFile& operator=(KernelFile&& other) noexcept;
    ~KernelFile();

    static KernelFile openForReading(const std::filesystem::path& path);
    /// A new file in the target's folder, whose name nobody else has, for writing and reading back. Others may read it.
    static KernelFile createBeside(const std::filesystem::path& target, std::filesystem::path& made);
    /// What exists and is no file of a folder's own: a device, a pipe, a name of what the process has open.
    static KernelFile openDevice(const std::filesystem::path& path);
    static KernelFile standardInput();
    static KernelFile standardOutput();
    static bool outputIsTerminal();
    /// A file without a name, in memory while there is room.
    static KernelFile createSpool();

    explicit operator bool() const { return handle_ != R_INVALID_FILE; }
    /// Up to `bytes` bytes; fewer only at the end.
    size_t read(void* data, size_t bytes);
    void write(const void* data, size_t bytes);
    /// Moves to a position from the start.
    void seek(uint64_t position);
    /// The file's size; false for what cannot be read from its start on by seeking, such as a pipe.
    bool measure(uint64_t& size);
    /// Throws where what was written could not be kept.
    void close();

private:
    KernelFile(R_INT64 handle, std::string spool = {}) : handle_(handle), spool_(std::move(spool)) {}
    void leave() noexcept;

    R_INT64 handle_ = R_INVALID_FILE;
    std::string spool_;  ///< the temporary file's name, in UTF-8; empty for other files
    bool flows_ = false; ///< known to be no file, whatever seeking answers
};

} // namespace rvimg
