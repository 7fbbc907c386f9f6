#include "objstream/json.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>

#include "support/media.h"
#include "support/process.h"
#include "support/throw_text.h"

namespace objstream {
namespace {

using vidorra::test::temporaryFile;

template <class S>
void expectReads(const std::string& text, const S& held) {
    SCOPED_TRACE(text);
    const object value = parseJson(text);
    ASSERT_NE(value.scalar(), nullptr);
    ASSERT_TRUE(std::holds_alternative<S>(*value.scalar()));
    EXPECT_EQ(std::get<S>(*value.scalar()), held);
}

TEST(ParseJson, KeepsTheTypesOfScalars) {
    expectReads<std::string>("\"text\"", "text");
    expectReads<std::string>("\"1\"", "1");
    expectReads<bool>("true", true);
    expectReads<bool>("false", false);
    expectReads<int>("0", 0);
    expectReads<int>("-0", 0);
    expectReads<int>("2147483647", std::numeric_limits<int>::max());
    expectReads<int>("-2147483648", std::numeric_limits<int>::min());
    expectReads<long long>("2147483648", 2147483648LL);
    expectReads<long long>("-2147483649", -2147483649LL);
    expectReads<long long>("9223372036854775807", std::numeric_limits<long long>::max());
    expectReads<long long>("-9223372036854775808", std::numeric_limits<long long>::min());
    expectReads<double>("1.0", 1.0);
    expectReads<double>("1e2", 100.0);
    expectReads<double>("1E-2", 0.01);
    expectReads<double>("-0.0", 0.0);
    expectReads<double>("123456789012345678901234567890.0", 123456789012345678901234567890.0);
}

TEST(ParseJson, ReadsNull) {
    EXPECT_TRUE(parseJson("null").empty());
    const object map = parseJson(R"({"filter": null})");
    EXPECT_TRUE(map.hasKey("filter"));
    EXPECT_TRUE(map["filter"].empty());
}

TEST(ParseJson, ReadsMapsAndArraysInsideEachOther) {
    const object value =
        parseJson(R"( { "a" : [ 1, [], {"b": {"c": 0.5}}, "x" ], "d": {}, "e": [[2],[3]] } )");
    object expected;
    expected["a"].append(1);
    expected["a"].append(object::array());
    object inner;
    inner["b"]["c"] = 0.5;
    expected["a"].append(inner);
    expected["a"].append("x");
    expected["d"] = object::map();
    object two;
    two.append(2);
    object three;
    three.append(3);
    expected["e"].append(two);
    expected["e"].append(three);
    EXPECT_EQ(value, expected);
}

TEST(ParseJson, ReadsEscapesAndKeepsZeroBytes) {
    expectReads<std::string>(R"("\"\\\/\b\f\n\r\t\u0041\u00e9\ud83d\ude00")",
                             "\"\\/\b\f\n\r\tA\xc3\xa9\xf0\x9f\x98\x80");
    expectReads<std::string>(R"("a\u0000b")", std::string("a\0b", 3));
}

TEST(ParseJson, SkipsAByteOrderMark) {
    expectReads<int>("\xef\xbb\xbf 5", 5);
}

struct Refusal {
    const char* text;
    std::size_t line;
    std::size_t column;
    // How the reason begins.
    const char* reason;
};

constexpr Refusal kRefusals[] = {
    {" ", 1, 1, "syntax error while parsing value - unexpected end of input"},
    {"{\"a\": 1,\n \"b\":}", 2, 6, "syntax error while parsing value - unexpected '}'"},
    {"[1,\n2,\n\n  3 4]", 4, 5, "syntax error while parsing array - unexpected number literal"},
    {"[1,", 1, 3, "syntax error while parsing value - unexpected end of input"},
    // The end of a line is its last character.
    {"[1,\n", 1, 4, "syntax error while parsing value - unexpected end of input"},
    {"[1]\n]", 2, 1, "syntax error while parsing value - unexpected ']'"},
    {"// 1\n1", 1, 1, "syntax error while parsing value - invalid literal"},
    {"\"a\nb\"", 1, 3, "syntax error while parsing value - invalid string: control character U+000A (LF)"},
    {"[\"\xc3\xa9\", \"\xff\"]", 1, 8,
     "syntax error while parsing value - invalid string: ill-formed UTF-8 byte"},
    {"\"\xed\xa0\x80\"", 1, 2, "syntax error while parsing value - invalid string: ill-formed UTF-8 byte"},
    {"\"\\ud800\"", 1, 8, "syntax error while parsing value - invalid string: surrogate"},
    {"{\"a\": 1, \"b\": {\"a\": 2},\n \"a\": 3}", 2, 4, "the key \"a\" is there twice"},
    {"{\"\xc3\xa9\":1,\"\xc3\xa9\":2}", 1, 10, "the key \"\xc3\xa9\" is there twice"},
    {"9223372036854775808", 1, 19, "the integer 9223372036854775808 does not fit in 64 bits"},
    {"[-9223372036854775809 ]", 1, 21, "the integer -9223372036854775809 does not fit in 64 bits"},
    {"[\n18446744073709551616]", 2, 20, "the integer 18446744073709551616 does not fit in 64 bits"},
    {"[0, 1e400]", 1, 9, "number overflow parsing '1e400'"},
    {"NaN", 1, 1, "syntax error while parsing value - invalid literal"},
    {"01", 1, 2, "syntax error while parsing value - unexpected number literal"},
};

TEST(ParseJson, RefusesWithLineColumnAndReason) {
    for (const Refusal& row : kRefusals) {
        SCOPED_TRACE(row.text);
        try {
            (void)parseJson(row.text);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const JsonError& error) {
            EXPECT_EQ(error.line(), row.line);
            EXPECT_EQ(error.column(), row.column);
            std::ostringstream head;
            head << "line " << row.line << ", column " << row.column << ": " << row.reason;
            EXPECT_EQ(std::string(error.what()).substr(0, head.str().size()), head.str());
        }
    }
}

TEST(ParseJson, RefusesAnEmptyTextAtItsFirstColumn) {
    try {
        (void)parseJson("");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const JsonError& error) {
        EXPECT_EQ(error.line(), 1U);
        EXPECT_EQ(error.column(), 1U);
        // Later parsers have a reason of their own for it.
        EXPECT_THAT(
            error.what(),
            testing::AnyOf(testing::StartsWith("line 1, column 1: syntax error while parsing value - "
                                               "unexpected end of input"),
                           testing::StartsWith("line 1, column 1: attempting to parse an empty input")));
    }
}

TEST(ParseJson, ShortensWhatItQuotes) {
    std::string accents = "\"";
    for (int i = 0; i < 300; ++i) {
        accents += "\xc3\xa9";
    }
    std::string moved = accents;
    moved.insert(1, "x");
    for (const std::string& text :
         {"\"" + std::string(100000, 'x'), "[" + std::string(100000, '1') + "]", accents, moved}) {
        try {
            (void)parseJson(text);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const JsonError& error) {
            EXPECT_LT(std::string(error.what()).size(), 400U);
            // The text of an error is UTF-8 itself.
            EXPECT_NO_THROW((void)toJson(object(error.what())));
        }
    }
}

TEST(ParseJson, QuotesNoBytesThatAreNotUtf8) {
    for (const char* text : {"[\"ab\xff\"]", "\x8c", "tr\xff", "[1\xc3]", "{\"a\xc3\":1}"}) {
        try {
            (void)parseJson(text);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const JsonError& error) {
            EXPECT_NO_THROW((void)toJson(object(error.what()))) << error.what();
        }
    }
}

std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

TEST(ParseJson, ReadsAsDeepAsItPromises) {
    const object deep = parseJson(nested(kMaxJsonDepth));
    EXPECT_EQ(toJson(deep), nested(kMaxJsonDepth));
    EXPECT_EQ(parseJson("[[],[[]],[]]").size(), 3U) << "neighbours add no depth";
}

TEST(ParseJson, RefusesADeeperText) {
    const std::string reason = "line 1, column 257: maps and arrays are nested deeper than 256 levels";
    EXPECT_THROW_TEXT(JsonError, reason, (void)parseJson(nested(kMaxJsonDepth + 1)));
    EXPECT_THROW_TEXT(JsonError, reason, (void)parseJson(std::string(10000000, '[')));
    std::string maps;
    for (int i = 0; i < 100000; ++i) {
        maps += "{\"a\":";
    }
    EXPECT_THROW_TEXT(JsonError, "line 1, column 1281: maps and arrays are nested deeper than 256 levels",
                      (void)parseJson(maps));
}

TEST(ReadJsonFile, ReadsTheWholeFile) {
    std::string text = "[";
    for (int i = 0; i < 30000; ++i) {
        text += std::to_string(i) + ",\n";
    }
    const object value = readJsonFile(temporaryFile("numbers.json", text + "0]"));
    ASSERT_EQ(value.size(), 30001U);
    EXPECT_EQ(value.at(29999), object(29999));
}

TEST(ReadJsonFile, NamesTheFileInErrors) {
    const std::filesystem::path path = temporaryFile("broken.json", "{\"a\": 1,\n\"a\": 2}");
    EXPECT_THROW_TEXT(JsonError, path.string() + ": line 2, column 3: the key \"a\" is there twice",
                      (void)readJsonFile(path));
}

TEST(ReadJsonFile, ThrowsForAFileThatCannotBeRead) {
    EXPECT_THROW_TEXT(std::runtime_error, "Could not read /nowhere/encoder.json: No such file or directory",
                      (void)readJsonFile("/nowhere/encoder.json"));
    const std::filesystem::path folder = vidorra::test::temporaryFolder();
    EXPECT_THROW_TEXT(std::runtime_error, "Could not read " + folder.string() + ": Is a directory",
                      (void)readJsonFile(folder));
}

TEST(ToJson, WritesEveryKind) {
    object value;
    value["nothing"];
    value["text"] = "a\"\\\n\x01\xc3\xa9";
    value["int"] = -7;
    value["long"] = 5000000000LL;
    value["yes"] = true;
    value["no"] = false;
    value["map"] = object::map();
    value["array"].append(1);
    value["array"].append(object::array());
    EXPECT_EQ(toJson(value),
              "{\"array\":[1,[]],\"int\":-7,\"long\":5000000000,\"map\":{},\"no\":false,\"nothing\":null,"
              "\"text\":\"a\\\"\\\\\\n\\u0001\xc3\xa9\",\"yes\":true}");
}

TEST(ToJson, WritesDoublesSoThatTheyReadAsDoubles) {
    for (const double number : {0.0, -0.0, 1.0, -3.0, 0.1, 1e15, 1e16, 1e22, 1e300, -1e-300, 123456789.0,
                                std::numeric_limits<double>::max(), std::numeric_limits<double>::denorm_min(),
                                9007199254740993.0, 1.0 / 3.0}) {
        SCOPED_TRACE(number);
        const object again = parseJson(toJson(object(number)));
        ASSERT_NE(again.scalar(), nullptr);
        ASSERT_TRUE(std::holds_alternative<double>(*again.scalar()));
        EXPECT_EQ(std::get<double>(*again.scalar()), number);
        EXPECT_EQ(std::signbit(std::get<double>(*again.scalar())), std::signbit(number));
    }
}

TEST(ToJson, IndentsAPrettyText) {
    const object value = parseJson(R"({"a":[1,{"b":2}],"c":{},"d":[],"e":{"f":null}})");
    EXPECT_EQ(toJson(value, JsonLayout::Pretty),
              "{\n"
              "    \"a\": [\n"
              "        1,\n"
              "        {\n"
              "            \"b\": 2\n"
              "        }\n"
              "    ],\n"
              "    \"c\": {},\n"
              "    \"d\": [],\n"
              "    \"e\": {\n"
              "        \"f\": null\n"
              "    }\n"
              "}\n");
    EXPECT_EQ(toJson(object(1), JsonLayout::Pretty), "1\n");
}

TEST(ToJson, RefusesWhatJsonDoesNotHave) {
    EXPECT_THROW_TEXT(std::invalid_argument, "toJson: JSON does not have the number nan",
                      (void)toJson(object(std::nan(""))));
    object config;
    config["options"]["list"].append(1);
    config["options"]["list"].append(std::numeric_limits<double>::infinity());
    EXPECT_THROW_TEXT(std::invalid_argument,
                      "toJson: JSON does not have the number inf at \"options\".\"list\".\"1\"",
                      (void)toJson(config));
    object negative;
    negative["x"] = -std::numeric_limits<double>::infinity();
    EXPECT_THROW_TEXT(std::invalid_argument, "toJson: JSON does not have the number -inf at \"x\"",
                      (void)toJson(negative));
    object text;
    text["x"] = "\xff";
    EXPECT_THROW_TEXT(std::invalid_argument, "toJson: JSON does not have a string that is not UTF-8 at \"x\"",
                      (void)toJson(text));
    object key;
    key["\xff"] = 1;
    EXPECT_THROW_TEXT(std::invalid_argument,
                      "toJson: JSON does not have a string that is not UTF-8 at \"\xef\xbf\xbd\"",
                      (void)toJson(key));
}

TEST(ToJson, RefusesADeeperObjectThanItReads) {
    object deep;
    for (std::size_t i = 0; i < kMaxJsonDepth; ++i) {
        object outer;
        outer.append(std::move(deep));
        deep = std::move(outer);
    }
    EXPECT_NO_THROW((void)toJson(deep));
    object deeper;
    deeper["x"] = deep;
    EXPECT_THROW_TEXT(std::invalid_argument, "toJson: maps and arrays are nested deeper than 256 levels",
                      (void)toJson(deeper));
}

object randomObject(std::mt19937& random, int depth) {
    const auto upTo = [&random](int last) { return std::uniform_int_distribution<>(0, last)(random); };
    const auto text = [&upTo] {
        const char* const pieces[] = {"a", "\"", "\\", "\n", "\xc3\xa9", "\xf0\x9f\x98\x80", " ", "0"};
        std::string result;
        for (int i = upTo(4); i > 0; --i) {
            result += pieces[upTo(7)];
        }
        return result;
    };
    switch (upTo(depth > 0 ? 7 : 5)) {
    case 0:
        return {};
    case 1:
        return text();
    case 2:
        return upTo(2000) - 1000;
    case 3:
        return (std::int64_t{1} << 40) * (upTo(2000) + 1);
    case 4:
        return upTo(1) == 1;
    case 5:
        return std::ldexp(std::uniform_real_distribution<>(-1, 1)(random), upTo(600) - 300);
    case 6: {
        object map = object::map();
        for (int i = upTo(4); i > 0; --i) {
            map[text()] = randomObject(random, depth - 1);
        }
        return map;
    }
    default: {
        object array = object::array();
        for (int i = upTo(4); i > 0; --i) {
            array.append(randomObject(random, depth - 1));
        }
        return array;
    }
    }
}

TEST(ToJson, IsReadBackAsWhatItWas) {
    std::mt19937 random(1);
    for (int round = 0; round < 2000; ++round) {
        const object value = randomObject(random, 4);
        const std::string compact = toJson(value);
        ASSERT_EQ(parseJson(compact), value) << compact;
        ASSERT_EQ(parseJson(toJson(value, JsonLayout::Pretty)), value) << compact;
        ASSERT_EQ(compact.find('\n'), std::string::npos) << compact;
    }
}

TEST(ToJson, IsWhatPythonReads) {
    std::mt19937 random(2);
    std::string compact;
    std::string pretty;
    for (int round = 0; round < 300; ++round) {
        object holder;
        holder["x"] = randomObject(random, 3);
        compact += toJson(holder) + "\n";
        pretty.append(round == 0 ? "[" : ",").append(toJson(holder, JsonLayout::Pretty));
    }
    // Python writes keys in another order and doubles in another form, so it compares the values that it has
    // read.
    const std::string verdict = vidorra::test::run(
        {"python3", "-c",
         "import json, sys\n"
         "lines = [json.loads(l) for l in open(sys.argv[1], encoding='utf-8', newline='\\n')]\n"
         "pretty = json.load(open(sys.argv[2], encoding='utf-8'))\n"
         "assert lines == pretty and len(lines) == 300\n"
         "print(json.dumps(lines))",
         temporaryFile("compact.json", compact).string(),
         temporaryFile("pretty.json", pretty + "]").string()});
    // And what Python writes is read here.
    const object read = parseJson(verdict);
    ASSERT_EQ(read.size(), 300U);
    std::istringstream lines(compact);
    std::string line;
    for (std::size_t i = 0; std::getline(lines, line); ++i) {
        EXPECT_EQ(toJson(read.at(i)), line);
    }
}

}  // namespace
}  // namespace objstream
