#pragma once

/// The few FFmpeg headers that public headers need for its enumerations. <cstdint> comes first because
/// FFmpeg's headers do not compile as C++ without it.

#include <cstdint>

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavutil/pixfmt.h>
#include <libavutil/rational.h>
#include <libavutil/samplefmt.h>
}

struct AVBufferRef;
struct AVCodec;
struct AVCodecContext;
struct AVCodecParameters;
struct AVDictionary;
struct AVFilter;
struct AVFilterContext;
struct AVFilterGraph;
struct AVFilterInOut;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwrContext;
