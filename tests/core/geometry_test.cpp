#include "vidorra/core/geometry.h"

#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <sstream>
#include <type_traits>

namespace vidorra {

void PrintTo(const Size& size, std::ostream* stream) {
    *stream << size;
}
void PrintTo(const Rect& rect, std::ostream* stream) {
    *stream << rect;
}

namespace {

constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();

static_assert(std::is_trivially_copyable_v<Size> && sizeof(Size) == 8);
static_assert(std::is_trivially_copyable_v<Point> && sizeof(Point) == 8);
static_assert(std::is_trivially_copyable_v<Rect> && sizeof(Rect) == 16);
static_assert(std::is_same_v<decltype(Size::width), std::int32_t>);
static_assert(std::is_same_v<decltype(Point::x), std::int32_t>);
static_assert(offsetof(Size, width) == 0 && offsetof(Size, height) == 4);
static_assert(offsetof(Point, x) == 0 && offsetof(Point, y) == 4);
static_assert(offsetof(Rect, x) == 0 && offsetof(Rect, y) == 4);
static_assert(offsetof(Rect, width) == 8 && offsetof(Rect, height) == 12);

template <class T>
std::string streamed(const T& value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

TEST(Size, IsZeroByDefault) {
    EXPECT_EQ(Size(), (Size{0, 0}));
    EXPECT_EQ(Rect(), (Rect{0, 0, 0, 0}));
    EXPECT_EQ(Point(), (Point{0, 0}));
}

TEST(Size, EqualityLooksAtBothSides) {
    EXPECT_TRUE((Size{1, 2} == Size{1, 2}));
    EXPECT_TRUE((Size{1, 2} != Size{1, 3}));
    EXPECT_TRUE((Size{1, 2} != Size{3, 2}));
    EXPECT_FALSE((Size{1, 2} != Size{1, 2}));
}

TEST(Point, EqualityLooksAtBothCoordinates) {
    EXPECT_TRUE((Point{1, 2} == Point{1, 2}));
    EXPECT_TRUE((Point{1, 2} != Point{1, 3}));
    EXPECT_TRUE((Point{1, 2} != Point{3, 2}));
    EXPECT_FALSE((Point{1, 2} != Point{1, 2}));
}

TEST(Rect, EqualityLooksAtAllFourNumbers) {
    const Rect rect{1, 2, 3, 4};
    EXPECT_TRUE((rect == Rect{1, 2, 3, 4}));
    EXPECT_FALSE((rect != Rect{1, 2, 3, 4}));
    for (const Rect& other : {Rect{9, 2, 3, 4}, Rect{1, 9, 3, 4}, Rect{1, 2, 9, 4}, Rect{1, 2, 3, 9}}) {
        EXPECT_TRUE(rect != other);
        EXPECT_FALSE(rect == other);
    }
}

TEST(Geometry, TextNamesEachNumber) {
    EXPECT_EQ(streamed(Size{640, -480}), "w:640, h:-480");
    EXPECT_EQ(streamed(Point{-10, 20}), "x:-10, y:20");
    EXPECT_EQ(streamed(Rect{-1, 2, 3, 4}), "x:-1, y:2, w:3, h:4");
}

struct SizeText {
    const char* text;
    Size size;
};

TEST(Size, ReadsTwoIntegersWithAnyOneCharacterBetween) {
    const SizeText rows[] = {
        {"1920x1080", {1920, 1080}},
        {"1920 1080", {1920, 1080}},
        {"1920\n1080", {1920, 1080}},
        {"7,8", {7, 8}},
        {"7-8", {7, 8}},
        {"7--8", {7, -8}},
        {" -7x 8", {-7, 8}},
        {"7:+8rest", {7, 8}},
    };
    for (const SizeText& row : rows) {
        SCOPED_TRACE(row.text);
        std::istringstream stream(row.text);
        Size size{-1, -1};
        EXPECT_TRUE(stream >> size);
        EXPECT_EQ(size, row.size);
    }
}

TEST(Size, ReadingLeavesTheRestOfTheStream) {
    std::istringstream stream("640x480 title");
    Size size;
    std::string rest;
    stream >> size >> rest;
    EXPECT_EQ(size, (Size{640, 480}));
    EXPECT_EQ(rest, "title");
}

TEST(Size, ReadingWhatIsNoSizeFailsTheStream) {
    for (const char* text : {"", "x", "640", "640x", "640xx480", "w:640, h:480"}) {
        SCOPED_TRACE(text);
        std::istringstream stream(text);
        Size size;
        EXPECT_FALSE(stream >> size);
    }
}

struct ScaleRow {
    Size size;
    Size target;
    Size result;
};

TEST(Size, ScaledProportionalFitsTheShapeIntoTheTarget) {
    const ScaleRow rows[] = {
        {{1920, 1080}, {1000, 1000}, {1000, 562}}, {{1080, 1920}, {1000, 1000}, {562, 1000}},
        {{720, 576}, {1280, 720}, {900, 720}},     {{2000, 500}, {400, 300}, {400, 100}},
        {{500, 2000}, {400, 300}, {75, 300}},      {{3, 2}, {100, 100}, {100, 66}},
        {{1, 1000}, {100, 100}, {0, 100}},
    };
    for (const ScaleRow& row : rows) {
        EXPECT_EQ(row.size.scaledProportional(row.target), row.result) << row.size << " in " << row.target;
    }
}

TEST(Size, ScaledProportionalIsZeroWhenASideIsZero) {
    for (const ScaleRow& row : {ScaleRow{{0, 480}, {640, 480}, {}}, ScaleRow{{640, 0}, {640, 480}, {}},
                                ScaleRow{{640, 480}, {0, 480}, {}}, ScaleRow{{640, 480}, {640, 0}, {}},
                                ScaleRow{{0, 480}, {0, 480}, {}}}) {
        EXPECT_EQ(row.size.scaledProportional(row.target), Size()) << row.size << " in " << row.target;
    }
}

TEST(Size, ScaledProportionalGivesTheTargetForShapesThatAreClose) {
    const ScaleRow rows[] = {
        {{1920, 1080}, {1280, 720}, {1280, 720}},
        // Ratios 1.009 and 1 are close, 1.011 and 1 are not.
        {{100, 100}, {1009, 1000}, {1009, 1000}},
        {{1009, 1000}, {100, 100}, {100, 100}},
        {{100, 100}, {1011, 1000}, {1000, 1000}},
        {{1011, 1000}, {2000, 2000}, {2000, 1978}},
        // The difference of ratios counts and not their quotient: all very tall shapes are close.
        {{1, 1000}, {1, 200}, {1, 200}},
    };
    for (const ScaleRow& row : rows) {
        EXPECT_EQ(row.size.scaledProportional(row.target), row.result) << row.size << " in " << row.target;
    }
}

TEST(Size, ScaledProportionalComparesTheMagnitudesOfRatios) {
    const ScaleRow rows[] = {
        {{-1920, 1080}, {1280, 720}, {1280, 720}},
        {{-100, 50}, {1000, 1000}, {1000, 500}},
        {{100, -50}, {-1000, 1000}, {-1000, -500}},
        {{50, 100}, {1000, -1000}, {-500, -1000}},
    };
    for (const ScaleRow& row : rows) {
        EXPECT_EQ(row.size.scaledProportional(row.target), row.result) << row.size << " in " << row.target;
    }
}

// The rule, step by step.
Size plainScaled(Size size, Size target) {
    if (size.width == 0 || size.height == 0 || target.width == 0 || target.height == 0) {
        return {0, 0};
    }
    const double at = std::fabs(double(target.width) / double(target.height));
    const double as = std::fabs(double(size.width) / double(size.height));
    if (std::fabs(at - as) <= 0.01 || as == 0.0) {
        return target;
    }
    if (at > as) {
        return {std::int32_t(std::trunc(target.height * as)), target.height};
    }
    return {target.width, std::int32_t(std::trunc(target.width / as))};
}

TEST(Size, ScaledProportionalFollowsItsRuleOnAnySizes) {
    std::mt19937 random(1);
    std::uniform_int_distribution<std::int32_t> side(-40, 4000);
    std::uniform_int_distribution<std::int32_t> any(kMin, kMax);
    for (int i = 0; i < 20000; ++i) {
        const bool wide = i % 4 == 0;
        const Size size = wide ? Size{any(random), any(random)} : Size{side(random), side(random)};
        const Size target = wide ? Size{any(random), any(random)} : Size{side(random), side(random)};
        ASSERT_EQ(size.scaledProportional(target), plainScaled(size, target)) << size << " in " << target;
    }
}

TEST(Size, ScaledProportionalStaysInRangeAtTheLimits) {
    const std::int32_t sides[] = {kMin, kMin + 1, -1, 1, kMax - 1, kMax};
    for (const std::int32_t a : sides) {
        for (const std::int32_t b : sides) {
            for (const std::int32_t c : sides) {
                for (const std::int32_t d : sides) {
                    const Size size{a, b};
                    const Size target{c, d};
                    ASSERT_EQ(size.scaledProportional(target), plainScaled(size, target))
                        << size << " in " << target;
                }
            }
        }
    }
}

TEST(Rect, IntersectsInTheCommonArea) {
    EXPECT_EQ((Rect{0, 0, 10, 10}.intersected({5, 6, 10, 10})), (Rect{5, 6, 5, 4}));
    EXPECT_EQ((Rect{-5, -6, 10, 10}.intersected({0, 0, 2, 3})), (Rect{0, 0, 2, 3}));
    EXPECT_EQ((Rect{0, 0, 10, 10}.intersected({0, 0, 10, 10})), (Rect{0, 0, 10, 10}));
}

TEST(Rect, TouchingRectanglesIntersectInAnEmptyRectAtTheEdge) {
    EXPECT_EQ((Rect{0, 0, 10, 10}.intersected({10, 0, 10, 10})), (Rect{10, 0, 0, 10}));
    EXPECT_EQ((Rect{10, 0, 10, 10}.intersected({0, 0, 10, 10})), (Rect{10, 0, 0, 10}));
    EXPECT_EQ((Rect{0, 0, 10, 10}.intersected({2, 10, 3, 10})), (Rect{2, 10, 3, 0}));
    EXPECT_EQ((Rect{2, 10, 3, 10}.intersected({0, 0, 10, 10})), (Rect{2, 10, 3, 0}));
    EXPECT_EQ((Rect{0, 0, 10, 10}.intersected({10, 10, 5, 5})), (Rect{10, 10, 0, 0}));
}

TEST(Rect, IntersectionIsAllZeroForRectanglesThatLieApart) {
    const Rect rect{100, 100, 10, 10};
    for (const Rect& other :
         {Rect{111, 100, 5, 5}, Rect{90, 100, 9, 5}, Rect{100, 111, 5, 5}, Rect{100, 90, 5, 9}}) {
        EXPECT_EQ(rect.intersected(other), Rect()) << other;
        EXPECT_EQ(other.intersected(rect), Rect()) << other;
    }
}

TEST(Rect, IntersectionIsAllZeroWhenASideIsZero) {
    const Rect rect{100, 100, 10, 10};
    for (const Rect& other : {Rect{102, 102, 0, 5}, Rect{102, 102, 5, 0}, Rect{102, 102, 0, 0}}) {
        EXPECT_EQ(rect.intersected(other), Rect()) << other;
        EXPECT_EQ(other.intersected(rect), Rect()) << other;
    }
}

// The rule in wide numbers. Along one axis at a time, so that it is another program than the library's.
struct Span {
    std::int64_t start;
    std::int64_t length;
};

bool apart(Span a, Span b) {
    return a.start > b.start + b.length || a.start + a.length < b.start;
}

Span common(Span a, Span b) {
    const std::int64_t start = a.start > b.start ? a.start : b.start;
    const std::int64_t endA = a.start + a.length;
    const std::int64_t endB = b.start + b.length;
    return {start, (endA < endB ? endA : endB) - start};
}

Rect plainIntersection(const Rect& a, const Rect& b) {
    const Span ax{a.x, a.width}, ay{a.y, a.height}, bx{b.x, b.width}, by{b.y, b.height};
    if (ax.length * ay.length * bx.length * by.length == 0 || apart(ax, bx) || apart(ay, by)) {
        return {0, 0, 0, 0};
    }
    const Span x = common(ax, bx);
    const Span y = common(ay, by);
    return {std::int32_t(x.start), std::int32_t(y.start), std::int32_t(x.length), std::int32_t(y.length)};
}

TEST(Rect, IntersectionFollowsItsRuleOnAnyRectangles) {
    std::mt19937 random(2);
    std::uniform_int_distribution<std::int32_t> place(-12, 12);
    int zero = 0;
    int touching = 0;
    int common = 0;
    for (int i = 0; i < 20000; ++i) {
        const auto side = [&] { return place(random) + (i % 8 == 0 ? 9 : 12); };
        const Rect a{place(random), place(random), side(), side()};
        const Rect b{place(random), place(random), side(), side()};
        const Rect expected = plainIntersection(a, b);
        ASSERT_EQ(a.intersected(b), expected) << a << " and " << b;
        ++(expected == Rect() ? zero : expected.width == 0 || expected.height == 0 ? touching : common);
    }
    // Each kind of result occurred.
    EXPECT_GT(zero, 1000);
    EXPECT_GT(touching, 100);
    EXPECT_GT(common, 1000);
}

TEST(Rect, EdgesBeyond32BitsDoNotWrap) {
    EXPECT_EQ((Rect{kMax - 4, 0, 10, 10}.intersected({kMax - 2, 0, 10, 10})), (Rect{kMax - 2, 0, 8, 10}));
    EXPECT_EQ((Rect{0, 0, 10, 10}.intersected({5, 5, kMax, kMax})), (Rect{5, 5, 5, 5}));
    EXPECT_EQ((Rect{kMax, kMax, kMax, kMax}.intersected({kMin, kMin, 5, 5})), Rect());
    EXPECT_TRUE((Rect{kMax - 4, 0, 10, 10}.contains({kMax, 0})));
    EXPECT_TRUE((Rect{0, kMax - 4, 10, 10}.contains({0, kMax})));
}

struct CenterRow {
    Rect rect;
    Rect outer;
    Rect result;
};

TEST(Rect, CenteredInIsRelativeToTheOuterRectangle) {
    const CenterRow rows[] = {
        {{0, 0, 10, 20}, {0, 0, 100, 100}, {45, 40, 10, 20}},
        // Neither origin matters.
        {{3, 4, 10, 20}, {1000, 2000, 100, 100}, {45, 40, 10, 20}},
        // Each half is truncated separately: 101 / 2 - 11 / 2 and 100 / 2 - 11 / 2.
        {{0, 0, 11, 11}, {0, 0, 101, 100}, {45, 45, 11, 11}},
        {{0, 0, 11, 10}, {0, 0, 10, 11}, {0, 0, 11, 10}},
        // Larger than the outer one.
        {{0, 0, 100, 50}, {0, 0, 20, 20}, {-40, -15, 100, 50}},
        // Truncation towards zero.
        {{0, 0, -3, -5}, {0, 0, -1, 1}, {1, 2, -3, -5}},
        {{0, 0, kMin, kMax}, {0, 0, kMax, kMin}, {kMax, kMin + 1, kMin, kMax}},
    };
    for (const CenterRow& row : rows) {
        EXPECT_EQ(row.rect.centeredIn(row.outer), row.result) << row.rect << " in " << row.outer;
    }
}

TEST(Rect, ContainsItsLeftAndTopEdgesOnly) {
    const Rect rect{5, 5, 10, 10};
    for (const Point& inside : {Point{5, 5}, Point{14, 5}, Point{5, 14}, Point{14, 14}, Point{10, 10}}) {
        EXPECT_TRUE(rect.contains(inside)) << inside;
    }
    for (const Point& outside : {Point{15, 5}, Point{5, 15}, Point{15, 15}, Point{4, 5}, Point{5, 4},
                                 Point{10, 16}, Point{16, 10}, Point{kMin, 10}, Point{10, kMax}}) {
        EXPECT_FALSE(rect.contains(outside)) << outside;
    }
}

TEST(Rect, AnEmptyRectangleContainsNothing) {
    EXPECT_FALSE((Rect{5, 5, 0, 10}.contains({5, 5})));
    EXPECT_FALSE((Rect{5, 5, 10, 0}.contains({5, 5})));
    EXPECT_FALSE((Rect{5, 5, -10, -10}.contains({0, 0})));
}

}  // namespace
}  // namespace vidorra
