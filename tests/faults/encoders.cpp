// From frames to packets, with filters between them and without.
#include <optional>
#include <string>

#include "faults/digest.h"
#include "faults/scenario.h"
#include "faults/test_pictures.h"
#include "vidorra/encode/audio_encoder.h"
#include "vidorra/encode/video_encoder.h"

namespace vidorra::test {
namespace {

// One stream. A caller who goes on after a failure sends all frames, and receives what there is.
template <class Encoder, class Frame>
std::uint64_t encode(std::optional<Encoder>& encoder, const objstream::object& config,
                     const std::vector<Frame>& frames) {
    Digest digest;
    FirstFailure failure;
    encoder.reset();
    encoder.emplace(config);
    const auto receive = [&] {
        for (;;) {
            const tl::expected<Packet, AvError> packet = encoder->receivePacket();
            if (!packet) {
                if (packet.error() != AvError::Again && packet.error() != AvError::Eof) {
                    AvRes(packet.error()).throwIfError("no packet");
                }
                return;
            }
            digest.add(packet->pts);
            digest.add(std::string_view(reinterpret_cast<const char*>(packet->data),
                                        static_cast<std::size_t>(packet->size)));
        }
    };
    for (const Frame& frame : frames) {
        failure.during([&] { encoder->sendFrame(frame).throwIfError("not sent"); });
        failure.during(receive);
    }
    failure.during([&] { encoder->sendEndOfStream().throwIfError("not ended"); });
    failure.during(receive);
    failure.rethrow();
    return digest.value();
}

class VideoEncoding : public Scenario {
public:
    VideoEncoding(const std::string& codec, const std::string& filter, AVPixelFormat format) {
        mConfig["codec"] = codec;
        mConfig["width"] = 64;
        mConfig["height"] = 48;
        mConfig["timebase_num"] = 1;
        mConfig["timebase_den"] = 25;
        mConfig["options"]["threads"] = 1;
        mConfig["options"]["b"] = 400000;
        mConfig["options"]["flags"] = "bitexact";
        if (!filter.empty()) {
            mConfig["filter"] = filter;
        }
        for (int i = 0; i < 4; ++i) {
            mFrames.emplace_back(testPicture(Size{64, 48}, format), Timestamp(Timebase(1, 25), i),
                                 vidorra::Frame::NoFlags);
        }
    }

    std::uint64_t run() override { return encode(mEncoder, mConfig, mFrames); }
    std::uint64_t runAgain() override { return run(); }

private:
    objstream::object mConfig;
    std::vector<VideoFrame> mFrames;
    std::optional<VideoEncoder> mEncoder;
};

class AudioEncoding : public Scenario {
public:
    AudioEncoding(const std::string& codec, const std::string& filter, AVSampleFormat format) {
        mConfig["codec"] = codec;
        mConfig["options"]["ar"] = 48000;
        mConfig["options"]["ac"] = 2;
        mConfig["options"]["b"] = 128000;
        if (!filter.empty()) {
            mConfig["filter"] = filter;
        }
        for (int i = 0; i < 4; ++i) {
            mFrames.emplace_back(testSamples(1024, format, 48000), Timestamp(Timebase(1, 48000), 1024 * i));
        }
    }

    std::uint64_t run() override { return encode(mEncoder, mConfig, mFrames); }
    std::uint64_t runAgain() override { return run(); }

private:
    objstream::object mConfig;
    std::vector<AudioFrame> mFrames;
    std::optional<AudioEncoder> mEncoder;
};

struct Mpeg4 : VideoEncoding {
    Mpeg4() : VideoEncoding("mpeg4", "", AV_PIX_FMT_NV12) {}
};
struct FilteredMpeg4 : VideoEncoding {
    FilteredMpeg4() : VideoEncoding("mpeg4", "scale=32:24,scale=64:48", AV_PIX_FMT_YUV420P) {}
};
struct H264 : VideoEncoding {
    H264() : VideoEncoding("libx264", "", AV_PIX_FMT_YUV420P) {}
};
struct FilteredH264 : VideoEncoding {
    FilteredH264() : VideoEncoding("libx264", "hflip", AV_PIX_FMT_YUV420P) {}
};
struct Aac : AudioEncoding {
    Aac() : AudioEncoding("aac", "", AV_SAMPLE_FMT_S16) {}
};
struct FilteredAac : AudioEncoding {
    FilteredAac() : AudioEncoding("aac", "volume=0.5", AV_SAMPLE_FMT_FLTP) {}
};

}  // namespace

std::vector<NamedScenario> encoderScenarios() {
    return {{"mpeg4", makeScenario<Mpeg4>}, {"mpeg4_filtered", makeScenario<FilteredMpeg4>},
            {"h264", makeScenario<H264>},   {"h264_filtered", makeScenario<FilteredH264>},
            {"aac", makeScenario<Aac>},     {"aac_filtered", makeScenario<FilteredAac>}};
}

}  // namespace vidorra::test
