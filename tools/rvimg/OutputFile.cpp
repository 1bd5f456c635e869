#include "OutputFile.h"

#include "Error.h"

#include <algorithm>
#include <cerrno>
#include <random>

namespace rvimg {

namespace fs = std::filesystem;

namespace {

fs::path temporaryBeside(const fs::path& target)
{
    std::random_device random;
    std::ostringstream name;
    name << ".rvimg-" << std::hex << random() << random();
    return target.parent_path() / name.str();
}

/// Names of what the process already has open; a file behind one cannot be exchanged for another.
bool namesOpenFile(const fs::path& target)
{
    const std::string name = target.generic_string();
    return name.starts_with("/dev/std") || name.starts_with("/dev/fd/") || name.starts_with("/proc/");
}

FileHandle createNew(const fs::path& path)
{
#if defined(_WIN32)
    return openFile(path, "w+b");
#else
    return openFile(path, "w+bx"); // never through a name that somebody else has put there
#endif
}

} // namespace

OutputFile::OutputFile(const fs::path& target) : target_(target)
{
    std::error_code ignored;
    const fs::file_status status = fs::status(target, ignored);
    if (fs::is_directory(status)) throw Error("is a directory");
    if (fs::exists(status) && (!fs::is_regular_file(status) || namesOpenFile(target))) {
        device_ = true;
        file_.reset(std::tmpfile());
    } else {
        if (fs::exists(status)) target_ = fs::canonical(target); // a link stays a link
        temporary_ = temporaryBeside(target_);
        file_ = createNew(temporary_);
    }
    if (!file_) {
        temporary_.clear();
        throw Error(systemReason("cannot write"));
    }
    std::setvbuf(file_.get(), nullptr, _IOFBF, size_t{1} << 18);
}

OutputFile::~OutputFile()
{
    file_.reset();
    std::error_code ignored;
    if (!temporary_.empty()) fs::remove(temporary_, ignored);
}

void OutputFile::turnTo(Last operation)
{
    // Between reading and writing, and the other way round, a stream must be positioned.
    if (last_ != operation && last_ != Last::none) seekFile(file_.get(), position_);
    last_ = operation;
}

void OutputFile::write(const void* data, size_t bytes)
{
    turnTo(Last::write);
    if (std::fwrite(data, 1, bytes, file_.get()) != bytes) throw Error(systemReason("cannot write"));
    position_ += bytes;
    size_ = std::max(size_, position_);
}

size_t OutputFile::read(void* data, size_t bytes)
{
    turnTo(Last::read);
    const size_t got = std::fread(data, 1, bytes, file_.get());
    if (got < bytes && std::ferror(file_.get()) != 0) throw Error(systemReason("cannot read back"));
    position_ += got;
    return got;
}

void OutputFile::seek(uint64_t position)
{
    if (position == position_) return;
    seekFile(file_.get(), position);
    last_ = Last::none;
    position_ = position;
}

void OutputFile::copyToTarget()
{
    const FileHandle out = openFile(target_, "wb");
    if (!out) throw Error(systemReason("cannot write"));
    seek(0);
    std::vector<uint8_t> buffer(size_t{1} << 18);
    while (const size_t got = read(buffer.data(), buffer.size()))
        if (std::fwrite(buffer.data(), 1, got, out.get()) != got) throw Error(systemReason("cannot write"));
    if (std::fflush(out.get()) != 0) throw Error(systemReason("cannot write"));
}

void OutputFile::commit()
{
    if (std::fflush(file_.get()) != 0) throw Error(systemReason("cannot write"));
    if (device_) return copyToTarget();
    if (std::fclose(file_.release()) != 0) throw Error(systemReason("cannot write"));
    std::error_code failure;
    const fs::file_status old = fs::status(target_, failure);
    if (fs::exists(old)) fs::permissions(temporary_, old.permissions(), failure);
    fs::rename(temporary_, target_, failure);
    if (failure) throw Error(text("cannot write: ", failure.message()));
    temporary_.clear();
}

} // namespace rvimg
