#include <gtest/gtest.h>

#include "demux/clips.h"
#include "demux/decoders.h"
#include "ffmpeg/channels.h"
#include "support/media.h"

// Which channels the sound of an opened source has.
namespace vidorra {
namespace {

// Uncompressed sound whose header gives the number of channels but not their positions.
std::string soundWithoutPlaces(int channels) {
    std::string header("RIFF\xff\xff\xff\x7fWAVEfmt \x10\0\0\0\1\0", 22);
    const int align = channels * 2;
    const int rate = 8000;
    const auto put = [&header](int value, int bytes) {
        for (int i = 0; i < bytes; ++i) {
            header += static_cast<char>(value >> (8 * i));
        }
    };
    put(channels, 2);
    put(rate, 4);
    put(rate * align, 4);
    put(align, 2);
    put(16, 2);
    header += "data";
    put(align * 100, 4);
    header += std::string(static_cast<std::size_t>(align) * 100, '\0');
    return test::temporaryFile("channels" + std::to_string(channels) + ".wav", header).string();
}

struct Row {
    int channels;
    std::uint64_t mask;
};

class SourceChannels : public testing::TestWithParam<Row> {};

TEST_P(SourceChannels, AreTheUsualOnesWhereTheFileDoesNotTell) {
    FormatContext source;
    source.setUrl(soundWithoutPlaces(GetParam().channels));
    source.open("wav", false, std::chrono::seconds(1));
    ASSERT_EQ(source.tracksNumber(), 1U);
    const AVCodecParameters& parameters = *source.trackAtIndex(0)->codecpar;
    EXPECT_EQ(ffmpeg_ext::channelCount(parameters), GetParam().channels);
    EXPECT_EQ(ffmpeg_ext::channelMask(parameters), GetParam().mask);
}

constexpr std::uint64_t kLeft = 1;
constexpr std::uint64_t kRight = 2;
constexpr std::uint64_t kCenter = 4;
constexpr std::uint64_t kLowFrequency = 8;
constexpr std::uint64_t kBackLeft = 0x10;
constexpr std::uint64_t kBackRight = 0x20;
constexpr std::uint64_t kBackCenter = 0x100;
constexpr std::uint64_t kSideLeft = 0x200;
constexpr std::uint64_t kSideRight = 0x400;

INSTANTIATE_TEST_SUITE_P(
    , SourceChannels,
    testing::Values(Row{1, kCenter}, Row{2, kLeft | kRight}, Row{3, kLeft | kRight | kLowFrequency},
                    Row{4, kLeft | kRight | kCenter | kBackCenter},
                    Row{5, kLeft | kRight | kCenter | kBackLeft | kBackRight},
                    Row{6, kLeft | kRight | kCenter | kLowFrequency | kBackLeft | kBackRight},
                    Row{7, kLeft | kRight | kCenter | kLowFrequency | kBackCenter | kSideLeft | kSideRight},
                    Row{8, kLeft | kRight | kCenter | kLowFrequency | kBackLeft | kBackRight | kSideLeft |
                               kSideRight},
                    // This many channels have no usual positions.
                    Row{9, 0}),
    [](const auto& row) { return "Of" + std::to_string(row.param.channels); });

TEST(SourceChannelsTold, StayAsTheFileTells) {
    // Four channels whose usual places would be others.
    FormatContext source =
        test::opened(test::mediaFile("quad.wav", {"-f", "lavfi", "-i", "anullsrc=cl=quad:r=8000:d=0.1",
                                                  "-c:a", "pcm_s16le"})
                         .string());
    EXPECT_EQ(ffmpeg_ext::channelMask(*source.trackAtIndex(0)->codecpar),
              kLeft | kRight | kBackLeft | kBackRight);
}

TEST(SourceChannelsTold, StreamsOfVideoHaveNone) {
    const FormatContext source = test::opened(test::fileOf("PngSequence").string());
    EXPECT_EQ(ffmpeg_ext::channelCount(*source.trackAtIndex(0)->codecpar), 0);
    EXPECT_EQ(ffmpeg_ext::channelMask(*source.trackAtIndex(0)->codecpar), 0U);
}

}  // namespace
}  // namespace vidorra
