// What filter graphs make of calls of FFmpeg and of the C library that fail. The linker leads them here.
#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "filter/graph_frames.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/filter/ffmpeg_filter_wrapper.h"
#include "vidorra/filter/filter_graph.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

namespace vidorra::test {
namespace {

// Each one fails the calls that it names; all others are passed to FFmpeg.
struct Failures {
    std::string lookup;
    // The name of an instance, or of the kind of filter.
    std::string creation;
    // The arguments of the source, instead of those that it is given.
    std::string sourceArguments;
    bool graph = false;
    bool list = false;
    bool text = false;
    bool frame = false;
    bool configuration = false;
    // The code for frames sent to the source.
    int sending = 0;
    int sendingFlags = -1;
    // How often frames were sent and sources made.
    int sent = 0;
    int sources = 0;
    // The code for frames requested from the sink.
    int receiving = 0;
    // What the source was given.
    std::string arguments;
};

Failures& failures() {
    static Failures failures;
    return failures;
}

}  // namespace
}  // namespace vidorra::test

using vidorra::test::failures;

extern "C" {

const AVFilter* __real_avfilter_get_by_name(const char* name);
const AVFilter* __wrap_avfilter_get_by_name(const char* name) {
    return failures().lookup == name ? nullptr : __real_avfilter_get_by_name(name);
}

int __real_avfilter_graph_create_filter(AVFilterContext** context, const AVFilter* filter, const char* name,
                                        const char* arguments, void* opaque, AVFilterGraph* graph);
int __wrap_avfilter_graph_create_filter(AVFilterContext** context, const AVFilter* filter, const char* name,
                                        const char* arguments, void* opaque, AVFilterGraph* graph) {
    if (failures().creation == name || failures().creation == filter->name) {
        return vidorra::AvError::OutOfMemory.code();
    }
    const std::string& instead = failures().sourceArguments;
    const bool isSource = std::strcmp(name, "in") == 0;
    const bool replace = !instead.empty() && isSource;
    if (isSource) {
        failures().arguments = arguments;
        ++failures().sources;
    }
    return __real_avfilter_graph_create_filter(context, filter, name, replace ? instead.c_str() : arguments,
                                               opaque, graph);
}

AVFilterGraph* __real_avfilter_graph_alloc();
AVFilterGraph* __wrap_avfilter_graph_alloc() {
    return failures().graph ? nullptr : __real_avfilter_graph_alloc();
}

AVFilterInOut* __real_avfilter_inout_alloc();
AVFilterInOut* __wrap_avfilter_inout_alloc() {
    return failures().list ? nullptr : __real_avfilter_inout_alloc();
}

char* __real_av_strdup(const char* text);
char* __wrap_av_strdup(const char* text) {
    return failures().text ? nullptr : __real_av_strdup(text);
}

AVFrame* __real_av_frame_alloc();
AVFrame* __wrap_av_frame_alloc() {
    return failures().frame ? nullptr : __real_av_frame_alloc();
}

int __real_avfilter_graph_config(AVFilterGraph* graph, void* logContext);
int __wrap_avfilter_graph_config(AVFilterGraph* graph, void* logContext) {
    return failures().configuration ? AVERROR(ENOMEM) : __real_avfilter_graph_config(graph, logContext);
}

int __real_av_buffersrc_add_frame_flags(AVFilterContext* source, AVFrame* frame, int flags);
int __wrap_av_buffersrc_add_frame_flags(AVFilterContext* source, AVFrame* frame, int flags) {
    failures().sendingFlags = flags;
    ++failures().sent;
    return failures().sending != 0 ? failures().sending
                                   : __real_av_buffersrc_add_frame_flags(source, frame, flags);
}

int __real_av_buffersink_get_frame(AVFilterContext* sink, AVFrame* frame);
int __wrap_av_buffersink_get_frame(AVFilterContext* sink, AVFrame* frame) {
    return failures().receiving != 0 ? failures().receiving : __real_av_buffersink_get_frame(sink, frame);
}
}

namespace vidorra::test {
namespace {

using testing::StartsWith;

class FilterCalls : public testing::Test {
protected:
    ~FilterCalls() override { failures() = Failures(); }

    static FilterGraphVideo video() {
        const ContextPtr context = videoContext();
        return {"null", *context, nullptr, AV_PIX_FMT_YUV420P};
    }
    static FilterGraphAudio audio(std::uint64_t layout = 3, int rate = 48000) {
        const ContextPtr context = audioContext(layout);
        context->sample_rate = rate;
        return {"anull", *context};
    }
    static void filterPicture() {
        FFmpegFilterWrapper filter;
        filter.setFilterSpec("null");
        Picture picture(Size{64, 48}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
        static_cast<void>(filter.processPicture(picture));
    }
    static std::string outOfMemory(const std::string& text) {
        return FFmpegError(AvError::OutOfMemory, text).what();
    }
};

TEST_F(FilterCalls, ElementsThatAreMissingAreNamedByTheirKind) {
    for (const char* name : {"buffer", "buffersink"}) {
        failures().lookup = name;
        EXPECT_THROW_TEXT(std::runtime_error, "filtering source or sink element not found (V)", video());
        EXPECT_THROW_TEXT(std::runtime_error, "Filtering source or sink element not found", filterPicture());
        EXPECT_NO_THROW(audio());
    }
    for (const char* name : {"abuffer", "abuffersink"}) {
        failures().lookup = name;
        EXPECT_THROW_TEXT(std::runtime_error, "filtering source or sink element not found (A)", audio());
        EXPECT_NO_THROW(video());
    }
}

TEST_F(FilterCalls, TheSourceOfAGraphIsDeclaredByTheContext) {
    const ContextPtr pictures = videoContext();
    pictures->sample_aspect_ratio = {16, 11};
    const FilterGraphVideo video("null", *pictures, nullptr, AV_PIX_FMT_NV12);
    EXPECT_THAT(failures().arguments,
                StartsWith("video_size=64x48:pix_fmt=nv12:time_base=1/25:pixel_aspect=16/11"));
    const ContextPtr samples = audioContext(0x60f);
    samples->sample_rate = 44100;
    const FilterGraphAudio audio("anull", *samples);
    EXPECT_EQ(failures().arguments,
              "time_base=1/48000:sample_rate=44100:sample_fmt=s16:channel_layout=0x60f");
}

TEST_F(FilterCalls, TheSourceOfAWrapperIsDeclaredByTheFrame) {
    FFmpegFilterWrapper pictures;
    pictures.setFilterSpec("null");
    pictures.initializeVideo(Picture({64, 48}, AV_PIX_FMT_NV12, AVCOL_RANGE_UNSPECIFIED, 32));
    EXPECT_EQ(failures().arguments, "video_size=64x48:pix_fmt=nv12:time_base=1/1:pixel_aspect=1/1");
    FFmpegFilterWrapper samples;
    samples.setFilterSpec("anull");
    AudioBuffer buffer(0x60f, AV_SAMPLE_FMT_FLTP);
    buffer.setSampleRate(44100);
    buffer.resize(10);
    samples.initializeAudio(buffer);
    EXPECT_EQ(failures().arguments,
              "time_base=1/1000000:sample_rate=44100:sample_fmt=fltp:channel_layout=0x60f");
}

TEST_F(FilterCalls, AContextOfTheOtherKindIsRefusedBeforeElementsAreLookedUp) {
    failures().lookup = "buffer";
    const ContextPtr sound = audioContext();
    EXPECT_THROW_TEXT(std::runtime_error, "Only AVMEDIA_TYPE_VIDEO codec type is supported!",
                      FilterGraphVideo("null", *sound, nullptr, AV_PIX_FMT_YUV420P));
    failures().lookup = "abuffer";
    const ContextPtr pictures = videoContext();
    EXPECT_THROW_TEXT(std::runtime_error, "Only AVMEDIA_TYPE_AUDIO codec type is supported!",
                      FilterGraphAudio("anull", *pictures));
}

TEST_F(FilterCalls, EndsThatCannotBeMadeAreNamedWithTheCode) {
    failures().creation = "in";
    EXPECT_THROW_TEXT(FFmpegError, outOfMemory("Cannot create buffer source (V)"), video());
    EXPECT_THROW_TEXT(FFmpegError, outOfMemory("Cannot create buffer source (A)"), audio());
    EXPECT_THROW_TEXT(std::runtime_error, "Cannot create buffer source", filterPicture());
    failures().creation = "out";
    EXPECT_THROW_TEXT(FFmpegError, outOfMemory("Cannot create buffer sink (V)"), video());
    EXPECT_THROW_TEXT(FFmpegError, outOfMemory("Cannot create buffer sink (A)"), audio());
    EXPECT_THROW_TEXT(std::runtime_error, "Cannot create buffer sink", filterPicture());
}

TEST_F(FilterCalls, ASinkThatCannotBePinnedIsNamedWithTheCode) {
    failures().creation = "format";
    EXPECT_THROW_TEXT(FFmpegError, outOfMemory("Cannot set output pixel format"), video());
    failures().creation = "aformat";
    EXPECT_THROW_TEXT(FFmpegError, outOfMemory("Cannot set output sample format"), audio());
}

// FFmpeg's source would refuse these settings first.
TEST_F(FilterCalls, WhatTheSinkCannotBePinnedToIsSaid) {
    failures().sourceArguments = "time_base=1/48000:sample_rate=48000:sample_fmt=s16:channel_layout=0x3";
    const auto text = [](const char* what) {
        return std::string(FFmpegError(AvError::InvalidArgument, what).what());
    };
    const ContextPtr withoutFormat = audioContext(0);
    withoutFormat->sample_fmt = AV_SAMPLE_FMT_NONE;
    withoutFormat->sample_rate = 0;
    EXPECT_THROW_TEXT(FFmpegError, text("Cannot set output sample format"),
                      FilterGraphAudio("anull", *withoutFormat));
    EXPECT_THROW_TEXT(FFmpegError, text("Cannot set output channel layout"), audio(0, 0));
    EXPECT_THROW_TEXT(FFmpegError, text("Cannot set output sample rate"), audio(3, 0));
}

TEST_F(FilterCalls, ShortMemoryIsABadAlloc) {
    const auto expectAll = [] {
        EXPECT_THROW(video(), std::bad_alloc);
        EXPECT_THROW(audio(), std::bad_alloc);
    };
    failures().graph = true;
    expectAll();
    EXPECT_THROW(filterPicture(), std::bad_alloc);
    failures() = Failures();
    failures().list = true;
    expectAll();
    EXPECT_THROW(filterPicture(), std::bad_alloc);
    failures() = Failures();
    failures().text = true;
    expectAll();
    EXPECT_THROW_TEXT(std::runtime_error, "Out of memory", filterPicture());
}

// Unlike a graph that FFmpeg refuses.
TEST_F(FilterCalls, AGraphThatMemoryWasShortForIsBuiltByTheNextFrame) {
    FFmpegFilterWrapper filter;
    filter.setFilterSpec("hflip");
    Picture picture({64, 48}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
    for (bool Failures::*shortage : {&Failures::list, &Failures::graph}) {
        failures().*shortage = true;
        EXPECT_THROW(static_cast<void>(filter.processPicture(picture)), std::bad_alloc);
        failures().*shortage = false;
    }
    EXPECT_EQ(filter.processPicture(picture).frameSize(), picture.frameSize());
}

TEST_F(FilterCalls, SoIsAGraphThatFfmpegCouldNotBuildForWantOfMemory) {
    const auto expectBuiltAfterwards = [](const char* failureText) {
        FFmpegFilterWrapper filter;
        filter.setFilterSpec("hflip");
        Picture picture({64, 48}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
        EXPECT_THROW_TEXT(std::runtime_error, failureText, static_cast<void>(filter.processPicture(picture)));
        failures() = Failures();
        EXPECT_EQ(filter.processPicture(picture).frameSize(), picture.frameSize());
    };
    failures().creation = "in";
    expectBuiltAfterwards("Cannot create buffer source");
    failures().creation = "out";
    expectBuiltAfterwards("Cannot create buffer sink");
    failures().text = true;
    expectBuiltAfterwards("Out of memory");
    failures().configuration = true;
    expectBuiltAfterwards("Cannot configure filter");
}

TEST_F(FilterCalls, FramesArePushedThroughTheGraph) {
    FilterGraphVideo graph = video();
    AvPtr<AVFrame> frame = plainPicture(50, 100);
    EXPECT_TRUE(graph.filterFrame(frame).ok);
    EXPECT_EQ(failures().sendingFlags, 4);
    failures().sendingFlags = -1;
    filterPicture();
    EXPECT_EQ(failures().sendingFlags, 4);
}

TEST_F(FilterCalls, AFrameThatTheSourceRefusesIsGone) {
    FilterGraphVideo graph = video();
    AvPtr<AVFrame> frame = plainPicture(50, 100);
    failures().sending = AvError::InvalidData.code();
    EXPECT_EQ(graph.filterFrame(frame).error, AvError::InvalidData);
    EXPECT_EQ(frame, nullptr);
    EXPECT_THROW_TEXT(std::runtime_error, "Picture filtering failed", filterPicture());
}

TEST_F(FilterCalls, WithoutMemoryForTheOutputTheFrameIsGone) {
    FilterGraphVideo graph = video();
    AvPtr<AVFrame> frame = plainPicture(50, 100);
    failures().frame = true;
    EXPECT_EQ(graph.filterFrame(frame).error, AvError::OutOfMemory);
    EXPECT_EQ(frame, nullptr);
}

// A frame that is left in the graph would come out in the place of the next one, and so on.
TEST_F(FilterCalls, AShortageInFrontOfAGraphLeavesNoFrameInIt) {
    FilterGraphVideo graph = video();
    AvPtr<AVFrame> frame = plainPicture(50, 100, 1);
    failures().frame = true;
    EXPECT_FALSE(graph.filterFrame(frame).ok);
    failures().frame = false;
    frame = plainPicture(50, 100, 2);
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    EXPECT_EQ(frame->pts, 2);
}

// FFmpeg's scalers read freed memory when they are given another frame.
TEST_F(FilterCalls, AGraphThatFailedIsGivenNothingMore) {
    for (int Failures::*failing : {&Failures::sending, &Failures::receiving}) {
        for (const AvError error : {AvError::OutOfMemory, AvError::InvalidData}) {
            failures() = Failures();
            FilterGraphVideo graph = video();
            const auto filter = [&graph] {
                AvPtr<AVFrame> frame = plainPicture(50, 100);
                const AvRes res = graph.filterFrame(frame);
                EXPECT_EQ(frame != nullptr, res.ok);
                return res;
            };
            EXPECT_TRUE(filter().ok);
            failures().*failing = error.code();
            EXPECT_EQ(filter().error, error);
            failures().*failing = 0;
            for (int i = 0; i < 3; ++i) {
                EXPECT_EQ(filter().error, error);
            }
            EXPECT_EQ(failures().sent, 2);
            EXPECT_FALSE(graph.empty());
            FilterGraphVideo moved = std::move(graph);
            EXPECT_TRUE(filter().ok) << "what was moved from has no graph";
        }
    }
}

TEST_F(FilterCalls, AWrapperBuildsAGraphThatFailedAgain) {
    FFmpegFilterWrapper filter;
    filter.setFilterSpec("hflip");
    Picture picture({64, 48}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
    const auto process = [&] { return filter.processPicture(picture); };
    EXPECT_FALSE(process().empty());
    for (const AvError error : {AvError::OutOfMemory, AvError::InvalidData}) {
        failures() = Failures();
        failures().sending = error.code();
        EXPECT_THROW_TEXT(std::runtime_error, "Picture filtering failed", static_cast<void>(process()));
        failures().sending = 0;
        EXPECT_FALSE(process().empty());
        EXPECT_EQ(failures().sources, 1);
        failures().receiving = error.code();
        EXPECT_TRUE(process().empty());
        failures().receiving = 0;
        EXPECT_FALSE(process().empty());
        EXPECT_EQ(failures().sources, 2);
    }
}

// There is nothing wrong with it.
TEST_F(FilterCalls, AWrapperKeepsAGraphThatEndedOrNeedsMore) {
    FFmpegFilterWrapper filter;
    filter.setFilterSpec("hflip");
    Picture picture({64, 48}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
    for (const AvError error : {AvError::Eof, AvError::Again}) {
        failures().receiving = error.code();
        EXPECT_TRUE(filter.processPicture(picture).empty());
        EXPECT_TRUE(filter.processPicture(picture).empty());
    }
    failures().receiving = 0;
    failures().sending = AvError::Eof.code();
    EXPECT_THROW_TEXT(std::runtime_error, "Picture filtering failed",
                      static_cast<void>(filter.processPicture(picture)));
    EXPECT_EQ(failures().sources, 1);
}

}  // namespace
}  // namespace vidorra::test
