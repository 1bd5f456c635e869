#include "Drawing.h"

#include <algorithm>
#include <array>
#include <string>

namespace rvimg::chart {

namespace {

/// Strokes as points of two characters: a digit for x, a letter for y, in which 'd' is the base line, 'i' the height
/// of small letters and 'l' that of capitals. A stroke that begins with ~ is bent around its inner points, one that
/// begins with @ is bent and closed.
struct Drawn {
    char c;
    const char* strokes;
};
constexpr Drawn kAlphabet[] = {
    {'A', "0d3l6d 1g5g"},
    {'B', "0d0l ~0l5l5h0h ~0h6h6d0d"},
    {'C', "~6j5l0l0d5d6f"},
    {'D', "0d0l ~0l6l6d0d"},
    {'E', "5d0d0l5l 0h4h"},
    {'F', "0d0l5l 0h4h"},
    {'G', "~6j5l0l0d6d6h 6h3h"},
    {'H', "0d0l 6d6l 0h6h"},
    {'I', "1d1l"},
    {'J', "~4l4e4d0d0f"},
    {'K', "0d0l 5l0g 2i5d"},
    {'L', "0l0d5d"},
    {'M', "0d0l3f6l6d"},
    {'N', "0d0l6d6l"},
    {'O', "@0d6d6l0l"},
    {'P', "0d0l ~0l6l6g0g"},
    {'Q', "@0d6d6l0l 4f6d"},
    {'R', "0d0l ~0l6l6g0g 3g6d"},
    {'S', "~6j6l0l0h6h6d0d0f"},
    {'T', "0l6l 3l3d"},
    {'U', "~0l0f0d6d6f6l"},
    {'V', "0l3d6l"},
    {'W', "0l1d3j5d6l"},
    {'X', "0l6d 6l0d"},
    {'Y', "0l3h6l 3h3d"},
    {'Z', "0l6l0d6d"},
    {'a', "@0d4d4i0i 4i4d"},
    {'b', "0l0d @0d4d4i0i"},
    {'c', "~4h4i0i0d4d4e"},
    {'d', "4l4d @0d4d4i0i"},
    {'e', "0g4g ~4g4i0i0d4d4e"},
    {'f', "~4l2l2j2d 0i4i"},
    {'g', "@0d4d4i0i ~4i4d4a0a0b"},
    {'h', "0l0d ~0g0i4i4g4d"},
    {'i', "1i1d 1k1l"},
    {'j', "~2i2d2a0a 2k2l"},
    {'k', "0l0d 4i0f 1g4d"},
    {'l', "1l1d"},
    {'m', "0i0d ~0g0i3i3g3d ~3g3i6i6g6d"},
    {'n', "0i0d ~0g0i4i4g4d"},
    {'o', "@0d4d4i0i"},
    {'p', "0i0a @0d4d4i0i"},
    {'q', "4i4a @0d4d4i0i"},
    {'r', "0i0d ~0g0i3i"},
    {'s', "~4h4i0i0g4g4d0d0e"},
    {'t', "~1k1f1d3d 0i3i"},
    {'u', "~0i0d4d4f 4i4d"},
    {'v', "0i2d4i"},
    {'w', "0i1d3h5d6i"},
    {'x', "0i4d 4i0d"},
    {'y', "0i2d 4i1a"},
    {'z', "0i4i0d4d"},
    {'0', "@0d5d5l0l"},
    {'1', "1j3l3d"},
    {'2', "~0j0l5l5i2f0d 0d5d"},
    {'3', "~0k0l5l5h2h ~2h5h5d0d0e"},
    {'4', "4d4l0f5f"},
    {'5', "5l0l0h ~0h2i5i5d0d0e"},
    {'6', "~5k5l0l0d5d5h0h0f"},
    {'7', "0l5l2d"},
    {'8', "@0h5h5l0l @0d5d5h0h"},
    {'9', "~0e0d5d5l0l0h5h5j"},
    {'.', "1d1d"},
    {',', "1d0b"},
    {':', "1d1d 1h1h"},
    {';', "1d0b 1h1h"},
    {'-', "0g4g"},
    {'+', "0g4g 2e2i"},
    {'=', "0f4f 0h4h"},
    {'/', "0c4m"},
    {'(', "~2m0k0e2c"},
    {')', "~0m2k2e0c"},
    {'%', "0d5l @0j2j2l0l @3d5d5f3f"},
    {'!', "1l1g 1d1d"},
    {'?', "~0j0l4l4h2h2f 2d2d"},
    {'\'', "1l1j"},
    {'\"', "0l0j 2l2j"},
};
constexpr double kSpaceWidth = 3;

/// Cuts the corners of a line, again and again, until they are round.
Stroke bend(Stroke line, bool closed)
{
    constexpr int kRounds = 3;
    const auto between = [](Point a, Point b, double t) { return Point{a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t}; };
    for (int round = 0; round < kRounds; ++round) {
        Stroke cut;
        const size_t edges = closed ? line.size() : line.size() - 1;
        for (size_t i = 0; i < edges; ++i) {
            const Point a = line[i], b = line[(i + 1) % line.size()];
            const bool first = !closed && i == 0, last = !closed && i + 1 == edges;
            cut.push_back(between(a, b, first ? 0.0 : 0.25));
            cut.push_back(between(a, b, last ? 1.0 : 0.75));
        }
        line = std::move(cut);
    }
    if (closed) line.push_back(line.front());
    return line;
}

Letter shape(const std::string& drawn)
{
    Letter letter;
    for (size_t start = 0; start < drawn.size();) {
        const size_t end = std::min(drawn.find(' ', start), drawn.size());
        const char kind = drawn[start];
        const bool bent = kind == '~' || kind == '@';
        Stroke stroke;
        for (size_t i = start + (bent ? 1 : 0); i + 1 < end; i += 2) {
            stroke.push_back({static_cast<double>(drawn[i] - '0'), static_cast<double>(drawn[i + 1] - 'd')});
            letter.width = std::max(letter.width, stroke.back().x);
        }
        letter.strokes.push_back(bent ? bend(stroke, kind == '@') : stroke);
        start = end + 1;
    }
    return letter;
}

using Alphabet = std::array<Letter, 256>;

Alphabet shapeAll()
{
    Alphabet alphabet;
    for (Letter& letter : alphabet) letter.width = kSpaceWidth;
    for (const Drawn& drawn : kAlphabet) alphabet[static_cast<unsigned char>(drawn.c)] = shape(drawn.strokes);
    return alphabet;
}

} // namespace

const Letter& letterOf(char c)
{
    static const Alphabet alphabet = shapeAll();
    return alphabet[static_cast<unsigned char>(c)];
}

} // namespace rvimg::chart
