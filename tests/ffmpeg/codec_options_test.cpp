#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ffmpeg/channels.h"
#include "ffmpeg/codec_options.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

// The old channel layout fields are deprecated in versions that have both.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace vidorra::ffmpeg_ext {
namespace {

using ContextPtr = std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)>;

ContextPtr makeContext(const char* encoder) {
    return {avcodec_alloc_context3(avcodec_find_encoder_by_name(encoder)),
            [](AVCodecContext* context) { avcodec_free_context(&context); }};
}

class CodecOption : public testing::Test {
protected:
    CodecOption() { av_log_set_level(AV_LOG_QUIET); }
    ~CodecOption() override { av_log_set_level(AV_LOG_INFO); }

    int set(const char* name, const std::string& value) {
        return setCodecOption(*mContext, name, value.c_str());
    }

    // All fields that the version has agree.
    template <class Context>
    void expectChannels(const Context& context, int count, std::uint64_t mask) {
        EXPECT_EQ(channelCount(context), count);
        EXPECT_EQ(channelMask(context), mask);
        if constexpr (requires { context.channel_layout; }) {
            EXPECT_EQ(context.channels, count);
            EXPECT_EQ(context.channel_layout, mask);
        }
        if constexpr (requires { context.ch_layout; }) {
            EXPECT_EQ(context.ch_layout.nb_channels, count);
            // 1 is the order of a mask; the name is not known everywhere.
            const bool isMask = static_cast<int>(context.ch_layout.order) == 1;
            EXPECT_EQ(isMask ? context.ch_layout.u.mask : 0, mask);
        }
    }
    void expectChannels(int count, std::uint64_t mask) { expectChannels(*mContext, count, mask); }

    ContextPtr mContext = makeContext("pcm_s16le");
};

TEST_F(CodecOption, OfTheContextIsSet) {
    EXPECT_EQ(set("b", "12345"), 0);
    EXPECT_EQ(mContext->bit_rate, 12345);
    EXPECT_EQ(set("ar", "48000"), 0);
    EXPECT_EQ(mContext->sample_rate, 48000);
}

TEST_F(CodecOption, OfTheCodecItselfIsFound) {
    mContext = makeContext("png");
    EXPECT_EQ(set("pred", "paeth"), 0);
    std::int64_t value = -1;
    EXPECT_EQ(av_opt_get_int(mContext->priv_data, "pred", 0, &value), 0);
    EXPECT_EQ(value, 4);
}

TEST_F(CodecOption, HasTheErrorsOfFFmpeg) {
    EXPECT_EQ(set("no such option", "1"), AVERROR_OPTION_NOT_FOUND);
    EXPECT_EQ(set("channels", "2"), AVERROR_OPTION_NOT_FOUND);
    EXPECT_EQ(set("ar", "x"), AVERROR(EINVAL));
    EXPECT_EQ(set("qmax", "99999"), AVERROR(ERANGE));
}

TEST_F(CodecOption, AcSetsANumberOfChannels) {
    for (const auto& [text, count] : std::vector<std::pair<std::string, int>>{
             {"1", 1}, {"2", 2}, {"6", 6}, {"0x8", 8}, {"1+2", 3}, {"0", 0}}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(set("ac", text), 0);
        expectChannels(count, 0);
    }
}

TEST_F(CodecOption, AcHasTheErrorsOfANumber) {
    EXPECT_EQ(set("ac", "x"), AVERROR(EINVAL));
    EXPECT_EQ(set("ac", ""), AVERROR(EINVAL));
    EXPECT_EQ(set("ac", "99999999999"), AVERROR(ERANGE));
    EXPECT_EQ(set("ac", "-1"), AVERROR(ERANGE));
    expectChannels(0, 0);
}

TEST_F(CodecOption, ChannelLayoutSetsAMask) {
    struct Row {
        const char* text;
        std::uint64_t mask;
    };
    for (const Row& row : {Row{"stereo", AV_CH_LAYOUT_STEREO},
                           {"mono", AV_CH_LAYOUT_MONO},
                           {"3", 3},
                           {"0x3f", 0x3f},
                           {"5.1", AV_CH_LAYOUT_5POINT1_BACK},
                           {"63", 0x3f},
                           {"0x60000000", 0x60000000},
                           {"1+2", 3},
                           {"FL+FR", 3}}) {
        SCOPED_TRACE(row.text);
        mContext = makeContext("pcm_s16le");
        EXPECT_EQ(set("channel_layout", row.text), 0);
        expectChannels(__builtin_popcountll(row.mask), row.mask);
    }
}

TEST_F(CodecOption, ChannelLayoutHasTheErrorsOfANumber) {
    EXPECT_EQ(set("channel_layout", "no layout"), AVERROR(EINVAL));
    EXPECT_EQ(set("channel_layout", ""), AVERROR(EINVAL));
    EXPECT_EQ(set("channel_layout", "-1"), AVERROR(ERANGE));
    expectChannels(0, 0);
}

TEST_F(CodecOption, ChannelLayoutOfZeroUnsetsTheMask) {
    EXPECT_EQ(set("channel_layout", "0x3f"), 0);
    EXPECT_EQ(set("channel_layout", "0"), 0);
    expectChannels(6, 0);
}

TEST_F(CodecOption, AcKeepsAMaskThatHasAsManyChannels) {
    EXPECT_EQ(set("channel_layout", "0x60000000"), 0);
    EXPECT_EQ(set("ac", "2"), 0);
    expectChannels(2, 0x60000000);
    EXPECT_EQ(set("ac", "6"), 0);
    expectChannels(6, 0);
}

TEST_F(CodecOption, ChannelLayoutDoesNotContradictAc) {
    EXPECT_EQ(set("ac", "2"), 0);
    EXPECT_EQ(set("channel_layout", "0x3f"), 0);
    expectChannels(2, 0);
    EXPECT_EQ(set("channel_layout", "0x60000000"), 0);
    expectChannels(2, 0x60000000);
    EXPECT_EQ(set("channel_layout", "mono"), 0);
    expectChannels(1, AV_CH_LAYOUT_MONO);
    EXPECT_EQ(set("ac", "6"), 0);
    EXPECT_EQ(set("channel_layout", "stereo"), 0);
    expectChannels(6, 0);
}

TEST_F(CodecOption, ChLayoutSetsAMaskOrANumber) {
    EXPECT_EQ(set("ch_layout", "stereo"), 0);
    expectChannels(2, AV_CH_LAYOUT_STEREO);
    EXPECT_EQ(set("ch_layout", "6 channels"), 0);
    expectChannels(6, 0);
    EXPECT_EQ(set("ch_layout", "0x3f"), 0);
    expectChannels(6, 0x3f);
    EXPECT_EQ(set("ch_layout", "4C"), 0);
    expectChannels(4, 0);
    EXPECT_EQ(set("ch_layout", "no layout"), AVERROR(EINVAL));
    EXPECT_EQ(set("ch_layout", ""), AVERROR(EINVAL));
    EXPECT_EQ(set("ch_layout", "0"), AVERROR(EINVAL));
    expectChannels(4, 0);
}

// What the options are for: the encoder opens with these channels.
TEST_F(CodecOption, OpensAnEncoderWithTheChannels) {
    struct Row {
        std::vector<std::pair<const char*, const char*>> options;
        int count;
        std::uint64_t mask;
    };
    const Row rows[] = {
        {{{"ac", "2"}, {"channel_layout", "stereo"}}, 2, AV_CH_LAYOUT_STEREO},
        {{{"channel_layout", "0x3f"}}, 6, 0x3f},
        {{{"ch_layout", "5.1(side)"}}, 6, AV_CH_LAYOUT_5POINT1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.options[0].first);
        mContext = makeContext("pcm_s16le");
        mContext->sample_fmt = AV_SAMPLE_FMT_S16;
        EXPECT_EQ(set("ar", "48000"), 0);
        for (const auto& [name, value] : row.options) {
            EXPECT_EQ(set(name, value), 0);
        }
        ASSERT_EQ(avcodec_open2(mContext.get(), nullptr, nullptr), 0);
        expectChannels(row.count, row.mask);
    }
}

TEST_F(CodecOption, OpensAnEncoderWithANumberOfChannelsAlone) {
    mContext->sample_fmt = AV_SAMPLE_FMT_S16;
    EXPECT_EQ(set("ar", "48000"), 0);
    EXPECT_EQ(set("ac", "6"), 0);
    ASSERT_EQ(avcodec_open2(mContext.get(), nullptr, nullptr), 0);
    EXPECT_EQ(channelCount(*mContext), 6);
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
