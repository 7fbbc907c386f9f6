#include "mp4_writer.h"

#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace demo {
namespace {

void check(vidorra::AvRes result, const std::string& what, const std::string& path) {
    if (!result.ok) {
        throw std::runtime_error(fmt::format("{}: {}: {}", path, what, result));
    }
}

}  // namespace

Mp4Writer::Mp4Writer(const std::string& path) : mPath(path) {
    AVFormatContext* container = nullptr;
    check(avformat_alloc_output_context2(&container, nullptr, nullptr, path.c_str()), "no such container",
          path);
    mContainer.reset(container);
}

Mp4Writer::~Mp4Writer() = default;

void Mp4Writer::Close::operator()(AVFormatContext* container) const {
    avio_closep(&container->pb);
    avformat_free_context(container);
}

int Mp4Writer::addStream(const vidorra::EncoderBase& encoder) {
    AVStream* stream = avformat_new_stream(mContainer.get(), nullptr);
    if (stream == nullptr) {
        throw std::bad_alloc();
    }
    check(encoder.fillCodecParameters(*stream->codecpar), "cannot describe the stream", mPath);
    // The container chooses its own tag.
    stream->codecpar->codec_tag = 0;
    stream->time_base = encoder.codecContext()->time_base;
    mTimebases.push_back(stream->time_base);
    return stream->index;
}

void Mp4Writer::begin() {
    check(avio_open(&mContainer->pb, mPath.c_str(), AVIO_FLAG_WRITE), "cannot create the file", mPath);
    check(avformat_write_header(mContainer.get(), nullptr), "cannot begin the file", mPath);
}

void Mp4Writer::write(const vidorra::Packet& packet, int stream) {
    vidorra::Packet copy(packet);
    const auto index = static_cast<std::size_t>(stream);
    if (copy.duration == 0) {
        // A picture lasts one unit of its time base. Otherwise the last picture would last no time, and
        // players would drop it.
        copy.duration = 1;
    }
    av_packet_rescale_ts(&copy, mTimebases.at(index), mContainer->streams[index]->time_base);
    copy.stream_index = stream;
    check(av_interleaved_write_frame(mContainer.get(), &copy), "cannot write", mPath);
}

void Mp4Writer::end() {
    check(av_write_trailer(mContainer.get()), "cannot complete the file", mPath);
    check(avio_closep(&mContainer->pb), "cannot close the file", mPath);
}

}  // namespace demo
