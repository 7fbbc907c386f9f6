// How one source takes over the decoders of another.

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>

#include "demux/sounds.h"
#include "ffmpeg/channels.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "vidorra/demux/audio_decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

namespace vidorra {
namespace {

using test::LogCapture;
using test::opened;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Line = LogCapture::Line;

// Two tracks: a picture whose first packet is its only key packet, and sound.
std::filesystem::path clip() {
    return test::mediaFile(
        "moving.mkv",
        test::joined({test::signal(48000, "stereo", 2, 0.8),
                      {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=0.8", "-map", "1:v", "-map", "0:a"},
                      {"-c:v", "mpeg4", "-q:v", "2", "-g", "1000", "-bf", "0", "-sc_threshold", "1000000000"},
                      {"-c:a", "aac"}}));
}

std::filesystem::path clipWithThreeTracks() {
    return test::mediaFile(
        "three.mkv",
        test::joined({test::signal(48000, "stereo", 2, 0.8),
                      {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=0.8", "-map", "1:v", "-map", "0:a"},
                      {"-map", "0:a", "-c:v", "mpeg4", "-q:v", "2", "-g", "1000", "-bf", "0"},
                      {"-c:a", "aac"}}));
}

// Like clip(), with a comment and another number of audio channels.
std::filesystem::path clipWithMono() {
    return test::mediaFile(
        "moving.mkv",
        test::joined({test::signal(48000, "mono", 1, 0.8),
                      {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=0.8", "-map", "1:v", "-map", "0:a"},
                      {"-c:v", "mpeg4", "-q:v", "2", "-g", "1000", "-bf", "0", "-sc_threshold", "1000000000"},
                      {"-c:a", "aac"}}));
}

std::string reused(int stream, const std::string& from, const std::string& in) {
    return "Reused decoder for stream " + std::to_string(stream) + " from " + from + " in " + in +
           " decoding";
}

std::string notReused(int stream, const std::string& from, const std::string& in) {
    return "Could not reuse decoder for stream " + std::to_string(stream) + " from " + from + " in " + in +
           " decoding, codec parameters differ";
}

AVCodecParameters& parametersOf(FormatContext& source, unsigned stream) {
    return *source.trackAtIndex(stream)->codecpar;
}

// Two sources of the same file, the old one with decoders for both tracks.
class MoveDecoders : public testing::Test {
protected:
    MoveDecoders() {
        video = older.getCodecContext(0).get();
        audio = older.getCodecContext(1).get();
    }

    FormatContext older = opened(clip());
    FormatContext newer = opened(clip());
    const DecoderBase* video = nullptr;
    const DecoderBase* audio = nullptr;
};

TEST_F(MoveDecoders, TakesThemOverBetweenEqualFiles) {
    ASSERT_NE(video, nullptr);
    ASSERT_NE(audio, nullptr);
    newer.moveDecodersFromContext(&older);
    EXPECT_EQ(newer.getCodecContext(0).get(), video);
    EXPECT_EQ(newer.getCodecContext(1).get(), audio);
}

TEST_F(MoveDecoders, LeavesNullSlotsBehind) {
    newer.moveDecodersFromContext(&older);
    const LogCapture log(6);
    EXPECT_EQ(older.getCodecContext(0), nullptr);
    EXPECT_EQ(older.getCodecContext(1), nullptr);
    for (const Packet& packet : test::packetsOf(older, 1)) {
        EXPECT_TRUE(older.decodeAudioPacket(packet).empty());
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MoveDecoders, LogsEachOneThatIsTakenOver) {
    const LogCapture log(5);
    newer.moveDecodersFromContext(&older);
    const std::string url = clip().string();
    EXPECT_THAT(log.lines(),
                UnorderedElementsAre(Line{5, reused(0, url, url)}, Line{5, reused(1, url, url)}));
}

TEST_F(MoveDecoders, TakesOverOnlyWhatWasMade) {
    FormatContext source = opened(clip());
    const DecoderBase* onlyAudio = source.getCodecContext(1).get();
    const LogCapture log(5);
    newer.moveDecodersFromContext(&source);
    EXPECT_THAT(log.texts(), ElementsAre(reused(1, clip().string(), clip().string())));
    EXPECT_EQ(newer.getCodecContext(1).get(), onlyAudio);
    // Both still make one for the picture.
    EXPECT_NE(newer.getCodecContext(0), nullptr);
    EXPECT_NE(source.getCodecContext(0), nullptr);
}

TEST_F(MoveDecoders, ReplacesTheDecodersThatWereThere) {
    const DecoderBase* old = newer.getCodecContext(1).get();
    ASSERT_NE(old, nullptr);
    ASSERT_NE(old, audio);
    newer.moveDecodersFromContext(&older);
    EXPECT_EQ(newer.getCodecContext(1).get(), audio);
}

TEST_F(MoveDecoders, KeepsEachWhereItIsWhenTheContentOfTheExtradataDiffers) {
    AVCodecParameters& changed = parametersOf(newer, 1);
    ASSERT_GT(changed.extradata_size, 0);
    changed.extradata[changed.extradata_size - 1] ^= 1;
    const LogCapture log(5);
    newer.moveDecodersFromContext(&older);
    const std::string url = clip().string();
    EXPECT_THAT(log.lines(),
                UnorderedElementsAre(Line{5, reused(0, url, url)}, Line{5, notReused(1, url, url)}));
    EXPECT_EQ(older.getCodecContext(1).get(), audio);
    EXPECT_NE(newer.getCodecContext(1).get(), audio);
}

TEST_F(MoveDecoders, NamesBothSourcesInItsLines) {
    FormatContext mono = opened(clipWithMono());
    const LogCapture log(5);
    mono.moveDecodersFromContext(&older);
    const std::string from = clip().string();
    const std::string in = clipWithMono().string();
    ASSERT_NE(from, in);
    EXPECT_THAT(log.lines(),
                UnorderedElementsAre(Line{5, reused(0, from, in)}, Line{5, notReused(1, from, in)}));
    EXPECT_EQ(mono.getCodecContext(0).get(), video);
    EXPECT_EQ(older.getCodecContext(0), nullptr);
    EXPECT_EQ(older.getCodecContext(1).get(), audio);
}

TEST_F(MoveDecoders, DestroysTheOtherOneWhereBothHadOne) {
    parametersOf(newer, 1).profile += 1;
    const DecoderBase* own = newer.getCodecContext(1).get();
    const LogCapture log(5);
    newer.moveDecodersFromContext(&older);
    EXPECT_THAT(log.texts(), testing::Contains(notReused(1, clip().string(), clip().string())));
    EXPECT_EQ(newer.getCodecContext(1).get(), own);
    EXPECT_EQ(older.getCodecContext(1), nullptr);
}

TEST_F(MoveDecoders, TakesOverANullSlotToo) {
    FormatContext source = opened(clip());
    source.getCodecContext(1).reset();
    const LogCapture log(5);
    newer.moveDecodersFromContext(&source);
    EXPECT_THAT(log.texts(), ElementsAre(reused(1, clip().string(), clip().string())));
    EXPECT_EQ(newer.getCodecContext(1), nullptr);
}

// A decoder that cannot be drained: a log line shows when it is destroyed.
std::unique_ptr<DecoderBase> unopenedDecoder(const AVCodecParameters& parameters) {
    auto decoder = std::make_unique<DecoderBase>();
    (void)decoder->prepareCodec(std::nullopt, parameters);
    return decoder;
}

TEST_F(MoveDecoders, DestroysTheOneThatWasThereBeforeTheLine) {
    FormatContext source = opened(clip());
    (void)source.getCodecContext(1);
    newer.getCodecContext(1) = unopenedDecoder(parametersOf(newer, 1));
    const LogCapture log(5);
    newer.moveDecodersFromContext(&source);
    EXPECT_THAT(log.texts(), ElementsAre("aac Decoder draining is failed: #-22: Invalid argument",
                                         reused(1, clip().string(), clip().string())));
}

TEST_F(MoveDecoders, DestroysWhatTheOtherOneMayNotKeepAfterAllLines) {
    const std::string url = clip().string();
    // Both ways round, since the decoders are unordered.
    for (const int different : {0, 1}) {
        SCOPED_TRACE(different);
        const int same = 1 - different;
        const auto stream = static_cast<unsigned>(different);
        FormatContext source = opened(clip());
        FormatContext target = opened(clip());
        (void)source.getCodecContext(static_cast<unsigned>(same));
        source.getCodecContext(stream) = unopenedDecoder(parametersOf(source, stream));
        (void)target.getCodecContext(stream);
        parametersOf(target, stream).profile += 1;
        const LogCapture log(5);
        target.moveDecodersFromContext(&source);
        std::vector<std::string> lines = log.texts();
        ASSERT_EQ(lines.size(), 3U);
        EXPECT_THAT(lines.back(), testing::EndsWith(" Decoder draining is failed: #-22: Invalid argument"));
        lines.pop_back();
        EXPECT_THAT(lines, UnorderedElementsAre(reused(same, url, url), notReused(different, url, url)));
    }
}

TEST_F(MoveDecoders, DoesNothingBetweenSourcesOfTwoAndThreeTracks) {
    FormatContext three = opened(clipWithThreeTracks());
    ASSERT_EQ(older.tracksNumber(), 2U);
    ASSERT_EQ(three.tracksNumber(), 3U);
    const LogCapture log(6);
    three.moveDecodersFromContext(&older);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(older.getCodecContext(0).get(), video);
    EXPECT_EQ(older.getCodecContext(1).get(), audio);
}

TEST_F(MoveDecoders, DoesNothingFromOrToAClosedSource) {
    FormatContext closed;
    const LogCapture log(6);
    closed.moveDecodersFromContext(&older);
    older.moveDecodersFromContext(&closed);
    closed.moveDecodersFromContext(&closed);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(older.getCodecContext(0).get(), video);
}

TEST_F(MoveDecoders, LeavesASourceAloneThatIsGivenItself) {
    older.moveDecodersFromContext(&older);
    EXPECT_EQ(older.getCodecContext(0).get(), video);
    EXPECT_EQ(older.getCodecContext(1).get(), audio);
}

TEST_F(MoveDecoders, KeepsTheDecodersWhenTheOldSourceIsClosed) {
    newer.moveDecodersFromContext(&older);
    older.close();
    EXPECT_EQ(newer.getCodecContext(0).get(), video);
    int frames = 0;
    for (const Packet& packet : test::packetsOf(newer, 1)) {
        frames += newer.decodeAudioPacket(packet).empty() ? 0 : 1;
    }
    EXPECT_GT(frames, 30);
}

// A field in which two streams differ, and whether they share a decoder nevertheless.
struct Difference {
    const char* name;
    std::function<void(AVCodecParameters&)> change;
    bool shared = false;
};

void expectTaken(unsigned stream, const Difference& difference, bool changeOld) {
    SCOPED_TRACE(testing::Message() << difference.name
                                    << (changeOld ? " in the old one" : " in the new one"));
    FormatContext older = opened(clip());
    FormatContext newer = opened(clip());
    const DecoderBase* decoder = older.getCodecContext(stream).get();
    ASSERT_NE(decoder, nullptr);
    difference.change(parametersOf(changeOld ? older : newer, stream));
    const LogCapture log(5);
    newer.moveDecodersFromContext(&older);
    const std::string url = clip().string();
    const auto number = static_cast<int>(stream);
    EXPECT_THAT(log.texts(),
                ElementsAre(difference.shared ? reused(number, url, url) : notReused(number, url, url)));
    if (difference.shared) {
        EXPECT_EQ(newer.getCodecContext(stream).get(), decoder);
        EXPECT_EQ(older.getCodecContext(stream), nullptr);
    } else {
        EXPECT_EQ(older.getCodecContext(stream).get(), decoder);
    }
}

void growExtradata(AVCodecParameters& parameters) {
    const int size = parameters.extradata_size + 1;
    auto* data =
        static_cast<std::uint8_t*>(av_mallocz(static_cast<std::size_t>(size) + AV_INPUT_BUFFER_PADDING_SIZE));
    std::copy_n(parameters.extradata, parameters.extradata_size, data);
    av_freep(&parameters.extradata);
    parameters.extradata = data;
    parameters.extradata_size = size;
}

std::vector<Difference> commonDifferences() {
    return {
        {"Nothing", [](auto&) {}, true},
        {"BitRate", [](auto& p) { p.bit_rate += 1000; }, true},
        {"CodecTag", [](auto& p) { p.codec_tag += 1; }},
        {"Format", [](auto& p) { p.format += 1; }},
        {"BitsPerCodedSample", [](auto& p) { p.bits_per_coded_sample += 1; }},
        {"BitsPerRawSample", [](auto& p) { p.bits_per_raw_sample += 1; }},
        {"Profile", [](auto& p) { p.profile += 1; }},
        {"Level", [](auto& p) { p.level += 1; }},
        {"LastByteOfExtradata", [](auto& p) { p.extradata[p.extradata_size - 1] ^= 0x80; }},
        {"SizeOfExtradata", growExtradata},
        {"ShorterExtradata", [](auto& p) { --p.extradata_size; }},
        {"NoExtradata",
         [](auto& p) {
             av_freep(&p.extradata);
             p.extradata_size = 0;
         }},
    };
}

std::vector<Difference> videoDifferences() {
    std::vector<Difference> all = {
        {"CodecType", [](auto& p) { p.codec_type = AVMEDIA_TYPE_DATA; }},
        {"CodecId", [](auto& p) { p.codec_id = AV_CODEC_ID_MPEG2VIDEO; }},
        {"Width", [](auto& p) { p.width += 2; }},
        {"Height", [](auto& p) { p.height += 2; }},
        {"AspectNumerator", [](auto& p) { p.sample_aspect_ratio.num += 1; }},
        {"AspectDenominator", [](auto& p) { p.sample_aspect_ratio.den += 1; }},
        {"EqualAspectInOtherNumbers",
         [](auto& p) {
             p.sample_aspect_ratio.num *= 2;
             p.sample_aspect_ratio.den *= 2;
         }},
        {"FieldOrder", [](auto& p) { p.field_order = AV_FIELD_BB; }},
        {"ColorRange", [](auto& p) { p.color_range = AVCOL_RANGE_JPEG; }},
        {"ColorPrimaries", [](auto& p) { p.color_primaries = AVCOL_PRI_FILM; }},
        {"ColorTransfer", [](auto& p) { p.color_trc = AVCOL_TRC_LINEAR; }},
        {"ColorSpace", [](auto& p) { p.color_space = AVCOL_SPC_FCC; }},
        {"ChromaLocation", [](auto& p) { p.chroma_location = AVCHROMA_LOC_BOTTOM; }},
        {"VideoDelay", [](auto& p) { p.video_delay += 1; }},
        // Audio fields are ignored.
        {"SampleRate", [](auto& p) { p.sample_rate += 1; }, true},
        {"BlockAlign", [](auto& p) { p.block_align += 1; }, true},
        {"FrameSize", [](auto& p) { p.frame_size += 1; }, true},
        {"SeekPreroll", [](auto& p) { p.seek_preroll += 1; }, true},
    };
    for (Difference& difference : commonDifferences()) {
        all.push_back(std::move(difference));
    }
    return all;
}

std::vector<Difference> audioDifferences() {
    std::vector<Difference> all = {
        {"CodecId", [](auto& p) { p.codec_id = AV_CODEC_ID_MP3; }},
        {"OtherChannels",
         [](auto& p) { ffmpeg_ext::setChannelMask(p, AV_CH_FRONT_CENTER | AV_CH_LOW_FREQUENCY); }},
        {"FewerChannels", [](auto& p) { ffmpeg_ext::setChannelMask(p, AV_CH_LAYOUT_MONO); }},
        {"SampleRate", [](auto& p) { p.sample_rate += 1; }},
        {"BlockAlign", [](auto& p) { p.block_align += 1; }},
        {"FrameSize", [](auto& p) { p.frame_size += 1; }},
        {"InitialPadding", [](auto& p) { p.initial_padding += 1; }},
        {"TrailingPadding", [](auto& p) { p.trailing_padding += 1; }},
        {"SeekPreroll", [](auto& p) { p.seek_preroll += 1; }},
        // Video fields are ignored.
        {"Width", [](auto& p) { p.width += 2; }, true},
        {"ColorRange", [](auto& p) { p.color_range = AVCOL_RANGE_JPEG; }, true},
        {"VideoDelay", [](auto& p) { p.video_delay += 1; }, true},
    };
    for (Difference& difference : commonDifferences()) {
        all.push_back(std::move(difference));
    }
    return all;
}

TEST(MoveDecodersOfPictures, DependsOnAllThatADecoderDependsOn) {
    for (const Difference& difference : videoDifferences()) {
        expectTaken(0, difference, false);
        expectTaken(0, difference, true);
    }
}

TEST(MoveDecodersOfSound, DependsOnAllThatADecoderDependsOn) {
    for (const Difference& difference : audioDifferences()) {
        expectTaken(1, difference, false);
        expectTaken(1, difference, true);
    }
}

TEST(MoveDecodersOfSound, TellsNoExtradataFromExtradataOfNoSize) {
    FormatContext older = opened(test::fileOf("SixteenBitsInWav"));
    FormatContext newer = opened(test::fileOf("SixteenBitsInWav"));
    const DecoderBase* decoder = older.getCodecContext(0).get();
    AVCodecParameters& changed = parametersOf(newer, 0);
    ASSERT_EQ(changed.extradata_size, 0);
    ASSERT_EQ(changed.extradata, nullptr);
    changed.extradata = static_cast<std::uint8_t*>(av_mallocz(AV_INPUT_BUFFER_PADDING_SIZE));
    newer.moveDecodersFromContext(&older);
    EXPECT_EQ(older.getCodecContext(0).get(), decoder);
    av_freep(&changed.extradata);
    FormatContext third = opened(test::fileOf("SixteenBitsInWav"));
    third.moveDecodersFromContext(&older);
    EXPECT_EQ(third.getCodecContext(0).get(), decoder);
}

TEST(MoveDecodersOfOtherStreams, ComparesNothingOfPicturesAndSound) {
    FormatContext older = opened(clip());
    FormatContext newer = opened(clip());
    for (FormatContext* source : {&older, &newer}) {
        parametersOf(*source, 1).codec_type = AVMEDIA_TYPE_DATA;
    }
    ASSERT_EQ(older.getCodecContext(1), nullptr);
    parametersOf(newer, 1).sample_rate += 1;
    parametersOf(newer, 1).width += 1;
    const LogCapture log(5);
    newer.moveDecodersFromContext(&older);
    EXPECT_THAT(log.texts(), ElementsAre(reused(1, clip().string(), clip().string())));
}

std::vector<std::uint8_t> lumaOf(const VideoFrame& frame) {
    const Picture& picture = frame.picture();
    std::vector<std::uint8_t> bytes;
    for (int y = 0; y < 48; ++y) {
        const std::uint8_t* row = picture.data()[0] + y * picture.linesize()[0];
        bytes.insert(bytes.end(), row, row + 64);
    }
    return bytes;
}

TEST(MoveDecodersOfPictures, LetsThePictureContinueWithoutAKeyPacket) {
    constexpr std::size_t kMoved = 12;
    FormatContext straight = opened(clip());
    std::vector<std::vector<std::uint8_t>> expected;
    const std::vector<Packet> packets = test::packetsOf(straight, 0);
    for (const Packet& packet : packets) {
        const VideoFrame frame = straight.decodeVideoPacket(packet);
        ASSERT_FALSE(frame.empty());
        expected.push_back(lumaOf(frame));
    }
    ASSERT_EQ(packets.size(), 20U);

    FormatContext older = opened(clip());
    FormatContext newer = opened(clip());
    std::vector<std::vector<std::uint8_t>> decoded;
    for (std::size_t i = 0; i < packets.size(); ++i) {
        if (i == kMoved) {
            newer.moveDecodersFromContext(&older);
            older.close();
        }
        const VideoFrame frame = (i < kMoved ? older : newer).decodeVideoPacket(packets[i]);
        ASSERT_FALSE(frame.empty()) << i;
        decoded.push_back(lumaOf(frame));
    }
    EXPECT_EQ(decoded, expected);
    EXPECT_NE(expected[kMoved], expected[kMoved - 1]);

    // A new decoder would not know the previous pictures.
    FormatContext fresh = opened(clip());
    const VideoFrame broken = fresh.decodeVideoPacket(packets[kMoved]);
    EXPECT_TRUE(broken.empty() || lumaOf(broken) != expected[kMoved]);
}

TEST(MoveDecodersOfSound, LetsTheSoundContinueWithoutABreak) {
    const auto sampleBytes = [](const AudioFrame& frame) {
        const std::uint8_t* plane = frame.audioBuffer().getPointersToPlanes().at(1);
        return std::vector<std::uint8_t>(plane, plane + 4 * frame.audioBuffer().numberOfSamples());
    };
    FormatContext straight = opened(clip());
    const std::vector<Packet> packets = test::packetsOf(straight, 1);
    std::vector<std::vector<std::uint8_t>> expected;
    for (const Packet& packet : packets) {
        const AudioFrame frame = straight.decodeAudioPacket(packet);
        expected.push_back(frame.empty() ? std::vector<std::uint8_t>() : sampleBytes(frame));
    }
    FormatContext older = opened(clip());
    FormatContext newer = opened(clip());
    for (std::size_t i = 0; i < packets.size(); ++i) {
        if (i == 10) {
            newer.moveDecodersFromContext(&older);
        }
        const AudioFrame frame = (i < 10 ? older : newer).decodeAudioPacket(packets[i]);
        ASSERT_EQ(frame.empty() ? std::vector<std::uint8_t>() : sampleBytes(frame), expected[i]) << i;
    }
    // A new decoder begins with half of a frame's window, or gives nothing yet.
    FormatContext fresh = opened(clip());
    const AudioFrame broken = fresh.decodeAudioPacket(packets[10]);
    ASSERT_FALSE(expected[10].empty());
    EXPECT_NE(broken.empty() ? std::vector<std::uint8_t>() : sampleBytes(broken), expected[10]);
}

}  // namespace
}  // namespace vidorra
