#include "vidorra/filter/ffmpeg_filter_wrapper.h"

#include <cstring>
#include <utility>

#include "support/allocation_limit.h"
#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"

extern "C" {
#include <libavutil/avutil.h>
#include <libavutil/frame.h>
}

namespace vidorra::test {
namespace {

constexpr unsigned long kStereo = 3;

// Each byte of the luma is its column.
Picture columns(int width = 64, int height = 48, AVPixelFormat format = AV_PIX_FMT_YUV420P,
                AVColorRange range = AVCOL_RANGE_MPEG) {
    Picture picture(Size{width, height}, format, range, 32);
    for (int plane = 1; plane < 4; ++plane) {
        if (picture.data()[static_cast<std::size_t>(plane)] != nullptr) {
            std::memset(picture.data()[static_cast<std::size_t>(plane)], 128,
                        static_cast<std::size_t>(picture.linesize()[static_cast<std::size_t>(plane)]) *
                            static_cast<std::size_t>(height / 2));
        }
    }
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            picture.data()[0][y * picture.linesize()[0] + x] = static_cast<std::uint8_t>(x);
        }
    }
    return picture;
}

VideoFrame videoFrame(Picture picture, std::int64_t time = 0) {
    return {std::move(picture), Timestamp(Timebase(), time), Frame::NoFlags};
}

AudioBuffer samples(const std::vector<std::int16_t>& interleaved, int rate = 48000) {
    AudioBuffer buffer(kStereo, AV_SAMPLE_FMT_S16);
    buffer.setSampleRate(rate);
    buffer.resize(interleaved.size() / 2);
    std::memcpy(buffer.getPointersToPlanes()[0], interleaved.data(), interleaved.size() * 2);
    return buffer;
}

std::vector<std::int16_t> interleaved(const AudioBuffer& buffer) {
    const auto* first = reinterpret_cast<const std::int16_t*>(buffer.getPointersToPlanes()[0]);
    return {first, first + buffer.numberOfSamples() * 2};
}

class Wrapper : public testing::Test {
protected:
    void set(const char* spec) { mFilter.setFilterSpec(spec); }

    FFmpegFilterWrapper mFilter;
};

TEST_F(Wrapper, WithoutASpecificationFramesPassWithAllTheyHold) {
    VideoFrame video(columns(), Timestamp({1, 25}, 3), Frame::NoSignal);
    video.metadata().addValue("key", "value");
    video.setPosition({5, 6});
    const VideoFrame copy = mFilter.processVideoFrame(video);
    EXPECT_EQ(copy.picture().data(), video.picture().data());
    EXPECT_EQ(copy.flags(), Frame::NoSignal);
    EXPECT_EQ(copy.metadata().getValue("key"), "value");
    EXPECT_EQ(copy.position(), (Point{5, 6}));
    EXPECT_EQ(copy.timestamp().value, 3);
    EXPECT_EQ(copy.timestamp().timebase, Timebase(1, 25));

    AudioFrame audio(samples({1, 2}), Timestamp({1, 48000}, 7));
    audio.setFlags(Frame::LastFrame);
    audio.metadata().addValue("key", "value");
    const AudioFrame audioCopy = mFilter.processAudioFrame(audio);
    EXPECT_EQ(audioCopy.audioBuffer().getPointersToPlanes(),
              std::as_const(audio).audioBuffer().getPointersToPlanes());
    EXPECT_EQ(audioCopy.flags(), Frame::LastFrame);
    EXPECT_EQ(audioCopy.metadata().getValue("key"), "value");
    EXPECT_EQ(audioCopy.timestamp().value, 7);
}

TEST_F(Wrapper, WithoutASpecificationTheWrapperServesBothKinds) {
    VideoFrame video = videoFrame(columns());
    AudioFrame audio(samples({1, 2}), Timestamp());
    EXPECT_FALSE(mFilter.processVideoFrame(video).empty());
    EXPECT_FALSE(mFilter.processAudioFrame(audio).empty());
    EXPECT_FALSE(mFilter.processVideoFrame(video).empty());
}

TEST_F(Wrapper, APictureIsFiltered) {
    set("hflip");
    VideoFrame frame(columns(), Timestamp({1, 25}, 3), Frame::NoSignal);
    frame.metadata().addValue("key", "value");
    frame.setPosition({5, 6});
    const VideoFrame flipped = mFilter.processVideoFrame(frame);
    EXPECT_EQ(flipped.picture().frameSize(), (Size{64, 48}));
    EXPECT_EQ(flipped.picture().pixelFormat(), AV_PIX_FMT_YUV420P);
    for (int x = 0; x < 64; ++x) {
        ASSERT_EQ(flipped.picture().data()[0][x], 63 - x);
    }
    EXPECT_EQ(flipped.flags(), Frame::NoFlags);
    EXPECT_FALSE(flipped.metadata().hasKey("key"));
    EXPECT_EQ(flipped.position(), (Point{0, 0}));
    EXPECT_EQ(flipped.timestamp().value, 3);
    EXPECT_EQ(flipped.timestamp().timebase, Timebase(1, 25));
    EXPECT_FALSE(flipped.timestamp().isNull);
}

TEST_F(Wrapper, TheGraphLeadsToAnyFormat) {
    set("scale=32:24,format=rgb24");
    VideoFrame frame = videoFrame(columns());
    const VideoFrame result = mFilter.processVideoFrame(frame);
    EXPECT_EQ(result.picture().frameSize(), (Size{32, 24}));
    EXPECT_EQ(result.picture().pixelFormat(), AV_PIX_FMT_RGB24);
}

TEST_F(Wrapper, FiltersSeeMicrosecondsAsSeconds) {
    // Later than a million seconds by the clock of the filter, one second by that of the frame.
    set("hue=s=0:enable='gte(t,1000000)'");
    for (const bool late : {false, true}) {
        VideoFrame frame(columns(), Timestamp({1, 25}, late ? 25 : 24), Frame::NoFlags);
        frame.picture().data()[1][0] = 90;
        EXPECT_EQ(mFilter.processVideoFrame(frame).picture().data()[1][0], late ? 128 : 90);
    }
}

TEST_F(Wrapper, AFrameWithoutATimeComesBackWithoutOne) {
    set("hflip");
    VideoFrame video(columns(), Timestamp(), Frame::NoFlags);
    EXPECT_TRUE(mFilter.processVideoFrame(video).timestamp().isNull);
    FFmpegFilterWrapper audioFilter;
    audioFilter.setFilterSpec("anull");
    AudioFrame audio(samples({1, 2}), Timestamp());
    EXPECT_TRUE(audioFilter.processAudioFrame(audio).timestamp().isNull);
}

TEST_F(Wrapper, TheFrameThatGoesInGetsPixelsOfItsOwn) {
    set("hflip");
    const Picture picture = columns();
    VideoFrame frame = videoFrame(picture);
    const std::uint8_t* const shared = frame.picture().data()[0];
    static_cast<void>(mFilter.processVideoFrame(frame));
    EXPECT_NE(frame.picture().data()[0], shared);
    EXPECT_EQ(picture.data()[0], shared);
    EXPECT_EQ(frame.picture().data()[0][5], 5);
}

TEST_F(Wrapper, AFilterThatWritesInPlaceLeavesTheFrameAlone) {
    set("drawbox=c=white:t=fill");
    VideoFrame frame = videoFrame(columns());
    EXPECT_NE(mFilter.processVideoFrame(frame).picture().data()[0][5], 5);
    EXPECT_EQ(frame.picture().data()[0][5], 5);
}

TEST_F(Wrapper, APictureGoesThroughWithoutAChangeToItself) {
    set("hflip");
    Picture picture = columns();
    const std::uint8_t* const before = picture.data()[0];
    const Picture flipped = mFilter.processPicture(picture);
    EXPECT_EQ(flipped.data()[0][0], 63);
    EXPECT_EQ(picture.data()[0], before);
    EXPECT_EQ(picture.data()[0][0], 0);
}

TEST_F(Wrapper, EmptyFramesPass) {
    set("no_such_filter");
    VideoFrame video(Picture(), Timestamp(Timebase(), 5), Frame::LastFrame);
    const VideoFrame copy = mFilter.processVideoFrame(video);
    EXPECT_TRUE(copy.empty());
    EXPECT_EQ(copy.flags(), Frame::LastFrame);
    EXPECT_EQ(copy.timestamp().value, 5);
    AudioFrame audio(AudioBuffer(), Timestamp(Timebase(), 6));
    EXPECT_EQ(mFilter.processAudioFrame(audio).timestamp().value, 6);
    Picture picture;
    EXPECT_TRUE(mFilter.processPicture(picture).empty());
    AudioBuffer buffer;
    EXPECT_TRUE(mFilter.processAudioBuffer(buffer).empty());
}

TEST_F(Wrapper, AnEmptyFrameLeavesTheGraph) {
    set("tblend=all_mode=average");
    VideoFrame frame = videoFrame(columns(), 0);
    EXPECT_TRUE(mFilter.processVideoFrame(frame).empty());
    VideoFrame empty;
    EXPECT_TRUE(mFilter.processVideoFrame(empty).empty());
    frame = videoFrame(columns(), 1);
    EXPECT_FALSE(mFilter.processVideoFrame(frame).empty());
}

// tblend gives nothing for the first picture of a graph.
TEST_F(Wrapper, TheSameSpecificationKeepsTheGraph) {
    set("tblend=all_mode=average");
    VideoFrame frame = videoFrame(columns(), 0);
    EXPECT_TRUE(mFilter.processVideoFrame(frame).empty());
    set("tblend=all_mode=average");
    frame.setTimestamp({Timebase(), 1});
    EXPECT_FALSE(mFilter.processVideoFrame(frame).empty());
    set("tblend=all_mode=addition");
    EXPECT_TRUE(mFilter.processVideoFrame(frame).empty());
}

TEST_F(Wrapper, AnotherShapeBuildsTheGraphAnew) {
    set("tblend=all_mode=average");
    std::int64_t time = 0;
    const auto isFirst = [&](Picture picture) {
        VideoFrame frame = videoFrame(std::move(picture), time++);
        return mFilter.processVideoFrame(frame).empty();
    };
    EXPECT_TRUE(isFirst(columns()));
    EXPECT_FALSE(isFirst(columns()));
    EXPECT_TRUE(isFirst(columns(64, 50)));
    EXPECT_FALSE(isFirst(columns(64, 50)));
    EXPECT_TRUE(isFirst(columns(62, 50)));
    EXPECT_FALSE(isFirst(columns(62, 50)));
    EXPECT_TRUE(isFirst(columns(62, 50, AV_PIX_FMT_YUV422P)));
    EXPECT_FALSE(isFirst(columns(62, 50, AV_PIX_FMT_YUV422P)));
    EXPECT_FALSE(isFirst(columns(62, 50, AV_PIX_FMT_YUV422P, AVCOL_RANGE_JPEG)));
}

TEST_F(Wrapper, ADelayingFilterGivesEmptyFramesFirst) {
    set("tblend=all_mode=average");
    VideoFrame video = videoFrame(columns());
    const VideoFrame none = mFilter.processVideoFrame(video);
    EXPECT_TRUE(none.picture().empty());
    EXPECT_EQ(none.picture().frameSize(), (Size{0, 0}));
    EXPECT_FALSE(none.timestamp().isNull);

    FFmpegFilterWrapper audioFilter;
    audioFilter.setFilterSpec("asetnsamples=n=4");
    AudioFrame audio(samples({1, 2, 3, 4}), Timestamp(Timebase(), 0));
    EXPECT_TRUE(audioFilter.processAudioFrame(audio).empty());
    audio = AudioFrame(samples({5, 6, 7, 8}), Timestamp(Timebase(), 42));
    EXPECT_EQ(interleaved(audioFilter.processAudioFrame(audio).audioBuffer()),
              (std::vector<std::int16_t>{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(Wrapper, SamplesAreFiltered) {
    set("pan=stereo|c0=c1|c1=c0");
    AudioFrame frame(samples({1, 2, 3, 4}), Timestamp({1, 48000}, 96000));
    frame.setFlags(Frame::NoSignal);
    frame.metadata().addValue("key", "value");
    const AudioFrame result = mFilter.processAudioFrame(frame);
    EXPECT_EQ(interleaved(result.audioBuffer()), (std::vector<std::int16_t>{2, 1, 4, 3}));
    EXPECT_EQ(result.audioBuffer().sampleRate(), 48000);
    EXPECT_EQ(result.timestamp().value, 96000);
    EXPECT_EQ(result.timestamp().timebase, Timebase(1, 48000));
    EXPECT_EQ(result.flags(), Frame::NoFlags);
    EXPECT_FALSE(result.metadata().hasKey("key"));
    AudioBuffer buffer = samples({5, 6});
    EXPECT_EQ(interleaved(mFilter.processAudioBuffer(buffer)), (std::vector<std::int16_t>{6, 5}));
}

TEST_F(Wrapper, TimesInTheUnitOfAFilterAreTakenForMicroseconds) {
    set("aresample=24000");
    AudioFrame frame(samples(std::vector<std::int16_t>(9600)), Timestamp(Timebase(), 2000000));
    EXPECT_EQ(mFilter.processAudioFrame(frame).timestamp().value, 48000);
}

TEST_F(Wrapper, SamplesComeOutAsTheSpecificationSays) {
    set("aformat=sample_fmts=fltp:channel_layouts=mono:sample_rates=24000");
    AudioBuffer buffer = samples(std::vector<std::int16_t>(9600, 1000));
    const AudioBuffer result = mFilter.processAudioBuffer(buffer);
    EXPECT_EQ(result.sampleFormat(), AV_SAMPLE_FMT_FLTP);
    EXPECT_EQ(result.channelLayout(), 4U);
    EXPECT_EQ(result.sampleRate(), 24000);
}

TEST_F(Wrapper, SamplesOfAnotherKindAreAFailure) {
    set("anull");
    AudioBuffer first = samples({1, 2});
    static_cast<void>(mFilter.processAudioBuffer(first));
    AudioBuffer second = samples({1, 2}, 44100);
    EXPECT_THROW_TEXT(std::runtime_error, "Picture filtering failed",
                      static_cast<void>(mFilter.processAudioBuffer(second)));
    EXPECT_EQ(interleaved(mFilter.processAudioBuffer(first)), (std::vector<std::int16_t>{1, 2}));
}

TEST_F(Wrapper, ABufferWithoutSamplesDoesNoHarm) {
    set("anull");
    AudioBuffer none(kStereo, AV_SAMPLE_FMT_S16);
    none.setSampleRate(48000);
    try {
        EXPECT_EQ(mFilter.processAudioBuffer(none).numberOfSamples(), 0U);
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Picture filtering failed");
    }
    AudioBuffer some = samples({1, 2});
    EXPECT_EQ(interleaved(mFilter.processAudioBuffer(some)), (std::vector<std::int16_t>{1, 2}));
}

TEST_F(Wrapper, AWrapperIsBoundToTheKindOfItsFirstGraph) {
    set("hflip");
    Picture picture = columns();
    static_cast<void>(mFilter.processPicture(picture));
    AudioBuffer buffer = samples({1, 2});
    const auto processAudio = [&] { static_cast<void>(mFilter.processAudioBuffer(buffer)); };
    EXPECT_THROW_TEXT(std::runtime_error, "Filter is initialized for processingvideo", processAudio());
    for (const char* spec : {"anull", ""}) {
        set(spec);
        EXPECT_THROW_TEXT(std::runtime_error, "Filter is initialized for processingvideo", processAudio());
    }
    FFmpegFilterWrapper audioFilter;
    audioFilter.setFilterSpec("anull");
    static_cast<void>(audioFilter.processAudioBuffer(buffer));
    EXPECT_THROW_TEXT(std::runtime_error, "Filter is initialized for processing audio",
                      static_cast<void>(audioFilter.processPicture(picture)));
}

TEST_F(Wrapper, AGraphThatFailsBindsToNoKind) {
    set("no_such_filter");
    Picture picture = columns();
    EXPECT_THROW_TEXT(std::runtime_error, "Cannot parse filter spec",
                      static_cast<void>(mFilter.processPicture(picture)));
    set("anull");
    AudioBuffer buffer = samples({1, 2});
    EXPECT_EQ(interleaved(mFilter.processAudioBuffer(buffer)), (std::vector<std::int16_t>{1, 2}));
}

TEST_F(Wrapper, AFailedGraphGoesOnFailing) {
    struct Row {
        const char* spec;
        const char* text;
    };
    for (const Row& row :
         {Row{"no_such_filter", "Cannot parse filter spec"}, Row{"crop=1000:1000", "Cannot configure filter"},
          Row{"[other]hflip", "Cannot configure filter"},
          Row{"format=nv12,hwupload", "Cannot configure filter"}}) {
        SCOPED_TRACE(row.spec);
        set(row.spec);
        Picture picture = columns();
        EXPECT_THROW_TEXT(std::runtime_error, row.text, static_cast<void>(mFilter.processPicture(picture)));
        EXPECT_THROW_TEXT(std::runtime_error, "Picture filtering failed",
                          static_cast<void>(mFilter.processPicture(picture)));
        Picture other = columns(32, 48);
        EXPECT_THROW_TEXT(std::runtime_error, row.text, static_cast<void>(mFilter.processPicture(other)));
    }
    set("hflip");
    Picture picture = columns();
    EXPECT_EQ(mFilter.processPicture(picture).data()[0][0], 63);
}

TEST_F(Wrapper, AfterAShortageOfMemoryInsideTheGraphIsBuiltAgain) {
    set("scale=640:480,scale=64:48");
    Picture picture = columns();
    {
        const AllocationLimit limit(100'000);
        EXPECT_THROW_TEXT(std::runtime_error, "Picture filtering failed",
                          static_cast<void>(mFilter.processPicture(picture)));
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(mFilter.processPicture(picture).frameSize(), (Size{64, 48}));
    }
}

TEST_F(Wrapper, AnEndedGraphIsNotBuiltAgain) {
    set("trim=end_frame=2");
    int given = 0;
    for (int i = 0; i < 6; ++i) {
        VideoFrame frame = videoFrame(columns(), i);
        try {
            given += mFilter.processVideoFrame(frame).empty() ? 0 : 1;
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "Picture filtering failed");
        }
    }
    EXPECT_EQ(given, 2);
}

TEST_F(Wrapper, WhatHasNoSourceIsNamed) {
    set("null");
    Picture nva12(Size{64, 48}, NVA12, AVCOL_RANGE_MPEG, 32);
    EXPECT_THROW_TEXT(std::runtime_error, "Cannot create buffer source",
                      static_cast<void>(mFilter.processPicture(nva12)));
    set("anull");
    AudioBuffer withoutRate = samples({1, 2}, -5);
    EXPECT_THROW_TEXT(std::runtime_error, "Cannot create buffer source",
                      static_cast<void>(mFilter.processAudioBuffer(withoutRate)));
    EXPECT_THROW_TEXT(std::runtime_error, "Cannot create buffer source", mFilter.initializeVideo(Picture()));
}

TEST_F(Wrapper, GraphsCanBeBuiltInAdvance) {
    set("tblend=all_mode=average");
    const Picture picture = columns();
    mFilter.initializeVideo(picture);
    VideoFrame frame = videoFrame(picture, 0);
    EXPECT_TRUE(mFilter.processVideoFrame(frame).empty());
    mFilter.initializeVideo(picture);
    EXPECT_TRUE(mFilter.processVideoFrame(frame).empty());
    mFilter.destroyGraph();
    EXPECT_TRUE(mFilter.processVideoFrame(frame).empty());
    frame.setTimestamp({Timebase(), 1});
    EXPECT_FALSE(mFilter.processVideoFrame(frame).empty());
    AudioBuffer buffer = samples({1, 2});
    EXPECT_THROW(static_cast<void>(mFilter.processAudioBuffer(buffer)), std::runtime_error);
}

TEST_F(Wrapper, WithoutASpecificationNoGraphIsBuilt) {
    mFilter.initializeVideo(columns());
    mFilter.initializeInternal("nonsense", AVMEDIA_TYPE_SUBTITLE);
    AudioBuffer buffer = samples({1, 2});
    EXPECT_EQ(interleaved(mFilter.processAudioBuffer(buffer)), (std::vector<std::int16_t>{1, 2}));
}

TEST_F(Wrapper, OtherMediaThanPicturesAndSamplesAreUnsupported) {
    set("null");
    EXPECT_THROW_TEXT(std::runtime_error, "Unsupported media format",
                      mFilter.initializeInternal("", AVMEDIA_TYPE_SUBTITLE));
    EXPECT_THROW_TEXT(std::runtime_error, "Cannot create buffer source",
                      mFilter.initializeInternal("nonsense", AVMEDIA_TYPE_VIDEO));
}

TEST_F(Wrapper, AGraphForAnotherShapeThanTheFramesTakesNone) {
    set("hflip");
    Picture picture = columns();
    mFilter.initializeVideo(picture);
    mFilter.initializeInternal("video_size=640x480:pix_fmt=yuv420p:time_base=1/1:pixel_aspect=1/1",
                               AVMEDIA_TYPE_VIDEO);
    EXPECT_THROW_TEXT(std::runtime_error, "Picture filtering failed",
                      static_cast<void>(mFilter.processPicture(picture)));
    mFilter.createGraph();
    EXPECT_THROW_TEXT(std::runtime_error, "Picture filtering failed",
                      static_cast<void>(mFilter.processPicture(picture)));
}

TEST_F(Wrapper, ThePictureKeepsItsRange) {
    for (const auto range : {AVCOL_RANGE_MPEG, AVCOL_RANGE_JPEG}) {
        for (const char* spec : {"hflip", "scale=32:24", "format=nv12", "scale=32:24,format=yuv444p"}) {
            SCOPED_TRACE(spec);
            FFmpegFilterWrapper filter;
            filter.setFilterSpec(spec);
            Picture picture = columns(64, 48, AV_PIX_FMT_YUV420P, range);
            std::memset(picture.data()[0], 5, static_cast<std::size_t>(picture.linesize()[0]) * 48);
            const Picture result = filter.processPicture(picture);
            EXPECT_EQ(result.data()[0][0], 5);
            EXPECT_EQ(result.colorRange(), range);
        }
    }
}

TEST_F(Wrapper, ASpecificationCanAskForARange) {
    set("scale=32:24:out_range=tv");
    Picture picture = columns(64, 48, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG);
    std::memset(picture.data()[0], 255, static_cast<std::size_t>(picture.linesize()[0]) * 48);
    const Picture result = mFilter.processPicture(picture);
    EXPECT_NEAR(result.data()[0][0], 235, 1);
    EXPECT_EQ(result.colorRange(), AVCOL_RANGE_MPEG);
}

}  // namespace
}  // namespace vidorra::test
