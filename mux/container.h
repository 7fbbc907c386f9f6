#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "mux/sink_output.h"
#include "vidorra/demux/packet.h"

struct AVFormatContext;
struct AVStream;

namespace vidorra {

/// A muxer of FFmpeg: streams, then the header, packets and the trailer, in this order. What is not ended is
/// given back without a trailer.
///
/// Errors: FFmpegError with the step and the place, or what the sink threw.
class Container {
public:
    /// The muxer of a name, or if that is empty the one for the path. Throws FFmpegError when FFmpeg has
    /// none.
    Container(const std::string& path, const std::string& format);
    ~Container();

    [[nodiscard]] const char* formatName() const noexcept;
    /// Whether the codec's parameters belong into the header.
    [[nodiscard]] bool wantsGlobalHeader() const noexcept;
    /// Whether it can be written in fragments.
    [[nodiscard]] bool hasFragments() const noexcept;
    /// Whether the muxer makes files by itself, and takes no sink.
    [[nodiscard]] bool makesFiles() const noexcept;
    /// Whether it stores times.
    [[nodiscard]] bool hasTimes() const noexcept;
    /// Whether times below 0 can be written.
    [[nodiscard]] bool takesNegativeTimes() const noexcept;
    /// Whether it stores the times of decoding, or presentation alone.
    [[nodiscard]] bool storesDecodingTimes() const noexcept;
    /// Whether the muxer or its base class has an option of this name.
    [[nodiscard]] bool hasOption(const std::string& name) const noexcept;

    /// Where the bytes go; `name` is what errors call it, and the path for muxers that make or read files.
    void setOutput(std::shared_ptr<ByteSink> sink, const std::string& name);

    /// Adds a stream, to be described before begin(). It belongs to the container.
    AVStream& addStream();

    /// Takes a codec's tag of another container away where it means nothing in this one, which then chooses.
    void dropForeignTag(AVStream& stream) const;

    /// Writes the header. Streams have the container's time bases then.
    void begin(const std::map<std::string, std::string>& options,
               std::optional<std::chrono::microseconds> fragmentDuration);

    /// Writes a packet with the index, and in the time base, of its stream.
    void write(Packet packet);

    /// Writes what is left, the trailer, and all bytes into the sink.
    void end();

    [[nodiscard]] const AVStream& stream(int index) const noexcept;

private:
    struct Free {
        void operator()(AVFormatContext* context) const;
    };

    [[nodiscard]] std::map<std::string, std::string> fragmentOptions(
        std::optional<std::chrono::microseconds> duration) const;
    void check(int code, const char* step) const;

    std::string mName;
    // Released after the context, which refers to it.
    std::optional<SinkOutput> mOutput;
    std::unique_ptr<AVFormatContext, Free> mContext;
};

}  // namespace vidorra
