#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <vidorra/vidorra.h>

#include "clips.h"
#include "support/log_capture.h"
#include "support/process.h"
#include "support/throw_text.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra::test {
namespace {

using Mode = MediaFileReader::PlaybackMode;
using State = MediaFileReader::State;

std::unique_ptr<MediaFileReader> openReader(const std::string& path, Mode mode) {
    auto reader = std::make_unique<MediaFileReader>(path, mode, nullptr);
    EXPECT_TRUE(reader->open());
    return reader;
}

struct Counts {
    int audio = 0;
    int video = 0;
};

Counts readToEnd(MediaFileReader& reader) {
    Counts counts;
    for (;;) {
        const auto frame = reader.read();
        if (std::holds_alternative<AudioFrame>(frame)) {
            ++counts.audio;
        } else if (std::holds_alternative<VideoFrame>(frame)) {
            ++counts.video;
        } else {
            return counts;
        }
    }
}

TEST(MediaFileReader, OpensNothingByItself) {
    MediaFileReader reader("missing.mp4", Mode::Once, nullptr);
    EXPECT_EQ(reader.getState(), State::Closed);
    EXPECT_TRUE(std::holds_alternative<std::monostate>(reader.read()));
}

TEST(MediaFileReader, TheStatesHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(State::Closed), 0);
    EXPECT_EQ(static_cast<int>(State::Opened), 1);
    EXPECT_EQ(static_cast<int>(State::Eof), 2);
    EXPECT_EQ(static_cast<int>(Mode::Once), 0);
    EXPECT_EQ(static_cast<int>(Mode::Loop), 1);
}

TEST(MediaFileReader, AMissingFileLeavesItClosed) {
    MediaFileReader reader("missing.mp4", Mode::Once, nullptr);
    EXPECT_THROW(reader.open(), std::runtime_error);
    EXPECT_EQ(reader.getState(), State::Closed);
}

TEST(MediaFileReader, CannotBeOpenedTwice) {
    const auto reader = openReader(videoOnly(), Mode::Once);
    EXPECT_THROW_TEXT(std::logic_error, "movie file reader already opened", reader->open());
    readToEnd(*reader);
    EXPECT_EQ(reader->getState(), State::Eof);
    EXPECT_THROW_TEXT(std::logic_error, "movie file reader already opened", reader->open());
    reader->close();
    EXPECT_EQ(reader->getState(), State::Closed);
    EXPECT_TRUE(reader->open());
    EXPECT_EQ(readToEnd(*reader).video, 25);
}

TEST(MediaFileReader, SelectingAndRestartingNeedAnOpenFile) {
    MediaFileReader reader(videoOnly(), Mode::Once, nullptr);
    EXPECT_THROW_TEXT(std::logic_error, "movie file reader cannot select tracks because it is not opened yet",
                      reader.selectTracks(0, 0));
    EXPECT_THROW_TEXT(std::logic_error, "movie file reader cannot be restarted because it is not opened yet",
                      reader.restart());
    reader.close();
    EXPECT_EQ(reader.getState(), State::Closed);
}

TEST(MediaFileReader, PlaysAFileOnceToItsEnd) {
    const auto reader = openReader(audioAndVideo(), Mode::Once);
    EXPECT_EQ(reader->getState(), State::Opened);
    const Counts counts = readToEnd(*reader);
    EXPECT_EQ(counts.video, 25);
    EXPECT_GT(counts.audio, 40);
    EXPECT_EQ(reader->getState(), State::Eof);
    EXPECT_TRUE(std::holds_alternative<std::monostate>(reader->read()));
}

TEST(MediaFileReader, RestartsAfterTheEnd) {
    const auto reader = openReader(videoOnly(), Mode::Once);
    readToEnd(*reader);
    reader->restart();
    EXPECT_EQ(reader->getState(), State::Opened);
    const auto frame = reader->read();
    ASSERT_TRUE(std::holds_alternative<VideoFrame>(frame));
    EXPECT_EQ(std::get<VideoFrame>(frame).timestamp().value, 1000000);
}

struct Selection {
    std::optional<unsigned> audio;
    std::optional<unsigned> video;
    int audioRate;
    int videoWidth;
    std::vector<int> discarded;
};

TEST(MediaFileReader, SelectsTracksByTheirNumberAmongTheirType) {
    constexpr int kAll = AVDISCARD_ALL;
    constexpr int kNone = AVDISCARD_NONE;
    // The tracks are video, audio, video, audio.
    const std::vector<Selection> rows = {
        {0, 0, 48000, 64, {kNone, kNone, kAll, kAll}},
        {1, 1, 16000, 32, {kAll, kAll, kNone, kNone}},
        {1, 0, 16000, 64, {kNone, kAll, kAll, kNone}},
        {std::nullopt, 1, 0, 32, {kAll, kAll, kNone, kAll}},
        {0, std::nullopt, 48000, 0, {kAll, kNone, kAll, kAll}},
        {2, 7, 0, 0, {kAll, kAll, kAll, kAll}},
        {std::nullopt, std::nullopt, 0, 0, {kAll, kAll, kAll, kAll}},
    };
    for (const Selection& row : rows) {
        SCOPED_TRACE(testing::Message() << row.audioRate << " Hz, width " << row.videoWidth);
        const auto reader = openReader(fourTracks(), Mode::Once);
        reader->selectTracks(row.audio, row.video);
        for (unsigned i = 0; i < 4; ++i) {
            EXPECT_EQ(reader->trackAtIndex(i)->discard, row.discarded[i]) << i;
        }
        int rate = 0;
        int width = 0;
        for (auto frame = reader->read(); frame.index() != 0; frame = reader->read()) {
            if (const auto* audio = std::get_if<AudioFrame>(&frame)) {
                rate = audio->audioBuffer().sampleRate();
                ASSERT_EQ(rate, row.audioRate);
            } else {
                width = std::get<VideoFrame>(frame).picture().frameSize().width;
                ASSERT_EQ(width, row.videoWidth);
            }
        }
        EXPECT_EQ(rate, row.audioRate);
        EXPECT_EQ(width, row.videoWidth);
    }
}

TEST(MediaFileReader, LogsTracksThatThereAreNot) {
    const std::string path = fourTracks();
    const LogCapture log;
    const auto reader = openReader(path, Mode::Once);
    reader->selectTracks(1, 1);
    reader->selectTracks(std::nullopt, std::nullopt);
    EXPECT_THAT(log.lines(), testing::IsEmpty());
    reader->selectTracks(2, 7);
    EXPECT_THAT(
        log.lines(),
        testing::ElementsAre(LogCapture::Line{2, "MediaFileReader: " + path +
                                                     " has no audio track 2 (it has 2, numbered from 0)"},
                             LogCapture::Line{2, "MediaFileReader: " + path +
                                                     " has no video track 7 (it has 2, numbered from 0)"}));
}

TEST(MediaFileReader, OpeningAFileThatHasNoSoundLogsNothing) {
    const LogCapture log;
    const auto reader = openReader(videoOnly(), Mode::Once);
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST(MediaFileReader, LeavesOutWhatIsNeitherAudioNorVideo) {
    const std::string words = temporaryFile("track.srt", "1\n00:00:00,000 --> 00:00:01,000\nwords\n");
    const std::string path = temporaryFolder() / "words.mkv";
    run({"ffmpeg", "-loglevel", "error", "-y",   "-i",   words,  "-i",   audioAndVideo(), "-map", "0", "-map",
         "1:v",    "-map",      "1:a",   "-c:v", "copy", "-c:a", "copy", "-c:s",          "srt",  path});
    const auto reader = openReader(path, Mode::Once);
    ASSERT_EQ(reader->tracksNumber(), 3U);
    EXPECT_EQ(reader->trackAtIndex(0)->discard, AVDISCARD_ALL);
    EXPECT_EQ(reader->trackAtIndex(1)->discard, AVDISCARD_NONE);
    EXPECT_EQ(reader->trackAtIndex(2)->discard, AVDISCARD_NONE);
    const Counts counts = readToEnd(*reader);
    EXPECT_EQ(counts.video, 25);
    EXPECT_GT(counts.audio, 40);
}

TEST(MediaFileReader, ReadsNothingWithoutASelectedTrack) {
    const auto reader = openReader(audioAndVideo(), Mode::Loop);
    reader->selectTracks(std::nullopt, std::nullopt);
    EXPECT_TRUE(std::holds_alternative<std::monostate>(reader->read()));
    EXPECT_EQ(reader->getState(), State::Opened) << "nothing was read";
}

// One pass over a file with FFmpeg alone: the stamps of its packets by the reader's rules, and its end.
struct Pass {
    std::vector<std::int64_t> video;
    std::int64_t end = 0;
};

Pass onePass(const std::string& path) {
    Pass pass;
    AVFormatContext* context = nullptr;
    EXPECT_EQ(avformat_open_input(&context, path.c_str(), nullptr, nullptr), 0);
    EXPECT_GE(avformat_find_stream_info(context, nullptr), 0);
    AVPacket* packet = av_packet_alloc();
    bool first = true;
    while (av_read_frame(context, packet) == 0) {
        const AVStream& stream = *context->streams[packet->stream_index];
        const std::int64_t pts = av_rescale_q(packet->pts, stream.time_base, {1, 1000000});
        const std::int64_t duration = av_rescale_q(packet->duration, stream.time_base, {1, 1000000});
        pass.end = first ? pts + duration : std::max(pass.end, pts + duration);
        first = false;
        if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
            pass.video.push_back(pts);
        }
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&context);
    std::sort(pass.video.begin(), pass.video.end());
    return pass;
}

TEST(MediaFileReader, TimeStampsGoOnOverAHundredLoops) {
    const std::string path = audioAndVideo();
    const Pass pass = onePass(path);
    ASSERT_EQ(pass.video.size(), 25U);
    const auto reader = openReader(path, Mode::Loop);
    std::int64_t audioEnd = 0;
    std::int64_t audioStart = 0;
    for (int loop = 0; loop < 100; ++loop) {
        std::int64_t passAudioStart = -1;
        for (const std::int64_t time : pass.video) {
            auto frame = reader->read();
            for (; std::holds_alternative<AudioFrame>(frame); frame = reader->read()) {
                const auto& audio = std::get<AudioFrame>(frame);
                ASSERT_GE(audio.timestamp().value, audioEnd) << "no overlap";
                audioEnd = audio.timestamp().value + audio.audioBuffer().duration().value - 1;
                if (audio.timestamp().value >= loop * pass.end) {
                    passAudioStart = passAudioStart < 0 ? audio.timestamp().value : passAudioStart;
                }
            }
            ASSERT_TRUE(std::holds_alternative<VideoFrame>(frame));
            ASSERT_EQ(std::get<VideoFrame>(frame).timestamp().value, time + loop * pass.end)
                << "loop " << loop;
        }
        if (loop == 0) {
            audioStart = passAudioStart;
        } else if (loop > 1) {
            ASSERT_GE(passAudioStart, 0);
            // The second pass lacks the packets before time 0; from then on all passes are alike.
            ASSERT_LE(std::abs(passAudioStart - loop * pass.end - audioStart), 21334);
        }
    }
}

TEST(MediaFileReader, TheNextPassBeginsWhereTheLastPacketEnds) {
    const Pass pass = onePass(videoOnly());
    EXPECT_EQ(pass.end, 1000000);
    const auto reader = openReader(videoOnly(), Mode::Loop);
    std::vector<std::int64_t> times;
    for (int i = 0; i < 75; ++i) {
        times.push_back(std::get<VideoFrame>(reader->read()).timestamp().value);
    }
    for (std::size_t i = 0; i < times.size(); ++i) {
        EXPECT_EQ(times[i], static_cast<std::int64_t>(i) * 40000);
    }
}

TEST(MediaFileReader, FramesThatADecoderKeptBackAreNotGivenInTheNextPass) {
    const std::string path = mediaFile(
        "kept.mp4", pictures("0.4") + std::vector<std::string>{"-c:v", "libx264", "-bf", "2", "-g", "5"});
    const Pass pass = onePass(path);
    const auto reader = openReader(path, Mode::Loop);
    for (int loop = 0; loop < 3; ++loop) {
        for (std::size_t i = 0; i < 8; ++i) {
            ASSERT_EQ(std::get<VideoFrame>(reader->read()).timestamp().value,
                      pass.video[i] + loop * pass.end);
        }
    }
}

TEST(MediaFileReader, ARestartThatCannotSeekChangesNoTimesAndWithdrawsTheWarnings) {
    const std::string path =
        mediaFile("raw.h264", pictures("0.4") + std::vector<std::string>{"-c:v", "libx264", "-bf", "0"});
    class OpenReader : public MediaFileReader {
    public:
        using MediaFileReader::MediaFileReader;
        using MediaFileReader::timeOrigin;
    };
    const auto store = std::make_shared<vx::vdr::utils::WarningsStoreAsync>();
    OpenReader reader(path, Mode::Once, store);
    const LogCapture log;
    reader.open();
    ASSERT_GT(readToEnd(reader).video, 0);
    Packet packet;
    packet.duration = 0;
    reader.checkZeroDurationWarning(packet);
    ASSERT_FALSE(store->texts().empty());
    EXPECT_THROW_TEXT(std::runtime_error, "Operation not permitted", reader.restart());
    EXPECT_TRUE(store->texts().empty());
    EXPECT_EQ(reader.timeOrigin(), 0);
    EXPECT_EQ(reader.getState(), State::Eof);
}

TEST(MediaFileReader, BeginsAtTheFilesOwnZeroWhateverItsTimeOrigin) {
    const std::string path = mediaFile(
        "origin.mkv",
        pictures("0.2") + std::vector<std::string>{"-metadata", "timeorigin=1000000000", "-c:v", "mjpeg"});
    LogCapture log(5);
    const auto reader = openReader(path, Mode::Once);
    EXPECT_EQ(std::get<VideoFrame>(reader->read()).timestamp().value, 0);
    EXPECT_EQ(log.texts().front(), path + " opened, time origin 1000000000");
}

// A pipe that a thread fills with a file.
class Pipe {
public:
    explicit Pipe(const std::string& source) : mPath(temporaryFolder() / "pipe") {
        std::filesystem::remove(mPath);
        EXPECT_EQ(mkfifo(mPath.c_str(), 0600), 0);
        mWriter = std::thread([this, content = fileContent(source)] {
            std::ofstream stream(mPath, std::ios::binary);
            stream << content;
        });
    }
    ~Pipe() { mWriter.join(); }

    [[nodiscard]] std::string path() const { return mPath; }

private:
    std::filesystem::path mPath;
    std::thread mWriter;
};

TEST(MediaFileReader, APipeIsPlayedOnceEvenInALoop) {
    const Pipe pipe(
        mediaFile("pipe.ts", pictures("0.4") + std::vector<std::string>{"-c:v", "mpeg2video", "-bf", "0"}));
    const auto reader = openReader(pipe.path(), Mode::Loop);
    EXPECT_TRUE(reader->isStreamed());
    EXPECT_GE(readToEnd(*reader).video, 9);
    EXPECT_EQ(reader->getState(), State::Eof);
    EXPECT_THROW_TEXT(std::runtime_error, "movie file is not seekable, restart is not supported",
                      reader->restart());
}

TEST(MediaFileReader, TheFramesShareTheDecodersMemory) {
    const auto reader = openReader(videoOnly(), Mode::Once);
    auto frame = std::get<VideoFrame>(reader->read());
    EXPECT_GT(frame.picture().linesize()[0], 64) << "the decoder's own line size, with its padding";
}

}  // namespace
}  // namespace vidorra::test
