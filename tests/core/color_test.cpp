#include "vidorra/core/color.h"

#include <array>
#include <cstddef>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <type_traits>

#include "support/throw_text.h"

extern "C" {
#include <libavutil/parseutils.h>
}

namespace vidorra {
namespace {

static_assert(std::is_trivially_copyable_v<Color>);
static_assert(sizeof(Color) == 4);
static_assert(offsetof(Color, red) == 0 && offsetof(Color, green) == 1);
static_assert(offsetof(Color, blue) == 2 && offsetof(Color, alpha) == 3);
static_assert(std::is_same_v<decltype(Color::red), std::uint8_t>);
static_assert(!std::is_convertible_v<std::string, Color>);

std::array<int, 4> bytes(const Color& color) {
    return {color.red, color.green, color.blue, color.alpha};
}

TEST(Color, IsOpaqueBlackByDefault) {
    EXPECT_EQ(bytes(Color()), (std::array<int, 4>{0, 0, 0, 255}));
}

TEST(Color, IsOpaqueWithoutAnAlpha) {
    EXPECT_EQ(bytes(Color(1, 2, 3)), (std::array<int, 4>{1, 2, 3, 255}));
    EXPECT_EQ(bytes(Color(1, 2, 3, 4)), (std::array<int, 4>{1, 2, 3, 4}));
}

TEST(Color, EqualityLooksAtAllFourBytes) {
    const Color color(1, 2, 3, 4);
    EXPECT_TRUE(color == Color(1, 2, 3, 4));
    EXPECT_FALSE(color != Color(1, 2, 3, 4));
    for (const Color& other : {Color(9, 2, 3, 4), Color(1, 9, 3, 4), Color(1, 2, 9, 4), Color(1, 2, 3, 9)}) {
        EXPECT_TRUE(color != other);
        EXPECT_FALSE(color == other);
    }
}

TEST(Color, IsReadFromATextThatFFmpegKnows) {
    EXPECT_EQ(bytes(Color(std::string("red"))), (std::array<int, 4>{255, 0, 0, 255}));
    EXPECT_EQ(bytes(Color(std::string("#ff8001"))), (std::array<int, 4>{255, 128, 1, 255}));
    EXPECT_EQ(bytes(Color(std::string("0x01020304"))), (std::array<int, 4>{1, 2, 3, 4}));
    EXPECT_EQ(bytes(Color(std::string("0000ff@0x10"))), (std::array<int, 4>{0, 0, 255, 16}));
    EXPECT_EQ(bytes(Color(std::string("Blue@0.0"))), (std::array<int, 4>{0, 0, 255, 0}));
}

TEST(Color, IsReadAsFFmpegReadsIt) {
    std::vector<std::string> texts = {"#abc123", "white@0.5", "0xff8000@0.5", "lime@0x7f", "00000000"};
    const std::uint8_t* ignored = nullptr;
    for (int i = 0; const char* name = av_get_known_color_name(i, &ignored); ++i) {
        texts.emplace_back(name);
    }
    EXPECT_GT(texts.size(), 100U);
    for (const std::string& text : texts) {
        SCOPED_TRACE(text);
        std::array<std::uint8_t, 4> expected{};
        ASSERT_GE(av_parse_color(expected.data(), text.c_str(), -1, nullptr), 0);
        EXPECT_EQ(bytes(Color(text)),
                  (std::array<int, 4>{expected[0], expected[1], expected[2], expected[3]}));
    }
}

TEST(Color, RefusesATextThatNamesNoColour) {
    EXPECT_THROW_TEXT(std::runtime_error, "Can not parse color value nocolour",
                      Color(std::string("nocolour")));
    EXPECT_THROW_TEXT(std::runtime_error, "Can not parse color value #12", Color(std::string("#12")));
    EXPECT_THROW_TEXT(std::runtime_error, "Can not parse color value red@2", Color(std::string("red@2")));
    EXPECT_THROW_TEXT(std::runtime_error, "Can not parse color value ", Color(std::string()));
}

TEST(ColorInput, ReadsOneWord) {
    std::istringstream stream("  red \n 0x01020304 rest");
    Color first;
    Color second;
    std::string rest;
    stream >> first >> second >> rest;
    EXPECT_EQ(bytes(first), (std::array<int, 4>{255, 0, 0, 255}));
    EXPECT_EQ(bytes(second), (std::array<int, 4>{1, 2, 3, 4}));
    EXPECT_EQ(rest, "rest");
}

TEST(ColorInput, AnExhaustedStreamThrows) {
    for (const char* text : {"", "   "}) {
        std::istringstream stream(text);
        Color color(1, 2, 3, 4);
        EXPECT_THROW_TEXT(std::runtime_error, "Can not parse color value ", stream >> color);
        EXPECT_EQ(bytes(color), (std::array<int, 4>{1, 2, 3, 4}));
    }
}

TEST(ColorInput, AFailedStreamThrowsAsWell) {
    std::istringstream stream("red");
    stream.setstate(std::ios::failbit);
    Color color(1, 2, 3, 4);
    EXPECT_THROW_TEXT(std::runtime_error, "Can not parse color value ", stream >> color);
}

TEST(ColorInput, ABadStreamLeavesTheColourAlone) {
    std::istringstream stream("red");
    stream.setstate(std::ios::badbit);
    Color color(1, 2, 3, 4);
    EXPECT_NO_THROW(stream >> color);
    EXPECT_EQ(bytes(color), (std::array<int, 4>{1, 2, 3, 4}));
}

TEST(ColorInput, AnUnknownWordThrowsAndKeepsTheTarget) {
    std::istringstream stream("nocolour red");
    Color color(1, 2, 3, 4);
    EXPECT_THROW_TEXT(std::runtime_error, "Can not parse color value nocolour", stream >> color);
    EXPECT_EQ(bytes(color), (std::array<int, 4>{1, 2, 3, 4}));
}

TEST(ColorOutput, IsAHashAZeroAndFourRawBytes) {
    std::ostringstream stream;
    stream << Color('A', 'B', 'C', 'D') << Color(0, 1, 200, 255);
    EXPECT_EQ(stream.str(), std::string("#0ABCD#0\x00\x01\xc8\xff", 12));
}

TEST(ColorOutput, RestoresTheFlagsAndLeavesTheFillZero) {
    std::ostringstream stream;
    stream << std::showbase << std::oct << std::setfill('*');
    const std::ios_base::fmtflags flags = stream.flags();
    stream << Color('A', 'B', 'C', 'D');
    EXPECT_EQ(stream.flags(), flags);
    EXPECT_EQ(stream.fill(), '0');
    EXPECT_EQ(stream.width(), 0);
    stream.str("");
    stream << std::noshowbase << std::setw(4) << 8;
    EXPECT_EQ(stream.str(), "0010");
}

TEST(ColorOutput, DoesNotReadBack) {
    std::stringstream stream;
    stream << Color('A', 'B', 'C', 'D');
    Color color;
    EXPECT_THROW(stream >> color, std::runtime_error);
}

}  // namespace
}  // namespace vidorra
