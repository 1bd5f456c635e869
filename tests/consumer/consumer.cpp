// Mirrors a picture of every depth through the installed library, twice, which must give the first one back.
#include <R_Kernel.h>

#include <array>
#include <iostream>
#include <vector>

namespace {

bool mirrorsTwice(R_INT bits)
{
    BITMAPHANDLE bitmap{};
    R_INT status = R_CreateBitmap(&bitmap, sizeof bitmap, MEM_CONVENTIONAL, 13, 2, bits,
                                  bits <= 8 ? ORDER_RGB : ORDER_BGR, nullptr, TOP_LEFT, nullptr, 0);
    if (status != SUCCESS) return false;
    std::vector<unsigned char> before(bitmap.BytesPerLine), once(before), twice(before);
    const std::size_t pixelBytes = static_cast<std::size_t>(bitmap.Width * bits) / 8;
    for (std::size_t i = 0; i < pixelBytes; ++i) before[i] = static_cast<unsigned char>(37 * i + 11);
    const auto moved = static_cast<R_SSIZE>(before.size());

    bool good = R_PutBitmapRow(&bitmap, before.data(), 0, before.size()) == moved;
    good = good && R_ReverseBitmap(&bitmap) == SUCCESS;
    good = good && R_GetBitmapRow(&bitmap, once.data(), 0, once.size()) == moved && once != before;
    good = good && R_ReverseBitmap(&bitmap) == SUCCESS;
    good = good && R_GetBitmapRow(&bitmap, twice.data(), 0, twice.size()) == moved && twice == before;
    R_FreeBitmap(&bitmap);
    return good;
}

} // namespace

int main()
{
    for (const R_INT bits : std::array{1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64}) {
        if (mirrorsTwice(bits)) continue;
        std::cerr << "mirroring " << bits << "-bit rows twice does not give them back\n";
        return 1;
    }
    std::cout << "fourteen depths mirrored\n";
    return 0;
}
