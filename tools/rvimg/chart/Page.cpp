#include "Chart.h"
#include "Drawing.h"

#include <array>
#include <cmath>
#include <string>

namespace rvimg::chart {

namespace {

constexpr const char* kTitle = "On the Keeping of Pictures";
constexpr const char* kByline = "A page of one bit a pixel, drawn at 300 dots per inch";

constexpr const char* kParagraphs[] = {
    "A picture in memory is a plain thing: rows of pixels, one below the other, and a short note that says how wide "
    "they are, how many bits each takes, and which of them comes first. All that is done to a picture afterwards, be "
    "it turned, cut or made smaller, is done to those rows; the note is what keeps them together.",
    "Pages such as this one need a single bit for each dot. Eight dots share a byte, and a sheet of paper that would "
    "fill a shelf as a photograph fits in a drawer. Whoever unpacks the dots in order to work on them has given the "
    "drawer away; a careful program moves them eight, or sixty-four, or two hundred and fifty-six at a time.",
    "Where the first row lies is a matter of taste. Some files begin at the top, as we read, others at the bottom, "
    "as we draw graphs. A scanner that was fed sideways begins at the left. It is wise to write the habit down "
    "beside the picture and to leave the dots where they are, for moving them costs time and gains nothing.",
    "When a picture is stored, nothing that it had should be lost on the way: neither its depth nor its colours, "
    "neither its size on paper nor the side that is up. If the box is too small for all of this, it is better to "
    "say so than to fold a corner and hope that nobody looks.",
};

struct TableRow {
    std::array<const char*, 4> cells;
};
constexpr TableRow kTable[] = {
    {{"Kind of picture", "Bits", "Bytes a row", "Size in MB"}},
    {{"Page of text", "1", "312", "1.1"}},
    {{"Line art, 16 inks", "4", "1240", "4.3"}},
    {{"Gray photograph", "8", "2480", "8.7"}},
    {{"X-ray plate", "16", "4960", "17.4"}},
    {{"Colour photograph", "24", "7440", "26.1"}},
};

/// Draws one page; all measures are those of a sheet 2480 dots wide.
class TextPage {
public:
    TextPage(int width, int height, const Step& step) : picture_(shape(width, height)), step_(step)
    {
        unit_ = std::min(width / 2480.0, height / 3508.0);
        picture_.bytes.assign(picture_.bytes.size(), 0xFF);
        for (int y = 0; y < height; ++y) // bits behind the last pixel are 0
            if (width % 8 != 0) picture_.row(y)[width / 8] = static_cast<uint8_t>(0xFF00u >> (width % 8));
    }

    Picture draw()
    {
        drawHead();
        double y = 640;
        constexpr double kColumn = 1010;
        for (size_t i = 0; i < 2; ++i) y = paragraph(kMargin, y, kColumn, kParagraphs[i]) + 70;
        double right = 640;
        for (size_t i = 2; i < 4; ++i)
            right = paragraph(kSheet - kMargin - kColumn, right, kColumn, kParagraphs[i]) + 70;
        y = drawTable(std::max(y, right) + 60);
        drawFigure(kMargin, y + 160, 1000, 3160);
        drawBars(kSheet - kMargin - kColumn, y + 160, kColumn, 3160);
        line(kMargin, 3280, kSheet - kMargin, 3280, 3);
        text(kSheet / 2 - width("- 1 -", kSmall) / 2, 3360, "- 1 -", kSmall);
        return std::move(picture_);
    }

private:
    static constexpr double kSheet = 2480, kMargin = 200;
    static constexpr TextStyle kLarge = {92, 13}, kBody = {30, 4}, kSmall = {26, 3.2}, kBold = {30, 6.5};

    static Layout shape(int width, int height)
    {
        Layout layout;
        layout.width = width;
        layout.height = height;
        layout.bits = 1;
        layout.palette = grayRamp(1);
        layout.resolution = Resolution{300, 300};
        return layout;
    }

    Plot ink()
    {
        return [this](int x, int y, double coverage) {
            if (coverage >= 0.5 && picture_.contains(x, y))
                picture_.row(y)[x / 8] &= static_cast<uint8_t>(~(0x80u >> (x % 8)));
        };
    }

    void line(double x0, double y0, double x1, double y1, double thickness)
    {
        drawLine({x0 * unit_, y0 * unit_}, {x1 * unit_, y1 * unit_}, thickness * unit_, ink());
    }
    void box(double left, double top, double right, double bottom)
    {
        fillBox(left * unit_, top * unit_, right * unit_, bottom * unit_, ink());
    }
    void circle(double x, double y, double radius, double thickness)
    {
        drawCircle({x * unit_, y * unit_}, radius * unit_, thickness * unit_, ink());
    }
    void text(double x, double y, std::string_view words, TextStyle style)
    {
        drawText({x * unit_, y * unit_}, words, {style.capital * unit_, style.thickness * unit_}, ink());
    }
    static double width(std::string_view words, TextStyle style) { return textWidth(words, style); }

    void drawHead()
    {
        text(kSheet / 2 - width(kTitle, kLarge) / 2, 330, kTitle, kLarge);
        text(kSheet / 2 - width(kByline, kBody) / 2, 430, kByline, kBody);
        line(kMargin, 510, kSheet - kMargin, 510, 8);
        line(kMargin, 526, kSheet - kMargin, 526, 3);
    }

    /// Sets words in lines of even length; answers where the next line would stand.
    double paragraph(double left, double y, double measure, std::string_view words)
    {
        constexpr double kLeading = 58;
        std::vector<std::string_view> held;
        double length = 0;
        const double space = width("n n", kBody) - 2 * width("n", kBody);
        while (!words.empty()) {
            const size_t end = std::min(words.find(' '), words.size());
            const std::string_view word = words.substr(0, end);
            words.remove_prefix(std::min(end + 1, words.size()));
            const double added = width(word, kBody);
            if (!held.empty() && length + space + added > measure) {
                setLine(left, y, held,
                        (measure - length) / static_cast<double>(std::max<size_t>(held.size() - 1, 1)) + space);
                y += kLeading;
                held.clear();
                length = 0;
            }
            length += added + (held.empty() ? 0 : space);
            held.push_back(word);
        }
        setLine(left, y, held, space);
        return y + kLeading;
    }

    void setLine(double x, double y, const std::vector<std::string_view>& words, double space)
    {
        for (const std::string_view word : words) {
            text(x, y, word, kBody);
            x += width(word, kBody) + space;
        }
        step_();
    }

    double drawTable(double top)
    {
        constexpr double kRow = 74;
        constexpr double kColumns[] = {kMargin, 1000, 1400, 1860, kSheet - kMargin};
        double y = top;
        for (const TableRow& row : kTable) {
            const bool head = &row == kTable;
            for (size_t i = 0; i < row.cells.size(); ++i) {
                const TextStyle style = head ? kBold : kBody;
                const double x = i == 0 ? kColumns[0] + 24 : kColumns[i + 1] - 24 - width(row.cells[i], style);
                text(x, y + 50, row.cells[i], style);
            }
            line(kMargin, y, kSheet - kMargin, y, head ? 6 : 2);
            y += kRow;
            if (head) line(kMargin, y - 3, kSheet - kMargin, y - 3, 4);
            step_();
        }
        line(kMargin, y, kSheet - kMargin, y, 6);
        for (const double x : kColumns) line(x, top, x, y, 2);
        return y;
    }

    /// Slanted lines, finer and finer, in a circle: what scanning and turning do to edges shows here first.
    void drawFigure(double left, double top, double measure, double bottom)
    {
        const double radius = std::min(measure, bottom - top - 80) / 2;
        const double cx = left + measure / 2, cy = top + radius;
        circle(cx, cy, radius, 6);
        circle(cx, cy, radius * 0.72, 3);
        for (int i = 0; i < 18; ++i) {
            const double offset = (i - 8.5) / 9 * radius * 0.95;
            const double half = std::sqrt(radius * radius * 0.98 - offset * offset);
            const double s = std::sqrt(0.5);
            line(cx + (offset - half) * s, cy - (offset + half) * s, cx + (offset + half) * s, cy + (half - offset) * s,
                 1 + i * 0.9);
        }
        line(cx - radius, cy, cx + radius, cy - radius * 0.2, 5);
        const char* const caption = "Fig. 1  Slanted lines in a circle";
        text(cx - width(caption, kSmall) / 2, bottom + 30, caption, kSmall);
        step_();
    }

    void drawBars(double left, double top, double measure, double bottom)
    {
        constexpr double kHeights[] = {0.22, 0.34, 0.30, 0.52, 0.61, 0.58, 0.83, 0.97};
        const double height = bottom - top - 80, foot = top + height, step = measure / 8;
        for (int i = 0; i < 8; ++i) {
            const double x = left + step * i + step * 0.18, up = foot - kHeights[i] * height;
            if (i % 2 == 0) {
                box(x, up, x + step * 0.64, foot);
                continue;
            }
            for (double y = up; y < foot; y += 9) line(x, y, x + step * 0.64, y, 2.2); // a screen of fine lines
            line(x, up, x, foot, 3);
            line(x + step * 0.64, up, x + step * 0.64, foot, 3);
        }
        line(left, top, left, foot, 5);
        line(left, foot, left + measure, foot, 5);
        const char* const caption = "Fig. 2  Pictures kept, by year";
        text(left + measure / 2 - width(caption, kSmall) / 2, bottom + 30, caption, kSmall);
        step_();
    }

    Picture picture_;
    const Step& step_;
    double unit_;
};

} // namespace

Picture drawPage(int width, int height, const Step& step) { return TextPage(width, height, step).draw(); }

} // namespace rvimg::chart
