#include "Support/Folder.h"

#include "Platform/Platform.h"

#include <fstream>
#include <iterator>

namespace rv::test {

namespace fs = std::filesystem;

Wide wide(const fs::path& path)
{
#if defined(_WIN32)
    return path.wstring();
#else
    return path.u16string();
#endif
}

Folder::Folder()
{
    static int made = 0;
    do {
        path_ = fs::temp_directory_path() /
                ("rv-folder-" + std::to_string(gSystemPlatform.processId()) + "-" + std::to_string(++made));
    } while (!fs::create_directory(path_));
}

Folder::~Folder()
{
    for (const auto& entry : fs::recursive_directory_iterator(path_)) // Windows deletes nothing that is read-only
        fs::permissions(entry, fs::perms::owner_write, fs::perm_options::add);
    fs::remove_all(path_);
}

fs::path Folder::at(const std::string& name) const { return path_ / std::u8string(name.begin(), name.end()); }
Wide Folder::operator/(const std::string& name) const { return wide(at(name)); }

void Folder::write(const std::string& name, const std::string& content) const
{
    fs::create_directories(at(name).parent_path());
    std::ofstream(at(name), std::ios::binary) << content;
}

std::string Folder::read(const std::string& name) const
{
    std::ifstream file(at(name), std::ios::binary);
    if (!file) return "(none)";
    return std::string(std::istreambuf_iterator<char>(file), {});
}

size_t Folder::count() const
{
    return static_cast<size_t>(std::distance(fs::directory_iterator(path_), fs::directory_iterator()));
}

} // namespace rv::test
