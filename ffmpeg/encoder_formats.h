#pragma once

#include <optional>
#include <vector>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

struct AVCodec;

/// The formats that encoders list.
namespace vidorra::ffmpeg_ext {

/// The first of the sample formats that an encoder lists, AV_SAMPLE_FMT_NONE when it lists none.
AVSampleFormat firstSampleFormat(const AVCodec& codec);

/// The pixel formats that an encoder takes, the best first; nothing where it has no list. The format to which
/// a build of FFmpeg gave the number of NVA12 is not among them.
std::optional<std::vector<AVPixelFormat>> encoderPixelFormats(const AVCodec& encoder);

}  // namespace vidorra::ffmpeg_ext
