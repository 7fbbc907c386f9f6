// Files of many containers and codecs: compares FormatContext with direct calls of FFmpeg's libraries and
// with FFmpeg's programs.

#include <gmock/gmock.h>

#include <algorithm>

#include "demux/plain_decoding.h"
#include "demux/sounds.h"
#include "support/log_capture.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidorra {
namespace {

using test::decodeByPrograms;
using test::decodePlainly;
using test::fileOf;
using test::Framing;
using test::LogCapture;
using test::opened;
using test::PlainFrame;
using test::PlainPacket;
using test::PlainSound;
using test::ProgramSound;
using test::Repaired;
using test::repaired;
using test::Sound;
using testing::IsEmpty;

struct Decoded {
    std::vector<AudioFrame> frames;
    std::vector<std::size_t> packetOfFrame;
    std::vector<PlainPacket> packets;
    std::vector<std::string> warnings;
};

Decoded decode(const Sound& sound) {
    const LogCapture log;
    FormatContext source = opened(fileOf(sound));
    Decoded result;
    for (Packet packet = source.readPacket(); !source.isEOF(); packet = source.readPacket()) {
        if (packet.stream_index != static_cast<int>(sound.stream)) {
            continue;
        }
        result.packets.push_back({packet.pts, packet.duration});
        AudioFrame frame = source.decodeAudioPacket(packet);
        if (!frame.empty()) {
            result.packetOfFrame.push_back(result.packets.size() - 1);
            result.frames.push_back(std::move(frame));
        }
    }
    result.warnings = log.texts();
    return result;
}

std::vector<std::uint8_t> bytesOf(const AudioFrame& frame, const Sound& sound) {
    const AudioBuffer& buffer = frame.audioBuffer();
    return test::interleaved(buffer.getPointersToPlanes(),
                             static_cast<std::int64_t>(buffer.numberOfSamples()), sound.channels,
                             av_get_bytes_per_sample(sound.format));
}

class SoundFiles : public testing::TestWithParam<Sound> {};

TEST_P(SoundFiles, GiveTheFramesThatPlainCallsGive) {
    const Sound& sound = GetParam();
    const Decoded decoded = decode(sound);
    const PlainSound plain = decodePlainly(sound);
    ASSERT_EQ(decoded.packets.size(), plain.packets.size());
    ASSERT_EQ(decoded.frames.size(), plain.frames.size());
    EXPECT_GE(decoded.frames.size(), 2U);
    EXPECT_EQ(decoded.warnings.size(), static_cast<std::size_t>(plain.refused));
    for (std::size_t i = 0; i < plain.frames.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "frame " << i);
        const PlainFrame& expected = plain.frames[i];
        const AudioFrame& frame = decoded.frames[i];
        ASSERT_EQ(decoded.packetOfFrame[i], expected.packet);
        const PlainPacket& packet = plain.packets[expected.packet];
        ASSERT_EQ(decoded.packets[expected.packet].time, packet.time);
        ASSERT_EQ(decoded.packets[expected.packet].duration, packet.duration);
        if (sound.framing == Framing::OneForOne) {
            ASSERT_EQ(expected.duration, packet.duration);
        }
        const Repaired times = repaired(expected.samples, expected.time, expected.duration, sound.rate);
        ASSERT_EQ(frame.audioBuffer().numberOfSamples(), static_cast<unsigned long>(times.samples));
        ASSERT_EQ(frame.timestamp().value, times.time);
        ASSERT_EQ(frame.timestamp().timebase, Timebase(1, 1000000));
        ASSERT_FALSE(frame.timestamp().isNull);
        ASSERT_EQ(frame.flags(), Frame::NoFlags);
        std::vector<std::uint8_t> bytes = expected.bytes;
        bytes.resize(bytes.size() / static_cast<std::size_t>(expected.samples) *
                     static_cast<std::size_t>(times.samples));
        ASSERT_TRUE(bytesOf(frame, sound) == bytes) << "the samples differ";
    }
}

TEST_P(SoundFiles, GiveTheParametersOfTheirSamples) {
    const Sound& sound = GetParam();
    FormatContext source = opened(fileOf(sound));
    const auto& decoder = source.getCodecContext(sound.stream);
    ASSERT_NE(decoder, nullptr);
    EXPECT_EQ(decoder->logPrefix(), sound.decoder);
    for (const AudioFrame& frame : decode(sound).frames) {
        ASSERT_EQ(frame.audioBuffer().debugDescription(),
                  testing::PrintToString(frame.audioBuffer().numberOfSamples()) + " samples " +
                      std::to_string(sound.rate) + "Hz " + sound.decodedLayout + " " +
                      av_get_sample_fmt_name(sound.format));
        ASSERT_EQ(frame.audioBuffer().numberOfChannels(), sound.channels);
    }
}

INSTANTIATE_TEST_SUITE_P(All, SoundFiles, testing::ValuesIn(test::sounds()),
                         [](const auto& row) { return row.param.name; });

std::vector<Sound> soundsOfWholePackets() {
    std::vector<Sound> result;
    std::copy_if(test::sounds().begin(), test::sounds().end(), std::back_inserter(result),
                 [](const Sound& sound) { return sound.framing == Framing::OneForOne; });
    return result;
}

class SoundFilesOfWholePackets : public testing::TestWithParam<Sound> {};

TEST_P(SoundFilesOfWholePackets, GiveTheFramesThatTheProgramsGive) {
    const Sound& sound = GetParam();
    const Decoded decoded = decode(sound);
    const ProgramSound program = decodeByPrograms(sound);
    ASSERT_EQ(decoded.packets.size(), program.packets.size());
    // The program drains its decoder at the end.
    ASSERT_EQ(decoded.frames.size() + static_cast<std::size_t>(decodePlainly(sound).drained),
              program.frames.size());
    EXPECT_THAT(decoded.warnings, IsEmpty());
    const std::size_t sampleBytes =
        static_cast<std::size_t>(av_get_bytes_per_sample(sound.format) * sound.channels);
    for (std::size_t i = 0; i < decoded.frames.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "frame " << i);
        const PlainPacket& packet = program.packets[decoded.packetOfFrame[i]];
        std::vector<std::uint8_t> bytes = program.frames[i];
        const auto samples = static_cast<std::int64_t>(bytes.size() / sampleBytes);
        const Repaired times = repaired(samples, packet.time, packet.duration, sound.rate);
        ASSERT_EQ(decoded.frames[i].timestamp().value, times.time);
        ASSERT_EQ(decoded.frames[i].audioBuffer().numberOfSamples(),
                  static_cast<unsigned long>(times.samples));
        bytes.resize(static_cast<std::size_t>(times.samples) * sampleBytes);
        ASSERT_TRUE(bytesOf(decoded.frames[i], sound) == bytes) << "the samples differ";
    }
}

INSTANTIATE_TEST_SUITE_P(All, SoundFilesOfWholePackets, testing::ValuesIn(soundsOfWholePackets()),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace vidorra
