#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <future>
#include <string>
#include <vector>

#include "demux/calls.h"

namespace vidorra::test {

/// The result of one call of av_read_frame, instead of the file's packet.
struct Step {
    enum class Kind { Packet, Empty, Error, End };

    Kind kind = Kind::Packet;
    int stream = 0;
    /// Microseconds; kNoStamp for none.
    std::int64_t pts = 0;
    std::int64_t duration = 0;
};

inline constexpr std::int64_t kNoStamp = INT64_MIN;

/// The streams of scriptedFile().
inline constexpr int kScriptedVideo = 0;
inline constexpr int kScriptedAudio = 1;
inline constexpr int kOtherAudio = 2;

/// A file of one video and two audio tracks without compression. The video counts in microseconds, the audio
/// in samples of 48 kHz.
std::string scriptedFile();

Step video(std::int64_t pts, std::int64_t duration = 1000);
Step audio(std::int64_t pts, std::int64_t duration, int stream = kScriptedAudio);
inline constexpr Step kEmpty{Step::Kind::Empty};
inline constexpr Step kError{Step::Kind::Error};
inline constexpr Step kEnd{Step::Kind::End};

/// `count` steps of one kind, one after the other without a gap.
std::vector<Step> videos(int count, std::int64_t interval, std::int64_t first = 0);
std::vector<Step> audios(int count, std::int64_t duration, std::int64_t first = 0);
std::vector<Step> operator+(std::vector<Step> a, const std::vector<Step>& b);

/// During its lifetime all reading of packets follows the script, and ends when the script ends. On any
/// thread, one at a time.
class Script {
public:
    explicit Script(std::vector<Step> steps);

    /// How many packets were requested so far.
    [[nodiscard]] std::size_t reads() const { return mReads; }

    /// Whether a thread has requested packets and has ended since.
    [[nodiscard]] bool readerIsGone() const;

private:
    int read(void* packet);

    std::vector<Step> mSteps;
    std::atomic<std::size_t> mReads{0};
    // The thread of the latest request.
    std::atomic<int> mReader{0};
    Call<int(void*, void*)>::Replaced mReplaced;
};

}  // namespace vidorra::test
