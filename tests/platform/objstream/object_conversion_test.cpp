#include <boost/lexical_cast.hpp>

#include <cxxabi.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>

#include "objstream/object.h"
#include "support/throw_text.h"
#include "vidorra/core/bad_cast.h"
#include "vidorra/core/enum_text.h"

namespace objstream {
namespace {

// A caller's type; the library knows only its extraction operator.
struct Ratio {
    int num = 0;
    int den = 1;
    friend bool operator==(const Ratio& a, const Ratio& b) { return a.num == b.num && a.den == b.den; }
};

std::istream& operator>>(std::istream& stream, Ratio& ratio) {
    char colon = 0;
    stream >> ratio.num >> colon >> ratio.den;
    if (colon != ':') {
        stream.setstate(std::ios::failbit);
    }
    return stream;
}

template <class T>
std::string readable() {
    const std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(typeid(T).name(), nullptr, nullptr, nullptr), std::free);
    return name.get();
}

template <class T, class S>
T castByBoost(const S& held) {
    if constexpr (std::is_unsigned_v<T> && std::is_same_v<S, long long>) {
        // Boost itself overflows here, and does not on the text.
        if (held == std::numeric_limits<long long>::min()) {
            return boost::lexical_cast<T>(std::to_string(held));
        }
    }
    return boost::lexical_cast<T>(held);
}

// Boost's own conversion of a value, and that of getValue().
template <class T, class S>
void compareWithBoost(const S& held, const std::string& shown) {
    const object value(held);
    SCOPED_TRACE(shown + " as " + readable<S>() + " to " + readable<T>());
    try {
        const T expected = castByBoost<T>(held);
        if constexpr (std::is_floating_point_v<T>) {
            if (std::isnan(expected)) {
                EXPECT_TRUE(std::isnan(value.getValue<T>()));
                return;
            }
        }
        EXPECT_TRUE(value.getValue<T>() == expected);
        EXPECT_TRUE(value.getValue<T>(T()) == expected) << "the fallback is for what is no scalar";
    } catch (const boost::bad_lexical_cast&) {
        const std::string text = "Failed to convert object with value " + shown + " from type " +
                                 readable<S>() + " to type " + readable<T>();
        EXPECT_THROW_TEXT(bad_objstream_cast<S>, text, (void)value.getValue<T>());
        EXPECT_THROW_TEXT(bad_objstream_cast<S>, text, (void)value.getValue<T>(T()));
    }
}

template <class S>
void compareAllWithBoost(const S& held, const std::string& shown) {
    compareWithBoost<std::string>(held, shown);
    compareWithBoost<bool>(held, shown);
    compareWithBoost<char>(held, shown);
    compareWithBoost<signed char>(held, shown);
    compareWithBoost<unsigned char>(held, shown);
    compareWithBoost<short>(held, shown);
    compareWithBoost<unsigned short>(held, shown);
    compareWithBoost<int>(held, shown);
    compareWithBoost<unsigned>(held, shown);
    compareWithBoost<long>(held, shown);
    compareWithBoost<unsigned long>(held, shown);
    compareWithBoost<long long>(held, shown);
    compareWithBoost<unsigned long long>(held, shown);
    compareWithBoost<float>(held, shown);
    compareWithBoost<double>(held, shown);
    compareWithBoost<long double>(held, shown);
    compareWithBoost<Ratio>(held, shown);
}

TEST(ObjectConversion, OfStringsIsThatOfBoost) {
    for (const std::string text : {"",
                                   "0",
                                   "1",
                                   "2",
                                   "-1",
                                   "+5",
                                   "007",
                                   " 7",
                                   "7 ",
                                   "1.5",
                                   "1e3",
                                   "nan",
                                   "-inf",
                                   "x",
                                   "true",
                                   "127",
                                   "128",
                                   "255",
                                   "256",
                                   "-129",
                                   "2147483647",
                                   "2147483648",
                                   "-2147483648",
                                   "9223372036854775807",
                                   "9223372036854775808",
                                   "18446744073709551615",
                                   "18446744073709551616",
                                   "1e400",
                                   "16:9",
                                   "16:9 ",
                                   " 16:9",
                                   "16:",
                                   "16 : 9",
                                   "a b",
                                   "h\xc3\xa9"}) {
        compareAllWithBoost(text, text);
    }
    compareAllWithBoost(std::string(100, '9'), std::string(100, '9'));
}

TEST(ObjectConversion, OfIntegersIsThatOfBoost) {
    for (const int number : {0, 1, 2, 9, 10, -1, 127, 128, 255, 256, -32768, 65535, 65536,
                             std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        compareAllWithBoost(number, std::to_string(number));
        compareAllWithBoost(static_cast<long long>(number), std::to_string(number));
    }
    for (const long long number : {2147483648LL, -2147483649LL, std::numeric_limits<long long>::max(),
                                   std::numeric_limits<long long>::min()}) {
        compareAllWithBoost(number, std::to_string(number));
    }
}

TEST(ObjectConversion, OfBoolsIsThatOfBoost) {
    compareAllWithBoost(true, "true");
    compareAllWithBoost(false, "false");
}

TEST(ObjectConversion, OfDoublesIsThatOfBoost) {
    compareAllWithBoost(0.5, "0.5");
    compareAllWithBoost(-2.5, "-2.5");
    compareAllWithBoost(0.1, "0.1");
    compareAllWithBoost(1e300, "1e+300");
    compareAllWithBoost(1.25e-7, "1.25e-07");
}

TEST(ObjectConversion, GivesNumbersAsText) {
    EXPECT_EQ(object(640).getValue<std::string>(), "640");
    EXPECT_EQ(object(-5000000000LL).getValue<std::string>(), "-5000000000");
    EXPECT_EQ(object(true).getValue<std::string>(), "1");
    EXPECT_EQ(object(0.5).getValue<std::string>(), "0.5");
    EXPECT_EQ(object("a b").getValue<std::string>(), "a b");
    EXPECT_EQ(object("").getValue<std::string>("fallback"), "");
}

TEST(ObjectConversion, FailureNamesTheValueAndBothTypes) {
    EXPECT_THROW_TEXT(bad_objstream_cast<std::string>,
                      "Failed to convert object with value 2x from type std::__cxx11::basic_string<char, "
                      "std::char_traits<char>, std::allocator<char> > to type int",
                      (void)object("2x").getValue<int>());
    EXPECT_THROW_TEXT(bad_objstream_cast<double>,
                      "Failed to convert object with value 2.5 from type double to type int",
                      (void)object(2.5).getValue<int>(0));
    EXPECT_THROW_TEXT(bad_objstream_cast<long long>,
                      "Failed to convert object with value 5000000000 from type long long to type int",
                      (void)object(5000000000LL).getValue<int>());
    EXPECT_THROW((void)object("2x").getValue<int>(), std::bad_cast);
}

TEST(BadObjstreamCast, DropsALeadingAsteriskOfATypeName) {
    const bad_objstream_cast<int> error(3, "*i", "*d");
    EXPECT_STREQ(error.what(), "Failed to convert object with value 3 from type int to type double");
}

TEST(BadObjstreamCast, KeepsANameThatIsNoTypes) {
    const bad_objstream_cast<bool> error(true, "", "**");
    EXPECT_STREQ(error.what(), "Failed to convert object with value true from type  to type *");
}

TEST(ObjectConversion, OfWhatIsNoScalarIsABadCast) {
    object map;
    map["x"] = 1;
    object array;
    array.append(1);
    for (const object& value : {object(), map, array}) {
        try {
            (void)value.getValue<int>();
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::bad_cast& error) {
            EXPECT_EQ(typeid(error), typeid(std::bad_cast));
        }
        EXPECT_THROW((void)value.getValue<std::string>(), std::bad_cast);
        EXPECT_EQ(value.getValue<int>(7), 7);
        EXPECT_EQ(value.getValue<std::string>("fallback"), "fallback");
        EXPECT_EQ(value.getValue<AVCodecID>(AV_CODEC_ID_NONE), AV_CODEC_ID_NONE);
    }
}

TEST(ObjectConversion, ReadsEnumerationsOfFFmpegByTheirNames) {
    EXPECT_EQ(object("h264").getValue<AVCodecID>(), AV_CODEC_ID_H264);
    EXPECT_EQ(object("nv12").getValue<AVPixelFormat>(AV_PIX_FMT_NONE), AV_PIX_FMT_NV12);
}

TEST(ObjectConversion, ReadsTheTextOfANumberWhereAnEnumerationIsAsked) {
    EXPECT_THROW_TEXT(vidorra::BadCast, "Unknown codec id 27", (void)object(27).getValue<AVCodecID>());
    EXPECT_THROW_TEXT(vidorra::BadCast, "Unknown pixel format 23",
                      (void)object(23LL).getValue<AVPixelFormat>());
    EXPECT_THROW_TEXT(vidorra::BadCast, "Unknown pixel format 1",
                      (void)object(true).getValue<AVPixelFormat>());
}

TEST(ObjectConversion, OfAnEnumerationSkipsNoBlanksAndUsesTheWholeText) {
    EXPECT_THROW_TEXT(vidorra::BadCast, "Unknown codec id ", (void)object(" h264").getValue<AVCodecID>());
    EXPECT_THROW((void)object("h264 ").getValue<AVCodecID>(), bad_objstream_cast<std::string>);
    EXPECT_THROW_TEXT(vidorra::BadCast, "Unknown codec id ", (void)object("").getValue<AVCodecID>());
}

// Extracts by another cast, which may fail.
struct Nested {
    int value = 0;
};

std::istream& operator>>(std::istream& stream, Nested& nested) {
    std::string word;
    stream >> word;
    nested.value = boost::lexical_cast<int>(word);
    return stream;
}

TEST(ObjectConversion, NamesTheTypesOfACastThatFailedInsideOfAnother) {
    EXPECT_EQ(object("12").getValue<Nested>().value, 12);
    EXPECT_THROW_TEXT(bad_objstream_cast<double>,
                      "Failed to convert object with value 0.5 from type std::__cxx11::basic_string<char, "
                      "std::char_traits<char>, std::allocator<char> > to type int",
                      (void)object(0.5).getValue<Nested>());
}

}  // namespace
}  // namespace objstream
