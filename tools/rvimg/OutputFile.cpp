#include "OutputFile.h"

#include "Error.h"

#include <algorithm>

namespace rvimg {

namespace fs = std::filesystem;

namespace {

/// Names of what the process already has open; a file behind one cannot be exchanged for another.
bool namesOpenFile(const fs::path& target)
{
    const std::string name = target.generic_string();
    return name.starts_with("/dev/std") || name.starts_with("/dev/fd/") || name.starts_with("/proc/");
}

} // namespace

OutputFile::OutputFile(const fs::path& target) : target_(target)
{
    std::error_code ignored;
    const fs::file_status status = fs::status(target, ignored);
    if (target == kStandardStream) {
        if (KernelFile::outputIsTerminal()) throw Error("the picture would go to the terminal; name a file");
        way_ = Way::standardOutput;
        file_ = KernelFile::createSpool();
    } else if (fs::is_directory(status)) {
        throw Error("is a directory");
    } else if (fs::exists(status) && (!fs::is_regular_file(status) || namesOpenFile(target))) {
        way_ = Way::device;
        file_ = KernelFile::createSpool();
    } else {
        if (fs::exists(status)) target_ = fs::canonical(target); // a link stays a link
        const fs::path folder = target_.parent_path();
        if (!folder.empty() && !fs::is_directory(folder, ignored)) throw Error("cannot write: there is no such folder");
        file_ = KernelFile::createBeside(target_, temporary_);
    }
}

OutputFile::~OutputFile()
{
    file_ = KernelFile();
    std::error_code ignored;
    if (!temporary_.empty()) fs::remove(temporary_, ignored);
}

void OutputFile::write(const void* data, size_t bytes)
{
    file_.write(data, bytes);
    position_ += bytes;
    size_ = std::max(size_, position_);
}

size_t OutputFile::read(void* data, size_t bytes)
{
    const size_t got = file_.read(data, bytes);
    position_ += got;
    return got;
}

void OutputFile::seek(uint64_t position)
{
    if (position == position_) return;
    file_.seek(position);
    position_ = position;
}

void OutputFile::copyTo(KernelFile target)
{
    seek(0);
    std::vector<uint8_t> buffer(size_t{1} << 18);
    while (const size_t got = read(buffer.data(), buffer.size())) {
        target.write(buffer.data(), got);
    }
    target.close();
}

void OutputFile::commit()
{
    if (way_ != Way::exchange) {
        const EndsAtOnce waiting; // for who reads from a pipe
        return copyTo(way_ == Way::device ? KernelFile::openDevice(target_) : KernelFile::standardOutput());
    }
    file_.close();
    std::error_code failure;
    const fs::file_status old = fs::status(target_, failure);
    if (fs::exists(old)) fs::permissions(temporary_, old.permissions(), failure);
    fs::rename(temporary_, target_, failure);
    if (failure) throw Error(text("cannot write: ", failure.message()));
    temporary_.clear();
}

} // namespace rvimg
