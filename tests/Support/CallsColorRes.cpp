#include "Internal/R_Int.h"
#include "Support/Calls.h"

namespace rv::test {

namespace {

/// What became of a bitmap, in the answers. A failure of the system strikes once, and this is not the call.
void tell(World& w, BITMAPHANDLE* bitmap)
{
    w.answers.number[0] = static_cast<R_UINT>(bitmap->BitsPerPixel);
    w.answers.number[1] = bitmap->nColors;
    w.answers.number[2] = bitmap->Flags & FLAG_PREMULTIPLY_ALPHA;
    uint8_t pixel[8] = {};
    for (R_INT at = 0; at < bitmap->Height * 9; ++at) {
        for (int tries = 0; tries < 2; ++tries)
            (void)R_GetPixelData(bitmap, pixel, at / 9, at % 9 * bitmap->Width / 9, sizeof pixel);
        for (const uint8_t byte : pixel) w.answers.size = w.answers.size * 31 + byte;
    }
}

/// A bitmap in the spare record, placed as w.a is; freed with all that it has.
struct Made {
    Made(World& w, R_INT bits, R_INT order) : world(w), bitmap(w.spare)
    {
        status = R_DupBitmapNewDim(bitmap, w.a, w.spare.structSize(), w.a->Width, w.a->Height, bits,
                                   DUP_ALLOCATE | DUP_PALETTE);
        if (status != SUCCESS) return;
        bitmap->Order = order;
        for (R_INT row = 0; row < bitmap->Height && status == SUCCESS; ++row) {
            uint8_t pixel[8];
            for (uint8_t& byte : pixel) byte = static_cast<uint8_t>(77 * row + 13 * (&byte - pixel));
            status = R_PutPixelData(bitmap, pixel, row, row % bitmap->Width, static_cast<R_SIZE>(bits / 8));
        }
    }
    ~Made() { R_FreeDuplicateBitmap(bitmap, world.a); }
    template <class F> R_INT64 then(F call)
    {
        if (status == SUCCESS) status = call(bitmap);
        if (status == SUCCESS) tell(world, bitmap);
        return status;
    }
    World& world;
    BITMAPHANDLE* bitmap;
    R_INT64 status;
};

R_INT64 readAlpha(World& w)
{
    Made made(w, 32, ORDER_BGR);
    return made.then([&](BITMAPHANDLE* bitmap) {
        GuardedRecord alpha(w.spare.structSize());
        const R_INT64 status = R_GetBitmapAlpha(alpha, bitmap, w.spare.structSize());
        if (status != SUCCESS) return status;
        tell(w, alpha);
        R_FreeBitmap(alpha);
        return status;
    });
}

R_INT64 applyTable(World& w)
{
    Made made(w, 8, ORDER_GRAY);
    return made.then([](BITMAPHANDLE* bitmap) -> R_INT64 {
        static RGBQUAD table[100];
        for (size_t i = 0; i < 100; ++i) table[i].rgbRed = static_cast<uint8_t>(255 - i);
        bitmap->pLUT = table;
        bitmap->LUTLength = 100;
        return R_ApplyBitmapLUT(bitmap);
    });
}

/// Whether w.a is gray.
R_INT64 isGray(World& w, R_INT answer)
{
    w.answers.flag = answer;
    return answer < 0 ? answer : SUCCESS;
}

const Call kCalls[] = {
    CALL(R_ColorResBitmap, nullptr, w.a, 0, 4, COLORRES_OPTIMIZED | COLORRES_DITHER, nullptr, 0),
    CALL(R_ConvertRow, w.b, w.row.data(), w.a, std::vector<uint8_t>(w.a->BytesPerLine, 0x5A).data(),
         static_cast<R_UINT>(w.a->Width)),
    DOES(R_IsGrayScaleBitmap, isGray(w, R_IsGrayScaleBitmap(w.a))),
    DOES(R_IntIsGrayScaleBitmap, isGray(w, R_IntIsGrayScaleBitmap(w.a))),
    CALL(R_GrayScaleBitmap, w.a, 8),
    DOES(R_ApplyBitmapLUT, applyTable(w)),
    DOES(R_GetBitmapAlpha, readAlpha(w)),
    DOES(R_SetBitmapAlpha, Made(w, 64, ORDER_RGB).then([&](BITMAPHANDLE* bitmap) -> R_INT64 {
        const R_INT64 status = R_GrayScaleBitmap(w.b, 16);
        return status == SUCCESS ? R_SetBitmapAlpha(bitmap, w.b) : status;
    })),
    DOES(R_PremultiplyBitmap, Made(w, 32, ORDER_BGR).then(R_PremultiplyBitmap)),
    DOES(R_UnpremultiplyBitmap, Made(w, 64, ORDER_BGR).then([](BITMAPHANDLE* bitmap) {
        bitmap->Flags |= FLAG_PREMULTIPLY_ALPHA;
        return R_UnpremultiplyBitmap(bitmap);
    })),
};

} // namespace

std::span<const Call> colourResCalls() { return kCalls; }

} // namespace rv::test
