#include "vidorra/core/geometry.h"

#include <algorithm>
#include <cmath>
#include <istream>
#include <ostream>

#include "core/rect_edges.h"

namespace vidorra {

Size Size::scaledProportional(Size target) const {
    if (width == 0 || height == 0 || target.width == 0 || target.height == 0) {
        return {};
    }
    const double targetRatio = static_cast<double>(target.width) / target.height;
    const double ratio = static_cast<double>(width) / height;
    const double targetShape = std::abs(targetRatio);
    const double shape = std::abs(ratio);
    // Deliberate: shapes this close count as equal, so that rounding loses no pixel.
    if (std::abs(targetShape - shape) <= 0.01) {
        return target;
    }
    if (targetShape > shape) {
        return {static_cast<std::int32_t>(std::trunc(target.height * shape)), target.height};
    }
    return {target.width, static_cast<std::int32_t>(std::trunc(target.width / shape))};
}

Rect Rect::intersected(const Rect& other) const {
    if (width == 0 || height == 0 || other.width == 0 || other.height == 0) {
        return {};
    }
    // Deliberate: strict comparisons, since rectangles that touch are not apart.
    if (x > right(other) || right(*this) < other.x || y > bottom(other) || bottom(*this) < other.y) {
        return {};
    }
    Rect common;
    common.x = std::max(x, other.x);
    common.y = std::max(y, other.y);
    common.width = static_cast<std::int32_t>(std::min(right(*this), right(other)) - common.x);
    common.height = static_cast<std::int32_t>(std::min(bottom(*this), bottom(other)) - common.y);
    return common;
}

Rect Rect::centeredIn(const Rect& outer) const {
    // Deliberate: the origin of `outer` is not added.
    return {outer.width / 2 - width / 2, outer.height / 2 - height / 2, width, height};
}

bool Rect::contains(const Point& point) const {
    return x <= point.x && point.x < right(*this) && y <= point.y && point.y < bottom(*this);
}

std::ostream& operator<<(std::ostream& stream, const Size& size) {
    return stream << "w:" << size.width << ", h:" << size.height;
}

std::istream& operator>>(std::istream& stream, Size& size) {
    stream >> size.width;
    stream.get();
    return stream >> size.height;
}

std::ostream& operator<<(std::ostream& stream, const Point& point) {
    return stream << "x:" << point.x << ", y:" << point.y;
}

std::ostream& operator<<(std::ostream& stream, const Rect& rect) {
    return stream << Point{rect.x, rect.y} << ", " << Size{rect.width, rect.height};
}

}  // namespace vidorra
