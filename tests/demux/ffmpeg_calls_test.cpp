#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "demux/calls.h"
#include "demux/clips.h"
#include "demux/decoders.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "support/throw_text.h"
#include "vdr_utils/bad_alloc.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/demux/video_decoder.h"

extern "C" {
#include <libavutil/mathematics.h>
}

// How the library calls FFmpeg, and how it handles results that FFmpeg rarely returns.
namespace vidorra {
namespace {

using test::calls;
using test::LogCapture;
using test::makePacket;
using test::mediaFile;
using test::opened;
using test::prepareAndOpen;
using test::rawVideoParameters;
using testing::ElementsAre;
using testing::IsEmpty;
using Line = LogCapture::Line;

constexpr std::chrono::seconds kSecond(1);
constexpr int kRawSize = 32 * 16 * 3 / 2;
constexpr const char* kNoMemory = "#-12: Cannot allocate memory";

AVFormatContext* formatContext(void* opaque) {
    return static_cast<AVFormatContext*>(opaque);
}

// Two pictures in a file without a time origin, and with one of five seconds.
std::string plainFile() {
    return mediaFile("plain.nut", test::joined({test::movingPicture("16x16", 0.08), {"-c:v", "mjpeg"}}))
        .string();
}

std::string fileWithTimeOrigin() {
    return mediaFile("origin.nut", test::joined({test::movingPicture("16x16", 0.08),
                                                 {"-c:v", "mjpeg", "-metadata", "timeorigin=5000000"}}))
        .string();
}

TEST(OpenCalls, ComeInTheirOrder) {
    std::vector<std::string> order;
    const auto alloc = calls().avformatAllocContext.replace([&] {
        order.emplace_back("alloc");
        return calls().avformatAllocContext.real();
    });
    const auto find = calls().avFindInputFormat.replace([&](const char* name) {
        order.push_back("format " + std::string(name));
        return calls().avFindInputFormat.real(name);
    });
    const auto option =
        calls().avDictSetInt.replace([&](void** options, const char* key, std::int64_t value, int flags) {
            order.push_back("option " + std::string(key) + " " + std::to_string(value) + " " +
                            std::to_string(flags));
            return calls().avDictSetInt.real(options, key, value, flags);
        });
    const auto open = calls().avformatOpenInput.replace(
        [&](void** context, const char* url, const void* format, void** options) {
            order.push_back("open " + std::string(url) + (format != nullptr ? " forced" : " detected"));
            auto** const dictionary = reinterpret_cast<AVDictionary**>(options);
            EXPECT_EQ(av_dict_count(*dictionary), 1);
            EXPECT_STREQ(av_dict_get(*dictionary, "analyzeduration", nullptr, 0)->value, "1500000");
            return calls().avformatOpenInput.real(context, url, format, options);
        });
    const auto info = calls().avformatFindStreamInfo.replace([&](void* context, void** options) {
        order.emplace_back(options == nullptr ? "info" : "info with options");
        return calls().avformatFindStreamInfo.real(context, options);
    });
    FormatContext source;
    source.setUrl(plainFile());
    source.open("nut", true, std::chrono::microseconds(1500000));
    EXPECT_THAT(order, ElementsAre("alloc", "format nut", "option analyzeduration 1500000 32",
                                   "open " + plainFile() + " forced", "info"));
    order.clear();
    source.open("", false, std::chrono::microseconds(1500000));
    EXPECT_THAT(order, ElementsAre("alloc", "option analyzeduration 1500000 32",
                                   "open " + plainFile() + " detected"));
    order.clear();
    source.open("no such format", false, std::chrono::microseconds(1500000));
    EXPECT_THAT(order, ElementsAre("alloc", "format no such format", "option analyzeduration 1500000 32",
                                   "open " + plainFile() + " detected"));
}

TEST(OpenCalls, AnInterruptFromBeforeIsForgottenAndOneFromThenOnCounts) {
    FormatContext source;
    source.setUrl(plainFile());
    source.setInterruptCallback();
    source.interrupt();
    bool called = false;
    const auto open = calls().avformatOpenInput.replace(
        [&](void** context, const char* url, const void* format, void** options) {
            const AVIOInterruptCB callback = formatContext(*context)->interrupt_callback;
            EXPECT_EQ(callback.callback(callback.opaque), 0);
            source.interrupt();
            EXPECT_EQ(callback.callback(callback.opaque), 1);
            called = true;
            return calls().avformatOpenInput.real(context, url, format, options);
        });
    EXPECT_THROW(source.open("", true, kSecond), std::runtime_error);
    EXPECT_TRUE(called);
}

TEST(OpenCalls, WithoutMemoryForTheContextThrowsBadAlloc) {
    const auto alloc = calls().avformatAllocContext.replace([]() -> void* { return nullptr; });
    FormatContext source;
    source.setUrl(plainFile());
    EXPECT_THROW(source.open("", true, kSecond), std::bad_alloc);
    EXPECT_FALSE(source.isOpened());
}

TEST(OpenCalls, WithoutMemoryForTheOptionsThrowsBadAllocWithAText) {
    FormatContext source;
    source.setUrl(plainFile());
    {
        const auto option = calls().avDictSetInt.replace(
            [](void**, const char*, std::int64_t, int) { return AVERROR(ENOMEM); });
        EXPECT_THROW_TEXT(vx::vdr::utils::BadAlloc, "cannot allocate fmtParamsPtr",
                          source.open("", true, kSecond));
    }
    source.open("", true, kSecond);
    EXPECT_EQ(test::readAllPackets(source).size(), 2U);
}

TEST(OpenCalls, WithoutStreamInformationThrowsAndLeavesTheSourceToBeClosed) {
    FormatContext source;
    source.setUrl(plainFile());
    const LogCapture log(6);
    {
        const auto info =
            calls().avformatFindStreamInfo.replace([](void*, void**) { return AVERROR(EINVAL); });
        EXPECT_THROW_TEXT(std::runtime_error,
                          "can't find stream info of " + plainFile() + " (#-22: Invalid argument)",
                          source.open("", true, kSecond));
    }
    EXPECT_TRUE(source.isOpened());
    EXPECT_THAT(log.lines(), IsEmpty());
    source.close();
    EXPECT_FALSE(source.isOpened());
    EXPECT_THAT(log.lines(), ElementsAre(Line{5, plainFile() + " closed, 0 packets read"}));
    source.open("", true, kSecond);
    EXPECT_EQ(test::readAllPackets(source).size(), 2U);
}

TEST(OpenCalls, APositiveAnswerOfTheSearchForStreamInformationIsASuccess) {
    const auto info = calls().avformatFindStreamInfo.replace([](void* context, void** options) {
        return calls().avformatFindStreamInfo.real(context, options) + 1;
    });
    FormatContext source;
    source.setUrl(plainFile());
    EXPECT_TRUE(source.open("", true, kSecond));
}

// The first time of a file whose demuxer knows the start by the wall clock.
std::int64_t firstTimeWithStart(const std::string& url, std::int64_t start) {
    const auto open = calls().avformatOpenInput.replace(
        [start](void** context, const char* name, const void* format, void** options) {
            const int res = calls().avformatOpenInput.real(context, name, format, options);
            formatContext(*context)->start_time_realtime = start;
            return res;
        });
    const LogCapture log(5);
    FormatContext source = opened(url);
    const std::int64_t time = source.readPacket().pts;
    EXPECT_THAT(log.texts(), ElementsAre(url + " opened, time origin " + std::to_string(time)));
    return time;
}

TEST(TimeOrigin, IsTheStartByTheWallClock) {
    EXPECT_EQ(firstTimeWithStart(plainFile(), 1700000000000000), 1700000000000000);
    EXPECT_EQ(firstTimeWithStart(plainFile(), -12), -12);
}

TEST(TimeOrigin, IsTheStartByTheWallClockRatherThanThatOfTheMetadata) {
    EXPECT_EQ(firstTimeWithStart(fileWithTimeOrigin(), 1700000000000000), 1700000000000000);
}

TEST(TimeOrigin, IsThatOfTheMetadataWhenTheStartIsZeroOrUnset) {
    EXPECT_EQ(firstTimeWithStart(fileWithTimeOrigin(), 0), 5000000);
    EXPECT_EQ(firstTimeWithStart(fileWithTimeOrigin(), AV_NOPTS_VALUE), 5000000);
}

TEST(TimeOrigin, OfTheWallClockStaysForTheNextSource) {
    FormatContext source;
    source.setUrl(plainFile());
    {
        const auto open = calls().avformatOpenInput.replace(
            [](void** context, const char* name, const void* format, void** options) {
                const int res = calls().avformatOpenInput.real(context, name, format, options);
                formatContext(*context)->start_time_realtime = 77;
                return res;
            });
        source.open("", true, kSecond);
    }
    source.close();
    source.open("", true, kSecond);
    EXPECT_EQ(source.readPacket().pts, 77);
}

// A demuxer that other FFmpeg builds have: it is found by name while the source is opened.
FormatContext openedAsRawPacket() {
    auto* realFormat = static_cast<decltype(AVFormatContext::iformat)>(nullptr);
    AVInputFormat rawPacket{};
    rawPacket.name = "rawpacket";
    FormatContext source;
    source.setUrl(plainFile());
    const auto info = calls().avformatFindStreamInfo.replace([&](void* context, void** options) {
        const int res = calls().avformatFindStreamInfo.real(context, options);
        realFormat = formatContext(context)->iformat;
        formatContext(context)->iformat = &rawPacket;
        return res;
    });
    source.open("", true, kSecond);
    source.getAVFormatContext()->iformat = realFormat;
    return source;
}

TEST(RawPacketSource, KeepsTheKeyFlagsOfItsDemuxerAlsoWhenItIsMoved) {
    FormatContext first = openedAsRawPacket();
    FormatContext source;
    source = std::move(first);
    const auto read = calls().avReadFrame.replace([](void* context, void* packet) {
        const int res = calls().avReadFrame.real(context, packet);
        static_cast<AVPacket*>(packet)->flags &= ~AV_PKT_FLAG_KEY;
        return res;
    });
    Packet packet = source.readPacket();
    EXPECT_FALSE(packet.isKeyFrame());
    source.setKeyFrameFlag(packet);
    EXPECT_TRUE(packet.isKeyFrame()) << "on request only";
    source.open("", true, kSecond);
    EXPECT_TRUE(source.readPacket().isKeyFrame()) << "another source";
}

struct Failure {
    const char* name;
    int code;
    const char* text;
};

class ReadFailure : public testing::TestWithParam<Failure> {};

TEST_P(ReadFailure, ThrowsFfmpegsTextAloneAndTheNextReadGoesOn) {
    FormatContext source = opened(plainFile());
    {
        const auto read = calls().avReadFrame.replace([](void*, void*) { return GetParam().code; });
        EXPECT_THROW_TEXT(std::runtime_error, GetParam().text, (void)source.readPacket());
    }
    EXPECT_FALSE(source.isEOF());
    EXPECT_GT(source.readPacket().size, 0);
    const LogCapture log(5);
    source.close();
    EXPECT_THAT(log.texts(), ElementsAre(plainFile() + " closed, 1 packets read"));
}

INSTANTIATE_TEST_SUITE_P(
    , ReadFailure,
    testing::Values(
        Failure{.name = "Input", .code = AVERROR(EIO), .text = "Input/output error"},
        Failure{.name = "Again", .code = AVERROR(EAGAIN), .text = "Resource temporarily unavailable"},
        Failure{
            .name = "Data", .code = AVERROR_INVALIDDATA, .text = "Invalid data found when processing input"},
        Failure{.name = "WithoutAText", .code = -99999, .text = "Error number -99999 occurred"},
        Failure{.name = "Positive", .code = 12345678, .text = "Error number 12345678 occurred"}),
    [](const auto& row) { return row.param.name; });

TEST(ReadCalls, BehindTheEndFfmpegIsAskedAgain) {
    FormatContext source = opened(plainFile());
    (void)test::readAllPackets(source);
    int asked = 0;
    const auto read = calls().avReadFrame.replace([&asked](void* context, void* packet) {
        ++asked;
        return calls().avReadFrame.real(context, packet);
    });
    EXPECT_EQ(source.readPacket().size, 0);
    EXPECT_EQ(source.readPacket().size, 0);
    EXPECT_EQ(asked, 2);
    EXPECT_TRUE(source.isEOF());
}

TEST(ReadCalls, WithoutMemoryThrowBadAlloc) {
    FormatContext source = opened(plainFile());
    const auto alloc = calls().avPacketAlloc.replace([]() -> void* { return nullptr; });
    EXPECT_THROW((void)source.readPacket(), std::bad_alloc);
}

constexpr std::int64_t kUnset = AV_NOPTS_VALUE;

struct Times {
    const char* name;
    AVRational timebase;
    std::int64_t pts;
    std::int64_t dts;
    std::int64_t duration;
    std::int64_t expectedPts;
    std::int64_t expectedDts;
    std::int64_t expectedDuration;
};

class PacketTimes : public testing::TestWithParam<Times> {};

// The source's time origin is five seconds.
TEST_P(PacketTimes, AreInMicrosecondsFromTheTimeOrigin) {
    FormatContext source = opened(fileWithTimeOrigin());
    source.trackAtIndex(0)->time_base = GetParam().timebase;
    const auto read = calls().avReadFrame.replace([](void*, void* opaque) {
        auto* const packet = static_cast<AVPacket*>(opaque);
        const int res = av_new_packet(packet, 10);
        packet->pts = GetParam().pts;
        packet->dts = GetParam().dts;
        packet->duration = GetParam().duration;
        return res;
    });
    const Packet packet = source.readPacket();
    EXPECT_EQ(packet.pts, GetParam().expectedPts);
    EXPECT_EQ(packet.dts, GetParam().expectedDts);
    EXPECT_EQ(packet.duration, GetParam().expectedDuration);
}

INSTANTIATE_TEST_SUITE_P(
    , PacketTimes,
    testing::Values(Times{"BothKnown", {1, 25}, 3, 1, 1, 5120000, 5040000, 40000},
                    Times{"PtsUnset", {1, 25}, kUnset, 1, 1, 5040000, 5040000, 40000},
                    Times{"DtsUnset", {1, 25}, 3, kUnset, 1, 5120000, 5120000, 40000},
                    Times{"BothUnset", {1, 25}, kUnset, kUnset, 1, kUnset, kUnset, 40000},
                    Times{"Zero", {1, 25}, 0, 0, 0, 5000000, 5000000, 0},
                    Times{"BeforeZero", {1, 25}, -1, -200, 0, 4960000, -3000000, 0},
                    Times{"NegativeDuration", {1, 25}, 0, 0, -1, 5000000, 5000000, -40000},
                    // Rounded before the origin is added, to the nearest, half away from zero.
                    Times{"RoundedDown", {1, 3}, 1, 1, 1, 5333333, 5333333, 333333},
                    Times{"RoundedUp", {1, 3}, 2, 2, 2, 5666667, 5666667, 666667},
                    Times{"HalfUp", {1, 2000000}, 1, 3, 1, 5000001, 5000002, 1},
                    Times{"HalfDownBelowZero", {1, 2000000}, -1, -3, 1, 4999999, 4999998, 1},
                    Times{"CoarseTicks", {1001, 30000}, 30, 29, 1, 6001000, 5967633, 33367},
                    Times{"Microseconds", {1, 1000000}, 123456789, 123456788, 1, 128456789, 128456788, 1},
                    // A time that is too large for microseconds is unset, whatever the origin.
                    Times{"PtsTooLarge", {1, 1}, 10000000000000, 3, 1, 8000000, 8000000, 1000000},
                    Times{"DtsTooLarge", {1, 1}, 3, 10000000000000, 1, 8000000, 8000000, 1000000},
                    Times{"BothTooLarge", {1, 1}, 10000000000000, 10000000000000, 1, kUnset, kUnset, 1000000},
                    Times{"LargeTicks",
                          {1, 90000},
                          95443717680000,
                          95443717680000,
                          3600,
                          1060485757000000,
                          1060485757000000,
                          40000}),
    [](const auto& row) { return row.param.name; });

TEST(DecoderCalls, AnEmptyPacketDoesNotReachFfmpeg) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    int sent = 0;
    const auto send = calls().avcodecSendPacket.replace([&sent](void* context, const void* packet) {
        ++sent;
        return calls().avcodecSendPacket.real(context, packet);
    });
    const LogCapture log(1);
    EXPECT_FALSE(decoder.send(Packet()).ok);
    EXPECT_EQ(sent, 0);
    EXPECT_TRUE(decoder.send(AVPacket{}).ok);
    EXPECT_EQ(sent, 1);
}

TEST(DecoderCalls, ReceiveWithoutMemoryForAFrameGivesOutOfMemory) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    bool received = false;
    const auto receive = calls().avcodecReceiveFrame.replace([&received](void*, void*) {
        received = true;
        return 0;
    });
    {
        const auto alloc = calls().avFrameAlloc.replace([]() -> void* { return nullptr; });
        EXPECT_EQ(decoder.DecoderBase::receiveAvFrame().error(), AvError::OutOfMemory);
        EXPECT_EQ(decoder.receiveAvFrame().error(), AvError::OutOfMemory);
    }
    EXPECT_FALSE(received);
}

TEST(DecoderCalls, ReceiveGivesTheErrorOfFfmpeg) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    {
        const auto receive = calls().avcodecReceiveFrame.replace([](void*, void*) { return AVERROR(EIO); });
        EXPECT_EQ(decoder.receiveAvFrame().error(), AvError(AVERROR(EIO)));
    }
}

struct RangeRow {
    AVColorRange codec;
    AVColorRange frame;
    AVColorRange delivered;
};

class DecoderRange : public testing::TestWithParam<RangeRow> {};

TEST_P(DecoderRange, IsThatOfTheCodecOnlyWhereTheFrameHasNone) {
    const test::Parameters parameters = rawVideoParameters(AV_PIX_FMT_YUVJ420P);
    VideoDecoder decoder;
    prepareAndOpen(decoder, *parameters);
    const_cast<AVCodecContext*>(decoder.codecContext())->color_range = GetParam().codec;
    ASSERT_TRUE(decoder.send(makePacket(kRawSize)).ok);
    const auto receive = calls().avcodecReceiveFrame.replace([](void* context, void* frame) {
        const int res = calls().avcodecReceiveFrame.real(context, frame);
        static_cast<AVFrame*>(frame)->color_range = GetParam().frame;
        return res;
    });
    const VideoFrame frame = decoder.receive().value();
    EXPECT_EQ(frame.picture().colorRange(), GetParam().delivered);
    EXPECT_EQ(frame.picture().pixelFormat(), AV_PIX_FMT_YUV420P);
}

INSTANTIATE_TEST_SUITE_P(
    , DecoderRange,
    testing::Values(RangeRow{AVCOL_RANGE_JPEG, AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_JPEG},
                    RangeRow{AVCOL_RANGE_MPEG, AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_MPEG},
                    RangeRow{AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_UNSPECIFIED},
                    RangeRow{AVCOL_RANGE_JPEG, AVCOL_RANGE_MPEG, AVCOL_RANGE_MPEG},
                    RangeRow{AVCOL_RANGE_MPEG, AVCOL_RANGE_JPEG, AVCOL_RANGE_JPEG},
                    RangeRow{AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_JPEG, AVCOL_RANGE_JPEG}));

TEST(DecoderCalls, PrepareWithoutMemoryForTheContextThrows) {
    DecoderBase decoder;
    const auto alloc = calls().avcodecAllocContext3.replace([](const void*) -> void* { return nullptr; });
    EXPECT_THROW_TEXT(
        FFmpegError,
        "Cannot allocate codec context for codec rawvideo FFmpeg AV_ERROR: " + std::string(kNoMemory),
        (void)decoder.prepareCodec(std::nullopt, *rawVideoParameters(AV_PIX_FMT_YUV420P)));
    EXPECT_EQ(decoder.codecContext(), nullptr);
}

TEST(DecoderCalls, PrepareWithParametersThatFfmpegRefusesThrows) {
    const LogCapture log(6);
    {
        DecoderBase decoder;
        const auto copy =
            calls().avcodecParametersToContext.replace([](void*, const void*) { return AVERROR(ENOMEM); });
        EXPECT_THROW_TEXT(FFmpegError,
                          "Cannot copy codec parameters to context for codec rawvideo FFmpeg AV_ERROR: " +
                              std::string(kNoMemory),
                          (void)decoder.prepareCodec(std::nullopt, *rawVideoParameters(AV_PIX_FMT_YUV420P)));
        EXPECT_EQ(decoder.logPrefix(), "rawvideo") << "the context is there";
        EXPECT_FALSE(decoder.send(Packet()).ok);
    }
    // The prefix was set before the parameters were copied. The exception reported the failure, and the
    // destructor does not log it again.
    EXPECT_THAT(log.texts(), ElementsAre("rawvideo DecoderBase::send: could not encode empty Packet."));
}

TEST(DecoderCalls, ADecoderThatWasOpenedAtTheSecondTryTellsThatItCannotBeDrained) {
    auto decoder = std::make_unique<DecoderBase>();
    Dictionary options = decoder->prepareCodec(std::nullopt, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    {
        const auto open =
            calls().avcodecOpen2.replace([](void*, const void*, void**) -> int { return AVERROR(ENOMEM); });
        EXPECT_THROW(decoder->openCodec(options), FFmpegError);
    }
    decoder->openCodec(options);
    const LogCapture log;
    const auto receive = calls().avcodecReceiveFrame.replace([](void*, void*) { return AVERROR(ENOMEM); });
    decoder.reset();
    EXPECT_THAT(log.texts(), ElementsAre("rawvideo Decoder draining is failed: " + std::string(kNoMemory)));
}

TEST(DecoderCalls, OpenBringsTheCodecBackThatFfmpegClears) {
    DecoderBase decoder;
    Dictionary options = decoder.prepareCodec(std::nullopt, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    const AVCodec* const codec = decoder.codecContext()->codec;
    {
        const auto open =
            calls().avcodecOpen2.replace([codec](void* context, const void* wanted, void** options2) {
                EXPECT_EQ(wanted, codec);
                static_cast<AVCodecContext*>(context)->codec = nullptr;
                av_dict_set(reinterpret_cast<AVDictionary**>(options2), "left", "over", 0);
                return AVERROR(ENOMEM);
            });
        EXPECT_THROW_TEXT(FFmpegError,
                          "Could not open decoder \"rawvideo\" FFmpeg AV_ERROR: " + std::string(kNoMemory),
                          decoder.openCodec(options));
    }
    EXPECT_EQ(decoder.codecContext()->codec, codec);
    EXPECT_EQ(options.getValue("left"), "over");
    decoder.openCodec(options);
    EXPECT_EQ(options.getValue("left"), "over");
}

TEST(DecoderCalls, ADecoderOfASourceIsOpenedWithoutThreads) {
    FormatContext source = opened(plainFile());
    std::optional<std::string> threadType;
    int count = 0;
    const auto open = calls().avcodecOpen2.replace([&](void* context, const void* codec, void** options) {
        auto* const dictionary = *reinterpret_cast<AVDictionary**>(options);
        count = av_dict_count(dictionary);
        if (const AVDictionaryEntry* entry = av_dict_get(dictionary, "thread_type", nullptr, 0)) {
            threadType = entry->value;
        }
        return calls().avcodecOpen2.real(context, codec, options);
    });
    EXPECT_NE(source.getCodecContext(0), nullptr);
    EXPECT_EQ(threadType, "0");
    EXPECT_EQ(count, 1);
}

TEST(DecoderCalls, AFailureOfASourcesDecoderIsLoggedWithItsTextAlone) {
    FormatContext source = opened(plainFile());
    const auto alloc = calls().avcodecAllocContext3.replace([](const void*) -> void* { return nullptr; });
    const LogCapture log(6);
    EXPECT_EQ(source.getCodecContext(0), nullptr);
    EXPECT_EQ(source.getCodecContext(0), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(Line{1, "Could not open codec mjpeg: " + std::string(kNoMemory)}));
}

TEST(DecoderCalls, ADecoderThatIsNotFoundAtItsOpeningIsLoggedAsMissing) {
    FormatContext source = opened(plainFile());
    const auto open = calls().avcodecOpen2.replace(
        [](void*, const void*, void**) -> int { return AVERROR_DECODER_NOT_FOUND; });
    const LogCapture log(5);
    EXPECT_EQ(source.getCodecContext(0), nullptr);
    EXPECT_EQ(source.getCodecContext(0), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(Line{1, "Codec mjpeg not found"}));
}

TEST(DecoderCalls, AnExceptionOfAnotherKindPassesAndTheNextRequestTriesAgain) {
    FormatContext source = opened(plainFile());
    const LogCapture log(1);
    {
        const auto open = calls().avcodecOpen2.replace(
            [](void*, const void*, void**) -> int { throw std::runtime_error("no device"); });
        EXPECT_THROW_TEXT(std::runtime_error, "no device", (void)source.getCodecContext(0));
    }
    EXPECT_THAT(log.texts(), ElementsAre("mjpeg Decoder draining is failed: #-22: Invalid argument"));
    EXPECT_NE(source.getCodecContext(0), nullptr);
}

// The decoders that an FFmpeg has, and the chosen one.
struct HardwareRow {
    const char* name;
    AVCodecID id;
    std::vector<std::string> present;
    std::vector<std::string> tried;
    std::string chosen;
    std::vector<std::string> options;
};

class HardwareChoice : public testing::TestWithParam<HardwareRow> {};

TEST_P(HardwareChoice, IsTheFirstThatThereIsWithItsOptions) {
    const HardwareRow& row = GetParam();
    AVCodec codec{};
    std::vector<std::string> tried;
    const auto find = calls().avcodecFindDecoderByName.replace([&](const char* name) -> const void* {
        tried.emplace_back(name);
        codec.name = name;
        return std::count(row.present.begin(), row.present.end(), name) != 0 ? &codec : nullptr;
    });
    const test::Parameters parameters = test::makeParameters(AVMEDIA_TYPE_VIDEO, row.id);
    const auto chosen = VideoDecoder::chooseCodec(*parameters, VideoDecoder::Acceleration::Hardware);
    EXPECT_EQ(tried, row.tried);
    ASSERT_EQ(chosen.has_value(), !row.chosen.empty());
    if (!chosen) {
        return;
    }
    EXPECT_EQ(chosen->codec, &codec);
    EXPECT_EQ(codec.name, row.chosen);
    std::vector<std::string> options;
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(chosen->options.get(), "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        options.push_back(std::string(entry->key) + "=" + entry->value);
    }
    EXPECT_EQ(options, row.options);
}

INSTANTIATE_TEST_SUITE_P(, HardwareChoice,
                         testing::Values(HardwareRow{.name = "H264First",
                                                     .id = AV_CODEC_ID_H264,
                                                     .present = {"h264_omx", "h264_qsv"},
                                                     .tried = {"h264_qsv"},
                                                     .chosen = "h264_qsv",
                                                     .options = {"async_depth=1"}},
                                         HardwareRow{.name = "H264Second",
                                                     .id = AV_CODEC_ID_H264,
                                                     .present = {"h264_omx", "hevc_qsv"},
                                                     .tried = {"h264_qsv", "h264_omx"},
                                                     .chosen = "h264_omx",
                                                     .options = {"bframes_disabled=1"}},
                                         HardwareRow{.name = "H264None",
                                                     .id = AV_CODEC_ID_H264,
                                                     .present = {"hevc_qsv", "hevc_omx", "mjpeg_qsv"},
                                                     .tried = {"h264_qsv", "h264_omx"},
                                                     .chosen = "",
                                                     .options = {}},
                                         HardwareRow{.name = "HevcFirst",
                                                     .id = AV_CODEC_ID_HEVC,
                                                     .present = {"hevc_omx", "hevc_qsv"},
                                                     .tried = {"hevc_qsv"},
                                                     .chosen = "hevc_qsv",
                                                     .options = {"async_depth=1", "load_plugin=none"}},
                                         HardwareRow{.name = "HevcSecond",
                                                     .id = AV_CODEC_ID_HEVC,
                                                     .present = {"hevc_omx"},
                                                     .tried = {"hevc_qsv", "hevc_omx"},
                                                     .chosen = "hevc_omx",
                                                     .options = {"bframes_disabled=1"}},
                                         HardwareRow{.name = "Mjpeg",
                                                     .id = AV_CODEC_ID_MJPEG,
                                                     .present = {"mjpeg_qsv"},
                                                     .tried = {"mjpeg_qsv"},
                                                     .chosen = "mjpeg_qsv",
                                                     .options = {"async_depth=1"}},
                                         HardwareRow{.name = "MjpegNone",
                                                     .id = AV_CODEC_ID_MJPEG,
                                                     .present = {"mjpeg_omx"},
                                                     .tried = {"mjpeg_qsv"},
                                                     .chosen = "",
                                                     .options = {}},
                                         HardwareRow{.name = "AnotherCodec",
                                                     .id = AV_CODEC_ID_VP9,
                                                     .present = {"vp9_qsv"},
                                                     .tried = {},
                                                     .chosen = "",
                                                     .options = {}}),
                         [](const auto& row) { return row.param.name; });

// Counts what drain() does.
struct DrainCalls {
    int nulls = 0;
    int flushes = 0;
    test::Call<int(void*, const void*)>::Replaced send =
        calls().avcodecSendPacket.replace([this](void* context, const void* packet) {
            nulls += packet == nullptr ? 1 : 0;
            return calls().avcodecSendPacket.real(context, packet);
        });
    test::Call<void(void*)>::Replaced flush = calls().avcodecFlushBuffers.replace([this](void* context) {
        ++flushes;
        calls().avcodecFlushBuffers.real(context);
    });
};

TEST(DrainCalls, SendNullFetchUntilTheEndAndFlush) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    ASSERT_TRUE(decoder.send(makePacket(kRawSize)).ok);
    const DrainCalls drain;
    int frames = 0;
    const auto receive = calls().avcodecReceiveFrame.replace([&frames](void* context, void* frame) {
        const int res = calls().avcodecReceiveFrame.real(context, frame);
        frames += res >= 0 ? 1 : 0;
        return res;
    });
    EXPECT_TRUE(decoder.drain().ok);
    EXPECT_EQ(drain.nulls, 1);
    EXPECT_EQ(frames, 1);
    EXPECT_EQ(drain.flushes, 1);
}

bool takesAPacket(const DecoderBase& decoder) {
    return decoder.send(makePacket(kRawSize)).ok && decoder.receiveAvFrame().has_value();
}

TEST(DrainCalls, AFailureToSendEndsItWithAFlush) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    const DrainCalls drain;
    bool received = false;
    {
        const auto send = calls().avcodecSendPacket.replace([](void*, const void*) { return AVERROR(EIO); });
        const auto receive = calls().avcodecReceiveFrame.replace([&received](void*, void*) {
            received = true;
            return AVERROR_EOF;
        });
        EXPECT_EQ(decoder.drain().error, AvError(AVERROR(EIO)));
    }
    EXPECT_FALSE(received);
    EXPECT_EQ(drain.flushes, 1);
    EXPECT_TRUE(takesAPacket(decoder));
}

TEST(DrainCalls, AFailureToReceiveIsReturnedAfterAFlush) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    const DrainCalls drain;
    for (int code : {AVERROR(EIO), AVERROR(EAGAIN), AVERROR_INVALIDDATA}) {
        SCOPED_TRACE(code);
        const auto receive = calls().avcodecReceiveFrame.replace([code](void*, void*) { return code; });
        EXPECT_EQ(decoder.drain().error, AvError(code));
    }
    EXPECT_EQ(drain.flushes, 3);
    EXPECT_TRUE(takesAPacket(decoder));
}

TEST(DrainCalls, WithoutMemoryForAFrameGiveOutOfMemory) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    const DrainCalls drain;
    {
        const auto alloc = calls().avFrameAlloc.replace([]() -> void* { return nullptr; });
        EXPECT_EQ(decoder.drain().error, AvError::OutOfMemory);
    }
    EXPECT_EQ(drain.flushes, 1);
    EXPECT_TRUE(takesAPacket(decoder));
}

// After FFmpeg has run out of memory in a decoder, some codecs crash when they are called.
TEST(GivenUpDecoder, IsNotCalledAnyMoreUntilItIsPreparedAgain) {
    const LogCapture log;
    {
        VideoDecoder decoder;
        prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
        EXPECT_FALSE(decoder.isGivenUp());
        {
            const auto send =
                calls().avcodecSendPacket.replace([](void*, const void*) { return AVERROR(ENOMEM); });
            EXPECT_EQ(decoder.send(makePacket(kRawSize)).error, AvError::OutOfMemory);
        }
        EXPECT_TRUE(decoder.isGivenUp());
        Dictionary options;
        decoder.openCodec(options);
        EXPECT_TRUE(decoder.isGivenUp()) << "the codec is open already";
        {
            int called = 0;
            const auto send = calls().avcodecSendPacket.replace([&](void*, const void*) { return ++called; });
            const auto receive = calls().avcodecReceiveFrame.replace([&](void*, void*) { return ++called; });
            const auto flush = calls().avcodecFlushBuffers.replace([&](void*) { ++called; });
            EXPECT_EQ(decoder.send(makePacket(kRawSize)).error, AvError::OutOfMemory);
            EXPECT_EQ(decoder.receiveAvFrame().error(), AvError::OutOfMemory);
            EXPECT_EQ(decoder.drain().error, AvError::OutOfMemory);
            EXPECT_EQ(called, 0);
        }
        prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
        EXPECT_FALSE(decoder.isGivenUp());
        EXPECT_TRUE(takesAPacket(decoder));
        const auto receive =
            calls().avcodecReceiveFrame.replace([](void*, void*) { return AVERROR(ENOMEM); });
        EXPECT_EQ(decoder.receiveAvFrame().error(), AvError::OutOfMemory);
        EXPECT_TRUE(decoder.isGivenUp());
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(GivenUpDecoder, IsOneThatCouldNotBeDrainedForWantOfMemory) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    const DrainCalls drain;
    const auto receive = calls().avcodecReceiveFrame.replace([](void*, void*) { return AVERROR(ENOMEM); });
    EXPECT_EQ(decoder.drain().error, AvError::OutOfMemory);
    EXPECT_TRUE(decoder.isGivenUp());
    EXPECT_EQ(drain.flushes, 0);
}

TEST(GivenUpDecoder, OfASourceIsReplacedForTheNextPacket) {
    FormatContext source = opened(plainFile());
    const Packet packet = source.readPacket();
    const DecoderBase* const first = source.getCodecContext(0).get();
    {
        const LogCapture log;
        const auto receive =
            calls().avcodecReceiveFrame.replace([](void*, void*) { return AVERROR(ENOMEM); });
        EXPECT_TRUE(source.decodeVideoPacket(packet).empty());
        EXPECT_THAT(log.lines(), ElementsAre(Line{2, "Could not decode Video from " + plainFile() +
                                                         ":0: " + std::string(kNoMemory)}));
    }
    EXPECT_TRUE(first->isGivenUp());
    const LogCapture log;
    EXPECT_FALSE(source.decodeVideoPacket(packet).empty());
    EXPECT_FALSE(source.getCodecContext(0)->isGivenUp());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DrainCalls, TheDestructorDrainsAndLogsAFailure) {
    const LogCapture log(1);
    {
        std::optional<VideoDecoder> decoder(std::in_place);
        prepareAndOpen(*decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
        const auto receive = calls().avcodecReceiveFrame.replace([](void*, void*) { return AVERROR(EIO); });
        decoder.reset();
    }
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{1, "rawvideo Decoder draining is failed: #-5: Input/output error"}));
}

TEST(DrainCalls, CloseDrainsTheDecodersClosesTheSourceAndThenLogs) {
    std::vector<std::string> order;
    FormatContext source = opened(plainFile());
    (void)source.getCodecContext(0);
    const LogCapture log(5);
    const auto flush = calls().avcodecFlushBuffers.replace([&](void* context) {
        order.push_back("decoder, " + std::to_string(log.lines().size()) + " lines");
        calls().avcodecFlushBuffers.real(context);
    });
    const auto close = calls().avformatCloseInput.replace([&](void** context) {
        order.push_back("source, " + std::to_string(log.lines().size()) + " lines");
        calls().avformatCloseInput.real(context);
    });
    source.close();
    EXPECT_THAT(order, ElementsAre("decoder, 0 lines", "source, 0 lines"));
    EXPECT_THAT(log.texts(), ElementsAre(plainFile() + " closed, 0 packets read"));
}

TEST(PacketCalls, MakeReferenceWithoutMemoryGivesOutOfMemory) {
    const auto alloc = calls().avPacketAlloc.replace([]() -> void* { return nullptr; });
    EXPECT_EQ(makePacket(10).makeReference().error(), AvError::OutOfMemory);
}

}  // namespace
}  // namespace vidorra
