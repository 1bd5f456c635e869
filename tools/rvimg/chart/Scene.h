/// A small still life, seen by following rays of light backwards.
#pragma once

namespace rvimg::chart {

/// Linear light.
struct Colour {
    double r = 0, g = 0, b = 0;

    Colour operator+(Colour o) const { return {r + o.r, g + o.g, b + o.b}; }
    Colour operator*(Colour o) const { return {r * o.r, g * o.g, b * o.b}; }
    Colour operator*(double k) const { return {r * k, g * k, b * k}; }
};
inline Colour mix(Colour a, Colour b, double t) { return a * (1 - t) + b * t; }

/// Even noise between 0 and 1, the same for the same arguments.
double noiseAt(int x, int y, int z = 0);
/// Noise that changes gently over about one unit.
double softNoise(double x, double y);

/// What is seen at a place of the picture: x from -1 to 1 over the width, y from -height/width to height/width.
Colour sceneAt(double x, double y);

} // namespace rvimg::chart
