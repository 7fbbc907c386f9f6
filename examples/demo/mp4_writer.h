#pragma once

#include <memory>
#include <string>
#include <vector>

#include <vidorra/vidorra.h>

struct AVFormatContext;

namespace demo {

/// Writes the packets of encoders into an FFmpeg container, chosen by the file's name.
///
///     Mp4Writer writer("out.mp4");
///     const int video = writer.addStream(encoder);
///     writer.begin();
///     writer.write(packet, video);
///     writer.end();
///
/// Throws std::runtime_error when FFmpeg fails.
class Mp4Writer {
public:
    explicit Mp4Writer(const std::string& path);
    Mp4Writer(const Mp4Writer&) = delete;
    Mp4Writer& operator=(const Mp4Writer&) = delete;
    ~Mp4Writer();

    /// Adds the stream of an open encoder and returns its number.
    int addStream(const vidorra::EncoderBase& encoder);

    /// Creates the file. No stream can be added afterwards.
    void begin();

    /// Writes a packet, whose times are in the time base of the encoder.
    void write(const vidorra::Packet& packet, int stream);

    /// Completes the file.
    void end();

private:
    struct Close {
        void operator()(AVFormatContext* container) const;
    };

    std::string mPath;
    std::unique_ptr<AVFormatContext, Close> mContainer;
    // The time bases of the encoders, one for each stream.
    std::vector<AVRational> mTimebases;
};

}  // namespace demo
