#include "ffmpeg/chapters.h"

#include <climits>
#include <cstring>
#include <map>
#include <optional>
#include <string>

#include "support/allocation_limit.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

using Strings = std::map<std::string, std::string>;

class Chapter : public testing::Test {
protected:
    void TearDown() override { av_packet_free(&mPacket); }

    // The strings that any user of FFmpeg finds in the packet.
    Strings strings() const {
        Strings result;
        AVDictionary* dictionary = nullptr;
        for (int i = 0; i < mPacket->side_data_elems; ++i) {
            const AVPacketSideData& entry = mPacket->side_data[i];
            if (entry.type == AV_PKT_DATA_STRINGS_METADATA) {
                EXPECT_GE(av_packet_unpack_dictionary(entry.data, entry.size, &dictionary), 0);
            }
        }
        for (const AVDictionaryEntry* entry = nullptr;
             (entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr;) {
            result.emplace(entry->key, entry->value);
        }
        av_dict_free(&dictionary);
        return result;
    }

    void addBytes(const char* bytes, std::size_t size) {
        std::uint8_t* data = av_packet_new_side_data(mPacket, AV_PKT_DATA_STRINGS_METADATA, size);
        ASSERT_NE(data, nullptr);
        std::memcpy(data, bytes, size);
    }

    AVPacket* mPacket = av_packet_alloc();
};

TEST_F(Chapter, IsAttachedAsStrings) {
    EXPECT_EQ(av_side_data_set_chapter_metadata(mPacket, 12, 3400, "Opening"), 0);
    EXPECT_EQ(strings(),
              (Strings{{"chapter-first", "12"}, {"chapter-second", "3400"}, {"chapter-title", "Opening"}}));
    EXPECT_EQ(mPacket->side_data_elems, 1);
}

TEST_F(Chapter, HoldsAnyNumbersAndTitles) {
    EXPECT_EQ(av_side_data_set_chapter_metadata(mPacket, LONG_MIN, ULONG_MAX, "Größe = \"1\"; x\n"), 0);
    EXPECT_EQ(strings(), (Strings{{"chapter-first", "-9223372036854775808"},
                                  {"chapter-second", "18446744073709551615"},
                                  {"chapter-title", "Größe = \"1\"; x\n"}}));
    EXPECT_EQ(av_side_data_set_chapter_metadata(mPacket, -1, 0, ""), 0);
    EXPECT_EQ(strings(), (Strings{{"chapter-first", "-1"}, {"chapter-second", "0"}, {"chapter-title", ""}}));
}

TEST_F(Chapter, ReplacesAnEarlierOne) {
    EXPECT_EQ(av_side_data_set_chapter_metadata(mPacket, 1, 2, "One"), 0);
    EXPECT_EQ(av_side_data_set_chapter_metadata(mPacket, 3, 4, "Two"), 0);
    EXPECT_EQ(strings(),
              (Strings{{"chapter-first", "3"}, {"chapter-second", "4"}, {"chapter-title", "Two"}}));
    EXPECT_EQ(mPacket->side_data_elems, 1);
}

TEST_F(Chapter, KeepsOtherStringsOfThePacket) {
    const char other[] = "lyrics\0la la\0chapter-note\0x";
    addBytes(other, sizeof(other));
    EXPECT_EQ(av_side_data_set_chapter_metadata(mPacket, 1, 2, "One"), 0);
    EXPECT_EQ(strings(), (Strings{{"lyrics", "la la"},
                                  {"chapter-note", "x"},
                                  {"chapter-first", "1"},
                                  {"chapter-second", "2"},
                                  {"chapter-title", "One"}}));
}

TEST_F(Chapter, KeepsOtherSideData) {
    ASSERT_NE(av_packet_new_side_data(mPacket, AV_PKT_DATA_SKIP_SAMPLES, 10), nullptr);
    EXPECT_EQ(av_side_data_set_chapter_metadata(mPacket, 1, 2, "One"), 0);
    EXPECT_EQ(mPacket->side_data_elems, 2);
    EXPECT_EQ(strings().size(), 3U);
}

TEST_F(Chapter, SurvivesACopyOfThePacket) {
    EXPECT_EQ(av_side_data_set_chapter_metadata(mPacket, 1, 2, "One"), 0);
    AVPacket* clone = av_packet_clone(mPacket);
    ASSERT_NE(clone, nullptr);
    const Strings expected = strings();
    av_packet_free(&mPacket);
    mPacket = clone;
    EXPECT_EQ(strings(), expected);
}

TEST_F(Chapter, IsAnErrorInAPacketWhoseStringsCannotBeReadAndLeavesIt) {
    addBytes("never", 5);
    EXPECT_LT(av_side_data_set_chapter_metadata(mPacket, 1, 2, "One"), 0);
    ASSERT_EQ(mPacket->side_data_elems, 1);
    EXPECT_EQ(std::memcmp(mPacket->side_data[0].data, "never", 5), 0);
    EXPECT_EQ(static_cast<int>(mPacket->side_data[0].size), 5);
}

TEST_F(Chapter, IsAnErrorWhenMemoryIsShortAndLeavesThePacket) {
    EXPECT_EQ(av_side_data_set_chapter_metadata(mPacket, 1, 2, "One"), 0);
    const Strings before = strings();
    const std::string title(1000, 'x');
    {
        const test::AllocationLimit limit(500);
        EXPECT_EQ(av_side_data_set_chapter_metadata(mPacket, 3, 4, title.c_str()), AVERROR(ENOMEM));
    }
    {
        // Here each string fits, but not all of them together.
        const test::AllocationLimit limit(500);
        EXPECT_EQ(av_side_data_set_chapter_metadata(mPacket, 3, 4, title.substr(0, 460).c_str()),
                  AVERROR(ENOMEM));
    }
    EXPECT_EQ(strings(), before);
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
