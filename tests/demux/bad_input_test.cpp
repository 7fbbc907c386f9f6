#include <gmock/gmock.h>

#include <cstring>
#include <filesystem>
#include <random>

#include "demux/clips.h"
#include "demux/decoders.h"
#include "demux/quiet_ffmpeg.h"
#include "support/ffprobe.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "support/throw_text.h"

// Sources that are missing, damaged or of an unusual kind.
namespace vidorra {
namespace {

using test::fileContent;
using test::fileOf;
using test::LogCapture;
using test::opened;
using test::temporaryFile;
using testing::ElementsAre;
using testing::IsEmpty;
using Line = LogCapture::Line;

constexpr std::chrono::seconds kSecond(1);

std::string noise(std::size_t size) {
    std::mt19937 random(99);
    std::string result;
    for (std::size_t i = 0; i < size; ++i) {
        result += static_cast<char>(random());
    }
    return result;
}

std::string firstPart(const std::string& clipName, double part) {
    const std::string content = fileContent(fileOf(clipName));
    return content.substr(0, static_cast<std::size_t>(static_cast<double>(content.size()) * part));
}

struct Unopenable {
    const char* name;
    std::string (*url)();
    const char* error;
};

class UnopenableSource : public testing::TestWithParam<Unopenable> {
    const test::QuietFfmpeg mQuiet;
};

TEST_P(UnopenableSource, ThrowsWithTheUrlAndFfmpegsText) {
    const std::string url = GetParam().url();
    FormatContext source;
    source.setUrl(url);
    EXPECT_THROW_TEXT(std::runtime_error, "can't open input file " + url + " (" + GetParam().error + ")",
                      source.open("", true, kSecond));
}

TEST_P(UnopenableSource, LeavesTheObjectClosedWithoutALine) {
    FormatContext source;
    source.setUrl(GetParam().url());
    const LogCapture log(6);
    EXPECT_THROW(source.open("", true, kSecond), std::runtime_error);
    EXPECT_FALSE(source.isOpened());
    EXPECT_EQ(source.tracksNumber(), 0U);
    source.close();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(UnopenableSource, AnotherOneCanBeOpenedAfterwards) {
    FormatContext source;
    source.setUrl(GetParam().url());
    EXPECT_THROW(source.open("", true, kSecond), std::runtime_error);
    source.setUrl(fileOf("PngSequence").string());
    source.open("", true, kSecond);
    EXPECT_FALSE(source.decodeVideoPacket(source.readPacket()).empty());
}

constexpr const char* kInvalidData = "#-1094995529: Invalid data found when processing input";

INSTANTIATE_TEST_SUITE_P(
    , UnopenableSource,
    testing::Values(Unopenable{.name = "Missing",
                               .url = [] { return std::string("/no/such/file.mp4"); },
                               .error = "#-2: No such file or directory"},
                    Unopenable{.name = "WithoutAUrl",
                               .url = [] { return std::string(); },
                               .error = "#-2: No such file or directory"},
                    Unopenable{.name = "Empty",
                               .url = [] { return temporaryFile("empty.mkv", "").string(); },
                               .error = kInvalidData},
                    Unopenable{.name = "Folder",
                               .url = [] { return test::temporaryFolder().string(); },
                               .error = "#-21: Is a directory"},
                    Unopenable{.name = "Garbage",
                               .url = [] { return temporaryFile("garbage.bin", noise(50000)).string(); },
                               .error = kInvalidData},
                    Unopenable{.name = "UnknownProtocol",
                               .url = [] { return std::string("no-such-protocol://host/file"); },
                               .error = "#-1330794744: Protocol not found"},
                    // The index stands at the end of the file.
                    Unopenable{
                        .name = "Mp4WithoutItsIndex",
                        .url = [] { return temporaryFile("cut.mp4", firstPart("H264InMp4", 0.5)).string(); },
                        .error = kInvalidData}),
    [](const auto& row) { return row.param.name; });

TEST(ForcedFormat, AFileOfAnotherFormatCannotBeOpened) {
    const test::QuietFfmpeg quiet;
    const std::string url = fileOf("H264InMp4").string();
    FormatContext source;
    source.setUrl(url);
    EXPECT_THROW_TEXT(std::runtime_error, "can't open input file " + url + " (" + kInvalidData + ")",
                      source.open("matroska", true, kSecond));
    EXPECT_FALSE(source.isOpened());
}

struct Cut {
    const char* clip;
    const char* extension;
};

void PrintTo(const Cut& cut, std::ostream* stream) {
    *stream << cut.clip;
}

class CutFile : public testing::TestWithParam<Cut> {
    const test::QuietFfmpeg mQuiet;

protected:
    std::filesystem::path file =
        temporaryFile(std::string("cut.") + GetParam().extension, firstPart(GetParam().clip, 0.55));
};

TEST_P(CutFile, GivesThePacketsThatAreThere) {
    const std::vector<test::ProbedPacket> expected = test::probe(file).packets;
    const std::vector<test::ProbedPacket> whole = test::probe(fileOf(GetParam().clip)).packets;
    ASSERT_GT(expected.size(), whole.size() / 4);
    ASSERT_LT(expected.size(), whole.size());
    FormatContext source = opened(file.string());
    const std::vector<Packet> packets = test::readAllPackets(source);
    ASSERT_EQ(packets.size(), expected.size());
    for (std::size_t i = 0; i < packets.size(); ++i) {
        EXPECT_EQ(packets[i].size, expected[i].size) << i;
    }
    EXPECT_TRUE(source.isEOF());
}

TEST_P(CutFile, GivesThePicturesThatAreThere) {
    FormatContext source = opened(file.string());
    const int video = test::firstStream(source, AVMEDIA_TYPE_VIDEO);
    const LogCapture log(2);
    std::size_t packets = 0;
    std::size_t frames = 0;
    for (const Packet& packet : test::readAllPackets(source)) {
        if (packet.stream_index == video) {
            ++packets;
            frames += source.decodeVideoPacket(packet).empty() ? 0U : 1U;
        }
    }
    const int delay = source.getCodecContext(static_cast<unsigned>(video))->codecContext()->has_b_frames;
    // Only the last packet may be damaged.
    EXPECT_LE(log.lines().size(), 1U);
    EXPECT_GE(frames + static_cast<std::size_t>(delay) + 1, packets);
    EXPECT_GT(frames, 5U);
}

INSTANTIATE_TEST_SUITE_P(, CutFile,
                         testing::Values(Cut{"H264InTransportStream", "ts"}, Cut{"H264InMatroska", "mkv"},
                                         Cut{"Mpeg4InAvi", "avi"}, Cut{"H264InFlash", "flv"},
                                         Cut{"Vp9InWebm", "webm"}, Cut{"Mpeg2InProgramStream", "mpg"}),
                         [](const auto& row) { return std::string(row.param.clip); });

// Every part of a file may be damaged: the decoder must not throw, and must not read outside a packet.
class DamagedFile : public testing::TestWithParam<Cut> {
    const test::QuietFfmpeg mQuiet;
};

TEST_P(DamagedFile, IsReadToItsEndWithoutAnException) {
    std::string content = fileContent(fileOf(GetParam().clip));
    std::mt19937 random(5);
    // The header stays intact, so that there is something to read.
    for (std::size_t i = 3000; i < content.size(); i += 1 + random() % 400) {
        content[i] = static_cast<char>(random());
    }
    const LogCapture log(2);
    FormatContext source =
        opened(temporaryFile(std::string("damaged.") + GetParam().extension, content).string());
    std::size_t packets = 0;
    ASSERT_NO_THROW({
        for (const Packet& packet : test::readAllPackets(source)) {
            ++packets;
            if (source.trackAtIndex(static_cast<unsigned>(packet.stream_index))->codecpar->codec_type ==
                AVMEDIA_TYPE_VIDEO) {
                (void)source.decodeVideoPacket(packet);
            }
        }
    });
    EXPECT_GT(packets, 0U);
}

INSTANTIATE_TEST_SUITE_P(, DamagedFile,
                         testing::Values(Cut{"H264InTransportStream", "ts"}, Cut{"H264InFlash", "flv"},
                                         Cut{"Mpeg4InAvi", "avi"}, Cut{"MotionJpegInAvi", "avi"},
                                         Cut{"Mpeg2InProgramStream", "mpg"}),
                         [](const auto& row) { return std::string(row.param.clip); });

TEST(SourceWithoutVideo, IsReadToItsEnd) {
    const auto file = test::mediaFile("sound.wav", {"-f", "lavfi", "-i", "sine=d=0.5", "-c:a", "pcm_s16le"});
    FormatContext source = opened(file.string());
    ASSERT_EQ(source.tracksNumber(), 1U);
    const std::vector<Packet> packets = test::readAllPackets(source);
    EXPECT_EQ(packets.size(), test::probe(file).packets.size());
    const LogCapture log(2);
    EXPECT_TRUE(source.decodeVideoPacket(packets.at(0)).empty());
    EXPECT_THAT(log.lines(), ElementsAre(Line{2, "decodeVideoPacket(): " + file.string() +
                                                     ":0 media format \"audio\" is not supported"}));
}

class Cover : public testing::TestWithParam<const char*> {};

TEST_P(Cover, IsOnePacketWithOnePicture) {
    FormatContext source = opened(fileOf(GetParam()).string());
    const int video = test::firstStream(source, AVMEDIA_TYPE_VIDEO);
    ASSERT_GE(video, 0);
    ASSERT_NE(source.trackAtIndex(static_cast<unsigned>(video))->disposition & AV_DISPOSITION_ATTACHED_PIC,
              0);
    int covers = 0;
    for (const Packet& packet : test::readAllPackets(source)) {
        if (packet.stream_index == video) {
            ++covers;
            EXPECT_TRUE(packet.isKeyFrame());
            EXPECT_EQ(source.decodeVideoPacket(packet).picture().frameSize(), (Size{32, 32}));
        }
    }
    EXPECT_EQ(covers, 1);
}

INSTANTIATE_TEST_SUITE_P(, Cover, testing::Values("CoverInMp3", "CoverInMp4"),
                         [](const auto& row) { return std::string(row.param); });

// An MP4 file whose table gives one picture in the middle a size of 0 bytes.
constexpr int kEmptyPicture = 7;

std::filesystem::path fileWithAnEmptyPacket() {
    // With the sound between the pictures no other picture moves.
    std::string content = fileContent(test::mediaFile(
        "mjpeg.mp4", test::joined({test::movingPicture("64x48", 0.6),
                                   {"-f", "lavfi", "-i", "sine=d=0.6", "-c:v", "mjpeg", "-threads", "1",
                                    "-pix_fmt", "yuvj420p", "-c:a", "aac"}})));
    const std::size_t sizes = content.find("stsz");
    if (sizes == std::string::npos) {
        throw std::runtime_error("no table of sizes");
    }
    // After the name: version and flags, common size, count, sizes.
    content.replace(sizes + 16 + 4 * kEmptyPicture, 4, 4, '\0');
    return temporaryFile("empty_packet.mp4", content);
}

TEST(EmptyPacketInAFile, IsNotTheEnd) {
    FormatContext source = opened(fileWithAnEmptyPacket().string());
    int pictures = 0;
    int empty = 0;
    for (const Packet& packet : test::readAllPackets(source)) {
        if (packet.stream_index == 0) {
            empty += packet.size == 0 ? 1 : 0;
            EXPECT_EQ(packet.size == 0, pictures == kEmptyPicture) << pictures;
            EXPECT_EQ(packet.pts, pictures * 40000);
            ++pictures;
        }
    }
    EXPECT_EQ(empty, 1);
    EXPECT_EQ(pictures, 15);
}

TEST(EmptyPacketInAFile, GivesTwoLinesAndNoFrameAndTheNextPicturesAreDecoded) {
    const std::string url = fileWithAnEmptyPacket().string();
    FormatContext source = opened(url);
    (void)source.getCodecContext(0);
    const LogCapture log(6);
    int pictures = 0;
    for (const Packet& packet : test::readAllPackets(source)) {
        if (packet.stream_index == 0) {
            EXPECT_EQ(source.decodeVideoPacket(packet).empty(), pictures == kEmptyPicture) << pictures;
            ++pictures;
        }
    }
    EXPECT_EQ(pictures, 15);
    EXPECT_THAT(log.lines(), ElementsAre(Line{1, "mjpeg DecoderBase::send: could not encode empty Packet."},
                                         Line{2, "Could not send video packet from " + url +
                                                     ":0, error: #-22: Invalid argument"}));
}

TEST(ManySlices, APacketHasMoreStartCodesThanThePaddingCouldTake) {
    for (const char* name : {"H264InFortySlicesInTransportStream", "H264InFortySlicesInAnnexB"}) {
        SCOPED_TRACE(name);
        FormatContext source = opened(fileOf(name).string());
        int keys = 0;
        for (const Packet& packet : test::readAllPackets(source)) {
            int startCodes = 0;
            for (int i = 0; i + 2 < packet.size; ++i) {
                startCodes += std::memcmp(packet.data + i, "\0\0\1", 3) == 0 ? 1 : 0;
            }
            EXPECT_GE(startCodes, 40);
            keys += packet.isKeyFrame() ? 1 : 0;
        }
        // 30 pictures in groups of 12.
        EXPECT_EQ(keys, 3);
    }
}

}  // namespace
}  // namespace vidorra
