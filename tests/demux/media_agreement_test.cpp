#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>

#include "demux/clips.h"
#include "demux/decoders.h"
#include "demux/literal_key_scan.h"
#include "support/ffprobe.h"
#include "support/log_capture.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/mathematics.h>
#include <libavutil/md5.h>
#include <libavutil/pixdesc.h>
}

// The library reads and decodes the same as FFmpeg's programs.
namespace vidorra {
namespace {

using test::Clip;
using test::fileOf;
using test::Keys;
using test::LogCapture;
using test::opened;
using test::ProbedPacket;
using test::ProbedStream;
using testing::ElementsAre;

std::string md5(const std::uint8_t* data, std::size_t size) {
    std::array<std::uint8_t, 16> digest{};
    av_md5_sum(digest.data(), data, static_cast<int>(size));
    std::string text;
    for (std::uint8_t byte : digest) {
        constexpr const char* kDigits = "0123456789abcdef";
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

// The MD5 of the rows without padding, plane after plane.
std::string md5(const Picture& picture) {
    const Size size = picture.frameSize();
    const int bytes = av_image_get_buffer_size(picture.pixelFormat(), size.width, size.height, 1);
    EXPECT_GT(bytes, 0);
    std::vector<std::uint8_t> packed(static_cast<std::size_t>(std::max(bytes, 0)));
    const std::uint8_t* const planes[] = {picture.data()[0], picture.data()[1], picture.data()[2],
                                          picture.data()[3]};
    EXPECT_EQ(av_image_copy_to_buffer(packed.data(), bytes, planes, picture.linesize().data(),
                                      picture.pixelFormat(), size.width, size.height, 1),
              bytes);
    return md5(packed.data(), packed.size());
}

std::int64_t inMicroseconds(std::int64_t ticks, const ProbedStream& stream) {
    return av_rescale_q(ticks, {stream.timebaseNum, stream.timebaseDen}, {1, 1000000});
}

std::optional<std::int64_t> inMicroseconds(std::optional<std::int64_t> ticks, const ProbedStream& stream) {
    return ticks ? inMicroseconds(*ticks, stream) : ticks;
}

// What ffprobe says about a clip; it runs once.
const test::ProbedMedia& probedClip(const Clip& clip) {
    static std::map<std::string, test::ProbedMedia> asked;
    const auto found = asked.find(clip.name);
    return found != asked.end() ? found->second
                                : asked.emplace(clip.name, test::probe(fileOf(clip))).first->second;
}

// The clip through the library and through the programs.
class MediaAgreement : public testing::TestWithParam<Clip> {
protected:
    FormatContext source = opened(fileOf(GetParam()).string());
    unsigned video = static_cast<unsigned>(test::firstStream(source, AVMEDIA_TYPE_VIDEO));
    const std::vector<ProbedPacket>& probed = probedClip(GetParam()).packets;
    const std::vector<ProbedStream>& streams = probedClip(GetParam()).streams;

    void SetUp() override {
        ASSERT_EQ(source.tracksNumber(), streams.size());
        ASSERT_LT(video, streams.size());
        ASSERT_EQ(streams[video].codec, GetParam().codec) << "the file is not what the row says";
        ASSERT_FALSE(probed.empty());
    }

    std::vector<VideoFrame> decodeAll() {
        std::vector<VideoFrame> frames;
        for (const Packet& packet : test::readAllPackets(source)) {
            if (packet.stream_index == static_cast<int>(video)) {
                VideoFrame frame = source.decodeVideoPacket(packet);
                if (!frame.empty()) {
                    frames.push_back(std::move(frame));
                }
            }
        }
        return frames;
    }

    // How many frames the decoder holds back for reordering.
    std::size_t delay() {
        return static_cast<std::size_t>(source.getCodecContext(video)->codecContext()->has_b_frames);
    }
};

TEST_P(MediaAgreement, ThePacketsAreTheSame) {
    const std::vector<Packet> packets = test::readAllPackets(source);
    ASSERT_EQ(packets.size(), probed.size());
    for (std::size_t i = 0; i < probed.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(packets[i].stream_index, probed[i].stream);
        EXPECT_EQ(packets[i].size, probed[i].size);
        EXPECT_EQ(md5(packets[i].data, static_cast<std::size_t>(packets[i].size)), probed[i].hash);
    }
}

TEST_P(MediaAgreement, TheTimesOfPacketsAreTheSameInMicroseconds) {
    const std::vector<Packet> packets = test::readAllPackets(source);
    ASSERT_EQ(packets.size(), probed.size());
    bool allKnown = true;
    for (std::size_t i = 0; i < probed.size(); ++i) {
        SCOPED_TRACE(i);
        const ProbedStream& stream = streams.at(static_cast<std::size_t>(probed[i].stream));
        const std::optional<std::int64_t> pts = inMicroseconds(probed[i].pts, stream);
        const std::optional<std::int64_t> dts = inMicroseconds(probed[i].dts, stream);
        // A missing one gets the value of the other.
        EXPECT_EQ(packets[i].pts, pts.value_or(dts.value_or(AV_NOPTS_VALUE)));
        EXPECT_EQ(packets[i].dts, dts.value_or(pts.value_or(AV_NOPTS_VALUE)));
        EXPECT_EQ(packets[i].duration, inMicroseconds(probed[i].duration, stream));
        allKnown = allKnown && (pts || stream.type != "video");
    }
    EXPECT_EQ(allKnown, GetParam().allTimesKnown) << "the row is wrong";
}

TEST_P(MediaAgreement, TheKeyFlagsOfVideoGoByTheContentAndThoseOfSoundAreTheDemuxers) {
    const std::vector<Packet> packets = test::readAllPackets(source);
    ASSERT_EQ(packets.size(), probed.size());
    int keys = 0;
    int others = 0;
    for (std::size_t i = 0; i < probed.size(); ++i) {
        SCOPED_TRACE(i);
        const Packet& packet = packets[i];
        const ProbedStream& stream = streams.at(static_cast<std::size_t>(packet.stream_index));
        if (stream.type != "video") {
            EXPECT_EQ(packet.isKeyFrame(), probed[i].key);
            continue;
        }
        const bool expected = stream.codec != "h264" ||
                              test::literalKeyScan(packet.data, static_cast<std::size_t>(packet.size));
        EXPECT_EQ(packet.isKeyFrame(), expected);
        ++(expected ? keys : others);
    }
    EXPECT_EQ(keys > 0, GetParam().keys != Keys::None);
    EXPECT_EQ(others > 0, GetParam().keys != Keys::All);
}

TEST_P(MediaAgreement, ThePicturesAreTheSameAndInTheSameOrder) {
    const std::vector<std::string> expected = test::frameHashes(fileOf(GetParam()));
    ASSERT_FALSE(expected.empty());
    const std::vector<VideoFrame> frames = decodeAll();
    const std::size_t keptBack = delay();
    // Frames stay valid without their decoder.
    source.close();
    ASSERT_LE(frames.size(), expected.size());
    EXPECT_GE(frames.size() + keptBack, expected.size());
    EXPECT_GT(frames.size(), 0U);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(md5(frames[i].picture()), expected[i]);
        EXPECT_STREQ(av_get_pix_fmt_name(frames[i].picture().pixelFormat()), GetParam().pixelFormat);
    }
}

TEST_P(MediaAgreement, TheTimesOfPicturesAreTheSameInMicroseconds) {
    const std::vector<std::optional<std::int64_t>> expected = test::probeFrameTimes(fileOf(GetParam()));
    const std::vector<VideoFrame> frames = decodeAll();
    ASSERT_LE(frames.size(), expected.size());
    EXPECT_GT(frames.size(), 0U);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(frames[i].timestamp().timebase, (Timebase{1, 1000000}));
        EXPECT_FALSE(frames[i].timestamp().isNull);
        EXPECT_EQ(frames[i].flags(), Frame::NoFlags);
        // The decoder guesses missing presentation times from other times.
        if (GetParam().allTimesKnown) {
            EXPECT_EQ(frames[i].timestamp().value, inMicroseconds(expected[i], streams[video]));
        } else if (i > 0 && frames[i].timestamp().value != AV_NOPTS_VALUE) {
            EXPECT_GT(frames[i].timestamp().value, frames[i - 1].timestamp().value);
        }
    }
}

TEST_P(MediaAgreement, NothingIsLoggedButTheLifeOfTheSourceAndOfItsDecoder) {
    const std::string url = fileOf(GetParam()).string();
    const LogCapture log(6);
    {
        FormatContext again = opened(url);
        std::swap(source, again);
        again.close();
    }
    const std::vector<std::string> opening = log.texts();
    (void)decodeAll();
    source.close();
    const std::vector<std::string> all = log.texts();
    EXPECT_THAT(opening, ElementsAre(url + " opened, time origin 0", url + " closed, 0 packets read"));
    const std::string name = GetParam().codec;
    EXPECT_THAT(all, ElementsAre(opening[0], opening[1], name + " opening codec: \"" + name + "\"",
                                 name + " codec \"" + name + "\" opened",
                                 url + " closed, " + std::to_string(probed.size()) + " packets read"));
}

INSTANTIATE_TEST_SUITE_P(, MediaAgreement, testing::ValuesIn(test::clips()),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace vidorra
