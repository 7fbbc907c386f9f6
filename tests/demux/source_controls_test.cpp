// The controls of an open source: seeking, draining, discarding, metadata, and whether it can seek.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <limits>
#include <set>
#include <stdexcept>
#include <thread>

#include "demux/sounds.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "support/throw_text.h"
#include "vidorra/demux/audio_decoder.h"
#include "vidorra/demux/video_decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra {
namespace {

using test::fileOf;
using test::LogCapture;
using test::opened;
using testing::ElementsAre;
using testing::IsEmpty;
using Line = LogCapture::Line;

constexpr std::int64_t kOrigin = 1700000000123456;

// Sound in Matroska, with strings in its metadata. Every packet is a key packet. The packets begin at 0;
// with an encoder delay they would begin earlier in some FFmpeg versions.
std::filesystem::path soundWithOrigin() {
    return test::mediaFile("origin.mkv",
                           test::joined({test::signal(48000, "stereo", 2, 0.8),
                                         {"-metadata", "timeorigin=" + std::to_string(kOrigin), "-metadata",
                                          "title=A title", "-c:a", "flac", "-frame_size", "1536"}}));
}

// A picture with one key packet in ten, and sound.
std::filesystem::path pictureAndSound() {
    return test::mediaFile(
        "groups.mkv",
        test::joined({test::signal(48000, "stereo", 2, 1),
                      {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=1", "-map", "1:v", "-map", "0:a"},
                      {"-c:v", "mpeg4", "-g", "10", "-bf", "0", "-sc_threshold", "1000000000"},
                      {"-c:a", "flac"}}));
}

// A picture with one key packet in ten, at 0, 400 and 800 ms by a clock of microseconds.
std::filesystem::path fineClock() {
    return test::mediaFile(
        "fine.mp4", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=1", "-c:v", "mpeg4", "-g", "10", "-bf",
                     "0", "-sc_threshold", "1000000000", "-video_track_timescale", "1000000"});
}

Packet readToEnd(FormatContext& source) {
    Packet packet = source.readPacket();
    while (!source.isEOF()) {
        packet = source.readPacket();
    }
    return packet;
}

// The packet after a seek to `time` microseconds of the file's own time, by direct calls.
struct PlainPosition {
    int stream;
    std::int64_t time;
};

PlainPosition afterPlainSeek(const std::filesystem::path& path, std::int64_t time) {
    AVFormatContext* format = nullptr;
    AVPacket* packet = av_packet_alloc();
    const bool good = avformat_open_input(&format, path.c_str(), nullptr, nullptr) == 0 &&
                      avformat_find_stream_info(format, nullptr) >= 0 &&
                      av_seek_frame(format, -1, time, AVSEEK_FLAG_BACKWARD) >= 0 &&
                      av_read_frame(format, packet) == 0;
    PlainPosition position = {-1, 0};
    if (good) {
        const AVRational base = format->streams[packet->stream_index]->time_base;
        position = {packet->stream_index, packet->pts * 1000000 * base.num / base.den};
    }
    av_packet_free(&packet);
    avformat_close_input(&format);
    return position;
}

TEST(Seek, GoesWhereAPlainSeekGoes) {
    const auto path = pictureAndSound();
    FormatContext source = opened(path);
    std::set<std::int64_t> places;
    for (const std::int64_t time : {900000, 0, 399999, 400000, 400001, 39999, 799000, 800000, -500000}) {
        SCOPED_TRACE(time);
        const PlainPosition expected = afterPlainSeek(path, time);
        ASSERT_GE(expected.stream, 0);
        source.seek(Timestamp(Timebase(), time));
        const Packet packet = source.readPacket();
        EXPECT_EQ(packet.stream_index, expected.stream);
        EXPECT_EQ(packet.pts, expected.time);
        places.insert(packet.pts);
    }
    EXPECT_GE(places.size(), 3U);
}

TEST(Seek, GoesToTheLastKeyPacketAtOrBeforeTheTime) {
    FormatContext source = opened(fineClock());
    const std::pair<std::int64_t, std::int64_t> rows[] = {
        {0, 0}, {399999, 0}, {400000, 400000}, {799999, 400000}, {800000, 800000}, {5000000, 800000}};
    for (const auto& [time, expected] : rows) {
        source.seek(Timestamp(Timebase(), time));
        EXPECT_EQ(source.readPacket().pts, expected) << time;
    }
}

TEST(Seek, TakesTheOriginOutOfTheTime) {
    FormatContext source = opened(soundWithOrigin());
    FormatContext plain = opened(soundWithOrigin());
    const std::vector<Packet> packets = test::packetsOf(plain, 0);
    ASSERT_EQ(packets.front().pts, kOrigin);
    for (const std::size_t i : {20U, 3U, 0U}) {
        source.seek(Timestamp(Timebase(), packets[i].pts));
        EXPECT_EQ(source.readPacket().pts, packets[i].pts) << i;
    }
    // Without the origin it is a time long before the start.
    source.seek(Timestamp(Timebase(), 500000));
    EXPECT_EQ(source.readPacket().pts, kOrigin);
}

TEST(Seek, TakesTimesInOtherBases) {
    FormatContext source = opened(fineClock());
    source.seek(Timestamp({1, 90000}, 36000));
    EXPECT_EQ(source.readPacket().pts, 400000);
    // 399999.6 us round up, 399999.4 us down.
    source.seek(Timestamp({1, 10000000}, 3999996));
    EXPECT_EQ(source.readPacket().pts, 400000);
    source.seek(Timestamp({1, 10000000}, 3999994));
    EXPECT_EQ(source.readPacket().pts, 0);
}

TEST(Seek, TakesANullTimeByItsCount) {
    FormatContext source = opened(fineClock());
    source.seek(Timestamp(Timebase(), 400000, true));
    EXPECT_EQ(source.readPacket().pts, 400000);
}

TEST(Seek, ClearsTheEndOfTheFile) {
    FormatContext source = opened(soundWithOrigin());
    EXPECT_EQ(readToEnd(source).size, 0);
    ASSERT_TRUE(source.isEOF());
    source.seek(Timestamp(Timebase(), kOrigin));
    EXPECT_FALSE(source.isEOF());
    EXPECT_EQ(source.readPacket().pts, kOrigin);
}

TEST(Seek, DoesNothingWithoutAnOpenSource) {
    FormatContext source;
    EXPECT_NO_THROW(source.seek(Timestamp(Timebase(), 1)));
    EXPECT_FALSE(source.isEOF());
    source = opened(soundWithOrigin());
    source.close();
    EXPECT_NO_THROW(source.seek(Timestamp(Timebase(), 1)));
}

TEST(Seek, ThrowsTheTextOfFFmpegWhenItFailsAndLeavesTheEnd) {
    FormatContext source = opened(test::mediaFile(
        "raw.h264", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=0.2", "-c:v", "libx264", "-bf", "0"}));
    readToEnd(source);
    EXPECT_THROW_TEXT(std::runtime_error, "Operation not permitted", source.seek(Timestamp(Timebase(), 0)));
    EXPECT_TRUE(source.isEOF());
}

TEST(Seek, LetsTheOriginWrap) {
    FormatContext source = opened(soundWithOrigin());
    try {
        source.seek(Timestamp(Timebase(), std::numeric_limits<std::int64_t>::min()));
    } catch (const std::runtime_error&) {
        // FFmpeg may refuse such a time.
    }
    source.seek(Timestamp(Timebase(), kOrigin));
    EXPECT_EQ(source.readPacket().pts, kOrigin);
}

TEST(DrainDecoders, MakesDecodersReadyAfterTheEnd) {
    FormatContext source = opened(pictureAndSound());
    const std::vector<Packet> pictures = test::packetsOf(source, 0);
    source.seek(Timestamp(Timebase(), 0));
    const std::vector<Packet> sounds = test::packetsOf(source, 1);
    for (const unsigned stream : {0U, 1U}) {
        // Starts the end of the stream.
        ASSERT_TRUE(source.getCodecContext(stream)->send(AVPacket{}).ok);
    }
    {
        const LogCapture log;
        EXPECT_TRUE(source.decodeVideoPacket(pictures[0]).empty());
        EXPECT_TRUE(source.decodeAudioPacket(sounds[0]).empty());
        EXPECT_EQ(log.lines().size(), 2U);
    }
    const LogCapture log;
    source.drainDecoders();
    EXPECT_FALSE(source.decodeVideoPacket(pictures[0]).empty());
    EXPECT_FALSE(source.decodeAudioPacket(sounds[0]).empty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DrainDecoders, ThrowsAwayWhatTheyHold) {
    FormatContext source =
        opened(test::mediaFile("reordered.mp4", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=0.4", "-c:v",
                                                 "libx264", "-bf", "2", "-g", "100"}));
    const std::vector<Packet> packets = test::packetsOf(source, 0);
    std::int64_t last = -1;
    for (const Packet& packet : packets) {
        const VideoFrame frame = source.decodeVideoPacket(packet);
        last = frame.empty() ? last : frame.timestamp().value;
    }
    ASSERT_LT(last, 360000) << "the decoder kept nothing back";
    source.drainDecoders();
    // The remaining pictures are gone: the first one comes next.
    for (const Packet& packet : packets) {
        const VideoFrame frame = source.decodeVideoPacket(packet);
        if (!frame.empty()) {
            EXPECT_EQ(frame.timestamp().value, 0);
            break;
        }
    }
}

TEST(DrainDecoders, WarnsOfADecoderThatCannotBeDrainedAndGoesOn) {
    FormatContext source = opened(pictureAndSound());
    const std::vector<Packet> sounds = test::packetsOf(source, 1);
    ASSERT_TRUE(source.getCodecContext(1)->send(AVPacket{}).ok);
    // Not opened.
    auto closed = std::make_unique<VideoDecoder>();
    (void)closed->prepareCodec(std::nullopt, *source.trackAtIndex(0)->codecpar);
    source.getCodecContext(0) = std::move(closed);
    {
        const LogCapture log;
        source.drainDecoders();
        EXPECT_THAT(log.lines(),
                    ElementsAre(Line{2, "drainDecoders(): failed to drain decoder for stream 0"}));
        EXPECT_FALSE(source.decodeAudioPacket(sounds[0]).empty());
    }
    const LogCapture log;
    source.close();
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{1, "mpeg4 Decoder draining is failed: #-22: Invalid argument"}));
}

TEST(DrainDecoders, WarnsOfEachDecoderThatCannotBeDrained) {
    FormatContext source = opened(pictureAndSound());
    for (const unsigned stream : {0U, 1U}) {
        auto closed = std::make_unique<DecoderBase>();
        (void)closed->prepareCodec(std::nullopt, *source.trackAtIndex(stream)->codecpar);
        source.getCodecContext(stream) = std::move(closed);
    }
    const LogCapture log;
    source.drainDecoders();
    EXPECT_THAT(log.texts(),
                testing::UnorderedElementsAre("drainDecoders(): failed to drain decoder for stream 0",
                                              "drainDecoders(): failed to drain decoder for stream 1"));
}

TEST(DrainDecoders, PassesOverNullSlotsAndSourcesWithoutDecoders) {
    FormatContext source;
    const LogCapture log;
    EXPECT_NO_THROW(source.drainDecoders());
    source = opened(pictureAndSound());
    EXPECT_NO_THROW(source.drainDecoders());
    source.getCodecContext(0).reset();
    EXPECT_NO_THROW(source.drainDecoders());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DiscardTrack, SetsTheValueOfTheStream) {
    FormatContext source = opened(pictureAndSound());
    for (const AVDiscard value : {AVDISCARD_NONE, AVDISCARD_NONKEY, AVDISCARD_ALL, AVDISCARD_DEFAULT}) {
        source.discardTrackAtIndex(1, value);
        EXPECT_EQ(source.trackAtIndex(1)->discard, value);
        EXPECT_EQ(source.trackAtIndex(0)->discard, AVDISCARD_DEFAULT);
    }
}

TEST(DiscardTrack, LeavesThePacketsOfTheStreamOut) {
    FormatContext source;
    source.setUrl(pictureAndSound().string());
    // Finding stream information would read packets before they are discarded.
    source.open("", false, std::chrono::seconds(1));
    source.discardTrackAtIndex(0, AVDISCARD_ALL);
    int packets = 0;
    for (Packet packet = source.readPacket(); !source.isEOF(); packet = source.readPacket()) {
        EXPECT_EQ(packet.stream_index, 1);
        ++packets;
    }
    EXPECT_GT(packets, 5);
}

TEST(DiscardTrack, ThrowsForATrackThatThereIsNot) {
    FormatContext source = opened(pictureAndSound());
    EXPECT_NO_THROW(source.discardTrackAtIndex(1, AVDISCARD_ALL));
    EXPECT_THROW_TEXT(std::out_of_range, "Index in discardTrackAtIndex",
                      source.discardTrackAtIndex(2, AVDISCARD_ALL));
    EXPECT_THROW_TEXT(std::out_of_range, "Index in discardTrackAtIndex",
                      source.discardTrackAtIndex(~0U, AVDISCARD_ALL));
}

TEST(DiscardTrack, ThrowsWithoutAnOpenSource) {
    FormatContext source;
    EXPECT_THROW_TEXT(std::runtime_error, "Can not discard track on stream that was not opened",
                      source.discardTrackAtIndex(0, AVDISCARD_ALL));
    source = opened(pictureAndSound());
    source.close();
    EXPECT_THROW_TEXT(std::runtime_error, "Can not discard track on stream that was not opened",
                      source.discardTrackAtIndex(99, AVDISCARD_ALL));
}

TEST(SourceMetadata, GivesTheValueOfAKey) {
    const FormatContext source = opened(soundWithOrigin());
    EXPECT_EQ(source.metadata("title"), "A title");
    EXPECT_EQ(source.metadata("timeorigin"), std::to_string(kOrigin));
}

TEST(SourceMetadata, TakesKeysInAnyCaseButWhole) {
    const FormatContext source = opened(soundWithOrigin());
    EXPECT_EQ(source.metadata("TITLE"), "A title");
    EXPECT_EQ(source.metadata("tit"), "");
    EXPECT_EQ(source.metadata("titles"), "");
}

TEST(SourceMetadata, IsEmptyForAMissingKeyAndAClosedSource) {
    FormatContext source = opened(soundWithOrigin());
    EXPECT_EQ(source.metadata("artist"), "");
    EXPECT_EQ(source.metadata(""), "");
    source.close();
    EXPECT_EQ(source.metadata("title"), "");
    EXPECT_EQ(FormatContext().metadata("title"), "");
}

TEST(IsStreamed, IsFalseForAFileAndAClosedSource) {
    FormatContext source;
    EXPECT_FALSE(source.isStreamed());
    source = opened(soundWithOrigin());
    EXPECT_FALSE(source.isStreamed());
    source.close();
    EXPECT_FALSE(source.isStreamed());
}

TEST(IsStreamed, IsFalseForASourceWithoutAStreamOfBytes) {
    const auto picture = test::mediaFile(
        "numbered1.png", {"-f", "lavfi", "-i", "testsrc2=s=16x16:r=25:d=0.04", "-frames:v", "1"});
    FormatContext source;
    source.setUrl((picture.parent_path() / "numbered%d.png").string());
    source.open("image2", true, std::chrono::seconds(1));
    ASSERT_EQ(source.getAVFormatContext()->pb, nullptr);
    EXPECT_FALSE(source.isStreamed());
    EXPECT_GT(source.readPacket().size, 0);
}

// A named pipe that gets the content of a file from a thread.
class Pipe {
public:
    explicit Pipe(const std::filesystem::path& content)
        : mPath(test::temporaryFolder() / "pipe"), mContent(test::fileContent(content)) {
        if (mkfifo(mPath.c_str(), 0600) != 0) {
            throw std::runtime_error("no pipe");
        }
        mWriter = std::thread([this] {
            std::ofstream stream(mPath, std::ios::binary);
            stream << mContent;
        });
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        mWriter.join();
        std::filesystem::remove(mPath);
    }

    const std::filesystem::path& path() const { return mPath; }

private:
    std::filesystem::path mPath;
    std::string mContent;
    std::thread mWriter;
};

TEST(IsStreamed, IsTrueForAPipe) {
    const Pipe pipe(fileOf("SixteenBitsInWav"));
    FormatContext source = opened(pipe.path());
    EXPECT_TRUE(source.isStreamed());
    readToEnd(source);
    EXPECT_TRUE(source.isStreamed());
}

TEST(IsStreamed, GivesTheSameSoundFromAPipe) {
    FormatContext file = opened(fileOf("SixteenBitsInWav"));
    const std::vector<Packet> expected = test::packetsOf(file, 0);
    const Pipe pipe(fileOf("SixteenBitsInWav"));
    FormatContext source = opened(pipe.path());
    const std::vector<Packet> packets = test::packetsOf(source, 0);
    ASSERT_EQ(packets.size(), expected.size());
    for (std::size_t i = 0; i < packets.size(); ++i) {
        EXPECT_EQ(packets[i].pts, expected[i].pts);
        const AudioFrame frame = source.decodeAudioPacket(packets[i]);
        const AudioFrame other = file.decodeAudioPacket(expected[i]);
        EXPECT_EQ(frame.debugDescription(), other.debugDescription());
        EXPECT_EQ(frame.audioBuffer().getSample_s16(100), other.audioBuffer().getSample_s16(100));
    }
}

}  // namespace
}  // namespace vidorra
