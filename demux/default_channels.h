#pragma once

#include "ffmpeg/channels.h"

namespace vidorra {

/// Gives a stream or a frame without a channel mask the usual one for its number of channels. Gives whether
/// it has a mask then: there are numbers without a usual one.
template <class T>
bool setDefaultChannelMask(T& object) {
    if (ffmpeg_ext::channelMask(object) == 0) {
        ffmpeg_ext::setChannelMask(object, ffmpeg_ext::defaultChannelMask(ffmpeg_ext::channelCount(object)));
    }
    return ffmpeg_ext::channelMask(object) != 0;
}

}  // namespace vidorra
