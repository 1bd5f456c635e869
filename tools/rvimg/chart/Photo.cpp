#include "Chart.h"
#include "Drawing.h"
#include "Scene.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace rvimg::chart {

namespace {

struct Box {
    double left, top, right, bottom;

    double width() const { return right - left; }
    double height() const { return bottom - top; }
    bool holds(double x, double y) const { return x >= left && x < right && y >= top && y < bottom; }
    Box inset(double by) const { return {left + by, top + by, right - by, bottom - by}; }
    /// Cell i of n beside each other.
    Box column(int i, int n) const { return {left + width() * i / n, top, left + width() * (i + 1) / n, bottom}; }
    Box row(int i, int n) const { return {left, top + height() * i / n, right, top + height() * (i + 1) / n}; }
};

constexpr Colour kInk = {0.01, 0.012, 0.016};

/// Six hues in four strengths: skin and sky, leaves and earth, and the primaries of light and of ink.
constexpr unsigned kPatches[] = {0x5A3A2E, 0xC39584, 0x4F6E97, 0x586B3C, 0x7C80B0, 0x5FBFA9, 0xDB7A26, 0x3E53A4,
                                 0xC24A5B, 0x4A2F63, 0x9FBF3A, 0xE6A428, 0x1F3A93, 0x3D9447, 0xB02A33, 0xF0CC1C,
                                 0xC14C92, 0x008CAE, 0xFF0000, 0x00FF00, 0x0000FF, 0x00FFFF, 0xFF00FF, 0xFFFF00};

double toLight(double encoded) { return std::pow(encoded, 2.2); }

Colour fromRgb(unsigned rgb)
{
    return {toLight((rgb >> 16 & 255) / 255.0), toLight((rgb >> 8 & 255) / 255.0), toLight((rgb & 255) / 255.0)};
}

Colour fromHue(double hue, double strength)
{
    const auto wave = [hue](double shift) {
        return std::clamp(std::abs(std::fmod(hue * 6 + shift, 6.0) - 3) - 1, 0.0, 1.0);
    };
    return mix({1, 1, 1}, {wave(0), wave(4), wave(2)}, strength);
}

uint8_t toByte(double light)
{
    return static_cast<uint8_t>(std::lround(std::pow(std::clamp(light, 0.0, 1.0), 1 / 2.2) * 255));
}

class PhotoChart {
public:
    PhotoChart(int width, int height, const Step& step) : picture_(shape(width, height)), step_(step)
    {
        const double w = width, h = height;
        unit_ = std::min(w / 1600, h / 1200);
        const double edge = 40 * unit_, gap = 24 * unit_;
        title_ = {edge, edge, w - edge, edge + 84 * unit_};
        const double bottom = h - edge - 270 * unit_;
        const double split = w - edge - std::min(0.30 * w, 470 * unit_);
        scene_ = {edge, title_.bottom + gap / 2, split - gap, bottom - gap};
        patches_ = {split, scene_.top, w - edge, scene_.top + scene_.height() * 0.62};
        wedge_ = {split, patches_.bottom + gap, w - edge, scene_.bottom};
        const Box strip = {edge, bottom, w - edge, h - edge};
        for (int i = 0; i < 5; ++i) fields_[i] = strip.column(i, 5);
        for (Box& field : fields_) field = {field.left + gap / 4, field.top, field.right - gap / 4, field.bottom};
    }

    Picture draw()
    {
        for (int y = 0; y < picture_.layout.height; ++y) {
            for (int x = 0; x < picture_.layout.width; ++x) put(x, y, smoothed(x, y));
            step_();
        }
        drawMarks();
        drawLabel();
        return std::move(picture_);
    }

private:
    static Layout shape(int width, int height)
    {
        Layout layout;
        layout.width = width;
        layout.height = height;
        layout.bits = 24;
        layout.resolution = Resolution{300, 300};
        return layout;
    }

    void put(int x, int y, Colour light)
    {
        // A little grain, as film and sensors have it.
        const double grain = (noiseAt(x, y, 7) + noiseAt(x, y, 8) - 1) * 0.012;
        uint8_t* const pixel = picture_.row(y) + 3 * x;
        pixel[0] = toByte(light.r * (1 + grain) + grain * 0.2);
        pixel[1] = toByte(light.g * (1 + grain) + grain * 0.2);
        pixel[2] = toByte(light.b * (1 + grain) + grain * 0.2);
    }

    Colour smoothed(int x, int y) const
    {
        constexpr int kSide = 2;
        Colour sum;
        for (int j = 0; j < kSide; ++j)
            for (int i = 0; i < kSide; ++i) sum = sum + at(x + (i + 0.5) / kSide, y + (j + 0.5) / kSide);
        return sum * (1.0 / (kSide * kSide));
    }

    Colour at(double x, double y) const
    {
        if (scene_.holds(x, y)) {
            const double half = scene_.width() / 2;
            return sceneAt((x - scene_.left) / half - 1, (y - scene_.top - scene_.height() / 2) / half);
        }
        if (patches_.holds(x, y)) return patchAt(x, y);
        if (wedge_.holds(x, y)) return wedgeAt(x, y);
        for (int i = 0; i < 5; ++i)
            if (fields_[i].holds(x, y)) return fieldAt(i, (x - fields_[i].left) / fields_[i].width(), y, x);
        return backgroundAt(x, y);
    }

    Colour backgroundAt(double x, double y) const
    {
        const double dx = x / picture_.layout.width - 0.5, dy = y / picture_.layout.height - 0.5;
        const double shade = 1 - 0.55 * (dx * dx + dy * dy);
        return Colour{0.70, 0.71, 0.72} * shade;
    }

    Colour patchAt(double x, double y) const
    {
        constexpr int kColumns = 4, kRows = 6;
        const int column = static_cast<int>((x - patches_.left) / patches_.width() * kColumns);
        const int row = static_cast<int>((y - patches_.top) / patches_.height() * kRows);
        const Box patch = patches_.row(row, kRows).column(column, kColumns).inset(5 * unit_);
        return patch.holds(x, y) ? fromRgb(kPatches[row * kColumns + column]) : kInk;
    }

    /// Steps of gray above, all grays below, the primaries in between.
    Colour wedgeAt(double x, double y) const
    {
        constexpr int kSteps = 16;
        const double across = (x - wedge_.left) / wedge_.width(), down = (y - wedge_.top) / wedge_.height();
        if (down < 0.40) {
            const double level = toLight(std::floor(across * kSteps) / (kSteps - 1));
            return {level, level, level};
        }
        const double level = toLight(across);
        if (down < 0.53) return {level, 0, 0};
        if (down < 0.66) return {0, level, 0};
        if (down < 0.79) return {0, 0, level};
        return {level, level, level};
    }

    Colour fieldAt(int field, double across, double y, double x) const
    {
        const Box& box = fields_[field];
        const double down = (y - box.top) / box.height();
        const double cx = x - (box.left + box.right) / 2, cy = y - (box.top + box.bottom) / 2;
        switch (field) {
        case 0: return starAt(cx, cy, std::min(box.width(), box.height()) / 2);
        case 1: return fromHue(across, 1 - down);
        case 2: return linesAt(across, down, x, y);
        case 3: return ringsAt(cx, cy, box.width() / 2);
        default: return cloudAt(across, down);
        }
    }

    static Colour starAt(double cx, double cy, double radius)
    {
        const double distance = std::hypot(cx, cy);
        if (distance > radius * 0.98) return {0.95, 0.95, 0.95};
        constexpr double kSpokes = 36;
        const bool dark = std::sin(std::atan2(cy, cx) * kSpokes) > 0 || distance < radius * 0.02;
        return dark ? kInk : Colour{0.95, 0.95, 0.95};
    }

    /// Upright lines above, level ones below, each group finer than the one before it.
    Colour linesAt(double across, double down, double x, double y) const
    {
        constexpr double kWidths[] = {8, 5, 3, 2, 1.5, 1};
        const bool upright = down < 0.5;
        const int group = std::min(5, static_cast<int>(across * 6));
        const double within = across * 6 - group, within2 = std::fmod(down * 2, 1.0);
        if (within < 0.08 || within > 0.92 || within2 < 0.06 || within2 > 0.94) return {0.95, 0.95, 0.95};
        const double position = (upright ? x : y) / (kWidths[group] * std::max(unit_, 0.5));
        return std::fmod(position, 2.0) < 1 ? kInk : Colour{0.95, 0.95, 0.95};
    }

    static Colour ringsAt(double cx, double cy, double radius)
    {
        const double r2 = (cx * cx + cy * cy) / radius;
        const double level = 0.5 + 0.5 * std::cos(r2 * std::numbers::pi * 0.55);
        return {level, level, level};
    }

    static Colour cloudAt(double across, double down)
    {
        double sum = 0;
        for (int octave = 0; octave < 5; ++octave)
            sum += softNoise(across * (5 << octave), down * (4 << octave) + octave * 50) / (2 << octave);
        return mix({0.03, 0.09, 0.25}, {0.98, 0.92, 0.80}, std::clamp(sum * 2.4 - 0.75, 0.0, 1.0));
    }

    Plot pen(Colour colour)
    {
        return [this, colour](int x, int y, double coverage) {
            if (!picture_.contains(x, y)) return;
            uint8_t* const pixel = picture_.row(y) + 3 * x;
            const Colour under = {toLight(pixel[0] / 255.0), toLight(pixel[1] / 255.0), toLight(pixel[2] / 255.0)};
            const Colour light = mix(under, colour, coverage);
            pixel[0] = toByte(light.r);
            pixel[1] = toByte(light.g);
            pixel[2] = toByte(light.b);
        };
    }

    /// Corner marks that differ, so that every turn of the picture shows.
    void drawMarks()
    {
        const double w = picture_.layout.width, h = picture_.layout.height, m = 20 * unit_;
        const double thin = 2 * unit_, arm = 12 * unit_;
        const Plot ink = pen(kInk);
        for (const Point corner : {Point{m, m}, Point{w - m, m}, Point{m, h - m}, Point{w - m, h - m}}) {
            drawLine({corner.x - arm, corner.y}, {corner.x + arm, corner.y}, thin, ink);
            drawLine({corner.x, corner.y - arm}, {corner.x, corner.y + arm}, thin, ink);
        }
        drawCircle({m, m}, arm * 0.7, thin, pen({0.8, 0, 0}));
        drawCircle({w - m, m}, arm * 0.7, thin, pen({0, 0.6, 0}));
        drawCircle({m, h - m}, arm * 0.7, thin, pen({0, 0, 0.9}));
        for (const Box& box : {scene_, fields_[0], fields_[1], fields_[2], fields_[3], fields_[4]}) drawFrame(box, ink);
    }

    void drawFrame(const Box& box, const Plot& ink) const
    {
        const double thin = 1.5 * unit_;
        drawLine({box.left, box.top}, {box.right, box.top}, thin, ink);
        drawLine({box.right, box.top}, {box.right, box.bottom}, thin, ink);
        drawLine({box.right, box.bottom}, {box.left, box.bottom}, thin, ink);
        drawLine({box.left, box.bottom}, {box.left, box.top}, thin, ink);
    }

    void drawLabel()
    {
        const TextStyle large = {46 * unit_, 6 * unit_}, small = {20 * unit_, 2.4 * unit_};
        drawText({title_.left + 10 * unit_, title_.bottom - 24 * unit_}, "RVIMG TEST CHART", large, pen(kInk));
        const std::string size = std::to_string(picture_.layout.width) + " x " +
                                 std::to_string(picture_.layout.height) + " pixels, 24 bits, RGB";
        const double right = title_.right - 10 * unit_;
        drawText({right - textWidth(size, small), title_.bottom - 50 * unit_}, size, small, pen(kInk));
        const std::string turn = "the red mark is top left";
        drawText({right - textWidth(turn, small), title_.bottom - 14 * unit_}, turn, small, pen({0.55, 0.02, 0.02}));
    }

    Picture picture_;
    const Step& step_;
    double unit_ = 1; ///< a pixel of the chart at its own size
    Box title_{}, scene_{}, patches_{}, wedge_{};
    Box fields_[5] = {};
};

} // namespace

Picture drawPhoto(int width, int height, const Step& step) { return PhotoChart(width, height, step).draw(); }

} // namespace rvimg::chart
