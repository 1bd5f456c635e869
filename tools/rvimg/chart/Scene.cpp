#include "Scene.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <optional>

namespace rvimg::chart {

namespace {

struct Vector {
    double x, y, z;

    Vector operator+(Vector o) const { return {x + o.x, y + o.y, z + o.z}; }
    Vector operator-(Vector o) const { return {x - o.x, y - o.y, z - o.z}; }
    Vector operator*(double k) const { return {x * k, y * k, z * k}; }
};
double dot(Vector a, Vector b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Vector unit(Vector v) { return v * (1 / std::sqrt(dot(v, v))); }

struct Ball {
    Vector centre;
    double radius;
    Colour colour;
    double mirror; ///< part of the light that is reflected as by a mirror
    double gloss;  ///< strength of the highlight
};

/// The floor is the plane y = 0; the eye looks along z.
constexpr Ball kBalls[] = {
    {{-1.55, 0.80, 5.2}, 0.80, {0.75, 0.07, 0.05}, 0.06, 0.5},
    {{0.10, 1.05, 6.3}, 1.05, {0.85, 0.87, 0.90}, 0.70, 1.0},
    {{1.75, 0.70, 5.3}, 0.70, {0.05, 0.18, 0.62}, 0.12, 0.9},
    {{-0.55, 0.38, 3.9}, 0.38, {0.90, 0.62, 0.08}, 0.05, 0.3},
    {{0.75, 0.45, 4.1}, 0.45, {0.10, 0.45, 0.16}, 0.08, 0.6},
    {{1.55, 0.22, 3.6}, 0.22, {0.80, 0.78, 0.74}, 0.02, 0.1},
};
constexpr Vector kEye = {0, 1.35, -1.6};
const Vector kLight = unit({-0.55, 0.95, -0.55});
constexpr double kFar = 1e9;
constexpr double kSkin = 1e-4; ///< keeps a ray from meeting the surface it leaves
constexpr int kDeepest = 3;    ///< reflections of reflections

struct Hit {
    double distance = kFar;
    const Ball* ball = nullptr; ///< null: the floor
};

std::optional<double> meets(const Ball& ball, Vector from, Vector along)
{
    const Vector to = from - ball.centre;
    const double half = dot(to, along);
    const double root = half * half - dot(to, to) + ball.radius * ball.radius;
    if (root < 0) return std::nullopt;
    const double near = -half - std::sqrt(root);
    return near > kSkin ? std::optional(near) : std::nullopt;
}

std::optional<Hit> firstHit(Vector from, Vector along)
{
    Hit hit;
    if (along.y < 0) hit.distance = -from.y / along.y;
    for (const Ball& ball : kBalls)
        if (const auto distance = meets(ball, from, along); distance && *distance < hit.distance)
            hit = {*distance, &ball};
    return hit.distance < kFar ? std::optional(hit) : std::nullopt;
}

/// A studio: warm light from the left, cool from the right, a bright window.
Colour skyIn(Vector along)
{
    const double height = std::clamp(along.y * 1.4 + 0.15, 0.0, 1.0);
    const Colour side = mix({0.62, 0.50, 0.40}, {0.34, 0.42, 0.55}, std::clamp(along.x * 0.6 + 0.5, 0.0, 1.0));
    Colour sky = mix(side, {0.16, 0.20, 0.28}, height);
    const bool window = std::abs(along.x + 0.45) < 0.22 && std::abs(along.y - 0.62) < 0.20 && along.z < 0;
    const bool bar = std::abs(along.x + 0.45) < 0.015 || std::abs(along.y - 0.62) < 0.015;
    if (window && !bar) sky = {3.2, 3.1, 2.9};
    return sky;
}

Colour floorAt(double x, double z, double distance)
{
    const bool dark = (static_cast<int>(std::floor(x)) + static_cast<int>(std::floor(z))) % 2 != 0;
    const double grain = 0.85 + 0.30 * softNoise(x * 3, z * 24) * (0.5 + softNoise(x * 17, z * 2));
    const Colour tile = dark ? Colour{0.22, 0.11, 0.06} : Colour{0.55, 0.38, 0.22};
    return mix(tile * grain, {0.36, 0.25, 0.16}, std::clamp((distance - 6) / 30, 0.0, 1.0));
}

/// How much of the light arrives: shadows are soft, since the light has a size.
double lightAt(Vector place, int seed)
{
    constexpr int kTries = 4;
    int lit = 0;
    for (int i = 0; i < kTries; ++i) {
        const Vector wander = {noiseAt(seed, i, 1) - 0.5, noiseAt(seed, i, 2) - 0.5, noiseAt(seed, i, 3) - 0.5};
        const Vector along = unit(kLight + wander * 0.16);
        const bool blocked = std::any_of(std::begin(kBalls), std::end(kBalls),
                                         [&](const Ball& ball) { return meets(ball, place, along).has_value(); });
        lit += blocked ? 0 : 1;
    }
    return static_cast<double>(lit) / kTries;
}

Colour trace(Vector from, Vector along, int depth, int seed)
{
    const auto hit = firstHit(from, along);
    if (!hit) return skyIn(along);
    const Vector place = from + along * hit->distance;
    const Vector normal =
        hit->ball != nullptr ? (place - hit->ball->centre) * (1 / hit->ball->radius) : Vector{0, 1, 0};
    const Colour colour = hit->ball != nullptr ? hit->ball->colour : floorAt(place.x, place.z, hit->distance);
    const double facing = std::max(0.0, dot(normal, kLight));
    const double lit = facing > 0 ? lightAt(place + normal * kSkin, seed) : 0;
    const double open = 0.30 + 0.20 * normal.y; // light from everywhere, less of it from below
    Colour seen = colour * (Colour{1.25, 1.18, 1.05} * (facing * lit) + Colour{0.75, 0.85, 1.0} * open);
    const Vector mirrored = along - normal * (2 * dot(along, normal));
    const double edge = std::pow(1 - std::max(0.0, -dot(along, normal)), 5);
    const double mirror = hit->ball != nullptr ? hit->ball->mirror + (1 - hit->ball->mirror) * edge * 0.6 : 0.05;
    if (depth < kDeepest && mirror > 0.02)
        seen = mix(seen, trace(place + normal * kSkin, mirrored, depth + 1, seed), mirror);
    if (hit->ball != nullptr && lit > 0) {
        const double shine = std::pow(std::max(0.0, dot(mirrored, kLight)), 90) * hit->ball->gloss * lit;
        seen = seen + Colour{1, 0.97, 0.9} * shine;
    }
    return seen;
}

} // namespace

double noiseAt(int x, int y, int z)
{
    auto mixed = static_cast<uint32_t>(x) * 0x9E3779B1u ^ static_cast<uint32_t>(y) * 0x85EBCA77u ^
                 static_cast<uint32_t>(z) * 0xC2B2AE3Du;
    mixed = (mixed ^ mixed >> 15) * 0x2C1B3C6Du;
    mixed = (mixed ^ mixed >> 12) * 0x297A2D39u;
    mixed ^= mixed >> 15;
    return mixed / 4294967296.0;
}

double softNoise(double x, double y)
{
    const int column = static_cast<int>(std::floor(x)), row = static_cast<int>(std::floor(y));
    const auto ease = [](double t) { return t * t * (3 - 2 * t); };
    const double right = ease(x - column), down = ease(y - row);
    const double top = noiseAt(column, row) * (1 - right) + noiseAt(column + 1, row) * right;
    const double bottom = noiseAt(column, row + 1) * (1 - right) + noiseAt(column + 1, row + 1) * right;
    return top * (1 - down) + bottom * down;
}

Colour sceneAt(double x, double y)
{
    constexpr double kZoom = 0.42, kTilt = 0.09;
    const int seed = static_cast<int>(x * 9973) * 31 + static_cast<int>(y * 7919);
    return trace(kEye, unit({x * kZoom, -y * kZoom - kTilt, 1}), 0, seed);
}

} // namespace rvimg::chart
