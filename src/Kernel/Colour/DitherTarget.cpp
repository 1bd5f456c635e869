#include "Kernel/Colour/DitherTarget.h"

#include "Kernel/Core/PaletteTables.h"

#include <cstring>

namespace rv {

namespace {

constexpr size_t kSide = 8;

/// Dispersed dots. One level stands twice, where regular construction would have another: pictures depend on it.
constexpr uint8_t kDispersed[kSide * kSide] = {
    0,   128, 32,  160, 8,   136, 40,  168, // and so on, row by row
    192, 64,  224, 96,  200, 72,  232, 104, //
    48,  176, 16,  144, 56,  184, 24,  152, //
    236, 112, 208, 80,  244, 120, 216, 88,  //
    12,  140, 44,  172, 4,   132, 36,  164, //
    204, 76,  232, 108, 196, 68,  228, 100, //
    60,  188, 28,  156, 52,  180, 20,  148, //
    248, 124, 220, 92,  240, 116, 212, 84,  //
};

/// Dots that grow from two centres.
constexpr uint8_t kClustered[kSide * kSide] = {
    112, 40,  72,  104, 144, 176, 208, 136, //
    88,  8,   16,  48,  192, 232, 240, 168, //
    56,  24,  0,   80,  160, 224, 248, 200, //
    96,  64,  32,  120, 128, 216, 184, 152, //
    148, 180, 212, 140, 116, 44,  76,  108, //
    196, 236, 244, 172, 92,  12,  20,  52,  //
    164, 228, 252, 204, 60,  28,  4,   84,  //
    132, 220, 188, 156, 100, 68,  36,  124, //
};

constexpr uint8_t kMarks = 3; // bits of an entry that is never to be chosen

/// By kind; those without a rule of their own have a match table.
constexpr IndexRule kRules[] = {
    {IndexRule::matchTable, 0, 0, 0, 0, 0}, {IndexRule::matchTable, 0, 0, 0, 0, 0},
    {IndexRule::luminance, 7, 0, 0, 0, 0},  {IndexRule::luminance, 6, 0, 0, 0, 0},
    {IndexRule::fields, 7, 7, 7, 2, 1},     {IndexRule::halves, 0, 0, 0, 0, 0},
    {IndexRule::fields, 6, 6, 7, 3, 1},     {IndexRule::fields, 6, 6, 6, 4, 2},
    {IndexRule::fields, 6, 5, 6, 5, 2},     {IndexRule::fields, 5, 5, 6, 5, 2},
    {IndexRule::webSafe, 0, 0, 0, 0, 0},
};

/// What a matrix level adds: level / divisor - offset. The offsets centre the matrix on the step between two levels.
struct Adjustment {
    int divisor;
    int offset;
};
constexpr Adjustment kAdjustments[] = {
    {},      {},      {1, 0},  {2, 64}, {3, 42}, {1, 0},
    {5, 25}, {6, 21}, {7, 18}, {8, 16}, {5, 0}}; // the web-safe rule cuts: nothing is to be taken off

uint32_t itemOf(const RGBQUAD& entry, R_UINT index) noexcept
{
    return entry.rgbBlue | uint32_t{entry.rgbGreen} << 8 | uint32_t{entry.rgbRed} << 16 | index << 24;
}

uint32_t cellOf(uint32_t item) noexcept { return (item >> 19 & 31) << 10 | (item >> 11 & 31) << 5 | (item >> 3 & 31); }

} // namespace

DitherTarget::Kind DitherTarget::classify(const RGBQUAD* palette, R_UINT colours) noexcept
{
    const R_INT bits = bitsForColours(colours);
    const auto equals = [=](const RGBQUAD* known) noexcept {
        return palette == nullptr || std::memcmp(palette, known, colours * sizeof *known) == 0;
    };
    if (equals(fixedPalette(bits))) return static_cast<Kind>(static_cast<R_INT>(Kind::blackWhite) + bits - 1);
    return bits == 8 && equals(webSafePalette()) ? Kind::webSafe : Kind::other;
}

Status DitherTarget::prepare(const RGBQUAD* palette, R_UINT colours, R_UINT* userTable) noexcept
{
    kind_ = userTable != nullptr ? Kind::userTable : classify(palette, colours);
    sizeClass_ = bitsForColours(colours);
    items_.rule = kRules[static_cast<size_t>(kind_)];
    if (items_.rule.kind == IndexRule::matchTable) return prepareTable(palette, colours, userTable);
    // A rule may name entries that a palette of fewer colours does not have: the whole fixed palette answers.
    const RGBQUAD* const known = kind_ == Kind::webSafe ? webSafePalette() : fixedPalette(sizeClass_);
    listUsable(known, 1u << sizeClass_, true);
    return SUCCESS;
}

Status DitherTarget::prepareTable(const RGBQUAD* palette, R_UINT colours, R_UINT* userTable) noexcept
{
    if (userTable == nullptr) {
        constexpr size_t kBytes = MATCH_TABLE_CELLS * sizeof(R_UINT);
        table_ = RowBuffer(kBytes);
        if (!table_) return ERROR_FAILURE;
        std::memset(table_.data(), 0, kBytes);
        userTable = reinterpret_cast<R_UINT*>(table_.data());
    }
    listUsable(palette, colours, false);
    if (items_.count == 0) listUsable(palette, colours, true);
    items_.cells = userTable;
    items_.resolve = resolve;
    return SUCCESS;
}

void DitherTarget::listUsable(const RGBQUAD* palette, R_UINT colours, bool ignoreMarks) noexcept
{
    R_UINT count = 0;
    for (R_UINT i = 0; i < colours; ++i) {
        if (!ignoreMarks && (palette[i].rgbReserved & kMarks) != 0) continue;
        list_[count++] = itemOf(palette[i], i);
    }
    items_.items = list_;
    items_.count = count;
}

/// The first entry that falls into a cell has it, however near others are.
void DitherTarget::seedTable() noexcept
{
    if (items_.cells == nullptr) return;
    for (R_UINT i = 0; i < items_.count; ++i) {
        uint32_t& cell = items_.cells[cellOf(list_[i])];
        if (cell - 1 >= items_.count) cell = i + 1;
    }
}

uint32_t DitherTarget::resolve(const IndexItems& items, uint32_t cell) noexcept
{
    const auto component = [cell](unsigned place) noexcept { return static_cast<R_INT>((cell >> place & 31) << 3); };
    const auto* const list = reinterpret_cast<const RGBQUAD*>(items.items);
    return items.cells[cell] = 1 + R_FindPaletteIndex(list, items.count, component(10), component(5), component(0));
}

void DitherTarget::fillThresholds(R_INT method, int16_t* thresholds) const noexcept
{
    const uint8_t* const matrix = method == DITHER_ORDERED ? kDispersed : kClustered;
    const bool fromTable = items_.rule.kind == IndexRule::matchTable;
    const Adjustment adjust =
        fromTable ? Adjustment{sizeClass_, 128 / sizeClass_} : kAdjustments[static_cast<size_t>(kind_)];
    for (size_t i = 0; i < kSide * kSide; ++i)
        thresholds[i] = static_cast<int16_t>(matrix[i] / adjust.divisor - adjust.offset);
}

} // namespace rv
