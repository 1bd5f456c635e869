#include "Operations.h"

#include <charconv>
#include <limits>

namespace rvimg {

namespace {

constexpr R_INT kMost = std::numeric_limits<R_INT>::max() / 2; // sums of two are numbers, too

/// A decimal number at the front of the words, which is taken off; negative where there is none.
R_INT takeNumber(std::string_view& words)
{
    R_INT number = -1;
    const auto [end, error] = std::from_chars(words.data(), words.data() + words.size(), number);
    if (error != std::errc()) return -1;
    words.remove_prefix(static_cast<size_t>(end - words.data()));
    return number;
}

bool takeSign(std::string_view& words, char sign)
{
    if (words.empty() || words.front() != sign) return false;
    words.remove_prefix(1);
    return true;
}

} // namespace

std::optional<RECT> areaOf(const std::string& words)
{
    std::string_view rest = words;
    R_INT numbers[4] = {}; // width, height, x, y
    const char* separator = "x++";
    for (R_INT& number : numbers) {
        number = takeNumber(rest);
        if (number < 0 || number > kMost || (*separator != 0 && !takeSign(rest, *separator++))) return std::nullopt;
    }
    const auto [width, height, x, y] = numbers;
    if (!rest.empty() || width == 0 || height == 0) return std::nullopt;
    return RECT{x, y, x + width, y + height};
}

std::optional<Place> placeOf(const std::string& words)
{
    std::string_view rest = words;
    Place place;
    place.x = takeNumber(rest);
    if (place.x < 0 || !takeSign(rest, '+')) return std::nullopt;
    place.y = takeNumber(rest);
    const bool fits = place.x <= kMost && place.y >= 0 && place.y <= kMost;
    return fits && rest.empty() ? std::optional(place) : std::nullopt;
}

std::optional<Colour> colourOf(const std::string& words)
{
    if (words == "black") return Colour{0x000000};
    if (words == "white") return Colour{0xFFFFFF};
    std::string_view digits = words;
    (void)takeSign(digits, '#');
    if (digits.size() != 6 && digits.size() != 8) return std::nullopt;
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    if (digits.size() == 6) number = number << 8 | 0xFF;
    const auto byte = [number](int shift) { return number >> shift & 0xFF; };
    return Colour{byte(24) | byte(16) << 8 | byte(8) << 16, static_cast<R_UCHAR>(byte(0))};
}

namespace {

/// Where an area is stored that is partly in the picture at least.
RECT storedArea(BITMAPHANDLE* bitmap, const RECT& area)
{
    RECT stored = area;
    check(R_RectToBitmap(bitmap, TOP_LEFT, &stored));
    const bool outside =
        stored.right <= 0 || stored.bottom <= 0 || stored.left >= bitmap->Width || stored.top >= bitmap->Height;
    if (outside) throw Error("the area lies outside the picture");
    return stored;
}

/// Has the kernel take a rectangle for a bitmap's region, as long as it lives.
class RectangleRegion {
public:
    RectangleRegion(BITMAPHANDLE* bitmap, RECT& rectangle) : bitmap_(bitmap)
    {
        DISDISPATCH hooks{};
        hooks.uStructSize = sizeof hooks;
        hooks.GetRegionBounds = [](BITMAPHANDLE* p, RECT* bounds, R_UINT* most) -> R_INT {
            *bounds = *static_cast<const RECT*>(p->pRgnInfo);
            *most = 1;
            return SUCCESS;
        };
        hooks.GetRegionSegments = [](BITMAPHANDLE* p, R_INT, R_SEGMENT* segments, R_UINT* count) -> R_INT {
            const RECT inside = *static_cast<const RECT*>(p->pRgnInfo);
            *segments = {inside.left, inside.right};
            *count = 1;
            return SUCCESS;
        };
        check(R_SetDisDispatch(&hooks));
        bitmap->pRgnInfo = &rectangle;
    }
    ~RectangleRegion()
    {
        bitmap_->pRgnInfo = nullptr;
        (void)R_SetDisDispatch(nullptr);
    }
    RectangleRegion(const RectangleRegion&) = delete;
    RectangleRegion& operator=(const RectangleRegion&) = delete;

private:
    BITMAPHANDLE* bitmap_;
};

} // namespace

Operation cropTo(const RECT& area)
{
    return [=](BITMAPHANDLE* bitmap) {
        const RECT stored = storedArea(bitmap, area);
        return R_TrimBitmap(bitmap, stored.left, stored.top, static_cast<R_UINT>(stored.right - stored.left),
                            static_cast<R_UINT>(stored.bottom - stored.top));
    };
}

Operation fillWith(const Colour& colour, const std::optional<RECT>& area)
{
    return [=](BITMAPHANDLE* bitmap) {
        if (!area) return R_FillBitmap2(bitmap, colour.rgb, colour.alpha);
        RECT stored = storedArea(bitmap, *area);
        const RectangleRegion region(bitmap, stored);
        return R_FillBitmap2(bitmap, colour.rgb, colour.alpha);
    };
}

Operation orientTo(R_INT perspective)
{
    return [=](BITMAPHANDLE* bitmap) { return R_ChangeBitmapViewPerspective(nullptr, bitmap, 0, perspective); };
}

} // namespace rvimg
