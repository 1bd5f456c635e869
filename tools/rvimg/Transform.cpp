#include "Commands.h"
#include "Depth.h"
#include "PictureWriter.h"
#include "Progress.h"

#include <algorithm>
#include <iostream>

namespace rvimg {

namespace {

/// The kernel's own progress, on the bar, for the length of a call.
class KernelProgress {
public:
    explicit KernelProgress(Progress& progress)
    {
        R_SetStatusCallBack(tell, &progress, nullptr, nullptr);
        R_SetCopyStatusCallBack(tell, &progress, nullptr, nullptr);
    }
    ~KernelProgress()
    {
        R_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
        R_SetCopyStatusCallBack(nullptr, nullptr, nullptr, nullptr);
    }
    KernelProgress(const KernelProgress&) = delete;
    KernelProgress& operator=(const KernelProgress&) = delete;

private:
    static R_INT tell(R_INT percent, void* progress) noexcept
    {
        constexpr R_INT kAborted = -100;
        try {
            static_cast<Progress*>(progress)->moveTo(static_cast<uint64_t>(percent));
        } catch (const Interrupted&) {
            return kAborted; // nothing is thrown through the kernel
        }
        return SUCCESS;
    }
};

/// The pages that were asked for, one by one.
class Pages {
public:
    Pages(Decoder& decoder, unsigned wanted) : decoder_(decoder), wanted_(wanted) {}

    std::optional<Layout> next()
    {
        if (wanted_ > 0 && page_ >= wanted_) return std::nullopt;
        std::optional<Layout> layout;
        do {
            layout = decoder_.next();
            if (layout) ++page_;
        } while (layout && page_ < wanted_);
        if (!layout && page_ < wanted_) throw Error(text("there is no page ", wanted_, "; the last one is ", page_));
        return layout;
    }

private:
    Decoder& decoder_;
    unsigned wanted_;
    unsigned page_ = 0;
};

Image readPage(Decoder& decoder, const Layout& layout, Progress& progress)
{
    Image image(layout);
    PixelRows rows(image, progress);
    decoder.readRows(rows);
    rows.finish();
    return image;
}

/// Bytes of the pixels of all pages. A damaged page ends the count: it is told of when its turn comes.
uint64_t pixelBytesOf(ByteSource& source, const ReadOptions& options)
{
    uint64_t bytes = 0;
    try {
        const auto decoder = formatOf(source).open(source, options);
        while (const auto layout = decoder->next()) {
            throwIfInterrupted();
            bytes += layout->rowBytes() * static_cast<uint64_t>(layout->height);
        }
    } catch (const Interrupted&) {
        throw;
    } catch (const Error&) {
    }
    return bytes;
}

/// Throws where the format can hold the page in no depth, or not in its own when no other will do.
void checkWritable(const Format& format, const Layout& layout, const WriteOptions& options)
{
    options.exact ? checkHolds(format, layout) : void(depthFor(format, layout));
}

/// What a page had besides its colours and has no more.
void tellLosses(const TransformOptions& options, const Layout& before, Image& image)
{
    if (dropUncertainTransparency(image, before)) report(options.input, "the transparent colour is left out");
    if (before.hasAlpha() && !image.layout().hasAlpha()) report(options.input, "the alpha is left out");
}

} // namespace

void transform(const TransformOptions& options, const Operation& operation)
{
    const bool likeInput = options.output == kStandardStream && options.format.empty();
    if (!likeInput) (void)outputFormat(options.output, options.format); // wrong usage comes before any file
    Progress progress(!options.quiet);
    auto source = on(options.input, [&] { return openSource(pathOf(options.input)); });
    const Format& target = likeInput ? on(options.input, [&]() -> const Format& { return formatOf(*source); })
                                     : outputFormat(options.output, options.format);
    WriteOptions writing = options.writing;
    if (target.manyPages && options.page == 0)
        writing.pixelBytes = on(options.input, [&] { return pixelBytesOf(*source, options.reading); });
    auto decoder = on(options.input, [&] { return formatOf(*source).open(*source, options.reading); });
    Pages pages(*decoder, options.page);
    std::optional<PictureWriter> writer;
    while (const auto layout = on(options.input, [&] { return pages.next(); })) {
        on(options.output, [&] {
            Layout written = *layout;
            if (options.perspective) written.perspective = *options.perspective;
            if (!options.recolours) checkWritable(target, written, writing); // before any work is done in vain
            if (!writer) writer.emplace(options.output, target, writing);
        });
        const auto height = static_cast<uint64_t>(layout->height);
        progress.begin("reading " + options.input, height);
        Image image = on(options.input, [&] {
            if (options.recolours && layout->isSigned) throw Error("signed samples cannot be given other colours");
            return readPage(*decoder, *layout, progress);
        });
        if (operation) {
            progress.begin("working on " + options.input, 100);
            const KernelProgress told(progress);
            on(options.input, [&] { check(operation(image.record())); });
            if (options.perspective) image.tagOrientation();
            if (options.recolours) {
                progress.hide();
                tellLosses(options, *layout, image);
            }
        }
        progress.begin("writing " + options.output, height);
        on(options.output, [&] { writer->write(image, progress); });
    }
    decoder.reset();
    source.reset(); // the output may replace the input
    on(options.output, [&] { writer->commit(); });
}

Image readPicture(const std::string& file, const ReadOptions& options, unsigned page)
{
    return on(file, [&] {
        const auto source = openSource(pathOf(file));
        const auto decoder = formatOf(*source).open(*source, options);
        const auto layout = Pages(*decoder, page).next();
        Progress unseen(false);
        return readPage(*decoder, *layout, unseen);
    });
}

void report(const std::string& file, const std::string& reason)
{
    std::cerr << "rvimg: " << file << ": " << reason << '\n';
}

std::filesystem::path pathOf(const std::string& name)
{
    return std::filesystem::path(std::u8string(name.begin(), name.end()));
}

const Format& outputFormat(const std::string& file, const std::string& format)
{
    if (!format.empty()) {
        const Format* const named = formatNamed(format);
        if (named == nullptr) throw UsageError(text("unknown format ", format, "; there are ", formatNames()));
        return *named;
    }
    const std::u8string ending = pathOf(file).extension().u8string();
    const Format* const found = ending.empty() ? nullptr : formatNamed(std::string(ending.begin() + 1, ending.end()));
    if (found == nullptr)
        throw UsageError(text("the name ", file, " does not tell a format; --format can be ", formatNames()));
    return *found;
}

} // namespace rvimg
