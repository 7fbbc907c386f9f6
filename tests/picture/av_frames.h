#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vidorra/core/av_ptr.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/picture/audio_buffer.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
}

namespace vidorra::test {

/// Twelve channels: more than a frame's plane array holds.
inline constexpr std::uint64_t kTwelveChannels = AV_CH_LAYOUT_7POINT1 | AV_CH_TOP_FRONT_LEFT |
                                                 AV_CH_TOP_FRONT_RIGHT | AV_CH_TOP_BACK_LEFT |
                                                 AV_CH_TOP_BACK_RIGHT;

/// A channel mask and what is known about it.
struct Layout {
    const char* name = nullptr;
    std::uint64_t mask = 0;
    int channels = 0;
};

inline constexpr Layout kLayouts[] = {
    {.name = "Mono", .mask = AV_CH_LAYOUT_MONO, .channels = 1},
    {.name = "Stereo", .mask = AV_CH_LAYOUT_STEREO, .channels = 2},
    {.name = "FivePointOne", .mask = AV_CH_LAYOUT_5POINT1_BACK, .channels = 6},
    {.name = "SevenPointOne", .mask = AV_CH_LAYOUT_7POINT1, .channels = 8},
    {.name = "TwelveChannels", .mask = kTwelveChannels, .channels = 12},
};

/// A sample format and what is known about it.
struct Format {
    const char* name = nullptr;
    AVSampleFormat format = AV_SAMPLE_FMT_NONE;
    int bytes = 0;
    bool planar = false;
};

inline constexpr Format kFormats[] = {
    {.name = "u8", .format = AV_SAMPLE_FMT_U8, .bytes = 1, .planar = false},
    {.name = "s16", .format = AV_SAMPLE_FMT_S16, .bytes = 2, .planar = false},
    {.name = "s32", .format = AV_SAMPLE_FMT_S32, .bytes = 4, .planar = false},
    {.name = "flt", .format = AV_SAMPLE_FMT_FLT, .bytes = 4, .planar = false},
    {.name = "dbl", .format = AV_SAMPLE_FMT_DBL, .bytes = 8, .planar = false},
    {.name = "s64", .format = AV_SAMPLE_FMT_S64, .bytes = 8, .planar = false},
    {.name = "u8p", .format = AV_SAMPLE_FMT_U8P, .bytes = 1, .planar = true},
    {.name = "s16p", .format = AV_SAMPLE_FMT_S16P, .bytes = 2, .planar = true},
    {.name = "s32p", .format = AV_SAMPLE_FMT_S32P, .bytes = 4, .planar = true},
    {.name = "fltp", .format = AV_SAMPLE_FMT_FLTP, .bytes = 4, .planar = true},
    {.name = "dblp", .format = AV_SAMPLE_FMT_DBLP, .bytes = 8, .planar = true},
    {.name = "s64p", .format = AV_SAMPLE_FMT_S64P, .bytes = 8, .planar = true},
};

/// Every format with every layout.
struct Kind {
    Format format;
    Layout layout;

    int planes() const { return format.planar ? layout.channels : 1; }
    int planeBytes(int samples) const {
        return samples * format.bytes * (format.planar ? 1 : layout.channels);
    }
};
std::vector<Kind> allKinds();
void PrintTo(const Kind& kind, std::ostream* stream);

/// The bytes of one plane.
using Bytes = std::vector<std::uint8_t>;

/// Planes of which no two are alike.
std::vector<Bytes> unlikePlanes(const Kind& kind, int samples);

/// A frame of FFmpeg's own memory with these planes.
AvPtr<AVFrame> makeFrame(const Kind& kind, int samples, int rate, const std::vector<Bytes>& planes);

/// What is in the planes of a buffer, as many bytes a plane as are given.
std::vector<Bytes> planesOf(const AudioBuffer& buffer, int planeBytes);

/// What is in the planes of a frame, all of them reached through extended_data as FFmpeg's users do.
std::vector<Bytes> planesOf(const AVFrame& frame, int planes, int planeBytes);

}  // namespace vidorra::test
