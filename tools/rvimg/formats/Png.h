/// What reading and writing of PNG share: errors that cross C frames.
#pragma once

#include "Error.h"
#include "Format.h"

#include <csetjmp>
#include <png.h>
#if defined(RVIMG_HAVE_EXIF) && defined(PNG_eXIf_SUPPORTED)
#define RVIMG_PNG_HAS_EXIF
#include "Exif.h"
#endif

namespace rvimg {

namespace png {

/// The message of the failure that libpng is about to jump from.
using Message = std::string;

[[noreturn]] void onError(png_structp png, png_const_charp message);
void onWarning(png_structp png, png_const_charp message);

/// Runs calls to libpng; a failure inside becomes an Error here. What the work creates on its stack is left behind by
/// the jump, so it may create nothing that has a destructor.
template <class Work> void guarded(png_structp png, const Message& message, const Work& work)
{
    if (setjmp(png_jmpbuf(png)) != 0) throw Error(message);
    work();
}

/// Runs stream work inside a libpng callback: an exception becomes a libpng failure.
template <class Work> void bridged(png_structp png, const Work& work)
{
    bool failed = false;
    try {
        work();
    } catch (const std::exception& error) {
        *static_cast<Message*>(png_get_error_ptr(png)) = error.what();
        failed = true;
    }
    if (failed) png_longjmp(png, 1);
}

} // namespace png

std::unique_ptr<Decoder> openPng(ByteSource& source, const ReadOptions& options);

} // namespace rvimg
