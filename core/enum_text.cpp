#include "vidorra/core/enum_text.h"

#include <istream>
#include <ostream>

#include "ffmpeg/pixel_formats.h"
#include "vidorra/core/bad_cast.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
}

namespace {

static_assert(vidorra::NVA12 == vidorra::ffmpeg_ext::kNva12);

template <class Enum>
std::string nameOrNumber(const char* name, const char* enumName, Enum value) {
    return name != nullptr ? std::string(name) : fmt::format("{}({})", enumName, static_cast<int>(value));
}

std::string readWord(std::istream& stream) {
    std::string word;
    stream >> word;
    return word;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, AVPixelFormat format) {
    return stream << vidorra::to_string(format);
}

std::ostream& operator<<(std::ostream& stream, AVColorRange range) {
    return stream << vidorra::to_string(range);
}

std::ostream& operator<<(std::ostream& stream, AVSampleFormat format) {
    return stream << nameOrNumber(av_get_sample_fmt_name(format), "AVSampleFormat", format);
}

std::ostream& operator<<(std::ostream& stream, AVCodecID id) {
    return stream << vidorra::to_string(id);
}

std::istream& operator>>(std::istream& stream, AVPixelFormat& format) {
    const std::string word = readWord(stream);
    format = vidorra::ffmpeg_ext::pixelFormatFromName(word.c_str());
    if (format == AV_PIX_FMT_NONE) {
        throw vidorra::BadCast(fmt::format("Unknown pixel format {}", word));
    }
    return stream;
}

std::istream& operator>>(std::istream& stream, AVColorRange& range) {
    const std::string word = readWord(stream);
    const int found = av_color_range_from_name(word.c_str());
    // Before version 9 FFmpeg accepts every word that begins with a name.
    if (found < 0 || word != av_color_range_name(static_cast<AVColorRange>(found))) {
        throw vidorra::BadCast(fmt::format("Unknown color range {}", word));
    }
    range = static_cast<AVColorRange>(found);
    return stream;
}

std::istream& operator>>(std::istream& stream, AVSampleFormat& format) {
    const std::string word = readWord(stream);
    format = av_get_sample_fmt(word.c_str());
    if (format == AV_SAMPLE_FMT_NONE) {
        throw vidorra::BadCast(fmt::format("Unknown sample format {}", word));
    }
    return stream;
}

std::istream& operator>>(std::istream& stream, AVCodecID& id) {
    const std::string word = readWord(stream);
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get_by_name(word.c_str());
    if (descriptor == nullptr) {
        throw vidorra::BadCast(fmt::format("Unknown codec id {}", word));
    }
    id = descriptor->id;
    return stream;
}

namespace vidorra {

std::string to_string(AVPixelFormat format) {
    return nameOrNumber(ffmpeg_ext::pixelFormatName(format), "AVPixelFormat", format);
}

std::string to_string(AVColorRange range) {
    return nameOrNumber(av_color_range_name(range), "AVColorRange", range);
}

std::string to_string(AVCodecID id) {
    return nameOrNumber(avcodec_get_name(id), "AVCodecID", id);
}

}  // namespace vidorra
