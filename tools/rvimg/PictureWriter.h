/// Pages on their way into a file.
#pragma once

#include "Format.h"
#include "OutputFile.h"

namespace rvimg {

/// Writes pages in one format to a file that appears when all of them are written.
class PictureWriter {
public:
    PictureWriter(const std::string& name, const Format& format, const WriteOptions& options);

    /// Throws where the format cannot hold the page, or another one.
    void write(Image& image, Progress& progress);
    void commit();

private:
    const Format& format_;
    OutputFile file_;
    std::unique_ptr<Encoder> encoder_;
    unsigned written_ = 0;
};

} // namespace rvimg
