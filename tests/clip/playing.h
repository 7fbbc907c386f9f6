#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "clips.h"
#include "vidorra/clip/clip_player.h"

namespace vidorra::test {

/// A limit for what happens soon, and fails a test on any machine when it does not.
inline constexpr std::chrono::seconds kSoon{20};

/// What a player gave, by times from the start of the clip.
struct Playing {
    std::vector<std::int64_t> pictures;
    std::vector<std::int64_t> sounds;
    /// Of the first plane.
    std::vector<std::uint8_t> sound;
    /// The end of the last of them.
    std::int64_t soundEnd = 0;
};

/// Asks a player by a simulated clock, as fast as it answers, for ticks `first` to `end` - 1 of 40 ms, of
/// which tick 0 is at `start`: for one picture each, and for all the sound up to the end of the tick.
inline void play(ClipPlayer& player, Playing& playing, std::int64_t first, std::int64_t end,
                 std::int64_t start = 0) {
    constexpr std::int64_t kPeriod = 40000;
    for (std::int64_t tick = first; tick < end; ++tick) {
        const VideoFrame picture = player.getVideoFrame(microseconds(start + tick * kPeriod), kSoon);
        if (!picture.empty()) {
            playing.pictures.push_back(picture.timestamp().value - start);
        }
        while (playing.soundEnd < (tick + 1) * kPeriod) {
            const AudioFrame frame = player.getAudioFrame(microseconds(start + playing.soundEnd), kSoon);
            if (frame.empty()) {
                break;
            }
            const AudioBuffer& buffer = frame.audioBuffer();
            const std::int64_t time = frame.timestamp().value - start;
            const std::uint8_t* plane = buffer.getPointersToPlanes()[0];
            playing.sounds.push_back(time);
            playing.sound.insert(playing.sound.end(), plane,
                                 plane + buffer.planeSize(buffer.numberOfSamples()));
            playing.soundEnd = time + buffer.duration().value;
        }
    }
}

}  // namespace vidorra::test
