#include <memory>

#include "ffmpeg/buffers.h"
#include "ffmpeg/counted_buffer.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

using test::CountedMemory;

constexpr int kWidth = 64;
constexpr int kHeight = 48;

struct GraphDeleter {
    void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};
struct FrameDeleter {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;

// A graph of a source, one filter and a sink.
class Graph {
public:
    explicit Graph(const char* filter) : mGraph(avfilter_graph_alloc()) {
        mSource = add("buffer", "video_size=64x48:pix_fmt=yuv420p:time_base=1/25:pixel_aspect=1/1");
        mFilter = add(filter, nullptr);
        mSink = add("buffersink", nullptr);
        EXPECT_EQ(avfilter_link(mSource, 0, mFilter, 0), 0);
        EXPECT_EQ(avfilter_link(mFilter, 0, mSink, 0), 0);
        EXPECT_GE(avfilter_graph_config(mGraph.get(), nullptr), 0);
    }

    FramePtr pass(AVFrame* frame) {
        EXPECT_GE(av_buffersrc_add_frame_flags(mSource, frame, AV_BUFFERSRC_FLAG_KEEP_REF), 0);
        FramePtr result(av_frame_alloc());
        EXPECT_GE(av_buffersink_get_frame(mSink, result.get()), 0);
        return result;
    }

private:
    AVFilterContext* add(const char* name, const char* arguments) {
        AVFilterContext* context = nullptr;
        EXPECT_GE(avfilter_graph_create_filter(&context, avfilter_get_by_name(name), name, arguments, nullptr,
                                               mGraph.get()),
                  0);
        return context;
    }

    std::unique_ptr<AVFilterGraph, GraphDeleter> mGraph;
    AVFilterContext* mSource = nullptr;
    AVFilterContext* mFilter = nullptr;
    AVFilterContext* mSink = nullptr;
};

// A picture in one buffer of the memory.
FramePtr pictureIn(CountedMemory& memory) {
    FramePtr frame(av_frame_alloc());
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = kWidth;
    frame->height = kHeight;
    frame->pts = 0;
    frame->buf[0] = memory.wrap();
    frame->data[0] = memory.bytes.data();
    frame->data[1] = frame->data[0] + kWidth * kHeight;
    frame->data[2] = frame->data[1] + kWidth * kHeight / 4;
    frame->linesize[0] = kWidth;
    frame->linesize[1] = frame->linesize[2] = kWidth / 2;
    return frame;
}

constexpr int kPictureSize = kWidth * kHeight * 3 / 2;

TEST(DmaMark, SurvivesAFilterGraph) {
    CountedMemory memory(kPictureSize);
    {
        Graph graph("null");
        FramePtr frame = pictureIn(memory);
        const FramePtr result = graph.pass(frame.get());
        frame.reset();
        ASSERT_NE(result->buf[0], nullptr);
        EXPECT_EQ(result->data[0], memory.bytes.data());
        EXPECT_NE(av_buffer_is_dma(result->buf[0]), 0);
        av_buffer_flush(result->buf[0]);
        EXPECT_THAT(memory.flushes, testing::ElementsAre(CountedMemory::FlushCall{
                                        &memory, memory.bytes.data(), kPictureSize}));
        EXPECT_THAT(memory.frees, testing::IsEmpty());
    }
    EXPECT_EQ(memory.frees.size(), 1U);
}

TEST(DmaMark, EndsInAFilterThatMakesNewPictures) {
    CountedMemory memory(kPictureSize);
    Graph graph("transpose");
    const FramePtr frame = pictureIn(memory);
    const FramePtr result = graph.pass(frame.get());
    ASSERT_NE(result->buf[0], nullptr);
    EXPECT_EQ(av_buffer_is_dma(result->buf[0]), 0);
    av_buffer_flush(result->buf[0]);
    EXPECT_THAT(memory.flushes, testing::IsEmpty());
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
