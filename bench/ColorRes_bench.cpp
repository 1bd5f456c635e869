// Rows in another depth: common pairs, and the way by colours.
#include "Support.h"

#include <algorithm>
#include <memory>

namespace rv::bench {

namespace {

constexpr R_INT kWidth = 4000, kHeight = 3000;

struct Format {
    R_INT bits;
    R_INT order;
};

void registerPair(const std::string& job, Format from, Format to)
{
    measure(job, "kernel", [=] {
        const auto source = std::make_shared<Bitmap>(kWidth, kHeight, from.bits);
        const auto target = std::make_shared<Bitmap>(kWidth, kHeight, to.bits);
        source->get()->Order = from.order;
        target->get()->Order = to.order;
        if (from.order == ORDER_GRAY && from.bits == 8) (void)R_CreateBitmapGrayPalette(source->get());
        if (to.order == ORDER_GRAY && to.bits == 8) (void)R_CreateBitmapGrayPalette(target->get());
        return [=] {
            BITMAPHANDLE* const in = source->get();
            BITMAPHANDLE* const out = target->get();
            // These rows have no bytes behind their pixels, so that all of them are one.
            return R_ConvertRow(out, out->Addr.Pointer, in, in->Addr.Pointer, R_UINT{kWidth} * kHeight) == SUCCESS;
        };
    });
    measure(job, "copy", copyOf(size_t{kWidth} * kHeight * static_cast<size_t>(std::max(from.bits, to.bits)) / 8));
}

} // namespace

void registerColorRes()
{
    constexpr Format gray{8, ORDER_GRAY}, colour{24, ORDER_BGR};
    registerPair("bits to bytes", {1, ORDER_RGB}, {8, ORDER_RGB});
    registerPair("24 to gray", colour, gray);
    registerPair("gray to 24", gray, colour);
    registerPair("24 to 32", colour, {32, ORDER_BGR});
    registerPair("24 to 48", colour, {48, ORDER_BGR});
    registerPair("24 to 256 nearest", colour, {8, ORDER_RGB});
}

} // namespace rv::bench
