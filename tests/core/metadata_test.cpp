#include "vidorra/core/metadata.h"

#include <sstream>

namespace vidorra {
namespace {

std::string streamed(const Metadata& metadata) {
    std::ostringstream stream;
    stream << metadata;
    return stream.str();
}

TEST(Metadata, GivesWhatWasStored) {
    Metadata metadata;
    metadata.addValue("title", std::string("News"));
    EXPECT_TRUE(metadata.hasKey("title"));
    EXPECT_EQ(metadata.getValue("title"), "News");
    EXPECT_EQ(metadata["title"], "News");
}

TEST(Metadata, StoresABoolAsAWord) {
    Metadata metadata;
    metadata.addValue("a", true);
    metadata.addValue("b", false);
    EXPECT_EQ(metadata.getValue("a"), "true");
    EXPECT_EQ(metadata.getValue("b"), "false");
}

TEST(Metadata, StoresALiteralAsText) {
    Metadata metadata;
    metadata.addValue("a", "x");
    metadata.addValue("b", "");
    EXPECT_EQ(metadata.getValue("a"), "x");
    EXPECT_EQ(metadata.getValue("b"), "");
}

TEST(Metadata, ALaterValueReplacesAnEarlierOne) {
    Metadata metadata;
    metadata.addValue("a", true);
    metadata.addValue("a", "x");
    EXPECT_EQ(metadata.getValue("a"), "x");
    metadata.addValue("a", false);
    EXPECT_EQ(metadata.getValue("a"), "false");
    metadata.addValue("a", std::string("y"));
    EXPECT_EQ(streamed(metadata), "a: y");
}

TEST(Metadata, AnAbsentKeyIsEmptyAndStaysAbsent) {
    const Metadata metadata;
    EXPECT_EQ(metadata.getValue("a"), "");
    EXPECT_EQ(metadata["a"], "");
    EXPECT_FALSE(metadata.hasKey("a"));
    EXPECT_EQ(streamed(metadata), "");
}

TEST(Metadata, AskingAMutableOneInsertsNothingEither) {
    Metadata metadata;
    EXPECT_EQ(metadata["a"], "");
    EXPECT_FALSE(metadata.hasKey("a"));
}

TEST(Metadata, HasKeyTellsAnEmptyValueFromAnAbsentKey) {
    Metadata metadata;
    metadata.addValue("a", std::string());
    EXPECT_TRUE(metadata.hasKey("a"));
    EXPECT_FALSE(metadata.hasKey("b"));
    EXPECT_EQ(metadata.getValue("a"), metadata.getValue("b"));
}

TEST(Metadata, KeysMatchByteForByte) {
    Metadata metadata;
    metadata.addValue("Title", "x");
    EXPECT_FALSE(metadata.hasKey("title"));
    EXPECT_FALSE(metadata.hasKey("Titl"));
    EXPECT_FALSE(metadata.hasKey("Title "));
}

TEST(Metadata, AnEmptyKeyIsAKeyLikeAnyOther) {
    Metadata metadata;
    EXPECT_FALSE(metadata.hasKey(""));
    metadata.addValue("", "x");
    EXPECT_TRUE(metadata.hasKey(""));
    EXPECT_EQ(metadata.getValue(""), "x");
    EXPECT_EQ(streamed(metadata), ": x");
    metadata.removeValue("");
    EXPECT_FALSE(metadata.hasKey(""));
}

TEST(Metadata, RemovesOneEntry) {
    Metadata metadata;
    metadata.addValue("a", "x");
    metadata.addValue("b", "y");
    metadata.removeValue("a");
    EXPECT_FALSE(metadata.hasKey("a"));
    EXPECT_EQ(streamed(metadata), "b: y");
}

TEST(Metadata, RemovingAnAbsentKeyIsNoError) {
    Metadata metadata;
    metadata.addValue("a", "x");
    EXPECT_NO_THROW(metadata.removeValue("b"));
    EXPECT_EQ(streamed(metadata), "a: x");
}

TEST(Metadata, CopiesAllEntries) {
    Metadata original;
    original.addValue("a", "x");
    original.addValue("b", "y");
    Metadata copy = original;
    original.addValue("a", "z");
    original.removeValue("b");
    EXPECT_EQ(streamed(copy), "a: x\nb: y");
    copy.addValue("c", "w");
    EXPECT_EQ(streamed(original), "a: z");
}

TEST(Metadata, PrintsNothingWhenEmptyAndNoLineEndBehindTheLastEntry) {
    Metadata metadata;
    EXPECT_EQ(streamed(metadata), "");
    metadata.addValue("b", "2");
    EXPECT_EQ(streamed(metadata), "b: 2");
    metadata.addValue("a", "1");
    EXPECT_EQ(streamed(metadata), "a: 1\nb: 2");
}

TEST(Metadata, PrintsInTheOrderOfTheBytesOfKeys) {
    Metadata metadata;
    for (const char* key : {"b", "\xc3\xa4", "ab", "a", "Z", "", "a "}) {
        metadata.addValue(key, "v");
    }
    EXPECT_EQ(streamed(metadata), ": v\nZ: v\na: v\na : v\nab: v\nb: v\n\xc3\xa4: v");
}

// A stream buffer that counts flushes.
class FlushCounter : public std::stringbuf {
public:
    int flushes = 0;

protected:
    int sync() override {
        ++flushes;
        return 0;
    }
};

TEST(Metadata, PrintingFlushesBetweenEntriesAndOnlyThere) {
    Metadata metadata;
    FlushCounter buffer;
    std::ostream stream(&buffer);
    metadata.addValue("a", "1");
    stream << metadata;
    EXPECT_EQ(buffer.flushes, 0);
    metadata.addValue("b", "2");
    metadata.addValue("c", "3");
    stream << metadata;
    EXPECT_EQ(buffer.flushes, 2);
}

}  // namespace
}  // namespace vidorra
