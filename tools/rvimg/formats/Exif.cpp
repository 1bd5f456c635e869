#include "Exif.h"

#include "Error.h"

#include <cmath>
#include <cstdlib>
#include <libexif/exif-data.h>

namespace rvimg {

namespace {

constexpr double kCentimetresPerInch = 2.54;

struct Unref {
    void operator()(ExifData* data) const noexcept { exif_data_unref(data); }
    void operator()(ExifEntry* entry) const noexcept { exif_entry_unref(entry); }
};
using DataHandle = std::unique_ptr<ExifData, Unref>;

class Reader {
public:
    explicit Reader(ExifData* data) : content_(data->ifd[EXIF_IFD_0]), order_(exif_data_get_byte_order(data)) {}

    R_INT number(ExifTag tag) const
    {
        const ExifEntry* const entry = find(tag, EXIF_FORMAT_SHORT, 2);
        return entry != nullptr ? exif_get_short(entry->data, order_) : 0;
    }
    double ratio(ExifTag tag) const
    {
        const ExifEntry* const entry = find(tag, EXIF_FORMAT_RATIONAL, 8);
        if (entry == nullptr) return 0;
        const ExifRational value = exif_get_rational(entry->data, order_);
        return value.denominator == 0 ? 0 : static_cast<double>(value.numerator) / value.denominator;
    }

private:
    const ExifEntry* find(ExifTag tag, ExifFormat format, unsigned bytes) const
    {
        const ExifEntry* const entry = exif_content_get_entry(content_, tag);
        return entry != nullptr && entry->format == format && entry->size >= bytes ? entry : nullptr;
    }

    ExifContent* content_;
    ExifByteOrder order_;
};

} // namespace

ExifFacts readExif(std::span<const uint8_t> block)
{
    ExifFacts facts;
    const DataHandle data(exif_data_new());
    if (!data) return facts;
    exif_data_unset_option(data.get(), EXIF_DATA_OPTION_FOLLOW_SPECIFICATION); // it would invent a resolution
    exif_data_load_data(data.get(), block.data(), static_cast<unsigned>(block.size()));
    const Reader reader(data.get());
    const R_INT orientation = reader.number(EXIF_TAG_ORIENTATION);
    if (orientation >= TOP_LEFT && orientation <= LEFT_BOTTOM) facts.orientation = orientation;
    constexpr R_INT kCentimetre = 3;
    const double scale = reader.number(EXIF_TAG_RESOLUTION_UNIT) == kCentimetre ? kCentimetresPerInch : 1;
    const double x = reader.ratio(EXIF_TAG_X_RESOLUTION) * scale;
    const double y = reader.ratio(EXIF_TAG_Y_RESOLUTION) * scale;
    constexpr double kAbsurd = 1e6;
    if (x >= 1 && y >= 1 && x < kAbsurd && y < kAbsurd)
        facts.resolution = Resolution{static_cast<R_INT>(std::lround(x)), static_cast<R_INT>(std::lround(y))};
    return facts;
}

void apply(const ExifFacts& facts, Layout& layout)
{
    if (facts.orientation != 0) {
        layout.perspective = facts.orientation;
        layout.tagged = true;
    }
    if (!layout.resolution) layout.resolution = facts.resolution;
}

std::vector<uint8_t> makeExif(R_INT orientation)
{
    const DataHandle data(exif_data_new());
    const std::unique_ptr<ExifEntry, Unref> entry(exif_entry_new());
    if (!data || !entry) throw Error("out of memory");
    exif_data_set_byte_order(data.get(), EXIF_BYTE_ORDER_INTEL);
    exif_content_add_entry(data->ifd[EXIF_IFD_0], entry.get());
    exif_entry_initialize(entry.get(), EXIF_TAG_ORIENTATION);
    if (entry->data == nullptr) throw Error("out of memory");
    exif_set_short(entry->data, EXIF_BYTE_ORDER_INTEL, static_cast<ExifShort>(orientation));
    unsigned char* bytes = nullptr;
    unsigned count = 0;
    exif_data_save_data(data.get(), &bytes, &count);
    if (bytes == nullptr) throw Error("out of memory");
    std::vector<uint8_t> block(bytes, bytes + count);
    std::free(bytes);
    return block;
}

} // namespace rvimg
