// Copying a file that the system has in memory: through the kernel from disk to a redirected name, by the C++ library,
// and by cp, whose start is in its time.
#include "Support.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>

namespace rv::bench {

namespace {

constexpr size_t kBytes = 64 << 20;

/// Two names; the first is a file. Both are gone with this.
class Files {
public:
    Files()
    {
        std::filesystem::create_directory(folder);
        const Warm bytes(kBytes);
        std::ofstream(from, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), kBytes);
    }
    ~Files()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

private:
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("rvkrn-bench-" + std::to_string(std::random_device{}()));

public:
    const std::filesystem::path from = folder / "from", to = folder / "to";
};

/// Copies over the copy of the time before.
template <class Copy> MakeStep copying(Copy copy)
{
    return [=] {
        const auto files = std::make_shared<Files>();
        return [=] { return copy(*files) && std::filesystem::file_size(files->to) == kBytes; };
    };
}

} // namespace

void registerFiles()
{
    const std::string job = "file copy of 64 MiB";
    measure(job, "kernel", copying([](const Files& f) {
                const auto from = f.from.string<R_WCHAR>(), to = f.to.string<R_WCHAR>();
                return R_CopyFile(from.c_str(), to.c_str(), 0) == 1;
            }));
    measure(job, "C++ library", copying([](const Files& f) {
                return std::filesystem::copy_file(f.from, f.to, std::filesystem::copy_options::overwrite_existing);
            }));
#if !defined(_WIN32)
    measure(job, "cp", copying([](const Files& f) {
                return std::system(("cp " + f.from.string() + " " + f.to.string()).c_str()) == 0;
            }));
#endif
}

} // namespace rv::bench
