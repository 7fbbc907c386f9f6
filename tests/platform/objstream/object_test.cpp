#include "objstream/object.h"

#include <limits>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/throw_text.h"

namespace objstream {
namespace {

static_assert(std::is_nothrow_move_constructible_v<object>);
static_assert(std::is_nothrow_move_assignable_v<object>);
static_assert(std::is_copy_constructible_v<object>);
static_assert(std::is_convertible_v<int, object>);
static_assert(std::is_convertible_v<std::string, object>);

std::vector<std::string> keysOf(const object& value) {
    std::vector<std::string> keys;
    value.for_each_kv([&keys](const std::string& key, const object&) {
        keys.push_back(key);
        return true;
    });
    return keys;
}

TEST(Object, IsNothingAtFirst) {
    const object nothing;
    EXPECT_EQ(nothing.kind(), object::Kind::Nothing);
    EXPECT_TRUE(nothing.empty());
    EXPECT_EQ(nothing.scalar(), nullptr);
    EXPECT_EQ(nothing.size(), 0U);
}

template <class S>
void expectHolds(const object& value, const S& held) {
    ASSERT_NE(value.scalar(), nullptr);
    ASSERT_TRUE(std::holds_alternative<S>(*value.scalar()));
    EXPECT_EQ(std::get<S>(*value.scalar()), held);
    EXPECT_EQ(value.kind(), object::Kind::Scalar);
    EXPECT_FALSE(value.empty());
}

TEST(Object, HoldsAScalarInTheTypeThatItWasGivenIn) {
    expectHolds<std::string>(object(std::string("text")), "text");
    expectHolds<std::string>(object("text"), "text");
    expectHolds<int>(object(-7), -7);
    expectHolds<bool>(object(true), true);
    expectHolds<bool>(object(false), false);
    expectHolds<double>(object(0.5), 0.5);
    expectHolds<double>(object(0.5F), 0.5);
    expectHolds<long long>(object(7LL), 7);
    expectHolds<long long>(object(7L), 7);
}

TEST(Object, WithoutCharactersIsNotEmpty) {
    EXPECT_FALSE(object("").empty());
    EXPECT_FALSE(object::map().empty());
    EXPECT_FALSE(object::array().empty());
    EXPECT_FALSE(object(0).empty());
}

TEST(Object, MakesTheEntryOfAKeyThatIsMissing) {
    object config;
    config["width"] = 640;
    EXPECT_EQ(config.kind(), object::Kind::Map);
    EXPECT_TRUE(config.hasKey("width"));
    EXPECT_FALSE(config.hasKey("height"));
    EXPECT_EQ(config["width"].getValue<int>(), 640);
    EXPECT_TRUE(config["height"].empty());
    EXPECT_TRUE(config.hasKey("height")) << "asking of what can be written makes the entry";
    EXPECT_EQ(config.size(), 2U);
}

TEST(Object, NestsMaps) {
    object config;
    config["options"]["b"] = 2000000;
    config["options"]["qmax"] = 2;
    EXPECT_EQ(keysOf(config), std::vector<std::string>{"options"});
    EXPECT_EQ(keysOf(config["options"]), (std::vector<std::string>{"b", "qmax"}));
}

TEST(Object, GivesNothingForAMissingKeyThatIsOnlyRead) {
    object config;
    config["width"] = 640;
    const object& constant = config;
    EXPECT_TRUE(constant["height"].empty());
    EXPECT_TRUE(constant["height"]["deeper"].empty());
    EXPECT_FALSE(config.hasKey("height"));
    EXPECT_EQ(config.size(), 1U);
}

TEST(Object, OfAnotherKindHasNoKeysToRead) {
    object array;
    array.append(1);
    for (const object& other : {object(), object("x"), object(1), array}) {
        EXPECT_FALSE(other.hasKey("x"));
        EXPECT_FALSE(other.hasKey(""));
        EXPECT_TRUE(other["x"].empty());
        EXPECT_TRUE(keysOf(other).empty());
    }
}

TEST(Object, RefusesToGiveAKeyToAScalarOrAnArray) {
    object scalar(1);
    object array = object::array();
    const std::string text = "objstream::object: \"b\" is asked of an object that is no map";
    EXPECT_THROW_TEXT(std::logic_error, text, scalar["b"]);
    EXPECT_THROW_TEXT(std::logic_error, text, array["b"]);
    EXPECT_EQ(scalar, object(1));
    EXPECT_EQ(array, object::array());
}

TEST(Object, KeepsItsEntriesWhereTheyAre) {
    object config;
    object& first = config["first"];
    for (int i = 0; i < 100; ++i) {
        config[std::to_string(i)] = i;
    }
    EXPECT_EQ(&first, &config["first"]);
    config["new"] = config["5"];
    EXPECT_EQ(config["new"], object(5));
}

TEST(Object, VisitsEveryPairInTheOrderOfTheKeys) {
    object config;
    config["b"] = 2;
    config["a"] = 1;
    config["B"] = 3;
    config[""] = 0;
    std::string seen;
    config.for_each_kv([&seen](const std::string& key, const object& value) {
        seen += key + "=" + value.getValue<std::string>() + ";";
        return true;
    });
    EXPECT_EQ(seen, "=0;B=3;a=1;b=2;");
}

TEST(Object, EndsAVisitThatReturnsFalse) {
    object config;
    config["a"] = 1;
    config["b"] = 2;
    config["c"] = 3;
    int calls = 0;
    config.for_each_kv([&calls](const std::string& key, const object&) {
        ++calls;
        return key != "b";
    });
    EXPECT_EQ(calls, 2);
}

TEST(Object, AppendsToAnArray) {
    object list;
    list.append(1);
    list.append("two");
    list.append(object());
    EXPECT_EQ(list.kind(), object::Kind::Array);
    EXPECT_EQ(list.size(), 3U);
    EXPECT_EQ(list.at(0), object(1));
    EXPECT_EQ(list.at(1), object("two"));
    EXPECT_TRUE(list.at(2).empty());
}

TEST(Object, RefusesToAppendToAScalarOrAMap) {
    object scalar(1);
    object map = object::map();
    const std::string text = "objstream::object: something is appended to an object that is no array";
    EXPECT_THROW_TEXT(std::logic_error, text, scalar.append(1));
    EXPECT_THROW_TEXT(std::logic_error, text, map.append(1));
}

TEST(Object, HasNoElementBeyondItsEnd) {
    object list;
    list.append(1);
    EXPECT_THROW_TEXT(std::out_of_range, "objstream::object: there is no element 1", (void)list.at(1));
    EXPECT_THROW_TEXT(std::out_of_range, "objstream::object: there is no element 0", (void)object().at(0));
    EXPECT_THROW_TEXT(std::out_of_range, "objstream::object: there is no element 0",
                      (void)object::map().at(0));
}

object sample() {
    object config;
    config["codec"] = "mpeg4";
    config["options"]["b"] = 1;
    config["list"].append(1);
    config["list"].append(object());
    return config;
}

TEST(Object, CopiesDeeply) {
    const object original = sample();
    object copy = original;
    object assigned;
    assigned["old"] = 1;
    assigned = original;
    EXPECT_EQ(copy, original);
    EXPECT_EQ(assigned, original);
    copy["options"]["b"] = 2;
    assigned["list"].append(3);
    EXPECT_EQ(original, sample());
    EXPECT_FALSE(assigned.hasKey("old"));
}

TEST(Object, TakesAPartOfItselfAsItsValue) {
    object config = sample();
    config = std::as_const(config)["options"];
    EXPECT_EQ(keysOf(config), std::vector<std::string>{"b"});

    object moved = sample();
    moved = std::move(moved["options"]);
    EXPECT_EQ(keysOf(moved), std::vector<std::string>{"b"});

    object& self = moved;
    moved = self;
    EXPECT_EQ(keysOf(moved), std::vector<std::string>{"b"});
}

TEST(Object, PutsItselfIntoItself) {
    object config = sample();
    config["copy"] = config;
    EXPECT_EQ(config["copy"]["options"], sample()["options"]);
    EXPECT_TRUE(config["copy"]["copy"].empty());
}

TEST(Object, LeavesNothingBehindWhenItMoves) {
    object from = sample();
    const object to = std::move(from);
    EXPECT_TRUE(from.empty());  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(to, sample());
    object assigned;
    object source = sample();
    assigned = std::move(source);
    EXPECT_TRUE(source.empty());  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(assigned, sample());
}

TEST(Object, IsEqualByKindTypeAndContent) {
    EXPECT_EQ(sample(), sample());
    EXPECT_EQ(object(), object());
    object other = sample();
    other["options"]["b"] = 1LL;
    EXPECT_NE(other, sample()) << "long long is not int";
    EXPECT_NE(object(), object(""));
    EXPECT_NE(object::map(), object::array());
    EXPECT_NE(object::map(), object());
    EXPECT_NE(object(1), object(true));
    object shorter = sample();
    shorter["list"] = object::array();
    EXPECT_NE(shorter, sample());
}

}  // namespace
}  // namespace objstream
