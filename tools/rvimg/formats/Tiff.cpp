#include "Tiff.h"

#include "Error.h"

#include <algorithm>
#include <cstdarg>
#include <iterator>
#include <string_view>

namespace rvimg {

namespace tiff {

namespace {

std::string gComplaint;
constexpr const char* kName = "TIFF"; ///< what libtiff believes to be the file's name

/// A value out of range in these costs no pixel; libtiff goes on as if the field were not there.
bool isHarmless(std::string_view message)
{
    constexpr std::string_view kFields[] = {"\"Orientation\"", "\"XResolution\"", "\"YResolution\""};
    const auto isIn = [=](std::string_view field) { return message.find(field) != message.npos; };
    return message.starts_with("Bad value ") && std::any_of(std::begin(kFields), std::end(kFields), isIn);
}

void noteComplaint(const char*, const char* format, va_list arguments)
{
    if (!gComplaint.empty()) return; // the first one names the cause
    char message[512];
    std::vsnprintf(message, sizeof message, format, arguments);
    std::string_view told = message;
    const std::string start = text(kName, ": ");
    if (told.starts_with(start)) told.remove_prefix(start.size()); // the reader knows the file by its own name
    if (!isHarmless(told)) gComplaint = told;
}

/// Runs stream work inside a libtiff callback, which can only answer that it has failed.
template <class Result, class Work> Result bridged(Result failed, const Work& work)
{
    try {
        return work();
    } catch (const std::exception& error) {
        if (gComplaint.empty()) gComplaint = error.what();
        return failed;
    }
}

template <class Stream> Stream& streamOf(thandle_t handle) { return *static_cast<Stream*>(handle); }

/// A failure reads nothing: some callers in libtiff add the answer to a count, whatever it is.
template <class Stream> tmsize_t readBytes(thandle_t handle, void* data, tmsize_t bytes)
{
    return bridged(tmsize_t{0}, [=] {
        const size_t got = streamOf<Stream>(handle).read(data, static_cast<size_t>(bytes));
        // libtiff goes on without a field that it cannot read, be it the palette.
        if (got < static_cast<size_t>(bytes) && gComplaint.empty()) gComplaint = "the file is truncated";
        return static_cast<tmsize_t>(got);
    });
}

tmsize_t refuseWrite(thandle_t, void*, tmsize_t) { return -1; }

tmsize_t writeBytes(thandle_t handle, void* data, tmsize_t bytes)
{
    return bridged(tmsize_t{-1}, [=] {
        streamOf<ByteSink>(handle).write(data, static_cast<size_t>(bytes));
        return bytes;
    });
}

template <class Stream> toff_t seek(thandle_t handle, toff_t offset, int whence)
{
    return bridged(static_cast<toff_t>(-1), [=] {
        Stream& stream = streamOf<Stream>(handle);
        const uint64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? stream.position() : stream.size();
        stream.seek(base + offset);
        return static_cast<toff_t>(stream.position());
    });
}

template <class Stream> toff_t size(thandle_t handle)
{
    return bridged(toff_t{0}, [=] { return static_cast<toff_t>(streamOf<Stream>(handle).size()); });
}

int leaveOpen(thandle_t) { return 0; }

void captureComplaints()
{
    TIFFSetErrorHandler(noteComplaint);
    TIFFSetWarningHandler(nullptr);
    forgetComplaints();
}

} // namespace

Handle openRead(ByteSource& source)
{
    captureComplaints();
    Handle handle(TIFFClientOpen(kName, "rm", &source, readBytes<ByteSource>, refuseWrite, seek<ByteSource>, leaveOpen,
                                 size<ByteSource>, nullptr, nullptr));
    require(handle != nullptr, "cannot read the TIFF file");
    return handle;
}

Handle openWrite(ByteSink& sink, bool big)
{
    captureComplaints();
    Handle handle(TIFFClientOpen(kName, big ? "w8" : "w", &sink, readBytes<ByteSink>, writeBytes, seek<ByteSink>,
                                 leaveOpen, size<ByteSink>, nullptr, nullptr));
    require(handle != nullptr, "cannot start the TIFF file");
    return handle;
}

void forgetComplaints() { gComplaint.clear(); }

void throwComplaint()
{
    throwIfInterrupted();
    if (!gComplaint.empty()) throw Error(gComplaint);
}

void require(bool done, const char* what)
{
    throwComplaint();
    if (!done) throw Error(what);
}

} // namespace tiff

namespace {

bool isTiff(std::span<const uint8_t> head)
{
    if (head.size() < 4) return false;
    const bool little = head[0] == 'I' && head[1] == 'I' && head[3] == 0;
    const bool big = head[0] == 'M' && head[1] == 'M' && head[2] == 0;
    const uint8_t version = little ? head[2] : head[3];
    return (little || big) && (version == 42 || version == 43);
}

/// Gray of 16 bits is cut to its significant ones, where no other depth has as many.
bool grayFits(const Layout& layout)
{
    const R_INT bits = layout.significantBits();
    return bits == layout.bits || (bits > 8 && bits != 12);
}

std::string refusal(const Layout& layout)
{
    if (layout.transparency) return "a transparent colour";
    const bool rgb555 = layout.bits == 16 && !layout.isGray();
    const bool signedColour = layout.isSigned && !layout.isGray();
    return rgb555 || signedColour || (layout.isGray() && !grayFits(layout)) ? describe(layout) : "";
}

} // namespace

Format tiffFormat()
{
    Format format;
    format.name = "TIFF";
    format.endings = {"tiff", "tif"};
    format.manyPages = true;
    format.orientation = true;
    format.recognises = isTiff;
    format.open = openTiff;
    format.create = createTiff;
    format.refusal = refusal;
    return format;
}

} // namespace rvimg
