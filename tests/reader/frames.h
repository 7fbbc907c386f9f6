#pragma once

#include <chrono>
#include <cstdint>

#include <vidorra/vidorra.h>

namespace vidorra::test {

inline constexpr std::chrono::microseconds kNoWait{0};

/// A time in microseconds.
inline Timestamp at(std::int64_t value) {
    return {Timebase(), value};
}

/// A small picture at a time in microseconds.
inline VideoFrame videoFrame(std::int64_t time) {
    return {Picture(Size{2, 2}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_UNSPECIFIED, 1), at(time), Frame::NoFlags};
}

/// Silence that begins at a time in microseconds and lasts `duration` of them.
inline AudioFrame audioFrame(std::int64_t time, unsigned long duration) {
    constexpr unsigned long kMono = 4;
    AudioBuffer buffer(kMono, AV_SAMPLE_FMT_U8);
    buffer.setSampleRate(1000000);
    buffer.resize(duration);
    return {buffer, at(time)};
}

}  // namespace vidorra::test
