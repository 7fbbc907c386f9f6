#include "vidorra/mux/media_file_writer.h"

#include <utility>

#include "mux/writer_work.h"

namespace vidorra {

MediaFileWriter::MediaFileWriter(const std::string& path, WriterOptions options)
    : mWork(std::make_unique<Work>(path, std::move(options))) {}

MediaFileWriter::MediaFileWriter(std::shared_ptr<ByteSink> sink, WriterOptions options)
    : mWork(std::make_unique<Work>(std::move(sink), std::move(options))) {}

MediaFileWriter::MediaFileWriter(MediaFileWriter&& other) noexcept = default;

MediaFileWriter& MediaFileWriter::operator=(MediaFileWriter&& other) noexcept = default;

MediaFileWriter::~MediaFileWriter() = default;

MediaFileWriter::Track MediaFileWriter::addVideo(const objstream::object& config) {
    return mWork->addTrack([&](std::size_t number, WriterTrack::Take take) {
        return makeVideoTrack(config, mWork->encoderNeeds(), number, std::move(take));
    });
}

MediaFileWriter::Track MediaFileWriter::addAudio(const objstream::object& config) {
    return mWork->addTrack([&](std::size_t number, WriterTrack::Take take) {
        return makeAudioTrack(config, mWork->encoderNeeds(), number, std::move(take));
    });
}

MediaFileWriter::Track MediaFileWriter::addPackets(const AVCodecParameters& parameters, Timebase timebase) {
    return mWork->addTrack([&](std::size_t number, WriterTrack::Take take) {
        return makePacketTrack(parameters, timebase, number, std::move(take));
    });
}

void MediaFileWriter::write(Track track, const VideoFrame& frame) {
    mWork->write(track, frame);
}

void MediaFileWriter::write(Track track, const AudioFrame& frame) {
    mWork->write(track, frame);
}

void MediaFileWriter::write(Track track, const Packet& packet) {
    mWork->write(track, packet);
}

void MediaFileWriter::end(Track track) {
    mWork->end(track);
}

WriterReport MediaFileWriter::finish() {
    return mWork->finish();
}

}  // namespace vidorra
