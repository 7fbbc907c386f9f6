#pragma once

#include <cstdint>
#include <iosfwd>

#include "vidorra/core/export.h"

namespace vidorra {

/// A width and a height, in pixels by default.
///
///     const Size thumbnail = picture.frameSize().scaledProportional(Size{320, 180});
struct VIDORRA_API Size {
    std::int32_t width = 0;
    std::int32_t height = 0;

    /// The largest size of this shape that fits into `target`, truncated to whole pixels. Shapes whose ratios
    /// of width to height differ by at most 0.01 count as equal and give `target` itself. 0 by 0 when a side
    /// of either is 0.
    [[nodiscard]] Size scaledProportional(Size target) const;

    friend constexpr bool operator==(Size a, Size b) noexcept {
        return a.width == b.width && a.height == b.height;
    }
    friend constexpr bool operator!=(Size a, Size b) noexcept { return !(a == b); }
};

/// A place, in pixels from the top left corner.
struct VIDORRA_API Point {
    std::int32_t x = 0;
    std::int32_t y = 0;

    friend constexpr bool operator==(Point a, Point b) noexcept { return a.x == b.x && a.y == b.y; }
    friend constexpr bool operator!=(Point a, Point b) noexcept { return !(a == b); }
};

/// A rectangle; its right and bottom edges are exclusive.
///
///     const Rect visible = Rect{1800, 0, 320, 200}.intersected(Rect{0, 0, 1920, 1080});
struct VIDORRA_API Rect {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;

    /// The common area. All zero when a side is 0 or the two are apart. Two rectangles that merely touch
    /// give one at the common edge with a width or height of 0, so check these and not the origin.
    [[nodiscard]] Rect intersected(const Rect& other) const;

    /// A rectangle of this size in the middle of `outer`, relative to the origin of `outer`.
    [[nodiscard]] Rect centeredIn(const Rect& outer) const;

    [[nodiscard]] bool contains(const Point& point) const;

    friend constexpr bool operator==(const Rect& a, const Rect& b) noexcept {
        return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
    }
    friend constexpr bool operator!=(const Rect& a, const Rect& b) noexcept { return !(a == b); }
};

/// "w:640, h:480".
VIDORRA_API std::ostream& operator<<(std::ostream& stream, const Size& size);

/// Reads an integer, any one character and an integer, such as 640x480; this is not the form that output
/// has. Sets the stream's failure state as reading an integer does.
VIDORRA_API std::istream& operator>>(std::istream& stream, Size& size);

/// "x:10, y:20".
VIDORRA_API std::ostream& operator<<(std::ostream& stream, const Point& point);

/// "x:10, y:20, w:640, h:480".
VIDORRA_API std::ostream& operator<<(std::ostream& stream, const Rect& rect);

}  // namespace vidorra
