#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#include <vidorra/vidorra.h>

#include "clips.h"
#include "recording_store.h"
#include "support/log_capture.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Mode = MediaFileReader::PlaybackMode;

class ReaderWarnings : public testing::Test {
protected:
    ReaderWarnings() : reader(path, Mode::Once, store) { reader.open(); }

    Packet packet(int stream, std::int64_t pts, std::int64_t duration) const {
        Packet result;
        result.stream_index = stream;
        result.pts = pts;
        result.duration = duration;
        return result;
    }

    static std::string quoted(const std::string& path) {
        return fmt::format("{}", std::filesystem::path(path).filename());
    }

    const std::string path = audioAndVideo();
    static constexpr int kVideo = 0;
    static constexpr int kAudio = 1;
    std::shared_ptr<RecordingStore> store = std::make_shared<RecordingStore>();
    MediaFileReader reader;
    LogCapture log;
};

TEST_F(ReaderWarnings, APacketWithoutADurationRaisesAWarningUntilOneHasIt) {
    const std::string video = "Duration of video packets cannot be retrieved from " + quoted(path);
    const std::string audio = "Duration of audio packets cannot be retrieved from " + quoted(path);
    reader.checkZeroDurationWarning(packet(kVideo, 0, 10));
    EXPECT_THAT(store->texts(), IsEmpty());
    reader.checkZeroDurationWarning(packet(kVideo, 0, 0));
    EXPECT_THAT(store->texts(), ElementsAre(video));
    reader.checkZeroDurationWarning(packet(kAudio, 0, 0));
    reader.checkZeroDurationWarning(packet(kAudio, 0, -1));
    EXPECT_THAT(store->texts(), ElementsAre(video)) << "raised once, and still";
    reader.checkZeroDurationWarning(packet(kAudio, 0, 1));
    EXPECT_THAT(store->texts(), IsEmpty());
    reader.checkZeroDurationWarning(packet(kVideo, 0, -1));
    EXPECT_THAT(store->texts(), IsEmpty()) << "only a duration of exactly 0 raises it";
    reader.checkZeroDurationWarning(packet(kAudio, 0, 0));
    EXPECT_THAT(store->texts(), ElementsAre(audio));
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{2, "MediaFileReader: " + video},
                                         LogCapture::Line{2, "MediaFileReader: " + audio}));
}

TEST_F(ReaderWarnings, ASecondTrackThatTurnsUpTooLateRaisesAWarning) {
    // The reader has read nothing: the end of what was read is 0.
    reader.checkNonInterleavedWarning(packet(kVideo, 0, 0));
    EXPECT_THAT(store->texts(), IsEmpty());
    reader.checkNonInterleavedWarning(packet(kAudio, -350000, 0));
    EXPECT_THAT(store->texts(),
                ElementsAre("File " + quoted(path) +
                            " contains a non-interleaved media stream, issues with audio may occur"));
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{
                                 2, "MediaFileReader: " + quoted(path) +
                                        " contains a non-interleaved media stream: difference 350ms "
                                        "audio 1 pkts video 1 pkts"}));
}

TEST_F(ReaderWarnings, ASecondTrackThatTurnsUpJustInTimeRaisesNone) {
    reader.checkNonInterleavedWarning(packet(kAudio, 0, 0));
    reader.checkNonInterleavedWarning(packet(kVideo, -349999, 0));
    // The question is settled for this cycle.
    reader.checkNonInterleavedWarning(packet(kVideo, -900000, 0));
    EXPECT_THAT(store->texts(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ReaderWarnings, ANewCycleAsksAgain) {
    reader.checkNonInterleavedWarning(packet(kAudio, 0, 0));
    reader.checkNonInterleavedWarning(packet(kVideo, 0, 0));
    reader.clearWarningsCtx();
    reader.checkNonInterleavedWarning(packet(kAudio, 0, 0));
    reader.checkNonInterleavedWarning(packet(kAudio, 0, 0));
    reader.checkNonInterleavedWarning(packet(kVideo, -1000000, 0));
    EXPECT_THAT(store->texts(),
                ElementsAre("File " + quoted(path) +
                            " contains a non-interleaved media stream, issues with video may occur"));
    EXPECT_THAT(log.texts().back(), testing::EndsWith("difference 1000ms audio 2 pkts video 1 pkts"));
}

TEST_F(ReaderWarnings, OneTrackAloneIsAlwaysInterleaved) {
    reader.selectTracks(0, std::nullopt);
    for (int stream : {kAudio, kVideo, kAudio}) {
        reader.checkNonInterleavedWarning(packet(stream, -1000000, 0));
    }
    EXPECT_THAT(store->texts(), IsEmpty());
}

TEST_F(ReaderWarnings, ClosingWithdrawsAllInOrder) {
    reader.checkZeroDurationWarning(packet(kVideo, 0, 0));
    reader.checkNonInterleavedWarning(packet(kVideo, 0, 0));
    reader.checkNonInterleavedWarning(packet(kAudio, -1000000, 0));
    ASSERT_EQ(store->texts().size(), 2U);
    store->events.clear();
    reader.close();
    EXPECT_THAT(store->texts(), IsEmpty());
    EXPECT_THAT(store->events,
                ElementsAre("-Duration of video packets cannot be retrieved from " + quoted(path),
                            "-File " + quoted(path) +
                                " contains a non-interleaved media stream, issues with audio may occur"));
}

TEST_F(ReaderWarnings, WithoutAStoreNothingIsSaid) {
    MediaFileReader silent(path, Mode::Once, nullptr);
    silent.open();
    silent.checkZeroDurationWarning(packet(kVideo, 0, 0));
    silent.checkNonInterleavedWarning(packet(kVideo, 0, 0));
    silent.checkNonInterleavedWarning(packet(kAudio, -1000000, 0));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ReaderWarnings, DecodingThatFallsBehindTheClockRaisesAWarning) {
    const std::string text = "Not enough decoding resources to process the media file " + quoted(path) +
                             ". This could lead to partial or full audio/video frames loss.";
    reader.selectTracks(std::nullopt, 0);
    ASSERT_TRUE(std::holds_alternative<VideoFrame>(reader.read())) << "begins the measurement";
    ASSERT_TRUE(std::holds_alternative<VideoFrame>(reader.read()));
    EXPECT_THAT(store->texts(), IsEmpty());
    // The test measures time.
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    ASSERT_TRUE(std::holds_alternative<VideoFrame>(reader.read()));
    EXPECT_THAT(store->texts(), ElementsAre(text));
    EXPECT_THAT(log.lines(), IsEmpty());
    reader.clearWarningsCtx();
    EXPECT_THAT(store->texts(), IsEmpty());
    ASSERT_TRUE(std::holds_alternative<VideoFrame>(reader.read()));
    EXPECT_THAT(store->texts(), IsEmpty()) << "measured anew";
}

TEST_F(ReaderWarnings, AfterALoopTheClockBeginsAgainAndTheTimesDoNot) {
    MediaFileReader loop(videoOnly(), Mode::Loop, store);
    loop.open();
    for (int i = 0; i < 26; ++i) {
        ASSERT_TRUE(std::holds_alternative<VideoFrame>(loop.read()));
    }
    // The frames are a second ahead of the clock now, so that half of it does not count as late.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ASSERT_TRUE(std::holds_alternative<VideoFrame>(loop.read()));
    EXPECT_THAT(store->texts(), IsEmpty());
}

// Writes the packets of a file again, all of the video before the audio.
std::string takenApart(const std::string& source) {
    const std::string target = temporaryFolder() / "apart.mkv";
    AVFormatContext* input = nullptr;
    EXPECT_EQ(avformat_open_input(&input, source.c_str(), nullptr, nullptr), 0);
    EXPECT_GE(avformat_find_stream_info(input, nullptr), 0);
    AVFormatContext* output = nullptr;
    EXPECT_GE(avformat_alloc_output_context2(&output, nullptr, nullptr, target.c_str()), 0);
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        AVStream* stream = avformat_new_stream(output, nullptr);
        EXPECT_GE(avcodec_parameters_copy(stream->codecpar, input->streams[i]->codecpar), 0);
        stream->codecpar->codec_tag = 0;
    }
    EXPECT_GE(avio_open(&output->pb, target.c_str(), AVIO_FLAG_WRITE), 0);
    EXPECT_GE(avformat_write_header(output, nullptr), 0);
    AVPacket* packet = av_packet_alloc();
    for (int wanted = 0; wanted < 2; ++wanted) {
        while (av_read_frame(input, packet) == 0) {
            const int index = packet->stream_index;
            av_packet_rescale_ts(packet, input->streams[index]->time_base, output->streams[index]->time_base);
            if (index == wanted && packet->pts >= 0) {
                EXPECT_GE(av_write_frame(output, packet), 0);
            }
            av_packet_unref(packet);
        }
        EXPECT_GE(av_seek_frame(input, -1, 0, AVSEEK_FLAG_BACKWARD), 0);
    }
    av_packet_free(&packet);
    EXPECT_EQ(av_write_trailer(output), 0);
    avio_closep(&output->pb);
    avformat_free_context(output);
    avformat_close_input(&input);
    return target;
}

TEST(ReaderWarningsOfFiles, AFileThatIsNotInterleavedIsFoundOut) {
    const std::string path = takenApart(audioAndVideo());
    const auto store = std::make_shared<RecordingStore>();
    const LogCapture log;
    MediaFileReader reader(path, Mode::Once, store);
    reader.open();
    while (store->events.empty() && reader.read().index() != 0) {
    }
    ASSERT_THAT(store->events, testing::SizeIs(1));
    // In quotes by some releases of fmt.
    const std::string name = fmt::format("{}", std::filesystem::path("apart.mkv"));
    EXPECT_EQ(store->events.front(),
              "+File " + name + " contains a non-interleaved media stream, issues with audio may occur");
    EXPECT_THAT(log.texts(),
                ElementsAre(testing::StartsWith("MediaFileReader: " + name +
                                                " contains a non-interleaved media stream: "
                                                "difference 1000ms audio 1 pkts video 25 pkts")));
}

TEST(ReaderWarningsOfFiles, AnOrdinaryFileGivesNoWarning) {
    const auto store = std::make_shared<RecordingStore>();
    MediaFileReader reader(audioAndVideo(), Mode::Once, store);
    reader.open();
    while (reader.read().index() != 0) {
    }
    EXPECT_THAT(store->events, IsEmpty());
}

}  // namespace
}  // namespace vidorra::test
