#include "vidorra/encode/audio_encoder.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>

#include "encode/muxing.h"
#include "objstream/object.h"
#include "support/log_capture.h"
#include "support/process.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

namespace vidorra {
namespace {

using test::LogCapture;
using test::muxed;
using test::receiveAll;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr unsigned long kMono = 4;
constexpr unsigned long kStereo = 3;
constexpr unsigned long kFive = 0x3f;  // 5.1
constexpr int kRate = 48000;
constexpr double kPi = 3.14159265358979323846;

objstream::object configFor(const std::string& codec, int channels = 2, int rate = kRate) {
    objstream::object config;
    config["codec"] = codec;
    config["options"]["ar"] = rate;
    config["options"]["ac"] = channels;
    // For the container.
    config["options"]["flags"] = "+global_header";
    return config;
}

// A tone of 16 bits at 440 Hz on the left and 660 Hz on the right, and so on, from the sample `start` on.
std::int16_t toneAt(int channel, int index) {
    return static_cast<std::int16_t>(
        std::lround(8000 * std::sin(2 * kPi * (440 + 220 * channel) * index / kRate)));
}

AudioFrame tone(int samples, int start = 0, AVSampleFormat format = AV_SAMPLE_FMT_S16,
                unsigned long layout = kStereo, int rate = kRate) {
    AudioBuffer buffer(layout, format);
    buffer.setSampleRate(rate);
    buffer.resize(static_cast<unsigned long>(samples));
    const auto planes = buffer.getPointersToPlanes();
    const int channels = buffer.numberOfChannels();
    for (int channel = 0; channel < channels; ++channel) {
        for (int i = 0; i < samples; ++i) {
            const std::int16_t value = toneAt(channel, start + i);
            const auto packed = static_cast<std::size_t>(i) * static_cast<std::size_t>(channels) +
                                static_cast<std::size_t>(channel);
            switch (format) {
            case AV_SAMPLE_FMT_S16:
                reinterpret_cast<std::int16_t*>(planes[0])[packed] = value;
                break;
            case AV_SAMPLE_FMT_FLT:
                reinterpret_cast<float*>(planes[0])[packed] = static_cast<float>(value) / 32768;
                break;
            case AV_SAMPLE_FMT_FLTP:
                reinterpret_cast<float*>(
                    planes[planes.size() > 1 ? static_cast<std::size_t>(channel) : 0])[i] =
                    static_cast<float>(value) / 32768;
                break;
            default:
                throw std::logic_error("no tone in this format");
            }
        }
    }
    return {buffer, Timestamp({1, rate}, start)};
}

// Feeds `samples` samples in frames of the size that the encoder wants, and ends the stream.
std::vector<Packet> encodeTone(AudioEncoder& encoder, int samples, AVSampleFormat format = AV_SAMPLE_FMT_S16,
                               unsigned long layout = kStereo) {
    const int wanted = encoder.codecContext()->frame_size;
    const int size = wanted > 0 ? wanted : 1024;
    std::vector<Packet> packets;
    const auto receive = [&] {
        for (Packet& packet : receiveAll(encoder)) {
            packets.push_back(std::move(packet));
        }
    };
    for (int start = 0; start < samples; start += size) {
        const AvRes res = encoder.sendFrame(tone(std::min(size, samples - start), start, format, layout));
        EXPECT_TRUE(res.ok) << res;
        receive();
    }
    EXPECT_TRUE(encoder.sendEndOfStream().ok);
    receive();
    return packets;
}

// A file as decoded by the ffmpeg program, as 16-bit samples of all channels.
std::vector<std::int16_t> decodedByProgram(const std::filesystem::path& path) {
    const std::string bytes = test::run({"ffmpeg", "-hide_banner", "-loglevel", "error", "-nostdin", "-i",
                                         path.string(), "-f", "s16le", "-c:a", "pcm_s16le", "-"});
    std::vector<std::int16_t> samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

// FFmpeg would explain on stderr what tests expect it to refuse.
class Audio : public testing::Test {
protected:
    Audio() { av_log_set_level(AV_LOG_QUIET); }
    ~Audio() override { av_log_set_level(AV_LOG_INFO); }
};

using AudioEncoderConfig = Audio;
using AudioEncoderFrames = Audio;
using AudioEncoderFilter = Audio;

struct CodecRow {
    const char* encoder;
    bool exact;
    int channels = 2;
    unsigned long layout = kStereo;
};

class AudioEncoderOutput : public testing::TestWithParam<CodecRow> {};

TEST_P(AudioEncoderOutput, IsDecodedByTheProgram) {
    const CodecRow& row = GetParam();
    objstream::object config = configFor(row.encoder, row.channels);
    if (row.channels > 2) {
        config["options"]["channel_layout"] = std::to_string(row.layout);
    }
    AudioEncoder encoder(config);
    constexpr int kSamples = kRate / 2;
    const std::vector<Packet> packets = encodeTone(encoder, kSamples, AV_SAMPLE_FMT_S16, row.layout);
    ASSERT_FALSE(packets.empty());
    const std::vector<std::int16_t> samples =
        decodedByProgram(muxed(std::string(row.encoder) + ".mkv", encoder, packets));
    const auto channels = static_cast<std::size_t>(row.channels);
    const std::size_t count = samples.size() / channels;
    if (row.exact) {
        ASSERT_EQ(count, static_cast<std::size_t>(kSamples));
        for (std::size_t i = 0; i < samples.size(); ++i) {
            ASSERT_EQ(samples[i], toneAt(static_cast<int>(i % channels), static_cast<int>(i / channels)))
                << i;
        }
        return;
    }
    // A codec may add silence at both ends.
    EXPECT_NEAR(static_cast<double>(count), kSamples, 4096);
    for (int channel = 0; channel < 2; ++channel) {
        int rises = 0;
        double energy = 0;
        const std::size_t begin = count / 4;
        const std::size_t end = begin + kRate / 10;
        for (std::size_t i = begin; i < end; ++i) {
            const double before = samples[(i - 1) * channels + static_cast<std::size_t>(channel)];
            const double now = samples[i * channels + static_cast<std::size_t>(channel)];
            rises += before < 0 && now >= 0 ? 1 : 0;
            energy += now * now;
        }
        EXPECT_NEAR(rises, (440 + 220 * channel) / 10.0, 1);
        EXPECT_NEAR(std::sqrt(energy / (kRate / 10.0)), 8000 / std::sqrt(2.0), 300);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Encoders, AudioEncoderOutput,
    testing::Values(CodecRow{"pcm_s16le", true}, CodecRow{"pcm_s24le", true}, CodecRow{"flac", true},
                    CodecRow{"aac", false}, CodecRow{"ac3", false}, CodecRow{"libmp3lame", false},
                    CodecRow{"libopus", false}, CodecRow{"libvorbis", false}, CodecRow{"mp2", false},
                    CodecRow{"pcm_s16be", true, 6, kFive}, CodecRow{"flac", true, 6, kFive},
                    CodecRow{"ac3", false, 6, kFive}, CodecRow{"flac", true, 1, kMono}),
    [](const auto& row) {
        return std::string(row.param.encoder) + "With" + std::to_string(row.param.channels);
    });

TEST_F(AudioEncoderConfig, AVideoEncoderIsRefused) {
    EXPECT_THROW_TEXT(std::runtime_error,
                      "AudioEncoder: Trying to use video codec \"mpeg4\" by audio encoder.",
                      AudioEncoder(configFor("mpeg4")));
}

TEST_F(AudioEncoderConfig, AnEncoderOfSubtitlesIsRefused) {
    EXPECT_THROW_TEXT(std::runtime_error,
                      "AudioEncoder: Unsupported media type \"3\". Expected AVMediaType::AVMEDIA_TYPE_AUDIO.",
                      AudioEncoder(configFor("ass")));
}

TEST_F(AudioEncoderConfig, TheChoiceOfTheEncoderIsThatOfTheBase) {
    EXPECT_THROW_TEXT(std::runtime_error, "\"codec\" param not found in encoder's config",
                      AudioEncoder{objstream::object()});
    objstream::object config = configFor("no_such_encoder");
    config["codec_id"] = "pcm_s16le";
    EXPECT_EQ(AudioEncoder(config).codecContext()->codec_id, AV_CODEC_ID_PCM_S16LE);
}

TEST_F(AudioEncoderConfig, TheFirstListedSampleFormatIsTheDefault) {
    EXPECT_EQ(AudioEncoder(configFor("aac")).codecContext()->sample_fmt, AV_SAMPLE_FMT_FLTP);
    EXPECT_EQ(AudioEncoder(configFor("flac")).codecContext()->sample_fmt, AV_SAMPLE_FMT_S16);
    EXPECT_EQ(AudioEncoder(configFor("pcm_s24le")).codecContext()->sample_fmt, AV_SAMPLE_FMT_S32);
}

TEST_F(AudioEncoderConfig, TheSampleFormatIsANumber) {
    objstream::object config = configFor("flac");
    config["sample_fmt"] = static_cast<int>(AV_SAMPLE_FMT_S32);
    EXPECT_EQ(AudioEncoder(config).codecContext()->sample_fmt, AV_SAMPLE_FMT_S32);
    config["sample_fmt"] = std::to_string(static_cast<int>(AV_SAMPLE_FMT_S32));
    EXPECT_EQ(AudioEncoder(config).codecContext()->sample_fmt, AV_SAMPLE_FMT_S32);
    config["sample_fmt"] = "s32";
    EXPECT_THROW(AudioEncoder{config}, objstream::bad_objstream_cast<std::string>);
}

TEST_F(AudioEncoderConfig, ASampleFormatThatTheEncoderLacksDoesNotOpen) {
    objstream::object config = configFor("aac");
    for (const int format : {static_cast<int>(AV_SAMPLE_FMT_S16), -1, 9999}) {
        SCOPED_TRACE(format);
        config["sample_fmt"] = format;
        try {
            const AudioEncoder encoder(config);
            ADD_FAILURE() << "it opened";
        } catch (const FFmpegError& error) {
            EXPECT_THAT(error.what(), HasSubstr("Could not open encoder \"aac\""));
        }
    }
}

TEST_F(AudioEncoderConfig, OptionsReachTheEncoder) {
    objstream::object config = configFor("aac", 2, 44100);
    config["options"]["b"] = 96000;
    const AudioEncoder encoder(config);
    EXPECT_EQ(encoder.codecContext()->sample_rate, 44100);
    EXPECT_EQ(encoder.codecContext()->bit_rate, 96000);
}

TEST_F(AudioEncoderConfig, AnOptionThatIsNotKnownStopsTheConstruction) {
    objstream::object config = configFor("aac");
    config["options"]["no_such_option"] = 1;
    try {
        const AudioEncoder encoder(config);
        ADD_FAILURE() << "it opened";
    } catch (const FFmpegError& error) {
        EXPECT_THAT(error.what(), HasSubstr("param no_such_option not found. No matching option exists."));
        EXPECT_EQ(error.error(), AvError::OptionNotFound);
    }
}

TEST_F(AudioEncoderConfig, AnOptionThatIsNoScalarIsAnEmptyText) {
    objstream::object config = configFor("aac");
    config["options"]["b"]["nested"] = 1;
    EXPECT_THROW(AudioEncoder{config}, FFmpegError);
    objstream::object withText = configFor("aac");
    withText["options"]["b"] = "";
    EXPECT_THROW(AudioEncoder{withText}, FFmpegError);
}

struct LayoutRow {
    const char* name;
    int channels;
    const char* layout;
    std::uint64_t expected;
};

class AudioEncoderLayout : public testing::TestWithParam<LayoutRow> {};

TEST_P(AudioEncoderLayout, FollowsTheChannels) {
    const LayoutRow& row = GetParam();
    objstream::object config = configFor("pcm_s16le", row.channels);
    if (row.layout != nullptr) {
        config["options"]["channel_layout"] = row.layout;
    }
    // The layout, as a frame shows it that a filter of the graph makes for the encoder.
    config["filter"] = "anull";
    AudioEncoder encoder(config);
    AudioFrame frame = tone(100, 0, AV_SAMPLE_FMT_S16, row.expected);
    EXPECT_TRUE(encoder.sendFrame(frame).ok);
    EXPECT_EQ(receiveAll(encoder).size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(AudioEncoder, AudioEncoderLayout,
                         testing::Values(LayoutRow{"One", 1, nullptr, kMono},
                                         LayoutRow{"Two", 2, nullptr, kStereo},
                                         // Downmix left and right.
                                         LayoutRow{"TwoOverrideALayout", 2, "downmix", kStereo},
                                         LayoutRow{"OneOverridesALayout", 1, "0x1", kMono},
                                         LayoutRow{"SixKeepTheirLayout", 6, "5.1(side)", 0x60f},
                                         LayoutRow{"SixAtTheBack", 6, "0x3f", kFive}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(AudioEncoderConfig, TheFilterIsBuiltAfterOpening) {
    objstream::object config = configFor("pcm_s16le");
    config["filter"] = "no_such_filter";
    try {
        const AudioEncoder encoder(config);
        ADD_FAILURE() << "it was built";
    } catch (const FFmpegError& error) {
        EXPECT_THAT(error.what(), HasSubstr("Cannot parse filter spec"));
    }
    config["filter"] = objstream::object::map();
    EXPECT_THROW(AudioEncoder{config}, std::bad_cast);
    config["filter"] = "";
    EXPECT_THROW(AudioEncoder{config}, FFmpegError);
}

TEST_F(AudioEncoderConfig, TheTimeBaseIsThatOfTheRate) {
    for (const char* codec : {"pcm_s16le", "aac", "flac"}) {
        const AudioEncoder encoder(configFor(codec));
        EXPECT_EQ(av_cmp_q(encoder.codecContext()->time_base, {1, kRate}), 0) << codec;
    }
}

TEST_F(AudioEncoderFrames, TimesAreRescaled) {
    AudioEncoder encoder(configFor("pcm_s16le"));
    for (const std::int64_t time : {INT64_C(0), INT64_C(1000000), INT64_C(3600000000)}) {
        AudioFrame frame = tone(100);
        frame.setTimestamp({Timebase(), time});
        ASSERT_TRUE(encoder.sendFrame(frame).ok);
        const std::vector<Packet> packets = receiveAll(encoder);
        ASSERT_EQ(packets.size(), 1U);
        EXPECT_EQ(packets[0].pts, time * 48 / 1000);
        EXPECT_EQ(packets[0].duration, 100);
        EXPECT_EQ(frame.timestamp().value, time);
    }
}

TEST_F(AudioEncoderFrames, AnEmptyFrameIsRefused) {
    LogCapture log;
    AudioEncoder encoder(configFor("pcm_s16le"));
    AudioFrame frame;
    frame.setFlags(Frame::NoSignal);
    EXPECT_EQ(encoder.sendFrame(frame).error, AvError::InvalidArgument);
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{1,
                                             "audio-encoder-pcm_s16le: sendFrame(): Couldn't encode empty "
                                             "AudioFrame."}));
    EXPECT_FALSE(encoder.wasNoSignalAt({{1, kRate}, 100}));
}

TEST_F(AudioEncoderFrames, AFrameOfAnotherRateIsDropped) {
    LogCapture log;
    AudioEncoder encoder(configFor("pcm_s16le"));
    AudioFrame frame = tone(100, 0, AV_SAMPLE_FMT_S16, kStereo, 44100);
    frame.setFlags(Frame::NoSignal);
    EXPECT_TRUE(encoder.sendFrame(frame).ok);
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{2, "audio-encoder-pcm_s16le: Audio audioFrame " +
                                                                 frame.debugDescription() +
                                                                 " is not compatible with encoder"}));
    EXPECT_THAT(receiveAll(encoder), IsEmpty());
    EXPECT_FALSE(encoder.wasNoSignalAt({{1, kRate}, 100}));
}

TEST_F(AudioEncoderFrames, PacketsMadeWithoutASignalAreMarked) {
    AudioEncoder encoder(configFor("pcm_s16le"));
    std::vector<bool> marks;
    for (const bool noSignal : {false, true, true, false}) {
        AudioFrame frame = tone(100, static_cast<int>(marks.size()) * 100);
        frame.setFlags(noSignal ? Frame::NoSignal : Frame::LastFrame);
        ASSERT_TRUE(encoder.sendFrame(frame).ok);
        for (const Packet& packet : receiveAll(encoder)) {
            marks.push_back(packet.isNoSignal());
        }
    }
    EXPECT_THAT(marks, ElementsAre(false, true, true, false));
}

TEST_F(AudioEncoderFrames, AnotherSampleFormatIsConverted) {
    AudioEncoder fromFloat(configFor("pcm_s16le"));
    AudioEncoder fromShort(configFor("pcm_s16le"));
    for (const auto format : {AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_FLTP, AV_SAMPLE_FMT_S16}) {
        AudioFrame frame = tone(500, 77, format);
        frame.setFlags(Frame::NoSignal);
        ASSERT_TRUE(fromFloat.sendFrame(frame).ok);
        ASSERT_TRUE(fromShort.sendFrame(tone(500, 77)).ok);
        const std::vector<Packet> converted = receiveAll(fromFloat);
        const std::vector<Packet> expected = receiveAll(fromShort);
        ASSERT_EQ(converted.size(), 1U);
        ASSERT_EQ(expected.size(), 1U);
        ASSERT_EQ(converted[0].size, expected[0].size);
        EXPECT_EQ(
            std::memcmp(converted[0].data, expected[0].data, static_cast<std::size_t>(expected[0].size)), 0);
        EXPECT_EQ(converted[0].pts, 77);
        EXPECT_TRUE(converted[0].isNoSignal());
    }
}

TEST_F(AudioEncoderFrames, AConversionOfTheFormatKeepsTheRate) {
    AudioEncoder encoder(configFor("pcm_s16le", 2, 44100));
    ASSERT_TRUE(encoder.sendFrame(tone(500, 0, AV_SAMPLE_FMT_FLTP, kStereo, 44100)).ok);
    const std::vector<Packet> packets = receiveAll(encoder);
    ASSERT_EQ(packets.size(), 1U);
    ASSERT_EQ(packets[0].size, 500 * 4);
    for (int i = 0; i < 500; ++i) {
        std::int16_t left = 0;
        std::memcpy(&left, packets[0].data + 4 * i, sizeof(left));
        ASSERT_EQ(left, toneAt(0, i)) << i;
    }
}

TEST_F(AudioEncoderFrames, TheLedgerIsInTheTimeBaseOfTheEncoder) {
    AudioEncoder encoder(configFor("pcm_s16le"));
    AudioFrame frame = tone(100);
    frame.setTimestamp({Timebase(), 2000000});
    frame.setFlags(Frame::NoSignal);
    const LogCapture log(5);
    ASSERT_TRUE(encoder.sendFrame(frame).ok);
    EXPECT_THAT(log.texts(), ElementsAre("audio-encoder-pcm_s16le: No signal frame. Set start PTS to " +
                                         Timestamp({1, kRate}, 2 * kRate).debugDescription()));
}

class AudioEncoderWrongFrames : public testing::TestWithParam<const char*> {};

TEST_P(AudioEncoderWrongFrames, AreRefusedBeforeTheCodec) {
    av_log_set_level(AV_LOG_QUIET);
    AudioEncoder encoder(configFor(GetParam()));
    const int wanted = encoder.codecContext()->frame_size;
    const int size = wanted > 0 ? wanted : 1024;
    const AVSampleFormat own = encoder.codecContext()->sample_fmt;
    const auto own16 = own == AV_SAMPLE_FMT_FLTP || own == AV_SAMPLE_FMT_FLT ? own : AV_SAMPLE_FMT_S16;
    for (const auto format : {AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_FLTP, own16}) {
        for (const unsigned long layout : {kMono, kFive, 0x7UL}) {
            EXPECT_EQ(encoder.sendFrame(tone(size, 0, format, layout)).error, AvError::InvalidArgument);
        }
        EXPECT_EQ(encoder.sendFrame(tone(0, 0, format)).error, AvError::InvalidArgument);
    }
    if (wanted > 0) {
        EXPECT_EQ(encoder.sendFrame(tone(size + 1, 0, own16)).error, AvError::InvalidArgument);
    }
    // The encoder still works.
    EXPECT_THAT(encodeTone(encoder, 4 * size), testing::SizeIs(testing::Ge(1)));
}

TEST_P(AudioEncoderWrongFrames, OfAnySizeDoNoHarm) {
    av_log_set_level(AV_LOG_QUIET);
    for (const int size : {1, 2, 15, 16, 17, 63, 100, 959, 1151, 5000, 70000}) {
        AudioEncoder encoder(configFor(GetParam()));
        for (int i = 0; i < 3; ++i) {
            static_cast<void>(encoder.sendFrame(tone(size, i * size)));
            static_cast<void>(receiveAll(encoder));
        }
        EXPECT_TRUE(encoder.drain());
    }
    av_log_set_level(AV_LOG_INFO);
}

INSTANTIATE_TEST_SUITE_P(AudioEncoder, AudioEncoderWrongFrames,
                         testing::Values("pcm_s16le", "flac", "aac", "ac3", "libmp3lame", "libopus",
                                         "libvorbis", "mp2", "alac", "adpcm_ima_wav"),
                         [](const auto& row) { return std::string(row.param); });

TEST_F(AudioEncoderFrames, AFrameWithoutALayoutIsNoneOfTheEncoders) {
    AudioEncoder encoder(configFor("pcm_s16le"));
    AudioBuffer buffer;
    buffer.setSampleRate(kRate);
    EXPECT_EQ(encoder.sendFrame(AudioFrame(buffer, Timestamp())).error, AvError::InvalidArgument);
}

TEST_F(AudioEncoderFilter, FiltersWhatTheEncoderGets) {
    objstream::object config = configFor("pcm_s16le");
    config["filter"] = "pan=stereo|c0=c1|c1=c0";
    AudioEncoder encoder(config);
    ASSERT_TRUE(encoder.sendFrame(tone(100, 10, AV_SAMPLE_FMT_FLTP)).ok);
    const std::vector<Packet> packets = receiveAll(encoder);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].pts, 10);
    const auto* samples = reinterpret_cast<const std::int16_t*>(packets[0].data);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(samples[2 * i], toneAt(1, 10 + i));
        ASSERT_EQ(samples[2 * i + 1], toneAt(0, 10 + i));
    }
}

TEST_F(AudioEncoderFilter, AFilterThatKeepsTheFrameIsASuccess) {
    LogCapture log(5);
    objstream::object config = configFor("pcm_s16le");
    config["filter"] = "asetnsamples=n=150";
    AudioEncoder encoder(config);
    AudioFrame frame = tone(100);
    frame.setFlags(Frame::NoSignal);
    ASSERT_TRUE(encoder.sendFrame(frame).ok);
    EXPECT_THAT(log.texts(),
                testing::Contains("audio-encoder-pcm_s16le: No audio audioFrame available from filter"));
    EXPECT_THAT(receiveAll(encoder), IsEmpty());
    EXPECT_TRUE(encoder.wasNoSignalAt({{1, kRate}, 0}));
    ASSERT_TRUE(encoder.sendFrame(tone(100, 100)).ok);
    const std::vector<Packet> packets = receiveAll(encoder);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].size, 150 * 4);
}

TEST_F(AudioEncoderFilter, AFilterThatEndsEndsTheStream) {
    LogCapture log(5);
    objstream::object config = configFor("pcm_s16le");
    config["filter"] = "atrim=end_sample=100";
    AudioEncoder encoder(config);
    ASSERT_TRUE(encoder.sendFrame(tone(100)).ok);
    EXPECT_EQ(receiveAll(encoder).size(), 1U);
    EXPECT_EQ(encoder.sendFrame(tone(100, 100)).error, AvError::Eof);
    EXPECT_THAT(log.texts(), testing::Contains("audio-encoder-pcm_s16le: Audio filter at EOF: " +
                                               AvError(AvError::Eof).toString()));
    const auto packet = encoder.receivePacket();
    ASSERT_FALSE(packet);
    EXPECT_EQ(packet.error(), AvError::Eof);
}

TEST_F(AudioEncoderFilter, AFrameThatTheFilterRefusesIsAFailure) {
    LogCapture log;
    objstream::object config = configFor("pcm_s16le");
    config["filter"] = "anull";
    AudioEncoder encoder(config);
    const AudioFrame frame = tone(100, 0, AV_SAMPLE_FMT_S16, kMono);
    const AvRes res = encoder.sendFrame(frame);
    EXPECT_EQ(res.error, AvError::InvalidArgument);
    EXPECT_THAT(log.texts(), ElementsAre("audio-encoder-pcm_s16le: Couldn't filter audio audioFrame: " +
                                         frame.debugDescription() + ". Error: " + res.error.toString()));
    EXPECT_TRUE(encoder.sendFrame(tone(100)).ok);
}

TEST_F(AudioEncoderFilter, AFilterCanCollectSamplesForAnEncoderWithAFrameSize) {
    objstream::object config = configFor("aac");
    config["filter"] = "asetnsamples=n=1024";
    AudioEncoder encoder(config);
    std::size_t packets = 0;
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(encoder.sendFrame(tone(512, 512 * i)).ok);
        packets += receiveAll(encoder).size();
    }
    EXPECT_GE(packets, 8U);
}

}  // namespace
}  // namespace vidorra
