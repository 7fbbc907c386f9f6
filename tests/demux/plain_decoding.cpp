#include "demux/plain_decoding.h"

#include <stdexcept>

#include "ffmpeg/frame_duration.h"
#include "support/media.h"
#include "support/process.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra::test {
namespace {

__extension__ using Wide = __int128;

std::int64_t inMicroseconds(std::int64_t count, std::int64_t numerator, std::int64_t denominator) {
    return roundedQuotient(count, numerator * 1000000, denominator);
}

void check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(what);
    }
}

struct Input {
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();

    Input() = default;
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    ~Input() {
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&codec);
        avformat_close_input(&format);
    }

    void open(const Sound& sound) {
        check(avformat_open_input(&format, fileOf(sound).c_str(), nullptr, nullptr), "open");
        check(avformat_find_stream_info(format, nullptr), "stream info");
        const AVCodecParameters* parameters = format->streams[sound.stream]->codecpar;
        const AVCodec* decoder = avcodec_find_decoder(parameters->codec_id);
        codec = avcodec_alloc_context3(decoder);
        check(avcodec_parameters_to_context(codec, parameters), "parameters");
        codec->thread_count = 1;
        check(avcodec_open2(codec, decoder, nullptr), "decoder");
    }
};

std::vector<std::uint8_t> bytesOf(const AVFrame& frame, int channels) {
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const bool planar = av_sample_fmt_is_planar(format) != 0;
    return interleaved(
        std::vector<const std::uint8_t*>(frame.extended_data, frame.extended_data + (planar ? channels : 1)),
        frame.nb_samples, channels, av_get_bytes_per_sample(format));
}

std::int64_t number(const std::string& text) {
    return text == "N/A" ? kNoTime : std::stoll(text);
}

const char* uncompressed(AVSampleFormat format) {
    switch (av_get_packed_sample_fmt(format)) {
    case AV_SAMPLE_FMT_U8:
        return "u8";
    case AV_SAMPLE_FMT_S16:
        return "s16le";
    case AV_SAMPLE_FMT_S32:
        return "s32le";
    case AV_SAMPLE_FMT_FLT:
        return "f32le";
    case AV_SAMPLE_FMT_DBL:
        return "f64le";
    default:
        throw std::out_of_range("no such format");
    }
}

}  // namespace

std::int64_t roundedQuotient(std::int64_t factor, std::int64_t otherFactor, std::int64_t divisor) {
    const Wide product = static_cast<Wide>(factor) * otherFactor;
    const Wide magnitude = product < 0 ? -product : product;
    const Wide rounded = (2 * magnitude + divisor) / (2 * static_cast<Wide>(divisor));
    return static_cast<std::int64_t>(product < 0 ? -rounded : rounded);
}

Repaired repaired(std::int64_t samples, std::int64_t time, std::int64_t duration, int rate) {
    if (duration <= 0) {
        return {samples, time};
    }
    const std::int64_t expected = roundedQuotient(duration, rate, 1000000);
    if (samples >= expected) {
        return {expected, time};
    }
    const std::int64_t missing = roundedQuotient(expected - samples, 1000000, rate);
    return {samples, time == kNoTime ? kNoTime : time + missing};
}

PlainSound decodePlainly(const Sound& sound) {
    Input input;
    input.open(sound);
    const AVRational base = input.format->streams[sound.stream]->time_base;
    PlainSound result;
    const auto keep = [&] {
        result.frames.push_back({result.packets.size() - 1, input.frame->nb_samples,
                                 input.frame->best_effort_timestamp, ffmpeg_ext::frameDuration(*input.frame),
                                 bytesOf(*input.frame, sound.channels)});
        av_frame_unref(input.frame);
    };
    for (; av_read_frame(input.format, input.packet) == 0; av_packet_unref(input.packet)) {
        AVPacket& packet = *input.packet;
        if (packet.stream_index != static_cast<int>(sound.stream)) {
            continue;
        }
        for (std::int64_t* time : {&packet.pts, &packet.dts}) {
            *time = *time == kNoTime ? kNoTime : inMicroseconds(*time, base.num, base.den);
        }
        packet.duration = inMicroseconds(packet.duration, base.num, base.den);
        packet.pts = packet.pts == kNoTime ? packet.dts : packet.pts;
        packet.dts = packet.dts == kNoTime ? packet.pts : packet.dts;
        result.packets.push_back({packet.pts, packet.duration});
        if (packet.size == 0) {
            continue;
        }
        const int sent = avcodec_send_packet(input.codec, &packet);
        if (sent < 0 && sent != AVERROR(EAGAIN)) {
            ++result.refused;
            continue;
        }
        const int received = avcodec_receive_frame(input.codec, input.frame);
        if (sent == 0) {
            if (received == 0) {
                keep();
            }
        } else if (received < 0 || avcodec_send_packet(input.codec, &packet) < 0) {
            ++result.refused;
            av_frame_unref(input.frame);
        } else {
            keep();
        }
    }
    avcodec_send_packet(input.codec, nullptr);
    while (avcodec_receive_frame(input.codec, input.frame) == 0) {
        ++result.drained;
    }
    return result;
}

ProgramSound decodeByPrograms(const Sound& sound) {
    const std::string path = fileOf(sound).string();
    ProgramSound result;
    std::int64_t numerator = 0;
    std::int64_t denominator = 0;
    std::vector<std::vector<std::int64_t>> packets;
    for (const std::string& line :
         lines(run({"ffprobe", "-v", "error", "-select_streams", std::to_string(sound.stream),
                    "-show_entries", "packet=pts,dts,duration:stream=time_base", "-of", "compact", path}))) {
        std::vector<std::int64_t> times = {kNoTime, kNoTime, 0};
        for (const std::string& part : split(line, '|')) {
            const std::size_t equals = part.find('=');
            const std::string key = part.substr(0, equals);
            const std::string value = equals == std::string::npos ? "" : part.substr(equals + 1);
            if (key == "time_base") {
                numerator = std::stoll(value);
                denominator = std::stoll(value.substr(value.find('/') + 1));
            } else if (key == "pts") {
                times[0] = number(value);
            } else if (key == "dts") {
                times[1] = number(value);
            } else if (key == "duration") {
                times[2] = value == "N/A" ? 0 : number(value);
            }
        }
        if (line.rfind("packet|", 0) == 0) {
            packets.push_back(times);
        }
    }
    for (const std::vector<std::int64_t>& times : packets) {
        const std::int64_t time = times[0] != kNoTime ? times[0] : times[1];
        result.packets.push_back({time == kNoTime ? kNoTime : inMicroseconds(time, numerator, denominator),
                                  inMicroseconds(times[2], numerator, denominator)});
    }

    const std::string stream = "0:" + std::to_string(sound.stream);
    const std::string raw = (temporaryFolder() / (std::string(sound.name) + ".raw")).string();
    const std::string format = uncompressed(sound.format);
    const std::string encoder = "pcm_" + format;
    const std::string table =
        run(joined({{"ffmpeg", "-hide_banner", "-loglevel", "error", "-nostdin", "-y", "-copyts"},
                    {"-c:a", sound.decoder, "-i", path},
                    {"-map", stream, "-c:a", encoder, "-f", format, raw},
                    {"-map", stream, "-c:a", encoder, "-f", "framecrc", "-"}}));
    const std::string samples = fileContent(raw);
    std::size_t position = 0;
    for (const std::string& line : lines(table)) {
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const std::size_t size = std::stoul(split(line, ',').at(4));
        const auto begin = samples.begin() + static_cast<std::ptrdiff_t>(position);
        result.frames.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(size));
        position += size;
    }
    if (position != samples.size()) {
        throw std::runtime_error("the table of frames does not fit the samples");
    }
    return result;
}

std::vector<std::uint8_t> interleaved(const std::vector<const std::uint8_t*>& planes, std::int64_t samples,
                                      int channels, int sampleBytes) {
    std::vector<std::uint8_t> bytes;
    if (planes.size() == 1) {
        bytes.assign(planes[0], planes[0] + samples * channels * sampleBytes);
        return bytes;
    }
    bytes.reserve(static_cast<std::size_t>(samples * channels * sampleBytes));
    for (std::int64_t i = 0; i < samples; ++i) {
        for (const std::uint8_t* plane : planes) {
            bytes.insert(bytes.end(), plane + i * sampleBytes, plane + (i + 1) * sampleBytes);
        }
    }
    return bytes;
}

}  // namespace vidorra::test
