// Audio of many containers and codecs: compares the reader with FFmpeg's programs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include <vidorra/vidorra.h>

#include "demux/plain_decoding.h"
#include "demux/sounds.h"
#include "support/log_capture.h"

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace vidorra::test {
namespace {

using Mode = MediaFileReader::PlaybackMode;

std::vector<AudioFrame> audioOf(const std::string& path, Mode mode, std::size_t limit) {
    MediaFileReader reader(path, mode, nullptr);
    reader.open();
    std::vector<AudioFrame> frames;
    while (frames.size() < limit) {
        auto frame = reader.read();
        if (frame.index() == 0) {
            break;
        }
        if (auto* audio = std::get_if<AudioFrame>(&frame)) {
            frames.push_back(std::move(*audio));
        }
    }
    return frames;
}

// One frame for each packet, as the reader expects.
std::vector<Sound> wholePackets() {
    std::vector<Sound> result;
    for (const Sound& sound : sounds()) {
        if (sound.framing == Framing::OneForOne) {
            result.push_back(sound);
        }
    }
    return result;
}

class ReadSounds : public testing::TestWithParam<Sound> {};

TEST_P(ReadSounds, AreTheSamplesAndTimesThatTheProgramsGive) {
    const Sound& sound = GetParam();
    const LogCapture log;
    const std::vector<AudioFrame> frames = audioOf(fileOf(sound), Mode::Once, SIZE_MAX);
    EXPECT_THAT(log.texts(), testing::IsEmpty());

    const ProgramSound program = decodeByPrograms(sound);
    const PlainSound plain = decodePlainly(sound);
    ASSERT_GE(frames.size(), 2U);
    // The program drains its decoder at the end, the reader does not.
    ASSERT_EQ(frames.size() + static_cast<std::size_t>(plain.drained), program.frames.size());
    const auto sampleBytes = static_cast<std::size_t>(av_get_bytes_per_sample(sound.format) * sound.channels);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "frame " << i);
        const AudioBuffer& buffer = frames[i].audioBuffer();
        const PlainPacket& packet = program.packets[plain.frames[i].packet];
        std::vector<std::uint8_t> bytes = program.frames[i];
        const Repaired expected = repaired(static_cast<std::int64_t>(bytes.size() / sampleBytes), packet.time,
                                           packet.duration, sound.rate);
        ASSERT_EQ(frames[i].timestamp().value, expected.time);
        ASSERT_FALSE(frames[i].timestamp().isNull);
        ASSERT_EQ(buffer.numberOfSamples(), static_cast<unsigned long>(expected.samples));
        ASSERT_EQ(buffer.sampleRate(), sound.rate);
        ASSERT_EQ(buffer.numberOfChannels(), sound.channels);
        ASSERT_EQ(buffer.sampleFormat(), sound.format);
        bytes.resize(static_cast<std::size_t>(expected.samples) * sampleBytes);
        ASSERT_TRUE(interleaved(buffer.getPointersToPlanes(), expected.samples, sound.channels,
                                av_get_bytes_per_sample(sound.format)) == bytes)
            << "the samples differ";
    }
}

INSTANTIATE_TEST_SUITE_P(All, ReadSounds, testing::ValuesIn(wholePackets()),
                         [](const auto& row) { return row.param.name; });

// All but Opus: see docs/LIMITS.md.
std::vector<Sound> soundsForLoops() {
    std::vector<Sound> result;
    for (const Sound& sound : wholePackets()) {
        if (std::string(sound.decoder) != "opus") {
            result.push_back(sound);
        }
    }
    return result;
}

class LoopedSounds : public testing::TestWithParam<Sound> {};

TEST_P(LoopedSounds, HaveTimesThatRise) {
    const Sound& sound = GetParam();
    const std::size_t once = audioOf(fileOf(sound), Mode::Once, SIZE_MAX).size();
    const std::vector<AudioFrame> frames = audioOf(fileOf(sound), Mode::Loop, 3 * once);
    ASSERT_EQ(frames.size(), 3 * once);
    for (std::size_t i = 1; i < frames.size(); ++i) {
        ASSERT_GT(frames[i].timestamp().value, frames[i - 1].timestamp().value)
            << "frame " << i << ", " << once << " in a pass";
    }
}

INSTANTIATE_TEST_SUITE_P(All, LoopedSounds, testing::ValuesIn(soundsForLoops()),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace vidorra::test
