// From open to close.
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <variant>

#include "faults/digest.h"
#include "faults/scenario.h"
#include "support/media.h"
#include "vdr_utils/warnings_store_async.h"
#include "vidorra/demux/format_context.h"
#include "vidorra/reader/media_file_reader.h"
#include "vidorra/reader/media_file_reader_async.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra::test {
namespace {

using std::chrono::milliseconds;
using vx::vdr::utils::WarningsStoreAsync;

// Pictures and sound of so many seconds in these codecs.
std::string clip(const std::string& name, const std::string& seconds, const std::string& pictures,
                 const std::string& sound) {
    return mediaFile(name, {"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=25:duration=" + seconds, "-f",
                            "lavfi", "-i", "sine=sample_rate=48000:duration=" + seconds, "-c:v", pictures,
                            "-threads", "1", "-c:a", sound});
}

std::string commonClip() {
    return clip("common.mp4", "0.2", "libx264", "aac");
}

std::string plainClip() {
    return clip("plain.nut", "0.2", "mjpeg", "pcm_s16le");
}

class Source : public Scenario {
public:
    explicit Source(std::string url) : mUrl(std::move(url)) {}

    std::uint64_t run() override {
        Digest digest;
        mSource.setUrl(mUrl);
        mSource.open("", true, milliseconds(500));
        readAll(digest);
        mSource.seek(Timestamp(Timebase(), 0));
        mSource.drainDecoders();
        readAll(digest);
        mSource.close();
        return digest.value();
    }

    std::uint64_t runAgain() override { return run(); }

private:
    void readAll(Digest& digest) {
        FirstFailure failure;
        for (bool isAtEnd = false; !isAtEnd;) {
            failure.during([&] {
                const Packet packet = mSource.readPacket();
                isAtEnd = mSource.isEOF();
                if (!isAtEnd) {
                    decode(digest, packet);
                }
            });
        }
        failure.rethrow();
    }

    void decode(Digest& digest, const Packet& packet) {
        const AVStream* stream = mSource.trackAtIndex(static_cast<unsigned>(packet.stream_index));
        if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
            digest.add(mSource.decodeVideoPacket(packet));
        } else {
            digest.add(mSource.decodeAudioPacket(packet));
        }
    }

    std::string mUrl;
    FormatContext mSource;
};

class CommonSource : public Source {
public:
    CommonSource() : Source(commonClip()) {}
};

class PlainSource : public Source {
public:
    PlainSource() : Source(plainClip()) {}
};

class Reader : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        mReader.open();
        readAll(digest);
        mReader.restart();
        readAll(digest);
        mReader.close();
        return digest.value();
    }

    std::uint64_t runAgain() override {
        mReader.close();
        return run();
    }

private:
    void readAll(Digest& digest) {
        FirstFailure failure;
        while (mReader.getState() == MediaFileReader::State::Opened) {
            failure.during([&] {
                const auto frame = mReader.read();
                if (const auto* video = std::get_if<VideoFrame>(&frame)) {
                    digest.add(*video);
                } else if (const auto* audio = std::get_if<AudioFrame>(&frame)) {
                    digest.add(*audio);
                }
            });
        }
        failure.rethrow();
    }

    std::shared_ptr<WarningsStoreAsync> mStore = std::make_shared<WarningsStoreAsync>();
    MediaFileReader mReader{commonClip(), MediaFileReader::PlaybackMode::Once, mStore};
};

class AsyncReader : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        MediaFileReaderAsync reader(mClip, MediaFileReader::PlaybackMode::Loop, 0, 0, mStore);
        const Timestamp time(Timebase(), 1000000);
        // As a caller asks, tick by tick. A track whose decoder could not be made gives nothing.
        for (int tick = 0; tick < 500; ++tick) {
            const VideoFrame frame = reader.getVideoFrame(time, milliseconds(10));
            if (!frame.empty()) {
                digest.add(frame.picture());
                break;
            }
            std::this_thread::sleep_for(milliseconds(2));
        }
        static_cast<void>(reader.getAudioFrame(time + Timestamp(Timebase(), 1), milliseconds(0)));
        return digest.value();
    }

    std::uint64_t runAgain() override { return run(); }

private:
    std::string mClip = clip("long.nut", "0.6", "mjpeg", "pcm_s16le");
    std::shared_ptr<WarningsStoreAsync> mStore = std::make_shared<WarningsStoreAsync>();
};

}  // namespace

std::vector<NamedScenario> sourceScenarios() {
    return {{"source_common", makeScenario<CommonSource>},
            {"source_plain", makeScenario<PlainSource>},
            {"reader", makeScenario<Reader>},
            {"reader_async", makeScenario<AsyncReader>}};
}

}  // namespace vidorra::test
