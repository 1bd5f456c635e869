#include "PictureWriter.h"

#include "Commands.h"

namespace rvimg {

PictureWriter::PictureWriter(const std::string& name, const Format& format, const WriteOptions& options)
    : format_(format), file_(pathOf(name)), encoder_(format.create(file_, options))
{
}

void PictureWriter::write(Image& image, Progress& progress)
{
    checkHolds(format_, image.layout());
    if (written_++ > 0 && !format_.manyPages)
        throw Error(text(format_.name, " holds one page only; --page chooses one"));
    PixelRows rows(image, progress);
    encoder_->writePage(rows);
    rows.finish();
}

void PictureWriter::commit()
{
    encoder_->finish();
    encoder_.reset();
    file_.commit();
}

} // namespace rvimg
