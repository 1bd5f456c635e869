/// What reading and writing of JPEG share: errors that cross C frames.
#pragma once

#include "Error.h"
#include "Format.h"

#include <csetjmp>
#include <cstdio> // jpeglib.h needs it first
#include <jpeglib.h>

namespace rvimg {

namespace jpeg {

/// libjpeg's error manager, with a place to jump to and the message of the failure.
struct Errors {
    Errors();

    jpeg_error_mgr manager; ///< first, so that its address is ours
    std::jmp_buf target;
    std::string message;
};
/// The manager that a running libjpeg call belongs to.
Errors& errorsOf(j_common_ptr common);

/// Runs calls to libjpeg; a failure inside becomes an Error here. What the work creates on its stack is left behind by
/// the jump, so it may create nothing that has a destructor.
template <class Work> void guarded(Errors& errors, const Work& work)
{
    if (setjmp(errors.target) != 0) throw Error(errors.message);
    work();
}

/// Runs stream work inside a libjpeg callback: an exception becomes a libjpeg failure.
template <class Work> void bridged(j_common_ptr common, const Work& work)
{
    bool failed = false;
    try {
        work();
    } catch (const std::exception& error) {
        errorsOf(common).message = error.what();
        failed = true;
    }
    if (failed) std::longjmp(errorsOf(common).target, 1);
}

} // namespace jpeg

std::unique_ptr<Decoder> openJpeg(ByteSource& source, const ReadOptions& options);

} // namespace rvimg
