#include "ffmpeg/packets.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <string>

#include "support/allocation_limit.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/dict.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

template <class T>
void expectSameNewerFields(const T& packet, const T& reference) {
    if constexpr (requires { packet.opaque; }) {
        EXPECT_EQ(packet.opaque, reference.opaque);
        EXPECT_EQ(packet.opaque_ref, reference.opaque_ref);
    }
    if constexpr (requires { packet.time_base; }) {
        EXPECT_EQ(packet.time_base.num, reference.time_base.num);
        EXPECT_EQ(packet.time_base.den, reference.time_base.den);
    }
}

TEST(ResetPacket, GivesWhatFFmpegsOwnAllocationGives) {
    AVPacket packet;
    std::memset(&packet, 0xa5, sizeof(packet));
    resetPacket(packet);
    AVPacket* reference = av_packet_alloc();
    ASSERT_NE(reference, nullptr);
    EXPECT_EQ(packet.buf, reference->buf);
    EXPECT_EQ(packet.pts, reference->pts);
    EXPECT_EQ(packet.dts, reference->dts);
    EXPECT_EQ(packet.data, reference->data);
    EXPECT_EQ(packet.size, reference->size);
    EXPECT_EQ(packet.stream_index, reference->stream_index);
    EXPECT_EQ(packet.flags, reference->flags);
    EXPECT_EQ(packet.side_data, reference->side_data);
    EXPECT_EQ(packet.side_data_elems, reference->side_data_elems);
    EXPECT_EQ(packet.duration, reference->duration);
    EXPECT_EQ(packet.pos, reference->pos);
    expectSameNewerFields(packet, *reference);
    av_packet_free(&reference);
}

using Strings = std::map<std::string, std::string>;

struct DictionaryGuard {
    AVDictionary* dictionary = nullptr;

    DictionaryGuard() = default;
    explicit DictionaryGuard(const Strings& strings) {
        for (const auto& [key, value] : strings) {
            EXPECT_GE(av_dict_set(&dictionary, key.c_str(), value.c_str(), 0), 0);
        }
    }
    DictionaryGuard(const DictionaryGuard&) = delete;
    DictionaryGuard& operator=(const DictionaryGuard&) = delete;
    ~DictionaryGuard() { av_dict_free(&dictionary); }

    Strings strings() const {
        Strings result;
        for (const AVDictionaryEntry* entry = nullptr;
             (entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr;) {
            result.emplace(entry->key, entry->value);
        }
        return result;
    }
};

class PacketStrings : public testing::Test {
protected:
    void TearDown() override { av_packet_free(&mPacket); }

    Strings read() const {
        DictionaryGuard guard;
        EXPECT_GE(packetStrings(*mPacket, &guard.dictionary), 0);
        return guard.strings();
    }
    int write(const Strings& strings) {
        const DictionaryGuard guard(strings);
        return setPacketStrings(*mPacket, guard.dictionary);
    }

    AVPacket* mPacket = av_packet_alloc();
};

TEST_F(PacketStrings, AreNoneInAPacketWithoutThem) {
    EXPECT_EQ(read(), Strings());
}

TEST_F(PacketStrings, AreReadAsTheyWereSet) {
    const Strings strings = {{"a", "1"}, {"key", ""}, {"title", "Überschrift = \"x\"\n"}};
    EXPECT_EQ(write(strings), 0);
    EXPECT_EQ(mPacket->side_data_elems, 1);
    EXPECT_EQ(mPacket->side_data[0].type, AV_PKT_DATA_STRINGS_METADATA);
    EXPECT_EQ(read(), strings);
}

TEST_F(PacketStrings, TakeThePlaceOfEarlierOnes) {
    EXPECT_EQ(write({{"a", "1"}, {"b", "2"}}), 0);
    EXPECT_EQ(write({{"c", "3"}}), 0);
    EXPECT_EQ(mPacket->side_data_elems, 1);
    EXPECT_EQ(read(), (Strings{{"c", "3"}}));
}

TEST_F(PacketStrings, LeaveOtherSideDataAlone) {
    std::uint8_t* other = av_packet_new_side_data(mPacket, AV_PKT_DATA_SKIP_SAMPLES, 10);
    ASSERT_NE(other, nullptr);
    std::memset(other, 7, 10);
    EXPECT_EQ(write({{"a", "1"}}), 0);
    EXPECT_EQ(mPacket->side_data_elems, 2);
    EXPECT_EQ(mPacket->side_data[0].type, AV_PKT_DATA_SKIP_SAMPLES);
    EXPECT_EQ(mPacket->side_data[0].data[9], 7);
    EXPECT_EQ(read(), (Strings{{"a", "1"}}));
}

TEST_F(PacketStrings, AreAddedToThoseThatTheCallerHasAlready) {
    EXPECT_EQ(write({{"a", "1"}}), 0);
    DictionaryGuard guard({{"a", "old"}, {"b", "2"}});
    EXPECT_GE(packetStrings(*mPacket, &guard.dictionary), 0);
    EXPECT_EQ(guard.strings(), (Strings{{"a", "1"}, {"b", "2"}}));
}

TEST_F(PacketStrings, ThatCannotBeReadAreAnError) {
    std::uint8_t* broken = av_packet_new_side_data(mPacket, AV_PKT_DATA_STRINGS_METADATA, 5);
    ASSERT_NE(broken, nullptr);
    std::memcpy(broken, "never", 5);
    DictionaryGuard guard;
    EXPECT_LT(packetStrings(*mPacket, &guard.dictionary), 0);
}

TEST_F(PacketStrings, ThatFindNoMemoryAreAnErrorAndChangeNothing) {
    EXPECT_EQ(write({{"a", "1"}}), 0);
    const DictionaryGuard large({{"b", std::string(1000, 'x')}});
    {
        const test::AllocationLimit limit(500);
        EXPECT_EQ(setPacketStrings(*mPacket, large.dictionary), AVERROR(ENOMEM));
    }
    EXPECT_EQ(read(), (Strings{{"a", "1"}}));
}

TEST_F(PacketStrings, ThatFindNoPlaceAmongTheSideDataAreAnErrorAndLeakNothing) {
    // As many kinds of side data as make their list the largest of all allocations.
    constexpr int kOthers = 25;
    for (int type = 0; mPacket->side_data_elems < kOthers; ++type) {
        if (type != AV_PKT_DATA_STRINGS_METADATA) {
            ASSERT_NE(av_packet_new_side_data(mPacket, static_cast<AVPacketSideDataType>(type), 1), nullptr);
        }
    }
    const DictionaryGuard strings(Strings{{"a", "1"}});
    {
        const test::AllocationLimit limit(kOthers * sizeof(AVPacketSideData));
        EXPECT_EQ(setPacketStrings(*mPacket, strings.dictionary), AVERROR(ENOMEM));
    }
    EXPECT_EQ(mPacket->side_data_elems, kOthers);
    EXPECT_EQ(setPacketStrings(*mPacket, strings.dictionary), 0);
    EXPECT_EQ(read(), (Strings{{"a", "1"}}));
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
