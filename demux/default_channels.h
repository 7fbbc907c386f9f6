#pragma once

#include "ffmpeg/channels.h"

namespace vidorra {

/// Sets the usual mask for the number of channels on a stream or frame without a channel mask. Returns
/// whether it then has a mask: some numbers have no usual one.
template <class T>
bool setDefaultChannelMask(T& object) {
    if (ffmpeg_ext::channelMask(object) == 0) {
        ffmpeg_ext::setChannelMask(object, ffmpeg_ext::defaultChannelMask(ffmpeg_ext::channelCount(object)));
    }
    return ffmpeg_ext::channelMask(object) != 0;
}

}  // namespace vidorra
