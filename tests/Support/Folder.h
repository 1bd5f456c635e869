/// A folder of a test's own, and names as the kernel takes them.
#pragma once

#include "R_Types.h"

#include <filesystem>
#include <string>

namespace rv::test {

using Wide = std::basic_string<R_WCHAR>;
Wide wide(const std::filesystem::path& path);

/// An empty folder in the system's one for temporary files; gone with the object, and all that is in it.
class Folder {
public:
    Folder();
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    /// The whole name of something in it. 8-bit names are UTF-8.
    Wide operator/(const std::string& name) const;
    void write(const std::string& name, const std::string& content) const; ///< makes the folders it is in, too
    std::string read(const std::string& name) const;                       ///< "(none)" where there is no such file
    size_t count() const;                                                  ///< of what is in it

private:
    std::filesystem::path at(const std::string& name) const;
    std::filesystem::path path_;
};

} // namespace rv::test
