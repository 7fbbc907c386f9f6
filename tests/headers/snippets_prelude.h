#pragma once

/// What the snippets in the comments of headers and in docs/ use without declaring it. They are compiled and
/// never run, so that nothing here has a definition.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <functional>
#include <future>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <vidorra/vidorra.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/display.h>
}

using namespace vidorra;
using namespace vx::utils::priv;
using namespace vx::vdr::utils;

namespace snippets {

extern const char* path;
extern unsigned char* bytes;
extern const unsigned char* overlayBytes;
extern std::size_t size;
extern int inputs;
extern int index;

extern AVCodecContext context;
extern AVFormatContext* muxer;
extern AVStream* stream;
extern const objstream::object config;

extern const Timestamp time;
extern Packet packet;
extern Picture picture, screen, logo, expected;
extern AudioBuffer buffer;
extern VideoFrame frame, background, leftWindow, rightWindow;

extern BestFitPictureAllocator allocator;
extern Scaler scaler;
extern FreeTypeTextRenderer renderer;
extern Resampler resampler;
extern FormatContext source;
extern VideoFrameQueue queue;
extern VideoEncoder encoder;

void readPictures(MediaFileReader& reader, VideoFrameQueue& queue, const std::atomic<bool>& running);

}  // namespace snippets
