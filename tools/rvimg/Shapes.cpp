#include "Shapes.h"

#include "Skew.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace rvimg {

namespace {

struct Method {
    const char* name;
    R_UINT flags;
};
constexpr R_UINT kChosen = ~0u; // by what is to be done
constexpr Method kMethods[] = {{"auto", kChosen},        {"nearest", 0},      {"bilinear", SIZE_BILINEAR},
                               {"spline", SIZE_BICUBIC}, {"area", SIZE_AREA}, {"black", SIZE_FAVOR_BLACK},
                               {"gray", SIZE_TO_GRAY}};

/// A number at the front of the words, which is taken off; nothing where there is none.
template <class Number> std::optional<Number> takeNumber(std::string_view& words)
{
    Number number{};
    const auto [end, error] = std::from_chars(words.data(), words.data() + words.size(), number);
    if (error != std::errc()) return std::nullopt;
    words.remove_prefix(static_cast<size_t>(end - words.data()));
    return number;
}

bool takeSign(std::string_view& words, char sign)
{
    if (words.empty() || words.front() != sign) return false;
    words.remove_prefix(1);
    return true;
}

bool seenSideways(const BITMAPHANDLE* bitmap) { return bitmap->ViewPerspective >= LEFT_TOP; }

Size displayedSize(const BITMAPHANDLE* bitmap)
{
    return seenSideways(bitmap) ? Size{bitmap->Height, bitmap->Width} : Size{bitmap->Width, bitmap->Height};
}

R_INT sideOf(double pixels)
{
    if (!(pixels < std::numeric_limits<R_INT>::max())) throw Error("the picture would be too large");
    return std::max(static_cast<R_INT>(std::lround(pixels)), 1);
}

/// A picture's size by a factor that gives one side what is asked for exactly.
Size fitted(const Size& size, const Size& room)
{
    const double across = static_cast<double>(room.width) / size.width,
                 down = static_cast<double>(room.height) / size.height;
    if (room.height == 0 || (room.width != 0 && across <= down)) return {room.width, sideOf(size.height * across)};
    return {sideOf(size.width * down), room.height};
}

Size wantedSize(const Size& size, const Resizing& resizing)
{
    if (resizing.fit) return fitted(size, *resizing.fit);
    if (resizing.percent)
        return {sideOf(size.width * *resizing.percent / 100), sideOf(size.height * *resizing.percent / 100)};
    const Size& wanted = *resizing.size;
    return wanted.width == 0 || wanted.height == 0 ? fitted(size, wanted) : wanted;
}

R_UINT flagsOf(const std::string& name)
{
    const Method* const method =
        std::find_if(std::begin(kMethods), std::end(kMethods), [&](const Method& m) { return name == m.name; });
    if (method == std::end(kMethods)) throw UsageError("unknown method " + name);
    return method->flags;
}

/// Strokes of pages survive; else every pixel counts where a side shrinks, and curves are smooth where none does.
R_UINT suitableFlags(const BITMAPHANDLE* bitmap, const Size& from, const Size& to)
{
    if (bitmap->BitsPerPixel == 1) return SIZE_FAVOR_BLACK | SIZE_BILINEAR; // the latter where 1 bit is no page
    return to.width < from.width || to.height < from.height ? SIZE_AREA : SIZE_BICUBIC;
}

R_INT resize(BITMAPHANDLE* bitmap, const Size& to, R_UINT flags)
{
    if ((bitmap->Flags & FLAG_PREMULTIPLY_ALPHA) == 0) flags |= SIZE_ALPHA;
    const bool sideways = seenSideways(bitmap);
    return R_SizeBitmap(bitmap, sideways ? to.height : to.width, sideways ? to.width : to.height, flags);
}

/// The fill of rotations and the like, as a colour value with its alpha on top.
COLORREF withAlpha(const Colour& colour) { return colour.rgb | static_cast<COLORREF>(colour.alpha) << 24; }

R_INT rotate(BITMAPHANDLE* bitmap, const Rotation& rotation)
{
    if (rotation.keepSize && seenSideways(bitmap)) // the kernel keeps the size in which a picture is stored
        check(R_ChangeBitmapViewPerspective(nullptr, bitmap, 0, TOP_LEFT));
    const R_UINT flags =
        ROTATE_ALPHA | (rotation.keepSize ? 0 : ROTATE_RESIZE) | (rotation.nearest ? 0 : ROTATE_BILINEAR);
    return R_RotateBitmap(bitmap, *rotation.angle, flags, withAlpha(rotation.fill));
}

} // namespace

std::optional<Size> sizeOf(const std::string& words)
{
    std::string_view rest = words;
    const R_INT width = takeNumber<R_INT>(rest).value_or(0);
    if (!takeSign(rest, 'x')) return std::nullopt;
    const R_INT height = takeNumber<R_INT>(rest).value_or(0);
    const bool none = width <= 0 && height <= 0;
    return rest.empty() && !none && width >= 0 && height >= 0 ? std::optional(Size{width, height}) : std::nullopt;
}

std::vector<std::string> resizingMethods()
{
    std::vector<std::string> names;
    for (const Method& method : kMethods) names.emplace_back(method.name);
    return names;
}

Operation resizeTo(const Resizing& resizing)
{
    if (resizing.size.has_value() + resizing.fit.has_value() + resizing.percent.has_value() != 1)
        throw UsageError("resize needs one of --size, --fit and --percent");
    const R_UINT flags = flagsOf(resizing.method);
    return [=](BITMAPHANDLE* bitmap) {
        const Size from = displayedSize(bitmap);
        const Size to = wantedSize(from, resizing);
        return resize(bitmap, to, flags == kChosen ? suitableFlags(bitmap, from, to) : flags);
    };
}

Operation thumbnailOf(R_INT side)
{
    return [=](BITMAPHANDLE* bitmap) -> R_INT {
        const Size from = displayedSize(bitmap);
        if (std::max(from.width, from.height) <= side) return SUCCESS;
        const bool page = bitmap->BitsPerPixel == 1 && R_IsGrayScaleBitmap(bitmap) > 0;
        return resize(bitmap, fitted(from, {side, side}), page ? SIZE_TO_GRAY : SIZE_AREA);
    };
}

std::optional<R_INT> angleOf(const std::string& words)
{
    std::string_view rest = words;
    const auto degrees = takeNumber<double>(rest);
    if (!degrees || !rest.empty() || !(std::abs(*degrees) <= 360)) return std::nullopt;
    return static_cast<R_INT>(std::lround(*degrees * 100));
}

Operation rotateBy(const Rotation& rotation)
{
    return [=](BITMAPHANDLE* bitmap) { return rotate(bitmap, rotation); };
}

std::optional<Corners> cornersOf(const std::vector<std::string>& words)
{
    Corners corners{};
    if (words.size() != corners.size()) return std::nullopt;
    for (size_t i = 0; i < corners.size(); ++i) {
        std::string_view rest = words[i];
        const auto x = takeNumber<double>(rest);
        if (!x || !takeSign(rest, ',')) return std::nullopt;
        const auto y = takeNumber<double>(rest);
        if (!y || !rest.empty()) return std::nullopt;
        corners[i] = {*x, *y};
    }
    return corners;
}

Operation deskewBy(const Deskewing& deskewing)
{
    return [=](BITMAPHANDLE* bitmap) -> R_INT {
        if (deskewing.corners)
            return R_WarpBitmap(nullptr, bitmap, bitmap->uStructSize, deskewing.corners->data(), 0, 0,
                                WARP_BILINEAR | WARP_ALPHA, withAlpha(deskewing.fill));
        const auto skew = skewOf(bitmap, deskewing.most);
        const R_INT angle = skew ? static_cast<R_INT>(std::lround(-*skew * 100)) : 0;
        return angle != 0 ? rotate(bitmap, {angle, deskewing.fill, deskewing.keepSize, false}) : SUCCESS;
    };
}

} // namespace rvimg
