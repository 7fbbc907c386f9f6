#pragma once

#include <string>
#include <vector>

#include "support/media.h"

/// The clips of the reader's tests, made by the ffmpeg program.
namespace vidorra::test {

/// Arguments of ffmpeg for small pictures and a tone.
inline std::vector<std::string> pictures(const std::string& seconds, const std::string& rate = "25") {
    return {"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=" + rate + ":duration=" + seconds};
}

inline std::vector<std::string> tone(const std::string& seconds, const std::string& rate = "48000") {
    return {"-f", "lavfi", "-i", "sine=frequency=440:sample_rate=" + rate + ":duration=" + seconds};
}

inline std::vector<std::string> operator+(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// One second of video without B-frames, and audio.
inline std::string audioAndVideo() {
    return mediaFile("clip.mp4", pictures("1") + tone("1") +
                                     std::vector<std::string>{"-c:v", "libx264", "-bf", "0", "-c:a", "aac"});
}

inline std::string videoOnly() {
    return mediaFile("video.mkv", pictures("1") + std::vector<std::string>{"-c:v", "mjpeg"});
}

inline std::string audioOnly() {
    return mediaFile("audio.wav", tone("1") + std::vector<std::string>{"-c:a", "pcm_s16le"});
}

/// Two audio and two video tracks of different sizes and rates.
inline std::string fourTracks() {
    return mediaFile("tracks.mkv", pictures("0.4") + tone("0.4") +
                                       std::vector<std::string>{"-f", "lavfi", "-i",
                                                                "testsrc2=size=32x16:rate=25:duration=0.4"} +
                                       tone("0.4", "16000") +
                                       std::vector<std::string>{"-map", "0", "-map", "1", "-map", "2", "-map",
                                                                "3", "-c:v", "mjpeg", "-c:a", "pcm_s16le"});
}

}  // namespace vidorra::test
