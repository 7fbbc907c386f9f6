#include "clip/interruption.h"

#include <cerrno>
#include <limits>
#include <utility>

#include "vidorra/io/byte_source.h"

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
}

namespace vidorra {
namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

std::int64_t steadyNow() noexcept {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

}  // namespace

void Interruption::stop() noexcept {
    mStopped.store(true);
    const std::lock_guard lock(mMutex);
    if (mSource) {
        mSource->interrupt();
    }
}

void Interruption::limit(std::chrono::microseconds time) noexcept {
    using Clock = std::chrono::steady_clock;
    const bool none = time.count() <= 0 || time > std::chrono::hours(24 * 365);
    mDeadline.store(none ? kNever : (Clock::now() + time).time_since_epoch().count());
}

bool Interruption::late() const noexcept {
    const std::int64_t deadline = mDeadline.load();
    return deadline != kNever && steadyNow() > deadline;
}

bool Interruption::due() const noexcept {
    return stopped() || late();
}

AvError Interruption::reasonFor(int code) const noexcept {
    if (stopped()) {
        return AvError(AVERROR_EXIT);
    }
    // FFmpeg may tell of it with a later packet, when another limit has begun.
    return AvError(late() || code == AVERROR_EXIT ? AVERROR(ETIMEDOUT) : code);
}

AVIOInterruptCB Interruption::callback() noexcept {
    return {[](void* self) { return static_cast<const Interruption*>(self)->due() ? 1 : 0; }, this};
}

void Interruption::watch(std::shared_ptr<ByteSource> source) {
    // The old source goes after the lock.
    const std::lock_guard lock(mMutex);
    mSource.swap(source);
    if (mSource && stopped()) {
        mSource->interrupt();
    }
}

}  // namespace vidorra
