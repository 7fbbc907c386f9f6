#include <gmock/gmock.h>

#include <map>

#include "demux/clips.h"
#include "demux/decoders.h"
#include "demux/large_allocations.h"
#include "support/media.h"
#include "vidorra/demux/video_decoder.h"

// No pixel is copied between the decoder and the caller.
namespace vidorra {
namespace {

using test::joined;
using test::LargeAllocations;
using test::makePacket;
using test::mediaFile;
using test::opened;

constexpr int kWidth = 352;
constexpr int kHeight = 288;
constexpr std::size_t kSmallestPlane = std::size_t{kWidth} / 2 * kHeight / 2;

struct Row {
    const char* name;
    const char* file;
    std::vector<std::string> encoder;
};

std::string fileOf(const Row& row) {
    return mediaFile(row.file, joined({test::movingPicture("352x288", 1.6), row.encoder})).string();
}

// The packets of the only stream.
std::vector<Packet> packetsOf(FormatContext& source) {
    return test::readAllPackets(source);
}

class NoCopy : public testing::TestWithParam<Row> {};

// Where the decoder asked for the planes of its pictures, and with which line sizes.
std::map<const std::uint8_t*, std::pair<Picture::Planes, Picture::Linesizes>> decoderMemory;

int recordBuffer(AVCodecContext* context, AVFrame* frame, int flags) {
    const int res = avcodec_default_get_buffer2(context, frame, flags);
    Picture::Planes planes{};
    Picture::Linesizes linesizes{};
    std::copy_n(frame->data, planes.size(), planes.begin());
    std::copy_n(frame->linesize, linesizes.size(), linesizes.begin());
    decoderMemory[planes[0]] = {planes, linesizes};
    return res;
}

TEST_P(NoCopy, ThePlanesOfAFrameAreThoseThatTheDecoderFilled) {
    decoderMemory.clear();
    FormatContext source = opened(fileOf(GetParam()));
    // Only FFmpeg's own allocation of pictures can tell where they were decoded to.
    const_cast<AVCodecContext*>(source.getCodecContext(0)->codecContext())->get_buffer2 = recordBuffer;
    int frames = 0;
    for (const Packet& packet : packetsOf(source)) {
        const VideoFrame frame = source.decodeVideoPacket(packet);
        if (frame.empty()) {
            continue;
        }
        SCOPED_TRACE(frames++);
        const auto found = decoderMemory.find(frame.picture().data()[0]);
        ASSERT_NE(found, decoderMemory.end());
        EXPECT_EQ(frame.picture().data(), found->second.first);
        EXPECT_EQ(frame.picture().linesize(), found->second.second);
    }
    EXPECT_GT(frames, 30);
}

TEST_P(NoCopy, ThePlanesOfAPictureAreThoseOfTheReceivedFrame) {
    FormatContext source = opened(fileOf(GetParam()));
    VideoDecoder decoder;
    test::prepareAndOpen(decoder, *source.trackAtIndex(0)->codecpar);
    int frames = 0;
    for (const Packet& packet : packetsOf(source)) {
        ASSERT_TRUE(decoder.send(packet).ok);
        const tl::expected<AvPtr<AVFrame>, AvError> received = decoder.receiveAvFrame();
        if (!received) {
            continue;
        }
        SCOPED_TRACE(frames++);
        AVFrame& avFrame = **received;
        const VideoFrame frame = VideoDecoder::toVideoFrame(avFrame);
        for (std::size_t i = 0; i < 4; ++i) {
            EXPECT_EQ(frame.picture().data()[i], avFrame.data[i]);
            EXPECT_EQ(frame.picture().linesize()[i], avFrame.linesize[i]);
        }
        EXPECT_GE(av_buffer_get_ref_count(avFrame.buf[0]), 2) << "one memory, two references";
    }
    EXPECT_GT(frames, 30);
}

// Large allocations while the second half of the packets is decoded.
std::size_t allocationsInSecondHalf(const Row& row, const std::function<void(const VideoFrame&)>& use) {
    FormatContext source = opened(fileOf(row));
    const std::vector<Packet> packets = packetsOf(source);
    const std::size_t half = packets.size() / 2;
    for (std::size_t i = 0; i < half; ++i) {
        use(source.decodeVideoPacket(packets[i]));
    }
    const LargeAllocations allocations(kSmallestPlane);
    std::size_t frames = 0;
    for (std::size_t i = half; i < packets.size(); ++i) {
        const VideoFrame frame = source.decodeVideoPacket(packets[i]);
        frames += frame.empty() ? 0U : 1U;
        use(frame);
    }
    const std::size_t count = allocations.count();
    EXPECT_GE(frames, 15U);
    return count;
}

TEST_P(NoCopy, FramesThatAreReleasedAtOnceNeedNoNewMemory) {
    EXPECT_EQ(allocationsInSecondHalf(GetParam(), [](const VideoFrame&) {}), 0U);
}

TEST_P(NoCopy, ACopyOfThePixelsWouldBeCounted) {
    EXPECT_GE(allocationsInSecondHalf(GetParam(),
                                      [](const VideoFrame& frame) {
                                          Picture copy = frame.picture();
                                          copy.makeEditable();
                                      }),
              15U);
}

INSTANTIATE_TEST_SUITE_P(
    , NoCopy,
    testing::Values(
        Row{.name = "H264",
            .file = "large_h264.mp4",
            .encoder = {"-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p", "-bf", "2",
                        "-threads", "1"}},
        Row{.name = "Hevc",
            .file = "large_hevc.mp4",
            .encoder = {"-c:v", "libx265", "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-x265-params",
                        "bframes=2:log-level=none"}},
        Row{.name = "Mpeg2", .file = "large_mpeg2.ts", .encoder = {"-c:v", "mpeg2video", "-bf", "2"}},
        Row{.name = "Mpeg4", .file = "large_mpeg4.mp4", .encoder = {"-c:v", "mpeg4", "-bf", "2"}},
        Row{.name = "Vp9",
            .file = "large_vp9.webm",
            .encoder = {"-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8", "-pix_fmt",
                        "yuv420p"}},
        Row{.name = "MotionJpeg",
            .file = "large_mjpeg.avi",
            .encoder = {"-c:v", "mjpeg", "-q:v", "20", "-pix_fmt", "yuvj420p", "-threads", "1"}}),
    [](const auto& row) { return row.param.name; });

TEST(NoCopyOfPackets, AnUncompressedPictureLiesInItsPacket) {
    VideoDecoder decoder;
    test::prepareAndOpen(decoder, *test::rawVideoParameters(AV_PIX_FMT_YUV420P, 64, 16));
    const Packet packet = makePacket(64 * 16 * 3 / 2);
    ASSERT_TRUE(decoder.send(packet).ok);
    const VideoFrame frame = decoder.receive().value();
    EXPECT_EQ(frame.picture().data()[0], packet.data);
    EXPECT_EQ(frame.picture().data()[1], packet.data + 64 * 16);
    EXPECT_EQ(frame.picture().data()[2], packet.data + 64 * 16 * 5 / 4);
}

TEST(NoCopyOfPackets, ReadingAndPassingPacketsOnNeedsNoMemoryForTheirData) {
    FormatContext source = opened(mediaFile("one.nut", joined({test::movingPicture("352x288", 0.04),
                                                               {"-c:v", "rawvideo", "-pix_fmt", "yuv420p"}}))
                                      .string());
    const Packet packet = source.readPacket();
    ASSERT_EQ(packet.size, kWidth * kHeight * 3 / 2);
    const LargeAllocations allocations(kSmallestPlane);
    const Packet copy(packet);
    EXPECT_EQ(copy.data, packet.data);
    EXPECT_FALSE(source.decodeVideoPacket(copy).empty());
    EXPECT_EQ(allocations.count(), 0U);
}

}  // namespace
}  // namespace vidorra
