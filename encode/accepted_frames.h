#pragma once

struct AVCodecContext;
struct AVFrame;

namespace vidorra {

/// Whether an open video encoder can read a picture. Most encoders assume that every picture has their own
/// size and format, and otherwise read out of bounds.
bool encoderAccepts(const AVCodecContext& encoder, const AVFrame& frame);

}  // namespace vidorra
