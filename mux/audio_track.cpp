#include <stdexcept>
#include <string>
#include <utility>

#include "core/log.h"
#include "mux/audio_cutter.h"
#include "mux/encoded_track.h"
#include "mux/tracks.h"
#include "vidorra/encode/audio_encoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidorra {
namespace {

/// Sound.
class AudioTrack final : public EncodedTrack {
public:
    using WriterTrack::write;

    AudioTrack(std::unique_ptr<AudioEncoder> encoder, std::size_t number, Take take)
        : EncodedTrack(number, *encoder, std::move(take)),
          mEncoder(std::move(encoder)),
          mCutter(*mEncoder->codecContext()) {}

    void write(const AudioFrame& frame) override {
        if (frame.audioBuffer().numberOfSamples() == 0 || frame.audioBuffer().sampleRate() <= 0) {
            refuse(std::invalid_argument(name() + ": the frame is empty"));
        }
        const std::int64_t time = requireRise(frame.timestamp(), mLatest);
        if (mHasEnded) {
            return;
        }
        std::int64_t gap = 0;
        try {
            gap = mCutter.push(frame);
        } catch (...) {
            throw Refusal{std::current_exception()};
        }
        mLatest = time;
        ++mReport.frames;
        if (gap != 0) {
            logFormatted(kLogWarning, "writer: ", "{}: {} samples {} at {}", name(), std::abs(gap),
                         gap > 0 ? "are missing and become silence" : "overlap and are dropped",
                         frame.timestamp().debugDescription());
        }
        encodeWhole();
    }

    void end() override {
        if (mHasEnded) {
            return;
        }
        mCutter.end();
        encodeWhole();
        if (const auto rest = mCutter.popRest()) {
            encode(*rest);
        }
        if (!mHasEnded) {
            endEncoder(*mEncoder);
        }
    }

private:
    void encodeWhole() {
        while (const auto whole = mCutter.pop()) {
            encode(*whole);
        }
    }

    void encode(const AudioFrame& frame) {
        if (mHasEnded) {
            return;
        }
        const AvRes sent = mEncoder->sendFrame(frame);
        mHasEnded = !sent.ok && sent.error == AvError::Eof;
        for (bool more = wasSent(sent) || mHasEnded; more; more = wasSent(mEncoder->sendFiltered())) {
            receive();
        }
    }

    void received(Packet packet) override {
        give(std::move(packet), mEncoder->codecContext()->initial_padding);
    }

    std::unique_ptr<AudioEncoder> mEncoder;
    AudioCutter mCutter;
    std::optional<std::int64_t> mLatest;
    bool mHasEnded = false;
};

objstream::object without(const objstream::object& config, const std::string& left) {
    objstream::object rest;
    config.for_each_kv([&](const std::string& key, const objstream::object& value) {
        if (key != left) {
            rest[key] = value;
        }
        return true;
    });
    return rest;
}

// A filter gives frames of any size, which have to be cut again for an encoder that wants its own.
std::unique_ptr<AudioEncoder> openEncoder(objstream::object config) {
    if (config.hasKey("filter")) {
        const int size = AudioEncoder(without(config, "filter")).codecContext()->frame_size;
        if (size > 0) {
            config["filter"] =
                fmt::format("{},asetnsamples=n={}:p=0", config["filter"].getValue<std::string>(), size);
        }
    }
    return std::make_unique<AudioEncoder>(config);
}

}  // namespace

std::unique_ptr<WriterTrack> makeAudioTrack(const objstream::object& config, const EncoderNeeds& needs,
                                            std::size_t number, WriterTrack::Take take) {
    return std::make_unique<AudioTrack>(openEncoder(withNeeds(config, {needs.globalHeader, false})), number,
                                        std::move(take));
}

}  // namespace vidorra
