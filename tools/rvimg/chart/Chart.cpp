#include "Chart.h"

#include "Commands.h"
#include "PictureWriter.h"
#include "Progress.h"

namespace rvimg {

namespace {

/// Puts a drawn picture into a bitmap.
Image toImage(chart::Picture& picture, Progress& progress)
{
    Image image(picture.layout);
    PixelRows rows(image, progress);
    for (R_INT y = 0; y < rows.height(); ++y) rows.put(y, {picture.row(y), rows.rowBytes()});
    rows.finish();
    return image;
}

} // namespace

void drawChart(const ChartOptions& options)
{
    const Format& format = outputFormat(options.output, options.format);
    const bool text = options.kind == "text";
    const int width = options.width > 0 ? options.width : text ? 2480 : 1600;
    const int height = options.height > 0 ? options.height : text ? 3508 : 1200;
    Progress progress(!options.quiet);
    on(options.output, [&] {
        constexpr uint64_t kPageSteps = 60;
        progress.begin("drawing " + options.output, text ? kPageSteps : static_cast<uint64_t>(height));
        const chart::Step step = [&] { progress.advance(); };
        chart::Picture picture = text ? chart::drawPage(width, height, step) : chart::drawPhoto(width, height, step);
        Image image = toImage(picture, progress);
        PictureWriter writer(options.output, format, options.writing);
        progress.begin("writing " + options.output, static_cast<uint64_t>(height));
        writer.write(image, progress);
        writer.commit();
    });
}

} // namespace rvimg
