#pragma once

struct AVCodecContext;
struct AVFrame;

namespace vidorra {

/// Whether a picture is one that an open video encoder can read: most encoders take what they are given for a
/// picture of their own size and format, and read wrong memory where it is not.
bool encoderAccepts(const AVCodecContext& encoder, const AVFrame& frame);

}  // namespace vidorra
