#pragma once

#include "vidorra/picture/audio_buffer.h"
#include "vidorra/picture/picture.h"

namespace vidorra::test {

/// A picture with another byte at each place, of the limited range for YUV.
Picture testPicture(Size size, AVPixelFormat format);

/// Stereo samples at this rate.
AudioBuffer testSamples(unsigned long count, AVSampleFormat format, int rate);

}  // namespace vidorra::test
