#include "vidorra/core/enum_text.h"

#include <cstring>
#include <sstream>

#include "support/throw_text.h"
#include "vidorra/core/bad_cast.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra {
namespace {

static_assert(static_cast<int>(NVA12) == 193);

template <class T>
std::string streamed(T value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

template <class T>
T parsed(const std::string& text) {
    std::istringstream stream(text);
    T value{};
    stream >> value;
    return value;
}

template <class T>
concept HasToString = requires(T value) {
    vidorra::to_string(value);
};
static_assert(HasToString<AVPixelFormat> && HasToString<AVColorRange> && HasToString<AVCodecID>);
static_assert(!HasToString<AVSampleFormat>);

TEST(PixelFormatText, OfEveryFormatGoesOutAndComesBackIn) {
    int count = 0;
    for (const AVPixFmtDescriptor* format = nullptr; (format = av_pix_fmt_desc_next(format)) != nullptr;) {
        const AVPixelFormat value = av_pix_fmt_desc_get_id(format);
        if (value == NVA12) {
            continue;
        }
        ++count;
        SCOPED_TRACE(format->name);
        EXPECT_EQ(streamed(value), format->name);
        EXPECT_EQ(to_string(value), format->name);
        EXPECT_EQ(fmt::format("{}", value), format->name);
        EXPECT_EQ(parsed<AVPixelFormat>(format->name), value);
    }
    EXPECT_GT(count, 150);
}

TEST(PixelFormatText, OfNva12IsNva12) {
    EXPECT_EQ(streamed(NVA12), "nva12");
    EXPECT_EQ(to_string(NVA12), "nva12");
    EXPECT_EQ(fmt::format("{}", NVA12), "nva12");
    EXPECT_EQ(parsed<AVPixelFormat>("nva12"), NVA12);
}

// FFmpeg's own name for the number of NVA12; a build for devices has the format.
std::string foreignName() {
    const char* name = av_get_pix_fmt_name(NVA12);
    return name != nullptr ? name : "";
}

TEST(PixelFormatText, NameThatFFmpegGivesToTheNumberOfNva12IsUnknown) {
    const std::string name = foreignName();
    if (name == "nva12") {
        EXPECT_EQ(parsed<AVPixelFormat>(name), NVA12);
    } else {
        EXPECT_THROW_TEXT(BadCast, "Unknown pixel format " + name, parsed<AVPixelFormat>(name));
    }
    // FFmpeg also accepts a name without its byte order.
    if (name.size() > 2 && name.ends_with("le")) {
        const std::string shorter = name.substr(0, name.size() - 2);
        EXPECT_THROW_TEXT(BadCast, "Unknown pixel format " + shorter, parsed<AVPixelFormat>(shorter));
    }
}

TEST(PixelFormatText, OfAValueWithoutANameIsItsNumber) {
    EXPECT_EQ(streamed(static_cast<AVPixelFormat>(9999)), "AVPixelFormat(9999)");
    EXPECT_EQ(streamed(static_cast<AVPixelFormat>(-5)), "AVPixelFormat(-5)");
    EXPECT_EQ(streamed(AV_PIX_FMT_NONE), "AVPixelFormat(-1)");
    EXPECT_EQ(to_string(AV_PIX_FMT_NONE), "AVPixelFormat(-1)");
    EXPECT_EQ(fmt::format("{}", AV_PIX_FMT_NONE), "AVPixelFormat(-1)");
}

TEST(PixelFormatText, NameOfNv12IsNv12) {
    EXPECT_EQ(parsed<AVPixelFormat>("nv12"), AV_PIX_FMT_NV12);
}

TEST(PixelFormatText, AnUnknownWordThrowsAndLeavesMinusOne) {
    for (const std::string word : {"nosuchformat", "YUV420P", "yuv420", "nva12x", "NVA12", "23", "-1"}) {
        SCOPED_TRACE(word);
        std::istringstream stream(word);
        AVPixelFormat value = AV_PIX_FMT_NV12;
        EXPECT_THROW_TEXT(BadCast, "Unknown pixel format " + word, stream >> value);
        EXPECT_EQ(value, AV_PIX_FMT_NONE);
    }
}

TEST(ColorRangeText, OfEveryRangeGoesOutAndComesBackIn) {
    for (int i = 0; i < AVCOL_RANGE_NB; ++i) {
        const auto value = static_cast<AVColorRange>(i);
        const char* name = av_color_range_name(value);
        ASSERT_NE(name, nullptr);
        SCOPED_TRACE(name);
        EXPECT_EQ(streamed(value), name);
        EXPECT_EQ(to_string(value), name);
        EXPECT_EQ(fmt::format("{}", value), name);
        EXPECT_EQ(parsed<AVColorRange>(name), value);
    }
}

TEST(ColorRangeText, NamesAreThoseOfFFmpeg) {
    EXPECT_EQ(streamed(AVCOL_RANGE_UNSPECIFIED), "unknown");
    EXPECT_EQ(streamed(AVCOL_RANGE_MPEG), "tv");
    EXPECT_EQ(streamed(AVCOL_RANGE_JPEG), "pc");
}

TEST(ColorRangeText, OfAValueWithoutANameIsItsNumber) {
    EXPECT_EQ(streamed(static_cast<AVColorRange>(77)), "AVColorRange(77)");
    EXPECT_EQ(streamed(static_cast<AVColorRange>(-5)), "AVColorRange(-5)");
    EXPECT_EQ(to_string(AVCOL_RANGE_NB), fmt::format("AVColorRange({})", static_cast<int>(AVCOL_RANGE_NB)));
}

TEST(ColorRangeText, AnUnknownWordThrowsAndKeepsTheTarget) {
    for (const std::string word : {"full", "jpeg", "xtv", "TV", "t", "1"}) {
        SCOPED_TRACE(word);
        std::istringstream stream(word);
        AVColorRange value = AVCOL_RANGE_JPEG;
        EXPECT_THROW_TEXT(BadCast, "Unknown color range " + word, stream >> value);
        EXPECT_EQ(value, AVCOL_RANGE_JPEG);
    }
}

// FFmpeg before version 9 also takes words that only begin with a name.
TEST(ColorRangeText, IsTakenAsAWholeWord) {
    for (const std::string word : {"tvfoo", "pcx", "unknownrange", "t", "TV", "mpeg", "full"}) {
        AVColorRange value = AVCOL_RANGE_JPEG;
        std::istringstream stream(word);
        EXPECT_THROW_TEXT(BadCast, "Unknown color range " + word, stream >> value);
        EXPECT_EQ(value, AVCOL_RANGE_JPEG);
    }
}

TEST(SampleFormatText, OfEveryFormatGoesOutAndComesBackIn) {
    for (int i = 0; i < AV_SAMPLE_FMT_NB; ++i) {
        const auto value = static_cast<AVSampleFormat>(i);
        const char* name = av_get_sample_fmt_name(value);
        ASSERT_NE(name, nullptr);
        SCOPED_TRACE(name);
        EXPECT_EQ(streamed(value), name);
        EXPECT_EQ(parsed<AVSampleFormat>(name), value);
    }
}

TEST(SampleFormatText, OfAValueWithoutANameIsItsNumber) {
    EXPECT_EQ(streamed(AV_SAMPLE_FMT_NONE), "AVSampleFormat(-1)");
    EXPECT_EQ(streamed(static_cast<AVSampleFormat>(99)), "AVSampleFormat(99)");
    EXPECT_EQ(streamed(static_cast<AVSampleFormat>(-5)), "AVSampleFormat(-5)");
}

TEST(SampleFormatText, AnUnknownWordThrowsAndLeavesMinusOne) {
    for (const std::string word : {"float", "FLTP", "flt1", "8"}) {
        SCOPED_TRACE(word);
        std::istringstream stream(word);
        AVSampleFormat value = AV_SAMPLE_FMT_FLTP;
        EXPECT_THROW_TEXT(BadCast, "Unknown sample format " + word, stream >> value);
        EXPECT_EQ(value, AV_SAMPLE_FMT_NONE);
    }
}

TEST(CodecIdText, OfEveryCodecGoesOutAndComesBackIn) {
    int count = 0;
    for (const AVCodecDescriptor* codec = nullptr; (codec = avcodec_descriptor_next(codec)) != nullptr;) {
        ++count;
        SCOPED_TRACE(codec->name);
        EXPECT_EQ(streamed(codec->id), codec->name);
        EXPECT_EQ(to_string(codec->id), codec->name);
        EXPECT_EQ(fmt::format("{}", codec->id), codec->name);
        EXPECT_EQ(parsed<AVCodecID>(codec->name), codec->id);
    }
    EXPECT_GT(count, 400);
}

TEST(CodecIdText, OfAnyOtherValueIsWhatFFmpegSays) {
    EXPECT_EQ(streamed(AV_CODEC_ID_NONE), "none");
    const auto unknown = static_cast<AVCodecID>(0x7fffff);
    EXPECT_EQ(streamed(unknown), avcodec_get_name(unknown));
    EXPECT_EQ(to_string(unknown), avcodec_get_name(unknown));
}

TEST(CodecIdText, AnUnknownWordThrowsAndKeepsTheTarget) {
    // A name of a codec is meant and not one of its decoders or encoders.
    for (const std::string word : {"nosuchcodec", "libx264", "H264", "h26", "none", "unknown_codec", "27"}) {
        SCOPED_TRACE(word);
        std::istringstream stream(word);
        AVCodecID value = AV_CODEC_ID_AAC;
        EXPECT_THROW_TEXT(BadCast, "Unknown codec id " + word, stream >> value);
        EXPECT_EQ(value, AV_CODEC_ID_AAC);
    }
}

TEST(EnumText, InputReadsOneWordAfterWhitespace) {
    std::istringstream stream("  nv12\ttv \n fltp h264 rest");
    AVPixelFormat format{};
    AVColorRange range{};
    AVSampleFormat samples{};
    AVCodecID codec{};
    std::string rest;
    stream >> format >> range >> samples >> codec >> rest;
    EXPECT_EQ(format, AV_PIX_FMT_NV12);
    EXPECT_EQ(range, AVCOL_RANGE_MPEG);
    EXPECT_EQ(samples, AV_SAMPLE_FMT_FLTP);
    EXPECT_EQ(codec, AV_CODEC_ID_H264);
    EXPECT_EQ(rest, "rest");
}

TEST(EnumText, AnExhaustedStreamGivesAnEmptyWordWhichIsUnknown) {
    for (const char* text : {"", " \n "}) {
        EXPECT_THROW_TEXT(BadCast, "Unknown pixel format ", parsed<AVPixelFormat>(text));
        EXPECT_THROW_TEXT(BadCast, "Unknown color range ", parsed<AVColorRange>(text));
        EXPECT_THROW_TEXT(BadCast, "Unknown sample format ", parsed<AVSampleFormat>(text));
        EXPECT_THROW_TEXT(BadCast, "Unknown codec id ", parsed<AVCodecID>(text));
    }
}

TEST(EnumText, AnExhaustedStreamTreatsTargetsAsAnUnknownWordDoes) {
    std::istringstream stream("");
    AVPixelFormat format = AV_PIX_FMT_NV12;
    AVColorRange range = AVCOL_RANGE_JPEG;
    AVSampleFormat samples = AV_SAMPLE_FMT_FLTP;
    AVCodecID codec = AV_CODEC_ID_AAC;
    EXPECT_THROW(stream >> format, BadCast);
    EXPECT_THROW(stream >> range, BadCast);
    EXPECT_THROW(stream >> samples, BadCast);
    EXPECT_THROW(stream >> codec, BadCast);
    EXPECT_EQ(format, AV_PIX_FMT_NONE);
    EXPECT_EQ(range, AVCOL_RANGE_JPEG);
    EXPECT_EQ(samples, AV_SAMPLE_FMT_NONE);
    EXPECT_EQ(codec, AV_CODEC_ID_AAC);
}

TEST(EnumText, FormattersTakeTheSpecificationOfAString) {
    EXPECT_EQ(fmt::format("[{:>8}]", AV_PIX_FMT_NV12), "[    nv12]");
    EXPECT_EQ(fmt::format("[{:<8}]", NVA12), "[nva12   ]");
    EXPECT_EQ(fmt::format("[{:*^10.3}]", AV_PIX_FMT_YUV420P), "[***yuv****]");
    EXPECT_EQ(fmt::format("[{:{}}]", AVCOL_RANGE_MPEG, 4), "[tv  ]");
    EXPECT_EQ(fmt::format("[{:.1}]", AVCOL_RANGE_JPEG), "[p]");
    EXPECT_EQ(fmt::format("[{:->6}]", AV_CODEC_ID_H264), "[--h264]");
    EXPECT_EQ(fmt::format("[{:s}]", AV_CODEC_ID_H264), "[h264]");
}

// Releases of fmt that do not print an enumeration as a number refuse it.
template <class T>
std::string formatted(T value) {
    if constexpr (fmt::is_formattable<T>::value) {
        return fmt::format("{}", value);
    } else {
        return std::to_string(value);
    }
}

TEST(EnumText, ASampleFormatHasNoFormatterAndStandsAsItsNumber) {
    EXPECT_EQ(formatted(AV_SAMPLE_FMT_NONE), "-1");
    EXPECT_EQ(formatted(AV_SAMPLE_FMT_FLTP), "8");
    EXPECT_EQ(formatted(AVCOL_RANGE_MPEG), "tv");
}

}  // namespace
}  // namespace vidorra
