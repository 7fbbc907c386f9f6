#include "vidorra/core/dictionary.h"

#include <type_traits>
#include <utility>

#include "support/allocation_limit.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavutil/dict.h>
}

namespace vidorra {
namespace {

static_assert(std::is_nothrow_move_constructible_v<Dictionary>);
static_assert(std::is_nothrow_move_assignable_v<Dictionary>);

Dictionary dictionaryOf(const std::string& key, const std::string& value) {
    Dictionary dictionary;
    EXPECT_GE(av_dict_set(dictionary.address(), key.c_str(), value.c_str(), 0), 0);
    return dictionary;
}

TEST(Dictionary, IsNullWhileItIsEmpty) {
    const Dictionary dictionary;
    EXPECT_EQ(dictionary.get(), nullptr);
}

TEST(Dictionary, OwnsWhatFFmpegFillsIn) {
    Dictionary dictionary;
    ASSERT_EQ(av_dict_set(dictionary.address(), "a", "1", 0), 0);
    EXPECT_EQ(*dictionary.address(), dictionary.get());
    EXPECT_EQ(av_dict_count(dictionary.get()), 1);
    EXPECT_EQ(dictionary.getValue("a"), "1");
}

TEST(Dictionary, AMissingKeyGivesNothing) {
    EXPECT_EQ(Dictionary().getValue("a"), std::nullopt);
    EXPECT_EQ(dictionaryOf("a", "1").getValue("b"), std::nullopt);
}

TEST(Dictionary, AnEmptyValueIsAValue) {
    EXPECT_EQ(dictionaryOf("a", "").getValue("a"), "");
}

TEST(Dictionary, KeysMatchCaseByCaseAndWhole) {
    const Dictionary dictionary = dictionaryOf("Title", "x");
    EXPECT_EQ(dictionary.getValue("Title"), "x");
    EXPECT_EQ(dictionary.getValue("title"), std::nullopt);
    EXPECT_EQ(dictionary.getValue("Tit"), std::nullopt);
    EXPECT_EQ(dictionary.getValue("Title2"), std::nullopt);
    EXPECT_EQ(dictionary.getValue(""), std::nullopt);
}

TEST(Dictionary, TellsKeysThatDifferInCaseApart) {
    Dictionary dictionary;
    ASSERT_EQ(av_dict_set(dictionary.address(), "KEY", "upper", AV_DICT_MATCH_CASE), 0);
    ASSERT_EQ(av_dict_set(dictionary.address(), "key", "lower", AV_DICT_MATCH_CASE), 0);
    EXPECT_EQ(dictionary.getValue("key"), "lower");
    EXPECT_EQ(dictionary.getValue("KEY"), "upper");
}

TEST(Dictionary, TakesAKeyAsAString) {
    const Dictionary dictionary = dictionaryOf("a", "1");
    EXPECT_EQ(dictionary.getValue(std::string("a")), "1");
    EXPECT_EQ(dictionary.getValue(std::string("b")), std::nullopt);
}

TEST(Dictionary, RefusesANullKey) {
    const char* key = nullptr;
    EXPECT_THROW_TEXT(std::invalid_argument, "parameter key is null", (void)Dictionary().getValue(key));
    EXPECT_THROW_TEXT(std::invalid_argument, "parameter key is null",
                      (void)dictionaryOf("a", "1").getValue(key));
}

TEST(Dictionary, CopyConstructionCopiesAllEntries) {
    Dictionary original = dictionaryOf("a", "1");
    av_dict_set(original.address(), "b", "2", 0);
    const Dictionary copy = original;
    EXPECT_NE(copy.get(), original.get());
    av_dict_set(original.address(), "a", "changed", 0);
    EXPECT_EQ(av_dict_count(copy.get()), 2);
    EXPECT_EQ(copy.getValue("a"), "1");
    EXPECT_EQ(copy.getValue("b"), "2");
}

TEST(Dictionary, CopyHoldsOneOfTwoKeysThatDifferInCase) {
    Dictionary original;
    ASSERT_EQ(av_dict_set(original.address(), "KEY", "upper", AV_DICT_MATCH_CASE), 0);
    ASSERT_EQ(av_dict_set(original.address(), "key", "lower", AV_DICT_MATCH_CASE), 0);
    ASSERT_EQ(av_dict_count(original.get()), 2);
    const Dictionary copy = original;
    EXPECT_EQ(av_dict_count(copy.get()), 1);
    EXPECT_EQ(copy.getValue("key"), "lower");
    EXPECT_EQ(copy.getValue("KEY"), std::nullopt);
}

TEST(Dictionary, CopyAssignmentReplacesAllEntries) {
    const Dictionary original = dictionaryOf("a", "1");
    Dictionary target = dictionaryOf("old", "x");
    Dictionary& result = target = original;
    EXPECT_EQ(&result, &target);
    EXPECT_EQ(target.getValue("a"), "1");
    EXPECT_EQ(target.getValue("old"), std::nullopt);
    EXPECT_EQ(original.getValue("a"), "1");
}

TEST(Dictionary, CopyOfAnEmptyOneIsEmpty) {
    const Dictionary empty;
    EXPECT_EQ(Dictionary(empty).get(), nullptr);
    Dictionary target = dictionaryOf("old", "x");
    target = empty;
    EXPECT_EQ(av_dict_count(target.get()), 0);
}

TEST(Dictionary, SelfAssignmentDoesNothing) {
    Dictionary dictionary = dictionaryOf("a", "1");
    const AVDictionary* before = dictionary.get();
    Dictionary& same = dictionary;
    dictionary = same;
    EXPECT_EQ(dictionary.get(), before);
    dictionary = std::move(same);
    EXPECT_EQ(dictionary.get(), before);
    EXPECT_EQ(dictionary.getValue("a"), "1");
}

TEST(Dictionary, MoveConstructionTakesThePointer) {
    Dictionary original = dictionaryOf("a", "1");
    const AVDictionary* pointer = original.get();
    const Dictionary moved = std::move(original);
    EXPECT_EQ(moved.get(), pointer);
    EXPECT_EQ(original.get(), nullptr);
}

TEST(Dictionary, MoveAssignmentTakesThePointerAndLeavesNull) {
    Dictionary original = dictionaryOf("a", "1");
    const AVDictionary* pointer = original.get();
    Dictionary target = dictionaryOf("old", "x");
    Dictionary& result = target = std::move(original);
    EXPECT_EQ(&result, &target);
    EXPECT_EQ(target.get(), pointer);
    EXPECT_EQ(original.get(), nullptr);
}

// A dictionary whose second value does not fit below the limit of the tests that follow.
Dictionary tooLarge() {
    Dictionary dictionary = dictionaryOf("a", "1");
    av_dict_set(dictionary.address(), "b", std::string(1000, 'x').c_str(), 0);
    return dictionary;
}

constexpr std::size_t kLimit = 200;

TEST(Dictionary, AFailedCopyAssignmentLeavesTheTargetAsItWas) {
    const Dictionary original = tooLarge();
    Dictionary target = dictionaryOf("old", "x");
    const AVDictionary* before = target.get();
    {
        const test::AllocationLimit limit(kLimit);
        EXPECT_THROW_TEXT(FFmpegError, "#-12: Cannot allocate memory", target = original);
    }
    EXPECT_EQ(target.get(), before);
    EXPECT_EQ(av_dict_count(target.get()), 1);
    EXPECT_EQ(target.getValue("old"), "x");
}

TEST(Dictionary, AFailedCopyThrowsFFmpegsCode) {
    const Dictionary original = tooLarge();
    try {
        const test::AllocationLimit limit(kLimit);
        const Dictionary copy = original;
        ADD_FAILURE() << "nothing was thrown";
    } catch (const FFmpegError& error) {
        EXPECT_EQ(error.error(), AvError::OutOfMemory);
    }
    EXPECT_EQ(av_dict_count(original.get()), 2);
}

}  // namespace
}  // namespace vidorra
