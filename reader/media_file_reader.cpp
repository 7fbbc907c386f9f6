#include "vidorra/reader/media_file_reader.h"

#include <stdexcept>
#include <utility>

#include "core/log.h"
#include "core/shown_url.h"
#include "core/wrapping.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra {
namespace {

constexpr std::chrono::microseconds kAnalyzeDuration{2000000};

}  // namespace

MediaFileReader::MediaFileReader(const std::string& url, PlaybackMode mode,
                                 std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> store)
    : mPlaybackMode(mode), mWarningsStore(std::move(store)) {
    setUrl(url);
}

MediaFileReader::~MediaFileReader() = default;

bool MediaFileReader::open() {
    if (isOpened()) {
        throw std::logic_error("movie file reader already opened");
    }
    mAudioTrack.reset();
    mVideoTrack.reset();
    FormatContext::open("", true, kAnalyzeDuration);
    // Deliberate: the reader's time begins at the file's own zero, whatever time origin the source has.
    setTimeOrigin(0);
    chooseTracks(0, 0);
    mLastPts = Timestamp();
    mPass = Pass();
    return true;
}

void MediaFileReader::close() {
    FormatContext::close();
    clearWarningsCtx();
}

void MediaFileReader::selectTracks(std::optional<unsigned> audio, std::optional<unsigned> video) {
    if (!isOpened()) {
        throw std::logic_error("movie file reader cannot select tracks because it is not opened yet");
    }
    const TrackCounts tracks = chooseTracks(audio, video);
    const auto logMissing = [this](const char* type, std::optional<unsigned> track, unsigned count) {
        if (track && *track >= count) {
            logFormatted(kLogWarning, {},
                         "MediaFileReader: {} has no {} track {} (it has {}, numbered from 0)",
                         shownUrl(url()), type, *track, count);
        }
    };
    logMissing("audio", audio, tracks.audio);
    logMissing("video", video, tracks.video);
}

MediaFileReader::TrackCounts MediaFileReader::chooseTracks(std::optional<unsigned> audio,
                                                           std::optional<unsigned> video) {
    mAudioTrack.reset();
    mVideoTrack.reset();
    TrackCounts tracks;
    for (unsigned i = 0; i < tracksNumber(); ++i) {
        bool selected = false;
        switch (trackAtIndex(i)->codecpar->codec_type) {
        case AVMEDIA_TYPE_AUDIO:
            selected = audio == tracks.audio++;
            if (selected) {
                mAudioTrack = i;
            }
            break;
        case AVMEDIA_TYPE_VIDEO:
            selected = video == tracks.video++;
            if (selected) {
                mVideoTrack = i;
            }
            break;
        default:
            break;
        }
        discardTrackAtIndex(i, selected ? AVDISCARD_NONE : AVDISCARD_ALL);
    }
    return tracks;
}

std::variant<std::monostate, AudioFrame, VideoFrame> MediaFileReader::read() {
    if (!mAudioTrack && !mVideoTrack) {
        return {};
    }
    while (isOpened() && !isEOF()) {
        const Packet packet = readPacket();
        if (packet.size > 0) {
            watch(packet);
            mPass.gavePacket = true;
            if (isAudio(packet)) {
                AudioFrame frame = decodeAudioPacket(packet);
                if (!frame.empty()) {
                    mPass.gaveFrame = true;
                    return frame;
                }
            } else if (isVideo(packet)) {
                VideoFrame frame = decodeVideoPacket(packet);
                if (!frame.empty()) {
                    mPass.gaveFrame = true;
                    callbackIfDecodingIsSlow(frame);
                    return frame;
                }
            }
            continue;
        }
        if (mPlaybackMode != PlaybackMode::Loop || !isEOF() || isStreamed()) {
            return {};
        }
        // Deliberate: a loop that would never give anything ends. One pass without a frame may be due to one
        // broken packet, and the next pass may give frames again.
        const Pass ended = mPass;
        if (!ended.gavePacket || (!ended.gaveFrame && !ended.followsFrame)) {
            return {};
        }
        restart();
        mPass.followsFrame = ended.gaveFrame;
    }
    return {};
}

void MediaFileReader::restart() {
    if (!isOpened()) {
        throw std::logic_error("movie file reader cannot be restarted because it is not opened yet");
    }
    if (isStreamed()) {
        throw std::runtime_error("movie file is not seekable, restart is not supported");
    }
    clearWarningsCtx();
    // seek() subtracts the origin, so this is the file's own zero, however many passes there were.
    seek(Timestamp(Timebase(), timeOrigin()));
    mPass = Pass();
    setTimeOrigin(mLastPts.value);
    drainDecoders();
}

MediaFileReader::State MediaFileReader::getState() const noexcept {
    if (!isOpened()) {
        return State::Closed;
    }
    return isEOF() ? State::Eof : State::Opened;
}

bool MediaFileReader::isAudio(const Packet& packet) const noexcept {
    return mAudioTrack && static_cast<int>(*mAudioTrack) == packet.stream_index;
}

bool MediaFileReader::isVideo(const Packet& packet) const noexcept {
    return mVideoTrack && static_cast<int>(*mVideoTrack) == packet.stream_index;
}

void MediaFileReader::watch(const Packet& packet) {
    // In this order, since the first compares with the end of the previous packets.
    checkNonInterleavedWarning(packet);
    checkZeroDurationWarning(packet);
    const Timestamp end(Timebase(), wrappingAdd(packet.pts, packet.duration));
    if (mLastPts.isNull || end > mLastPts) {
        mLastPts = end;
    }
}

}  // namespace vidorra
