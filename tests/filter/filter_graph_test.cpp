#include "vidorra/filter/filter_graph.h"

#include <cstring>
#include <utility>

#include "ffmpeg/channels.h"
#include "filter/graph_frames.h"
#include "support/allocation_limit.h"
#include "support/log_capture.h"
#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavutil/buffer.h>
}

namespace vidorra::test {
namespace {

// Lets tests see the graph.
class SeenGraph : public FilterGraphVideo {
public:
    using FilterGraphVideo::FilterGraphVideo;
    const AVFilterGraph& graph() const { return *mGraph; }
};

FilterGraphVideo videoGraph(const std::string& spec) {
    const ContextPtr context = videoContext();
    return {spec, *context, nullptr, AV_PIX_FMT_YUV420P};
}

FilterGraphAudio audioGraph(const std::string& spec) {
    const ContextPtr context = audioContext();
    return {spec, *context};
}

// FFmpeg's own code for a description that cannot be parsed.
int parseCode(const char* spec) {
    AVFilterGraph* graph = avfilter_graph_alloc();
    AVFilterInOut* inputs = nullptr;
    AVFilterInOut* outputs = nullptr;
    const int code = avfilter_graph_parse2(graph, spec, &inputs, &outputs);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    avfilter_graph_free(&graph);
    return code;
}

// Expects FFmpegError with this text before the error's own, and returns the code.
template <class Build>
int failure(const std::string& text, Build build) {
    try {
        build();
    } catch (const FFmpegError& error) {
        EXPECT_STREQ(error.what(), FFmpegError(error.error(), text).what());
        return error.error().code();
    } catch (const std::exception& error) {
        ADD_FAILURE() << "thrown: " << error.what();
        return 0;
    }
    ADD_FAILURE() << "nothing was thrown, expected " << text;
    return 0;
}

TEST(FilterGraph, WithoutAGraphFramesPassAsTheyAre) {
    FilterGraphVideo video;
    FilterGraphAudio audio;
    EXPECT_TRUE(video.empty());
    EXPECT_TRUE(audio.empty());
    AvPtr<AVFrame> frame = plainPicture(50, 100, 7);
    frame->pict_type = AV_PICTURE_TYPE_I;
    frame->color_range = AVCOL_RANGE_MPEG;
    const AVFrame* const before = frame.get();
    EXPECT_TRUE(video.filterFrame(frame).ok);
    EXPECT_TRUE(audio.filterFrame(frame).ok);
    EXPECT_EQ(frame.get(), before);
    EXPECT_EQ(frame->pict_type, AV_PICTURE_TYPE_I);
    EXPECT_EQ(frame->color_range, AVCOL_RANGE_MPEG);
}

TEST(FilterGraph, AGraphOfOthersTakesNoFrames) {
    FilterGraphBase graph(
        {avfilter_graph_alloc(), [](AVFilterGraph* freed) { avfilter_graph_free(&freed); }});
    EXPECT_FALSE(graph.empty());
    AvPtr<AVFrame> frame = plainPicture(50, 100);
    EXPECT_EQ(graph.filterFrame(frame).error, AvError::InvalidArgument);
    EXPECT_EQ(frame, nullptr);
}

TEST(FilterGraph, TheFilteredPictureTakesThePlaceOfTheFrame) {
    FilterGraphVideo graph = videoGraph("hflip");
    AvPtr<AVFrame> frame = plainPicture(0, 128, 1234567890123);
    for (int x = 0; x < 64; ++x) {
        frame->data[0][x] = static_cast<std::uint8_t>(x);
    }
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    ASSERT_NE(frame, nullptr);
    for (int x = 0; x < 64; ++x) {
        ASSERT_EQ(frame->data[0][x], 63 - x);
    }
    EXPECT_EQ(frame->pts, 1234567890123);
    EXPECT_EQ(frame->width, 64);
    EXPECT_EQ(frame->height, 48);
}

TEST(FilterGraph, TheEncoderChoosesThePictureType) {
    for (const char* spec : {"null", "hflip", "format=yuv444p"}) {
        SCOPED_TRACE(spec);
        FilterGraphVideo graph = videoGraph(spec);
        AvPtr<AVFrame> frame = plainPicture(50, 100);
        frame->pict_type = AV_PICTURE_TYPE_I;
        ASSERT_TRUE(graph.filterFrame(frame).ok);
        EXPECT_EQ(frame->pict_type, AV_PICTURE_TYPE_NONE);
    }
}

TEST(FilterGraph, PicturesComeOutInTheFormatOfTheCodec) {
    const ContextPtr context = videoContext();
    context->pix_fmt = AV_PIX_FMT_NV12;
    FilterGraphVideo graph("scale=32:24,format=yuv422p", *context, nullptr, AV_PIX_FMT_YUV420P);
    AvPtr<AVFrame> frame = plainPicture(50, 100);
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    EXPECT_EQ(frame->format, AV_PIX_FMT_NV12);
    EXPECT_EQ(frame->width, 32);
    EXPECT_EQ(frame->height, 24);
}

TEST(FilterGraph, TheSourceHasTheFormatOfTheArgument) {
    const ContextPtr context = videoContext();
    context->pix_fmt = AV_PIX_FMT_NV12;
    SeenGraph graph("null", *context, nullptr, AV_PIX_FMT_GRAY8);
    EXPECT_EQ(graph.graph().filters[0]->outputs[0]->format, AV_PIX_FMT_GRAY8);
    AvPtr<AVFrame> frame = plainPicture(AV_PIX_FMT_GRAY8, 64, 48);
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    EXPECT_EQ(frame->format, AV_PIX_FMT_NV12);
}

TEST(FilterGraph, AFormatWithoutANameStandsForYuv420p) {
    const ContextPtr context = videoContext();
    for (const auto format : {AV_PIX_FMT_NONE, static_cast<AVPixelFormat>(9999)}) {
        FilterGraphVideo graph("null", *context, nullptr, format);
        AvPtr<AVFrame> frame = plainPicture(50, 100);
        EXPECT_TRUE(graph.filterFrame(frame).ok);
        const SeenGraph seen("null", *context, nullptr, format);
        EXPECT_EQ(seen.graph().filters[0]->outputs[0]->format, AV_PIX_FMT_YUV420P);
    }
}

TEST(FilterGraph, TheSourceIsDeclaredWithTheSettingsOfTheCodec) {
    const ContextPtr context = videoContext();
    context->time_base = {1001, 30000};
    context->sample_aspect_ratio = {16, 11};
    const SeenGraph graph("null", *context, nullptr, AV_PIX_FMT_YUV420P);
    const AVFilterLink* link = graph.graph().filters[0]->outputs[0];
    EXPECT_STREQ(graph.graph().filters[0]->name, "in");
    EXPECT_STREQ(graph.graph().filters[1]->name, "out");
    EXPECT_EQ(link->w, 64);
    EXPECT_EQ(link->h, 48);
    EXPECT_EQ(av_cmp_q(link->time_base, {1001, 30000}), 0);
    EXPECT_EQ(av_cmp_q(link->sample_aspect_ratio, {16, 11}), 0);
}

TEST(FilterGraph, LabelsInAndOutNameTheEnds) {
    for (const char* spec : {"[in]hflip[out]", "hflip[out]", "[in]hflip",
                             "[in]split[a][b];[a]nullsink;[b]hflip[out]", "sws_flags=bilinear;hflip"}) {
        SCOPED_TRACE(spec);
        FilterGraphVideo graph = videoGraph(spec);
        AvPtr<AVFrame> frame = plainPicture(0, 128);
        frame->data[0][0] = 255;
        ASSERT_TRUE(graph.filterFrame(frame).ok);
        EXPECT_EQ(frame->data[0][63], 255);
    }
}

TEST(FilterGraph, ADelayingFilterAsksForMoreWithAnEmptyHandle) {
    FilterGraphVideo graph = videoGraph("tblend=all_mode=average");
    AvPtr<AVFrame> frame = plainPicture(40, 100, 0);
    EXPECT_EQ(graph.filterFrame(frame).error, AvError::Again);
    EXPECT_EQ(frame, nullptr);
    frame = plainPicture(60, 100, 1);
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    EXPECT_EQ(frame->data[0][0], 50);
}

TEST(FilterGraph, OneFrameComesOutAtATimeAndTheRestIsKept) {
    FilterGraphAudio graph = audioGraph("asetnsamples=n=2");
    AvPtr<AVFrame> frame = stereo({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, 100);
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    EXPECT_EQ(samplesOf(*frame), (std::vector<std::int16_t>{1, 2, 3, 4}));
    EXPECT_EQ(frame->pts, 100);
    frame = stereo({13, 14, 15, 16}, 106);
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    EXPECT_EQ(samplesOf(*frame), (std::vector<std::int16_t>{5, 6, 7, 8}));
    EXPECT_EQ(frame->pts, 102);
}

TEST(FilterGraph, FramesThatWaitAreLoggedOnceAndBoundedAndStayBounded) {
    FilterGraphAudio graph = audioGraph("asetnsamples=n=1");
    const LogCapture log;
    // For each frame one is waiting, in the sink or briefly before the filter.
    int taken = 0;
    int takenUnlogged = 0;
    while (taken < 1000) {
        AvPtr<AVFrame> frame = stereo({1, 2, 3, 4}, 2 * taken);
        const AvRes res = graph.filterFrame(frame);
        if (!res.ok) {
            EXPECT_EQ(res.error, AvError::OutOfMemory);
            break;
        }
        ASSERT_EQ(frame->pts, taken);
        ++taken;
        takenUnlogged += log.lines().empty() ? 1 : 0;
    }
    EXPECT_NEAR(takenUnlogged, 50, 1);
    EXPECT_NEAR(taken, 250, 1);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0],
              (LogCapture::Line{2,
                                "FilterGraph: more than 50 filtered frames wait: the filters give more "
                                "frames than they get. 250 waiting frames are an error."}));
    for (int i = 0; i < 3; ++i) {
        AvPtr<AVFrame> frame = stereo({1, 2, 3, 4}, 498);
        EXPECT_EQ(graph.filterFrame(frame).error, AvError::OutOfMemory);
        EXPECT_EQ(frame, nullptr);
    }
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST(FilterGraph, FramesThatWaitedComeOutBeforeTheEnd) {
    FilterGraphAudio graph = audioGraph("asetnsamples=n=1");
    AvPtr<AVFrame> frame = stereo({1, 2, 3, 4, 5, 6}, 0);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(graph.filterFrame(frame).ok);
        EXPECT_EQ(frame->pts, i);
        frame.reset();
    }
    EXPECT_EQ(graph.filterFrame(frame).error, AvError::Eof);
}

TEST(FilterGraph, AGraphThatHasEndedStaysEnded) {
    FilterGraphVideo graph = videoGraph("null");
    AvPtr<AVFrame> frame = plainPicture(50, 100);
    frame.reset();
    EXPECT_EQ(graph.filterFrame(frame).error, AvError::Eof);
    frame = plainPicture(50, 100);
    EXPECT_EQ(graph.filterFrame(frame).error, AvError::Eof);
    EXPECT_EQ(graph.filterFrame(frame).error, AvError::Eof);
}

// After a picture for which it got no memory, FFmpeg's scaler crashes on the next one.
TEST(FilterGraph, AfterAShortageOfMemoryInsideEveryFrameIsRefused) {
    FilterGraphVideo graph = videoGraph("scale=640:480,scale=64:48");
    AvPtr<AVFrame> frame = plainPicture(50, 100, 0);
    {
        const AllocationLimit limit(100'000);
        EXPECT_EQ(graph.filterFrame(frame).error, AvError::OutOfMemory);
    }
    for (int i = 1; i < 4; ++i) {
        frame = plainPicture(50, 100, i);
        EXPECT_EQ(graph.filterFrame(frame).error, AvError::OutOfMemory);
        EXPECT_EQ(frame, nullptr);
    }
}

TEST(FilterGraph, ANullFrameEndsTheGraphForGood) {
    FilterGraphVideo graph = videoGraph("null");
    AvPtr<AVFrame> frame = plainPicture(50, 100);
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    frame.reset();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(graph.filterFrame(frame).error, AvError::Eof);
        EXPECT_EQ(frame, nullptr);
    }
    frame = plainPicture(50, 100);
    EXPECT_FALSE(graph.filterFrame(frame).ok);
    EXPECT_EQ(frame, nullptr);
}

TEST(FilterGraph, AFilterThatEndsEndsTheGraph) {
    FilterGraphVideo graph = videoGraph("trim=end_frame=2");
    for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        AvPtr<AVFrame> frame = plainPicture(50, 100, i);
        const AvRes res = graph.filterFrame(frame);
        EXPECT_EQ(res.ok, i < 2);
        if (i >= 2) {
            EXPECT_EQ(res.error, AvError::Eof);
            EXPECT_EQ(frame, nullptr);
        }
    }
}

TEST(FilterGraph, PicturesOfAnotherShapeAreRefused) {
    FilterGraphVideo graph = videoGraph("hflip,scale=32:24");
    struct Row {
        AVPixelFormat format;
        int width;
        int height;
    };
    for (const Row& row : {Row{AV_PIX_FMT_YUV420P, 62, 48}, Row{AV_PIX_FMT_YUV420P, 64, 46},
                           Row{AV_PIX_FMT_YUV444P, 64, 48}, Row{AV_PIX_FMT_RGB24, 16, 16}}) {
        AvPtr<AVFrame> frame = plainPicture(row.format, row.width, row.height);
        EXPECT_EQ(graph.filterFrame(frame).error, AvError::InvalidArgument);
        EXPECT_EQ(frame, nullptr);
    }
    AvPtr<AVFrame> frame = plainPicture(50, 100);
    EXPECT_TRUE(graph.filterFrame(frame).ok);
}

TEST(FilterGraph, AScalerInFrontTakesPicturesOfAnyShape) {
    FilterGraphVideo graph = videoGraph("scale=32:24");
    for (const auto format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_RGB24, AV_PIX_FMT_NV12, AV_PIX_FMT_YUV420P}) {
        AvPtr<AVFrame> frame = plainPicture(format, 128, 20);
        ASSERT_TRUE(graph.filterFrame(frame).ok);
        EXPECT_EQ(frame->format, AV_PIX_FMT_YUV420P);
        EXPECT_EQ(frame->width, 32);
        EXPECT_EQ(frame->height, 24);
    }
}

TEST(FilterGraph, PicturesInNva12AreRefusedEvenByAScaler) {
    FilterGraphVideo graph = videoGraph("scale=32:24");
    AvPtr<AVFrame> frame = plainPicture(AV_PIX_FMT_NV12, 64, 48);
    frame->format = NVA12;
    EXPECT_EQ(graph.filterFrame(frame).error, AvError::InvalidArgument);
    EXPECT_EQ(frame, nullptr);
}

struct RangeRow {
    const char* name;
    const char* spec;
    AVColorRange ofContext;
    AVColorRange range;
    AVPixelFormat sink = AV_PIX_FMT_YUV420P;
};

class FilterGraphRange : public testing::TestWithParam<RangeRow> {};

// 5 is black enough to be lost in a conversion that takes it for limited range.
TEST_P(FilterGraphRange, StaysAsItIs) {
    const RangeRow& row = GetParam();
    const ContextPtr context = videoContext();
    context->color_range = row.ofContext;
    context->pix_fmt = row.sink;
    FilterGraphVideo graph(row.spec, *context, nullptr, AV_PIX_FMT_YUV420P);
    const std::uint8_t lumas[] = {5, 50, 250};
    for (const std::uint8_t luma : lumas) {
        AvPtr<AVFrame> frame = plainPicture(luma, 128);
        frame->color_range = row.range;
        ASSERT_TRUE(graph.filterFrame(frame).ok);
        EXPECT_NEAR(frame->data[0][0], luma, 1);
        EXPECT_NEAR(frame->data[1][0], 128, 1);
        EXPECT_EQ(frame->color_range, row.range);
    }
}

constexpr RangeRow kRangeRows[] = {
    {.name = "NoFilter", .spec = "null", .ofContext = AVCOL_RANGE_JPEG, .range = AVCOL_RANGE_JPEG},
    {.name = "NoFilterLimited", .spec = "null", .ofContext = AVCOL_RANGE_JPEG, .range = AVCOL_RANGE_MPEG},
    {.name = "Scaled", .spec = "scale=32:24", .ofContext = AVCOL_RANGE_JPEG, .range = AVCOL_RANGE_JPEG},
    {.name = "ScaledLimited",
     .spec = "scale=32:24",
     .ofContext = AVCOL_RANGE_JPEG,
     .range = AVCOL_RANGE_MPEG},
    {.name = "ScaledUnsaid",
     .spec = "scale=32:24",
     .ofContext = AVCOL_RANGE_JPEG,
     .range = AVCOL_RANGE_UNSPECIFIED},
    {.name = "ScaledWithFlags",
     .spec = "sws_flags=bilinear;scale=32:24,format=yuv444p",
     .ofContext = AVCOL_RANGE_JPEG,
     .range = AVCOL_RANGE_JPEG},
    {.name = "Pinned",
     .spec = "null",
     .ofContext = AVCOL_RANGE_JPEG,
     .range = AVCOL_RANGE_JPEG,
     .sink = AV_PIX_FMT_NV12},
    {.name = "PinnedLimited",
     .spec = "null",
     .ofContext = AVCOL_RANGE_JPEG,
     .range = AVCOL_RANGE_MPEG,
     .sink = AV_PIX_FMT_NV12},
    {.name = "ThroughRgb", .spec = "format=rgb24", .ofContext = AVCOL_RANGE_JPEG, .range = AVCOL_RANGE_JPEG},
    {.name = "ThroughRgbLimited",
     .spec = "format=rgb24",
     .ofContext = AVCOL_RANGE_JPEG,
     .range = AVCOL_RANGE_MPEG},
    {.name = "ThroughRgbForACodecWithoutRange",
     .spec = "format=gbrp",
     .ofContext = AVCOL_RANGE_UNSPECIFIED,
     .range = AVCOL_RANGE_JPEG},
    // The letters alone say nothing, and not every option that is called so is of colours.
    {.name = "InOrange",
     .spec = "drawbox=x=62:y=46:w=2:h=2:c=orange,scale=32:24",
     .ofContext = AVCOL_RANGE_JPEG,
     .range = AVCOL_RANGE_MPEG},
    {.name = "WithALabelThatIsArranged",
     .spec = "scale=32:24[arranged];[arranged]format=yuv444p",
     .ofContext = AVCOL_RANGE_JPEG,
     .range = AVCOL_RANGE_MPEG},
    {.name = "WithARangeOfPixels",
     .spec = "deband=range=8,scale=32:24",
     .ofContext = AVCOL_RANGE_JPEG,
     .range = AVCOL_RANGE_MPEG},
    {.name = "WithARangeThatIsTheDefault",
     .spec = "scale=32:24:out_range=auto",
     .ofContext = AVCOL_RANGE_JPEG,
     .range = AVCOL_RANGE_MPEG},
    {.name = "ScaledForACodecWithoutRange",
     .spec = "scale=32:24,format=yuv422p",
     .ofContext = AVCOL_RANGE_UNSPECIFIED,
     .range = AVCOL_RANGE_MPEG},
    {.name = "ScaledForALimitedCodec",
     .spec = "scale=32:24,format=yuv444p",
     .ofContext = AVCOL_RANGE_MPEG,
     .range = AVCOL_RANGE_JPEG},
    {.name = "ScaledLimitedForALimitedCodec",
     .spec = "scale=32:24,format=nv12",
     .ofContext = AVCOL_RANGE_MPEG,
     .range = AVCOL_RANGE_MPEG},
};

INSTANTIATE_TEST_SUITE_P(FilterGraph, FilterGraphRange, testing::ValuesIn(kRangeRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(FilterGraph, AScalerThatIsInsertedHasTheFlagsOfTheSpecification) {
    const ContextPtr context = videoContext();
    context->color_range = AVCOL_RANGE_JPEG;
    context->pix_fmt = AV_PIX_FMT_YUV444P;
    FilterGraphVideo graph("sws_flags=neighbor;null", *context, nullptr, AV_PIX_FMT_YUV420P);
    AvPtr<AVFrame> frame = plainPicture(50, 100);
    for (int y = 0; y < 24; ++y) {
        for (int x = 16; x < 32; ++x) {
            frame->data[1][y * frame->linesize[1] + x] = 200;
        }
    }
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    // A filter of more than one tap would mix the two at the edge.
    for (int x = 0; x < 64; ++x) {
        ASSERT_EQ(frame->data[1][x], x < 32 ? 100 : 200) << x;
    }
}

TEST(FilterGraph, ASpecificationCanAskForARange) {
    struct Row {
        const char* spec;
        AVColorRange range;
        int luma;
        AVColorRange expectedRange;
        int expectedLuma;
    };
    // 235 is white in limited range, 255 in full range.
    for (const Row& row :
         {Row{"scale=32:24:out_range=tv", AVCOL_RANGE_JPEG, 255, AVCOL_RANGE_MPEG, 235},
          Row{"scale=32:24:out_range=pc", AVCOL_RANGE_MPEG, 235, AVCOL_RANGE_JPEG, 255},
          Row{"scale=32:24:in_range=tv:out_range=pc", AVCOL_RANGE_UNSPECIFIED, 235, AVCOL_RANGE_JPEG, 255},
          Row{"setrange=pc", AVCOL_RANGE_MPEG, 235, AVCOL_RANGE_JPEG, 235},
          Row{"setparams=range=full", AVCOL_RANGE_MPEG, 235, AVCOL_RANGE_JPEG, 235},
          Row{"sws_flags=bilinear:out_range=tv;scale=32:24", AVCOL_RANGE_JPEG, 255, AVCOL_RANGE_MPEG, 235},
          Row{"zscale=r=full", AVCOL_RANGE_MPEG, 235, AVCOL_RANGE_JPEG, 255},
          Row{"zscale=rin=limited:r=full", AVCOL_RANGE_MPEG, 235, AVCOL_RANGE_JPEG, 255}}) {
        SCOPED_TRACE(row.spec);
        if (std::strncmp(row.spec, "zscale", 6) == 0 && avfilter_get_by_name("zscale") == nullptr) {
            continue;
        }
        const ContextPtr context = videoContext();
        context->color_range = AVCOL_RANGE_JPEG;
        FilterGraphVideo graph(row.spec, *context, nullptr, AV_PIX_FMT_YUV420P);
        AvPtr<AVFrame> frame = plainPicture(static_cast<std::uint8_t>(row.luma), 128);
        frame->color_range = row.range;
        ASSERT_TRUE(graph.filterFrame(frame).ok);
        EXPECT_NEAR(frame->data[0][0], row.expectedLuma, 1);
        EXPECT_EQ(frame->color_range, row.expectedRange);
    }
}

TEST(FilterGraph, ContextsOfTheOtherKindAreRefused) {
    const ContextPtr video = videoContext();
    const ContextPtr audio = audioContext();
    EXPECT_THROW_TEXT(std::runtime_error, "Only AVMEDIA_TYPE_VIDEO codec type is supported!",
                      FilterGraphVideo("null", *audio, nullptr, AV_PIX_FMT_YUV420P));
    EXPECT_THROW_TEXT(std::runtime_error, "Only AVMEDIA_TYPE_AUDIO codec type is supported!",
                      FilterGraphAudio("anull", *video));
}

TEST(FilterGraph, ASpecificationThatCannotBeParsedGivesTheCodeOfFFmpeg) {
    for (const char* spec : {"no_such_filter", "scale=no_such_option=1", "hflip["}) {
        SCOPED_TRACE(spec);
        EXPECT_EQ(failure("Cannot parse filter spec", [&] { videoGraph(spec); }), parseCode(spec));
        EXPECT_LT(parseCode(spec), 0);
    }
    EXPECT_LT(failure("Cannot parse filter spec", [] { audioGraph("no_such_filter"); }), 0);
}

TEST(FilterGraph, AnEmptySpecificationCannotBeParsed) {
    EXPECT_LT(failure("Cannot parse filter spec", [] { videoGraph(""); }), 0);
}

TEST(FilterGraph, FiltersThatDoNotFitTogetherCannotBeConfigured) {
    EXPECT_LT(failure("Cannot configure filter", [] { videoGraph("crop=1000:1000"); }), 0);
    EXPECT_LT(failure("Cannot configure filter", [] { videoGraph("[other]hflip"); }), 0);
    EXPECT_LT(failure("Cannot configure filter", [] { audioGraph("[other]anull"); }), 0);
}

TEST(FilterGraph, AFilterWithoutTheDeviceThatItNeedsCannotBeConfigured) {
    EXPECT_LT(failure("Cannot configure filter", [] { videoGraph("format=nv12,hwupload"); }), 0);
}

TEST(FilterGraph, AContextWithoutSizeHasNoSource) {
    const ContextPtr context = videoContext();
    context->width = 0;
    EXPECT_LT(failure("Cannot create buffer source (V)",
                      [&] { FilterGraphVideo("null", *context, nullptr, AV_PIX_FMT_YUV420P); }),
              0);
}

TEST(FilterGraph, Nva12HasNoSource) {
    const ContextPtr context = videoContext();
    EXPECT_LT(failure("Cannot create buffer source (V)",
                      [&] { FilterGraphVideo("null", *context, nullptr, NVA12); }),
              0);
}

TEST(FilterGraph, AContextWithoutPixelFormatHasNoSinkFormat) {
    const ContextPtr context = videoContext();
    for (const auto format : {AV_PIX_FMT_NONE, NVA12}) {
        context->pix_fmt = format;
        EXPECT_LT(failure("Cannot set output pixel format",
                          [&] { FilterGraphVideo("null", *context, nullptr, AV_PIX_FMT_YUV420P); }),
                  0);
    }
}

TEST(FilterGraph, EveryFilterGetsTheDevice) {
    const ContextPtr context = videoContext();
    AVBufferRef* device = av_buffer_alloc(16);
    {
        const SeenGraph graph("hflip,vflip", *context, device, AV_PIX_FMT_YUV420P);
        ASSERT_GE(graph.graph().nb_filters, 5U);
        for (unsigned i = 0; i < graph.graph().nb_filters; ++i) {
            ASSERT_NE(graph.graph().filters[i]->hw_device_ctx, nullptr);
            EXPECT_NE(graph.graph().filters[i]->hw_device_ctx, device);
            EXPECT_EQ(graph.graph().filters[i]->hw_device_ctx->data, device->data);
        }
        EXPECT_EQ(av_buffer_get_ref_count(device), 1 + static_cast<int>(graph.graph().nb_filters));
    }
    EXPECT_EQ(av_buffer_get_ref_count(device), 1);
    av_buffer_unref(&device);
}

TEST(FilterGraph, WithoutADeviceNoFilterGetsOne) {
    const ContextPtr context = videoContext();
    const SeenGraph graph("hflip,vflip", *context, nullptr, AV_PIX_FMT_YUV420P);
    for (unsigned i = 0; i < graph.graph().nb_filters; ++i) {
        EXPECT_EQ(graph.graph().filters[i]->hw_device_ctx, nullptr);
    }
}

TEST(FilterGraph, AGraphMovesWithItsState) {
    FilterGraphVideo graph = videoGraph("tblend=all_mode=average");
    AvPtr<AVFrame> frame = plainPicture(40, 100, 0);
    EXPECT_EQ(graph.filterFrame(frame).error, AvError::Again);
    FilterGraphVideo moved;
    moved = std::move(graph);
    EXPECT_TRUE(graph.empty());  // NOLINT(bugprone-use-after-move)
    frame = plainPicture(60, 100, 1);
    ASSERT_TRUE(moved.filterFrame(frame).ok);
    EXPECT_EQ(frame->data[0][0], 50);
    moved = FilterGraphVideo();
    EXPECT_TRUE(moved.empty());
    static_assert(!std::is_copy_constructible_v<FilterGraphVideo>);
    static_assert(!std::is_copy_assignable_v<FilterGraphAudio>);
}

TEST(FilterGraph, TheFilteredSamplesTakeThePlaceOfTheFrame) {
    FilterGraphAudio graph = audioGraph("pan=stereo|c0=c1|c1=c0");
    AvPtr<AVFrame> frame = stereo({1, 2, 3, 4}, 77);
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    EXPECT_EQ(samplesOf(*frame), (std::vector<std::int16_t>{2, 1, 4, 3}));
    EXPECT_EQ(frame->pts, 77);
}

TEST(FilterGraph, SamplesComeOutAsTheCodecTakesThem) {
    FilterGraphAudio graph = audioGraph("aresample=24000,aformat=sample_fmts=flt:channel_layouts=mono");
    AvPtr<AVFrame> frame = stereo(std::vector<std::int16_t>(9600, 1000));
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    EXPECT_EQ(frame->format, AV_SAMPLE_FMT_S16);
    EXPECT_EQ(frame->sample_rate, 48000);
    EXPECT_EQ(ffmpeg_ext::channelMask(*frame), 3U);
}

TEST(FilterGraph, SamplesOfSixChannelsPass) {
    const ContextPtr context = audioContext();
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    ffmpeg_ext::setChannelMask(*context, 0x3f);
    FilterGraphAudio graph("anull", *context);
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    frame->format = AV_SAMPLE_FMT_FLTP;
    frame->sample_rate = 48000;
    frame->nb_samples = 10;
    ffmpeg_ext::setChannelMask(*frame, 0x3f);
    ASSERT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    for (int channel = 0; channel < 6; ++channel) {
        reinterpret_cast<float*>(frame->data[channel])[9] = static_cast<float>(channel);
    }
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    for (int channel = 0; channel < 6; ++channel) {
        EXPECT_EQ(reinterpret_cast<float*>(frame->data[channel])[9], static_cast<float>(channel));
    }
}

TEST(FilterGraph, SamplesOfAnotherKindAreRefused) {
    FilterGraphAudio graph = audioGraph("pan=stereo|c0=c1|c1=c0");
    struct Row {
        const char* name;
        AVSampleFormat format = AV_SAMPLE_FMT_S16;
        std::uint64_t layout = 3;
        int rate = 48000;
    };
    for (const Row& row :
         {Row{.name = "format", .format = AV_SAMPLE_FMT_FLTP}, Row{.name = "mono", .layout = 4},
          Row{.name = "six channels", .layout = 0x3f}, Row{.name = "rate", .rate = 44100}}) {
        SCOPED_TRACE(row.name);
        AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
        frame->format = row.format;
        frame->sample_rate = row.rate;
        frame->nb_samples = 10;
        ffmpeg_ext::setChannelMask(*frame, row.layout);
        ASSERT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
        EXPECT_EQ(graph.filterFrame(frame).error, AvError::InvalidArgument);
        EXPECT_EQ(frame, nullptr);
    }
}

TEST(FilterGraph, SamplesWithoutALayoutOrAFormatHaveNoSource) {
    const ContextPtr withoutFormat = audioContext();
    withoutFormat->sample_fmt = AV_SAMPLE_FMT_NONE;
    EXPECT_LT(failure("Cannot create buffer source (A)", [&] { FilterGraphAudio("anull", *withoutFormat); }),
              0);
    const ContextPtr withoutLayout = audioContext(0);
    EXPECT_LT(failure("Cannot create buffer source (A)", [&] { FilterGraphAudio("anull", *withoutLayout); }),
              0);
}

TEST(FilterGraph, ItTakesTheSettingsOfAnOpenEncoder) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_FFV1);
    ASSERT_NE(codec, nullptr);
    ContextPtr context(avcodec_alloc_context3(codec),
                       [](AVCodecContext* freed) { avcodec_free_context(&freed); });
    context->width = 64;
    context->height = 48;
    context->time_base = {1, 25};
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->color_range = AVCOL_RANGE_JPEG;
    ASSERT_EQ(avcodec_open2(context.get(), codec, nullptr), 0);
    FilterGraphVideo graph("format=rgb24,format=yuv420p", *context, nullptr, AV_PIX_FMT_YUV420P);
    AvPtr<AVFrame> frame = plainPicture(5, 128);
    frame->color_range = AVCOL_RANGE_JPEG;
    ASSERT_TRUE(graph.filterFrame(frame).ok);
    EXPECT_EQ(frame->data[0][0], 5);
    EXPECT_EQ(avcodec_send_frame(context.get(), frame.get()), 0);
}

}  // namespace
}  // namespace vidorra::test
