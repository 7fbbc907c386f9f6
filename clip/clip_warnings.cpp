#include "clip/clip_warnings.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <utility>

#include "core/log.h"
#include "vdr_utils/warnings_store_async.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace vidorra {
namespace {

constexpr Ticks kInterleavingTolerance = kSecond * 35 / 100;

const char* kindOf(bool isAudio) {
    return isAudio ? "audio" : "video";
}

bool raised(const vx::vdr::utils::Warning& warning) {
    return !warning.text().empty();
}

}  // namespace

ClipWarnings::ClipWarnings(std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> store, const std::string& name,
                           bool both)
    : mStore(std::move(store)),
      mName(mStore ? fmt::format("{}", std::filesystem::path(name).filename()) : ""),
      mBoth(both) {}

void ClipWarnings::check(const AVPacket& packet, const AVStream& stream, Ticks start) {
    if (!mStore) {
        return;
    }
    const bool isAudio = stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
    const Ticks duration = ticksOf(packet.duration, stream.time_base).value_or(0);
    checkDuration(isAudio, duration);
    if (const std::optional<Ticks> stamp = ticksOf(packet.pts, stream.time_base)) {
        const Ticks time = *stamp - start;
        checkInterleaving(isAudio, time);
        mEnd = std::max(mEnd, time + duration);
    }
}

void ClipWarnings::checkDuration(bool isAudio, Ticks duration) {
    if (raised(mZeroDuration)) {
        if (duration > 0) {
            mZeroDuration = {};
        }
    } else if (duration == 0) {
        const std::string text =
            fmt::format("Duration of {} packets cannot be retrieved from {}", kindOf(isAudio), mName);
        mZeroDuration = mStore->add(text);
        logger::log(kLogWarning) << "ClipReader: " << text;
    }
}

// A track that turns up much later in the file than the other.
void ClipWarnings::checkInterleaving(bool isAudio, Ticks time) {
    if (!mBoth || (mAnyAudio && mAnyVideo)) {
        return;
    }
    (isAudio ? mAnyAudio : mAnyVideo) = true;
    if (!mAnyAudio || !mAnyVideo || mEnd - time < kInterleavingTolerance) {
        return;
    }
    const std::string text = fmt::format(
        "File {} contains a non-interleaved media stream, issues with {} may occur", mName, kindOf(isAudio));
    mNonInterleaved = mStore->add(text);
    logger::log(kLogWarning) << "ClipReader: " << text;
}

}  // namespace vidorra
