/// Pages in another depth, where a format cannot hold them as they are.
#pragma once

#include "Format.h"

namespace rvimg {

/// A depth, order and palette that a page can be given without choosing anything by taste.
struct Depth {
    R_INT bits = 0;
    R_UINT flags = 0;             ///< of R_ColorResBitmap
    bool unpremultiplied = false; ///< its colours are divided by its alpha before
};

/// The least change that makes a page what the format can hold: bits that lose nothing before those that do, colours
/// before grays. Nothing where it can as it is. Throws where no depth helps, as with an orientation.
std::optional<Depth> depthFor(const Format& format, const Layout& layout);

/// Gives the page that depth.
void changeDepth(Image& image, const Depth& depth);

/// Whether the pixels of a bitmap are grays, by whatever means.
bool showsGray(BITMAPHANDLE* record);

/// Where colours that were different no longer are, others may have become the transparent one: takes it from the page
/// and answers true.
bool dropUncertainTransparency(Image& image, const Layout& before);

} // namespace rvimg
