#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <typeinfo>

#include <vidorra/vidorra.h>

#include "demux/quiet_ffmpeg.h"
#include "encode/patterns.h"
#include "encode/plain_encoder.h"
#include "encode/video_encoders.h"
#include "objstream/json.h"
#include "support/left_open.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "support/throw_text.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavutil/log.h>
}

// Wrong configurations, filter descriptions, frames and files: each is refused with its error, leaves no
// descriptor and no thread open, and does not affect what follows.
namespace vidorra {
namespace {

using test::fileContent;
using test::frameAt;
using test::LogCapture;
using test::mediaFile;
using test::plainPicture;
using test::receiveAll;
using test::temporaryFile;
using testing::AnyOf;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

constexpr unsigned long kMono = 4;
constexpr unsigned long kStereo = 3;

// FFmpeg says on stderr why it refuses.
class BadInput : public testing::Test {
    const test::NothingLeftOpen mNothingLeftOpen;
    const test::QuietFfmpeg mQuiet;
};

// What a row expects to be thrown. The text of an FFmpegError goes on with that of its code.
struct Expected {
    const std::type_info& type;
    std::string text;
    AvError code{0};
};

Expected ffmpegError(AvError code, const std::string& text) {
    return {typeid(FFmpegError), text, code};
}

Expected runtimeError(const std::string& text) {
    return {typeid(std::runtime_error), text, AvError(0)};
}

void expectThrow(const Expected& expected, const std::function<void()>& statement) {
    const bool hasCode = expected.type == typeid(FFmpegError);
    try {
        statement();
        ADD_FAILURE() << "nothing was thrown, expected: " << expected.text;
    } catch (const std::exception& thrown) {
        EXPECT_EQ(typeid(thrown), expected.type) << "thrown: " << thrown.what();
        EXPECT_EQ(thrown.what(),
                  hasCode ? expected.text + " FFmpeg AV_ERROR: " + expected.code.toString() : expected.text);
    }
}

// The code with which FFmpeg's own parser refuses a description, which depends on the version; 0 if it does
// not refuse.
AvError parserCode(const char* spec) {
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_QUIET);
    AVFilterGraph* graph = avfilter_graph_alloc();
    AVFilterInOut* inputs = nullptr;
    AVFilterInOut* outputs = nullptr;
    const int res = avfilter_graph_parse2(graph, spec, &inputs, &outputs);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    avfilter_graph_free(&graph);
    av_log_set_level(level);
    return AvError(res < 0 ? res : 0);
}

// A configuration that is valid except for the change of a row.
constexpr const char* kVideo = R"({"codec": "mpeg4", "width": 64, "height": 48, "timebase_num": 1,)"
                               R"( "timebase_den": 25, "pix_fmt": "yuv420p"})";
constexpr const char* kAudio = R"({"codec": "pcm_s16le", "options": {"ar": 48000, "ac": 2}})";

objstream::object changed(const char* good, const char* changes) {
    objstream::object result = objstream::parseJson(good);
    objstream::parseJson(changes).for_each_kv(
        [&result](const std::string& key, const objstream::object& value) {
            result[key] = value;
            return true;
        });
    return result;
}

AudioFrame silence(int samples, int rate = 48000, AVSampleFormat format = AV_SAMPLE_FMT_S16,
                   unsigned long layout = kStereo) {
    AudioBuffer buffer(layout, format);
    buffer.setSampleRate(rate);
    buffer.resize(static_cast<unsigned long>(samples));
    const auto perPlane = static_cast<std::size_t>(
        av_sample_fmt_is_planar(format) != 0 ? samples : samples * buffer.numberOfChannels());
    const std::size_t bytes = perPlane * static_cast<std::size_t>(av_get_bytes_per_sample(format));
    for (std::uint8_t* plane : buffer.getPointersToPlanes()) {
        std::memset(plane, 0, bytes);
    }
    return {buffer, Timestamp()};
}

VideoFrame picture(Size size = test::kVideoSize, AVPixelFormat format = AV_PIX_FMT_YUV420P) {
    return frameAt(plainPicture(size, format, 100), 0);
}

// One frame through an encoder, and its end: there has to be a packet.
template <class Encoder, class AnyFrame>
void expectWorks(Encoder& encoder, const AnyFrame& frame) {
    EXPECT_TRUE(encoder.sendFrame(frame).ok);
    EXPECT_TRUE(encoder.sendEndOfStream().ok);
    std::vector<Packet> packets;
    receiveAll(encoder, packets, AvError::Eof);
    EXPECT_FALSE(packets.empty());
}

struct ConfigRow {
    const char* name;
    const char* changes;
    Expected expected;
    // The log lines about it, at level 1.
    std::vector<std::string> lines{};
};

void PrintTo(const ConfigRow& row, std::ostream* stream) {
    *stream << row.changes;
}

class BadVideoConfig : public BadInput, public testing::WithParamInterface<ConfigRow> {};

TEST_P(BadVideoConfig, IsRefusedAndTheNextOneWorks) {
    const LogCapture log(2);
    const objstream::object config = changed(kVideo, GetParam().changes);
    std::vector<LogCapture::Line> lines;
    for (int i = 0; i < 2; ++i) {
        expectThrow(GetParam().expected, [&] { VideoEncoder{config}; });
        for (const std::string& line : GetParam().lines) {
            lines.push_back({1, "video-encoder-mpeg4: " + line});
        }
    }
    EXPECT_EQ(log.lines(), lines);
    VideoEncoder good(changed(kVideo, "{}"));
    expectWorks(good, picture());
}

INSTANTIATE_TEST_SUITE_P(
    , BadVideoConfig,
    testing::Values(
        ConfigRow{"UnknownCodec", R"({"codec": "nope"})", runtimeError("Could not find encoder \"nope\"")},
        ConfigRow{"EmptyCodec", R"({"codec": ""})", runtimeError("Could not find encoder \"\"")},
        ConfigRow{"DecoderOnly", R"({"codec": "cinepak_decoder"})",
                  runtimeError("Could not find encoder \"cinepak_decoder\"")},
        ConfigRow{"CodecOfAnotherKind", R"({"codec": ["mpeg4"]})", {typeid(std::bad_cast), "std::bad_cast"}},
        ConfigRow{"CodecIsNull", R"({"codec": null})", {typeid(std::bad_cast), "std::bad_cast"}},
        ConfigRow{"UnknownCodecId", R"({"codec_id": "nope"})", {typeid(BadCast), "Unknown codec id nope"}},
        ConfigRow{"NumberOfCodecId", R"({"codec_id": 12})", {typeid(BadCast), "Unknown codec id 12"}},
        ConfigRow{"CodecIdWithoutEncoder", R"({"codec_id": "vc1"})",
                  runtimeError("Could not find encoder \"vc1\"")},
        ConfigRow{"CodecIdOfAnotherKind", R"({"codec_id": {}})",
                  runtimeError("Could not find encoder \"none\"")},
        ConfigRow{"AudioCodec", R"({"codec": "pcm_s16le"})",
                  runtimeError("VideoEncoder: Trying to use audio codec \"pcm_s16le\" by video encoder.")},
        ConfigRow{"SubtitleCodec", R"({"codec": "srt"})",
                  runtimeError("VideoEncoder: Unsupported media type \"3\". Expected "
                               "AVMediaType::AVMEDIA_TYPE_VIDEO.")},
        ConfigRow{"UnknownOption", R"({"options": {"nope": 1}})",
                  ffmpegError(AvError::OptionNotFound, "param nope not found. No matching option exists.")},
        ConfigRow{"OptionWithoutAName", R"({"options": {"": 1}})",
                  ffmpegError(AvError::OptionNotFound, "param  not found. No matching option exists.")},
        ConfigRow{"OptionAfterAGoodOne", R"({"options": {"b": 100000, "bb": 1}})",
                  ffmpegError(AvError::OptionNotFound, "param bb not found. No matching option exists.")},
        ConfigRow{"OptionOutOfRange", R"({"options": {"qmax": 5000}})",
                  ffmpegError(AvError::OutOfRange, "value \"5000\" is out of range for qmax param")},
        ConfigRow{"OptionBelowItsRange", R"({"options": {"g": -99999999999}})",
                  ffmpegError(AvError::OutOfRange, "value \"-99999999999\" is out of range for g param")},
        ConfigRow{"OptionThatIsNoNumber", R"({"options": {"qmax": "high"}})",
                  ffmpegError(AvError::InvalidArgument, "value \"high\" is invalid for qmax param")},
        ConfigRow{"OptionOfAnotherKind", R"({"options": {"qmax": {"value": 31}}})",
                  ffmpegError(AvError::InvalidArgument, "value \"\" is invalid for qmax param")},
        ConfigRow{"UnknownFlag", R"({"options": {"flags": "+nope"}})",
                  ffmpegError(AvError::InvalidArgument, "value \"+nope\" is invalid for flags param")},
        ConfigRow{"NoWidth",
                  R"({"width": null})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"mpeg4\""),
                  {"\"width\" and \"height\" are 0 and 48: both have to be there and above 0."}},
        ConfigRow{"NoHeight",
                  R"({"height": null})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"mpeg4\""),
                  {"\"width\" and \"height\" are 64 and 0: both have to be there and above 0."}},
        ConfigRow{"NegativeSize",
                  R"({"width": -64})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"mpeg4\""),
                  {"\"width\" and \"height\" are -64 and 48: both have to be there and above 0."}},
        ConfigRow{"SizeThatNoPictureHas", R"({"width": 2000000000, "height": 2000000000})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"mpeg4\"")},
        ConfigRow{"SizeAboveThatOfTheCodec", R"({"width": 8192})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"mpeg4\"")},
        ConfigRow{"SizeThatIsNoneOfTheCodec", R"({"codec": "h261"})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"h261\"")},
        ConfigRow{"OddSize", R"({"codec": "h263p", "width": 63})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"h263p\"")},
        ConfigRow{"SizeThatIsAText",
                  R"({"width": "wide"})",
                  {typeid(objstream::bad_objstream_cast<std::string>),
                   "Failed to convert object with value wide from type std::__cxx11::basic_string<char, "
                   "std::char_traits<char>, std::allocator<char> > to type int"}},
        ConfigRow{"SizeWithAFraction",
                  R"({"width": 64.5})",
                  {typeid(objstream::bad_objstream_cast<double>),
                   "Failed to convert object with value 64.5 from type double to type int"}},
        ConfigRow{"SizeBeyondInt",
                  R"({"width": 4294967360})",
                  {typeid(objstream::bad_objstream_cast<long long>),
                   "Failed to convert object with value 4294967360 from type long long to type int"}},
        ConfigRow{"NoTimeBase",
                  R"({"timebase_den": 0})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"mpeg4\""),
                  {"\"timebase_num\" and \"timebase_den\" are 1 and 0: both have to be above 0, such as 1 "
                   "and 25."}},
        ConfigRow{"NegativeTimeBase",
                  R"({"timebase_num": -1})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"mpeg4\""),
                  {"\"timebase_num\" and \"timebase_den\" are -1 and 25: both have to be above 0, such as 1 "
                   "and 25."}},
        ConfigRow{
            "UnknownFormat", R"({"pix_fmt": "yuv42"})", {typeid(BadCast), "Unknown pixel format yuv42"}},
        ConfigRow{"FormatThatTheCodecLacks", R"({"pix_fmt": "rgba"})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"mpeg4\"")},
        ConfigRow{"FilterOfAnotherKind", R"({"filter": {}})", {typeid(std::bad_cast), "std::bad_cast"}},
        ConfigRow{"FilterIsNull", R"({"filter": null})", {typeid(std::bad_cast), "std::bad_cast"}},
        ConfigRow{"DeviceOfAnotherKind", R"({"vaapi_device": {}})", {typeid(std::bad_cast), "std::bad_cast"}},
        ConfigRow{"NoSuchDevice", R"({"vaapi_device": "/dev/null/nope"})",
                  ffmpegError(AvError::InvalidArgument, "Failed to open VAAPI device: /dev/null/nope")},
        ConfigRow{"UnknownFilter", R"({"filter": "nope"})",
                  ffmpegError(parserCode("nope"), "Cannot parse filter spec")},
        ConfigRow{"FilterWithAnOpenBracket", R"({"filter": "[in]hflip[out"})",
                  ffmpegError(AvError::InvalidArgument, "Cannot parse filter spec")},
        ConfigRow{"FilterBetweenCommasThatIsMissing", R"({"filter": "hflip,,vflip"})",
                  ffmpegError(parserCode("hflip,,vflip"), "Cannot parse filter spec")},
        ConfigRow{"FilterOfSamples", R"({"filter": "anull"})",
                  ffmpegError(AvError::InvalidArgument, "Cannot parse filter spec")},
        ConfigRow{"FilterWithAnUnknownOption", R"({"filter": "scale=nope=1"})",
                  ffmpegError(AvError::OptionNotFound, "Cannot parse filter spec")},
        ConfigRow{"FilterThatDoesNotFitThePictures", R"({"filter": "crop=1000:1000"})",
                  ffmpegError(AvError::InvalidArgument, "Cannot configure filter")}),
    [](const auto& row) { return row.param.name; });

class BadAudioConfig : public BadInput, public testing::WithParamInterface<ConfigRow> {};

TEST_P(BadAudioConfig, IsRefusedAndTheNextOneWorks) {
    const LogCapture log(2);
    const objstream::object config = changed(kAudio, GetParam().changes);
    for (int i = 0; i < 2; ++i) {
        expectThrow(GetParam().expected, [&] { AudioEncoder{config}; });
    }
    EXPECT_THAT(log.lines(), IsEmpty());
    AudioEncoder good(changed(kAudio, "{}"));
    expectWorks(good, silence(100));
}

INSTANTIATE_TEST_SUITE_P(
    , BadAudioConfig,
    testing::Values(
        ConfigRow{"UnknownCodec", R"({"codec": "nope"})", runtimeError("Could not find encoder \"nope\"")},
        ConfigRow{"VideoCodec", R"({"codec": "mpeg4"})",
                  runtimeError("AudioEncoder: Trying to use video codec \"mpeg4\" by audio encoder.")},
        ConfigRow{"SubtitleCodec", R"({"codec": "srt"})",
                  runtimeError("AudioEncoder: Unsupported media type \"3\". Expected "
                               "AVMediaType::AVMEDIA_TYPE_AUDIO.")},
        ConfigRow{"NameOfASampleFormat",
                  R"({"sample_fmt": "s16"})",
                  {typeid(objstream::bad_objstream_cast<std::string>),
                   "Failed to convert object with value s16 from type std::__cxx11::basic_string<char, "
                   "std::char_traits<char>, std::allocator<char> > to type int"}},
        ConfigRow{"SampleFormatThatTheCodecLacks", R"({"sample_fmt": 8})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"pcm_s16le\"")},
        ConfigRow{"SampleFormatThatIsNone", R"({"sample_fmt": 999})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"pcm_s16le\"")},
        ConfigRow{"UnknownOption", R"({"options": {"ar": 48000, "ac": 2, "nope": 1}})",
                  ffmpegError(AvError::OptionNotFound, "param nope not found. No matching option exists.")},
        ConfigRow{"NegativeRate", R"({"options": {"ac": 2, "ar": -1}})",
                  ffmpegError(AvError::OutOfRange, "value \"-1\" is out of range for ar param")},
        ConfigRow{"RateThatIsNoNumber", R"({"options": {"ac": 2, "ar": "fast"}})",
                  ffmpegError(AvError::InvalidArgument, "value \"fast\" is invalid for ar param")},
        ConfigRow{"NoRate", R"({"options": {"ac": 2}})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"pcm_s16le\"")},
        ConfigRow{"NoChannels", R"({"codec": "aac", "options": {"ar": 48000}})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"aac\"")},
        ConfigRow{"RateThatTheCodecLacks", R"({"codec": "aac", "options": {"ar": 47999, "ac": 2}})",
                  ffmpegError(AvError::InvalidArgument, "Could not open encoder \"aac\"")},
        ConfigRow{"FilterOfAnotherKind", R"({"filter": []})", {typeid(std::bad_cast), "std::bad_cast"}},
        ConfigRow{"FilterIsNull", R"({"filter": null})", {typeid(std::bad_cast), "std::bad_cast"}},
        ConfigRow{"FilterWithAnOpenBracket", R"({"filter": "[in]anull[out"})",
                  ffmpegError(AvError::InvalidArgument, "Cannot parse filter spec")},
        ConfigRow{"FilterOfPictures", R"({"filter": "hflip"})",
                  ffmpegError(AvError::InvalidArgument, "Cannot parse filter spec")},
        ConfigRow{"FilterWithAnUnknownOption", R"({"filter": "volume=nope=1"})",
                  ffmpegError(AvError::OptionNotFound, "Cannot parse filter spec")}),
    [](const auto& row) { return row.param.name; });

// Before it is open an encoder survives errors: the same object accepts valid options.
TEST_F(BadInput, AnEncoderTakesTheRightOptionAfterWrongOnes) {
    test::PlainEncoder encoder(test::configFor("mpeg4"));
    expectThrow(ffmpegError(AvError::OptionNotFound, "param nope not found. No matching option exists."),
                [&] { encoder.setOption("nope", "1"); });
    expectThrow(ffmpegError(AvError::OutOfRange, "value \"5000\" is out of range for qmax param"),
                [&] { encoder.setOption("qmax", "5000"); });
    encoder.setOption("qmax", "9");
    EXPECT_EQ(encoder.context()->qmax, 9);
    encoder.context()->width = 0;
    expectThrow(ffmpegError(AvError::InvalidArgument, "Could not open encoder \"mpeg4\""),
                [&] { encoder.openCodec(); });
    test::fillContext(*encoder.context());
    encoder.openCodec();
    EXPECT_TRUE(encoder.send(*test::numberedFrame(0)).ok);
    EXPECT_TRUE(encoder.receivePacket().has_value());
}

struct VideoFrameRow {
    const char* name;
    VideoFrame (*frame)();
    int level;
    const char* line;
};

class BadVideoFrame : public BadInput, public testing::WithParamInterface<VideoFrameRow> {};

TEST_P(BadVideoFrame, IsRefusedAndTheEncoderGoesOn) {
    VideoEncoder encoder(changed(kVideo, "{}"));
    const VideoFrame frame = GetParam().frame();
    const LogCapture log(2);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(encoder.sendFrame(frame).error, AvError::InvalidArgument);
    }
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[0].level, GetParam().level);
    EXPECT_THAT(log.texts()[0], StartsWith(std::string("video-encoder-mpeg4: ") + GetParam().line));
    expectWorks(encoder, picture());
}

constexpr const char* kNotOfTheEncoder = "sendFrame(): not of the encoder's size and format: ";

INSTANTIATE_TEST_SUITE_P(, BadVideoFrame,
                         testing::Values(VideoFrameRow{"Empty", [] { return VideoFrame(); }, 1,
                                                       "sendFrame(): could not encode empty VideoFrame."},
                                         VideoFrameRow{"Smaller",
                                                       [] {
                                                           return picture({32, 24});
                                                       },
                                                       2, kNotOfTheEncoder},
                                         VideoFrameRow{"Larger",
                                                       [] {
                                                           return picture({640, 480});
                                                       },
                                                       2, kNotOfTheEncoder},
                                         VideoFrameRow{"OneRowMore",
                                                       [] {
                                                           return picture({64, 49});
                                                       },
                                                       2, kNotOfTheEncoder},
                                         VideoFrameRow{"OfAnotherFormatAndSmaller",
                                                       [] {
                                                           return picture({32, 24}, AV_PIX_FMT_RGBA);
                                                       },
                                                       2, kNotOfTheEncoder}),
                         [](const auto& row) { return row.param.name; });

// Not an error: it is converted.
TEST_F(BadInput, APictureOfAnotherFormatIsTaken) {
    VideoEncoder encoder(changed(kVideo, "{}"));
    expectWorks(encoder, picture(test::kVideoSize, AV_PIX_FMT_RGBA));
}

TEST_F(BadInput, APictureThatTheFilterRefusesIsReturnedAndTheEncoderGoesOn) {
    VideoEncoder encoder(changed(kVideo, R"({"filter": "hflip"})"));
    const LogCapture log(2);
    const VideoFrame wrong = picture({32, 24});
    EXPECT_EQ(encoder.sendFrame(wrong).error, AvError::InvalidArgument);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].level, 2);
    EXPECT_THAT(log.texts()[0],
                StartsWith("video-encoder-mpeg4: sendFrame(): could not filter videoFrame: "));
    EXPECT_THAT(log.texts()[0], EndsWith(". Error: #-22: Invalid argument"));
    expectWorks(encoder, picture());
}

struct AudioFrameRow {
    const char* name;
    AudioFrame (*frame)();
    AvError error;
    std::vector<std::string> lines;
};

class BadAudioFrame : public BadInput, public testing::WithParamInterface<AudioFrameRow> {};

TEST_P(BadAudioFrame, IsRefusedAndTheEncoderGoesOn) {
    AudioEncoder encoder(changed(kAudio, R"({"codec": "mp2"})"));
    ASSERT_EQ(encoder.codecContext()->frame_size, 1152);
    const AudioFrame frame = GetParam().frame();
    const LogCapture log(2);
    EXPECT_EQ(encoder.sendFrame(frame).error, GetParam().error);
    std::vector<testing::Matcher<std::string>> lines;
    for (const std::string& line : GetParam().lines) {
        lines.push_back(StartsWith("audio-encoder-mp2: " + line));
    }
    EXPECT_THAT(log.texts(), testing::ElementsAreArray(lines));
    expectWorks(encoder, silence(1152));
}

constexpr const char* kOtherChannels =
    "sendFrame(): not of the encoder's channels and format: 1152 samples, ";

INSTANTIATE_TEST_SUITE_P(
    , BadAudioFrame,
    testing::Values(
        AudioFrameRow{"Empty",
                      [] { return AudioFrame(); },
                      AvError::InvalidArgument,
                      {"sendFrame(): Couldn't encode empty AudioFrame."}},
        // Deliberately not an error: a stream continues without frames that do not fit.
        AudioFrameRow{"OfAnotherRate",
                      [] { return silence(1152, 44100); },
                      AvError(0),
                      {"Audio audioFrame " + silence(1152, 44100).debugDescription() +
                       " is not compatible with encoder"}},
        AudioFrameRow{"OfOneChannel",
                      [] { return silence(1152, 48000, AV_SAMPLE_FMT_S16, kMono); },
                      AvError::InvalidArgument,
                      {kOtherChannels}},
        AudioFrameRow{"OfSixChannels",
                      [] { return silence(1152, 48000, AV_SAMPLE_FMT_S16, 0x3f); },
                      AvError::InvalidArgument,
                      {kOtherChannels}},
        AudioFrameRow{"OfSixChannelsInAnotherFormat",
                      [] { return silence(1152, 48000, AV_SAMPLE_FMT_FLTP, 0x3f); },
                      AvError::InvalidArgument,
                      {kOtherChannels}},
        AudioFrameRow{"LongerThanTheCodecTakes", [] { return silence(1153); }, AvError::InvalidArgument, {}}),
    [](const auto& row) { return row.param.name; });

struct FilterRow {
    const char* name;
    const char* spec;
    const char* text;
};

void PrintTo(const FilterRow& row, std::ostream* stream) {
    *stream << row.spec;
}

class BadFilter : public BadInput, public testing::WithParamInterface<FilterRow> {};

TEST_P(BadFilter, IsRefusedOnceForEachShapeAndAnotherOneServesTheSameObject) {
    FFmpegFilterWrapper filter;
    filter.setFilterSpec(GetParam().spec);
    Picture input = picture().picture();
    Picture other = picture({32, 24}).picture();
    const auto process = [&filter](Picture& of) { static_cast<void>(filter.processPicture(of)); };
    expectThrow(runtimeError(GetParam().text), [&] { process(input); });
    // A failed graph stays and is not built again for the same kind of picture.
    expectThrow(runtimeError("Picture filtering failed"), [&] { process(input); });
    expectThrow(runtimeError(GetParam().text), [&] { process(other); });
    filter.setFilterSpec("hflip");
    EXPECT_EQ(filter.processPicture(input).frameSize(), test::kVideoSize);
}

INSTANTIATE_TEST_SUITE_P(
    , BadFilter,
    testing::Values(FilterRow{"UnknownFilter", "nope", "Cannot parse filter spec"},
                    FilterRow{"OpenBracket", "[in]hflip[out", "Cannot parse filter spec"},
                    FilterRow{"NothingBetweenCommas", "hflip,,vflip", "Cannot parse filter spec"},
                    FilterRow{"UnknownOption", "scale=nope=1", "Cannot parse filter spec"},
                    FilterRow{"FilterOfSamples", "anull", "Cannot parse filter spec"},
                    FilterRow{"LabelThatNothingHas", "[nope]hflip", "Cannot configure filter"},
                    FilterRow{"TooLargeACrop", "crop=1000:1000", "Cannot configure filter"}),
    [](const auto& row) { return row.param.name; });

// Some FFmpeg versions refuse it.
TEST_F(BadInput, ACommaAtTheEndOfAFilterIsTakenAsFfmpegTakesIt) {
    const LogCapture log(2);
    const objstream::object config = changed(kVideo, R"({"filter": "hflip,"})");
    const AvError code = parserCode("hflip,");
    FFmpegFilterWrapper filter;
    filter.setFilterSpec("hflip,");
    Picture input = picture().picture();
    if (code == AvError(0)) {
        VideoEncoder encoder(config);
        expectWorks(encoder, picture());
        EXPECT_EQ(filter.processPicture(input).frameSize(), test::kVideoSize);
    } else {
        expectThrow(ffmpegError(code, "Cannot parse filter spec"), [&] { VideoEncoder{config}; });
        expectThrow(runtimeError("Cannot parse filter spec"),
                    [&] { static_cast<void>(filter.processPicture(input)); });
    }
}

TEST_F(BadInput, SamplesThatAFilterDoesNotTakeAreAnErrorAndTheFilterGoesOn) {
    FFmpegFilterWrapper filter;
    filter.setFilterSpec("anull");
    AudioBuffer good = silence(100).audioBuffer();
    EXPECT_EQ(filter.processAudioBuffer(good).numberOfSamples(), 100U);
    for (AudioFrame wrong : {silence(100, 44100), silence(100, 48000, AV_SAMPLE_FMT_FLTP),
                             silence(100, 48000, AV_SAMPLE_FMT_S16, kMono)}) {
        expectThrow(runtimeError("Picture filtering failed"),
                    [&] { static_cast<void>(filter.processAudioFrame(wrong)); });
    }
    expectThrow(runtimeError("Filter is initialized for processing audio"), [&] {
        VideoFrame frame = picture();
        static_cast<void>(filter.processVideoFrame(frame));
    });
    EXPECT_EQ(filter.processAudioBuffer(good).numberOfSamples(), 100U);
}

TEST_F(BadInput, ASourceThatCannotBeResampledIsAnErrorAndTheResamplerGoesOn) {
    Resampler resampler;
    const AudioBuffer good = silence(100).audioBuffer();
    AudioBuffer withoutRate = good;
    withoutRate.setSampleRate(0);
    expectThrow(
        {typeid(std::invalid_argument), "Resampler::resample: The sample rates must be above 0"},
        [&] { static_cast<void>(resampler.resample(withoutRate, 48000, kStereo, AV_SAMPLE_FMT_S16)); });
    expectThrow(runtimeError("Too many channels in channel map"),
                [&] { resampler.setChannelMapping("FL|FR|FC|LFE|BL|BR|SL|SR|BC"); });
    EXPECT_EQ(resampler.resample(good, 48000, kStereo, AV_SAMPLE_FMT_FLTP).numberOfSamples(), 100U);
}

// Every part of a configuration that is cut off: the error names the file and where it ends.
TEST_F(BadInput, AConfigurationThatIsCutNamesItsEnd) {
    const std::string whole =
        "{\n"
        "    \"codec\": \"mpeg4\", \"width\": 64, \"height\": 48,\n"
        "    \"timebase_den\": 25, \"flag\": true, \"none\": null, \"half\": -1.5e2,\n"
        "    \"options\": {\"b\": 100000, \"list\": [1, \"\\u00e4\xc3\xa4\", []]}\n"
        "}";
    std::size_t line = 1;
    std::size_t column = 0;
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const std::string content = whole.substr(0, size);
        const std::string path = temporaryFile("cut.json", content).string();
        SCOPED_TRACE(content);
        try {
            static_cast<void>(objstream::readJsonFile(path));
            ADD_FAILURE() << "nothing was thrown";
        } catch (const objstream::JsonError& error) {
            // A line end belongs to the line that it ends.
            EXPECT_EQ(error.line(), line);
            EXPECT_EQ(error.column(), std::max<std::size_t>(column, 1));
            EXPECT_THAT(error.what(), StartsWith(path + ": line " + std::to_string(line) + ", column " +
                                                 std::to_string(std::max<std::size_t>(column, 1)) + ": "));
        }
        const char next = whole[size];
        if (size > 0 && whole[size - 1] == '\n') {
            ++line;
            column = 0;
        }
        column += (static_cast<unsigned char>(next) & 0xC0U) == 0x80U ? 0 : 1;
    }
    const std::string path = temporaryFile("whole.json", whole).string();
    EXPECT_EQ(objstream::readJsonFile(path)["options"]["list"].at(1).getValue<std::string>(),
              "\xc3\xa4\xc3\xa4");
}

TEST_F(BadInput, AConfigurationThatIsNotThereIsNamed) {
    expectThrow(runtimeError("Could not read /no/such.json: No such file or directory"),
                [] { static_cast<void>(objstream::readJsonFile("/no/such.json")); });
}

constexpr const char* kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

TEST_F(BadInput, AFontIsNoMediaFile) {
    const std::string text = std::string("can't open input file ") + kFont +
                             " (#-1094995529: Invalid data found when processing input)";
    FormatContext source;
    source.setUrl(kFont);
    MediaFileReader reader(kFont, MediaFileReader::PlaybackMode::Loop, nullptr);
    for (int i = 0; i < 2; ++i) {
        expectThrow(runtimeError(text), [&] { source.open("", true, std::chrono::seconds(2)); });
        EXPECT_FALSE(source.isOpened());
        expectThrow(runtimeError(text), [&] { reader.open(); });
        EXPECT_EQ(reader.getState(), MediaFileReader::State::Closed);
        EXPECT_TRUE(std::holds_alternative<std::monostate>(reader.read()));
    }
    expectThrow(runtimeError(std::string("Couldn't open file: ") + kFont),
                [] { static_cast<void>(loadPicture(kFont, AV_PIX_FMT_NONE, AVCOL_RANGE_JPEG)); });
}

// Images are not bad input: each is a video of one picture.
class ImageAsVideo : public BadInput, public testing::WithParamInterface<const char*> {
protected:
    [[nodiscard]] std::string image() const {
        return mediaFile(std::string("image.") + GetParam(),
                         {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25", "-frames:v", "1", "-update", "1"})
            .string();
    }
};

TEST_P(ImageAsVideo, HasOnePicture) {
    MediaFileReader reader(image(), MediaFileReader::PlaybackMode::Once, nullptr);
    reader.open();
    const auto first = reader.read();
    ASSERT_TRUE(std::holds_alternative<VideoFrame>(first));
    EXPECT_EQ(std::get<VideoFrame>(first).picture().frameSize(), (Size{64, 48}));
    EXPECT_TRUE(std::holds_alternative<std::monostate>(reader.read()));
    EXPECT_EQ(reader.getState(), MediaFileReader::State::Eof);
}

// Decoders give a picture of the part that is there, or none.
TEST_P(ImageAsVideo, WhoseEndIsMissingIsAPictureOrAnErrorWithTheName) {
    const std::string content = fileContent(image());
    const LogCapture log(2);
    for (const std::size_t size : {content.size() / 4, content.size() / 2, content.size() - 20}) {
        SCOPED_TRACE(size);
        const std::string path =
            temporaryFile(std::string("cut.") + GetParam(), content.substr(0, size)).string();
        try {
            EXPECT_EQ(loadPicture(path, AV_PIX_FMT_NONE, AVCOL_RANGE_JPEG).frameSize(), test::kVideoSize);
        } catch (const std::exception& thrown) {
            EXPECT_EQ(typeid(thrown), typeid(std::runtime_error));
            EXPECT_THAT(thrown.what(), AnyOf(StrEq("Couldn't open file: " + path),
                                             StrEq("no ffmpeg packet while loading file: " + path),
                                             StrEq("empty while loading file: " + path)));
        }
        MediaFileReader reader(path, MediaFileReader::PlaybackMode::Once, nullptr);
        try {
            reader.open();
        } catch (const std::runtime_error& thrown) {
            EXPECT_THAT(thrown.what(), StartsWith("can't open input file " + path + " (#"));
        }
        // Nothing is thrown here.
        while (!std::holds_alternative<std::monostate>(reader.read())) {
        }
        EXPECT_NE(reader.getState(), MediaFileReader::State::Opened);
        reader.close();
        reader.setUrl(image());
        reader.open();
        EXPECT_TRUE(std::holds_alternative<VideoFrame>(reader.read()));
    }
}

INSTANTIATE_TEST_SUITE_P(, ImageAsVideo, testing::Values("png", "bmp", "jpg", "tiff", "gif"),
                         [](const auto& row) { return std::string(row.param); });

// An image with the name of a video is recognised by its content; a text is not recognised at all.
TEST_F(BadInput, TheNameOfAFileDoesNotMakeItAVideo) {
    const std::string png = fileContent(mediaFile(
        "image.png", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25", "-frames:v", "1", "-update", "1"}));
    MediaFileReader image(temporaryFile("image.mp4", png).string(), MediaFileReader::PlaybackMode::Once,
                          nullptr);
    EXPECT_TRUE(image.open());
    EXPECT_TRUE(std::holds_alternative<VideoFrame>(image.read()));
    const std::string path = temporaryFile("text.mp4", "no video at all\n").string();
    MediaFileReader text(path, MediaFileReader::PlaybackMode::Once, nullptr);
    expectThrow(runtimeError("can't open input file " + path +
                             " (#-1094995529: Invalid data found when processing input)"),
                [&] { text.open(); });
}

}  // namespace
}  // namespace vidorra
