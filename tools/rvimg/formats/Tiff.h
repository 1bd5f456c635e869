/// What reading and writing of TIFF share: the library over our streams, and its failures.
#pragma once

#include "Format.h"

#include <tiffio.h>

namespace rvimg {

namespace tiff {

struct Close {
    void operator()(TIFF* tiff) const noexcept { TIFFClose(tiff); }
};
using Handle = std::unique_ptr<TIFF, Close>;

/// Opens over a stream, which must outlive the handle.
Handle openRead(ByteSource& source);
Handle openWrite(ByteSink& sink, bool big);

/// Forgets what libtiff has complained about so far.
void forgetComplaints();
/// Throws libtiff's first complaint since then. It reports some damage without failing the call.
void throwComplaint();
/// Throws where a call failed, whether it said why or not.
void require(bool done, const char* what);

} // namespace tiff

std::unique_ptr<Decoder> openTiff(ByteSource& source, const ReadOptions& options);
std::unique_ptr<Encoder> createTiff(ByteSink& sink, const WriteOptions& options);

} // namespace rvimg
