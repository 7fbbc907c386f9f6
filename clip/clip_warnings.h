#pragma once

#include <memory>
#include <string>

#include "clip/ticks.h"
#include "vdr_utils/warning.h"

namespace vx::vdr::utils {
class WarningsStoreAsync;
}

struct AVPacket;
struct AVStream;

namespace vidorra {

/// What the packets of one reading of a source say about its quality, as warnings for the user. They are
/// withdrawn at the end of the reading.
///
/// Threads: one at a time.
class ClipWarnings {
public:
    /// `store` may be null, then nothing is done. `name` is that of the source, and two kinds are expected
    /// where `both`.
    ClipWarnings(std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> store, const std::string& name,
                 bool both);

    /// Looks at the next packet of a stream, whose source starts at `start`.
    void check(const AVPacket& packet, const AVStream& stream, Ticks start);

private:
    void checkDuration(bool isAudio, Ticks duration);
    void checkInterleaving(bool isAudio, Ticks time);

    const std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> mStore;
    // In quotes.
    const std::string mName;
    const bool mBoth;
    bool mAnyAudio = false;
    bool mAnyVideo = false;
    // The greatest end of the packets so far.
    Ticks mEnd = 0;
    vx::vdr::utils::Warning mZeroDuration;
    vx::vdr::utils::Warning mNonInterleaved;
};

}  // namespace vidorra
