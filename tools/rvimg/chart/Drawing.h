/// Lines and letters, for any kind of picture.
#pragma once

#include <functional>
#include <string_view>
#include <vector>

namespace rvimg::chart {

struct Point {
    double x;
    double y;
};
using Stroke = std::vector<Point>;

/// A letter: strokes in units of which a capital is 8 high; y is 0 on the base line and grows upwards.
struct Letter {
    std::vector<Stroke> strokes;
    double width = 0;
};
/// A letter of the built-in alphabet; what it does not have is an empty space.
const Letter& letterOf(char c);

/// Receives the pixels of what is drawn, with the part of each that is covered: above 0, at most 1. A pixel can come
/// more than once, and lie outside the picture.
using Plot = std::function<void(int x, int y, double coverage)>;

/// A line with round ends; y grows downwards.
void drawLine(Point from, Point to, double thickness, const Plot& plot);
void drawCircle(Point centre, double radius, double thickness, const Plot& plot);
void fillBox(double left, double top, double right, double bottom, const Plot& plot);

struct TextStyle {
    double capital;   ///< height of a capital in pixels
    double thickness; ///< of a stroke
};
double textWidth(std::string_view text, const TextStyle& style);
/// Draws a line of text from the left end of its base line.
void drawText(Point start, std::string_view text, const TextStyle& style, const Plot& plot);

} // namespace rvimg::chart
