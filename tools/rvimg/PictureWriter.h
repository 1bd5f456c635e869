/// Pages on their way into a file.
#pragma once

#include "Format.h"
#include "OutputFile.h"

#include <set>

namespace rvimg {

/// Writes pages in one format to a file that appears when all of them are written. Pages that the format cannot hold
/// get another depth, and the person at the terminal is told, once for each kind.
class PictureWriter {
public:
    PictureWriter(const std::string& name, const Format& format, const WriteOptions& options);

    /// Throws where the format cannot hold the page, in no depth, or another one.
    void write(Image& image, Progress& progress);
    void commit();

private:
    void makeHeld(Image& image, Progress& progress);

    std::string name_;
    const Format& format_;
    bool exact_;
    OutputFile file_;
    std::unique_ptr<Encoder> encoder_;
    unsigned written_ = 0;
    std::set<std::string> told_;
};

} // namespace rvimg
