// The warnings of MediaFileReader about problems of a file.

#include <filesystem>

#include "core/log.h"
#include "core/shown_url.h"
#include "core/wrapping.h"
#include "vidorra/core/format.h"
#include "vidorra/reader/media_file_reader.h"

namespace vidorra {
namespace {

using std::chrono::steady_clock;
using vx::vdr::utils::Warning;

constexpr std::int64_t kInterleavingTolerance = 349999;
constexpr std::int64_t kDecodingTolerance = 200000;

// The start of a cycle without a decoded frame.
constexpr steady_clock::time_point kNextFrame = steady_clock::time_point::min();

std::filesystem::path fileName(const std::string& url) {
    return std::filesystem::path(shownUrl(url)).filename();
}

bool raised(const Warning& warning) {
    return !warning.text().empty();
}

}  // namespace

void MediaFileReader::clearWarningsCtx() {
    mWarningsCtx.decoding = Warning();
    mWarningsCtx.zeroDuration = Warning();
    mWarningsCtx.nonInterleaved = Warning();
    mWarningsCtx.audioPackets = 0;
    mWarningsCtx.videoPackets = 0;
    // Deliberate: not now(), since the time until the next frame is the caller's, not the decoder's.
    mWarningsCtx.monitor.start = kNextFrame;
}

void MediaFileReader::checkZeroDurationWarning(const Packet& packet) {
    if (!mWarningsStore) {
        return;
    }
    if (raised(mWarningsCtx.zeroDuration)) {
        if (packet.duration > 0) {
            mWarningsCtx.zeroDuration = Warning();
        }
        return;
    }
    if (packet.duration == 0) {
        const std::string text = fmt::format("Duration of {} packets cannot be retrieved from {}",
                                             isAudio(packet) ? "audio" : "video", fileName(url()));
        mWarningsCtx.zeroDuration = mWarningsStore->add(text);
        logger::log(kLogWarning) << "MediaFileReader: " << text;
    }
}

void MediaFileReader::checkNonInterleavedWarning(const Packet& packet) {
    WarningsContext& context = mWarningsCtx;
    if (!mWarningsStore || raised(context.nonInterleaved)) {
        return;
    }
    if (context.audioPackets != 0 && context.videoPackets != 0) {
        return;
    }
    if (isAudio(packet)) {
        ++context.audioPackets;
    } else if (isVideo(packet)) {
        ++context.videoPackets;
    }
    if (!mAudioTrack || !mVideoTrack || context.audioPackets == 0 || context.videoPackets == 0) {
        return;
    }
    const std::int64_t difference = wrappingSubtract(mLastPts.value, packet.pts);
    if (difference <= kInterleavingTolerance) {
        return;
    }
    const std::filesystem::path name = fileName(url());
    context.nonInterleaved = mWarningsStore->add(
        fmt::format("File {} contains a non-interleaved media stream, issues with {} may occur", name,
                    isAudio(packet) ? "audio" : "video"));
    logFormatted(
        kLogWarning, {},
        "MediaFileReader: {} contains a non-interleaved media stream: difference {}ms audio {} pkts video {} "
        "pkts",
        name, difference / 1000, context.audioPackets, context.videoPackets);
}

void MediaFileReader::callbackIfDecodingIsSlow(const VideoFrame& frame) {
    if (raised(mWarningsCtx.decoding) || !mWarningsStore) {
        return;
    }
    WarningsContext::DecodingMonitor& monitor = mWarningsCtx.monitor;
    if (monitor.start == kNextFrame) {
        monitor.start = steady_clock::now();
    }
    if (monitor.start != steady_clock::time_point::max()) {
        const auto elapsed =
            std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - monitor.start);
        // Deliberate: after a loop the times of frames continue while `elapsed` starts again, so the
        // comparison is far more lenient then.
        if (wrappingSubtract(frame.timestamp().value, elapsed.count()) < -kDecodingTolerance) {
            mWarningsCtx.decoding =
                mWarningsStore->add(fmt::format("Not enough decoding resources to process the media file {}. "
                                                "This could lead to partial or full "
                                                "audio/video frames loss.",
                                                fileName(url())));
        }
    }
    std::call_once(monitor.once, [&monitor] { monitor.start = steady_clock::now(); });
}

}  // namespace vidorra
