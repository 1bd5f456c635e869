// Sine and cosine of whole hundredths of a degree, in 14-bit fixed point.

#include "R_Geometry.h"

#include <array>

namespace rv {

namespace {

constexpr R_INT kQuarter = 9000;
constexpr double kOne = 16384;

/// The sine and cosine of a small angle, whose powers soon come to nothing.
struct Direction {
    double cosine;
    double sine;

    static constexpr Direction of(double angle) noexcept
    {
        const double square = angle * angle;
        return {1 - square / 2 * (1 - square / 12), angle * (1 - square / 6 * (1 - square / 20))};
    }
    constexpr Direction turnedBy(const Direction& other) const noexcept
    {
        return {cosine * other.cosine - sine * other.sine, sine * other.cosine + cosine * other.sine};
    }
};

/// Of the first quarter, rounded to nearest. No entry lies nearer to a half than 2^-17, and what the steps' errors
/// add up to stays below 2^-30.
constexpr std::array<R_INT, kQuarter + 1> makeSines() noexcept
{
    constexpr double pi = 3.14159265358979323846;
    const Direction step = Direction::of(pi / 2 / kQuarter);
    std::array<R_INT, kQuarter + 1> sines{};
    Direction at = {1, 0};
    for (R_INT& sine : sines) {
        constexpr double half = 0.5; // no sine here is negative
        sine = static_cast<R_INT>(at.sine * kOne + half);
        at = at.turnedBy(step);
    }
    return sines;
}

constexpr std::array<R_INT, kQuarter + 1> kSines = makeSines();
static_assert(kSines[0] == 0 && kSines[3000] == 8192 && kSines[kQuarter] == 16384);

} // namespace

} // namespace rv

using namespace rv;

R_INT R_SinValue(R_INT nAngle) noexcept
{
    if (nAngle <= kQuarter) return kSines[static_cast<size_t>(nAngle)];
    if (nAngle <= 2 * kQuarter) return kSines[static_cast<size_t>(2 * kQuarter - nAngle)];
    if (nAngle <= 3 * kQuarter) return -kSines[static_cast<size_t>(nAngle - 2 * kQuarter)];
    return -kSines[static_cast<size_t>(4 * kQuarter - nAngle)];
}

R_INT R_CosValue(R_INT nAngle) noexcept
{
    if (nAngle <= kQuarter) return kSines[static_cast<size_t>(kQuarter - nAngle)];
    if (nAngle <= 2 * kQuarter) return -kSines[static_cast<size_t>(nAngle - kQuarter)];
    if (nAngle <= 3 * kQuarter) return -kSines[static_cast<size_t>(3 * kQuarter - nAngle)];
    return kSines[static_cast<size_t>(nAngle - 3 * kQuarter)];
}
