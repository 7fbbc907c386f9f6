// AudioBuffer from and to frames of FFmpeg.

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>

#include "ffmpeg/channels.h"
#include "picture/av_frames.h"
#include "support/throw_text.h"
#include "vidorra/picture/audio_buffer.h"

namespace vidorra {
namespace {

using test::allKinds;
using test::Bytes;
using test::Kind;
using test::makeFrame;
using test::planesOf;
using test::unlikePlanes;
using testing::ElementsAre;
using testing::IsNull;

constexpr Kind kStereo16 = {test::kFormats[1], test::kLayouts[1]};
constexpr Kind kStereoPlanes = {test::kFormats[7], test::kLayouts[1]};
constexpr Kind kTwelvePlanes = {test::kFormats[9], test::kLayouts[4]};

AudioBuffer loaded(const AVFrame& frame) {
    AudioBuffer buffer;
    buffer.loadAVFrame(&frame);
    return buffer;
}

AvPtr<AVFrame> filled(const AudioBuffer& buffer) {
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    buffer.fillAVFrame(frame.get());
    return frame;
}

TEST(AudioBufferFrames, GiveTheirParametersAndACopyOfTheirSamples) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        constexpr int kSamples = 77;
        const std::vector<Bytes> planes = unlikePlanes(kind, kSamples);
        const auto frame = makeFrame(kind, kSamples, 22050, planes);
        const AudioBuffer buffer = loaded(*frame);
        EXPECT_EQ(buffer.channelLayout(), kind.layout.mask);
        EXPECT_EQ(buffer.sampleFormat(), kind.format.format);
        EXPECT_EQ(buffer.sampleRate(), 22050);
        EXPECT_EQ(buffer.numberOfSamples(), static_cast<unsigned long>(kSamples));
        EXPECT_EQ(planesOf(buffer, kind.planeBytes(kSamples)), planes);
        for (int i = 0; i < kind.planes(); ++i) {
            std::fill_n(frame->extended_data[i], kind.planeBytes(kSamples), std::uint8_t{0});
        }
        EXPECT_EQ(planesOf(buffer, kind.planeBytes(kSamples)), planes);
    }
}

TEST(AudioBufferFrames, KeepNoReferenceBehind) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        const auto frame = makeFrame(kind, 5, 22050, unlikePlanes(kind, 5));
        const AudioBuffer buffer = loaded(*frame);
        EXPECT_EQ(av_buffer_get_ref_count(frame->buf[0]), 1);
    }
}

TEST(AudioBufferFrames, ComeBackAsTheyWent) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        constexpr int kSamples = 1152;
        const std::vector<Bytes> planes = unlikePlanes(kind, kSamples);
        const AudioBuffer buffer = loaded(*makeFrame(kind, kSamples, 96000, planes));
        const auto frame = filled(buffer);
        EXPECT_EQ(frame->format, kind.format.format);
        EXPECT_EQ(frame->sample_rate, 96000);
        EXPECT_EQ(frame->nb_samples, kSamples);
        EXPECT_EQ(ffmpeg_ext::channelMask(*frame), kind.layout.mask);
        EXPECT_EQ(ffmpeg_ext::channelCount(*frame), kind.layout.channels);
        EXPECT_EQ(frame->linesize[0], kind.planeBytes(kSamples));
        EXPECT_EQ(planesOf(*frame, kind.planes(), kind.planeBytes(kSamples)), planes);
        EXPECT_EQ(planesOf(loaded(*frame), kind.planeBytes(kSamples)), planes);
    }
}

TEST(AudioBufferFrames, GetMemoryOfTheirOwn) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        const std::vector<Bytes> planes = unlikePlanes(kind, 9);
        const AudioBuffer buffer = loaded(*makeFrame(kind, 9, 8000, planes));
        const auto frame = filled(buffer);
        for (int i = 0; i < kind.planes(); ++i) {
            std::fill_n(frame->extended_data[i], kind.planeBytes(9), std::uint8_t{0});
        }
        EXPECT_EQ(planesOf(buffer, kind.planeBytes(9)), planes);
    }
}

TEST(AudioBufferFrames, GetOneReferenceWithTheSizeOfOnePlane) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        const auto frame = filled(loaded(*makeFrame(kind, 20, 8000, unlikePlanes(kind, 20))));
        ASSERT_NE(frame->buf[0], nullptr);
        EXPECT_EQ(frame->buf[0]->data, frame->data[0]);
        EXPECT_EQ(static_cast<int>(frame->buf[0]->size), kind.planeBytes(20));
        EXPECT_TRUE(av_buffer_is_writable(frame->buf[0]));
        EXPECT_EQ(frame->buf[1], nullptr);
        EXPECT_EQ(frame->nb_extended_buf, 0);
        // One allocation: the planes follow each other.
        for (int i = 1; i < kind.planes(); ++i) {
            EXPECT_EQ(frame->extended_data[i], frame->data[0] + i * kind.planeBytes(20)) << "plane " << i;
        }
    }
}

TEST(AudioBufferFrames, CanBeReferencedByFFmpeg) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        const std::vector<Bytes> planes = unlikePlanes(kind, 20);
        auto frame = filled(loaded(*makeFrame(kind, 20, 8000, planes)));
        const auto reference = makeAvPtr<AVFrame>();
        ASSERT_EQ(av_frame_ref(reference.get(), frame.get()), 0);
        frame.reset();
        EXPECT_EQ(planesOf(*reference, kind.planes(), kind.planeBytes(20)), planes);
    }
}

TEST(AudioBufferFrames, WithoutSamplesGetNoMemory) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        AudioBuffer buffer(kind.layout.mask, kind.format.format);
        buffer.setSampleRate(8000);
        const auto frame = filled(buffer);
        EXPECT_EQ(frame->buf[0], nullptr);
        EXPECT_EQ(frame->data[0], nullptr);
        EXPECT_EQ(frame->nb_samples, 0);
        EXPECT_EQ(frame->sample_rate, 8000);
        EXPECT_EQ(frame->format, kind.format.format);
        EXPECT_EQ(ffmpeg_ext::channelMask(*frame), kind.layout.mask);
        EXPECT_EQ(ffmpeg_ext::channelCount(*frame), kind.layout.channels);
        const AudioBuffer back = loaded(*frame);
        EXPECT_FALSE(back.empty());
        EXPECT_EQ(back.numberOfSamples(), 0U);
    }
}

TEST(AudioBufferLoad, LeavesTheSamplesOfCopiesAlone) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    buffer.loadSamples({11, 22});
    const AudioBuffer copy = buffer;
    buffer.loadAVFrame(makeFrame(kStereo16, 2, 8000, {Bytes(8, 0)}).get());
    EXPECT_THAT(copy.getSample_s16(1), ElementsAre(22, 22));
    EXPECT_THAT(buffer.getSample_s16(1), ElementsAre(0, 0));
    EXPECT_EQ(copy.sampleRate(), 0);
    EXPECT_EQ(buffer.sampleRate(), 8000);
}

TEST(AudioBufferLoad, ReplacesLayoutAndFormat) {
    AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_U8);
    buffer.resize(5000);
    buffer.loadAVFrame(makeFrame(kTwelvePlanes, 3, 8000, unlikePlanes(kTwelvePlanes, 3)).get());
    EXPECT_EQ(buffer.channelLayout(), test::kTwelveChannels);
    EXPECT_EQ(buffer.sampleFormat(), AV_SAMPLE_FMT_FLTP);
    EXPECT_THAT(buffer.getPointersToPlanes(), testing::SizeIs(12));
}

TEST(AudioBufferLoad, SkipsAPlaneThatTheFrameLacks) {
    const std::vector<Bytes> planes = unlikePlanes(kStereoPlanes, 16);
    const auto frame = makeFrame(kStereoPlanes, 16, 8000, planes);
    frame->data[0] = nullptr;
    const AudioBuffer buffer = loaded(*frame);
    EXPECT_EQ(buffer.numberOfSamples(), 16U);
    EXPECT_EQ(planesOf(buffer, 32)[1], planes[1]);
}

TEST(AudioBufferLoad, ReadsUpToEightPlanesFromTheArrayOfTheFrame) {
    const std::vector<Bytes> planes = unlikePlanes(kStereoPlanes, 16);
    const auto frame = makeFrame(kStereoPlanes, 16, 8000, planes);
    std::uint8_t* nothing[2] = {};
    frame->extended_data = nothing;
    const AudioBuffer buffer = loaded(*frame);
    frame->extended_data = frame->data;
    EXPECT_EQ(planesOf(buffer, kStereoPlanes.planeBytes(16)), planes);
}

TEST(AudioBufferLoad, CopiesNoMoreThanTheSamplesOfAPaddedFrame) {
    const auto frame = makeFrame(kStereo16, 3, 8000, {Bytes(12, 1)});
    ASSERT_GT(frame->linesize[0], 12);
    const AudioBuffer buffer = loaded(*frame);
    EXPECT_EQ(buffer.getNeededBufferSize(buffer.numberOfSamples()), 12);
    EXPECT_EQ(filled(buffer)->linesize[0], 12);
}

TEST(AudioBufferLoad, ThrowsForAFrameWithoutALayout) {
    const auto frame = makeAvPtr<AVFrame>();
    frame->format = AV_SAMPLE_FMT_S16;
    frame->sample_rate = 48000;
    frame->nb_samples = 4;
    AudioBuffer buffer;
    EXPECT_THROW_TEXT(std::runtime_error,
                      "Could not get buffer size for audio layout 0, sample format 1, samples 4",
                      buffer.loadAVFrame(frame.get()));
    EXPECT_EQ(buffer.sampleRate(), 48000);
    EXPECT_EQ(buffer.sampleFormat(), AV_SAMPLE_FMT_S16);
}

TEST(AudioBufferLoad, ThrowsForAFrameThatWasReset) {
    const auto frame = makeAvPtr<AVFrame>();
    AudioBuffer buffer;
    EXPECT_THROW_TEXT(std::runtime_error,
                      "Could not get buffer size for audio layout 0, sample format -1, samples 0",
                      buffer.loadAVFrame(frame.get()));
}

TEST(AudioBufferLoad, ThrowsForANegativeCount) {
    const auto frame = makeFrame(kStereo16, 3, 8000, {Bytes(12, 1)});
    frame->nb_samples = -1;
    AudioBuffer buffer;
    EXPECT_THROW(buffer.loadAVFrame(frame.get()), std::runtime_error);
}

TEST(AudioBufferFill, ReadsNoMoreThanThePlaneOfACopyThatWasShrunk) {
    AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16);
    buffer.loadSamples(std::vector<short>(4000, 5));
    AudioBuffer copy = buffer;
    copy.resize(2);
    const auto frame = filled(buffer);
    EXPECT_EQ(frame->nb_samples, 4000);
    EXPECT_EQ(frame->linesize[0], 8000);
    const auto* samples = reinterpret_cast<const short*>(frame->data[0]);
    EXPECT_EQ(samples[0], 5);
    EXPECT_EQ(samples[1], 5);
}

TEST(AudioBufferFill, WritesNoMoreThanTheFrameOfACopyThatWasEnlarged) {
    AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16);
    buffer.loadSamples({1, 2});
    AudioBuffer copy = buffer;
    copy.resize(4000);
    const auto frame = filled(buffer);
    EXPECT_EQ(frame->nb_samples, 2);
    EXPECT_EQ(planesOf(*frame, 1, 4), planesOf(buffer, 4));
}

TEST(AudioBufferFill, LeavesTheTimeOfTheFrame) {
    AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16);
    buffer.loadSamples({1, 2});
    const auto frame = makeAvPtr<AVFrame>();
    frame->pts = 1234;
    buffer.fillAVFrame(frame.get());
    EXPECT_EQ(frame->pts, 1234);
}

TEST(AudioBufferFill, UsesTheArrayOfTheFrameForUpToEightPlanes) {
    const Kind kind = {test::kFormats[9], test::kLayouts[3]};
    const auto frame = filled(loaded(*makeFrame(kind, 4, 8000, unlikePlanes(kind, 4))));
    EXPECT_EQ(frame->extended_data, frame->data);
}

TEST(AudioBufferFill, LeavesALongerArrayAloneWhereEightPlanesAreEnough) {
    const std::vector<Bytes> planes = unlikePlanes(kStereoPlanes, 16);
    const AudioBuffer buffer = loaded(*makeFrame(kStereoPlanes, 16, 8000, planes));
    const auto frame = makeAvPtr<AVFrame>();
    std::uint8_t* nothing[2] = {};
    frame->extended_data = nothing;
    buffer.fillAVFrame(frame.get());
    EXPECT_EQ(frame->extended_data, nothing);
    frame->extended_data = frame->data;
    EXPECT_THAT(nothing, testing::Each(IsNull()));
    EXPECT_EQ(planesOf(*frame, 2, kStereoPlanes.planeBytes(16)), planes);
}

TEST(AudioBufferFill, RepeatsTheFirstEightOfTwelvePlanesInTheArrayOfTheFrame) {
    const auto frame = filled(loaded(*makeFrame(kTwelvePlanes, 4, 8000, unlikePlanes(kTwelvePlanes, 4))));
    ASSERT_NE(frame->extended_data, frame->data);
    for (int i = 0; i < AV_NUM_DATA_POINTERS; ++i) {
        EXPECT_EQ(frame->data[i], frame->extended_data[i]) << i;
    }
    // The member after the array of planes in a frame, which a write of twelve pointers would reach.
    EXPECT_EQ(frame->linesize[0], 16);
    EXPECT_THAT(std::vector<int>(frame->linesize + 1, frame->linesize + AV_NUM_DATA_POINTERS),
                testing::Each(0));
}

TEST(AudioBufferFill, ThrowsForAnEmptyBuffer) {
    const auto frame = makeAvPtr<AVFrame>();
    EXPECT_THROW_TEXT(std::runtime_error,
                      "Could not get buffer size for audio layout 0, sample format -1, samples 0",
                      AudioBuffer().fillAVFrame(frame.get()));
    EXPECT_EQ(frame->buf[0], nullptr);
}

}  // namespace
}  // namespace vidorra
