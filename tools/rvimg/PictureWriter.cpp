#include "PictureWriter.h"

#include "Commands.h"
#include "Depth.h"
#include "Progress.h"

namespace rvimg {

PictureWriter::PictureWriter(const std::string& name, const Format& format, const WriteOptions& options)
    : name_(name), format_(format), exact_(options.exact), file_(pathOf(name)), encoder_(format.create(file_, options))
{
}

void PictureWriter::write(Image& image, Progress& progress)
{
    makeHeld(image, progress);
    if (written_++ > 0 && !format_.manyPages)
        throw Error(text(format_.name, " holds one page only; --page chooses one"));
    PixelRows rows(image, progress);
    encoder_->writePage(rows);
    rows.finish();
}

void PictureWriter::makeHeld(Image& image, Progress& progress)
{
    const Layout before = image.layout();
    if (exact_) return checkHolds(format_, before);
    const auto depth = depthFor(format_, before);
    if (!depth) return;
    changeDepth(image, *depth);
    const Layout after = image.layout();
    checkHolds(format_, after);
    const std::string told = text(format_.name, " cannot hold ", describe(before), "; written as ", describe(after),
                                  after.bits < before.bits && after.bits == 1 ? ", dithered" : "",
                                  before.hasAlpha() && !after.hasAlpha() ? ", without its alpha" : "");
    if (!told_.insert(told).second) return;
    progress.hide();
    report(name_, told);
}

void PictureWriter::commit()
{
    encoder_->finish();
    encoder_.reset();
    file_.commit();
}

} // namespace rvimg
