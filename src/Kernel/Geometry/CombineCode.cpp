#include "Kernel/Geometry/CombineCode.h"

namespace rv {

namespace {

// The fields of the flags.
constexpr R_UINT sourceOf(R_UINT flags) noexcept { return flags & 0xF; }
constexpr R_UINT targetOf(R_UINT flags) noexcept { return flags & 0xF0; }
constexpr R_UINT operationOf(R_UINT flags) noexcept { return flags & 0xF00; }
constexpr R_UINT resultOf(R_UINT flags) noexcept { return flags & 0xF000; }

/// A truth table: bit 2 * s + d is the result of a source bit s and a target bit d.
constexpr unsigned kSource = 0xC, kTarget = 0xA, kAll = 0xF;

/// A term as its modifier, 0 to 3, leaves it.
constexpr unsigned modified(unsigned term, R_UINT modifier) noexcept
{
    switch (modifier) {
    case 0: return term;
    case 1: return term ^ kAll;
    case 2: return 0;
    default: return kAll;
    }
}

/// What an operation does on bits; on samples, what decides which operands it needs.
constexpr unsigned tableOf(R_UINT operation, unsigned s, unsigned d) noexcept
{
    switch (operation) {
    case COMBINE_AND:
    case COMBINE_MUL:
    case COMBINE_DIV_SRC:
    case COMBINE_MIN: return s & d;
    case COMBINE_OR:
    case COMBINE_ADD:
    case COMBINE_AVG:
    case COMBINE_MAX:
    case COMBINE_SRC_OVER: return s | d;
    case COMBINE_XOR: return s ^ d;
    case COMBINE_SUB_SRC: return ~s & d;
    case COMBINE_SUB_DST: return s & ~d;
    case COMBINE_DIV_DST: return s;
    default: return d;
    }
}

constexpr bool isLogical(R_UINT operation) noexcept { return operation <= COMBINE_XOR; }
constexpr bool divides(R_UINT operation) noexcept
{
    return operation == COMBINE_DIV_SRC || operation == COMBINE_DIV_DST;
}

/// Whether a table, which an operation on samples comes to, says all about its result.
constexpr bool decides(unsigned table, R_UINT operation) noexcept
{
    const bool constant = table == 0 || table == kAll;
    const bool oneOperand =
        table == kSource || table == (kSource ^ kAll) || table == kTarget || table == (kTarget ^ kAll);
    return constant || (oneOperand && !divides(operation));
}

} // namespace

bool areCombineFlags(R_UINT flags) noexcept
{
    return flags <= 0xFFFF && sourceOf(flags) <= COMBINE_SRC_1 && targetOf(flags) <= COMBINE_DST_1 &&
           operationOf(flags) <= COMBINE_SRC_OVER && resultOf(flags) <= COMBINE_RES_1;
}

CombineCode combineCodeOf(R_UINT flags, bool oneBit) noexcept
{
    const R_UINT operation = operationOf(flags);
    const unsigned s = modified(kSource, sourceOf(flags));
    const unsigned d = modified(kTarget, targetOf(flags) >> 4);
    CombineCode code;
    code.table = modified(tableOf(operation, s, d), resultOf(flags) >> 12) & kAll;
    if (oneBit || isLogical(operation) || decides(code.table, operation)) return code;

    code.way = operation == COMBINE_SRC_OVER ? CombineCode::Way::over : CombineCode::Way::samples;
    if (code.way == CombineCode::Way::samples)
        code.arithmetic = static_cast<simd::Arithmetic>((operation - COMBINE_ADD) >> 8);
    code.invertSource = sourceOf(flags) == COMBINE_SRC_NOT;
    code.invertTarget = targetOf(flags) == COMBINE_DST_NOT;
    code.invertResult = resultOf(flags) == COMBINE_RES_NOT;
    return code;
}

} // namespace rv
