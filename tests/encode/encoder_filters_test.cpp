// Filters before encoders.
#include <gmock/gmock.h>

#include <cstring>

#include "demux/quiet_ffmpeg.h"
#include "encode/patterns.h"
#include "encode/video_encoders.h"
#include "support/allocation_limit.h"
#include "support/log_capture.h"
#include "vidorra/encode/audio_encoder.h"
#include "vidorra/encode/video_encoder.h"

namespace vidorra {
namespace {

using test::frameAt;
using test::LogCapture;
using test::plainPicture;
using test::receiveAll;
using test::videoConfig;
using testing::ElementsAre;
using testing::IsEmpty;
using Line = LogCapture::Line;

class EncoderFilters : public testing::Test {
    const test::QuietFfmpeg mQuiet;
};

objstream::object audioConfig(const char* codec, int channels, const char* filter) {
    objstream::object config;
    config["codec"] = codec;
    config["options"]["ar"] = 48000;
    config["options"]["ac"] = channels;
    config["filter"] = filter;
    return config;
}

// Sample i of channel c is 100 * c + i.
AudioFrame ramps(unsigned long layout, AVSampleFormat format, int samples) {
    AudioBuffer buffer(layout, format);
    buffer.setSampleRate(48000);
    buffer.resize(static_cast<unsigned long>(samples));
    int channel = 0;
    for (std::uint8_t* plane : buffer.getPointersToPlanes()) {
        for (int i = 0; i < samples; ++i) {
            const int value = 100 * channel + i;
            if (format == AV_SAMPLE_FMT_S16P) {
                reinterpret_cast<std::int16_t*>(plane)[i] = static_cast<std::int16_t>(value);
            } else {
                reinterpret_cast<float*>(plane)[i] = static_cast<float>(value) / 32768;
            }
        }
        ++channel;
    }
    return {buffer, Timestamp({1, 48000}, 0)};
}

TEST_F(EncoderFilters, ScaleEverySampleOfAnOddCountOnce) {
    AudioEncoder encoder(audioConfig("pcm_s16le_planar", 2, "volume=2:precision=fixed"));
    for (const int samples : {441, 1001, 1014}) {
        SCOPED_TRACE(samples);
        ASSERT_TRUE(encoder.sendFrame(ramps(3, AV_SAMPLE_FMT_S16P, samples)).ok);
        const auto packet = encoder.receivePacket();
        ASSERT_TRUE(packet);
        ASSERT_EQ(packet->size, 4 * samples);
        std::vector<std::int16_t> encoded(static_cast<std::size_t>(2 * samples));
        std::memcpy(encoded.data(), packet->data, encoded.size() * 2);
        for (int i = 0; i < samples; ++i) {
            ASSERT_EQ(encoded[static_cast<std::size_t>(i)], 2 * i);
            ASSERT_EQ(encoded[static_cast<std::size_t>(samples + i)], 2 * (100 + i));
        }
    }
}

TEST_F(EncoderFilters, TakeSixPlanesOffTheAlignment) {
    objstream::object config = audioConfig("aac", 6, "volume=0.5,asetnsamples=n=1024");
    config["options"]["channel_layout"] = "5.1";
    AudioEncoder encoder(config);
    std::vector<Packet> packets;
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(encoder.sendFrame(ramps(0x3f, AV_SAMPLE_FMT_FLTP, i % 2 == 0 ? 1001 : 441)).ok);
        receiveAll(encoder, packets, AvError::Again);
    }
    EXPECT_FALSE(packets.empty());
}

struct ManyFramesRow {
    const char* name;
    const char* filter;
};

class ManyFrames : public EncoderFilters, public testing::WithParamInterface<ManyFramesRow> {};

TEST_P(ManyFrames, AreLoggedOnceAndEndInAnErrorThatStays) {
    objstream::object config = videoConfig("rawvideo");
    config["filter"] = GetParam().filter;
    VideoEncoder encoder(config);
    const VideoFrame frame = frameAt(plainPicture(test::kVideoSize, AV_PIX_FMT_YUV420P, 100), 0);
    std::vector<Packet> packets;
    const LogCapture log;
    int taken = 0;
    int takenUnlogged = 0;
    AvRes res = 0;
    for (; res.ok && taken < 400; ++taken) {
        VideoFrame next = frame;
        next.setTimestamp({{1, 25}, taken});
        res = encoder.sendFrame(next);
        receiveAll(encoder, packets, AvError::Again);
        takenUnlogged += log.lines().empty() ? 1 : 0;
    }
    EXPECT_EQ(res.error, AvError::OutOfMemory);
    EXPECT_NEAR(takenUnlogged, 50, 3);
    EXPECT_NEAR(taken, 250, 3);
    // The second line is the encoder's, of the frame that failed.
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[0].level, 2);
    EXPECT_THAT(log.texts()[0], testing::HasSubstr("more than 50 filtered frames wait"));
    EXPECT_THAT(log.texts()[1], testing::HasSubstr("Cannot allocate memory"));
    EXPECT_EQ(encoder.sendFrame(frame).error, AvError::OutOfMemory);
    EXPECT_TRUE(encoder.sendEndOfStream().ok);
    receiveAll(encoder, packets, AvError::Eof);
    EXPECT_GT(packets.size(), 240U);
}

INSTANTIATE_TEST_SUITE_P(, ManyFrames,
                         testing::Values(ManyFramesRow{"Yadif", "yadif=1"}, ManyFramesRow{"Fps", "fps=50"}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(EncoderFilters, ThatFailedInsideFailEveryFrame) {
    objstream::object config = videoConfig("rawvideo");
    config["filter"] = "scale=640:480,scale=64:48";
    VideoEncoder encoder(config);
    const VideoFrame frame = frameAt(plainPicture(test::kVideoSize, AV_PIX_FMT_YUV420P, 100), 0);
    {
        const test::AllocationLimit limit(100'000);
        EXPECT_EQ(encoder.sendFrame(frame).error, AvError::OutOfMemory);
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(encoder.sendFrame(frame).error, AvError::OutOfMemory);
    }
}

using EncoderKeys = EncoderFilters;

TEST_F(EncoderKeys, ThatAreUnknownAreLoggedWithTheNearestKnownOne) {
    objstream::object config = videoConfig("mpeg4");
    config["widht"] = 64;
    config["pixfmt"] = "yuv420p";
    const LogCapture log;
    const VideoEncoder encoder(config);
    const auto line = [](const char* key, const char* nearest) {
        return Line{2, std::string("video-encoder-mpeg4: the key \"") + key +
                           "\" is unknown and ignored; the nearest known one is \"" + nearest +
                           "\". Options of the codec are keys of \"options\"."};
    };
    EXPECT_THAT(log.lines(), ElementsAre(line("pixfmt", "pix_fmt"), line("widht", "width")));
}

TEST_F(EncoderKeys, OfTheOtherKindAreUnknown) {
    objstream::object config = audioConfig("pcm_s16le", 2, "anull");
    config["sample_format"] = 1;
    config["width"] = 64;
    const LogCapture log;
    const AudioEncoder encoder(config);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_THAT(log.texts()[0], testing::StartsWith("audio-encoder-pcm_s16le: the key \"sample_format\" is "
                                                    "unknown and ignored; the nearest known one is "
                                                    "\"sample_fmt\"."));
    EXPECT_THAT(log.texts()[1], testing::HasSubstr("\"width\""));
}

TEST_F(EncoderKeys, ThatAreKnownAreNotLogged) {
    objstream::object config = videoConfig("mpeg4");
    config["codec_id"] = "mpeg4";
    config["options"]["b"] = 100000;
    config["filter"] = "null";
    const LogCapture log;
    const VideoEncoder video(config);
    objstream::object sound = audioConfig("pcm_s16le", 2, "anull");
    sound["sample_fmt"] = 1;
    const AudioEncoder audio(sound);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(EncoderKeys, ForTheTimeBaseAreMissed) {
    objstream::object config = videoConfig("rawvideo");
    objstream::object without;
    for (const char* key : {"codec", "width", "height"}) {
        without[key] = config[key];
    }
    const LogCapture log;
    const VideoEncoder encoder(without);
    EXPECT_THAT(log.lines(), ElementsAre(Line{2,
                                              "video-encoder-rawvideo: \"timebase_num\" and "
                                              "\"timebase_den\" are missing: times count whole seconds, "
                                              "1/1."}));
}

}  // namespace
}  // namespace vidorra
