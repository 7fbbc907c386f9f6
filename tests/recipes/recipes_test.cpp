// Runs the functions of docs/RECIPES.md.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "headers/snippets_prelude.h"
#include "reader/clips.h"
#include "support/loopback_server.h"
#include "support/media.h"
#include "support/process.h"

namespace vidorra::recipes {
#include "recipes.h"
}  // namespace vidorra::recipes

namespace vidorra::test {
namespace {

using Arguments = std::vector<std::string>;

// Two seconds with two B-frames, and key pictures each 400 ms.
std::string clip() {
    return mediaFile("recipes.mp4", pictures("2") + tone("2") +
                                        Arguments{"-c:v", "libx264", "-bf", "2", "-g", "10", "-c:a", "aac"});
}

void open(FormatContext& source, const std::string& path) {
    source.setUrl(path);
    source.open("", true, std::chrono::seconds(2));
}

Timestamp microseconds(std::int64_t value) {
    return {Timebase(), value};
}

class FrameAt : public testing::TestWithParam<const char*> {};

TEST_P(FrameAt, GivesThePictureThatShows) {
    const std::string file = GetParam();
    FormatContext source;
    open(source, file == "recipes.mp4"
                     ? clip()
                     : mediaFile(file, pictures("2") + Arguments{"-c:v", "mpeg4", "-g", "10"}).string());
    for (std::int64_t picture = 0; picture < 50; ++picture) {
        for (const std::int64_t later : {0, 1, 39999}) {
            const VideoFrame frame = recipes::frameAt(source, 0, microseconds(picture * 40000 + later));
            ASSERT_EQ(frame.timestamp().value, picture * 40000) << later;
        }
    }
    EXPECT_EQ(recipes::frameAt(source, 0, microseconds(60000000)).timestamp().value, 49 * 40000);
    EXPECT_EQ(recipes::frameAt(source, 0, microseconds(-1000)).timestamp().value, 0);
}

INSTANTIATE_TEST_SUITE_P(Recipe, FrameAt, testing::Values("recipes.mp4", "recipes.avi", "recipes.mkv"),
                         [](const auto& row) { return std::string(row.param).substr(8); });

TEST(Recipe, TakeRestPrintsWhatTheDecoderHoldsBack) {
    FormatContext source;
    open(source, clip());
    int pictures = 0;
    for (Packet packet = source.readPacket(); !source.isEOF(); packet = source.readPacket()) {
        pictures += packet.stream_index == 0 && !source.decodeVideoPacket(packet).empty() ? 1 : 0;
    }
    testing::internal::CaptureStdout();
    recipes::takeRest(source, 0);
    EXPECT_EQ(pictures + static_cast<int>(lines(testing::internal::GetCapturedStdout()).size()), 50);
    EXPECT_LT(pictures, 50);
}

TEST(Recipe, ReadSoundGivesAllSamplesOfAFile) {
    FormatContext source;
    open(source, mediaFile("limit-aac.mkv", tone("2") + Arguments{"-c:a", "aac"}));
    unsigned long samples = 0;
    recipes::readSound(source, 0,
                       [&](const AudioFrame& frame) { samples += frame.audioBuffer().numberOfSamples(); });
    EXPECT_EQ(samples, 97280U);
}

TEST(Recipe, AChosenDecoderGivesTheAlphaOfVp9) {
    const std::string path = mediaFile(
        "recipes-alpha.webm", pictures("0.4") + Arguments{"-pix_fmt", "yuva420p", "-c:v", "libvpx-vp9",
                                                          "-deadline", "realtime", "-cpu-used", "8"});
    for (const bool chosen : {false, true}) {
        MediaFileReader reader(path, MediaFileReader::PlaybackMode::Once, nullptr);
        reader.open();
        if (chosen) {
            recipes::useDecoder(reader, 0, "libvpx-vp9", "1");
        }
        const auto frame = reader.read();
        EXPECT_EQ(std::get<VideoFrame>(frame).picture().hasAlpha(), chosen);
    }
}

TEST(Recipe, AChosenDecoderHasThreads) {
    FormatContext source;
    open(source, clip());
    EXPECT_EQ(source.getCodecContext(0)->codecContext()->active_thread_type, 0);
    recipes::useDecoder(source, 0, "h264", "2");
    EXPECT_NE(source.getCodecContext(0)->codecContext()->active_thread_type, 0);
    EXPECT_EQ(recipes::frameAt(source, 0, microseconds(1990000)).timestamp().value, 49 * 40000);
}

TEST(Recipe, AFileInMemoryIsReadAsOneOnDisk) {
    const std::string content = fileContent(clip());
    int descriptor = -1;
    const std::string path = recipes::fileInMemory(content.data(), content.size(), descriptor);
    FormatContext source;
    open(source, path);
    close(descriptor);
    EXPECT_EQ(recipes::frameAt(source, 0, microseconds(1000000)).timestamp().value, 1000000);
    EXPECT_EQ(recipes::frameAt(source, 0, microseconds(0)).timestamp().value, 0);
}

TEST(Recipe, ASilentSourceCanBeStopped) {
    const LoopbackServer server(
        fileContent(mediaFile("recipes.ts", pictures("2") + Arguments{"-c:v", "mpeg2video"})));
    VideoFrameQueue queue(60);
    std::atomic<bool> running{true};
    MediaFileReader reader(server.url(), MediaFileReader::PlaybackMode::Once, nullptr);
    auto thread = std::async(std::launch::async, [&] { recipes::readPictures(reader, queue, running); });
    const VideoFrame shown = queue.pop(microseconds(1), std::chrono::seconds(20));
    EXPECT_FALSE(shown.empty());
    running = false;
    queue.stop();
    const auto start = std::chrono::steady_clock::now();
    testing::internal::CaptureStderr();
    while (thread.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) {
        reader.interrupt();
        ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    }
    testing::internal::GetCapturedStderr();
}

TEST(Recipe, RgbOfHdIsRight) {
    // Flat green in BT.709, as the ffmpeg program makes it.
    const std::string path =
        mediaFile("recipes-hd.mkv",
                  {"-f", "lavfi", "-i", "color=0x0EDE04:s=1280x720:d=0.04", "-vf",
                   "format=rgb24,scale=out_color_matrix=bt709:out_range=tv,format=yuv420p", "-c:v", "ffv1"});
    FormatContext source;
    open(source, path);
    const Picture picture = recipes::frameAt(source, 0, microseconds(0)).picture();
    const auto isGreen = [](const Picture& rgb, int tolerance) {
        const unsigned char* pixel = rgb.data()[0];
        return std::abs(pixel[0] - 14) <= tolerance && std::abs(pixel[1] - 222) <= tolerance &&
               std::abs(pixel[2] - 4) <= tolerance;
    };
    EXPECT_TRUE(isGreen(recipes::toRgb(picture), 4));
    EXPECT_FALSE(
        isGreen(ColorSpaceConverter::convertTo(picture, AV_PIX_FMT_RGB24, AVCOL_RANGE_UNSPECIFIED), 12));
}

TEST(Recipe, TheRotationOfAFileIsFound) {
    std::string content = fileContent(clip());
    FormatContext plain;
    open(plain, clip());
    EXPECT_EQ(recipes::rotationOf(*plain.trackAtIndex(0)), 0);
    // The matrix of the track's header: x and y change places, in big-endian numbers of 16 bits before the
    // point.
    const auto matrix = content.find("tkhd") + 44;
    content.replace(matrix, 20, std::string("\0\0\0\0\0\1\0\0\0\0\0\0\xff\xff\0\0\0\0\0\0", 20));
    FormatContext turned;
    open(turned, temporaryFile("turned.mp4", content));
    EXPECT_EQ(recipes::rotationOf(*turned.trackAtIndex(0)), 90);
}

TEST(Recipe, KeyingMakesTheKeyTransparent) {
    Picture picture(Size{64, 32}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
    fillRectangle(picture, Rect{0, 0, 32, 32}, Color("green"));
    fillRectangle(picture, Rect{32, 0, 32, 32}, Color("red"));
    const Picture keyed = recipes::withoutGreen(picture);
    ASSERT_EQ(keyed.pixelFormat(), AV_PIX_FMT_YUVA420P);
    const unsigned char* alpha = keyed.data()[3] + 16 * keyed.linesize()[3];
    EXPECT_EQ(alpha[8], 0);
    EXPECT_EQ(alpha[56], 255);
}

TEST(Recipe, AnOverlayOfAnImageFileCanBeComposed) {
    const std::string path = (temporaryFolder() / "logo.png").string();
    run({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "color=red@0.5:s=33x17,format=rgba", "-frames:v",
         "1", path});
    const Picture overlay = recipes::loadOverlay(path, AVCOL_RANGE_MPEG);
    EXPECT_EQ(overlay.pixelFormat(), NVA12);
    EXPECT_EQ(overlay.frameSize(), (Size{32, 16}));
    ASSERT_NE(overlay.data()[3], nullptr);
    EXPECT_NEAR(overlay.data()[3][0], 127, 2);
}

TEST(Recipe, ARecordingHoldsItsFrames) {
    FormatContext source;
    open(source, clip());
    std::vector<VideoFrame> frames;
    for (std::int64_t picture = 0; picture < 25; ++picture) {
        VideoFrame frame = recipes::frameAt(source, 0, microseconds(picture * 40000));
        frames.emplace_back(recipes::forEncoder(frame), frame.timestamp(), Frame::NoFlags);
    }
    const std::string path = (temporaryFolder() / "recorded.mp4").string();
    objstream::object config;
    config["codec"] = "mpeg4";
    config["width"] = 64;
    config["height"] = 48;
    config["timebase_num"] = 1;
    config["timebase_den"] = 25;
    objstream::object configs;
    configs["video"] = config;
    configs["audio"]["codec"] = "aac";
    configs["audio"]["options"]["ar"] = 48000;
    configs["audio"]["options"]["ac"] = 2;
    AudioBuffer second(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16);
    second.setSampleRate(44100);
    second.loadSamples(std::vector<short>(44100, 1000));
    const WriterReport report =
        recipes::record(configs, frames, AudioFrame(second, Timestamp({}, 0)), path.c_str());
    EXPECT_EQ(report.tracks.at(0).packets, 25U);
    EXPECT_EQ(report.tracks.at(1).end, Timestamp(Timebase(1, 48000), 48000));
    FormatContext recorded;
    open(recorded, path);
    int packets = 0;
    for (Packet packet = recorded.readPacket(); !recorded.isEOF(); packet = recorded.readPacket()) {
        ++packets;
    }
    // And those of a second of sound.
    EXPECT_EQ(packets, 25 + 48);
}

}  // namespace
}  // namespace vidorra::test
