#include "vidorra/image_file/picture_file.h"

#include <chrono>
#include <cstddef>
#include <fstream>
#include <ios>
#include <stdexcept>
#include <utility>

#include "core/shown_url.h"
#include "ffmpeg/owners.h"
#include "ffmpeg/pixel_formats.h"
#include "objstream/object.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/core/bad_cast.h"
#include "vidorra/core/format.h"
#include "vidorra/demux/format_context.h"
#include "vidorra/encode/video_encoder.h"
#include "vidorra/picture/video_frame.h"
#include "vidorra/process/color_space_converter.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
}

namespace vidorra {
namespace {

AVCodecID guessCodec(const std::string& filename) {
    // Not const with every FFmpeg version.
    auto* format = av_guess_format(nullptr, filename.c_str(), nullptr);
    if (format == nullptr) {
        throw std::runtime_error(fmt::format("Could not find format for {}", shownUrl(filename)));
    }
    return av_guess_codec(format, nullptr, filename.c_str(), nullptr, AVMEDIA_TYPE_VIDEO);
}

objstream::object encoderConfig(const Picture& picture, AVCodecID codec) {
    // Deliberate: the same rate and quality for all codecs; those that know neither ignore them.
    constexpr int kBitRate = 2304;
    constexpr int kLargestQuantizer = 8;
    objstream::object config;
    config["codec_id"] = objstream::object(to_string(codec));
    config["width"] = objstream::object(picture.frameSize().width);
    config["height"] = objstream::object(picture.frameSize().height);
    config["timebase_num"] = objstream::object(1);
    config["timebase_den"] = objstream::object(1);
    config["pix_fmt"] = objstream::object(to_string(picture.pixelFormat()));
    config["options"]["b"] = objstream::object(kBitRate);
    config["options"]["qmax"] = objstream::object(kLargestQuantizer);
    return config;
}

AvPtr<AVIOContext> createFile(const std::string& filename) {
    AVIOContext* file = nullptr;
    if (avio_open(&file, filename.c_str(), AVIO_FLAG_WRITE) < 0) {
        throw std::runtime_error(fmt::format("Could not open output file {}", shownUrl(filename)));
    }
    return ffmpeg_ext::adopt(file);
}

// The one packet that is the whole file.
Packet encode(VideoEncoder& encoder, Picture&& picture) {
    constexpr int kAttempts = 10;
    AvRes result = encoder.sendFrame(VideoFrame(std::move(picture), Timestamp(), Frame::NoFlags));
    if (!result.ok) {
        throw std::runtime_error(fmt::format("Encoding failed: {}", result));
    }
    Packet packet;
    for (int i = 0; i < kAttempts; ++i) {
        tl::expected<Packet, AvError> received = encoder.receivePacket();
        if (received) {
            packet = std::move(*received);
            break;
        }
        // Deliberate: tries again after any error; the last error is reported.
        result = received.error();
    }
    if (packet.size < 1) {
        throw std::runtime_error(fmt::format("Encoding failed: {}", result));
    }
    return packet;
}

// Reads a plane whose rows have no padding.
void readPlane(std::ifstream& file, const Picture& picture, std::size_t plane, int rows) {
    file.read(reinterpret_cast<char*>(picture.data()[plane]),
              std::streamsize{picture.linesize()[plane]} * rows);
}

}  // namespace

Picture loadPicture(const std::string& filename, AVPixelFormat format, AVColorRange range) {
    Picture picture;
    {
        FormatContext source;
        source.setUrl(filename);
        try {
            source.open("", false, std::chrono::microseconds(0));
        } catch (const std::runtime_error&) {
            throw std::runtime_error(fmt::format("Couldn't open file: {}", shownUrl(filename)));
        }
        const Packet packet = source.readPacket();
        if (packet.size < 1) {
            throw std::runtime_error(
                fmt::format("no ffmpeg packet while loading file: {}", shownUrl(filename)));
        }
        picture = std::move(source.decodeVideoPacket(packet).picture());
    }
    if (picture.empty()) {
        throw std::runtime_error(fmt::format("empty while loading file: {}", shownUrl(filename)));
    }
    if (format != AV_PIX_FMT_NONE) {
        return ColorSpaceConverter::convertTo(picture, format, range);
    }
    picture.markModified();
    return picture;
}

Picture loadPictureFromYUV420PFile(const std::string& filename, const Size& size, AVColorRange range) {
    if (size.width < 2 || size.width % 2 != 0) {
        throw std::invalid_argument(
            fmt::format("Size width must be even and greater than zero, received width {}", size.width));
    }
    if (size.height < 2 || size.height % 2 != 0) {
        throw std::invalid_argument(
            fmt::format("Size height must be even and greater than zero, received height {}", size.height));
    }
    std::ifstream file(filename, std::ios::binary);
    file.seekg(0, std::ios::end);
    const std::streamoff end = file.tellg();
    file.seekg(0, std::ios::beg);
    // A file that cannot be opened has -1 at both ends.
    const std::streamoff actual = end - file.tellg();
    const int expected = ffmpeg_ext::imageBufferSize(AV_PIX_FMT_YUV420P, size.width, size.height, 1);
    if (actual != expected) {
        throw std::invalid_argument(
            fmt::format("Incorrect file size; expected {}, actual {}", expected, actual));
    }
    Picture picture(size, AV_PIX_FMT_YUV420P, range, 1);
    readPlane(file, picture, 0, size.height);
    readPlane(file, picture, 1, size.height / 2);
    readPlane(file, picture, 2, size.height / 2);
    if (!file) {
        throw std::runtime_error(fmt::format("Could not read file {}", filename));
    }
    return picture;
}

void savePicture(Picture picture, const std::string& filename, AVCodecID codec) {
    if (codec == AV_CODEC_ID_NONE) {
        codec = guessCodec(filename);
    }
    const Size size = picture.frameSize();
    if (picture.empty() || size.width < 1 || size.height < 1) {
        throw BadCast(fmt::format("savePicture: the picture for {} has no pixels", filename));
    }
    const AVPixelFormat best = VideoEncoder::chooseBestPixelFormat(codec, picture.pixelFormat());
    if (best != AV_PIX_FMT_NONE) {
        picture = ColorSpaceConverter::convertTo(picture, best, AVCOL_RANGE_UNSPECIFIED);
    }
    VideoEncoder encoder(encoderConfig(picture, codec));
    const AvPtr<AVIOContext> file = createFile(filename);
    const Packet packet = encode(encoder, std::move(picture));
    avio_write(file.get(), packet.data, packet.size);
    avio_flush(file.get());
    if (file->error < 0) {
        throw std::runtime_error(fmt::format("Could not write output file {}", shownUrl(filename)));
    }
}

}  // namespace vidorra
