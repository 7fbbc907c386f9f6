#pragma once

#include <optional>
#include <vector>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

struct AVCodec;

/// The formats in the lists of encoders.
namespace vidorra::ffmpeg_ext {

/// The first of the sample formats that an encoder lists, AV_SAMPLE_FMT_NONE when it lists none.
AVSampleFormat firstSampleFormat(const AVCodec& codec);

/// The pixel formats that an encoder takes, the best first; nothing when it has no list. A format for which
/// an FFmpeg build uses the number of NVA12 is left out.
std::optional<std::vector<AVPixelFormat>> encoderPixelFormats(const AVCodec& encoder);

}  // namespace vidorra::ffmpeg_ext
