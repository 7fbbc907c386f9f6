#include <gtest/gtest.h>

#include "encode/encoder_calls.h"
#include "objstream/object.h"
#include "vidorra/encode/audio_encoder.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace vidorra {
namespace {

using test::encoderCalls;

class AudioEncoderCalls : public testing::Test {
protected:
    static objstream::object config() {
        objstream::object config;
        config["codec"] = "pcm_s16le";
        config["options"]["ar"] = 48000;
        config["options"]["ac"] = 2;
        return config;
    }

    static AudioFrame frame(AVSampleFormat format, unsigned long layout = 3) {
        AudioBuffer buffer(layout, format);
        buffer.setSampleRate(48000);
        buffer.resize(10);
        AudioFrame result(buffer, Timestamp({1, 25}, 2));
        result.addSideData(SMPTE12Timecode(1, 2, 3, 4, false, Timebase(1, 25)));
        return result;
    }

    // Receives what would be sent to the codec.
    struct Seen {
        int frames = 0;
        int format = AV_SAMPLE_FMT_NONE;
        bool hasTimecode = false;
        std::int64_t pts = 0;
    };
    Seen send(const AudioFrame& sent) {
        Seen seen;
        const auto replaced = encoderCalls().avcodecSendFrame.replace([&seen](void*, const void* given) {
            const auto& frame = *static_cast<const AVFrame*>(given);
            ++seen.frames;
            seen.format = frame.format;
            seen.hasTimecode = av_frame_get_side_data(&frame, AV_FRAME_DATA_S12M_TIMECODE) != nullptr;
            seen.pts = frame.pts;
            return 0;
        });
        mResult = mEncoder.sendFrame(sent);
        return seen;
    }

    AudioEncoder mEncoder{config()};
    AvRes mResult = 0;
};

TEST_F(AudioEncoderCalls, AFrameInTheFormatOfTheCodecKeepsItsSideData) {
    const Seen seen = send(frame(AV_SAMPLE_FMT_S16));
    EXPECT_EQ(seen.frames, 1);
    EXPECT_TRUE(seen.hasTimecode);
    EXPECT_EQ(seen.pts, 3840);
}

TEST_F(AudioEncoderCalls, AConvertedFrameHasTheFormatOfTheCodecAndNoSideData) {
    const Seen seen = send(frame(AV_SAMPLE_FMT_FLTP));
    EXPECT_EQ(seen.frames, 1);
    EXPECT_EQ(seen.format, AV_SAMPLE_FMT_S16);
    EXPECT_FALSE(seen.hasTimecode);
    EXPECT_EQ(seen.pts, 3840);
}

TEST_F(AudioEncoderCalls, AFrameOfOtherChannelsDoesNotReachTheCodec) {
    for (const unsigned long layout : {0x4UL, 0x7UL, 0x3fUL}) {
        EXPECT_EQ(send(frame(AV_SAMPLE_FMT_S16, layout)).frames, 0);
        EXPECT_EQ(mResult.error, AvError::InvalidArgument);
    }
}

TEST_F(AudioEncoderCalls, ACodecThatRanOutOfMemoryIsGivenUp) {
    int calls = 0;
    const auto replaced = encoderCalls().avcodecSendFrame.replace([&calls](void*, const void*) {
        ++calls;
        return AvError::OutOfMemory.code();
    });
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(mEncoder.sendFrame(frame(AV_SAMPLE_FMT_S16)).error, AvError::OutOfMemory);
    }
    EXPECT_EQ(calls, 1);
}

TEST_F(AudioEncoderCalls, TheResultOfTheCodecIsPassedBack) {
    const auto busy = encoderCalls().avcodecSendFrame.replace([](void*, const void*) { return -11; });
    EXPECT_EQ(mEncoder.sendFrame(frame(AV_SAMPLE_FMT_S16)).error, AvError::Again);
}

}  // namespace
}  // namespace vidorra
