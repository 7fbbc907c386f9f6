#pragma once

/// The changes between FFmpeg versions, one line for each. This is the only file of the project that tests
/// versions; the sources of this folder test the changes.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavutil/avutil.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#define HAVE_CH_LAYOUT (LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 24, 100))
#define HAVE_FRAME_DURATION (LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100))
#define HAVE_CHANNEL_MASK_FIELD (LIBAVUTIL_VERSION_MAJOR < 59)
#define HAVE_SUPPORTED_CONFIG (LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100))
#define MJPEG_LISTS_HALF_ITS_FORMATS (LIBAVCODEC_VERSION_MAJOR < 59)
#define HAVE_CODED_SIDE_DATA (LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(60, 31, 102))
#define HAVE_PACKET_TIME_BASE (LIBAVCODEC_VERSION_MAJOR >= 59)
#define DICTIONARY_SIZE_IS_INT (LIBAVCODEC_VERSION_MAJOR < 59)
#define HAVE_SOURCE_RANGE (LIBAVFILTER_VERSION_MAJOR >= 10)
#define SAMPLE_POINTERS_ARE_CONST (LIBSWRESAMPLE_VERSION_MAJOR >= 5)
#define SCALER_HANDS_ITS_RANGES_ON (LIBSWSCALE_VERSION_MAJOR >= 9)
#define DEVICE_BEFORE_INITIALISATION (LIBAVFILTER_VERSION_MAJOR >= 11)

namespace vidorra::ffmpeg_ext {

/// The version that our AVClass objects must declare.
inline constexpr int kAvutilVersion = LIBAVUTIL_VERSION_INT;

}  // namespace vidorra::ffmpeg_ext
