// The choice of hardware decoders.

#include <gmock/gmock.h>

#include <map>
#include <optional>

#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/demux/video_decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/dict.h>
}

namespace vidorra {
namespace {

using Options = std::map<std::string, std::string>;
using Acceleration = VideoDecoder::Acceleration;

static_assert(static_cast<int>(Acceleration::None) == 0 && static_cast<int>(Acceleration::Hardware) == 1);

class Parameters {
public:
    Parameters(AVMediaType type, AVCodecID codec) : mParameters(avcodec_parameters_alloc()) {
        mParameters->codec_type = type;
        mParameters->codec_id = codec;
    }
    Parameters(const Parameters&) = delete;
    Parameters& operator=(const Parameters&) = delete;
    ~Parameters() { avcodec_parameters_free(&mParameters); }

    operator const AVCodecParameters&() const { return *mParameters; }

private:
    AVCodecParameters* mParameters;
};

Options optionsOf(const Dictionary& dictionary) {
    Options options;
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(dictionary.get(), "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        options[entry->key] = entry->value;
    }
    return options;
}

struct Choice {
    const char* name;
    Options options;
};

// The decoders by codec, in the order of preference.
const std::map<AVCodecID, std::vector<Choice>>& choices() {
    static const std::map<AVCodecID, std::vector<Choice>> kChoices = {
        {AV_CODEC_ID_H264, {{"h264_qsv", {{"async_depth", "1"}}}, {"h264_omx", {{"bframes_disabled", "1"}}}}},
        {AV_CODEC_ID_HEVC,
         {{"hevc_qsv", {{"async_depth", "1"}, {"load_plugin", "none"}}},
          {"hevc_omx", {{"bframes_disabled", "1"}}}}},
        {AV_CODEC_ID_MJPEG, {{"mjpeg_qsv", {{"async_depth", "1"}}}}},
    };
    return kChoices;
}

template <class Function>
void forEachCodec(Function function) {
    const AVCodecDescriptor* descriptor = nullptr;
    int count = 0;
    while ((descriptor = avcodec_descriptor_next(descriptor)) != nullptr) {
        SCOPED_TRACE(descriptor->name);
        function(*descriptor);
        ++count;
    }
    ASSERT_GT(count, 400);
}

TEST(ChooseCodec, GivesNothingForAnyCodecWithoutAcceleration) {
    forEachCodec([](const AVCodecDescriptor& codec) {
        EXPECT_FALSE(VideoDecoder::chooseCodec(Parameters(codec.type, codec.id), Acceleration::None));
    });
}

TEST(ChooseCodec, GivesTheFirstDecoderThatThereIsWithItsOptions) {
    int chosenCodecs = 0;
    forEachCodec([&](const AVCodecDescriptor& codec) {
        if (codec.type != AVMEDIA_TYPE_VIDEO) {
            return;
        }
        const Choice* expected = nullptr;
        const auto known = choices().find(codec.id);
        if (known != choices().end()) {
            for (const Choice& choice : known->second) {
                if (expected == nullptr && avcodec_find_decoder_by_name(choice.name) != nullptr) {
                    expected = &choice;
                }
            }
        }
        const auto chosen =
            VideoDecoder::chooseCodec(Parameters(codec.type, codec.id), Acceleration::Hardware);
        ASSERT_EQ(chosen.has_value(), expected != nullptr);
        if (chosen) {
            ++chosenCodecs;
            EXPECT_STREQ(chosen->codec->name, expected->name);
            EXPECT_EQ(chosen->codec, avcodec_find_decoder_by_name(expected->name));
            EXPECT_EQ(optionsOf(chosen->options), expected->options);
        }
    });
    RecordProperty("chosenCodecs", chosenCodecs);
}

TEST(ChooseCodec, GivesNothingForVp9) {
    EXPECT_FALSE(
        VideoDecoder::chooseCodec(Parameters(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_VP9), Acceleration::Hardware));
}

TEST(ChooseCodec, GivesNothingForAnUnknownCodec) {
    EXPECT_FALSE(
        VideoDecoder::chooseCodec(Parameters(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_NONE), Acceleration::Hardware));
}

TEST(ChooseCodec, GivesOptionsThatDoNotDependOnEachOther) {
    const Parameters parameters(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264);
    auto first = VideoDecoder::chooseCodec(parameters, Acceleration::Hardware);
    if (first) {
        av_dict_set(first->options.address(), "async_depth", "7", 0);
    }
    const auto second = VideoDecoder::chooseCodec(parameters, Acceleration::Hardware);
    ASSERT_EQ(first.has_value(), second.has_value());
    if (second) {
        EXPECT_NE(optionsOf(second->options), optionsOf(first->options));
    }
}

TEST(ChooseCodec, RefusesHardwareForAnythingButVideo) {
    forEachCodec([](const AVCodecDescriptor& codec) {
        if (codec.type == AVMEDIA_TYPE_VIDEO) {
            return;
        }
        EXPECT_THROW_TEXT(
            FFmpegError, "VideoDecoder cannot be used for audio FFmpeg AV_ERROR: #-22: Invalid argument",
            (void)VideoDecoder::chooseCodec(Parameters(codec.type, codec.id), Acceleration::Hardware));
    });
}

TEST(ChooseCodec, LooksAtTheTypeOfTheStreamAndNotOfTheCodec) {
    EXPECT_THROW((void)VideoDecoder::chooseCodec(Parameters(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_H264),
                                                 Acceleration::Hardware),
                 FFmpegError);
}

TEST(FetchAcceleration, IsNoneBeforeThereIsACodec) {
    EXPECT_EQ(VideoDecoder().fetchAcceleration(), Acceleration::None);
}

TEST(FetchAcceleration, IsNoneForSoftware) {
    VideoDecoder decoder;
    (void)decoder.prepareCodec(std::nullopt, Parameters(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_MJPEG));
    EXPECT_EQ(decoder.fetchAcceleration(), Acceleration::None);
}

TEST(FetchAcceleration, IsHardwareForWhatIsChosen) {
    for (const auto& [id, unused] : choices()) {
        const Parameters parameters(AVMEDIA_TYPE_VIDEO, id);
        auto chosen = VideoDecoder::chooseCodec(parameters, Acceleration::Hardware);
        const Acceleration expected = chosen ? Acceleration::Hardware : Acceleration::None;
        VideoDecoder decoder;
        (void)decoder.prepareCodec(std::move(chosen), parameters);
        EXPECT_EQ(decoder.fetchAcceleration(), expected) << avcodec_get_name(id);
    }
}

TEST(FetchAcceleration, GoesByTheWholeNameOfTheDecoder) {
    struct Row {
        const char* name;
        Acceleration expected;
    };
    const Row rows[] = {
        {"h264_qsv", Acceleration::Hardware},  {"hevc_qsv", Acceleration::Hardware},
        {"mjpeg_qsv", Acceleration::Hardware}, {"h264_omx", Acceleration::Hardware},
        {"hevc_omx", Acceleration::Hardware},  {"h264", Acceleration::None},
        {"h264_qs", Acceleration::None},       {"h264_qsv2", Acceleration::None},
        {"mjpeg_omx", Acceleration::None},     {"vp9_qsv", Acceleration::None},
        {"H264_QSV", Acceleration::None},      {"", Acceleration::None},
    };
    VideoDecoder decoder;
    (void)decoder.prepareCodec(std::nullopt, Parameters(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_MPEG4));
    // Not every FFmpeg has every decoder, so another decoder gets their names.
    auto* context = const_cast<AVCodecContext*>(decoder.codecContext());
    const AVCodec* original = context->codec;
    for (const Row& row : rows) {
        AVCodec named = *original;
        named.name = row.name;
        context->codec = &named;
        EXPECT_EQ(decoder.fetchAcceleration(), row.expected) << row.name;
    }
    context->codec = original;
}

}  // namespace
}  // namespace vidorra
