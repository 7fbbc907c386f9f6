#include "ffmpeg/channels.h"

#include <climits>
#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <string>

#include "support/allocation_limit.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
}

// The old channel layout fields are deprecated in versions that have both.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace vidorra::ffmpeg_ext {
namespace {

// The fields depend on the FFmpeg version; all that exist are checked.
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
    // Its list is released, which the address sanitizer checks.
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

TEST(Channels, ANameIsNotUnknownForWantOfMemory) {
    const std::string name = "FL+FR+FC+LFE+BL+BR+FLC+FRC+BC+SL+SR+TC";
    ASSERT_EQ(channelMaskFromName(name), 0xfffU);
    const test::AllocationLimit limit(33);
    // FFmpeg's older versions read names without memory.
    std::uint64_t mask = 0xfff;
    try {
        mask = channelMaskFromName(name);
    } catch (const std::bad_alloc&) {
    }
    EXPECT_EQ(mask, 0xfffU);
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
