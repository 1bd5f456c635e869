#include "Drawing.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace rvimg::chart {

namespace {

constexpr double kCapitalUnits = 8;
constexpr double kGapUnits = 2; ///< between letters

double distanceToSegment(Point p, Point a, Point b)
{
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double length2 = dx * dx + dy * dy;
    const double along = length2 == 0 ? 0 : std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / length2, 0.0, 1.0);
    return std::hypot(p.x - a.x - along * dx, p.y - a.y - along * dy);
}

int pixel(double position) { return static_cast<int>(std::floor(position)); }

double overlap(double low, double high, int cell)
{
    return std::min(high, cell + 1.0) - std::max(low, static_cast<double>(cell));
}

} // namespace

void drawLine(Point from, Point to, double thickness, const Plot& plot)
{
    const double reach = thickness / 2 + 1;
    const int top = pixel(std::min(from.y, to.y) - reach), bottom = pixel(std::max(from.y, to.y) + reach);
    const int left = pixel(std::min(from.x, to.x) - reach), right = pixel(std::max(from.x, to.x) + reach);
    for (int y = top; y <= bottom; ++y)
        for (int x = left; x <= right; ++x) {
            const double distance = distanceToSegment({x + 0.5, y + 0.5}, from, to);
            const double coverage = std::min(1.0, thickness / 2 - distance + 0.5);
            if (coverage > 0) plot(x, y, coverage);
        }
}

void drawCircle(Point centre, double radius, double thickness, const Plot& plot)
{
    const auto sides = std::max(24, static_cast<int>(radius));
    Point last{centre.x + radius, centre.y};
    for (int i = 1; i <= sides; ++i) {
        const double angle = 2 * std::numbers::pi * i / sides;
        const Point next{centre.x + radius * std::cos(angle), centre.y + radius * std::sin(angle)};
        drawLine(last, next, thickness, plot);
        last = next;
    }
}

void fillBox(double left, double top, double right, double bottom, const Plot& plot)
{
    for (int y = pixel(top); y < bottom; ++y)
        for (int x = pixel(left); x < right; ++x) {
            const double coverage = overlap(left, right, x) * overlap(top, bottom, y);
            if (coverage > 0) plot(x, y, coverage);
        }
}

double textWidth(std::string_view text, const TextStyle& style)
{
    double units = 0;
    for (const char c : text) units += letterOf(c).width + kGapUnits;
    return std::max(0.0, units - kGapUnits) * style.capital / kCapitalUnits;
}

void drawText(Point start, std::string_view text, const TextStyle& style, const Plot& plot)
{
    const double unit = style.capital / kCapitalUnits;
    for (const char c : text) {
        const Letter& letter = letterOf(c);
        for (const Stroke& stroke : letter.strokes)
            for (size_t i = 0; i + 1 < stroke.size(); ++i)
                drawLine({start.x + stroke[i].x * unit, start.y - stroke[i].y * unit},
                         {start.x + stroke[i + 1].x * unit, start.y - stroke[i + 1].y * unit}, style.thickness, plot);
        start.x += (letter.width + kGapUnits) * unit;
    }
}

} // namespace rvimg::chart
