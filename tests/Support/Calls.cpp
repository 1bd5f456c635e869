#include "Support/Calls.h"

#include "Internal/R_Int.h"
#include "Support/GuardedRecord.h"

#include <array>
#include <cstring>

namespace rv::test {

namespace {

constexpr std::array<RGBQUAD, 4> kColours{{{0, 0, 0, 0}, {10, 200, 30, 0}, {255, 0, 0, 0}, {255, 255, 255, 0}}};
constexpr R_UINT kFour = 4;

R_UINT rowBytes(World& w) { return w.a->BytesPerLine; }

/// An answer that is no status, as one: 1 where it is what it should be.
R_INT64 as(bool good) { return good ? SUCCESS : ERROR_FAILURE; }

/// A pointer that a call made: freed again, 1 when there was one.
R_INT64 freed(RGBQUAD* palette)
{
    R_HeapTerm(palette);
    return as(palette != nullptr);
}
R_INT64 freed(HPALETTE palette)
{
    R_DeletePalette(palette);
    return as(palette != nullptr);
}

R_INT64 moved(R_SSIZE bytes, R_SIZE wanted) { return bytes == static_cast<R_SSIZE>(wanted) ? SUCCESS : bytes; }

/// Makes a bitmap like w.a in a record of its own, hands it to f, frees it.
template <class F> R_INT64 onFreshRecord(World& w, F f)
{
    const GuardedRecord record(w.a.scene().structSize);
    const R_INT64 status = f(record.get());
    if (status == SUCCESS) {
        w.note(record->Flags);
        w.note(record->nColors);
    }
    R_FreeBitmap(record.get());
    return status;
}

R_INT create(World& w, BITMAPHANDLE* p, const BITMAPHANDLEDATACALLBACKS* callbacks)
{
    const Scene& s = w.a.scene();
    return R_CreateBitmapWithCallbacks(p, s.structSize, MEM_CONVENTIONAL, s.width, s.height, s.bits, ORDER_BGR, nullptr,
                                       TOP_LEFT, nullptr, 0, callbacks);
}

BITMAPHANDLEDATACALLBACKS emptyCallbacks()
{
    BITMAPHANDLEDATACALLBACKS callbacks{};
    callbacks.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE;
    return callbacks;
}

/// Drives a call inside an access of w.a.
template <class F> R_INT64 accessed(World& w, F f)
{
    const R_INT64 access = R_AccessBitmap(w.a.get());
    if (access != SUCCESS) return access;
    const R_INT64 status = f();
    const R_INT64 released = R_ReleaseBitmap(w.a.get());
    return status == SUCCESS ? released : status;
}

HPALETTE fourColours() { return R_CreatePalette(kColours.data(), kFour); }

std::vector<Call> statusCalls()
{
    return {
        {"R_GetFriendlyErrorMessage",
         [](World& w) {
             std::array<R_WCHAR, 40> text{};
             const R_INT status = R_GetFriendlyErrorMessage(ERROR_INV_SIZE, text.data(), 40, 0);
             w.note(text);
             return status;
         }},
        {"R_GetFriendlyErrorMessageA",
         [](World& w) {
             std::array<char, 40> text{};
             const R_INT status = R_GetFriendlyErrorMessageA(ERROR_INV_SIZE, text.data(), 40, 0);
             w.note(text);
             return status;
         }},
        {"R_GetLibIdFromErrorCode",
         [](World& w) {
             R_INT feature = 7, module = 7;
             const R_INT status = R_GetLibIdFromErrorCode(-541, &feature, &module);
             w.note(module);
             return status;
         }},
        {"Trace", [](World&) { return Trace("%s", ""), SUCCESS; }},
        {"Trace1", [](World&) { return Trace1("", "%s", ""), SUCCESS; }},
        {"Trace1W",
         [](World&) {
             constexpr R_WCHAR empty[] = {0};
             return Trace1W(empty, empty), SUCCESS;
         }},
        {"TraceV",
         [](World&) {
             const auto trace = [](const char* format, ...) {
                 va_list arguments;
                 va_start(arguments, format);
                 TraceV(format, arguments);
                 va_end(arguments);
             };
             return trace("%s", ""), SUCCESS;
         }},
    };
}

std::vector<Call> lifeCalls()
{
    return {
        {"R_InitBitmap",
         [](World& w) {
             const Scene& s = w.a.scene();
             return onFreshRecord(
                 w, [&](BITMAPHANDLE* p) { return R_InitBitmap(p, s.structSize, s.width, s.height, s.bits); });
         }},
        {"R_InitBitmapWithCallbacks",
         [](World& w) {
             const Scene& s = w.a.scene();
             const BITMAPHANDLEDATACALLBACKS callbacks = emptyCallbacks();
             return onFreshRecord(w, [&](BITMAPHANDLE* p) {
                 return R_InitBitmapWithCallbacks(p, s.structSize, s.width, s.height, s.bits, &callbacks);
             });
         },
         OnFailure::nothing, ERROR_INV_STRUCT_SIZE},
        {"R_CreateBitmap",
         [](World& w) {
             const Scene& s = w.a.scene();
             return onFreshRecord(w, [&](BITMAPHANDLE* p) {
                 return R_CreateBitmap(p, s.structSize, MEM_CONVENTIONAL, s.width, s.height, s.bits, ORDER_GRAY,
                                       nullptr, 0, nullptr, 0);
             });
         }},
        {"R_CreateBitmapWithCallbacks",
         [](World& w) {
             const BITMAPHANDLEDATACALLBACKS callbacks = emptyCallbacks();
             return onFreshRecord(w, [&](BITMAPHANDLE* p) { return create(w, p, &callbacks); });
         },
         OnFailure::nothing, ERROR_INV_STRUCT_SIZE},
        {"R_AllocateBitmap",
         [](World& w) {
             return onFreshRecord(w, [&](BITMAPHANDLE* p) {
                 const Scene& s = w.a.scene();
                 const R_INT status = R_InitBitmap(p, s.structSize, s.width, s.height, s.bits);
                 return status == SUCCESS ? R_AllocateBitmap(p, MEM_CONVENTIONAL) : status;
             });
         }},
        {"R_FreeBitmap",
         [](World& w) {
             return R_FreeBitmap(w.b.get()), as((w.b->Flags & FLAG_ALLOCATED) == 0 && w.b->pPalette == nullptr);
         }},
        {"R_CopyBitmapHandle",
         [](World& w) {
             const GuardedRecord copy(w.a.scene().structSize);
             const R_INT status = R_CopyBitmapHandle(copy.get(), w.a.get(), copy.structSize());
             w.note(copy->uStructSize == w.a->uStructSize);
             return status;
         }},
        {"R_SetAllocateBitmapCallback",
         [](World&) { return R_SetAllocateBitmapCallback(nullptr, nullptr, nullptr, nullptr); }},
        {"R_AllocateBitmapExtraData", [](World& w) { return R_AllocateBitmapExtraData(w.a.get(), 0, 100); },
         OnFailure::tables},
        {"R_FreeBitmapExtraData", [](World& w) { return R_FreeBitmapExtraData(w.a.get(), 0); }},
        {"R_CopyBitmapExtraData",
         [](World& w) {
             const R_INT status = R_SetBitmapExtraData(w.b.get(), 0, 5, "extra");
             return status == SUCCESS ? R_CopyBitmapExtraData(w.a.get(), w.b.get(), 0) : status;
         },
         OnFailure::tables},
        {"R_GetBitmapExtraData",
         [](World& w) {
             R_SIZE size = 1;
             void* data = nullptr;
             const R_INT status = R_GetBitmapExtraData(w.a.get(), 0, &data, &size);
             w.note(size);
             return status;
         }},
        {"R_SetBitmapExtraData", [](World& w) { return R_SetBitmapExtraData(w.a.get(), 0, 5, "extra"); },
         OnFailure::tables},
        {"R_SetBitmapDataPointer",
         [](World& w) {
             // Only borrowed pixels can be pointed elsewhere; the others refuse.
             void* const present = w.a->Addr.Pointer;
             const R_INT status = R_SetBitmapDataPointer(w.a.get(), present, w.a->Size);
             const bool borrowed = (w.a->Flags & FLAG_MIRROR) != 0;
             return as(status == (borrowed ? SUCCESS : ERROR_INV_PARAMETER));
         }},
        {"R_ChangeBitmapHeight",
         [](World& w) {
             const bool borrowed = (w.a->Flags & FLAG_MIRROR) != 0;
             const R_INT status = R_ChangeBitmapHeight(w.a.get(), w.a->Height + 3);
             if (borrowed) return as(status == ERROR_INV_PARAMETER);
             if (status != SUCCESS) return R_INT64{status};
             const std::vector<uint8_t> grown = w.a.pixels();
             const std::vector<uint8_t> fresh(grown.end() - static_cast<long>(rowBytes(w)) * 3, grown.end());
             w.a->Height = w.a->Height - 3; // as tall as borrowed pixels, which cannot grow
             return as(fresh == std::vector<uint8_t>(fresh.size()));
         }},
        {"R_CompareBitmapHandles",
         [](World& w) {
             R_INT equal = 7;
             std::array<R_WCHAR, 200> text{};
             const R_INT status = R_CompareBitmapHandles(w.a.get(), w.b.get(), &equal, text.data(), 200, 0);
             w.note(equal);
             return status;
         }},
        {"R_GetBitmapMemoryInfo",
         [](World& w) {
             R_UINT memory = 7, a = 7, b = 7, c = 7, d = 7;
             R_UINT64 tile = 7;
             const R_INT status = R_GetBitmapMemoryInfo(w.a.get(), &memory, &tile, &a, &b, &c, &d);
             w.note(a + b + c + d + tile);
             return status;
         }},
        {"R_SetBitmapDataCallbacks",
         [](World& w) {
             if (w.a.scene().home == Home::callbacks) return as(true); // its pixels live in the present ones
             const BITMAPHANDLEDATACALLBACKS callbacks = emptyCallbacks();
             return R_INT64{R_SetBitmapDataCallbacks(w.a.get(), &callbacks)};
         },
         OnFailure::nothing, ERROR_INV_STRUCT_SIZE},
        {"R_GetBitmapDataCallbacks",
         [](World& w) {
             BITMAPHANDLEDATACALLBACKS callbacks{};
             const R_INT status = R_GetBitmapDataCallbacks(w.a.get(), &callbacks);
             w.note(callbacks.uStructSize);
             return status;
         }},
        {"R_AccessBitmap", [](World& w) { return accessed(w, [&] { return SUCCESS; }); }},
        {"R_ReleaseBitmap", [](World& w) { return accessed(w, [&] { return SUCCESS; }); }},
        {"R_IntAccessBitmap",
         [](World& w) {
             R_INT held = 7;
             const R_INT status = R_IntAccessBitmap(w.a.get(), &held);
             w.note(held);
             return R_IntReleaseBitmap(w.a.get(), held, status);
         }},
        {"R_IntReleaseBitmap", [](World& w) { return as(R_IntReleaseBitmap(w.a.get(), 0, -77) == -77); }},
        {"R_IntBeginCopyBitmap",
         [](World& w) {
             ALLOCATIONINFO info{};
             return R_IntBeginCopyBitmap(w.b.get(), w.a.get(), 0, &info);
         }},
        {"R_IntEndCopyBitmap", [](World& w) { return R_IntEndCopyBitmap(w.b.get(), w.a.get(), SUCCESS); }},
        {"R_IntFlushStartupBuffers", [](World&) { return R_IntFlushStartupBuffers(0); }},
        {"R_HeapTerm", [](World&) { return R_HeapTerm(nullptr), SUCCESS; }},
    };
}

/// A setting read and put back as it was.
std::vector<Call> settingCalls()
{
    static STATUSCALLBACK formerStatus;
    static void* formerData;
    return {
        {"R_SetMemoryThresholds", [](World&) { return R_SetMemoryThresholds(0, 0, 0, 0, 0, 0); }},
        {"R_GetMemoryThresholds",
         [](World& w) {
             R_INT reserve = 7, tiles = 7, buffers = 7;
             R_INT64 size = 7, tile = 7;
             const R_INT status = R_GetMemoryThresholds(&reserve, &size, &tile, &tiles, &buffers);
             w.note(size);
             return status;
         }},
        {"R_SetDefaultMemoryType", [](World&) { return R_SetDefaultMemoryType(R_GetDefaultMemoryType()); }},
        {"R_GetDefaultMemoryType", [](World&) { return as(R_GetDefaultMemoryType() == MEM_CONVENTIONAL); }},
        {"R_SetDefaultXResolution",
         [](World&) { return as(R_SetDefaultXResolution(R_GetDefaultXResolution()) == 150); }},
        {"R_SetDefaultYResolution",
         [](World&) { return as(R_SetDefaultYResolution(R_GetDefaultYResolution()) == 150); }},
        {"R_GetDefaultXResolution", [](World&) { return as(R_GetDefaultXResolution() == 150); }},
        {"R_GetDefaultYResolution", [](World&) { return as(R_GetDefaultYResolution() == 150); }},
        {"R_GetGlobalMemoryThresholds",
         [](World&) {
             GLOBALMEMORYTHRESHOLDS thresholds{};
             return R_GetGlobalMemoryThresholds(&thresholds, GLOBALMEMORYTHRESHOLDS_SIZE);
         }},
        {"R_SetGlobalMemoryThresholds", [](World&) { return R_SetGlobalMemoryThresholds(nullptr); }},
        {"R_ManageMemory",
         [](World&) {
             R_UINT64 limit = 7;
             return R_ManageMemory(MANAGE_GET_LIMIT, 0, &limit);
         }},
        {"R_SetStatusCallBack",
         [](World&) { return R_SetStatusCallBack(nullptr, nullptr, &formerStatus, &formerData); }},
        {"R_GetStatusCallBack", [](World&) { return as(R_GetStatusCallBack(nullptr) == nullptr); }},
        {"R_SetCopyStatusCallBack",
         [](World&) { return R_SetCopyStatusCallBack(nullptr, nullptr, &formerStatus, &formerData); }},
        {"R_GetCopyStatusCallBack", [](World&) { return as(R_GetCopyStatusCallBack(nullptr) == nullptr); }},
        {"R_SetTempFileOptions",
         [](World&) {
             TEMPFILEOPTIONS options{};
             const R_INT status = R_GetTempFileOptions(&options, TEMPFILEOPTIONS_SIZE);
             return status == SUCCESS ? R_SetTempFileOptions(&options) : status;
         }},
        {"R_GetTempFileOptions",
         [](World&) {
             TEMPFILEOPTIONS options{};
             return R_GetTempFileOptions(&options, TEMPFILEOPTIONS_SIZE);
         }},
        {"R_GetTempFileMode", [](World&) { return as(R_GetTempFileMode() == TEMPFILE_DISK_AND_MEMORY); }},
        {"R_GetLibName",
         [](World& w) {
             std::array<R_WCHAR, 20> name{};
             const R_INT status = R_GetLibName(0, 1, 0, name.data(), 20);
             w.note(name);
             return status;
         }},
        {"R_SetDisDispatch", [](World&) { return R_SetDisDispatch(nullptr); }},
    };
}

std::vector<Call> rowCalls()
{
    return {
        {"R_GetBitmapRow",
         [](World& w) {
             const GuardedBuffer row(rowBytes(w));
             return accessed(w, [&] {
                 const R_INT64 status = moved(R_GetBitmapRow(w.a.get(), row.data(), 2, rowBytes(w)), rowBytes(w));
                 w.note(std::vector<uint8_t>(row.begin(), row.end()));
                 return status;
             });
         }},
        {"R_PutBitmapRow",
         [](World& w) {
             const GuardedBuffer row(rowBytes(w));
             row.fill(0);
             return accessed(w,
                             [&] { return moved(R_PutBitmapRow(w.a.get(), row.data(), 2, rowBytes(w)), rowBytes(w)); });
         }},
        {"R_GetBitmapRowCol",
         [](World& w) {
             const GuardedBuffer piece(3);
             return accessed(w, [&] {
                 const R_INT64 status = moved(R_GetBitmapRowCol(w.a.get(), piece.data(), 2, 9, 3), 3);
                 w.note(std::vector<uint8_t>(piece.begin(), piece.end()));
                 return status;
             });
         }},
        {"R_PutBitmapRowCol",
         [](World& w) {
             const GuardedBuffer piece(3);
             piece.fill(0x5A);
             return accessed(w, [&] { return moved(R_PutBitmapRowCol(w.a.get(), piece.data(), 2, 9, 3), 3); });
         }},
        {"R_PutBitmapRowSegments",
         [](World& w) {
             const GuardedBuffer row(
                 (static_cast<size_t>(w.a->Width - 3) * static_cast<size_t>(w.a->BitsPerPixel) + 7) / 8);
             row.fill(0xA5);
             const std::array<R_SEGMENT, 2> pieces{{{3, 8}, {21, 1000}}};
             return R_PutBitmapRowSegments(w.a.get(), row.data(), 5, 3, pieces.data(), 2);
         }},
        {"R_GetPixelData",
         [](World& w) {
             std::array<uint8_t, 8> pixel{};
             const R_INT status = R_GetPixelData(w.a.get(), pixel.data(), 4, 11, 8);
             w.note(pixel);
             return status;
         }},
        {"R_PutPixelData",
         [](World& w) {
             std::array<uint8_t, 8> pixel{1, 0, 3, 4, 5, 6, 7, 8};
             return R_PutPixelData(w.a.get(), pixel.data(), 4, 11, 8);
         }},
        {"R_GetPixelColor",
         [](World& w) {
             w.note(R_GetPixelColor(w.a.get(), 4, 11));
             return SUCCESS;
         }},
        {"R_PutPixelColor", [](World& w) { return R_PutPixelColor(w.a.get(), 4, 11, 0x0000FF00); }},
    };
}

std::vector<Call> paletteCalls()
{
    // Palettes of bitmaps above 8 bits cannot be asked for; the status then is that of the call.
    const auto paletted = [](World& w, R_INT64 status) { return w.a->BitsPerPixel <= 8 ? status : SUCCESS; };
    return {
        {"R_IntGetFixedPalette", [](World&) { return as(R_IntGetFixedPalette(8) != nullptr); }},
        {"R_IntGetNetscapePalette", [](World&) { return as(R_IntGetNetscapePalette() != nullptr); }},
        {"R_GetFixedPalette",
         [](World& w) {
             std::array<RGBQUAD, 16> palette{};
             const R_INT status = R_GetFixedPalette(palette.data(), 4);
             w.note(palette);
             return status;
         }},
        {"R_CreateFixedPalette", [](World&) { return freed(R_CreateFixedPalette(8)); }},
        {"R_CreateGrayPalette", [](World&) { return freed(R_CreateGrayPalette(8)); }},
        {"R_CreateBitmapGrayPalette", [=](World& w) { return paletted(w, R_CreateBitmapGrayPalette(w.a.get())); },
         OnFailure::tables},
        {"R_CreateBitmapFixedPalette", [=](World& w) { return paletted(w, R_CreateBitmapFixedPalette(w.a.get())); },
         OnFailure::tables},
        {"R_GetBitmapColors",
         [=](World& w) {
             std::array<RGBQUAD, 2> out{};
             const R_INT status = R_GetBitmapColors(w.a.get(), 0, 2, out.data());
             w.note(out);
             return paletted(w, status);
         }},
        {"R_PutBitmapColors",
         [=](World& w) { return paletted(w, R_PutBitmapColors(w.a.get(), 0, 2, kColours.data())); }},
        {"R_GetBitmapPaletteEntries",
         [](World& w) {
             std::array<RGBQUAD, 2> out{};
             w.note(R_GetBitmapPaletteEntries(w.a.get(), 1, 2, out.data()));
             w.note(out);
             return SUCCESS;
         }},
        {"R_SetBitmapNewPalette", [](World& w) { return R_SetBitmapNewPalette(w.a.get(), kColours.data(), kFour); },
         OnFailure::tables},
        {"R_CopyBitmapPalette", [](World& w) { return R_CopyBitmapPalette(w.a.get(), w.b.get()); }, OnFailure::tables},
        {"R_CompareBitmapToPalette",
         [](World& w) {
             w.note(R_CompareBitmapToPalette(w.a.get(), kColours.data(), kFour));
             return SUCCESS;
         }},
        {"R_IsGrayScalePalette", [](World&) { return as(R_IsGrayScalePalette(kColours.data(), kFour) == 0); }},
        {"R_FindPaletteIndex", [](World&) { return as(R_FindPaletteIndex(kColours.data(), kFour, 0, 190, 20) != 0); }},
        {"R_GetNearestPaletteIndex",
         [](World& w) {
             const R_UINT index = R_GetNearestPaletteIndex(w.a.get(), 0x00FFFFFF);
             return as(index < 256);
         }},
        {"R_TranslateBitmapColor",
         [](World& w) { return as((R_TranslateBitmapColor(w.a.get(), w.b.get(), 0x01000001) & 0xFE000000u) == 0); }},
        {"R_GetTrueColorValue", [](World& w) { return as(R_GetTrueColorValue(w.a.get(), 0x123456) <= 0xFFFFFF); }},
        {"R_CreatePalette", [](World&) { return freed(fourColours()); }},
        {"R_CreateNewPalette", [](World&) { return freed(R_CreateNewPalette(kColours.data(), kFour)); }},
        {"R_GetPaletteSize",
         [](World&) {
             const HPALETTE palette = fourColours();
             const R_UINT size = R_GetPaletteSize(palette);
             R_DeletePalette(palette);
             return as(size == kFour);
         }},
        {"R_GetPaletteEntries",
         [](World&) {
             const HPALETTE palette = fourColours();
             std::array<RGBQUAD, 4> out{};
             const R_UINT count = R_GetPaletteEntries(palette, 0, kFour, out.data());
             R_DeletePalette(palette);
             return as(count == kFour && std::memcmp(out.data(), kColours.data(), sizeof out) == 0);
         }},
        {"R_SetPaletteEntries",
         [](World&) {
             const HPALETTE palette = fourColours();
             const R_UINT count = R_SetPaletteEntries(palette, 1, 2, kColours.data());
             R_DeletePalette(palette);
             return as(count == 2);
         }},
        {"R_DupPalette",
         [](World&) {
             const HPALETTE palette = fourColours();
             const R_INT64 status = freed(R_DupPalette(palette));
             R_DeletePalette(palette);
             return status;
         }},
        {"R_DupBitmapPalette", [=](World& w) { return paletted(w, freed(R_DupBitmapPalette(w.a.get()))); }},
        {"R_SetBitmapPalette",
         [](World& w) {
             const HPALETTE palette = fourColours();
             if (palette == nullptr) return R_INT64{ERROR_FAILURE};
             const R_INT64 status = R_SetBitmapPalette(w.a.get(), palette);
             R_DeletePalette(palette);
             return status;
         },
         OnFailure::tables},
        {"R_CreateSystemPalette", [](World&) { return R_DeletePalette(R_CreateSystemPalette()), SUCCESS; }},
        {"R_DeletePalette", [](World&) { return R_DeletePalette(nullptr), SUCCESS; }},
    };
}

std::vector<Call> geometryCalls()
{
    return {
        {"R_FlipBitmap", [](World& w) { return R_FlipBitmap(w.a.get()); }},
        {"R_ReverseBitmap", [](World& w) { return R_ReverseBitmap(w.a.get()); }},
        {"R_FlipBitmapViewPerspective", [](World& w) { return R_FlipBitmapViewPerspective(w.a.get()); }},
        {"R_ReverseBitmapViewPerspective", [](World& w) { return R_ReverseBitmapViewPerspective(w.a.get()); }},
        {"R_IntFlipBitmap", [](World& w) { return R_IntFlipBitmap(w.a.get()); }},
        {"R_IntReverseBitmap", [](World& w) { return R_IntReverseBitmap(w.a.get()); }},
        {"R_IntFlipBitmapViewPerspective", [](World& w) { return R_IntFlipBitmapViewPerspective(w.a.get()); }},
        {"R_IntReverseBitmapViewPerspective", [](World& w) { return R_IntReverseBitmapViewPerspective(w.a.get()); }},
        {"R_MirrorLine",
         [](World& w) {
             const GuardedBuffer row(rowBytes(w));
             row.fill(0x35);
             const R_INT status = R_MirrorLine(row.data(), static_cast<R_UINT>(w.a->Width), w.a->BitsPerPixel);
             w.note(std::vector<uint8_t>(row.begin(), row.end()));
             return status;
         }},
    };
}

} // namespace

const std::vector<Call>& allCalls()
{
    static const std::vector<Call> calls = [] {
        std::vector<Call> all;
        for (const auto& family :
             {statusCalls(), lifeCalls(), settingCalls(), rowCalls(), paletteCalls(), geometryCalls()})
            all.insert(all.end(), family.begin(), family.end());
        return all;
    }();
    return calls;
}

} // namespace rv::test
