#include "platform/ffmpeg/generations.h"

#include <climits>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/ffmpeg/allocation_limit.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
}

// The old fields of channel layouts are deprecated on the generations that have both.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace vidorra::ffmpeg_ext {
namespace {

// Which fields there are depends on the generation; all of them are looked at where they exist.
template <class T>
concept HasOldLayout = requires(T object) {
    object.channel_layout;
    object.channels;
};
template <class T>
concept HasNewLayout = requires(T object) {
    object.ch_layout;
};
static_assert(HasOldLayout<AVCodecParameters> || HasNewLayout<AVCodecParameters>);

template <class T>
void setOld(T& parameters, std::uint64_t mask, int channels) {
    if constexpr (HasOldLayout<T>) {
        parameters.channel_layout = mask;
        parameters.channels = channels;
    }
}

template <class T>
void expectOld(const T& parameters, std::uint64_t mask, int channels) {
    if constexpr (HasOldLayout<T>) {
        EXPECT_EQ(parameters.channel_layout, mask);
        EXPECT_EQ(parameters.channels, channels);
    }
}

template <class T>
void setNewMask(T& parameters, std::uint64_t mask) {
    if constexpr (HasNewLayout<T>) {
        ASSERT_EQ(av_channel_layout_from_mask(&parameters.ch_layout, mask), 0);
    }
}

template <class T>
void setNewCount(T& parameters, int channels) {
    if constexpr (HasNewLayout<T>) {
        parameters.ch_layout.order = {};
        parameters.ch_layout.nb_channels = channels;
    }
}

template <class T>
void expectNewMask(const T& parameters, std::uint64_t mask, int channels) {
    if constexpr (HasNewLayout<T>) {
        EXPECT_EQ(parameters.ch_layout.u.mask, mask);
        EXPECT_EQ(parameters.ch_layout.nb_channels, channels);
    }
}

using ParametersPtr = std::unique_ptr<AVCodecParameters, void (*)(AVCodecParameters*)>;

ParametersPtr makeParameters() {
    return {avcodec_parameters_alloc(), [](AVCodecParameters* freed) { avcodec_parameters_free(&freed); }};
}

TEST(ChannelMask, IsZeroWhereNothingIsKnown) {
    const ParametersPtr parameters = makeParameters();
    EXPECT_EQ(channelMask(*parameters), 0U);
    EXPECT_EQ(channelCount(*parameters), 0);
}

TEST(ChannelMask, IsReadFromTheNewFields) {
    const ParametersPtr parameters = makeParameters();
    if constexpr (HasNewLayout<AVCodecParameters>) {
        setNewMask(*parameters, AV_CH_LAYOUT_5POINT1);
    } else {
        setOld(*parameters, AV_CH_LAYOUT_5POINT1, 6);
    }
    EXPECT_EQ(channelMask(*parameters), AV_CH_LAYOUT_5POINT1);
    EXPECT_EQ(channelCount(*parameters), 6);
}

TEST(ChannelMask, IsReadFromTheOldFieldsWhereOnlyTheyAreSet) {
    const ParametersPtr parameters = makeParameters();
    if constexpr (HasOldLayout<AVCodecParameters>) {
        setOld(*parameters, AV_CH_LAYOUT_STEREO, 2);
    } else {
        setNewMask(*parameters, AV_CH_LAYOUT_STEREO);
    }
    EXPECT_EQ(channelMask(*parameters), AV_CH_LAYOUT_STEREO);
    EXPECT_EQ(channelCount(*parameters), 2);
}

TEST(ChannelMask, OfTheOldFieldsGivesACountToo) {
    const ParametersPtr parameters = makeParameters();
    if constexpr (HasOldLayout<AVCodecParameters>) {
        setOld(*parameters, AV_CH_LAYOUT_QUAD, 0);
    } else {
        setNewMask(*parameters, AV_CH_LAYOUT_QUAD);
    }
    EXPECT_EQ(channelCount(*parameters), 4);
}

TEST(ChannelMask, OfTheNewFieldsWins) {
    const ParametersPtr parameters = makeParameters();
    setOld(*parameters, AV_CH_LAYOUT_STEREO, 2);
    setNewMask(*parameters, AV_CH_LAYOUT_MONO);
    if constexpr (HasNewLayout<AVCodecParameters>) {
        EXPECT_EQ(channelMask(*parameters), AV_CH_LAYOUT_MONO);
        EXPECT_EQ(channelCount(*parameters), 1);
    } else {
        EXPECT_EQ(channelMask(*parameters), AV_CH_LAYOUT_STEREO);
        EXPECT_EQ(channelCount(*parameters), 2);
    }
}

TEST(ChannelMask, MayBeMissingWhileTheCountIsKnown) {
    const ParametersPtr parameters = makeParameters();
    setOld(*parameters, 0, 6);
    setNewCount(*parameters, 6);
    EXPECT_EQ(channelMask(*parameters), 0U);
    EXPECT_EQ(channelCount(*parameters), 6);
}

TEST(SetChannelMask, KeepsOldAndNewFieldsInStep) {
    for (const auto& [mask, channels] : {std::pair<std::uint64_t, int>{AV_CH_LAYOUT_MONO, 1},
                                         {AV_CH_LAYOUT_STEREO, 2},
                                         {AV_CH_LAYOUT_5POINT1_BACK, 6},
                                         {AV_CH_LAYOUT_7POINT1, 8},
                                         {AV_CH_LAYOUT_HEXADECAGONAL, 16}}) {
        SCOPED_TRACE(mask);
        const ParametersPtr parameters = makeParameters();
        setChannelMask(*parameters, mask);
        expectOld(*parameters, mask, channels);
        expectNewMask(*parameters, mask, channels);
        EXPECT_EQ(channelMask(*parameters), mask);
        EXPECT_EQ(channelCount(*parameters), channels);
    }
}

TEST(SetChannelMask, ReplacesWhatWasThere) {
    const ParametersPtr parameters = makeParameters();
    setOld(*parameters, 0, 6);
    setNewCount(*parameters, 6);
    setChannelMask(*parameters, AV_CH_LAYOUT_5POINT1);
    setChannelMask(*parameters, AV_CH_LAYOUT_STEREO);
    expectOld(*parameters, AV_CH_LAYOUT_STEREO, 2);
    expectNewMask(*parameters, AV_CH_LAYOUT_STEREO, 2);
}

// A layout that lists its channels in memory of its own.
template <class T>
void setCustomLayout(T& parameters) {
    if constexpr (HasNewLayout<T>) {
        ASSERT_EQ(av_channel_layout_from_string(&parameters.ch_layout, "FR+FL"), 0);
        ASSERT_EQ(parameters.ch_layout.nb_channels, 2);
    } else {
        setOld(parameters, 0, 2);
    }
}

TEST(ChannelMask, OfChannelsInAnOrderOfTheirOwnIsMissing) {
    const ParametersPtr parameters = makeParameters();
    setCustomLayout(*parameters);
    EXPECT_EQ(channelMask(*parameters), 0U);
    EXPECT_EQ(channelCount(*parameters), 2);
    // What it held is released, which the address sanitizer sees.
    setChannelMask(*parameters, AV_CH_LAYOUT_MONO);
    EXPECT_EQ(channelMask(*parameters), AV_CH_LAYOUT_MONO);
}

TEST(SetChannelMask, OfZeroLeavesTheParametersAlone) {
    const ParametersPtr parameters = makeParameters();
    setChannelMask(*parameters, AV_CH_LAYOUT_STEREO);
    setChannelMask(*parameters, 0);
    expectOld(*parameters, AV_CH_LAYOUT_STEREO, 2);
    expectNewMask(*parameters, AV_CH_LAYOUT_STEREO, 2);
    const ParametersPtr counted = makeParameters();
    setOld(*counted, 0, 5);
    setNewCount(*counted, 5);
    setChannelMask(*counted, 0);
    EXPECT_EQ(channelMask(*counted), 0U);
    EXPECT_EQ(channelCount(*counted), 5);
}

TEST(DefaultChannelMask, IsTheUsualLayoutForANumberOfChannels) {
    const std::map<int, std::uint64_t> usual = {
        {1, AV_CH_LAYOUT_MONO},    {2, AV_CH_LAYOUT_STEREO},       {3, AV_CH_LAYOUT_2POINT1},
        {4, AV_CH_LAYOUT_4POINT0}, {5, AV_CH_LAYOUT_5POINT0_BACK}, {6, AV_CH_LAYOUT_5POINT1_BACK},
        {7, AV_CH_LAYOUT_6POINT1}, {8, AV_CH_LAYOUT_7POINT1},      {16, AV_CH_LAYOUT_HEXADECAGONAL}};
    for (int channels = -3; channels <= 70; ++channels) {
        const auto found = usual.find(channels);
        EXPECT_EQ(defaultChannelMask(channels), found != usual.end() ? found->second : 0U) << channels;
    }
    EXPECT_EQ(defaultChannelMask(INT_MIN), 0U);
    EXPECT_EQ(defaultChannelMask(INT_MAX), 0U);
}

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
