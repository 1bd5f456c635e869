#include "Support/Calls.h"

#include "Internal/R_Int.h"

#include <cstdarg>
#include <vector>

namespace rv::test {

namespace {

constexpr RGBQUAD kColours[] = {{0, 0, 0, 0}, {10, 200, 30, 0}, {255, 0, 0, 0}, {255, 255, 255, 0}};
constexpr R_UINT kFour = 4;
constexpr R_WCHAR kNoText[] = {0};
constexpr R_SEGMENT kPieces[] = {{3, 8}, {21, 1000}};

/// A pointer that a call made: freed again, 1 when there was one.
R_INT64 freed(RGBQUAD* palette) { return R_HeapTerm(palette), as(palette != nullptr); }
R_INT64 freed(HPALETTE palette) { return R_DeletePalette(palette), as(palette != nullptr); }

R_INT64 freed(R_UINT* table) // of the web-safe palette
{
    const bool white = table != nullptr && table[MATCH_TABLE_CELLS - 1] == 216;
    return R_FreeUserMatchTable(table), as(white);
}

/// A palette of seven entries, and how many colours there were to find one for.
R_INT64 optimizePalette(World& w)
{
    R_UINT* table = nullptr;
    const R_INT64 status = R_CreateBitmapOptPal(w.a, w.answers.colours, &w.answers.number[0], &table, 0);
    for (R_UINT i = 0; table != nullptr && i < MATCH_TABLE_CELLS; ++i) w.answers.number[1] += table[i] != 0 ? 1 : 0;
    R_FreeUserMatchTable(table);
    return status;
}

/// Palettes of bitmaps above 8 bits cannot be asked for.
R_INT64 paletted(World& w, R_INT64 status) { return w.a->BitsPerPixel <= 8 ? status : SUCCESS; }

/// Has f make a bitmap like w.a in the spare record, and frees it.
template <class F> R_INT64 makeSpare(World& w, F f)
{
    const R_INT64 status = f(w.spare.get(), w.a.scene());
    if (status == SUCCESS) {
        w.answers.number[0] = w.spare->Flags;
        w.answers.number[1] = w.spare->nColors;
    }
    R_FreeBitmap(w.spare);
    return status;
}

/// Calls a row call inside an access of w.a, for the last bytes of w.row.
template <class F, class... Place> R_INT64 moveRow(World& w, F call, R_SIZE bytes, Place... place)
{
    const R_INT64 access = R_AccessBitmap(w.a);
    if (access != SUCCESS) return access;
    const R_SSIZE moved = call(w.a, w.row.end() - bytes, place..., bytes);
    const R_INT64 released = R_ReleaseBitmap(w.a);
    return moved == static_cast<R_SSIZE>(bytes) ? released : moved;
}

R_INT64 accessAndRelease(World& w)
{
    const R_INT64 access = R_AccessBitmap(w.a);
    return access == SUCCESS ? R_ReleaseBitmap(w.a) : access;
}

R_INT64 accessWithin(World& w)
{
    const R_INT status = R_IntAccessBitmap(w.a, &w.answers.flag);
    return R_IntReleaseBitmap(w.a, w.answers.flag, status);
}

template <class F> R_INT64 withPalette(F f)
{
    const HPALETTE palette = R_CreatePalette(kColours, kFour);
    const R_INT64 status = f(palette);
    R_DeletePalette(palette);
    return status;
}

bool borrowsPixels(World& w) { return (w.a->Flags & FLAG_MIRROR) != 0; }

R_INT64 changeHeight(World& w)
{
    const R_INT status = R_ChangeBitmapHeight(w.a, w.a->Height + 3);
    if (borrowsPixels(w)) return as(status == ERROR_INV_PARAMETER);
    if (status != SUCCESS) return status;
    std::vector<uint8_t> fresh(w.row.size(), 1);
    bool zero = R_AccessBitmap(w.a) == SUCCESS;
    for (R_INT row = w.a->Height - 3; row < w.a->Height; ++row) {
        for (int tries = 0; tries < 2; ++tries) // a failure of the system strikes once, and this is not the call
            (void)R_GetBitmapRow(w.a, fresh.data(), row, fresh.size());
        zero = zero && fresh == std::vector<uint8_t>(fresh.size());
    }
    R_ReleaseBitmap(w.a);
    w.a->Height = w.a->Height - 3; // as tall as borrowed pixels, which cannot grow
    return as(zero);
}

/// A tile is a row there. Tiles are one placement's own, so they are no answer that all give.
R_INT64 tileFacts(World& w)
{
    const R_UINT tiles = w.a.scene().home == Home::tiled ? static_cast<R_UINT>(w.a->Height) : 0;
    R_UINT memory, total, conventional;
    R_UINT64 bytes;
    const R_INT status =
        R_GetBitmapMemoryInfo(w.a, &memory, &bytes, &total, &conventional, Out<R_UINT>(), Out<R_UINT>());
    if (status != SUCCESS) return status;
    return as(total == tiles && conventional == (tiles != 0 ? 2 : 0) && bytes == (tiles != 0 ? w.row.size() : 0) &&
              (memory == MEM_TILED) == (tiles != 0));
}

R_INT64 changeTiles(World& w)
{
    constexpr R_UINT all = MEMORYINFO_CONV_TILES | MEMORYINFO_MAX_TILE_VIEWS | MEMORYINFO_TILE_VIEWS;
    R_INT status = R_SetBitmapMemoryInfo(w.a, 7, 5, 1, all);
    if (w.a.scene().home != Home::tiled) return as(status == ERROR_INV_PARAMETER);
    if (status == SUCCESS) status = R_SetBitmapMemoryInfo(w.a, 1, 5, 1, MEMORYINFO_CONV_TILES);
    if (status != SUCCESS) return status;
    R_UINT conventional, most;
    R_GetBitmapMemoryInfo(w.a, Out<R_UINT>(), nullptr, nullptr, &conventional, &most, nullptr);
    return as(conventional == 1 && most == 5);
}

/// The last bytes of w.row as the pixels behind the third of a row: nothing past them may be read.
R_INT64 putSegments(World& w)
{
    const auto bits = static_cast<size_t>(w.a->Width - 3) * static_cast<size_t>(w.a->BitsPerPixel);
    return R_PutBitmapRowSegments(w.a, w.row.end() - (bits + 7) / 8, 5, 3, kPieces, 2);
}

R_INT64 traceV(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    TraceV(format, arguments);
    va_end(arguments);
    return SUCCESS;
}

#define MAKE(name, ...)                                                                                                \
    DOES(name, makeSpare(w, [&](BITMAPHANDLE* p, const Scene& s) { return name(p, s.structSize, __VA_ARGS__); }))

Call tables(Call call) { return {call.name, call.drive, OnFailure::tables}; }
Call onlyFull(Call call) { return {call.name, call.drive, OnFailure::nothing, ERROR_INV_STRUCT_SIZE}; }

/// A sheet that lies partly in a bitmap.
const R_POINTF kSheet[] = {{-3.5, 1}, {30, 0}, {33, 9.5}, {2, 14}};

const Call kCalls[] = {
    // Status
    CALL(R_GetFriendlyErrorMessage, ERROR_INV_SIZE, w.answers.wide, 40, 0),
    CALL(R_GetFriendlyErrorMessageA, ERROR_INV_SIZE, w.answers.narrow, 40, 0),
    CALL(R_GetLibIdFromErrorCode, -541, &w.answers.flag, &w.answers.module),
    DOES(Trace, Trace("%s", ""), SUCCESS),
    DOES(Trace1, Trace1("", "%s", ""), SUCCESS),
    DOES(Trace1W, Trace1W(kNoText, kNoText), SUCCESS),
    DOES(TraceV, traceV("%s", "")),
    // The record's life
    MAKE(R_InitBitmap, s.width, s.height, s.bits),
    onlyFull(MAKE(R_InitBitmapWithCallbacks, s.width, s.height, s.bits, &w.callbacks)),
    MAKE(R_CreateBitmap, MEM_CONVENTIONAL, s.width, s.height, s.bits, ORDER_GRAY, nullptr, 0, nullptr, 0),
    onlyFull(MAKE(R_CreateBitmapWithCallbacks, MEM_CONVENTIONAL, s.width, s.height, s.bits, ORDER_BGR, nullptr,
                  TOP_LEFT, nullptr, 0, &w.callbacks)),
    DOES(R_AllocateBitmap, makeSpare(w,
                                     [](BITMAPHANDLE* p, const Scene& s) {
                                         const R_INT made = R_InitBitmap(p, s.structSize, s.width, s.height, s.bits);
                                         return made == SUCCESS ? R_AllocateBitmap(p, MEM_CONVENTIONAL) : made;
                                     })),
    DOES(R_FreeBitmap, R_FreeBitmap(w.b), as((w.b->Flags & FLAG_ALLOCATED) == 0 && w.b->pPalette == nullptr)),
    DOES(R_CopyBitmapHandle, as(R_CopyBitmapHandle(w.spare, w.a, w.spare.structSize()) == SUCCESS &&
                                std::memcmp(w.spare.get(), w.a.get(), w.spare.structSize()) == 0)),
    CALL(R_SetAllocateBitmapCallback, nullptr, nullptr, nullptr, nullptr),
    tables(CALL(R_AllocateBitmapExtraData, w.a, 0, 100)),
    CALL(R_FreeBitmapExtraData, w.a, 0),
    tables(DOES(R_CopyBitmapExtraData,
                R_SetBitmapExtraData(w.b, 0, 5, "extra") == SUCCESS ? R_CopyBitmapExtraData(w.a, w.b, 0) : FAILURE)),
    CALL(R_GetBitmapExtraData, w.a, 0, Out<void*>(), &w.answers.size),
    tables(CALL(R_SetBitmapExtraData, w.a, 0, 5, "extra")),
    // Only borrowed pixels can be pointed elsewhere; the others refuse.
    DOES(R_SetBitmapDataPointer, as(R_SetBitmapDataPointer(w.a, w.a->Addr.Pointer, w.a->Size) ==
                                    (borrowsPixels(w) ? SUCCESS : ERROR_INV_PARAMETER))),
    DOES(R_ChangeBitmapHeight, changeHeight(w)),
    CALL(R_CompareBitmapHandles, w.a, w.b, &w.answers.flag, w.answers.wide, 200, 0),
    DOES(R_GetBitmapMemoryInfo, tileFacts(w)),
    DOES(R_SetBitmapMemoryInfo, changeTiles(w)),
    onlyFull(DOES(R_SetBitmapDataCallbacks,
                  w.a.scene().home == Home::callbacks ? SUCCESS // its pixels live in the present ones
                                                      : R_SetBitmapDataCallbacks(w.a, &w.callbacks))),
    DOES(R_GetBitmapDataCallbacks, w.callbacks = {},
         R_GetBitmapDataCallbacks(w.a, &w.callbacks) == SUCCESS
             ? as(w.callbacks.uStructSize == BITMAPHANDLEDATACALLBACKS_SIZE)
             : FAILURE),
    DOES(R_AccessBitmap, accessAndRelease(w)),
    DOES(R_ReleaseBitmap, accessAndRelease(w)),
    DOES(R_IntAccessBitmap, accessWithin(w)),
    DOES(R_IntReleaseBitmap, as(R_IntReleaseBitmap(w.a, 0, -77) == -77)),
    CALL(R_IntBeginCopyBitmap, w.b, w.a, 0, Out<ALLOCATIONINFO>()),
    CALL(R_IntEndCopyBitmap, w.b, w.a, SUCCESS),
    CALL(R_IntFlushStartupBuffers, 0),
    DOES(R_HeapTerm, R_HeapTerm(nullptr), SUCCESS),
    // Settings, read or put back as they were
    CALL(R_SetMemoryThresholds, 0, 0, 0, 0, 0, 0),
    CALL(R_GetMemoryThresholds, Out<R_INT>(), Out<R_INT64>(), Out<R_INT64>(), Out<R_INT>(), Out<R_INT>()),
    CALL(R_SetDefaultMemoryType, R_GetDefaultMemoryType()),
    DOES(R_GetDefaultMemoryType, as(R_GetDefaultMemoryType() == MEM_CONVENTIONAL)),
    DOES(R_SetDefaultXResolution, as(R_SetDefaultXResolution(R_GetDefaultXResolution()) == 150)),
    DOES(R_SetDefaultYResolution, as(R_SetDefaultYResolution(R_GetDefaultYResolution()) == 150)),
    DOES(R_GetDefaultXResolution, as(R_GetDefaultXResolution() == 150)),
    DOES(R_GetDefaultYResolution, as(R_GetDefaultYResolution() == 150)),
    CALL(R_GetGlobalMemoryThresholds, Out<GLOBALMEMORYTHRESHOLDS>(), GLOBALMEMORYTHRESHOLDS_SIZE),
    CALL(R_SetGlobalMemoryThresholds, nullptr),
    CALL(R_ManageMemory, MANAGE_GET_LIMIT, 0, Out<R_UINT64>()),
    CALL(R_SetStatusCallBack, nullptr, nullptr, Out<STATUSCALLBACK>(), Out<void*>()),
    DOES(R_GetStatusCallBack, as(R_GetStatusCallBack(nullptr) == nullptr)),
    CALL(R_SetCopyStatusCallBack, nullptr, nullptr, Out<STATUSCALLBACK>(), Out<void*>()),
    DOES(R_GetCopyStatusCallBack, as(R_GetCopyStatusCallBack(nullptr) == nullptr)),
    CALL(R_SetDisDispatch, nullptr),
    // Rows and pixels
    DOES(R_GetBitmapRow, moveRow(w, R_GetBitmapRow, w.row.size(), 2)),
    DOES(R_PutBitmapRow, moveRow(w, R_PutBitmapRow, w.row.size(), 2)),
    DOES(R_GetBitmapRowCol, moveRow(w, R_GetBitmapRowCol, 3, 2, 9)),
    DOES(R_PutBitmapRowCol, moveRow(w, R_PutBitmapRowCol, 3, 2, 9)),
    DOES(R_PutBitmapRowSegments, putSegments(w)),
    CALL(R_GetPixelData, w.a, w.row.end() - 8, 4, 11, 8),
    CALL(R_PutPixelData, w.a, w.row.end() - 8, 4, 11, 8),
    DOES(R_GetPixelColor, w.answers.size = R_GetPixelColor(w.a, 4, 11), SUCCESS),
    CALL(R_PutPixelColor, w.a, 4, 11, 0x0000FF00),
    // Palettes
    DOES(R_IntGetFixedPalette, as(R_IntGetFixedPalette(8) != nullptr)),
    DOES(R_IntGetNetscapePalette, as(R_IntGetNetscapePalette() != nullptr)),
    CALL(R_GetFixedPalette, w.answers.colours, 4),
    DOES(R_CreateFixedPalette, freed(R_CreateFixedPalette(8))),
    DOES(R_CreateGrayPalette, freed(R_CreateGrayPalette(8))),
    tables(DOES(R_CreateBitmapGrayPalette, paletted(w, R_CreateBitmapGrayPalette(w.a)))),
    tables(DOES(R_CreateBitmapFixedPalette, paletted(w, R_CreateBitmapFixedPalette(w.a)))),
    DOES(R_GetBitmapColors, paletted(w, R_GetBitmapColors(w.a, 0, 2, w.answers.colours))),
    DOES(R_PutBitmapColors, paletted(w, R_PutBitmapColors(w.a, 0, 2, kColours))),
    DOES(R_GetBitmapPaletteEntries, w.answers.number[0] = R_GetBitmapPaletteEntries(w.a, 1, 2, w.answers.colours),
         SUCCESS),
    tables(CALL(R_SetBitmapNewPalette, w.a, kColours, kFour)),
    tables(CALL(R_CopyBitmapPalette, w.a, w.b)),
    DOES(R_CompareBitmapToPalette, w.answers.flag = R_CompareBitmapToPalette(w.a, kColours, kFour), SUCCESS),
    DOES(R_IsGrayScalePalette, as(R_IsGrayScalePalette(kColours, kFour) == 0)),
    DOES(R_FindPaletteIndex, as(R_FindPaletteIndex(kColours, kFour, 0, 190, 20) != 0)),
    DOES(R_GetNearestPaletteIndex, as(R_GetNearestPaletteIndex(w.a, 0x00FFFFFF) < 256)),
    DOES(R_TranslateBitmapColor, as((R_TranslateBitmapColor(w.a, w.b, 0x01000001) & 0xFE000000u) == 0)),
    DOES(R_GetTrueColorValue, as(R_GetTrueColorValue(w.a, 0x123456) <= 0xFFFFFF)),
    DOES(R_CreatePalette, freed(R_CreatePalette(kColours, kFour))),
    DOES(R_CreateNewPalette, freed(R_CreateNewPalette(kColours, kFour))),
    DOES(R_GetPaletteSize, withPalette([](HPALETTE p) { return as(R_GetPaletteSize(p) == kFour); })),
    DOES(R_GetPaletteEntries, withPalette([&](HPALETTE p) {
             return as(R_GetPaletteEntries(p, 0, kFour, w.answers.colours) == kFour &&
                       std::memcmp(w.answers.colours, kColours, sizeof kColours) == 0);
         })),
    DOES(R_SetPaletteEntries, withPalette([](HPALETTE p) { return as(R_SetPaletteEntries(p, 1, 2, kColours) == 2); })),
    DOES(R_DupPalette, withPalette([](HPALETTE p) { return freed(R_DupPalette(p)); })),
    DOES(R_DupBitmapPalette, paletted(w, freed(R_DupBitmapPalette(w.a)))),
    tables(DOES(R_SetBitmapPalette, withPalette([&](HPALETTE p) { return R_SetBitmapPalette(w.a, p); }))),
    DOES(R_CreateSystemPalette, R_DeletePalette(R_CreateSystemPalette()), SUCCESS),
    DOES(R_DeletePalette, R_DeletePalette(nullptr), SUCCESS),
    DOES(R_CreateUserMatchTable, freed(R_CreateUserMatchTable(R_IntGetNetscapePalette(), 256))),
    CALL(R_FreeUserMatchTable, nullptr),
    DOES(R_SetUserMatchTable,
         as(R_SetUserMatchTable(w.answers.number) == nullptr && R_SetUserMatchTable(nullptr) == w.answers.number)),
    DOES(R_CreateBitmapOptPal, optimizePalette(w)),
    // Geometry
    CALL(R_FlipBitmap, w.a),
    CALL(R_ReverseBitmap, w.a),
    CALL(R_FlipBitmapViewPerspective, w.a),
    CALL(R_ReverseBitmapViewPerspective, w.a),
    CALL(R_IntFlipBitmap, w.a),
    CALL(R_IntReverseBitmap, w.a),
    CALL(R_IntFlipBitmapViewPerspective, w.a),
    CALL(R_IntReverseBitmapViewPerspective, w.a),
    CALL(R_FillBitmap, w.a, 0x123456),
    CALL(R_FillBitmap2, w.a, 0xA0C0E0, 77),
    CALL(R_ClearBitmap, w.a),
    CALL(R_CombineBitmapKrn, w.a, 3, 2, 30, 8, w.b, 5, 1, COMBINE_ADD | COMBINE_RES_NOT),
    CALL(R_MirrorLine, w.row.data(), static_cast<R_UINT>(w.a->Width), w.a->BitsPerPixel),
    CALL(R_ShearBitmap, w.a, 1500, SHEAR_BILINEAR, 0x123456),
    CALL(R_WarpBitmap, nullptr, w.a, 0, kSheet, 20, 0, WARP_BILINEAR, 0x123456),
};

} // namespace

std::span<const Call> bitmapCalls() { return kCalls; }

std::span<const Call> allCalls()
{
    static const std::vector<Call> calls = [] {
        std::vector<Call> all;
        for (const auto& family :
             {bitmapCalls, threadCalls, fileCalls, redirectCalls, tempFileCalls, moduleCalls, listCalls, runCalls,
              compressionCalls, copyCalls, perspectiveCalls, rotateCalls, ditherCalls, colourResCalls, resizeCalls}) {
            const std::span<const Call> some = family();
            all.insert(all.end(), some.begin(), some.end());
        }
        return all;
    }();
    return calls;
}

} // namespace rv::test
