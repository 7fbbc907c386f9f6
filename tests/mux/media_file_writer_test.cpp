#include "vidorra/mux/media_file_writer.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>

#include "mux/recordings.h"
#include "support/ffprobe.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "support/process.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
}

namespace vidorra::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

void writePictures(MediaFileWriter& writer, MediaFileWriter::Track track, int count) {
    for (int i = 0; i < count; ++i) {
        writer.write(track, numberedPicture(i));
    }
}

// What an exception of this type says, or that there was none.
template <class Exception, class Call>
std::string thrownText(const Call& call) {
    try {
        call();
    } catch (const Exception& exception) {
        return exception.what();
    }
    return "nothing was thrown";
}

// The packets of a stream in the order of showing.
std::vector<ProbedPacket> shown(const std::filesystem::path& path, int stream) {
    std::vector<ProbedPacket> packets;
    for (const ProbedPacket& packet : probe(path).packets) {
        if (packet.stream == stream) {
            packets.push_back(packet);
        }
    }
    std::sort(packets.begin(), packets.end(), [](const auto& a, const auto& b) { return a.pts < b.pts; });
    return packets;
}

TEST(MediaFileWriter, LosslessPicturesAndSoundComeBackWithTheirTimes) {
    const auto path = freshPath("lossless.mkv");
    MediaFileWriter writer(path);
    const auto video = writer.addVideo(videoConfig("ffv1"));
    const auto audio = writer.addAudio(audioConfig("flac"));
    for (int i = 0; i < 25; ++i) {
        writer.write(video, numberedPicture(i));
        writer.write(audio, signalFrame(i * 1920, 1920));
    }
    const WriterReport report = writer.finish();
    EXPECT_EQ(report.tracks[video].codec, "ffv1");
    EXPECT_EQ(report.tracks[video].frames, 25U);
    EXPECT_EQ(report.tracks[video].packets, 25U);
    EXPECT_EQ(report.tracks[video].begin, Timestamp({1, 25}, 0));
    EXPECT_EQ(report.tracks[video].end, Timestamp({1, 25}, 25));
    EXPECT_EQ(report.tracks[audio].end, Timestamp({1, 48000}, 48000));
    EXPECT_THAT(report.files, ElementsAre(path.string()));
    EXPECT_EQ(decodedSound(path), signal(0, 48000));
    const auto packets = shown(path, 0);
    ASSERT_EQ(packets.size(), 25U);
    for (int i = 0; i < 25; ++i) {
        EXPECT_EQ(packets[static_cast<std::size_t>(i)].pts, i * 40);
    }
    const std::vector<std::string> hashes = frameHashes(path);
    EXPECT_EQ(std::set<std::string>(hashes.begin(), hashes.end()).size(), 25U);
}

TEST(MediaFileWriter, EachPictureLastsUntilTheNextAndTheLastAsTheOneBefore) {
    for (const int reordered : {0, 2}) {
        const auto path = freshPath("durations.mp4");
        MediaFileWriter writer(path);
        objstream::object config = videoConfig();
        config["options"]["bf"] = reordered;
        const auto video = writer.addVideo(config);
        // Of no constant rate: 0, 1, 3, 6, 7, 9, 12, ...
        int time = 0;
        for (int i = 0; i < 12; ++i) {
            VideoFrame frame = numberedPicture(i);
            frame.setTimestamp(Timestamp({1, 25}, time));
            writer.write(video, frame);
            time += 1 + i % 3;
        }
        EXPECT_EQ(writer.finish().tracks[video].end.value, 21 + 2) << reordered;
        const auto packets = shown(path, 0);
        ASSERT_EQ(packets.size(), 12U);
        const std::int64_t unit = *packets[1].pts;
        time = 0;
        for (int i = 0; i < 12; ++i) {
            EXPECT_EQ(packets[static_cast<std::size_t>(i)].pts, time * unit) << reordered << ' ' << i;
            const int expected = i < 11 ? 1 + i % 3 : 2;
            // Where pictures are reordered the container's durations are those of decoding.
            if (reordered == 0) {
                EXPECT_EQ(packets[static_cast<std::size_t>(i)].duration, expected * unit) << i;
            }
            time += 1 + i % 3;
        }
    }
}

TEST(MediaFileWriter, OnePictureLastsAUnit) {
    const auto path = freshPath("one.mp4");
    MediaFileWriter writer(path);
    writer.write(writer.addVideo(videoConfig()), numberedPicture(0));
    EXPECT_EQ(writer.finish().tracks[0].end, Timestamp({1, 25}, 1));
    EXPECT_EQ(shown(path, 0).size(), 1U);
}

TEST(MediaFileWriter, SoundIsCutForTheEncoderWithAShorterLastFrame) {
    const auto path = freshPath("cut.mp4");
    MediaFileWriter writer(path);
    const auto audio = writer.addAudio(audioConfig("aac"));
    std::int64_t at = 0;
    for (const std::int64_t count : {1, 5000, 3, 1024, 17, 2955, 1000}) {
        writer.write(audio, signalFrame(at, count));
        at += count;
    }
    ASSERT_EQ(at, 10000);
    EXPECT_EQ(writer.finish().tracks[audio].end, Timestamp({1, 48000}, 10000));
    // 10000 samples and the lead-in of the codec.
    const auto packets = shown(path, 0);
    EXPECT_EQ(packets.front().pts, -1024);
    EXPECT_EQ(*packets.back().pts + packets.back().duration, 10000);
    EXPECT_GE(decodedSound(path).size(), 10000U);
}

TEST(MediaFileWriter, SoundOfAnotherRateAndLayoutKeepsItsLength) {
    const auto path = freshPath("rates.wav");
    MediaFileWriter writer(path);
    const auto audio = writer.addAudio(audioConfig());
    // A second each. The resampler holds some of it back at every change.
    int second = 0;
    for (const int rate : {44100, 8000, 48000, 96000}) {
        AudioBuffer buffer(rate == 8000 ? AV_CH_LAYOUT_MONO : AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_FLTP);
        buffer.setSampleRate(rate);
        buffer.loadSamples(std::vector<short>(static_cast<std::size_t>(rate), 8000));
        writer.write(audio, AudioFrame(buffer, Timestamp({1, 1}, second++)));
    }
    EXPECT_EQ(writer.finish().tracks[audio].end, Timestamp({1, 48000}, 4 * 48000));
    const std::vector<short> sound = decodedSound(path);
    ASSERT_EQ(sound.size(), 4U * 48000U);
    for (const std::size_t at : {24000U, 3U * 48000U / 2U, 5U * 24000U, 7U * 24000U}) {
        EXPECT_NEAR(sound[at], 8000, 2400) << at;
    }
}

TEST(MediaFileWriter, MissingSoundBecomesSilenceAndOverlappingSoundIsDropped) {
    const auto path = freshPath("gaps.wav");
    MediaFileWriter writer(path);
    const auto audio = writer.addAudio(audioConfig());
    const LogCapture log;
    writer.write(audio, signalFrame(0, 2000));
    writer.write(audio, signalFrame(7000, 2000));
    writer.write(audio, signalFrame(8000, 2000));
    // Off by less than a hundredth of a second: the count of the samples holds.
    AudioFrame jittering = signalFrame(10000, 1000);
    jittering.setTimestamp(Timestamp({1, 48000}, 10400));
    writer.write(audio, jittering);
    writer.finish();
    std::vector<short> expected = signal(0, 2000);
    expected.insert(expected.end(), 5000, 0);
    const std::vector<short> rest = signal(7000, 4000);
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_EQ(decodedSound(path), expected);
    EXPECT_THAT(
        log.texts(),
        ElementsAre(
            "writer: track 0 (pcm_s16le): 5000 samples are missing and become silence at 0.145833 (1/48000)",
            "writer: track 0 (pcm_s16le): 1000 samples overlap and are dropped at 0.166667 (1/48000)"));
}

TEST(MediaFileWriter, WhatFiltersHoldIsWritten) {
    struct Row {
        const char* filter;
        std::uint64_t packets;
    };
    // One that gives everything at its end, one that gives more than it got there, one that does so at its
    // start.
    for (const Row& row :
         {Row{"reverse", 20}, Row{"tpad=stop=4,setpts=N", 24}, Row{"loop=loop=3:size=1,setpts=N", 23}}) {
        const auto path = freshPath("filtered.mp4");
        MediaFileWriter writer(path);
        objstream::object config = videoConfig();
        config["filter"] = row.filter;
        const auto video = writer.addVideo(config);
        writePictures(writer, video, 20);
        EXPECT_EQ(writer.finish().tracks[video].packets, row.packets) << row.filter;
        EXPECT_EQ(shown(path, 0).size(), row.packets) << row.filter;
    }
    // The frames of this filter are not of the encoder's size.
    const auto path = freshPath("slower.mp4");
    MediaFileWriter writer(path);
    objstream::object config = audioConfig("aac");
    config["filter"] = "atempo=0.5";
    const auto audio = writer.addAudio(config);
    writer.write(audio, signalFrame(0, 48000));
    writer.finish();
    EXPECT_NEAR(static_cast<double>(decodedSound(path).size()), 96000, 2048);
}

TEST(MediaFileWriter, AFilterThatEndsEndsItsTrack) {
    const auto path = freshPath("trimmed.mp4");
    MediaFileWriter writer(path);
    objstream::object config = videoConfig();
    config["filter"] = "trim=end_frame=5";
    writePictures(writer, writer.addVideo(config), 20);
    EXPECT_EQ(writer.finish().tracks[0].packets, 5U);
}

TEST(MediaFileWriter, ATimeThatDoesNotRiseIsRefusedAndTheWriterGoesOn) {
    const auto path = freshPath("refused.mp4");
    MediaFileWriter writer(path);
    const auto video = writer.addVideo(videoConfig());
    const auto audio = writer.addAudio(audioConfig("aac"));
    writePictures(writer, video, 3);
    EXPECT_THROW_TEXT(
        std::invalid_argument,
        "track 0 (mpeg4): the time 0.080000 (1/25) is not above the latest one, 0.080000 (1/25)",
        writer.write(video, numberedPicture(2)));
    VideoFrame close = numberedPicture(3);
    close.setTimestamp(Timestamp({}, 81000));
    EXPECT_THROW_TEXT(std::invalid_argument,
                      "track 0 (mpeg4): the time 0.081000 is not above the latest one, 0.080000 (1/25)",
                      writer.write(video, close));
    close.setTimestamp({});
    EXPECT_THROW_TEXT(std::invalid_argument, "track 0 (mpeg4): the time is not set",
                      writer.write(video, close));
    EXPECT_THROW_TEXT(std::invalid_argument, "track 0 (mpeg4): the frame is empty",
                      writer.write(video, VideoFrame()));
    EXPECT_THROW_TEXT(std::invalid_argument, "track 1 (aac): the frame is empty",
                      writer.write(audio, AudioFrame()));
    const Picture small({32, 32}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, 32);
    EXPECT_THROW(writer.write(video, VideoFrame(small, Timestamp({1, 25}, 3), Frame::NoFlags)), FFmpegError);
    writer.write(audio, signalFrame(0, 4096));
    EXPECT_THROW_TEXT(
        std::invalid_argument,
        "track 1 (aac): the time 0.000000 (1/48000) is not above the latest one, 0.000000 (1/48000)",
        writer.write(audio, signalFrame(0, 100)));
    writer.write(video, numberedPicture(3));
    EXPECT_EQ(writer.finish().tracks[video].packets, 4U);
    EXPECT_EQ(shown(path, 0).size(), 4U);
}

TEST(MediaFileWriter, WrongCallsAreLogicErrors) {
    const auto path = freshPath("calls.mp4");
    MediaFileWriter writer(path);
    const auto video = writer.addVideo(videoConfig());
    const auto audio = writer.addAudio(audioConfig("aac"));
    EXPECT_THROW_TEXT(std::logic_error, "track 0 (mpeg4) takes no sound",
                      writer.write(video, signalFrame(0, 10)));
    EXPECT_THROW_TEXT(std::logic_error, "track 1 (aac) takes no pictures",
                      writer.write(audio, numberedPicture(0)));
    EXPECT_THROW_TEXT(std::logic_error, "track 1 (aac) takes no packets", writer.write(audio, Packet()));
    EXPECT_THROW_TEXT(std::out_of_range, path.string() + ": there is no track 2",
                      writer.write(2, numberedPicture(0)));
    writePictures(writer, video, 2);
    EXPECT_THROW_TEXT(std::logic_error, "a track cannot be added after the first write()",
                      static_cast<void>(writer.addVideo(videoConfig())));
    writer.end(audio);
    EXPECT_THROW_TEXT(std::logic_error, "track 1 (aac) has ended", writer.write(audio, signalFrame(0, 10)));
    writer.finish();
    EXPECT_THROW_TEXT(std::logic_error, path.string() + ": the writer has finished", writer.finish());
    EXPECT_THROW_TEXT(std::logic_error, path.string() + ": the writer has finished",
                      writer.write(video, numberedPicture(9)));
}

TEST(MediaFileWriter, OptionsThatDoNotGoTogetherAreRefused) {
    const auto refused = [](const char* path, const WriterOptions& options) {
        try {
            MediaFileWriter(freshPath(path).string(), options);
            return std::string("nothing");
        } catch (const std::invalid_argument& error) {
            return std::string(error.what());
        }
    };
    WriterOptions options;
    options.container = {{"faststrat", "1"}};
    EXPECT_EQ(refused("a.mp4", options), "mp4 has no option faststrat");
    options = {};
    options.fragmentDuration = std::chrono::seconds(0);
    EXPECT_EQ(refused("a.mkv", options), "only MP4 and MOV have fragments");
    options = {};
    options.segmentDuration = std::chrono::seconds(1);
    EXPECT_EQ(refused("a.ts", options), "the path of segments needs a %d for their number");
    options.playlist = "a.m3u8";
    EXPECT_EQ(refused("a%d.mp4", options), "a playlist needs segments, in MPEG-TS");
    EXPECT_THROW(MediaFileWriter("a.unknown"), FFmpegError);
    EXPECT_THROW(MediaFileWriter(temporaryFolder() / "missing" / "a.mp4"), std::system_error);
    EXPECT_THROW(MediaFileWriter(std::shared_ptr<ByteSink>(), {"mp4"}), std::invalid_argument);
    EXPECT_THROW(MediaFileWriter(std::make_shared<MemorySink>()), std::invalid_argument);
}

TEST(MediaFileWriter, ATrackThatLagsIsNamedBeforeMemoryGrows) {
    const auto path = freshPath("lagging.mov");
    WriterOptions options;
    options.mostWaiting = 100000;
    MediaFileWriter writer(path, options);
    const auto video = writer.addVideo(videoConfig());
    const auto audio = writer.addAudio(audioConfig());
    std::int64_t written = 0;
    std::string text;
    while (text.empty()) {
        try {
            writer.write(audio, signalFrame(written, 1000));
            written += 1000;
        } catch (const std::runtime_error& error) {
            text = error.what();
        }
        ASSERT_LT(written, 100000);
    }
    EXPECT_EQ(text,
              "track 0 (mpeg4) lags: 102400 bytes of other tracks wait for it, up to 0.533333 (1/48000); "
              "write to it or "
              "end() it");
    // It goes on when the other track has come up.
    writePictures(writer, video, 20);
    writer.write(audio, signalFrame(written, 1000));
    const WriterReport report = writer.finish();
    EXPECT_LE(report.mostWaiting, 110000U);
    EXPECT_EQ(report.tracks[audio].bytes, static_cast<std::uint64_t>(written + 1000) * 4);
    EXPECT_EQ(decodedSound(path), signal(0, written + 1000));
}

TEST(MediaFileWriter, LongSilenceCannotWaitForATrackThatLags) {
    WriterOptions options;
    options.mostWaiting = 100000;
    MediaFileWriter writer(freshPath("silence.mov"), options);
    writer.addVideo(videoConfig());
    const auto audio = writer.addAudio(audioConfig());
    writer.write(audio, signalFrame(0, 1000));
    // Two minutes later.
    EXPECT_EQ(thrownText<std::runtime_error>([&] { writer.write(audio, signalFrame(5760000, 1000)); }),
              "track 0 (mpeg4) lags: 200704 bytes of other tracks wait for it, up to 1.066667 (1/48000); "
              "write to it or end() it");
    // What has been encoded is lost.
    EXPECT_THROW(writer.finish(), std::logic_error);
}

TEST(MediaFileWriter, ATimeThatTheEncoderCannotCountIsRefused) {
    MediaFileWriter writer(freshPath("uncountable.mov"));
    const auto audio = writer.addAudio(audioConfig());
    const AudioFrame far(AudioBuffer(signalFrame(0, 1000).audioBuffer()), Timestamp({1, 1}, 1LL << 60));
    EXPECT_THROW(writer.write(audio, far), std::invalid_argument);
    writer.write(audio, signalFrame(0, 1000));
    EXPECT_THROW(writer.write(audio, far), std::invalid_argument);
    EXPECT_EQ(writer.finish().tracks[audio].frames, 1U);
}

TEST(MediaFileWriter, NothingWaitsForATrackThatHasEnded) {
    WriterOptions options;
    options.mostWaiting = 50000;
    MediaFileWriter writer(freshPath("ended.mov"), options);
    const auto video = writer.addVideo(videoConfig());
    const auto audio = writer.addAudio(audioConfig());
    writePictures(writer, video, 5);
    writer.end(video);
    for (int i = 0; i < 100; ++i) {
        writer.write(audio, signalFrame(i * 1000, 1000));
    }
    EXPECT_LT(writer.finish().mostWaiting, 5000U);
}

TEST(MediaFileWriter, TheEarliestTimeIsZeroInTheFile) {
    for (const std::int64_t first : {-100, 0, 90000000}) {
        const auto path = freshPath("shifted.mp4");
        MediaFileWriter writer(path);
        const auto video = writer.addVideo(videoConfig());
        const auto audio = writer.addAudio(audioConfig("aac"));
        for (int i = 0; i < 10; ++i) {
            VideoFrame frame = numberedPicture(i);
            frame.setTimestamp(Timestamp({1, 25}, first + 5 + i));
            AudioFrame sound = signalFrame(i * 1920, 1920);
            sound.setTimestamp(Timestamp({1, 25}, first + i));
            writer.write(video, frame);
            writer.write(audio, sound);
        }
        EXPECT_EQ(writer.finish().tracks[video].begin, Timestamp({1, 25}, first + 5));
        const ProbedMedia media = probe(path);
        EXPECT_EQ(*shown(path, 0).front().pts * 25 * media.streams[0].timebaseNum,
                  5 * media.streams[0].timebaseDen);
        EXPECT_EQ(shown(path, 1).front().pts, -1024);
    }
}

TEST(MediaFileWriter, AFirstTimecodeBecomesATrackOfMov) {
    const auto path = freshPath("timecode.mov");
    MediaFileWriter writer(path);
    const auto video = writer.addVideo(videoConfig());
    for (int i = 0; i < 5; ++i) {
        VideoFrame frame = numberedPicture(i);
        frame.addSideData(SMPTE12Timecode(10, 0, 0, static_cast<unsigned>(i), false, Timebase(1, 25)));
        writer.write(video, frame);
    }
    writer.finish();
    EXPECT_EQ(run({"ffprobe", "-v", "error", "-select_streams", "d", "-show_entries",
                   "stream=codec_tag_string:stream_tags=timecode", "-of", "csv=p=0", path}),
              "tmcd,10:00:00:00\n");
}

TEST(MediaFileWriter, PacketsWithoutSignalAreReported) {
    MediaFileWriter writer(freshPath("signal.mp4"));
    const auto video = writer.addVideo(videoConfig());
    for (int i = 0; i < 20; ++i) {
        VideoFrame frame = numberedPicture(i);
        frame.setFlags(i >= 5 && i < 9 ? Frame::NoSignal : Frame::NoFlags);
        writer.write(video, frame);
    }
    const auto stretches = writer.finish().tracks[video].noSignal;
    ASSERT_EQ(stretches.size(), 1U);
    EXPECT_EQ(stretches[0].begin, Timestamp({1, 25}, 5));
    EXPECT_EQ(stretches[0].end, Timestamp({1, 25}, 9));
    EXPECT_EQ(stretches[0].packets, 4U);
}

TEST(MediaFileWriter, ProgressTellsFramesAndTime) {
    std::vector<std::pair<std::uint64_t, Timestamp>> calls;
    WriterOptions options;
    options.progress = [&](std::uint64_t frames, const Timestamp& time) { calls.emplace_back(frames, time); };
    MediaFileWriter writer(freshPath("progress.mp4"), options);
    writePictures(writer, writer.addVideo(videoConfig()), 10);
    writer.finish();
    ASSERT_EQ(calls.size(), 10U);
    EXPECT_EQ(calls.back().first, 10U);
    EXPECT_TRUE(calls.front().second.isNull);
    EXPECT_EQ(calls.back().second, Timestamp({1, 25}, 8));
}

TEST(MediaFileWriter, PacketsAreCopiedAsTheyAre) {
    const auto input =
        mediaFile("remux.mp4", {"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=25", "-f", "lavfi", "-i",
                                "sine", "-t", "2", "-c:v", "mpeg4", "-bf", "2", "-c:a", "aac"});
    const auto path = freshPath("remuxed.mkv");
    AVFormatContext* source = nullptr;
    ASSERT_GE(avformat_open_input(&source, input.c_str(), nullptr, nullptr), 0);
    ASSERT_GE(avformat_find_stream_info(source, nullptr), 0);
    {
        MediaFileWriter writer(path);
        for (unsigned i = 0; i < source->nb_streams; ++i) {
            writer.addPackets(*source->streams[i]->codecpar, source->streams[i]->time_base);
        }
        Packet packet;
        while (av_read_frame(source, &packet) >= 0) {
            writer.write(static_cast<std::size_t>(packet.stream_index), packet);
            EXPECT_THROW(writer.write(static_cast<std::size_t>(packet.stream_index), packet),
                         std::invalid_argument);
            av_packet_unref(&packet);
        }
        writer.finish();
    }
    avformat_close_input(&source);
    for (const int stream : {0, 1}) {
        const auto in = shown(input, stream);
        const auto out = shown(path, stream);
        ASSERT_EQ(in.size(), out.size());
        for (std::size_t i = 0; i < in.size(); ++i) {
            EXPECT_EQ(in[i].hash, out[i].hash);
            EXPECT_EQ(in[i].key, out[i].key);
        }
    }
}

TEST(MediaFileWriter, ATrackWithoutFramesIsLeftOut) {
    const LogCapture log;
    const auto path = freshPath("left_out.mp4");
    MediaFileWriter writer(path);
    const auto video = writer.addVideo(videoConfig());
    writer.addAudio(audioConfig("aac"));
    writePictures(writer, video, 5);
    EXPECT_EQ(writer.finish().tracks[1].packets, 0U);
    EXPECT_EQ(probe(path).streams.size(), 1U);
    EXPECT_THAT(log.texts(),
                ElementsAre("writer: " + path.string() + ": track 1 (aac) is empty and left out"));
}

}  // namespace
}  // namespace vidorra::test
