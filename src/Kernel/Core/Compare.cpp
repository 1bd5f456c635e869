// The comparison report: which fields, pixels and tables of two records differ.

#include "Common/Text.h"
#include "Kernel/Core/Access.h"
#include "Kernel/Core/Checks.h"
#include "Kernel/Core/Palette.h"
#include "Kernel/Core/RowCursor.h"
#include "R_Bitmap.h"

#include <algorithm>
#include <cstring>

namespace rv {
namespace {

/// A 32-bit field, by its place: a packed record has no fields that a pointer could name.
struct Field {
    const char* label;
    size_t offset;
};

#define FIELD(name)                                                                                                    \
    {                                                                                                                  \
#name, offsetof(BITMAPHANDLE, name)                                                                            \
    }

constexpr Field kGeometry[] = {FIELD(Width), FIELD(Height), FIELD(BitsPerPixel), FIELD(BytesPerLine)};
constexpr Field kColours = FIELD(nColors);
constexpr Field kDisplay[] = {
    FIELD(ViewPerspective), FIELD(Order),        FIELD(XResolution),
    FIELD(YResolution),     FIELD(Left),         FIELD(Top),
    FIELD(Delay),           FIELD(Background),   FIELD(Transparency),
    FIELD(DisposalMethod),  FIELD(LowBit),       FIELD(HighBit),
    FIELD(PaintLowBit),     FIELD(PaintHighBit),
};
constexpr Field kLutLength = FIELD(LUTLength);
constexpr Field kLutLength16 = FIELD(LUTLength16);
constexpr Field kPaint[] = {FIELD(PaintGamma), FIELD(PaintContrast), FIELD(PaintIntensity)};

#undef FIELD

/// The flags that have a name of their own here, from bit 0 on.
constexpr const char* kFlags[] = {
    "Flags.Allocated",     "Flags.ConventionalMemory",
    "Flags.DiskMemory",    "Flags.ProgressiveAvailable",
    "Flags.LockedMemory",  "Flags.Interlaced",
    "Flags.WaitUserInput", "Flags.Transparency",
    "Flags.Compressed",    "Flags.Signed",
    "Flags.Mirror",        "Flags.UseLUT",
    "Flags.Global",        "Flags.UsePaintLUT",
    "Flags.Tiled",         "Flags.SuperCompressed",
    "Flags.NoClip",        "Flags.PremultiplyAlpha",
    "Flags.NonLinearLUT",
};
/// The bits without a meaning are one value. AlphaBlend and Float, between the two, say how pixels are shown and are
/// not compared.
constexpr int kDummyShift = 21;

R_INT valueOf(const BITMAPHANDLE* pBitmap, const Field& field) noexcept
{
    R_INT value;
    memcpy(&value, reinterpret_cast<const char*>(pBitmap) + field.offset, sizeof(value));
    return value;
}

/// The lines of the report. Goes on finding differences when the text is full.
class Report {
public:
    Report(R_WCHAR* text, R_UINT units) noexcept : out_(text, units) {}

    bool equal() const noexcept { return equal_; }

    /// Both answer whether the two are equal.
    bool values(const char* label, R_INT first, R_INT second) noexcept
    {
        if (first == second) return true;
        equal_ = false;
        out_.ascii("\n ");
        out_.ascii(label);
        out_.ascii("\t");
        out_.number(first);
        out_.ascii("\t");
        out_.number(second);
        return false;
    }
    bool field(const Field& field, const BITMAPHANDLE* first, const BITMAPHANDLE* second) noexcept
    {
        return values(field.label, valueOf(first, field), valueOf(second, field));
    }

    /// A block of bytes has no value of its own: one that differs reads 0 and 1.
    void block(const char* label, bool differs) noexcept { values(label, 0, differs ? 1 : 0); }
    /// Two tables of the same length. A missing one differs from one that is there.
    void table(const char* label, const void* first, const void* second, R_SIZE bytes) noexcept
    {
        if (bytes == 0 || first == second) return;
        block(label, first == nullptr || second == nullptr || memcmp(first, second, bytes) != 0);
    }

private:
    TextWriter<R_WCHAR> out_;
    bool equal_ = true;
};

/// Whether rows can be read: there are pixels, and the block holds as many rows as the record claims to have. Runs
/// vary in size, so a compressed store looks after its rows itself.
bool hasRows(const BITMAPHANDLE* pBitmap, R_INT rows) noexcept
{
    if ((pBitmap->Flags & FLAG_ALLOCATED) == 0) return false;
    if ((pBitmap->Flags & (FLAG_COMPRESSED | FLAG_SUPER_COMPRESSED)) != 0) return true;
    return R_UINT64{pBitmap->BytesPerLine} * static_cast<R_UINT64>(rows) <= shapeOf(pBitmap).bytes;
}

/// A row that can be read from one bitmap alone differs; one that can be read from neither does not.
bool rowDiffers(RowCursor& first, RowCursor& second, R_INT row, R_UINT rowBytes) noexcept
{
    const bool readable = first.open(row).ok();
    if (second.open(row).ok() != readable) return true;
    return readable && memcmp(first.data(), second.data(), rowBytes) != 0;
}

Status compareAccessedRows(BITMAPHANDLE* first, BITMAPHANDLE* second, R_INT rows, bool* differ) noexcept
{
    RowCursor left(first, RowMode::read);
    if (left.status() == ERROR_FAILURE) return ERROR_FAILURE;
    RowCursor right(second, RowMode::read);
    if (right.status() == ERROR_FAILURE) return ERROR_FAILURE;
    for (R_INT row = 0; row < rows && !*differ; ++row) *differ = rowDiffers(left, right, row, first->BytesPerLine);
    return SUCCESS;
}

/// Compares rows until two differ. ERROR_FAILURE: no memory for a row.
Status compareRows(BITMAPHANDLE* first, BITMAPHANDLE* second, bool* differ) noexcept
{
    const R_INT height = first->Height, otherHeight = second->Height;
    const R_INT rows = std::min(height, otherHeight);
    if (first->BytesPerLine != second->BytesPerLine || rows <= 0) return SUCCESS;
    *differ = hasRows(first, rows) != hasRows(second, rows);
    if (*differ || !hasRows(first, rows)) return SUCCESS;
    const BitmapAccess firstAccess(first);
    const BitmapAccess secondAccess(second);
    *differ = firstAccess.status().ok() != secondAccess.status().ok();
    if (*differ || !firstAccess.status().ok()) return SUCCESS;
    return compareAccessedRows(first, second, rows, differ);
}

void compareFlags(Report& report, R_UINT first, R_UINT second) noexcept
{
    int bit = 0;
    for (const char* const label : kFlags) {
        report.values(label, static_cast<R_INT>(first >> bit & 1), static_cast<R_INT>(second >> bit & 1));
        ++bit;
    }
    report.values("Flags.Dummy", static_cast<R_INT>(first >> kDummyShift), static_cast<R_INT>(second >> kDummyShift));
}

void compareRecords(Report& report, const BITMAPHANDLE* first, const BITMAPHANDLE* second, bool rowsDiffer) noexcept
{
    for (const Field& field : kGeometry) report.field(field, first, second);
    report.block("R_GetBitmapRow", rowsDiffer);
    compareFlags(report, first->Flags, second->Flags);
    const R_UINT colours = first->nColors;
    if (report.field(kColours, first, second)) // a palette has no more entries, whatever the record says
        report.table("pPalette", first->pPalette, second->pPalette, std::min(colours, kMaxColours) * sizeof(RGBQUAD));
    for (const Field& field : kDisplay) report.field(field, first, second);
    if (report.field(kLutLength, first, second))
        report.table("pLUT", first->pLUT, second->pLUT, R_SIZE{first->LUTLength} * sizeof(RGBQUAD));
    // Kept: callers know the 16-bit tables to be compared over 4 bytes an entry, the first half of them.
    if (report.field(kLutLength16, first, second) && hasCallbackSlot(first) && hasCallbackSlot(second))
        report.table("pLUT16", lut16(first), lut16(second), R_SIZE{first->LUTLength16} * sizeof(RGBQUAD));
    for (const Field& field : kPaint) report.field(field, first, second);
}

} // namespace
} // namespace rv

R_INT R_CompareBitmapHandles(BITMAPHANDLE* pBitmap1, BITMAPHANDLE* pBitmap2, R_INT* pbEqual, R_WCHAR* pszText,
                             R_UINT uTextChars, R_INT bShow) noexcept
{
    if (pBitmap1 == nullptr || pBitmap2 == nullptr || pbEqual == nullptr || pszText == nullptr || uTextChars == 0)
        return ERROR_INV_PARAMETER;
    R_TRY(rv::checkStructSize(pBitmap1));
    R_TRY(rv::checkStructSize(pBitmap2));
    // Rows come first: they alone can fail, and their access shows in the flags while it lasts.
    bool rowsDiffer = false;
    R_TRY(rv::compareRows(pBitmap1, pBitmap2, &rowsDiffer));
    rv::Report report(pszText, uTextChars);
    rv::compareRecords(report, pBitmap1, pBitmap2, rowsDiffer);
    *pbEqual = report.equal() ? 1 : 0;
    if (bShow != 0 && !report.equal()) Trace1W(RV_WIDE("R_CompareBitmapHandles"), RV_WIDE("%s"), pszText);
    return SUCCESS;
}
